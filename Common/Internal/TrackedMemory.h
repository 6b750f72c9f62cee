#pragma once
// The one place where tracked memory comes from and goes to. The T_Global*, T_Local* and T_Os*Handle functions are thin
// doors onto it.

#include <cstdint>

#include "Platform/Here.h"

namespace tarn {

struct MemoryRequest {
  uint32_t kind;   // T_KIND_...; any other shows a message
  uint32_t flags;  // of a movable block, T_BLOCK_...
  bool zero;       // the library clears the block
  uint64_t count;
  uint64_t size;
};

/// The address (global and local) or the handle; null when there is no memory, count * size overflows or the kind is
/// not known.
void* AllocateTracked(const MemoryRequest& request, Here here) noexcept;
/// Resizes; null leaves the old object as it was. A size of 0 leaves an empty object, it does not free.
void* ResizeTracked(void* object, const MemoryRequest& request, Here here) noexcept;
/// Always 1. Null is ignored.
int32_t ReleaseTracked(uint32_t kind, void* object, Here here) noexcept;

}  // namespace tarn
