#!/usr/bin/env bash
# Installs the library as a static and as a shared one, moves it, and has a project of somebody else's
# use it from there. The shared one offers what the public headers declare, and nothing else.
#
#   install_test.sh SOURCE-FOLDER COMPILER
set -euo pipefail

source=$1 compiler=$2
folder=$(mktemp -d "${TMPDIR:-/tmp}/brimlet-install-XXXXXX")
trap 'rm -rf "$folder"' EXIT
cd "$folder"

for shared in OFF ON; do
  cmake -S "$source" -B build -G Ninja -D CMAKE_CXX_COMPILER="$compiler" \
    -D BUILD_SHARED_LIBS=$shared -D BRIMLET_BUILD_TESTS=OFF -D BRIMLET_BUILD_EXAMPLES=OFF \
    -D CMAKE_INSTALL_PREFIX="$folder/prefix" -D CMAKE_INSTALL_LIBDIR=lib
  cmake --build build
  cmake --install build
  mv prefix $shared
  ctest --build-and-test "$source/tests/consumer" "consumer-$shared" --build-generator Ninja \
    --build-options -D CMAKE_CXX_COMPILER="$compiler" -D CMAKE_PREFIX_PATH="$folder/$shared" \
    --test-command ctest --output-on-failure
done

names() { # LIBRARY [OPTION]: the functions and variables that it defines
  "$("$compiler" -print-prog-name=nm)" -C --defined-only "${@:2}" "$1" |
    sed -nE 's/^[0-9a-f]* [BDRT] ([^(@[]+).*/\1/p' | sort -u
}
declared() { # Those of standard input that stand in a header.
  while read -r name; do
    ! grep -rqw "${name##*::}" ON/include || echo "$name"
  done
}
diff <(names OFF/lib/libbrimlet.a | declared) <(names ON/lib/libbrimlet.so -D)
# What the daemon loads would run as root.
"$("$compiler" -print-prog-name=readelf)" -d ON/sbin/brimletd >loaded
if grep 'NEEDED.*brimlet' loaded; then exit 1; fi
