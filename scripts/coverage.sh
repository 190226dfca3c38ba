#!/usr/bin/env bash
# Counts which lines of the library, the policy and the daemon the tests run, prints the table and the
# lines that none of them runs, and fails if these are more than 5 in 100.
#
#   scripts/coverage.sh
#
# No line of these folders is left out. The counts go to files while a program runs, so that also
# those of a daemon that is killed are there.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

wanted=95
folders=(common storage utils verifycmds daemon)
profiles=build/coverage/profiles

install_missing "${BUILD_PACKAGES[@]}" "${BUS_PACKAGES[@]}" "${TEST_PACKAGES[@]}" \
  "${CLANG_PACKAGES[@]}" llvm
echo "Building (coverage)"
build coverage
rm -rf "$profiles"
# Those two build for themselves, with other options, what they try out.
ctest --preset coverage --exclude-regex '^(install_test|wipe_lto_test)$'

llvm-profdata merge --sparse --output build/coverage/profile "$profiles"/*.profraw
programs=(build/coverage/bin/brimletd)
for test in build/coverage/tests/*_test; do
  [ "${test##*/}" = wipe_lto_test ] || programs+=(--object "$test")
done
# llvm_cov COMMAND [OPTION...]
llvm_cov() {
  # Each program has a main() of its own, of which llvm-cov warns.
  llvm-cov "$@" --instr-profile build/coverage/profile "${programs[@]}" "${folders[@]}" \
    2> >(grep -v 'functions have mismatched data' >&2)
}

llvm_cov report --show-region-summary=false --show-branch-summary=false >build/coverage/report
cat build/coverage/report
echo "Lines that no test runs:"
llvm_cov export --format=lcov | awk -F '[:,]' -v top="$PWD/" '
  /^SF:/ { file = substr($2, length(top) + 1) }
  /^DA:/ && $3 == 0 { missed[file] = missed[file] " " $2 }
  END { for (file in missed) print "  " file ":" missed[file] }' | sort
awk -v wanted="$wanted" '/^TOTAL/ {
    percent = 100 * ($5 - $6) / $5
    printf "%.2f in 100 lines run; wanted: %d\n", percent, wanted
    exit percent < wanted
  }' build/coverage/report
