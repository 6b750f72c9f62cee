#pragma once
// Small guards for tests: settings that go back, bitmaps that free themselves, a look at what is held.

#include <cstring>
#include <vector>

#include "Common/Internal/Ledger.h"
#include "Platform/Platform.h"
#include "tarn/tarn.h"

namespace tarn::test {

/// A copy of a field: the packed record's own may not be bound to a reference, which assertions do.
template <class T>
T V(T value) {
  return value;
}

/// The thread's storage thresholds, temporary directory and callbacks as they were.
class ThresholdScope {
 public:
  ThresholdScope() { T_GetMemoryThresholds(&threshold_, &block_, &tile_, &conventional_, &views_); }
  ~ThresholdScope() { T_SetMemoryThresholds(threshold_, block_, tile_, conventional_, views_, 31); }
  ThresholdScope(const ThresholdScope&) = delete;

 private:
  int32_t threshold_ = 0;
  int64_t block_ = 0;
  int64_t tile_ = 0;
  int32_t conventional_ = 0;
  int32_t views_ = 0;
};

struct Bitmap : BitmapHandle {
  Bitmap() : BitmapHandle{} {}
  Bitmap(int32_t width, int32_t height, int32_t bits) : BitmapHandle{} {
    T_InitBitmap(this, sizeof(BitmapHandle), width, height, bits);
  }
  Bitmap(const Bitmap&) = delete;
  ~Bitmap() { T_FreeBitmap(this); }
  uint32_t Reported() const {
    uint32_t type = 0;
    T_GetBitmapMemoryInfo(this, &type, nullptr, nullptr, nullptr, nullptr, nullptr);
    return type;
  }
};

inline std::vector<uint8_t> Row(BitmapHandle& bitmap, uint32_t row) {
  std::vector<uint8_t> line(bitmap.BytesPerLine, 0xCC);
  if (T_GetBitmapRow(&bitmap, line.data(), row, line.size()) != static_cast<int64_t>(line.size())) line.clear();
  return line;
}

/// Bytes of one pixel row that depend on seed and row, padding included.
inline std::vector<uint8_t> Pattern(const BitmapHandle& bitmap, uint32_t row, uint32_t seed) {
  std::vector<uint8_t> line(bitmap.BytesPerLine);
  uint32_t state = seed * 2654435761u + row * 40503u + 1;
  for (uint8_t& byte : line) {
    state = state * 1664525u + 1013904223u;
    byte = static_cast<uint8_t>(state >> 24);
  }
  // Bits past the last pixel are zero, as compressed rows give them back.
  const uint64_t bits = static_cast<uint64_t>(bitmap.Width) * static_cast<uint32_t>(bitmap.BitsPerPixel);
  for (uint64_t bit = bits; bit < line.size() * 8; ++bit) line[bit / 8] &= static_cast<uint8_t>(~(0x80u >> bit % 8));
  return line;
}

inline void Fill(BitmapHandle& bitmap, uint32_t seed) {
  for (int32_t row = 0; row < bitmap.Height; ++row) {
    const auto line = Pattern(bitmap, static_cast<uint32_t>(row), seed);
    T_PutBitmapRow(&bitmap, line.data(), static_cast<uint32_t>(row), line.size());
  }
}

/// Rows that differ from the pattern; -1 when the first `rows` rows are all right.
inline int32_t FirstDifference(BitmapHandle& bitmap, uint32_t seed, int32_t rows) {
  for (int32_t row = 0; row < rows; ++row) {
    if (Row(bitmap, static_cast<uint32_t>(row)) != Pattern(bitmap, static_cast<uint32_t>(row), seed)) return row;
  }
  return -1;
}

/// What the platform holds, compared as bytes.
inline bool SameHeld(const platform::Counters& a, const platform::Counters& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

}  // namespace tarn::test
