#pragma once
// Kernels that move pixels within a picture. Exactly the bytes of the pixels are read and written, at any address.

#include <cstdint>

namespace tarn {

/// What a transposition of a block is part of.
struct TurnOn {
  int64_t ahead = 0;  // from the source to that of the block that continues the target's lines; as for TurnKernels
  bool streamed =
      false;  // the target will have left the caches before it is read: what fills cache lines goes past them
};

struct TurnKernels {
  // `ahead` is a distance in bytes from what is worked on to what follows soon, which is asked for from memory in the
  // meantime: processors do not foresee rows that are gone through from both ends. It need not exist; 0: nothing.

  /// Exchanges two stretches that do not overlap. After them come a + ahead and b - ahead.
  void (*exchange)(uint8_t* a, uint8_t* b, uint64_t bytes, int64_t ahead) noexcept;

  /// Pixels in reverse order, of 1, 2, 3, 4, 6 and 8 bytes. Target and source are the same or do not overlap. After
  /// the source comes source + ahead.
  using Mirror = void (*)(uint8_t* target, const uint8_t* source, int64_t pixels, int64_t ahead) noexcept;
  Mirror mirror8, mirror16, mirror24, mirror32, mirror48, mirror64;
  /// The same in place for pixels of 1, 2 or 4 bits, most significant bits first. Bits behind the last pixel stay.
  void (*mirrorBits)(uint8_t* line, int64_t pixels, int32_t bits, int64_t ahead) noexcept;

  /// Line i of the target gets pixel i of every line of the source: `lines` source lines of `pixels` pixels become
  /// `pixels` lines of `lines` pixels. Strides are in bytes and may be negative. Target and source do not overlap.
  using Transpose = void (*)(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride,
                             int64_t pixels, int64_t lines, const TurnOn& on) noexcept;
  Transpose transpose8, transpose16, transpose24, transpose32, transpose48, transpose64;
  /// The same of one-bit pixels, most significant bits first; the rest of the last byte of a target line becomes 0.
  Transpose transpose1;
};

extern const TurnKernels kTurnPortable;
extern const TurnKernels kTurnAvx2;
extern const TurnKernels kTurnAvx512;

}  // namespace tarn
