#pragma once
// Pixels of a source sampled at any places, from its own storage or from boxes of it that are read on the way.

#include <cstdint>

#include "Common/Internal/FormatLines.h"
#include "Common/Internal/LinesInto.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/Status.h"
#include "Common/Internal/TrackedBuffer.h"
#include "Kernels/Warp.h"

namespace tarn {

/// Pixels of the area that samples come from.
struct WarpBox {
  int64_t left, top, right, bottom;
};

class WarpSampler {
 public:
  explicit WarpSampler(BitmapHandle& source) noexcept : source_(source), reader_(source, TARN_HERE) {}
  WarpSampler(const WarpSampler&) = delete;
  WarpSampler& operator=(const WarpSampler&) = delete;

  /// Of a locked bitmap, of which an area of so many pixels is sampled.
  Status Open(int64_t areaWidth, int64_t areaHeight, bool bilinear) noexcept;
  /// The format of lines of samples.
  [[nodiscard]] const BitmapHandle& Form() const noexcept { return form_; }
  /// Bytes of a sampled pixel, each one for itself.
  [[nodiscard]] int64_t Unit() const noexcept { return unit_; }
  /// Samples come from the storage itself: boxes may be of any size.
  [[nodiscard]] bool Direct() const noexcept { return block_ != nullptr; }
  [[nodiscard]] bool Holds(const WarpBox& box) const noexcept {
    return (box.right - box.left) * (box.bottom - box.top) * unit_ <= windowBytes_;
  }

  /// Places of a row, from the area's upper left corner, are moved to the centres of pixels and held to the area.
  void Hold(WarpRow& row) const noexcept;
  /// What places of such rows need, of which there are some.
  [[nodiscard]] WarpBox BoxOf(const WarpReach& reach) const noexcept;
  /// Prepares for samples from a box of the area that begins at a column and row of the source.
  Status Read(const WarpBox& box, int64_t areaLeft, int64_t areaTop) noexcept;
  /// Of places of such rows, in the box that was read.
  void Sample(uint8_t* target, const WarpPlace* places, int64_t count) const noexcept;
  /// Samples as a line of the form, in the buffer (BytesOf the line) or where they are.
  const uint8_t* Packed(uint8_t* buffer, const uint8_t* samples, int64_t count) const noexcept;

 private:
  WarpKernels::Sample ChooseSampler() const noexcept;
  void ReadLine(uint8_t* target, const uint8_t* part, uint32_t firstBit, int64_t count) noexcept;

  BitmapHandle& source_;
  RowReader reader_;
  BitmapHandle form_{};
  int64_t unit_ = 0;
  bool bilinear_ = false;
  bool colors_ = false;  // pixels are made 32-bit colours
  bool levels_ = false;  // samples are made levels
  GrayParams params_{};
  const uint8_t* block_ = nullptr;
  WarpKernels::Sample sampler_ = nullptr;
  FormatLines lines_;
  WarpWindow window_{};
  int64_t windowBytes_ = 0;
  TrackedBuffer<uint8_t> held_;     // a box
  TrackedBuffer<uint8_t> aligned_;  // a line of it from bit 0 on
};

}  // namespace tarn
