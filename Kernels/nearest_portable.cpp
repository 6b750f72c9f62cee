// The nearest entry of a palette.

#include <cstring>

#include "Kernels/Kernels.h"

namespace tarn {

namespace {

void Swap(uint32_t& a, uint32_t& b) noexcept {
  const uint32_t kept = a;
  a = b;
  b = kept;
}

/// Squares of differences of bytes: three of them are at most 195075.
uint32_t Square(uint32_t a, uint32_t b) noexcept { return (a - b) * (a - b); }

}  // namespace

uint32_t ColorOrderCode(uint32_t red, uint32_t green, uint32_t blue) noexcept {
  uint32_t code = 0;
  if (red < blue) {
    Swap(red, blue);
    code = 4;
  }
  if (green < blue) {
    Swap(green, blue);
    code = code ? 6 : 2;
  }
  return red < green ? code | 1 : code;
}

void PreparePalette(PreparedPalette& prepared, const uint8_t* entries, uint32_t count) noexcept {
  prepared.entries = entries;
  prepared.count = count;
  // Places behind the last entry, up to a whole vector, are farther away than any colour.
  constexpr uint32_t kLanes = 8;
  constexpr int16_t kFar = 8000;
  for (uint32_t i = 0; i < count; ++i) {
    const uint8_t* const entry = entries + 4 * i;
    prepared.blueRed[2 * i] = entry[0];
    prepared.blueRed[2 * i + 1] = entry[2];
    prepared.green[2 * i] = entry[1];
    prepared.green[2 * i + 1] = 0;
  }
  for (uint32_t i = count; i % kLanes != 0; ++i) {
    prepared.blueRed[2 * i] = prepared.blueRed[2 * i + 1] = prepared.green[2 * i] = kFar;
    prepared.green[2 * i + 1] = 0;
  }
}

uint32_t NearestEntry_Portable(const uint8_t* entries, uint32_t count, uint32_t color) noexcept {
  const uint32_t red = color >> 16 & 255;
  const uint32_t green = color >> 8 & 255;
  const uint32_t blue = color & 255;
  const uint32_t code = ColorOrderCode(red, green, blue);
  uint32_t nearest = UINT32_MAX;
  uint32_t index = 0;
  for (uint32_t i = 0; i < count && nearest != 0; ++i) {
    const uint8_t* const entry = entries + uint64_t{4} * i;
    const uint32_t distance = Square(entry[0], blue) + Square(entry[1], green) + Square(entry[2], red);
    if (distance > nearest) continue;
    if (distance < nearest || ColorOrderCode(entry[2], entry[1], entry[0]) == code) {
      nearest = distance;
      index = i;
    }
  }
  return index;
}

uint32_t NearestPrepared_Portable(const PreparedPalette& palette, uint32_t color) noexcept {
  return NearestEntry_Portable(palette.entries, palette.count, color);
}

}  // namespace tarn
