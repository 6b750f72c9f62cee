// Logical palettes: GDI's on Windows, objects that answer alike elsewhere.

#include "Common/Internal/Checks.h"
#include "Common/Internal/Ledger.h"
#include "Common/Internal/Storage.h"
#include "Common/Internal/TrackedBuffer.h"
#include "Platform/Platform.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

using platform::LogicalColor;
constexpr uint32_t kMost = platform::kMostLogicalColors;

T_PaletteEntry EntryOf(LogicalColor color) noexcept { return {color.blue, color.green, color.red, color.flags}; }
LogicalColor ColorOf(T_PaletteEntry entry) noexcept { return {entry.Red, entry.Green, entry.Blue, entry.Reserved}; }
/// Without flags, some of which would take an entry out of the search for the nearest one.
LogicalColor PlainColorOf(T_PaletteEntry entry) noexcept { return {entry.Red, entry.Green, entry.Blue, 0}; }

template <LogicalColor (*Convert)(T_PaletteEntry)>
T_LogicalPalette Make(const T_PaletteEntry* entries, uint32_t count, Here here) noexcept {
  if (!entries || count == 0 || count > kMost) return nullptr;
  LogicalColor colors[kMost];
  for (uint32_t i = 0; i < count; ++i) colors[i] = Convert(entries[i]);
  return platform::PaletteCreate(colors, count, here);
}

/// Entries of the bitmap's palette; 0 when they are fewer than it says.
uint32_t WholePalette(const BitmapHandle& bitmap) noexcept {
  const uint32_t count = PaletteEntriesOf(bitmap);
  return count == bitmap.Colors ? count : 0;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

T_LogicalPalette T_CreatePalette(const T_PaletteEntry* entries, uint32_t count) noexcept {
  return Make<ColorOf>(entries, count, TARN_HERE);
}

T_LogicalPalette T_CreateSystemPalette() noexcept {
  LogicalColor colors[kMost];
  const Here here = TARN_HERE;
  const uint32_t count = platform::ScreenPalette(colors, here);
  return count ? platform::PaletteCreate(colors, count, here) : nullptr;
}

T_LogicalPalette T_DupPalette(T_LogicalPalette palette) noexcept {
  const uint32_t count = T_GetPaletteSize(palette);
  if (count == 0) return nullptr;
  TrackedBuffer<T_PaletteEntry> entries(count, TARN_HERE);
  if (!entries || T_GetPaletteEntries(palette, 0, count, entries.data()) != count) return nullptr;
  return T_CreatePalette(entries.data(), count);
}

T_LogicalPalette T_DupBitmapPalette(const BitmapHandle* bitmap) noexcept {
  if (!RequireSize(bitmap, ERR_NO_BITMAP).Ok()) return nullptr;
  return T_CreatePalette(bitmap->Palette, WholePalette(*bitmap));
}

int32_t T_DeletePalette(T_LogicalPalette palette) noexcept { return platform::PaletteDelete(palette) ? 1 : 0; }

uint32_t T_GetPaletteSize(T_LogicalPalette palette) noexcept { return platform::PaletteSize(palette); }

uint32_t T_GetPaletteEntries(T_LogicalPalette palette, uint32_t first, uint32_t count,
                             T_PaletteEntry* entries) noexcept {
  if (!entries) return 0;
  LogicalColor colors[kMost];
  uint32_t moved = 0;
  for (;;) {
    const uint32_t wanted = count - moved < kMost ? count - moved : kMost;
    const uint32_t got = platform::PaletteGet(palette, first + moved, wanted, colors);
    for (uint32_t i = 0; i < got; ++i) entries[moved + i] = EntryOf(colors[i]);
    moved += got;
    if (got < kMost || moved == count) return moved;
  }
}

uint32_t T_SetPaletteEntries(T_LogicalPalette palette, uint32_t first, uint32_t count,
                             const T_PaletteEntry* entries) noexcept {
  if (!entries) return 0;
  LogicalColor colors[kMost];
  const uint32_t size = T_GetPaletteSize(palette);
  if (first >= size) return 0;
  if (count > size - first) count = size - first;  // no more is read than has a place
  uint32_t moved = 0;
  while (moved < count) {
    const uint32_t wanted = count - moved < kMost ? count - moved : kMost;
    for (uint32_t i = 0; i < wanted; ++i) colors[i] = ColorOf(entries[moved + i]);
    const uint32_t set = platform::PaletteSet(palette, first + moved, wanted, colors);
    moved += set;
    if (set < wanted) break;
  }
  return moved;
}

int32_t T_SetBitmapPalette(BitmapHandle* bitmap, T_LogicalPalette palette) noexcept {
  TARN_TRY(RequireSize(bitmap, ERR_NO_BITMAP));
  const uint32_t count = T_GetPaletteSize(palette);
  if (count < 2 || count > kMost) return ERR_INVALID_PARAMETER;
  T_PaletteEntry entries[kMost];
  if (T_GetPaletteEntries(palette, 0, count, entries) != count) return ERR_INVALID_PARAMETER;
  const uint32_t colors = bitmap->Colors;
  if (T_SetBitmapNewPalette(bitmap, entries, count) == SUCCESS) return SUCCESS;
  bitmap->Colors = colors;
  return ERR_NO_MEMORY;
}

uint32_t T_GetNearestPaletteIndex(const BitmapHandle* bitmap, uint32_t color) noexcept {
  if (!bitmap) return 0;
  const Here here = TARN_HERE;
  void* const palette = Make<PlainColorOf>(bitmap->Palette, WholePalette(*bitmap), here);
  if (!palette) return 0;
  ledger::Add(palette, ledger::Kind::kSystem, here);
  const uint32_t index = platform::PaletteNearest(palette, color);
  ledger::Remove(palette, ledger::Kind::kSystem, here);
  platform::PaletteDelete(palette);
  return index;
}
