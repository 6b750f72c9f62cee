#!/bin/sh
# tools/photographs.sh: prints the directory with the photographs that the demo and the benchmarks show and measure. They
# come from a Debian package that is fetched once and unpacked below build/cache, not installed. Without it: status 1 and
# nothing on standard output.
set -u

cd "$(dirname "$0")/.." || exit 2
cache=$PWD/build/cache
package=python3-skimage
photographs=$cache/$package/usr/lib/python3/dist-packages/skimage/data
mkdir -p "$cache" || exit 2

download() {
  (cd "$cache" && LC_ALL=C apt-get -q -o Acquire::Retries=1 -o Acquire::http::Timeout=20 download "$package") \
    >"$cache/download.log" 2>&1 </dev/null
}

# Leaves the package's files in $cache/$package.
fetch() {
  [ ! -d "$photographs" ] || return 0
  command -v apt-get >/dev/null 2>&1 && command -v dpkg-deb >/dev/null 2>&1 || return 1
  echo "fetching the photographs of the Debian package $package (20 MB, once)" >&2
  rm -rf "$cache/$package"_*.deb "$cache/$package.new"
  if ! download; then
    # A fresh system has no package lists yet.
    [ "$(id -u)" = 0 ] && apt-get -qq -o Acquire::Retries=1 -o Acquire::http::Timeout=20 update \
      >>"$cache/download.log" 2>&1 </dev/null && download || return 1
  fi
  dpkg-deb -x "$cache/$package"_*.deb "$cache/$package.new" >>"$cache/download.log" 2>&1 || return 1
  mv "$cache/$package.new" "$cache/$package" || return 1
  rm -f "$cache/$package"_*.deb
}

if ! fetch; then
  echo "the Debian package $package cannot be fetched" >&2
  if [ -s "$cache/download.log" ]; then tail -n 1 "$cache/download.log" | sed 's/^/  /' >&2; fi
  exit 1
fi
printf '%s\n' "$photographs"
