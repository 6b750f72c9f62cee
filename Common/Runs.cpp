// Compressed one-bit rows as run words: workers on the words of one row, and the exported codec of records in buffers.

#include "Common/Internal/Runs.h"

#include <cstdint>
#include <cstring>

#include "Kernels/Kernels.h"
#include "tarn/rows.h"

namespace tarn {
namespace {

// ---- Words ---------------------------------------------------------------------------------------------------------

uint64_t LoadRun(const uint8_t* from) noexcept {
  uint16_t run;
  std::memcpy(&run, from, sizeof run);
  return run;
}

uint64_t Load4(const uint8_t* from) noexcept {
  uint64_t words;
  std::memcpy(&words, from, sizeof words);
  return words;
}

/// The sum of four words, below 2^18.
uint64_t Sum4(uint64_t words) noexcept {
  constexpr uint64_t kEven = UINT64_C(0x0000FFFF0000FFFF);
  const uint64_t pairs = (words & kEven) + (words >> 16 & kEven);
  return (pairs & 0xFFFFFFFF) + (pairs >> 32);
}

bool AnyZero4(uint64_t words) noexcept {
  constexpr uint64_t kLow = UINT64_C(0x0001000100010001);
  return ((words - kLow) & ~words & kLow << 15) != 0;
}

uint64_t Reversed4(uint64_t words) noexcept {
  constexpr uint64_t kEven = UINT64_C(0x0000FFFF0000FFFF);
  words = words << 32 | words >> 32;
  return (words & kEven) << 16 | (words >> 16 & kEven);
}

/// A place in a word list.
struct RunCursor {
  RunCursor(const void* words, uint32_t count) noexcept
      : next(static_cast<const uint8_t*>(words)), end(next + 2 * uint64_t{count}) {}
  void Skip(uint64_t pixels) noexcept;

  const uint8_t* next;
  const uint8_t* end;
  uint64_t used = 0;  // pixels of the next word that are passed already
  bool ones = false;  // the next word's value
};

void RunCursor::Skip(uint64_t pixels) noexcept {
  used += pixels;
  while (end - next >= 8) {
    const uint64_t sum = Sum4(Load4(next));
    if (sum > used) break;
    used -= sum;
    next += 8;
  }
  while (next != end && LoadRun(next) <= used) {
    used -= LoadRun(next);
    next += 2;
    ones = !ones;
  }
}

/// Writes a canonical list: the last run stays open until a run of the other value follows.
class RunWriter {
 public:
  RunWriter(void* target, uint32_t firstBit) noexcept
      : first_(static_cast<uint8_t*>(target)), next_(first_), start_(firstBit), end_(firstBit) {}
  /// Appends the next `pixels` pixels of a list, zeros where it ends.
  void Take(RunCursor& from, uint64_t pixels) noexcept;
  /// Closes the list; returns its words.
  uint32_t Finish() noexcept {
    Close();
    return static_cast<uint32_t>((next_ - first_) / 2);
  }

 private:
  void Append(bool ones, uint64_t pixels) noexcept {
    if (!pixels) return;
    if (ones != ones_) {
      Close();
      ones_ = ones;
    }
    end_ += pixels;
  }
  void Close() noexcept {
    if (end_ - start_ > 65535) next_ = SplitLongRun(next_, start_, end_);
    const uint16_t run = static_cast<uint16_t>(end_ - start_);
    std::memcpy(next_, &run, sizeof run);
    next_ += sizeof run;
    start_ = end_;
  }
  uint64_t CopyWhole(RunCursor& from, uint64_t pixels) noexcept;

  uint8_t* first_;
  uint8_t* next_;
  uint64_t start_;  // of the open run, in pixels from a byte boundary
  uint64_t end_;
  bool ones_ = false;
};

/// Copies words four at a time where they are canonical as they are and hold no more than `pixels` pixels; returns the
/// pixels left.
uint64_t RunWriter::CopyWhole(RunCursor& from, uint64_t pixels) noexcept {
  if (from.used || from.ones == ones_) return pixels;
  const uint8_t* const begin = from.next;
  while (from.end - from.next >= 8) {
    const uint64_t words = Load4(from.next);
    const uint64_t sum = Sum4(words);
    if (sum > pixels || AnyZero4(words)) break;
    if (from.next == begin) Close();
    std::memcpy(next_, &words, sizeof words);
    next_ += 8;
    from.next += 8;
    end_ += sum;
    pixels -= sum;
  }
  if (from.next != begin) {
    next_ -= 2;  // the last word is the open run, of the same value as the one before the copy
    start_ = end_ - LoadRun(next_);
  }
  return pixels;
}

void RunWriter::Take(RunCursor& from, uint64_t pixels) noexcept {
  while (pixels && from.next != from.end) {
    pixels = CopyWhole(from, pixels);
    if (!pixels || from.next == from.end) break;
    const uint64_t run = LoadRun(from.next) - from.used;
    if (run > pixels) {
      Append(from.ones, pixels);
      from.used += pixels;
      return;
    }
    Append(from.ones, run);
    pixels -= run;
    from.used = 0;
    from.next += 2;
    from.ones = !from.ones;
  }
  Append(false, pixels);
}

}  // namespace

// ---- Rows ----------------------------------------------------------------------------------------------------------

uint32_t CompressRuns(void* target, const uint8_t* packed, uint32_t firstBit, uint32_t pixels) noexcept {
  return Kernels().compressRuns(target, packed, firstBit, pixels);
}

void ExpandRuns(uint8_t* packed, const void* words, uint32_t count, uint32_t firstPixel, uint32_t pixels) noexcept {
  Kernels().expandRuns(packed, words, count, firstPixel, pixels);
}

uint32_t CanonicalRuns(void* target, const void* words, uint32_t count, uint32_t pixels) noexcept {
  return SliceRuns(target, words, count, 0, pixels, 0);
}

uint32_t SliceRuns(void* target, const void* words, uint32_t count, uint32_t firstPixel, uint32_t pixels,
                   uint32_t firstBit) noexcept {
  RunCursor source(words, count);
  RunWriter writer(target, firstBit);
  source.Skip(firstPixel);
  writer.Take(source, pixels);
  return writer.Finish();
}

uint32_t SpliceRuns(void* target, const void* rowWords, uint32_t rowCount, uint32_t rowPixels, const void* insertWords,
                    uint32_t insertCount, uint32_t firstPixel, uint32_t insertPixels) noexcept {
  if (firstPixel > rowPixels) firstPixel = rowPixels;
  if (insertPixels > rowPixels - firstPixel) insertPixels = rowPixels - firstPixel;
  RunCursor row(rowWords, rowCount);
  RunCursor insert(insertWords, insertCount);
  RunWriter writer(target, 0);
  writer.Take(row, firstPixel);
  writer.Take(insert, insertPixels);
  row.Skip(insertPixels);
  writer.Take(row, rowPixels - firstPixel - insertPixels);
  return writer.Finish();
}

uint32_t MirrorRuns(void* target, const void* words, uint32_t count) noexcept {
  uint8_t* next = static_cast<uint8_t*>(target);
  const uint8_t* begin = static_cast<const uint8_t*>(words);
  const uint8_t* end = begin + 2 * uint64_t{count};
  // An even count ends with ones, which then come first.
  if (count % 2 == 0) {
    std::memset(next, 0, 2);
    next += 2;
  }
  if (count && LoadRun(begin) == 0) begin += 2;
  for (; end - begin >= 8; next += 8) {
    end -= 8;
    const uint64_t reversed = Reversed4(Load4(end));
    std::memcpy(next, &reversed, sizeof reversed);
  }
  for (; end != begin; next += 2) {
    end -= 2;
    std::memcpy(next, end, 2);
  }
  return static_cast<uint32_t>((next - static_cast<uint8_t*>(target)) / 2);
}

namespace {

// ---- Records -------------------------------------------------------------------------------------------------------

constexpr uint64_t kCountBytes = 4;

uint32_t LoadCount(const uint8_t* record) noexcept {
  uint32_t count;
  std::memcpy(&count, record, sizeof count);
  return count;
}

void StoreCount(uint8_t* record, uint32_t count) noexcept { std::memcpy(record, &count, sizeof count); }

uint64_t RecordBytes(uint32_t count) noexcept { return kCountBytes + 2 * uint64_t{count}; }

/// BytesPerLine of a one-bit bitmap.
uint64_t PackedStride(uint32_t width) noexcept { return (uint64_t{width} + 31) / 8 & ~UINT64_C(3); }

/// Returns where the next record begins.
uint8_t* CompressRecord(uint8_t* record, const uint8_t* packed, uint32_t firstBit, uint32_t pixels) noexcept {
  const uint32_t count = CompressRuns(record + kCountBytes, packed, firstBit, pixels);
  StoreCount(record, count);
  return record + RecordBytes(count);
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_CompressRow(void* record, const uint8_t* packedRow, uint32_t startBit, uint32_t pixelCount) noexcept {
  if (!record || !packedRow) return ERR_INVALID_PARAMETER;
  if (pixelCount > INT32_MAX) return ERR_INVALID_PARAMETER;  // the result would read as a status
  CompressRecord(static_cast<uint8_t*>(record), packedRow, startBit % 8, pixelCount);
  return static_cast<int32_t>(pixelCount);
}

int32_t T_CompressRows(void* records, const uint8_t* packedRows, uint32_t width, uint32_t rowCount) noexcept {
  if (!records || !packedRows) return ERR_INVALID_PARAMETER;
  const uint64_t stride = PackedStride(width);
  uint8_t* record = static_cast<uint8_t*>(records);
  for (uint32_t row = 0; row < rowCount; ++row) record = CompressRecord(record, packedRows + row * stride, 0, width);
  return SUCCESS;
}

int32_t T_ExpandRow(const void* record, uint8_t* packedRow, uint32_t startPixel, uint32_t pixelCount) noexcept {
  if (!record || !packedRow) return ERR_INVALID_PARAMETER;
  const uint8_t* const source = static_cast<const uint8_t*>(record);
  ExpandRuns(packedRow, source + kCountBytes, LoadCount(source), startPixel, pixelCount);
  return SUCCESS;
}

int32_t T_ExpandRows(const void* records, uint8_t* packedRows, uint32_t width, uint32_t rowCount) noexcept {
  if (!records || !packedRows) return ERR_INVALID_PARAMETER;
  const uint64_t stride = PackedStride(width);
  const uint8_t* record = static_cast<const uint8_t*>(records);
  for (uint32_t row = 0; row < rowCount; ++row) {
    const uint32_t count = LoadCount(record);
    ExpandRuns(packedRows + row * stride, record + kCountBytes, count, 0, width);
    record += RecordBytes(count);
  }
  return SUCCESS;
}

int32_t T_MirrorCompressedBuffer(const void* source, void* target, uint32_t rowCount) noexcept {
  if (!source || !target) return ERR_INVALID_PARAMETER;
  const uint8_t* from = static_cast<const uint8_t*>(source);
  uint8_t* to = static_cast<uint8_t*>(target);
  for (uint32_t row = 0; row < rowCount; ++row) {
    const uint32_t count = LoadCount(from);
    const uint32_t mirrored = MirrorRuns(to + kCountBytes, from + kCountBytes, count);
    StoreCount(to, mirrored);
    from += RecordBytes(count);
    to += RecordBytes(mirrored);
  }
  return SUCCESS;
}

int32_t T_FlipCompressedBuffer(const void* source, void* target, uint32_t rowCount) noexcept {
  if (!source || !target) return ERR_INVALID_PARAMETER;
  const uint8_t* const first = static_cast<const uint8_t*>(source);
  const uint8_t* from = first;
  for (uint32_t row = 0; row < rowCount; ++row) from += RecordBytes(LoadCount(from));
  uint8_t* to = static_cast<uint8_t*>(target) + (from - first);
  from = first;
  for (uint32_t row = 0; row < rowCount; ++row) {
    const uint64_t bytes = RecordBytes(LoadCount(from));
    to -= bytes;
    std::memcpy(to, from, bytes);
    from += bytes;
  }
  return SUCCESS;
}
