#!/usr/bin/env bash
# Builds the tool and runs its main job.
set -euo pipefail
root="$(cd "$(dirname "$0")/.." && pwd)"
"$root/scripts/build.sh" "$root/build" -DCTR_BUILD_TESTS=OFF
"$root/build/tools/contour/contour" --version
