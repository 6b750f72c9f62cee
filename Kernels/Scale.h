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

/// Bytes of a line that are made of bytes of another, block by block: `window` bytes of the result each (see
/// ScaleKernels), or fewer samples that take several bytes each. What a block needs lies in `window` bytes of the
/// source from base[block] on, all of them there. A block of `data` is `window` places in these bytes and then, for
/// sums, as many bytes of weights, two times. Samples behind the last one of the last block have place and weight 0.
struct Taps {
  const uint32_t* base;
  const uint8_t* data;
  int64_t count;   // of samples of the result
  int64_t period;  // blocks from `start` to before `end` repeat the data of the first `period` ones of them
  int64_t start;
  int64_t end;
  /// Data of a block whose data takes `bytes` bytes.
  [[nodiscard]] const uint8_t* DataOf(int64_t block, int64_t bytes) const noexcept {
    return data + (block >= start && block < end ? start + (block - start) % period : block) * bytes;
  }
};

/// Lines that the same is made of: the tables of Taps take more memory than a line, and are read once for all.
struct TapLines {
  uint8_t* const* targets;
  const uint8_t* const* sources;
  int32_t count;
};

/// Weights of box averaging in two signed bytes: high * 64 + low.
constexpr int32_t kBoxTaps = 4;  // bytes that a sample is made of
/// Weights n - k and k, and 16 bits of ceil(65536 / n).
constexpr int32_t kLinearTaps = 2;
constexpr int32_t kMostLinearSteps = 16;
constexpr int32_t kMostRows = 8;     // averaged at a time
constexpr int32_t kSplineRows = 16;  // whose splines are made at a time

/// Lines of bits, most significant bits first, in cells of some columns. A cell is inked when at least `most` of its
/// bits are ones (zeros: zeros); its bit is one then (zeros: zero).
struct InkLines {
  const uint8_t* const* lines;
  int32_t count;  // 1..kMostInkLines
  int64_t bytes;  // of a line
  int64_t cells;
  int32_t columns;  // 2..4
  int32_t most;     // 1..3
  bool zeros;
};
constexpr int32_t kMostInkLines = 16;

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
  /// The sum of 1..kMostRows rows times weights, divided by their sum, which is below narrowTotal.
  void (*averageRows)(void* target, const void* const* rows, const uint16_t* weights, int32_t count,
                      int64_t samples) noexcept;

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
  /// Bytes of a block of Taps; 0: this level has no kernels for them.
  int32_t window;
  void (*takeBytes)(uint8_t* target, const uint8_t* source, const Taps& taps) noexcept;
  /// Sums of weights 4096..65535, divided by `total`.
  void (*boxTaps)(const TapLines& lines, const Taps& taps, uint32_t total) noexcept;
  /// The same of words: a sample is made of eight bytes, four of them weights of a word each in the first table.
  void (*boxTaps16)(const TapLines& lines, const Taps& taps, uint32_t total) noexcept;
  void (*linearTaps)(uint8_t* target, const uint8_t* source, const Taps& taps) noexcept;
  /// The same of words: the second table has 1 / n in single precision.
  void (*linearTaps16)(uint8_t* target, const uint8_t* source, const Taps& taps) noexcept;
  /// Truncated averages of 2, 4 or 8 bytes beside each other.
  void (*averageBytes)(uint8_t* target, const uint8_t* source, int64_t count, int32_t parts) noexcept;
  /// What splineDerivatives and splineLine make of each of kSplineRows rows of bytes. Some may be the same. Work holds
  /// 96 bytes for each sample of a row and 256 more, at a multiple of 64. Null: this level does one row at a time.
  void (*splineRows)(uint8_t* const* targets, const uint8_t* const* sources, int64_t pixels, int32_t channels,
                     const SplineSpot* spots, int64_t count, uint8_t* work) noexcept;

  /// The bits that are set in masks, which go through a line of `words` words, most significant bits first, beside each
  /// other. The last byte is filled up with zeros.
  void (*takeBits)(uint8_t* target, const uint8_t* line, uint64_t bytes, const uint64_t* masks, int64_t words) noexcept;
  /// Bits that repeat: a bit ends at each bit of ends[word], the last of them is bit last[word] of the line. Writes
  /// whole words.
  void (*repeatBits)(uint8_t* target, const uint8_t* line, const uint64_t* ends, const uint32_t* last,
                     int64_t words) noexcept;
  /// Every bit two times.
  void (*doubleBits)(uint8_t* target, const uint8_t* line, int64_t bytes) noexcept;

  /// A bit for each cell; bits of the last byte behind the last cell are of any value.
  void (*inkCells)(uint8_t* target, const InkLines& ink) noexcept;
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
extern const SampleKernels kBytesAvx2;
extern const SampleKernels kBytesAvx512;
extern const SampleKernels kWordsAvx2;
extern const ScaleKernels kScalePortable;
extern const ScaleKernels kScaleAvx2;
extern const ScaleKernels kScaleAvx512;

// Entries of the tables above that are in files of their own.
void Gather_Avx2(uint8_t*, const uint8_t*, const uint32_t*, int64_t, int32_t) noexcept;
void CountInk_Avx2(uint32_t*, const uint8_t*, uint64_t, const uint32_t*, int64_t, bool) noexcept;
void TakeBytes_Avx2(uint8_t*, const uint8_t*, const Taps&) noexcept;
void BoxTaps_Avx2(const TapLines&, const Taps&, uint32_t) noexcept;
void BoxTaps16_Avx2(const TapLines&, const Taps&, uint32_t) noexcept;
void AverageRows16_Avx2(void*, const void* const*, const uint16_t*, int32_t, int64_t) noexcept;
void LinearTaps_Avx2(uint8_t*, const uint8_t*, const Taps&) noexcept;
void LinearTaps16_Avx2(uint8_t*, const uint8_t*, const Taps&) noexcept;
void AverageBytes_Avx2(uint8_t*, const uint8_t*, int64_t, int32_t) noexcept;
void SplineRows_Avx2(uint8_t* const*, const uint8_t* const*, int64_t, int32_t, const SplineSpot*, int64_t,
                     uint8_t*) noexcept;
void SplineRow8_Avx2(void*, const void* const*, const SplineSpot&, int64_t) noexcept;
void SplineRow8_Avx512(void*, const void* const*, const SplineSpot&, int64_t) noexcept;
void TakeBits_Avx2(uint8_t*, const uint8_t*, uint64_t, const uint64_t*, int64_t) noexcept;
void RepeatBits_Avx2(uint8_t*, const uint8_t*, const uint64_t*, const uint32_t*, int64_t) noexcept;
void DoubleBits_Avx2(uint8_t*, const uint8_t*, int64_t) noexcept;
void InkCells_Avx2(uint8_t*, const InkLines&) noexcept;
void InkCells_Avx512(uint8_t*, const InkLines&) noexcept;
void TakeBytes_Avx512(uint8_t*, const uint8_t*, const Taps&) noexcept;
void BoxTaps_Avx512(const TapLines&, const Taps&, uint32_t) noexcept;
void BoxTaps16_Avx512(const TapLines&, const Taps&, uint32_t) noexcept;
void LinearTaps_Avx512(uint8_t*, const uint8_t*, const Taps&) noexcept;
void LinearTaps16_Avx512(uint8_t*, const uint8_t*, const Taps&) noexcept;
void SplineRows_Avx512(uint8_t* const*, const uint8_t* const*, int64_t, int32_t, const SplineSpot*, int64_t,
                       uint8_t*) noexcept;

}  // namespace tarn
