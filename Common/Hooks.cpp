// Process-wide hooks.

#include "Common/Internal/Hooks.h"

#include <atomic>

namespace tarn {

static constinit std::atomic<T_PixelPositionHook> pixelPositionHook{nullptr};
static constinit std::atomic<T_BitmapCreationHook> bitmapCreationHook{nullptr};
static constinit std::atomic<const T_RegionHooks*> regionHooks{nullptr};

T_PixelPositionHook PixelPositionHook() noexcept { return pixelPositionHook.load(std::memory_order_relaxed); }
T_BitmapCreationHook BitmapCreationHook() noexcept { return bitmapCreationHook.load(std::memory_order_relaxed); }
const T_RegionHooks* RegionHooks() noexcept { return regionHooks.load(std::memory_order_acquire); }

void ResetHooks() noexcept {
  pixelPositionHook = nullptr;
  bitmapCreationHook = nullptr;
  regionHooks = nullptr;
}

}  // namespace tarn

T_PixelPositionHook T_SetPixelPositionHook(T_PixelPositionHook hook) noexcept {
  return tarn::pixelPositionHook.exchange(hook);
}

T_BitmapCreationHook T_SetBitmapCreationHook(T_BitmapCreationHook hook) noexcept {
  return tarn::bitmapCreationHook.exchange(hook);
}

const T_RegionHooks* T_SetRegionHooks(const T_RegionHooks* hooks) noexcept {
  if (hooks && hooks->StructSize != sizeof(T_RegionHooks)) return nullptr;
  return tarn::regionHooks.exchange(hooks);
}
