#!/bin/sh
# tools/demo.sh BUILD_DIR: takes real photographs and a scanned-looking page through every kind of storage and back.
# BUILD_DIR holds a finished build. The photographs are those of tools/photographs.sh; without them, the pictures that
# come with the project are shown.
set -u

if [ $# != 1 ] || [ ! -d "$1" ]; then
  echo "usage: tools/demo.sh BUILD_DIR" >&2
  exit 2
fi
programs=$(cd "$1" && pwd)/tools
cd "$(dirname "$0")/.." || exit 2
cache=$PWD/build/cache
out=$PWD/build/demo
for program in tarn tarn_demo tarn_samples; do
  if [ ! -x "$programs/$program" ]; then
    echo "demo: $programs/$program is missing; build first" >&2
    exit 2
  fi
done
mkdir -p "$cache" && rm -rf "$out" && mkdir -p "$out" || exit 2
note() { printf 'demo: %s\n' "$*"; }

# ---- Photographs -----------------------------------------------------------------------------------------------------

set --
if photographs=$(tools/photographs.sh); then
  for picture in astronaut.png coffee.png hubble_deep_field.jpg retina.jpg camera.png logo.png \
    chessboard_RGB.png; do
    if [ -f "$photographs/$picture" ]; then set -- "$@" "$photographs/$picture"; fi
  done
  origin="The photographs come from the Debian package python3-skimage."
fi
if [ $# = 0 ]; then
  note "showing the picture that comes with the project"
  set -- tests/data/landscape.jpg
  origin=
fi
photograph=$1
"$programs/tarn_samples" landscape --gray16 "$out/landscape-gray16.tif" || exit 1
set -- "$@" "$out/landscape-gray16.tif"
origin="$origin The landscape is computed."

# ---- Page ------------------------------------------------------------------------------------------------------------

# Sets a page of text at 300 dots per inch and makes it look scanned: skewed and specked, the same way every time.
page() {
  command -v groff >/dev/null 2>&1 && command -v gs >/dev/null 2>&1 || return 1
  groff -ms -Tps -P-pa4 tools/demo_page.ms >"$out/page.ps" 2>"$out/page.log" &&
    gs -q -dSAFER -dBATCH -dNOPAUSE -sDEVICE=pngmono -r300 -g2480x3508 -sOutputFile="$out/page.print.png" \
      "$out/page.ps" >>"$out/page.log" 2>&1 &&
    "$programs/tarn_samples" scan "$out/page.print.png" "$out/page.tif"
}

if page; then
  set -- "$@" "$out/page.tif"
  origin="$origin The page was set by groff and Ghostscript, then skewed by 0.6 degrees and specked."
else
  note "groff or Ghostscript is missing; showing the page that comes with the project"
  set -- "$@" tests/data/page.tif
  origin="$origin The page comes with the project."
fi
rm -f "$out/page.ps" "$out/page.log" "$out/page.print.png"

# ---- One photograph in every depth, and in few colours ----------------------------------------------------------------

# show LIST IMAGE COMMAND OPTION...: makes an image of the photograph and notes the file, the command, and the distance
# from the photograph.
show() {
  list=$out/$1 image=$2 command=$3
  shift 3
  "$programs/tarn" "$command" "$photograph" "$out/$image" "$@" || return 1
  distance=$("$programs/tarn" diff "$photograph" "$out/$image" | awk '$1 == "all" { print $4 }')
  [ -n "$distance" ] || return 1
  printf '%s\t%s\t%s\n' "$image" "tarn $command $(basename "$photograph") $image $*" "$distance" >>"$list"
}
depth() {
  name=$1
  shift
  show depths.txt "depth-$name.png" convert "$@"
}

for bits in 1 2 3 4 5 6 7 8; do depth "$bits" --bits "$bits" --palette fixed || exit 1; done
depth gray8 --gray || exit 1
depth gray12 --bits 12 || exit 1
depth gray16 --bits 16 --gray || exit 1
for bits in 16 24 32 48 64; do depth "$bits" --bits "$bits" || exit 1; done

# Lines without tabs are headings.
methods="none floyd-steinberg stucki burkes sierra stevenson-arce jarvis ordered clustered"
echo "Black and white, nine methods" >>"$out/colors.txt"
for method in $methods; do
  show colors.txt "colors-1-$method.png" colors --bits 1 --palette fixed --dither "$method" || exit 1
done
echo "16 colours chosen for the photograph, nine methods" >>"$out/colors.txt"
for method in $methods; do show colors.txt "colors-4-$method.png" colors --bits 4 --dither "$method" || exit 1; done
echo "256 colours, three palettes" >>"$out/colors.txt"
for palette in fixed web optimized; do
  show colors.txt "colors-8-$palette.png" colors --bits 8 --palette "$palette" || exit 1
done

# ---- Sizes, turns, slants, borders, opacity ----------------------------------------------------------------------------

# moved IMAGE COMMAND INPUT OPTION...: makes an image and notes the file and the command.
moved() {
  image=$1 command=$2 input=$3
  shift 3
  if [ "$command" = run ]; then
    "$programs/tarn" run "$input" "$@" "$out/$image" >"$out/told.txt" || return 1
    line="tarn run $(basename "$input") $* $image"
  else
    "$programs/tarn" "$command" "$input" "$out/$image" "$@" >"$out/told.txt" || return 1
    line="tarn $command $(basename "$input") $image $*"
  fi
  if [ -s "$out/told.txt" ]; then line="$line (prints $(cat "$out/told.txt"))"; fi
  printf '%s\t%s\t\n' "$image" "$line" | sed "s#$out/##g" >>"$out/moved.txt"
}
heading() { echo "$*" >>"$out/moved.txt"; }

for page; do :; done # the last picture of the list
part=$out/part.png
"$programs/tarn" crop "$page" "$part" 320,760,800x560 || exit 1
"$programs/tarn" convert "$photograph" "$out/mask.png" --gray || exit 1

heading "A third of the size, four methods"
for method in nearest ink area smooth; do
  moved "page-third-$method.png" resize "$part" 33% --method "$method" || exit 1
done
for method in nearest area smooth; do
  moved "photo-third-$method.png" resize "$photograph" 33% --method "$method" || exit 1
done
heading "Four times the size, three methods"
for method in nearest area smooth; do
  moved "photo-large-$method.png" run "$photograph" -- crop 170,60,120x120 -- resize 400% --method "$method" || exit 1
done
heading "Turned"
for method in nearest correct bilinear; do
  moved "photo-turned-$method.png" rotate "$photograph" 15 --method "$method" || exit 1
done
moved photo-turned-whole.png rotate "$photograph" -30 --resize --fill '#204060' || exit 1
moved photo-quarter.png rotate "$photograph" 90 --resize || exit 1
moved page-turned.png run "$part" -- convert --gray -- rotate 10 --resize || exit 1
heading "Flipped, mirrored, stored another way"
for input in "$photograph" "$part"; do
  name=photo
  if [ "$input" = "$part" ]; then name=page; fi
  moved "$name-flip.png" flip "$input" || exit 1
  moved "$name-reverse.png" reverse "$input" || exit 1
done
moved photo-stored.png orient "$photograph" --to left-bottom || exit 1
moved photo-marked.png orient "$photograph" --to left-bottom --mark-only || exit 1
heading "Slanted and trimmed"
moved photo-shear.png shear "$photograph" 15 || exit 1
moved photo-shear-down.png shear "$photograph" -10 --vertical --fill '#c0a060' || exit 1
moved page-shear.png shear "$part" 12 || exit 1
moved photo-trim.png run "$photograph" -- crop -60,-40,640x600 -- trim --tolerance 8 || exit 1
moved page-trim.png trim "$part" || exit 1
heading "Opacity"
moved photo-opacity.png alpha "$photograph" --set "$out/mask.png" || exit 1
moved photo-opacity-out.png alpha "$out/photo-opacity.png" --extract || exit 1
moved photo-opacity-over.png alpha "$out/photo-opacity.png" --remove --over '#d04060' || exit 1
moved page-opacity.png alpha "$part" --opacity 90 || exit 1
heading "A scanned page made level"
moved page-scanned.png run "$page" -- resize 800x || exit 1
moved page-level.png run "$page" -- deskew -- resize 800x || exit 1
moved page-steep.png run "$page" -- rotate 7 -- resize 800x || exit 1
moved page-steep-level.png run "$page" -- rotate 7 -- deskew -- resize 800x || exit 1

"$programs/tarn_demo" --moved "$out/moved.txt" --origin "$origin" --depths "$out/depths.txt" --colors "$out/colors.txt" "$out" "$@"
