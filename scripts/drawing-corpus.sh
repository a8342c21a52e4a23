#!/usr/bin/env bash
# Draws a fixed corpus with one build's `contour` into a folder, so that two
# builds can be compared byte for byte (`diff -r`): every carried model and,
# when ../shared/models is there, the shared ones, in the iso and front views,
# with hidden lines, layered, as four-view sheets, perspective, the demo, each
# at one and two threads. A change that must not move a line (a faster path,
# a shared preparation) is checked with it:
#
#   scripts/drawing-corpus.sh build /tmp/before          # on the old tree
#   scripts/drawing-corpus.sh build /tmp/after           # on the new one
#   diff -r /tmp/before /tmp/after && echo identical
#
#   scripts/drawing-corpus.sh [--quick] BUILD OUTDIR
#
# --quick leaves out the models over 100,000 triangles.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
quick=0
if [ "${1:-}" = "--quick" ]; then quick=1; shift; fi
if [ $# -ne 2 ]; then
  echo "usage: scripts/drawing-corpus.sh [--quick] BUILD OUTDIR" >&2
  exit 2
fi
contour="$1/tools/contour/contour"
out="$2"
[ -x "$contour" ] || { echo "drawing-corpus: no contour in $1" >&2; exit 1; }
mkdir -p "$out"

models=()
for m in cad/anchor.stl cad/couplingdown.ply cad/cube_split_normals.obj cad/featuretype_vertex_normals.ply \
         cad/joint.obj cad-brep/box_holes.obj cad-step/plate.step open/three_peaks.obj organic/spot.obj \
         scenes/two_balls_intersecting.obj; do
  models+=("$root/tests/models/$m")
done
shared="$root/../shared/models"
if [ -d "$shared" ]; then
  for m in cad/fandisk.obj cad/rocker-arm.obj cad/plate_holes.stl cad/1002_tray_bottom.stl \
           cad-brep/interpenetrating.obj cad-brep/stepped_shaft.obj scenes/2CylinderEngine.glb \
           scenes/tetra_intersected_by_triangle.obj scenes/two_objects.obj open/sphereWithHole.stl \
           organic/stanford-bunny.obj; do
    [ -f "$shared/$m" ] && models+=("$shared/$m")
  done
  if [ "$quick" = 0 ]; then
    for m in organic/armadillo_86k.ply organic/igea.ply; do
      [ -f "$shared/$m" ] && models+=("$shared/$m")
    done
  fi
fi

draw() {  # name, contour arguments...
  local name="$1"; shift
  "$contour" "$@" -q -o "$out/$name.svg" || echo "exit $? for $name" >> "$out/failures.txt"
}

for threads in 1 2; do
  draw "demo-t$threads" --demo --threads "$threads"
  draw "demo-hidden-t$threads" --demo --hidden --layers --threads "$threads"
  draw "demo-sheet-t$threads" --demo --sheet --threads "$threads"
  for model in "${models[@]}"; do
    base="$(basename "$(dirname "$model")")-$(basename "$model" | tr '.' '_')"
    draw "$base-iso-t$threads" "$model" --threads "$threads"
    draw "$base-front-t$threads" "$model" --view front --threads "$threads"
    draw "$base-hidden-t$threads" "$model" --hidden --layers --threads "$threads"
    draw "$base-persp-t$threads" "$model" --perspective --view right --keep-common --threads "$threads"
    draw "$base-sheet-t$threads" "$model" --sheet --hidden --threads "$threads"
  done
done
# Two files in one drawing, one hiding only.
draw "two-files" "$root/tests/models/cad/joint.obj" "$root/tests/models/organic/spot.obj"
draw "occluder" "$root/tests/models/cad/joint.obj" --occluder "$root/tests/models/organic/spot.obj" --hidden
echo "$(find "$out" -name '*.svg' | wc -l) drawings in $out"
