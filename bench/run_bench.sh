#!/usr/bin/env bash
# Builds with the benchmarks on and runs every benchmark program:
#   bench/run_bench.sh [build-folder] [benchmark options...]
# The build folder defaults to build-bench at the top of the tree. Without
# options each benchmark runs five times and only the mean, median and
# standard deviation are printed.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build-bench"
if [ $# -gt 0 ] && [ "${1#-}" = "$1" ]; then
  build="$1"
  shift
fi
options=("$@")
[ ${#options[@]} -gt 0 ] || options=(--benchmark_repetitions=5 --benchmark_report_aggregates_only=true)

"$root/scripts/install-deps.sh"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCTR_BUILD_BENCH=ON -DCTR_BUILD_TESTS=OFF >/dev/null
cmake --build "$build" -j "$(nproc)"

for program in "$build"/bench/bench_*; do
  [ -x "$program" ] || continue
  echo "== $(basename "$program")"
  "$program" "${options[@]}"
done
