// Stretches of bits moved from any bit to any bit, 32 bytes at a time. Edges are left to the portable versions.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Kernels.h"

namespace tarn {

void ShiftBits_Portable(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                        uint64_t bits) noexcept;
void ShiftLowBits_Portable(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                           uint64_t bits) noexcept;

namespace {

constexpr uint64_t kStep = 32;

__m256i Load(const uint8_t* from) noexcept { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(from)); }
void Store(uint8_t* to, __m256i bytes) noexcept { _mm256_storeu_si256(reinterpret_cast<__m256i*>(to), bytes); }

// Brings the target to a byte border, then moves whole steps. What is left begins at a byte of target.
template <void (*kEdge)(uint8_t*, uint32_t, const uint8_t*, uint32_t, uint64_t) noexcept, bool kHighFirst>
void Shift(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit, uint64_t bits) noexcept {
  if (targetBit != 0) {
    const uint64_t room = 8 - targetBit;
    const uint64_t count = bits < room ? bits : room;
    kEdge(target, targetBit, source, sourceBit, count);
    bits -= count;
    ++target;
    sourceBit += static_cast<uint32_t>(count);
    source += sourceBit / 8;
    sourceBit %= 8;
  }
  uint64_t at = 0;
  if (sourceBit == 0) {  // no string moves, which are slow from and to odd addresses
    for (const uint64_t bytes = bits / 8; at + kStep <= bytes; at += kStep) Store(target + at, Load(source + at));
  } else {
    // 16-bit shifts; the masks take out what came over from the byte beside.
    const __m128i near = _mm_cvtsi32_si128(static_cast<int>(sourceBit));
    const __m128i far = _mm_cvtsi32_si128(static_cast<int>(8 - sourceBit));
    const __m256i nearMask = _mm256_set1_epi8(static_cast<char>(kHighFirst ? 0xFF << sourceBit : 0xFF >> sourceBit));
    const __m256i farMask = _mm256_xor_si256(nearMask, _mm256_set1_epi8(-1));
    for (const uint64_t bytes = bits / 8; at + kStep <= bytes; at += kStep) {
      const __m256i first = Load(source + at);
      const __m256i second = Load(source + at + 1);
      const __m256i low = kHighFirst ? _mm256_sll_epi16(first, near) : _mm256_srl_epi16(first, near);
      const __m256i high = kHighFirst ? _mm256_srl_epi16(second, far) : _mm256_sll_epi16(second, far);
      Store(target + at, _mm256_or_si256(_mm256_and_si256(low, nearMask), _mm256_and_si256(high, farMask)));
    }
  }
  kEdge(target + at, 0, source + at, sourceBit, bits - 8 * at);
}

}  // namespace

void ShiftBits_Avx2(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                    uint64_t bits) noexcept {
  Shift<ShiftBits_Portable, true>(target, targetBit, source, sourceBit, bits);
}

void ShiftLowBits_Avx2(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                       uint64_t bits) noexcept {
  Shift<ShiftLowBits_Portable, false>(target, targetBit, source, sourceBit, bits);
}

}  // namespace tarn
