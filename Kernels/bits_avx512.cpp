// Stretches of bits moved from any bit to any bit, 64 bytes at a time, the last ones by masks. What does not fill bytes
// of the target is left to the portable versions.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Kernels.h"

namespace tarn {

void ShiftBits_Portable(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                        uint64_t bits) noexcept;
void ShiftLowBits_Portable(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                           uint64_t bits) noexcept;

namespace {

using V = __m512i;
constexpr uint64_t kStep = 64;

/// Bytes of the target from those of the source where they begin at the same bit.
struct Same {
  const uint8_t* source;
  [[nodiscard]] V operator()(uint64_t at) const noexcept { return _mm512_loadu_si512(source + at); }
  [[nodiscard]] V operator()(uint64_t at, __mmask64 used) const noexcept {
    return _mm512_maskz_loadu_epi8(used, source + at);
  }
};

/// The same from two bytes each, of which the second one begins `bit` bits late.
template <bool kHighFirst>
class Joined {
 public:
  Joined(const uint8_t* source, uint32_t bit) noexcept
      : source_(source),
        near_(_mm_cvtsi32_si128(static_cast<int>(bit))),
        far_(_mm_cvtsi32_si128(static_cast<int>(8 - bit))),
        nearMask_(_mm512_set1_epi8(static_cast<char>(kHighFirst ? 0xFF << bit : 0xFF >> bit))) {}
  [[nodiscard]] V operator()(uint64_t at) const noexcept {
    return Join(_mm512_loadu_si512(source_ + at), _mm512_loadu_si512(source_ + at + 1));
  }
  [[nodiscard]] V operator()(uint64_t at, __mmask64 used) const noexcept {
    return Join(_mm512_maskz_loadu_epi8(used, source_ + at), _mm512_maskz_loadu_epi8(used, source_ + at + 1));
  }

 private:
  /// 16-bit shifts; the mask takes out what came over from the byte beside.
  [[nodiscard]] V Join(V first, V second) const noexcept {
    const V low = kHighFirst ? _mm512_sll_epi16(first, near_) : _mm512_srl_epi16(first, near_);
    const V high = kHighFirst ? _mm512_srl_epi16(second, far_) : _mm512_sll_epi16(second, far_);
    constexpr int kSelect = 0xCA;
    return _mm512_ternarylogic_epi64(nearMask_, low, high, kSelect);
  }
  const uint8_t* source_;
  __m128i near_, far_;
  V nearMask_;
};

template <bool kStreamed, class Bytes>
void Move(uint8_t* target, uint64_t count, Bytes bytes) noexcept {
  constexpr uint64_t kWorthAligning = 4 * kStep;
  uint64_t at = 0;
  if (count >= kWorthAligning) {
    // The first cache line that is written whole; what it repeats of these bytes is the same.
    _mm512_storeu_si512(target, bytes(0));
    for (at = kStep - reinterpret_cast<uintptr_t>(target) % kStep; at + kStep <= count; at += kStep) {
      if constexpr (kStreamed) {
        _mm512_stream_si512(reinterpret_cast<V*>(target + at), bytes(at));
      } else {
        _mm512_store_si512(target + at, bytes(at));
      }
    }
    if constexpr (kStreamed) _mm_sfence();
  }
  for (; at < count; at += kStep) {
    const __mmask64 used = count - at >= kStep ? ~uint64_t{0} : ~uint64_t{0} >> (kStep - (count - at));
    _mm512_mask_storeu_epi8(target + at, used, bytes(at, used));
  }
}

template <bool kHighFirst, bool kStreamed>
void Shift(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit, uint64_t bits) noexcept {
  constexpr auto edge = kHighFirst ? ShiftBits_Portable : ShiftLowBits_Portable;
  if (targetBit != 0) {
    const uint64_t room = 8 - targetBit;
    const uint64_t count = bits < room ? bits : room;
    edge(target, targetBit, source, sourceBit, count);
    bits -= count;
    ++target;
    sourceBit += static_cast<uint32_t>(count);
    source += sourceBit / 8;
    sourceBit %= 8;
  }
  const uint64_t bytes = bits / 8;
  sourceBit == 0 ? Move<kStreamed>(target, bytes, Same{source})
                 : Move<kStreamed>(target, bytes, Joined<kHighFirst>(source, sourceBit));
  if (bits % 8 != 0) edge(target + bytes, 0, source + bytes, sourceBit, bits % 8);
}

}  // namespace

void ShiftBits_Avx512(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                      uint64_t bits) noexcept {
  Shift<true, false>(target, targetBit, source, sourceBit, bits);
}
void ShiftLowBits_Avx512(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                         uint64_t bits) noexcept {
  Shift<false, false>(target, targetBit, source, sourceBit, bits);
}
void StreamBits_Avx512(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                       uint64_t bits) noexcept {
  Shift<true, true>(target, targetBit, source, sourceBit, bits);
}
void StreamLowBits_Avx512(uint8_t* target, uint32_t targetBit, const uint8_t* source, uint32_t sourceBit,
                          uint64_t bits) noexcept {
  Shift<false, true>(target, targetBit, source, sourceBit, bits);
}

}  // namespace tarn
