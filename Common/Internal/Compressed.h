#pragma once
// Compressed one-bit storage: each row is a list of run lengths in the heap of its block of 32,768 rows.

#include <cstdint>

#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

constexpr uint32_t kRowsPerSegment = 32768;

struct RowRuns {
  const uint16_t* words;  // null when the row has no record: all zeros
  uint32_t count;
};

/// Whether the record's Data is a compressed store; the row and width limits it was made with.
bool CompressedExtent(const BitmapHandle& bitmap, uint32_t& width, uint32_t& rows) noexcept;
/// Stored runs of a row below the store's rows; valid until the next put.
RowRuns StoredRuns(const BitmapHandle& bitmap, uint32_t row) noexcept;
/// Stores a row's runs as they stand and recomputes Size. Failure leaves the row as it was.
Status StoreRuns(BitmapHandle& bitmap, uint32_t row, const uint16_t* words, uint32_t count) noexcept;

/// Grows or trims the heaps, last to first; false when one could not. Size is recomputed.
bool GrowHeaps(BitmapHandle& bitmap, uint64_t bytes) noexcept;
bool TrimHeaps(BitmapHandle& bitmap) noexcept;

}  // namespace tarn
