// Copies of a rectangle, from any column to any column, and trimming.

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Duplicate.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/Overlays.h"
#include "Kernels/Kernels.h"
#include "tarn/copy.h"

namespace tarn {
namespace {

struct Rectangle {
  int32_t left;  // may be negative
  int32_t top;
  int32_t width;
  int32_t height;
};

// Positions of overlays and regions are anybody's: they wrap around instead of overflowing.
int32_t Minus(int32_t a, int32_t b) noexcept {
  return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

int64_t Least(int64_t a, int64_t b) noexcept { return a < b ? a : b; }
int64_t Most(int64_t a, int64_t b) noexcept { return a > b ? a : b; }

/// What of one direction of a rectangle lies inside the source.
struct Extent {
  Extent(int32_t start, int32_t length, int32_t limit) noexcept
      : first(Most(start, 0)), count(Least(int64_t{start} + length, limit) - first), target(first - start) {}
  int64_t first;
  int64_t count;   // not above 0: nothing
  int64_t target;  // where it goes
};

/// The bytes and bits that one row's pixels move between.
struct RowMove {
  RowMove(int32_t bits, const Extent& columns) noexcept
      : depth(bits),
        sourceBit(static_cast<uint64_t>(columns.first) * static_cast<uint32_t>(bits)),
        targetBit(static_cast<uint64_t>(columns.target) * static_cast<uint32_t>(bits)),
        count(static_cast<uint64_t>(columns.count) * static_cast<uint32_t>(bits)) {}
  [[nodiscard]] uint64_t SourceByte() const noexcept { return sourceBit / 8; }
  [[nodiscard]] uint64_t SourceBytes() const noexcept { return (sourceBit + count + 7) / 8 - SourceByte(); }

  /// source: the bytes from SourceByte on. Every byte of the target's row is written.
  void Run(uint8_t* target, uint64_t rowBytes, const uint8_t* source) const noexcept {
    const uint64_t first = targetBit / 8;
    const uint64_t end = (targetBit + count + 7) / 8;
    if (first) std::memset(target, 0, first);
    if (end < rowBytes) std::memset(target + end, 0, rowBytes - end);
    if (depth >= 8 && depth != 12) {
      std::memcpy(target + first, source, count / 8);
      return;
    }
    target[first] = 0;
    target[end - 1] = 0;
    // Pixels of 12 bits are little-endian pairs: the first one has the low bits of the byte that two share.
    const auto shift = depth == 12 ? Kernels().shiftLowBits : Kernels().shiftBits;
    shift(target + first, targetBit % 8, source, sourceBit % 8, count);
  }

  int32_t depth;
  uint64_t sourceBit;
  uint64_t targetBit;
  uint64_t count;
};

Status CopyRows(BitmapHandle& target, BitmapHandle& source, const Extent& columns, const Extent& rows,
                Progress& progress) noexcept {
  const RowMove move(source.BitsPerPixel, columns);
  RowReader from(source, TARN_HERE);
  RowWriter to(target, TARN_HERE);
  TARN_TRY(from.Open());
  TARN_TRY(to.Open());
  for (int64_t i = 0; i < rows.count; ++i) {
    const uint8_t* const part = from.Part(static_cast<int32_t>(rows.first + i), move.SourceByte(), move.SourceBytes());
    if (!part) return from.status();
    move.Run(to.Row(static_cast<int32_t>(rows.target + i)), target.BytesPerLine, part);
    TARN_TRY(to.Commit());
    TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

// Rows of run lengths that keep their width need not be unpacked.
bool StaysCompressed(const BitmapHandle& target, const BitmapHandle& source, const Extent& columns) noexcept {
  return (target.Flags & source.Flags & T_FLAG_COMPRESSED) && columns.count == source.Width &&
         columns.count == target.Width;
}

Status CopyPixels(BitmapHandle& target, BitmapHandle& source, const Extent& columns, const Extent& rows) noexcept {
  const BitmapLock lockTarget(target);
  const BitmapLock lockSource(source);
  void* userData = nullptr;
  const T_StatusCallback callback = T_GetCopyStatusCallBack(&userData);
  Progress progress(static_cast<int32_t>(rows.count), callback, userData);
  if (StaysCompressed(target, source, columns))
    return CopyCompressedRows(target, static_cast<uint32_t>(rows.target), source, static_cast<uint32_t>(rows.first),
                              static_cast<uint32_t>(rows.count), progress);
  return CopyRows(target, source, columns, rows, progress);
}

// The target has a copy of the region already; it becomes the moved one.
Status MoveRegion(BitmapHandle& target, const BitmapHandle& source, const Rectangle& rectangle) noexcept {
  const T_RegionHooks* const hooks = RegionHooks();
  if (!hooks || !hooks->CopyShifted) return SUCCESS;
  if (target.Region && hooks->Delete) hooks->Delete(target.Region);
  target.Region = 0;
  return hooks->CopyShifted(&target, &source, Minus(0, rectangle.left), Minus(0, rectangle.top));
}

void MoveOverlays(BitmapHandle& target, const Rectangle& rectangle) noexcept {
  T_OverlayList* const list = target.Overlays;
  for (uint32_t i = 0; list && i < list->count; ++i) {
    Overlay& overlay = list->Items()[i];
    overlay.left = Minus(overlay.left, rectangle.left);
    overlay.top = Minus(overlay.top, rectangle.top);
  }
}

// A null destination: the source is replaced.
Status CopyRectangle(BitmapHandle* destination, BitmapHandle& source, const Rectangle& rectangle,
                     const uint32_t* memoryType) noexcept {
  const Extent columns(rectangle.left, rectangle.width, source.Width);
  const Extent rows(rectangle.top, rectangle.height, source.Height);
  const bool inside = columns.count > 0 && rows.count > 0;
  BitmapHandle result{};
  BitmapHandle& target = destination ? *destination : result;
  TARN_TRY(MakeLike(target, source, rectangle.width, rectangle.height, memoryType));
  Status copied = MoveRegion(target, source, rectangle);
  if (copied.Ok()) {
    MoveOverlays(target, rectangle);
    if (inside) copied = CopyPixels(target, source, columns, rows);
  }
  // Deliberate: a rectangle beside the bitmap leaves a bitmap that was to be replaced as it is.
  const bool discarded = !copied.Ok() || (!destination && !inside);
  if (discarded) {
    T_FreeBitmap(&target);
  } else if (!destination) {
    ReplaceWhole(source, result);
  }
  return copied;
}

Status CopyForCaller(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize, const Rectangle& rectangle,
                     const uint32_t* memoryType) noexcept {
  if (!source || !IsAllocated(*source)) return ERR_INVALID_PARAMETER;
  if (source->StructSize != sizeof(BitmapHandle) || structSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
  if (!GeometryHolds(*source)) return ERR_INVALID_PARAMETER;
  return CopyRectangle(destination == source ? nullptr : destination, *source, rectangle, memoryType);
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_CopyBitmapRect(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize, int32_t left,
                         int32_t top, int32_t width, int32_t height) noexcept {
  return CopyForCaller(destination, source, structSize, {left, top, width, height}, nullptr).code;
}

int32_t T_CopyBitmapRect2(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize, int32_t left,
                          int32_t top, int32_t width, int32_t height, uint32_t memoryType) noexcept {
  return CopyForCaller(destination, source, structSize, {left, top, width, height}, &memoryType).code;
}

int32_t T_TrimBitmap(BitmapHandle* bitmap, int32_t left, int32_t top, int32_t width, int32_t height) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_INVALID_PARAMETER));
  const Extent columns(left, width, bitmap->Width);
  const Extent rows(top, height, bitmap->Height);
  if (columns.count < 0 || rows.count < 0) return ERR_EMPTY_AREA;
  return T_CopyBitmapRect(nullptr, bitmap, sizeof *bitmap, static_cast<int32_t>(columns.first),
                          static_cast<int32_t>(rows.first), static_cast<int32_t>(columns.count),
                          static_cast<int32_t>(rows.count));
}
