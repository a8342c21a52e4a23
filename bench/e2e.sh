#!/usr/bin/env bash
# End-to-end timing: every phase of a drawing (import, bake, creases,
# silhouettes, common segments, occlusion, intersections, visible pieces,
# export) on the benchmark models, iso and front views, orthographic camera
# fitted to the model, median of several runs; then the whole `contour` run
# from file to SVG with its wall time and peak memory. Prints a Markdown table
# headed by the date and the machine.
#
#   bench/e2e.sh [--runs K] [--threads N] [--build DIR [--no-build]] [--models DIR] [MODEL...]
#
# --no-build times the programs already in DIR (bench/drawing_phases and
# tools/contour/contour), e.g. those of an earlier tree kept for comparison.
#
# MODEL is a path under the models folder, or icosphere (1,003,520 triangles),
# icosphere4m (4,014,080: four times as many, for how the phases grow) or
# torus (11,664 triangles), all made in the program.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
runs=3
threads="$(nproc)"
build="$root/build-bench"
models_dir="$root/../shared/models"
build_first=1
while [ $# -gt 0 ]; do
  case "$1" in
    --runs) runs="$2"; shift 2 ;;
    --threads) threads="$2"; shift 2 ;;
    --build) build="$2"; shift 2 ;;
    --no-build) build_first=0; shift ;;
    --models) models_dir="$2"; shift 2 ;;
    *) break ;;
  esac
done
models=("$@")
if [ ${#models[@]} -eq 0 ]; then
  models=(cad-brep/box_holes.obj cad/fandisk.obj torus organic/stanford-bunny.obj organic/armadillo_86k.ply
          organic/igea.ply icosphere organic/igea_1m_subdivided.ply icosphere4m)
fi
if [ "$build_first" = 1 ]; then
  "$root/scripts/build.sh" "$build" -DCTR_BUILD_BENCH=ON -DCTR_BUILD_TESTS=OFF >/dev/null
fi
phases="$build/bench/drawing_phases"
contour="$build/tools/contour/contour"
scratch="$(mktemp -d)"
trap 'rm -rf "$scratch"' EXIT

echo "# End-to-end medians, $(date -u +%Y-%m-%d), $(nproc) cores, $(lscpu | sed -n 's/^Model name: *//p' | head -1), ${threads} thread(s), ${runs} runs"
echo
echo "| model | view | triangles | import | bake | creases | silhouettes | occlusion | intersections | visible | export | compute | contour wall | peak RSS |"
echo "|---|---|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|---:|"
for model in "${models[@]}"; do
  for view in iso front; do
    case "$model" in
      icosphere) source=(--icosphere 224); file="" ;;
      icosphere4m) source=(--icosphere 448); file="" ;;
      torus) source=(--torus 54); file="" ;;
      *) source=("$models_dir/$model"); file="$models_dir/$model" ;;
    esac
    "$phases" --view "$view" --threads "$threads" --runs "$runs" "${source[@]}" > "$scratch/phases.txt"
    : > "$scratch/tool.txt"
    if [ -n "$file" ]; then
      for _ in $(seq "$runs"); do
        /usr/bin/time -f "%e %M" -a -o "$scratch/tool.txt" \
          "$contour" "$file" --view "$view" --orthographic --threads "$threads" -q -o "$scratch/out.svg"
      done
    fi
    python3 - "$model" "$view" "$scratch/phases.txt" "$scratch/tool.txt" <<'PY'
import statistics, sys
model, view, phases_path, tool_path = sys.argv[1:5]
rows = [dict(kv.split("=") for kv in line.split()) for line in open(phases_path) if line.strip()]
def med(key):
    return statistics.median(float(r[key]) for r in rows)
def ms(value):
    return f"{value:,.1f} ms" if value < 100 else f"{value:,.0f} ms"
cells = [model, view, f"{int(rows[0]['triangles']):,}"]
cells += [ms(med(k)) for k in ("import", "bake", "creases", "silhouettes", "occlusion", "intersections",
                               "visible", "export", "compute")]
tool = [line.split() for line in open(tool_path) if line.strip() and line[0].isdigit()]
if tool:
    cells.append(f"{statistics.median(float(t[0]) for t in tool) * 1000:,.0f} ms")
    cells.append(f"{max(int(t[1]) for t in tool) / 1024:,.0f} MiB")
else:
    cells += ["-", f"{med('peakRssMiB'):,.0f} MiB (driver)"]
print("| " + " | ".join(cells) + " |")
PY
  done
done
