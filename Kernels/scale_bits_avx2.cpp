// Pixels of one bit, 64 at a time by depositing and extracting bits.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Scale.h"

namespace tarn {
namespace {

using V = __m256i;

/// The first byte on top.
uint64_t LoadWord(const uint8_t* at) noexcept {
  uint64_t word;
  __builtin_memcpy(&word, at, sizeof word);
  return __builtin_bswap64(word);
}
void StoreWord(uint8_t* at, uint64_t word) noexcept {
  word = __builtin_bswap64(word);
  __builtin_memcpy(at, &word, sizeof word);
}
void StoreBytes(uint8_t* at, uint64_t word, uint64_t bytes) noexcept {
  word = __builtin_bswap64(word);
  __builtin_memcpy(at, &word, bytes);
}

/// The 64 bits of a line that end with bit `last`; zeros before the first one.
uint64_t BitsTo(const uint8_t* line, uint32_t last) noexcept {
  const uint32_t byte = last / 8;
  const uint32_t behind = 7 - last % 8;
  if (byte < 8) {
    uint64_t word = 0;
    for (uint32_t i = 0; i <= byte; ++i) word = word << 8 | line[i];
    return word >> behind;
  }
  return LoadWord(line + byte - 7) >> behind | (uint64_t{line[byte - 8]} << 1) << (63 - behind);
}

/// Bits beside each other in words.
class BitStream {
 public:
  explicit BitStream(uint8_t* target) noexcept : at_(target) {}
  /// The low `count` bits, 0..64; others are 0.
  void Put(uint64_t bits, uint32_t count) noexcept {
    if (count < room_) {
      room_ -= count;
      word_ |= bits << room_;
      return;
    }
    const uint32_t over = count - room_;
    StoreWord(at_, word_ | bits >> over);
    at_ += 8;
    room_ = 64 - over;
    word_ = over ? bits << room_ : 0;
  }
  void End() noexcept { StoreBytes(at_, word_, (64 - room_ + 7) / 8); }

 private:
  uint8_t* at_;
  uint64_t word_ = 0;
  uint32_t room_ = 64;
};

}  // namespace

void TakeBits_Avx2(uint8_t* target, const uint8_t* line, uint64_t bytes, const uint64_t* masks,
                   int64_t words) noexcept {
  BitStream stream(target);
  const auto put = [&](uint64_t word, uint64_t mask) {
    stream.Put(_pext_u64(word, mask), static_cast<uint32_t>(__builtin_popcountll(mask)));
  };
  const auto whole = static_cast<int64_t>(bytes / 8);
  int64_t i = 0;
  for (; i < words && i < whole; ++i) put(LoadWord(line + i * 8), masks[i]);
  if (i < words) {
    uint64_t word = 0;
    __builtin_memcpy(&word, line + i * 8, bytes % 8);
    put(__builtin_bswap64(word), masks[i]);
  }
  stream.End();
}

void RepeatBits_Avx2(uint8_t* target, const uint8_t* line, const uint64_t* ends, const uint32_t* last,
                     int64_t words) noexcept {
  for (int64_t i = 0; i < words; ++i, target += 8) {
    const uint64_t bits = BitsTo(line, last[i]);
    // A run of ones from bit p down to bit q is 2^(p + 1) - 2^q; p + 1 is where the run before it ends.
    const uint64_t before = ends[i] & (ends[i] - 1);
    StoreWord(target, _pdep_u64(bits, before) - _pdep_u64(bits, ends[i]));
  }
}

void DoubleBits_Avx2(uint8_t* target, const uint8_t* line, int64_t bytes) noexcept {
  const V doubled = _mm256_broadcastsi128_si256(
      _mm_setr_epi8(0x00, 0x03, 0x0C, 0x0F, 0x30, 0x33, 0x3C, 0x3F, static_cast<char>(0xC0), static_cast<char>(0xC3),
                    static_cast<char>(0xCC), static_cast<char>(0xCF), static_cast<char>(0xF0), static_cast<char>(0xF3),
                    static_cast<char>(0xFC), static_cast<char>(0xFF)));
  const V nibble = _mm256_set1_epi8(15);
  int64_t i = 0;
  for (; i + 32 <= bytes; i += 32) {
    const V from = _mm256_permute4x64_epi64(_mm256_loadu_si256(reinterpret_cast<const V*>(line + i)), 0xD8);
    const V low = _mm256_shuffle_epi8(doubled, _mm256_and_si256(from, nibble));
    const V high = _mm256_shuffle_epi8(doubled, _mm256_and_si256(_mm256_srli_epi16(from, 4), nibble));
    _mm256_storeu_si256(reinterpret_cast<V*>(target + 2 * i), _mm256_unpacklo_epi8(high, low));
    _mm256_storeu_si256(reinterpret_cast<V*>(target + 2 * i + 32), _mm256_unpackhi_epi8(high, low));
  }
  kScalePortable.doubleBits(target + 2 * i, line + i, bytes - i);
}

namespace {

constexpr int64_t kVector = 32;

V Load(const uint8_t* at) noexcept { return _mm256_loadu_si256(reinterpret_cast<const V*>(at)); }
void Store(uint8_t* at, V value) noexcept { _mm256_storeu_si256(reinterpret_cast<V*>(at), value); }

/// Bits that are in more than 0, 1 and 2 of some columns, with one more column; or, and the like take words too.
template <int kMost, class Word>
void AddColumn(Word (&more)[3], const Word (&column)[3]) noexcept {
  if constexpr (kMost > 2) more[2] = more[2] | column[2] | (more[1] & column[0]) | (more[0] & column[1]);
  if constexpr (kMost > 1) more[1] = more[1] | column[1] | (more[0] & column[0]);
  more[0] = more[0] | column[0];
}

/// Bits that more than 0, 1 and 2 of the lines have, 32 bytes from byte `at` on; zeros behind the lines.
template <int kMost>
void AddLines(V (&more)[3], const InkLines& ink, int64_t at) noexcept {
  const V flip = _mm256_set1_epi8(ink.zeros ? -1 : 0);
  for (int n = 0; n < kMost; ++n) more[n] = _mm256_setzero_si256();
  for (int32_t line = 0; line < ink.count; ++line) {
    V bits;
    if (at + kVector <= ink.bytes) {
      bits = Load(ink.lines[line] + at);
    } else {
      uint8_t last[kVector] = {};
      __builtin_memcpy(last, ink.lines[line] + at, static_cast<size_t>(ink.bytes - at));
      bits = Load(last);
    }
    bits = _mm256_xor_si256(bits, flip);
    if constexpr (kMost > 2) more[2] = _mm256_or_si256(more[2], _mm256_and_si256(more[1], bits));
    if constexpr (kMost > 1) more[1] = _mm256_or_si256(more[1], _mm256_and_si256(more[0], bits));
    more[0] = _mm256_or_si256(more[0], bits);
  }
}

/// Cells of 2 or 4 columns, which lie in one byte: 32 bytes at a time, then the top bits of all cells.
template <int kMost, int kColumns>
void CellsInBytes(uint8_t* target, const InkLines& ink) noexcept {
  constexpr uint64_t kTops = kColumns == 2 ? 0xAAAAAAAAAAAAAAAA : 0x8888888888888888;
  constexpr int64_t kMade = kVector / kColumns;  // bytes
  const uint64_t flip = ink.zeros ? ~uint64_t{0} : 0;
  int64_t left = (ink.cells + 7) / 8;
  for (int64_t i = 0; left > 0; i += kVector, left -= kMade, target += kMade) {
    V plane[3], more[3];
    AddLines<kMost>(plane, ink, i);
    for (int n = 0; n < kMost; ++n) more[n] = plane[n];
    for (int column = 1; column < kColumns; ++column) {
      V moved[3];  // what comes from the byte behind is beyond the cells of this one
      for (int n = 0; n < kMost; ++n) moved[n] = _mm256_slli_epi16(plane[n], column);
      AddColumn<kMost>(more, moved);
    }
    uint8_t inked[kVector];
    Store(inked, more[kMost - 1]);
    uint64_t bits[4];
    for (int n = 0; n < 4; ++n) bits[n] = _pext_u64(LoadWord(inked + 8 * n), kTops);
    uint8_t made[16];
    if constexpr (kColumns == 2) {
      StoreWord(made, (bits[0] << 32 | bits[1]) ^ flip);
      StoreWord(made + 8, (bits[2] << 32 | bits[3]) ^ flip);
    } else {
      StoreWord(made, (bits[0] << 48 | bits[1] << 32 | bits[2] << 16 | bits[3]) ^ flip);
    }
    __builtin_memcpy(target, made, static_cast<size_t>(left < kMade ? left : kMade));
  }
}

/// 64 cells of 3 columns in 3 words.
template <int kMost>
void CellsOfThree(uint8_t* target, const InkLines& ink) noexcept {
  constexpr uint64_t kTops[3] = {0x9249249249249249, 0x2492492492492492, 0x4924924924924924};
  constexpr int kBytes = 24;
  const uint64_t flip = ink.zeros ? ~uint64_t{0} : 0;
  int64_t left = (ink.cells + 7) / 8;
  for (int64_t i = 0; left > 0; i += kBytes, left -= 8, target += 8) {
    V plane[3];
    AddLines<kMost>(plane, ink, i);
    uint64_t words[3][4] = {};  // of each plane, and zeros
    for (int n = 0; n < kMost; ++n) {
      uint8_t bytes[kVector];
      Store(bytes, plane[n]);
      for (int w = 0; w < 3; ++w) words[n][w] = LoadWord(bytes + 8 * w);
    }
    uint64_t made = 0;
    for (int w = 0; w < 3; ++w) {
      uint64_t more[3] = {words[0][w], words[1][w], words[2][w]};
      for (int column = 1; column < 3; ++column) {
        uint64_t moved[3];
        for (int n = 0; n < 3; ++n) moved[n] = words[n][w] << column | words[n][w + 1] >> (64 - column);
        AddColumn<kMost>(more, moved);
      }
      made = made << (w == 0 ? 0 : 21) | _pext_u64(more[kMost - 1], kTops[w]);
    }
    StoreBytes(target, made ^ flip, static_cast<uint64_t>(left < 8 ? left : 8));
  }
}

template <int kMost>
void CellsOf(uint8_t* target, const InkLines& ink) noexcept {
  if (ink.columns == 2) return CellsInBytes<kMost, 2>(target, ink);
  if (ink.columns == 3) return CellsOfThree<kMost>(target, ink);
  CellsInBytes<kMost, 4>(target, ink);
}

}  // namespace

void InkCells_Avx2(uint8_t* target, const InkLines& ink) noexcept {
  if (ink.most == 1) return CellsOf<1>(target, ink);
  if (ink.most == 2) return CellsOf<2>(target, ink);
  CellsOf<3>(target, ink);
}

}  // namespace tarn
