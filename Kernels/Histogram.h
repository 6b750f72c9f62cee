#pragma once
// Counting of colours by the top five bits of each channel.

#include <cstdint>

namespace tarn {

/// Counts of the 32768 keys red >> 3 << 10 | green >> 3 << 5 | blue >> 3. A key's count is the sum over both tables:
/// neighbours often share a key, and a table that was just written is slow to read.
struct KeyCounts {
  uint32_t* counts[2];
  uint8_t* seen;   // of each key, 0 or 1
  uint16_t* keys;  // those seen, in order of first appearance
  uint32_t keyCount;
};

using CountKeys = void(KeyCounts& counts, const uint8_t* pixels, int64_t count) noexcept;  // B, G, R, any
CountKeys CountKeys_Portable;
CountKeys CountKeys_Avx2;

/// Sets the bit of each colour (blue, green, red, 0) in a set of 2^24 bits; returns how many were not set before. With
/// `near`, bits of similar colours are beside each other: a line of the cache is a cube of 8 a side.
using MarkColors = uint32_t(uint32_t* set, const uint8_t* pixels, int64_t count, bool near) noexcept;
MarkColors MarkColors_Portable;
MarkColors MarkColors_Avx2;

}  // namespace tarn
