#!/usr/bin/env bash
# Runs every fuzz target of a clang fuzz build for a few seconds on its seed
# corpus (fuzz/corpus/<name>, copied so the tree stays clean). Any crash,
# leak or sanitizer report fails the run.
set -euo pipefail
build=${1:?build dir}
seconds=${2:-10}
here=$(cd "$(dirname "$0")/.." && pwd)
# Absolute, because each target runs with the work folder as its current
# directory.
build=$(cd "$build" && pwd)
work="$build/fuzz-work"
rm -rf "$work"; mkdir -p "$work"
status=0
for bin in "$build"/bin/*_fuzz; do
  [ -x "$bin" ] || continue
  name=$(basename "$bin" _fuzz)
  corpus="$work/$name"
  mkdir -p "$corpus"
  if [ -d "$here/fuzz/corpus/$name" ]; then
    cp -r "$here/fuzz/corpus/$name/." "$corpus/"
  fi
  echo "== fuzz $name (${seconds}s)"
  if ! (cd "$work" && GDS_ROOT="$work/root-$name" "$bin" -max_total_time="$seconds" -rss_limit_mb=2048 \
          -print_final_stats=0 "$corpus" >"$work/$name.log" 2>&1); then
    echo "fuzz target $name failed:"; tail -n 60 "$work/$name.log"; status=1
  else
    grep -E '^(Done|#[0-9]+ *DONE)' "$work/$name.log" | tail -n 1 || true
  fi
done
exit $status
