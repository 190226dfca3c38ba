#!/usr/bin/env bash
# Builds the Debian packages, installs them in a fresh Debian root in a temporary folder, and uses them
# there. Has the daemon of the packages for AArch64 go through the demonstration, emulated.
#
#   scripts/test-package.sh
#
# As root, or with sudo, which the fresh root takes. Nothing is left behind but the folder build/.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

install_missing mmdebstrap util-linux
if ! as_root true 2>/dev/null; then
  echo "$0: has to be run as root, or to have sudo" >&2
  exit 1
fi
scripts/package.sh
if [ "$(dpkg --print-architecture)" != arm64 ]; then
  scripts/package.sh --arch arm64
  echo "Running the daemon of this package"
  dpkg-deb --extract build/package-arm64/debs/brimletd_*.deb build/package-arm64/files
  BRIMLET_TESTED_DAEMON=$(emulated build/package-arm64/files/usr/sbin/brimletd) \
    quietly scripts/demo.sh
fi

root=$(mktemp -d "${TMPDIR:-/tmp}/brimlet-root-XXXXXX")
trap 'as_root rm -rf --one-file-system "$root"' EXIT
echo "Making a fresh root"
# With the bus, and with what a developer has anyway; the rest is for the packages to ask for.
quietly as_root mmdebstrap --mode=root --variant=apt --format=directory --dpkgopt=force-unsafe-io \
  --include=ca-certificates,dbus,g++,cmake,make,pkg-config,python3-jeepney bookworm "$root"
as_root install -D -m 644 tests/machine.py "$root/src/tests/machine.py"
as_root cp -r build/package/debs/*.deb examples packaging scripts "$root/src/"
# With the process namespace everything ends that was started in it. The root is a mount of its own
# there, which the private machine expects of one.
# shellcheck disable=SC2016  # expanded by the shell inside
as_root env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C DEBIAN_FRONTEND=noninteractive \
  timeout 1800 unshare --mount --pid --fork --kill-child sh -c '
    mount --bind "$1" "$1"
    exec unshare --mount --root="$1" --mount-proc --wd=/src scripts/test_package_session.sh
  ' sh "$root"
