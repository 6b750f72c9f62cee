// Counting of colours.

#include <cstdint>

#include "Kernels/Histogram.h"

namespace tarn {
namespace {

uint32_t KeyAt(const uint8_t* pixel) noexcept {
  uint32_t word;
  __builtin_memcpy(&word, pixel, 4);
  return (word >> 3 & 31) | (word >> 6 & 0x3E0) | (word >> 9 & 0x7C00);
}

void Count(KeyCounts& counts, uint32_t* table, uint32_t key) noexcept {
  ++table[key];
  if (!counts.seen[key]) [[unlikely]] {
    counts.seen[key] = 1;
    counts.keys[counts.keyCount++] = static_cast<uint16_t>(key);
  }
}

}  // namespace

void CountKeys_Portable(KeyCounts& counts, const uint8_t* pixels, int64_t count) noexcept {
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

uint32_t MarkColors_Portable(uint32_t* set, const uint8_t* pixels, int64_t count, bool near) noexcept {
  uint32_t fresh = 0;
  for (int64_t i = 0; i < count; ++i, pixels += 4) {
    uint32_t color;
    __builtin_memcpy(&color, pixels, 4);
    if (near) color = KeyAt(pixels) << 9 | (color >> 10 & 0x1C0) | (color >> 5 & 0x38) | (color & 7);
    uint32_t& word = set[color >> 5];
    if (word >> (color & 31) & 1) [[likely]]
      continue;
    word |= 1u << (color & 31);
    ++fresh;
  }
  return fresh;
}

}  // namespace tarn
