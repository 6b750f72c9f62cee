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

  /// Line i of the target gets pixel i of every line of the source: `lines` source lines of `pixels` pixels become
  /// `pixels` lines of `lines` pixels. Strides are in bytes and may be negative. Target and source do not overlap.
  using Transpose = void (*)(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride,
                             int64_t pixels, int64_t lines) noexcept;
  Transpose transpose8, transpose16, transpose24, transpose32, transpose48, transpose64;
  /// The same of one-bit pixels, most significant bits first; the rest of the last byte of a target line becomes 0.
  Transpose transpose1;
};

extern const TurnKernels kTurnPortable;
extern const TurnKernels kTurnAvx2;
extern const TurnKernels kTurnAvx512;

}  // namespace tarn
