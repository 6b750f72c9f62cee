#pragma once
// Kernels that change the layout of pixels. `pixels` may be 0. Exactly the bytes of the pixels are read and written, at
// any address. Target and source do not overlap, or are one address: all but those of packed indices work in place.
// Canonical colour is four bytes blue, green, red, alpha; `swap` says that the other side has red first.

#include <cstdint>

namespace tarn {

struct PixelKernels {
  // ---- Bytes of colour ----
  /// 24-bit pixels to canonical ones (or, with swap, from red first).
  void (*widen24To32)(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha, bool swap) noexcept;
  void (*narrow32To24)(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept;
  /// First and third sample exchanged.
  void (*swap24)(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;
  void (*swap32)(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;
  void (*swap48)(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;
  void (*swap64)(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;
  /// (5 green + 2 red + blue + 4) >> 3 of each pixel.
  void (*gray24)(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept;
  void (*gray32)(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept;
  /// One byte to three or four.
  void (*spread8To24)(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept;
  void (*spread8To32)(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha) noexcept;

  // ---- 5-5-5 ----
  /// Canonical pixels to words with red in bits 10..14 (swap: 0..4); bit 15 is 0.
  void (*pack555)(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept;
  /// The same of 24-bit pixels.
  void (*pack24To555)(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept;
  /// Back; each channel becomes (c << 3) | (c >> 2).
  void (*unpack555)(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha, bool swap) noexcept;
  void (*unpack555To24)(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept;

  // ---- Samples ----
  /// Each byte x 257.
  void (*widen8To16)(uint8_t* target, const uint8_t* source, int64_t samples) noexcept;
  /// Each 16-bit sample >> 8.
  void (*narrow16To8)(uint8_t* target, const uint8_t* source, int64_t samples) noexcept;

  // ---- Packed indices ----
  /// Not in place: pixels of 1..8 bits, packed most significant bits first from the first bit of source on, to one byte
  /// each.
  void (*unpackIndices)(uint8_t* target, const uint8_t* source, int64_t pixels, int32_t bits) noexcept;
  /// Back, not in place; bits behind the last pixel are 0. Source bytes are below 1 << bits.
  void (*packIndices)(uint8_t* target, const uint8_t* source, int64_t pixels, int32_t bits) noexcept;
  /// One-bit pixels to one of two values: of one byte, of the low three bytes, of four bytes.
  void (*expandBitsTo8)(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t zero, uint8_t one) noexcept;
  void (*expandBitsTo24)(uint8_t* target, const uint8_t* source, int64_t pixels, uint32_t zero, uint32_t one) noexcept;
  void (*expandBitsTo32)(uint8_t* target, const uint8_t* source, int64_t pixels, uint32_t zero, uint32_t one) noexcept;
  /// Bytes to entries of a table of 256 words: three bytes (the top byte of entries is 0), or all four.
  void (*lookup24)(uint8_t* target, const uint8_t* source, int64_t pixels, const uint32_t* table) noexcept;
  void (*lookup32)(uint8_t* target, const uint8_t* source, int64_t pixels, const uint32_t* table) noexcept;
};

extern const PixelKernels kPixelsPortable;
extern const PixelKernels kPixelsAvx2;
extern const PixelKernels kPixelsAvx512;

}  // namespace tarn
