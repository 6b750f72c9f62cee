// Duplicating records, whole copies, copying pixels between bitmaps of one geometry.

#include "tarn/copy.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Compressed.h"
#include "Common/Internal/Duplicate.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/Overlays.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/Runs.h"
#include "Common/Internal/Storage.h"
#include "tarn/memory.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

constexpr uint32_t kSharedFlags =
    T_FLAG_COMPRESSED | T_FLAG_SUPER_COMPRESSED | T_FLAG_ON_DISK | T_FLAG_SIGNED_DATA | 0x10000;

uint32_t TypeLike(const BitmapHandle& source) noexcept {
  if (source.Flags & T_FLAG_COMPRESSED) return TYPE_COMPRESSED | TYPE_CONV;
  if (source.Flags & T_FLAG_SUPER_COMPRESSED) return TYPE_SUPERCOMPRESSED | TYPE_CONV;
  return source.Flags & T_FLAG_ON_DISK ? TYPE_DISK : TYPE_CONV;
}

Status DuplicateStorage(BitmapHandle& duplicate, const BitmapHandle& source) noexcept {
  const bool sameDepth = duplicate.BitsPerPixel == source.BitsPerPixel;
  TARN_TRY(T_AllocateBitmap(&duplicate, TypeLike(source)));
  Status copied = SUCCESS;
  if (sameDepth) {
    copied = CopyGrayParams(duplicate, source, true);
  } else if (source.GrayParams) {
    std::memcpy(duplicate.GrayParams, source.GrayParams, kGrayParamsBytes);
  }
  if (!copied.Ok()) T_FreeBitmap(&duplicate);
  return copied;
}

Status DuplicateRegion(BitmapHandle& duplicate, const BitmapHandle& source) noexcept {
  const T_RegionHooks* const hooks = RegionHooks();
  if (!source.Region || !hooks || !hooks->Duplicate) return SUCCESS;
  uint64_t region = 0;
  TARN_TRY(hooks->Duplicate(&region, &source));
  duplicate.Region = region;
  return SUCCESS;
}

// Copies the mode's parts one after the other; `own` names those that the duplicate owns already.
Status DuplicateParts(BitmapHandle& duplicate, const BitmapHandle& source, uint32_t mode, uint32_t& own) noexcept {
  if (mode & DUP_STORAGE) {
    TARN_TRY(DuplicateStorage(duplicate, source));
    own |= DUP_STORAGE;
  }
  if (mode & DUP_PALETTE) {
    if (T_CopyBitmapPalette(&duplicate, &source) != SUCCESS) return ERR_NO_MEMORY;
    own |= DUP_PALETTE;
  } else {
    duplicate.Palette = source.Palette;
  }
  if (mode & DUP_REGION) {
    TARN_TRY(DuplicateRegion(duplicate, source));
    own |= DUP_REGION;
  } else {
    duplicate.Region = source.Region;
  }
  if (!(mode & DUP_OVERLAYS)) {
    duplicate.Overlays = source.Overlays;
    return SUCCESS;
  }
  T_OverlayList* overlays = nullptr;
  TARN_TRY(DuplicateOverlays(overlays, source.Overlays));
  duplicate.Overlays = overlays;
  return SUCCESS;
}

Status CopyRows(BitmapHandle& destination, BitmapHandle& source, Progress& progress) noexcept {
  RowReader from(source, TARN_HERE);
  RowWriter to(destination, TARN_HERE);
  TARN_TRY(from.Open());
  TARN_TRY(to.Open());
  const int32_t height = source.Height;
  const uint32_t rowBytes = source.BytesPerLine;
  for (int32_t row = 0; row < height; ++row) {
    const uint8_t* const line = from.Row(row);
    if (!line) return from.status();
    std::memcpy(to.Row(row), line, rowBytes);
    TARN_TRY(to.Commit());
    TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

bool SameShape(const BitmapHandle& a, const BitmapHandle& b) noexcept {
  return a.BytesPerLine == b.BytesPerLine && a.Height == b.Height && a.Width == b.Width;
}

Status CopyAll(BitmapHandle& target, BitmapHandle& source, const uint32_t* memoryType) noexcept {
  TARN_TRY(MakeLike(target, source, source.Width, source.Height, memoryType));
  const Status copied = T_CopyBitmapData(&target, &source);
  if (!copied.Ok()) T_FreeBitmap(&target);
  return copied;
}

Status CopyToCaller(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize,
                    const uint32_t* memoryType) noexcept {
  if (!destination || !source || !IsAllocated(*source)) return ERR_INVALID_PARAMETER;
  if (destination == source) return SUCCESS;
  if (source->StructSize != sizeof(BitmapHandle) || structSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
  return CopyAll(*destination, *source, memoryType);
}

}  // namespace

Status CopyCompressedRows(BitmapHandle& target, uint32_t targetRow, BitmapHandle& source, uint32_t sourceRow,
                          uint32_t rows, Progress& progress) noexcept {
  TrackedBuffer<uint16_t> record(MaxRunWords(static_cast<uint32_t>(source.Width)) + 2, TARN_HERE);
  if (!record) return ERR_NO_MEMORY;
  for (uint32_t row = 0; row < rows; ++row) {
    TARN_TRY(T_GetBitmapRowCompressed(&source, nullptr, record.data(), sourceRow + row, 1));
    TARN_TRY(T_PutBitmapRowCompressed(&target, nullptr, record.data(), targetRow + row, 1));
    TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

Status MakeLike(BitmapHandle& target, const BitmapHandle& source, int32_t width, int32_t height,
                const uint32_t* memoryType) noexcept {
  constexpr uint32_t kFurnishings = DUP_PALETTE | DUP_REGION | DUP_OVERLAYS;
  const int32_t bits = source.BitsPerPixel;
  if (!memoryType)
    return T_DupBitmapNewDim(&target, &source, sizeof target, width, height, bits, DUP_STORAGE | kFurnishings);
  TARN_TRY(T_DupBitmapNewDim(&target, &source, sizeof target, width, height, bits, kFurnishings));
  const Status allocated = T_AllocateBitmap(&target, *memoryType);
  if (!allocated.Ok()) {
    T_FreeDuplicateBitmap(&target, kFurnishings);
    return allocated;
  }
  const Status copied = CopyGrayParams(target, source, true);
  if (!copied.Ok()) T_FreeBitmap(&target);
  return copied;
}

Status CopyWhole(BitmapHandle& target, BitmapHandle& source) noexcept {
  const QuietCallback quiet;
  return CopyAll(target, source, nullptr);
}

void ReplaceWhole(BitmapHandle& bitmap, const BitmapHandle& result) noexcept {
  void* const dithering = bitmap.DitherContext;
  T_FreeBitmap(&bitmap);
  bitmap = result;
  bitmap.DitherContext = dithering;
}

void DescribeSamples(BitmapHandle& result, uint32_t order) noexcept {
  const Here here = TARN_HERE;
  if (result.LUT) T_GlobalFree(result.LUT, here.line, here.file);
  result.LUT = nullptr;
  result.LUTLength = 0;
  result.Flags &= ~static_cast<uint32_t>(T_FLAG_LUT_IN_USE | T_FLAG_SIGNED_DATA);
  result.Order = order;
  result.LowBit = result.AltLowBit = 0;
  result.HighBit = result.AltHighBit = HighBitOf(result.BitsPerPixel);
}

void AdoptPalette(BitmapHandle& bitmap, T_PaletteEntry* palette, uint32_t colors) noexcept {
  T_SetBitmapNewPalette(&bitmap, nullptr, 0);
  bitmap.Palette = palette;
  bitmap.Colors = palette ? colors : 0;
}

}  // namespace tarn

using namespace tarn;

int32_t T_DupBitmapNewDim(BitmapHandle* duplicate, const BitmapHandle* source, uint32_t structSize, int32_t width,
                          int32_t height, int32_t bitsPerPixel, uint32_t mode) noexcept {
  if (!duplicate || !source || !IsAllocated(*source)) return ERR_NO_BITMAP;
  if (source->StructSize != sizeof(BitmapHandle) || structSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
  TARN_TRY(T_InitBitmap(duplicate, structSize, width, height, bitsPerPixel));
  duplicate->Flags = source->Flags & kSharedFlags;
  duplicate->ViewPerspective = source->ViewPerspective;
  duplicate->XResolution = source->XResolution;
  duplicate->YResolution = source->YResolution;
  duplicate->Order = source->Order;
  duplicate->Colors = source->Colors;
  T_CopyPlaybackParms(duplicate, source);
  uint32_t own = 0;
  const Status made = DuplicateParts(*duplicate, *source, mode, own);
  if (!made.Ok()) {
    T_FreeDuplicateBitmap(duplicate, own);
    duplicate->Flags &= ~static_cast<uint32_t>(T_FLAG_ALLOCATED);
  }
  return made.code;
}

int32_t T_FreeDuplicateBitmap(BitmapHandle* duplicate, uint32_t mode) noexcept {
  TARN_TRY(RequireSize(duplicate, ERR_INVALID_PARAMETER));
  if (!(mode & DUP_PALETTE)) duplicate->Palette = nullptr;
  if (!(mode & DUP_REGION)) duplicate->Region = 0;
  if (!(mode & DUP_OVERLAYS)) duplicate->Overlays = nullptr;
  if (!(mode & DUP_STORAGE)) duplicate->Flags &= ~static_cast<uint32_t>(T_FLAG_ALLOCATED);
  T_FreeBitmap(duplicate);
  return SUCCESS;
}

int32_t T_CopyBitmap(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize) noexcept {
  return CopyToCaller(destination, source, structSize, nullptr).code;
}

int32_t T_CopyBitmap2(BitmapHandle* destination, BitmapHandle* source, uint32_t memoryType,
                      uint32_t structSize) noexcept {
  return CopyToCaller(destination, source, structSize, &memoryType).code;
}

int32_t T_CopyBitmapData(BitmapHandle* destination, BitmapHandle* source) noexcept {
  if (!destination || !source || !IsAllocated(*destination) || !IsAllocated(*source)) return ERR_NO_BITMAP;
  if (destination == source) return SUCCESS;
  TARN_TRY(RequireSize(destination, ERR_NO_BITMAP));
  TARN_TRY(RequireSize(source, ERR_NO_BITMAP));
  if (!SameShape(*destination, *source)) return ERR_INVALID_PARAMETER;
  const BitmapLock lockDestination(*destination);
  const BitmapLock lockSource(*source);
  void* userData = nullptr;
  const T_StatusCallback callback = T_GetCopyStatusCallBack(&userData);
  Progress progress(source->Height, callback, userData);
  if (destination->Flags & source->Flags & T_FLAG_COMPRESSED)
    return CopyCompressedRows(*destination, 0, *source, 0, static_cast<uint32_t>(source->Height), progress).code;
  return CopyRows(*destination, *source, progress).code;
}

void T_CopyPlaybackParms(BitmapHandle* destination, const BitmapHandle* source) noexcept {
  if (!destination || !source) return;
  destination->PlaybackLeft = source->PlaybackLeft;
  destination->PlaybackTop = source->PlaybackTop;
  destination->PlaybackDelay = source->PlaybackDelay;
  destination->PlaybackBackground = source->PlaybackBackground;
  destination->PlaybackTransparency = source->PlaybackTransparency;
  destination->PlaybackDisposal = source->PlaybackDisposal;
}
