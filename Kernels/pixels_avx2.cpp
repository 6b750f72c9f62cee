// Layout of pixels, 8 to 32 at a time. The ends of lines go through the portable version.
//
// Three-byte pixels: 8 of them are loaded as 32 bytes, of which the last 8 belong to later pixels; the words are dealt
// out so that each 128-bit half holds 4 pixels in its low 12 bytes, and the way back is the same. Loops stop while
// those later bytes still belong to the line.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Pixels.h"

namespace tarn {
namespace {

using V = __m256i;

constexpr int64_t kSlack = 11;  // pixels of 3 bytes that 32 bytes reach into

/// Pixels in the blocks that begin at least `reach` pixels before the end.
constexpr int64_t InBlocks(int64_t pixels, int64_t block, int64_t reach) noexcept {
  return pixels < reach ? 0 : ((pixels - reach) / block + 1) * block;
}

/// Calls block(i) for pixels i.. in blocks of kBlock and rest(i) for those from i on. Where pixels become wider in
/// place the last ones go first.
template <int kBlock, class Block, class Rest>
void EachBlock(bool fromEnd, int64_t inBlocks, Block block, Rest rest) noexcept {
  if (fromEnd) {
    rest(inBlocks);
    for (int64_t i = inBlocks - kBlock; i >= 0; i -= kBlock) block(i);
  } else {
    for (int64_t i = 0; i < inBlocks; i += kBlock) block(i);
    rest(inBlocks);
  }
}

V Load(const uint8_t* at) noexcept { return _mm256_loadu_si256(reinterpret_cast<const V*>(at)); }
void Store(uint8_t* at, V value) noexcept { _mm256_storeu_si256(reinterpret_cast<V*>(at), value); }
V BothHalves(__m128i value) noexcept { return _mm256_broadcastsi128_si256(value); }
__m128i LoadHalf(const uint8_t* at) noexcept { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(at)); }

V DealOut() noexcept { return _mm256_setr_epi32(0, 1, 2, 7, 3, 4, 5, 7); }
V DealIn() noexcept { return _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 3, 7); }

/// 24 bytes of a value whose words were dealt in.
void Store24(uint8_t* at, V value) noexcept {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(at), _mm256_castsi256_si128(value));
  _mm_storel_epi64(reinterpret_cast<__m128i*>(at + 16), _mm256_extracti128_si256(value, 1));
}

/// Four pixels of 3 bytes to 4 bytes in each half; the fourth byte is 0.
V WidenMask(bool swap) noexcept {
  return BothHalves(swap ? _mm_setr_epi8(2, 1, 0, -1, 5, 4, 3, -1, 8, 7, 6, -1, 11, 10, 9, -1)
                         : _mm_setr_epi8(0, 1, 2, -1, 3, 4, 5, -1, 6, 7, 8, -1, 9, 10, 11, -1));
}

V Widened(const uint8_t* source, V mask) noexcept {
  return _mm256_shuffle_epi8(_mm256_permutevar8x32_epi32(Load(source), DealOut()), mask);
}

void Widen24To32(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha, bool swap) noexcept {
  const V mask = WidenMask(swap);
  const V top = _mm256_set1_epi32(static_cast<int32_t>(uint32_t{alpha} << 24));
  const auto block = [&](int64_t i) {
    const V a = Widened(source + 3 * i, mask), b = Widened(source + 3 * i + 24, mask);
    Store(target + 4 * i, _mm256_or_si256(a, top));
    Store(target + 4 * i + 32, _mm256_or_si256(b, top));
  };
  const auto rest = [&](int64_t i) {
    kPixelsPortable.widen24To32(target + 4 * i, source + 3 * i, pixels - i, alpha, swap);
  };
  EachBlock<16>(target == source, InBlocks(pixels, 16, 8 + kSlack), block, rest);
}

/// Back, to the low 12 bytes of each half.
V NarrowMask(bool swap) noexcept {
  return BothHalves(swap ? _mm_setr_epi8(2, 1, 0, 6, 5, 4, 10, 9, 8, 14, 13, 12, -1, -1, -1, -1)
                         : _mm_setr_epi8(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, -1, -1, -1, -1));
}

void Narrow32To24(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const V mask = NarrowMask(swap);
  const V dealIn = DealIn();
  int64_t i = 0;
  for (; i + 8 + kSlack <= pixels; i += 16, source += 64, target += 48) {
    const V a = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(Load(source), mask), dealIn);
    const V b = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(Load(source + 32), mask), dealIn);
    Store(target, a);
    Store(target + 24, b);  // the bytes behind belong to the next pixels
  }
  kPixelsPortable.narrow32To24(target, source, pixels - i, swap);
}

/// 96 bytes a turn, all loaded before the first is stored: the kernels work in place. Returns the bytes done.
int64_t SwapTriples(uint8_t* target, const uint8_t* source, int64_t bytes, V mask) noexcept {
  const V out = DealOut(), in = DealIn();
  int64_t i = 0;
  for (; i + 104 <= bytes; i += 96) {
    V part[4];
    for (int k = 0; k < 4; ++k) {
      const V dealt = _mm256_permutevar8x32_epi32(Load(source + i + 24 * k), out);
      part[k] = _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(dealt, mask), in);
    }
    for (int k = 0; k < 3; ++k) Store(target + i + 24 * k, part[k]);
    Store24(target + i + 72, part[3]);
  }
  return i;
}

void Swap24(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  const V mask = BothHalves(_mm_setr_epi8(2, 1, 0, 5, 4, 3, 8, 7, 6, 11, 10, 9, -1, -1, -1, -1));
  const int64_t done = SwapTriples(target, source, 3 * pixels, mask);
  kPixelsPortable.swap24(target + done, source + done, pixels - done / 3);
}

void Swap48(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  const V mask = BothHalves(_mm_setr_epi8(4, 5, 2, 3, 0, 1, 10, 11, 8, 9, 6, 7, -1, -1, -1, -1));
  const int64_t done = SwapTriples(target, source, 6 * pixels, mask);
  kPixelsPortable.swap48(target + done, source + done, pixels - done / 6);
}

/// Whole vectors; returns the bytes done.
int64_t SwapVectors(uint8_t* target, const uint8_t* source, int64_t bytes, V mask) noexcept {
  int64_t i = 0;
  for (; i + 64 <= bytes; i += 64) {
    const V a = _mm256_shuffle_epi8(Load(source + i), mask), b = _mm256_shuffle_epi8(Load(source + i + 32), mask);
    Store(target + i, a);
    Store(target + i + 32, b);
  }
  return i;
}

V Swap32Mask() noexcept { return BothHalves(_mm_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15)); }

void Swap32(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  const int64_t done = SwapVectors(target, source, 4 * pixels, Swap32Mask());
  kPixelsPortable.swap32(target + done, source + done, pixels - done / 4);
}

void Swap64(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  const V mask = BothHalves(_mm_setr_epi8(4, 5, 2, 3, 0, 1, 6, 7, 12, 13, 10, 11, 8, 9, 14, 15));
  const int64_t done = SwapVectors(target, source, 8 * pixels, mask);
  kPixelsPortable.swap64(target + done, source + done, pixels - done / 8);
}

// ---- Gray ----

/// Weights of four bytes a pixel; sums are at most 8 * 255, pair sums below 2^15.
V GrayWeights(bool swap) noexcept { return _mm256_set1_epi32(swap ? 0x00010502 : 0x00020501); }

/// The sum of each pixel's weighted bytes, 32 bits each.
V WeightedSum(V pixels, V weights) noexcept {
  const V pairs = _mm256_maddubs_epi16(pixels, weights);
  return _mm256_srli_epi32(_mm256_add_epi32(pairs, _mm256_slli_epi32(pairs, 16)), 16);
}

/// 32 sums in order to 32 levels.
V Levels(V a, V b, V c, V d) noexcept {
  const V four = _mm256_set1_epi16(4);
  const V low = _mm256_srli_epi16(_mm256_add_epi16(_mm256_packus_epi32(a, b), four), 3);
  const V high = _mm256_srli_epi16(_mm256_add_epi16(_mm256_packus_epi32(c, d), four), 3);
  return _mm256_permutevar8x32_epi32(_mm256_packus_epi16(low, high), _mm256_setr_epi32(0, 4, 1, 5, 2, 6, 3, 7));
}

void Gray24(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const V mask = WidenMask(false), weights = GrayWeights(swap);
  int64_t i = 0;
  for (; i + 24 + kSlack <= pixels; i += 32, source += 96) {
    const V a = WeightedSum(Widened(source, mask), weights), b = WeightedSum(Widened(source + 24, mask), weights);
    const V c = WeightedSum(Widened(source + 48, mask), weights), d = WeightedSum(Widened(source + 72, mask), weights);
    Store(target + i, Levels(a, b, c, d));
  }
  kPixelsPortable.gray24(target + i, source, pixels - i, swap);
}

void Gray32(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const V weights = GrayWeights(swap);
  int64_t i = 0;
  for (; i + 32 <= pixels; i += 32, source += 128) {
    const V a = WeightedSum(Load(source), weights), b = WeightedSum(Load(source + 32), weights);
    const V c = WeightedSum(Load(source + 64), weights), d = WeightedSum(Load(source + 96), weights);
    Store(target + i, Levels(a, b, c, d));
  }
  kPixelsPortable.gray32(target + i, source, pixels - i, swap);
}

/// Shuffles that make 96 bytes of 32: each byte three times. The first takes the low 16 bytes in both halves, the
/// second all 32, the third the high 16 in both halves.
struct Triples {
  V first, second, third;
};
Triples TripleMasks() noexcept {
  return {_mm256_setr_epi8(0, 0, 0, 1, 1, 1, 2, 2, 2, 3, 3, 3, 4, 4, 4, 5, 5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9, 10,
                           10),
          _mm256_setr_epi8(10, 11, 11, 11, 12, 12, 12, 13, 13, 13, 14, 14, 14, 15, 15, 15, 0, 0, 0, 1, 1, 1, 2, 2, 2, 3,
                           3, 3, 4, 4, 4, 5),
          _mm256_setr_epi8(5, 5, 6, 6, 6, 7, 7, 7, 8, 8, 8, 9, 9, 9, 10, 10, 10, 11, 11, 11, 12, 12, 12, 13, 13, 13, 14,
                           14, 14, 15, 15, 15)};
}

void Spread8To24(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  const Triples masks = TripleMasks();
  const auto block = [&](int64_t i) {
    const V all = Load(source + i), low = BothHalves(_mm256_castsi256_si128(all));
    Store(target + 3 * i + 64, _mm256_shuffle_epi8(_mm256_permute2x128_si256(all, all, 0x11), masks.third));
    Store(target + 3 * i + 32, _mm256_shuffle_epi8(all, masks.second));
    Store(target + 3 * i, _mm256_shuffle_epi8(low, masks.first));
  };
  const auto rest = [&](int64_t i) { kPixelsPortable.spread8To24(target + 3 * i, source + i, pixels - i); };
  EachBlock<32>(target == source, InBlocks(pixels, 32, 32), block, rest);
}

void Spread8To32(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha) noexcept {
  const V low = _mm256_setr_epi8(0, 0, 0, -1, 1, 1, 1, -1, 2, 2, 2, -1, 3, 3, 3, -1, 4, 4, 4, -1, 5, 5, 5, -1, 6, 6, 6,
                                 -1, 7, 7, 7, -1);
  const V high = _mm256_setr_epi8(8, 8, 8, -1, 9, 9, 9, -1, 10, 10, 10, -1, 11, 11, 11, -1, 12, 12, 12, -1, 13, 13, 13,
                                  -1, 14, 14, 14, -1, 15, 15, 15, -1);
  const V top = _mm256_set1_epi32(static_cast<int32_t>(uint32_t{alpha} << 24));
  const auto block = [&](int64_t i) {
    const V bytes = BothHalves(LoadHalf(source + i));
    Store(target + 4 * i, _mm256_or_si256(_mm256_shuffle_epi8(bytes, low), top));
    Store(target + 4 * i + 32, _mm256_or_si256(_mm256_shuffle_epi8(bytes, high), top));
  };
  const auto rest = [&](int64_t i) { kPixelsPortable.spread8To32(target + 4 * i, source + i, pixels - i, alpha); };
  EachBlock<16>(target == source, InBlocks(pixels, 16, 16), block, rest);
}

// ---- 5-5-5 ----

/// Eight canonical pixels to words in the low halves of 32 bits.
V Packed555(V pixels) noexcept {
  const V low = _mm256_and_si256(_mm256_srli_epi32(pixels, 3), _mm256_set1_epi32(0x1F));
  const V middle = _mm256_and_si256(_mm256_srli_epi32(pixels, 6), _mm256_set1_epi32(0x3E0));
  const V high = _mm256_and_si256(_mm256_srli_epi32(pixels, 9), _mm256_set1_epi32(0x7C00));
  return _mm256_or_si256(_mm256_or_si256(low, middle), high);
}

void Pack555(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const V order = swap ? Swap32Mask() : BothHalves(_mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
  int64_t i = 0;
  for (; i + 16 <= pixels; i += 16, source += 64, target += 32) {
    const V a = Packed555(_mm256_shuffle_epi8(Load(source), order));
    const V b = Packed555(_mm256_shuffle_epi8(Load(source + 32), order));
    Store(target, _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), 0xD8));
  }
  kPixelsPortable.pack555(target, source, pixels - i, swap);
}

void Pack24To555(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const V mask = WidenMask(swap);
  int64_t i = 0;
  for (; i + 8 + kSlack <= pixels; i += 16, source += 48, target += 32) {
    const V a = Packed555(Widened(source, mask)), b = Packed555(Widened(source + 24, mask));
    Store(target, _mm256_permute4x64_epi64(_mm256_packus_epi32(a, b), 0xD8));
  }
  kPixelsPortable.pack24To555(target, source, pixels - i, swap);
}

/// Channels of 5 bits to 8: (33 c) >> 2 is (c << 3) | (c >> 2).
V Widened5(V channels) noexcept { return _mm256_srli_epi16(_mm256_mullo_epi16(channels, _mm256_set1_epi16(33)), 2); }

/// 16 words to canonical pixels, or red first.
void Unpacked555(const uint8_t* source, V top, bool swap, V out[2]) noexcept {
  const V five = _mm256_set1_epi16(31);
  const V words = _mm256_permute4x64_epi64(Load(source), 0xD8);
  const V lowest = Widened5(_mm256_and_si256(words, five));
  const V green = Widened5(_mm256_and_si256(_mm256_srli_epi16(words, 5), five));
  const V highest = Widened5(_mm256_and_si256(_mm256_srli_epi16(words, 10), five));
  const V blueGreen = _mm256_or_si256(swap ? highest : lowest, _mm256_slli_epi16(green, 8));
  const V redAlpha = _mm256_or_si256(swap ? lowest : highest, top);
  out[0] = _mm256_unpacklo_epi16(blueGreen, redAlpha);
  out[1] = _mm256_unpackhi_epi16(blueGreen, redAlpha);
}

void Unpack555(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha, bool swap) noexcept {
  const V top = _mm256_set1_epi16(static_cast<int16_t>(alpha << 8));
  const auto block = [&](int64_t i) {
    V out[2];
    Unpacked555(source + 2 * i, top, swap, out);
    Store(target + 4 * i, out[0]);
    Store(target + 4 * i + 32, out[1]);
  };
  const auto rest = [&](int64_t i) {
    kPixelsPortable.unpack555(target + 4 * i, source + 2 * i, pixels - i, alpha, swap);
  };
  EachBlock<16>(target == source, InBlocks(pixels, 16, 16), block, rest);
}

void Unpack555To24(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const V mask = NarrowMask(false), dealIn = DealIn();
  const auto block = [&](int64_t i) {
    V out[2];
    Unpacked555(source + 2 * i, _mm256_setzero_si256(), swap, out);
    Store(target + 3 * i, _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(out[0], mask), dealIn));
    Store24(target + 3 * i + 24, _mm256_permutevar8x32_epi32(_mm256_shuffle_epi8(out[1], mask), dealIn));
  };
  const auto rest = [&](int64_t i) { kPixelsPortable.unpack555To24(target + 3 * i, source + 2 * i, pixels - i, swap); };
  EachBlock<16>(target == source, InBlocks(pixels, 16, 16), block, rest);
}

// ---- Samples ----

void Widen8To16(uint8_t* target, const uint8_t* source, int64_t samples) noexcept {
  const auto block = [&](int64_t i) {
    const V bytes = _mm256_permute4x64_epi64(Load(source + i), 0xD8);
    Store(target + 2 * i, _mm256_unpacklo_epi8(bytes, bytes));
    Store(target + 2 * i + 32, _mm256_unpackhi_epi8(bytes, bytes));
  };
  const auto rest = [&](int64_t i) { kPixelsPortable.widen8To16(target + 2 * i, source + i, samples - i); };
  EachBlock<32>(target == source, InBlocks(samples, 32, 32), block, rest);
}

void Narrow16To8(uint8_t* target, const uint8_t* source, int64_t samples) noexcept {
  int64_t i = 0;
  for (; i + 32 <= samples; i += 32, source += 64) {
    const V low = _mm256_srli_epi16(Load(source), 8), high = _mm256_srli_epi16(Load(source + 32), 8);
    Store(target + i, _mm256_permute4x64_epi64(_mm256_packus_epi16(low, high), 0xD8));
  }
  kPixelsPortable.narrow16To8(target + i, source, samples - i);
}

// ---- Packed indices ----

uint64_t BigEndian(const uint8_t* at) noexcept {
  return __builtin_bswap64(
      static_cast<uint64_t>(_mm_cvtsi128_si64(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(at)))));
}
void StoreBigEndian(uint8_t* at, uint64_t value) noexcept {
  _mm_storel_epi64(reinterpret_cast<__m128i*>(at), _mm_cvtsi64_si128(static_cast<int64_t>(__builtin_bswap64(value))));
}

/// Where the bits of 8 packed pixels go in 8 bytes.
uint64_t Spread(int32_t bits) noexcept { return UINT64_C(0x0101010101010101) * ((1u << bits) - 1); }

void UnpackIndices(uint8_t* target, const uint8_t* source, int64_t pixels, int32_t bits) noexcept {
  const uint64_t places = Spread(bits);
  const int32_t drop = 64 - 8 * bits;
  const uint8_t* const end = source + (pixels * bits + 7) / 8;
  int64_t i = 0;
  for (; i + 8 <= pixels && end - source >= 8; i += 8, source += bits)
    StoreBigEndian(target + i, _pdep_u64(BigEndian(source) >> drop, places));
  kPixelsPortable.unpackIndices(target + i, source, pixels - i, bits);
}

/// Bytes of 0 and 1 to bits, 32 at a time; returns the pixels done.
int64_t PackBits(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  // The first of eight bytes is the highest bit, and the mask takes the first byte lowest.
  const V turned = BothHalves(_mm_setr_epi8(7, 6, 5, 4, 3, 2, 1, 0, 15, 14, 13, 12, 11, 10, 9, 8));
  int64_t i = 0;
  for (; i + 32 <= pixels; i += 32) {
    const V bytes = _mm256_slli_epi16(_mm256_shuffle_epi8(Load(source + i), turned), 7);
    _mm_storeu_si32(target + i / 8, _mm_cvtsi32_si128(_mm256_movemask_epi8(bytes)));
  }
  return i;
}

void PackIndices(uint8_t* target, const uint8_t* source, int64_t pixels, int32_t bits) noexcept {
  if (bits == 1) {
    const int64_t done = PackBits(target, source, pixels);
    kPixelsPortable.packIndices(target + done / 8, source + done, pixels - done, 1);
    return;
  }
  const uint64_t places = Spread(bits);
  const int32_t lift = 64 - 8 * bits;
  const uint8_t* const end = target + (pixels * bits + 7) / 8;
  int64_t i = 0;
  for (; i + 8 <= pixels && end - target >= 8; i += 8, target += bits)
    StoreBigEndian(target, _pext_u64(BigEndian(source + i), places) << lift);
  kPixelsPortable.packIndices(target, source + i, pixels - i, bits);
}

/// 32 pixels of one bit to bytes of all ones or zeros.
V BitMask(const uint8_t* source) noexcept {
  const V word = _mm256_castps_si256(_mm256_broadcast_ss(reinterpret_cast<const float*>(source)));
  const V bytes = _mm256_shuffle_epi8(word, _mm256_setr_epi8(0, 0, 0, 0, 0, 0, 0, 0, 1, 1, 1, 1, 1, 1, 1, 1, 2, 2, 2, 2,
                                                             2, 2, 2, 2, 3, 3, 3, 3, 3, 3, 3, 3));
  const V bits = _mm256_set1_epi64x(0x0102040810204080);
  return _mm256_cmpeq_epi8(_mm256_and_si256(bytes, bits), bits);
}

void ExpandBitsTo8(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t zero, uint8_t one) noexcept {
  const V zeros = _mm256_set1_epi8(static_cast<char>(zero)), ones = _mm256_set1_epi8(static_cast<char>(one));
  const auto block = [&](int64_t i) { Store(target + i, _mm256_blendv_epi8(zeros, ones, BitMask(source + i / 8))); };
  const auto rest = [&](int64_t i) {
    kPixelsPortable.expandBitsTo8(target + i, source + i / 8, pixels - i, zero, one);
  };
  EachBlock<32>(target == source, InBlocks(pixels, 32, 32), block, rest);
}

/// 96 bytes of one colour.
void Pattern(uint32_t color, V pattern[3]) noexcept {
  alignas(32) uint8_t bytes[96];
  for (int i = 0; i < 96; ++i) bytes[i] = static_cast<uint8_t>(color >> 8 * (i % 3));
  for (int k = 0; k < 3; ++k) pattern[k] = Load(bytes + 32 * k);
}

void ExpandBitsTo24(uint8_t* target, const uint8_t* source, int64_t pixels, uint32_t zero, uint32_t one) noexcept {
  const Triples masks = TripleMasks();
  V zeros[3], ones[3];
  Pattern(zero, zeros);
  Pattern(one, ones);
  const auto block = [&](int64_t i) {
    uint8_t* const to = target + 3 * i;
    const V mask = BitMask(source + i / 8);
    const V low = _mm256_permute2x128_si256(mask, mask, 0x00), high = _mm256_permute2x128_si256(mask, mask, 0x11);
    Store(to, _mm256_blendv_epi8(zeros[0], ones[0], _mm256_shuffle_epi8(low, masks.first)));
    Store(to + 32, _mm256_blendv_epi8(zeros[1], ones[1], _mm256_shuffle_epi8(mask, masks.second)));
    Store(to + 64, _mm256_blendv_epi8(zeros[2], ones[2], _mm256_shuffle_epi8(high, masks.third)));
  };
  const auto rest = [&](int64_t i) {
    kPixelsPortable.expandBitsTo24(target + 3 * i, source + i / 8, pixels - i, zero, one);
  };
  EachBlock<32>(target == source, InBlocks(pixels, 32, 32), block, rest);
}

void ExpandBitsTo32(uint8_t* target, const uint8_t* source, int64_t pixels, uint32_t zero, uint32_t one) noexcept {
  const V zeros = _mm256_set1_epi32(static_cast<int32_t>(zero)), ones = _mm256_set1_epi32(static_cast<int32_t>(one));
  const V bits = _mm256_setr_epi32(0x80, 0x40, 0x20, 0x10, 8, 4, 2, 1);
  const auto block = [&](int64_t i) {
    const V mask = _mm256_cmpeq_epi32(_mm256_and_si256(_mm256_set1_epi32(source[i / 8]), bits), bits);
    Store(target + 4 * i, _mm256_blendv_epi8(zeros, ones, mask));
  };
  const auto rest = [&](int64_t i) {
    kPixelsPortable.expandBitsTo32(target + 4 * i, source + i / 8, pixels - i, zero, one);
  };
  EachBlock<8>(target == source, InBlocks(pixels, 8, 8), block, rest);
}

// Tables go entry by entry: gathers are not faster.
void Lookup24(uint8_t* target, const uint8_t* source, int64_t pixels, const uint32_t* table) noexcept {
  kPixelsPortable.lookup24(target, source, pixels, table);
}
void Lookup32(uint8_t* target, const uint8_t* source, int64_t pixels, const uint32_t* table) noexcept {
  kPixelsPortable.lookup32(target, source, pixels, table);
}

}  // namespace

constinit const PixelKernels kPixelsAvx2 = {.widen24To32 = Widen24To32,
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
                                            .pack24To555 = Pack24To555,
                                            .unpack555 = Unpack555,
                                            .unpack555To24 = Unpack555To24,
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
