#pragma once
// Lines of any bitmap as 8-bit colours or gray levels: what dithering, histograms and colour counts look at.

#include <cstdint>

#include "Common/Internal/LineConverter.h"
#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

/// Palette indices through the bitmap's palette (the fixed one of the depth without any; the gray ramp with order 2),
/// 12- and 16-bit gray through the lookup table in use or as value * 255 / maximum of its significant bits, 32-bit gray
/// by its top eight bits, colour as the buffer converter has it. Some kilobytes.
class ColorLines {
 public:
  /// ERR_INVALID_PARAMETER for a format that has no colours; ERR_BAD_LUT_LENGTH. The record's palette and lookup table
  /// are copied or must stay (the table).
  Status Open(const BitmapHandle& bitmap) noexcept;
  /// Every pixel has equal channels.
  [[nodiscard]] bool IsGray() const noexcept { return gray_; }
  /// Bytes of a line up to a pixel, which is begun.
  [[nodiscard]] int64_t BytesTo(int64_t pixel) const noexcept { return (pixel * bits_ + 7) / 8; }
  /// `count` pixels from pixel `first` (a multiple of 8) of a line, as B, G, R, 0.
  void Colors(uint8_t* target, const uint8_t* line, int64_t first, int64_t count) const noexcept;
  /// The same as one level a pixel; only when IsGray.
  void Levels(uint8_t* target, const uint8_t* line, int64_t first, int64_t count) const noexcept;

 private:
  void TakePalette(const BitmapHandle& bitmap) noexcept;
  Status TakeTable(const BitmapHandle& bitmap) noexcept;
  [[nodiscard]] uint32_t SampleAt(const uint8_t* line, int64_t pixel) const noexcept;
  [[nodiscard]] const T_PaletteEntry& EntryAt(uint32_t sample) const noexcept;

  int32_t bits_ = 0;
  bool gray_ = false;
  bool deep_ = false;   // 12- or 16-bit gray: decoded here
  bool alpha_ = false;  // of the source, to be cleared
  GrayParams params_{};
  const T_PaletteEntry* table_ = nullptr;  // a lookup table in use
  int64_t tableLength_ = 0;
  bool signed_ = false;
  T_PaletteEntry palette_[256];
  LineConverter toColors_;
  LineConverter toLevels_;
};

}  // namespace tarn
