// Layout of pixels, 64 bytes at a time: one permutation of bytes makes a vector of the target from one or two of the
// source. Lines end with masks, which touch nothing behind the last pixel.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Pixels.h"

namespace tarn {
namespace {

using V = __m512i;

constexpr int64_t kBytes = 64;  // of a vector

V Load(const uint8_t* at) noexcept { return _mm512_loadu_si512(at); }
void Store(uint8_t* at, V value) noexcept { _mm512_storeu_si512(at, value); }

/// The first `bytes` bytes of a vector: none below 1, all above 63.
__mmask64 First(int64_t bytes) noexcept {
  return bytes >= kBytes ? ~__mmask64{0} : bytes <= 0 ? 0 : (__mmask64{1} << bytes) - 1;
}

/// Indices for a permutation of bytes.
struct Bytes {
  alignas(64) uint8_t at[64];
  [[nodiscard]] V Get() const noexcept { return _mm512_load_si512(at); }
};

// ---- Exchanged samples ----

/// Where byte `at` of pixels of three samples comes from.
constexpr int Exchanged(int at, int sampleBytes) noexcept {
  const int sample = at / sampleBytes % 3;
  return at + (2 - 2 * sample) * sampleBytes;
}

/// Three vectors hold whole pixels. The first and the last take bytes of their neighbour, the middle one of both: what
/// it takes of the first comes by a permutation of its own.
struct Exchange {
  Bytes first, middle, ofFirst, last;
  __mmask64 fromFirst;
};
constexpr Exchange MakeExchange(int sampleBytes) noexcept {
  Exchange e{};
  for (int i = 0; i < kBytes; ++i) {
    e.first.at[i] = static_cast<uint8_t>(Exchanged(i, sampleBytes));
    const int middle = Exchanged(64 + i, sampleBytes);
    if (middle < 64) {
      e.fromFirst |= __mmask64{1} << i;
      e.ofFirst.at[i] = static_cast<uint8_t>(middle);
    } else {
      e.middle.at[i] = static_cast<uint8_t>(middle - 64);
    }
    e.last.at[i] = static_cast<uint8_t>(Exchanged(128 + i, sampleBytes) - 64);
  }
  return e;
}
constexpr Exchange kExchange8 = MakeExchange(1);
constexpr Exchange kExchange16 = MakeExchange(2);

/// All is loaded before the first store: the kernels work in place.
void SwapTriples(uint8_t* target, const uint8_t* source, int64_t bytes, const Exchange& e) noexcept {
  const V first = e.first.Get(), middle = e.middle.Get(), ofFirst = e.ofFirst.Get(), last = e.last.Get();
  const auto made = [&](V a, V b, V c, V out[3]) noexcept {
    out[0] = _mm512_permutex2var_epi8(a, first, b);
    out[1] = _mm512_mask_permutexvar_epi8(_mm512_permutex2var_epi8(b, middle, c), e.fromFirst, ofFirst, a);
    out[2] = _mm512_permutex2var_epi8(b, last, c);
  };
  V out[3];
  int64_t i = 0;
  for (; i + 3 * kBytes <= bytes; i += 3 * kBytes) {
    made(Load(source + i), Load(source + i + kBytes), Load(source + i + 2 * kBytes), out);
    for (int k = 0; k < 3; ++k) Store(target + i + k * kBytes, out[k]);
  }
  if (i == bytes) return;
  const int64_t left = bytes - i;
  const __mmask64 masks[3] = {First(left), First(left - kBytes), First(left - 2 * kBytes)};
  V in[3];
  for (int k = 0; k < 3; ++k) in[k] = _mm512_maskz_loadu_epi8(masks[k], source + i + k * kBytes);
  made(in[0], in[1], in[2], out);
  for (int k = 0; k < 3; ++k) _mm512_mask_storeu_epi8(target + i + k * kBytes, masks[k], out[k]);
}

void Swap24(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  SwapTriples(target, source, 3 * pixels, kExchange8);
}
void Swap48(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  SwapTriples(target, source, 6 * pixels, kExchange16);
}

/// Pixels that never cross 16 bytes.
void SwapVectors(uint8_t* target, const uint8_t* source, int64_t bytes, V mask) noexcept {
  int64_t i = 0;
  for (; i + kBytes <= bytes; i += kBytes) Store(target + i, _mm512_shuffle_epi8(Load(source + i), mask));
  if (i == bytes) return;
  const __mmask64 rest = First(bytes - i);
  const V in = _mm512_maskz_loadu_epi8(rest, source + i);
  _mm512_mask_storeu_epi8(target + i, rest, _mm512_shuffle_epi8(in, mask));
}

V FourTimes(__m128i value) noexcept { return _mm512_broadcast_i32x4(value); }

void Swap32(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  SwapVectors(target, source, 4 * pixels,
              FourTimes(_mm_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15)));
}
void Swap64(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  SwapVectors(target, source, 8 * pixels,
              FourTimes(_mm_setr_epi8(4, 5, 2, 3, 0, 1, 6, 7, 12, 13, 10, 11, 8, 9, 14, 15)));
}

// ---- What wider registers do not help ----

void Widen24To32(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha, bool swap) noexcept {
  kPixelsAvx2.widen24To32(target, source, pixels, alpha, swap);
}
void Narrow32To24(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  kPixelsAvx2.narrow32To24(target, source, pixels, swap);
}
void Gray24(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  kPixelsAvx2.gray24(target, source, pixels, swap);
}
void Gray32(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  kPixelsAvx2.gray32(target, source, pixels, swap);
}
void Spread8To24(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  kPixelsAvx2.spread8To24(target, source, pixels);
}
void Spread8To32(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha) noexcept {
  kPixelsAvx2.spread8To32(target, source, pixels, alpha);
}
void Pack555(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  kPixelsAvx2.pack555(target, source, pixels, swap);
}
void Unpack555(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha, bool swap) noexcept {
  kPixelsAvx2.unpack555(target, source, pixels, alpha, swap);
}
void Widen8To16(uint8_t* target, const uint8_t* source, int64_t samples) noexcept {
  kPixelsAvx2.widen8To16(target, source, samples);
}
void Narrow16To8(uint8_t* target, const uint8_t* source, int64_t samples) noexcept {
  kPixelsAvx2.narrow16To8(target, source, samples);
}
void UnpackIndices(uint8_t* target, const uint8_t* source, int64_t pixels, int32_t bits) noexcept {
  kPixelsAvx2.unpackIndices(target, source, pixels, bits);
}
void PackIndices(uint8_t* target, const uint8_t* source, int64_t pixels, int32_t bits) noexcept {
  kPixelsAvx2.packIndices(target, source, pixels, bits);
}
void ExpandBitsTo8(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t zero, uint8_t one) noexcept {
  kPixelsAvx2.expandBitsTo8(target, source, pixels, zero, one);
}
void ExpandBitsTo24(uint8_t* target, const uint8_t* source, int64_t pixels, uint32_t zero, uint32_t one) noexcept {
  kPixelsAvx2.expandBitsTo24(target, source, pixels, zero, one);
}
void ExpandBitsTo32(uint8_t* target, const uint8_t* source, int64_t pixels, uint32_t zero, uint32_t one) noexcept {
  kPixelsAvx2.expandBitsTo32(target, source, pixels, zero, one);
}
void Lookup24(uint8_t* target, const uint8_t* source, int64_t pixels, const uint32_t* table) noexcept {
  kPixelsPortable.lookup24(target, source, pixels, table);
}
void Lookup32(uint8_t* target, const uint8_t* source, int64_t pixels, const uint32_t* table) noexcept {
  kPixelsPortable.lookup32(target, source, pixels, table);
}

}  // namespace

constinit const PixelKernels kPixelsAvx512 = {.widen24To32 = Widen24To32,
                                              .narrow32To24 = Narrow32To24,
                                              .swap24 = Swap24,
                                              .swap32 = Swap32,
                                              .swap48 = Swap48,
                                              .swap64 = Swap64,
                                              .gray24 = Gray24,
                                              .gray32 = Gray32,
                                              .spread8To24 = Spread8To24,
                                              .spread8To32 = Spread8To32,
                                              .pack555 = Pack555,
                                              .unpack555 = Unpack555,
                                              .widen8To16 = Widen8To16,
                                              .narrow16To8 = Narrow16To8,
                                              .unpackIndices = UnpackIndices,
                                              .packIndices = PackIndices,
                                              .expandBitsTo8 = ExpandBitsTo8,
                                              .expandBitsTo24 = ExpandBitsTo24,
                                              .expandBitsTo32 = ExpandBitsTo32,
                                              .lookup24 = Lookup24,
                                              .lookup32 = Lookup32};

}  // namespace tarn
