#!/usr/bin/env bash
# Installs what is missing on a Debian machine, builds, and runs every test.
#
#   scripts/test.sh [PRESET]
#
# PRESET is one of those in CMakePresets.json: release unless told otherwise.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

install_missing "${BUILD_PACKAGES[@]}" "${BUS_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
build_and_test "${1:-release}"
