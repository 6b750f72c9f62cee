#pragma once
// Whether two bitmaps' rows may be the same memory.

#include <cstdint>

#include "Common/Internal/Geometry.h"
#include "Common/Internal/Rows.h"

namespace tarn {

enum class Sharing : uint8_t {
  kNone,
  kSameRows,  // a row of one is the row of the same number of the other
  kSomehow
};

/// Of bitmaps whose rows lie in memory. Locks both meanwhile.
inline Sharing SharingOf(BitmapHandle& a, BitmapHandle& b) noexcept {
  const BitmapLock lockA(a);
  const BitmapLock lockB(b);
  const uint8_t* const blockA = BlockOf(a);
  const uint8_t* const blockB = BlockOf(b);
  if (!blockA || !blockB) return a.Data && a.Data == b.Data ? Sharing::kSameRows : Sharing::kNone;
  const auto startA = reinterpret_cast<uintptr_t>(blockA), startB = reinterpret_cast<uintptr_t>(blockB);
  if (startA + SpanBytes(a) <= startB || startB + SpanBytes(b) <= startA) return Sharing::kNone;
  return startA == startB && a.BytesPerLine == b.BytesPerLine ? Sharing::kSameRows : Sharing::kSomehow;
}

}  // namespace tarn
