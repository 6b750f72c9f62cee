// Between which samples each sample of a growing direction lies on the spline. Positions are stepped in single
// precision.

#include "Common/Internal/Resampler.h"

namespace tarn {

Status MakeSplinePlaces(ScaleAxis& axis, Here here) noexcept {
  const int32_t last = axis.source - 1;
  const auto count = static_cast<uint64_t>(axis.target);
  axis.places = TrackedBuffer<SplineSpot>(count, here);
  if (!axis.places) return ERR_NO_MEMORY;
  const float step = static_cast<float>(axis.source) / static_cast<float>(axis.target);
  auto late = static_cast<int64_t>(0.5f / step);  // the first sample comes so many more times
  float t = 0;
  int32_t from = 0;
  for (uint64_t i = 0; i < count; ++i) {
    const float rest = 1.0f - t;
    SplineSpot spot = {from, t, (rest * rest * rest - rest) / 6.0f, (t * t * t - t) / 6.0f};
    if (from >= last) spot = {last, 0, 0, 0};  // nothing follows
    axis.places[i] = spot;
    if (late-- > 0) continue;
    t += step;
    if (t >= 1.0f) {
      t -= 1.0f;
      ++from;
    }
  }
  return SUCCESS;
}

}  // namespace tarn
