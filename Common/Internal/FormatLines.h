#pragma once
// Whole bitmaps from one pixel format to another, line by line.

#include <cstdint>

#include "Common/Internal/ColorLines.h"
#include "Common/Internal/LineConverter.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/Status.h"
#include "Common/Internal/TrackedBuffer.h"
#include "tarn/types.h"

namespace tarn {

/// Gray of 12 or 16 bits whose samples are numbers of lookup-table entries.
inline bool UsesTable(const BitmapHandle& bitmap) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  return bitmap.Order == T_ORDER_GRAY && (bits == 12 || bits == 16) && (bitmap.Flags & T_FLAG_LUT_IN_USE) && bitmap.LUT;
}

/// A bitmap's lines in another format: through its lookup table where one is in use, else by its significant bits.
class FormatLines {
 public:
  /// ERR_BAD_LUT_LENGTH, ERR_NO_MEMORY, or what LineConverter gives. @param flags T_CONVERT_... of alpha
  Status Open(const BitmapHandle& source, const LineFormat& target, uint32_t flags, Here here) noexcept;
  /// All `targetBytes` bytes of a row; those behind the pixels become 0.
  void Make(uint8_t* target, const uint8_t* source, uint32_t targetBytes) noexcept;
  /// The first `count` pixels, at most as many as the source is wide; only bytes that hold them are written.
  void MakePixels(uint8_t* target, const uint8_t* source, int64_t count) noexcept;

 private:
  int64_t width_ = 0;
  uint64_t usedBytes_ = 0;
  ColorLines colors_;
  TrackedBuffer<uint8_t> decoded_;  // a line of colours, when a table is in use
  LineConverter converter_;
  T_PaletteEntry palette_[256];
};

/// Fills a bitmap with what lines.Make(target, source, targetBytes) makes of the source's rows; the thread's status
/// callback is told.
template <class Lines>
Status MakeRows(BitmapHandle& target, BitmapHandle& source, Lines& lines) noexcept {
  const BitmapLock lock(source);
  RowReader from(source, TARN_HERE);
  RowWriter to(target, TARN_HERE);
  TARN_TRY(from.Open());
  TARN_TRY(to.Open());
  const int32_t height = source.Height;
  Progress progress(height);
  for (int32_t row = 0; row < height; ++row) {
    const uint8_t* const line = from.Row(row);
    if (!line) return from.status();
    lines.Make(to.Row(row), line, target.BytesPerLine);
    TARN_TRY(to.Commit());
    TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

}  // namespace tarn
