#pragma once
// The checks that open exported operations, in the orders that the headers document.

#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

inline Status RequireSize(const BitmapHandle* bitmap, int32_t whenNull) noexcept {
  if (!bitmap) return whenNull;
  return bitmap->StructSize == sizeof(BitmapHandle) ? SUCCESS : ERR_BAD_STRUCT_SIZE;
}

inline bool IsAllocated(const BitmapHandle& bitmap) noexcept { return (bitmap.Flags & T_FLAG_ALLOCATED) != 0; }

/// Null or unallocated first, then the size of the record.
inline Status RequireAllocatedThenSize(const BitmapHandle* bitmap, int32_t whenMissing) noexcept {
  if (!bitmap || !IsAllocated(*bitmap)) return whenMissing;
  return bitmap->StructSize == sizeof(BitmapHandle) ? SUCCESS : ERR_BAD_STRUCT_SIZE;
}

}  // namespace tarn
