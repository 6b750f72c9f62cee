// Super-compressed storage: strips of rows, each kept as the codec library made it, and a few of them expanded.
//
// Rows are read and written in the expanded strips. One that was written to is compressed when it has to make room for
// another; until then nothing else holds its rows. A strip of zeros takes no memory at all.

#include <atomic>
#include <cstring>
#include <new>

#include "Common/Internal/Checks.h"
#include "Common/Internal/CodecModule.h"
#include "Common/Internal/Storage.h"
#include "Common/Internal/TrackedBuffer.h"
#include "Platform/Platform.h"
#include "tarn/bitmap.h"

namespace tarn {
namespace {

constexpr uint64_t kStripBytes = uint64_t{128}
                                 << 10;  // the size the codec is good at: a row of a strip in a fraction of 1 ms
constexpr uint64_t kLeastRows = 8;       // of rows so long that fewer would fit
constexpr uint64_t kWideStripBytes = uint64_t{1} << 20;  // unless that takes more than this
constexpr uint64_t kDefaultCache = uint64_t{1} << 20;
constexpr uint32_t kMostSlots = 64;
constexpr uint32_t kStripsPerSlot = 8;  // a bitmap is not kept expanded by its cache
constexpr uint32_t kNoStrip = ~0u;

constinit std::atomic<uint64_t> cacheBytes{kDefaultCache};
constinit std::atomic<uint32_t> fixedStripRows{0};

struct Strip {
  uint8_t* data;   // null: all zero, or held by a slot alone
  uint64_t bytes;  // of data
};

// An expanded strip.
struct Slot {
  uint8_t* rows;   // null until it is used
  uint32_t strip;  // kNoStrip: holds nothing
  bool changed;    // the strip has no data of its own
  uint64_t used;   // when, by the table's clock
};

// One allocation holds the registration, the slots and the strips; Data points at the first strip.
struct Table {
  StorageNode node;
  platform::CriticalSection section;  // of everything below; threads may read one bitmap together
  CodecEntries codec;
  uint32_t bits;
  uint32_t rowsPerStrip;
  uint32_t stripCount;
  uint32_t slotCount;
  uint64_t clock;
  uint64_t held;  // bytes of compressed strips and of changed ones
  Slot slots[kMostSlots];

  Strip* Strips() noexcept { return reinterpret_cast<Strip*>(this + 1); }
  [[nodiscard]] uint64_t Bytes() const noexcept { return uint64_t{node.rowBytes} * node.rows; }
  [[nodiscard]] uint64_t FullStripBytes() const noexcept { return uint64_t{rowsPerStrip} * node.rowBytes; }
  [[nodiscard]] uint32_t RowsOf(uint32_t strip) const noexcept {
    const uint32_t left = node.rows - strip * rowsPerStrip;
    return left < rowsPerStrip ? left : rowsPerStrip;
  }
  [[nodiscard]] uint64_t BytesOf(uint32_t strip) const noexcept { return uint64_t{RowsOf(strip)} * node.rowBytes; }
  /// Of an expanded strip in a slot; all strips but the last have as many rows as fit.
  [[nodiscard]] uint64_t SlotBytes() const noexcept { return BytesOf(0); }
};
static_assert(sizeof(Table) % alignof(Strip) == 0);

Table* TableOf(const BitmapHandle& bitmap) noexcept {
  StorageNode* node = FindStorage(bitmap.Data);
  return node && node->kind == StorageKind::kSuperCompressed ? reinterpret_cast<Table*>(node) : nullptr;
}

uint32_t RowsPerStrip(uint32_t rowBytes) noexcept {
  if (const uint32_t fixed = fixedStripRows.load(std::memory_order_relaxed)) return fixed;
  uint64_t rows = kStripBytes / rowBytes;
  if (rows < kLeastRows) rows = kWideStripBytes / rowBytes < kLeastRows ? kWideStripBytes / rowBytes : kLeastRows;
  return rows < 1 ? 1 : static_cast<uint32_t>(rows);
}

uint8_t* Allocate(uint64_t bytes, Here here) noexcept {
  return static_cast<uint8_t*>(T_LocalAlloc(1, bytes, here.line, here.file));
}

void Free(void* memory) noexcept {
  const Here here = TARN_HERE;
  if (memory) T_LocalFree(memory, here.line, here.file);
}

Table* NewTable(const StorageNode& node, const CodecEntries& codec, uint32_t bits, uint32_t rowsPerStrip) noexcept {
  const uint32_t strips = node.rows / rowsPerStrip + (node.rows % rowsPerStrip != 0);
  const Here here = TARN_HERE;
  void* const memory = T_LocalAllocInit(1, sizeof(Table) + uint64_t{strips} * sizeof(Strip), here.line, here.file);
  if (!memory) return nullptr;
  auto* const table = ::new (memory) Table{};
  table->node = node;
  table->node.data = table->Strips();
  table->codec = codec;
  table->bits = bits;
  table->rowsPerStrip = rowsPerStrip;
  table->stripCount = strips;
  uint64_t slots = cacheBytes.load(std::memory_order_relaxed) / table->SlotBytes();  // NOLINT: no row is empty
  const uint64_t most = (uint64_t{strips} + kStripsPerSlot - 1) / kStripsPerSlot;
  if (slots > most) slots = most;
  if (slots > kMostSlots) slots = kMostSlots;
  table->slotCount = slots ? static_cast<uint32_t>(slots) : 1;
  for (Slot& slot : table->slots) slot.strip = kNoStrip;
  return table;
}

void FreeTable(Table* table, uint32_t firstStrip) noexcept {
  for (uint32_t strip = firstStrip; strip < table->stripCount; ++strip) Free(table->Strips()[strip].data);
  for (const Slot& slot : table->slots) Free(slot.rows);
  Free(table);
}

// ---- Strips --------------------------------------------------------------------------------------------------------

T_CodecBuffer JobOf(const Table& table, uint32_t rows) noexcept {
  T_CodecBuffer job = {};
  job.StructSize = sizeof job;
  job.BytesPerLine = table.node.rowBytes;
  job.Height = rows;
  job.BitsPerPixel = table.bits;
  return job;
}

bool AllZero(const uint8_t* bytes, uint64_t count) noexcept {
  return bytes[0] == 0 && std::memcmp(bytes, bytes + 1, count - 1) == 0;
}

/// Rows to a strip of memory of its own.
Status Compress(const Table& table, const uint8_t* rows, uint32_t rowCount, Strip& made) noexcept {
  made = {nullptr, 0};
  if (AllZero(rows, uint64_t{rowCount} * table.node.rowBytes)) return SUCCESS;
  T_CodecBuffer job = JobOf(table, rowCount);
  if (const int64_t asked = table.codec.save(&job); asked != SUCCESS) return static_cast<int32_t>(asked);
  TrackedBuffer<uint8_t> room(job.DataBytes + job.WorkBytes, TARN_HERE);
  if (!room) return ERR_NO_MEMORY;
  job.Pixels = const_cast<uint8_t*>(rows);  // only read
  job.Data = room.data();
  job.Work = room.data() + job.DataBytes;
  const int64_t bytes = table.codec.save(&job);
  if (bytes <= 0) return bytes < 0 ? static_cast<int32_t>(bytes) : int32_t{ERR_NO_MEMORY};
  made.data = Allocate(static_cast<uint64_t>(bytes), TARN_HERE);
  if (!made.data) return ERR_NO_MEMORY;
  made.bytes = static_cast<uint64_t>(bytes);
  std::memcpy(made.data, room.data(), made.bytes);
  return SUCCESS;
}

/// The rows of a strip that no slot holds.
Status Expand(const Table& table, const Strip& strip, uint32_t rowCount, uint8_t* rows) noexcept {
  const uint64_t wanted = uint64_t{rowCount} * table.node.rowBytes;
  if (!strip.data) {
    std::memset(rows, 0, wanted);
    return SUCCESS;
  }
  T_CodecBuffer job = JobOf(table, rowCount);
  if (const int64_t asked = table.codec.load(&job); asked != SUCCESS) return static_cast<int32_t>(asked);
  TrackedBuffer<uint8_t> work(job.WorkBytes, TARN_HERE);
  if (!work) return ERR_NO_MEMORY;
  job.Pixels = rows;
  job.Data = strip.data;
  job.DataBytes = strip.bytes;
  job.Work = work.data();
  const int64_t bytes = table.codec.load(&job);
  if (bytes == static_cast<int64_t>(wanted)) return SUCCESS;
  return bytes < 0 ? static_cast<int32_t>(bytes) : int32_t{ERR_UNSUPPORTED_FORMAT};
}

void Replace(Table& table, uint32_t strip, const Strip& with) noexcept {
  Strip& entry = table.Strips()[strip];
  Free(entry.data);
  table.held += with.bytes;
  table.held -= entry.bytes;
  entry = with;
}

// ---- Slots ---------------------------------------------------------------------------------------------------------

Slot* SlotOf(Table& table, uint32_t strip) noexcept {
  for (uint32_t i = 0; i < table.slotCount; ++i)
    if (table.slots[i].strip == strip) return &table.slots[i];
  return nullptr;
}

void Forget(Table& table, Slot& slot) noexcept {
  if (slot.changed) table.held -= table.BytesOf(slot.strip);
  slot.changed = false;
  slot.strip = kNoStrip;
}

void MarkChanged(Table& table, Slot& slot) noexcept {
  if (slot.changed) return;
  Replace(table, slot.strip, {nullptr, 0});
  table.held += table.BytesOf(slot.strip);
  slot.changed = true;
}

/// Gives the strip data of its own again; the slot goes on holding it. Failure leaves it changed.
Status Flush(Table& table, Slot& slot) noexcept {
  if (!slot.changed) return SUCCESS;
  Strip made;
  TARN_TRY(Compress(table, slot.rows, table.RowsOf(slot.strip), made));
  table.held -= table.BytesOf(slot.strip);
  slot.changed = false;
  Replace(table, slot.strip, made);
  return SUCCESS;
}

/// A slot that holds nothing: a new one, or the one that was used longest ago.
Status FreeSlot(Table& table, Slot*& free) noexcept {
  Slot* oldest = nullptr;
  for (uint32_t i = 0; i < table.slotCount; ++i) {
    Slot& slot = table.slots[i];
    if (!slot.rows) {
      slot.rows = Allocate(table.SlotBytes(), TARN_HERE);
      if (slot.rows) {
        free = &slot;
        return SUCCESS;
      }
      break;  // those that are there must do
    }
    if (!oldest || slot.used < oldest->used) oldest = &slot;
  }
  if (!oldest) return ERR_NO_MEMORY;
  TARN_TRY(Flush(table, *oldest));
  Forget(table, *oldest);
  free = oldest;
  return SUCCESS;
}

/// The slot that holds a strip, expanded now if need be; with `blank` its rows will all be written.
Status Hold(Table& table, uint32_t strip, bool blank, Slot*& slot) noexcept {
  slot = SlotOf(table, strip);
  if (!slot) {
    TARN_TRY(FreeSlot(table, slot));
    if (!blank) TARN_TRY(Expand(table, table.Strips()[strip], table.RowsOf(strip), slot->rows));
    slot->strip = strip;
  }
  slot->used = ++table.clock;
  return SUCCESS;
}

// ---- Transfers -----------------------------------------------------------------------------------------------------

/// Bytes of the storage: [start, start + bytes).
struct Range {
  uint64_t start;
  uint64_t bytes;
  Range(const Table& table, uint32_t row, uint64_t offset, uint64_t wanted) noexcept
      : start(uint64_t{row} * table.node.rowBytes), bytes(0) {
    const uint64_t end = table.Bytes();
    if (start >= end || offset >= end - start) return;
    start += offset;
    bytes = wanted < end - start ? wanted : end - start;
  }
};

/// The part of a range that lies in one strip.
struct Piece {
  uint32_t strip;
  uint64_t within;  // from the strip's first byte
  uint64_t bytes;
  Piece(const Table& table, const Range& range, uint64_t done) noexcept {
    const uint64_t at = range.start + done;
    const uint64_t full = table.FullStripBytes();
    strip = static_cast<uint32_t>(at / full);
    within = at % full;
    const uint64_t left = table.BytesOf(strip) - within;
    bytes = range.bytes - done < left ? range.bytes - done : left;
  }
};

void CountHeld(BitmapHandle& bitmap, const Table& table) noexcept {
  const uint64_t size = CappedSize(table.held);
  if (bitmap.Size != size) bitmap.Size = size;
}

int64_t ReadSuper(BitmapHandle& bitmap, uint8_t* target, uint32_t row, uint64_t offset, uint64_t bytes) noexcept {
  Table* const table = TableOf(bitmap);
  if (!table) return ERR_NO_MEMORY;
  const platform::Guard guard(table->section);
  const Range range(*table, row, offset, bytes);
  Status held = SUCCESS;
  for (uint64_t done = 0; done < range.bytes && held.Ok();) {
    const Piece piece(*table, range, done);
    Slot* slot = nullptr;
    held = Hold(*table, piece.strip, false, slot);
    if (!held.Ok()) break;
    std::memcpy(target + done, slot->rows + piece.within, piece.bytes);
    done += piece.bytes;
  }
  CountHeld(bitmap, *table);
  return held.Ok() ? static_cast<int64_t>(range.bytes) : int64_t{held.code};
}

Status WriteOneStrip(Table& table, const uint8_t* source, const Piece& piece) noexcept {
  Slot* slot = nullptr;
  TARN_TRY(Hold(table, piece.strip, piece.bytes == table.BytesOf(piece.strip), slot));
  std::memcpy(slot->rows + piece.within, source, piece.bytes);
  MarkChanged(table, *slot);
  return SUCCESS;
}

/// What a strip becomes when a piece of it is replaced; the strip stays as it is.
Status MakeStrip(Table& table, const uint8_t* source, const Piece& piece, uint8_t* line, Strip& made) noexcept {
  const uint64_t stripBytes = table.BytesOf(piece.strip);
  const uint32_t rows = table.RowsOf(piece.strip);
  if (piece.bytes == stripBytes) return Compress(table, source, rows, made);
  Slot* slot = nullptr;
  TARN_TRY(Hold(table, piece.strip, false, slot));
  std::memcpy(line, slot->rows, stripBytes);
  std::memcpy(line + piece.within, source, piece.bytes);
  return Compress(table, line, rows, made);
}

// Rows of several strips: all are made first and then take the place of the old ones, so that a put that fails has put
// nothing.
Status WriteStrips(Table& table, const uint8_t* source, const Range& range) noexcept {
  const uint32_t first = Piece(table, range, 0).strip;
  const uint32_t count = Piece(table, range, range.bytes - 1).strip - first + 1;
  auto made = TrackedBuffer<Strip>::Zeroed(count, TARN_HERE);
  TrackedBuffer<uint8_t> line(table.SlotBytes(), TARN_HERE);
  Status status = made && line ? SUCCESS : ERR_NO_MEMORY;
  for (uint64_t done = 0; status.Ok() && done < range.bytes;) {
    const Piece piece(table, range, done);
    status = MakeStrip(table, source + done, piece, line.data(), made[piece.strip - first]);
    done += piece.bytes;
  }
  for (uint32_t i = 0; made && i < count; ++i) {
    if (!status.Ok()) {
      Free(made[i].data);
      continue;
    }
    if (Slot* const slot = SlotOf(table, first + i)) Forget(table, *slot);
    Replace(table, first + i, made[i]);
  }
  return status;
}

int64_t WriteSuper(BitmapHandle& bitmap, const uint8_t* source, uint32_t row, uint64_t offset, uint64_t bytes,
                   int64_t) noexcept {
  Table* const table = TableOf(bitmap);
  if (!table) return ERR_NO_MEMORY;
  const platform::Guard guard(table->section);
  const Range range(*table, row, offset, bytes);
  if (range.bytes == 0) return 0;
  const Piece piece(*table, range, 0);
  const Status written =
      piece.bytes == range.bytes ? WriteOneStrip(*table, source, piece) : WriteStrips(*table, source, range);
  CountHeld(bitmap, *table);
  return written.Ok() ? static_cast<int64_t>(range.bytes) : int64_t{written.code};
}

uint8_t* NoDirectRow(BitmapHandle&, uint32_t) noexcept { return nullptr; }

// ---- Height, release -----------------------------------------------------------------------------------------------

/// Strip `last` of the old table with as many rows as it has in the new one.
Status MakeBorder(Table& old, const Table& made, uint32_t last, Strip& border) noexcept {
  const uint32_t rows = made.RowsOf(last);
  const uint32_t before = old.RowsOf(last);
  const uint64_t room = uint64_t{rows > before ? rows : before} * old.node.rowBytes;
  TrackedBuffer<uint8_t> lines(room, TARN_HERE);
  if (!lines) return ERR_NO_MEMORY;
  TARN_TRY(Expand(old, old.Strips()[last], before, lines.data()));
  const uint64_t known = old.BytesOf(last);
  std::memset(lines.data() + known, 0, room - known);
  return Compress(made, lines.data(), rows, border);
}

// Everything new is made beside the old table; only then do the strips change hands. The cache starts empty.
Status ResizeSuper(BitmapHandle& bitmap, int32_t height) noexcept {
  Table* const old = TableOf(bitmap);
  if (!old) return ERR_NO_MEMORY;
  StorageNode node = old->node;
  node.rows = static_cast<uint32_t>(height);
  Table* const made = NewTable(node, old->codec, old->bits, old->rowsPerStrip);
  if (!made) return ERR_NO_MEMORY;
  const uint32_t kept = old->stripCount < made->stripCount ? old->stripCount : made->stripCount;
  Status status = SUCCESS;
  for (Slot& slot : old->slots)
    if (slot.changed && slot.strip < kept && status.Ok()) status = Flush(*old, slot);
  const bool resized = old->RowsOf(kept - 1) != made->RowsOf(kept - 1);
  Strip border = {nullptr, 0};
  if (status.Ok() && resized) status = MakeBorder(*old, *made, kept - 1, border);
  CountHeld(bitmap, *old);
  if (!status.Ok()) {
    FreeTable(made, 0);
    return status;
  }
  if (resized) Replace(*old, kept - 1, border);
  for (uint32_t strip = 0; strip < kept; ++strip) {
    made->Strips()[strip] = old->Strips()[strip];
    made->held += made->Strips()[strip].bytes;
  }
  UnregisterStorage(old->node);
  FreeTable(old, kept);
  RegisterStorage(made->node);
  bitmap.Data = reinterpret_cast<uint8_t*>(made->Strips());
  CountHeld(bitmap, *made);
  return SUCCESS;
}

Status Compact(BitmapHandle& bitmap, Table& table) noexcept {
  const platform::Guard guard(table.section);
  Status status = SUCCESS;
  for (Slot& slot : table.slots) {
    if (!slot.rows) continue;
    if (const Status flushed = Flush(table, slot); !flushed.Ok()) {
      status = flushed;
      continue;
    }
    Forget(table, slot);
    Free(slot.rows);
    slot.rows = nullptr;
  }
  CountHeld(bitmap, table);
  return status;
}

void ReleaseSuper(BitmapHandle& bitmap) noexcept {
  if (Table* const table = TableOf(bitmap)) {
    UnregisterStorage(table->node);
    bitmap.Size = CappedSize(table->Bytes());  // as described again
    FreeTable(table, 0);
  }
  bitmap.Data = nullptr;
  bitmap.Flags &= ~static_cast<uint32_t>(T_FLAG_SUPER_COMPRESSED);
}

}  // namespace

Status CreateSuperStorage(BitmapHandle& bitmap) noexcept {
  CodecEntries codec;
  if (!LoadCodec(codec)) return ERR_LIBRARY_NOT_LOADED;
  const uint32_t rowBytes = bitmap.BytesPerLine;
  const StorageNode node = {nullptr,
                            nullptr,
                            0,
                            StorageKind::kSuperCompressed,
                            rowBytes,
                            static_cast<uint32_t>(bitmap.Height),
                            static_cast<uint32_t>(bitmap.Width)};
  Table* const table = NewTable(node, codec, static_cast<uint32_t>(bitmap.BitsPerPixel), RowsPerStrip(rowBytes));
  if (!table) return ERR_NO_MEMORY;
  RegisterStorage(table->node);
  bitmap.Data = reinterpret_cast<uint8_t*>(table->Strips());
  return SUCCESS;
}

void SetStripRows(uint32_t rows) noexcept { fixedStripRows.store(rows, std::memory_order_relaxed); }

const StorageOps kSuperOps = {ReadSuper, WriteSuper, NoDirectRow, ResizeSuper, ReleaseSuper};

}  // namespace tarn

using namespace tarn;

int32_t T_CompactBitmap(BitmapHandle* handle) noexcept {
  TARN_TRY(RequireAllocatedThenSize(handle, ERR_NO_BITMAP));
  if (OpsOf(*handle) != &kSuperOps) return SUCCESS;
  Table* const table = TableOf(*handle);
  return table ? Compact(*handle, *table).code : int32_t{ERR_NO_MEMORY};
}

uint64_t T_SetSuperCompressedCache(uint64_t bytes) noexcept {
  return cacheBytes.exchange(bytes ? bytes : kDefaultCache, std::memory_order_relaxed);
}
