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

}  // namespace tarn
