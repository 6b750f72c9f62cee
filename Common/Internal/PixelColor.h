#pragma once
// Colour values and the pixels of a bitmap's format. A pixel is the number in the low BitsPerPixel bits that its stored
// bytes make: an index, a gray sample, or samples little-endian, the first stored one lowest.

#include <cstdint>

#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

constexpr uint32_t kNoColor = 0x80000000;
constexpr uint32_t kColorTag = 0xFF000000;
constexpr uint32_t kIndexTag = 0x01000000;
constexpr uint32_t kGrayTag = 0x04000000;

/// The pixel of a colour: red, green and blue in the low three bytes, or a gray level (kGrayTag). Other tags are
/// ignored. Alpha and bit 15 of 5-5-5 pixels are 0.
/// ERR_BAD_BITS_PER_PIXEL; ERR_INVALID_PARAMETER: a palette without entries; ERR_BAD_LUT_LENGTH: a table without.
Status PixelOf(const BitmapHandle& bitmap, uint32_t color, uint64_t& pixel) noexcept;
/// The same with palette indices (kIndexTag) as well: below 1 << BitsPerPixel, else ERR_INVALID_PARAMETER; black in
/// bitmaps of more than 8 bits, which have no palette.
Status TaggedPixelOf(const BitmapHandle& bitmap, uint32_t color, uint64_t& pixel) noexcept;
/// The colour of a pixel, kNoColor when it has none: 32-bit gray, an index beyond the palette, a sample beyond the
/// lookup table. The depth is a known one.
uint32_t ColorOf(const BitmapHandle& bitmap, uint64_t pixel) noexcept;

}  // namespace tarn
