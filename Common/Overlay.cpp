// Overlays: the list of bitmaps that lie on a bitmap.

#include "tarn/overlay.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Duplicate.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Overlays.h"
#include "Common/Internal/Rows.h"
#include "Platform/Here.h"
#include "tarn/bitmap.h"
#include "tarn/memory.h"

namespace tarn {
namespace {

constexpr uint32_t kMostOverlays = 65536;
constexpr int32_t kMostBit = 31;

Status RequireOwner(const BitmapHandle* bitmap) noexcept {
  TARN_TRY(RequireSize(bitmap, ERR_NULL_POINTER));
  return IsAllocated(*bitmap) ? SUCCESS : ERR_NO_BITMAP;
}

uint32_t CountOf(const BitmapHandle& bitmap) noexcept { return bitmap.Overlays ? bitmap.Overlays->count : 0; }

/// Null when the index names no overlay in use.
Overlay* Find(const BitmapHandle& bitmap, int32_t index) noexcept {
  if (index < 0 || static_cast<uint32_t>(index) >= CountOf(bitmap)) return nullptr;
  Overlay& overlay = bitmap.Overlays->Items()[index];
  return overlay.inUse ? &overlay : nullptr;
}

/// Makes a bitmap's list end with a place in use, or go.
void CutOff(BitmapHandle& bitmap) noexcept {
  T_OverlayList* const list = bitmap.Overlays;
  while (list->count > 0 && !list->Items()[list->count - 1].inUse) --list->count;
  if (list->count > 0) return;
  FreeOverlays(list);
  bitmap.Overlays = nullptr;
}

/// The place of an index that may be not in use, or the count: then it is put into use.
Status Take(BitmapHandle& bitmap, uint32_t wanted, Overlay*& place) noexcept {
  const uint32_t count = CountOf(bitmap);
  if (wanted >= kMostOverlays) return ERR_OVERLAY_INDEX;
  if (wanted == count) {
    const Here here = TARN_HERE;
    const uint64_t bytes = sizeof(T_OverlayList) + (uint64_t{count} + 1) * sizeof(Overlay);
    void* const grown = bitmap.Overlays ? T_LocalRealloc(bitmap.Overlays, bytes, here.line, here.file)
                                        : T_LocalAllocInit(1, bytes, here.line, here.file);
    if (!grown) return ERR_NO_MEMORY;
    bitmap.Overlays = static_cast<T_OverlayList*>(grown);
    std::memset(&bitmap.Overlays->Items()[count], 0, sizeof(Overlay));
    bitmap.Overlays->count = count + 1;
  }
  place = &bitmap.Overlays->Items()[wanted];
  if (!place->inUse) {
    *place = {};
    place->inUse = 1;
    place->flags = T_OVERLAY_VISIBLE;
  }
  return SUCCESS;
}

void Empty(BitmapHandle& bitmap, Overlay& overlay) noexcept {
  if (overlay.bitmap.StructSize) T_FreeBitmap(&overlay.bitmap);
  overlay = {};
  CutOff(bitmap);
}

// ---- Bits ----------------------------------------------------------------------------------------------------------

/// Where a bit of a stored pixel lies: byte and mask.
struct BitPlace {
  int64_t byte;
  uint8_t mask;
};

BitPlace PlaceOf(int64_t pixel, int32_t bits, int32_t bit) noexcept {
  const int64_t at = pixel * bits + bit;  // samples lie with their lowest bit first
  return {at >> 3, static_cast<uint8_t>(1u << (at & 7))};
}

/// What the overlay covers of a stored row of the bitmap.
struct Stretch {
  int64_t first;  // column of the bitmap
  int64_t count;
  int64_t offset;  // column of the overlay at which it begins
};

Stretch Covered(int64_t position, int64_t length, int64_t extent) noexcept {
  const int64_t first = position < 0 ? 0 : position;
  const int64_t end = position + length < extent ? position + length : extent;
  return {first, end > first ? end - first : 0, first - position};
}

struct PlaneOf {
  int32_t bits;
  int32_t bit;
};

void ReadBits(uint8_t* mask, const uint8_t* row, const Stretch& stretch, PlaneOf plane) noexcept {
  for (int64_t i = 0; i < stretch.count; ++i) {
    const BitPlace from = PlaceOf(stretch.first + i, plane.bits, plane.bit);
    const int64_t to = stretch.offset + i;
    if (row[from.byte] & from.mask) mask[to >> 3] |= static_cast<uint8_t>(0x80u >> (to & 7));
  }
}

void WriteBits(uint8_t* row, const uint8_t* mask, const Stretch& stretch, PlaneOf plane) noexcept {
  for (int64_t i = 0; i < stretch.count; ++i) {
    const BitPlace to = PlaceOf(stretch.first + i, plane.bits, plane.bit);
    const int64_t from = stretch.offset + i;
    const bool set = mask[from >> 3] & (0x80u >> (from & 7));
    row[to.byte] = static_cast<uint8_t>(set ? row[to.byte] | to.mask : row[to.byte] & ~to.mask);
  }
}

/// Fills a new overlay bitmap with zeros from the bitmap's plane.
Status Extract(BitmapHandle& mask, BitmapHandle& bitmap, int32_t left, int32_t top, PlaneOf plane) noexcept {
  const BitmapLock lockMask(mask);
  const BitmapLock lockBitmap(bitmap);
  RowReader from(bitmap, TARN_HERE);
  RowWriter to(mask, TARN_HERE);
  TARN_TRY(from.Open());
  TARN_TRY(to.Open());
  const Stretch columns = Covered(left, mask.Width, bitmap.Width);
  const Stretch rows = Covered(top, mask.Height, bitmap.Height);
  if (columns.count == 0) return SUCCESS;
  for (int64_t i = 0; i < rows.count; ++i) {
    const uint8_t* const row = from.Row(static_cast<int32_t>(rows.first + i));
    if (!row) return from.status();
    uint8_t* const line = to.Row(static_cast<int32_t>(rows.offset + i));
    std::memset(line, 0, mask.BytesPerLine);
    ReadBits(line, row, columns, plane);
    TARN_TRY(to.Commit());
  }
  return SUCCESS;
}

Status FromBitmap(BitmapHandle& bitmap, Overlay& overlay, PlaneOf plane) noexcept {
  const bool isNew = !IsAllocated(overlay.bitmap);
  BitmapHandle mask{};
  if (isNew) {
    constexpr T_PaletteEntry kBlackAndWhite[2] = {{0, 0, 0, 0}, {255, 255, 255, 0}};
    const Status created = T_CreateBitmap(&mask, sizeof mask, TYPE_CONV, bitmap.Width, bitmap.Height, 1, 0,
                                          kBlackAndWhite, bitmap.ViewPerspective, nullptr, 0);
    if (!created.Ok()) {
      T_FreeBitmap(&mask);  // which a wrong perspective leaves allocated
      return created;
    }
  } else {
    TARN_TRY(MakeLike(mask, overlay.bitmap, overlay.bitmap.Width, overlay.bitmap.Height, nullptr));
  }
  const Status read = Extract(mask, bitmap, isNew ? 0 : overlay.left, isNew ? 0 : overlay.top, plane);
  if (!read.Ok()) {
    T_FreeBitmap(&mask);
    return read;
  }
  if (isNew) {
    overlay.bitmap = mask;
    overlay.left = overlay.top = 0;
  } else {
    ReplaceWhole(overlay.bitmap, mask);
  }
  return SUCCESS;
}

/// The bitmap's rows with the overlay's pixels in the plane.
Status Insert(BitmapHandle& result, BitmapHandle& bitmap, Overlay& overlay, PlaneOf plane) noexcept {
  const BitmapLock lockResult(result);
  const BitmapLock lockBitmap(bitmap);
  const BitmapLock lockMask(overlay.bitmap);
  RowReader from(bitmap, TARN_HERE);
  RowReader mask(overlay.bitmap, TARN_HERE);
  RowWriter to(result, TARN_HERE);
  TARN_TRY(from.Open());
  TARN_TRY(mask.Open());
  TARN_TRY(to.Open());
  const Stretch columns = Covered(overlay.left, overlay.bitmap.Width, bitmap.Width);
  const Stretch rows = Covered(overlay.top, overlay.bitmap.Height, bitmap.Height);
  for (int32_t y = 0; y < bitmap.Height; ++y) {
    const uint8_t* const row = from.Row(y);
    if (!row) return from.status();
    uint8_t* const line = to.Row(y);
    std::memcpy(line, row, result.BytesPerLine);  // the bitmap's own rows may have more room
    if (y >= rows.first && y < rows.first + rows.count && columns.count > 0) {
      const uint8_t* const bits = mask.Row(static_cast<int32_t>(rows.offset + y - rows.first));
      if (!bits) return mask.status();
      WriteBits(line, bits, columns, plane);
    }
    TARN_TRY(to.Commit());
  }
  return SUCCESS;
}

Status ToBitmap(BitmapHandle& bitmap, Overlay& overlay, PlaneOf plane) noexcept {
  ScratchBitmap result;
  TARN_TRY(result.Create(bitmap, bitmap.Width, bitmap.Height, bitmap.BitsPerPixel));
  TARN_TRY(Insert(result.Record(), bitmap, overlay, plane));
  result.Commit(bitmap);
  return SUCCESS;
}

bool HasPlanes(const BitmapHandle& bitmap) noexcept {
  switch (bitmap.BitsPerPixel) {
    case 8:
    case 12:
    case 16:
      return true;
    case 32:
      return bitmap.Order == T_ORDER_GRAY;
    default:
      return false;
  }
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_GetOverlayCount(const BitmapHandle* bitmap, uint32_t* count) noexcept {
  if (!count) return ERR_NULL_POINTER;
  TARN_TRY(RequireOwner(bitmap));
  *count = CountOf(*bitmap);
  return SUCCESS;
}

int32_t T_SetOverlayBitmap(BitmapHandle* bitmap, int32_t index, BitmapHandle* overlay, uint32_t mode) noexcept {
  TARN_TRY(RequireOwner(bitmap));
  if (overlay && overlay->StructSize != sizeof *overlay) return ERR_BAD_STRUCT_SIZE;
  if (!overlay) {
    Overlay* const place = Find(*bitmap, index);
    if (!place) return ERR_OVERLAY_INDEX;
    Empty(*bitmap, *place);
    return SUCCESS;
  }
  if (index < 0 || static_cast<uint32_t>(index) > CountOf(*bitmap)) return ERR_OVERLAY_INDEX;
  if (!IsAllocated(*overlay)) return ERR_OVERLAY_NO_BITMAP;
  if (mode > T_OVERLAY_MOVE || (mode == T_OVERLAY_MOVE && overlay == bitmap)) return ERR_INVALID_PARAMETER;
  BitmapHandle own = *overlay;
  if (mode == T_OVERLAY_COPY) TARN_TRY(CopyWhole(own, *overlay));
  Overlay* place = nullptr;
  const Status taken = Take(*bitmap, static_cast<uint32_t>(index), place);
  if (!taken.Ok()) {
    if (mode == T_OVERLAY_COPY) T_FreeBitmap(&own);
    return taken.code;
  }
  if (place->bitmap.StructSize) T_FreeBitmap(&place->bitmap);
  place->bitmap = own;
  if (mode == T_OVERLAY_MOVE) T_InitBitmap(overlay, sizeof *overlay, 0, 0, 0);
  return SUCCESS;
}

int32_t T_GetOverlayBitmap(BitmapHandle* bitmap, int32_t index, BitmapHandle* overlay, uint32_t structSize,
                           uint32_t mode) noexcept {
  if (!overlay) return ERR_NULL_POINTER;
  TARN_TRY(RequireOwner(bitmap));
  if (structSize != sizeof *overlay) return ERR_BAD_STRUCT_SIZE;
  Overlay* const place = Find(*bitmap, index);
  if (!place) return ERR_OVERLAY_INDEX;
  if (!IsAllocated(place->bitmap)) return ERR_OVERLAY_NO_BITMAP;
  if (mode > T_OVERLAY_SHARE) return ERR_INVALID_PARAMETER;
  if (mode == T_OVERLAY_COPY) {
    BitmapHandle copy{};
    TARN_TRY(CopyWhole(copy, place->bitmap));
    *overlay = copy;
    return SUCCESS;
  }
  *overlay = place->bitmap;
  if (mode == T_OVERLAY_MOVE) place->bitmap = {};
  return SUCCESS;
}

int32_t T_SetOverlayAttributes(BitmapHandle* bitmap, int32_t index, const T_OverlayAttributes* attributes,
                               uint32_t which) noexcept {
  if (!attributes) return ERR_NULL_POINTER;
  TARN_TRY(RequireOwner(bitmap));
  if (attributes->StructSize != sizeof *attributes) return ERR_BAD_STRUCT_SIZE;
  if (index < 0 || static_cast<uint32_t>(index) > CountOf(*bitmap)) return ERR_OVERLAY_INDEX;
  constexpr uint32_t kAll = T_OVERLAY_POSITION | T_OVERLAY_COLOR | T_OVERLAY_FLAGS | T_OVERLAY_BIT;
  if (which & ~kAll) return ERR_INVALID_PARAMETER;
  if (which & T_OVERLAY_BIT && (attributes->Bit < 0 || attributes->Bit > kMostBit)) return ERR_INVALID_PARAMETER;
  Overlay* place = nullptr;
  TARN_TRY(Take(*bitmap, static_cast<uint32_t>(index), place));
  if (which & T_OVERLAY_POSITION) {
    place->left = attributes->Left;
    place->top = attributes->Top;
  }
  if (which & T_OVERLAY_COLOR) place->color = attributes->Color;
  if (which & T_OVERLAY_FLAGS) place->flags = attributes->Flags & T_OVERLAY_VISIBLE;
  if (which & T_OVERLAY_BIT) place->bit = attributes->Bit;
  return SUCCESS;
}

int32_t T_GetOverlayAttributes(const BitmapHandle* bitmap, int32_t index, T_OverlayAttributes* attributes,
                               uint32_t structSize) noexcept {
  if (!attributes) return ERR_NULL_POINTER;
  TARN_TRY(RequireOwner(bitmap));
  if (structSize != sizeof *attributes) return ERR_BAD_STRUCT_SIZE;
  const Overlay* const place = Find(*bitmap, index);
  if (!place) return ERR_OVERLAY_INDEX;
  *attributes = {.StructSize = sizeof *attributes,
                 .Left = place->left,
                 .Top = place->top,
                 .Color = place->color,
                 .Flags = place->flags,
                 .Bit = place->bit};
  return SUCCESS;
}

int32_t T_MoveOverlayBits(BitmapHandle* bitmap, int32_t index, uint32_t direction) noexcept {
  TARN_TRY(RequireOwner(bitmap));
  Overlay* const place = Find(*bitmap, index);
  if (!place) return ERR_OVERLAY_INDEX;
  const bool hasBitmap = IsAllocated(place->bitmap);
  if (direction == T_OVERLAY_TO_BITMAP && !hasBitmap) return ERR_OVERLAY_NO_BITMAP;
  if (!HasPlanes(*bitmap) || (hasBitmap && place->bitmap.BitsPerPixel != 1)) return ERR_BAD_BITS_PER_PIXEL;
  if (place->bit >= bitmap->BitsPerPixel || direction > T_OVERLAY_TO_BITMAP) return ERR_INVALID_PARAMETER;
  if (!GeometryHolds(*bitmap) || (hasBitmap && !GeometryHolds(place->bitmap))) return ERR_INVALID_PARAMETER;
  const QuietCallback quiet;
  const PlaneOf plane{bitmap->BitsPerPixel, place->bit};
  return (direction == T_OVERLAY_TO_BITMAP ? ToBitmap(*bitmap, *place, plane) : FromBitmap(*bitmap, *place, plane))
      .code;
}
