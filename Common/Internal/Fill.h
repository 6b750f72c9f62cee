#pragma once
// Filling for operations that make a result of their own.

#include <cstdint>

#include "tarn/types.h"

namespace tarn {

/// Gives every pixel of a bitmap whose rows lie in memory the number `pixel` (see PixelColor.h), without hooks and
/// progress. The record's geometry holds.
void FillRows(BitmapHandle& bitmap, uint64_t pixel) noexcept;

}  // namespace tarn
