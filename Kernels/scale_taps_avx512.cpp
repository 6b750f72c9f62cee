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

void BoxTaps16_Avx512(const TapLines& lines, const Taps& taps, uint32_t total) noexcept {
  // Samples less 32768 are signed words, whose sums are by 32768 * total too small: each half starts with half of that.
  // Sums are below 2^30. The reciprocal is too small by more than single precision is wrong, and by so little that a
  // quotient comes out right or by one too small.
  const V back = _mm512_set1_epi32(static_cast<int32_t>(16384 * total));
  const V divisor = _mm512_set1_epi32(static_cast<int32_t>(total));
  const __m512 reciprocal = _mm512_set1_ps(static_cast<float>((1.0 - 1.0 / (1 << 20)) / total));
  const V top = _mm512_set1_epi16(INT16_MIN);
  const V even = _mm512_setr_epi32(0, 2, 4, 6, 8, 10, 12, 14, 16, 18, 20, 22, 24, 26, 28, 30);
  const V odd = _mm512_add_epi32(even, _mm512_set1_epi32(1));
  constexpr int kSamples = 8;  // of a block; two go together
  for (int64_t block = 0, left = taps.count; left > 0; block += 2, left -= 2 * kSamples) {
    const int64_t other = left > kSamples ? block + 1 : block;
    const uint8_t* const data = taps.data + block * kPart;
    const uint8_t* const otherData = taps.data + other * kPart;
    const V places = Load(data), weights = Load(data + kWindow);
    const V otherPlaces = Load(otherData), otherWeights = Load(otherData + kWindow);
    const uint32_t base = taps.base[block], otherBase = taps.base[other];
    for (int32_t line = 0; line < lines.count; ++line) {
      const uint8_t* const source = lines.sources[line];
      const auto halves = [&](uint32_t from, V at, V by) {
        return _mm512_dpwssd_epi32(back, _mm512_xor_si512(_mm512_permutexvar_epi8(at, Load(source + from)), top), by);
      };
      const V first = halves(base, places, weights), second = halves(otherBase, otherPlaces, otherWeights);
      const V sums = _mm512_add_epi32(_mm512_permutex2var_epi32(first, even, second),
                                      _mm512_permutex2var_epi32(first, odd, second));
      const V less = _mm512_cvttps_epi32(_mm512_mul_ps(_mm512_cvtepi32_ps(sums), reciprocal));
      const V rest = _mm512_sub_epi32(sums, _mm512_mullo_epi32(less, divisor));
      const __mmask16 over = _mm512_cmpge_epi32_mask(rest, divisor);
      const V made = _mm512_mask_sub_epi32(less, over, less, _mm512_set1_epi32(-1));
      Store<4 * kSamples>(lines.targets[line] + block * 2 * kSamples,
                          _mm512_castsi256_si512(_mm512_cvtepi32_epi16(made)), 2 * left);
    }
  }
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

void LinearTaps16_Avx512(uint8_t* target, const uint8_t* source, const Taps& taps) noexcept {
  // Sums of samples less 32768. A half added to a sum is 1 / 32 or more from any multiple of n, the quotient is wrong
  // by less than 1 / 64.
  const V top = _mm512_set1_epi16(INT16_MIN);
  const __m512 half = _mm512_set1_ps(0.5f), back = _mm512_set1_ps(32768);
  constexpr int kSamples = kWindow / 4;
  ForBlocks(taps, kSamples, [=, base = taps.base, samples = taps.count](int64_t block, const Tables& tables) {
    const V words = _mm512_xor_si512(_mm512_permutexvar_epi8(tables.places, Load(source + base[block])), top);
    const __m512 sums = _mm512_add_ps(_mm512_cvtepi32_ps(_mm512_madd_epi16(words, tables.first)), half);
    const __m512 made = _mm512_add_ps(_mm512_mul_ps(sums, _mm512_castsi512_ps(tables.second)), back);
    const int64_t i = block * kSamples;
    Store<2 * kSamples>(target + 2 * i, _mm512_castsi256_si512(_mm512_cvtepi32_epi16(_mm512_cvttps_epi32(made))),
                        2 * (samples - i));
  });
}

constinit const ScaleKernels kScaleAvx512 = {
    .window = kWindow,
    .takeBytes = TakeBytes_Avx512,
    .boxTaps = BoxTaps_Avx512,
    .boxTaps16 = BoxTaps16_Avx512,
    .linearTaps = LinearTaps_Avx512,
    .linearTaps16 = LinearTaps16_Avx512,
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
