#!/usr/bin/env bash
# Installs the library as a static and as a shared one, moves it, and has a project of somebody
# else's use it from there. The shared one offers what the public headers declare, and no more.
#
#   install_test.sh SOURCE-FOLDER COMPILER
set -euo pipefail
source=$1
export CXX=$2 CMAKE_GENERATOR=Ninja
folder=$(mktemp -d "${TMPDIR:-/tmp}/brimlet-install-XXXXXX")
trap 'rm -rf "$folder"' EXIT
cd "$folder"

for shared in OFF ON; do
  cmake -S "$source" -B build -D BUILD_SHARED_LIBS=$shared -D BRIMLET_BUILD_TESTS=OFF \
    -D BRIMLET_BUILD_EXAMPLES=OFF -D CMAKE_INSTALL_PREFIX="$PWD/prefix" -D CMAKE_INSTALL_LIBDIR=lib
  cmake --build build --target install
  mv prefix $shared
  ctest --build-and-test "$source/examples/consumer" "consumer-$shared" --build-generator Ninja \
    --build-options -D CMAKE_PREFIX_PATH="$PWD/$shared" --test-command ctest --output-on-failure
done

# What the daemon loads would run as root.
grep -q 'libbrimlet\.so' ON/sbin/brimletd && exit 1
names() { # LIBRARY [OPTION]: the functions and variables that it defines
  "$("$CXX" -print-prog-name=nm)" -C --defined-only "${@:2}" "$1" |
    sed -nE 's/^[0-9a-f]* [BDRT] ([^(@[]+).*/\1/p' | sort -u
}
names OFF/lib/libbrimlet.a |
  awk -F :: 'NR == FNR { word[$0]; next } $NF in word' <(grep -rhoE '~?\w+' ON/include) - |
  diff - <(names ON/lib/libbrimlet.so -D)
