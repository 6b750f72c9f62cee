#include <cstring>

#include "Common/Internal/Compressed.h"
#include "Common/Internal/Runs.h"
#include "Common/Internal/Storage.h"
#include "Common/Internal/TrackedBuffer.h"
#include "tarn/memory.h"

namespace tarn {
namespace {

// Where a row's runs lie in its heap, counted in words; 0 when the row has no record.
struct RowEntry {
  uint32_t position;
  uint32_t words;
};

struct Segment {
  uint32_t rows;
  uint32_t reserved;
  uint64_t used;      // words of live runs
  uint64_t end;       // first free word of the heap; word 0 is never used
  uint64_t capacity;  // words of the heap
  uint16_t* heap;

  RowEntry* Rows() noexcept { return reinterpret_cast<RowEntry*>(this + 1); }
};

constexpr uint64_t kLargestHeap = UINT32_MAX;  // words; positions are 32 bits
constexpr uint64_t kFirstHeap = 2048;

// One allocation holds the registration and the segment pointers; Data points at the first of them.
struct Table {
  StorageNode node;
  uint64_t usedWords;  // of all segments
  uint64_t segmentCount;

  Segment** Segments() noexcept { return reinterpret_cast<Segment**>(this + 1); }
};

Table* TableOf(const BitmapHandle& bitmap) noexcept {
  StorageNode* node = FindStorage(bitmap.Data);
  return node && node->kind == StorageKind::kCompressed ? reinterpret_cast<Table*>(node) : nullptr;
}

uint32_t SegmentCountOf(uint32_t rows) noexcept { return rows / kRowsPerSegment + (rows % kRowsPerSegment != 0); }

uint32_t RowsOfSegment(uint32_t rows, uint32_t segment) noexcept {
  const uint32_t left = rows - segment * kRowsPerSegment;
  return left < kRowsPerSegment ? left : kRowsPerSegment;
}

Segment* NewSegment(uint32_t rows) noexcept {
  const Here here = TARN_HERE;
  auto* const segment = static_cast<Segment*>(
      T_LocalAllocInit(1, sizeof(Segment) + uint64_t{rows} * sizeof(RowEntry), here.line, here.file));
  if (!segment) return nullptr;
  segment->rows = rows;
  segment->end = 1;
  return segment;
}

void FreeSegment(Segment* segment, bool withHeap) noexcept {
  const Here here = TARN_HERE;
  if (withHeap) T_LocalFree(segment->heap, here.line, here.file);
  T_LocalFree(segment, here.line, here.file);
}

// Gives the heap exactly `capacity` words with the live runs packed in row order.
bool Repack(Segment& segment, uint64_t capacity) noexcept {
  const Here here = TARN_HERE;
  auto* const heap = static_cast<uint16_t*>(T_LocalAlloc(capacity, sizeof(uint16_t), here.line, here.file));
  if (!heap) return false;
  uint64_t end = 1;
  for (uint32_t row = 0; row < segment.rows; ++row) {
    RowEntry& entry = segment.Rows()[row];
    if (!entry.position) continue;
    std::memcpy(heap + end, segment.heap + entry.position, entry.words * sizeof(uint16_t));
    entry.position = static_cast<uint32_t>(end);
    end += entry.words;
  }
  T_LocalFree(segment.heap, here.line, here.file);
  segment.heap = heap;
  segment.end = end;
  segment.capacity = capacity;
  return true;
}

bool GrowTo(Segment& segment, uint64_t capacity) noexcept {
  const Here here = TARN_HERE;
  void* const heap = T_LocalRealloc(segment.heap, capacity * sizeof(uint16_t), here.line, here.file);
  if (!heap) return false;
  segment.heap = static_cast<uint16_t*>(heap);
  segment.capacity = capacity;
  return true;
}

// Makes sure that `words` more words fit behind the last run. Rows that were rewritten leave holes: once half of the
// heap is holes it is packed instead of grown.
bool MakeRoom(Segment& segment, uint64_t words) noexcept {
  if (segment.end + words <= segment.capacity) return true;
  const uint64_t wanted = segment.used + 1 + words;
  if (wanted > kLargestHeap) return false;
  const uint64_t holes = segment.end - 1 - segment.used;
  if (holes > segment.used / 2 + words && Repack(segment, wanted + wanted / 4)) return true;
  uint64_t capacity = segment.capacity + segment.capacity / 4;
  if (capacity < kFirstHeap) capacity = kFirstHeap;
  if (capacity < segment.end + words) capacity = segment.end + words;
  if (capacity <= kLargestHeap && GrowTo(segment, capacity)) return true;
  return holes >= words && Repack(segment, wanted);
}

void CountUsed(BitmapHandle& bitmap, const Table& table) noexcept {
  bitmap.Size = CappedSize(table.usedWords * sizeof(uint16_t));
}

Segment& SegmentOf(Table& table, uint32_t row) noexcept { return *table.Segments()[row / kRowsPerSegment]; }

// Puts a record of at least one word under a row. The words lie anywhere, also behind the last run of the heap.
bool Store(Table& table, uint32_t row, const uint16_t* words, uint32_t count) noexcept {
  Segment& segment = SegmentOf(table, row);
  RowEntry& entry = segment.Rows()[row % kRowsPerSegment];
  const uint32_t before = entry.words;
  if (count <= before) {
    std::memmove(segment.heap + entry.position, words, count * sizeof(uint16_t));
    entry.words = count;
  } else {
    const bool inPlace = segment.heap && words == segment.heap + segment.end;
    if (!inPlace) {
      if (!MakeRoom(segment, count)) return false;
      std::memcpy(segment.heap + segment.end, words, count * sizeof(uint16_t));  // NOLINT: there is room, so a heap
    }
    entry = {static_cast<uint32_t>(segment.end), count};
    segment.end += count;
  }
  segment.used += count;
  segment.used -= before;
  table.usedWords += count;
  table.usedWords -= before;
  return true;
}

// Compresses a whole packed row straight into the heap.
bool StorePacked(Table& table, uint32_t row, const uint8_t* packed) noexcept {
  Segment& segment = SegmentOf(table, row);
  const uint32_t width = table.node.width;
  if (!MakeRoom(segment, MaxRunWords(width))) return false;
  uint16_t* const words = segment.heap + segment.end;
  return Store(table, row, words, CompressRuns(words, packed, 0, width));
}

void ExpandStored(Table& table, uint32_t row, uint8_t* packed, uint32_t firstPixel, uint32_t pixels) noexcept {
  Segment& segment = SegmentOf(table, row);
  const RowEntry& entry = segment.Rows()[row % kRowsPerSegment];
  ExpandRuns(packed, segment.heap + entry.position, entry.position ? entry.words : 0, firstPixel, pixels);
}

// Pixels that `bytes` bytes from a byte offset of the row hold.
uint32_t PixelsOf(uint32_t width, uint64_t offset, uint64_t bytes) noexcept {
  const uint64_t first = offset * 8;
  if (first >= width) return 0;
  const uint64_t left = width - first;
  return static_cast<uint32_t>(bytes < (left + 7) / 8 ? bytes * 8 : left);
}

int64_t ReadCompressed(BitmapHandle& bitmap, uint8_t* target, uint32_t row, uint64_t offset, uint64_t bytes) noexcept {
  Table* const table = TableOf(bitmap);
  if (!table) return ERR_NO_MEMORY;
  const uint64_t rowBytes = table->node.rowBytes;
  uint64_t left = bytes;
  for (; left > 0 && row < table->node.rows && offset < rowBytes; ++row, offset = 0) {
    const uint64_t taken = left < rowBytes - offset ? left : rowBytes - offset;
    const uint32_t pixels = PixelsOf(table->node.width, offset, taken);
    const uint64_t held = (uint64_t{pixels} + 7) / 8;
    ExpandStored(*table, row, target, static_cast<uint32_t>(offset * 8), pixels);
    std::memset(target + held, 0, taken - held);
    target += taken;
    left -= taken;
  }
  return static_cast<int64_t>(bytes);
}

bool WritePart(Table& table, uint32_t row, const uint8_t* source, uint64_t offset, uint32_t pixels) noexcept {
  if (pixels == 0) return true;
  if (offset == 0 && pixels == table.node.width) return StorePacked(table, row, source);
  TrackedBuffer<uint8_t> line(table.node.rowBytes, TARN_HERE);
  if (!line) return false;
  ExpandStored(table, row, line.data(), 0, table.node.width);
  std::memcpy(line.data() + offset, source, (uint64_t{pixels} + 7) / 8);
  return StorePacked(table, row, line.data());
}

int64_t WriteCompressed(BitmapHandle& bitmap, const uint8_t* source, uint32_t row, uint64_t offset, uint64_t bytes,
                        int64_t) noexcept {
  Table* const table = TableOf(bitmap);
  if (!table) return ERR_NO_MEMORY;
  const uint64_t rowBytes = table->node.rowBytes;
  uint64_t left = bytes;
  bool stored = true;
  for (; stored && left > 0 && row < table->node.rows && offset < rowBytes; ++row, offset = 0) {
    const uint64_t taken = left < rowBytes - offset ? left : rowBytes - offset;
    stored = WritePart(*table, row, source, offset, PixelsOf(table->node.width, offset, taken));
    source += taken;
    left -= taken;
  }
  CountUsed(bitmap, *table);
  return stored ? static_cast<int64_t>(bytes) : int64_t{ERR_NO_MEMORY};
}

uint8_t* NoDirectRow(BitmapHandle&, uint32_t) noexcept { return nullptr; }

Table* NewTable(const StorageNode& like, uint32_t rows) noexcept {
  const Here here = TARN_HERE;
  const uint32_t segments = SegmentCountOf(rows);
  auto* const table =
      static_cast<Table*>(T_LocalAllocInit(1, sizeof(Table) + segments * sizeof(Segment*), here.line, here.file));
  if (!table) return nullptr;
  table->node = like;
  table->node.data = table->Segments();
  table->node.rows = rows;
  table->segmentCount = segments;
  return table;
}

void FreeTable(Table* table, uint32_t firstOwnSegment) noexcept {
  for (uint64_t segment = table->segmentCount; segment-- > firstOwnSegment;) {
    if (table->Segments()[segment]) FreeSegment(table->Segments()[segment], true);
  }
  const Here here = TARN_HERE;
  T_LocalFree(table, here.line, here.file);
}

bool MakeSegments(Table& table, uint32_t first) noexcept {
  for (uint32_t segment = first; segment < table.segmentCount; ++segment) {
    table.Segments()[segment] = NewSegment(RowsOfSegment(table.node.rows, segment));
    if (!table.Segments()[segment]) return false;
  }
  return true;
}

// New segments and the border segment's new row table are made first; then segments and heaps change hands.
Status ResizeCompressed(BitmapHandle& bitmap, int32_t height) noexcept {
  Table* const old = TableOf(bitmap);
  if (!old) return ERR_NO_MEMORY;
  Table* const made = NewTable(old->node, static_cast<uint32_t>(height));
  if (!made) return ERR_NO_MEMORY;
  const auto kept =
      static_cast<uint32_t>(old->segmentCount < made->segmentCount ? old->segmentCount : made->segmentCount);
  const uint32_t borderRows = RowsOfSegment(made->node.rows, kept - 1);
  Segment* border = nullptr;
  if (borderRows != old->Segments()[kept - 1]->rows) border = NewSegment(borderRows);
  if ((!border && borderRows != old->Segments()[kept - 1]->rows) || !MakeSegments(*made, kept)) {
    if (border) FreeSegment(border, false);
    FreeTable(made, kept);
    return ERR_NO_MEMORY;
  }
  std::memcpy(made->Segments(), old->Segments(), kept * sizeof(Segment*));
  if (border) {
    Segment& before = *old->Segments()[kept - 1];
    const uint32_t rows = before.rows < borderRows ? before.rows : borderRows;
    std::memcpy(border->Rows(), before.Rows(), rows * sizeof(RowEntry));
    for (uint32_t row = 0; row < rows; ++row) border->used += border->Rows()[row].words;
    border->end = before.end;
    border->capacity = before.capacity;
    border->heap = before.heap;
    FreeSegment(&before, false);
    made->Segments()[kept - 1] = border;
  }
  for (uint64_t segment = 0; segment < made->segmentCount; ++segment)
    made->usedWords += made->Segments()[segment]->used;
  UnregisterStorage(old->node);
  FreeTable(old, kept);
  RegisterStorage(made->node);
  bitmap.Data = reinterpret_cast<uint8_t*>(made->Segments());
  CountUsed(bitmap, *made);
  return SUCCESS;
}

void ReleaseCompressed(BitmapHandle& bitmap) noexcept {
  if (Table* const table = TableOf(bitmap)) {
    UnregisterStorage(table->node);
    bitmap.Size = CappedSize(static_cast<uint64_t>(table->node.rowBytes) * table->node.rows);  // as described again
    FreeTable(table, 0);
  }
  bitmap.Data = nullptr;
  bitmap.Flags &= ~static_cast<uint32_t>(T_FLAG_COMPRESSED);
}

}  // namespace

Status CreateCompressedStorage(BitmapHandle& bitmap) noexcept {
  const int32_t width = bitmap.Width;
  if (width <= 0 || static_cast<uint64_t>(bitmap.BytesPerLine) * 8 < static_cast<uint32_t>(width))
    return ERR_INVALID_PARAMETER;
  const StorageNode node = {
      nullptr, nullptr, 0, StorageKind::kCompressed, bitmap.BytesPerLine, 0, static_cast<uint32_t>(width)};
  Table* const table = NewTable(node, static_cast<uint32_t>(bitmap.Height));
  if (!table) return ERR_NO_MEMORY;
  if (!MakeSegments(*table, 0)) {
    FreeTable(table, 0);
    return ERR_NO_MEMORY;
  }
  RegisterStorage(table->node);
  bitmap.Data = reinterpret_cast<uint8_t*>(table->Segments());
  return SUCCESS;
}

bool CompressedExtent(const BitmapHandle& bitmap, uint32_t& width, uint32_t& rows) noexcept {
  const Table* const table = TableOf(bitmap);
  if (!table) return false;
  width = table->node.width;
  rows = table->node.rows;
  return true;
}

RowRuns StoredRuns(const BitmapHandle& bitmap, uint32_t row) noexcept {
  Table* const table = TableOf(bitmap);
  if (!table || row >= table->node.rows) return {nullptr, 0};
  Segment& segment = SegmentOf(*table, row);
  const RowEntry& entry = segment.Rows()[row % kRowsPerSegment];
  if (!entry.position) return {nullptr, 0};
  return {segment.heap + entry.position, entry.words};
}

Status StoreRuns(BitmapHandle& bitmap, uint32_t row, const uint16_t* words, uint32_t count) noexcept {
  Table* const table = TableOf(bitmap);
  if (!table || row >= table->node.rows) return ERR_INVALID_PARAMETER;
  const bool stored = Store(*table, row, words, count);
  CountUsed(bitmap, *table);
  return stored ? SUCCESS : ERR_NO_MEMORY;
}

bool GrowHeaps(BitmapHandle& bitmap, uint64_t bytes) noexcept {
  Table* const table = TableOf(bitmap);
  if (!table) return false;
  const uint64_t share = bytes / table->segmentCount / sizeof(uint16_t);
  for (uint64_t segment = table->segmentCount; segment-- > 0;) {
    Segment& grown = *table->Segments()[segment];
    const bool fits = share <= kLargestHeap && grown.capacity + share <= kLargestHeap;
    const bool done = share == 0 || (fits && GrowTo(grown, grown.capacity + share));
    CountUsed(bitmap, *table);
    if (!done) return false;
  }
  return true;
}

bool TrimHeaps(BitmapHandle& bitmap) noexcept {
  Table* const table = TableOf(bitmap);
  if (!table) return false;
  bool done = true;
  for (uint64_t segment = table->segmentCount; done && segment-- > 0;) {
    Segment& trimmed = *table->Segments()[segment];
    if (trimmed.capacity > trimmed.used + 1) done = Repack(trimmed, trimmed.used + 1);
  }
  CountUsed(bitmap, *table);
  return done;
}

const StorageOps kCompressedOps = {ReadCompressed, WriteCompressed, NoDirectRow, ResizeCompressed, ReleaseCompressed};

}  // namespace tarn
