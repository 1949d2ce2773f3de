#!/usr/bin/env bash
# Installs what the 32-bit ARM build needs, from the distribution only: the
# armhf cross toolchain, qemu-user, and the armhf builds of the project's
# libraries. Idempotent: when everything is there it costs one dpkg query.
# An index that fails to update (a security mirror out of step, say) does not
# stop the install: the packages come from the main archive, and a package
# that really is missing fails the install step itself.
set -euo pipefail

# libstdc++6:armhf: the multiarch C++ runtime the programs load under
# qemu-arm (the cross package only has the copy for linking).
PKGS=(crossbuild-essential-armhf qemu-user libstdc++6:armhf libcjson-dev:armhf libgtest-dev:armhf
      libgmock-dev:armhf)

installed() {
  dpkg-query -W -f='${Status}' "$1" 2>/dev/null | grep -q "install ok installed"
}

if [ "$(id -u)" -ne 0 ]; then
  SUDO=sudo
else
  SUDO=
fi

if ! dpkg --print-foreign-architectures | grep -qx armhf; then
  echo "Adding the armhf architecture"
  $SUDO dpkg --add-architecture armhf
  need_update=1
fi

missing=()
for p in "${PKGS[@]}"; do
  installed "$p" || missing+=("$p")
done
if [ ${#missing[@]} -eq 0 ] && [ -z "${need_update:-}" ]; then
  exit 0
fi

export DEBIAN_FRONTEND=noninteractive
if [ ${#missing[@]} -gt 0 ]; then
  echo "Installing missing packages: ${missing[*]}"
  if ! $SUDO apt-get update -qq; then
    echo "install-arm-deps: some package index did not update; carrying on with the ones that did" >&2
  fi
  $SUDO apt-get install -y -qq --no-install-recommends "${missing[@]}"
fi
