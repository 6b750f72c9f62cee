#pragma once
// The same picture stored in another view perspective.

#include <cstdint>

#include "Common/Internal/Rows.h"
#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

/// Makes `copy` from a bitmap of sound geometry. ERR_INVALID_PARAMETER for a perspective that does not exist.
Status CopyInPerspective(ScratchBitmap& copy, BitmapHandle& source, uint32_t perspective) noexcept;

}  // namespace tarn
