#!/usr/bin/env bash
# Builds the Debian packages of one build folder (plain or cross): sets the
# install prefix the packages use (/usr; the configuration and unit paths
# follow from it) and runs cpack. The packages land in BUILD/packages.
# Usage: make-packages.sh BUILD_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=${1:?usage: make-packages.sh BUILD_DIR}

cmake -S "$here" -B "$build" -DCMAKE_INSTALL_PREFIX=/usr >/dev/null
cmake --build "$build"
rm -rf "$build/packages" "$build/_CPack_Packages"
(cd "$build" && cpack -G DEB)
for deb in "$build"/packages/*.deb; do
  printf '%-50s %8s bytes\n' "$(basename "$deb")" "$(stat -c %s "$deb")"
done
