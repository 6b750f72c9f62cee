// Layout of pixels, 64 at a time: a permutation of bytes makes a vector of the target from one or two of the source.
// The rest of a line goes through the same code with masks, which touch nothing behind the last pixel.

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

// ---- Lines in blocks of 64 pixels ----

/// 64 pixels: vector k is bytes 64 k.. of the block.
struct WholeBlock {
  uint8_t* target;
  const uint8_t* source;
  [[nodiscard]] V Get(int k) const noexcept { return Load(source + k * kBytes); }
  void Put(int k, V value) const noexcept { Store(target + k * kBytes, value); }
};
/// The last pixels of a line. What is not there is read as 0.
struct PartBlock {
  uint8_t* target;
  const uint8_t* source;
  int64_t targetBytes, sourceBytes;
  [[nodiscard]] V Get(int k) const noexcept {
    return _mm512_maskz_loadu_epi8(First(sourceBytes - k * kBytes), source + k * kBytes);
  }
  void Put(int k, V value) const noexcept {
    _mm512_mask_storeu_epi8(target + k * kBytes, First(targetBytes - k * kBytes), value);
  }
};

/// Calls convert(block), which gets what lies where it puts before that, for all pixels, of kFrom bytes to kTo bytes.
/// Pixels that become wider where they are begin with the last.
template <int kFrom, int kTo, class Convert>
void EachBlock(uint8_t* target, const uint8_t* source, int64_t pixels, Convert convert) noexcept {
  const int64_t whole = pixels / 64 * 64, left = pixels - whole;
  const PartBlock last{target + kTo * whole, source + kFrom * whole, kTo * left, kFrom * left};
  if (kTo > kFrom && target == source) {
    if (left) convert(last);
    for (int64_t i = whole - 64; i >= 0; i -= 64) convert(WholeBlock{target + kTo * i, source + kFrom * i});
  } else {
    for (int64_t i = 0; i < whole; i += 64) convert(WholeBlock{target + kTo * i, source + kFrom * i});
    if (left) convert(last);
  }
}

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

/// Three vectors.
template <class Block>
void SwapTriples(const Block& block, int at, const Exchange& e) noexcept {
  const V a = block.Get(at), b = block.Get(at + 1), c = block.Get(at + 2);
  const V middle = _mm512_permutex2var_epi8(b, e.middle.Get(), c);
  block.Put(at, _mm512_permutex2var_epi8(a, e.first.Get(), b));
  block.Put(at + 1, _mm512_mask_permutexvar_epi8(middle, e.fromFirst, e.ofFirst.Get(), a));
  block.Put(at + 2, _mm512_permutex2var_epi8(b, e.last.Get(), c));
}

void Swap24(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  EachBlock<3, 3>(target, source, pixels, [](const auto& block) { SwapTriples(block, 0, kExchange8); });
}
void Swap48(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  EachBlock<6, 6>(target, source, pixels, [](const auto& block) {
    SwapTriples(block, 0, kExchange16);
    SwapTriples(block, 3, kExchange16);
  });
}

V FourTimes(__m128i value) noexcept { return _mm512_broadcast_i32x4(value); }

void Swap32(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  const V order = FourTimes(_mm_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15));
  EachBlock<4, 4>(target, source, pixels, [order](const auto& block) {
    for (int k = 0; k < 4; ++k) block.Put(k, _mm512_shuffle_epi8(block.Get(k), order));
  });
}
void Swap64(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  const V order = FourTimes(_mm_setr_epi8(4, 5, 2, 3, 0, 1, 6, 7, 12, 13, 10, 11, 8, 9, 14, 15));
  EachBlock<8, 8>(target, source, pixels, [order](const auto& block) {
    for (int k = 0; k < 8; ++k) block.Put(k, _mm512_shuffle_epi8(block.Get(k), order));
  });
}

// ---- Three bytes and four ----

/// Three vectors of 24-bit pixels dealt out to four vectors of 32 bits a pixel; the fourth bytes are those of the
/// indices.
struct Deal {
  Bytes at[4];
};
constexpr Deal MakeDeal(bool swap) noexcept {
  Deal deal{};
  for (int k = 0; k < 4; ++k) {
    const int base = k == 2 ? 64 : k == 3 ? 128 : 0;  // the vectors that k is taken from begin here
    for (int i = 0; i < kBytes; ++i) {
      const int sample = i % 4;
      const int from = 3 * (16 * k + i / 4) + (swap ? 2 - sample : sample);
      deal.at[k].at[i] = sample == 3 ? 0 : static_cast<uint8_t>(from - base);
    }
  }
  return deal;
}
constexpr Deal kDeal = MakeDeal(false);
constexpr Deal kDealSwapped = MakeDeal(true);
constexpr __mmask64 kColorBytes = 0x7777777777777777;

/// Indices whose fourth bytes are `fill`.
struct Dealer {
  V at[4];
  explicit Dealer(bool swap, uint8_t fill = 0) noexcept {
    const Deal& deal = swap ? kDealSwapped : kDeal;
    const V top = _mm512_set1_epi8(static_cast<char>(fill));
    for (int k = 0; k < 4; ++k) at[k] = _mm512_mask_mov_epi8(top, kColorBytes, deal.at[k].Get());
  }
  template <class Block>
  void Get(const Block& block, V out[4]) const noexcept {
    const V a = block.Get(0), b = block.Get(1), c = block.Get(2);
    out[0] = _mm512_mask_permutexvar_epi8(at[0], kColorBytes, at[0], a);
    out[1] = _mm512_mask2_permutex2var_epi8(a, at[1], kColorBytes, b);
    out[2] = _mm512_mask2_permutex2var_epi8(b, at[2], kColorBytes, c);
    out[3] = _mm512_mask_permutexvar_epi8(at[3], kColorBytes, at[3], c);
  }
};

void Widen24To32(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha, bool swap) noexcept {
  const Dealer dealer(swap, alpha);
  EachBlock<3, 4>(target, source, pixels, [&dealer](const auto& block) {
    V out[4];
    dealer.Get(block, out);
    for (int k = 0; k < 4; ++k) block.Put(k, out[k]);
  });
}

/// Vector k of 24-bit pixels comes from vectors k and k + 1 of 32-bit ones.
struct Gather {
  Bytes at[3];
};
constexpr Gather MakeGather(bool swap) noexcept {
  Gather gather{};
  for (int i = 0; i < 3 * kBytes; ++i) {
    const int sample = i % 3;
    gather.at[i / 64].at[i % 64] = static_cast<uint8_t>(4 * (i / 3) + (swap ? 2 - sample : sample) - i / 64 * 64);
  }
  return gather;
}
constexpr Gather kGather = MakeGather(false);
constexpr Gather kGatherSwapped = MakeGather(true);

void Narrow32To24(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const Gather& gather = swap ? kGatherSwapped : kGather;
  const V at[3] = {gather.at[0].Get(), gather.at[1].Get(), gather.at[2].Get()};
  EachBlock<4, 3>(target, source, pixels, [&at](const auto& block) {
    const V in[4] = {block.Get(0), block.Get(1), block.Get(2), block.Get(3)};
    for (int k = 0; k < 3; ++k) block.Put(k, _mm512_permutex2var_epi8(in[k], at[k], in[k + 1]));
  });
}

// ---- Gray ----

constexpr Bytes MakeEvery(int step, int first) noexcept {
  Bytes bytes{};
  for (int i = 0; i < kBytes; ++i) bytes.at[i] = static_cast<uint8_t>((step * i + first) % 128);
  return bytes;
}
constexpr Bytes kEvenBytes = MakeEvery(2, 0);
constexpr Bytes kOddBytes = MakeEvery(2, 1);
/// The low halves of words of 32 bits, of two vectors.
constexpr Bytes MakeLowWords() noexcept {
  Bytes bytes{};
  for (int i = 0; i < kBytes; ++i) bytes.at[i] = static_cast<uint8_t>(i / 2 * 4 + i % 2);
  return bytes;
}
constexpr Bytes kLowWords = MakeLowWords();

/// 64 pixels of four bytes to levels. Sums are at most 8 * 255 + 4.
V Levels(const V in[4], V weights) noexcept {
  const V four = _mm512_set1_epi32(4), words = kLowWords.Get();
  V sums[4];
  for (int k = 0; k < 4; ++k) sums[k] = _mm512_dpbusd_epi32(four, in[k], weights);
  const V low = _mm512_srli_epi16(_mm512_permutex2var_epi8(sums[0], words, sums[1]), 3);
  const V high = _mm512_srli_epi16(_mm512_permutex2var_epi8(sums[2], words, sums[3]), 3);
  return _mm512_permutex2var_epi8(low, kEvenBytes.Get(), high);
}
V GrayWeights(bool swap) noexcept { return _mm512_set1_epi32(swap ? 0x00010502 : 0x00020501); }

void Gray24(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const Dealer dealer(false);
  const V weights = GrayWeights(swap);
  EachBlock<3, 1>(target, source, pixels, [&dealer, weights](const auto& block) {
    V in[4];
    dealer.Get(block, in);
    block.Put(0, Levels(in, weights));
  });
}

void Gray32(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const V weights = GrayWeights(swap);
  EachBlock<4, 1>(target, source, pixels, [weights](const auto& block) {
    const V in[4] = {block.Get(0), block.Get(1), block.Get(2), block.Get(3)};
    block.Put(0, Levels(in, weights));
  });
}

/// Byte i / times of a vector, from `first` on.
constexpr Bytes MakeRepeated(int times, int first) noexcept {
  Bytes bytes{};
  for (int i = 0; i < kBytes; ++i) bytes.at[i] = static_cast<uint8_t>((i + first) / times);
  return bytes;
}
constexpr Bytes kThrice[3] = {MakeRepeated(3, 0), MakeRepeated(3, 64), MakeRepeated(3, 128)};
constexpr Bytes kFourfold[4] = {MakeRepeated(4, 0), MakeRepeated(4, 64), MakeRepeated(4, 128), MakeRepeated(4, 192)};
constexpr Bytes kTwice[2] = {MakeRepeated(2, 0), MakeRepeated(2, 64)};

void Spread8To24(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  EachBlock<1, 3>(target, source, pixels, [](const auto& block) {
    const V in = block.Get(0);
    for (int k = 0; k < 3; ++k) block.Put(k, _mm512_permutexvar_epi8(kThrice[k].Get(), in));
  });
}

void Spread8To32(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha) noexcept {
  const V top = _mm512_set1_epi8(static_cast<char>(alpha));
  EachBlock<1, 4>(target, source, pixels, [top](const auto& block) {
    const V in = block.Get(0);
    for (int k = 0; k < 4; ++k) block.Put(k, _mm512_mask_permutexvar_epi8(top, kColorBytes, kFourfold[k].Get(), in));
  });
}

// ---- 5-5-5 ----

/// 64 pixels of four bytes, blue first, to two vectors of words: first + 32 second + 1024 third is eight times the
/// word.
void Packed555(const V in[4], V out[2]) noexcept {
  const V fives = _mm512_set1_epi32(0x00F8F8F8), weights = _mm512_set1_epi32(0x00042001);
  const V halves = _mm512_set1_epi32(256 << 16 | 1), words = kLowWords.Get();
  V packed[4];
  for (int k = 0; k < 4; ++k) {
    const V pairs = _mm512_maddubs_epi16(_mm512_and_si512(in[k], fives), weights);
    packed[k] = _mm512_srli_epi32(_mm512_madd_epi16(pairs, halves), 3);
  }
  for (int k = 0; k < 2; ++k) out[k] = _mm512_permutex2var_epi8(packed[2 * k], words, packed[2 * k + 1]);
}

void Pack555(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const V order = swap ? FourTimes(_mm_setr_epi8(2, 1, 0, 3, 6, 5, 4, 7, 10, 9, 8, 11, 14, 13, 12, 15))
                       : FourTimes(_mm_setr_epi8(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15));
  EachBlock<4, 2>(target, source, pixels, [order](const auto& block) {
    V in[4], out[2];
    for (int k = 0; k < 4; ++k) in[k] = _mm512_shuffle_epi8(block.Get(k), order);
    Packed555(in, out);
    for (int k = 0; k < 2; ++k) block.Put(k, out[k]);
  });
}

void Pack24To555(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  const Dealer dealer(swap);
  EachBlock<3, 2>(target, source, pixels, [&dealer](const auto& block) {
    V in[4], out[2];
    dealer.Get(block, in);
    Packed555(in, out);
    for (int k = 0; k < 2; ++k) block.Put(k, out[k]);
  });
}

/// 32 words to their first two channels, as bytes of words, and the third, in the low bytes. A channel c at bit 5 n is
/// c * 32^n there: its 8 bits are 33 c >> 2.
void Channels555(V words, bool swap, V& firstTwo, V& third) noexcept {
  const V lowest = _mm512_mulhi_epu16(_mm512_slli_epi16(words, 11), _mm512_set1_epi16(264));
  const V highest = _mm512_mulhi_epu16(_mm512_and_si512(words, _mm512_set1_epi16(0x7C00)), _mm512_set1_epi16(528));
  const V middle = _mm512_mullo_epi16(_mm512_and_si512(words, _mm512_set1_epi16(0x3E0)), _mm512_set1_epi16(66));
  // The middle one is in the high bytes, with bits of its product below.
  firstTwo = _mm512_mask_mov_epi8(swap ? highest : lowest, 0xAAAAAAAAAAAAAAAA, middle);
  third = swap ? lowest : highest;
}

/// Four bytes a pixel of two vectors of words.
constexpr Bytes MakeJoined(int first) noexcept {
  Bytes bytes{};
  for (int i = 0; i < kBytes; ++i)
    bytes.at[i] = static_cast<uint8_t>(2 * (first + i / 4) + i % 2 + (i % 4 < 2 ? 0 : 64));
  return bytes;
}
constexpr Bytes kJoined[2] = {MakeJoined(0), MakeJoined(16)};

void Unpack555(uint8_t* target, const uint8_t* source, int64_t pixels, uint8_t alpha, bool swap) noexcept {
  const V top = _mm512_set1_epi16(static_cast<int16_t>(alpha << 8));
  EachBlock<2, 4>(target, source, pixels, [top, swap](const auto& block) {
    const V in[2] = {block.Get(0), block.Get(1)};
    for (int k = 0; k < 2; ++k) {
      V firstTwo, third;
      Channels555(in[k], swap, firstTwo, third);
      third = _mm512_or_si512(third, top);
      block.Put(2 * k, _mm512_permutex2var_epi8(firstTwo, kJoined[0].Get(), third));
      block.Put(2 * k + 1, _mm512_permutex2var_epi8(firstTwo, kJoined[1].Get(), third));
    }
  });
}

/// Three bytes a pixel of two vectors of words that hold 32 pixels; byte 0 of the result is byte `first` of the pixels.
constexpr Bytes MakeJoined24(int first) noexcept {
  Bytes bytes{};
  for (int i = 0; i < kBytes; ++i) {
    const int at = (i + first + 96) % 96, sample = at % 3;
    bytes.at[i] = static_cast<uint8_t>(2 * (at / 3) + (sample == 2 ? 64 : sample));
  }
  return bytes;
}
constexpr Bytes kJoined24[4] = {MakeJoined24(0), MakeJoined24(64), MakeJoined24(-32), MakeJoined24(32)};

void Unpack555To24(uint8_t* target, const uint8_t* source, int64_t pixels, bool swap) noexcept {
  // 96 bytes of each half of the block: a vector and a half.
  EachBlock<2, 3>(target, source, pixels, [swap](const auto& block) {
    V firstTwo[2], third[2];
    for (int k = 0; k < 2; ++k) Channels555(block.Get(k), swap, firstTwo[k], third[k]);
    const V end = _mm512_permutex2var_epi8(firstTwo[0], kJoined24[1].Get(), third[0]);
    const V begin = _mm512_permutex2var_epi8(firstTwo[1], kJoined24[2].Get(), third[1]);
    block.Put(0, _mm512_permutex2var_epi8(firstTwo[0], kJoined24[0].Get(), third[0]));
    block.Put(1, _mm512_mask_mov_epi64(end, 0xF0, begin));
    block.Put(2, _mm512_permutex2var_epi8(firstTwo[1], kJoined24[3].Get(), third[1]));
  });
}

// ---- Samples ----

void Widen8To16(uint8_t* target, const uint8_t* source, int64_t samples) noexcept {
  EachBlock<1, 2>(target, source, samples, [](const auto& block) {
    const V in = block.Get(0);
    for (int k = 0; k < 2; ++k) block.Put(k, _mm512_permutexvar_epi8(kTwice[k].Get(), in));
  });
}

void Narrow16To8(uint8_t* target, const uint8_t* source, int64_t samples) noexcept {
  EachBlock<2, 1>(target, source, samples, [](const auto& block) {
    block.Put(0, _mm512_permutex2var_epi8(block.Get(0), kOddBytes.Get(), block.Get(1)));
  });
}

// ---- Tables ----

constexpr Bytes kEveryFourth = MakeEvery(4, 0);

/// One byte of each of 256 entries.
struct Plane {
  V quarters[4];
  /// Byte `channel` of the words.
  void Fill(const uint32_t* table, int channel) noexcept {
    const V at = _mm512_add_epi8(kEveryFourth.Get(), _mm512_set1_epi8(static_cast<char>(channel)));
    const auto* const bytes = reinterpret_cast<const uint8_t*>(table);
    for (int q = 0; q < 4; ++q) {  // 32 entries of two vectors, twice
      const uint8_t* const from = bytes + 256 * q;
      const V low = _mm512_permutex2var_epi8(Load(from), at, Load(from + 64));
      const V high = _mm512_permutex2var_epi8(Load(from + 128), at, Load(from + 192));
      quarters[q] = _mm512_inserti64x4(low, _mm512_castsi512_si256(high), 1);
    }
  }
  [[nodiscard]] V Find(V indices, __mmask64 high) const noexcept {
    const V low = _mm512_permutex2var_epi8(quarters[0], indices, quarters[1]);
    return _mm512_mask_mov_epi8(low, high, _mm512_permutex2var_epi8(quarters[2], indices, quarters[3]));
  }
};

/// Three vectors of samples to pixels: the first two by a permutation, the third into their gaps.
struct Interleave {
  Bytes firstTwo[3], third[3];
  __mmask64 ofThird[3];
};
constexpr Interleave MakeInterleave() noexcept {
  Interleave made{};
  for (int i = 0; i < 3 * kBytes; ++i) {
    const int k = i / 64, at = i % 64, sample = i % 3;
    made.firstTwo[k].at[at] = static_cast<uint8_t>(i / 3 + (sample == 1 ? 64 : 0));
    made.third[k].at[at] = static_cast<uint8_t>(i / 3);
    if (sample == 2) made.ofThird[k] |= __mmask64{1} << at;
  }
  return made;
}
constexpr Interleave kInterleave = MakeInterleave();

constexpr int64_t kWorthPlanes = 128;  // pixels from which taking the table apart pays

void Lookup24(uint8_t* target, const uint8_t* source, int64_t pixels, const uint32_t* table) noexcept {
  if (pixels < kWorthPlanes) return kPixelsPortable.lookup24(target, source, pixels, table);
  Plane planes[3];
  for (int c = 0; c < 3; ++c) planes[c].Fill(table, c);
  EachBlock<1, 3>(target, source, pixels, [&planes](const auto& block) {
    const V indices = block.Get(0);
    const __mmask64 high = _mm512_movepi8_mask(indices);
    const V first = planes[0].Find(indices, high), second = planes[1].Find(indices, high);
    const V third = planes[2].Find(indices, high);
    for (int k = 0; k < 3; ++k) {
      const V two = _mm512_permutex2var_epi8(first, kInterleave.firstTwo[k].Get(), second);
      block.Put(k, _mm512_mask_permutexvar_epi8(two, kInterleave.ofThird[k], kInterleave.third[k].Get(), third));
    }
  });
}

void Lookup32(uint8_t* target, const uint8_t* source, int64_t pixels, const uint32_t* table) noexcept {
  if (pixels < kWorthPlanes) return kPixelsPortable.lookup32(target, source, pixels, table);
  Plane planes[4];
  for (int c = 0; c < 4; ++c) planes[c].Fill(table, c);
  // Fours of pixels in the order in which unpacking within 128 bits puts them together.
  const V order = _mm512_setr_epi32(0, 4, 8, 12, 1, 5, 9, 13, 2, 6, 10, 14, 3, 7, 11, 15);
  EachBlock<1, 4>(target, source, pixels, [&planes, order](const auto& block) {
    const V indices = _mm512_permutexvar_epi32(order, block.Get(0));
    const __mmask64 high = _mm512_movepi8_mask(indices);
    const V first = planes[0].Find(indices, high), second = planes[1].Find(indices, high);
    const V third = planes[2].Find(indices, high), fourth = planes[3].Find(indices, high);
    const V lowTwo = _mm512_unpacklo_epi8(first, second), highTwo = _mm512_unpackhi_epi8(first, second);
    const V lowRest = _mm512_unpacklo_epi8(third, fourth), highRest = _mm512_unpackhi_epi8(third, fourth);
    block.Put(0, _mm512_unpacklo_epi16(lowTwo, lowRest));
    block.Put(1, _mm512_unpackhi_epi16(lowTwo, lowRest));
    block.Put(2, _mm512_unpacklo_epi16(highTwo, highRest));
    block.Put(3, _mm512_unpackhi_epi16(highTwo, highRest));
  });
}

// ---- What wider registers do not help ----

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
