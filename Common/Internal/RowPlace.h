#pragma once
// Where a row of contiguous storage begins. Every row that moves asks, so all of it is inline.

#include <cstdint>

#include "Common/Internal/Geometry.h"
#include "Common/Internal/Library.h"
#include "Common/Internal/Storage.h"

namespace tarn {

// Chains of the nodes that the storages themselves hold, guarded by rowSection: 20,000 live bitmaps make chains of
// about five.
constexpr uint32_t kStorageBucketBits = 12;
constexpr uint32_t kStorageBuckets = 1u << kStorageBucketBits;
extern StorageNode* storageBuckets[kStorageBuckets];

inline uint32_t StorageBucketOf(const void* data) noexcept {
  const uint64_t key = reinterpret_cast<uintptr_t>(data) >> 3;
  return static_cast<uint32_t>((key * UINT64_C(0x9E3779B97F4A7C15)) >> (64 - kStorageBucketBits));
}

/// FindStorage without entering rowSection, for callers that hold it.
inline StorageNode* FindStorageLocked(const void* data) noexcept {
  StorageNode* node = storageBuckets[StorageBucketOf(data)];
  while (node && node->data != data) node = node->next;
  return node;
}

/// A row's first byte and how far the storage reaches.
struct RowPlace {
  Status status;
  uint64_t offset;
  uint64_t limit;
  /// Bytes of a transfer from `start` on that lie inside.
  [[nodiscard]] uint64_t Clip(uint64_t start, uint64_t bytes) const noexcept {
    if (start >= limit) return 0;
    return bytes < limit - start ? bytes : limit - start;
  }
};

/// Uses and updates the record's offset cache, so that walking line by line, up or down, never multiplies.
inline RowPlace PlaceOf(BitmapHandle& bitmap, uint32_t row) noexcept {
  const platform::Guard guard(rowSection);
  uint64_t limit = SpanBytes(bitmap);
  if (bitmap.Flags & T_FLAG_IN_MEMORY) {
    if (const StorageNode* node = FindStorageLocked(bitmap.Data)) {
      if (node->kind != StorageKind::kBlock) return {ERR_NO_MEMORY, 0, 0};
      if (node->bytes < limit) limit = node->bytes;
    }
  }
  const uint32_t rowBytes = bitmap.BytesPerLine;
  const uint32_t cached = bitmap.CachedRow;
  uint64_t offset = bitmap.CachedRowOffset;
  if (row == cached + 1) {
    offset += rowBytes;
  } else if (row + 1 == cached) {
    offset -= rowBytes;
  } else if (row != cached) {
    offset = static_cast<uint64_t>(row) * rowBytes;
  }
  if (offset > limit) offset = static_cast<uint64_t>(row) * rowBytes;  // a cache that somebody else wrote to
  bitmap.CachedRowOffset = offset;
  bitmap.CachedRow = row;
  return {SUCCESS, offset, limit};
}

}  // namespace tarn
