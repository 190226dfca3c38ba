#!/usr/bin/env bash
# Reads off the daemon's file, and off the objects it is linked of, which hardening has arrived
# there. What it prints last tells what is missing.
#
#   hardening_test.sh IS-OPTIMISED FILE OBJECT...
set -euo pipefail
file=$(readelf -ldW --dyn-syms "$2")
objects=$(readelf -nsW "${@:3}")
set -x
grep -q 'FLAGS_1.* NOW PIE' <<<"$file"
grep -q '^ *GNU_RELRO ' <<<"$file"
grep -q '^ *GNU_STACK .* RW  *0x' <<<"$file"
# No name is exported. A library's variable that the linker has moved here carries its version.
grep -P '(GLOBAL|WEAK) .* [0-9]+ [^@ ]+$' <<<"$file" && exit 1
grep -P 'NEEDED.*\[(?!lib(systemd|gcc_s|c)\.so|ld-linux)' <<<"$file" && exit 1
grep -q ' UND __stack_chk_fail$' <<<"$objects"
[ "$1" -eq 0 ] || grep -q ' UND __[a-z]*_chk$' <<<"$objects"
# Each object has the machine's control-flow protection.
[ "$(grep -cE 'feature: (IBT, SHSTK|BTI, PAC)' <<<"$objects")" -eq $(($# - 2)) ]
