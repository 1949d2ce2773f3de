#!/usr/bin/env bash
# Proves the Debian packages of BUILD (amd64) and ARM_BUILD (armhf) without
# changing the machine: everything is extracted below BUILD/package-test.
#  1. lintian reports no errors for any package;
#  2. the example handler library (docs/examples/handler, shown in full in
#     docs/integration.md) builds outside the tree against the extracted
#     gds-dev, once with pkg-config and once with find_package(gds);
#  3. the extracted gds, on a copy of the simulated controller, loads each
#     build of it and the extracted gdsctl reads its property;
#  4. systemd-analyze verify accepts the extracted unit;
#  5. the extracted armhf gds answers a request under qemu-arm.
# Usage: test-package.sh BUILD_DIR ARM_BUILD_DIR
# Environment: GDS_EMULATOR (default "qemu-arm -L /").
set -euo pipefail
here=$(cd "$(dirname "$0")/.." && pwd)
build=$(cd "${1:?usage: test-package.sh BUILD_DIR ARM_BUILD_DIR}" && pwd)
arm_build=$(cd "${2:?usage: test-package.sh BUILD_DIR ARM_BUILD_DIR}" && pwd)
emulator=${GDS_EMULATOR:-qemu-arm -L /}
work=$build/package-test
example=$here/docs/examples/handler
failures=0

fail() {
  echo "test-package: FAIL: $*" >&2
  failures=$((failures + 1))
}
step() { echo "== $*"; }

rm -rf "$work"
mkdir -p "$work"

extract() {  # extract PACKAGE_DIR ROOT
  mkdir -p "$2"
  for deb in "$1"/*.deb; do
    dpkg -x "$deb" "$2"
  done
}

step "packages"
ls "$build"/packages/*.deb "$arm_build"/packages/*.deb >/dev/null
for deb in "$build"/packages/*.deb "$arm_build"/packages/*.deb; do
  printf '  %-48s %8s bytes\n' "$(basename "$deb")" "$(stat -c %s "$deb")"
done

step "lintian (no errors allowed)"
# Running as root only earns a warning; the output is shown in full.
if ! lintian --fail-on error --allow-root "$build"/packages/*.deb "$arm_build"/packages/*.deb; then
  fail "lintian reports errors"
fi

root=$work/root
extract "$build/packages" "$root"
multiarch=$(gcc -print-multiarch)
libdir=$root/usr/lib/$multiarch

step "the doc shows the example as built here"
for file in hello.cpp CMakeLists.txt; do
  # The block after the line "<!-- docs/examples/handler/FILE -->".
  awk -v marker="<!-- docs/examples/handler/$file -->" '
    $0 == marker { want = 1; next }
    want && /^```/ { if (inside) exit; inside = 1; next }
    inside { print }' "$here/docs/integration.md" >"$work/doc-$file"
  cmp -s "$work/doc-$file" "$example/$file" || fail "docs/integration.md does not show $example/$file as it is"
done

step "example handler library with pkg-config"
mkdir -p "$work/pc"
# shellcheck disable=SC2046  # pkg-config's flags are meant to split
if ! g++ -std=c++17 -shared -fPIC -Wall -o "$work/pc/libhello.so" "$example/hello.cpp" \
    $(PKG_CONFIG_PATH='' PKG_CONFIG_LIBDIR="$libdir/pkgconfig" PKG_CONFIG_SYSROOT_DIR="$root" \
      pkg-config --cflags --libs gds); then
  fail "the example does not build with pkg-config"
fi

step "example handler library with find_package(gds)"
if ! cmake -S "$example" -B "$work/cm" -G Ninja -DCMAKE_PREFIX_PATH="$root/usr" \
      -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF >"$work/cm.log" ||
   ! cmake --build "$work/cm" >>"$work/cm.log"; then
  cat "$work/cm.log"
  fail "the example does not build with find_package(gds)"
fi

# The extracted client, with the extracted libgds.
gdsctl() { LD_LIBRARY_PATH=$libdir "$root/usr/bin/gdsctl" "$@"; }

free_port() {
  python3 -c 'import socket; s = socket.socket(); s.bind(("127.0.0.1", 0)); print(s.getsockname()[1])'
}

# serve NAME WAIT_TENTHS CONF_HANDLERS COMMAND...: starts the server (COMMAND)
# on a fresh copy of the simulated controller with a dataserver.conf of the
# handlers "name=path:entry ...", waits until the extracted gdsctl gets an
# answer, and leaves the port in $port and the process in $server.
serve() {
  local name=$1 tenths=$2 handlers=$3
  shift 3
  local sim=$work/sim-$name conf handler
  cp -a "$here/sim/root" "$sim"
  conf=$sim/etc/dataserver.conf
  : >"$conf"
  for handler in $handlers; do
    printf 'addHandler=%s\n[%s]\nlibFile=%s\nentryPoint=%s\n' "${handler%%=*}" "${handler%%=*}" \
      "$(echo "${handler#*=}" | cut -d: -f1)" "$(echo "${handler#*=}" | cut -d: -f2)" >>"$conf"
  done
  port=$(free_port)
  GDS_ROOT=$sim DATA_SERVER_PORT=$port GDS_NXTGEN_PORT=$(free_port) \
    "$@" -configfile "$conf" >"$work/$name.log" 2>&1 &
  server=$!
  for _ in $(seq 1 "$tenths"); do
    if gdsctl -p "$port" 'get=' >/dev/null 2>&1; then
      return 0
    fi
    kill -0 "$server" 2>/dev/null || break
    sleep 0.1
  done
  cat "$work/$name.log"
  fail "$name: the extracted server did not answer"
  return 1
}

stop() {
  kill "$server" 2>/dev/null || true
  wait "$server" 2>/dev/null || true
}

# expect NAME REQUEST TEXT: the reply to REQUEST holds TEXT.
expect() {
  local reply
  reply=$(gdsctl -p "$port" "$2" 2>&1) || true
  if ! grep -qF "$3" <<<"$reply"; then
    echo "$reply"
    fail "$1: no \"$3\" in the reply to $2"
  fi
}

handlers=$root/usr/lib/$multiarch/gds
for variant in pc cm; do
  step "extracted gds with the $variant build of the example"
  if serve "$variant" 100 "inventory=$handlers/libinventory.so:inventory_init hello=$work/$variant/libhello.so:hello_init" \
      env LD_LIBRARY_PATH="$libdir" "$root/usr/sbin/gds"; then
    expect "$variant" 'get=helloGreeting' '<helloGreeting>Hello from an outside handler library (1)</helloGreeting>'
    expect "$variant" 'get=hostname,helloGreeting' '<hostname>sim-bmc</hostname>'
    stop
  fi
done

step "systemd-analyze verify"
# The unit checked inside a copy of the extracted root (its ExecStart must
# exist there) that also holds the machine's own units (the targets it
# names). verify reports most problems without failing, so its output must
# not mention the unit either.
verify_root=$work/verify-root
cp -a "$root" "$verify_root"
for units in /usr/lib/systemd/system /lib/systemd/system; do
  [ -d "$units" ] && cp -an "$units/." "$verify_root/usr/lib/systemd/system/"
done
if ! systemd-analyze verify --man=no --root="$verify_root" /usr/lib/systemd/system/gds.service \
    >"$work/verify.log" 2>&1; then
  cat "$work/verify.log"
  fail "systemd-analyze verify rejects gds.service"
elif grep -q 'gds.service' "$work/verify.log"; then
  cat "$work/verify.log"
  fail "systemd-analyze verify reports problems in gds.service"
fi

step "extracted armhf gds under ${emulator}"
arm_root=$work/arm-root
extract "$arm_build/packages" "$arm_root"
arm_libdir=$arm_root/usr/lib/arm-linux-gnueabihf
# GDS_EMULATOR is split into words on purpose: an emulator and its options.
# shellcheck disable=SC2086
if [ ! -x "$arm_root/usr/sbin/gds" ] || ! readelf -h "$arm_root/usr/sbin/gds" | grep -q 'Machine: *ARM$'; then
  fail "the armhf package holds no ARM gds"
elif serve arm 1200 "adapter=$arm_libdir/gds/libadapter.so:adapter_init" \
    env LD_LIBRARY_PATH="$arm_libdir" $emulator "$arm_root/usr/sbin/gds"; then
  expect arm 'get=hostname' '<hostname>sim-bmc</hostname>'
  stop
fi

if [ "$failures" -ne 0 ]; then
  echo "test-package: $failures check(s) failed (work folder $work)" >&2
  exit 1
fi
echo "test-package: all checks passed"
