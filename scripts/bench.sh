#!/usr/bin/env bash
# Installs what is missing on a Debian machine, builds the benchmarks, and prints one table: how many
# times as long as the least code for the same result (the floor) and as what a user would take
# instead (the peer) everything takes.
#
#   scripts/bench.sh [quick|full|once] [--write]
#
# quick (unless told otherwise) takes about a minute, full about five; once runs each benchmark a
# single time, to see that it still does. --write puts the table into benchmarks/RESULTS.md as well.
# What is not within its bound is shown, and no failure: times depend on the machine.
set -euo pipefail
cd "$(dirname "$0")/.."
. scripts/lib.sh

mode=quick
write=false
for argument; do
  case $argument in
    quick | full | once) mode=$argument ;;
    --write) write=true ;;
    *)
      echo "usage: scripts/bench.sh [quick|full|once] [--write]" >&2
      exit 2
      ;;
  esac
done
case $mode in
  quick) rounds=15 min_time=0.01 ;;
  full) rounds=60 min_time=0.02 ;;
  once) rounds=1 min_time=0.0001 ;;
esac

install_missing "${BUILD_PACKAGES[@]}" "${BUS_PACKAGES[@]}" "${BENCH_PACKAGES[@]}"
[ "$mode" != full ] || install_missing "${PEER_PACKAGES[@]}"
echo "Building (bench)" >&2
build bench

# In memory, if there is room for two logs of 32 MiB and more: what a disk does is not ours.
work=$(mktemp -d -p /dev/shm 2>/dev/null || mktemp -d)
trap 'rm -rf "$work"' EXIT
if [ "$(df --output=avail -k "$work" | tail -n 1)" -lt 262144 ]; then
  rmdir "$work"
  work=$(mktemp -d)
fi

programs=build/bench/benchmarks
"$programs/end_to_end" "$mode" --json "$work/end_to_end.json" >&2
TMPDIR=$work python3 benchmarks/table.py "$rounds" "$min_time" "$programs/units" \
  "$work/end_to_end.json" | tee "$work/table"

# about: what the figures depend on.
about() {
  local changes=''
  git diff --quiet HEAD -- ':!benchmarks/RESULTS.md' || changes=' with changes'
  echo "\`scripts/bench.sh $mode\` on $(date -I), commit $(git rev-parse --short HEAD)$changes:"
  echo "$(lscpu | sed -n 's/^Model name: *//p' | head -n 1), $(nproc) processors, $(uname -m)," \
    "Linux $(uname -r), $(. /etc/os-release && echo "$PRETTY_NAME"), $(c++ --version | head -n 1)."
}

if $write; then
  {
    echo "# How fast it is"
    echo
    about
    echo
    sed -n '/^"""/,/^"""/p' benchmarks/table.py | sed -n '/^A figure/,/^$/p'
    cat "$work/table"
  } >benchmarks/RESULTS.md
fi
