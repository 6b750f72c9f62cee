#pragma once
// Whole copies for the library's own use, without progress.

#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

/// Makes target a copy of source with storage, palette, region and overlays of its own. A failure leaves nothing made.
Status CopyWhole(BitmapHandle& target, BitmapHandle& source) noexcept;

}  // namespace tarn
