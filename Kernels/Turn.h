#pragma once
// Kernels that move pixels within a picture. Exactly the bytes of the pixels are read and written, at any address.

#include <cstdint>

namespace tarn {

struct TurnKernels {
  /// Exchanges two stretches that do not overlap.
  void (*exchange)(uint8_t* a, uint8_t* b, uint64_t bytes) noexcept;

  /// Pixels in reverse order, of 1, 2, 3, 4, 6 and 8 bytes. Target and source are the same or do not overlap.
  void (*mirror8)(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;
  void (*mirror16)(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;
  void (*mirror24)(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;
  void (*mirror32)(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;
  void (*mirror48)(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;
  void (*mirror64)(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;
  /// The same in place for pixels of 1, 2 or 4 bits, most significant bits first. Bits behind the last pixel stay.
  void (*mirrorBits)(uint8_t* line, int64_t pixels, int32_t bits) noexcept;
};

extern const TurnKernels kTurnPortable;
extern const TurnKernels kTurnAvx2;

}  // namespace tarn
