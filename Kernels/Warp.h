#pragma once
// Kernels that map a picture onto a quadrilateral: where pixels come from, and samples from there.

#include <cstdint>

namespace tarn {

/// In 1/256 of a pixel, from the centre of the pixel to sample or of the upper left one of four.
struct WarpPlace {
  int32_t x, y;
};

/// A row of the destination: place i is ((uX * x + uRow) * width / w, (vX * x + vRow) * height / w) with x = first +
/// 256 * i and w = wX * x + wRow, in double precision, each step as written; what is no number or below 0 is 0, beyond
/// the width or height that; then rounded, less `half`, and held to 0..last.
struct WarpRow {
  double first;
  double uX, uRow, vX, vRow, wX, wRow;
  double width, height;  // below 2^30
  int32_t half;
  int32_t lastX, lastY;
};

/// The least and the most that places are.
struct WarpReach {
  int32_t leastX = INT32_MAX, leastY = INT32_MAX, mostX = -1, mostY = -1;
};

/// Pixels in memory; addresses count from the first one of an area, whose last column and row are given. Of the rows
/// that are read, pixels up to three columns right of a sampled one are readable, as far as the area goes.
struct WarpWindow {
  const uint8_t* data;
  int64_t stride;
  int64_t lastColumn;
  int64_t lastRow;
};

struct WarpKernels {
  /// Writes places and widens the reach by them.
  void (*places)(WarpPlace* places, int64_t count, const WarpRow& row, WarpReach& reach) noexcept;

  using Sample = void (*)(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept;
  /// Pixels of 1, 2, 3, 4, 6 and 8 bytes: the one that the place lies in.
  Sample nearest8, nearest16, nearest24, nearest32, nearest48, nearest64;
  /// Of four pixels, mixed by the rest of the place, rounded once; neighbours beyond the area count as the pixel.
  Sample bilinear8, bilinear16, bilinear24, bilinear32, bilinear32Gray, bilinear48, bilinear64;
};

extern const WarpKernels kWarpPortable;
extern const WarpKernels kWarpAvx2;

}  // namespace tarn
