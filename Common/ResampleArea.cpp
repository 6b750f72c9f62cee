// Which part of the source each sample of a shrinking direction covers.

#include "Common/Internal/Resampler.h"

namespace tarn {

Status MakeBoxCells(ScaleAxis& axis, bool rounded, Here here) noexcept {
  const int64_t from = axis.source;
  const int64_t to = axis.target;
  axis.cells = TrackedBuffer<BoxCell>(static_cast<uint64_t>(to), here);
  if (!axis.cells) return ERR_NO_MEMORY;
  // Deliberate: columns are rounded and rows may be truncated; what that leaves at the end belongs to no cell, or the
  // last cells are cut short.
  const int64_t step = (from * 4096 + (rounded ? to / 2 : 0)) / to;  // 1/4096 of a sample, at least 4096
  for (int64_t i = 0; i < to; ++i) {
    const int64_t start = i * step;
    const int64_t stop = start + step;
    const int64_t first = start / 4096 < from - 1 ? start / 4096 : from - 1;
    const int64_t end = stop / 4096 < from ? stop / 4096 : from;  // behind the whole samples
    BoxCell& cell = axis.cells[static_cast<uint64_t>(i)];
    cell.first = static_cast<int32_t>(first);
    cell.firstWeight = static_cast<uint16_t>(4096 - start % 4096);
    cell.whole = static_cast<int32_t>(end > first ? end - first - 1 : 0);
    cell.endWeight = static_cast<uint16_t>(end < from ? stop % 4096 : 0);
    if (cell.Total() > axis.largestTotal) axis.largestTotal = cell.Total();
  }
  return SUCCESS;
}

}  // namespace tarn
