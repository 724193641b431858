#!/usr/bin/env bash
# TIFF to PDF against the peer converters, on the same inputs in one run:
# a 500-page Group 4 fax document and a 100-page JPEG colour document (one
# strip a page, and libtiff's default strips), all
# made here with ImageMagick and libtiff's tools. For each input it prints
# the best wall time of five runs (one when it takes over 10 s) with its
# processor time (user + system)
# and peak memory, for velmora convert,
# tiff2pdf, img2pdf and cp (copying the input's bytes: the pass-through
# limit), then the size of each output against the input.
#   bench/tiff_to_pdf.sh [VELMORA]   (default build/bench/velmora)
set -euo pipefail
root=$(cd "$(dirname "$0")/.." && pwd)
velmora=${1:-$root/build/bench/velmora}
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT

for tool in convert tiffcp tiff2pdf img2pdf /usr/bin/time; do
  command -v "$tool" >/dev/null || { echo "missing $tool (apt-get install imagemagick libtiff-tools img2pdf time)" >&2; exit 1; }
done

# One text page at fax resolution and one colour page at 200 dpi.
text() {
  for i in $(seq 1 60); do echo "Line $i of a benchmark page: the quick brown fox jumps over the lazy dog $((i * 7919))"; done
}
convert -size 1728x2200 xc:white -font DejaVu-Sans -pointsize 22 -fill black \
  -annotate +60+80 "$(text)" -monochrome -density 204x196 "$work/fax.png"
tiffcp -c g4 "$work/fax.png" "$work/fax.tif" 2>/dev/null || convert "$work/fax.png" -compress Group4 "$work/fax.tif"
convert -size 1700x2200 gradient:navy-gold -font DejaVu-Sans -pointsize 30 -fill white \
  -annotate +80+120 "$(text | head -40)" -density 200 -depth 8 -type TrueColor "$work/colour.tif"
# A scanner's page in one strip, and libtiff's own layout in strips of 192 rows.
tiffcp -c jpeg:85 -r 2200 "$work/colour.tif" "$work/colour-jpeg.tif"
tiffcp -c jpeg:85 "$work/colour.tif" "$work/colour-strips.tif"

pages() { local n=$1 page=$2 out=$3 list=(); for _ in $(seq 1 "$n"); do list+=("$page"); done; tiffcp "${list[@]}" "$out"; }
pages 500 "$work/fax.tif" "$work/fax500.tif"
pages 100 "$work/colour-jpeg.tif" "$work/jpeg100.tif"
pages 100 "$work/colour-strips.tif" "$work/jpeg100-strips.tif"

best() {  # best wall time of five runs, the processor time and peak memory of that run
  local best_time="" best_cpu="" best_mem=""
  for _ in 1 2 3 4 5; do
    rm -f "$work/out.pdf"
    local start end
    start=$(date +%s%N)
    /usr/bin/time -f "%U %S %M" -o "$work/time" "$@" >/dev/null 2>&1 || { echo "failed: $*" >&2; return 1; }
    end=$(date +%s%N)
    read -r u s m <"$work/time"
    t=$(awk "BEGIN{print ($end - $start) / 1e9}")
    if [[ -z $best_time ]] || awk "BEGIN{exit !($t < $best_time)}"; then
      best_time=$t; best_cpu=$(awk "BEGIN{print $u + $s}"); best_mem=$m
    fi
    awk "BEGIN{exit !($t > 10)}" && break  # a slow run is measured once
  done
  echo "$best_time $best_cpu $best_mem"
}

for input in fax500 jpeg100 jpeg100-strips; do
  in="$work/$input.tif"
  printf '%s: %d bytes\n' "$input" "$(stat -c %s "$in")"
  for tool in velmora tiff2pdf img2pdf cp; do
    case $tool in
      velmora) run=("$velmora" convert "$in" "$work/out.pdf") ;;
      tiff2pdf) run=(tiff2pdf -o "$work/out.pdf" "$in") ;;
      img2pdf) run=(img2pdf -o "$work/out.pdf" "$in") ;;
      cp) run=(cp "$in" "$work/out.pdf") ;;
    esac
    result=$(best "${run[@]}") || continue
    read -r t c m <<<"$result"
    size=$(stat -c %s "$work/out.pdf")
    printf '  %-9s %7.3f s (processor %5.2f s)  %7d KB peak  output %+.2f%%\n' "$tool" "$t" "$c" "$m" \
      "$(awk "BEGIN{print ($size - $(stat -c %s "$in")) * 100 / $(stat -c %s "$in")}")"
  done
done
