// The nearest entry of a palette, sixteen at a time.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Kernels.h"

namespace tarn {

namespace {

constexpr uint32_t kLanes = 16;

/// The bits of `mask` of a shifted colour, beside what is there.
__m512i With(__m512i there, __m512i shifted, int32_t mask) noexcept {
  return _mm512_ternarylogic_epi32(there, shifted, _mm512_set1_epi32(mask), 0xF8);  // there | (shifted & mask)
}

/// PlaceOfColor of sixteen.
__m512i PlacesOf(__m512i color) noexcept {
  __m512i page = _mm512_and_si512(color, _mm512_set1_epi32(0xF00003));
  page = With(page, _mm512_slli_epi32(color, 4), 0xF0040);
  page = With(page, _mm512_slli_epi32(color, 8), 0xF000);
  page = With(page, _mm512_srli_epi32(color, 12), 0x30);
  page = With(page, _mm512_srli_epi32(color, 6), 0xC);
  __m512i cell = _mm512_and_si512(_mm512_srli_epi32(color, 8), _mm512_set1_epi32(0x800));
  cell = With(cell, _mm512_srli_epi32(color, 1), 0x400);
  cell = With(cell, _mm512_slli_epi32(color, 6), 0x200);
  cell = With(cell, _mm512_srli_epi32(color, 10), 0x100);
  return _mm512_or_si512(page, With(cell, _mm512_srli_epi32(color, 3), 0x80));
}

/// Eight answers, the first lowest.
uint64_t Eight(const uint32_t* places, const uint8_t* answers) noexcept {
  uint64_t word = 0;
  for (int k = 0; k < 8; ++k) word |= uint64_t{answers[places[k]]} << 8 * k;
  return word;
}

/// Bits of a word of which some byte is 0; none else.
uint64_t ZeroBytes(uint64_t word) noexcept {
  return (word - UINT64_C(0x0101010101010101)) & ~word & UINT64_C(0x8080808080808080);
}

constexpr uint32_t kChunk = 256;  // entries whose distances are kept

uint32_t OrderOf(const uint8_t* entry) noexcept { return ColorOrderCode(entry[2], entry[1], entry[0]); }

__m512i DistancesOf(__m512i entry, __m512i target) noexcept {
  const __m512i apart = _mm512_or_si512(_mm512_subs_epu8(entry, target), _mm512_subs_epu8(target, entry));
  const __m512i blueRed = _mm512_and_si512(apart, _mm512_set1_epi32(0x00FF00FF));
  const __m512i green = _mm512_and_si512(_mm512_srli_epi32(apart, 8), _mm512_set1_epi32(255));
  return _mm512_dpwssd_epi32(_mm512_madd_epi16(blueRed, blueRed), green, green);
}

}  // namespace

bool AnswerColors_Avx512(uint8_t* target, uint32_t* places, const uint8_t* colors, int64_t pixels,
                         const uint8_t* answers) noexcept {
  for (int64_t i = 0; i < pixels; i += kLanes) {
    const auto there = static_cast<__mmask16>(pixels - i >= int64_t{kLanes} ? 0xFFFF : (1 << (pixels - i)) - 1);
    const __m512i color = _mm512_maskz_loadu_epi32(there, colors + 4 * i);
    _mm512_mask_storeu_epi32(places + i, there, PlacesOf(color));
  }
  uint64_t zeros = 0;
  int64_t i = 0;
  for (; i + 8 <= pixels; i += 8) {
    const uint64_t word = Eight(places + i, answers);
    zeros |= ZeroBytes(word);
    __builtin_memcpy(target + i, &word, 8);
  }
  bool any = zeros != 0;
  for (; i < pixels; ++i) {
    target[i] = answers[places[i]];
    any |= target[i] == 0;
  }
  return any;
}

uint32_t NearestEntry_Avx512(const uint8_t* entries, uint32_t count, uint32_t color) noexcept {
  const __m512i target = _mm512_set1_epi32(static_cast<int32_t>(color & 0xFFFFFF));
  const uint32_t code = ColorOrderCode(color >> 16 & 255, color >> 8 & 255, color & 255);
  __m512i distances[kChunk / kLanes];
  uint32_t best = UINT32_MAX;
  uint32_t index = 0;
  for (uint32_t first = 0; first < count && best != 0; first += kChunk) {
    const uint32_t inChunk = count - first < kChunk ? count - first : kChunk;
    const uint8_t* const chunk = entries + uint64_t{4} * first;
    const uint32_t whole = inChunk / kLanes;
    __m512i least = _mm512_set1_epi32(-1);
    for (uint32_t v = 0; v < whole; ++v) {
      distances[v] = DistancesOf(_mm512_loadu_si512(chunk + uint64_t{4} * kLanes * v), target);
      least = _mm512_min_epu32(least, distances[v]);
    }
    uint32_t vectors = whole;
    if (const uint32_t left = inChunk % kLanes) {
      const auto there = static_cast<__mmask16>((1u << left) - 1);
      const __m512i entry = _mm512_maskz_loadu_epi32(there, chunk + uint64_t{4} * kLanes * whole);
      distances[vectors] = _mm512_mask_blend_epi32(there, _mm512_set1_epi32(-1), DistancesOf(entry, target));
      least = _mm512_min_epu32(least, distances[vectors++]);
    }
    while (vectors % 4) distances[vectors++] = _mm512_set1_epi32(-1);
    const uint32_t smallest = _mm512_reduce_min_epu32(least);
    if (smallest > best) continue;
    const __m512i wanted = _mm512_set1_epi32(static_cast<int32_t>(smallest));
    for (uint32_t v = 0; v < vectors; v += 4) {
      uint64_t lanes = 0;
      for (uint32_t k = 0; k < 4; ++k)
        lanes |= uint64_t{_mm512_cmpeq_epi32_mask(distances[v + k], wanted)} << kLanes * k;
      for (; lanes; lanes &= lanes - 1) {
        const uint32_t at = v * kLanes + static_cast<uint32_t>(_tzcnt_u64(lanes));
        // Of entries equally near the last of the colour's own order wins, else the first.
        if (smallest == best && OrderOf(chunk + 4 * at) != code) continue;
        best = smallest;
        index = first + at;
        if (smallest == 0) return index;  // the first equal one wins
      }
    }
  }
  return index;
}

}  // namespace tarn
