#pragma once
// Pixels that share bytes, brought to bytes or words of their own and back; gray samples of 12 and 16 bits one by one.

#include <cstdint>
#include <cstring>

#include "Kernels/Kernels.h"

namespace tarn {

/// The stored sample of a line of 12-bit (packed pairs) or 16-bit gray.
inline uint32_t DeepSample(const uint8_t* line, int64_t pixel, int32_t bits) noexcept {
  const uint8_t* const at = line + (bits == 12 ? pixel * 3 / 2 : pixel * 2);
  const uint32_t word = at[0] | at[1] * 256u;
  if (bits == 16) return word;
  return pixel % 2 ? word >> 4 : word & 4095;
}

/// Pixels of 1 to 7 bits become bytes, of 12 bits words.
inline void UnpackPixels(uint8_t* values, const uint8_t* packed, int64_t pixels, int32_t bits) noexcept {
  if (bits != 12) return Kernels().pixels->unpackIndices(values, packed, pixels, bits);
  for (int64_t i = 0; i < pixels; ++i, values += 2) {
    const auto sample = static_cast<uint16_t>(DeepSample(packed, i, 12));
    std::memcpy(values, &sample, 2);
  }
}

/// Back; bits behind the last pixel in its byte become 0.
inline void PackPixels(uint8_t* packed, const uint8_t* values, int64_t pixels, int32_t bits) noexcept {
  if (bits != 12) return Kernels().pixels->packIndices(packed, values, pixels, bits);
  int64_t i = 0;
  for (; i + 2 <= pixels; i += 2, values += 4, packed += 3) {
    packed[0] = values[0];
    packed[1] = static_cast<uint8_t>(values[1] | values[2] << 4);
    packed[2] = static_cast<uint8_t>(values[2] >> 4 | values[3] << 4);
  }
  if (i < pixels) std::memcpy(packed, values, 2);
}

}  // namespace tarn
