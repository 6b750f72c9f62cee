// Lines of bytes of which every 64 that are needed together lie close together: one permutation brings them into place.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Scale.h"

namespace tarn {
namespace {

using V = __m512i;

constexpr int kWindow = 64;
constexpr int kPart = 3 * kWindow;  // of the data of sums

V Load(const uint8_t* at) noexcept { return _mm512_loadu_si512(at); }

/// The first kBytes bytes, or as many as are left. Masked stores take longer than others.
template <int kBytes>
void Store(uint8_t* target, V bytes, int64_t left) noexcept {
  if (left >= kBytes)
    __builtin_memcpy(target, &bytes, kBytes);
  else
    _mm512_mask_storeu_epi8(target, (__mmask64{1} << left) - 1, bytes);
}

/// The tables of a block.
struct Tables {
  explicit Tables(const uint8_t* data) noexcept
      : places(Load(data)), first(Load(data + kWindow)), second(Load(data + 2 * kWindow)) {}
  V places, first, second;
};

/// Calls with each block and its tables. By value and inlined: bytes are stored between, which may be anything's.
template <class Block>
[[gnu::always_inline]] inline void ForBlocks(const Taps taps, int64_t samples, const Block each) noexcept {
  const int64_t blocks = (taps.count + samples - 1) / samples;
  int64_t block = 0;
  for (; block < blocks && (block < taps.start || taps.period != 1); ++block)
    each(block, Tables(taps.DataOf(block, kPart)));
  if (block < taps.end) {
    for (const Tables tables(taps.DataOf(block, kPart)); block < taps.end; ++block) each(block, tables);
  }
  for (; block < blocks; ++block) each(block, Tables(taps.DataOf(block, kPart)));
}

/// The fifth byte of each half: even and odd lanes by turns.
struct Quotients {
  alignas(64) uint8_t at[64];
  constexpr Quotients() noexcept : at{} {
    for (int i = 0; i < 16; ++i) at[i] = static_cast<uint8_t>(i % 2 * 64 + i / 2 * 8 + 5);
  }
};
constexpr Quotients kQuotients;

}  // namespace

void TakeBytes_Avx512(uint8_t* target, const uint8_t* source, const Taps& taps) noexcept {
  const auto take = [=, base = taps.base, count = taps.count](int64_t block, V places) {
    const int64_t i = block * kWindow;
    Store<kWindow>(target + i, _mm512_permutexvar_epi8(places, Load(source + base[block])), count - i);
  };
  const int64_t blocks = (taps.count + kWindow - 1) / kWindow;
  const auto data = [=](int64_t block) { return Load(taps.DataOf(block, kWindow)); };
  int64_t block = 0;
  if (taps.start == 0 && taps.period == 1) {
    for (const V places = data(0); block < taps.end; ++block) take(block, places);
  } else if (taps.start == 0 && taps.period == 3) {
    const V places[3] = {data(0), data(1), data(2)};
    for (; block + 3 <= taps.end; block += 3) {
      for (int i = 0; i < 3; ++i) take(block + i, places[i]);
    }
  }
  for (; block < blocks; ++block) take(block, data(block));
}

void BoxTaps_Avx512(const TapLines& lines, const Taps& taps, uint32_t total) noexcept {
  // Sums are at most 255 * total: below 2^24. Exact while sum * (total - 1) < 2^40; bits 40 to 47 are the quotient.
  const V reciprocal = _mm512_set1_epi64(static_cast<int64_t>(((UINT64_C(1) << 40) + total - 1) / total));
  const V quotients = _mm512_load_si512(kQuotients.at);
  constexpr int kSamples = kWindow / kBoxTaps;
  ForBlocks(taps, kSamples, [=, base = taps.base, samples = taps.count](int64_t block, const Tables& tables) {
    const int64_t i = block * kSamples;
    const uint32_t first = base[block];
    for (int32_t line = 0; line < lines.count; ++line) {
      const V bytes = _mm512_permutexvar_epi8(tables.places, Load(lines.sources[line] + first));
      const V highs = _mm512_slli_epi32(_mm512_dpbusd_epi32(_mm512_setzero_si512(), bytes, tables.first), 6);
      const V sums = _mm512_dpbusd_epi32(highs, bytes, tables.second);
      const V even = _mm512_mul_epu32(sums, reciprocal);
      const V odd = _mm512_mul_epu32(_mm512_srli_epi64(sums, 32), reciprocal);
      Store<kSamples>(lines.targets[line] + i, _mm512_permutex2var_epi8(even, quotients, odd), samples - i);
    }
  });
}

namespace {

void BoxTaps16(uint8_t* target, const uint8_t* source, const Taps& taps, uint32_t total) noexcept {
  // Samples less 32768 are signed words, and the sum comes out by 32768 * total too small. A half added to it is
  // further from any multiple of the total than the product with the reciprocal is wrong.
  const __m512d back = _mm512_set1_pd(32768.0 * total + 0.5);
  const __m512d reciprocal = _mm512_set1_pd(1.0 / total);
  const V top = _mm512_set1_epi16(INT16_MIN);
  constexpr int kSamples = 8;
  const uint32_t* base = taps.base;
  const uint8_t* data = taps.data;
  for (int64_t left = taps.count; left > 0; left -= kSamples, ++base, data += kPart, target += 2 * kSamples) {
    const V words = _mm512_xor_si512(_mm512_permutexvar_epi8(Load(data), Load(source + *base)), top);
    const V pairs = _mm512_madd_epi16(words, Load(data + kWindow));
    const __m256i sums = _mm512_cvtepi64_epi32(_mm512_add_epi32(pairs, _mm512_srli_epi64(pairs, 32)));
    const __m512d averages = _mm512_mul_pd(_mm512_add_pd(_mm512_cvtepi32_pd(sums), back), reciprocal);
    const __m128i made = _mm256_cvtepi32_epi16(_mm512_cvttpd_epi32(averages));
    const auto mask = static_cast<__mmask8>(left < kSamples ? (1 << left) - 1 : 0xFF);
    _mm_mask_storeu_epi16(target, mask, made);
  }
}

}  // namespace

void BoxTaps16_Avx512(const TapLines& lines, const Taps& taps, uint32_t total) noexcept {
  for (int32_t line = 0; line < lines.count; ++line) BoxTaps16(lines.targets[line], lines.sources[line], taps, total);
}

void LinearTaps_Avx512(uint8_t* target, const uint8_t* source, const Taps& taps) noexcept {
  // Sums are at most 255 n. Exact while 255 n (n - 1) < 2^16.
  constexpr int kSamples = kWindow / kLinearTaps;
  ForBlocks(taps, kSamples, [=, base = taps.base, samples = taps.count](int64_t block, const Tables& tables) {
    const int64_t i = block * kSamples;
    const V bytes = _mm512_permutexvar_epi8(tables.places, Load(source + base[block]));
    const V words = _mm512_mulhi_epu16(_mm512_maddubs_epi16(bytes, tables.first), tables.second);
    Store<kSamples>(target + i, _mm512_castsi256_si512(_mm512_cvtepi16_epi8(words)), samples - i);
  });
}

constinit const ScaleKernels kScaleAvx512 = {
    .window = kWindow,
    .takeBytes = TakeBytes_Avx512,
    .boxTaps = BoxTaps_Avx512,
    .boxTaps16 = BoxTaps16_Avx512,
    .linearTaps = LinearTaps_Avx512,
    .averageBytes = AverageBytes_Avx2,
    .splineRows = SplineRows_Avx512,
    .takeBits = TakeBits_Avx2,
    .repeatBits = RepeatBits_Avx2,
    .doubleBits = DoubleBits_Avx2,
    .inkCells = InkCells_Avx512,
    .gather = Gather_Avx2,
    .countInk = CountInk_Avx2,
    .samples = {&kBytesAvx512, &kWordsAvx2, &kSamplesPortable[2], &kSamplesPortable[3], &kSamplesPortable[4]}};

}  // namespace tarn
