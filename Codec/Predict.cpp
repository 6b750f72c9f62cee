#include "Codec/Predict.h"

#include <cstring>

#if defined(__SSE2__)
#include <emmintrin.h>
#endif

namespace tarn::codec {
namespace {

constexpr uint64_t kBands = 4;
constexpr uint64_t kSide = 8;  // of the squares that a transposition moves

inline int Least(int a, int b) noexcept { return a < b ? a : b; }
inline int Most(int a, int b) noexcept { return a < b ? b : a; }

inline int Gradient(int a, int b, int c) noexcept {
  const int plane = a + b - c;
  return Most(Least(a, b), Least(plane, Most(a, b)));
}
inline uint8_t Wrapped(int value) noexcept { return static_cast<uint8_t>(value & 0xFF); }

// Every sample is known: nothing waits for its neighbour. The buffers do not overlap.
void Predict(uint8_t* __restrict residuals, const uint8_t* __restrict row, const uint8_t* __restrict above,
             uint64_t samples) noexcept {
  if (samples == 0) return;
  if (!above) {
    residuals[0] = row[0];
    for (uint64_t i = 1; i < samples; ++i) residuals[i] = static_cast<uint8_t>(row[i] - row[i - 1]);
    return;
  }
  residuals[0] = static_cast<uint8_t>(row[0] - above[0]);
  for (uint64_t i = 1; i < samples; ++i)
    residuals[i] = static_cast<uint8_t>(row[i] - Gradient(row[i - 1], above[i], above[i - 1]));
}

// From sample `first` of a band on.
void Expand(uint8_t* row, const uint8_t* residuals, const uint8_t* above, uint64_t first, uint64_t samples) noexcept {
  if (first >= samples) return;
  int a = first ? row[first - 1] : (above ? above[0] : 0);
  int c = above ? above[first ? first - 1 : 0] : 0;
  for (uint64_t i = first; i < samples; ++i) {
    const int b = above ? above[i] : 0;
    a = Wrapped(Gradient(a, b, c) + residuals[i]);
    c = b;
    row[i] = static_cast<uint8_t>(a);
  }
}

void ExpandRest(uint8_t* row, const uint8_t* residuals, const uint8_t* above, uint64_t bytes) noexcept {
  for (uint64_t i = bytes / kBands * kBands; i < bytes; ++i)
    row[i] = static_cast<uint8_t>(residuals[i] + (above ? above[i] : 0));
}

inline void JoinColor(uint8_t* pixel, const uint16_t* samples) noexcept {
  const int green = samples[0];
  pixel[0] = Wrapped(samples[2] + green - 128);
  pixel[1] = static_cast<uint8_t>(green);
  pixel[2] = Wrapped(samples[1] + green - 128);
}

void ExpandColorsFrom(uint8_t* row, const uint8_t* const (&residuals)[kPlanes], uint16_t* above, uint64_t first,
                      uint64_t pixels, int (&a)[kPlanes], int (&c)[kPlanes]) noexcept {
  for (uint64_t i = first; i < pixels; ++i) {
    uint16_t* const samples = above + 4 * i;
    for (int plane = 0; plane < kPlanes; ++plane) {
      const int b = samples[plane];
      a[plane] = Wrapped(Gradient(a[plane], b, c[plane]) + residuals[plane][i]);
      c[plane] = b;
      samples[plane] = static_cast<uint16_t>(a[plane]);
    }
    JoinColor(row + 3 * i, samples);
  }
}

#if defined(__SSE2__)

// Four sums at once, a 16-bit number each. Of eight steps at a time the residuals and the row above are brought from
// four places of eight bytes into eight vectors of four.
struct Steps {
  __m128i pairs[4];  // two steps each
  Steps(__m128i lane0, __m128i lane1, __m128i lane2, __m128i lane3) noexcept {
    const __m128i zero = _mm_setzero_si128();
    const __m128i low = _mm_unpacklo_epi8(lane0, lane1);
    const __m128i high = _mm_unpacklo_epi8(lane2, lane3);
    const __m128i first = _mm_unpacklo_epi16(low, high);
    const __m128i second = _mm_unpackhi_epi16(low, high);
    pairs[0] = _mm_unpacklo_epi8(first, zero);
    pairs[1] = _mm_unpackhi_epi8(first, zero);
    pairs[2] = _mm_unpacklo_epi8(second, zero);
    pairs[3] = _mm_unpackhi_epi8(second, zero);
  }
};

inline __m128i Eight(const uint8_t* from) noexcept { return _mm_loadl_epi64(reinterpret_cast<const __m128i*>(from)); }
inline void StoreEight(uint8_t* to, __m128i value) noexcept { _mm_storel_epi64(reinterpret_cast<__m128i*>(to), value); }
inline __m128i Upper(__m128i pair) noexcept { return _mm_unpackhi_epi64(pair, pair); }

// One step of the sums: the only thing that the next one waits for is `a`.
inline __m128i Step(__m128i a, __m128i b, __m128i c, __m128i residual) noexcept {
  const __m128i plane = _mm_add_epi16(a, _mm_sub_epi16(b, c));
  const __m128i expected = _mm_max_epi16(_mm_min_epi16(a, b), _mm_min_epi16(plane, _mm_max_epi16(a, b)));
  return _mm_and_si128(_mm_add_epi16(expected, residual), _mm_set1_epi16(0xFF));
}

inline void StoreFour(uint8_t* to, __m128i value) noexcept {
  const int four = _mm_cvtsi128_si32(value);
  std::memcpy(to, &four, sizeof four);
}

// Four steps of four lanes to four bytes of each lane.
inline void StoreSteps(uint8_t* const (&to)[kBands], uint64_t at, __m128i early, __m128i late) noexcept {
  __m128i bytes = _mm_packus_epi16(early, late);
  bytes = _mm_unpacklo_epi8(bytes, _mm_srli_si128(bytes, 8));
  bytes = _mm_unpacklo_epi8(bytes, _mm_srli_si128(bytes, 8));
  StoreFour(to[0] + at, bytes);
  StoreFour(to[1] + at, _mm_srli_si128(bytes, 4));
  StoreFour(to[2] + at, _mm_srli_si128(bytes, 8));
  StoreFour(to[3] + at, _mm_srli_si128(bytes, 12));
}

// Eight rows of eight bytes, strides in bytes.
void TransposeSquare(uint8_t* target, uint64_t targetStride, const uint8_t* source, uint64_t stride) noexcept {
  __m128i twos[4];
  for (uint64_t i = 0; i < 4; ++i)
    twos[i] = _mm_unpacklo_epi8(Eight(source + 2 * i * stride), Eight(source + (2 * i + 1) * stride));
  const __m128i top = _mm_unpacklo_epi16(twos[0], twos[1]);
  const __m128i topRight = _mm_unpackhi_epi16(twos[0], twos[1]);
  const __m128i bottom = _mm_unpacklo_epi16(twos[2], twos[3]);
  const __m128i bottomRight = _mm_unpackhi_epi16(twos[2], twos[3]);
  const __m128i columns[4] = {_mm_unpacklo_epi32(top, bottom), _mm_unpackhi_epi32(top, bottom),
                              _mm_unpacklo_epi32(topRight, bottomRight), _mm_unpackhi_epi32(topRight, bottomRight)};
  for (uint64_t i = 0; i < 4; ++i) {
    StoreEight(target + 2 * i * targetStride, columns[i]);
    StoreEight(target + (2 * i + 1) * targetStride, Upper(columns[i]));
  }
}

#else

void TransposeSquare(uint8_t* target, uint64_t targetStride, const uint8_t* source, uint64_t stride) noexcept {
  for (uint64_t row = 0; row < kSide; ++row) {
    for (uint64_t column = 0; column < kSide; ++column)
      target[column * targetStride + row] = source[row * stride + column];
  }
}

#endif

}  // namespace

void PredictGray(uint8_t* residuals, const uint8_t* row, const uint8_t* above, uint64_t bytes) noexcept {
  const uint64_t band = bytes / kBands;
  for (uint64_t i = 0; i < kBands; ++i)
    Predict(residuals + i * band, row + i * band, above ? above + i * band : nullptr, band);
  for (uint64_t i = band * kBands; i < bytes; ++i) residuals[i] = static_cast<uint8_t>(row[i] - (above ? above[i] : 0));
}

void ExpandGray_Portable(uint8_t* row, const uint8_t* residuals, const uint8_t* above, uint64_t bytes) noexcept {
  const uint64_t band = bytes / kBands;
  for (uint64_t i = 0; i < kBands; ++i)
    Expand(row + i * band, residuals + i * band, above ? above + i * band : nullptr, 0, band);
  ExpandRest(row, residuals, above, bytes);
}

void PredictPlane(uint8_t* residuals, const uint8_t* row, const uint8_t* above, uint64_t samples) noexcept {
  Predict(residuals, row, above, samples);
}

void SplitColors(uint8_t* const (&planes)[kPlanes], const uint8_t* row, uint64_t pixels) noexcept {
  uint8_t* __restrict green = planes[0];
  uint8_t* __restrict red = planes[1];
  uint8_t* __restrict blue = planes[2];
  for (uint64_t i = 0; i < pixels; ++i) {
    green[i] = row[3 * i + 1];
    red[i] = static_cast<uint8_t>(row[3 * i + 2] - row[3 * i + 1] + 128);
    blue[i] = static_cast<uint8_t>(row[3 * i] - row[3 * i + 1] + 128);
  }
}

void ExpandColors_Portable(uint8_t* row, const uint8_t* const (&residuals)[kPlanes], uint16_t* above,
                           uint64_t pixels) noexcept {
  if (pixels == 0) return;
  int a[kPlanes] = {above[0], above[1], above[2]};
  int c[kPlanes] = {above[0], above[1], above[2]};
  ExpandColorsFrom(row, residuals, above, 0, pixels, a, c);
}

#if defined(__SSE2__)

void ExpandGray(uint8_t* row, const uint8_t* residuals, const uint8_t* above, uint64_t bytes) noexcept {
  const uint64_t band = bytes / kBands;
  constexpr uint64_t kSteps = 8;
  if (!above || band < kSteps) return ExpandGray_Portable(row, residuals, above, bytes);
  uint8_t* const to[kBands] = {row, row + band, row + 2 * band, row + 3 * band};
  __m128i a = _mm_setr_epi16(above[0], above[band], above[2 * band], above[3 * band], 0, 0, 0, 0);
  __m128i c = a;
  uint64_t at = 0;
  for (; at + kSteps <= band; at += kSteps) {
    const uint8_t* const from = residuals + at;
    const uint8_t* const up = above + at;
    const Steps wrong(Eight(from), Eight(from + band), Eight(from + 2 * band), Eight(from + 3 * band));
    const Steps known(Eight(up), Eight(up + band), Eight(up + 2 * band), Eight(up + 3 * band));
    __m128i done[4];
    for (int pair = 0; pair < 4; ++pair) {
      const __m128i even = Step(a, known.pairs[pair], c, wrong.pairs[pair]);
      c = Upper(known.pairs[pair]);
      a = Step(even, c, known.pairs[pair], Upper(wrong.pairs[pair]));
      done[pair] = _mm_unpacklo_epi64(even, a);
    }
    StoreSteps(to, at, done[0], done[1]);
    StoreSteps(to, at + 4, done[2], done[3]);
  }
  for (uint64_t i = 0; i < kBands; ++i) Expand(to[i], residuals + i * band, above + i * band, at, band);
  ExpandRest(row, residuals, above, bytes);
}

void ExpandColors(uint8_t* row, const uint8_t* const (&residuals)[kPlanes], uint16_t* above, uint64_t pixels) noexcept {
  if (pixels == 0) return;
  constexpr uint64_t kSteps = 8;
  __m128i a = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(above));
  __m128i c = a;
  uint64_t at = 0;
  // Every pixel is stored as four bytes, the fourth of which is the next one's: the last pixel of all is not done here.
  for (; at + kSteps < pixels; at += kSteps) {
    const Steps wrong(Eight(residuals[0] + at), Eight(residuals[1] + at), Eight(residuals[2] + at),
                      _mm_setzero_si128());
    for (int pair = 0; pair < 4; ++pair) {
      auto* const samples = reinterpret_cast<__m128i*>(above + 4 * (at + 2 * static_cast<uint64_t>(pair)));
      const __m128i known = _mm_loadu_si128(samples);
      const __m128i even = Step(a, known, c, wrong.pairs[pair]);
      c = Upper(known);
      a = Step(even, c, known, Upper(wrong.pairs[pair]));
      const __m128i both = _mm_unpacklo_epi64(even, a);
      _mm_storeu_si128(samples, both);
      // green, red, blue, 0 -> blue, green, red, 0, green added to the others and 128 taken away
      const __m128i order =
          _mm_shufflehi_epi16(_mm_shufflelo_epi16(both, _MM_SHUFFLE(3, 1, 0, 2)), _MM_SHUFFLE(3, 1, 0, 2));
      const __m128i green = _mm_and_si128(_mm_shufflehi_epi16(_mm_shufflelo_epi16(both, 0), 0),
                                          _mm_setr_epi16(-1, 0, -1, 0, -1, 0, -1, 0));
      const __m128i sum = _mm_sub_epi16(_mm_add_epi16(order, green), _mm_setr_epi16(128, 0, 128, 0, 128, 0, 128, 0));
      const __m128i bytes = _mm_and_si128(sum, _mm_set1_epi16(0xFF));
      const __m128i packed = _mm_packus_epi16(bytes, bytes);
      uint8_t* const pixel = row + 3 * (at + 2 * static_cast<uint64_t>(pair));
      StoreFour(pixel, packed);
      StoreFour(pixel + 3, _mm_srli_si128(packed, 4));
    }
  }
  int lastA[kPlanes];
  int lastC[kPlanes];
  uint16_t lanes[8];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), a);
  for (int plane = 0; plane < kPlanes; ++plane) lastA[plane] = lanes[plane];
  _mm_storeu_si128(reinterpret_cast<__m128i*>(lanes), c);
  for (int plane = 0; plane < kPlanes; ++plane) lastC[plane] = lanes[plane];
  ExpandColorsFrom(row, residuals, above, at, pixels, lastA, lastC);
}

#else

void ExpandGray(uint8_t* row, const uint8_t* residuals, const uint8_t* above, uint64_t bytes) noexcept {
  ExpandGray_Portable(row, residuals, above, bytes);
}
void ExpandColors(uint8_t* row, const uint8_t* const (&residuals)[kPlanes], uint16_t* above, uint64_t pixels) noexcept {
  ExpandColors_Portable(row, residuals, above, pixels);
}

#endif

void Transpose(uint8_t* target, const uint8_t* source, uint64_t rows, uint64_t columns) noexcept {
  const uint64_t wholeRows = rows / kSide * kSide;
  const uint64_t wholeColumns = columns / kSide * kSide;
  for (uint64_t column = 0; column < wholeColumns; column += kSide) {
    for (uint64_t row = 0; row < wholeRows; row += kSide)
      TransposeSquare(target + column * rows + row, rows, source + row * columns + column, columns);
  }
  for (uint64_t column = 0; column < columns; ++column) {
    const uint64_t first = column < wholeColumns ? wholeRows : 0;
    for (uint64_t row = first; row < rows; ++row) target[column * rows + row] = source[row * columns + column];
  }
}

}  // namespace tarn::codec
