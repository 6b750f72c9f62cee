#pragma once
// The process-wide hooks as the library's own code reads them. Each read is one atomic load; what it gives may be
// replaced meanwhile, so take it once for a call.

#include "tarn/hooks.h"

namespace tarn {

T_PixelPositionHook PixelPositionHook() noexcept;    // null: none
T_BitmapCreationHook BitmapCreationHook() noexcept;  // null: none
const T_RegionHooks* RegionHooks() noexcept;         // null: none; each of its functions may be null

/// Provided by Common/Hooks.cpp for stop: no hook is installed.
void ResetHooks() noexcept;

}  // namespace tarn
