#!/usr/bin/env bash
# What scripts/test-package.sh does in the fresh root. Run by it in a mount and process namespace of
# its own:
#
#   scripts/test_package_session.sh ROOT
set -euo pipefail
. "$(dirname "$0")/lib.sh"

root=$1
main=/opt/apps/com.tolvane.brimlet/files/brimlet/bin/Brimlet
name=com.tolvane.brimlet
call=(busctl call "$name" /com/tolvane/brimlet "$name" brimletd s "id -u")

fail() {
  echo "FAILED: $*" >&2
  tail -n 20 "$root/bus.log" >&2
  exit 1
}

# inside COMMAND...: runs it in the root.
inside() {
  chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin HOME=/root LC_ALL=C \
    DEBIAN_FRONTEND=noninteractive sh -c 'cd /src && exec "$@"' inside "$@"
}

start_machine() {
  mount -t proc proc "$root/proc"
  mount --rbind /dev "$root/dev"
  mkdir -p "$root/run/dbus"
  inside dbus-daemon --system --nofork --nopidfile 2>"$root/bus.log" &
  for _ in $(seq 100); do
    [ ! -S "$root/run/dbus/system_bus_socket" ] || return 0
    sleep 0.05
  done
  fail "the bus does not start"
}

# While the bus runs: what it is told by the installation has to be enough.
install_packages() {
  quietly inside apt-get -qq update
  quietly inside sh -c 'apt-get -qq install -y --no-install-recommends ./*.deb'
  # Once more, as an upgrade goes.
  quietly inside sh -c 'apt-get -qq install -y --reinstall ./*.deb'
  inside dpkg --verify brimletd libbrimlet-dev >"$root/src/changed" || fail "dpkg --verify"
  [ ! -s "$root/src/changed" ] || fail "not as packed: $(cat "$root/src/changed")"
  inside sh -c 'for file in $(dpkg -L brimletd libbrimlet-dev); do
      [ -d "$file" ] || echo "$file"; done' >"$root/src/installed"
  [ "$(inside dpkg-query -W -f '${Version}' brimletd)" = "$version" ] || fail "version of the package"
  [ "$(inside pkg-config --modversion brimlet)" = "$version" ] || fail "version of the library"
  inside sh -c 'zcat /usr/share/man/man8/brimletd.8.gz' >"$root/src/manual"
  grep -q "brimletd $version" "$root/src/manual" || fail "version of the manual"
}

# compile SOURCE PROGRAM [OPTION]: as the manual says.
compile() {
  # shellcheck disable=SC2016  # expanded inside
  quietly inside sh -c 'c++ -std=c++20 -Wall -Wextra -Werror $3 "$1" -o "$2" \
    $(pkg-config --cflags --libs brimlet)' compile "$@"
}

build_against_the_library() {
  quietly inside cmake -S consumer -B consumer/build
  quietly inside cmake --build consumer/build
  inside consumer/build/consumer /src/log || fail "the program that found the library by CMake"
  rm "$root/src/log"
  compile consumer/consumer.cpp plain
  inside ./plain /src/log || fail "the program that found the library by pkg-config"
  # It names headers as the tree does.
  compile examples/main_program.cpp main_program -I/usr/include/brimlet
  # The program in the manual, without the marks of its typesetting.
  sed -n '/^#include <brimlet/,/^\.EE$/{/^\.EE$/d; s/\\-/-/g; s/\\e/\\/g; p}' "$root/src/manual" \
    >"$root/src/manual.cpp"
  mkdir -p "$root${main%/*}"
  compile manual.cpp "$main"
}

# as GROUPS COMMAND...: runs it as a user without rights.
as() {
  inside setpriv --reuid=65534 --regid=65534 "$1" "${@:2}" 2>&1 || true
}

# The program in the manual runs one line and waits for a line feed, then it stops the daemon.
run_the_manuals_program() {
  local to from pid group seen
  mkfifo "$root/src/to" "$root/src/from"
  inside "$main" <"$root/src/to" >"$root/src/from" &
  pid=$!
  exec {to}>"$root/src/to" {from}<"$root/src/from"
  read -r -t 60 seen <&"$from" || fail "the program of the manual prints nothing"
  [[ $seen = "uid=0(root) "* ]] || fail "the program of the manual prints $seen"
  group=$(inside getent group brimlet | cut -d: -f3)
  [ -n "$group" ] || fail "no group"
  seen=$(as "--groups=$group" "${call[@]}")
  [ "$seen" = 's "auth failed"' ] || fail "a member of the group gets $seen"
  seen=$(as --clear-groups "${call[@]}")
  [[ $seen = *"Access denied"* || $seen = *"Rejected send message"* ]] || fail "a stranger gets $seen"
  echo >&"$to"
  wait "$pid" || fail "the program of the manual ends with status $?"
}

version=$(sed -n 's/^project(brimletd VERSION \([0-9.]*\).*/\1/p' CMakeLists.txt)
start_machine
echo "Installing the packages"
install_packages
echo "Building against the installed library"
build_against_the_library
echo "Running the manual's program"
run_the_manuals_program
quietly inside unshare --mount --propagation=unchanged \
  scripts/demo_session.sh /usr/sbin/brimletd ./main_program installed
quietly inside apt-get -qq purge -y brimletd libbrimlet-dev
[ -s "$root/src/installed" ] || fail "nothing was installed"
while read -r file; do
  [ ! -e "$root$file" ] || fail "$file is not removed"
done <"$root/src/installed"
echo "the packages install, work and can be removed"
