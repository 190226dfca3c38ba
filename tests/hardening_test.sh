#!/usr/bin/env bash
# Reads off the daemon's file, and off the objects it is linked of, which hardening has arrived there.
#
#   hardening_test.sh COMPILER IS-OPTIMISED FILE OBJECT...
set -euo pipefail

compiler=$1 is_optimised=$2 file=$3 status=0
shift 3
readelf=$("$compiler" -print-prog-name=readelf)
elf=$("$readelf" -ldW --dyn-syms "$file")
called=$("$("$compiler" -print-prog-name=nm)" --undefined-only "$@")
guarded=$("$readelf" -nW "$@" | grep -cE 'feature: (IBT, SHSTK|BTI, PAC)' || true)

check() { # PROPERTY COMMAND...: COMMAND succeeds where the property is there.
  "${@:2}" >/dev/null || { echo "missing: $1" >&2; status=1; }
}
has() { grep -P "$2" <<<"$1"; }

check "position-independent program" has "$elf" 'FLAGS_1.* PIE'
check "all symbols bound at start" has "$elf" 'FLAGS_1.* NOW'
check "read-only relocations" has "$elf" '^ *GNU_RELRO '
check "no execution on the stack" has "$elf" '^ *GNU_STACK .* RW  *0x'
# A library's variable that the linker has moved here carries the library's version.
check "no exported name" test -z "$(has "$elf" '(GLOBAL|WEAK) .* [0-9]+ [^@ ]+$')"
check "no library but these" test -z "$(has "$elf" 'NEEDED.*\[(?!lib(systemd|gcc_s|c)\.so|ld-linux)')"
check "stack protector" has "$called" ' __stack_chk_fail'
[ "$is_optimised" -eq 0 ] || check "fortified functions" has "$called" ' __[a-z]*_chk$'
check "control-flow protection of each object" test "$guarded" -eq $#
exit $status
