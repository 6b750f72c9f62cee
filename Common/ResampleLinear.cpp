// Between which samples each sample of a growing direction lies, linearly: source sample j spans the run of samples
// floor(j D / S) .. floor((j + 1) D / S) - 1, and all runs begin half a run late, so that the picture stays in the
// middle.

#include <cstring>

#include "Common/Internal/Resampler.h"

namespace tarn {

Status MakeLinearSpots(ScaleAxis& axis, Here here) noexcept {
  const int64_t from = axis.source;
  const int64_t to = axis.target;
  axis.spots = TrackedBuffer<LinearSpot>(static_cast<uint64_t>(to), here);
  if (!axis.spots) return ERR_NO_MEMORY;
  int64_t i = 0;
  const int64_t late = to / from / 2;
  for (; i < late; ++i) axis.spots[static_cast<uint64_t>(i)] = {0, 0, 0, 1};
  for (int64_t j = 0; i < to; ++j) {
    const auto n = static_cast<int32_t>((j + 1) * to / from - j * to / from);
    const int64_t next = j + 1 < from ? j + 1 : j;
    if (n > axis.mostSteps) axis.mostSteps = n;
    for (int32_t k = 0; k < n && i < to; ++k, ++i)
      axis.spots[static_cast<uint64_t>(i)] = {static_cast<int32_t>(j), static_cast<int32_t>(next), k, n};
  }
  return SUCCESS;
}

namespace {

/// Two words, their weights and 1 / n.
TapSet WordTaps(uint32_t from, uint32_t to, const LinearSpot& spot) noexcept {
  TapSet set{};
  const float reciprocal = 1.0f / static_cast<float>(spot.n);
  std::memcpy(set.second, &reciprocal, sizeof reciprocal);
  for (uint32_t byte = 0; byte < 2; ++byte) {
    set.places[byte] = 2 * from + byte;
    set.places[2 + byte] = 2 * to + byte;
  }
  set.first[0] = static_cast<uint8_t>(spot.n - spot.k);
  set.first[2] = static_cast<uint8_t>(spot.k);
  return set;
}

}  // namespace

Status Resampler::OpenLinearTaps(Here here) noexcept {
  if (columns_.mostSteps > kMostLinearSteps) return SUCCESS;
  const auto* const spots = columns_.spots.data();
  const auto each = static_cast<int32_t>(sampleBytes_);
  const int64_t bytes = int64_t{columns_.source} * channels_ * each;
  return taps_.Build(rowSamples_, kLinearTaps * each, bytes, here, [&](int64_t i, TapSet& set) {
    const LinearSpot spot = spots[i / channels_];
    const auto channel = static_cast<uint32_t>(i % channels_);
    const auto from = static_cast<uint32_t>(spot.from * channels_) + channel;
    const auto to = static_cast<uint32_t>((spot.k ? spot.to : spot.from) * channels_) + channel;
    if (each == 2) {
      set = WordTaps(from, to, spot);
      return;
    }
    const int32_t n = spot.n > 1 ? spot.n : 2;  // 65536 / 1 does not fit
    const int32_t reciprocal = (65536 + n - 1) / n;
    set = {{from, to},
           {static_cast<uint8_t>(n - spot.k), static_cast<uint8_t>(spot.k)},
           {static_cast<uint8_t>(reciprocal), static_cast<uint8_t>(reciprocal >> 8)}};
  });
}

}  // namespace tarn
