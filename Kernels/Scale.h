#pragma once
// Kernels that change how many pixels a line has: taking pixels by index, and averaging or interpolating samples. A
// line of samples has the channels of a pixel beside each other. Target and source do not overlap, except for `gather`.

#include <cstdint>

namespace tarn {

/// A cell of box averaging: weight `firstWeight` for sample `first`, 4096 for each of the `whole` samples behind it,
/// and endWeight for the next one (0: there is none).
struct BoxCell {
  int32_t first;
  int32_t whole;
  uint16_t firstWeight;  // 1..4096
  uint16_t endWeight;    // 0..4095
  [[nodiscard]] uint64_t Total() const noexcept {
    return static_cast<uint64_t>(whole) * 4096 + firstWeight + endWeight;
  }
};

/// Step k of the n steps that lead from one sample to another.
struct LinearSpot {
  int32_t from;
  int32_t to;
  int32_t k;  // 0..n - 1
  int32_t n;  // at least 1
};

/// A place between sample `from` and the next one. t is 0 at and beyond the last sample: nothing behind it is touched.
struct SplineSpot {
  int32_t from;
  float t;            // 0 <= t < 1
  float firstFactor;  // ((1 - t)^3 - (1 - t)) / 6, of the second derivative at `from`
  float nextFactor;   // (t^3 - t) / 6, of the one at the next sample
};

/// Samples of one type. Sums of the narrow forms hold cells whose Total() is below narrowTotal.
struct SampleKernels {
  uint64_t narrowTotal;
  uint32_t narrowSumBytes;
  uint32_t wideSumBytes;
  uint32_t realBytes;  // of a number of the spline

  /// `count` pixels, each the truncated average of its cell.
  void (*boxLine)(void* target, const void* source, const BoxCell* cells, int64_t count, int32_t channels) noexcept;
  void (*boxLineWide)(void* target, const void* source, const BoxCell* cells, int64_t count, int32_t channels) noexcept;
  /// sums = row * weight, or with `add` sums += row * weight.
  void (*weighRow)(void* sums, const void* row, uint32_t weight, int64_t samples, bool add) noexcept;
  void (*weighRowWide)(void* sums, const void* row, uint32_t weight, int64_t samples, bool add) noexcept;
  /// target = sums / total, truncated toward zero.
  void (*divideRow)(void* target, const void* sums, uint64_t total, int64_t samples) noexcept;
  void (*divideRowWide)(void* target, const void* sums, uint64_t total, int64_t samples) noexcept;

  /// a + floor(k (b - a) / n) of each spot; signed samples that fall: a + k * trunc((b - a) / n).
  void (*linearLine)(void* target, const void* source, const LinearSpot* spots, int64_t count,
                     int32_t channels) noexcept;
  /// The same between the samples of two rows.
  void (*linearRow)(void* target, const void* a, const void* b, int32_t k, int32_t n, int64_t samples) noexcept;

  /// Second derivatives of the natural cubic spline through `pixels` pixels; work holds one number for each of them.
  void (*splineDerivatives)(void* derivatives, const void* source, int64_t pixels, int32_t channels,
                            uint8_t* work) noexcept;
  void (*splineLine)(void* target, const void* source, const void* derivatives, const SplineSpot* spots, int64_t count,
                     int32_t channels) noexcept;
  /// Between rows[1] and rows[2]; spot.from does not count, spot.t is not 0.
  void (*splineRow)(void* target, const void* const* rows, const SplineSpot& spot, int64_t samples) noexcept;
};

enum class Sample : uint8_t { kU8, kU16, kS16, kU32, kS32, kCount };

struct ScaleKernels {
  /// Pixels by index, `bytes` of each (1, 2, 3, 4, 6 or 8). The target may be the source when no index lies before its
  /// own place.
  void (*gather)(uint8_t* target, const uint8_t* source, const uint32_t* indices, int64_t count,
                 int32_t bytes) noexcept;
  /// counters[i] += the ones (zero: the zeros) among bits starts[i] .. starts[i + 1] - 1 of a line of `bytes` bytes,
  /// most significant bits first.
  void (*countInk)(uint32_t* counters, const uint8_t* line, uint64_t bytes, const uint32_t* starts, int64_t count,
                   bool zeros) noexcept;
  const SampleKernels* samples[static_cast<int>(Sample::kCount)];
};

extern const SampleKernels kSamplesPortable[static_cast<int>(Sample::kCount)];
extern const ScaleKernels kScalePortable;
extern const ScaleKernels kScaleAvx2;

}  // namespace tarn
