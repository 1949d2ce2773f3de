# Everyday entry points. `make run` and `make test` install what is missing
# (Debian packages, as root), build, and run. See README.md.

BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
RUN_ROOT   ?= $(BUILD)/run-root
PLATFORM   ?= dravon
JOBS       ?= $(shell nproc)
FUZZ_SECONDS ?= 10
CMAKE_GEN  := -G Ninja

.PHONY: all deps build build-asan run test test-plain test-asan fuzz bench format clean

all: build

deps:
	@scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j $(JOBS)

build-asan: deps
	cmake -S . -B $(ASAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DGDS_SANITIZE=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)

# Runs the data server in the foreground on a fresh copy of the simulated
# controller (sim/root), listening on 127.0.0.1:8195 and 127.0.0.1:8197.
# PLATFORM=<name> picks a simulated platform (sim/platforms/<name>).
run: build
	PLATFORM=$(PLATFORM) scripts/run-sim.sh $(BUILD) $(RUN_ROOT)

test: test-plain test-asan fuzz

test-plain: build
	cd $(BUILD) && ctest -j $(JOBS) --output-on-failure --timeout 300

test-asan: build-asan
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest -j $(JOBS) --output-on-failure --timeout 600

# Builds the libFuzzer targets with clang and runs each for FUZZ_SECONDS on
# its seed corpus.
fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DGDS_FUZZ=ON
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	scripts/run-fuzzers.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

bench: build
	$(BUILD)/bin/gdsbench

format:
	find include src platform tools tests fuzz bench lib -name '*.cpp' -o -name '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD)
