#pragma once
// Filling for operations that make a result of their own.

#include <cstdint>

#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

/// Gives every pixel of a locked bitmap the number `pixel` (see PixelColor.h), without hooks and progress. The record's
/// geometry holds. A failure leaves rows filled.
Status FillRows(BitmapHandle& bitmap, uint64_t pixel) noexcept;

}  // namespace tarn
