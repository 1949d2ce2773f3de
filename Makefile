# Everyday entry points. `make run` and `make test` install what is missing
# (Debian packages, as root), build, and run. See README.md.

BUILD      ?= build
ASAN_BUILD ?= build-asan
FUZZ_BUILD ?= build-fuzz
TSAN_BUILD ?= build-tsan
ARM_BUILD  ?= build-arm
COV_BUILD  ?= build-cov
ARM_RUN_ROOT ?= $(ARM_BUILD)/run-root
RUN_ROOT   ?= $(BUILD)/run-root
PLATFORM   ?= dravon
JOBS       ?= $(shell nproc)
FUZZ_SECONDS ?= 10
CMAKE_GEN  := -G Ninja

.PHONY: all deps deps-arm build build-asan build-tsan build-arm run run-arm test test-plain test-asan \
        test-tsan test-arm coverage test-browser fuzz bench format clean package package-arm test-package

all: build

deps:
	@scripts/install-deps.sh

build: deps
	cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j $(JOBS)

build-asan: deps
	cmake -S . -B $(ASAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=Debug -DGDS_SANITIZE=ON
	cmake --build $(ASAN_BUILD) -j $(JOBS)

# ThreadSanitizer build (its own folder). Not combinable with ASan.
build-tsan: deps
	cmake -S . -B $(TSAN_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DGDS_TSAN=ON
	cmake --build $(TSAN_BUILD) -j $(JOBS)

# The controller's 32-bit ARM (armhf), cross-built with the distribution's
# toolchain; programs run under qemu-arm (see cmake/arm-linux-gnueabihf.cmake).
deps-arm: deps
	@scripts/install-arm-deps.sh

build-arm: deps-arm
	cmake -S . -B $(ARM_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo \
	  -DCMAKE_TOOLCHAIN_FILE=$(CURDIR)/cmake/arm-linux-gnueabihf.cmake
	cmake --build $(ARM_BUILD) -j $(JOBS)

# Runs the data server in the foreground on a fresh copy of the simulated
# controller (sim/root), listening on 127.0.0.1:8195 and 127.0.0.1:8197.
# PLATFORM=<name> picks a simulated platform (sim/platforms/<name>);
# HOST=<file> makes a real host's SMBIOS data (dmidecode text or dump) the host.
run: build
	PLATFORM=$(PLATFORM) HOST=$(HOST) scripts/run-sim.sh $(BUILD) $(RUN_ROOT)

# The armhf server under qemu-arm on the simulated controller, same ports as
# `make run`; talk to it with the host's build/bin/gdsctl (built here too).
run-arm: build-arm
	cmake -S . -B $(BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo
	cmake --build $(BUILD) -j $(JOBS) --target gdsctl simhw
	PLATFORM=$(PLATFORM) HOST=$(HOST) GDS_EMULATOR='qemu-arm -L /' GDS_CLIENT_BIN=$(BUILD)/bin \
	  scripts/run-sim.sh $(ARM_BUILD) $(ARM_RUN_ROOT)

test: test-plain test-asan fuzz

test-plain: build
	cd $(BUILD) && ctest -j $(JOBS) --output-on-failure --timeout 300

test-asan: build-asan
	cd $(ASAN_BUILD) && ASAN_OPTIONS=detect_leaks=1:abort_on_error=1 \
	  UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1 \
	  ctest -j $(JOBS) --output-on-failure --timeout 600

# The whole suite with ThreadSanitizer, the servers under test included. Any
# report from any process fails the run (scripts/run-tsan-tests.sh).
test-tsan: build-tsan
	scripts/run-tsan-tests.sh $(TSAN_BUILD) $(JOBS)

# The whole suite cross-built for armhf, every program under qemu-arm.
test-arm: build-arm
	cd $(ARM_BUILD) && ctest -j $(JOBS) --output-on-failure --timeout 1800

# The unit and end-to-end suites built with gcc's coverage instrumentation
# (its own folder); prints line and branch coverage per subsystem and writes
# an HTML report to $(COV_BUILD)/coverage/index.html.
coverage: deps
	scripts/coverage.sh $(COV_BUILD) $(JOBS)

# Drives the web front door's explorer in headless Chromium (Selenium), which
# it installs when missing; screenshots in $(BUILD)/browser.
test-browser: build
	scripts/test-browser.sh $(BUILD)

# Builds the libFuzzer targets with clang and runs each for FUZZ_SECONDS on
# its seed corpus.
fuzz: deps
	CC=clang CXX=clang++ cmake -S . -B $(FUZZ_BUILD) $(CMAKE_GEN) -DCMAKE_BUILD_TYPE=RelWithDebInfo -DGDS_FUZZ=ON
	cmake --build $(FUZZ_BUILD) -j $(JOBS)
	scripts/run-fuzzers.sh $(FUZZ_BUILD) $(FUZZ_SECONDS)

# Debian packages (gds, gds-dev, gds-platform-sim, gds-sim) from the plain
# build and from the armhf cross build, in BUILD/packages and
# ARM_BUILD/packages. The build folders are reused: packaging only sets the
# install prefix (/usr) and runs cpack. See docs/integration.md.
package: build
	@scripts/install-package-deps.sh
	scripts/make-packages.sh $(BUILD)

package-arm: build-arm
	@scripts/install-package-deps.sh
	scripts/make-packages.sh $(ARM_BUILD)

# Builds both sets of packages and proves them in a throwaway root below
# BUILD/package-test (the machine itself is not changed).
test-package: package package-arm
	scripts/test-package.sh $(BUILD) $(ARM_BUILD)

bench: build
	$(BUILD)/bin/gdsbench

format:
	find include src platform tools tests fuzz bench lib -name '*.cpp' -o -name '*.h' | xargs clang-format -i

clean:
	rm -rf $(BUILD) $(ASAN_BUILD) $(FUZZ_BUILD) $(TSAN_BUILD) $(ARM_BUILD) $(COV_BUILD)
