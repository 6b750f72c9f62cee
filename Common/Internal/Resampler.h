#pragma once
// Rows of a bitmap averaged or interpolated to another size.

#include <cstdint>

#include "Common/Internal/DitherRun.h"
#include "Common/Internal/LineConverter.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/Status.h"
#include "Common/Internal/TapPlan.h"
#include "Common/Internal/TrackedBuffer.h"
#include "Kernels/Kernels.h"
#include "tarn/types.h"

namespace tarn {

/// Where the samples of one direction come from. One of the tables is filled, or none when nothing changes.
struct ScaleAxis {
  /// @param rounded steps of box averaging are rounded to 1/4096, else truncated
  Status Open(int32_t from, int32_t to, bool spline, bool rounded, Here here) noexcept;

  TrackedBuffer<BoxCell> cells;
  TrackedBuffer<LinearSpot> spots;
  TrackedBuffer<SplineSpot> places;
  int32_t source = 0;
  int32_t target = 0;
  uint64_t largestTotal = 0;  // of cells
  int32_t mostSamples = 0;    // that a cell touches
  int32_t mostSteps = 0;      // of spots
};

Status MakeBoxCells(ScaleAxis& axis, bool rounded, Here here) noexcept;
Status MakeLinearSpots(ScaleAxis& axis, Here here) noexcept;
Status MakeSplinePlaces(ScaleAxis& axis, Here here) noexcept;

/// Some kilobytes. The source stays locked and unchanged meanwhile.
class Resampler {
 public:
  explicit Resampler(BitmapHandle& source) noexcept : source_(source), reader_(source, TARN_HERE) {
    for (int32_t& row : heldRow_) row = -1;
  }
  ~Resampler() { DitherRun::Destroy(dither_); }
  Resampler(const Resampler&) = delete;
  Resampler& operator=(const Resampler&) = delete;

  /// @param format the bitmap whose depth and palette the rows have; its depth and order are the source's
  Status Open(const BitmapHandle& format, int32_t width, int32_t height, bool spline) noexcept;
  Status Make(uint8_t* target, uint64_t bytes, int32_t row) noexcept;

 private:
  static constexpr int kHeld = kMostRows;  // as many as are averaged at a time; a place of the spline needs 4
  static constexpr int kHeldAhead = 2 * kSplineRows;  // where rows are made ahead

  /// Those that make a row are averaged at a time.
  [[nodiscard]] bool FewRows() const noexcept {
    return rows_.mostSamples <= kMostRows && rows_.largestTotal < kernels_->narrowTotal;
  }
  Status ChooseFormat() noexcept;
  Status OpenTaps(Here here) noexcept;
  Status OpenBoxTaps(Here here) noexcept;
  Status OpenLinearTaps(Here here) noexcept;
  Status OpenBuffers(Here here) noexcept;
  Status StartDithering() noexcept;
  Status Samples(void* target, int32_t row) noexcept;
  const void* SourceRow(int32_t row) noexcept;
  bool MakeAhead(int32_t row) noexcept;
  void AcrossCells(uint8_t* const* targets, const uint8_t* const* lines, int32_t count) noexcept;
  void AcrossTogether(int32_t row, int32_t count) noexcept;
  void Across(void* target, const void* line) noexcept;
  Status AverageRows(void* target, const BoxCell& cell) noexcept;
  Status DitherAhead() noexcept;
  Status DitherTo(uint8_t* target, uint64_t bytes, int32_t row) noexcept;

  BitmapHandle& source_;
  RowReader reader_;
  BitmapHandle format_{};
  T_PaletteEntry sourcePalette_[256];
  T_PaletteEntry palette_[256];  // of the result
  uint32_t colors_ = 0;
  const SampleKernels* kernels_ = nullptr;
  int32_t channels_ = 1;
  uint32_t sampleBytes_ = 1;
  bool dithered_ = false;
  bool converted_ = false;  // through in_ and, unless dithered, out_
  LineConverter in_;
  LineConverter out_;
  DitherRun* dither_ = nullptr;
  int32_t firstDithered_ = 0;  // of ditheredRows_
  int32_t nextDithered_ = 0;
  int32_t ahead_ = 1;           // rows that are dithered together
  uint64_t ditheredBytes_ = 0;  // of a row
  TrackedBuffer<uint8_t> ditheredRows_;
  ScaleAxis columns_;
  ScaleAxis rows_;
  TapPlan taps_;
  int64_t tapPixels_ = 0;  // that the plan makes of box cells, all of one total
  int32_t parts_ = 0;      // 2, 4 or 8: so many gray bytes make one
  bool together_ = false;  // splines of several rows are made at a time
  int32_t heldRows_ = kHeld;
  int64_t rowSamples_ = 0;       // of a result row
  uint64_t stride_ = 0;          // bytes between held rows
  TrackedBuffer<uint8_t> line_;  // a source row in samples, or several
  TrackedBuffer<uint8_t> held_;  // source rows of the new width
  TrackedBuffer<uint8_t> made_;  // result rows in samples, where the result is something else
  TrackedBuffer<uint8_t> sums_;
  TrackedBuffer<uint8_t> second_;  // derivatives of the spline
  TrackedBuffer<uint8_t> work_;
  int32_t heldRow_[kHeldAhead];
};

}  // namespace tarn
