#!/usr/bin/env bash
# make coverage: builds with gcc's coverage instrumentation in its own folder,
# runs the unit and end-to-end suites (the gds servers they start write their
# counters when stopped), then writes an HTML report (BUILD/coverage/) and
# prints a one-screen summary of line and branch coverage per subsystem.
#
# Branches are counted as gcc emits them, those it adds for exceptions
# included (so a figure here compares with one from a plain gcovr run).
# Only product code is reported; the tests' own objects are not read.
#
# Usage: scripts/coverage.sh BUILD JOBS
set -uo pipefail
cd "$(dirname "$0")/.."
build=${1:-build-cov}
jobs=${2:-2}
src=$(pwd)

cmake -S . -B "$build" -G Ninja -DCMAKE_BUILD_TYPE=Debug -DGDS_COVERAGE=ON || exit 1
cmake --build "$build" -j "$jobs" || exit 1

# Counters of an earlier run would add to this one.
find "$build" -name '*.gcda' -delete
(cd "$build" && ctest -j "$jobs" --output-on-failure --timeout 900)
status=$?

out="$build/coverage"
rm -rf "$out"
mkdir -p "$out"
gcovr -r "$src" --object-directory "$build" -j "$jobs" \
  --filter "$src/(src|platform|tools|handlers|lib|web)/" \
  --exclude-directories "$(cd "$build" && pwd)/tests" \
  --html-details "$out/index.html" --html-title "gds coverage" \
  --json-summary "$out/summary.json" >/dev/null || exit 1

python3 - "$out/summary.json" <<'EOF'
import json, sys

files = json.load(open(sys.argv[1]))["files"]
groups = [("src/" + s, "src/" + s + "/") for s in
          ("server", "wire", "agents", "console", "inventory", "adapters", "bios")]
groups += [("src", "src/")]
groups += [(d, d + "/") for d in ("platform", "tools", "handlers", "lib", "web")]

def pct(hit, total):
    return "%6.1f%%" % (100.0 * hit / total) if total else "      -"

print("coverage (lines, branches; HTML report: coverage/index.html)")
print("%-15s %8s %7s %9s %7s" % ("", "lines", "", "branches", ""))
for name, prefix in groups:
    mine = [f for f in files if f["filename"].startswith(prefix)]
    if not mine:
        continue
    lt = sum(f["line_total"] for f in mine)
    lc = sum(f["line_covered"] for f in mine)
    bt = sum(f["branch_total"] for f in mine)
    bc = sum(f["branch_covered"] for f in mine)
    print("%-15s %8d %s %9d %s" % (name, lt, pct(lc, lt), bt, pct(bc, bt)))
EOF
echo "coverage: HTML report in $out/index.html"
exit $status
