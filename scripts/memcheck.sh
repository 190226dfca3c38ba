#!/usr/bin/env bash
# Runs the unit tests under valgrind, which looks for reads of memory that is not theirs or was never
# written, and for leaks.
#
#   scripts/memcheck.sh
#
# Not run: daemon_test, whose processes valgrind would have to follow through a mount namespace, and
# wipe_lto_test, which reads a dead stack on purpose.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

# Thousands of rounds of what other tests do as well: valgrind would take minutes for each.
too_long=(
  DirOperatorTest.NeverFollowsAFolderSwappedForALink
  IniParserTest.AgreesWithTheModelOnRandomFiles
  LoggerTest.NeverFollowsALinkSwappedIn
  PolicyTest.AgreesWithTheGrammarOnRandomAndMutatedLines
  Validators.AgreeOnEveryShortWord
)

install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" valgrind
echo "Building (debug)"
build debug
filter=$(IFS=:; echo "${too_long[*]}")
for test in build/debug/tests/*_test; do
  case ${test##*/} in daemon_test | wipe_lto_test) continue ;; esac
  echo "${test##*/}"
  quietly valgrind --quiet --leak-check=full --error-exitcode=99 \
    --suppressions=scripts/memcheck.supp "$test" --gtest_brief=1 --gtest_filter="-$filter"
done
echo "no memory errors, no leaks"
