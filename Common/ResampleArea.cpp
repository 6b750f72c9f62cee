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
    cell.whole = static_cast<int32_t>(end - first - 1);  // a step is 4096 and more, so that one sample lies between
    cell.endWeight = static_cast<uint16_t>(end < from ? stop % 4096 : 0);
    if (cell.Total() > axis.largestTotal) axis.largestTotal = cell.Total();
    const int32_t touched = 1 + cell.whole + (cell.endWeight != 0);
    if (touched > axis.mostSamples) axis.mostSamples = touched;
  }
  return SUCCESS;
}

/// The cells from the first one on that have one total.
Status Resampler::OpenBoxTaps(Here here) noexcept {
  const auto* const cells = columns_.cells.data();
  const int64_t from = columns_.source;
  for (const int32_t parts : {2, 4, 8}) {
    if (channels_ == 1 && sampleBytes_ == 1 && from == int64_t{parts} * columns_.target) parts_ = parts;
  }
  if (parts_ || columns_.mostSamples > kBoxTaps) return SUCCESS;
  int64_t pixels = 0;
  while (pixels < columns_.target && cells[pixels].Total() == cells[0].Total()) ++pixels;
  tapPixels_ = pixels;
  const auto bytes = static_cast<int32_t>(sampleBytes_);
  return taps_.Build(pixels * channels_, kBoxTaps * bytes, from * channels_ * bytes, here, [&](int64_t i, TapSet& set) {
    const BoxCell cell = cells[i / channels_];
    for (int32_t n = 0; n < kBoxTaps; ++n) {
      const int32_t weight = n == 0                ? cell.firstWeight
                             : n <= cell.whole     ? 4096
                             : n == cell.whole + 1 ? cell.endWeight
                                                   : 0;
      const auto at = (int64_t{cell.first} + (weight ? n : 0)) * channels_ + i % channels_;
      if (bytes == 1) {
        set.places[n] = static_cast<uint32_t>(at);
        set.first[n] = static_cast<uint8_t>(weight >> 6);
        set.second[n] = static_cast<uint8_t>(weight & 63);
        continue;
      }
      for (int32_t byte = 0; byte < 2; ++byte) {
        set.places[2 * n + byte] = static_cast<uint32_t>(2 * at + byte);
        set.first[2 * n + byte] = static_cast<uint8_t>(weight >> 8 * byte);
        set.second[2 * n + byte] = 0;
      }
    }
  });
}

}  // namespace tarn
