#!/bin/bash
# bench/batch.sh BUILD_DIRECTORY [PICTURES [ROUNDS [FOLDER]]]: tarn batch beside the command lines of GraphicsMagick and
# libvips on scanned pages and photographs of real sizes, made once below FOLDER. Each round runs everybody once, in
# turn; the table has medians of wall time and of processor time, a picture, in milliseconds.
set -eu

if [ $# = 0 ]; then
  echo "usage: bench/batch.sh BUILD_DIRECTORY [PICTURES [ROUNDS [FOLDER]]]" >&2
  exit 2
fi
tool=$(cd "$1" && pwd)/tools/tarn
pictures=${2:-500}
rounds=${3:-3}
here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
work=${4:-$root/build/bench/batch}
jobs=$(nproc)
kinds=10 # different pictures of a sort; the rest are copies, files of their own
for program in gm vips gs groff; do
  command -v "$program" >/dev/null || { echo "batch: $program is missing (graphicsmagick, libvips-tools, ghostscript, groff)" >&2; exit 2; }
done
export OMP_NUM_THREADS=1 VIPS_CONCURRENCY=1 LC_ALL=C

# ---- Pictures --------------------------------------------------------------------------------------------------------

# An A4 page at 300 dots per inch: text, then photographs, with the noise of a scanner.
make_pictures() {
  local photographs
  photographs=$("$root/tools/photographs.sh") || photographs=
  local -a photos=()
  for name in astronaut.png chelsea.png coffee.png hubble_deep_field.jpg retina.jpg rocket.jpg; do
    if [ -f "$photographs/$name" ]; then photos+=("$photographs/$name"); fi
  done
  [ ${#photos[@]} -gt 0 ] || photos=("$root/tests/data/landscape.jpg")
  mkdir -p "$work/base"
  groff -Tps -P-pa4 "$here/page.roff" >"$work/base/page.ps"
  gs -q -dSAFER -dBATCH -dNOPAUSE -dLastPage=1 -dTextAlphaBits=4 -sDEVICE=pnggray -r300 -g2480x3508 \
    -sOutputFile="$work/base/page.png" "$work/base/page.ps" >/dev/null
  gs -q -dSAFER -dBATCH -dNOPAUSE -dLastPage=1 -sDEVICE=tiffg4 -r600 -g4960x7016 \
    -sOutputFile="$work/base/page.tif" "$work/base/page.ps" >/dev/null
  for ((i = 0; i < kinds; ++i)); do
    local photo=${photos[i % ${#photos[@]}]}
    if ((i % 2 == 0)); then
      gm convert "$work/base/page.png" -rotate "0.$i" -background white -gravity center -extent 2480x3508 \
        -operator All Noise-Gaussian 1% -type Grayscale -depth 8 -units PixelsPerInch -density 300 +profile '*' -compress None "$work/base/gray-$i.tif"
    else
      gm convert "$photo" -resize 2480x3508! -operator All Noise-Gaussian 1% -colorspace Gray -type Grayscale -depth 8 \
        -units PixelsPerInch -density 300 +profile '*' -compress None "$work/base/gray-$i.tif"
    fi
    gm convert "$photo" -resize 2480x3508! -operator All Noise-Gaussian 1% -type TrueColor -depth 8 -density 300 \
      +profile '*' -compress None "$work/base/colour-$i.tif"
  done
  mkdir -p "$work/gray" "$work/colour"
  for ((n = 0; n < pictures; ++n)); do
    for sort in gray colour; do cp "$work/base/$sort-$((n % kinds)).tif" "$work/$sort/$(printf %04d "$n").tif"; done
  done
  echo "$pictures" >"$work/made"
}
if [ "$(cat "$work/made" 2>/dev/null)" != "$pictures" ]; then
  rm -rf "$work"
  make_pictures
fi

# ---- Contestants -----------------------------------------------------------------------------------------------------
# Everybody averages (a box), writes zlib level 6 with filters chosen by row, or JPEG of quality 90 with halved colour.

names=(tarn gm vips)
together=$(((pictures + 4 * jobs - 1) / (4 * jobs))) # a process, where a program takes several
together=$((together < 16 ? together : 16))
# in_turn SORT COUNT COMMAND...: runs it on COUNT files at a time, in as many processes as there are processors.
in_turn() {
  local sort=$1 count=$2
  shift 2
  (cd "$work/$sort" && printf '%s\0' *.tif | xargs -0 -P "$jobs" -n "$count" "$@")
}
run_gray-png_tarn() { "$tool" batch "$work/gray" "$out" --again -q --suffix .png -- resize 50% >/dev/null; }
run_gray-png_gm() {
  in_turn gray "$together" gm mogrify -output-directory "$out" -format png -filter Box -resize 50% -quality 65
}
run_gray-png_vips() {
  # shellcheck disable=SC2016  # the inner shell's
  in_turn gray 1 sh -c 'vips shrink "$2" "$1/$(basename "$2" .tif).png[compression=6,filter=all]" 2 2' sh "$out"
}
run_gray-tiff_tarn() { "$tool" batch "$work/gray" "$out" --again -q -- resize 50% >/dev/null; }
run_gray-tiff_gm() {
  in_turn gray "$together" gm mogrify -output-directory "$out" -format tif -filter Box -resize 50% -compress Zip -quality 60 \
    -define tiff:predictor=2
}
run_gray-tiff_vips() {
  # shellcheck disable=SC2016
  in_turn gray 1 sh -c \
    'vips shrink "$2" "$1/$(basename "$2")[compression=deflate,predictor=horizontal]" 2 2' sh "$out"
}
run_colour-jpeg_tarn() { "$tool" batch "$work/colour" "$out" --again -q --suffix .jpg -- resize 50% >/dev/null; }
run_colour-jpeg_gm() {
  in_turn colour "$together" gm mogrify -output-directory "$out" -format jpg -filter Box -resize 50% -quality 90 \
    -sampling-factor 2x2
}
run_colour-jpeg_vips() {
  # shellcheck disable=SC2016
  in_turn colour 1 sh -c 'vips shrink "$2" "$1/$(basename "$2" .tif).jpg[Q=90,subsample-mode=on]" 2 2' sh "$out"
}

# ---- Measuring -------------------------------------------------------------------------------------------------------

median() { sort -g | awk '{ v[NR] = $1 } END { print NR % 2 ? v[(NR + 1) / 2] : (v[NR / 2] + v[NR / 2 + 1]) / 2 }'; }

figures=$work/figures
rm -f "$figures"
TIMEFORMAT='%R %U %S'
for ((round = 0; round < rounds; ++round)); do
  for job in gray-png gray-tiff colour-jpeg; do
    for name in "${names[@]}"; do
      out=$work/out-$job-$name
      rm -rf "$out" && mkdir -p "$out"
      { time "run_${job}_$name" 2>"$work/log"; } 2>"$work/time" || { cat "$work/log" >&2; exit 1; }
      made=$(find "$out" -type f ! -name '.tarn-batch' | wc -l)
      [ "$made" = "$pictures" ] || { echo "batch: $name made $made of $pictures pictures" >&2; exit 1; }
      bytes=$(find "$out" -type f -printf '%s\n' | awk '{ s += $1 } END { print s }')
      awk -v job="$job" -v name="$name" -v n="$pictures" -v bytes="$bytes" \
        '{ print job, name, $1 * 1000 / n, ($2 + $3) * 1000 / n, bytes / n / 1000 }' "$work/time" >>"$figures"
    done
  done
done

echo "$pictures pictures, $jobs processors, $rounds rounds; $(gm version | head -n 1 | cut -d' ' -f1-2), $(vips --version)"
echo
echo "| job | program | ms a picture | processor ms a picture | KB a picture |"
echo "|---|---|---|---|---|"
for job in gray-png gray-tiff colour-jpeg; do
  for name in "${names[@]}"; do
    column() { awk -v job="$job" -v name="$name" -v at="$1" '$1 == job && $2 == name { print $at }' "$figures" | median; }
    printf '| %s | %s | %.0f | %.0f | %.0f |\n' "$job" "$name" "$(column 3)" "$(column 4)" "$(column 5)"
  done
done
