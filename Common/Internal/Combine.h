#pragma once
// One row of a destination combined with one row of a source.

#include <cstdint>

#include "Common/Internal/LinesInto.h"
#include "Common/Internal/Status.h"
#include "Common/Internal/TrackedBuffer.h"
#include "Kernels/Combine.h"
#include "tarn/combine.h"

namespace tarn {

/// The part of two rectangles that lies in both bitmaps.
struct Placement {
  int64_t targetColumn, targetRow;
  int64_t sourceColumn, sourceRow;
  int64_t columns, rows;
};

/// A destination's pixels are combined as stored bits, as samples where they lie, as levels of deep gray, or as 32-bit
/// colours on the way.
class RowCombiner {
 public:
  RowCombiner() noexcept = default;
  RowCombiner(const RowCombiner&) = delete;
  RowCombiner& operator=(const RowCombiner&) = delete;

  /// Both records' palettes and tables must stay meanwhile. ERR_INVALID_PARAMETER, ERR_BAD_LUT_LENGTH, ERR_NO_MEMORY.
  Status Open(const BitmapHandle& destination, const BitmapHandle& source, const Placement& placement,
              uint32_t flags) noexcept;
  /// Pixels are only copied, with no change of a bit.
  [[nodiscard]] bool IsPlain() const noexcept { return plain_; }
  /// The source's bytes may be those of the row that changes.
  void CopySourceFirst() noexcept { copiesFirst_ = true; }

  [[nodiscard]] uint64_t SourceByte() const noexcept { return sourceBits_ / 8; }
  [[nodiscard]] uint64_t SourceBytes() const noexcept { return (sourceBits_ % 8 + sourceCount_ + 7) / 8; }
  [[nodiscard]] uint64_t TargetByte() const noexcept { return targetBits_ / 8; }
  [[nodiscard]] uint64_t TargetBytes() const noexcept { return (targetBits_ % 8 + targetCount_ + 7) / 8; }

  /// row: the whole row; source: its bytes from SourceByte on.
  void Run(uint8_t* row, const uint8_t* source) noexcept;

 private:
  enum class Way : uint8_t { kBits, kSamples, kLevels, kColors };

  void ChooseRules(uint32_t flags) noexcept;
  Status MakeBuffers() noexcept;
  void RunBits(uint8_t* row, const uint8_t* line, uint32_t firstBit) noexcept;
  void RunSamples(uint8_t* target, const uint8_t* line, const uint8_t* raw) noexcept;
  void RunLevels(uint8_t* row, const uint8_t* line, const uint8_t* raw) noexcept;
  void RunColors(uint8_t* row, const uint8_t* line, const uint8_t* raw) noexcept;
  const uint8_t* TargetPixels(const uint8_t* row) noexcept;
  void PutPixels(uint8_t* row, const uint8_t* pixels) noexcept;

  Way way_ = Way::kBits;
  bool plain_ = false;
  bool streams_ = false;  // the destination is larger than the caches
  bool blends_ = false;
  bool copiesFirst_ = false;
  uint32_t flags_ = 0;
  int32_t bits_ = 0;  // of the destination
  int32_t sourceDepth_ = 0;
  int32_t formBits_ = 0;   // of what is combined
  int32_t alphaBits_ = 0;  // of the source's pixels where they have alpha, else 0
  bool words_ = false;     // samples of 16 bits
  bool keepsTop_ = false;  // bit 15 of 5-5-5 pixels
  int64_t columns_ = 0;
  uint64_t sourceBits_ = 0, sourceCount_ = 0;  // first bit and bits of a row
  uint64_t targetBits_ = 0, targetCount_ = 0;
  BitRule bitRule_{};
  SampleRule sampleRule_{};
  uint64_t alphaPattern_ = 0;
  GrayParams params_{};
  LinesInto into_;
  FormatLines toColors_;
  LineConverter fromColors_;
  T_PaletteEntry entries_[256];
  TrackedBuffer<uint8_t> aligned_;  // the source's pixels from bit 0 on
  TrackedBuffer<uint8_t> made_;     // in the form that is combined
  TrackedBuffer<uint8_t> packed_;   // the destination's from bit 0 on
  TrackedBuffer<uint8_t> formed_;   // as colours
  TrackedBuffer<uint8_t> alpha_;
  TrackedBuffer<uint32_t> levels_;  // of both
};

}  // namespace tarn
