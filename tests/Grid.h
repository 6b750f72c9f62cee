#pragma once
// Pictures as one number a pixel, and what the turns do to them, stated pixel by pixel.

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <vector>

#include "Scope.h"

namespace tarn::test {

/// Bit `bit` of a pixel of a packed line; pixels of less than 8 bits have their most significant bit first.
inline size_t BitPlace(size_t column, int32_t bits, int32_t bit) {
  const size_t first = column * static_cast<size_t>(bits);
  if (bits >= 8) return first + static_cast<size_t>(bit);
  const size_t place = first + static_cast<size_t>(bits - 1 - bit);
  return place / 8 * 8 + 7 - place % 8;
}

inline uint64_t PixelAt(const uint8_t* line, size_t column, int32_t bits) {
  uint64_t pixel = 0;
  for (int32_t bit = 0; bit < bits; ++bit) {
    const size_t at = BitPlace(column, bits, bit);
    pixel |= uint64_t{line[at / 8] >> at % 8 & 1u} << bit;
  }
  return pixel;
}

inline void SetPixel(uint8_t* line, size_t column, int32_t bits, uint64_t pixel) {
  for (int32_t bit = 0; bit < bits; ++bit) {
    const size_t at = BitPlace(column, bits, bit);
    const auto mask = static_cast<uint8_t>(1u << at % 8);
    line[at / 8] = static_cast<uint8_t>(pixel >> bit & 1 ? line[at / 8] | mask : line[at / 8] & ~mask);
  }
}

struct Grid {
  int32_t width = 0;
  int32_t height = 0;
  std::vector<uint64_t> pixels;

  uint64_t At(int32_t x, int32_t y) const {
    return pixels[static_cast<size_t>(y) * static_cast<size_t>(width) + static_cast<size_t>(x)];
  }
  bool operator==(const Grid&) const = default;
};

/// A grid of width x height pixels, each taken from where `from` says.
inline Grid Taken(int32_t width, int32_t height, const std::function<uint64_t(int32_t x, int32_t y)>& from) {
  Grid grid{width, height, {}};
  for (int32_t y = 0; y < height; ++y)
    for (int32_t x = 0; x < width; ++x) grid.pixels.push_back(from(x, y));
  return grid;
}

inline Grid Flipped(const Grid& g) {
  return Taken(g.width, g.height, [&](int32_t x, int32_t y) { return g.At(x, g.height - 1 - y); });
}
inline Grid Reversed(const Grid& g) {
  return Taken(g.width, g.height, [&](int32_t x, int32_t y) { return g.At(g.width - 1 - x, y); });
}
/// Clockwise.
inline Grid TurnedRight(const Grid& g) {
  return Taken(g.height, g.width, [&](int32_t x, int32_t y) { return g.At(y, g.height - 1 - x); });
}

inline Grid GridOf(BitmapHandle& bitmap) {
  Grid grid{bitmap.Width, bitmap.Height, {}};
  const int32_t locked = T_LockBitmap(&bitmap);
  for (int32_t y = 0; y < grid.height; ++y) {
    const std::vector<uint8_t> line = Row(bitmap, static_cast<uint32_t>(y));
    EXPECT_FALSE(line.empty()) << "row " << y;
    if (line.empty()) break;
    for (int32_t x = 0; x < grid.width; ++x)
      grid.pixels.push_back(PixelAt(line.data(), static_cast<size_t>(x), bitmap.BitsPerPixel));
  }
  T_UnlockBitmap(&bitmap, locked);
  return grid;
}

/// What a viewer sees of stored pixels.
inline Grid Displayed(const Grid& stored, uint32_t perspective) {
  const bool flip = perspective == 2 || perspective == 4 || perspective == 5 || perspective == 7;
  const int turns[9] = {0, 0, 2, 2, 0, 1, 1, 3, 3};
  Grid grid = flip ? Flipped(stored) : stored;
  for (int i = 0; i < turns[perspective]; ++i) grid = TurnedRight(grid);
  return grid;
}

/// A status callback that answers `answer` at its `left`-th call and looks at the percentages.
struct Stopper {
  int left;
  int32_t answer;
  int32_t last = -1;
  bool ordered = true;
  int calls = 0;
  static int32_t Call(int32_t percent, void* userData) {
    Stopper& at = *static_cast<Stopper*>(userData);
    at.ordered = at.ordered && percent >= at.last && percent <= 100;
    at.last = percent;
    ++at.calls;
    return --at.left == 0 ? at.answer : static_cast<int32_t>(SUCCESS);
  }
};

}  // namespace tarn::test
