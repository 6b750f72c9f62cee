// The nearest entry of a palette, eight at a time: first the distances and the smallest of them, then the entries at
// it.

#include <immintrin.h>

#include <cstdint>

#include "Kernels/Kernels.h"

namespace tarn {

bool AnswerColors_Portable(uint8_t* target, uint32_t* places, const uint8_t* colors, int64_t pixels,
                           const uint8_t* answers) noexcept;

namespace {

constexpr uint32_t kLanes = 8;
constexpr uint32_t kChunk = 256;  // entries whose distances are kept

uint32_t Smallest(__m256i values) noexcept {
  __m128i least = _mm_min_epu32(_mm256_castsi256_si128(values), _mm256_extracti128_si256(values, 1));
  least = _mm_min_epu32(least, _mm_shuffle_epi32(least, _MM_SHUFFLE(1, 0, 3, 2)));
  least = _mm_min_epu32(least, _mm_shuffle_epi32(least, _MM_SHUFFLE(2, 3, 0, 1)));
  return static_cast<uint32_t>(_mm_cvtsi128_si32(least));
}

__m256i Equal(const uint32_t* distances, __m256i wanted) noexcept {
  return _mm256_cmpeq_epi32(_mm256_load_si256(reinterpret_cast<const __m256i*>(distances)), wanted);
}

uint32_t LanesEqual(const uint32_t* distances, __m256i wanted) noexcept {
  return static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(Equal(distances, wanted))));
}

/// None of the next 32 distances is the wanted one.
bool NoneEqual(const uint32_t* distances, __m256i wanted) noexcept {
  const __m256i first = _mm256_or_si256(Equal(distances, wanted), Equal(distances + kLanes, wanted));
  const __m256i second = _mm256_or_si256(Equal(distances + 2 * kLanes, wanted), Equal(distances + 3 * kLanes, wanted));
  const __m256i any = _mm256_or_si256(first, second);
  return _mm256_testz_si256(any, any);
}

uint32_t CodeOf(const uint8_t* entry) noexcept { return ColorOrderCode(entry[2], entry[1], entry[0]); }

/// What a search has found so far. Distances above the best never reach it.
struct Best {
  uint32_t color;
  uint32_t distance = UINT32_MAX;
  uint32_t index = 0;

  /// Entry `at` of a chunk is at the chunk's smallest distance.
  void Meet(const uint8_t* chunk, uint32_t at, uint32_t first, uint32_t smallest) noexcept {
    if (smallest == distance &&
        CodeOf(chunk + 4 * at) != ColorOrderCode(color >> 16 & 255, color >> 8 & 255, color & 255))
      return;
    distance = smallest;
    index = first + at;
  }

  /// The entries of a chunk of `count` distances, whole vectors, at the smallest of them.
  void Take(const uint32_t* distances, uint32_t count, uint32_t smallest, const uint8_t* chunk,
            uint32_t first) noexcept {
    if (smallest > distance) return;
    const __m256i wanted = _mm256_set1_epi32(static_cast<int32_t>(smallest));
    for (uint32_t at = 0; at < count; at += kLanes) {
      while (at + 4 * kLanes < count && NoneEqual(distances + at, wanted)) at += 4 * kLanes;
      for (uint32_t lanes = LanesEqual(distances + at, wanted); lanes; lanes &= lanes - 1) {
        Meet(chunk, at + static_cast<uint32_t>(_tzcnt_u32(lanes)), first, smallest);
        if (smallest == 0) return;  // the first equal one wins
      }
    }
  }
};

// ---- All colours of a cell ----
//
// A colour's key for an entry is the distance, above nine bits that settle ties: 255 - index where the entry's order
// code is the colour's (the last of them wins), 256 + index elsewhere (the first wins). The smallest key has the index.

constexpr int kTieBits = 9;

struct Candidates {
  uint32_t count;
  uint8_t list[kPreparedEntries];
};

/// Of blue and red, or of green: the squares of how near and how far eight entries are from eight neighbouring values.
void AddReach(__m256i values, __m256i low, __m256i& nearest, __m256i& farthest) noexcept {
  const __m256i seven = _mm256_set1_epi16(7);
  const __m256i below = _mm256_sub_epi16(low, values);
  const __m256i above = _mm256_sub_epi16(_mm256_sub_epi16(values, low), seven);
  const __m256i outside = _mm256_max_epi16(below, above);
  const __m256i near = _mm256_max_epi16(outside, _mm256_setzero_si256());
  const __m256i far = _mm256_add_epi16(outside, seven);
  nearest = _mm256_add_epi32(nearest, _mm256_madd_epi16(near, near));
  farthest = _mm256_add_epi32(farthest, _mm256_madd_epi16(far, far));
}

/// Entries that can be nearest to a colour of the cell, in ascending order: one that is farther from all of them than
/// some other entry is from any cannot. Places behind the last entry are far.
void FindCandidates(const PreparedPalette& palette, uint32_t blueRed, uint32_t green, Candidates& found) noexcept {
  const __m256i lowBlueRed = _mm256_set1_epi32(static_cast<int32_t>(blueRed));
  const __m256i lowGreen = _mm256_set1_epi32(static_cast<int32_t>(green));
  alignas(32) uint32_t distances[kPreparedEntries];
  __m256i bound = _mm256_set1_epi32(-1);
  for (uint32_t at = 0; at < palette.count; at += kLanes) {
    __m256i nearest = _mm256_setzero_si256(), farthest = nearest;
    AddReach(_mm256_load_si256(reinterpret_cast<const __m256i*>(palette.blueRed + 2 * at)), lowBlueRed, nearest,
             farthest);
    AddReach(_mm256_load_si256(reinterpret_cast<const __m256i*>(palette.green + 2 * at)), lowGreen, nearest, farthest);
    _mm256_store_si256(reinterpret_cast<__m256i*>(distances + at), nearest);
    bound = _mm256_min_epu32(bound, farthest);
  }
  const __m256i above = _mm256_set1_epi32(static_cast<int32_t>(Smallest(bound) + 1));
  found.count = 0;
  for (uint32_t at = 0; at < palette.count; at += kLanes) {
    const __m256i distance = _mm256_load_si256(reinterpret_cast<const __m256i*>(distances + at));
    uint32_t lanes =
        static_cast<uint32_t>(_mm256_movemask_ps(_mm256_castsi256_ps(_mm256_cmpgt_epi32(above, distance))));
    for (; lanes; lanes &= lanes - 1)
      found.list[found.count++] = static_cast<uint8_t>(at + static_cast<uint32_t>(_tzcnt_u32(lanes)));
  }
}

/// Order codes of eight colours that differ in blue.
__m256i CodesOf(uint32_t red, uint32_t green, __m256i blue) noexcept {
  const __m256i reds = _mm256_set1_epi32(static_cast<int32_t>(red));
  const __m256i greens = _mm256_set1_epi32(static_cast<int32_t>(green));
  const __m256i first = _mm256_cmpgt_epi32(blue, reds);
  const __m256i largest = _mm256_max_epi32(blue, reds), smallest = _mm256_min_epi32(blue, reds);
  const __m256i second = _mm256_cmpgt_epi32(smallest, greens);
  const __m256i third = _mm256_cmpgt_epi32(_mm256_max_epi32(greens, smallest), largest);
  const __m256i code = _mm256_and_si256(first, _mm256_set1_epi32(4));
  return _mm256_or_si256(_mm256_or_si256(code, _mm256_and_si256(second, _mm256_set1_epi32(2))),
                         _mm256_srli_epi32(third, 31));
}

/// Squares of an entry's distances from eight values of each channel, as keys have them.
struct Squares {
  alignas(32) uint32_t blue[kLanes];
  alignas(32) uint32_t green[kLanes];
  uint32_t red[kLanes];
  int32_t code, same, other;  // tie bits for its own order code and for others
};

__m256i SquaresFrom(uint32_t low, uint32_t value) noexcept {
  const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  const __m256i apart = _mm256_add_epi32(lane, _mm256_set1_epi32(static_cast<int32_t>(low - value)));
  return _mm256_slli_epi32(_mm256_mullo_epi32(apart, apart), kTieBits);
}

/// The smallest keys to the answers of one red and green: four bytes each of two cubes.
void PutRow(uint8_t* answers, uint32_t red, uint32_t green, __m256i keys) noexcept {
  const __m256i other = _mm256_slli_epi32(keys, 31 - 8);  // bit 8 on top
  const __m256i flip = _mm256_andnot_si256(_mm256_srai_epi32(other, 31), _mm256_set1_epi32(255));
  const __m256i bytes = _mm256_and_si256(_mm256_xor_si256(keys, flip), _mm256_set1_epi32(255));
  const __m256i words = _mm256_packus_epi32(bytes, bytes);
  const __m256i packed = _mm256_packus_epi16(words, words);
  uint8_t* const at = answers + PlaceOfColor(red, green, 0);
  _mm_storeu_si32(at, _mm256_castsi256_si128(packed));
  _mm_storeu_si32(at + PlaceOfColor(0, 0, 4), _mm256_extracti128_si256(packed, 1));
}

/// One red. Colours of a cell that no diagonal of the colour cube crosses have one order code: kOneCode.
template <bool kOneCode>
void FindSlab(uint8_t* answers, const Squares* squares, uint32_t count, uint32_t red, const __m256i* codes) noexcept {
  __m256i best[kLanes];
  for (__m256i& keys : best) keys = _mm256_set1_epi32(-1);
  for (uint32_t c = 0; c < count; ++c) {
    const Squares& s = squares[c];
    const __m256i blue = _mm256_load_si256(reinterpret_cast<const __m256i*>(s.blue));
    const __m256i base = _mm256_add_epi32(blue, _mm256_set1_epi32(static_cast<int32_t>(s.red[red])));
    for (uint32_t green = 0; green < kLanes; ++green) {
      __m256i keys = _mm256_add_epi32(base, _mm256_set1_epi32(static_cast<int32_t>(s.green[green])));
      if constexpr (!kOneCode) {
        const __m256i own = _mm256_cmpeq_epi32(codes[green], _mm256_set1_epi32(s.code));
        keys = _mm256_add_epi32(keys, _mm256_blendv_epi8(_mm256_set1_epi32(s.other), _mm256_set1_epi32(s.same), own));
      }
      best[green] = _mm256_min_epu32(best[green], keys);
    }
  }
  for (uint32_t green = 0; green < kLanes; ++green) PutRow(answers, red, green, best[green]);
}

/// Eight answers, the first lowest.
uint64_t Eight(const uint32_t* places, const uint8_t* answers) noexcept {
  uint64_t word = 0;
  for (int k = 0; k < 8; ++k) word |= uint64_t{answers[places[k]]} << 8 * k;
  return word;
}

/// Bits of a word of which some byte is 0; none else.
uint64_t ZeroBytes(uint64_t word) noexcept {
  return (word - UINT64_C(0x0101010101010101)) & ~word & UINT64_C(0x8080808080808080);
}

/// The bits of `mask` of a shifted colour, beside what is there.
__m256i With(__m256i there, __m256i shifted, int32_t mask) noexcept {
  return _mm256_or_si256(there, _mm256_and_si256(shifted, _mm256_set1_epi32(mask)));
}

/// PlaceOfColor of eight.
__m256i PlacesOf(__m256i color) noexcept {
  __m256i page = _mm256_and_si256(color, _mm256_set1_epi32(0xF00003));
  page = With(page, _mm256_slli_epi32(color, 4), 0xF0040);
  page = With(page, _mm256_slli_epi32(color, 8), 0xF000);
  page = With(page, _mm256_srli_epi32(color, 12), 0x30);
  page = With(page, _mm256_srli_epi32(color, 6), 0xC);
  __m256i cell = _mm256_and_si256(_mm256_srli_epi32(color, 8), _mm256_set1_epi32(0x800));
  cell = With(cell, _mm256_srli_epi32(color, 1), 0x400);
  cell = With(cell, _mm256_slli_epi32(color, 6), 0x200);
  cell = With(cell, _mm256_srli_epi32(color, 10), 0x100);
  return _mm256_or_si256(page, With(cell, _mm256_srli_epi32(color, 3), 0x80));
}

}  // namespace

void NearestCell_Avx2(uint8_t* answers, const PreparedPalette& palette, uint32_t cell) noexcept {
  const uint32_t red = CellBegin(cell, 2), green = CellBegin(cell, 1), blue = CellBegin(cell, 0);
  Candidates found;
  FindCandidates(palette, blue | red << 16, green, found);
  if (found.count == 1) {
    __builtin_memset(answers, found.list[0], kCellColors);
    return;
  }
  const bool oneCode = red != green && green != blue && red != blue;
  const auto code = static_cast<int32_t>(ColorOrderCode(red, green, blue));
  Squares squares[kPreparedEntries];
  for (uint32_t c = 0; c < found.count; ++c) {
    const uint8_t* const entry = palette.entries + 4 * found.list[c];
    Squares& s = squares[c];
    s.code = static_cast<int32_t>(CodeOf(entry));
    s.same = 255 - found.list[c];
    s.other = 256 + found.list[c];
    __m256i byBlue = SquaresFrom(blue, entry[0]);
    if (oneCode) byBlue = _mm256_add_epi32(byBlue, _mm256_set1_epi32(s.code == code ? s.same : s.other));
    _mm256_store_si256(reinterpret_cast<__m256i*>(s.blue), byBlue);
    _mm256_store_si256(reinterpret_cast<__m256i*>(s.green), SquaresFrom(green, entry[1]));
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(s.red), SquaresFrom(red, entry[2]));
  }
  const __m256i blues =
      _mm256_add_epi32(_mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7), _mm256_set1_epi32(static_cast<int32_t>(blue)));
  for (uint32_t r = 0; r < 8; ++r) {
    if (oneCode) {
      FindSlab<true>(answers, squares, found.count, r, nullptr);
      continue;
    }
    __m256i codes[kLanes];
    for (uint32_t g = 0; g < kLanes; ++g) codes[g] = CodesOf(red + r, green + g, blues);
    FindSlab<false>(answers, squares, found.count, r, codes);
  }
  // Of equal entries that are the colour itself the first wins, whatever its code.
  for (uint32_t c = found.count; c-- > 0;) {
    const uint8_t* const entry = palette.entries + 4 * found.list[c];
    const uint32_t b = entry[0] - blue, g = entry[1] - green, r = entry[2] - red;
    if (b < 8 && g < 8 && r < 8) answers[PlaceOfColor(r, g, b)] = found.list[c];
  }
}

uint32_t NearestEntry_Avx2(const uint8_t* entries, uint32_t count, uint32_t color) noexcept {
  const __m256i target = _mm256_set1_epi32(static_cast<int32_t>(color & 0xFFFFFF));
  const __m256i evenBytes = _mm256_set1_epi32(0x00FF00FF);
  const __m256i greenByte = _mm256_set1_epi32(0xFF00);
  const auto distanceOf = [&](__m256i entry) noexcept {
    const __m256i apart = _mm256_or_si256(_mm256_subs_epu8(entry, target), _mm256_subs_epu8(target, entry));
    const __m256i blueRed = _mm256_and_si256(apart, evenBytes);
    const __m256i green = _mm256_and_si256(apart, greenByte);  // times 256: the upper half of its square is the square
    return _mm256_add_epi32(_mm256_madd_epi16(blueRed, blueRed), _mm256_mulhi_epu16(green, green));
  };
  alignas(32) uint32_t distances[kChunk];
  Best best{color};
  for (uint32_t first = 0; first < count && best.distance != 0; first += kChunk) {
    const uint32_t inChunk = count - first < kChunk ? count - first : kChunk;
    const uint8_t* const chunk = entries + uint64_t{4} * first;
    __m256i smallest = _mm256_set1_epi32(-1);
    uint32_t at = 0;
    for (; at + kLanes <= inChunk; at += kLanes) {
      const __m256i distance = distanceOf(_mm256_loadu_si256(reinterpret_cast<const __m256i*>(chunk + 4 * at)));
      _mm256_store_si256(reinterpret_cast<__m256i*>(distances + at), distance);
      smallest = _mm256_min_epu32(smallest, distance);
    }
    if (at < inChunk) {  // lanes behind the last entry are at the largest distance
      const __m256i lane = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
      const __m256i there = _mm256_cmpgt_epi32(_mm256_set1_epi32(static_cast<int32_t>(inChunk - at)), lane);
      const __m256i entry = _mm256_maskload_epi32(reinterpret_cast<const int*>(chunk + 4 * at), there);
      const __m256i distance = _mm256_or_si256(distanceOf(entry), _mm256_xor_si256(there, _mm256_set1_epi32(-1)));
      _mm256_store_si256(reinterpret_cast<__m256i*>(distances + at), distance);
      smallest = _mm256_min_epu32(smallest, distance);
      at += kLanes;
    }
    best.Take(distances, at, Smallest(smallest), chunk, first);
  }
  return best.index;
}

uint32_t NearestPrepared_Avx2(const PreparedPalette& palette, uint32_t color) noexcept {
  const __m256i blueRed = _mm256_set1_epi32(static_cast<int32_t>(color & 0xFF00FF));
  const __m256i green = _mm256_set1_epi32(static_cast<int32_t>(color >> 8 & 255));
  alignas(32) uint32_t distances[kPreparedEntries];
  __m256i smallest = _mm256_set1_epi32(-1);
  uint32_t at = 0;
  for (; at < palette.count; at += kLanes) {
    const auto* const first = reinterpret_cast<const __m256i*>(palette.blueRed + 2 * at);
    const auto* const second = reinterpret_cast<const __m256i*>(palette.green + 2 * at);
    const __m256i a = _mm256_sub_epi16(_mm256_load_si256(first), blueRed);
    const __m256i b = _mm256_sub_epi16(_mm256_load_si256(second), green);
    const __m256i distance = _mm256_add_epi32(_mm256_madd_epi16(a, a), _mm256_madd_epi16(b, b));
    _mm256_store_si256(reinterpret_cast<__m256i*>(distances + at), distance);
    smallest = _mm256_min_epu32(smallest, distance);
  }
  Best best{color};
  best.Take(distances, at, Smallest(smallest), palette.entries, 0);
  return best.index;
}

bool AnswerColors_Avx2(uint8_t* target, uint32_t* places, const uint8_t* colors, int64_t pixels,
                       const uint8_t* answers) noexcept {
  int64_t done = 0;
  for (; done + kLanes <= pixels; done += kLanes) {
    const __m256i color = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(colors + 4 * done));
    const __m256i place = PlacesOf(color);
    _mm256_storeu_si256(reinterpret_cast<__m256i*>(places + done), place);
  }
  const bool rest = AnswerColors_Portable(target + done, places + done, colors + 4 * done, pixels - done, answers);
  uint64_t zeros = 0;
  for (int64_t i = 0; i < done; i += 8) {
    const uint64_t word = Eight(places + i, answers);
    zeros |= ZeroBytes(word);
    __builtin_memcpy(target + i, &word, 8);
  }
  return rest || zeros != 0;
}

}  // namespace tarn
