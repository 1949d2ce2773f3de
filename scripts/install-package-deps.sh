#!/usr/bin/env bash
# Installs what building and checking the Debian packages needs: dpkg-dev and
# fakeroot (cpack's DEB generator and its tools), lintian, pkg-config and
# systemd (systemd-analyze verify for the unit).
exec "$(dirname "$0")/install-deps.sh" dpkg-dev fakeroot lintian pkg-config systemd
