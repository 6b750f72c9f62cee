#pragma once
// Bitmaps to measure on.

#include <string>

#include "Bench.h"

namespace bench {

class Bitmap {
 public:
  Bitmap(int32_t width, int32_t height, int32_t bits, uint32_t memoryType);
  ~Bitmap() { T_FreeBitmap(&record_); }
  Bitmap(const Bitmap&) = delete;
  Bitmap& operator=(const Bitmap&) = delete;
  BitmapHandle* operator&() { return &record_; }
  uint8_t* Data() const { return record_.Data; }
  uint32_t RowBytes() const { return record_.BytesPerLine; }
  /// All rows lie behind each other at Data.
  bool InOneBlock() const {
    constexpr uint32_t kElsewhere = T_FLAG_ON_DISK | T_FLAG_TILED | T_FLAG_COMPRESSED | T_FLAG_SUPER_COMPRESSED;
    return (record_.Flags & kElsewhere) == 0;
  }
  uint32_t Rows() const { return static_cast<uint32_t>(record_.Height); }

 private:
  BitmapHandle record_{};
};

/// Makes new bitmaps of the calling thread tiled for a scope.
class TiledThreshold {
 public:
  TiledThreshold();
  ~TiledThreshold();
  TiledThreshold(const TiledThreshold&) = delete;
  TiledThreshold& operator=(const TiledThreshold&) = delete;

 private:
  int64_t before_ = 0;
};

}  // namespace bench
