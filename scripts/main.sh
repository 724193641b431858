#!/usr/bin/env bash
# The main job: builds the library and the velmora program and runs it.
# With no arguments it makes a sample two-page TIFF (a black and white page
# and a colour page, uncompressed), re-encodes it (the black and white page to
# Group 4, the colour page to a 256-colour palette page), describes the result
# and renders its colour page into a Windows bitmap, all in build/sample/; any
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
"$build/velmora" convert "$sample/sample.tif" "$sample/page1-g4.tif" --pages 1 --compression g4
"$build/velmora" convert "$sample/sample.tif" "$sample/page2-palette.tif" --pages 2 --color pal256
rm -f "$sample/converted.tif"
"$build/velmora" append "$sample/converted.tif" "$sample/page1-g4.tif" "$sample/page2-palette.tif"
"$build/velmora" info "$sample/converted.tif"
"$build/velmora" render "$sample/converted.tif" --page 2 -o "$sample/page2.bmp"
echo "re-encoded $sample/sample.tif ($(stat -c %s "$sample/sample.tif") bytes) into $sample/converted.tif" \
  "($(stat -c %s "$sample/converted.tif") bytes); its page 2 is in $sample/page2.bmp"
