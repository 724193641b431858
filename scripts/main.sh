#!/usr/bin/env bash
# The main job: builds the library and the velmora program and runs it.
# With no arguments it makes a sample two-page TIFF, describes it and
# converts its colour page into a Windows bitmap (in build/sample/); any
# arguments are passed to velmora as they are.
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
"$root/scripts/install-deps.sh" main

build="$root/build/release"
cmake -S "$root" -B "$build" -DCMAKE_BUILD_TYPE=Release -DVELMORA_TESTS=OFF >/dev/null
cmake --build "$build" -j"$(nproc)" >/dev/null

if (($# > 0)); then
  exec "$build/velmora" "$@"
fi
"$build/velmora" version
sample="$root/build/sample"
mkdir -p "$sample"
"$build/velmora" sample "$sample/sample.tif"
"$build/velmora" info "$sample/sample.tif"
"$build/velmora" render "$sample/sample.tif" --page 2 -o "$sample/page2.bmp"
echo "converted page 2 of $sample/sample.tif into $sample/page2.bmp"
