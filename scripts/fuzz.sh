#!/usr/bin/env bash
# Installs what is missing on a Debian machine, builds the fuzz targets, and runs every one of them
# from its seeds, two at a time.
#
#   scripts/fuzz.sh SECONDS
#
# SECONDS is for each target. Prints one line a target, and for one that found a fault the end of
# its report and the path of the input, which can be given to the target in build/fuzz/fuzz.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

case ${1-} in
  '' | 0* | *[!0-9]*)
    echo "usage: scripts/fuzz.sh SECONDS" >&2
    exit 2
    ;;
esac
seconds=$1
install_missing "${BUILD_PACKAGES[@]}" "${CLANG_PACKAGES[@]}"
echo "Building (fuzz)"
build fuzz

artifacts=build/fuzz/artifacts
mkdir -p "$artifacts"
# In memory, where that can be: two of the targets write files all the time.
work=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
trap 'rm -rf "$work"' EXIT

# run TARGET: one line, or the report of a fault.
run() {
  local target=$1 log=$work/$1.log options=()
  [ ! -f "fuzz/$target.dict" ] || options+=("-dict=fuzz/$target.dict")
  # What is found on the way stays out of the tree, as the targets' own files do.
  cp -r "fuzz/corpus/$target" "$work/$target"
  if TMPDIR=$work "build/fuzz/fuzz/$target" -max_total_time="$seconds" -timeout=10 \
    -print_final_stats=1 -artifact_prefix="$artifacts/$target-" "${options[@]}" \
    "$work/$target" >"$log" 2>&1; then
    printf '%-12s %9d executions, %4d edges covered\n' "$target" \
      "$(sed -n 's/^stat::number_of_executed_units: *//p' "$log")" \
      "$(sed -n 's/.*DONE *cov: \([0-9]*\).*/\1/p' "$log")"
    return
  fi
  printf '%-12s FOUND A FAULT\n%s\n' "$target" "$(tail -n 40 "$log")"
  sed -n "s/.*Test unit written to /$target keeps /p" "$log"
  return 1
}

status=0
pids=()
# By their ids: what "wait -n" tells of one that has already ended is not its status.
collect() {
  local pid
  for pid in "${pids[@]}"; do
    wait "$pid" || status=1
  done
  pids=()
}

for source in fuzz/*_fuzz.cpp; do
  run "$(basename "$source" .cpp)" &
  pids+=($!)
  [ ${#pids[@]} -lt 2 ] || collect
done
collect
exit $status
