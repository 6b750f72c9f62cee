// Combining rows of bytes, 8 samples at a time, and taking pixels by index. Divisions are multiplications by a
// rounded-up reciprocal, exact in the stated ranges; what lies outside goes through the portable version, as do the
// ends of lines.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Scale.h"

namespace tarn {
namespace {

using V = __m256i;

const SampleKernels& Portable8() noexcept { return kSamplesPortable[static_cast<int>(Sample::kU8)]; }

V LoadBytes(const uint8_t* at) noexcept {
  return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(at)));
}
/// 32-bit lanes below 256 to bytes.
void StoreBytes(uint8_t* at, V lanes) noexcept {
  const V words = _mm256_packus_epi32(lanes, lanes);
  const V bytes = _mm256_packus_epi16(words, words);
  const __m128i low = _mm256_castsi256_si128(bytes);
  const __m128i high = _mm256_extracti128_si256(bytes, 1);
  _mm_storel_epi64(reinterpret_cast<__m128i*>(at), _mm_unpacklo_epi32(low, high));
}

void WeighRow8(void* to, const void* from, uint32_t weight, int64_t samples, bool add) noexcept {
  auto* const sums = static_cast<uint32_t*>(to);
  const auto* const row = static_cast<const uint8_t*>(from);
  // Both factors are below 2^15, and so one multiply-add of words gives the product.
  const V factor = _mm256_set1_epi32(static_cast<int32_t>(weight));
  int64_t i = 0;
  for (; i + 8 <= samples; i += 8) {
    V sum = _mm256_madd_epi16(LoadBytes(row + i), factor);
    V* const at = reinterpret_cast<V*>(sums + i);
    if (add) sum = _mm256_add_epi32(sum, _mm256_loadu_si256(at));
    _mm256_storeu_si256(at, sum);
  }
  Portable8().weighRow(sums + i, row + i, weight, samples - i, add);
}

void DivideRow8(void* to, const void* from, uint64_t total, int64_t samples) noexcept {
  auto* const target = static_cast<uint8_t*>(to);
  const auto* const sums = static_cast<const uint32_t*>(from);
  int64_t i = 0;
  // Sums are at most 255 * total: below 2^24. Exact while sum * (total - 1) < 2^40.
  if (total >= 4096 && total < 65536) {
    const V reciprocal = _mm256_set1_epi64x(static_cast<int64_t>(((UINT64_C(1) << 40) + total - 1) / total));
    for (; i + 8 <= samples; i += 8) {
      const V sum = _mm256_loadu_si256(reinterpret_cast<const V*>(sums + i));
      const V even = _mm256_srli_epi64(_mm256_mul_epu32(sum, reciprocal), 40);
      const V odd = _mm256_srli_epi64(_mm256_mul_epu32(_mm256_srli_epi64(sum, 32), reciprocal), 40);
      StoreBytes(target + i, _mm256_or_si256(even, _mm256_slli_epi64(odd, 32)));
    }
  }
  Portable8().divideRow(target + i, sums + i, total, samples - i);
}

/// As many of each row as of another, at least 32 samples, some at the end perhaps twice: sums of words, at most 255 *
/// 8, whose division is exact while sum * (count - 1) < 2^16.
void AverageEqualRows(uint8_t* target, const uint8_t* const* rows, int32_t count, int64_t samples) noexcept {
  const V zero = _mm256_setzero_si256();
  const V reciprocal = _mm256_set1_epi16(static_cast<int16_t>((65536 + count - 1) / count));
  for (int64_t next = 0; next < samples; next += 32) {
    const int64_t i = next + 32 <= samples ? next : samples - 32;
    V low = zero, high = zero;
    for (int32_t row = 0; row < count; ++row) {
      const V bytes = _mm256_loadu_si256(reinterpret_cast<const V*>(rows[row] + i));
      low = _mm256_add_epi16(low, _mm256_unpacklo_epi8(bytes, zero));
      high = _mm256_add_epi16(high, _mm256_unpackhi_epi8(bytes, zero));
    }
    const V bytes = _mm256_packus_epi16(_mm256_mulhi_epu16(low, reciprocal), _mm256_mulhi_epu16(high, reciprocal));
    _mm256_storeu_si256(reinterpret_cast<V*>(target + i), bytes);
  }
}

/// Pairs of rows at a time; all lanes stay in the order of unpacked bytes.
void AverageWeighedRows(uint8_t* target, const uint8_t* const* rows, const uint16_t* weights, int32_t count,
                        uint32_t total, int64_t samples) noexcept {
  const V zero = _mm256_setzero_si256();
  const V reciprocal = _mm256_set1_epi64x(static_cast<int64_t>(((UINT64_C(1) << 40) + total - 1) / total));
  const V upper = _mm256_set1_epi64x(INT64_C(0xFF00000000));
  V pairs[kMostRows / 2];
  for (int32_t row = 0; row < count; row += 2) {
    const uint32_t second = row + 1 < count ? weights[row + 1] : 0;
    pairs[row / 2] = _mm256_set1_epi32(static_cast<int32_t>(weights[row] | second << 16));
  }
  const auto quotients = [&](V sums) {
    const V even = _mm256_mul_epu32(sums, reciprocal);
    const V odd = _mm256_mul_epu32(_mm256_srli_epi64(sums, 32), reciprocal);
    return _mm256_or_si256(_mm256_srli_epi64(even, 40), _mm256_and_si256(_mm256_srli_epi64(odd, 8), upper));
  };
  for (int64_t next = 0; next < samples; next += 32) {
    const int64_t i = next + 32 <= samples ? next : samples - 32;
    V sums[4] = {zero, zero, zero, zero};
    for (int32_t row = 0; row < count; row += 2) {
      const V a = _mm256_loadu_si256(reinterpret_cast<const V*>(rows[row] + i));
      const V b = row + 1 < count ? _mm256_loadu_si256(reinterpret_cast<const V*>(rows[row + 1] + i)) : zero;
      const V low = _mm256_unpacklo_epi8(a, b), high = _mm256_unpackhi_epi8(a, b);
      const V factors = pairs[row / 2];
      sums[0] = _mm256_add_epi32(sums[0], _mm256_madd_epi16(_mm256_unpacklo_epi8(low, zero), factors));
      sums[1] = _mm256_add_epi32(sums[1], _mm256_madd_epi16(_mm256_unpackhi_epi8(low, zero), factors));
      sums[2] = _mm256_add_epi32(sums[2], _mm256_madd_epi16(_mm256_unpacklo_epi8(high, zero), factors));
      sums[3] = _mm256_add_epi32(sums[3], _mm256_madd_epi16(_mm256_unpackhi_epi8(high, zero), factors));
    }
    const V low = _mm256_packus_epi32(quotients(sums[0]), quotients(sums[1]));
    const V high = _mm256_packus_epi32(quotients(sums[2]), quotients(sums[3]));
    _mm256_storeu_si256(reinterpret_cast<V*>(target + i), _mm256_packus_epi16(low, high));
  }
}

void AverageRows8(void* to, const void* const* from, const uint16_t* weights, int32_t count, int64_t samples) noexcept {
  auto* const target = static_cast<uint8_t*>(to);
  const uint8_t* rows[kMostRows];
  uint32_t total = 0;
  bool equal = count > 1;
  for (int32_t i = 0; i < count; ++i) {
    rows[i] = static_cast<const uint8_t*>(from[i]);
    total += weights[i];
    equal = equal && weights[i] == weights[0];
  }
  if (total < 4096 || total >= 65536 || samples < 32)
    Portable8().averageRows(target, from, weights, count, samples);
  else if (equal)
    AverageEqualRows(target, rows, count, samples);
  else
    AverageWeighedRows(target, rows, weights, count, total, samples);
}

/// At least 32 samples, some at the end perhaps twice. The instruction rounds up.
void HalfwayRow(uint8_t* target, const uint8_t* a, const uint8_t* b, int64_t samples) noexcept {
  const V one = _mm256_set1_epi8(1);
  for (int64_t next = 0; next < samples; next += 32) {
    const int64_t i = next + 32 <= samples ? next : samples - 32;
    const V from = _mm256_loadu_si256(reinterpret_cast<const V*>(a + i));
    const V to = _mm256_loadu_si256(reinterpret_cast<const V*>(b + i));
    const V odd = _mm256_and_si256(_mm256_xor_si256(from, to), one);
    _mm256_storeu_si256(reinterpret_cast<V*>(target + i), _mm256_sub_epi8(_mm256_avg_epu8(from, to), odd));
  }
}

void LinearRow8(void* to, const void* first, const void* second, int32_t k, int32_t n, int64_t samples) noexcept {
  auto* const target = static_cast<uint8_t*>(to);
  const auto* const a = static_cast<const uint8_t*>(first);
  const auto* const b = static_cast<const uint8_t*>(second);
  if (n == 2 && k == 1 && samples >= 32) return HalfwayRow(target, a, b, samples);
  int64_t i = 0;
  // (n - k) a + k b is at most 255 n. Exact while 255 n (n - 1) < 2^16.
  if (n > 1 && n <= kMostLinearSteps) {
    const V weights = _mm256_set1_epi16(static_cast<int16_t>(n - k + k * 256));
    const V reciprocal = _mm256_set1_epi16(static_cast<int16_t>((65536 + n - 1) / n));
    for (int64_t next = 0; samples >= 32 && next < samples; next += 32) {
      i = next + 32 <= samples ? next : samples - 32;  // some at the end twice
      const V from = _mm256_loadu_si256(reinterpret_cast<const V*>(a + i));
      const V behind = _mm256_loadu_si256(reinterpret_cast<const V*>(b + i));
      const V low = _mm256_maddubs_epi16(_mm256_unpacklo_epi8(from, behind), weights);
      const V high = _mm256_maddubs_epi16(_mm256_unpackhi_epi8(from, behind), weights);
      const V bytes = _mm256_packus_epi16(_mm256_mulhi_epu16(low, reciprocal), _mm256_mulhi_epu16(high, reciprocal));
      _mm256_storeu_si256(reinterpret_cast<V*>(target + i), bytes);
    }
    if (samples >= 32) return;
  }
  // k (b - a) + 255 n is 0 .. 510 n - 1, its quotient 255 too large. Exact while 510 n (n - 1) < 2^22, and the product
  // then stays below 2^32.
  if (n <= 90) {
    const V factor = _mm256_set1_epi32(k);
    const V shift = _mm256_set1_epi32(255 * n);
    const V reciprocal = _mm256_set1_epi32(((1 << 22) + n - 1) / n);
    const V back = _mm256_set1_epi32(255);
    for (; i + 8 <= samples; i += 8) {
      const V from = LoadBytes(a + i);
      const V difference = _mm256_sub_epi32(LoadBytes(b + i), from);
      const V shifted = _mm256_add_epi32(_mm256_mullo_epi32(difference, factor), shift);
      const V quotient = _mm256_srli_epi32(_mm256_mullo_epi32(shifted, reciprocal), 22);
      StoreBytes(target + i, _mm256_add_epi32(_mm256_sub_epi32(quotient, back), from));
    }
  }
  Portable8().linearRow(target + i, a + i, b + i, k, n, samples - i);
}

// ---- Lines of bytes ------------------------------------------------------------------------------------------------

/// Nearly all cells have one total: its reciprocal is kept.
template <int kChannels>
void BoxPixels(uint8_t* target, const uint8_t* source, const BoxCell* cells, int64_t count) noexcept {
  uint64_t known = 0;
  uint64_t reciprocal = 0;
  for (int64_t i = 0; i < count; ++i, target += kChannels) {
    const BoxCell cell = cells[i];
    const uint64_t total = uint64_t{4096} * static_cast<uint32_t>(cell.whole) + cell.firstWeight + cell.endWeight;
    const uint8_t* at = source + static_cast<int64_t>(cell.first) * kChannels;
    uint32_t sums[kChannels];
    uint32_t whole[kChannels] = {};
    for (int c = 0; c < kChannels; ++c) sums[c] = at[c] * uint32_t{cell.firstWeight};
    for (int32_t n = 0; n < cell.whole; ++n) {
      at += kChannels;
      for (int c = 0; c < kChannels; ++c) whole[c] += at[c];
    }
    at += kChannels;
    for (int c = 0; cell.endWeight && c < kChannels; ++c) sums[c] += at[c] * uint32_t{cell.endWeight};
    if (total >= 65536) {
      for (int c = 0; c < kChannels; ++c)
        target[c] = static_cast<uint8_t>((sums[c] + whole[c] * 4096) / static_cast<uint32_t>(total));
      continue;
    }
    if (total != known) {
      known = total;
      reciprocal = ((UINT64_C(1) << 40) + total - 1) / total;
    }
    for (int c = 0; c < kChannels; ++c)
      target[c] = static_cast<uint8_t>((sums[c] + whole[c] * 4096) * reciprocal >> 40);
  }
}

void BoxLine8(void* to, const void* from, const BoxCell* cells, int64_t count, int32_t channels) noexcept {
  auto* const target = static_cast<uint8_t*>(to);
  const auto* const source = static_cast<const uint8_t*>(from);
  if (channels == 1) return BoxPixels<1>(target, source, cells, count);
  if (channels == 3) return BoxPixels<3>(target, source, cells, count);
  BoxPixels<4>(target, source, cells, count);
}
void BoxLineWide8(void* to, const void* from, const BoxCell* cells, int64_t count, int32_t channels) noexcept {
  Portable8().boxLineWide(to, from, cells, count, channels);
}
void WeighRowWide8(void* sums, const void* row, uint32_t weight, int64_t samples, bool add) noexcept {
  Portable8().weighRowWide(sums, row, weight, samples, add);
}
void DivideRowWide8(void* to, const void* sums, uint64_t total, int64_t samples) noexcept {
  Portable8().divideRowWide(to, sums, total, samples);
}
void LinearLine8(void* to, const void* from, const LinearSpot* spots, int64_t count, int32_t channels) noexcept {
  Portable8().linearLine(to, from, spots, count, channels);
}
void SplineDerivatives8(void* derivatives, const void* source, int64_t pixels, int32_t channels,
                        uint8_t* work) noexcept {
  Portable8().splineDerivatives(derivatives, source, pixels, channels, work);
}
void SplineLine8(void* to, const void* from, const void* derivatives, const SplineSpot* spots, int64_t count,
                 int32_t channels) noexcept {
  Portable8().splineLine(to, from, derivatives, spots, count, channels);
}

constexpr SampleKernels Bytes(decltype(SampleKernels::splineRow) splineRow) noexcept {
  return {.narrowTotal = 1 << 24,
          .narrowSumBytes = 4,
          .wideSumBytes = 8,
          .realBytes = 4,
          .boxLine = BoxLine8,
          .boxLineWide = BoxLineWide8,
          .weighRow = WeighRow8,
          .weighRowWide = WeighRowWide8,
          .divideRow = DivideRow8,
          .divideRowWide = DivideRowWide8,
          .averageRows = AverageRows8,
          .linearLine = LinearLine8,
          .linearRow = LinearRow8,
          .splineDerivatives = SplineDerivatives8,
          .splineLine = SplineLine8,
          .splineRow = splineRow};
}

}  // namespace

constinit const SampleKernels kBytesAvx2 = Bytes(SplineRow8_Avx2);
constinit const SampleKernels kBytesAvx512 = Bytes(SplineRow8_Avx512);

/// Words of 4 or 8 bytes. Eight or four are read before any is written.
void Gather_Avx2(uint8_t* target, const uint8_t* source, const uint32_t* indices, int64_t count,
                 int32_t bytes) noexcept {
  int64_t i = 0;
  if (bytes == 4) {
    for (; i + 8 <= count; i += 8) {
      const V at = _mm256_loadu_si256(reinterpret_cast<const V*>(indices + i));
      const V pixels = _mm256_i32gather_epi32(reinterpret_cast<const int*>(source), at, 4);
      _mm256_storeu_si256(reinterpret_cast<V*>(target + i * 4), pixels);
    }
  } else if (bytes == 8) {
    for (; i + 4 <= count; i += 4) {
      const __m128i at = _mm_loadu_si128(reinterpret_cast<const __m128i*>(indices + i));
      const V pixels = _mm256_i32gather_epi64(reinterpret_cast<const long long*>(source), at, 8);
      _mm256_storeu_si256(reinterpret_cast<V*>(target + i * 8), pixels);
    }
  }
  kScalePortable.gather(target + i * bytes, source, indices + i, count - i, bytes);
}

void CountInk_Avx2(uint32_t* counters, const uint8_t* line, uint64_t bytes, const uint32_t* starts, int64_t count,
                   bool zeros) noexcept {
  kScalePortable.countInk(counters, line, bytes, starts, count, zeros);
}

constinit const ScaleKernels kScaleAvx2 = {
    .window = 16,
    .takeBytes = TakeBytes_Avx2,
    .boxTaps = BoxTaps_Avx2,
    .boxTaps16 = BoxTaps16_Avx2,
    .linearTaps = LinearTaps_Avx2,
    .linearTaps16 = LinearTaps16_Avx2,
    .averageBytes = AverageBytes_Avx2,
    .splineRows = SplineRows_Avx2,
    .takeBits = TakeBits_Avx2,
    .repeatBits = RepeatBits_Avx2,
    .doubleBits = DoubleBits_Avx2,
    .inkCells = InkCells_Avx2,
    .gather = Gather_Avx2,
    .countInk = CountInk_Avx2,
    .samples = {&kBytesAvx2, &kWordsAvx2, &kSamplesPortable[2], &kSamplesPortable[3], &kSamplesPortable[4]}};

}  // namespace tarn
