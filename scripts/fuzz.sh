#!/usr/bin/env bash
# Builds the fuzz targets with clang under the address and undefined-behaviour
# sanitizers and runs each for a short time from a scratch copy of its seed
# corpus (the checked-in corpus never grows here). Fails when any target
# finds a crash; the input is kept under build-fuzz/findings/.
#   scripts/fuzz.sh [SECONDS_PER_TARGET]   default 12: about a minute in all
# CTR_FUZZ_DIFFERENTIAL=1 also imports every file that a built-in reader
# accepts with assimp and fails on any difference (see fuzz/README.md).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
seconds="${1:-12}"
build="$root/build-fuzz"
targets=(fuzz_stl fuzz_ply fuzz_obj fuzz_drawing fuzz_bake_query)

"$root/scripts/install-deps.sh" --fuzz
launcher=()
if command -v ccache >/dev/null; then launcher=(-DCMAKE_CXX_COMPILER_LAUNCHER=ccache); fi
CXX=clang++ cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=RelWithDebInfo -DCTR_BUILD_FUZZ=ON \
  -DCTR_BUILD_TESTS=OFF -DCTR_BUILD_TOOLS=OFF -DCTR_WARNINGS_AS_ERRORS=ON "${launcher[@]}" >/dev/null
cmake --build "$build" -j "$(nproc)" --target "${targets[@]}"

scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT
findings="$build/findings"
mkdir -p "$findings"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
export LSAN_OPTIONS="suppressions=$root/scripts/lsan-suppressions.txt"
# The targets write their scratch files (the differential mode's model
# files, the exporter's drawing) into the scratch folder.
export TMPDIR="$scratch"
failed=()
for target in "${targets[@]}"; do
  corpus="$scratch/corpus/$target"
  mkdir -p "$corpus"
  cp "$root/fuzz/corpus/$target/." "$corpus" -r
  extra=()
  [ -f "$root/fuzz/$target.dict" ] && extra=(-dict="$root/fuzz/$target.dict")
  # The drawing reaches most of the library, and libFuzzer's entropic
  # scheduling spends most of the time weighing that many features.
  [ "$target" = fuzz_drawing ] && extra+=(-entropic=0)
  echo "== $target: ${seconds} s"
  if ! "$build/fuzz/$target" "$corpus" "${extra[@]}" -max_total_time="$seconds" -timeout=10 -rss_limit_mb=2048 \
      -artifact_prefix="$findings/$target-" -print_final_stats=1 2>"$scratch/$target.log"; then
    tail -n 60 "$scratch/$target.log"
    failed+=("$target")
  else
    grep -E "^stat::number_of_executed_units|^Done" "$scratch/$target.log" || true
  fi
done
if [ ${#failed[@]} -gt 0 ]; then
  echo "fuzzing found crashes in: ${failed[*]} (inputs in $findings)" >&2
  exit 1
fi
echo "fuzzing found nothing in ${#targets[@]} targets"
