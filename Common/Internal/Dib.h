#pragma once
// Device-independent bitmaps: a header, channel masks, a colour table and rows, as Windows programs exchange them. The
// layouts are ours to read and write on every platform.
//
//   | header 12, 40, 52, 56, 108, 124 | masks, 3 or 4 | colour table | rows, padded to 4 bytes, the bottom one first |

#include <cstdint>

#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

#pragma pack(push, 1)
/// The header of 12 bytes; the colour table behind it has entries of three bytes.
struct DibCoreHeader {
  uint32_t size;
  uint16_t width;
  uint16_t height;
  uint16_t planes;
  uint16_t bits;
};
/// The header of 40 bytes, with which all longer ones begin.
struct DibInfoHeader {
  uint32_t size;
  int32_t width;
  int32_t height;  // negative: the top row comes first
  uint16_t planes;
  uint16_t bits;
  uint32_t compression;
  uint32_t imageBytes;  // 0 where the rows say it
  int32_t xPixelsPerMetre;
  int32_t yPixelsPerMetre;
  uint32_t colors;  // entries of the colour table, 0: as many as the bits can tell apart
  uint32_t importantColors;
};
#pragma pack(pop)
static_assert(sizeof(DibCoreHeader) == 12 && sizeof(DibInfoHeader) == 40);

enum DibCompression : uint32_t { kDibRgb = 0, kDibRle8 = 1, kDibRle4 = 2, kDibMasks = 3, kDibAlphaMasks = 6 };
enum DibChannel { kDibRed, kDibGreen, kDibBlue, kDibAlpha, kDibChannels };

/// A block of memory that is read as a DIB. No byte at or behind the limits is touched; a caller that does not know
/// them passes kUnlimited.
struct DibBytes {
  static constexpr uint64_t kUnlimited = UINT64_MAX;
  const uint8_t* info;
  uint64_t infoBytes;
  const uint8_t* bits;  // null: behind the colour table
  uint64_t bitsBytes;
};

/// What a header says, checked.
struct DibLayout {
  int32_t width;
  int32_t height;
  int32_t bits;
  bool topDown;
  uint32_t compression;
  uint32_t masks[kDibChannels];  // of 16 and 32 bits; 0: no such channel
  int32_t xPixelsPerMetre;
  int32_t yPixelsPerMetre;
  const uint8_t* table;
  uint32_t tableEntries;     // that are there and that the bits can tell apart
  uint32_t tableEntryBytes;  // 3 or 4
  const uint8_t* pixels;
  uint64_t pixelBytes;  // of the run-length stream, else of all rows
};

/// ERR_UNSUPPORTED_FORMAT for what is no DIB or cannot be read, ERR_INVALID_PARAMETER for one that is cut off.
Status ReadDibLayout(const DibBytes& bytes, DibLayout& layout) noexcept;

/// Bytes of a row of pixels.
constexpr uint64_t DibRowBytes(int64_t width, int32_t bits) noexcept {
  return (static_cast<uint64_t>(width) * static_cast<uint32_t>(bits) + 31) / 32 * 4;
}

/// Run-length coded rows of 4 or 8 bits, the bottom one first.
class DibRunReader {
 public:
  DibRunReader(const uint8_t* stream, uint64_t bytes, int32_t bits, int32_t width) noexcept
      : at_(stream), end_(stream + bytes), bits_(static_cast<uint32_t>(bits)), width_(static_cast<uint32_t>(width)) {}
  /// The next row; line is all zero and holds `width` pixels. Pixels that the stream passes over stay zero; what it has
  /// for places beyond the row is dropped, and a stream that ends early leaves the rest of the picture zero.
  void Row(uint8_t* line) noexcept;

 private:
  [[nodiscard]] uint64_t Left() const noexcept { return static_cast<uint64_t>(end_ - at_); }
  /// Pixels of a stretch that lie inside the row.
  [[nodiscard]] uint32_t Inside(uint32_t count) const noexcept;
  void Run(uint8_t* line, uint32_t count, uint8_t value) const noexcept;
  void Literal(uint8_t* line, uint32_t count) noexcept;
  bool Escape(uint8_t* line, uint8_t code) noexcept;

  const uint8_t* at_;
  const uint8_t* end_;
  uint32_t bits_;
  uint32_t width_;
  uint64_t column_ = 0;
  uint32_t skipped_ = 0;  // rows until the one that goes on at column_
  bool ended_ = false;
};

/// Makes a bitmap with storage of the thread's default type from a DIB. A failure leaves nothing made.
Status BitmapFromDib(BitmapHandle& made, const DibBytes& bytes) noexcept;
/// Makes a movable block with a DIB of a locked bitmap's picture.
Status DibFromBitmap(BitmapHandle& bitmap, uint64_t& block) noexcept;

}  // namespace tarn
