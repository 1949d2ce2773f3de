#!/usr/bin/env bash
# Installs what building and checking the Debian packages needs: dpkg-dev and
# fakeroot (cpack's DEB generator and its tools), lintian, pkg-config and
# systemd (systemd-analyze verify for the unit). Idempotent: when everything
# is there it costs one dpkg query per package.
set -euo pipefail

PKGS=(dpkg-dev fakeroot lintian pkg-config systemd)

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
