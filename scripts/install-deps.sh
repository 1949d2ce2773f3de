#!/usr/bin/env bash
# Installs the Debian packages the project needs to build, run and test, or,
# given package names, just those (the packaging and browser targets call it
# so). Idempotent: only missing packages are installed, so repeated `make`
# calls cost one dpkg query each.
set -euo pipefail

PKGS=(g++ cmake ninja-build make libcjson-dev libgtest-dev libgmock-dev dmidecode
      clang libclang-rt-14-dev libxml2-utils python3 gcovr
      libcpp-httplib-dev libcrypt-dev pkg-config)
if [ $# -gt 0 ]; then
  PKGS=("$@")
fi

missing=()
for p in "${PKGS[@]}"; do
  if ! dpkg-query -W -f='${Status}' "$p" 2>/dev/null | grep -q "install ok installed"; then
    missing+=("$p")
  fi
done

if [ ${#missing[@]} -eq 0 ]; then
  exit 0
fi

echo "Installing missing packages: ${missing[*]}"
if [ "$(id -u)" -ne 0 ]; then
  SUDO=sudo
else
  SUDO=
fi
export DEBIAN_FRONTEND=noninteractive
$SUDO apt-get update -qq
$SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
