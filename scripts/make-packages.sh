#!/usr/bin/env bash
# Builds the Debian packages of one build folder (plain or cross) and writes
# them to BUILD/packages. The packages install below /usr (configuration in
# /etc), so the folder is configured for that prefix while cpack runs, and
# its own install prefix is put back afterwards: `cmake --install BUILD`
# behaves as before.
# Usage: make-packages.sh BUILD_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:?usage: make-packages.sh BUILD_DIR}

prefix=$(sed -n 's/^CMAKE_INSTALL_PREFIX:PATH=//p' "$build/CMakeCache.txt")
restore() {
  if [ -n "$prefix" ] && [ "$prefix" != /usr ]; then
    cmake -S "$here" -B "$build" -DCMAKE_INSTALL_PREFIX="$prefix" >/dev/null
  fi
}
trap restore EXIT

cmake -S "$here" -B "$build" -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
cmake --build "$build"
rm -rf "$build/packages" "$build/_CPack_Packages"
(cd "$build" && cpack -G DEB)
for deb in "$build"/packages/*.deb; do
  printf '%-40s %8s bytes\n' "$(basename "$deb")" "$(stat -c %s "$deb")"
done
