#pragma once
// What counting, optimizing and colour resolution share.

#include <cstdint>

#include "Common/Internal/Status.h"
#include "Common/Internal/TrackedBuffer.h"
#include "tarn/types.h"

namespace tarn {

/// A match table that is freed unless it is only lent.
class MatchTable {
 public:
  MatchTable() noexcept = default;
  MatchTable(uint32_t* table, bool owned) noexcept : table_(table), owned_(owned) {}
  ~MatchTable() { Release(); }
  MatchTable(const MatchTable&) = delete;
  MatchTable& operator=(const MatchTable&) = delete;
  void Take(uint32_t* table) noexcept {
    Release();
    table_ = table;
    owned_ = true;
  }
  [[nodiscard]] uint32_t* Get() const noexcept { return table_; }
  /// The caller's from now on.
  uint32_t* Give() noexcept {
    owned_ = false;
    return table_;
  }

 private:
  void Release() noexcept;
  uint32_t* table_ = nullptr;
  bool owned_ = false;
};

struct OptimizedPalette {
  T_PaletteEntry entries[256];  // zeros behind the last one
  uint32_t count;
  bool built;        // of boxes: table maps keys to positions
  MatchTable table;  // when built
};

/// The bitmap's own colours when at most `wanted` (1..256), less those of `excluded`, else an optimized palette.
Status OptimizeBitmap(BitmapHandle& bitmap, uint32_t wanted, const T_PaletteEntry* excluded, uint32_t excludedCount,
                      OptimizedPalette& result) noexcept;
/// One palette for several bitmaps; records by value, as a list holds them.
Status OptimizeBitmaps(BitmapHandle* bitmaps, uint32_t count, uint32_t wanted, OptimizedPalette& result) noexcept;

/// T_GetBitmapColorCountExt without its checks.
Status CountColors(BitmapHandle& bitmap, uint32_t& count, T_PaletteEntry* palette) noexcept;

}  // namespace tarn
