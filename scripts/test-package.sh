#!/usr/bin/env bash
# Builds the Debian packages and installs them in a fresh Debian root in a temporary folder. There the
# demonstration runs against the installed daemon on that root's system bus, a member of the group and a
# stranger call it, and programs are built against the installed library, the manual's among them.
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

root=$(mktemp -d "${TMPDIR:-/tmp}/brimlet-root-XXXXXX")
trap 'as_root rm -rf --one-file-system "$root"' EXIT
echo "Making a fresh root"
# With the bus, and with what a developer has anyway; the rest is for the packages to ask for.
quietly as_root mmdebstrap --mode=root --variant=apt --format=directory \
  --include=ca-certificates,dbus,g++,cmake,make,pkg-config bookworm "$root"
as_root mkdir "$root/src"
as_root cp -r build/package/debs/*.deb examples scripts tests/consumer "$root/src/"
# In a process namespace of its own: with the script everything ends that it has started.
as_root timeout 600 unshare --mount --pid --fork --kill-child scripts/test_package_session.sh "$root"
