#include "Common/Internal/Overlays.h"

#include "Common/Internal/Checks.h"
#include "Common/Internal/Duplicate.h"
#include "Platform/Here.h"
#include "tarn/bitmap.h"
#include "tarn/memory.h"

namespace tarn {

void FreeOverlays(T_OverlayList* list) noexcept {
  if (!list) return;
  for (uint32_t i = list->count; i-- > 0;) {
    if (list->Items()[i].bitmap.StructSize) T_FreeBitmap(&list->Items()[i].bitmap);
  }
  const Here here = TARN_HERE;
  T_LocalFree(list, here.line, here.file);
}

Status DuplicateOverlays(T_OverlayList*& copy, const T_OverlayList* source) noexcept {
  copy = nullptr;
  if (!source) return SUCCESS;
  const Here here = TARN_HERE;
  auto* const made = static_cast<T_OverlayList*>(
      T_LocalAllocInit(1, sizeof(T_OverlayList) + uint64_t{source->count} * sizeof(Overlay), here.line, here.file));
  if (!made) return ERR_NO_MEMORY;
  for (; made->count < source->count; ++made->count) {
    const Overlay& from = source->Items()[made->count];
    Overlay& to = made->Items()[made->count];
    to = from;
    to.bitmap = {};
    if (!IsAllocated(from.bitmap)) continue;
    BitmapHandle original = from.bitmap;
    const Status copied = CopyWhole(to.bitmap, original);
    if (!copied.Ok()) {
      to.bitmap = {};
      FreeOverlays(made);
      return copied;
    }
  }
  copy = made;
  return SUCCESS;
}

}  // namespace tarn
