#pragma once
// What the ways of resizing share. A source of rows has `Status Make(uint8_t* target, uint64_t bytes, int32_t row)`,
// which writes all `bytes` bytes of a row of the result, padding zero; rows in order are the cheap ones.

#include <cstdint>

#include "Common/Internal/Rows.h"
#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

enum class ScaleMethod : uint8_t { kNearest, kInk, kArea, kSpline };

/// The method of T_SizeBitmap's flags without the ink count.
ScaleMethod MethodOf(uint32_t flags, const BitmapHandle& source, int32_t width, int32_t height) noexcept;

/// Fills in a new extent of 0; ERR_INVALID_PARAMETER when there is no positive result.
Status CompleteExtents(int32_t oldWidth, int32_t oldHeight, int32_t& width, int32_t& height) noexcept;

/// Replaces a bitmap by one of another size, region and overlays included.
Status ScaleInPlace(BitmapHandle& bitmap, int32_t width, int32_t height, ScaleMethod method, uint32_t flags) noexcept;
/// Fills another bitmap: checks that both have storage, equal formats and sound geometry.
Status ScaleInto(BitmapHandle& destination, BitmapHandle& source, ScaleMethod method, uint32_t flags) noexcept;

/// All rows of the target from a source of rows; `reversed` turns the order of the rows.
template <class Rows>
Status WriteRows(BitmapHandle& target, Rows& rows, bool reversed) noexcept {
  RowWriter to(target, TARN_HERE);
  TARN_TRY(to.Open());
  const int32_t height = target.Height;
  const uint64_t bytes = target.BytesPerLine;
  Progress progress(height);
  TARN_TRY(progress.Start());
  for (int32_t row = 0; row < height; ++row) {
    TARN_TRY(rows.Make(to.Row(reversed ? height - 1 - row : row), bytes, row));
    TARN_TRY(to.Commit());
    TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

/// The pixels of two locked bitmaps of one format.
Status ScaleNearest(BitmapHandle& target, BitmapHandle& source, bool reversed) noexcept;
Status ScaleInk(BitmapHandle& target, BitmapHandle& source) noexcept;
Status ScaleSamples(BitmapHandle& target, BitmapHandle& source, bool spline, bool reversed) noexcept;

}  // namespace tarn
