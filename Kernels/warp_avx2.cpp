// Places four at a time. Pixels of 8-bit samples: offsets of eight places in vectors, loads by them, and samples mixed
// in lanes of 16 bits. Near the right and lower edge pixels go through the portable versions.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Warp.h"

namespace tarn {
namespace {

using V = __m256i;
using Half = __m128i;

constexpr int64_t kChunk = 16;
constexpr int64_t kMostBytes = int64_t{1} << 31;  // offsets fit 32 bits

V LoadPlaces(const WarpPlace* at) noexcept { return _mm256_loadu_si256(reinterpret_cast<const V*>(at)); }

// ---- Places --------------------------------------------------------------------------------------------------------

/// In the order of the portable version: no contraction, the same rounding.
Half Along(__m256d x, double slope, double start, double length, __m256d w) noexcept {
  const __m256d sum = _mm256_add_pd(_mm256_mul_pd(_mm256_set1_pd(slope), x), _mm256_set1_pd(start));
  __m256d place = _mm256_div_pd(_mm256_mul_pd(sum, _mm256_set1_pd(length)), w);
  // Both take the second one where the first is no number.
  place = _mm256_max_pd(place, _mm256_setzero_pd());
  place = _mm256_min_pd(place, _mm256_set1_pd(length));
  return _mm256_cvttpd_epi32(_mm256_add_pd(place, _mm256_set1_pd(0.5)));
}

void Places(WarpPlace* places, int64_t count, const WarpRow& row, WarpReach& reach) noexcept {
  const V half = _mm256_set1_epi32(row.half);
  const V last =
      _mm256_setr_epi32(row.lastX, row.lastY, row.lastX, row.lastY, row.lastX, row.lastY, row.lastX, row.lastY);
  V least = _mm256_set1_epi32(INT32_MAX), most = _mm256_set1_epi32(-1);
  const __m256d lanes = _mm256_setr_pd(0, 256, 512, 768);
  int64_t i = 0;
  for (; i + 4 <= count; i += 4) {
    // Whole numbers, and as such exact.
    const __m256d x = _mm256_add_pd(_mm256_set1_pd(row.first + 256.0 * static_cast<double>(i)), lanes);
    const __m256d w = _mm256_add_pd(_mm256_mul_pd(_mm256_set1_pd(row.wX), x), _mm256_set1_pd(row.wRow));
    const Half u = Along(x, row.uX, row.uRow, row.width, w), v = Along(x, row.vX, row.vRow, row.height, w);
    V place = _mm256_inserti128_si256(_mm256_castsi128_si256(_mm_unpacklo_epi32(u, v)), _mm_unpackhi_epi32(u, v), 1);
    place = _mm256_min_epi32(_mm256_max_epi32(_mm256_sub_epi32(place, half), _mm256_setzero_si256()), last);
    _mm256_storeu_si256(reinterpret_cast<V*>(places + i), place);
    least = _mm256_min_epi32(least, place);
    most = _mm256_max_epi32(most, place);
  }
  alignas(32) WarpPlace leasts[4], mosts[4];
  _mm256_store_si256(reinterpret_cast<V*>(leasts), least);
  _mm256_store_si256(reinterpret_cast<V*>(mosts), most);
  for (int lane = 0; lane < 4; ++lane) {
    reach.leastX = leasts[lane].x < reach.leastX ? leasts[lane].x : reach.leastX;
    reach.leastY = leasts[lane].y < reach.leastY ? leasts[lane].y : reach.leastY;
    reach.mostX = mosts[lane].x > reach.mostX ? mosts[lane].x : reach.mostX;
    reach.mostY = mosts[lane].y > reach.mostY ? mosts[lane].y : reach.mostY;
  }
  if (i == count) return;
  WarpRow rest = row;
  rest.first += 256.0 * static_cast<double>(i);
  kWarpPortable.places(places + i, count - i, rest, reach);
}

// ---- Chunks of pixels ----------------------------------------------------------------------------------------------

/// Of a chunk: bytes from its origin, and what is left of the places, 0..255.
struct Sources {
  const uint8_t* origin;
  alignas(32) int32_t offset[kChunk];
  alignas(32) uint16_t right[kChunk];
  alignas(32) uint16_t lower[kChunk];
};

/// False: some pixels lie too near the end of the area, or too far apart.
template <int kBytes>
bool Locate(Sources& sources, const WarpWindow& window, const WarpPlace* places) noexcept {
  const V deal = _mm256_setr_epi32(0, 2, 4, 6, 1, 3, 5, 7);
  // Columns of 8 places in the lower half, rows in the upper one.
  const auto apart = [&](V low, V high, V& x, V& y) noexcept {
    low = _mm256_permutevar8x32_epi32(low, deal);
    high = _mm256_permutevar8x32_epi32(high, deal);
    x = _mm256_permute2x128_si256(low, high, 0x20);
    y = _mm256_permute2x128_si256(low, high, 0x31);
  };
  V x[2], y[2];
  apart(LoadPlaces(places), LoadPlaces(places + 4), x[0], y[0]);
  apart(LoadPlaces(places + 8), LoadPlaces(places + 12), x[1], y[1]);
  const int64_t firstRow = places[0].y >> 8;
  const V mostColumn = _mm256_set1_epi32(static_cast<int32_t>(window.lastColumn - 3));
  const V mostRow = _mm256_set1_epi32(static_cast<int32_t>(window.lastRow - 1));
  const V origin = _mm256_set1_epi32(static_cast<int32_t>(firstRow));
  const V strides = _mm256_set1_epi32(static_cast<int32_t>(window.stride));
  const V within = _mm256_set1_epi32(255);
  V beyond = _mm256_setzero_si256();
  for (int i = 0; i < 2; ++i) {
    const V column = _mm256_srai_epi32(x[i], 8), row = _mm256_srai_epi32(y[i], 8);
    beyond = _mm256_or_si256(beyond,
                             _mm256_or_si256(_mm256_cmpgt_epi32(column, mostColumn), _mm256_cmpgt_epi32(row, mostRow)));
    const V down = _mm256_sub_epi32(row, origin);
    // Rows so far apart do not occur in pictures; their offsets might not fit.
    beyond = _mm256_or_si256(beyond, _mm256_cmpgt_epi32(_mm256_abs_epi32(down), within));
    const V offset =
        _mm256_add_epi32(_mm256_mullo_epi32(down, strides), _mm256_mullo_epi32(column, _mm256_set1_epi32(kBytes)));
    _mm256_store_si256(reinterpret_cast<V*>(sources.offset + 8 * i), offset);
  }
  if (!_mm256_testz_si256(beyond, beyond)) return false;
  const auto rests = [&](uint16_t* rest, V first, V second) noexcept {
    const V words = _mm256_packus_epi32(_mm256_and_si256(first, within), _mm256_and_si256(second, within));
    _mm256_store_si256(reinterpret_cast<V*>(rest), _mm256_permute4x64_epi64(words, _MM_SHUFFLE(3, 1, 2, 0)));
  };
  rests(sources.right, x[0], x[1]);
  rests(sources.lower, y[0], y[1]);
  sources.origin = window.data + firstRow * window.stride;
  return true;
}

template <int kBytes, class Chunk>
void InChunks(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count,
              WarpKernels::Sample portable, Chunk chunk) noexcept {
  const int64_t stride = window.stride < 0 ? -window.stride : window.stride;
  if ((256 + 1) * stride + (window.lastColumn + 1) * kBytes >= kMostBytes)
    return portable(target, window, places, count);
  Sources sources;
  int64_t i = 0;
  for (; i + kChunk <= count; i += kChunk, target += kChunk * kBytes)
    Locate<kBytes>(sources, window, places + i) ? chunk(target, sources) : portable(target, window, places + i, kChunk);
  portable(target, window, places + i, count - i);
}

// ---- Nearest -------------------------------------------------------------------------------------------------------

template <int kBytes>
void Nearest(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count,
             WarpKernels::Sample portable) noexcept {
  InChunks<kBytes>(target, window, places, count, portable, [](uint8_t* to, const Sources& sources) noexcept {
    // Pixels of 3 and 6 bytes are moved with what is behind them; the next one goes over it.
    constexpr int kMoved = kBytes == 3 ? 4 : kBytes == 6 ? 8 : kBytes;
    for (int i = 0; i < kChunk - 1; ++i, to += kBytes) __builtin_memcpy(to, sources.origin + sources.offset[i], kMoved);
    __builtin_memcpy(to, sources.origin + sources.offset[kChunk - 1], kBytes);
  });
}

void Nearest8(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept {
  Nearest<1>(target, window, places, count, kWarpPortable.nearest8);
}
void Nearest16(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept {
  Nearest<2>(target, window, places, count, kWarpPortable.nearest16);
}
void Nearest24(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept {
  Nearest<3>(target, window, places, count, kWarpPortable.nearest24);
}
void Nearest32(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept {
  Nearest<4>(target, window, places, count, kWarpPortable.nearest32);
}
void Nearest48(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept {
  Nearest<6>(target, window, places, count, kWarpPortable.nearest48);
}
void Nearest64(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept {
  Nearest<8>(target, window, places, count, kWarpPortable.nearest64);
}

// ---- Bilinear ------------------------------------------------------------------------------------------------------

/// a * (256 - share) + b * share, at most 255 * 256.
V Across(V a, V b, V share) noexcept {
  const V other = _mm256_sub_epi16(_mm256_set1_epi16(256), share);
  return _mm256_add_epi16(_mm256_mullo_epi16(a, other), _mm256_mullo_epi16(b, share));
}

/// (upper * (256 - share) + below * share + 32768) >> 16 of lanes of 16 bits. Half of what they may be is taken off
/// before they are multiplied with signs: 32768 * 256 in the sum.
V Down(V upper, V below, V share) noexcept {
  const V middle = _mm256_set1_epi16(INT16_MIN);
  const V back = _mm256_set1_epi32(32768 * 256 + 32768);
  const V other = _mm256_sub_epi16(_mm256_set1_epi16(256), share);
  upper = _mm256_xor_si256(upper, middle);
  below = _mm256_xor_si256(below, middle);
  const auto mixed = [&](V values, V shares) noexcept {
    return _mm256_srli_epi32(_mm256_add_epi32(_mm256_madd_epi16(values, shares), back), 16);
  };
  const V low = mixed(_mm256_unpacklo_epi16(upper, below), _mm256_unpacklo_epi16(other, share));
  const V high = mixed(_mm256_unpackhi_epi16(upper, below), _mm256_unpackhi_epi16(other, share));
  return _mm256_packus_epi32(low, high);
}

#include "Kernels/color_lanes.inl"

template <int kBytes>
void BilinearColor(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept {
  const int64_t step = window.stride;
  const auto portable = kBytes == 3 ? kWarpPortable.bilinear24 : kWarpPortable.bilinear32;
  InChunks<kBytes>(target, window, places, count, portable, [step](uint8_t* to, const Sources& sources) noexcept {
    for (int i = 0; i < kChunk; i += 4) {
      V a, b, c, d;
      LoadPairs<kBytes>(sources.origin, sources.offset + i, a, b);
      LoadPairs<kBytes>(sources.origin + step, sources.offset + i, c, d);
      const V right = SharesOfFour(sources.right + i);
      StoreFour<kBytes>(to + i * kBytes,
                        Down(Across(a, b, right), Across(c, d, right), SharesOfFour(sources.lower + i)));
    }
  });
}

/// Sixteen samples and their right neighbours.
void LoadGrayPairs(const uint8_t* from, const int32_t* at, V& left, V& right) noexcept {
  alignas(32) uint16_t pairs[kChunk];
  for (int i = 0; i < kChunk; ++i) __builtin_memcpy(pairs + i, from + at[i], 2);
  const V both = _mm256_load_si256(reinterpret_cast<const V*>(pairs));
  left = _mm256_and_si256(both, _mm256_set1_epi16(255));
  right = _mm256_srli_epi16(both, 8);
}

void BilinearGray(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept {
  const int64_t step = window.stride;
  InChunks<1>(target, window, places, count, kWarpPortable.bilinear8,
              [step](uint8_t* to, const Sources& sources) noexcept {
                V a, b, c, d;
                LoadGrayPairs(sources.origin, sources.offset, a, b);
                LoadGrayPairs(sources.origin + step, sources.offset, c, d);
                const V right = _mm256_load_si256(reinterpret_cast<const V*>(sources.right));
                const V lower = _mm256_load_si256(reinterpret_cast<const V*>(sources.lower));
                const V made = Down(Across(a, b, right), Across(c, d, right), lower);
                const V bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(made, made), _MM_SHUFFLE(3, 1, 2, 0));
                _mm_storeu_si128(reinterpret_cast<Half*>(to), _mm256_castsi256_si128(bytes));
              });
}

// Samples of 16 and 32 bits do not fit the lanes.
template <WarpKernels::Sample WarpKernels::*kKernel>
void Portable(uint8_t* target, const WarpWindow& window, const WarpPlace* places, int64_t count) noexcept {
  (kWarpPortable.*kKernel)(target, window, places, count);
}

}  // namespace

constinit const WarpKernels kWarpAvx2 = {.places = Places,
                                         .nearest8 = Nearest8,
                                         .nearest16 = Nearest16,
                                         .nearest24 = Nearest24,
                                         .nearest32 = Nearest32,
                                         .nearest48 = Nearest48,
                                         .nearest64 = Nearest64,
                                         .bilinear8 = BilinearGray,
                                         .bilinear16 = Portable<&WarpKernels::bilinear16>,
                                         .bilinear24 = BilinearColor<3>,
                                         .bilinear32 = BilinearColor<4>,
                                         .bilinear32Gray = Portable<&WarpKernels::bilinear32Gray>,
                                         .bilinear48 = Portable<&WarpKernels::bilinear48>,
                                         .bilinear64 = Portable<&WarpKernels::bilinear64>};

}  // namespace tarn
