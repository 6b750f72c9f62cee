#pragma once
// Colours to indices of a palette, exactly as T_FindPaletteIndex finds them, with a memory: each thread keeps the
// answers for the palette it used last, because callers convert a picture line by line.

#include <cstdint>

#include "Common/Internal/Nearest.h"
#include "tarn/types.h"

namespace tarn {

struct NearestCache;
void FreeNearestCache(NearestCache* cache) noexcept;  // null is ignored

class NearestMap {
 public:
  NearestMap() noexcept {}
  /// 1..256 entries, which must stay as they are.
  void Open(const T_PaletteEntry* entries, uint32_t count) noexcept;
  /// Canonical pixels (blue, green, red, any) to indices.
  void Map(uint8_t* target, const uint8_t* colors, int64_t pixels) const noexcept;
  /// What BuildPaletteIndexMap gives for this target.
  bool IndexMap(const T_PaletteEntry* source, uint32_t sourceCount, uint8_t* map) const noexcept;

 private:
  NearestCache* cache_;  // null: there was no memory
  const T_PaletteEntry* entries_;
  uint32_t count_;
};

}  // namespace tarn
