// Splines of sixteen rows side by side, in one register.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Scale.h"

namespace tarn {
namespace {

struct Lanes {
  __m512 all;
};
Lanes operator+(const Lanes& a, const Lanes& b) noexcept { return {a.all + b.all}; }
Lanes operator-(const Lanes& a, const Lanes& b) noexcept { return {a.all - b.all}; }
Lanes operator*(const Lanes& a, const Lanes& b) noexcept { return {a.all * b.all}; }
struct Places {
  __m512i all;
};

__m512i Widened(const uint8_t* at) noexcept {
  return _mm512_cvtepu8_epi32(_mm_loadu_si128(reinterpret_cast<const __m128i*>(at)));
}
void StorePlaces(uint8_t* at, const Places& p) noexcept {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(at), _mm512_cvtepi32_epi8(p.all));
}
Lanes FromBytes(const uint8_t* at) noexcept { return {_mm512_cvtepi32_ps(Widened(at))}; }
void ToBytes(uint8_t* at, const Lanes& v) noexcept {
  const __m512i whole = _mm512_max_epi32(_mm512_cvttps_epi32(v.all), _mm512_setzero_si512());
  _mm_storeu_si128(reinterpret_cast<__m128i*>(at), _mm512_cvtusepi32_epi8(whole));
}
Lanes FromWords(__m256i words) noexcept { return {_mm512_cvtepi32_ps(_mm512_cvtepi16_epi32(words))}; }
Lanes Load(const float* at) noexcept { return {_mm512_loadu_ps(at)}; }
void Store(float* at, const Lanes& v) noexcept { _mm512_storeu_ps(at, v.all); }
Lanes All(float value) noexcept { return {_mm512_set1_ps(value)}; }
__mmask16 Bent(const Lanes& right) noexcept { return _mm512_cmp_ps_mask(right.all, _mm512_setzero_ps(), _CMP_NEQ_OQ); }
Lanes ZeroWhere(const Lanes& right, const Lanes& value) noexcept {
  return {_mm512_maskz_mov_ps(Bent(right), value.all)};
}
void NextFactor(const Lanes& right, Places& place, Lanes& factor) noexcept;
Lanes FactorsAt(const uint8_t* places) noexcept;

#include "Kernels/spline_lanes.inl"

Lanes FactorAt(__m512i place) noexcept {
  const __m512 factors = _mm512_broadcast_f32x8(_mm256_load_ps(kSplineFactors.values));
  return {_mm512_permutexvar_ps(place, factors)};
}
void NextFactor(const Lanes& right, Places& place, Lanes& factor) noexcept {
  const __m512i more = _mm512_add_epi32(place.all, _mm512_set1_epi32(1));
  place = {_mm512_maskz_min_epi32(Bent(right), more, _mm512_set1_epi32(7))};
  factor = FactorAt(place.all);
}
Lanes FactorsAt(const uint8_t* places) noexcept { return FactorAt(Widened(places)); }

}  // namespace

void SplineRows_Avx512(uint8_t* const* targets, const uint8_t* const* sources, int64_t pixels, int32_t channels,
                       const SplineSpot* spots, int64_t count, uint8_t* work) noexcept {
  SplineRows(targets, sources, pixels, channels, spots, count, work);
}

void SplineRow8_Avx512(void* target, const void* const* rows, const SplineSpot& spot, int64_t samples) noexcept {
  SplineRow(target, rows, spot, samples);
}

}  // namespace tarn
