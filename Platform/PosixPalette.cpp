// Logical palettes without GDI. A handle is looked up among the live ones before it is followed.

#include <cstdlib>
#include <cstring>

#include "Platform/PosixShared.h"

namespace tarn::platform {
namespace {

struct LogicalPalette {
  LogicalPalette* next;
  uint32_t count;
  LogicalColor colors[kMostLogicalColors];
};

constexpr size_t kPlaces = 256;
constinit CriticalSection section;
LogicalPalette* live[kPlaces] = {};  // chains, guarded by section

LogicalPalette** ChainOf(const void* palette) noexcept {
  return &live[reinterpret_cast<uintptr_t>(palette) * 0x9E3779B97F4A7C15u >> 56];
}

/// The link that leads to a live palette; null when there is none. The caller holds section.
LogicalPalette** Find(const void* palette) noexcept {
  for (LogicalPalette** link = ChainOf(palette); *link; link = &(*link)->next)
    if (*link == palette) return link;
  errno = EINVAL;
  return nullptr;
}

/// Entries from `first` on, at most `count`.
uint32_t Part(const LogicalPalette& palette, uint32_t first, uint32_t count) noexcept {
  if (first >= palette.count) return 0;
  return count < palette.count - first ? count : palette.count - first;
}

}  // namespace

void* PaletteCreate(const LogicalColor* entries, uint32_t count, Here here) noexcept {
  if (MemoryRefused(fault::Point::kMemory, here)) return nullptr;
  auto* const palette = static_cast<LogicalPalette*>(std::malloc(sizeof(LogicalPalette)));
  if (!palette) return nullptr;
  palette->count = count;
  std::memcpy(palette->colors, entries, count * sizeof(LogicalColor));
  const Guard guard(section);
  LogicalPalette** const chain = ChainOf(palette);
  palette->next = *chain;
  *chain = palette;
  Add(counts.palettes, 1);
  return palette;
}

bool PaletteDelete(void* palette) noexcept {
  {
    const Guard guard(section);
    LogicalPalette** const link = Find(palette);
    if (!link) return false;
    *link = (*link)->next;
  }
  std::free(palette);
  Add(counts.palettes, -1);
  return true;
}

uint32_t PaletteSize(void* palette) noexcept {
  const Guard guard(section);
  LogicalPalette** const link = Find(palette);
  return link ? (*link)->count : 0;
}

uint32_t PaletteGet(void* palette, uint32_t first, uint32_t count, LogicalColor* entries) noexcept {
  const Guard guard(section);
  LogicalPalette** const link = Find(palette);
  const uint32_t moved = link ? Part(**link, first, count) : 0;
  if (moved) std::memcpy(entries, (*link)->colors + first, moved * sizeof(LogicalColor));
  return moved;
}

uint32_t PaletteSet(void* palette, uint32_t first, uint32_t count, const LogicalColor* entries) noexcept {
  const Guard guard(section);
  LogicalPalette** const link = Find(palette);
  const uint32_t moved = link ? Part(**link, first, count) : 0;
  if (moved) std::memcpy((*link)->colors + first, entries, moved * sizeof(LogicalColor));
  return moved;
}

uint32_t PaletteNearest(void* palette, uint32_t color) noexcept {
  const Guard guard(section);
  LogicalPalette** const link = Find(palette);
  if (!link) return 0;
  const auto square = [](uint32_t difference) noexcept { return difference * difference; };
  uint32_t index = 0;
  uint32_t nearest = UINT32_MAX;
  for (uint32_t i = 0; i < (*link)->count; ++i) {
    const LogicalColor& entry = (*link)->colors[i];
    const uint32_t distance = square(entry.red - (color & 255)) + square(entry.green - (color >> 8 & 255)) +
                              square(entry.blue - (color >> 16 & 255));
    if (distance < nearest) {
      nearest = distance;
      index = i;
    }
  }
  return index;
}

uint32_t ScreenPalette(LogicalColor (&)[kMostLogicalColors], Here) noexcept { return 0; }

}  // namespace tarn::platform
