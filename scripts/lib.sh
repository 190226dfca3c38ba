# What the scripts have in common. Sourced by them, from the top folder of the tree.
# shellcheck shell=bash

# What is needed to build the daemon, and to start it on a private bus.
BUILD_PACKAGES=(g++ cmake ninja-build pkg-config libsystemd-dev libssl-dev)
BUS_PACKAGES=(dbus-daemon systemd util-linux)
TEST_PACKAGES=(libgtest-dev binutils dbus-bin libglib2.0-bin locales strace)
# What the presets that build with Clang need on top, and what the longer checks do.
CLANG_PACKAGES=(clang libclang-rt-14-dev)
LINT_PACKAGES=(clang-format clang-tidy cppcheck git)
# The benchmarks, with what they are compared with.
BENCH_PACKAGES=(libbenchmark-dev libre2-dev libspdlog-dev libsimpleini-dev libsodium-dev python3 git)

# install_missing PACKAGE...: installs those that are not there. Asks nothing.
install_missing() {
  local missing=() package
  for package in "$@"; do
    dpkg-query -W -f='${db:Status-Abbrev}' "$package" 2>/dev/null | grep -q '^.i' ||
      missing+=("$package")
  done
  [ ${#missing[@]} -gt 0 ] || return 0
  local as_root=()
  if [ "$(id -u)" -ne 0 ]; then
    if ! sudo -n true 2>/dev/null; then
      echo "Please have these packages installed first: ${missing[*]}" >&2
      return 1
    fi
    as_root=(sudo -n)
  fi
  echo "Installing ${missing[*]}"
  "${as_root[@]}" apt-get -qq update
  "${as_root[@]}" env DEBIAN_FRONTEND=noninteractive \
    apt-get -qq install -y --no-install-recommends "${missing[@]}" >/dev/null
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
  quietly cmake --preset "$@"
  quietly cmake --build --preset "$1"
}

# build_and_test PRESET TESTS
build_and_test() {
  echo "Building ($1)"
  build "$1"
  ctest --preset "$1" --tests-regex "$2"
}
