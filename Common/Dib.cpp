// Device-independent bitmaps in and out.

#include "tarn/dib.h"

#include "Common/Internal/Checks.h"
#include "Common/Internal/Dib.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Rows.h"
#include "Platform/Platform.h"
#include "tarn/memory.h"

namespace tarn {
namespace {

uint64_t HandleOf(const void* block) noexcept { return reinterpret_cast<uintptr_t>(block); }

bool CanBeShown(const BitmapHandle& bitmap) noexcept {
  const bool gray = bitmap.Order == T_ORDER_GRAY;
  const int32_t bits = bitmap.BitsPerPixel;
  const bool known = bitmap.Order <= T_ORDER_GRAY || (bitmap.Order == T_ORDER_WIDE && (bits == 24 || bits == 48));
  return GeometryHolds(bitmap) && bitmap.ViewPerspective >= 1 && bitmap.ViewPerspective <= 8 && known &&
         !(gray && (bits == 24 || bits >= 48));
}

Status MakeDib(BitmapHandle* bitmap, void** dib) noexcept {
  if (!bitmap || !dib) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  if (!IsAllocated(*bitmap)) return ERR_NO_BITMAP;
  if (!CanBeShown(*bitmap)) return ERR_INVALID_PARAMETER;
  if (bitmap->Flags & T_FLAG_SIGNED_DATA) return ERR_SIGNED_DATA;
  uint64_t block = 0;
  const BitmapLock lock(*bitmap);
  TARN_TRY(DibFromBitmap(*bitmap, block));
  *dib = reinterpret_cast<void*>(static_cast<uintptr_t>(block));
  return SUCCESS;
}

Status MakeBitmap(BitmapHandle& handle, const DibBytes& bytes) noexcept {
  BitmapHandle made{};
  TARN_TRY(BitmapFromDib(made, bytes));
  handle = made;
  return SUCCESS;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_ConvertToDIB(BitmapHandle* bitmap, void** dib) noexcept { return MakeDib(bitmap, dib).code; }

int32_t T_ChangeToDIB(BitmapHandle* bitmap, void** dib) noexcept {
  TARN_TRY(MakeDib(bitmap, dib));
  T_FreeBitmap(bitmap);
  return SUCCESS;
}

int32_t T_ConvertFromDIB(BitmapHandle* handle, uint32_t structSize, const void* info, const void* bits) noexcept {
  if (!handle || !info) return ERR_INVALID_PARAMETER;
  if (structSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
  return MakeBitmap(*handle, {static_cast<const uint8_t*>(info), DibBytes::kUnlimited,
                              static_cast<const uint8_t*>(bits), DibBytes::kUnlimited})
      .code;
}

int32_t T_ChangeFromDIB(BitmapHandle* handle, uint32_t structSize, void* dib) noexcept {
  if (!handle || !dib) return ERR_INVALID_PARAMETER;
  if (structSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
  const Here here = TARN_HERE;
  const uint64_t block = HandleOf(dib);
  const auto* const start = static_cast<const uint8_t*>(T_OsLockHandle(block, here.line, here.file));
  if (!start) return ERR_INVALID_PARAMETER;
  const Status made = MakeBitmap(*handle, {start, platform::MovableSize(block), nullptr, 0});
  T_OsUnlockHandle(block, here.line, here.file);
  if (made.Ok()) T_OsFreeHandle(block, here.line, here.file);
  return made.code;
}
