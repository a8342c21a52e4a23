#!/usr/bin/env bash
# Parts per second of many small drawings: the carried CAD models
# (tests/models/cad/*, cad-brep/*) copied round to COUNT files, iso view,
# drawn by a shell loop of `contour` (one process per part) and by
# `contour batch` with one and N jobs (one process), each with its record
# beside the drawing; then a rerun of the batch, which skips every part.
# Prints a Markdown table headed by the date and the machine.
#
#   bench/batch.sh [--count COUNT] [--jobs N] [--build DIR]
#
# "drawing" is the mean of the records' totalMs (import to the finished SVG);
# "overhead" is what a part costs beyond it: for the loop the wall time per
# part less the drawing (process start, libraries, exit), for the batch the
# mean of the report's seconds per part less the drawing (the worker's own
# cost: current check, folder, writing the record, committing the drawing and
# freeing the part's memory).
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
[ -x "$contour" ] || "$root/scripts/build.sh" "$build" -DCTR_BUILD_TESTS=OFF >/dev/null
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
"$contour" batch "$scratch/parts" --out-dir "$scratch/batch1" --jobs 1 -q
batch1_wall=$(echo "$(now) - $start" | bc)
start=$(now)
"$contour" batch "$scratch/parts" --out-dir "$scratch/batch" --jobs "$jobs" -q
batch_wall=$(echo "$(now) - $start" | bc)
start=$(now)
"$contour" batch "$scratch/parts" --out-dir "$scratch/batch" --jobs "$jobs" -q --report "$scratch/rerun.json"
rerun_wall=$(echo "$(now) - $start" | bc)
for way in batch1 batch; do
  cmp -s <(cat "$scratch"/loop/*.svg) <(cat "$scratch/$way"/*.svg) || { echo "the drawings differ ($way)" >&2; exit 1; }
done

echo "# Batch throughput, $(date -u +%Y-%m-%d), $(nproc) cores, $(lscpu | sed -n 's/^Model name: *//p' | head -1), $count parts"
echo
/usr/bin/python3 - "$scratch" "$count" "$jobs" "$loop_wall" "$batch1_wall" "$batch_wall" "$rerun_wall" <<'PY'
import glob, json, sys
scratch, count, jobs = sys.argv[1], int(sys.argv[2]), sys.argv[3]
loop_wall, batch1_wall, batch_wall, rerun_wall = map(float, sys.argv[4:8])
def drawing_ms(folder):
    records = [json.load(open(p)) for p in glob.glob(f"{scratch}/{folder}/*.stats.json")]
    return sum(r["totalMs"] for r in records) / len(records)
def part_ms(folder):
    report = json.load(open(f"{scratch}/{folder}/report.json"))
    return sum(p["seconds"] for p in report["results"]) / len(report["results"]) * 1000
loop_ms = drawing_ms("loop")
print("| way | wall | parts/s | drawing per part | overhead per part |")
print("|---|---:|---:|---:|---:|")
print(f"| shell loop of `contour` | {loop_wall:.2f} s | {count / loop_wall:.1f} | {loop_ms:.1f} ms | {loop_wall / count * 1000 - loop_ms:.1f} ms |")
for folder, wall, n in (("batch1", batch1_wall, 1), ("batch", batch_wall, jobs)):
    drawn = drawing_ms(folder)
    print(f"| `contour batch --jobs {n}` | {wall:.2f} s | {count / wall:.1f} | {drawn:.1f} ms | {part_ms(folder) - drawn:.2f} ms |")
print(f"| rerun, every part current | {rerun_wall:.2f} s | {count / rerun_wall:.0f} | - | - |")
PY
