# What the scripts have in common. Sourced by them, from the top folder of the tree.
# shellcheck shell=bash disable=SC2034

# What builds the daemon, and what starts it on a private bus.
BUILD_PACKAGES=(g++ cmake ninja-build pkg-config libsystemd-dev libssl-dev)
BUS_PACKAGES=(dbus-daemon dbus-system-bus-common systemd util-linux python3-jeepney)
# What the tests need on top, what the presets that build with Clang do, and what the checks do.
TEST_PACKAGES=(libgtest-dev binutils libc-l10n python3-pytest strace)
CLANG_PACKAGES=(clang libclang-rt-14-dev)
LINT_PACKAGES=(clang-format clang-tidy cppcheck git shellcheck)
PACKAGE_PACKAGES=(dpkg-dev file lintian man-db mandoc)
# The compiler for AArch64, what it links with, and what runs the result.
AARCH64_PACKAGES=(g++-aarch64-linux-gnu pkgconf:arm64 libsystemd-dev:arm64 libssl-dev:arm64
  libgtest-dev:arm64 libstdc++6:arm64 qemu-user)
# What is compared in the benchmarks: libraries, and other ways to run a command as root.
BENCH_PACKAGES=(libbenchmark-dev libre2-dev libspdlog-dev libsimpleini-dev libsodium-dev binutils)
PEER_PACKAGES=(sudo opendoas pkexec rtkit)

# as_root COMMAND...: through sudo where this is an ordinary user. Asks nothing.
as_root() {
  if [ "$(id -u)" -eq 0 ]; then "$@"; else sudo -n "$@"; fi
}

# is_installed PACKAGE[:ARCHITECTURE]: of the machine's own architecture unless told otherwise; that
# of another one is no replacement.
is_installed() {
  local name architecture
  IFS=: read -r name architecture <<<"$1"
  dpkg-query -W -f='${db:Status-Abbrev}${Architecture}\n' "$name" 2>/dev/null |
    grep -qxE ".i.(${architecture:-$(dpkg --print-architecture)}|all)"
}

# install_missing PACKAGE[:ARCHITECTURE]...: installs those that are not there. Asks nothing.
install_missing() {
  local missing=() package
  for package in "$@"; do
    is_installed "$package" || missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  if ! as_root true 2>/dev/null; then
    echo "Please have these packages installed first: ${missing[*]}" >&2
    return 1
  fi
  echo "Installing ${missing[*]}"
  for package in "${missing[@]}"; do
    [[ $package != *:* ]] || as_root dpkg --add-architecture "${package#*:}"
  done
  as_root apt-get -qq update
  as_root env DEBIAN_FRONTEND=noninteractive \
    apt-get -qq install -y --no-install-recommends "${missing[@]}" >/dev/null
}

# unpack_broker: the other implementation of the bus in build/dbus-broker, since to install it would
# make it the machine's own bus. Where it cannot be fetched, its tests are skipped.
unpack_broker() {
  local download=build/download
  [ ! -d build/dbus-broker ] || return 0
  mkdir -p $download
  (cd $download && { quietly apt-get -qq download dbus-broker ||
    { as_root apt-get -qq update && quietly apt-get -qq download dbus-broker; }; }) || return 0
  dpkg-deb --extract $download/dbus-broker_*.deb $download/files
  mv $download/files build/dbus-broker
}

# quietly COMMAND...: shows what a command prints only if it fails.
quietly() {
  local output
  output=$("$@" 2>&1) || {
    local status=$?
    printf '%s\n' "$output" >&2
    return $status
  }
}

# build PRESET [CMAKE-OPTION...]: configures and builds.
build() {
  echo "Building ($1)" >&2
  quietly cmake --preset "$@"
  quietly cmake --build --preset "$1"
}

# emulated PROGRAM: prints the path of a script that starts this program for AArch64 in an emulator.
emulated() {
  printf '#!/bin/sh\nexec qemu-aarch64 "%s"\n' "$PWD/$1" >"$1.emulated"
  chmod +x "$1.emulated"
  echo "$PWD/$1.emulated"
}
