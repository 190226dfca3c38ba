#!/usr/bin/env bash
# Installs the library as a static and as a shared one, moves it, and has a project of somebody
# else's use it from there. The shared one offers what is public, and no more. The daemon has all
# that makes a fault in it harder to use: what is printed last tells what is missing.
#
#   install_test.sh SOURCE-FOLDER COMPILER
set -euo pipefail
source=$1
export CXX=$2 CMAKE_GENERATOR=Ninja
folder=$(mktemp -d "${TMPDIR:-/tmp}/brimlet-install-XXXXXX")
trap 'rm -rf "$folder"' EXIT
cd "$folder"

for shared in OFF ON; do
  cmake -S "$source" -B build -D BUILD_SHARED_LIBS=$shared -D CMAKE_BUILD_TYPE=MinSizeRel \
    -D BRIMLET_BUILD_TESTS=OFF -D BRIMLET_BUILD_EXAMPLES=OFF \
    -D CMAKE_INSTALL_PREFIX="$PWD/prefix" -D CMAKE_INSTALL_LIBDIR=lib
  cmake --build build --target install
  mv prefix $shared
  ctest --build-and-test "$source/examples/consumer" "consumer-$shared" --build-generator Ninja \
    --build-options -D CMAKE_PREFIX_PATH="$PWD/$shared" --test-command ctest --output-on-failure
done

"$("$CXX" -print-prog-name=nm)" -DC --defined-only ON/lib/libbrimlet.so |
  sed -nE 's/^[0-9a-f]* [BDRT] ([^(@[]+).*/\1/p' | LC_ALL=C sort -u |
  diff "$source/tests/data/exports.txt" -
daemon=$(readelf -ldW --dyn-syms ON/sbin/brimletd)
mapfile -t objects < <(find build -name '*.o')
notes=$(readelf -nsW "${objects[@]}")
set -x
grep -q 'FLAGS_1.* NOW PIE' <<<"$daemon"
grep -q '^ *GNU_RELRO ' <<<"$daemon"
grep -q '^ *GNU_STACK .* RW  *0x' <<<"$daemon"
grep -q ' UND __stack_chk_fail$' <<<"$notes"
grep -q ' UND __[a-z]*_chk$' <<<"$notes"
# Each object has the machine's control-flow protection.
[ "$(grep -cE 'feature: (IBT, SHSTK|BTI, PAC)' <<<"$notes")" -eq ${#objects[@]} ]
# No name is exported. A library's variable that the linker has moved here carries its version.
[ "$(grep -cP '(GLOBAL|WEAK) .* [0-9]+ [^@ ]+$' <<<"$daemon")" -eq 0 ]
# What the daemon loads runs as root.
[ "$(grep -cP 'NEEDED.*\[(?!lib(systemd|gcc_s|c)\.so|ld-linux)' <<<"$daemon")" -eq 0 ]
