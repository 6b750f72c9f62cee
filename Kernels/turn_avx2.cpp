// Pixels exchanged, mirrored and transposed. Mirrored: 32 to 64 bytes from either end at a time. What is left in the
// middle of a line goes through the portable version.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Turn.h"

namespace tarn {
namespace {

using V = __m256i;

V Load(const uint8_t* at) noexcept { return _mm256_loadu_si256(reinterpret_cast<const V*>(at)); }
void Store(uint8_t* at, V value) noexcept { _mm256_storeu_si256(reinterpret_cast<V*>(at), value); }
__m128i LoadHalf(const uint8_t* at) noexcept { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); }
void StoreHalf(uint8_t* at, __m128i value) noexcept { _mm_storeu_si128(reinterpret_cast<__m128i*>(at), value); }

/// Into the second-level cache: what is worked on needs the first.
void AskFor(const uint8_t* from, int64_t ahead) noexcept {
  const uintptr_t there = reinterpret_cast<uintptr_t>(from) + static_cast<uintptr_t>(ahead);
  _mm_prefetch(reinterpret_cast<const char*>(there), _MM_HINT_T1);
}

void Exchange(uint8_t* a, uint8_t* b, uint64_t bytes, int64_t ahead) noexcept {
  uint64_t at = 0;
  for (; at + 64 <= bytes; at += 64) {
    AskFor(a + at, ahead);
    AskFor(b + at, -ahead);
    const V a0 = Load(a + at), a1 = Load(a + at + 32);
    const V b0 = Load(b + at), b1 = Load(b + at + 32);
    Store(b + at, a0);
    Store(b + at + 32, a1);
    Store(a + at, b0);
    Store(a + at + 32, b1);
  }
  kTurnPortable.exchange(a + at, b + at, bytes - at, 0);
}

// ---- Pixels of 1, 2, 4 and 8 bytes ---------------------------------------------------------------------------------

/// Order of the bytes of 16 when pixels of kBytes bytes are reversed.
template <int kBytes>
__m128i ReverseMask() noexcept {
  if constexpr (kBytes == 1) return _mm_setr_epi8(15, 14, 13, 12, 11, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1, 0);
  if constexpr (kBytes == 2) return _mm_setr_epi8(14, 15, 12, 13, 10, 11, 8, 9, 6, 7, 4, 5, 2, 3, 0, 1);
  if constexpr (kBytes == 4) return _mm_setr_epi8(12, 13, 14, 15, 8, 9, 10, 11, 4, 5, 6, 7, 0, 1, 2, 3);
  return _mm_setr_epi8(8, 9, 10, 11, 12, 13, 14, 15, 0, 1, 2, 3, 4, 5, 6, 7);
}

V Reversed(V bytes, V mask) noexcept {
  return _mm256_permute4x64_epi64(_mm256_shuffle_epi8(bytes, mask), _MM_SHUFFLE(1, 0, 3, 2));
}

template <int kBytes>
void MirrorMiddle(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  switch (kBytes) {
    case 1:
      return kTurnPortable.mirror8(target, source, pixels, 0);
    case 2:
      return kTurnPortable.mirror16(target, source, pixels, 0);
    case 3:
      return kTurnPortable.mirror24(target, source, pixels, 0);
    case 4:
      return kTurnPortable.mirror32(target, source, pixels, 0);
    case 6:
      return kTurnPortable.mirror48(target, source, pixels, 0);
    default:
      return kTurnPortable.mirror64(target, source, pixels, 0);
  }
}

template <int kBytes>
void Mirror(uint8_t* target, const uint8_t* source, int64_t pixels, int64_t ahead) noexcept {
  const V mask = _mm256_broadcastsi128_si256(ReverseMask<kBytes>());
  int64_t left = 0, right = pixels * kBytes;
  for (; right - left >= 128; left += 64, right -= 64) {
    AskFor(source + 2 * left, ahead);
    AskFor(source + 2 * left + 64, ahead);
    const V a = Load(source + left), b = Load(source + left + 32);
    const V c = Load(source + right - 64), d = Load(source + right - 32);
    Store(target + right - 32, Reversed(a, mask));
    Store(target + right - 64, Reversed(b, mask));
    Store(target + left, Reversed(d, mask));
    Store(target + left + 32, Reversed(c, mask));
  }
  for (; right - left >= 64; left += 32, right -= 32) {
    const V a = Load(source + left), b = Load(source + right - 32);
    Store(target + right - 32, Reversed(a, mask));
    Store(target + left, Reversed(b, mask));
  }
  MirrorMiddle<kBytes>(target + left, source + left, (right - left) / kBytes);
}

// ---- Pixels of 3 and 6 bytes: 48 bytes hold whole ones -------------------------------------------------------------

struct Masks48 {
  alignas(16) int8_t from[3][3][16];  // [16 bytes of the result][16 bytes of the source]
};

template <int kBytes>
constexpr Masks48 MakeMasks48() noexcept {
  Masks48 masks{};
  for (int to = 0; to < 48; ++to) {
    const int from = 48 - kBytes - to / kBytes * kBytes + to % kBytes;
    for (int part = 0; part < 3; ++part)
      masks.from[to / 16][part][to % 16] = static_cast<int8_t>(from / 16 == part ? from % 16 : -1);
  }
  return masks;
}

struct Bytes48 {
  __m128i part[3];
};

Bytes48 Load48(const uint8_t* at) noexcept { return {{LoadHalf(at), LoadHalf(at + 16), LoadHalf(at + 32)}}; }

__m128i Picked(const Bytes48& bytes, const int8_t (&masks)[3][16], int part) noexcept {
  return _mm_shuffle_epi8(bytes.part[part], _mm_load_si128(reinterpret_cast<const __m128i*>(masks[part])));
}

/// The first third never comes from the first third of the source, nor the last from the last.
void Store48Reversed(uint8_t* at, const Bytes48& bytes, const Masks48& masks) noexcept {
  StoreHalf(at, _mm_or_si128(Picked(bytes, masks.from[0], 1), Picked(bytes, masks.from[0], 2)));
  StoreHalf(at + 16, _mm_or_si128(_mm_or_si128(Picked(bytes, masks.from[1], 0), Picked(bytes, masks.from[1], 1)),
                                  Picked(bytes, masks.from[1], 2)));
  StoreHalf(at + 32, _mm_or_si128(Picked(bytes, masks.from[2], 0), Picked(bytes, masks.from[2], 1)));
}

template <int kBytes>
void Mirror48(uint8_t* target, const uint8_t* source, int64_t pixels, int64_t ahead) noexcept {
  static constexpr Masks48 kMasks = MakeMasks48<kBytes>();
  int64_t left = 0, right = pixels * kBytes;
  for (; right - left >= 96; left += 48, right -= 48) {
    AskFor(source + 2 * left, ahead);
    AskFor(source + 2 * left + 48, ahead);
    const Bytes48 a = Load48(source + left), b = Load48(source + right - 48);
    Store48Reversed(target + right - 48, a, kMasks);
    Store48Reversed(target + left, b, kMasks);
  }
  MirrorMiddle<kBytes>(target + left, source + left, (right - left) / kBytes);
}

// ---- Pixels of 1, 2 and 4 bits -------------------------------------------------------------------------------------

/// The pixels of a nibble in reverse order.
__m128i NibbleTable(int32_t bits) noexcept {
  if (bits == 1) return _mm_setr_epi8(0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15);
  if (bits == 2) return _mm_setr_epi8(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  return _mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
}

void MirrorBits(uint8_t* line, int64_t pixels, int32_t bits, int64_t ahead) noexcept {
  const int64_t bytes = (pixels * bits + 7) / 8;
  if (bytes < 64) {
    kTurnPortable.mirrorBits(line, pixels, bits, 0);
    return;
  }
  const auto spare = static_cast<int>(8 * bytes - pixels * bits);
  const auto kept = static_cast<uint32_t>(line[bytes - 1]) & ((1u << spare) - 1);
  const V mask = _mm256_broadcastsi128_si256(ReverseMask<1>());
  const V low = _mm256_set1_epi8(15);
  const V nibbles = _mm256_broadcastsi128_si256(NibbleTable(bits));
  const V raised = _mm256_slli_epi16(nibbles, 4);
  const auto turned = [&](V value) noexcept {
    const V first = _mm256_shuffle_epi8(raised, _mm256_and_si256(value, low));
    const V second = _mm256_shuffle_epi8(nibbles, _mm256_and_si256(_mm256_srli_epi16(value, 4), low));
    return Reversed(_mm256_or_si256(first, second), mask);
  };
  int64_t left = 0, right = bytes;
  for (; right - left >= 64; left += 32, right -= 32) {
    AskFor(line + 2 * left, ahead);
    const V a = Load(line + left), b = Load(line + right - 32);
    Store(line + right - 32, turned(a));
    Store(line + left, turned(b));
  }
  kTurnPortable.mirrorBits(line + left, (right - left) * 8 / bits, bits, 0);
  if (spare == 0) return;
  // What was behind the last pixel is in front now and moves out.
  const __m128i near = _mm_cvtsi32_si128(spare);
  const __m128i far = _mm_cvtsi32_si128(8 - spare);
  const V nearMask = _mm256_set1_epi8(static_cast<char>(0xFF << spare));
  int64_t at = 0;
  for (; at + 33 <= bytes; at += 32) {
    const V value = Load(line + at), next = Load(line + at + 1);
    const V moved = _mm256_and_si256(_mm256_sll_epi16(value, near), nearMask);
    Store(line + at, _mm256_or_si256(moved, _mm256_andnot_si256(nearMask, _mm256_srl_epi16(next, far))));
  }
  for (; at + 1 < bytes; ++at) line[at] = static_cast<uint8_t>(line[at] << spare | line[at + 1] >> (8 - spare));
  line[at] = static_cast<uint8_t>(static_cast<uint32_t>(line[at]) << spare | kept);
}

// ---- Transposed ----------------------------------------------------------------------------------------------------

// Lines are taken kLines at a time, and pixels kPixels at a time; edges go through the portable versions.

using Transposing = TurnKernels::Transpose;

struct Lines {
  uint8_t* target;
  int64_t targetStride;
  const uint8_t* source;
  int64_t sourceStride;
};

template <int kLines, int kPixels, int kBits, class Square>
void InSquares(const Lines& lines, int64_t pixels, int64_t count, const TurnOn& on, Transposing rest,
               Square square) noexcept {
  constexpr int64_t kAhead = 64 * 8 / kBits / kLines < 1 ? 1 : 64 * 8 / kBits / kLines;  // squares to a cache line
  const int64_t innerPixels = pixels / kPixels * kPixels;
  const int64_t innerLines = count / kLines * kLines;
  constexpr int64_t kBand = kAhead * kLines;
  for (int64_t top = 0; top < innerLines; top += kBand) {
    const int64_t bottom = top + kBand < innerLines ? top + kBand : innerLines;
    for (int64_t x = 0; x < innerPixels; x += kPixels) {
      const bool newCacheLine = x * kBits / 8 % 64 < kPixels * kBits / 8;
      for (int64_t y = top; y < bottom; y += kLines) {
        const uint8_t* const from = lines.source + y * lines.sourceStride + x * kBits / 8;
        for (int64_t i = 0; i < kLines && newCacheLine; ++i) AskFor(from + i * lines.sourceStride, on.ahead);
        square(lines.target + x * lines.targetStride + y * kBits / 8, lines.targetStride, from, lines.sourceStride);
      }
    }
  }
  if (innerPixels < pixels)
    rest(lines.target + innerPixels * lines.targetStride, lines.targetStride, lines.source + innerPixels * kBits / 8,
         lines.sourceStride, pixels - innerPixels, innerLines, {});
  if (innerLines < count)
    rest(lines.target + innerLines * kBits / 8, lines.targetStride, lines.source + innerLines * lines.sourceStride,
         lines.sourceStride, pixels, count - innerLines, {});
}

struct Half16 {
  __m128i row[16];
};

/// 16 rows of 16 bytes to 16 columns.
void TransposeBytes(Half16& square) noexcept {
  __m128i(&r)[16] = square.row;
  __m128i t[16];
  // Four times the same deal of first half and second half puts every byte in its place.
  for (int pass = 0; pass < 2; ++pass) {
    for (int i = 0; i < 8; ++i) {
      t[2 * i] = _mm_unpacklo_epi8(r[i], r[i + 8]);
      t[2 * i + 1] = _mm_unpackhi_epi8(r[i], r[i + 8]);
    }
    for (int i = 0; i < 8; ++i) {
      r[2 * i] = _mm_unpacklo_epi8(t[i], t[i + 8]);
      r[2 * i + 1] = _mm_unpackhi_epi8(t[i], t[i + 8]);
    }
  }
}

void Transpose8(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                int64_t lines, const TurnOn& on) noexcept {
  const auto square = [](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride) noexcept {
    Half16 bytes;
    for (int i = 0; i < 16; ++i) bytes.row[i] = LoadHalf(from + i * fromStride);
    TransposeBytes(bytes);
    for (int i = 0; i < 16; ++i) StoreHalf(to + i * toStride, bytes.row[i]);
  };
  InSquares<16, 16, 8>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnPortable.transpose8,
                       square);
}

void Transpose16(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                 int64_t lines, const TurnOn& on) noexcept {
  const auto square = [](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride) noexcept {
    __m128i r[8], t[8];
    for (int i = 0; i < 8; ++i) r[i] = LoadHalf(from + i * fromStride);
    for (int pass = 0; pass < 3; ++pass) {
      for (int i = 0; i < 4; ++i) {
        t[2 * i] = _mm_unpacklo_epi16(r[i], r[i + 4]);
        t[2 * i + 1] = _mm_unpackhi_epi16(r[i], r[i + 4]);
      }
      for (int i = 0; i < 8; ++i) r[i] = t[i];
    }
    for (int i = 0; i < 8; ++i) StoreHalf(to + i * toStride, r[i]);
  };
  InSquares<8, 8, 16>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnPortable.transpose16,
                      square);
}

void TransposeWords(__m128i (&r)[4]) noexcept {
  const __m128i a = _mm_unpacklo_epi32(r[0], r[1]), b = _mm_unpackhi_epi32(r[0], r[1]);
  const __m128i c = _mm_unpacklo_epi32(r[2], r[3]), d = _mm_unpackhi_epi32(r[2], r[3]);
  r[0] = _mm_unpacklo_epi64(a, c);
  r[1] = _mm_unpackhi_epi64(a, c);
  r[2] = _mm_unpacklo_epi64(b, d);
  r[3] = _mm_unpackhi_epi64(b, d);
}

void Transpose32(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                 int64_t lines, const TurnOn& on) noexcept {
  const auto square = [](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride) noexcept {
    __m128i r[4];
    for (int i = 0; i < 4; ++i) r[i] = LoadHalf(from + i * fromStride);
    TransposeWords(r);
    for (int i = 0; i < 4; ++i) StoreHalf(to + i * toStride, r[i]);
  };
  InSquares<4, 4, 32>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnPortable.transpose32,
                      square);
}

/// 16 source lines of 4 pixels: the target's 48 bytes a line are whole pixels. Loads stay within 12 bytes.
void Transpose24(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                 int64_t lines, const TurnOn& on) noexcept {
  const __m128i widen = _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1);
  const __m128i narrow = _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1);
  const auto load = [widen](const uint8_t* at) noexcept {
    const __m128i first = _mm_loadl_epi64(reinterpret_cast<const __m128i*>(at));
    const __m128i last = _mm_loadu_si32(at + 8);
    return _mm_shuffle_epi8(_mm_unpacklo_epi64(first, last), widen);
  };
  const auto square = [&](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride) noexcept {
    __m128i part[4][4];
    for (int group = 0; group < 4; ++group) {
      for (int i = 0; i < 4; ++i) part[group][i] = load(from + (4 * group + i) * fromStride);
      TransposeWords(part[group]);
      for (int i = 0; i < 4; ++i) part[group][i] = _mm_shuffle_epi8(part[group][i], narrow);
    }
    for (int i = 0; i < 4; ++i) {
      const __m128i a = part[0][i], b = part[1][i], c = part[2][i], d = part[3][i];
      uint8_t* const line = to + i * toStride;
      StoreHalf(line, _mm_or_si128(a, _mm_slli_si128(b, 12)));
      StoreHalf(line + 16, _mm_or_si128(_mm_srli_si128(b, 4), _mm_slli_si128(c, 8)));
      StoreHalf(line + 32, _mm_or_si128(_mm_srli_si128(c, 8), _mm_slli_si128(d, 4)));
    }
  };
  InSquares<16, 4, 24>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnPortable.transpose24,
                       square);
}

// Wide pixels: nothing is gained beside whole loads and stores.
void Transpose48(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                 int64_t lines, const TurnOn& on) noexcept {
  kTurnPortable.transpose48(target, targetStride, source, sourceStride, pixels, lines, on);
}

void Transpose64(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                 int64_t lines, const TurnOn& on) noexcept {
  const auto square = [](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride) noexcept {
    const __m128i a = LoadHalf(from), b = LoadHalf(from + fromStride);
    StoreHalf(to, _mm_unpacklo_epi64(a, b));
    StoreHalf(to + toStride, _mm_unpackhi_epi64(a, b));
  };
  InSquares<2, 2, 64>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnPortable.transpose64,
                      square);
}

/// 16 lines of 128 pixels: bytes of one column beside each other, whose top bits are collected eight times.
void Transpose1(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                int64_t lines, const TurnOn& on) noexcept {
  const auto square = [](uint8_t* to, int64_t toStride, const uint8_t* from, int64_t fromStride) noexcept {
    Half16 bytes;
    // The first line's bit is to be the most significant one of its byte.
    for (int i = 0; i < 16; ++i) bytes.row[i ^ 7] = LoadHalf(from + i * fromStride);
    TransposeBytes(bytes);
    for (int column = 0; column < 16; ++column) {
      __m128i value = bytes.row[column];
      for (int bit = 0; bit < 8; ++bit, to += toStride) {
        const auto word = static_cast<uint16_t>(_mm_movemask_epi8(value));
        __builtin_memcpy(to, &word, 2);
        value = _mm_add_epi8(value, value);
      }
    }
  };
  InSquares<16, 128, 1>({target, targetStride, source, sourceStride}, pixels, lines, on, kTurnPortable.transpose1,
                        square);
}

}  // namespace

constinit const TurnKernels kTurnAvx2 = {.exchange = Exchange,
                                         .mirror8 = Mirror<1>,
                                         .mirror16 = Mirror<2>,
                                         .mirror24 = Mirror48<3>,
                                         .mirror32 = Mirror<4>,
                                         .mirror48 = Mirror48<6>,
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
