#!/usr/bin/env bash
# The main job: builds the library and the velmora program and runs it.
# With no arguments it makes a sample TIFF document in build/sample/ (fax
# pages in Group 4 at 204 x 196 and 204 x 98 dpi, a grey page, a colour JPEG
# page, a page with annotations and a redaction, every page with its
# recognised text), describes it, converts it to a PDF/A file and says what it
# wrote; any arguments are passed to velmora as they are.
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
tif="$sample/sample.tif" pdf="$sample/sample.pdf"
mkdir -p "$sample"
"$build/velmora" sample "$tif"
"$build/velmora" info "$tif"
"$build/velmora" convert "$tif" "$pdf" --pdfa
qpdf --check "$pdf" >/dev/null
echo "wrote $tif ($(stat -c %s "$tif") bytes) and $pdf ($(stat -c %s "$pdf") bytes," \
  "PDF/A-1b, $(pdfinfo "$pdf" | awk '/^Pages:/ {print $2}') pages, accepted by qpdf --check):"
# A line per page: its paper size, and its image as pdfimages lists it with
# the filter qpdf finds on it.
pdfimages -list "$pdf" | tail -n +3 | while read -r page _ _ width height colour _ bits _ _ object _; do
  size=$(pdfinfo -f "$page" -l "$page" "$pdf" | awk '/^Page .* size:/ {print $4 " x " $6 " pt"}')
  filter=$(qpdf --show-object="$object" "$pdf" | grep -o '/Filter /[A-Za-z]*' | cut -d/ -f3)
  echo "  page $page: $size, image $width x $height, $bits-bit $colour, ${filter:-uncompressed}"
done
