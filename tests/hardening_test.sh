#!/usr/bin/env bash
# Reads off the daemon's file which hardening has arrived in it. Before that, samples that lack one
# property each show that it would be missed.
#
#   hardening_test.sh COMPILER SKIPPED FILE OBJECT...
#
# SKIPPED names the properties that a build cannot have, joined by commas, or none; OBJECT... are the
# object files of which FILE was linked.
set -euo pipefail

compiler=$1
skipped=$2
file=$3
shift 3
# That of the compiler's machine, which may not be this one.
readelf=$("$compiler" -print-prog-name=readelf)
folder=$(mktemp -d "${TMPDIR:-/tmp}/brimlet-hardening-XXXXXX")
trap 'rm -rf "$folder"' EXIT

fail() {
  echo "FAILED: $*" >&2
  exit 1
}

properties=(pie bind-now relro stack text canary fortify branches branches-linked exports)

# The control-flow protection of the machine: the compiler's flag, and how a file tells that it is
# there throughout.
case $("$compiler" -dumpmachine) in
  x86_64*) branch_flag=-fcf-protection branch_note='IBT, SHSTK' on=full ;;
  aarch64*) branch_flag=-mbranch-protection branch_note='BTI, PAC' on=standard ;;
  *) fail "no control-flow protection is known for this machine" ;;
esac

has_branch_note() { # FILE...
  local one
  for one in "$@"; do
    grep -q "feature: $branch_note" <<<"$("$readelf" -nW "$one")" || return 1
  done
}

# The linker keeps the note only if the C library's own start files have it, too.
start_files_have_branch_note() {
  local name
  for name in Scrt1.o crti.o crtn.o; do
    has_branch_note "$("$compiler" -print-file-name="$name")" || return 1
  done
}

# has PROPERTY FILE OBJECT...
has() {
  local property=$1 text
  text=$("$readelf" -hldW --dyn-syms "$2")
  case $property in
    pie) grep -q 'Type: *DYN' <<<"$text" && grep -q 'FLAGS_1.* PIE' <<<"$text" ;;
    bind-now) grep -q 'FLAGS.* BIND_NOW' <<<"$text" || grep -q 'FLAGS_1.* NOW' <<<"$text" ;;
    relro) grep -q '^ *GNU_RELRO ' <<<"$text" ;;
    stack) grep -q '^ *GNU_STACK .* RW  *0x' <<<"$text" ;;
    text) ! grep -q 'TEXTREL' <<<"$text" ;;
    canary) grep -q 'UND __stack_chk_fail' <<<"$text" ;;
    # __stack_chk_fail and AArch64's __stack_chk_guard are the canary's.
    fortify) grep -q 'UND __[a-z]*_chk@' <<<"$text" ;;
    branches) has_branch_note "${@:3}" ;;
    branches-linked) has_branch_note "$2" ;;
    # A library's variable that the linker has moved here carries the library's version.
    exports) ! grep -qE '(GLOBAL|WEAK) .* [0-9]+ [^@ ]+$' <<<"$text" ;;
  esac
}

# missing SKIPPED FILE OBJECT...
missing() {
  local property
  for property in "${properties[@]}"; do
    [[ ,$1, != *,$property,* ]] || continue
    has "$property" "${@:2}" || echo "$property"
  done
}

# sample EXPECTED FLAG...: a program built with all there is and FLAG... on top misses just that.
sample() {
  local expected=$1 found
  shift
  "$compiler" -O2 -fPIE -fstack-protector-strong -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2 \
    "$branch_flag=$on" -Wno-unused-command-line-argument "$@" \
    -c "$folder/sample.cpp" -o "$folder/sample.o"
  "$compiler" -pie -Wl,-z,relro,-z,now,-z,noexecstack "$@" \
    "$folder/sample.o" -o "$folder/sample" 2>"$folder/warnings"
  found=$(missing "$unlinked" "$folder/sample" "$folder/sample.o")
  [ "${found//$'\n'/,}" = "$expected" ] || fail "with '$*' misses '$found', not '$expected'"
}

cat >"$folder/sample.cpp" <<'CODE'
#include <cstdio>
#include <cstring>
#ifdef TEXT_RELOCATION
asm(".text\n.quad main");
#endif
int main(int count, char** words) {
  char word[16];
  std::strcpy(word, words[count - 1]);
  return std::puts(word);
}
CODE
unlinked=branches-linked
without_branches=branches
if start_files_have_branch_note; then
  unlinked=none
  without_branches=branches,branches-linked
fi
sample ''
sample pie -fno-pie -no-pie
sample bind-now -Wl,-z,lazy
sample relro -Wl,-z,norelro
sample stack -Wl,-z,execstack
sample text -DTEXT_RELOCATION -Wl,-z,notext
sample canary -fno-stack-protector
sample fortify -U_FORTIFY_SOURCE
sample $without_branches $branch_flag=none
sample exports -rdynamic

found=$(missing "$skipped,$unlinked" "$file" "$@")
[ -z "$found" ] || fail "$file misses ${found//$'\n'/, }"
echo "looked for: ${properties[*]}"
echo "but not for what this kind of build cannot have: $skipped"
echo "and not for what the start files of the C library do not have: $unlinked"
