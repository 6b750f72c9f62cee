#pragma once
// Sizes of rows and images. Everything is computed in 64 bits here, the one place where pixel counts become bytes.

#include <cstdint>

#include "tarn/types.h"

namespace tarn {

constexpr bool IsBitDepth(int32_t bits) noexcept {
  return (bits >= 1 && bits <= 8) || bits == 12 || bits == 16 || bits == 24 || bits == 32 || bits == 48 || bits == 64;
}

/// Bytes of one row, padded to 4. False when width is negative or the row does not fit 32 bits.
constexpr bool RowBytes(int32_t width, int32_t bits, uint32_t& rowBytes) noexcept {
  if (width < 0) return false;
  const uint64_t bytes = ((static_cast<uint64_t>(width) * static_cast<uint32_t>(bits) + 31) >> 3) & ~uint64_t{3};
  rowBytes = static_cast<uint32_t>(bytes);
  return bytes <= UINT32_MAX;
}

/// Bytes of `height` rows. False when height is negative or the image exceeds the cap.
constexpr bool ImageBytes(uint32_t rowBytes, int32_t height, uint64_t& bytes) noexcept {
  if (height < 0) return false;
  bytes = static_cast<uint64_t>(rowBytes) * static_cast<uint32_t>(height);  // below 2^63
  return bytes <= T_MAX_IMAGE_BYTES;
}

/// Byte of a row that holds the first bit of a column.
constexpr uint64_t ColumnOffset(int32_t bits, uint32_t column) noexcept {
  const uint64_t c = column;
  switch (bits) {
    case 1:
    case 2:
    case 3:
    case 4:
    case 5:
    case 6:
    case 7:
      return c * static_cast<uint32_t>(bits) / 8;
    case 12:
      return c + c / 2;
    case 16:
    case 24:
    case 32:
    case 48:
    case 64:
      return c * (static_cast<uint32_t>(bits) / 8);
    default:
      return c;
  }
}

/// HighBit of a fresh bitmap: the top bit of a sample. Deliberate: -1 at 32 bits, which are colour or gray, and only
/// the operation that fills them knows.
constexpr int32_t HighBitOf(int32_t bits) noexcept {
  switch (bits) {
    case 24:
      return 7;
    case 32:
      return -1;
    case 48:
    case 64:
      return 15;
    default:
      return bits - 1;
  }
}

/// What a record describes fits together: positive extents, a known depth, rows that hold their pixels.
inline bool GeometryHolds(const BitmapHandle& bitmap) noexcept {
  const int32_t width = bitmap.Width;
  const int32_t bits = bitmap.BitsPerPixel;
  uint32_t rowBytes = 0;
  return width > 0 && bitmap.Height > 0 && IsBitDepth(bits) && RowBytes(width, bits, rowBytes) &&
         bitmap.BytesPerLine >= rowBytes;
}

/// Bytes that BytesPerLine and Height span, by the record.
inline uint64_t SpanBytes(const BitmapHandle& bitmap) noexcept {
  return bitmap.Height > 0 ? static_cast<uint64_t>(bitmap.BytesPerLine) * static_cast<uint32_t>(bitmap.Height) : 0;
}

}  // namespace tarn
