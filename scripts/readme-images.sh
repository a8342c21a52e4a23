#!/usr/bin/env bash
# Redraws the pictures of the README: the demo scene and real models from
# ../shared/models, as SVG with the tool, then PNG with rsvg-convert.
set -euo pipefail
cd "$(dirname "$0")/.."
models=../shared/models
tool=build/tools/contour/contour
[ -x "$tool" ] || { scripts/install-deps.sh && cmake -S . -B build && cmake --build build --target contour -j; }
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
draw() {  # name, then the tool's arguments
  local name=$1
  shift
  "$tool" "$@" -q --page 200x150 --margin 5 -o "$work/$name.svg"
  rsvg-convert -w 800 -b white "$work/$name.svg" -o "doc/$name.png"
}
draw demo --demo
draw fandisk "$models/cad/fandisk.obj"
draw bunny "$models/organic/stanford-bunny.obj"
# The multi-view sheet, dated by the last commit so that redrawing it changes
# nothing unless the drawing does.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git log -1 --format=%ct)} \
  "$tool" "$models/cad-brep/box_holes.obj" --sheet --hidden -q -o "$work/sheet.svg"
rsvg-convert -w 1200 -b white "$work/sheet.svg" -o doc/sheet.png
