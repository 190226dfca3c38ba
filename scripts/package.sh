#!/usr/bin/env bash
# Installs what is missing on a Debian machine, builds the Debian packages, checks them, and prints
# where they lie.
#
#   scripts/package.sh [--arch amd64|arm64] [CMAKE-OPTION...]
#
# The packages are for the machine's own architecture unless told otherwise; those for arm64 are
# cross-compiled elsewhere. Nothing but the sources and the options decides about their bytes: built
# again, they are the same.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh
umask 022

own=$(dpkg --print-architecture) preset=package
if [ "${1-}" = --arch ]; then
  case ${2-} in
    "$own") ;;
    arm64)
      preset="package-arm64"
      install_missing "${AARCH64_PACKAGES[@]}"
      ;;
    *)
      echo "usage: scripts/package.sh [--arch $own|arm64] [CMAKE-OPTION...]" >&2
      exit 2
      ;;
  esac
  shift 2
fi
install_missing "${BUILD_PACKAGES[@]}" "${PACKAGE_PACKAGES[@]}"

released=$(sed -n 's/^## \[[0-9.]*\] - //p' CHANGELOG.md | head -n 1)
SOURCE_DATE_EPOCH=$(date --utc --date="${released:?}" +%s)
export SOURCE_DATE_EPOCH
rm -rf "build/$preset/debs"
build "$preset" --fresh "$@"
quietly cpack --config "build/$preset/CPackConfig.cmake" -B "build/$preset/debs"

for page in "build/$preset"/packaging/*.[18]; do
  echo "man and mandoc: ${page##*/}"
  warnings=$(LC_ALL=C.UTF-8 MANROFFSEQ='' MANWIDTH=80 \
    man --warnings -E UTF-8 -l -Tutf8 -Z "$page" 2>&1 >/dev/null) || warnings+=$'\nfailed'
  [ -z "$warnings" ] || { echo "$warnings" >&2; exit 1; }
  mandoc -Tlint -Wstyle "$page" >&2
done
echo "lintian"
lintian --allow-root --fail-on error,warning "build/$preset"/debs/*.deb
ls "build/$preset"/debs/*.deb
