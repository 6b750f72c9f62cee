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

/// Calls with the bytes of each block and its two tables; `make` gives a vector of which the first `samples` bytes are
/// of the result.
template <int kSamples, class Make>
void ForBlocks(uint8_t* target, const uint8_t* source, const Taps& taps, Make&& make) noexcept {
  const uint32_t* base = taps.base;
  const uint8_t* data = taps.data;
  for (int64_t left = taps.count; left > 0; left -= kSamples, ++base, data += kPart, target += kSamples) {
    const V bytes = _mm512_permutexvar_epi8(Load(data), Load(source + *base));
    const __mmask64 mask = (left < kSamples ? __mmask64{1} << left : __mmask64{1} << kSamples) - 1;
    _mm512_mask_storeu_epi8(target, mask, make(bytes, Load(data + kWindow), Load(data + 2 * kWindow)));
  }
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
  const uint8_t* data = taps.data;
  const uint32_t* base = taps.base;
  int64_t i = 0;
  for (; i + kWindow <= taps.count; i += kWindow, data += kWindow, ++base)
    _mm512_storeu_si512(target + i, _mm512_permutexvar_epi8(Load(data), Load(source + *base)));
  if (i == taps.count) return;
  const __mmask64 mask = (__mmask64{1} << (taps.count - i)) - 1;
  _mm512_mask_storeu_epi8(target + i, mask, _mm512_permutexvar_epi8(Load(data), Load(source + *base)));
}

void BoxTaps_Avx512(uint8_t* target, const uint8_t* source, const Taps& taps, uint32_t total) noexcept {
  // Sums are at most 255 * total: below 2^24. Exact while sum * (total - 1) < 2^40; bits 40 to 47 are the quotient.
  const V reciprocal = _mm512_set1_epi64(static_cast<int64_t>(((UINT64_C(1) << 40) + total - 1) / total));
  const V quotients = _mm512_load_si512(kQuotients.at);
  ForBlocks<kWindow / kBoxTaps>(target, source, taps, [&](V bytes, V high, V low) {
    const V highs = _mm512_slli_epi32(_mm512_dpbusd_epi32(_mm512_setzero_si512(), bytes, high), 6);
    const V sums = _mm512_dpbusd_epi32(highs, bytes, low);
    const V even = _mm512_mul_epu32(sums, reciprocal);
    const V odd = _mm512_mul_epu32(_mm512_srli_epi64(sums, 32), reciprocal);
    return _mm512_permutex2var_epi8(even, quotients, odd);
  });
}

void BoxTaps16_Avx512(uint8_t* target, const uint8_t* source, const Taps& taps, uint32_t total) noexcept {
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

void LinearTaps_Avx512(uint8_t* target, const uint8_t* source, const Taps& taps) noexcept {
  // Sums are at most 255 n. Exact while 255 n (n - 1) < 2^16.
  ForBlocks<kWindow / kLinearTaps>(target, source, taps, [](V bytes, V weights, V reciprocals) {
    const V words = _mm512_mulhi_epu16(_mm512_maddubs_epi16(bytes, weights), reciprocals);
    return _mm512_castsi256_si512(_mm512_cvtepi16_epi8(words));
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
    .samples = {&kBytesAvx2, &kWordsAvx2, &kSamplesPortable[2], &kSamplesPortable[3], &kSamplesPortable[4]}};

}  // namespace tarn
