// Lines of bytes of which every 16 that are needed together lie close together: one shuffle brings them into place.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Scale.h"

namespace tarn {
namespace {

using V = __m256i;

constexpr int kWindow = 16;
constexpr int kPart = 3 * kWindow;  // of the data of sums

__m128i Load16(const uint8_t* at) noexcept { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); }
V Load(const uint8_t* at) noexcept { return _mm256_loadu_si256(reinterpret_cast<const V*>(at)); }
V LoadPair(const uint8_t* low, const uint8_t* high) noexcept {
  return _mm256_inserti128_si256(_mm256_castsi128_si256(Load16(low)), Load16(high), 1);
}

/// What two blocks of sums need.
struct Pair {
  Pair(const uint8_t* source, const uint32_t* base, const uint8_t* data) noexcept
      : bytes(_mm256_shuffle_epi8(LoadPair(source + base[0], source + base[1]), LoadPair(data, data + kPart))),
        first(LoadPair(data + kWindow, data + kPart + kWindow)),
        second(LoadPair(data + 2 * kWindow, data + kPart + 2 * kWindow)) {}
  V bytes, first, second;
};

/// Calls with pairs of blocks, the last one perhaps with its block two times; `make` gives 16 bytes of which the first
/// `samples` are of the result.
template <class Make>
void ForPairs(uint8_t* target, const uint8_t* source, const Taps& taps, int64_t samples, Make&& make) noexcept {
  const uint32_t* base = taps.base;
  const uint8_t* data = taps.data;
  int64_t left = taps.count;
  for (; left >= samples; left -= samples, base += 2, data += 2 * kPart, target += samples)
    make(Pair(source, base, data), target);
  if (left == 0) return;
  uint8_t last[2 * kWindow];
  const uint32_t lastBase[2] = {base[0], left > samples / 2 ? base[1] : base[0]};
  uint8_t lastData[2 * kPart];
  __builtin_memcpy(lastData, data, kPart);
  __builtin_memcpy(lastData + kPart, left > samples / 2 ? data + kPart : data, kPart);
  make(Pair(source, lastBase, lastData), last);
  __builtin_memcpy(target, last, static_cast<size_t>(left));
}

}  // namespace

void TakeBytes_Avx2(uint8_t* target, const uint8_t* source, const Taps& taps) noexcept {
  const uint8_t* data = taps.data;
  int64_t i = 0;
  const uint32_t* base = taps.base;
  for (; i + kWindow <= taps.count; i += kWindow, data += kWindow, ++base)
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + i), _mm_shuffle_epi8(Load16(source + *base), Load16(data)));
  if (i == taps.count) return;
  uint8_t last[kWindow];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(last), _mm_shuffle_epi8(Load16(source + *base), Load16(data)));
  __builtin_memcpy(target + i, last, static_cast<size_t>(taps.count - i));
}

void BoxTaps_Avx2(const TapLines& lines, const Taps& taps, uint32_t total) noexcept {
  // Sums are at most 255 * total: below 2^24. Exact while sum * (total - 1) < 2^40.
  const V reciprocal = _mm256_set1_epi64x(static_cast<int64_t>(((UINT64_C(1) << 40) + total - 1) / total));
  const V high = _mm256_set1_epi16(64);
  const V low = _mm256_set1_epi16(1);
  const V upper = _mm256_set1_epi64x(INT64_C(0xFF00000000));
  const auto make = [&](const Pair& pair, uint8_t* to) {
    // Two products of a byte and at most 64 fit 16 bits.
    const V highs = _mm256_madd_epi16(_mm256_maddubs_epi16(pair.bytes, pair.first), high);
    const V sums = _mm256_add_epi32(highs, _mm256_madd_epi16(_mm256_maddubs_epi16(pair.bytes, pair.second), low));
    const V even = _mm256_mul_epu32(sums, reciprocal);
    const V odd = _mm256_mul_epu32(_mm256_srli_epi64(sums, 32), reciprocal);
    const V lanes = _mm256_or_si256(_mm256_srli_epi64(even, 40), _mm256_and_si256(_mm256_srli_epi64(odd, 8), upper));
    const V words = _mm256_packus_epi32(lanes, lanes);
    const V bytes = _mm256_packus_epi16(words, words);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(to),
                     _mm_unpacklo_epi32(_mm256_castsi256_si128(bytes), _mm256_extracti128_si256(bytes, 1)));
  };
  for (int32_t line = 0; line < lines.count; ++line) ForPairs(lines.targets[line], lines.sources[line], taps, 8, make);
}

void LinearTaps_Avx2(uint8_t* target, const uint8_t* source, const Taps& taps) noexcept {
  ForPairs(target, source, taps, 16, [&](const Pair& pair, uint8_t* to) {
    // Sums are at most 255 n. Exact while 255 n (n - 1) < 2^16.
    const V words = _mm256_mulhi_epu16(_mm256_maddubs_epi16(pair.bytes, pair.first), pair.second);
    const V bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(words, words), 0x08);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(to), _mm256_castsi256_si128(bytes));
  });
}

void AverageBytes_Avx2(uint8_t* target, const uint8_t* source, int64_t count, int32_t parts) noexcept {
  int64_t i = 0;
  const V ones = _mm256_set1_epi8(1);
  const V wordOnes = _mm256_set1_epi16(1);
  for (; i + 32 <= count; i += 32) {
    const uint8_t* const from = source + i * parts;
    V words[2];
    if (parts == 2) {
      for (int n = 0; n < 2; ++n) words[n] = _mm256_srli_epi16(_mm256_maddubs_epi16(Load(from + 32 * n), ones), 1);
    } else if (parts == 4) {
      for (int n = 0; n < 2; ++n) {
        V fours[2];
        for (int m = 0; m < 2; ++m) {
          const V pairs = _mm256_maddubs_epi16(Load(from + 64 * n + 32 * m), ones);
          fours[m] = _mm256_srli_epi32(_mm256_madd_epi16(pairs, wordOnes), 2);
        }
        words[n] = _mm256_permute4x64_epi64(_mm256_packus_epi32(fours[0], fours[1]), 0xD8);
      }
    } else {
      for (int n = 0; n < 2; ++n) {
        V eights[4];
        for (int m = 0; m < 4; ++m)
          eights[m] = _mm256_srli_epi64(_mm256_sad_epu8(Load(from + 128 * n + 32 * m), _mm256_setzero_si256()), 3);
        const V low = _mm256_packus_epi32(eights[0], eights[1]);  // quarters 0 0 4 4 | 0 0 4 4 of sums
        const V high = _mm256_packus_epi32(eights[2], eights[3]);
        // Words: 0 . 1 . | 4 . 5 . || 2 . 3 . | 6 . 7 . of the eight sums.
        const V lowDwords = _mm256_permutevar8x32_epi32(low, _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7));
        const V highDwords = _mm256_permutevar8x32_epi32(high, _mm256_setr_epi32(0, 1, 4, 5, 2, 3, 6, 7));
        words[n] = _mm256_permute4x64_epi64(_mm256_packus_epi32(lowDwords, highDwords), 0xD8);
      }
    }
    const V bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(words[0], words[1]), 0xD8);
    _mm256_storeu_si256(reinterpret_cast<V*>(target + i), bytes);
  }
  kScalePortable.averageBytes(target + i, source + i * parts, count - i, parts);
}

}  // namespace tarn
