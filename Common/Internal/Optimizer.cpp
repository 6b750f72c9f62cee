#include "Common/Internal/Optimizer.h"

#include <cstring>
#include <utility>

#include "Common/Internal/ColorLines.h"
#include "Common/Internal/Rows.h"
#include "tarn/memory.h"

namespace tarn {
namespace {

constexpr uint32_t kKeys = 32768;
constexpr uint32_t kNotSeparated = 63;  // entries that stay for the split at least

uint32_t Component(uint32_t key, int channel) noexcept { return key >> (10 - 5 * channel) & 31; }

uint32_t Order(const T_PaletteEntry& entry) noexcept {
  return static_cast<uint32_t>(entry.Red << 16 | entry.Green << 8 | entry.Blue);
}

uint8_t Widened(uint32_t level) noexcept { return static_cast<uint8_t>(level << 3 | level >> 2); }

}  // namespace

void SortColors(T_PaletteEntry* entries, uint32_t count, uint8_t* place) noexcept {
  uint8_t origin[256];
  for (uint32_t i = 0; i < count; ++i) origin[i] = static_cast<uint8_t>(i);
  // Every later entry that is greater is exchanged into the position: where equal entries end follows from that.
  for (uint32_t i = 0; i < count; ++i) {
    for (uint32_t later = i + 1; later < count; ++later) {
      if (Order(entries[later]) <= Order(entries[i])) continue;
      std::swap(entries[i], entries[later]);
      std::swap(origin[i], origin[later]);
    }
  }
  for (uint32_t i = 0; i < count; ++i) place[origin[i]] = static_cast<uint8_t>(i);
}

Optimizer::~Optimizer() {
  const Here here = TARN_HERE;
  if (histogram_) T_LocalFree(histogram_, here.line, here.file);
}

Status Optimizer::Open(uint32_t wanted, uint64_t full) noexcept {
  const Here here = TARN_HERE;
  wanted_ = wanted;
  full_ = full;
  histogram_ = static_cast<uint32_t*>(T_LocalAllocInit(kKeys, sizeof(uint32_t), here.line, here.file));
  if (!histogram_) return ERR_NO_MEMORY;
  odd_ = TrackedBuffer<uint32_t>::Zeroed(kKeys, TARN_HERE);
  seen_ = TrackedBuffer<uint8_t>::Zeroed(kKeys, TARN_HERE);
  keys_ = TrackedBuffer<uint16_t>(kKeys, TARN_HERE);
  aside_ = TrackedBuffer<uint16_t>(kKeys, TARN_HERE);
  boxes_ = TrackedBuffer<Box>(wanted, TARN_HERE);
  if (!odd_ || !seen_ || !keys_ || !aside_ || !boxes_) return ERR_NO_MEMORY;
  counts_ = {{histogram_, odd_.data()}, seen_.data(), keys_.data(), 0};
  return SUCCESS;
}

// ---- Histogram -----------------------------------------------------------------------------------------------------

/// Brings both tables into the first one; called when a count may be full.
void Optimizer::Gather() noexcept {
  largest_ = 0;
  for (uint32_t key = 0; key < kKeys; ++key) {
    histogram_[key] += odd_[key];
    odd_[key] = 0;
    if (histogram_[key] > largest_) largest_ = histogram_[key];
  }
}

void Optimizer::AddPixels(const uint8_t* pixels, int64_t count) noexcept {
  if (largest_ + static_cast<uint64_t>(count) > full_) Gather();  // gather exact sums
  if (largest_ + static_cast<uint64_t>(count) <= full_) {
    Kernels().countKeys(counts_, pixels, count);
    largest_ += static_cast<uint64_t>(count);
    return;
  }
  for (int64_t i = 0; i < count; ++i, pixels += 4) {  // one by one: the next may be the one too many
    const uint32_t key = static_cast<uint32_t>(pixels[2] >> 3 << 10 | pixels[1] >> 3 << 5 | pixels[0] >> 3);
    if (histogram_[key] == full_) {
      for (uint32_t at = 0; at < kKeys; ++at)
        histogram_[at] = static_cast<uint32_t>((uint64_t{histogram_[at]} + 1) >> 1);
    }
    ++histogram_[key];
    if (seen_[key]) continue;
    seen_[key] = 1;
    keys_[counts_.keyCount++] = static_cast<uint16_t>(key);
  }
  Gather();  // recount the largest
}

Status Optimizer::Add(BitmapHandle& bitmap) noexcept {
  ColorLines lines;
  TARN_TRY(lines.Open(bitmap));
  const BitmapLock lock(bitmap);
  RowReader rows(bitmap, TARN_HERE);
  TARN_TRY(rows.Open());
  constexpr int64_t kPart = 1024;
  alignas(32) uint8_t pixels[4 * kPart];
  const int32_t height = bitmap.Height;
  const int64_t width = bitmap.Width;
  for (int32_t row = 0; row < height; ++row) {
    const uint8_t* const line = rows.Row(row);
    if (!line) return rows.status();
    for (int64_t first = 0; first < width; first += kPart) {
      const int64_t count = width - first < kPart ? width - first : kPart;
      lines.Colors(pixels, line, first, count);
      AddPixels(pixels, count);
    }
  }
  return SUCCESS;
}

// ---- Boxes ---------------------------------------------------------------------------------------------------------

/// Sums are exact: 2^32 pixels * 31^2 * 3 fits 64 bits.
void Optimizer::Measure(Box& box) const noexcept {
  uint64_t sums[3] = {0, 0, 0};
  box.weight = 0;
  for (uint32_t i = box.first; i < box.first + box.count; ++i) {
    const uint32_t key = keys_[i];
    const uint64_t count = histogram_[key];
    box.weight += count;
    for (int channel = 0; channel < 3; ++channel) sums[channel] += Component(key, channel) * count;
  }
  uint64_t spread = 0;
  for (int channel = 0; channel < 3; ++channel) {
    box.mean[channel] = static_cast<uint32_t>(sums[channel] / box.weight);  // NOLINT: every key was counted
    box.spread[channel] = 0;
  }
  for (uint32_t i = box.first; i < box.first + box.count; ++i) {
    const uint32_t key = keys_[i];
    for (int channel = 0; channel < 3; ++channel) {
      const int64_t away = int64_t{Component(key, channel)} - box.mean[channel];
      box.spread[channel] += static_cast<uint64_t>(away * away) * histogram_[key];
    }
  }
  for (const uint64_t channel : box.spread) spread += channel;
  box.variance = static_cast<double>(spread) / static_cast<double>(box.weight);
}

/// While there are entries to spare, a key that is more than twice as frequent as any other left gets a box of its own.
void Optimizer::SeparateDominant() noexcept {
  boxes_[0] = {};
  boxes_[0].count = counts_.keyCount;
  boxCount_ = 1;
  while (wanted_ >= boxCount_ + kNotSeparated && boxes_[boxCount_ - 1].count >= 2) {
    Box& box = boxes_[boxCount_ - 1];
    uint32_t best = box.first;
    uint64_t most = 0, second = 0;
    for (uint32_t i = box.first; i < box.first + box.count; ++i) {
      const uint64_t count = histogram_[keys_[i]];
      if (count > most) {
        second = most;
        most = count;
        best = i;
      } else if (count > second) {
        second = count;
      }
    }
    if (most <= 2 * second) return;
    // To the front; the others keep their order.
    const uint16_t key = keys_[best];
    std::memmove(&keys_[box.first + 1], &keys_[box.first], (best - box.first) * sizeof(uint16_t));
    keys_[box.first] = key;
    Box& rest = boxes_[boxCount_++];
    rest = {};
    rest.first = box.first + 1;
    rest.count = box.count - 1;
    box.count = 1;
    Measure(box);
  }
}

/// Keys up to the mean of the channel that varies most stay, the others become the last box.
void Optimizer::Split(Box& box) noexcept {
  int channel = 0;
  for (int other = 1; other < 3; ++other) {
    if (box.spread[other] > box.spread[channel]) channel = other;
  }
  uint32_t kept = 0, moved = 0;
  for (uint32_t i = box.first; i < box.first + box.count; ++i) {
    const uint16_t key = keys_[i];
    if (Component(key, channel) <= box.mean[channel]) {
      keys_[box.first + kept++] = key;
    } else {
      aside_[moved++] = key;
    }
  }
  std::memcpy(&keys_[box.first + kept], aside_.data(), moved * sizeof(uint16_t));
  Box& fresh = boxes_[boxCount_++];
  fresh = {};
  fresh.first = box.first + kept;
  fresh.count = moved;
  box.count = kept;
  Measure(box);
  Measure(fresh);
}

void Optimizer::SplitBoxes() noexcept {
  Measure(boxes_[boxCount_ - 1]);
  while (boxCount_ < wanted_) {
    uint32_t chosen = 0;
    for (uint32_t i = 1; i < boxCount_; ++i) {
      const double more = boxes_[i].variance - boxes_[chosen].variance;
      if (more > 0 || (more == 0 && boxes_[i].count > boxes_[chosen].count)) chosen = i;
    }
    if (boxes_[chosen].count < 2) return;
    Split(boxes_[chosen]);
  }
}

uint32_t Optimizer::Build(T_PaletteEntry* palette) noexcept {
  Gather();
  std::memset(palette, 0, wanted_ * sizeof(T_PaletteEntry));
  boxCount_ = 0;
  SeparateDominant();
  SplitBoxes();
  for (uint32_t i = 0; i < boxCount_; ++i) {
    const Box& box = boxes_[i];
    palette[i] = {Widened(box.mean[2]), Widened(box.mean[1]), Widened(box.mean[0]), 0};
  }
  SortColors(palette, boxCount_, place_);
  return boxCount_;
}

uint32_t* Optimizer::TakeMatchTable() noexcept {
  std::memset(histogram_, 0, kKeys * sizeof(uint32_t));
  for (uint32_t i = 0; i < boxCount_; ++i) {
    const Box& box = boxes_[i];
    for (uint32_t at = box.first; at < box.first + box.count; ++at) histogram_[keys_[at]] = place_[i] + 1u;
  }
  return std::exchange(histogram_, nullptr);
}

}  // namespace tarn
