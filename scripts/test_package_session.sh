#!/usr/bin/env bash
# What scripts/test-package.sh does in the fresh root, where it starts this.
set -euo pipefail
. scripts/lib.sh

name=com.tolvane.brimlet
main=/opt/apps/com.tolvane.brimlet/files/brimlet/bin/Brimlet

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

start_bus() {
  mkdir -p /run/dbus
  dbus-daemon --system --nofork --nopidfile 2>/bus.log &
  until [ -S /run/dbus/system_bus_socket ]; do sleep 0.05; done
}

install_packages() {
  quietly apt-get -qq update
  quietly apt-get -qq install -y --no-install-recommends ./*.deb
  # Once more, as an upgrade goes.
  quietly apt-get -qq install -y --reinstall ./*.deb
  [ -z "$(dpkg --verify brimletd libbrimlet-dev)" ] || fail "files are not as packed"
}

build_programs() {
  quietly cmake -S tests/consumer -B consumer
  quietly cmake --build consumer
  (cd consumer && quietly ctest --output-on-failure)
  mkdir -p "${main%/*}"
  # The examples name the headers as the tree does.
  # shellcheck disable=SC2046  # several words
  quietly c++ -std=c++17 -I/usr/include/brimlet examples/main_program.cpp -o "$main" \
    $(pkg-config --cflags --libs brimlet)
}

# expect REPLY GROUPS: what a user of these groups hears who calls.
expect() {
  local reply
  reply=$(setpriv --reuid=nobody --regid=nogroup "$2" \
    busctl call "$name" /com/tolvane/brimlet "$name" brimletd s "echo --add" 2>&1) || true
  grep -qE "$1" <<<"$reply" || fail "a caller with $2 hears $reply"
}

# On the bus that has run all the time: it has to have learnt of the policy and of the group.
call_the_daemon() {
  local input
  coproc "$main" /usr/sbin/brimletd
  exec {input}>&"${COPROC[1]}"-
  timeout 60 grep -q ready <&"${COPROC[0]}" || fail "the daemon does not start: $(cat /bus.log)"
  expect '^s "auth failed"$' --groups=brimlet
  expect "Access denied|Rejected send message" --clear-groups
  exec {input}>&-
  wait "$!" || fail "the daemon ends with status $?"
}

purge_packages() {
  local files file
  mapfile -t files < <(dpkg -L brimletd libbrimlet-dev | grep brimlet)
  quietly apt-get -qq purge -y brimletd libbrimlet-dev
  [ ${#files[@]} -gt 0 ] || fail "nothing was installed"
  for file in "${files[@]}"; do
    [ ! -e "$file" ] || fail "$file is left"
  done
}

start_bus
echo "Installing the packages"
install_packages
echo "Using them"
build_programs
call_the_daemon
BRIMLET_TESTED_DAEMON=/usr/sbin/brimletd BRIMLET_TESTED_MAIN=$main BRIMLET_TESTED_POLICY='' \
  quietly scripts/demo.py
purge_packages
echo "the packages install, work and can be removed"
