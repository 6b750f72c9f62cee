#!/bin/sh
# bench/run.sh BUILD_DIRECTORY [OPTION OF tarn_bench...]: makes the test pages and pictures if that has not been done,
# measures, and leaves the figures in build/bench.
set -eu

if [ $# = 0 ]; then
  echo "usage: bench/run.sh BUILD_DIRECTORY [--rounds N] [--only KEY]" >&2
  exit 2
fi
program=$1/bench/tarn_bench
tool=$1/tools/tarn
shift
here=$(cd "$(dirname "$0")" && pwd)
root=$(dirname "$here")
cache=$root/build/cache
output=$root/build/bench
mkdir -p "$cache" "$output"

# set_page DOTS_PER_INCH WIDTH HEIGHT: an A4 page of text as a bitmap, kept until its text changes.
set_page() {
  page=$cache/text-$1.pbm
  if [ -n "$(find "$page" -newer "$here/page.roff" 2>/dev/null)" ]; then return; fi
  groff -Tps -P-pa4 "$here/page.roff" >"$cache/page.ps" &&
    gs -q -dSAFER -dBATCH -dNOPAUSE -dFIXEDMEDIA -dLastPage=1 -sDEVICE=pbmraw -r"$1" -g"$2x$3" \
      -sOutputFile="$page.new" "$cache/page.ps" >/dev/null &&
    mv "$page.new" "$page"
}
if command -v groff >/dev/null 2>&1 && command -v gs >/dev/null 2>&1; then
  set_page 600 4960 7016 || echo "groff or gs failed: the program draws its own page" >&2
  set_page 300 2480 3508 || true
fi

# unpack DIRECTORY PHOTOGRAPH...: as BMP files of 24 bits, which the program reads.
unpack() {
  from=$1
  shift
  for photograph in "$@"; do
    if [ -f "$from/$photograph" ]; then
      "$tool" convert "$from/$photograph" "$cache/photo-${photograph%.*}.bmp" --bits 24 || return 1
    fi
  done
}
if [ -z "$(find "$cache" -name 'photo-*.bmp' ! -name photo-landscape.bmp)" ]; then
  if photographs=$("$root/tools/photographs.sh"); then
    rm -f "$cache/photo-landscape.bmp"
    set_of="astronaut.png chelsea.png coffee.png hubble_deep_field.jpg retina.jpg rocket.jpg"
    # shellcheck disable=SC2086  # a list of names
    unpack "$photographs" $set_of || echo "the photographs cannot be unpacked" >&2
  else
    echo "measuring on the picture that comes with the project" >&2
    unpack "$root/tests/data" landscape.jpg || echo "the program computes a picture" >&2
  fi
fi

exec "$program" --pages "$cache" --output "$output" "$@"
