#pragma once
// Kernels that sample pixels along a line through a picture. Same bytes at every level.
//
// A position T counts in 1/16384 of a pixel from the centre of pixel 0. The pixel it lies in is (T + 8191) >> 14.

#include <cstdint>

namespace tarn {

/// Positions of a run of pixels: (x + i * stepX, y + i * stepY). Steps are at most one pixel.
struct SamplePath {
  int64_t x;
  int64_t y;
  int32_t stepX;
  int32_t stepY;
};

/// Pixels as sampling sees them: how many samples of how many bits.
enum class SampleFormat : uint8_t {
  k8,
  k16,
  k555,  // three of five bits and one of one
  k24,
  k32,
  k32Gray,  // one of 32 bits
  k48,
  k64,
  kCount
};
constexpr int kSampleFormats = static_cast<int>(SampleFormat::kCount);

struct RotateKernels {
  /// Writes `pixels` pixels. origin is the address of source pixel (0, 0), stride the bytes from one row to the next.
  /// Everything within two pixels of a sampled position is readable.
  using Sample = void (*)(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path,
                          int64_t pixels) noexcept;
  /// The pixel that the position lies in.
  Sample nearest[kSampleFormats];
  /// The same moved towards its neighbour on the position's side, by the distance in 1/16384 of the difference,
  /// truncated; first beside, then above or below.
  Sample corrected[kSampleFormats];
  /// Of the four pixels around the position, the upper and the lower ones are mixed, then what that gave; each by the
  /// distance in 1/16384 of the difference, truncated.
  Sample bilinear[kSampleFormats];
};

/// The same in bands of eight rows, `columns` a multiple of 8: row i begins at (x - i * stepY, y + i * stepX), as in a
/// turned picture. Everything within 18 pixels of a sampled position is readable. Null where rows do as well.
struct RotateSquares {
  using Sample = void (*)(uint8_t* target, int64_t targetStride, const uint8_t* origin, int64_t stride,
                          const SamplePath& path, int64_t columns) noexcept;
  Sample nearest8, corrected8, bilinear8;
};

extern const RotateKernels kRotatePortable;
extern const RotateKernels kRotateAvx2;
extern const RotateSquares kRotateSquaresAvx512;

}  // namespace tarn
