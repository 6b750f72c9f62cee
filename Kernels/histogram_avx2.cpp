// Counting of colours: the key is one instruction.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Histogram.h"

namespace tarn {
namespace {

uint32_t KeyAt(const uint8_t* pixel) noexcept {
  uint32_t word;
  __builtin_memcpy(&word, pixel, 4);
  return _pext_u32(word, 0xF8F8F8);
}

void Count(KeyCounts& counts, uint32_t* table, uint32_t key) noexcept {
  ++table[key];
  if (!counts.seen[key]) [[unlikely]] {
    counts.seen[key] = 1;
    counts.keys[counts.keyCount++] = static_cast<uint16_t>(key);
  }
}

}  // namespace

void CountKeys_Avx2(KeyCounts& counts, const uint8_t* pixels, int64_t count) noexcept {
  uint32_t* const even = counts.counts[0];
  uint32_t* const odd = counts.counts[1];
  int64_t i = 0;
  for (; i + 2 <= count; i += 2, pixels += 8) {
    const uint32_t first = KeyAt(pixels), second = KeyAt(pixels + 4);
    Count(counts, even, first);
    Count(counts, odd, second);
  }
  if (i < count) Count(counts, even, KeyAt(pixels));
}

uint32_t MarkColors_Avx2(uint32_t* set, const uint8_t* pixels, int64_t count, bool near) noexcept {
  const auto all = [](uint32_t value) { return _mm256_set1_epi32(static_cast<int32_t>(value)); };
  const auto field = [](__m256i words, int shift, __m256i mask) {
    return _mm256_and_si256(_mm256_srli_epi32(words, shift), mask);
  };
  uint32_t fresh = 0;
  int64_t i = 0;
  for (; i + 8 <= count; i += 8) {
    __m256i colors = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(pixels + 4 * i));
    if (near) {
      const __m256i low = _mm256_or_si256(_mm256_or_si256(field(colors, 0, all(7)), field(colors, 5, all(0x38))),
                                          field(colors, 10, all(0x1C0)));
      const __m256i top = field(colors, 3, all(0x1F1F1F));  // as in the keys of ordered dithering
      const __m256i pairs = _mm256_maddubs_epi16(top, all(0x00402001));
      colors = _mm256_or_si256(_mm256_slli_epi32(_mm256_madd_epi16(pairs, all(0x00100001)), 9), low);
    }
    alignas(32) uint32_t each[8];
    _mm256_store_si256(reinterpret_cast<__m256i*>(each), colors);
    for (const uint32_t color : each) {
      uint32_t& word = set[color >> 5];
      if (word >> (color & 31) & 1) [[likely]]
        continue;
      word |= 1u << (color & 31);
      ++fresh;
    }
  }
  return fresh + MarkColors_Portable(set, pixels + 4 * i, count - i, near);
}

}  // namespace tarn
