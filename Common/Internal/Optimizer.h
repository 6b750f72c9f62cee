#pragma once
// A palette from the colours that occur: a histogram over 15-bit keys, entries of their own for dominant colours, and a
// split of the rest by variance.

#include <cstdint>

#include "Common/Internal/Status.h"
#include "Common/Internal/TrackedBuffer.h"
#include "Kernels/Kernels.h"
#include "tarn/types.h"

namespace tarn {

class Optimizer {
 public:
  Optimizer() noexcept = default;
  ~Optimizer();
  Optimizer(const Optimizer&) = delete;
  Optimizer& operator=(const Optimizer&) = delete;

  /// ERR_NO_MEMORY. @param wanted colours, 1..256 @param full a count that has come so far makes all be halved
  Status Open(uint32_t wanted, uint64_t full = 0x80000000) noexcept;
  /// Counts the pixels of a bitmap whose geometry holds; a row status when rows cannot be read.
  Status Add(BitmapHandle& bitmap) noexcept;
  /// After a bitmap: writes up to `wanted` entries, sorted by red, green, blue from high to low. @return how many
  uint32_t Build(T_PaletteEntry* palette) noexcept;
  /// After Build: 32768 numbers, of each key that occurred the position in the palette + 1, else 0. The caller frees it
  /// with T_FreeUserMatchTable.
  uint32_t* TakeMatchTable() noexcept;

 private:
  struct Box {
    uint32_t first;  // of keys_
    uint32_t count;
    uint32_t mean[3];    // red, green, blue in 5 bits, truncated
    uint64_t spread[3];  // sums of (component - mean)^2 * count
    uint64_t weight;
    double variance;
  };

  void AddPixels(const uint8_t* pixels, int64_t count) noexcept;
  void Gather() noexcept;
  void Measure(Box& box) const noexcept;
  void SeparateDominant() noexcept;
  void SplitBoxes() noexcept;
  void Split(Box& box) noexcept;

  uint32_t wanted_ = 0;
  uint32_t* histogram_ = nullptr;  // becomes the match table
  TrackedBuffer<uint32_t> odd_;
  TrackedBuffer<uint8_t> seen_;
  TrackedBuffer<uint16_t> keys_;
  TrackedBuffer<uint16_t> aside_;
  TrackedBuffer<Box> boxes_;
  uint32_t boxCount_ = 0;
  KeyCounts counts_{};
  uint64_t full_ = 0;
  uint64_t largest_ = 0;  // no count is above
  uint8_t place_[256];    // of boxes in the sorted palette
};

/// Puts entries in descending order of red, green, blue. place[i] becomes the new position of entry i.
void SortColors(T_PaletteEntry* entries, uint32_t count, uint8_t* place) noexcept;

}  // namespace tarn
