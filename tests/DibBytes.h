#pragma once
// Device-independent bitmaps byte by byte, for tests and fuzz seeds: built from what a header may say, and read back
// one pixel at a time.

#include <cstdint>
#include <cstring>
#include <vector>

#include "tarn/tarn.h"

namespace tarn::test {

using Bytes = std::vector<uint8_t>;

inline void Put16(Bytes& bytes, uint32_t value) {
  bytes.push_back(static_cast<uint8_t>(value));
  bytes.push_back(static_cast<uint8_t>(value >> 8));
}
inline void Put32(Bytes& bytes, uint32_t value) {
  Put16(bytes, value);
  Put16(bytes, value >> 16);
}
inline uint32_t Get32(const uint8_t* at) {
  return at[0] | static_cast<uint32_t>(at[1]) << 8 | static_cast<uint32_t>(at[2]) << 16 |
         static_cast<uint32_t>(at[3]) << 24;
}

/// What a DIB is to be.
struct DibPlan {
  uint32_t header = 40;
  int32_t width = 1;
  int32_t height = 1;  // negative: the top row first
  uint32_t bits = 24;
  uint32_t compression = 0;
  uint32_t masks[4] = {};
  uint32_t colors = 0;  // as the header says it; the table has as many, or all that the bits tell apart
  uint32_t imageBytes = 0;
  uint32_t planes = 1;
  int32_t xPerMetre = 0;
  int32_t yPerMetre = 0;

  uint64_t RowBytes() const { return (static_cast<uint64_t>(width) * bits + 31) / 32 * 4; }
  uint32_t TableEntries() const { return header == 12 || colors == 0 ? (bits <= 8 ? 1u << bits : 0) : colors; }
};

/// Header, masks and colour table; the table's bytes are 1, 4, 7, ...
inline Bytes DibHead(const DibPlan& plan) {
  Bytes bytes;
  Put32(bytes, plan.header);
  if (plan.header == 12) {
    Put16(bytes, static_cast<uint32_t>(plan.width));
    Put16(bytes, static_cast<uint32_t>(plan.height));
    Put16(bytes, plan.planes);
    Put16(bytes, plan.bits);
  } else {
    Put32(bytes, static_cast<uint32_t>(plan.width));
    Put32(bytes, static_cast<uint32_t>(plan.height));
    Put16(bytes, plan.planes);
    Put16(bytes, plan.bits);
    Put32(bytes, plan.compression);
    Put32(bytes, plan.imageBytes);
    Put32(bytes, static_cast<uint32_t>(plan.xPerMetre));
    Put32(bytes, static_cast<uint32_t>(plan.yPerMetre));
    Put32(bytes, plan.colors);
    Put32(bytes, 0);
    const bool behind = plan.header == 40 && (plan.compression == 3 || plan.compression == 6);
    const uint32_t masks = behind ? (plan.compression == 3 ? 3 : 4) : plan.header >= 56 ? 4 : plan.header >= 52 ? 3 : 0;
    for (uint32_t i = 0; i < masks; ++i) Put32(bytes, plan.masks[i]);
    while (bytes.size() < plan.header) bytes.push_back(0);
  }
  for (uint32_t i = 0; i < plan.TableEntries() * (plan.header == 12 ? 3 : 4); ++i)
    bytes.push_back(static_cast<uint8_t>(3 * i + 1));
  return bytes;
}

inline Bytes Joined(Bytes head, const Bytes& rows) {
  head.insert(head.end(), rows.begin(), rows.end());
  return head;
}

struct Color {
  uint32_t blue, green, red, alpha;
  bool operator==(const Color&) const = default;
};

/// A pixel of an uncompressed DIB with a header of 40 bytes and no masks; rows count from the top of the picture.
inline Color DibPixel(const uint8_t* dib, int32_t x, int32_t y) {
  const auto width = static_cast<int32_t>(Get32(dib + 4)), height = static_cast<int32_t>(Get32(dib + 8));
  const uint32_t bits = dib[14];
  const uint64_t rowBytes = (static_cast<uint64_t>(width) * bits + 31) / 32 * 4;
  const uint8_t* const table = dib + 40;
  const uint8_t* const row = table + 4 * Get32(dib + 32) + static_cast<uint64_t>(height - 1 - y) * rowBytes;
  const auto at = static_cast<uint32_t>(x);
  if (bits <= 8) {
    const uint32_t index = row[at * bits / 8] >> (8 - bits - at * bits % 8) & ((1u << bits) - 1);
    return {table[4 * index], table[4 * index + 1], table[4 * index + 2], 0};
  }
  if (bits == 16) {
    const uint32_t word = row[2 * at] | row[2 * at + 1] << 8;
    return {word & 31, word >> 5 & 31, word >> 10 & 31, 0};
  }
  const uint8_t* const pixel = row + at * bits / 8;
  return {pixel[0], pixel[1], pixel[2], bits == 32 ? pixel[3] : 0u};
}

/// A movable block with a copy of the bytes, for T_ChangeFromDIB.
inline void* BlockOf(const Bytes& bytes) {
  const uint64_t block = T_OsAllocHandle(T_BLOCK_MOVABLE, bytes.size(), 1, L"here");
  void* const start = T_OsLockHandle(block, 1, L"here");
  if (start && !bytes.empty()) std::memcpy(start, bytes.data(), bytes.size());
  if (start) T_OsUnlockHandle(block, 1, L"here");
  return reinterpret_cast<void*>(static_cast<uintptr_t>(block));
}
inline uint64_t HandleOf(void* block) { return reinterpret_cast<uintptr_t>(block); }
inline void FreeBlock(void* block) { T_OsFreeHandle(HandleOf(block), 1, L"here"); }

}  // namespace tarn::test
