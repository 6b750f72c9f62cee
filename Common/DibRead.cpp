// Bitmaps made from device-independent ones. Stored rows keep the DIB's order, which the view perspective tells.

#include <cstring>

#include "Common/Internal/Dib.h"
#include "Common/Internal/Rows.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

/// One channel of a pixel word, brought to eight bits: the top ones, or the few there are repeated.
class Channel {
 public:
  explicit Channel(uint32_t mask) noexcept : mask_(mask) {
    if (mask == 0) return;
    const int width = __builtin_popcount(mask);
    const int dropped = width > 8 ? width - 8 : 0;
    shift_ = static_cast<uint32_t>(__builtin_ctz(mask) + dropped);
    const int kept = width - dropped;
    for (uint32_t value = 0; value < 1u << kept; ++value) {
      uint32_t wide = 0;
      for (int room = 8 - kept; room > -kept; room -= kept) wide |= room >= 0 ? value << room : value >> -room;
      scaled_[value] = static_cast<uint8_t>(wide);
    }
  }
  [[nodiscard]] uint8_t Of(uint32_t word) const noexcept { return scaled_[(word & mask_) >> shift_ & 0xFF]; }

 private:
  uint32_t mask_;
  uint32_t shift_ = 0;
  uint8_t scaled_[256] = {};
};

struct Channels {
  explicit Channels(const DibLayout& layout) noexcept
      : red(layout.masks[kDibRed]),
        green(layout.masks[kDibGreen]),
        blue(layout.masks[kDibBlue]),
        alpha(layout.masks[kDibAlpha]) {}
  Channel red, green, blue, alpha;
};

template <class Word, int kTargetBytes>
void UnpackWords(uint8_t* target, const uint8_t* source, int32_t width, const Channels& channels) noexcept {
  for (int32_t i = 0; i < width; ++i, target += kTargetBytes, source += sizeof(Word)) {
    Word word;
    std::memcpy(&word, source, sizeof word);
    target[0] = channels.blue.Of(word);
    target[1] = channels.green.Of(word);
    target[2] = channels.red.Of(word);
    if constexpr (kTargetBytes == 4) target[3] = channels.alpha.Of(word);
  }
}

using UnpackLoop = void (*)(uint8_t*, const uint8_t*, int32_t, const Channels&) noexcept;

/// How the rows of a layout become rows of a bitmap.
struct Plan {
  int32_t bits;       // of the bitmap
  UnpackLoop unpack;  // null: bytes as they are
};

Plan PlanFor(const DibLayout& layout) noexcept {
  const uint32_t(&m)[kDibChannels] = layout.masks;
  if (layout.bits == 16) {
    const bool native = m[kDibRed] == 0x7C00 && m[kDibGreen] == 0x03E0 && m[kDibBlue] == 0x001F;
    if (native) return {16, nullptr};  // alpha is the bit that is left, or nothing
    // 16-bit colour has five bits a channel: anything else goes where none of it is lost.
    if (m[kDibAlpha]) return {32, UnpackWords<uint16_t, 4>};
    return {24, UnpackWords<uint16_t, 3>};
  }
  if (layout.bits == 32) {
    const bool native = m[kDibRed] == 0xFF0000 && m[kDibGreen] == 0xFF00 && m[kDibBlue] == 0xFF;
    if (native && m[kDibAlpha] == 0xFF000000) return {32, nullptr};
    return {32, UnpackWords<uint32_t, 4>};
  }
  return {layout.bits, nullptr};
}

// Clears what is behind the last pixel: nobody knows what a DIB has there.
void ClearPadding(uint8_t* row, uint64_t rowBits, uint64_t rowBytes) noexcept {
  if (rowBits % 8) row[rowBits / 8] &= static_cast<uint8_t>(0xFF00 >> rowBits % 8);
  const uint64_t first = (rowBits + 7) / 8;
  std::memset(row + first, 0, rowBytes - first);
}

Status FillRows(BitmapHandle& bitmap, const DibLayout& layout, UnpackLoop unpack) noexcept {
  const Channels channels(layout);
  const uint64_t sourceBytes = DibRowBytes(layout.width, layout.bits);
  const uint64_t rowBytes = bitmap.BytesPerLine;
  const uint64_t rowBits = static_cast<uint64_t>(layout.width) * static_cast<uint32_t>(bitmap.BitsPerPixel);
  const bool runs = layout.compression == kDibRle8 || layout.compression == kDibRle4;
  DibRunReader reader(layout.pixels, runs ? layout.pixelBytes : 0, layout.bits, layout.width);
  RowWriter writer(bitmap, TARN_HERE);
  TARN_TRY(writer.Open());
  Progress progress(layout.height);
  const uint8_t* source = layout.pixels;
  for (int32_t row = 0; row < layout.height; ++row) {
    uint8_t* const line = writer.Row(row);
    if (runs) {
      std::memset(line, 0, rowBytes);
      reader.Row(line);
    } else {
      if (unpack) {
        unpack(line, source, layout.width, channels);
      } else {
        std::memcpy(line, source, rowBytes);
      }
      ClearPadding(line, rowBits, rowBytes);
      source += sourceBytes;
    }
    TARN_TRY(writer.Commit());
    TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

void ReadTable(const DibLayout& layout, T_PaletteEntry (&entries)[256]) noexcept {
  std::memset(entries, 0, sizeof entries);
  for (uint32_t i = 0; i < layout.tableEntries; ++i)
    std::memcpy(&entries[i], layout.table + uint64_t{i} * layout.tableEntryBytes, layout.tableEntryBytes);
}

int32_t DotsPerInch(int32_t pixelsPerMetre) noexcept {
  return static_cast<int32_t>((int64_t{pixelsPerMetre} * 254 + 5000) / 10000);
}

}  // namespace

Status BitmapFromDib(BitmapHandle& made, const DibBytes& bytes) noexcept {
  DibLayout layout;
  TARN_TRY(ReadDibLayout(bytes, layout));
  const Plan plan = PlanFor(layout);
  T_PaletteEntry entries[256];
  ReadTable(layout, entries);
  uint32_t type = TYPE_CONV;
  TARN_TRY(T_GetDefaultMemoryType(&type));
  TARN_TRY(T_CreateBitmap(&made, sizeof made, type, layout.width, layout.height, plan.bits, T_ORDER_BGR, entries,
                          layout.topDown ? 1 : 4, nullptr, 0));
  // A DIB that tells no resolution leaves the thread's default.
  if (layout.xPixelsPerMetre > 0 && layout.yPixelsPerMetre > 0) {
    const int32_t x = DotsPerInch(layout.xPixelsPerMetre);
    const int32_t y = DotsPerInch(layout.yPixelsPerMetre);
    if (x > 0 && y > 0) {
      made.XResolution = x;
      made.YResolution = y;
    }
  }
  const Status filled = FillRows(made, layout, plan.unpack);
  if (!filled.Ok()) T_FreeBitmap(&made);
  return filled;
}

}  // namespace tarn
