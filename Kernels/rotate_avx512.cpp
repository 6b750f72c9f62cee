// Squares of 8 by 8 samples of 8 bits. The source of a square fits in sixteen rows of sixteen bytes, from which samples
// are taken by permutation: no load for each, and few pages are touched at a time.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Rotate.h"

namespace tarn {
namespace {

using V = __m512i;

constexpr int32_t kOneShift = 14;
constexpr int32_t kOne = 1 << kOneShift;
constexpr int32_t kHalfBelow = kOne / 2 - 1;
constexpr int kSide = 8;
constexpr int64_t kRowsAhead = 24;

enum class Kind { kNearest, kCorrected, kBilinear };

/// Distances of the samples of a square along one direction from the least of them, 16 to a vector: packing 32 bits
/// to 16 and 16 to 8 brings them into the order of rows.
struct Offsets {
  V part[4];
  int32_t least;
  Offsets(int32_t stepRight, int32_t stepDown) noexcept
      : least((stepRight < 0 ? (kSide - 1) * stepRight : 0) + (stepDown < 0 ? (kSide - 1) * stepDown : 0)) {
    alignas(64) int32_t lanes[16];
    for (int p = 0; p < 4; ++p) {
      for (int lane = 0; lane < 16; ++lane) {
        const int row = 2 * (lane / 4) + p / 2, column = p % 2 * 4 + lane % 4;
        lanes[lane] = column * stepRight + row * stepDown - least;
      }
      part[p] = _mm512_load_si512(lanes);
    }
  }
};

/// Sixteen rows of sixteen bytes.
struct Box {
  V rows[4];
  template <int kRows>
  void Load(const uint8_t* from, int64_t stride) noexcept {
    for (int i = 0; i < kRows / 4; ++i, from += 4 * stride) {
      const auto row = [&](int64_t at) noexcept {
        return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + at * stride));
      };
      V four = _mm512_inserti32x4(_mm512_castsi128_si512(row(0)), row(1), 1);
      four = _mm512_inserti32x4(four, row(2), 2);
      rows[i] = _mm512_inserti32x4(four, row(3), 3);
    }
  }
  /// Samples at row * 16 + column.
  template <int kRows>
  [[nodiscard]] V At(V places) const noexcept {
    const V upper = _mm512_permutex2var_epi8(rows[0], places, rows[1]);
    const __mmask64 isLower = _mm512_movepi8_mask(places);
    if constexpr (kRows == 12) return _mm512_mask_permutexvar_epi8(upper, isLower, places, rows[2]);
    return _mm512_mask_blend_epi8(isLower, upper, _mm512_permutex2var_epi8(rows[2], places, rows[3]));
  }
};

/// Samples of 16 bits in the order of rows: of the first and the last eight of every sixteen.
struct Halves {
  V first, last;
};

Halves Widened(V bytes) noexcept {
  const V zero = _mm512_setzero_si512();
  return {_mm512_unpacklo_epi8(bytes, zero), _mm512_unpackhi_epi8(bytes, zero)};
}

/// from + (to - from) * share, the product truncated. One of the two differences is 0.
V Mixed(V from, V to, V share) noexcept {
  const V up = _mm512_mulhi_epu16(_mm512_subs_epu16(to, from), share);
  const V down = _mm512_mulhi_epu16(_mm512_subs_epu16(from, to), share);
  return _mm512_sub_epi16(_mm512_add_epi16(from, up), down);
}
Halves Mixed(const Halves& from, const Halves& to, const Halves& share) noexcept {
  return {Mixed(from.first, to.first, share.first), Mixed(from.last, to.last, share.last)};
}

/// Positions of a square in 1/16384, moved by what is to be rounded away.
struct Positions {
  V part[4];
  Positions(const Offsets& offsets, int32_t fraction) noexcept {
    for (int p = 0; p < 4; ++p) part[p] = _mm512_add_epi32(offsets.part[p], _mm512_set1_epi32(fraction));
  }
  /// What lies behind the pixel of a position, in 1/65536.
  [[nodiscard]] Halves Shares() const noexcept {
    V wide[4];
    for (int p = 0; p < 4; ++p) wide[p] = _mm512_srli_epi32(_mm512_slli_epi32(part[p], 32 - kOneShift), 16);
    return {_mm512_packus_epi32(wide[0], wide[1]), _mm512_packus_epi32(wide[2], wide[3])};
  }
  /// The distance from the centre of the pixel that is the nearest, -8191..8192; the same made positive in 1/65536.
  [[nodiscard]] Halves FromCentres() const noexcept {
    V wide[4];
    const V within = _mm512_set1_epi32(kOne - 1), half = _mm512_set1_epi32(kHalfBelow);
    for (int p = 0; p < 4; ++p) wide[p] = _mm512_sub_epi32(_mm512_and_si512(part[p], within), half);
    return {_mm512_packs_epi32(wide[0], wide[1]), _mm512_packs_epi32(wide[2], wide[3])};
  }
};

/// Row * 16 + column of pixels, as bytes.
V PlacesOf(const Positions& x, const Positions& y) noexcept {
  V place[4];
  const V rows = _mm512_set1_epi32(0xF0);
  constexpr int kInsert = 0xEA;  // a & b | c
  for (int p = 0; p < 4; ++p)
    place[p] = _mm512_ternarylogic_epi32(_mm512_srli_epi32(y.part[p], kOneShift - 4), rows,
                                         _mm512_srli_epi32(x.part[p], kOneShift), kInsert);
  return _mm512_packus_epi16(_mm512_packus_epi32(place[0], place[1]), _mm512_packus_epi32(place[2], place[3]));
}

/// -1, 0 or 1, as the distances are.
V SignsOf(const Halves& distances) noexcept {
  const V bytes = _mm512_packs_epi16(distances.first, distances.last);  // what is not 0 stays so
  const V positiveOrNone = _mm512_min_epu8(bytes, _mm512_set1_epi8(1));
  return _mm512_mask_mov_epi8(positiveOrNone, _mm512_movepi8_mask(bytes), _mm512_set1_epi8(-1));
}

Halves SharesOf(const Halves& distances) noexcept {
  return {_mm512_slli_epi16(_mm512_abs_epi16(distances.first), 2),
          _mm512_slli_epi16(_mm512_abs_epi16(distances.last), 2)};
}

void StoreSquare(uint8_t* target, int64_t stride, V rows) noexcept {
  const auto two = [&](__m128i pair, int64_t row) noexcept {
    _mm_storel_epi64(reinterpret_cast<__m128i*>(target + row * stride), pair);
    _mm_storel_epi64(reinterpret_cast<__m128i*>(target + (row + 1) * stride), _mm_unpackhi_epi64(pair, pair));
  };
  two(_mm512_castsi512_si128(rows), 0);
  two(_mm512_extracti32x4_epi32(rows, 1), 2);
  two(_mm512_extracti32x4_epi32(rows, 2), 4);
  two(_mm512_extracti32x4_epi32(rows, 3), 6);
}

template <Kind kKind>
V Sampled(const uint8_t* from, int64_t stride, const Positions& x, const Positions& y) noexcept {
  // At most 8 * (|sine| + |cosine|) < 12 pixels, and a neighbour on either side where they are needed.
  constexpr int kRows = kKind == Kind::kNearest ? 12 : 16;
  Box box;
  box.Load<kRows>(from, stride);
  const V places = PlacesOf(x, y);
  if constexpr (kKind == Kind::kNearest) return box.At<kRows>(places);
  const V pixels = box.At<kRows>(places);
  if constexpr (kKind == Kind::kCorrected) {
    const Halves dx = x.FromCentres(), dy = y.FromCentres();
    const V beside = box.At<kRows>(_mm512_add_epi8(places, SignsOf(dx)));
    const V rowSteps =
        _mm512_slli_epi16(SignsOf(dy), 4);  // 16 times as bytes: what comes over from the one below is cut
    const V below =
        box.At<kRows>(_mm512_add_epi8(places, _mm512_and_si512(rowSteps, _mm512_set1_epi8(static_cast<char>(0xF0)))));
    const Halves mixed = Mixed(Widened(pixels), Widened(beside), SharesOf(dx));
    const Halves made = Mixed(mixed, Widened(below), SharesOf(dy));
    return _mm512_packus_epi16(made.first, made.last);
  }
  const V right = box.At<kRows>(_mm512_add_epi8(places, _mm512_set1_epi8(1)));
  const V lower = box.At<kRows>(_mm512_add_epi8(places, _mm512_set1_epi8(16)));
  const V lowerRight = box.At<kRows>(_mm512_add_epi8(places, _mm512_set1_epi8(17)));
  const Halves shares = x.Shares();
  const Halves made = Mixed(Mixed(Widened(pixels), Widened(right), shares),
                            Mixed(Widened(lower), Widened(lowerRight), shares), y.Shares());
  return _mm512_packus_epi16(made.first, made.last);
}

template <Kind kKind>
void Squares(uint8_t* target, int64_t targetStride, const uint8_t* origin, int64_t stride, const SamplePath& path,
             int64_t columns) noexcept {
  const Offsets rightwards(path.stepX, -path.stepY), downwards(path.stepY, path.stepX);
  constexpr int32_t kBias = kKind == Kind::kBilinear ? 0 : kHalfBelow;
  constexpr int64_t kBefore = kKind == Kind::kCorrected ? 1 : 0;  // neighbours in front of the first pixel
  const int64_t ahead = (path.stepX * kRowsAhead >> kOneShift) * stride - (path.stepY * kRowsAhead >> kOneShift);
  int64_t x = path.x + rightwards.least + kBias, y = path.y + downwards.least + kBias;
  for (int64_t column = 0; column < columns; column += kSide) {
    const uint8_t* const from = origin + ((y >> kOneShift) - kBefore) * stride + (x >> kOneShift) - kBefore;
    for (int64_t row = 0; row < 12; ++row)
      _mm_prefetch(reinterpret_cast<const char*>(from + ahead + row * stride), _MM_HINT_T0);
    constexpr auto kFirst = static_cast<int32_t>(kBefore * kOne);
    const Positions xs(rightwards, static_cast<int32_t>(x & (kOne - 1)) + kFirst);
    const Positions ys(downwards, static_cast<int32_t>(y & (kOne - 1)) + kFirst);
    StoreSquare(target + column, targetStride, Sampled<kKind>(from, stride, xs, ys));
    x += int64_t{kSide} * path.stepX;
    y += int64_t{kSide} * path.stepY;
  }
}

}  // namespace

constinit const RotateSquares kRotateSquaresAvx512 = {.nearest8 = Squares<Kind::kNearest>,
                                                      .corrected8 = Squares<Kind::kCorrected>,
                                                      .bilinear8 = Squares<Kind::kBilinear>};

}  // namespace tarn
