// Splines of sixteen rows side by side, in two registers of eight.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Scale.h"

namespace tarn {
namespace {

struct Lanes {
  __m256 low, high;
};
Lanes operator+(const Lanes& a, const Lanes& b) noexcept { return {a.low + b.low, a.high + b.high}; }
Lanes operator-(const Lanes& a, const Lanes& b) noexcept { return {a.low - b.low, a.high - b.high}; }
Lanes operator*(const Lanes& a, const Lanes& b) noexcept { return {a.low * b.low, a.high * b.high}; }
struct Places {
  __m256i low, high;
};

__m256i Widened(const uint8_t* at) noexcept {
  return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(at)));
}
void StorePlaces(uint8_t* at, const Places& p) noexcept {
  const __m256i words = _mm256_permute4x64_epi64(_mm256_packus_epi32(p.low, p.high), 0xD8);
  _mm_storeu_si128(reinterpret_cast<__m128i*>(at),
                   _mm_packus_epi16(_mm256_castsi256_si128(words), _mm256_extracti128_si256(words, 1)));
}
Lanes FromBytes(const uint8_t* at) noexcept {
  return {_mm256_cvtepi32_ps(Widened(at)), _mm256_cvtepi32_ps(Widened(at + 8))};
}
void ToBytes(uint8_t* at, const Lanes& v) noexcept {
  StorePlaces(at, {_mm256_cvttps_epi32(v.low), _mm256_cvttps_epi32(v.high)});
}
Lanes Load(const float* at) noexcept { return {_mm256_loadu_ps(at), _mm256_loadu_ps(at + 8)}; }
void Store(float* at, const Lanes& v) noexcept {
  _mm256_storeu_ps(at, v.low);
  _mm256_storeu_ps(at + 8, v.high);
}
Lanes All(float value) noexcept { return {_mm256_set1_ps(value), _mm256_set1_ps(value)}; }
__m256 Clamped(__m256 v) noexcept { return _mm256_min_ps(_mm256_max_ps(v, _mm256_setzero_ps()), _mm256_set1_ps(255)); }
Lanes Clamped(const Lanes& v) noexcept { return {Clamped(v.low), Clamped(v.high)}; }
__m256 ZeroWhere(__m256 right, __m256 value) noexcept {
  return _mm256_and_ps(_mm256_cmp_ps(right, _mm256_setzero_ps(), _CMP_NEQ_OQ), value);
}
Lanes ZeroWhere(const Lanes& right, const Lanes& value) noexcept {
  return {ZeroWhere(right.low, value.low), ZeroWhere(right.high, value.high)};
}
void NextFactor(const Lanes& right, Places& place, Lanes& factor) noexcept;
Lanes FactorsAt(const uint8_t* places) noexcept;

#include "Kernels/spline_lanes.inl"

__m256 FactorAt(__m256i place) noexcept {
  return _mm256_permutevar8x32_ps(_mm256_load_ps(kSplineFactors.values), place);
}
__m256i Next(__m256 right, __m256i place) noexcept {
  const __m256i more = _mm256_min_epi32(_mm256_add_epi32(place, _mm256_set1_epi32(1)), _mm256_set1_epi32(7));
  return _mm256_castps_si256(ZeroWhere(right, _mm256_castsi256_ps(more)));
}
void NextFactor(const Lanes& right, Places& place, Lanes& factor) noexcept {
  place = {Next(right.low, place.low), Next(right.high, place.high)};
  factor = {FactorAt(place.low), FactorAt(place.high)};
}
Lanes FactorsAt(const uint8_t* places) noexcept { return {FactorAt(Widened(places)), FactorAt(Widened(places + 8))}; }

}  // namespace

void SplineRows_Avx2(uint8_t* const* targets, const uint8_t* const* sources, int64_t pixels, int32_t channels,
                     const SplineSpot* spots, int64_t count, uint8_t* work) noexcept {
  SplineRows(targets, sources, pixels, channels, spots, count, work);
}

void SplineRow8_Avx2(void* to, const void* const* rows, const SplineSpot& spot, int64_t samples) noexcept {
  auto* const target = static_cast<uint8_t*>(to);
  const uint8_t* r[4];
  for (int i = 0; i < 4; ++i) r[i] = static_cast<const uint8_t*>(rows[i]);
  const Lanes t = All(spot.t), rest = All(1.0f - spot.t), first = All(spot.firstFactor), next = All(spot.nextFactor);
  const Lanes two = All(2), six = All(6), oneAndHalf = All(1.5f), quarter = All(0.25f), k = All(0.266667f);
  int64_t i = 0;
  for (; i + kLaneCount <= samples; i += kLaneCount) {
    const Lanes y0 = FromBytes(r[0] + i), y1 = FromBytes(r[1] + i), y2 = FromBytes(r[2] + i), y3 = FromBytes(r[3] + i);
    const Lanes d1 = y0 - two * y1 + y2;
    const Lanes d2 = y1 - two * y2 + y3;
    const Lanes m2 = (six * d2 - oneAndHalf * d1) * k;
    const Lanes m1 = oneAndHalf * d1 - m2 * quarter;
    ToBytes(target + i, Clamped(rest * y1 + t * y2 + first * m1 + next * m2 + All(0.5f)));
  }
  const void* const left[4] = {r[0] + i, r[1] + i, r[2] + i, r[3] + i};
  kSamplesPortable[static_cast<int>(Sample::kU8)].splineRow(target + i, left, spot, samples - i);
}

}  // namespace tarn
