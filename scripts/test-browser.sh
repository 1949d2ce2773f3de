#!/usr/bin/env bash
# `make test-browser`: installs headless Chromium, its WebDriver and Selenium
# when missing, starts gds and gdsweb on a throwaway copy of sim/root with
# free ports, and drives the explorer (scripts/browser-test.py). Screenshots
# land in BUILD_DIR/browser. Usage: test-browser.sh BUILD_DIR
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:-build}" && pwd)

"$here/scripts/install-deps.sh" chromium chromium-driver python3-selenium
if [ ! -x "$build/bin/gdsweb" ]; then
  echo "test-browser: $build/bin/gdsweb was not built (cpp-httplib missing?)" >&2
  exit 1
fi

out="$build/browser"
root="$out/root"
rm -rf "$out"
mkdir -p "$root"
cp -a "$here/sim/root/." "$root/"
sed "s|@GDS_LIB_DIR@|$build/lib|g" "$here/sim/dataserver.conf.in" > "$root/etc/dataserver.conf"
read -r legacy nxtgen web < <(python3 -c '
import socket
s = [socket.socket() for _ in range(3)]
for x in s: x.bind(("127.0.0.1", 0))
print(*[x.getsockname()[1] for x in s])')

export GDS_ROOT="$root"
pids=()
cleanup() { kill "${pids[@]}" 2>/dev/null || true; wait 2>/dev/null || true; }
trap cleanup EXIT
(cd "$root" && GDS_NXTGEN_PORT=$nxtgen exec "$build/bin/gds" -configfile "$root/etc/dataserver.conf" -port "$legacy") \
  > "$out/gds.log" 2>&1 &
pids+=($!)
for _ in $(seq 1 100); do
  "$build/bin/gdsctl" -p "$legacy" 'get=' >/dev/null 2>&1 && break
  sleep 0.1
done
"$build/bin/gdsweb" -p "$web" --data-port "$nxtgen" > "$out/gdsweb.log" 2>&1 &
pids+=($!)
for _ in $(seq 1 100); do
  python3 -c "import socket; socket.create_connection(('127.0.0.1', $web), 1)" 2>/dev/null && break
  sleep 0.1
done
# Debian's python3, which has python3-selenium (not one a version manager put first on PATH).
/usr/bin/python3 "$here/scripts/browser-test.py" "http://127.0.0.1:$web/" "$out"
