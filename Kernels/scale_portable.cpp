// Resizing one sample at a time.

#include <bit>
#include <cstring>
#include <type_traits>

#include "Kernels/Scale.h"

namespace tarn {
namespace {

__extension__ typedef __int128 Int128;
__extension__ typedef unsigned __int128 UInt128;

/// Types that calculations in samples of type T go through.
template <class T>
struct Traits;
template <>
struct Traits<uint8_t> {
  using Narrow = uint32_t;
  using Wide = uint64_t;
  using Real = float;
  static constexpr uint64_t kNarrowTotal = 1 << 24;
};
template <>
struct Traits<uint16_t> {
  using Narrow = uint32_t;
  using Wide = uint64_t;
  using Real = float;
  static constexpr uint64_t kNarrowTotal = 1 << 16;
};
template <>
struct Traits<int16_t> {
  using Narrow = int32_t;
  using Wide = int64_t;
  using Real = float;
  static constexpr uint64_t kNarrowTotal = 1 << 16;
};
// Single precision would not keep a flat line of 32-bit samples flat.
template <>
struct Traits<uint32_t> {
  using Narrow = uint64_t;
  using Wide = UInt128;
  using Real = double;
  static constexpr uint64_t kNarrowTotal = UINT64_C(1) << 32;
};
template <>
struct Traits<int32_t> {
  using Narrow = int64_t;
  using Wide = Int128;
  using Real = double;
  static constexpr uint64_t kNarrowTotal = UINT64_C(1) << 32;
};

// ---- Box averaging -------------------------------------------------------------------------------------------------

template <class T, class Sum>
void BoxLine(void* to, const void* from, const BoxCell* cells, int64_t count, int32_t channels) noexcept {
  auto* target = static_cast<T*>(to);
  const auto* source = static_cast<const T*>(from);
  for (int64_t i = 0; i < count; ++i) {
    const BoxCell cell = cells[i];
    const Sum total = static_cast<Sum>(cell.Total());
    for (int32_t c = 0; c < channels; ++c) {
      const T* at = source + static_cast<int64_t>(cell.first) * channels + c;
      Sum sum = static_cast<Sum>(*at) * static_cast<Sum>(cell.firstWeight);
      Sum whole = 0;
      for (int32_t n = 0; n < cell.whole; ++n) whole += static_cast<Sum>(*(at += channels));
      sum += whole * 4096;
      if (cell.endWeight) sum += static_cast<Sum>(at[channels]) * static_cast<Sum>(cell.endWeight);
      *target++ = static_cast<T>(sum / total);
    }
  }
}

template <class T, class Sum>
void WeighRow(void* to, const void* from, uint32_t weight, int64_t samples, bool add) noexcept {
  auto* const sums = static_cast<Sum*>(to);
  const auto* const row = static_cast<const T*>(from);
  const Sum factor = static_cast<Sum>(weight);
  if (add) {
    for (int64_t i = 0; i < samples; ++i) sums[i] += static_cast<Sum>(row[i]) * factor;
  } else {
    for (int64_t i = 0; i < samples; ++i) sums[i] = static_cast<Sum>(row[i]) * factor;
  }
}

template <class T, class Sum>
void DivideRow(void* to, const void* from, uint64_t total, int64_t samples) noexcept {
  auto* const target = static_cast<T*>(to);
  const auto* const sums = static_cast<const Sum*>(from);
  const Sum divisor = static_cast<Sum>(total);
  for (int64_t i = 0; i < samples; ++i) target[i] = static_cast<T>(sums[i] / divisor);  // NOLINT: above 0
}

template <class T, class Sum>
void AverageRows(void* to, const void* const* rows, const uint16_t* weights, int32_t count, int64_t samples) noexcept {
  constexpr int64_t kBlock = 256;
  auto* const target = static_cast<T*>(to);
  Sum sums[kBlock];
  uint64_t total = 0;
  for (int32_t i = 0; i < count; ++i) total += weights[i];
  for (int64_t first = 0; first < samples; first += kBlock) {
    const int64_t part = samples - first < kBlock ? samples - first : kBlock;
    for (int32_t i = 0; i < count; ++i)
      WeighRow<T, Sum>(sums, static_cast<const T*>(rows[i]) + first, weights[i], part, i != 0);
    DivideRow<T, Sum>(target + first, sums, total, part);
  }
}

// ---- Linear interpolation ------------------------------------------------------------------------------------------

/// Deliberate: signed samples that fall lose the remainder of every step; results of old are compared byte for byte.
template <class T>
T Between(T a, T b, int64_t k, int64_t n) noexcept {
  const int64_t difference = static_cast<int64_t>(b) - static_cast<int64_t>(a);
  int64_t step = 0;
  if (difference >= 0)
    step = k * difference / n;
  else if constexpr (std::is_signed_v<T>)
    step = k * (difference / n);
  else
    step = -((-k * difference + n - 1) / n);
  return static_cast<T>(static_cast<int64_t>(a) + step);
}

template <class T>
void LinearLine(void* to, const void* from, const LinearSpot* spots, int64_t count, int32_t channels) noexcept {
  auto* target = static_cast<T*>(to);
  const auto* const source = static_cast<const T*>(from);
  for (int64_t i = 0; i < count; ++i) {
    const LinearSpot spot = spots[i];
    const T* const a = source + static_cast<int64_t>(spot.from) * channels;
    const T* const b = source + static_cast<int64_t>(spot.to) * channels;
    for (int32_t c = 0; c < channels; ++c) *target++ = Between(a[c], b[c], spot.k, spot.n);
  }
}

template <class T>
void LinearRow(void* to, const void* first, const void* second, int32_t k, int32_t n, int64_t samples) noexcept {
  auto* const target = static_cast<T*>(to);
  const auto* const a = static_cast<const T*>(first);
  const auto* const b = static_cast<const T*>(second);
  for (int64_t i = 0; i < samples; ++i) target[i] = Between(a[i], b[i], k, n);
}

// ---- Cubic spline --------------------------------------------------------------------------------------------------

/// Rounded half up and clamped.
template <class T, class Real>
T Rounded(Real value) noexcept {
  constexpr auto kLeast =
      static_cast<Real>(std::is_signed_v<T> ? -static_cast<int64_t>(UINT64_C(1) << (8 * sizeof(T) - 1)) : 0);
  constexpr auto kMost =
      static_cast<Real>(static_cast<int64_t>((UINT64_C(1) << (8 * sizeof(T) - std::is_signed_v<T>)) - 1));
  const Real shifted = value + Real(0.5);
  if (shifted <= kLeast) return static_cast<T>(static_cast<int64_t>(kLeast));
  if (shifted >= kMost) return static_cast<T>(static_cast<int64_t>(kMost));
  const auto whole = static_cast<int64_t>(shifted);
  return static_cast<T>(whole - (static_cast<Real>(whole) > shifted));
}

template <class Real>
Real Evaluate(Real y1, Real y2, Real m1, Real m2, const SplineSpot& spot) noexcept {
  const Real t = static_cast<Real>(spot.t);
  return (Real(1) - t) * y1 + t * y2 + static_cast<Real>(spot.firstFactor) * m1 +
         static_cast<Real>(spot.nextFactor) * m2;
}

/// Factors of the forward sweep: -1 / (previous + 4) from 0 on. They stand still long before the last one.
constexpr int kFactors = 24;
template <class Real>
struct Factors {
  Real values[kFactors];
  constexpr Factors() noexcept : values{} {
    for (int i = 1; i < kFactors; ++i) values[i] = Real(-1) / (values[i - 1] + Real(4));
  }
};

template <class T>
void SplineDerivatives(void* to, const void* from, int64_t pixels, int32_t channels, uint8_t* work) noexcept {
  using Real = typename Traits<T>::Real;
  static constexpr Factors<Real> kTable;
  static_assert(kTable.values[kFactors - 1] == kTable.values[kFactors - 2]);
  auto* const derivatives = static_cast<Real*>(to);
  const auto* const y = static_cast<const T*>(from);
  const auto at = [channels](int64_t i, int32_t c) { return i * channels + c; };
  for (int32_t c = 0; c < channels; ++c) {
    derivatives[at(0, c)] = 0;
    derivatives[at(pixels - 1, c)] = 0;
    // A sample is (factor of its place since the line was last straight) * the next one + what is kept here.
    Real kept = 0;
    uint8_t place = 0;
    for (int64_t i = 1; i < pixels - 1; ++i) {
      const Real right = Real(6) * (static_cast<Real>(y[at(i - 1, c)]) - Real(2) * static_cast<Real>(y[at(i, c)]) +
                                    static_cast<Real>(y[at(i + 1, c)]));
      // Deliberate: where the line is straight the sweep starts again.
      if (right == 0) {
        place = 0;
        kept = 0;
      } else {
        place = place < kFactors - 1 ? static_cast<uint8_t>(place + 1) : place;
        kept = (kept - right) * kTable.values[place];
      }
      derivatives[at(i, c)] = kept;
      work[i] = place;
    }
    for (int64_t i = pixels - 2; i > 0; --i)
      derivatives[at(i, c)] = kTable.values[work[i]] * derivatives[at(i + 1, c)] + derivatives[at(i, c)];
  }
}

template <class T>
void SplineLine(void* to, const void* from, const void* second, const SplineSpot* spots, int64_t count,
                int32_t channels) noexcept {
  using Real = typename Traits<T>::Real;
  auto* target = static_cast<T*>(to);
  for (int64_t i = 0; i < count; ++i) {
    const SplineSpot spot = spots[i];
    const T* const y = static_cast<const T*>(from) + static_cast<int64_t>(spot.from) * channels;
    const Real* const m = static_cast<const Real*>(second) + static_cast<int64_t>(spot.from) * channels;
    if (spot.t == 0.0f) {
      for (int32_t c = 0; c < channels; ++c) *target++ = y[c];
      continue;
    }
    for (int32_t c = 0; c < channels; ++c)
      *target++ = Rounded<T>(
          Evaluate(static_cast<Real>(y[c]), static_cast<Real>(y[c + channels]), m[c], m[c + channels], spot));
  }
}

template <class T>
void SplineRow(void* to, const void* const* rows, const SplineSpot& spot, int64_t samples) noexcept {
  using Real = typename Traits<T>::Real;
  auto* const target = static_cast<T*>(to);
  const auto* const r0 = static_cast<const T*>(rows[0]);
  const auto* const r1 = static_cast<const T*>(rows[1]);
  const auto* const r2 = static_cast<const T*>(rows[2]);
  const auto* const r3 = static_cast<const T*>(rows[3]);
  const SplineSpot place = spot;
  for (int64_t i = 0; i < samples; ++i) {
    const Real y0 = static_cast<Real>(r0[i]), y1 = static_cast<Real>(r1[i]);
    const Real y2 = static_cast<Real>(r2[i]), y3 = static_cast<Real>(r3[i]);
    const Real d1 = y0 - Real(2) * y1 + y2;
    const Real d2 = y1 - Real(2) * y2 + y3;
    const Real m2 = (Real(6) * d2 - Real(1.5) * d1) * static_cast<Real>(0.266667f);
    const Real m1 = Real(1.5) * d1 - m2 / Real(4);
    target[i] = Rounded<T>(Evaluate(y1, y2, m1, m2, place));
  }
}

template <class T>
constexpr SampleKernels Samples() noexcept {
  using Narrow = typename Traits<T>::Narrow;
  using Wide = typename Traits<T>::Wide;
  return {.narrowTotal = Traits<T>::kNarrowTotal,
          .narrowSumBytes = sizeof(Narrow),
          .wideSumBytes = sizeof(Wide),
          .realBytes = sizeof(typename Traits<T>::Real),
          .boxLine = BoxLine<T, Narrow>,
          .boxLineWide = BoxLine<T, Wide>,
          .weighRow = WeighRow<T, Narrow>,
          .weighRowWide = WeighRow<T, Wide>,
          .divideRow = DivideRow<T, Narrow>,
          .divideRowWide = DivideRow<T, Wide>,
          .averageRows = AverageRows<T, Narrow>,
          .linearLine = LinearLine<T>,
          .linearRow = LinearRow<T>,
          .splineDerivatives = SplineDerivatives<T>,
          .splineLine = SplineLine<T>,
          .splineRow = SplineRow<T>};
}

// ---- Pixels --------------------------------------------------------------------------------------------------------

template <int kBytes>
void GatherPixels(uint8_t* target, const uint8_t* source, const uint32_t* indices, int64_t count) noexcept {
  for (int64_t i = 0; i < count; ++i) {
    uint8_t pixel[kBytes];
    std::memcpy(pixel, source + static_cast<uint64_t>(indices[i]) * kBytes, kBytes);
    std::memcpy(target + i * kBytes, pixel, kBytes);
  }
}

void Gather(uint8_t* target, const uint8_t* source, const uint32_t* indices, int64_t count, int32_t bytes) noexcept {
  switch (bytes) {
    case 1:
      return GatherPixels<1>(target, source, indices, count);
    case 2:
      return GatherPixels<2>(target, source, indices, count);
    case 3:
      return GatherPixels<3>(target, source, indices, count);
    case 4:
      return GatherPixels<4>(target, source, indices, count);
    case 6:
      return GatherPixels<6>(target, source, indices, count);
    default:
      return GatherPixels<8>(target, source, indices, count);
  }
}

/// Up to 8 bytes from a place of the line on, the first one on top.
uint64_t LoadBits(const uint8_t* line, uint64_t bytes, uint64_t first) noexcept {
  uint64_t word = 0;
  if (first + 8 <= bytes) {
    std::memcpy(&word, line + first, 8);
  } else {
    std::memcpy(&word, line + first, bytes - first);
  }
  return __builtin_bswap64(word);
}

uint32_t CountOnes(const uint8_t* line, uint64_t bytes, uint64_t start, uint64_t end) noexcept {
  uint32_t ones = 0;
  while (start < end) {
    const uint64_t room = 64 - start % 8;
    const uint64_t count = end - start < room ? end - start : room;
    const uint64_t word = LoadBits(line, bytes, start / 8) << start % 8;
    ones += static_cast<uint32_t>(std::popcount(word >> (64 - count)));
    start += count;
  }
  return ones;
}

void CountInk(uint32_t* counters, const uint8_t* line, uint64_t bytes, const uint32_t* starts, int64_t count,
              bool zeros) noexcept {
  for (int64_t i = 0; i < count; ++i) {
    const uint32_t ones = CountOnes(line, bytes, starts[i], starts[i + 1]);
    counters[i] += zeros ? starts[i + 1] - starts[i] - ones : ones;
  }
}

// ---- Bits ----------------------------------------------------------------------------------------------------------

void StoreWord(uint8_t* target, uint64_t word, int64_t bytes) noexcept {
  for (int64_t i = 0; i < bytes; ++i) target[i] = static_cast<uint8_t>(word >> (56 - 8 * i));
}

void TakeBits(uint8_t* target, const uint8_t* line, uint64_t bytes, const uint64_t* masks, int64_t words) noexcept {
  uint32_t made = 0;
  int taken = 0;
  for (int64_t i = 0; i < words; ++i) {
    const uint64_t word = LoadBits(line, bytes, static_cast<uint64_t>(i) * 8);
    for (uint64_t rest = masks[i]; rest;) {
      const int bit = 63 - std::countl_zero(rest);
      rest &= ~(uint64_t{1} << bit);
      made = made << 1 | static_cast<uint32_t>(word >> bit & 1);
      if (++taken == 8) {
        *target++ = static_cast<uint8_t>(made);
        taken = 0;
      }
    }
  }
  if (taken) *target = static_cast<uint8_t>(made << (8 - taken));
}

void RepeatBits(uint8_t* target, const uint8_t* line, const uint64_t* ends, const uint32_t* last,
                int64_t words) noexcept {
  for (int64_t i = 0; i < words; ++i, target += 8) {
    uint32_t at = last[i];
    uint64_t made = 0;
    for (int bit = std::countr_zero(ends[i]); bit < 64; ++bit) {
      if (ends[i] >> bit & 1 && (ends[i] & ((uint64_t{1} << bit) - 1))) --at;
      made |= static_cast<uint64_t>(line[at / 8] >> (7 - at % 8) & 1) << bit;
    }
    StoreWord(target, made, 8);
  }
}

void DoubleBits(uint8_t* target, const uint8_t* line, int64_t bytes) noexcept {
  for (int64_t i = 0; i < bytes; ++i) {
    uint32_t bits = line[i];
    bits = (bits | bits << 4) & 0x0F0F;
    bits = (bits | bits << 2) & 0x3333;
    bits = (bits | bits << 1) & 0x5555;
    bits |= bits << 1;
    target[2 * i] = static_cast<uint8_t>(bits >> 8);
    target[2 * i + 1] = static_cast<uint8_t>(bits);
  }
}

void InkCells(uint8_t* target, const InkLines& ink) noexcept {
  for (int64_t first = 0; first < ink.cells; first += 8, ++target) {
    uint32_t made = 0;
    for (int64_t cell = first; cell < first + 8; ++cell) {
      int32_t ones = 0;
      for (int64_t bit = cell * ink.columns; bit < (cell + 1) * ink.columns && cell < ink.cells; ++bit) {
        for (int32_t n = 0; n < ink.count; ++n) ones += ink.lines[n][bit / 8] >> (7 - bit % 8) & 1;
      }
      const int32_t counted = ink.zeros ? ink.count * ink.columns - ones : ones;
      made = made << 1 | static_cast<uint32_t>((counted >= ink.most) != ink.zeros);
    }
    *target = static_cast<uint8_t>(made);
  }
}

void AverageBytes(uint8_t* target, const uint8_t* source, int64_t count, int32_t parts) noexcept {
  for (int64_t i = 0; i < count; ++i) {
    uint32_t sum = 0;
    for (int32_t n = 0; n < parts; ++n) sum += *source++;
    target[i] = static_cast<uint8_t>(sum / static_cast<uint32_t>(parts));
  }
}

}  // namespace

constinit const SampleKernels kSamplesPortable[] = {Samples<uint8_t>(), Samples<uint16_t>(), Samples<int16_t>(),
                                                    Samples<uint32_t>(), Samples<int32_t>()};
constinit const ScaleKernels kScalePortable = {
    .window = 0,
    .takeBytes = nullptr,
    .boxTaps = nullptr,
    .boxTaps16 = nullptr,
    .linearTaps = nullptr,
    .linearTaps16 = nullptr,
    .averageBytes = AverageBytes,
    .splineRows = nullptr,
    .takeBits = TakeBits,
    .repeatBits = RepeatBits,
    .doubleBits = DoubleBits,
    .inkCells = InkCells,
    .gather = Gather,
    .countInk = CountInk,
    .samples = {&kSamplesPortable[0], &kSamplesPortable[1], &kSamplesPortable[2], &kSamplesPortable[3],
                &kSamplesPortable[4]}};

}  // namespace tarn
