#!/usr/bin/env bash
# What scripts/test-package.sh does in the fresh root, where it starts this.
set -eEuo pipefail
trap 'echo "FAILED in line $LINENO: $BASH_COMMAND" >&2' ERR
. scripts/lib.sh

name=com.tolvane.brimlet
main=/opt/apps/com.tolvane.brimlet/files/brimlet/bin/Brimlet
packages=(brimletd libbrimlet-dev)

# called_with GROUPS: what a caller in these groups is told.
called_with() {
  setpriv --reuid=nobody --regid=nogroup "$1" \
    busctl call "$name" /com/tolvane/brimlet "$name" brimletd s "echo --add" 2>&1 || true
}

mkdir -p /run/dbus
dbus-daemon --system --nofork --nopidfile 2>bus.log &
until [ -S /run/dbus/system_bus_socket ]; do sleep 0.05; done

echo "Installing the packages"
quietly apt-get -qq update
quietly apt-get -qq install -y --no-install-recommends ./*.deb
# Once more, as an upgrade goes.
quietly apt-get -qq install -y --reinstall ./*.deb
[ -z "$(dpkg --verify "${packages[@]}")" ]
brimlet-check --version

echo "Building against the library"
quietly cmake -S examples/consumer -B consumer
quietly cmake --build consumer
(cd consumer && quietly ctest --output-on-failure)
# What is installed, where a build would have it.
mkdir -p build/bin build/examples build/packaging
ln -s /usr/sbin/brimletd build/bin/
ln -s "/usr/share/dbus-1/system.d/$name.conf" build/packaging/
# The examples name the headers as the tree does.
# shellcheck disable=SC2046  # several words
quietly c++ -std=c++17 -I/usr/include/brimlet examples/main_program.cpp \
  -o build/examples/main_program $(pkg-config --cflags --libs brimlet)
install -D build/examples/main_program "$main"

echo "Calling the daemon"
# On the bus that has run all the time, which has to have learnt of the policy and of the group.
coproc "$main" /usr/sbin/brimletd
timeout 60 grep -q ready <&"${COPROC[0]}"
[ "$(called_with --groups=brimlet)" = 's "auth failed"' ]
grep -E "Access denied|Rejected send message" <<<"$(called_with --clear-groups)"
kill "$COPROC_PID"
BRIMLET_BUILD=build quietly scripts/demo.py

echo "Removing the packages"
dpkg -L "${packages[@]}" | grep brimlet >installed
quietly apt-get -qq purge -y "${packages[@]}"
[ -z "$(xargs ls -d <installed 2>/dev/null || true)" ]
