// The nearest entry of a palette, sixteen at a time.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Kernels.h"

namespace tarn {

namespace {

constexpr int64_t kLanes = 16;

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

}  // namespace

bool AnswerColors_Avx512(uint8_t* target, uint32_t* places, const uint8_t* colors, int64_t pixels,
                         const uint8_t* answers) noexcept {
  for (int64_t i = 0; i < pixels; i += kLanes) {
    const auto there = static_cast<__mmask16>(pixels - i >= kLanes ? 0xFFFF : (1 << (pixels - i)) - 1);
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

}  // namespace tarn
