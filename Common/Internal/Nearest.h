#pragma once
// Many searches for the nearest entry of one palette.

#include <cstdint>

#include "Kernels/Kernels.h"
#include "tarn/types.h"

namespace tarn {

/// Lives on the stack of an operation (3 KB); making it costs about as much as one search. The entries must stay as
/// they are meanwhile.
class NearestSearch {
 public:
  NearestSearch(const T_PaletteEntry* entries, uint32_t count) noexcept;
  /// What T_FindPaletteIndex(entries, count, red, green, blue) gives.
  [[nodiscard]] uint32_t Find(uint32_t red, uint32_t green, uint32_t blue) const noexcept;
  /// The same of all colours of a cell, at their places in `answers`; see kCellColors. 1..256 entries.
  void FindCell(uint32_t cell, uint8_t* answers) const noexcept;

 private:
  const T_PaletteEntry* entries_;
  uint32_t count_;
  const KernelTable& kernels_;
  PreparedPalette prepared_;  // when there are 1..kPreparedEntries entries
};

}  // namespace tarn
