// The nearest entry of a palette, and maps from palette to palette.

#include <cstring>

#include "Common/Internal/Nearest.h"
#include "Common/Internal/PaletteMap.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

constexpr uint32_t kNoEntry = 0xFFFFFFFF;

bool Holds(const T_PaletteEntry& entry, uint8_t level) noexcept {
  return entry.Red == level && entry.Green == level && entry.Blue == level;
}

/// Deliberate: black is looked for at the first entry and then at the last, white the other way round, before the
/// search proper. Black and white pages whose palette holds such an entry elsewhere too rely on the ends. False when
/// neither end decides.
bool AtAnEnd(const T_PaletteEntry* entries, uint32_t count, uint32_t color, uint32_t& index) noexcept {
  const uint32_t last = count - 1;
  if (color == 0) {
    if (Holds(entries[0], 0)) return index = 0, true;
    if (Holds(entries[last], 0)) return index = last, true;
  } else if (color == 0xFFFFFF) {
    if (Holds(entries[last], 255)) return index = last, true;
    if (Holds(entries[0], 255)) return index = 0, true;
  }
  return false;
}

constexpr uint32_t Packed(uint32_t red, uint32_t green, uint32_t blue) noexcept {
  return red << 16 | green << 8 | blue;
}

const uint8_t* BytesOf(const T_PaletteEntry* entries) noexcept { return &entries->Blue; }

}  // namespace

NearestSearch::NearestSearch(const T_PaletteEntry* entries, uint32_t count) noexcept
    : entries_(entries), count_(count), kernels_(Kernels()) {
  if (entries && count > 0 && count <= kPreparedEntries) PreparePalette(prepared_, BytesOf(entries), count);
}

uint32_t NearestSearch::Find(uint32_t red, uint32_t green, uint32_t blue) const noexcept {
  if (!entries_) return 0;
  if (count_ == 0) return kNoEntry;
  const uint32_t color = Packed(red, green, blue);
  uint32_t index = 0;
  if (AtAnEnd(entries_, count_, color, index)) return index;
  if (count_ > kPreparedEntries) return kernels_.nearestEntry(BytesOf(entries_), count_, color);
  return kernels_.nearestPrepared(prepared_, color);
}

bool BuildPaletteIndexMap(const T_PaletteEntry* source, uint32_t sourceCount, const T_PaletteEntry* target,
                          uint32_t targetCount, uint8_t* map) noexcept {
  if (!source && !target) return true;
  if (source && target && targetCount >= sourceCount &&
      std::memcmp(source, target, sourceCount * sizeof(T_PaletteEntry)) == 0) {
    for (uint32_t i = 0; i < sourceCount; ++i) map[i] = static_cast<uint8_t>(i);
    return true;
  }
  const NearestSearch nearest(target, targetCount);
  bool identity = true;
  for (uint32_t i = 0; i < sourceCount; ++i) {
    uint32_t to;
    if (!source) {
      to = nearest.Find(i, i, i);
    } else {
      const T_PaletteEntry& entry = source[i];
      to = target ? nearest.Find(entry.Red, entry.Green, entry.Blue)
                  : (5u * entry.Green + 2u * entry.Red + entry.Blue + 4u) >> 3;
    }
    map[i] = static_cast<uint8_t>(to);
    identity = identity && map[i] == i;
  }
  return identity;
}

}  // namespace tarn

using namespace tarn;

uint32_t T_FindPaletteIndex(const T_PaletteEntry* entries, uint32_t count, uint8_t red, uint8_t green,
                            uint8_t blue) noexcept {
  if (!entries) return 0;
  if (count == 0) return kNoEntry;
  const uint32_t color = Packed(red, green, blue);
  uint32_t index = 0;
  if (AtAnEnd(entries, count, color, index)) return index;
  return Kernels().nearestEntry(BytesOf(entries), count, color);
}
