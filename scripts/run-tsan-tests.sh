#!/usr/bin/env bash
# Runs the test suite of a ThreadSanitizer build. Every process (the test
# programs and the servers and tools they start) inherits TSAN_OPTIONS: the
# first report ends the process and is written to a file under
# BUILD/tsan-reports, so a report from a server that a test merely stops
# still fails the run. Usage: run-tsan-tests.sh BUILD_DIR [JOBS]
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:?build dir}" && pwd)
jobs=${2:-$(nproc)}
reports="$build/tsan-reports"
rm -rf "$reports"
mkdir -p "$reports"

options="halt_on_error=1 second_deadlock_stack=1 log_path=$reports/report"
if [ -s "$here/tests/tsan.supp" ]; then
  options="$options suppressions=$here/tests/tsan.supp"
fi
status=0
(cd "$build" && TSAN_OPTIONS="$options" ctest -j "$jobs" --output-on-failure --timeout 900) || status=$?

if compgen -G "$reports/report*" >/dev/null; then
  echo "ThreadSanitizer reports:"
  for f in "$reports"/report*; do
    echo "== $f"
    cat "$f"
  done
  exit 1
fi
exit $status
