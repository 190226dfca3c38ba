#!/usr/bin/env bash
# Installs what is missing on a Debian machine, builds the Debian packages, checks them, and prints
# where they lie.
#
#   scripts/package.sh [CMAKE-OPTION...]
#
# Nothing but the sources and the options decides about their bytes: built again, they are the same.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh
umask 022

install_missing "${BUILD_PACKAGES[@]}" "${PACKAGE_PACKAGES[@]}"
released=$(sed -n 's/^## \[[0-9.]*\] - //p' CHANGELOG.md | head -n 1)
SOURCE_DATE_EPOCH=$(date --utc --date="${released:?}" +%s)
export SOURCE_DATE_EPOCH
echo "Building (package)"
rm -rf build/package/debs
build package --fresh "$@"
quietly cpack --config build/package/CPackConfig.cmake -B build/package/debs

page=build/package/packaging/brimletd.8
echo "man"
warnings=$(LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 \
  man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null) || warnings+=$'\nfailed'
[ -z "$warnings" ] || { echo "$warnings" >&2; exit 1; }
echo "mandoc"
mandoc -Tlint -Wstyle "$page" >&2
echo "lintian"
lintian --allow-root --fail-on error,warning build/package/debs/*.deb
ls build/package/debs/*.deb
