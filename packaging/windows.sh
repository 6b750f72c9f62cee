#!/bin/sh
# Makes the archive for Windows of a cross-built tree: packaging/windows.sh BUILD OUT.
set -eu

tree=$1
out=$2
source=$(cd "$(dirname "$0")/.." && pwd)
release=$(sed -n 's/^CMAKE_PROJECT_VERSION:[A-Z]*=//p' "$tree/CMakeCache.txt")
name=tarn-$release-windows-x64
changed=$(git -C "$source" log -1 --format=%ct 2>/dev/null || stat -c %Y "$source/CHANGELOG.md")
date=$(date -u -d "@${SOURCE_DATE_EPOCH:-$changed}" '+%Y-%m-%d %H:%M:%S UTC')

mkdir -p "$out"
rm -rf "$tree/archive" "$out/$name.zip"
cmake --install "$tree" --strip --prefix "$tree/archive/$name" >"$tree/windows.log"
cd "$tree/archive/$name"
rm -rf share
cp "$tree/tarn.def" lib/TKRN15X.def  # from which other compilers' tools make their own import library
# Windows' own editor is content with such line ends only.
lines() { sed 's/$/\r/' "$@"; }
lines "$source/LICENSE" >LICENSE.txt
lines "$source/Codec/LICENSE.zstd" >LICENSE-Zstandard.txt
lines "$source/CHANGELOG.md" >CHANGELOG.txt
mkdir examples
cp "$source/examples/first.c" "$source/examples/photo.cpp" examples
lines >README.txt <<END
Tarn $release for 64-bit Windows

  bin\\TKRN15X.DLL         the library
  bin\\TFCMP15X.DLL        the codec of super-compressed bitmaps; lies beside the library, which loads it when needed
  lib\\libTKRN15X.dll.a    import library for MinGW-w64
  lib\\TKRN15X.def         the exports, for other tools: lib /def:TKRN15X.def /machine:x64 /out:TKRN15X.lib
  lib\\cmake\\Tarn          find_package(Tarn 15) with CMAKE_PREFIX_PATH set to this folder
  include\\tarn            headers for C11 (.h) and C++20 (.hpp)
  examples               small programs

Both libraries need nothing but Windows. With MinGW-w64, in this folder:

  gcc examples\\first.c -Iinclude -Llib -lTKRN15X -o bin\\first.exe
  bin\\first.exe

A program finds the libraries beside itself or on the path. MIT licence, see LICENSE.txt; the codec contains
Zstandard, see LICENSE-Zstandard.txt.
END
cd ..
find "$name" -type f | LC_ALL=C sort >"$tree/archive.list"
cmake -E tar cf "$out/$name.zip" --format=zip --mtime="$date" --files-from="$tree/archive.list"
