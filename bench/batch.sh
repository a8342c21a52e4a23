#!/usr/bin/env bash
# Parts per second of many small drawings: the carried CAD models
# (tests/models/cad/*, cad-brep/*) copied round to COUNT files, iso view,
# drawn by a shell loop of `contour` (one process per part), by `contour
# batch --jobs N` (one process), by the Python package's contour.batch on its
# local pool of N jobs and on a Dask LocalCluster of N worker processes
# (bench/batch_python.py), each with its record beside the drawing. Prints a
# Markdown table headed by the date and the machine.
#
#   bench/batch.sh [--count COUNT] [--jobs N] [--build DIR]
#
# "drawing" is the mean of the records' totalMs (import to the finished SVG);
# "overhead" is what a part costs beyond it: the wall time per part times the
# parts drawn at once (1 for the loop, N for the others), less the drawing
# (for the loop: process start, libraries, exit; for the others: the current
# check, writing the record, committing the drawing, and for Dask the
# scheduling of a task per part and its result's trip back).
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
count=200
jobs=2
build="$root/build-bench"
while [ $# -gt 0 ]; do
  case "$1" in
    --count) count="$2"; shift 2 ;;
    --jobs) jobs="$2"; shift 2 ;;
    --build) build="$2"; shift 2 ;;
    *) echo "unknown option $1" >&2; exit 2 ;;
  esac
done
contour="$build/tools/contour/contour"
[ -x "$contour" ] && [ -d "$build/python/contour" ] ||
  "$root/scripts/build.sh" "$build" -DCTR_BUILD_TESTS=OFF -DCTR_BUILD_PYTHON=ON >/dev/null
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

models=("$root"/tests/models/cad/* "$root"/tests/models/cad-brep/*)
mkdir -p "$scratch/parts"
for i in $(seq 0 $((count - 1))); do
  model="${models[$((i % ${#models[@]}))]}"
  name="$(basename "$model")"
  cp "$model" "$scratch/parts/$(printf '%03d' "$i")_$name"
done

now() { date +%s.%N; }
start=$(now)
mkdir -p "$scratch/loop"
for file in "$scratch"/parts/*; do
  stem="$(basename "${file%.*}")"
  "$contour" "$file" -q -o "$scratch/loop/$stem.svg" --stats "$scratch/loop/$stem.stats.json"
done
loop_wall=$(echo "$(now) - $start" | bc)
start=$(now)
"$contour" batch "$scratch/parts" --out-dir "$scratch/batch" --jobs "$jobs" -q
batch_wall=$(echo "$(now) - $start" | bc)
python_walls=$(PYTHONPATH="$build/python" /usr/bin/python3 "$root/bench/batch_python.py" "$scratch" "$jobs" 2>/dev/null)
for way in batch pylocal pydask; do
  cmp -s <(cat "$scratch"/loop/*.svg) <(cat "$scratch/$way"/*.svg) || { echo "the drawings differ ($way)" >&2; exit 1; }
done

echo "# Batch throughput, $(date -u +%Y-%m-%d), $(nproc) cores, $(lscpu | sed -n 's/^Model name: *//p' | head -1), $count parts"
echo
/usr/bin/python3 - "$scratch" "$count" "$jobs" "$loop_wall" "$batch_wall" "$python_walls" <<'PY'
import glob, json, sys
scratch, count, jobs = sys.argv[1], int(sys.argv[2]), int(sys.argv[3])
loop_wall, batch_wall = map(float, sys.argv[4:6])
python_walls = json.loads(sys.argv[6])
def drawing_ms(folder):
    records = [json.load(open(p)) for p in glob.glob(f"{scratch}/{folder}/*.stats.json")]
    return sum(r["totalMs"] for r in records) / len(records)
print("| way | wall | parts/s | drawing per part | overhead per part |")
print("|---|---:|---:|---:|---:|")
for way, folder, wall, lanes in (("shell loop of `contour`", "loop", loop_wall, 1),
                                 (f"`contour batch --jobs {jobs}`", "batch", batch_wall, jobs),
                                 (f"`contour.batch(jobs={jobs})`", "pylocal", python_walls["pylocal"], jobs),
                                 (f"`contour.batch(client=...)`, {jobs}-worker LocalCluster", "pydask",
                                  python_walls["pydask"], jobs)):
    drawn = drawing_ms(folder)
    print(f"| {way} | {wall:.2f} s | {count / wall:.1f} | {drawn:.1f} ms | {wall / count * lanes * 1000 - drawn:.1f} ms |")
PY
