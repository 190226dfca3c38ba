#!/usr/bin/env bash
# Installs what is missing on a Debian machine, builds the benchmarks, and prints one table: how
# long everything takes next to what a user would take instead.
#
#   scripts/bench.sh [quick|full|once] [--write]
#
# quick (unless told otherwise) takes less than a minute; full about five, and installs whatever is
# compared; once runs each benchmark a single time, to see that it still does. --write puts table
# and plot into benchmarks/ as well. What is not within its bound is shown, and no failure: times
# depend on the machine.
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
  quick) starts=3 calls=100 rounds=10 min_time=0.01 ;;
  full) starts=15 calls=1000 rounds=60 min_time=0.05 ;;
  once) starts=1 calls=1 rounds=1 min_time=0.0001 ;;
esac

install_missing "${BUILD_PACKAGES[@]}" "${BUS_PACKAGES[@]}" "${BENCH_PACKAGES[@]}"
[ "$mode" != full ] || install_missing "${PEER_PACKAGES[@]}"
! $write || install_missing python3-matplotlib
build bench

# In memory, if there is room for two logs of 32 MiB and more: what a disk does is not ours.
memory=/dev/shm
[ "$(df --output=avail -k $memory | tail -n 1)" -gt 262144 ] || memory=${TMPDIR:-/tmp}
work=$(mktemp -d -p "$memory")
trap 'rm -rf "$work"' EXIT

echo "Measuring ($mode)" >&2
units=$PWD/build/bench/benchmarks/units
export BRIMLET_BUILD=build/bench
run() { "$@" --benchmark_format=json --benchmark_enable_random_interleaving=true; }
run /usr/bin/python3 benchmarks/end_to_end.py "$starts" --benchmark_repetitions="$calls" \
  >"$work/end_to_end.json"
(cd "$work" && run "$units" --benchmark_repetitions="$rounds" --benchmark_min_time="$min_time" \
  >units.json)
table=$(/usr/bin/python3 -B benchmarks/table.py "$work"/*.json)
[ "$mode" = once ] && echo "All ran." || echo "$table"

if $write; then
  /usr/bin/python3 -B benchmarks/plot.py benchmarks/speed.svg "$work"/*.json
  cat >benchmarks/RESULTS.md <<END
# How fast it is

\`scripts/bench.sh $mode\` on $(date -I): $(lscpu | sed -n 's/^Model name: *//p' | head -n 1),
$(nproc) processors, $(uname -m), Linux $(uname -r), $(. /etc/os-release && echo "$PRETTY_NAME"),
$(c++ --version | head -n 1).

$(sed -n '/^How to read it/,/^"""/p' benchmarks/table.py | sed '$d')

$table
END
fi
