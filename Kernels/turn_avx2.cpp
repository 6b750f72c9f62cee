// Pixels exchanged and mirrored, 32 to 64 bytes from either end at a time. What is left in the middle of a line goes
// through the portable version.

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

void Exchange(uint8_t* a, uint8_t* b, uint64_t bytes) noexcept {
  uint64_t at = 0;
  for (; at + 64 <= bytes; at += 64) {
    const V a0 = Load(a + at), a1 = Load(a + at + 32);
    const V b0 = Load(b + at), b1 = Load(b + at + 32);
    Store(b + at, a0);
    Store(b + at + 32, a1);
    Store(a + at, b0);
    Store(a + at + 32, b1);
  }
  kTurnPortable.exchange(a + at, b + at, bytes - at);
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
      return kTurnPortable.mirror8(target, source, pixels);
    case 2:
      return kTurnPortable.mirror16(target, source, pixels);
    case 3:
      return kTurnPortable.mirror24(target, source, pixels);
    case 4:
      return kTurnPortable.mirror32(target, source, pixels);
    case 6:
      return kTurnPortable.mirror48(target, source, pixels);
    default:
      return kTurnPortable.mirror64(target, source, pixels);
  }
}

template <int kBytes>
void Mirror(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  const V mask = _mm256_broadcastsi128_si256(ReverseMask<kBytes>());
  int64_t left = 0, right = pixels * kBytes;
  for (; right - left >= 128; left += 64, right -= 64) {
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
void Mirror48(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  static constexpr Masks48 kMasks = MakeMasks48<kBytes>();
  int64_t left = 0, right = pixels * kBytes;
  for (; right - left >= 96; left += 48, right -= 48) {
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

void MirrorBits(uint8_t* line, int64_t pixels, int32_t bits) noexcept {
  const int64_t bytes = (pixels * bits + 7) / 8;
  if (bytes < 64) {
    kTurnPortable.mirrorBits(line, pixels, bits);
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
    const V a = Load(line + left), b = Load(line + right - 32);
    Store(line + right - 32, turned(a));
    Store(line + left, turned(b));
  }
  kTurnPortable.mirrorBits(line + left, (right - left) * 8 / bits, bits);
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

}  // namespace

constinit const TurnKernels kTurnAvx2 = {.exchange = Exchange,
                                         .mirror8 = Mirror<1>,
                                         .mirror16 = Mirror<2>,
                                         .mirror24 = Mirror48<3>,
                                         .mirror32 = Mirror<4>,
                                         .mirror48 = Mirror48<6>,
                                         .mirror64 = Mirror<8>,
                                         .mirrorBits = MirrorBits};

}  // namespace tarn
