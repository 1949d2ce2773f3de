#!/usr/bin/env bash
# Seeds a fresh simulated controller root from sim/root (plus the overlay
# sim/platforms/$PLATFORM when that platform has one) and runs the data
# server in the foreground on it. Usage: run-sim.sh BUILD_DIR ROOT_DIR
# Environment: PLATFORM (default dravon), HOST (a real host's SMBIOS data,
# dmidecode's text or a --dump-bin file, as the simulated host), GDS_EMULATOR (runs the server
# through it, e.g. qemu-arm for the armhf build), GDS_CLIENT_BIN (folder of
# the gdsctl to suggest; default the build's own), GDSWEB_PORT (the web
# front door's port, default 8080), and the server's own variables.
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
# HOST: the real host's SMBIOS data replaces the platform's processors, DIMMs
# and PCI adapters (a raw dump starts with its entry point, "_SM").
if [ -n "${HOST:-}" ]; then
  form=--from-dmidecode
  case "$(head -c 4 "$HOST")" in _SM*|_DMI) form=--from-dump ;; esac
  "${GDS_CLIENT_BIN:-$build/bin}/simhw" host "$form" "$HOST" --onto "$root/var/smbios/host.json" \
    > "$root/var/smbios/host.json.new"
  mv "$root/var/smbios/host.json.new" "$root/var/smbios/host.json"
fi
sed "s|@GDS_LIB_DIR@|$build/lib|g" "$here/sim/dataserver.conf.in" > "$root/etc/dataserver.conf"

export GDS_ROOT="$root"
# The identity a controller's environment carries (product id and serial
# number, read by the inventory); variables already set win.
if [ -f "$root/etc/sim-environment" ]; then
  while IFS='=' read -r name value; do
    case "$name" in product_name|serial_number) [ -z "${!name:-}" ] && export "$name=$value" ;; esac
  done < "$root/etc/sim-environment"
fi
legacy=${DATA_SERVER_PORT:-8195}
nxtgen=${GDS_NXTGEN_PORT:-8197}
echo "Simulated controller root: $GDS_ROOT (platform $platform)"
# The client runs natively, also when the server is an armhf build.
client=${GDS_CLIENT_BIN:-$build/bin}
cd "$root"

# The server runs as a child so that, once it listens, the table below can be
# printed; Ctrl-C (which a background child of a script ignores) is passed
# on as SIGTERM.
# GDS_EMULATOR (make run-arm) is split into words on purpose: an emulator
# and its options.
# shellcheck disable=SC2086
${GDS_EMULATOR:-} "$build/bin/gds" -configfile "$root/etc/dataserver.conf" &
gds_pid=$!
web_pid=
trap 'kill -TERM "$gds_pid" $web_pid 2>/dev/null' INT TERM

# Prints what the simulated controller offers. The canned library writes the
# agent list (var/canned/agents: agent, names, source, in the order the server
# asks them) at the first connection, which the readiness probe makes.
print_offer() {
  local offer="$root/var/canned/agents" i
  for i in $(seq 1 50); do
    [ -f "$offer" ] && break
    sleep 0.1
  done
  echo
  echo "Simulated controller listening on 127.0.0.1:$legacy (legacy) and 127.0.0.1:$nxtgen"
  printf '  %-28s %s\n' "Platform" "$platform (/etc/product: $(cat "$root/etc/product" 2>/dev/null))"
  printf '  %-28s %s\n' "Host described by" "$root/usr/local/etc/appweb/default.properties (start-up values)"
  printf '  %-28s %s\n' "" "$root/var/aim/props/ (live property values; build/bin/aimctl)"
  if [ -f "$root/var/smbios/host.json" ]; then
    printf '  %-28s %s\n' "" "$root/var/smbios/host.json (SMBIOS host description)"
  fi
  if [ -f "$offer" ]; then
    echo "  Agents, in the order a name is looked up:"
    printf '    %-26s %5s  %s\n' "Agent" "Names" "From"
    while IFS=$'\t' read -r agent names source; do
      printf '    %-26s %5s  %s\n' "$agent" "$names" "$source"
    done < "$offer"
  else
    echo "  (no agent list: the canned library is not in etc/dataserver.conf)"
  fi
  echo "Try: $client/gdsctl -p $legacy 'get=hostname,sshPort,fans'    (Ctrl-C stops the server)"
}

ready=0
for i in $(seq 1 200); do
  if "$client/gdsctl" -p "$legacy" 'get=' >/dev/null 2>&1; then
    ready=1
    break
  fi
  kill -0 "$gds_pid" 2>/dev/null || break
  sleep 0.1
done
[ "$ready" = 1 ] && print_offer

# The web front door beside the server (same root, the JSON-header port).
web_port=${GDSWEB_PORT:-8080}
if [ "$ready" = 1 ] && [ -x "$client/gdsweb" ]; then
  "$client/gdsweb" -p "$web_port" --data-port "$nxtgen" &
  web_pid=$!
  echo "Web front door: http://127.0.0.1:$web_port/  users admin, operator, readonly; password 'password' (development only)"
fi

set +e
wait "$gds_pid"
rc=$?
[ -n "$web_pid" ] && kill -TERM "$web_pid" 2>/dev/null
while kill -0 "$gds_pid" 2>/dev/null; do
  wait "$gds_pid"
  rc=$?
done
exit "$rc"
