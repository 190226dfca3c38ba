#!/usr/bin/env bash
# Installs the library into a temporary prefix, as a static and as a shared one, and builds and runs a
# program from there: through the CMake package, through pkg-config, and with each header alone.
#
#   install_test.sh SOURCE-FOLDER COMPILER [EMULATOR...]
#
# EMULATOR runs what COMPILER makes. For another machine CMAKE_TOOLCHAIN_FILE and PKG_CONFIG say the
# rest, as CMake takes them from the environment.
set -euo pipefail

source=$1
compiler=$2
emulator=("${@:3}")
pkg_config=${PKG_CONFIG:-pkg-config}
nm=$("$compiler" -print-prog-name=nm)
readelf=$("$compiler" -print-prog-name=readelf)
folder=$(mktemp -d "${TMPDIR:-/tmp}/brimlet-install-XXXXXX")
trap 'rm -rf "$folder"' EXIT

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

# quietly COMMAND...: shows what a command prints only if it fails.
quietly() {
  "$@" >"$folder/output" 2>&1 || {
    cat "$folder/output" >&2
    fail "$*"
  }
}

run() { # PROGRAM
  quietly "${emulator[@]}" "$1" "$folder/log"
  rm -rf "$folder/log"
}

install_library() { # SHARED
  quietly cmake -S "$source" -B "$folder/build" -G Ninja -D CMAKE_CXX_COMPILER="$compiler" \
    -D BUILD_SHARED_LIBS="$1" -D BRIMLET_BUILD_TESTS=OFF -D BRIMLET_BUILD_EXAMPLES=OFF \
    -D CMAKE_INSTALL_PREFIX="$prefix" -D CMAKE_INSTALL_LIBDIR=lib
  quietly cmake --build "$folder/build"
  quietly cmake --install "$folder/build"
}

check_cmake_package() {
  quietly cmake -S "$source/tests/consumer" -B "$folder/consumer" -G Ninja \
    -D CMAKE_CXX_COMPILER="$compiler" -D CMAKE_PREFIX_PATH="$prefix"
  quietly cmake --build "$folder/consumer"
  run "$folder/consumer/consumer"
  rm -rf "$folder/consumer"
  # Moved, with the names of the program hidden.
  mv "$prefix" "$prefix-moved"
  quietly cmake -S "$source/tests/consumer" -B "$folder/consumer" -G Ninja \
    -D CMAKE_CXX_COMPILER="$compiler" -D CMAKE_PREFIX_PATH="$prefix-moved" \
    -D CMAKE_CXX_VISIBILITY_PRESET=hidden -D CMAKE_VISIBILITY_INLINES_HIDDEN=ON
  quietly cmake --build "$folder/consumer"
  run "$folder/consumer/consumer"
  [ "$(PKG_CONFIG_PATH=$prefix-moved/lib/pkgconfig "$pkg_config" --variable=includedir brimlet |
    xargs realpath)" = "$(realpath "$prefix-moved/include")" ] || fail "brimlet.pc does not move"
  rm -rf "$folder/consumer"
  mv "$prefix-moved" "$prefix"
  if cmake -S "$source/tests/consumer" -B "$folder/consumer" -G Ninja \
    -D CMAKE_CXX_COMPILER="$compiler" -D CMAKE_PREFIX_PATH="$prefix" \
    -D BRIMLET_WANTED=2.0 >/dev/null 2>&1; then
    fail "another major version is taken for this one"
  fi
  rm -rf "$folder/consumer"
}

check_pkg_config() {
  local -a cflags libs
  export PKG_CONFIG_PATH=$prefix/lib/pkgconfig
  read -ra cflags < <("$pkg_config" --cflags brimlet)
  read -ra libs < <("$pkg_config" --libs brimlet)
  quietly "$compiler" -std=c++17 "${cflags[@]}" "$source/tests/consumer/consumer.cpp" \
    -o "$folder/plain" "${libs[@]}" "-Wl,-rpath,$prefix/lib"
  run "$folder/plain"
}

check_headers() {
  local header
  while read -r header; do
    echo "#include <$header>" >"$folder/header.cpp"
    quietly "$compiler" -std=c++17 -Wall -Wextra -Wpedantic -Werror -fsyntax-only \
      -I "$prefix/include" "$folder/header.cpp"
  done < <(cd "$prefix/include" && find brimlet -name '*.h')
}

# names [-D] LIBRARY: the functions and variables that it defines.
names() {
  "$nm" -C --defined-only "$@" | sed -n 's/^[0-9a-f]* [TB] \(Velmar::[^@]*\).*/\1/p' |
    grep -v '(anonymous namespace)' | sort -u
}

check_exports() {
  local library=$prefix/lib/libbrimlet.so name foreign
  [ "$(readlink "$library")" = libbrimlet.so.1 ] || fail "no versioned name"
  "$readelf" -d "$library" | grep -q 'SONAME.*libbrimlet.so.1]' || fail "no versioned SONAME"
  foreign=$("$nm" -DC --defined-only "$library" | cut -d' ' -f3- |
    grep -vE '^(BRIMLET_1|(guard variable for )?Velmar::)' || true)
  [ -z "$foreign" ] || fail "exported, but nobody's business: $foreign"
  for name in UniqueFd FileIo CoveredFile CommandPipe SourceName BusReleaser Unique LineReader; do
    ! "$nm" -DC --defined-only "$library" | grep -q "$name" || fail "internal name exported: $name"
  done
  # Every function of the static library but the internal ones.
  diff <(names "$folder/prefix-OFF/lib/libbrimlet.a" | grep -vE '(FileIo|CoveredFile)::') \
    <(names -D "$library") >&2 ||
    fail "the two libraries differ in what they offer"
  # The daemon has to load neither the shared library nor what that needs.
  "$readelf" -d "$prefix/sbin/brimletd" | grep -q 'NEEDED.*libsystemd' || fail "no daemon"
  ! "$readelf" -d "$prefix/sbin/brimletd" | grep -E 'NEEDED.*lib(brimlet|crypto)' || fail "daemon"
}

for shared in OFF ON; do
  prefix=$folder/prefix-$shared
  install_library $shared
  check_cmake_package
  check_pkg_config
done
check_headers
check_exports
echo "installed and used both ways"
