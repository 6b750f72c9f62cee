// Run lengths of one-bit rows, 256 pixels at a time; the scheme is that of the portable version.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Kernels.h"

namespace tarn {
namespace {

constexpr uint32_t kBlockBytes = 1024;  // of source: positions fit 16 bits, and their list the first-level cache
constexpr uint32_t kBlockPixels = 8 * kBlockBytes;
constexpr uint32_t kGroupBytes = 32;
constexpr uint32_t kFewTransitions = 6;  // in 64 pixels: found one by one up to here, by bytes beyond

/// Positions of the set bits of a byte, the lowest bit first.
struct BitTable {
  uint8_t positions[256][8];
};
constexpr BitTable MakeBitTable() noexcept {
  BitTable table{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    uint32_t count = 0;
    for (uint8_t bit = 0; bit < 8; ++bit) {
      if (byte & (1u << bit)) table.positions[byte][count++] = bit;
    }
  }
  return table;
}
constexpr BitTable kBits = MakeBitTable();

/// 32 bytes of zeros, then of ones: loaded from byte n on, the last n bytes are ones.
struct SlidingMask {
  uint8_t bytes[64];
};
constexpr SlidingMask MakeSlidingMask() noexcept {
  SlidingMask mask{};
  for (int i = 32; i < 64; ++i) mask.bytes[i] = 0xFF;
  return mask;
}
constexpr SlidingMask kLastBytes = MakeSlidingMask();

__m256i Load(const void* from) noexcept { return _mm256_loadu_si256(static_cast<const __m256i*>(from)); }

/// 256 pixels, the first one in the lowest bit.
__m256i FirstPixelLowest(__m256i bytes) noexcept {
  const __m256i nibbles = _mm256_set1_epi8(0x0F);
  const __m256i reversed = _mm256_setr_epi8(0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15,  //
                                            0, 8, 4, 12, 2, 10, 6, 14, 1, 9, 5, 13, 3, 11, 7, 15);
  const __m256i low = _mm256_shuffle_epi8(reversed, _mm256_and_si256(bytes, nibbles));
  const __m256i high = _mm256_shuffle_epi8(reversed, _mm256_and_si256(_mm256_srli_epi16(bytes, 4), nibbles));
  return _mm256_or_si256(_mm256_slli_epi16(low, 4), high);
}

/// Set where a pixel differs from the one before it; `before` is the group of the 256 pixels before.
__m256i Transitions(__m256i group, __m256i before) noexcept {
  const __m256i joined = _mm256_permute2x128_si256(before, group, 0x21);
  const __m256i wordBefore = _mm256_alignr_epi8(group, joined, 8);
  const __m256i pixelBefore = _mm256_or_si256(_mm256_slli_epi64(group, 1), _mm256_srli_epi64(wordBefore, 63));
  return _mm256_xor_si256(group, pixelBefore);
}

/// Appends base + the positions of the set bits of one word; writes up to 8 entries beyond what it appends.
/// Appends base + the positions of the set bits of one word. Writes beyond what it appends: at most 8 entries in all.
inline uint16_t* AppendWord(uint16_t* positions, uint64_t bits, uint32_t base) noexcept {
  const uint32_t count = static_cast<uint32_t>(_mm_popcnt_u64(bits));
  if (count > kFewTransitions) {
    __m128i lanes = _mm_set1_epi16(static_cast<int16_t>(base));
    for (int i = 0; i < 8; ++i) {
      const __m128i* const entry = reinterpret_cast<const __m128i*>(kBits.positions[bits & 0xFF]);
      const __m128i found = _mm_add_epi16(_mm_cvtepu8_epi16(_mm_loadl_epi64(entry)), lanes);
      _mm_storeu_si128(reinterpret_cast<__m128i*>(positions), found);
      positions += _mm_popcnt_u32(bits & 0xFF);
      lanes = _mm_add_epi16(lanes, _mm_set1_epi16(8));
      bits >>= 8;
    }
    return positions;
  }
  for (uint32_t i = 0; i < kFewTransitions; ++i) {
    positions[i] = static_cast<uint16_t>(base + _tzcnt_u64(bits));
    bits = _blsr_u64(bits);
  }
  return positions + count;
}

inline uint16_t* AppendPair(uint16_t* positions, __m128i transitions, uint32_t base) noexcept {
  if (_mm_testz_si128(transitions, transitions)) return positions;
  positions = AppendWord(positions, static_cast<uint64_t>(_mm_cvtsi128_si64(transitions)), base);
  return AppendWord(positions, static_cast<uint64_t>(_mm_extract_epi64(transitions, 1)), base + 64);
}

inline uint16_t* AppendGroup(uint16_t* positions, __m256i transitions, uint32_t base) noexcept {
  if (_mm256_testz_si256(transitions, transitions)) return positions;
  positions = AppendPair(positions, _mm256_castsi256_si128(transitions), base);
  return AppendPair(positions, _mm256_extracti128_si256(transitions, 1), base + 128);
}

/// Writes the runs that end at positions[1] .. positions[count], counted from blockStart; positions[0] is scratch.
uint8_t* WriteRuns(uint8_t* target, uint64_t& runStart, uint64_t blockStart, uint16_t* positions,
                   uint32_t count) noexcept {
  const uint64_t firstEnd = blockStart + positions[1];
  if (firstEnd - runStart > 65535) target = SplitLongRun(target, runStart, firstEnd);
  // Modulo 65536 the first difference is right too, wherever the run began.
  positions[0] = static_cast<uint16_t>(runStart - blockStart);
  runStart = blockStart + positions[count];
  const auto write16 = [=](uint32_t i) noexcept {
    const __m256i runs = _mm256_sub_epi16(Load(positions + i + 1), Load(positions + i));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(target + 2 * size_t{i}), runs);
  };
  const auto write8 = [=](uint32_t i) noexcept {
    const __m128i ends = _mm_loadu_si128(reinterpret_cast<const __m128i*>(positions + i + 1));
    const __m128i starts = _mm_loadu_si128(reinterpret_cast<const __m128i*>(positions + i));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(target + 2 * size_t{i}), _mm_sub_epi16(ends, starts));
  };
  if (count >= 16) {
    for (uint32_t i = 0; i + 16 < count; i += 16) write16(i);
    write16(count - 16);  // the last ones may be written twice
  } else if (count >= 8) {
    write8(0);
    write8(count - 8);
  } else {
    for (uint32_t i = 0; i < count; ++i) {
      const uint16_t run = static_cast<uint16_t>(positions[i + 1] - positions[i]);
      __builtin_memcpy(target + 2 * size_t{i}, &run, sizeof run);
    }
  }
  return target + 2 * uint64_t{count};
}

}  // namespace

uint32_t CompressRuns_Avx2(void* runs, const uint8_t* source, uint32_t firstBit, uint32_t pixels) noexcept {
  uint8_t* target = static_cast<uint8_t*>(runs);
  if (!pixels) {
    __builtin_memset(target, 0, 2);
    return 1;
  }
  const uint64_t end = uint64_t{firstBit} + pixels;  // positions count from bit 0 of source
  const uint64_t bytes = (end + 7) / 8;
  const uint64_t groupedBytes = end / 8 / kGroupBytes * kGroupBytes;
  uint16_t list[1 + kBlockPixels + 1 + 8];
  uint64_t runStart = firstBit;
  __m256i before = _mm256_setzero_si256();
  // Of the first group: pixels before the start count as zeros.
  __m256i mask = _mm256_set_epi64x(-1, -1, -1, static_cast<int64_t>(~UINT64_C(0) << firstBit));
  for (uint64_t blockByte = 0;; blockByte += kBlockBytes) {
    uint16_t* positions = list + 1;
    const uint8_t* const block = source + blockByte;
    const bool last = bytes - blockByte <= kBlockBytes;
    const uint32_t blockBytes = last ? static_cast<uint32_t>(groupedBytes - blockByte) : kBlockBytes;
    for (uint32_t byte = 0; byte < blockBytes; byte += kGroupBytes) {
      const __m256i group = _mm256_and_si256(FirstPixelLowest(Load(block + byte)), mask);
      positions = AppendGroup(positions, Transitions(group, before), 8 * byte);
      before = group;
      mask = _mm256_set1_epi8(-1);
    }
    if (last) {
      if (bytes > groupedBytes) {
        // The last group ends with the row: it overlaps the one before, or a short row gets bytes of zeros in front.
        const uint8_t* tail;
        uint8_t shortRow[kGroupBytes] = {};
        if (bytes < kGroupBytes) {
          __builtin_memcpy(shortRow + kGroupBytes - bytes, source, bytes);
          shortRow[kGroupBytes - bytes] &= static_cast<uint8_t>(0xFF >> firstBit);
          tail = shortRow;
        } else {
          tail = source + (bytes - kGroupBytes);
        }
        __m256i transitions = Transitions(_mm256_and_si256(FirstPixelLowest(Load(tail)), mask), before);
        transitions = _mm256_and_si256(transitions, Load(kLastBytes.bytes + (bytes - groupedBytes)));
        const __m256i unused = _mm256_set_epi64x(static_cast<int64_t>(8 * bytes - end), 0, 0, 0);
        transitions = _mm256_srlv_epi64(_mm256_sllv_epi64(transitions, unused), unused);
        // Positions are modulo 65536: the base may lie before the block, no position does.
        positions = AppendGroup(positions, transitions, static_cast<uint32_t>(8 * (bytes - kGroupBytes - blockByte)));
      }
      *positions++ = static_cast<uint16_t>(end - 8 * blockByte);
    }
    const uint32_t count = static_cast<uint32_t>(positions - (list + 1));
    if (count) target = WriteRuns(target, runStart, 8 * blockByte, list, count);
    if (last) break;
  }
  return static_cast<uint32_t>((target - static_cast<uint8_t*>(runs)) / 2);
}

}  // namespace tarn
