#!/usr/bin/env bash
# Runs the tests of an AArch64 build: on a machine of that architecture as scripts/test.sh does, on
# any other one cross-compiled and under qemu.
#
#   scripts/test-aarch64.sh
#
# Installs what is missing on a Debian machine, packages of both architectures. What cannot be tested
# under emulation is named, with the reason.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

if [ "$(uname -m)" = aarch64 ]; then
  echo "This machine is AArch64 itself: nothing to emulate"
  exec scripts/test.sh
fi

install_missing "${BUILD_PACKAGES[@]}" "${BUS_PACKAGES[@]}" "${TEST_PACKAGES[@]}" \
  "${AARCH64_PACKAGES[@]}"
echo "Building (aarch64)"
not_run=$(cmake --preset aarch64 | sed -n 's/^-- \(.* are not run: .*\)/\1/p')
quietly cmake --build --preset aarch64
ctest --preset aarch64
echo "$not_run"

# What of daemon_test does not depend on how the test program itself was built: this machine's own
# build of it makes the private machine, the main program and the callers; the daemon is emulated.
echo "Building (release), for daemon_test with an emulated daemon"
quietly cmake --preset release
quietly cmake --build --preset release --target daemon_test
# Not in the tree: the private machine may not show that.
folder=$(mktemp -d "${TMPDIR:-/tmp}/brimlet-aarch64-XXXXXX")
trap 'rm -rf "$folder"' EXIT
cp build/aarch64/bin/brimletd "$folder/"
printf '#!/bin/sh\nexec qemu-aarch64 %s\n' "$folder/brimletd" >"$folder/emulated"
quietly env BRIMLET_TESTED_DAEMON="$folder/emulated" timeout 600 \
  build/release/tests/daemon_test --gtest_brief=1 --gtest_filter=-BusServiceTest.DoesNotGrow
echo "daemon_test passed with an emulated daemon"
echo "BusServiceTest.DoesNotGrow is not run: qemu itself grows with every command that is started"
