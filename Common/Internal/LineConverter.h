#pragma once
// Lines of pixels from one format to another. A line passes in blocks through three stages: a reader brings packed
// pixels into the form of their domain, a step brings that into the form that the target is written from, a writer
// packs it. All three are chosen once a line; pairs that matter have one kernel instead.
//
//   source           domain                  form                        target
//   0                kLevel8, a byte         kBytes, index or level      0, 1..8
//   1..8             kIndex, a byte          kValues, gray samples       12, 16, 32 gray
//   12, 16, 32 gray  kDeep, 32 bits raw      kColor8, B G R A bytes      16, 24, 32
//   16, 24, 32       kColor8                 kColor16, B G R A words     48, 64
//   48, 64           kColor16

#include <cstdint>

#include "Common/Internal/LineContext.h"
#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

struct LineFormat {
  int32_t bits;
  uint32_t order;
  const T_PaletteEntry* palette;  // 1 << bits entries or null
};

struct LineOptions {
  uint32_t flags = 0;
  int32_t lowBit = -1;
  int32_t highBit = -1;
};

/// Some kilobytes of tables: lives on the stack of an operation. The palettes must stay as they are meanwhile.
class LineConverter {
 public:
  LineConverter() noexcept {}  // tables are filled as far as they are needed
  LineConverter(const LineConverter&) = delete;
  LineConverter& operator=(const LineConverter&) = delete;

  /// ERR_INVALID_PARAMETER for formats or options that T_ConvertBufferExt refuses.
  Status Open(const LineFormat& source, const LineFormat& target, const LineOptions& options) noexcept;
  /// Nothing changes: source and target bytes are the same.
  [[nodiscard]] bool Identity() const noexcept { return identity_; }
  /// target is source's address, or the two do not overlap. Bits behind the last pixel become 0.
  void Convert(uint8_t* target, const uint8_t* source, int64_t width) const noexcept;

 private:
  Status OpenSides(const LineFormat& source, const LineFormat& target, const LineOptions& options) noexcept;
  void ChooseStages(const LineFormat& source, const LineFormat& target) noexcept;
  [[nodiscard]] bool IndicesAreLevels(const LineFormat& source) const noexcept;
  void MakeTables(const LineFormat& source, const LineFormat& target) noexcept;
  [[nodiscard]] bool FindIdentity() const noexcept;
  int64_t ConvertEnd(uint8_t* target, const uint8_t* source, int64_t width) const noexcept;
  void ConvertBlock(uint8_t* target, const uint8_t* source, int count) const noexcept;

  LineContext k_;
  LineRead read_;
  LineStep step_;
  LineWrite write_;
  LineWhole whole_;
  bool identity_;
};

}  // namespace tarn
