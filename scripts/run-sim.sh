#!/usr/bin/env bash
# Seeds a fresh simulated controller root from sim/root (plus the overlay
# sim/platforms/$PLATFORM when that platform has one) and runs the data
# server in the foreground on it. Usage: run-sim.sh BUILD_DIR ROOT_DIR
# Environment: PLATFORM (default dravon), GDS_EMULATOR (runs the server
# through it, e.g. qemu-arm for the armhf build), GDS_CLIENT_BIN (folder of
# the gdsctl to suggest; default the build's own), and the server's own
# variables.
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-build}" && pwd)
root=${2:-$build/run-root}
platform=${PLATFORM:-dravon}

if [ ! -d "$here/sim/platforms/$platform" ] && [ "$platform" != dravon ]; then
  echo "Unknown simulated platform '$platform'; known: dravon $(ls "$here/sim/platforms" 2>/dev/null | tr '\n' ' ')" >&2
  exit 2
fi

rm -rf "$root"
mkdir -p "$root"
root=$(cd "$root" && pwd)
cp -a "$here/sim/root/." "$root/"
if [ -d "$here/sim/platforms/$platform" ]; then
  cp -a "$here/sim/platforms/$platform/." "$root/"
fi
sed "s|@GDS_LIB_DIR@|$build/lib|g" "$here/sim/dataserver.conf.in" > "$root/etc/dataserver.conf"

export GDS_ROOT="$root"
echo "Simulated controller root: $GDS_ROOT (platform $platform)"
echo "Legacy port ${DATA_SERVER_PORT:-8195}, next-generation port ${GDS_NXTGEN_PORT:-8197} on 127.0.0.1"
echo "Try: ${GDS_CLIENT_BIN:-$build/bin}/gdsctl 'get=hostname,sshPort'    (Ctrl-C stops the server)"
cd "$root"
# GDS_EMULATOR is split into words on purpose (an emulator and its options).
# shellcheck disable=SC2086
exec ${GDS_EMULATOR:-} "$build/bin/gds" -configfile "$root/etc/dataserver.conf"
