#!/usr/bin/env bash
# Reads the sources without running them: the format, cppcheck and clang-tidy. Any finding fails.
#
#   scripts/lint.sh
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

install_missing "${BUILD_PACKAGES[@]}" "${TEST_PACKAGES[@]}" "${LINT_PACKAGES[@]}" \
  "${BENCH_PACKAGES[@]}"
# For the compiler's options; nothing is built.
quietly cmake --preset release -B build/lint -D BRIMLET_BUILD_BENCHMARKS=ON

echo "clang-format"
git ls-files -z '*.cpp' '*.h' | xargs -0 clang-format --dry-run -Werror

echo "cppcheck"
cppcheck --quiet --project=build/lint/compile_commands.json --library=posix --library=googletest \
  --enable=warning,performance,portability --inline-suppr --error-exitcode=1

echo "clang-tidy"
# The consumer is compiled against an installation only.
mapfile -t sources < <(git ls-files '*.cpp' ':!tests/consumer')
# The count of suppressed warnings of system headers is of no interest.
printf '%s\n' "${sources[@]}" |
  xargs -P "$(nproc)" -n 4 clang-tidy --quiet -p build/lint 2> >(grep -v 'warnings\? generated' >&2)
