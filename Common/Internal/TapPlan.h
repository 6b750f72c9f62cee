#pragma once
// Where the bytes of a line of the result come from, laid out for the kernels that permute.

#include <algorithm>
#include <cstdint>
#include <cstring>

#include "Common/Internal/Status.h"
#include "Common/Internal/TrackedBuffer.h"
#include "Kernels/Kernels.h"
#include "tarn/types.h"

namespace tarn {

/// Bytes of a line of the source that a byte of the result is made of, and the two tables of Taps for them.
struct TapSet {
  static constexpr int kMost = 2 * kBoxTaps;  // of words
  uint32_t places[kMost];
  uint8_t first[kMost];
  uint8_t second[kMost];
};

class TapPlan {
 public:
  /// There is something for the kernels to do.
  explicit operator bool() const noexcept { return taps_.count != 0; }
  [[nodiscard]] const Taps& taps() const noexcept { return taps_; }

  /// `set(i, TapSet&)` tells what sample i of `count` is made of. The plan stays empty where this level has no kernels
  /// for it or what a block needs lies too far apart.
  /// @param each bytes that one is made of: 1 (no tables), 2, 4 or 8
  template <class Set>
  Status Build(int64_t count, int32_t each, int64_t sourceBytes, Here here, Set&& set) noexcept {
    const int32_t window = Kernels().scale->window;
    if (window == 0 || count < 1 || sourceBytes < window) return SUCCESS;
    const int32_t inBlock = window / each;
    const int32_t blockBytes = each == 1 ? window : 3 * window;
    const auto blocks = static_cast<uint64_t>((count + inBlock - 1) / inBlock);
    constexpr uint64_t kAligned = 63;
    base_ = TrackedBuffer<uint32_t>(blocks, here);
    data_ = TrackedBuffer<uint8_t>(blocks * static_cast<uint32_t>(blockBytes) + kAligned, here);
    if (!base_ || !data_) return ERR_NO_MEMORY;
    auto* data = reinterpret_cast<uint8_t*>((reinterpret_cast<uintptr_t>(data_.data()) + kAligned) & ~kAligned);
    Taps taps = {base_.data(), data, count, 1, 0, 0};
    int64_t i = 0;
    for (uint64_t block = 0; block < blocks; ++block, data += blockBytes) {
      const auto bytes = static_cast<int32_t>(std::min<int64_t>(inBlock, count - i));
      if (!BuildBlock(base_[block], data, i, bytes, each, sourceBytes, set)) return SUCCESS;
      i += bytes;
    }
    FindPeriod(taps, static_cast<int64_t>(blocks), blockBytes);
    taps_ = taps;
    return SUCCESS;
  }

 private:
  static constexpr int32_t kMostWindow = 64;
  static constexpr int64_t kMostPeriod = 6;

  /// Where one extent is a small multiple of the other, blocks repeat: a few stay in the first-level cache, or in
  /// registers. The first one may differ, and those at the end of a line, which begin earlier so as to end with it.
  static void FindPeriod(Taps& taps, int64_t blocks, int64_t blockBytes) noexcept {
    for (int64_t tried = 0; tried < 2 * kMostPeriod; ++tried) {
      const int64_t start = tried % 2, period = tried / 2 + 1;
      const auto equal = [&](int64_t a, int64_t b) {
        return std::memcmp(taps.data + a * blockBytes, taps.data + b * blockBytes, static_cast<size_t>(blockBytes)) ==
               0;
      };
      int64_t end = start + period;
      while (end < blocks && equal(end, end - period)) ++end;
      if (end < start + 2 * period || end < blocks - 2 * kMostPeriod) continue;
      taps.period = period;
      taps.start = start;
      taps.end = end;
      return;
    }
  }

  template <class Set>
  static bool BuildBlock(uint32_t& base, uint8_t* data, int64_t first, int32_t bytes, int32_t each, int64_t sourceBytes,
                         Set&& set) noexcept {
    const int32_t window = Kernels().scale->window;
    TapSet sets[kMostWindow];
    uint32_t least = UINT32_MAX, most = 0;
    for (int32_t k = 0; k < bytes; ++k) {
      set(first + k, sets[k]);
      for (int32_t n = 0; n < each; ++n) {
        least = std::min(least, sets[k].places[n]);
        most = std::max(most, sets[k].places[n]);
      }
    }
    base = std::min(least, static_cast<uint32_t>(sourceBytes - window));
    if (most - base >= static_cast<uint32_t>(window)) return false;
    for (int32_t k = 0; k < window; ++k) {
      const bool there = k / each < bytes;
      const TapSet& taps = sets[there ? k / each : 0];
      data[k] = there ? static_cast<uint8_t>(taps.places[k % each] - base) : 0;
      if (each == 1) continue;
      data[window + k] = there ? taps.first[k % each] : 0;
      data[2 * window + k] = there ? taps.second[k % each] : 0;
    }
    return true;
  }

  TrackedBuffer<uint32_t> base_;
  TrackedBuffer<uint8_t> data_;
  Taps taps_{};
};

}  // namespace tarn
