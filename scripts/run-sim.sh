#!/usr/bin/env bash
# Seeds a fresh simulated controller root from sim/root and runs the data
# server in the foreground on it. Usage: run-sim.sh BUILD_DIR ROOT_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-build}" && pwd)
root=${2:-$build/run-root}

rm -rf "$root"
mkdir -p "$root"
root=$(cd "$root" && pwd)
cp -a "$here/sim/root/." "$root/"
sed "s|@GDS_LIB_DIR@|$build/lib|g" "$here/sim/dataserver.conf.in" > "$root/etc/dataserver.conf"

export GDS_ROOT="$root"
echo "Simulated controller root: $GDS_ROOT"
echo "Legacy port ${DATA_SERVER_PORT:-8195}, next-generation port ${GDS_NXTGEN_PORT:-8197} on 127.0.0.1"
echo "Try: $build/bin/gdsctl 'get=hostname,sshPort'    (Ctrl-C stops the server)"
cd "$root"
exec "$build/bin/gds" -configfile "$root/etc/dataserver.conf"
