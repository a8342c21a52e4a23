#!/usr/bin/env bash
# Builds the tool and runs its main job: a drawing of the built-in demo scene.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
build="$root/build"
"$root/scripts/build.sh" "$build" -DCTR_BUILD_TESTS=OFF
"$build/tools/contour/contour" --version
"$build/tools/contour/contour" --demo -o "$build/demo.svg"
echo "drawing written to $build/demo.svg"
# A raster preview for machines without an SVG viewer.
if command -v rsvg-convert >/dev/null; then
  rsvg-convert --width 1240 --background-color white -o "$build/demo.png" "$build/demo.svg"
  echo "preview written to $build/demo.png"
fi
