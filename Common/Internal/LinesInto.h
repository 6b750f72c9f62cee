#pragma once
// Lines of one bitmap as pixels of another one's format, and moves of pixels to any column.

#include <cstdint>

#include "Common/Internal/FormatLines.h"
#include "Common/Internal/GrayParams.h"
#include "Common/Internal/LineConverter.h"
#include "Common/Internal/Status.h"
#include "Kernels/Kernels.h"
#include "tarn/types.h"

namespace tarn {

/// Pixels that begin at any bit of a byte.
constexpr bool SharesBytes(int32_t bits) noexcept { return bits < 8 || bits == 12; }
constexpr uint64_t BytesOf(int64_t pixels, int32_t bits) noexcept {
  return (static_cast<uint64_t>(pixels) * static_cast<uint32_t>(bits) + 7) / 8;
}
/// Stretches of bits for pixels of a depth: those of 12 bits are little-endian, the others begin at the top of a byte.
inline auto ShiftFor(int32_t bits) noexcept { return bits == 12 ? Kernels().shiftLowBits : Kernels().shiftBits; }

/// One gray sample of more than 8 bits a pixel.
bool IsDeepGray(const BitmapHandle& bitmap) noexcept;
/// Eight bits that are gray levels: the gray palette, or gray order.
bool IsGray8(const BitmapHandle& bitmap) noexcept;
/// Color channels with alpha behind them, of 32 and 64 bits.
bool HasDeepAlpha(const BitmapHandle& bitmap) noexcept;
/// Significant bits of a deep gray bitmap.
GrayParams SamplesOf(const BitmapHandle& bitmap) noexcept;
bool IsWholeSample(const GrayParams& params, int32_t bits) noexcept;
/// Pixels mean the same in both: depth, order, colours of palettes, significant bits, lookup tables in use.
bool SameFormat(const BitmapHandle& a, const BitmapHandle& b) noexcept;
/// A bitmap's format as lines of it are written. `entries`: room for 256, used where it has a palette.
LineFormat FormatOf(const BitmapHandle& bitmap, T_PaletteEntry* entries) noexcept;

/// Some kilobytes of tables. Both records' palettes and tables must stay meanwhile.
class LinesInto {
 public:
  LinesInto() noexcept {}  // filled by Open
  LinesInto(const LinesInto&) = delete;
  LinesInto& operator=(const LinesInto&) = delete;

  /// For lines of at most `pixels` pixels. ERR_INVALID_PARAMETER: an order that a depth cannot have;
  /// ERR_BAD_LUT_LENGTH; ERR_NO_MEMORY.
  Status Open(const BitmapHandle& source, const BitmapHandle& target, int64_t pixels, Here here) noexcept;
  /// Formats are the same: there is nothing to make.
  [[nodiscard]] bool Direct() const noexcept { return direct_; }
  /// Where formats differ. The target does not overlap the source. Only bytes that hold pixels are written; bits behind
  /// the last one become 0.
  void Make(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;

 private:
  void Range(uint8_t* line, int64_t pixels) const noexcept;

  bool direct_ = false;
  bool levels_ = false;  // from 8-bit gray
  int32_t bits_ = 0;     // of the target
  GrayParams range_{};   // of a target that does not use all of its sample
  bool ranged_ = false;
  FormatLines lines_;
  LineConverter fromGray_;
  T_PaletteEntry entries_[256];
};

}  // namespace tarn
