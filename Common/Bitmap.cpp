// The bitmap record: describing, creating, freeing and locking.

#include "tarn/bitmap.h"

#include "Common/Internal/Checks.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/Overlays.h"
#include "Common/Internal/Settings.h"
#include "Common/Internal/Storage.h"
#include "Platform/Here.h"
#include "tarn/memory.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

int32_t ResolutionOr150(int32_t dotsPerInch) noexcept { return dotsPerInch > 0 ? dotsPerInch : 150; }

Status GivePalette(BitmapHandle& bitmap, bool gray, const T_PaletteEntry* palette) noexcept {
  if (gray) return T_CreateBitmapGrayPalette(&bitmap);
  const T_PaletteEntry* const entries =
      palette ? palette : T_IntGetFixedPalette(static_cast<uint32_t>(bitmap.BitsPerPixel));
  return T_SetBitmapNewPalette(&bitmap, entries, bitmap.Colors) == SUCCESS ? SUCCESS : ERR_NO_MEMORY;
}

// A bitmap whose pixels may have to be locked before Data is valid.
bool LivesInOneBlock(const BitmapHandle* handle) noexcept {
  return handle && handle->StructSize == sizeof(BitmapHandle) && (handle->Flags & T_FLAG_IN_MEMORY) &&
         !(handle->Flags & (T_FLAG_COMPRESSED | T_FLAG_TILED | T_FLAG_SUPER_COMPRESSED));
}

bool IsLocked(const BitmapHandle& bitmap) noexcept { return (bitmap.Flags & T_FLAG_LOCKED) != 0; }

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_InitBitmap(BitmapHandle* handle, uint32_t structSize, int32_t width, int32_t height,
                     int32_t bitsPerPixel) noexcept {
  if (!handle) return ERR_INVALID_PARAMETER;
  if (structSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
  *handle = {};
  handle->StructSize = sizeof(BitmapHandle);
  if (width == 0 && height == 0 && bitsPerPixel == 0) return SUCCESS;
  if (!IsBitDepth(bitsPerPixel)) return ERR_BAD_BITS_PER_PIXEL;
  uint32_t rowBytes = 0;
  uint64_t bytes = 0;
  if (!RowBytes(width, bitsPerPixel, rowBytes) || !ImageBytes(rowBytes, height, bytes)) {
    *handle = {};
    return ERR_IMAGE_TOO_LARGE;
  }
  const Settings& settings = ThreadSettings();
  handle->Width = width;
  handle->Height = height;
  handle->BitsPerPixel = bitsPerPixel;
  handle->BytesPerLine = rowBytes;
  handle->Size = bytes;
  handle->DitheringMethod = settings.defaultDithering;
  handle->ViewPerspective = 4;
  handle->Colors = bitsPerPixel <= 8 ? 1u << bitsPerPixel : 0;
  handle->Order = bitsPerPixel <= 8 ? T_ORDER_RGB : bitsPerPixel == 12 ? T_ORDER_GRAY : T_ORDER_BGR;
  handle->XResolution = ResolutionOr150(settings.defaultXResolution);
  handle->YResolution = ResolutionOr150(settings.defaultYResolution);
  handle->HighBit = HighBitOf(bitsPerPixel);
  handle->AltHighBit = handle->HighBit;
  handle->Percentage = 100;
  return SUCCESS;
}

int32_t T_CopyBitmapHandle(BitmapHandle* destination, const BitmapHandle* source, uint32_t structSize) noexcept {
  if (!destination || !source) return SUCCESS;
  if (structSize != sizeof(BitmapHandle) || source->StructSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
  *destination = *source;
  return SUCCESS;
}

int32_t T_CreateBitmap(BitmapHandle* handle, uint32_t structSize, uint32_t memoryType, int32_t width, int32_t height,
                       int32_t bitsPerPixel, uint32_t order, const T_PaletteEntry* palette, uint32_t viewPerspective,
                       void* data, uint64_t dataSize) noexcept {
  if (!handle) return ERR_INVALID_PARAMETER;
  if (structSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
  const bool gray = bitsPerPixel == 0;
  const int32_t bits = gray ? 8 : bitsPerPixel;
  TARN_TRY(T_InitBitmap(handle, structSize, width, height, bits));
  if (order == T_ORDER_WIDE && bits != 24 && bits != 48) return ERR_BAD_BITS_PER_PIXEL;
  handle->Order = order;
  TARN_TRY(T_AllocateBitmap(handle, memoryType));
  if (bits <= 8) {
    handle->Order = T_ORDER_RGB;
    if (const Status given = GivePalette(*handle, gray, palette); !given.Ok()) {
      T_FreeBitmap(handle);
      return given.code;
    }
  }
  handle->ViewPerspective = viewPerspective ? viewPerspective : 1;
  // Deliberate: the bitmap stays allocated; callers free it as after success.
  if (viewPerspective > 8) return ERR_INVALID_PARAMETER;
  return memoryType == TYPE_USER && data ? T_SetBitmapDataPointer(handle, data, dataSize) : SUCCESS;
}

void T_FreeBitmap(BitmapHandle* handle) noexcept {
  if (!handle || handle->StructSize != sizeof(BitmapHandle)) return;
  const Here here = TARN_HERE;
  if (const T_RegionHooks* hooks = RegionHooks(); hooks && hooks->Delete && handle->Region)
    hooks->Delete(handle->Region);
  handle->Region = 0;
  if (handle->Palette) T_GlobalFree(handle->Palette, here.line, here.file);
  handle->Palette = nullptr;
  FreeOverlays(handle->Overlays);
  handle->Overlays = nullptr;
  if (!IsAllocated(*handle)) return;
  ReleaseStorage(*handle);
  handle->Flags &= ~static_cast<uint32_t>(T_FLAG_ALLOCATED);
  T_FreeGrayParams(handle);
}

void T_AccessBitmap(BitmapHandle* handle) noexcept {
  if (!LivesInOneBlock(handle) || IsLocked(*handle) || !(handle->Flags & T_FLAG_HANDLE_DATA)) return;
  const Here here = TARN_HERE;
  auto* const address = static_cast<uint8_t*>(T_OsLockHandle(handle->MemoryHandle, here.line, here.file));
  if (!address) return;
  if (!BlockHolds(*handle, SpanBytes(*handle))) {
    T_OsUnlockHandle(handle->MemoryHandle, here.line, here.file);
    return;
  }
  handle->Data = address + handle->DataOffset;
  handle->Flags |= T_FLAG_LOCKED;
}

void T_ReleaseBitmap(BitmapHandle* handle) noexcept {
  if (!LivesInOneBlock(handle) || !IsLocked(*handle) || !(handle->Flags & T_FLAG_HANDLE_DATA)) return;
  const Here here = TARN_HERE;
  T_OsUnlockHandle(handle->MemoryHandle, here.line, here.file);
  handle->Data = nullptr;
  handle->Flags &= ~static_cast<uint32_t>(T_FLAG_LOCKED);
}

int32_t T_LockBitmap(BitmapHandle* handle) noexcept {
  if (!handle) return 0;
  if (IsLocked(*handle)) return 1;
  T_AccessBitmap(handle);
  return 0;
}

void T_UnlockBitmap(BitmapHandle* handle, int32_t previous) noexcept {
  if (previous == 0) T_ReleaseBitmap(handle);
}

int32_t T_SetBitmapDataPointer(BitmapHandle* handle, void* data, uint64_t size) noexcept {
  if (!handle) return ERR_INVALID_PARAMETER;
  constexpr uint32_t kKinds = T_FLAG_ALLOCATED | T_FLAG_USER_DATA | T_FLAG_HANDLE_DATA;
  const bool callerMemory = (handle->Flags & kKinds) == (T_FLAG_ALLOCATED | T_FLAG_USER_DATA);
  if (!callerMemory && data && size != handle->Size) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireSize(handle, ERR_INVALID_PARAMETER));
  handle->Data = static_cast<uint8_t*>(data);
  return SUCCESS;
}
