// Pixels exchanged, mirrored and transposed, 64 bytes at a time. Lines of the target of a transposition are written a
// whole cache line at once; edges go through the version for AVX2.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Turn.h"

namespace tarn {
namespace {

using V = __m512i;

V Load(const uint8_t* at) noexcept { return _mm512_loadu_si512(at); }
void Store(uint8_t* at, V value) noexcept { _mm512_storeu_si512(at, value); }

/// Indices for a permutation of bytes of one vector or two.
struct Order {
  alignas(64) uint8_t at[64];
  [[nodiscard]] V Get() const noexcept { return _mm512_load_si512(at); }
};

/// Into the second-level cache: what is worked on needs the first.
void AskFor(const uint8_t* from, int64_t ahead) noexcept {
  const uintptr_t there = reinterpret_cast<uintptr_t>(from) + static_cast<uintptr_t>(ahead);
  _mm_prefetch(reinterpret_cast<const char*>(there), _MM_HINT_T1);
}

void Exchange(uint8_t* a, uint8_t* b, uint64_t bytes, int64_t ahead) noexcept {
  uint64_t at = 0;
  for (; at + 128 <= bytes; at += 128) {
    AskFor(a + at, ahead);
    AskFor(a + at + 64, ahead);
    AskFor(b + at, -ahead);
    AskFor(b + at + 64, -ahead);
    const V a0 = Load(a + at), a1 = Load(a + at + 64);
    const V b0 = Load(b + at), b1 = Load(b + at + 64);
    Store(b + at, a0);
    Store(b + at + 64, a1);
    Store(a + at, b0);
    Store(a + at + 64, b1);
  }
  while (at < bytes) {
    const uint64_t left = bytes - at;
    const __mmask64 here = left >= 64 ? ~uint64_t{0} : ~uint64_t{0} >> (64 - left);
    const V first = _mm512_maskz_loadu_epi8(here, a + at), second = _mm512_maskz_loadu_epi8(here, b + at);
    _mm512_mask_storeu_epi8(b + at, here, first);
    _mm512_mask_storeu_epi8(a + at, here, second);
    at += left >= 64 ? 64 : left;
  }
}

// ---- Mirrored ------------------------------------------------------------------------------------------------------

template <int kBytes>
constexpr Order MakeReversal() noexcept {
  Order order{};
  for (int i = 0; i < 64; ++i) order.at[i] = static_cast<uint8_t>(64 - kBytes - i / kBytes * kBytes + i % kBytes);
  return order;
}

/// Bytes in an order that is the reverse of its own, from both ends, so that target may be source; each vector goes
/// through `turned`, too.
template <class Turned>
void MirrorBytes(uint8_t* target, const uint8_t* source, int64_t bytes, V order, int64_t ahead,
                 Turned turned) noexcept {
  int64_t left = 0, right = bytes;
  for (; right - left >= 128; left += 64, right -= 64) {
    AskFor(source + 2 * left, ahead);
    AskFor(source + 2 * left + 64, ahead);
    const V a = Load(source + left), b = Load(source + right - 64);
    Store(target + right - 64, turned(_mm512_permutexvar_epi8(order, a)));
    Store(target + left, turned(_mm512_permutexvar_epi8(order, b)));
  }
  const int64_t middle = right - left;
  if (middle >= 64) {  // the two overlap, where they say the same
    const V a = Load(source + left), b = Load(source + right - 64);
    Store(target + right - 64, turned(_mm512_permutexvar_epi8(order, a)));
    Store(target + left, turned(_mm512_permutexvar_epi8(order, b)));
  } else if (middle > 0) {
    const __mmask64 used = ~uint64_t{0} >> (64 - middle);
    const V nearer = _mm512_sub_epi8(order, _mm512_set1_epi8(static_cast<char>(64 - middle)));
    const V value = _mm512_maskz_loadu_epi8(used, source + left);
    _mm512_mask_storeu_epi8(target + left, used, turned(_mm512_permutexvar_epi8(nearer, value)));
  }
}

template <int kBytes>
void Mirror(uint8_t* target, const uint8_t* source, int64_t pixels, int64_t ahead) noexcept {
  static constexpr Order kReversal = MakeReversal<kBytes>();
  MirrorBytes(target, source, pixels * kBytes, kReversal.Get(), ahead, [](V value) noexcept { return value; });
}

/// Of a byte's bits as a matrix: pixels of `bits` bits in reverse order.
constexpr int64_t TurnMatrix(int32_t bits) noexcept {
  uint64_t matrix = 0;
  for (int to = 0; to < 8; ++to) matrix |= uint64_t{1} << (8 * (7 - to) + (to ^ (8 - bits)));
  return static_cast<int64_t>(matrix);
}
static_assert(TurnMatrix(1) == static_cast<int64_t>(0x8040201008040201));

void MirrorBits(uint8_t* line, int64_t pixels, int32_t bits, int64_t ahead) noexcept {
  static constexpr Order kReversal = MakeReversal<1>();
  if (pixels <= 0) return;
  const int64_t bytes = (pixels * bits + 7) / 8;
  const auto spare = static_cast<int>(8 * bytes - pixels * bits);
  const auto kept = static_cast<uint32_t>(line[bytes - 1]) & ((1u << spare) - 1);
  const V matrix = _mm512_set1_epi64(TurnMatrix(bits));
  MirrorBytes(line, line, bytes, kReversal.Get(), ahead,
              [matrix](V value) noexcept { return _mm512_gf2p8affine_epi64_epi8(value, matrix, 0); });
  if (spare == 0) return;
  // What was behind the last pixel is in front now and moves out.
  const __m128i near = _mm_cvtsi32_si128(spare);
  const __m128i far = _mm_cvtsi32_si128(8 - spare);
  const V nearMask = _mm512_set1_epi8(static_cast<char>(0xFF << spare));
  for (int64_t at = 0; at < bytes; at += 64) {
    const int64_t left = bytes - at;
    const __mmask64 here = left >= 64 ? ~uint64_t{0} : ~uint64_t{0} >> (64 - left);
    const __mmask64 behind = left > 64 ? ~uint64_t{0} : (uint64_t{1} << (left - 1)) - 1;
    const V moved = _mm512_sll_epi16(_mm512_maskz_loadu_epi8(here, line + at), near);
    const V next = _mm512_srl_epi16(_mm512_maskz_loadu_epi8(behind, line + at + 1), far);
    constexpr int kSelect = 0xCA;  // by the mask
    _mm512_mask_storeu_epi8(line + at, here, _mm512_ternarylogic_epi64(nearMask, moved, next, kSelect));
  }
  line[bytes - 1] = static_cast<uint8_t>(line[bytes - 1] | kept);
}

/// 192 bytes of pixels of 3 or 6 bytes: each third of the result comes from two thirds of the source, the middle one
/// from all of them.
struct Reversal192 {
  Order first;   // of the last two thirds
  Order middle;  // of the first two
  Order last;    // of the first two
  uint64_t fromLast;
  Order middleLast;  // of the last third alone, where fromLast says so
};

template <int kBytes>
constexpr Reversal192 MakeReversal192() noexcept {
  Reversal192 made{};
  for (int to = 0; to < 192; ++to) {
    const int from = 192 - kBytes - to / kBytes * kBytes + to % kBytes;
    const int i = to % 64;
    if (to < 64) {
      made.first.at[i] = static_cast<uint8_t>(from - 64);
    } else if (to >= 128) {
      made.last.at[i] = static_cast<uint8_t>(from);
    } else if (from < 128) {
      made.middle.at[i] = static_cast<uint8_t>(from);
    } else {
      made.middleLast.at[i] = static_cast<uint8_t>(from - 128);
      made.fromLast |= uint64_t{1} << i;
    }
  }
  return made;
}

struct Thirds {
  V a, b, c;
};

Thirds LoadThirds(const uint8_t* at) noexcept { return {Load(at), Load(at + 64), Load(at + 128)}; }

void StoreReversed(uint8_t* at, const Thirds& bytes, const Reversal192& order) noexcept {
  const V middle = _mm512_permutex2var_epi8(bytes.a, order.middle.Get(), bytes.b);
  Store(at, _mm512_permutex2var_epi8(bytes.b, order.first.Get(), bytes.c));
  Store(at + 64, _mm512_mask_permutexvar_epi8(middle, order.fromLast, order.middleLast.Get(), bytes.c));
  Store(at + 128, _mm512_permutex2var_epi8(bytes.a, order.last.Get(), bytes.b));
}

template <int kBytes>
void MirrorThirds(uint8_t* target, const uint8_t* source, int64_t pixels, int64_t ahead) noexcept {
  static constexpr Reversal192 kReversal = MakeReversal192<kBytes>();
  int64_t left = 0, right = pixels * kBytes;
  for (; right - left >= 384; left += 192, right -= 192) {
    for (int64_t at = 0; at < 384; at += 64) AskFor(source + 2 * left + at, ahead);
    const Thirds a = LoadThirds(source + left), b = LoadThirds(source + right - 192);
    StoreReversed(target + right - 192, a, kReversal);
    StoreReversed(target + left, b, kReversal);
  }
  const auto middle = kBytes == 3 ? kTurnAvx2.mirror24 : kTurnAvx2.mirror48;
  middle(target + left, source + left, (right - left) / kBytes, 0);
}

// ---- Transposed ----------------------------------------------------------------------------------------------------

// Vectors hold 16 bytes of four source lines each: what transposes 16 bytes in every quarter of a vector makes 64 bytes
// of a target line, when the four lines are those that follow each other at the distance of a quarter.

using Transposing = TurnKernels::Transpose;

/// 16 bytes of the lines at `from`, `from + step`, ...
V Quarters(const uint8_t* from, int64_t step) noexcept {
  const auto quarter = [&](int i) noexcept {
    return _mm_loadu_si128(reinterpret_cast<const __m128i*>(from + i * step));
  };
  V value = _mm512_castsi128_si512(quarter(0));
  value = _mm512_inserti32x4(value, quarter(1), 1);
  value = _mm512_inserti32x4(value, quarter(2), 2);
  return _mm512_inserti32x4(value, quarter(3), 3);
}

struct Lines {
  uint8_t* target;
  int64_t targetStride;
  const uint8_t* source;
  int64_t sourceStride;
};

/// Lines that follow each other at a distance of 4096 bytes share a few places of the first-level cache: every cache
/// line of the source is read once, into a piece of memory where there is room for all of them.
template <int kBytes>
struct Piece {
  static constexpr int kPixels = kBytes % 3 == 0 ? 192 / kBytes : 64 / kBytes;
  static constexpr int kStride = kPixels * kBytes;
  static constexpr int kLines = 64;
  alignas(64) uint8_t data[kLines * kStride + 16];

  void Fill(const uint8_t* source, int64_t stride, int64_t pixels, int64_t lines, int64_t ahead) noexcept {
    uint8_t* to = data;
    for (int64_t y = 0; y < lines; ++y, source += stride, to += kStride) {
      for (int at = 0; at < kStride; at += 64) AskFor(source + at, ahead);
      if (pixels == kPixels) {
        for (int at = 0; at < kStride; at += 64) _mm512_store_si512(to + at, Load(source + at));
      } else {
        __builtin_memcpy(to, source, static_cast<uint64_t>(pixels * kBytes));
      }
    }
  }
};

/// Whole cache lines, past the caches.
struct Streaming {
  void operator()(uint8_t* at, V value) const noexcept { _mm512_stream_si512(reinterpret_cast<V*>(at), value); }
};
/// Into the caches, with what comes behind it in its line.
struct Storing {
  int64_t behind;
  void operator()(uint8_t* at, V value) const noexcept {
    AskFor(at, behind);
    Store(at, value);
  }
};

/// Squares of kLines lines and kPixels pixels; square() may read 16 bytes of each line, and is told how to store.
template <int kLines, int kPixels, int kBytes, class Square>
void InSquares(const Lines& lines, int64_t pixels, int64_t count, const TurnOn& on, Transposing rest,
               Square square) noexcept {
  const bool whole = (reinterpret_cast<uintptr_t>(lines.target) | static_cast<uintptr_t>(lines.targetStride)) % 64 == 0;
  static_assert(kLines * kBytes % 64 == 0);
  const bool streamed = on.streamed && whole;
  const Storing storing{count * kBytes};
  using Source = Piece<kBytes>;
  Source piece;
  const int64_t innerPixels = pixels / kPixels * kPixels;
  const int64_t innerLines = count / kLines * kLines;
  for (int64_t top = 0; top < innerLines; top += Source::kLines) {
    const int64_t high = innerLines - top < Source::kLines ? innerLines - top : Source::kLines;
    for (int64_t left = 0; left < innerPixels; left += Source::kPixels) {
      const int64_t wide = innerPixels - left < Source::kPixels ? innerPixels - left : Source::kPixels;
      piece.Fill(lines.source + top * lines.sourceStride + left * kBytes, lines.sourceStride, wide, high, on.ahead);
      uint8_t* const to = lines.target + left * lines.targetStride + top * kBytes;
      for (int64_t x = 0; x < wide; x += kPixels)
        for (int64_t y = 0; y < high; y += kLines) {
          uint8_t* const place = to + x * lines.targetStride + y * kBytes;
          const uint8_t* const from = piece.data + y * Source::kStride + x * kBytes;
          streamed ? square(place, lines.targetStride, from, Source::kStride, Streaming{})
                   : square(place, lines.targetStride, from, Source::kStride, storing);
        }
    }
  }
  if (streamed) _mm_sfence();
  if (innerPixels < pixels)
    rest(lines.target + innerPixels * lines.targetStride, lines.targetStride, lines.source + innerPixels * kBytes,
         lines.sourceStride, pixels - innerPixels, innerLines, {});
  if (innerLines < count)
    rest(lines.target + innerLines * kBytes, lines.targetStride, lines.source + innerLines * lines.sourceStride,
         lines.sourceStride, pixels, count - innerLines, {});
}

void Transpose8(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                int64_t lines, const TurnOn& on) noexcept {
  const auto square = [](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride, auto store) noexcept {
    V r[16], t[16];
    for (int i = 0; i < 16; ++i) r[i] = Quarters(from + i * fromStride, 16 * fromStride);
    // Four times the same deal of first half and second half puts every byte in its place.
    for (int pass = 0; pass < 2; ++pass) {
      for (int i = 0; i < 8; ++i) {
        t[2 * i] = _mm512_unpacklo_epi8(r[i], r[i + 8]);
        t[2 * i + 1] = _mm512_unpackhi_epi8(r[i], r[i + 8]);
      }
      for (int i = 0; i < 8; ++i) {
        r[2 * i] = _mm512_unpacklo_epi8(t[i], t[i + 8]);
        r[2 * i + 1] = _mm512_unpackhi_epi8(t[i], t[i + 8]);
      }
    }
    for (int i = 0; i < 16; ++i) store(to + i * toStride, r[i]);
  };
  InSquares<64, 16, 1>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnAvx2.transpose8, square);
}

void Transpose16(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                 int64_t lines, const TurnOn& on) noexcept {
  const auto square = [](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride, auto store) noexcept {
    V r[8], t[8];
    for (int i = 0; i < 8; ++i) r[i] = Quarters(from + i * fromStride, 8 * fromStride);
    for (int pass = 0; pass < 3; ++pass) {
      for (int i = 0; i < 4; ++i) {
        t[2 * i] = _mm512_unpacklo_epi16(r[i], r[i + 4]);
        t[2 * i + 1] = _mm512_unpackhi_epi16(r[i], r[i + 4]);
      }
      for (int i = 0; i < 8; ++i) r[i] = t[i];
    }
    for (int i = 0; i < 8; ++i) store(to + i * toStride, r[i]);
  };
  InSquares<32, 8, 2>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnAvx2.transpose16, square);
}

/// Words of four lines to lines of four words, in every quarter.
void TransposeWords(V (&r)[4]) noexcept {
  const V a = _mm512_unpacklo_epi32(r[0], r[1]), b = _mm512_unpackhi_epi32(r[0], r[1]);
  const V c = _mm512_unpacklo_epi32(r[2], r[3]), d = _mm512_unpackhi_epi32(r[2], r[3]);
  r[0] = _mm512_unpacklo_epi64(a, c);
  r[1] = _mm512_unpackhi_epi64(a, c);
  r[2] = _mm512_unpacklo_epi64(b, d);
  r[3] = _mm512_unpackhi_epi64(b, d);
}

void Transpose32(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                 int64_t lines, const TurnOn& on) noexcept {
  const auto square = [](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride, auto store) noexcept {
    V r[4];
    for (int i = 0; i < 4; ++i) r[i] = Quarters(from + i * fromStride, 4 * fromStride);
    TransposeWords(r);
    for (int i = 0; i < 4; ++i) store(to + i * toStride, r[i]);
  };
  InSquares<16, 4, 4>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnAvx2.transpose32, square);
}

/// Three vectors of pixels without the bytes between them, each out of two of four with them.
struct Narrowing {
  Order line[3];
};

/// Pixels of kBytes bytes that take kRoom.
template <int kBytes, int kRoom>
constexpr Narrowing MakeNarrowing() noexcept {
  Narrowing made{};
  constexpr int kEach = 64 / kRoom * kBytes;  // bytes that a vector has
  static_assert(kEach == 48);
  for (int to = 0; to < 192; ++to) {
    const int vector = to / kEach, byte = to % kEach;
    const int place = byte / kBytes * kRoom + byte % kBytes;
    made.line[to / 64].at[to % 64] = static_cast<uint8_t>((vector - to / 64) * 64 + place);
  }
  return made;
}

constexpr Narrowing kNarrowing24 = MakeNarrowing<3, 4>();
constexpr Narrowing kNarrowing48 = MakeNarrowing<6, 8>();

template <class Stored>
void StoreNarrow(Stored store, uint8_t* to, V a, V b, V c, V d, const Narrowing& order) noexcept {
  store(to, _mm512_permutex2var_epi8(a, order.line[0].Get(), b));
  store(to + 64, _mm512_permutex2var_epi8(b, order.line[1].Get(), c));
  store(to + 128, _mm512_permutex2var_epi8(c, order.line[2].Get(), d));
}

void Transpose24(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                 int64_t lines, const TurnOn& on) noexcept {
  // Bytes 0..11 of 16 become the words.
  const V apart = _mm512_broadcast_i32x4(_mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1));
  const auto square = [&](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride, auto store) noexcept {
    V r[4][4];
    for (int group = 0; group < 4; ++group) {
      const uint8_t* const first = from + 16 * group * fromStride;
      for (int i = 0; i < 4; ++i)
        r[group][i] = _mm512_shuffle_epi8(Quarters(first + i * fromStride, 4 * fromStride), apart);
      TransposeWords(r[group]);
    }
    for (int i = 0; i < 4; ++i) StoreNarrow(store, to + i * toStride, r[0][i], r[1][i], r[2][i], r[3][i], kNarrowing24);
  };
  InSquares<64, 4, 3>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnAvx2.transpose24, square);
}

void Transpose48(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                 int64_t lines, const TurnOn& on) noexcept {
  const V apart = _mm512_broadcast_i32x4(_mm_setr_epi8(0, 1, 2, 3, 4, 5, -1, -1, 6, 7, 8, 9, 10, 11, -1, -1));
  const auto square = [&](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride, auto store) noexcept {
    V first[4], second[4];
    for (int group = 0; group < 4; ++group) {
      const uint8_t* const at = from + 8 * group * fromStride;
      const V even = _mm512_shuffle_epi8(Quarters(at, 2 * fromStride), apart);
      const V odd = _mm512_shuffle_epi8(Quarters(at + fromStride, 2 * fromStride), apart);
      first[group] = _mm512_unpacklo_epi64(even, odd);
      second[group] = _mm512_unpackhi_epi64(even, odd);
    }
    StoreNarrow(store, to, first[0], first[1], first[2], first[3], kNarrowing48);
    StoreNarrow(store, to + toStride, second[0], second[1], second[2], second[3], kNarrowing48);
  };
  InSquares<32, 2, 6>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnAvx2.transpose48, square);
}

void Transpose64(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                 int64_t lines, const TurnOn& on) noexcept {
  const auto square = [](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride, auto store) noexcept {
    const V even = Quarters(from, 2 * fromStride), odd = Quarters(from + fromStride, 2 * fromStride);
    store(to, _mm512_unpacklo_epi64(even, odd));
    store(to + toStride, _mm512_unpackhi_epi64(even, odd));
  };
  InSquares<8, 2, 8>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnAvx2.transpose64, square);
}

void Transpose1(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                int64_t lines, const TurnOn& on) noexcept {
  kTurnAvx2.transpose1(target, targetStride, source, sourceStride, pixels, lines, on);
}

}  // namespace

constinit const TurnKernels kTurnAvx512 = {.exchange = Exchange,
                                           .mirror8 = Mirror<1>,
                                           .mirror16 = Mirror<2>,
                                           .mirror24 = MirrorThirds<3>,
                                           .mirror32 = Mirror<4>,
                                           .mirror48 = MirrorThirds<6>,
                                           .mirror64 = Mirror<8>,
                                           .mirrorBits = MirrorBits,
                                           .transpose8 = Transpose8,
                                           .transpose16 = Transpose16,
                                           .transpose24 = Transpose24,
                                           .transpose32 = Transpose32,
                                           .transpose48 = Transpose48,
                                           .transpose64 = Transpose64,
                                           .transpose1 = Transpose1};

}  // namespace tarn
