// The nearest entry of a palette, eight at a time: first the distances and the smallest of them, then the entries at
// it.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Kernels.h"

namespace tarn {
namespace {

constexpr uint32_t kLanes = 8;
constexpr uint32_t kChunk = 256;  // entries whose distances are kept

uint32_t Smallest(__m256i values) noexcept {
  __m128i least = _mm_min_epu32(_mm256_castsi256_si128(values), _mm256_extracti128_si256(values, 1));
  least = _mm_min_epu32(least, _mm_shuffle_epi32(least, _MM_SHUFFLE(1, 0, 3, 2)));
  least = _mm_min_epu32(least, _mm_shuffle_epi32(least, _MM_SHUFFLE(2, 3, 0, 1)));
  return static_cast<uint32_t>(_mm_cvtsi128_si32(least));
}

__m256i Equal(const uint32_t* distances, __m256i wanted) noexcept {
  return _mm256_cmpeq_epi32(_mm256_load_si256(reinterpret_cast<const __m256i*>(distances)), wanted);
}

uint32_t LanesEqual(const uint32_t* distances, __m256i wanted) noexcept {
  return static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(Equal(distances, wanted))));
}

/// None of the next 32 distances is the wanted one.
bool NoneEqual(const uint32_t* distances, __m256i wanted) noexcept {
  const __m256i first = _mm256_or_si256(Equal(distances, wanted), Equal(distances + kLanes, wanted));
  const __m256i second = _mm256_or_si256(Equal(distances + 2 * kLanes, wanted), Equal(distances + 3 * kLanes, wanted));
  const __m256i any = _mm256_or_si256(first, second);
  return _mm256_testz_si256(any, any);
}

uint32_t CodeOf(const uint8_t* entry) noexcept { return ColorOrderCode(entry[2], entry[1], entry[0]); }

/// What a search has found so far. Distances above the best never reach it.
struct Best {
  uint32_t color;
  uint32_t distance = UINT32_MAX;
  uint32_t index = 0;

  /// Entry `at` of a chunk is at the chunk's smallest distance.
  void Meet(const uint8_t* chunk, uint32_t at, uint32_t first, uint32_t smallest) noexcept {
    if (smallest == distance &&
        CodeOf(chunk + 4 * at) != ColorOrderCode(color >> 16 & 255, color >> 8 & 255, color & 255))
      return;
    distance = smallest;
    index = first + at;
  }

  /// The entries of a chunk of `count` distances, whole vectors, at the smallest of them.
  void Take(const uint32_t* distances, uint32_t count, uint32_t smallest, const uint8_t* chunk,
            uint32_t first) noexcept {
    if (smallest > distance) return;
    const __m256i wanted = _mm256_set1_epi32(static_cast<int32_t>(smallest));
    for (uint32_t at = 0; at < count; at += kLanes) {
      while (at + 4 * kLanes < count && NoneEqual(distances + at, wanted)) at += 4 * kLanes;
      for (uint32_t lanes = LanesEqual(distances + at, wanted); lanes; lanes &= lanes - 1) {
        Meet(chunk, at + static_cast<uint32_t>(_tzcnt_u32(lanes)), first, smallest);
        if (smallest == 0) return;  // the first equal one wins
      }
    }
  }
};

}  // namespace

uint32_t NearestEntry_Avx2(const uint8_t* entries, uint32_t count, uint32_t color) noexcept {
  const __m256i target = _mm256_set1_epi32(static_cast<int32_t>(color & 0xFFFFFF));
  const __m256i evenBytes = _mm256_set1_epi32(0x00FF00FF);
  const __m256i greenByte = _mm256_set1_epi32(0xFF00);
  const auto distanceOf = [&](__m256i entry) noexcept {
    const __m256i apart = _mm256_or_si256(_mm256_subs_epu8(entry, target), _mm256_subs_epu8(target, entry));
    const __m256i blueRed = _mm256_and_si256(apart, evenBytes);
    const __m256i green = _mm256_and_si256(apart, greenByte);  // times 256: the upper half of its square is the square
    return _mm256_add_epi32(_mm256_madd_epi16(blueRed, blueRed), _mm256_mulhi_epu16(green, green));
  };
  alignas(32) uint32_t distances[kChunk];
  Best best{color};
  for (uint32_t first = 0; first < count && best.distance != 0; first += kChunk) {
    const uint32_t inChunk = count - first < kChunk ? count - first : kChunk;
    const uint8_t* const chunk = entries + uint64_t{4} * first;
    __m256i smallest = _mm256_set1_epi32(-1);
    uint32_t at = 0;
    for (; at + kLanes <= inChunk; at += kLanes) {
      const __m256i distance = distanceOf(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(chunk + 4 * at)));
      _mm256_store_si256(reinterpret_cast<__m256i*>(distances + at), distance);
      smallest = _mm256_min_epu32(smallest, distance);
    }
    if (at < inChunk) {  // lanes behind the last entry are at the largest distance
      const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
      const __m256i there = _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int32_t>(inChunk - at)), lane);
      const __m256i entry = _mm256_maskload_epi32(reinterpret_cast<const int*>(chunk + 4 * at), there);
      const __m256i distance = _mm256_or_si256(distanceOf(entry), _mm256_xor_si256(there, _mm256_set1_epi32(-1)));
      _mm256_store_si256(reinterpret_cast<__m256i*>(distances + at), distance);
      smallest = _mm256_min_epu32(smallest, distance);
      at += kLanes;
    }
    best.Take(distances, at, Smallest(smallest), chunk, first);
  }
  return best.index;
}

uint32_t NearestPrepared_Avx2(const PreparedPalette& palette, uint32_t color) noexcept {
  const __m256i blueRed = _mm256_set1_epi32(static_cast<int32_t>(color & 0xFF00FF));
  const __m256i green = _mm256_set1_epi32(static_cast<int32_t>(color >> 8 & 255));
  alignas(32) uint32_t distances[kPreparedEntries];
  __m256i smallest = _mm256_set1_epi32(-1);
  uint32_t at = 0;
  for (; at < palette.count; at += kLanes) {
    const auto* const first = reinterpret_cast<const __m256i*>(palette.blueRed + 2 * at);
    const auto* const second = reinterpret_cast<const __m256i*>(palette.green + 2 * at);
    const __m256i a = _mm256_sub_epi16(_mm256_load_si256(first), blueRed);
    const __m256i b = _mm256_sub_epi16(_mm256_load_si256(second), green);
    const __m256i distance = _mm256_add_epi32(_mm256_madd_epi16(a, a), _mm256_madd_epi16(b, b));
    _mm256_store_si256(reinterpret_cast<__m256i*>(distances + at), distance);
    smallest = _mm256_min_epu32(smallest, distance);
  }
  Best best{color};
  best.Take(distances, at, Smallest(smallest), palette.entries, 0);
  return best.index;
}

}  // namespace tarn
