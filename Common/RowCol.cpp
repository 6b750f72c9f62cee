// Rows, parts of rows and row segments between a caller's buffer and a bitmap's storage.

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Storage.h"
#include "Common/Internal/TrackedBuffer.h"
#include "tarn/rows.h"

namespace tarn {
namespace {

// What every get and put tests first, and the storage's table.
Status RequireRow(const BitmapHandle* bitmap, const void* buffer, uint32_t row, const StorageOps*& ops) noexcept {
  if (!bitmap || !buffer) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  ops = OpsOf(*bitmap);
  if (!ops) return ERR_NO_MEMORY;
  const int32_t height = bitmap->Height;
  return height > 0 && row < static_cast<uint32_t>(height) ? SUCCESS : ERR_INVALID_PARAMETER;
}

// Byte of the row at which a column's transfer starts. Compressed rows take whole bytes of pixels inside the row only.
Status StartOf(const BitmapHandle& bitmap, uint32_t column, uint64_t& offset) noexcept {
  offset = ColumnOffset(bitmap.BitsPerPixel, column);
  const bool beyond = bitmap.Width <= 0 || column >= static_cast<uint32_t>(bitmap.Width);
  return (bitmap.Flags & T_FLAG_COMPRESSED) && beyond ? ERR_INVALID_PARAMETER : SUCCESS;
}

// ---- Segments ----

// Pixels of one segment as bits of the row: [first, last).
struct BitRange {
  uint64_t first;
  uint64_t last;
  [[nodiscard]] uint64_t FirstByte() const noexcept { return first / 8; }
  [[nodiscard]] uint64_t EndByte() const noexcept { return (last + 7) / 8; }
  [[nodiscard]] bool WholeBytes() const noexcept { return first % 8 == 0 && last % 8 == 0; }
};

uint8_t Merged(uint8_t old, uint8_t fresh, uint8_t mask) noexcept {
  return static_cast<uint8_t>((old & ~mask) | (fresh & mask));
}

// Copies the bits of a range; target and source are the bytes from FirstByte on. Other bits of the edge bytes stay.
void MergeBits(uint8_t* target, const uint8_t* source, const BitRange& range) noexcept {
  const uint64_t bytes = range.EndByte() - range.FirstByte();
  const auto startMask = static_cast<uint8_t>(0xFF >> (range.first % 8));
  const auto endMask = static_cast<uint8_t>(0xFF << ((8 - range.last % 8) % 8));
  if (bytes == 1) {
    target[0] = Merged(target[0], source[0], startMask & endMask);
    return;
  }
  target[0] = Merged(target[0], source[0], startMask);
  std::memcpy(target + 1, source + 1, bytes - 2);
  target[bytes - 1] = Merged(target[bytes - 1], source[bytes - 1], endMask);
}

// Copies pixels but for the last quarter of each, which is the alpha sample.
void MergeColors(uint8_t* target, const uint8_t* source, uint64_t bytes, uint32_t pixelBytes) noexcept {
  const uint32_t colorBytes = pixelBytes / 4 * 3;
  for (uint64_t at = 0; at < bytes; at += pixelBytes) std::memcpy(target + at, source + at, colorBytes);
}

struct SegmentPut {
  uint32_t pixelBytes;  // of pixels whose alpha stays, else 0
  uint64_t shift;       // bytes from a position in the buffer to the one in the row

  void Merge(uint8_t* target, const uint8_t* source, const BitRange& range) const noexcept {
    if (pixelBytes) {
      MergeColors(target, source, range.EndByte() - range.FirstByte(), pixelBytes);
    } else {
      MergeBits(target, source, range);
    }
  }
};

// Moves one range through storage that is not directly there: what is only partly replaced is read, merged and written.
Status PutRange(BitmapHandle& bitmap, uint32_t row, const SegmentPut& put, const BitRange& range, const uint8_t* source,
                TrackedBuffer<uint8_t>& work) noexcept {
  const StorageOps& ops = *OpsOf(bitmap);
  const uint64_t bytes = range.EndByte() - range.FirstByte();
  const uint64_t offset = put.shift + range.FirstByte();
  const auto wanted = static_cast<int64_t>(bytes);
  const uint8_t* fresh = source;
  if (put.pixelBytes || !range.WholeBytes()) {
    if (!work) work = TrackedBuffer<uint8_t>(bitmap.BytesPerLine, TARN_HERE);
    if (!work) return ERR_NO_MEMORY;
    const int64_t got = ops.read(bitmap, work.data(), row, offset, bytes);
    if (got != wanted) return got < 0 ? static_cast<int32_t>(got) : ERR_FILE_READ;
    put.Merge(work.data(), source, range);
    fresh = work.data();
  }
  const int64_t moved = ops.write(bitmap, fresh, row, offset, bytes, ERR_NO_MEMORY);
  if (moved == wanted) return SUCCESS;
  return moved < 0 ? static_cast<int32_t>(moved) : ERR_FILE_WRITE;
}

Status PutSegments(BitmapHandle& bitmap, const uint8_t* buffer, uint32_t row, uint32_t columnOffset,
                   const uint32_t* segments, uint32_t length, bool preserveAlpha) noexcept {
  const auto bits = static_cast<uint32_t>(bitmap.BitsPerPixel);
  const auto width = static_cast<uint32_t>(bitmap.Width);
  if (columnOffset >= width) return SUCCESS;
  const uint32_t lastPixel = width - columnOffset;
  const bool keepsAlpha = preserveAlpha && (bits == 32 || bits == 64);
  const SegmentPut put = {keepsAlpha ? bits / 8 : 0, ColumnOffset(bitmap.BitsPerPixel, columnOffset)};
  uint8_t* const direct = OpsOf(bitmap)->direct(bitmap, row);
  TrackedBuffer<uint8_t> work;
  for (uint32_t i = 0; i + 1 < length; i += 2) {
    const uint32_t start = segments[i];
    const uint32_t end = segments[i + 1] < lastPixel ? segments[i + 1] : lastPixel;
    if (start >= end) continue;
    const BitRange range = {uint64_t{start} * bits, uint64_t{end} * bits};
    const uint8_t* const source = buffer + range.FirstByte();
    if (direct) {
      put.Merge(direct + put.shift + range.FirstByte(), source, range);
    } else {
      TARN_TRY(PutRange(bitmap, row, put, range, source, work));
    }
  }
  return SUCCESS;
}

// Compressed rows are expanded once, changed and compressed again.
Status PutSegmentsCompressed(BitmapHandle& bitmap, const uint8_t* buffer, uint32_t row, uint32_t columnOffset,
                             const uint32_t* segments, uint32_t length) noexcept {
  const auto width = static_cast<uint32_t>(bitmap.Width);
  const uint32_t rowBytes = bitmap.BytesPerLine;
  if (columnOffset >= width) return SUCCESS;
  TrackedBuffer<uint8_t> line(rowBytes, TARN_HERE);
  if (!line) return ERR_NO_MEMORY;
  const int64_t got = kCompressedOps.read(bitmap, line.data(), row, 0, rowBytes);
  if (got < 0) return static_cast<int32_t>(got);
  for (uint32_t i = 0; i + 1 < length; i += 2) {
    const uint32_t start = segments[i];
    const uint32_t lastPixel = width - columnOffset;
    const uint32_t end = segments[i + 1] < lastPixel ? segments[i + 1] : lastPixel;
    if (start >= end) continue;
    const BitRange range = {start, end};
    MergeBits(line.data() + columnOffset / 8 + range.FirstByte(), buffer + range.FirstByte(), range);
  }
  const int64_t put = kCompressedOps.write(bitmap, line.data(), row, 0, rowBytes, ERR_NO_MEMORY);
  return put < 0 ? static_cast<int32_t>(put) : SUCCESS;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int64_t T_GetBitmapRow(BitmapHandle* bitmap, void* buffer, uint32_t row, uint64_t bytes) noexcept {
  const StorageOps* ops = nullptr;
  TARN_TRY(RequireRow(bitmap, buffer, row, ops));
  return ops->read(*bitmap, static_cast<uint8_t*>(buffer), row, 0, bytes);
}

int64_t T_PutBitmapRow(BitmapHandle* bitmap, const void* buffer, uint32_t row, uint64_t bytes) noexcept {
  const StorageOps* ops = nullptr;
  TARN_TRY(RequireRow(bitmap, buffer, row, ops));
  if (bytes == 0) return 0;
  return ops->write(*bitmap, static_cast<const uint8_t*>(buffer), row, 0, bytes, 0);
}

int64_t T_GetBitmapRowCol(BitmapHandle* bitmap, void* buffer, uint32_t row, uint32_t column, uint64_t bytes) noexcept {
  const StorageOps* ops = nullptr;
  TARN_TRY(RequireRow(bitmap, buffer, row, ops));
  uint64_t offset = 0;
  TARN_TRY(StartOf(*bitmap, column, offset));
  return ops->read(*bitmap, static_cast<uint8_t*>(buffer), row, offset, bytes);
}

int64_t T_PutBitmapRowCol(BitmapHandle* bitmap, const void* buffer, uint32_t row, uint32_t column,
                          uint64_t bytes) noexcept {
  const StorageOps* ops = nullptr;
  TARN_TRY(RequireRow(bitmap, buffer, row, ops));
  uint64_t offset = 0;
  TARN_TRY(StartOf(*bitmap, column, offset));
  if (bytes == 0) return 0;
  // Deliberate: a tile that could not be written is told apart from the whole-row put.
  return ops->write(*bitmap, static_cast<const uint8_t*>(buffer), row, offset, bytes, ERR_NO_MEMORY);
}

int32_t T_PutBitmapRowSegments(BitmapHandle* bitmap, const void* buffer, uint32_t row, uint32_t columnOffset,
                               const uint32_t* segments, uint32_t segmentLength, int32_t preserveAlpha) noexcept {
  if (!segments) return ERR_INVALID_PARAMETER;
  const StorageOps* ops = nullptr;
  TARN_TRY(RequireRow(bitmap, buffer, row, ops));
  if (ops == &kBlockOps && !bitmap->Data) return ERR_NO_BITMAP;
  if (!GeometryHolds(*bitmap)) return ERR_INVALID_PARAMETER;
  const auto* const line = static_cast<const uint8_t*>(buffer);
  if (bitmap->Flags & T_FLAG_COMPRESSED)
    return PutSegmentsCompressed(*bitmap, line, row, columnOffset, segments, segmentLength).code;
  return PutSegments(*bitmap, line, row, columnOffset, segments, segmentLength, preserveAlpha != 0).code;
}
