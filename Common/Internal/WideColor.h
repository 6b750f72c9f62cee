#pragma once
// The wide-gamut order of one pixel. Coefficients are in 1/8192; results are clamped to the samples' range.

#include <cstdint>

namespace tarn {

struct Samples {
  int32_t value[3];  // in the order in which they are stored
};

namespace wide {

using Matrix = int32_t[3][3];
constexpr Matrix kFromBgr = {{7151, 897, 145}, {394, 7067, 731}, {1067, 2841, 4284}};
constexpr Matrix kToBgr = {{9467, -1151, -125}, {-305, 10232, -1735}, {-2156, -6498, 16846}};

/// Samples are at most 65535: sums stay below 2^31. The division truncates; what is negative becomes 0 either way.
constexpr Samples Apply(const Matrix& matrix, const Samples& from, int32_t most) noexcept {
  Samples to{};
  for (int i = 0; i < 3; ++i) {
    int32_t sum = 4095;
    for (int k = 0; k < 3; ++k) sum += matrix[i][k] * from.value[k];
    sum /= 8192;
    to.value[i] = sum < 0 ? 0 : sum > most ? most : sum;
  }
  return to;
}

}  // namespace wide

/// @param most  255 or 65535
constexpr Samples WideFromBgr(const Samples& bgr, int32_t most) noexcept {
  return wide::Apply(wide::kFromBgr, bgr, most);
}
constexpr Samples BgrFromWide(const Samples& wide, int32_t most) noexcept {
  return wide::Apply(wide::kToBgr, wide, most);
}

}  // namespace tarn
