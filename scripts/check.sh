#!/usr/bin/env bash
# Checks that take longer than the tests. Installs what is missing on a Debian machine, and builds.
#
#   scripts/check.sh lint           reads the sources: format, shellcheck, cppcheck, clang-tidy
#   scripts/check.sh memory         runs the unit tests under valgrind
#   scripts/check.sh coverage       prints which lines no test runs; fails if they are over 5 in 100
#   scripts/check.sh fuzz SECONDS   runs every fuzz target for that long
#   scripts/check.sh aarch64        runs the tests of an AArch64 build, emulated on any other machine
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

lint() {
  install_missing "${LINT_PACKAGES[@]}" "${BENCH_PACKAGES[@]}"
  # For the compiler's options; nothing is built.
  quietly cmake --preset release -B build/lint -D BRIMLET_BUILD_BENCHMARKS=ON
  git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror
  git ls-files -z '*.sh' .ci/run packaging/debian/postinst | xargs -0 shellcheck --external-sources
  cppcheck --quiet --project=build/lint/compile_commands.json --library=posix --library=googletest \
    --enable=warning,performance,portability --inline-suppr --error-exitcode=1
  # The consumer is compiled against an installation only. The count of the warnings that are
  # suppressed in the system's headers is of no interest.
  git ls-files -z '*.cpp' ':!examples/consumer' | xargs -0 -P "$(nproc)" -n 4 \
    clang-tidy --quiet -p build/lint 2> >(grep -v 'warnings\? generated' >&2)
}

# Left out: the test of the wipe, which reads a dead stack.
memory() {
  install_missing valgrind
  build release
  find build/release/tests -name '*_test' ! -name wipe_lto_test -type f -print0 |
    xargs -0 -P "$(nproc)" -I TEST \
      valgrind --quiet --leak-check=full --error-exitcode=99 TEST --gtest_brief=1
}

# llvm_cov COMMAND [OPTION...]: on the daemon and the unit tests. Each program has a main() of
# its own, of which llvm-cov warns.
llvm_cov() {
  find build/coverage/tests -maxdepth 1 -name '*_test' -printf '-object\0%p\0' |
    xargs -0 llvm-cov "$@" --instr-profile build/coverage/profile build/coverage/bin/brimletd \
      common storage utils verifycmds daemon 2> >(grep -v 'mismatched data' >&2)
}

# Left out: tests that build with other options what they try. A daemon that is killed counts, too:
# the counts go to files while it runs.
coverage() {
  install_missing "${CLANG_PACKAGES[@]}" llvm
  build coverage
  rm -rf build/coverage/profiles
  ctest --preset coverage --parallel "$(nproc)" --exclude-regex '^(install_test|wipe_lto_test)$'
  llvm-profdata merge --sparse --output build/coverage/profile build/coverage/profiles/*.profraw
  llvm_cov export --format=lcov | awk -F '[:,]' '
    /^SF:/ { file = $2 } /^DA:.*,0$/ { print file ":" $2 ": no test runs this line" }'
  llvm_cov report --show-region-summary=false --show-branch-summary=false | tee build/coverage/report
  awk '/^TOTAL/ { exit 100 * $6 > 5 * $5 }' build/coverage/report
}

# What a target finds on the way is kept for the next time, out of the tree.
fuzz() {
  install_missing "${CLANG_PACKAGES[@]}"
  build fuzz
  local source target
  for source in fuzz/*_fuzz.cpp; do
    target=$(basename "$source" .cpp)
    echo "$target"
    mkdir -p "build/fuzz/found/$target"
    quietly "build/fuzz/fuzz/$target" -max_total_time="$1" -timeout=10 \
      -artifact_prefix=build/fuzz/ "build/fuzz/found/$target"
  done
}

# The tests of the daemon have it started by programs of this machine, and call it with them.
aarch64() {
  if [ "$(uname -m)" = aarch64 ]; then
    exec scripts/test.sh
  fi
  install_missing "${AARCH64_PACKAGES[@]}"
  build aarch64
  ctest --preset aarch64
  BRIMLET_TESTED_DAEMON=$(emulated build/aarch64/bin/brimletd) \
    scripts/test.sh release '^(daemon|bus)_test'
}

case "$*" in
  lint | memory | coverage | "fuzz "[1-9]* | aarch64)
    install_missing "${BUILD_PACKAGES[@]}" "${BUS_PACKAGES[@]}" "${TEST_PACKAGES[@]}"
    "$@"
    ;;
  *)
    sed -n '4,8s/^# *//p' "$0" >&2
    exit 2
    ;;
esac
