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
void ToBytes(uint8_t* at, const Lanes& v) noexcept {  // packing clamps
  StorePlaces(at, {_mm256_cvttps_epi32(v.low), _mm256_cvttps_epi32(v.high)});
}
Lanes FromWords(__m256i words) noexcept {
  return {_mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(_mm256_castsi256_si128(words))),
          _mm256_cvtepi32_ps(_mm256_cvtepi16_epi32(_mm256_extracti128_si256(words, 1)))};
}
Lanes Load(const float* at) noexcept { return {_mm256_loadu_ps(at), _mm256_loadu_ps(at + 8)}; }
void Store(float* at, const Lanes& v) noexcept {
  _mm256_storeu_ps(at, v.low);
  _mm256_storeu_ps(at + 8, v.high);
}
Lanes All(float value) noexcept { return {_mm256_set1_ps(value), _mm256_set1_ps(value)}; }
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

void SplineRow8_Avx2(void* target, const void* const* rows, const SplineSpot& spot, int64_t samples) noexcept {
  SplineRow(target, rows, spot, samples);
}

}  // namespace tarn
