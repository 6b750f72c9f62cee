#pragma once
// The overlay list a bitmap owns.

#include <cstdint>

#include "Common/Internal/Status.h"
#include "tarn/types.h"

struct T_OverlayList;

namespace tarn {

/// One overlay: a bitmap drawn at a position of its owner's picture.
struct Overlay {
  BitmapHandle bitmap;  // owned; all zero when the overlay has none
  uint32_t inUse;
  uint32_t flags;
  int32_t left;  // pixels from the owner's first column and row
  int32_t top;
  uint32_t color;
  int32_t bit;  // of the owner's pixels, 0..31
};

void FreeOverlays(T_OverlayList* list) noexcept;  // null is ignored
/// A list of its own with copies of every overlay's bitmap. Null source: null copy.
Status DuplicateOverlays(T_OverlayList*& copy, const T_OverlayList* source) noexcept;

}  // namespace tarn

struct T_OverlayList {
  uint32_t count;
  uint32_t reserved;
  tarn::Overlay* Items() noexcept { return reinterpret_cast<tarn::Overlay*>(this + 1); }
  const tarn::Overlay* Items() const noexcept { return reinterpret_cast<const tarn::Overlay*>(this + 1); }
};
