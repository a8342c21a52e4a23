#!/usr/bin/env bash
# Builds everything with warnings as errors and runs the test suite.
#   scripts/test.sh             optimised build with debug information
#   scripts/test.sh --sanitize  the same under the address and undefined-behaviour sanitizers
#   scripts/test.sh --tsan      the same under the thread sanitizer
# The optimised build also builds the Python module and runs its pytest
# suite against the build folder; the sanitizer builds leave Python out, as
# an instrumented module cannot be loaded into an uninstrumented interpreter.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build"
options=(-DCTR_WARNINGS_AS_ERRORS=ON -DCTR_BUILD_TESTS=ON -DCTR_BUILD_BENCH=ON -DCTR_BUILD_PYTHON=ON)
python=yes
if [ "${1:-}" = "--sanitize" ]; then
  build="$root/build-sanitize"
  options+=(-DCTR_SANITIZE=ON -DCTR_BUILD_BENCH=OFF -DCTR_BUILD_PYTHON=OFF)
  python=no
elif [ "${1:-}" = "--tsan" ]; then
  build="$root/build-tsan"
  options+=(-DCTR_SANITIZE_THREAD=ON -DCTR_BUILD_BENCH=OFF -DCTR_BUILD_PYTHON=OFF)
  python=no
fi
"$root/scripts/build.sh" "$build" "${options[@]}"
export ASAN_OPTIONS=detect_leaks=1:abort_on_error=1
export UBSAN_OPTIONS=print_stacktrace=1:halt_on_error=1
# Suppressed leaks are not counted on standard error, where the tool
# tests read the tool's messages.
export LSAN_OPTIONS="suppressions=$root/scripts/lsan-suppressions.txt:print_suppressions=0"
export TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1
cd "$build"
ctest --output-on-failure -j "$(nproc)" --timeout 900
if [ "$python" = yes ]; then
  PYTHONPATH="$build/python" CONTOUR_TOOL="$build/tools/contour/contour" \
    /usr/bin/python3 -m pytest -q -p no:cacheprovider "$root/python/tests"
fi
