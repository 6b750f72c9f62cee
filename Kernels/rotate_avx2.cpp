// Pixels sampled in two steps: places and shares of a chunk of pixels in vectors, then loads by them, whose samples are
// mixed in lanes of 16 bits. Gathering loads are not faster than single ones anywhere.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Rotate.h"

namespace tarn {
namespace {

using V = __m256i;
using Half = __m128i;

constexpr int32_t kOneShift = 14;
constexpr int32_t kOne = 1 << kOneShift;
constexpr int32_t kHalfBelow = kOne / 2 - 1;
constexpr int64_t kChunk = 64;
constexpr int64_t kRowsAhead = 24;
constexpr int64_t kMostStride = 1 << 24;  // places within a chunk fit 32 bits

void Store(void* at, V value) noexcept { _mm256_store_si256(static_cast<V*>(at), value); }
V LoadAt(const void* at) noexcept { return _mm256_load_si256(static_cast<const V*>(at)); }

/// Of a chunk of pixels. Shares are in 1/65536.
struct Places {
  alignas(32) int32_t pixel[kChunk];   // bytes from the chunk's origin
  alignas(32) int32_t beside[kChunk];  // the neighbours of a corrected pixel
  alignas(32) int32_t below[kChunk];
  alignas(32) uint16_t shareX[kChunk];
  alignas(32) uint16_t shareY[kChunk];
};

/// Eight positions along one direction.
struct Positions {
  V at;
  V eightSteps;
  Positions(int64_t first, int32_t step) noexcept {
    const V lanes = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
    at = _mm256_add_epi32(_mm256_set1_epi32(static_cast<int32_t>(first & (kOne - 1))),
                          _mm256_mullo_epi32(lanes, _mm256_set1_epi32(step)));
    eightSteps = _mm256_set1_epi32(8 * step);
  }
  void Next() noexcept { at = _mm256_add_epi32(at, eightSteps); }
  [[nodiscard]] V Nearest() const noexcept {
    return _mm256_srai_epi32(_mm256_add_epi32(at, _mm256_set1_epi32(kHalfBelow)), kOneShift);
  }
  [[nodiscard]] V Below() const noexcept { return _mm256_srai_epi32(at, kOneShift); }
  /// From the centre of a pixel.
  [[nodiscard]] V From(V pixel) const noexcept { return _mm256_sub_epi32(at, _mm256_slli_epi32(pixel, kOneShift)); }
};

void StoreShares(uint16_t* shares, V sixteenThousandths) noexcept {
  const V wide = _mm256_slli_epi32(sixteenThousandths, 2);
  const V narrow = _mm256_permute4x64_epi64(_mm256_packus_epi32(wide, wide), _MM_SHUFFLE(3, 1, 2, 0));
  _mm_store_si128(reinterpret_cast<Half*>(shares), _mm256_castsi256_si128(narrow));
}

enum class Kind { kNearest, kCorrected, kBilinear };

/// Places of `count` pixels; the rest up to a multiple of 16 is filled with the last one's.
template <Kind kKind, int kBytes>
void Locate(Places& places, const SamplePath& path, int32_t stride, int64_t count) noexcept {
  Positions x(path.x, path.stepX), y(path.y, path.stepY);
  const V strides = _mm256_set1_epi32(stride);
  const V bytes = _mm256_set1_epi32(kBytes);
  for (int64_t i = 0; i < count; i += 8, x.Next(), y.Next()) {
    const V column = kKind == Kind::kBilinear ? x.Below() : x.Nearest();
    const V row = kKind == Kind::kBilinear ? y.Below() : y.Nearest();
    const V pixel = _mm256_add_epi32(_mm256_mullo_epi32(row, strides), _mm256_mullo_epi32(column, bytes));
    Store(places.pixel + i, pixel);
    if constexpr (kKind == Kind::kNearest) continue;
    const V dx = x.From(column), dy = y.From(row);
    StoreShares(places.shareX + i, _mm256_abs_epi32(dx));
    StoreShares(places.shareY + i, _mm256_abs_epi32(dy));
    if constexpr (kKind == Kind::kBilinear) continue;
    // A sign of 0 takes the pixel itself: its share is 0.
    Store(places.beside + i, _mm256_add_epi32(pixel, _mm256_sign_epi32(bytes, dx)));
    Store(places.below + i, _mm256_add_epi32(pixel, _mm256_sign_epi32(strides, dy)));
  }
  if constexpr (kKind == Kind::kNearest) return;
  for (int64_t i = count; i % 16 != 0; ++i) {
    places.pixel[i] = places.pixel[count - 1];
    places.shareX[i] = places.shareY[i] = 0;
    if constexpr (kKind == Kind::kBilinear) continue;
    places.beside[i] = places.beside[count - 1];
    places.below[i] = places.below[count - 1];
  }
}

/// Runs chunk(target, origin, stride, places, count) along a path, with places from that origin.
template <Kind kKind, int kBytes, class Chunk>
void InChunks(uint8_t* target, const uint8_t* origin, int64_t stride, SamplePath path, int64_t pixels,
              Chunk chunk) noexcept {
  Places places;
  // Rows of the result that follow come from source rows beside these, which are asked for in time.
  const int64_t ahead =
      (path.stepX * kRowsAhead >> kOneShift) * stride - (path.stepY * kRowsAhead >> kOneShift) * kBytes;
  for (int64_t done = 0; done < pixels; done += kChunk) {
    const int64_t count = pixels - done < kChunk ? pixels - done : kChunk;
    Locate<kKind, kBytes>(places, path, static_cast<int32_t>(stride), count);
    const uint8_t* const from = origin + (path.y >> kOneShift) * stride + (path.x >> kOneShift) * kBytes;
    for (int64_t i = 0; i < count; i += 16)
      _mm_prefetch(reinterpret_cast<const char*>(from + ahead + places.pixel[i]), _MM_HINT_T0);
    chunk(target + done * kBytes, from, stride, places, count);
    path.x += path.stepX * kChunk;
    path.y += path.stepY * kChunk;
  }
}

// ---- Nearest -------------------------------------------------------------------------------------------------------

template <int kBytes>
void Nearest(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path, int64_t pixels,
             RotateKernels::Sample portable) noexcept {
  if (stride > kMostStride) return portable(target, origin, stride, path, pixels);
  const auto chunk = [](uint8_t* to, const uint8_t* from, int64_t, const Places& places, int64_t count) noexcept {
    // Pixels of 3 and 6 bytes are moved with what is behind them; the next one goes over it.
    constexpr int kMoved = kBytes == 3 ? 4 : kBytes == 6 ? 8 : kBytes;
    const int64_t whole = kMoved == kBytes ? count : count - 1;
    for (int64_t i = 0; i < whole; ++i, to += kBytes) __builtin_memcpy(to, from + places.pixel[i], kMoved);
    if constexpr (kMoved != kBytes) __builtin_memcpy(to, from + places.pixel[whole], kBytes);
  };
  InChunks<Kind::kNearest, kBytes>(target, origin, stride, path, pixels, chunk);
}

void Nearest8(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path, int64_t pixels) noexcept {
  Nearest<1>(target, origin, stride, path, pixels, kRotatePortable.nearest[static_cast<int>(SampleFormat::k8)]);
}
void Nearest16(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path,
               int64_t pixels) noexcept {
  Nearest<2>(target, origin, stride, path, pixels, kRotatePortable.nearest[static_cast<int>(SampleFormat::k16)]);
}
void Nearest24(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path,
               int64_t pixels) noexcept {
  Nearest<3>(target, origin, stride, path, pixels, kRotatePortable.nearest[static_cast<int>(SampleFormat::k24)]);
}
void Nearest32(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path,
               int64_t pixels) noexcept {
  Nearest<4>(target, origin, stride, path, pixels, kRotatePortable.nearest[static_cast<int>(SampleFormat::k32)]);
}
void Nearest48(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path,
               int64_t pixels) noexcept {
  Nearest<6>(target, origin, stride, path, pixels, kRotatePortable.nearest[static_cast<int>(SampleFormat::k48)]);
}
void Nearest64(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path,
               int64_t pixels) noexcept {
  Nearest<8>(target, origin, stride, path, pixels, kRotatePortable.nearest[static_cast<int>(SampleFormat::k64)]);
}

// ---- Mixing --------------------------------------------------------------------------------------------------------

/// from + (to - from) * share, the product truncated; samples of 16 bits. One of the two differences is 0.
V Mixed(V from, V to, V share) noexcept {
  const V up = _mm256_mulhi_epu16(_mm256_subs_epu16(to, from), share);
  const V down = _mm256_mulhi_epu16(_mm256_subs_epu16(from, to), share);
  return _mm256_sub_epi16(_mm256_add_epi16(from, up), down);
}

#include "Kernels/color_lanes.inl"

/// The samples of pixels as lanes of 16 bits, some pixels at a time; each kind of pixel says how they are loaded and
/// stored, and which share goes with which lane.

struct Gray8 {
  static constexpr int kBytes = 1;
  static constexpr int kPixels = 16;
  static Half Words(const uint8_t* from, const int32_t* at) noexcept {
    Half words = _mm_setzero_si128();
    const auto word = [&](int i) noexcept {
      uint16_t value;
      __builtin_memcpy(&value, from + at[i], 2);
      return static_cast<int>(value);
    };
    words = _mm_insert_epi16(words, word(0), 0);
    words = _mm_insert_epi16(words, word(1), 1);
    words = _mm_insert_epi16(words, word(2), 2);
    words = _mm_insert_epi16(words, word(3), 3);
    words = _mm_insert_epi16(words, word(4), 4);
    words = _mm_insert_epi16(words, word(5), 5);
    words = _mm_insert_epi16(words, word(6), 6);
    return _mm_insert_epi16(words, word(7), 7);
  }
  static Half Bytes(const uint8_t* from, const int32_t* at) noexcept {
    Half bytes = _mm_cvtsi32_si128(from[at[0]]);
    bytes = _mm_insert_epi8(bytes, from[at[1]], 1);
    bytes = _mm_insert_epi8(bytes, from[at[2]], 2);
    bytes = _mm_insert_epi8(bytes, from[at[3]], 3);
    bytes = _mm_insert_epi8(bytes, from[at[4]], 4);
    bytes = _mm_insert_epi8(bytes, from[at[5]], 5);
    bytes = _mm_insert_epi8(bytes, from[at[6]], 6);
    return _mm_insert_epi8(bytes, from[at[7]], 7);
  }
  static V Load(const uint8_t* from, const int32_t* at) noexcept {
    return _mm256_cvtepu8_epi16(_mm_unpacklo_epi64(Bytes(from, at), Bytes(from, at + 8)));
  }
  static void LoadPair(const uint8_t* from, const int32_t* at, V& first, V& second) noexcept {
    const V pairs = Joined(Words(from, at), Words(from, at + 8));
    first = _mm256_and_si256(pairs, _mm256_set1_epi16(255));
    second = _mm256_srli_epi16(pairs, 8);
  }
  static V Shares(const uint16_t* shares) noexcept { return LoadAt(shares); }
  static void Store16(uint8_t* to, V values) noexcept {
    const V bytes = _mm256_permute4x64_epi64(_mm256_packus_epi16(values, values), _MM_SHUFFLE(3, 1, 2, 0));
    _mm_storeu_si128(reinterpret_cast<Half*>(to), _mm256_castsi256_si128(bytes));
  }
};

struct Gray16 {
  static constexpr int kBytes = 2;
  static constexpr int kPixels = 16;
  static Half Words(const uint8_t* from, const int32_t* at) noexcept { return Gray8::Words(from, at); }
  static V Load(const uint8_t* from, const int32_t* at) noexcept {
    return Joined(Words(from, at), Words(from, at + 8));
  }
  static Half Pairs(const uint8_t* from, const int32_t* at) noexcept {
    const auto pair = [&](int i) noexcept {
      int32_t value;
      __builtin_memcpy(&value, from + at[i], 4);
      return value;
    };
    Half pairs = _mm_cvtsi32_si128(pair(0));
    pairs = _mm_insert_epi32(pairs, pair(1), 1);
    pairs = _mm_insert_epi32(pairs, pair(2), 2);
    return _mm_insert_epi32(pairs, pair(3), 3);
  }
  static void LoadPair(const uint8_t* from, const int32_t* at, V& first, V& second) noexcept {
    const V low = Joined(Pairs(from, at), Pairs(from, at + 8));
    const V high = Joined(Pairs(from, at + 4), Pairs(from, at + 12));
    const V words = _mm256_set1_epi32(0xFFFF);
    first = _mm256_packus_epi32(_mm256_and_si256(low, words), _mm256_and_si256(high, words));
    second = _mm256_packus_epi32(_mm256_srli_epi32(low, 16), _mm256_srli_epi32(high, 16));
  }
  static V Shares(const uint16_t* shares) noexcept { return LoadAt(shares); }
  static void Store16(uint8_t* to, V values) noexcept { _mm256_storeu_si256(reinterpret_cast<V*>(to), values); }
};

/// Pixels of three or four bytes, four at a time.
template <int kPixelBytes>
struct Color8 {
  static constexpr int kBytes = kPixelBytes;
  static constexpr int kPixels = 4;
  static V Load(const uint8_t* from, const int32_t* at) noexcept {
    const auto pixel = [&](int i) noexcept {
      int32_t value;
      __builtin_memcpy(&value, from + at[i], 4);
      return value;
    };
    Half pixels = _mm_cvtsi32_si128(pixel(0));
    pixels = _mm_insert_epi32(pixels, pixel(1), 1);
    pixels = _mm_insert_epi32(pixels, pixel(2), 2);
    return _mm256_cvtepu8_epi16(_mm_insert_epi32(pixels, pixel(3), 3));
  }
  static void LoadPair(const uint8_t* from, const int32_t* at, V& first, V& second) noexcept {
    LoadPairs<kBytes>(from, at, first, second);
  }
  static V Shares(const uint16_t* shares) noexcept { return SharesOfFour(shares); }
  static void Store16(uint8_t* to, V values) noexcept { StoreFour<kBytes>(to, values); }
};

/// Pixels of three or four words, four at a time.
template <int kPixelBytes>
struct Color16 {
  static constexpr int kBytes = kPixelBytes;
  static constexpr int kPixels = 4;
  static V Load(const uint8_t* from, const int32_t* at) noexcept {
    return Joined(_mm_unpacklo_epi64(LoadLow(from + at[0]), LoadLow(from + at[1])),
                  _mm_unpacklo_epi64(LoadLow(from + at[2]), LoadLow(from + at[3])));
  }
  static void LoadPair(const uint8_t* from, const int32_t* at, V& first, V& second) noexcept {
    const auto both = [&](int i, int j) noexcept {
      const V pairs = Joined(_mm_loadu_si128(reinterpret_cast<const Half*>(from + at[i])),
                             _mm_loadu_si128(reinterpret_cast<const Half*>(from + at[j])));
      if constexpr (kBytes == 8) return pairs;
      const Half apart = _mm_setr_epi8(0, 1, 2, 3, 4, 5, -1, -1, 6, 7, 8, 9, 10, 11, -1, -1);
      return _mm256_shuffle_epi8(pairs, _mm256_broadcastsi128_si256(apart));
    };
    const V even = both(0, 2), odd = both(1, 3);
    first = _mm256_unpacklo_epi64(even, odd);
    second = _mm256_unpackhi_epi64(even, odd);
  }
  static V Shares(const uint16_t* shares) noexcept { return SharesOfFour(shares); }
  static void Store16(uint8_t* to, V values) noexcept {
    if constexpr (kBytes == 8) return _mm256_storeu_si256(reinterpret_cast<V*>(to), values);
    const Half together = _mm_setr_epi8(0, 1, 2, 3, 4, 5, 8, 9, 10, 11, 12, 13, -1, -1, -1, -1);
    const V packed = _mm256_shuffle_epi8(values, _mm256_broadcastsi128_si256(together));
    const Half high = _mm256_extracti128_si256(packed, 1);
    _mm_storeu_si128(reinterpret_cast<Half*>(to), _mm256_castsi256_si128(packed));
    _mm_storel_epi64(reinterpret_cast<Half*>(to + 12), high);
    const int last = _mm_extract_epi32(high, 2);
    __builtin_memcpy(to + 20, &last, 4);
  }
};

template <class Format, class Group>
void InGroups(uint8_t* to, int64_t count, Group group) noexcept {
  int64_t i = 0;
  for (; i + Format::kPixels <= count; i += Format::kPixels) Format::Store16(to + i * Format::kBytes, group(i));
  if (i == count) return;
  uint8_t rest[32];
  Format::Store16(rest, group(i));
  __builtin_memcpy(to + i * Format::kBytes, rest, static_cast<uint64_t>((count - i) * Format::kBytes));
}

template <class Format, SampleFormat kFormat>
void Corrected(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path,
               int64_t pixels) noexcept {
  if (stride > kMostStride)
    return kRotatePortable.corrected[static_cast<int>(kFormat)](target, origin, stride, path, pixels);
  const auto chunk = [](uint8_t* to, const uint8_t* from, int64_t, const Places& places, int64_t count) noexcept {
    InGroups<Format>(to, count, [&](int64_t i) noexcept {
      const V values = Mixed(Format::Load(from, places.pixel + i), Format::Load(from, places.beside + i),
                             Format::Shares(places.shareX + i));
      return Mixed(values, Format::Load(from, places.below + i), Format::Shares(places.shareY + i));
    });
  };
  InChunks<Kind::kCorrected, Format::kBytes>(target, origin, stride, path, pixels, chunk);
}

template <class Format, SampleFormat kFormat>
void Bilinear(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path, int64_t pixels) noexcept {
  if (stride > kMostStride)
    return kRotatePortable.bilinear[static_cast<int>(kFormat)](target, origin, stride, path, pixels);
  const auto chunk = [](uint8_t* to, const uint8_t* from, int64_t step, const Places& places, int64_t count) noexcept {
    InGroups<Format>(to, count, [&](int64_t i) noexcept {
      V a, b, c, d;
      Format::LoadPair(from, places.pixel + i, a, b);
      Format::LoadPair(from + step, places.pixel + i, c, d);
      const V shares = Format::Shares(places.shareX + i);
      return Mixed(Mixed(a, b, shares), Mixed(c, d, shares), Format::Shares(places.shareY + i));
    });
  };
  InChunks<Kind::kBilinear, Format::kBytes>(target, origin, stride, path, pixels, chunk);
}

// Samples of five and of 32 bits do not fit the lanes.
template <SampleFormat kFormat>
void CorrectedPortable(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path,
                       int64_t pixels) noexcept {
  kRotatePortable.corrected[static_cast<int>(kFormat)](target, origin, stride, path, pixels);
}
template <SampleFormat kFormat>
void BilinearPortable(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path,
                      int64_t pixels) noexcept {
  kRotatePortable.bilinear[static_cast<int>(kFormat)](target, origin, stride, path, pixels);
}

}  // namespace

constinit const RotateKernels kRotateAvx2 = {
    .nearest = {Nearest8, Nearest16, Nearest16, Nearest24, Nearest32, Nearest32, Nearest48, Nearest64},
    .corrected = {Corrected<Gray8, SampleFormat::k8>, Corrected<Gray16, SampleFormat::k16>,
                  CorrectedPortable<SampleFormat::k555>, Corrected<Color8<3>, SampleFormat::k24>,
                  Corrected<Color8<4>, SampleFormat::k32>, CorrectedPortable<SampleFormat::k32Gray>,
                  Corrected<Color16<6>, SampleFormat::k48>, Corrected<Color16<8>, SampleFormat::k64>},
    .bilinear = {Bilinear<Gray8, SampleFormat::k8>, Bilinear<Gray16, SampleFormat::k16>,
                 BilinearPortable<SampleFormat::k555>, Bilinear<Color8<3>, SampleFormat::k24>,
                 Bilinear<Color8<4>, SampleFormat::k32>, BilinearPortable<SampleFormat::k32Gray>,
                 Bilinear<Color16<6>, SampleFormat::k48>, Bilinear<Color16<8>, SampleFormat::k64>}};

}  // namespace tarn
