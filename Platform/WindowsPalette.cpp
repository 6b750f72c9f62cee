// Logical palettes are GDI's.

#include <cstring>

#include "Platform/WindowsShared.h"

namespace tarn::platform {
namespace {

static_assert(sizeof(LogicalColor) == sizeof(PALETTEENTRY) && offsetof(LogicalColor, flags) == 3);

/// Null for what is no palette: some calls would take another object for one.
HPALETTE AsPalette(void* palette) noexcept {
  return palette && GetObjectType(palette) == OBJ_PAL ? static_cast<HPALETTE>(palette) : nullptr;
}

/// Entries from `first` on, at most `count`.
uint32_t Part(HPALETTE palette, uint32_t first, uint32_t count) noexcept {
  const uint32_t size = palette ? PaletteSize(palette) : 0;
  if (first >= size) return 0;
  return count < size - first ? count : size - first;
}

}  // namespace

void* PaletteCreate(const LogicalColor* entries, uint32_t count, Here here) noexcept {
  if (MemoryRefused(fault::Point::kMemory, here)) return nullptr;
  struct {
    WORD version, count;
    LogicalColor entries[kMostLogicalColors];
  } description;
  description.version = 0x300;
  description.count = static_cast<WORD>(count);
  std::memcpy(description.entries, entries, count * sizeof(LogicalColor));
  return CreatePalette(reinterpret_cast<const LOGPALETTE*>(&description));
}

bool PaletteDelete(void* palette) noexcept {
  const HPALETTE object = AsPalette(palette);
  return object && DeleteObject(object);
}

uint32_t PaletteSize(void* palette) noexcept {
  const HPALETTE object = AsPalette(palette);
  WORD count = 0;
  return object && GetObjectW(object, sizeof count, &count) ? count : 0;
}

uint32_t PaletteGet(void* palette, uint32_t first, uint32_t count, LogicalColor* entries) noexcept {
  const HPALETTE object = AsPalette(palette);
  const uint32_t part = Part(object, first, count);
  return part ? GetPaletteEntries(object, first, part, reinterpret_cast<PALETTEENTRY*>(entries)) : 0;
}

uint32_t PaletteSet(void* palette, uint32_t first, uint32_t count, const LogicalColor* entries) noexcept {
  const HPALETTE object = AsPalette(palette);
  const uint32_t part = Part(object, first, count);
  return part ? SetPaletteEntries(object, first, part, reinterpret_cast<const PALETTEENTRY*>(entries)) : 0;
}

uint32_t PaletteNearest(void* palette, uint32_t color) noexcept {
  const HPALETTE object = AsPalette(palette);
  const UINT index = object ? GetNearestPaletteIndex(object, color & 0xFFFFFF) : CLR_INVALID;
  return index == CLR_INVALID ? 0 : index;
}

uint32_t ScreenPalette(LogicalColor (&entries)[kMostLogicalColors], Here here) noexcept {
  if (MemoryRefused(fault::Point::kMemory, here)) return 0;
  const HDC screen = GetDC(nullptr);
  if (!screen) return 0;
  UINT count = 0;
  if (GetDeviceCaps(screen, RASTERCAPS) & RC_PALETTE) {
    const int size = GetDeviceCaps(screen, SIZEPALETTE);
    const UINT wanted = size < 0 ? 0 : size > int{kMostLogicalColors} ? kMostLogicalColors : static_cast<UINT>(size);
    count = GetSystemPaletteEntries(screen, 0, wanted, reinterpret_cast<PALETTEENTRY*>(entries));
  }
  ReleaseDC(nullptr, screen);
  return count;
}

}  // namespace tarn::platform
