#!/bin/sh
# tools/demo.sh BUILD_DIR: takes real photographs and a scanned-looking page through every kind of storage and back, and
# does to them what the tool can do; leaves one page that shows it all, build/demo/index.html. BUILD_DIR holds a
# finished build. The photographs are those of tools/photographs.sh; without them, the pictures that come with the project
# are shown.
set -u

if [ $# != 1 ] || [ ! -d "$1" ]; then
  echo "usage: tools/demo.sh BUILD_DIR" >&2
  exit 2
fi
since=$(date +%s)
programs=$(cd "$1" && pwd)/tools
cd "$(dirname "$0")/.." || exit 2
cache=$PWD/build/cache
out=$PWD/build/demo
notes=$PWD/build/demo.notes # the list of what was made, and what there is to tell of each
jobs=$(nproc 2>/dev/null || echo 2)
for program in tarn tarn_demo tarn_samples; do
  if [ ! -x "$programs/$program" ]; then
    echo "demo: $programs/$program is missing; build first" >&2
    exit 2
  fi
done
mkdir -p "$cache" && rm -rf "$out" "$notes" && mkdir -p "$out" "$notes" || exit 2
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
photograph=$1 second=${2:-$1}
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

for page; do :; done # the last picture of the list

# ---- How pictures are made and listed --------------------------------------------------------------------------------

list=$notes/list
section() { printf 'section\t%s\t%s\t%s\t%s\n' "$@" >>"$list"; } # ID TITLE COVER BRIEF
about() { printf 'about\t%s\n' "$*" >>"$list"; }
heading() { printf 'heading\t%s\n' "$*" >>"$list"; }
# entry KIND NAME TITLE COMMAND: files are shown without their folders.
entry() {
  printf '%s\t%s\t%s\t%s\n' "$@" | sed -e "s#$out/##g" -e "s#${photograph%/*}/##g" -e "s#tests/data/##g" >>"$list"
}

# Commands run side by side; a script line that needs what they make says `finish` first.
running=0
begin() {
  if [ "$running" -ge $((2 * jobs)) ]; then finish; fi
  running=$((running + 1))
  { "$@" || echo "$*" >>"$notes/failed"; } &
}
finish() {
  wait
  running=0
  [ ! -e "$notes/failed" ] || { note "failed: $(head -n 1 "$notes/failed")" && exit 1; }
}

# make IMAGE COMMAND INPUT OPTION...: what the tool prints becomes a note.
make() {
  image=$1 command=$2 input=$3
  shift 3
  if [ "$command" = run ]; then
    set -- run "$input" "$@" "$out/$image"
  else
    set -- "$command" "$input" "$out/$image" "$@"
  fi
  told=$("$programs/tarn" "$@") || return 1
  [ -z "$told" ] || printf 'prints %s\n' "$told" >"$notes/$image.note"
}
# picture IMAGE TITLE COMMAND INPUT OPTION...: makes a picture and lists it with its command.
picture() {
  image=$1 title=$2 command=$3 input=$4
  shift 4
  if [ "$command" = run ]; then
    entry picture "$image" "$title" "tarn run $input $* $image"
  else
    entry picture "$image" "$title" "tarn $command $input $image $*"
  fi
  begin make "$image" "$command" "$input" "$@"
}
# distant IMAGE ...: the same of the photograph, and notes the distance from it.
distant() {
  image=$1 title=$2 command=$3
  shift 3
  entry picture "$image" "$title" "tarn $command $photograph $image $*"
  begin make_distant "$image" "$command" "$@"
}
make_distant() {
  image=$1 command=$2
  shift 2
  make "$image" "$command" "$photograph" "$@" || return 1
  "$programs/tarn" diff "$photograph" "$out/$image" |
    awk '$1 == "all" { print $4 == "inf" ? "no difference" : $4 " dB from the photograph" }' >"$notes/$image.note"
  [ -s "$notes/$image.note" ]
}
# same IMAGE OTHER: notes whether both show the same.
same() {
  if "$programs/tarn" diff "$out/$1" "$2" >/dev/null; then echo yes; else echo no; fi >"$notes/$1.same"
}
# told NAME TITLE COMMAND OPTION...: runs the tool and lists what it prints.
told() {
  name=$1 title=$2
  shift 2
  entry text "$name" "$title" "tarn $*"
  "$programs/tarn" "$@" >"$notes/$name.told" || exit 1
}

# ---- What the pictures are made of -----------------------------------------------------------------------------------

part=$out/part.png gray=$out/gray.png other=$out/other.png
begin "$programs/tarn" crop "$page" "$part" 320,760,800x560
begin "$programs/tarn" convert "$photograph" "$gray" --gray
if [ "$second" = "$photograph" ]; then
  other_made="tarn reverse $photograph $other"
  begin "$programs/tarn" reverse "$photograph" "$other"
else
  other_made="tarn resize $second $other 512x512"
  begin "$programs/tarn" resize "$second" "$other" 512x512
fi
finish
size=$("$programs/tarn" info "$gray" | awk '$1 == "size" { print $2 "x" $4 }')
first=${photograph##*/} first=${first%.*}.png # the photograph as it came back from storage

# ---- Depths and colours ----------------------------------------------------------------------------------------------

section depths "One photograph in every depth" depth-4.png "From one bit a pixel to sixteen bits a colour."
about "Each was made from the same photograph with the nearest colours and without dithering. Depths that no file" \
  "format has are shown in the next one that holds the same pixels. Decibels are the distance from the photograph" \
  "as tarn diff measures it: 30 is visible, 50 is not."
for bits in 1 2 3 4 5 6 7 8; do
  distant "depth-$bits.png" "$((1 << bits)) colours, $bits bits" convert --bits "$bits" --palette fixed
done
distant depth-gray8.png "Gray of 8 bits" convert --gray
distant depth-gray12.png "Gray of 12 bits" convert --bits 12
distant depth-gray16.png "Gray of 16 bits" convert --bits 16 --gray
distant depth-16.png "Colour of 16 bits" convert --bits 16
distant depth-24.png "Colour of 24 bits" convert --bits 24
distant depth-32.png "Colour and opacity, 32 bits" convert --bits 32
distant depth-48.png "Colour of 48 bits" convert --bits 48
distant depth-64.png "Colour and opacity, 64 bits" convert --bits 64

section colors "Few colours" colors-1-ordered.png "Dithered by nine methods, with palettes made or given."
about "Dithering moves single pixels away from the photograph to bring areas near: the decibels, taken pixel by" \
  "pixel, fall where the eye sees a gain. Open a picture to see its pixels as they are."
methods="none floyd-steinberg stucki burkes sierra stevenson-arce jarvis ordered clustered"
heading "Black and white, nine methods"
for method in $methods; do
  distant "colors-1-$method.png" "$method" colors --bits 1 --palette fixed --dither "$method"
done
heading "16 colours chosen for the photograph, nine methods"
for method in $methods; do distant "colors-4-$method.png" "$method" colors --bits 4 --dither "$method"; done
heading "256 colours, three palettes"
for palette in fixed web optimized; do
  distant "colors-8-$palette.png" "$palette" colors --bits 8 --palette "$palette"
done

# ---- Sizes, turns, slants, borders -----------------------------------------------------------------------------------

section sizes "Sizes" photo-third-area.png "Smaller and larger, thin lines of a page kept."
about "Averages suit photographs; the ink method keeps thin lines of black and white pages when they shrink."
heading "A third of the size"
entry picture part.png "a part of the page" "tarn crop $page part.png 320,760,800x560"
for method in nearest ink area smooth; do
  picture "page-third-$method.png" "page, $method" resize "$part" 33% --method "$method"
done
for method in nearest area smooth; do
  picture "photo-third-$method.png" "photograph, $method" resize "$photograph" 33% --method "$method"
done
heading "Four times the size"
for method in nearest area smooth; do
  picture "photo-large-$method.png" "$method" run "$photograph" -- crop 170,60,120x120 -- resize 400% --method "$method"
done

section turns "Turns, mirrors, slants" photo-turned-whole.png "Any angle; quarter turns and mirrors move pixels only."
about "White beside a turned picture is the colour that --fill did not change."
heading "Turned"
for method in nearest correct bilinear; do
  picture "photo-turned-$method.png" "15 degrees, $method" rotate "$photograph" 15 --method "$method"
done
picture photo-turned-whole.png "30 degrees to the left, with room" rotate "$photograph" -30 --resize --fill '#204060'
picture photo-quarter.png "a quarter turn" rotate "$photograph" 90 --resize
picture page-turned.png "a page, in gray" run "$part" -- convert --gray -- rotate 10 --resize
heading "Flipped and mirrored"
for input in "$photograph" "$part"; do
  name=photo
  if [ "$input" = "$part" ]; then name=page; fi
  picture "$name-flip.png" "$name, flipped" flip "$input"
  picture "$name-reverse.png" "$name, mirrored" reverse "$input"
done
picture photo-stored.png "rows stored another way, looks the same" orient "$photograph" --to left-bottom
picture photo-marked.png "only marked so, looks turned" orient "$photograph" --to left-bottom --mark-only
picture photo-again.png "four quarter turns and two flips" run "$photograph" -- rotate 90 --resize \
  -- rotate 90 --resize -- flip -- flip -- rotate 90 --resize -- rotate 90 --resize
heading "Slanted and trimmed"
picture photo-shear.png "slanted" shear "$photograph" 15
picture photo-shear-down.png "slanted downwards" shear "$photograph" -10 --vertical --fill '#c0a060'
picture page-shear.png "page, slanted" shear "$part" 12
picture photo-trim.png "given a border and trimmed" run "$photograph" -- crop -60,-40,900x700 -- trim --tolerance 8
picture page-trim.png "page, trimmed" trim "$part"

section level "A scanned page made level" page-level.png "The skew of a page found and taken out."
about "The page was scanned askew. The tool finds the angle by itself and prints it."
picture page-scanned.png "as scanned" run "$page" -- resize 800x
picture page-level.png "made level" run "$page" -- deskew -- resize 800x
picture page-steep.png "turned by 7 degrees more" run "$page" -- rotate 7 -- resize 800x
picture page-steep-level.png "made level" run "$page" -- rotate 7 -- deskew -- resize 800x

# ---- Opacity, fills, two pictures ------------------------------------------------------------------------------------

section opacity "Opacity" photo-opacity.png "Set from a picture, taken out, laid over a colour."
about "Where there is opacity the page's chequered ground shows through."
picture photo-opacity.png "its own gray as opacity" alpha "$photograph" --set "$gray"
picture page-opacity.png "the same everywhere" alpha "$part" --opacity 90
finish
picture photo-opacity-out.png "taken out" alpha "$out/photo-opacity.png" --extract
picture photo-opacity-over.png "laid over a colour" alpha "$out/photo-opacity.png" --remove --over '#d04060'

section fill "Fill" page-fill.png "One colour over a picture or a rectangle of it."
about "Pixels that are filled are gone: what a bar covers cannot be had back from the file."
picture page-fill.png "lines of a page blacked out" run "$part" -- fill '#000000' --area 60,120,420x90 \
  -- fill '#000000' --area 200,330,500x45
picture photo-fill.png "a rectangle of a photograph" fill "$photograph" '#ffd200' --area 150,40,160x200
picture palette-fill.png "the nearest of 16 colours" run "$photograph" -- colors --bits 4 -- fill '#ffd200' \
  --area 150,40,160x200
picture gray-fill.png "the same in gray" fill "$gray" '#ffd200' --area 150,40,160x200

section combine "Two pictures as one" combine-multiply.png "Eleven ways in which the pixels of two pictures meet."
about "The first picture gives size, depth and palette; the second is laid on it at any place and converted on the way."
heading "The two"
entry picture "$first" "the first" ""
entry picture other.png "the second" "$other_made"
picture two-opaque.png "the second with opacity" alpha "$other" --set "$gray"
finish
heading "Eleven operations"
for operation in copy and or xor add subtract average minimum maximum multiply; do
  picture "combine-$operation.png" "$operation" combine "$photograph" "$other" --operation "$operation" \
    --at "$([ "$operation" = copy ] && echo 170,120 || echo 0,0)"
done
picture combine-alpha.png "alpha" combine "$photograph" "$out/two-opaque.png" --operation alpha
heading "What they are good for"
picture combine-stamp.png "a page on a photograph" combine "$photograph" "$part" --operation minimum --at -40,-10
picture combine-changes.png "what differs between a page and its copy moved by a pixel" combine "$part" "$part" \
  --operation xor --at 1,0 --invert-result
picture combine-negative.png "a negative" combine "$photograph" "$photograph" --invert-result

section overlay "Planes of bits" overlay-hidden.png "One bit of every pixel taken out as a picture, or put in from one."
about "A gray picture of 8 bits is eight black and white ones. Medical pictures keep marks in the bits above their" \
  "samples; the lowest bit can hide a page that nobody sees."
heading "Taken out of a gray picture"
entry picture gray.png "the picture" "tarn convert $photograph gray.png --gray"
picture overlay-7.png "bit 7, the highest" overlay "$gray" --take --bit 7
picture overlay-5.png "bit 5" overlay "$gray" --take --bit 5
picture overlay-3.png "bit 3" overlay "$gray" --take --bit 3
picture overlay-0.png "bit 0, the lowest" overlay "$gray" --take --bit 0
heading "A page put in"
picture overlay-page.png "the page" crop "$part" "20,20,$size"
finish
picture overlay-shown.png "in bit 7 everybody sees it" overlay "$gray" --put "$out/overlay-page.png" --bit 7
picture overlay-hidden.png "in bit 0 nobody does" overlay "$gray" --put "$out/overlay-page.png"
finish
picture overlay-found.png "taken out again" overlay "$out/overlay-hidden.png" --take
finish
begin same overlay-found.png "$out/overlay-page.png"

section scramble "Scrambled and restored" scramble-area.png "A part made unreadable under a key, and readable again."
about "It keeps eyes off, not attackers: whoever wants to can try all keys."
picture scramble-area.png "a rectangle scrambled" scramble "$photograph" --key 2718 --area 144,24,176x208
finish
picture scramble-area-back.png "restored" scramble "$out/scramble-area.png" --key 2718 --area 144,24,176x208 --restore
picture scramble-page.png "a page scrambled" scramble "$part" --key 31
finish
picture scramble-page-back.png "restored" scramble "$out/scramble-page.png" --key 31 --restore
picture scramble-whole.png "all of the photograph" scramble "$photograph" --key 2718
finish
picture scramble-whole-back.png "restored" scramble "$out/scramble-whole.png" --key 2718 --restore
picture scramble-wrong.png "restored with another key" scramble "$out/scramble-whole.png" --key 2719 --restore
finish
begin same scramble-area-back.png "$photograph"
begin same scramble-whole-back.png "$photograph"
begin same scramble-page-back.png "$part"
begin same photo-again.png "$photograph"
begin same photo-trim.png "$photograph"

# ---- Many pages ------------------------------------------------------------------------------------------------------

section pages "Many pages" pages-1.png "A document put together, rearranged, and brought to one palette."
about "A TIFF file of several pages keeps each page's depth, resolution and compression. Every step writes the whole" \
  "document or leaves the old one."
document=$out/document.tif small=$out/document-16.tif
told document-1 "A scan, and a photograph behind it" pages insert "$page" end "$photograph" "$document"
told document-2 "Another photograph at the end" pages insert "$document" end "$other" "$document"
told document-3 "The last page to the front" pages move "$document" 3 1 "$document"
told document-4 "What the document holds" pages list "$document"
for number in 1 2 3; do
  picture "pages-$number.png" "page $number" run "$document" --page "$number" -- resize x480
done
told document-5 "All pages in 16 colours, one palette for all" colors "$document" "$small" --colors 16
told document-6 "What it holds then" pages list "$small"
for number in 1 2 3; do
  picture "pages-16-$number.png" "page $number" run "$small" --page "$number" -- resize x480
done
told document-7 "A page alone" pages extract "$document" 2 "$out/page-alone.tif"
finish

# ---- Storage, and the page -------------------------------------------------------------------------------------------

"$programs/tarn_demo" --since "$since" --origin "$origin" --list "$list" "$out" "$@"
