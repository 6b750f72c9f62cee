// Averages of words and what lies between two. Samples less 32768 are signed words, whose sums with weights fit 32 bits
// and come out by 32768 * total too small. Quotients are products with a reciprocal that is too small by more than
// single precision is wrong, and by so little that they come out right or by one too small.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Scale.h"

namespace tarn {
namespace {

using V = __m256i;

constexpr int kWindow = 16;
constexpr int kPart = 3 * kWindow;
constexpr int64_t kVector = 16;  // words
constexpr uint32_t kMostTotal = 32768;

const SampleKernels& Portable16() noexcept { return kSamplesPortable[static_cast<int>(Sample::kU16)]; }

__m128i Load16(const uint8_t* at) noexcept { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); }
V LoadPair(const uint8_t* low, const uint8_t* high) noexcept {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(Load16(low)), Load16(high), 1);
}
V Signed(V words) noexcept { return _mm256_xor_si256(words, _mm256_set1_epi16(INT16_MIN)); }

class Division {
 public:
  /// At most 32768: sums, when they are right, stay below 2^31.
  explicit Division(uint32_t total) noexcept
      : back_(_mm256_set1_epi32(static_cast<int32_t>(32768 * total))),
        total_(_mm256_set1_epi32(static_cast<int32_t>(total))),
        most_(_mm256_set1_epi32(static_cast<int32_t>(total - 1))),
        reciprocal_(_mm256_set1_ps(static_cast<float>((1.0 - 1.0 / (1 << 20)) / total))) {}
  [[nodiscard]] V Of(V sums) const noexcept {
    const V whole = _mm256_add_epi32(sums, back_);
    const V less = _mm256_cvttps_epi32(_mm256_mul_ps(_mm256_cvtepi32_ps(whole), reciprocal_));
    const V rest = _mm256_sub_epi32(whole, _mm256_mullo_epi32(less, total_));
    return _mm256_sub_epi32(less, _mm256_cmpgt_epi32(rest, most_));
  }

 private:
  V back_, total_, most_;
  __m256 reciprocal_;
};

}  // namespace

namespace {

void BoxTaps16(uint8_t* target, const uint8_t* source, const Taps& taps, const Division& division) noexcept {
  const auto pairs = [&](const uint32_t* base, const uint8_t* data) {  // of four samples
    const V places = LoadPair(data, data + kPart);
    const V words = _mm256_shuffle_epi8(LoadPair(source + base[0], source + base[1]), places);
    return _mm256_madd_epi16(Signed(words), LoadPair(data + kWindow, data + kPart + kWindow));
  };
  const auto eight = [&](const uint32_t* base, const uint8_t* data) {
    const V sums = _mm256_hadd_epi32(pairs(base, data), pairs(base + 2, data + 2 * kPart));
    const V made = division.Of(_mm256_permute4x64_epi64(sums, 0xD8));
    return _mm_packus_epi32(_mm256_castsi256_si128(made), _mm256_extracti128_si256(made, 1));
  };
  const uint32_t* base = taps.base;
  const uint8_t* data = taps.data;
  int64_t left = taps.count;
  for (; left >= 8; left -= 8, base += 4, data += 4 * kPart, target += 16)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target), eight(base, data));
  if (left == 0) return;
  uint32_t lastBase[4];
  uint8_t lastData[4 * kPart];
  for (int i = 0; i < 4; ++i) {
    const int64_t block = 2 * i < left ? i : 0;
    lastBase[i] = base[block];
    __builtin_memcpy(lastData + i * kPart, data + block * kPart, kPart);
  }
  const __m128i last = eight(lastBase, lastData);
  __builtin_memcpy(target, &last, static_cast<size_t>(2 * left));
}

}  // namespace

void BoxTaps16_Avx2(const TapLines& lines, const Taps& taps, uint32_t total) noexcept {
  const Division division(total);
  for (int32_t line = 0; line < lines.count; ++line)
    BoxTaps16(lines.targets[line], lines.sources[line], taps, division);
}

void AverageRows16_Avx2(void* to, const void* const* from, const uint16_t* weights, int32_t count,
                        int64_t samples) noexcept {
  auto* const target = static_cast<uint16_t*>(to);
  const uint16_t* rows[kMostRows];
  V pairs[kMostRows / 2];
  uint32_t total = 0;
  for (int32_t i = 0; i < count; ++i) {
    rows[i] = static_cast<const uint16_t*>(from[i]);
    total += weights[i];
  }
  for (int32_t i = 0; i < count; i += 2) {
    const uint32_t second = i + 1 < count ? weights[i + 1] : 0;
    pairs[i / 2] = _mm256_set1_epi32(static_cast<int32_t>(weights[i] | second << 16));
  }
  if (samples < kVector || total > kMostTotal) return Portable16().averageRows(to, from, weights, count, samples);
  const Division division(total);
  for (int64_t next = 0; next < samples; next += kVector) {
    const int64_t i = next + kVector <= samples ? next : samples - kVector;  // some at the end twice
    V low = _mm256_setzero_si256(), high = low;
    for (int32_t row = 0; row < count; row += 2) {
      const V a = Signed(_mm256_loadu_si256(reinterpret_cast<const V*>(rows[row] + i)));
      const V b = row + 1 < count ? Signed(_mm256_loadu_si256(reinterpret_cast<const V*>(rows[row + 1] + i))) : a;
      low = _mm256_add_epi32(low, _mm256_madd_epi16(_mm256_unpacklo_epi16(a, b), pairs[row / 2]));
      high = _mm256_add_epi32(high, _mm256_madd_epi16(_mm256_unpackhi_epi16(a, b), pairs[row / 2]));
    }
    const V made = _mm256_packus_epi32(division.Of(low), division.Of(high));
    _mm256_storeu_si256(reinterpret_cast<V*>(target + i), made);
  }
}

void LinearTaps16_Avx2(uint8_t* target, const uint8_t* source, const Taps& taps) noexcept {
  // Sums of samples less 32768. A half added to a sum is 1 / 32 or more from any multiple of n, the quotient is wrong
  // by less than 1 / 64.
  const __m256 half = _mm256_set1_ps(0.5f), back = _mm256_set1_ps(32768);
  const auto eight = [&](int64_t block, int64_t other) {  // four of each block
    const uint8_t* const data = taps.data + block * kPart;
    const uint8_t* const otherData = taps.data + other * kPart;
    const V from = LoadPair(source + taps.base[block], source + taps.base[other]);
    const V words = Signed(_mm256_shuffle_epi8(from, LoadPair(data, otherData)));
    const V sums = _mm256_madd_epi16(words, LoadPair(data + kWindow, otherData + kWindow));
    const __m256 reciprocals = _mm256_castsi256_ps(LoadPair(data + 2 * kWindow, otherData + 2 * kWindow));
    const __m256 quotients = _mm256_mul_ps(_mm256_add_ps(_mm256_cvtepi32_ps(sums), half), reciprocals);
    const V made = _mm256_cvttps_epi32(_mm256_add_ps(quotients, back));
    return _mm_packus_epi32(_mm256_castsi256_si128(made), _mm256_extracti128_si256(made, 1));
  };
  int64_t block = 0;
  int64_t left = taps.count;
  for (; left >= 8; left -= 8, block += 2, target += 16)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target), eight(block, block + 1));
  if (left == 0) return;
  const __m128i last = eight(block, left > 4 ? block + 1 : block);
  __builtin_memcpy(target, &last, static_cast<size_t>(2 * left));
}

namespace {

// The rest goes one sample at a time.
void BoxLine16(void* target, const void* source, const BoxCell* cells, int64_t count, int32_t channels) noexcept {
  Portable16().boxLine(target, source, cells, count, channels);
}
void BoxLineWide16(void* target, const void* source, const BoxCell* cells, int64_t count, int32_t channels) noexcept {
  Portable16().boxLineWide(target, source, cells, count, channels);
}
void WeighRow16(void* sums, const void* row, uint32_t weight, int64_t samples, bool add) noexcept {
  Portable16().weighRow(sums, row, weight, samples, add);
}
void WeighRowWide16(void* sums, const void* row, uint32_t weight, int64_t samples, bool add) noexcept {
  Portable16().weighRowWide(sums, row, weight, samples, add);
}
void DivideRow16(void* target, const void* sums, uint64_t total, int64_t samples) noexcept {
  Portable16().divideRow(target, sums, total, samples);
}
void DivideRowWide16(void* target, const void* sums, uint64_t total, int64_t samples) noexcept {
  Portable16().divideRowWide(target, sums, total, samples);
}
void LinearLine16(void* target, const void* source, const LinearSpot* spots, int64_t count, int32_t channels) noexcept {
  Portable16().linearLine(target, source, spots, count, channels);
}
void LinearRow16(void* to, const void* first, const void* second, int32_t k, int32_t n, int64_t samples) noexcept {
  if (samples < kVector || n > kMostLinearSteps) return Portable16().linearRow(to, first, second, k, n, samples);
  auto* const target = static_cast<uint16_t*>(to);
  const auto* const a = static_cast<const uint16_t*>(first);
  const auto* const b = static_cast<const uint16_t*>(second);
  const V weights = _mm256_set1_epi32(n - k + k * 65536);
  const __m256 half = _mm256_set1_ps(0.5f), back = _mm256_set1_ps(32768);
  const __m256 reciprocal = _mm256_set1_ps(1.0f / static_cast<float>(n));
  const auto between = [&](V pairs) {  // as in lines
    const __m256 sums = _mm256_add_ps(_mm256_cvtepi32_ps(_mm256_madd_epi16(pairs, weights)), half);
    return _mm256_cvttps_epi32(_mm256_add_ps(_mm256_mul_ps(sums, reciprocal), back));
  };
  for (int64_t next = 0; next < samples; next += kVector) {
    const int64_t i = next + kVector <= samples ? next : samples - kVector;  // some at the end twice
    const V from = Signed(_mm256_loadu_si256(reinterpret_cast<const V*>(a + i)));
    const V behind = Signed(_mm256_loadu_si256(reinterpret_cast<const V*>(b + i)));
    const V low = between(_mm256_unpacklo_epi16(from, behind)), high = between(_mm256_unpackhi_epi16(from, behind));
    _mm256_storeu_si256(reinterpret_cast<V*>(target + i), _mm256_packus_epi32(low, high));
  }
}
void SplineDerivatives16(void* derivatives, const void* source, int64_t pixels, int32_t channels,
                         uint8_t* work) noexcept {
  Portable16().splineDerivatives(derivatives, source, pixels, channels, work);
}
void SplineLine16(void* target, const void* source, const void* derivatives, const SplineSpot* spots, int64_t count,
                  int32_t channels) noexcept {
  Portable16().splineLine(target, source, derivatives, spots, count, channels);
}
void SplineRow16(void* target, const void* const* rows, const SplineSpot& spot, int64_t samples) noexcept {
  Portable16().splineRow(target, rows, spot, samples);
}

}  // namespace

constinit const SampleKernels kWordsAvx2 = {.narrowTotal = 1 << 16,
                                            .narrowSumBytes = 4,
                                            .wideSumBytes = 8,
                                            .realBytes = 4,
                                            .boxLine = BoxLine16,
                                            .boxLineWide = BoxLineWide16,
                                            .weighRow = WeighRow16,
                                            .weighRowWide = WeighRowWide16,
                                            .divideRow = DivideRow16,
                                            .divideRowWide = DivideRowWide16,
                                            .averageRows = AverageRows16_Avx2,
                                            .linearLine = LinearLine16,
                                            .linearRow = LinearRow16,
                                            .splineDerivatives = SplineDerivatives16,
                                            .splineLine = SplineLine16,
                                            .splineRow = SplineRow16};

}  // namespace tarn
