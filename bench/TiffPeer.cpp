#include "TiffPeer.h"

#include <tiffio.h>

#include <cstring>

#include "Bench.h"

namespace bench {
namespace {

/// A file in memory, as libtiff's callbacks want it.
struct MemoryFile {
  std::vector<uint8_t>& bytes;
  uint64_t position = 0;

  static MemoryFile& Of(thandle_t handle) { return *static_cast<MemoryFile*>(handle); }

  static tmsize_t Read(thandle_t handle, void* target, tmsize_t count) {
    MemoryFile& file = Of(handle);
    const uint64_t left = file.position < file.bytes.size() ? file.bytes.size() - file.position : 0;
    const uint64_t moved = static_cast<uint64_t>(count) < left ? static_cast<uint64_t>(count) : left;
    std::memcpy(target, file.bytes.data() + file.position, moved);
    file.position += moved;
    return static_cast<tmsize_t>(moved);
  }
  static tmsize_t Write(thandle_t handle, void* source, tmsize_t count) {
    MemoryFile& file = Of(handle);
    const uint64_t end = file.position + static_cast<uint64_t>(count);
    if (end > file.bytes.size()) file.bytes.resize(end);
    std::memcpy(file.bytes.data() + file.position, source, static_cast<size_t>(count));
    file.position = end;
    return count;
  }
  static toff_t Seek(thandle_t handle, toff_t offset, int origin) {
    MemoryFile& file = Of(handle);
    const uint64_t base = origin == SEEK_SET ? 0 : origin == SEEK_CUR ? file.position : file.bytes.size();
    return file.position = base + offset;
  }
  static int Close(thandle_t) { return 0; }
  static toff_t Size(thandle_t handle) { return Of(handle).bytes.size(); }
  static int Map(thandle_t handle, void** base, toff_t* size) {
    *base = Of(handle).bytes.data();
    *size = Of(handle).bytes.size();
    return 1;
  }
  static void Unmap(thandle_t, void*, toff_t) {}

  TIFF* Open(const char* mode) {
    TIFF* const tiff = TIFFClientOpen("page", mode, this, Read, Write, Seek, Close, Size, Map, Unmap);
    Require(tiff != nullptr, "TIFFClientOpen");
    return tiff;
  }
};

}  // namespace

TiffPeer::TiffPeer(const PageImage& page, TiffScheme scheme)
    : width_(page.width), height_(page.height), scheme_(scheme) {
  const uint64_t rowBytes = (page.width + 7) / 8;
  packed_.resize(rowBytes * height_);
  expanded_.resize(packed_.size());
  for (uint32_t row = 0; row < height_; ++row)
    std::memcpy(packed_.data() + row * rowBytes, page.bits.data() + uint64_t{row} * page.stride, rowBytes);
  Compress();
  Expand();
  Require(packed_ == expanded_, "the page that libtiff compressed");
}

void TiffPeer::Compress() {
  file_.clear();  // keeps its memory
  MemoryFile memory{file_};
  TIFF* const tiff = memory.Open("w");
  TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width_);
  TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height_);
  TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, 1);
  TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, 1);
  TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, PHOTOMETRIC_MINISWHITE);
  TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, height_);
  TIFFSetField(tiff, TIFFTAG_COMPRESSION,
               scheme_ == TiffScheme::kPackBits ? COMPRESSION_PACKBITS : COMPRESSION_CCITTFAX4);
  const auto bytes = static_cast<tmsize_t>(packed_.size());
  Require(TIFFWriteEncodedStrip(tiff, 0, packed_.data(), bytes) == bytes, "TIFFWriteEncodedStrip");
  TIFFClose(tiff);
}

void TiffPeer::Expand() {
  MemoryFile memory{file_};
  TIFF* const tiff = memory.Open("r");
  const auto bytes = static_cast<tmsize_t>(expanded_.size());
  Require(TIFFReadEncodedStrip(tiff, 0, expanded_.data(), bytes) == bytes, "TIFFReadEncodedStrip");
  TIFFClose(tiff);
}

}  // namespace bench
