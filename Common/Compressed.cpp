// Rows of one-bit bitmaps as run-length records, whatever the bitmap's storage.

#include "Common/Internal/Compressed.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Runs.h"
#include "Common/Internal/TrackedBuffer.h"
#include "tarn/bitmap.h"
#include "tarn/rows.h"

namespace tarn {
namespace {

constexpr uint64_t kCountBytes = 4;

uint32_t CountOf(const uint8_t* record) noexcept {
  uint32_t count = 0;
  std::memcpy(&count, record, sizeof count);
  return count;
}
const uint16_t* WordsOf(const uint8_t* record) noexcept {
  return reinterpret_cast<const uint16_t*>(record + kCountBytes);
}
uint16_t* WordsOf(uint8_t* record) noexcept { return reinterpret_cast<uint16_t*>(record + kCountBytes); }
uint64_t RecordBytes(uint32_t count) noexcept { return kCountBytes + sizeof(uint16_t) * uint64_t{count}; }

bool IsCompressed(const BitmapHandle& bitmap) noexcept { return (bitmap.Flags & T_FLAG_COMPRESSED) != 0; }

// A record for any one-bit bitmap may be asked for or given; other depths have no such rows.
Status RequireOneBit(const BitmapHandle& bitmap) noexcept {
  if (bitmap.BitsPerPixel != 1) return ERR_BAD_BITS_PER_PIXEL;
  const int32_t width = bitmap.Width;
  const bool holds = width > 0 && static_cast<uint64_t>(bitmap.BytesPerLine) * 8 >= static_cast<uint32_t>(width);
  return holds ? SUCCESS : ERR_INVALID_PARAMETER;
}

uint32_t RowsFrom(const BitmapHandle& bitmap, uint32_t first, uint32_t count) noexcept {
  const uint32_t height = bitmap.Height > 0 ? static_cast<uint32_t>(bitmap.Height) : 0;
  if (first >= height) return 0;
  return count < height - first ? count : height - first;
}

// The caller's work line, or one made for the call.
class WorkLine {
 public:
  WorkLine(void* callers, uint32_t rowBytes, Here here) noexcept : line_(static_cast<uint8_t*>(callers)) {
    if (line_) return;
    own_ = TrackedBuffer<uint8_t>(rowBytes, here);
    line_ = own_.data();
  }
  uint8_t* data() noexcept { return line_; }

 private:
  TrackedBuffer<uint8_t> own_;
  uint8_t* line_;
};

Status ReadLine(BitmapHandle& bitmap, uint8_t* line, uint32_t row) noexcept {
  const uint32_t rowBytes = bitmap.BytesPerLine;
  const int64_t got = T_GetBitmapRow(&bitmap, line, row, rowBytes);
  if (got < 0) return static_cast<int32_t>(got);
  // Deliberate: a row that comes short is reported with the write status, as callers know it.
  return got == rowBytes ? SUCCESS : ERR_FILE_WRITE;
}

Status CopyRecordsOut(BitmapHandle& bitmap, uint8_t* record, uint32_t first, uint32_t count) noexcept {
  uint32_t width = 0;
  uint32_t rows = 0;
  if (!CompressedExtent(bitmap, width, rows)) return ERR_NO_MEMORY;
  for (uint32_t row = first; row - first < count; ++row) {
    const RowRuns runs = StoredRuns(bitmap, row);
    uint32_t words = runs.count;
    if (runs.words) {
      std::memcpy(WordsOf(record), runs.words, words * sizeof(uint16_t));
    } else {
      words = CanonicalRuns(WordsOf(record), nullptr, 0, width);  // a row of zeros
    }
    std::memcpy(record, &words, sizeof words);
    record += RecordBytes(words);
  }
  return SUCCESS;
}

Status CompressRowsOut(BitmapHandle& bitmap, uint8_t* line, uint8_t* record, uint32_t first, uint32_t count) noexcept {
  const auto width = static_cast<uint32_t>(bitmap.Width);
  for (uint32_t row = first; row - first < count; ++row) {
    TARN_TRY(ReadLine(bitmap, line, row));
    const uint32_t words = CompressRuns(WordsOf(record), line, 0, width);
    std::memcpy(record, &words, sizeof words);
    record += RecordBytes(words);
  }
  return SUCCESS;
}

// Stores a record as given when it is short enough for the row, else in canonical form.
Status StoreRecord(BitmapHandle& bitmap, uint32_t row, uint32_t width, const uint8_t* record) noexcept {
  const uint32_t count = CountOf(record);
  const uint16_t* const words = WordsOf(record);
  uint64_t sum = 0;
  for (uint32_t i = 0; i < count && sum <= width; ++i) sum += words[i];
  if (count <= uint64_t{width} + 1 && sum == width) return StoreRuns(bitmap, row, words, count);
  // Runs that do not add up to the row are cut or filled up with zeros.
  TrackedBuffer<uint16_t> canonical(MaxRunWords(width), TARN_HERE);
  if (!canonical) return ERR_NO_MEMORY;
  return StoreRuns(bitmap, row, canonical.data(), CanonicalRuns(canonical.data(), words, count, width));
}

Status StoreRecords(BitmapHandle& bitmap, const uint8_t* record, uint32_t first, uint32_t count) noexcept {
  uint32_t width = 0;
  uint32_t rows = 0;
  if (!CompressedExtent(bitmap, width, rows)) return ERR_NO_MEMORY;
  Status stored = SUCCESS;
  for (uint32_t row = first; stored.Ok() && row - first < count; ++row) {
    stored = StoreRecord(bitmap, row, width, record);
    record += RecordBytes(CountOf(record));
  }
  // Runs that take more room than packed rows save nothing. When there is no memory to unpack them, they stay.
  if (bitmap.Size > static_cast<uint64_t>(bitmap.BytesPerLine) * rows) (void)T_ChangeBitmapCompression(&bitmap, 0);
  return stored;
}

Status ExpandRecordsIn(BitmapHandle& bitmap, uint8_t* line, const uint8_t* record, uint32_t first,
                       uint32_t count) noexcept {
  const auto width = static_cast<uint32_t>(bitmap.Width);
  const uint32_t rowBytes = bitmap.BytesPerLine;
  const uint64_t held = (uint64_t{width} + 7) / 8;
  for (uint32_t row = first; row - first < count; ++row) {
    ExpandRuns(line, WordsOf(record), CountOf(record), 0, width);
    std::memset(line + held, 0, rowBytes - held);
    const int64_t put = T_PutBitmapRowCol(&bitmap, line, row, 0, rowBytes);
    if (put < 0) return static_cast<int32_t>(put);
    if (put != rowBytes) return ERR_FILE_WRITE;
    record += RecordBytes(CountOf(record));
  }
  return SUCCESS;
}

// Pixels of a stretch that lie inside the row.
uint32_t Inside(uint32_t width, uint32_t first, uint32_t pixels) noexcept {
  return pixels < width - first ? pixels : width - first;
}

Status SpliceRecord(BitmapHandle& bitmap, const uint8_t* record, uint32_t row, uint32_t first,
                    uint32_t pixels) noexcept {
  uint32_t width = 0;
  uint32_t rows = 0;
  if (!CompressedExtent(bitmap, width, rows)) return ERR_NO_MEMORY;
  if (row >= rows || first >= width) return ERR_INVALID_PARAMETER;
  TrackedBuffer<uint16_t> spliced(MaxRunWords(width), TARN_HERE);
  if (!spliced) return ERR_NO_MEMORY;
  const RowRuns runs = StoredRuns(bitmap, row);
  const uint32_t count = SpliceRuns(spliced.data(), runs.words, runs.count, width, WordsOf(record), CountOf(record),
                                    first, Inside(width, first, pixels));
  return StoreRuns(bitmap, row, spliced.data(), count);
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_GetBitmapRowCompressed(BitmapHandle* bitmap, void* workLine, void* records, uint32_t firstRow,
                                 uint32_t rowCount) noexcept {
  if (!bitmap || !records) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  TARN_TRY(RequireOneBit(*bitmap));
  const uint32_t count = RowsFrom(*bitmap, firstRow, rowCount);
  if (count == 0) return SUCCESS;
  auto* const record = static_cast<uint8_t*>(records);
  if (IsCompressed(*bitmap)) return CopyRecordsOut(*bitmap, record, firstRow, count).code;
  WorkLine line(workLine, bitmap->BytesPerLine, TARN_HERE);
  if (!line.data()) return ERR_NO_MEMORY;
  return CompressRowsOut(*bitmap, line.data(), record, firstRow, count).code;
}

int32_t T_GetBitmapRowColCompressed(BitmapHandle* bitmap, void* workLine, void* record, uint32_t row,
                                    uint32_t firstColumn, uint32_t pixelCount) noexcept {
  if (!bitmap || !record) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  TARN_TRY(RequireOneBit(*bitmap));
  const auto width = static_cast<uint32_t>(bitmap->Width);
  if (RowsFrom(*bitmap, row, 1) == 0 || firstColumn >= width) return ERR_INVALID_PARAMETER;
  const uint32_t pixels = Inside(width, firstColumn, pixelCount);
  auto* const target = static_cast<uint8_t*>(record);
  if (IsCompressed(*bitmap)) {
    const RowRuns runs = StoredRuns(*bitmap, row);
    const uint32_t words = SliceRuns(WordsOf(target), runs.words, runs.count, firstColumn, pixels, firstColumn % 8);
    std::memcpy(target, &words, sizeof words);
    return static_cast<int32_t>(pixels);
  }
  WorkLine line(workLine, bitmap->BytesPerLine, TARN_HERE);
  if (!line.data()) return ERR_NO_MEMORY;
  TARN_TRY(ReadLine(*bitmap, line.data(), row));
  return T_CompressRow(target, line.data() + firstColumn / 8, firstColumn, pixels);
}

int32_t T_PutBitmapRowCompressed(BitmapHandle* bitmap, void* workLine, const void* records, uint32_t firstRow,
                                 uint32_t rowCount) noexcept {
  if (!bitmap || !records) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireOneBit(*bitmap));
  const uint32_t count = RowsFrom(*bitmap, firstRow, rowCount);
  if (count == 0) return SUCCESS;
  const auto* const record = static_cast<const uint8_t*>(records);
  if (IsCompressed(*bitmap)) return StoreRecords(*bitmap, record, firstRow, count).code;
  WorkLine line(workLine, bitmap->BytesPerLine, TARN_HERE);
  if (!line.data()) return ERR_NO_MEMORY;
  return ExpandRecordsIn(*bitmap, line.data(), record, firstRow, count).code;
}

int32_t T_PutBitmapRowColCompressed(BitmapHandle* bitmap, void* workLine, const void* record, uint32_t row,
                                    uint32_t firstColumn, uint32_t pixelCount) noexcept {
  if (!bitmap || !record) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireOneBit(*bitmap));
  const auto width = static_cast<uint32_t>(bitmap->Width);
  if (RowsFrom(*bitmap, row, 1) == 0 || firstColumn >= width) return ERR_INVALID_PARAMETER;
  const auto* const source = static_cast<const uint8_t*>(record);
  const uint32_t pixels = Inside(width, firstColumn, pixelCount);
  const uint32_t bytes = static_cast<uint32_t>((uint64_t{pixels} + 7) / 8);
  if (IsCompressed(*bitmap)) {
    TARN_TRY(SpliceRecord(*bitmap, source, row, firstColumn, pixels));
    return static_cast<int32_t>(bytes);
  }
  WorkLine line(workLine, bitmap->BytesPerLine, TARN_HERE);
  if (!line.data()) return ERR_NO_MEMORY;
  ExpandRuns(line.data(), WordsOf(source), CountOf(source), 0, pixels);
  return static_cast<int32_t>(T_PutBitmapRowCol(bitmap, line.data(), row, firstColumn, bytes));
}

int32_t T_GrowBitmapHeap(BitmapHandle* bitmap, uint64_t bytes) noexcept {
  if (!bitmap || !IsAllocated(*bitmap) || !IsCompressed(*bitmap)) return ERR_INVALID_PARAMETER;
  return GrowHeaps(*bitmap, bytes) ? SUCCESS : 0;
}

int32_t T_TrimBitmapHeap(BitmapHandle* bitmap) noexcept {
  if (!bitmap || !IsAllocated(*bitmap) || !IsCompressed(*bitmap)) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  return TrimHeaps(*bitmap) ? SUCCESS : 0;
}
