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
command -v dbus-broker-launch >/dev/null || unpack_broker
export BRIMLET_BROKER_DIR=$PWD/build/dbus-broker/usr/bin
build "$preset"
ctest --preset "$preset" --parallel "$(nproc)" --tests-regex "${2:-.}"
