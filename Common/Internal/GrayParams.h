#pragma once
// Which bits of a gray sample count.

#include <cstdint>

namespace tarn {

/// A sample is (stored value >> shift) & mask when read, value << shift when written.
struct GrayParams {
  int32_t significant;  // bits of mask, 1..32
  uint32_t mask;
  int32_t shift;  // 0..31, and significant + shift <= 32
};

/// @param bits     of a pixel; 0 is 8-bit gray, more than 32 count as 32
/// @param maximum  most significant bits wanted: the top ones stay
/// A low bit below 0 is bit 0, a high bit that is negative is the top bit. Records may be damaged: bits that the pixel
/// does not have are its top bit, a low bit above the high one is the high one, so that no shift is ever undefined.
constexpr GrayParams GrayParamsOf(int32_t bits, int32_t maximum, int32_t lowBit, int32_t highBit) noexcept {
  const int32_t held = bits < 1 ? 8 : bits > 32 ? 32 : bits;
  const int32_t high = highBit < 0 || highBit >= held ? held - 1 : highBit;
  const int32_t low = lowBit < 0 ? 0 : lowBit > high ? high : lowBit;
  const int32_t most = maximum < 1 ? 1 : maximum;
  const int32_t range = high - low + 1;
  const int32_t significant = range < most ? range : most;
  return {significant, static_cast<uint32_t>((uint64_t{1} << significant) - 1), high - significant + 1};
}

}  // namespace tarn
