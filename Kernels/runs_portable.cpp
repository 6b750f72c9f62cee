// Run lengths of one-bit rows, 64 pixels at a time. Compressing finds the transitions between pixel values, collects
// their positions for a block of the row, then writes the differences; expanding keeps the word under construction in a
// register and stores it after every run. Neither has branches that follow single runs of the picture.

#include <cstdint>
#include <cstring>

#include "Kernels/Kernels.h"

namespace tarn {

uint8_t* SplitLongRun(uint8_t* target, uint64_t& runStart, uint64_t runEnd) noexcept {
  while (runEnd - runStart > 65535) {
    // 8191 whole bytes after the rest of the byte in which the run begins: one more would pass 65535.
    const uint64_t piece = 65528 + (-runStart & 7);
    const uint32_t words = static_cast<uint32_t>(piece);  // the upper half is the run of length 0
    std::memcpy(target, &words, sizeof words);
    target += sizeof words;
    runStart += piece;
  }
  return target;
}

namespace {

constexpr uint32_t kBlockBytes = 1024;  // of source: positions fit 16 bits, and their list the first-level cache
constexpr uint32_t kBlockPixels = 8 * kBlockBytes;
constexpr uint64_t kOnes = ~UINT64_C(0);

/// Positions of the set bits of a byte, the top bit first, and their number.
struct BitTable {
  uint16_t positions[256][8];
  uint8_t counts[256];
};
constexpr BitTable MakeBitTable() noexcept {
  BitTable table{};
  for (uint32_t byte = 0; byte < 256; ++byte) {
    for (uint16_t bit = 0; bit < 8; ++bit) {
      if (byte & (0x80u >> bit)) table.positions[byte][table.counts[byte]++] = bit;
    }
  }
  return table;
}
constexpr BitTable kBits = MakeBitTable();

uint64_t Load64(const void* from) noexcept {
  uint64_t value;
  std::memcpy(&value, from, sizeof value);
  return value;
}
void Store64(void* to, uint64_t value) noexcept { std::memcpy(to, &value, sizeof value); }

/// 64 pixels, the first one in the top bit.
uint64_t LoadPixels(const uint8_t* from) noexcept { return __builtin_bswap64(Load64(from)); }
void StorePixels(uint8_t* to, uint64_t pixels) noexcept { Store64(to, __builtin_bswap64(pixels)); }

// ---- Compressing ---------------------------------------------------------------------------------------------------

/// Set where a pixel differs from the one before it; `before` is the word of the 64 pixels before.
uint64_t Transitions(uint64_t word, uint64_t before) noexcept { return word ^ (word >> 1 | before << 63); }

/// Appends base + the positions of the set bits. Writes 8 entries at a time: up to 8 beyond what it appends.
uint16_t* AppendPositions(uint16_t* positions, uint64_t transitions, uint32_t base) noexcept {
  uint64_t lanes = base * UINT64_C(0x0001000100010001);
  for (int shift = 56; shift >= 0; shift -= 8) {
    const uint32_t byte = (transitions >> shift) & 0xFF;
    Store64(positions, Load64(kBits.positions[byte]) + lanes);
    Store64(positions + 4, Load64(kBits.positions[byte] + 4) + lanes);
    positions += kBits.counts[byte];
    lanes += UINT64_C(0x0008000800080008);
  }
  return positions;
}

/// Four 16-bit differences.
uint64_t Subtract4(uint64_t a, uint64_t b) noexcept {
  constexpr uint64_t kTop = UINT64_C(0x8000800080008000);
  return ((a | kTop) - (b & ~kTop)) ^ ((a ^ ~b) & kTop);
}

/// Writes the runs that end at positions[1] .. positions[count], counted from blockStart; positions[0] is scratch.
uint8_t* WriteRuns(uint8_t* target, uint64_t& runStart, uint64_t blockStart, uint16_t* positions,
                   uint32_t count) noexcept {
  const uint64_t firstEnd = blockStart + positions[1];
  if (firstEnd - runStart > 65535) target = SplitLongRun(target, runStart, firstEnd);
  // Modulo 65536 the first difference is right too, wherever the run began.
  positions[0] = static_cast<uint16_t>(runStart - blockStart);
  uint32_t i = 0;
  for (; i + 4 <= count; i += 4)
    Store64(target + 2 * size_t{i}, Subtract4(Load64(positions + i + 1), Load64(positions + i)));
  for (; i < count; ++i) {
    const uint16_t run = static_cast<uint16_t>(positions[i + 1] - positions[i]);
    std::memcpy(target + 2 * size_t{i}, &run, sizeof run);
  }
  runStart = blockStart + positions[count];
  return target + 2 * uint64_t{count};
}

// ---- Expanding -----------------------------------------------------------------------------------------------------

uint64_t LoadRun(const uint8_t* from) noexcept {
  uint16_t run;
  std::memcpy(&run, from, sizeof run);
  return run;
}

/// The sum of four 16-bit words, below 2^18.
uint64_t Sum4(uint64_t words) noexcept {
  constexpr uint64_t kEven = UINT64_C(0x0000FFFF0000FFFF);
  const uint64_t pairs = (words & kEven) + (words >> 16 & kEven);
  return (pairs & 0xFFFFFFFF) + (pairs >> 32);
}

/// Sets pixels first .. last - 1.
void SetPixels(uint8_t* target, uint64_t first, uint64_t last) noexcept {
  if (first >= last) return;
  uint8_t* const head = target + first / 8;
  uint8_t* const tail = target + last / 8;
  const uint8_t headMask = static_cast<uint8_t>(0xFF >> (first & 7));
  const uint8_t tailMask = static_cast<uint8_t>(~(0xFF >> (last & 7)));
  if (head == tail) {
    *head |= headMask & tailMask;
    return;
  }
  *head |= headMask;
  std::memset(head + 1, 0xFF, static_cast<size_t>(tail - head - 1));
  if (tailMask) *tail |= tailMask;  // a mask of 0 may stand for the byte behind the row
}

}  // namespace

uint32_t CompressRuns_Portable(void* runs, const uint8_t* source, uint32_t firstBit, uint32_t pixels) noexcept {
  uint8_t* target = static_cast<uint8_t*>(runs);
  if (!pixels) {
    std::memset(target, 0, 2);
    return 1;
  }
  const uint64_t end = uint64_t{firstBit} + pixels;  // positions count from bit 0 of source
  const uint64_t fullBytes = end / 64 * 8;
  const uint32_t tailPixels = end % 64;
  uint16_t list[1 + kBlockPixels + 64 + 1 + 8];
  uint64_t runStart = firstBit;
  uint64_t before = 0;
  uint64_t mask = kOnes >> firstBit;  // of the first word: pixels before the start count as zeros
  uint64_t blockByte = 0;
  for (;;) {
    uint16_t* positions = list + 1;
    const uint8_t* const block = source + blockByte;
    const bool last = fullBytes - blockByte <= kBlockBytes;
    const uint32_t bytes = last ? static_cast<uint32_t>(fullBytes - blockByte) : kBlockBytes;
    uint32_t byte = 0;
    if (bytes >= 8) {
      const uint64_t word = LoadPixels(block) & mask;
      positions = AppendPositions(positions, Transitions(word, before), 0);
      before = word;
      mask = kOnes;
      byte = 8;
    }
    while (byte < bytes) {
      if (bytes - byte >= 32) {
        const uint64_t a = LoadPixels(block + byte);
        const uint64_t b = LoadPixels(block + byte + 8);
        const uint64_t c = LoadPixels(block + byte + 16);
        const uint64_t d = LoadPixels(block + byte + 24);
        const uint64_t first = Transitions(a, before);
        const uint64_t second = Transitions(b, a);
        const uint64_t third = Transitions(c, b);
        const uint64_t fourth = Transitions(d, c);
        if (first | second) {
          positions = AppendPositions(positions, first, 8 * byte);
          positions = AppendPositions(positions, second, 8 * byte + 64);
        }
        if (third | fourth) {
          positions = AppendPositions(positions, third, 8 * byte + 128);
          positions = AppendPositions(positions, fourth, 8 * byte + 192);
        }
        before = d;
        byte += 32;
      } else {
        const uint64_t word = LoadPixels(block + byte);
        positions = AppendPositions(positions, Transitions(word, before), 8 * byte);
        before = word;
        byte += 8;
      }
    }
    if (last) {
      if (tailPixels) {
        uint64_t word = 0;
        std::memcpy(&word, block + bytes, (tailPixels + 7) / 8);
        word = __builtin_bswap64(word) & mask;
        positions = AppendPositions(positions, Transitions(word, before) & ~(kOnes >> tailPixels), 8 * bytes);
      }
      *positions++ = static_cast<uint16_t>(8 * bytes + tailPixels);
    }
    const uint32_t count = static_cast<uint32_t>(positions - (list + 1));
    if (count) target = WriteRuns(target, runStart, 8 * blockByte, list, count);
    if (last) break;
    blockByte += kBlockBytes;
  }
  return static_cast<uint32_t>((target - static_cast<uint8_t*>(runs)) / 2);
}

void ExpandRuns_Portable(uint8_t* target, const void* runs, uint32_t words, uint32_t firstPixel,
                         uint32_t pixels) noexcept {
  const uint64_t bytes = (uint64_t{pixels} + 7) / 8;
  std::memset(target, 0, bytes);
  const uint8_t* next = static_cast<const uint8_t*>(runs);
  const uint8_t* const end = next + 2 * uint64_t{words};

  uint64_t skip = firstPixel;
  while (end - next >= 8) {
    const uint64_t sum = Sum4(Load64(next));
    if (sum > skip) break;
    skip -= sum;
    next += 8;
  }
  bool ones = false;
  while (next != end && LoadRun(next) <= skip) {
    skip -= LoadRun(next);
    next += 2;
    ones = !ones;
  }
  uint64_t position = 0 - skip;  // may lie before the first pixel until the run that holds it is added
  if (ones && next != end) {
    position += LoadRun(next);
    next += 2;
    SetPixels(target, 0, position < pixels ? position : pixels);
  }

  // The word in which the last run ended, as far as it is known. Words that no run of ones reaches are zero already.
  uint64_t at = position / 64;
  uint64_t word = ones ? ~(kOnes >> (position & 63)) : 0;
  const uint64_t wholeWords = uint64_t{pixels} / 64 * 64;
  while (end - next >= 4) {
    const uint64_t start = position + LoadRun(next);
    const uint64_t stop = start + LoadRun(next + 2);
    if (stop >= wholeWords) break;
    next += 4;
    const uint64_t startAt = start / 64;
    const uint64_t stopAt = stop / 64;
    word = (startAt == at ? word : 0) ^ kOnes >> (start & 63);
    StorePixels(target + 8 * startAt, word);
    for (uint64_t between = startAt + 1; between < stopAt; ++between) Store64(target + 8 * between, kOnes);
    word = (stopAt == startAt ? word : kOnes) ^ kOnes >> (stop & 63);
    StorePixels(target + 8 * stopAt, word);
    at = stopAt;
    position = stop;
  }
  for (; end - next >= 4; next += 4) {
    const uint64_t start = position + LoadRun(next);
    if (start >= pixels) break;
    position = start + LoadRun(next + 2);
    SetPixels(target, start, position < pixels ? position : pixels);
  }
}

}  // namespace tarn
