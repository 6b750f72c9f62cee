// The ink of one-bit pictures: lines added up in registers, 64 bytes at a time, then columns.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Scale.h"

namespace tarn {
namespace {

using V = __m512i;

constexpr int64_t kVector = 64;

__mmask64 FirstBytes(int64_t count) noexcept { return count >= kVector ? ~__mmask64{0} : (__mmask64{1} << count) - 1; }

V And(V a, V b) noexcept { return _mm512_and_si512(a, b); }
/// a | b & c
V OrAnd(V a, V b, V c) noexcept { return _mm512_ternarylogic_epi64(a, b, c, 0xF8); }

/// Bits that are in more than 0, 1 and 2 of some lines or columns, with one more line.
template <int kMost>
void AddLine(V (&more)[3], V line) noexcept {
  if constexpr (kMost > 2) more[2] = OrAnd(more[2], more[1], line);
  if constexpr (kMost > 1) more[1] = OrAnd(more[1], more[0], line);
  more[0] = _mm512_or_si512(more[0], line);
}
template <int kMost>
void AddColumn(V (&more)[3], const V (&column)[3]) noexcept {
  if constexpr (kMost > 2)
    more[2] = OrAnd(OrAnd(_mm512_or_si512(more[2], column[2]), more[1], column[0]), more[0], column[1]);
  if constexpr (kMost > 1) more[1] = OrAnd(_mm512_or_si512(more[1], column[1]), more[0], column[0]);
  more[0] = _mm512_or_si512(more[0], column[0]);
}

/// Calls with the bits of kFrom bytes of all lines, for kTo bytes of cells each, of which `make` gives a register that
/// begins with them.
template <int kMost, int kFrom, int kTo, class Make>
void ForBytes(uint8_t* target, const InkLines& ink, Make&& make) noexcept {
  const V flip = _mm512_set1_epi8(ink.zeros ? -1 : 0);
  const __mmask64 whole = FirstBytes(kFrom);
  int64_t left = (ink.cells + 7) / 8;
  for (int64_t i = 0; left > 0; i += kFrom, left -= kTo, target += kTo) {
    const bool inside = i + kVector <= ink.bytes;
    const __mmask64 there = FirstBytes(ink.bytes - i) & whole;
    V more[3] = {};
    for (int32_t line = 0; line < ink.count; ++line) {
      const V bits =
          inside ? _mm512_loadu_si512(ink.lines[line] + i) : _mm512_maskz_loadu_epi8(there, ink.lines[line] + i);
      AddLine<kMost>(more, _mm512_xor_si512(bits, flip));
    }
    const V cells = _mm512_xor_si512(make(more), flip);
    if (left >= kTo)
      __builtin_memcpy(target, &cells, kTo);
    else
      _mm512_mask_storeu_epi8(target, FirstBytes(left), cells);
  }
}

template <int kMost>
void PairsOfColumns(uint8_t* target, const InkLines& ink) noexcept {
  // Bits 7, 5, 3 and 1 of each byte to bits 3 to 0, then two of these make a byte.
  const V tops = _mm512_set1_epi64(0x0208208000000000);
  ForBytes<kMost, 64, 32>(target, ink, [&](V(&more)[3]) {
    V moved[3];
    for (int n = 0; n < kMost; ++n) moved[n] = _mm512_slli_epi16(more[n], 1);
    AddColumn<kMost>(more, moved);
    const V nibbles = _mm512_gf2p8affine_epi64_epi8(more[kMost - 1], tops, 0);
    return _mm512_castsi256_si512(_mm512_cvtepi16_epi8(_mm512_maddubs_epi16(nibbles, _mm512_set1_epi16(0x0110))));
  });
}

template <int kMost>
void FoursOfColumns(uint8_t* target, const InkLines& ink) noexcept {
  const V tops = _mm512_set1_epi64(0x0880000000000000);  // bits 7 and 3 to bits 1 and 0
  ForBytes<kMost, 64, 16>(target, ink, [&](V(&more)[3]) {
    V line[3];
    for (int n = 0; n < kMost; ++n) line[n] = more[n];
    for (int column = 1; column < 4; ++column) {
      V moved[3];
      for (int n = 0; n < kMost; ++n) moved[n] = _mm512_slli_epi16(line[n], static_cast<unsigned>(column));
      AddColumn<kMost>(more, moved);
    }
    const V pairs = _mm512_gf2p8affine_epi64_epi8(more[kMost - 1], tops, 0);
    const V nibbles = _mm512_maddubs_epi16(pairs, _mm512_set1_epi16(0x0104));
    return _mm512_castsi128_si512(_mm512_cvtepi32_epi8(_mm512_madd_epi16(nibbles, _mm512_set1_epi32(0x00010010))));
  });
}

/// Three bytes of a line as 24 bits, the first byte on top.
struct Threes {
  alignas(64) uint8_t at[64];
  constexpr Threes() noexcept : at{} {
    for (int i = 0; i < 64; ++i) at[i] = static_cast<uint8_t>(i % 4 == 3 ? 63 : i / 4 * 3 + 2 - i % 4);
  }
};
constexpr Threes kThrees;

/// Every third bit of the top 24, beside each other.
V EveryThird(V bits) noexcept {
  V made = And(_mm512_srli_epi32(bits, 2), _mm512_set1_epi32(0x249249));
  const auto closer = [&made](unsigned by, int kept) {
    made = And(_mm512_or_si512(made, _mm512_srli_epi32(made, by)), _mm512_set1_epi32(kept));
  };
  closer(2, 0x0C30C3);
  closer(4, 0x00F00F);
  closer(8, 0x0000FF);
  return made;
}

template <int kMost>
void ThreesOfColumns(uint8_t* target, const InkLines& ink) noexcept {
  const V places = _mm512_load_si512(kThrees.at);
  ForBytes<kMost, 48, 16>(target, ink, [&](V(&more)[3]) {
    V line[3];
    for (int n = 0; n < kMost; ++n) more[n] = line[n] = _mm512_permutexvar_epi8(places, more[n]);
    for (int column = 1; column < 3; ++column) {
      V moved[3];
      for (int n = 0; n < kMost; ++n) moved[n] = _mm512_slli_epi32(line[n], static_cast<unsigned>(column));
      AddColumn<kMost>(more, moved);
    }
    return _mm512_castsi128_si512(_mm512_cvtepi32_epi8(EveryThird(more[kMost - 1])));
  });
}

template <int kMost>
void CellsOf(uint8_t* target, const InkLines& ink) noexcept {
  if (ink.columns == 2) return PairsOfColumns<kMost>(target, ink);
  if (ink.columns == 3) return ThreesOfColumns<kMost>(target, ink);
  FoursOfColumns<kMost>(target, ink);
}

}  // namespace

void InkCells_Avx512(uint8_t* target, const InkLines& ink) noexcept {
  if (ink.most == 1) return CellsOf<1>(target, ink);
  if (ink.most == 2) return CellsOf<2>(target, ink);
  CellsOf<3>(target, ink);
}

}  // namespace tarn
