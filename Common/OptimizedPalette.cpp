// Palettes of the colours that occur, for one bitmap or several.

#include <cstring>

#include "Common/Internal/BitmapList.h"
#include "Common/Internal/Checks.h"
#include "Common/Internal/ColorRes.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Optimizer.h"
#include "Common/Internal/Rows.h"
#include "tarn/colors.h"
#include "tarn/dither.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

bool SameColor(const T_PaletteEntry& a, const T_PaletteEntry& b) noexcept {
  return a.Red == b.Red && a.Green == b.Green && a.Blue == b.Blue;
}

bool Holds(const T_PaletteEntry* entries, uint32_t count, const T_PaletteEntry& color) noexcept {
  for (uint32_t i = 0; i < count; ++i) {
    if (SameColor(entries[i], color)) return true;
  }
  return false;
}

void Clear(OptimizedPalette& result) noexcept {
  std::memset(result.entries, 0, sizeof result.entries);
  result.count = 0;
  result.built = false;
}

Status Build(BitmapHandle* bitmaps, uint32_t count, uint32_t wanted, OptimizedPalette& result) noexcept {
  Optimizer optimizer;
  TARN_TRY(optimizer.Open(wanted));
  for (uint32_t i = 0; i < count; ++i) TARN_TRY(optimizer.Add(bitmaps[i]));
  Clear(result);
  result.count = optimizer.Build(result.entries);
  result.built = true;
  result.table.Take(optimizer.TakeMatchTable());
  return SUCCESS;
}

/// All colours of the palettes when there are at most `wanted`.
bool Merge(const BitmapHandle* bitmaps, uint32_t count, uint32_t wanted, OptimizedPalette& result) noexcept {
  Clear(result);
  for (uint32_t i = 0; i < count; ++i) {
    if (bitmaps[i].BitsPerPixel > 8) return false;
    T_PaletteEntry entries[256];
    uint32_t held = T_GetBitmapPaletteEntries(&bitmaps[i], 0, 256, entries);
    if (!bitmaps[i].Palette) {
      held = 1u << bitmaps[i].BitsPerPixel;
      T_GetFixedPalette(entries, static_cast<uint32_t>(bitmaps[i].BitsPerPixel));
    }
    for (uint32_t entry = 0; entry < held; ++entry) {
      if (Holds(result.entries, result.count, entries[entry])) continue;
      if (result.count == wanted) return false;
      result.entries[result.count] = entries[entry];
      result.entries[result.count++].Reserved = 0;
    }
  }
  uint8_t place[256];
  SortColors(result.entries, result.count, place);
  return true;
}

Status RequirePictures(const BitmapHandle* bitmaps, uint32_t count) noexcept {
  for (uint32_t i = 0; i < count; ++i) {
    if (!IsAllocated(bitmaps[i])) return ERR_NO_BITMAP;
    if (bitmaps[i].StructSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
    if (!GeometryHolds(bitmaps[i])) return ERR_INVALID_PARAMETER;
  }
  return SUCCESS;
}

}  // namespace

void MatchTable::Release() noexcept {
  if (owned_) T_FreeUserMatchTable(table_);
  owned_ = false;
  table_ = nullptr;
}

Status OptimizeBitmap(BitmapHandle& bitmap, uint32_t wanted, const T_PaletteEntry* excluded, uint32_t excludedCount,
                      OptimizedPalette& result) noexcept {
  const QuietCallback quiet;
  Clear(result);
  if (bitmap.BitsPerPixel <= 8 && bitmap.Palette && bitmap.Colors <= wanted && excludedCount == 0) {
    result.count = T_GetBitmapPaletteEntries(&bitmap, 0, wanted, result.entries);
    for (T_PaletteEntry& entry : result.entries) entry.Reserved = 0;
    return SUCCESS;
  }
  T_PaletteEntry found[512];
  const uint32_t most = wanted + excludedCount;
  uint32_t count = most;
  TARN_TRY(CountColors(bitmap, count, found));
  if (count > most) return Build(&bitmap, 1, wanted, result);
  for (uint32_t i = 0; i < count; ++i) {
    if (Holds(excluded, excludedCount, found[i]) || Holds(result.entries, result.count, found[i])) continue;
    if (result.count == wanted) return Build(&bitmap, 1, wanted, result);
    result.entries[result.count++] = found[i];
  }
  uint8_t place[256];
  SortColors(result.entries, result.count, place);
  return SUCCESS;
}

Status OptimizeBitmaps(BitmapHandle* bitmaps, uint32_t count, uint32_t wanted, OptimizedPalette& result) noexcept {
  TARN_TRY(RequirePictures(bitmaps, count));
  if (count == 1) return OptimizeBitmap(bitmaps[0], wanted, nullptr, 0, result);
  const QuietCallback quiet;
  if (Merge(bitmaps, count, wanted, result)) return SUCCESS;
  return Build(bitmaps, count, wanted, result);
}

}  // namespace tarn

using namespace tarn;

int32_t T_CreateBitmapListOptPal(T_BitmapList* list, T_PaletteEntry* palette, uint32_t* count, uint32_t** matchTable,
                                 uint32_t* optimized) noexcept {
  if (!list || !palette || !count || !optimized || *count == 0 || *count > 256) return ERR_INVALID_PARAMETER;
  if (list->Count == 0) return ERR_NO_BITMAP;
  if (!list->Items) return ERR_NULL_POINTER;
  OptimizedPalette made;
  TARN_TRY(OptimizeBitmaps(list->Items, list->Count, *count, made));
  std::memcpy(palette, made.entries, *count * sizeof(T_PaletteEntry));
  *count = made.count;
  *optimized = made.built || list->Count > 1;
  if (matchTable) *matchTable = made.built ? made.table.Give() : nullptr;
  return SUCCESS;
}
