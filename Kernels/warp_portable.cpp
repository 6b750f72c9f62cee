// Pixels of a mapped picture one at a time.

#include <cstring>

#include "Kernels/Warp.h"

namespace tarn {
namespace {

/// What rounding brings beyond the picture, or makes no number of, is its edge.
int32_t Rounded(double place, double length) noexcept {
  place = place > 0 ? place : 0;
  place = place < length ? place : length;
  return static_cast<int32_t>(place + 0.5);
}

int32_t Held(int32_t place, int32_t last) noexcept { return place < 0 ? 0 : place > last ? last : place; }

void Places(WarpPlace* places, int64_t count, const WarpRow& row, WarpReach& reach) noexcept {
  for (int64_t i = 0; i < count; ++i) {
    const double x = row.first + 256.0 * static_cast<double>(i);
    const double w = row.wX * x + row.wRow;
    const double u = (row.uX * x + row.uRow) * row.width / w;
    const double v = (row.vX * x + row.vRow) * row.height / w;
    const WarpPlace place{Held(Rounded(u, row.width) - row.half, row.lastX),
                          Held(Rounded(v, row.height) - row.half, row.lastY)};
    places[i] = place;
    reach.leastX = place.x < reach.leastX ? place.x : reach.leastX;
    reach.leastY = place.y < reach.leastY ? place.y : reach.leastY;
    reach.mostX = place.x > reach.mostX ? place.x : reach.mostX;
    reach.mostY = place.y > reach.mostY ? place.y : reach.mostY;
  }
}

template <int kBytes>
void Nearest(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept {
  for (int64_t i = 0; i < count; ++i, target += kBytes)
    std::memcpy(target, window.data + (places[i].y >> 8) * window.stride + (places[i].x >> 8) * kBytes, kBytes);
}

/// Wide holds a sample times 65536.
template <class T, int kSamples, class Wide>
void Bilinear(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept {
  constexpr int64_t kBytes = static_cast<int64_t>(sizeof(T)) * kSamples;
  for (int64_t i = 0; i < count; ++i, target += kBytes) {
    const int64_t column = places[i].x >> 8, row = places[i].y >> 8;
    const auto right = static_cast<Wide>(places[i].x & 255), lower = static_cast<Wide>(places[i].y & 255);
    const uint8_t* const a = window.data + row * window.stride + column * kBytes;
    const uint8_t* const b = column < window.lastColumn ? a + kBytes : a;
    const int64_t down = row < window.lastRow ? window.stride : 0;
    T upperLeft[kSamples], upperRight[kSamples], lowerLeft[kSamples], lowerRight[kSamples], made[kSamples];
    std::memcpy(upperLeft, a, kBytes);
    std::memcpy(upperRight, b, kBytes);
    std::memcpy(lowerLeft, a + down, kBytes);
    std::memcpy(lowerRight, b + down, kBytes);
    for (int k = 0; k < kSamples; ++k) {
      const Wide upper = upperLeft[k] * (256 - right) + upperRight[k] * right;
      const Wide below = lowerLeft[k] * (256 - right) + lowerRight[k] * right;
      made[k] = static_cast<T>((upper * (256 - lower) + below * lower + 32768) >> 16);
    }
    std::memcpy(target, made, kBytes);
  }
}

}  // namespace

constinit const WarpKernels kWarpPortable = {.places = Places,
                                             .nearest8 = Nearest<1>,
                                             .nearest16 = Nearest<2>,
                                             .nearest24 = Nearest<3>,
                                             .nearest32 = Nearest<4>,
                                             .nearest48 = Nearest<6>,
                                             .nearest64 = Nearest<8>,
                                             .bilinear8 = Bilinear<uint8_t, 1, uint32_t>,
                                             .bilinear16 = Bilinear<uint16_t, 1, uint32_t>,
                                             .bilinear24 = Bilinear<uint8_t, 3, uint32_t>,
                                             .bilinear32 = Bilinear<uint8_t, 4, uint32_t>,
                                             .bilinear32Gray = Bilinear<uint32_t, 1, uint64_t>,
                                             .bilinear48 = Bilinear<uint16_t, 3, uint32_t>,
                                             .bilinear64 = Bilinear<uint16_t, 4, uint32_t>};

}  // namespace tarn
