#!/bin/sh
# Makes Debian packages of a built tree: packaging/debian.sh BUILD OUT. BUILD is configured for the prefix /usr and the
# architecture's own library folder. What the tree installs is divided by where it lies:
#
#   libtarn15     the library and its codec     libtarn-dev   headers, link, pkg-config and CMake files
#   tarn          the tool                      python3-tarn  the Python package, if the tree has one
set -eu

tree=$1
out=$2
source=$(cd "$(dirname "$0")/.." && pwd)
work=$tree/debian
setting() { sed -n "s/^$1:[A-Z]*=//p" "$tree/CMakeCache.txt"; }
release=$(setting CMAKE_PROJECT_VERSION)
version=$release-1
arch=$(dpkg --print-architecture)
triplet=$(dpkg-architecture -q DEB_HOST_MULTIARCH)
maintainer="${DEBFULLNAME:-The Tarn authors} <${DEBEMAIL:-maintainers@tarn.invalid}>"
if [ "$(setting CMAKE_INSTALL_PREFIX)" != /usr ] || [ "$(setting CMAKE_INSTALL_LIBDIR)" != "lib/$triplet" ]; then
  echo "debian.sh: $tree is not configured for /usr and lib/$triplet" >&2
  exit 2
fi
# The same sources give the same packages: nothing in them is younger than the last change.
SOURCE_DATE_EPOCH=${SOURCE_DATE_EPOCH:-$(git -C "$source" log -1 --format=%ct 2>/dev/null ||
  stat -c %Y "$source/CHANGELOG.md")}
export SOURCE_DATE_EPOCH
umask 022

rm -rf "$work"
mkdir -p "$work/all" "$work/debian" "$out"
DESTDIR=$work/all cmake --install "$tree" --strip >"$tree/debian.log"
rm -rf "$work/all/usr/share/doc"  # every package has its own, below

# ---- What goes where -------------------------------------------------------------------------------------------------

# move PACKAGE PATH...: from the installed tree into the package; what is not there stays away.
move() {
  to=$work/debian/$1
  shift
  for path in "$@"; do
    if [ -e "$work/all/$path" ] || [ -L "$work/all/$path" ]; then
      mkdir -p "$to/${path%/*}"
      mv "$work/all/$path" "$to/$path"
    fi
  done
}
lib=usr/lib/$triplet
move libtarn15 "$lib/libtarn.so.15" "$lib/libtarn.so.$release" "$lib/libtfcmp15x.so"
move libtarn-dev usr/include/tarn "$lib/libtarn.so" "$lib/pkgconfig" "$lib/cmake"
move tarn usr/bin/tarn usr/share/man usr/share/bash-completion usr/share/zsh usr/share/fish
move python3-tarn usr/lib/python3/dist-packages
left=$(find "$work/all" ! -type d)
if [ -n "$left" ]; then
  printf 'debian.sh: these belong to no package:\n%s\n' "$left" >&2
  exit 1
fi
find "$work/debian" -path '*/man/*' -name '*.[1-9]' -exec gzip -9n {} +
find "$work/debian" -type d -name __pycache__ -prune -exec rm -rf {} +

# ---- Control data ----------------------------------------------------------------------------------------------------

cat >"$work/debian/control" <<END
Source: tarn
Maintainer: $maintainer

Package: libtarn15
Architecture: any

Package: libtarn-dev
Architecture: any

Package: tarn
Architecture: any

Package: python3-tarn
Architecture: any
END

date=$(LC_ALL=C date -u -R -d "@$SOURCE_DATE_EPOCH")
printf 'tarn (%s) unstable; urgency=medium\n\n  * Release %s; see changelog.gz.\n\n -- %s  %s\n' \
  "$version" "$release" "$maintainer" "$date" >"$work/debian/changelog"

# The text of a licence as control data has it.
paragraphs() { sed -e 's/^$/./' -e 's/^/ /'; }
{
  printf 'Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\nUpstream-Name: tarn\n\n'
  printf 'Files: *\nCopyright: 2026 The Tarn authors\nLicense: Expat\n'
  sed -n '/^Permission/,$p' "$source/LICENSE" | paragraphs
  printf '\nFiles: libtfcmp15x.so\nCopyright: Meta Platforms, Inc. and affiliates\nLicense: BSD-3-clause\n'
  sed -n '/^Redistribution/,$p' "$source/Codec/LICENSE.zstd" | paragraphs
  printf 'Comment: Zstandard, which the codec library contains.\n'
} >"$work/debian/copyright"

# depends PACKAGE: the packages that its programs and libraries need.
depends() {
  find "$work/debian/$1" -type f \( -perm -u+x -o -name '*.so*' \) ! -path '*/DEBIAN/*' >"$work/programs"
  # shellcheck disable=SC2046  # paths of our own, without blanks
  (cd "$work" && dpkg-shlibdeps -O "-Sdebian/libtarn15" $(cat "$work/programs") 2>>"$tree/debian.log") |
    sed -n 's/^shlibs:Depends=//p'
}

# package NAME: what is in its folder becomes a .deb; further fields of its control data come from standard input.
package() {
  folder=$work/debian/$1
  doc=$folder/usr/share/doc/$1
  mkdir -p "$doc" "$folder/DEBIAN"
  cp "$work/debian/copyright" "$doc/copyright"
  gzip -9nc "$work/debian/changelog" >"$doc/changelog.Debian.gz"
  gzip -9nc "$source/CHANGELOG.md" >"$doc/changelog.gz"
  find "$folder" -type f ! -perm -u+x -exec chmod 644 {} +
  find "$folder" -name '*.so*' -type f -exec chmod 644 {} +
  size=$(du -k -s --apparent-size --exclude=DEBIAN "$folder" | cut -f 1)
  {
    printf 'Package: %s\nSource: tarn\nVersion: %s\nArchitecture: %s\nMaintainer: %s\n' \
      "$1" "$version" "$arch" "$maintainer"
    printf 'Installed-Size: %s\nPriority: optional\n' "$size"
    cat
  } >"$folder/DEBIAN/control"
  (cd "$folder" && find . -type f ! -path './DEBIAN/*' -printf '%P\0' | LC_ALL=C sort -z |
    xargs -0 md5sum) >"$folder/DEBIAN/md5sums"
  find "$folder" -newermt "@$SOURCE_DATE_EPOCH" -exec touch -h -d "@$SOURCE_DATE_EPOCH" {} +
  dpkg-deb --root-owner-group -Zxz --build "$folder" "$out/$1_${version}_$arch.deb" >>"$tree/debian.log"
}

rm -f "$out"/*tarn*.deb

mkdir -p "$work/debian/libtarn15/DEBIAN" "$work/debian/libtarn15/usr/share/lintian/overrides"
echo "libtarn 15 libtarn15 (>= $release)" >"$work/debian/libtarn15/DEBIAN/shlibs"
echo 'activate-noawait ldconfig' >"$work/debian/libtarn15/DEBIAN/triggers"
cat >"$work/debian/libtarn15/usr/share/lintian/overrides/libtarn15" <<'END'
# The codec is loaded at run time by its name, which carries the release, from beside the library; nothing links to it.
libtarn15: lacks-unversioned-link-to-shared-library *libtfcmp15x.so*
libtarn15: shared-library-lacks-version *libtfcmp15x.so*
END
package libtarn15 <<END
Section: libs
Multi-Arch: same
Depends: $(depends libtarn15)
Description: kernel library of a raster-imaging toolkit
 Pictures of 1 to 64 bits a pixel in memory, in tiles that swap to temporary
 files, in one temporary file, in run lengths or in losslessly compressed
 strips; conversion between pixel formats, palettes, dithering, copies,
 resizing, rotation and more, the same for every storage.
 .
 This package has the shared library and the codec of compressed strips.
END

package libtarn-dev <<END
Section: libdevel
Multi-Arch: same
Depends: libtarn15 (= $version)
Description: kernel library of a raster-imaging toolkit (development files)
 Pictures of 1 to 64 bits a pixel in any storage, their rows, and what is done
 to them.
 .
 This package has the C and C++ headers and what pkg-config and CMake need to
 find the library.
END

package tarn <<END
Section: graphics
Depends: $(depends tarn)
Description: converts, resizes and rearranges pictures from the command line
 Reads and writes PNG, JPEG, TIFF and BMP files in any depth from 1 to 64 bits
 a pixel: conversion, palettes and dithering, cropping, resizing, rotation,
 deskewing, pages of documents, combination. Pictures may be larger than
 memory.
END

if [ -d "$work/debian/python3-tarn" ]; then
  mkdir -p "$work/debian/python3-tarn/DEBIAN"
  # Compiled modules come and go with the package, as those of Debian's own do.
  cat >"$work/debian/python3-tarn/DEBIAN/postinst" <<'END'
#!/bin/sh
set -e
if command -v py3compile >/dev/null 2>&1; then
  py3compile -p python3-tarn
fi
END
  cat >"$work/debian/python3-tarn/DEBIAN/prerm" <<'END'
#!/bin/sh
set -e
if command -v py3clean >/dev/null 2>&1; then
  py3clean -p python3-tarn
fi
END
  chmod 755 "$work/debian/python3-tarn/DEBIAN/postinst" "$work/debian/python3-tarn/DEBIAN/prerm"
  python=$(python3 -c 'import sys; print("python3 (>= 3.%d), python3 (<< 3.%d)" % (sys.version_info[1],
    sys.version_info[1] + 1))')
  package python3-tarn <<END
Section: python
Depends: $python, python3-numpy, $(depends python3-tarn)
Suggests: python3-distributed
Description: kernel library of a raster-imaging toolkit (Python 3)
 Pictures of 1 to 64 bits a pixel in any storage, their rows, and what is done
 to them, from Python.
END
fi
