// Counting the different colours of a bitmap.

#include <bit>
#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/ColorLines.h"
#include "Common/Internal/ColorRes.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/PackedPixels.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/TrackedBuffer.h"
#include "tarn/colors.h"

namespace tarn {
namespace {

/// What counts as a colour, as numbers below Range.
enum class Kind { kIndices, kWords555, kSamples, kColors };

constexpr int64_t kPart = 1024;

/// One bit for every possible colour.
class ColorSet {
 public:
  bool Open(uint64_t range) noexcept {
    words_ = (range + 63) / 64;
    bits_ = TrackedBuffer<uint64_t>::Zeroed(words_, TARN_HERE);
    return static_cast<bool>(bits_);
  }
  /// All colours of 24 bits; what is counted near is not in ascending order.
  void AddColors(const uint8_t* pixels, int64_t count, bool near) noexcept {
    count_ += Kernels().markColors(reinterpret_cast<uint32_t*>(bits_.data()), pixels, count, near);
  }
  void Add(uint32_t color) noexcept {
    uint64_t& word = bits_[color >> 6];
    const uint64_t bit = uint64_t{1} << (color & 63);
    if (word & bit) [[likely]]
      return;
    word |= bit;
    ++count_;
  }
  [[nodiscard]] uint32_t Count() const noexcept { return count_; }
  /// The first `most` colours in ascending order.
  template <class Visit>
  void ForEach(uint32_t most, Visit visit) const noexcept {
    for (uint64_t word = 0; word < words_ && most > 0; ++word) {
      for (uint64_t bits = bits_[word]; bits && most > 0; bits &= bits - 1, --most)
        visit(static_cast<uint32_t>(word * 64 + static_cast<uint64_t>(std::countr_zero(bits))));
    }
  }

 private:
  TrackedBuffer<uint64_t> bits_;
  uint64_t words_ = 0;
  uint32_t count_ = 0;
};

Kind KindOf(const BitmapHandle& bitmap) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  const bool gray = bitmap.Order == T_ORDER_GRAY;
  if (bits <= 8) return Kind::kIndices;
  if (bits == 16 && !gray) return Kind::kWords555;
  const bool table = (bitmap.Flags & T_FLAG_LUT_IN_USE) && bitmap.LUT;
  return gray && (bits == 12 || bits == 16) && !table ? Kind::kSamples : Kind::kColors;
}

uint64_t RangeOf(Kind kind, int32_t bits) noexcept {
  if (kind == Kind::kWords555) return uint64_t{1} << 15;
  return uint64_t{1} << (kind == Kind::kColors ? 24 : bits);
}

uint32_t ColorAt(const uint8_t* pixels, int64_t i) noexcept {
  uint32_t color;
  std::memcpy(&color, pixels + 4 * i, 4);
  return color;
}

/// One line's colours.
class LineColors {
 public:
  /// @param named colours are asked for by ForEach
  Status Open(const BitmapHandle& bitmap, Kind kind, bool named) noexcept {
    kind_ = kind;
    near_ = !named;
    bits_ = bitmap.BitsPerPixel;
    width_ = bitmap.Width;
    samples_ = GrayParamsOf(bits_, 16, bitmap.LowBit, bitmap.HighBit);
    return lines_.Open(bitmap);
  }
  void Add(const uint8_t* line, ColorSet& set) noexcept {
    alignas(32) uint8_t part[4 * kPart];
    for (int64_t first = 0; first < width_; first += kPart) {
      const int64_t count = width_ - first < kPart ? width_ - first : kPart;
      if (kind_ == Kind::kIndices) {
        Kernels().pixels->unpackIndices(part, line + first * bits_ / 8, count, bits_);
        for (int64_t i = 0; i < count; ++i) set.Add(part[i]);
      } else if (kind_ == Kind::kSamples) {
        for (int64_t i = 0; i < count; ++i) set.Add(SampleAt(line, first + i));
      } else {
        AddColors(part, line, first, count, set);
      }
    }
  }
  /// The palette entry of a colour of the set.
  [[nodiscard]] T_PaletteEntry EntryOf(uint32_t color) const noexcept {
    const auto entry = [](uint32_t red, uint32_t green, uint32_t blue) {
      return T_PaletteEntry{static_cast<uint8_t>(blue), static_cast<uint8_t>(green), static_cast<uint8_t>(red), 0};
    };
    switch (kind_) {
      case Kind::kIndices: {
        alignas(32) uint8_t pixel[4];
        const auto packed = static_cast<uint8_t>(color << (8 - bits_));
        lines_.Colors(pixel, &packed, 0, 1);
        return {pixel[0], pixel[1], pixel[2], 0};
      }
      case Kind::kWords555: {
        const auto widened = [color](int shift) { return (color >> shift & 31) << 3 | (color >> shift & 31) >> 2; };
        return entry(widened(10), widened(5), widened(0));
      }
      case Kind::kSamples: {
        const uint32_t level = color * 255 / samples_.mask;
        return entry(level, level, level);
      }
      default:
        return entry(color >> 16, color >> 8 & 255, color & 255);
    }
  }

 private:
  [[nodiscard]] uint32_t SampleAt(const uint8_t* line, int64_t pixel) const noexcept {
    return DeepSample(line, pixel, bits_) >> samples_.shift & samples_.mask;
  }
  void AddColors(uint8_t* part, const uint8_t* line, int64_t first, int64_t count, ColorSet& set) noexcept {
    lines_.Colors(part, line, first, count);
    if (kind_ == Kind::kColors) return set.AddColors(part, count, near_);
    uint32_t last = ~0u;
    for (int64_t i = 0; i < count; ++i) {
      const uint32_t color = ColorAt(part, i);
      if (color == last) continue;
      last = color;
      set.Add((color >> 3 & 31) | (color >> 6 & 0x3E0) | (color >> 9 & 0x7C00));
    }
  }

  Kind kind_ = Kind::kColors;
  bool near_ = false;
  int32_t bits_ = 0;
  int64_t width_ = 0;
  GrayParams samples_{};
  ColorLines lines_;
};

}  // namespace

Status CountColors(BitmapHandle& bitmap, uint32_t& count, T_PaletteEntry* palette) noexcept {
  if (!GeometryHolds(bitmap)) return ERR_INVALID_PARAMETER;
  const Kind kind = KindOf(bitmap);
  LineColors lines;
  TARN_TRY(lines.Open(bitmap, kind, palette != nullptr));
  ColorSet set;
  if (!set.Open(RangeOf(kind, bitmap.BitsPerPixel))) return ERR_NO_MEMORY;
  const bool givesUp = palette && bitmap.BitsPerPixel > 8;
  const uint32_t most = count;
  {
    const BitmapLock lock(bitmap);
    RowReader rows(bitmap, TARN_HERE);
    TARN_TRY(rows.Open());
    const int32_t height = bitmap.Height;
    for (int32_t row = 0; row < height && !(givesUp && set.Count() > most); ++row) {
      const uint8_t* const line = rows.Row(row);
      if (!line) return rows.status();
      lines.Add(line, set);
    }
  }
  count = givesUp && set.Count() > most ? most + 1 : set.Count();
  if (palette) set.ForEach(most, [&](uint32_t color) { *palette++ = lines.EntryOf(color); });
  return SUCCESS;
}

}  // namespace tarn

using namespace tarn;

int32_t T_GetBitmapColorCountExt(BitmapHandle* bitmap, uint32_t* count, T_PaletteEntry* palette) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_NO_BITMAP));
  if (!count) return ERR_INVALID_PARAMETER;
  return CountColors(*bitmap, *count, palette).code;
}
