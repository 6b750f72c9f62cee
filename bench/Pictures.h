#pragma once
// Pictures in plain memory: a mosaic of photographs and what is made from it.

#include <cstdint>
#include <string>
#include <vector>

#include "tarn/tarn.h"

namespace bench {

/// As T_ConvertBuffer has them. One-bit and eight-bit pixels are indices unless their order is gray.
struct Format {
  int32_t bits;
  uint32_t order;
  friend bool operator==(const Format&, const Format&) = default;
};

constexpr Format kBits1{1, T_ORDER_BGR};
constexpr Format kPalette8{8, T_ORDER_BGR};
constexpr Format kGray8{8, T_ORDER_GRAY};
constexpr Format kGray16{16, T_ORDER_GRAY};
constexpr Format kBgr16{16, T_ORDER_BGR};
constexpr Format kBgr24{24, T_ORDER_BGR};
constexpr Format kRgb24{24, T_ORDER_RGB};
constexpr Format kBgr32{32, T_ORDER_BGR};
constexpr Format kRgb32{32, T_ORDER_RGB};
constexpr Format kBgr48{48, T_ORDER_BGR};
constexpr Format kRgb48{48, T_ORDER_RGB};
constexpr Format kBgr64{64, T_ORDER_BGR};
constexpr Format kRgb64{64, T_ORDER_RGB};

using Palette = std::vector<T_PaletteEntry>;

/// Rows behind each other, padded to 4 bytes.
struct Pixels {
  Pixels() = default;
  Pixels(Format itsFormat, int32_t itsWidth, int32_t itsHeight);
  Format format{};
  int32_t width = 0;
  int32_t height = 0;
  uint32_t rowBytes = 0;
  Palette palette;  // of indices; none: the fixed palette
  std::vector<uint8_t> bytes;

  [[nodiscard]] const T_PaletteEntry* Entries() const { return palette.empty() ? nullptr : palette.data(); }
  uint8_t* Row(int32_t row) { return bytes.data() + uint64_t{rowBytes} * static_cast<uint32_t>(row); }
  [[nodiscard]] const uint8_t* Row(int32_t row) const {
    return bytes.data() + uint64_t{rowBytes} * static_cast<uint32_t>(row);
  }
  [[nodiscard]] double Count() const { return static_cast<double>(width) * height; }
};

/// The photographs photo-*.bmp of the directory, 24 bits, blue first; a computed landscape where there are none. Their
/// names come back in `names` if wanted.
std::vector<Pixels> Photographs(const std::string& directory, std::string* names = nullptr);

/// 24-bit pixels, blue first: the photographs photo-*.bmp of the directory set together in squares, always alike; a
/// computed landscape where there are none. The name of what it is made from comes back in `origin` if wanted.
Pixels Mosaic(const std::string& directory, int32_t width, int32_t height, std::string* origin = nullptr);

/// By T_ConvertBuffer. A palette is the target's.
Pixels Converted(const Pixels& source, Format format, const Palette& palette = {});

/// Colours picked from all over a 24-bit picture.
Palette PickedColours(const Pixels& picture, uint32_t count);

/// Mean of the absolute differences of all channels, 0..255, both pictures seen with 24 bits.
double MeanDifference(const Pixels& a, const Pixels& b);

/// Peak signal to noise in decibels between the means of blocks of side x side pixels, both seen with 24 bits.
double PeakSignalToNoise(const Pixels& a, const Pixels& b, int32_t side);

}  // namespace bench
