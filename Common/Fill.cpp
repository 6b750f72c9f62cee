// Filling and clearing whole bitmaps.

#include "tarn/fill.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Fill.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/PixelColor.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/Storage.h"

namespace tarn {
namespace {

/// A row of equal pixels is a few bytes again and again, and then padding.
struct RowPattern {
  uint8_t unit[8];
  uint32_t unitBytes;
  uint64_t usedBytes;  // that hold pixels
  uint8_t lastMask;    // the pixels' bits of the last of them
  uint32_t rowBytes;

  /// All bytes of the row are the same one.
  [[nodiscard]] bool IsOneByte() const noexcept {
    for (uint32_t i = 1; i < unitBytes; ++i)
      if (unit[i] != unit[0]) return false;
    return unit[0] == 0 || (usedBytes == rowBytes && lastMask == 0xFF);
  }
};

/// Bits of a unit are set one by one: a row is made once.
RowPattern PatternOf(const BitmapHandle& bitmap, uint64_t pixel) noexcept {
  const auto bits = static_cast<uint32_t>(bitmap.BitsPerPixel);
  const uint64_t rowBits = uint64_t{bits} * static_cast<uint32_t>(bitmap.Width);
  const bool topFirst = bits < 8;
  RowPattern pattern{{}, topFirst ? bits : bits == 12 ? 3 : bits / 8, (rowBits + 7) / 8, 0xFF, bitmap.BytesPerLine};
  for (uint32_t bit = 0; bit < 8 * pattern.unitBytes; ++bit) {
    const uint32_t ofPixel = topFirst ? bits - 1 - bit % bits : bit % bits;
    const uint32_t one = static_cast<uint32_t>(pixel >> ofPixel) & 1;
    pattern.unit[bit / 8] |= static_cast<uint8_t>(one << (topFirst ? 7 - bit % 8 : bit % 8));
  }
  const auto rest = static_cast<uint32_t>(rowBits % 8);
  if (rest) pattern.lastMask = static_cast<uint8_t>(topFirst ? 0xFF00 >> rest : 0xFF >> (8 - rest));
  return pattern;
}

/// Makes the first `bytes` bytes, which begin with `made` good ones, repeat these.
void Repeat(uint8_t* start, uint64_t made, uint64_t bytes) noexcept {
  while (made < bytes) {
    const uint64_t more = made < bytes - made ? made : bytes - made;
    std::memcpy(start + made, start, more);
    made += more;
  }
}

void MakeRow(uint8_t* row, const RowPattern& pattern) noexcept {
  if (pattern.IsOneByte()) {
    std::memset(row, pattern.unit[0], pattern.rowBytes);
    return;
  }
  const uint64_t used = pattern.usedBytes;
  const uint64_t first = pattern.unitBytes < used ? pattern.unitBytes : used;
  std::memcpy(row, pattern.unit, first);
  Repeat(row, first, used);
  row[used - 1] &= pattern.lastMask;
  std::memset(row + used, 0, pattern.rowBytes - used);
}

/// Copies out of the first-level cache, short enough not to become string moves, are nearly as fast as a fill; longer
/// ones are not.
constexpr uint64_t kStampBytes = 3584;
constexpr uint64_t kLine = 64;  // of the cache: stamps of whole lines stay aligned

void Stamp(uint8_t* target, uint64_t bytes, const uint8_t* stamp, uint64_t stampBytes) noexcept {
  for (; bytes > stampBytes; bytes -= stampBytes, target += stampBytes) std::memcpy(target, stamp, stampBytes);
  std::memcpy(target, stamp, bytes);
}

/// Rows behind each other. The first ones, or its first pixels, are the stamp for all.
void FillBlock(uint8_t* start, uint64_t bytes, const RowPattern& pattern) noexcept {
  if (pattern.IsOneByte()) {
    std::memset(start, pattern.unit[0], bytes);
    return;
  }
  MakeRow(start, pattern);
  const uint64_t rowBytes = pattern.rowBytes;
  const uint64_t used = pattern.usedBytes;
  const bool seamless = used == rowBytes && pattern.lastMask == 0xFF;  // then whole units fill it
  if (seamless || 2 * rowBytes <= kStampBytes) {
    const uint64_t period = seamless ? kLine * pattern.unitBytes : rowBytes;
    const uint64_t whole = kStampBytes / period * period;
    const uint64_t stamp = whole < bytes ? whole : bytes;
    Repeat(start, rowBytes, stamp);
    Stamp(start + stamp, bytes - stamp, start, stamp);
    return;
  }
  const uint64_t most = used - 1 < kStampBytes ? used - 1 : kStampBytes;  // the last byte may be cut
  const uint64_t period = kLine * pattern.unitBytes;
  const uint64_t stamp = most / period * period;
  for (uint64_t at = rowBytes; at < bytes; at += rowBytes) {
    uint8_t* const row = start + at;
    Stamp(row, used, start, stamp);
    row[used - 1] &= pattern.lastMask;
    std::memset(row + used, 0, rowBytes - used);
  }
}

Status FillEachRow(BitmapHandle& bitmap, const RowPattern& pattern, Progress& progress) noexcept {
  RowWriter target(bitmap, TARN_HERE);
  TARN_TRY(target.Open());
  for (int32_t row = 0; row < bitmap.Height; ++row) {
    MakeRow(target.Row(row), pattern);
    TARN_TRY(target.Commit());
    TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

/// Every row lies in memory.
void FillInPlace(BitmapHandle& bitmap, const RowPattern& pattern) noexcept {
  if (uint8_t* const block = BlockOf(bitmap)) {
    FillBlock(block, SpanBytes(bitmap), pattern);
    return;
  }
  for (int32_t row = 0; row < bitmap.Height; ++row) MakeRow(DirectRow(bitmap, row), pattern);
}

Status Fill(BitmapHandle& bitmap, uint64_t pixel) noexcept {
  {
    const BitmapLock lock(bitmap);
    if (LiesInMemory(bitmap)) {
      Progress ahead(1);  // what follows cannot be stopped
      TARN_TRY(ahead.Start());
      TARN_TRY(ahead.Step());
      FillInPlace(bitmap, PatternOf(bitmap, pixel));
      return SUCCESS;
    }
  }
  Progress progress(bitmap.Height);
  TARN_TRY(progress.Start());
  ScratchBitmap result;
  TARN_TRY(result.Create(bitmap, bitmap.Width, bitmap.Height, bitmap.BitsPerPixel));
  if (pixel == 0) {  // as new storage is
    for (int32_t row = 0; row < bitmap.Height; ++row) TARN_TRY(progress.Step());
  } else {
    const BitmapLock lock(result.Record());
    TARN_TRY(FillEachRow(result.Record(), PatternOf(result.Record(), pixel), progress));
  }
  result.Commit(bitmap);
  return SUCCESS;
}

Status RequireFillable(const BitmapHandle* bitmap) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_NO_BITMAP));
  return GeometryHolds(*bitmap) ? SUCCESS : ERR_INVALID_PARAMETER;
}

}  // namespace

void FillRows(BitmapHandle& bitmap, uint64_t pixel) noexcept { FillInPlace(bitmap, PatternOf(bitmap, pixel)); }

}  // namespace tarn

using namespace tarn;

int32_t T_FillBitmap(BitmapHandle* bitmap, uint32_t color) noexcept {
  TARN_TRY(RequireFillable(bitmap));
  if (const T_RegionHooks* const hooks = RegionHooks(); hooks && hooks->Fill && bitmap->Region)
    return hooks->Fill(bitmap, color);
  uint64_t pixel = 0;
  TARN_TRY(TaggedPixelOf(*bitmap, color, pixel));
  return Fill(*bitmap, pixel).code;
}

int32_t T_ClearBitmap(BitmapHandle* bitmap) noexcept {
  TARN_TRY(RequireFillable(bitmap));
  return Fill(*bitmap, 0).code;
}
