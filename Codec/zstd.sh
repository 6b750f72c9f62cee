#!/bin/sh
# Codec/zstd.sh: prints the directory with the sources of Zstandard, those of Debian's package libzstd, which apt fetches
# once and checks, and which are unpacked below build/cache. For systems without the library itself: the cross build for
# Windows. Needs no privilege. Without them: status 1 and nothing on standard output.
set -u

cd "$(dirname "$0")/.." || exit 2
cache=$PWD/build/cache
sources=$cache/zstd
lists=$cache/apt
log=$cache/zstd.log
mkdir -p "$cache" || exit 2

# fetch APT-OPTION...: leaves the archive of the source package in $cache/zstd.new.
fetch() {
  rm -rf "$sources.new"
  mkdir -p "$sources.new" || return 1
  (cd "$sources.new" && LC_ALL=C apt-get -q -o Acquire::Retries=1 -o Acquire::http::Timeout=20 "$@" \
    source --download-only libzstd) >>"$log" 2>&1 </dev/null
}

# The places that packages come from, asked for their sources too, in lists of our own.
fetch_with_lists() {
  mkdir -p "$lists/lists/partial" || return 1
  keys=/usr/share/keyrings/debian-archive-keyring.gpg
  if [ -r "$keys" ]; then keys="[signed-by=$keys] "; else keys=; fi
  LC_ALL=C apt-get indextargets --format "\$(ORIGIN) \$(COMPONENT) \$(REPO_URI) \$(RELEASE)" 'Created-By: Packages' \
    2>>"$log" | sed -n "s|^Debian main \(.*\)|deb-src $keys\1 main|p" | sort -u >"$lists/sources.list"
  set -- -o "Dir::Etc::sourcelist=$lists/sources.list" -o Dir::Etc::sourceparts=- -o "Dir::State::lists=$lists/lists"
  LC_ALL=C apt-get -q -o Acquire::Retries=1 -o Acquire::http::Timeout=20 "$@" update >>"$log" 2>&1 </dev/null
  fetch "$@"
}

if [ ! -d "$sources/lib/compress" ]; then
  echo "fetching the sources of Zstandard, Debian's libzstd (2 MB and a package list, once)" >&2
  : >"$log"
  if { fetch || fetch_with_lists; } &&
    tar -C "$sources.new" --strip-components=1 -xf "$(find "$sources.new" -name '*.orig.tar.*' ! -name '*.asc')" \
      >>"$log" 2>&1 &&
    [ -d "$sources.new/lib/compress" ]; then
    rm -rf "$sources" "$lists" && mv "$sources.new" "$sources"
  else
    echo "the sources of Zstandard cannot be fetched" >&2
    tail -n 1 "$log" | sed 's/^/  /' >&2
    exit 1
  fi
fi
printf '%s\n' "$sources"
