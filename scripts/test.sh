#!/usr/bin/env bash
# Installs what is missing on a Debian machine, builds, and runs every test.
#
#   scripts/test.sh [PRESET [TESTS]]
#
# PRESET is one of those in CMakePresets.json: release unless told otherwise. TESTS is a regular
# expression: only the tests whose names match are run.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

preset=${1:-release}
install_missing "${BUILD_PACKAGES[@]}" "${BUS_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
case $preset in
  clang | *san*) install_missing "${CLANG_PACKAGES[@]}" ;;
esac
# To install this one would make it the machine's own bus.
command -v dbus-broker-launch >/dev/null || unpack dbus-broker
export BRIMLET_BROKER_DIR=$PWD/build/dbus-broker/usr/bin
build_and_test "$preset" "${2:-.}"
