// Bitmaps to another number of bits.

#include "Common/Internal/ColorRes.h"

#include <cstring>

#include "Common/Internal/BitmapList.h"
#include "Common/Internal/Checks.h"
#include "Common/Internal/DitherRun.h"
#include "Common/Internal/Duplicate.h"
#include "Common/Internal/FormatLines.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/Storage.h"
#include "tarn/colors.h"
#include "tarn/convert.h"
#include "tarn/memory.h"
#include "tarn/palette.h"
#include "tarn/settings.h"

namespace tarn {
namespace {

constexpr uint32_t kTypeMask = 0x3FF;
constexpr uint32_t kWebColors = 216;
constexpr int32_t kBatch = 64;  // rows at a time, so that the dithering engine can walk lines beside each other

/// The trailing callback in the place of the thread's.
class CallbackScope {
 public:
  CallbackScope(T_StatusCallback callback, void* userData) noexcept : set_(callback != nullptr) {
    if (set_) T_SetStatusCallBack(callback, userData, &before_, &beforeData_);
  }
  ~CallbackScope() {
    if (set_) T_SetStatusCallBack(before_, beforeData_, nullptr, nullptr);
  }
  CallbackScope(const CallbackScope&) = delete;
  CallbackScope& operator=(const CallbackScope&) = delete;

 private:
  bool set_;
  T_StatusCallback before_ = nullptr;
  void* beforeData_ = nullptr;
};

// ---- Palettes ------------------------------------------------------------------------------------------------------

/// The palette of a result of 8 bits or less, and what the dithering engine uses of it.
struct Chosen {
  T_PaletteEntry entries[256];
  uint32_t count;  // that the engine may use
  bool fixed;      // the engine takes its fixed table
  uint32_t* lent;  // a match table for the engine, null: its own
  MatchTable own;  // the same when it was made here
};

constexpr bool IsOptimized(uint32_t type) noexcept {
  switch (type) {
    case 0:
    case 2:
    case 8:
    case 10:
    case 512:
    case 514:
    case 520:
    case 522:
      return true;
    default:
      return false;
  }
}

bool IsFree(const T_PaletteEntry& entry) noexcept { return (entry.Reserved & 3) == 2; }
bool IsUsable(const T_PaletteEntry& entry) noexcept { return (entry.Reserved & 3) == 0; }

/// The table of boxes names positions among the optimized colours; the engine counts usable entries of the palette.
void Renumber(uint32_t* table, const T_PaletteEntry* palette, uint32_t count, const uint32_t* slots) noexcept {
  uint32_t positions[256];
  uint32_t usable = 0;
  for (uint32_t i = 0; i < count; ++i) positions[i] = IsUsable(palette[i]) ? usable++ : 0;
  for (uint32_t key = 0; key < kMatchKeys; ++key) {
    if (table[key] != 0) table[key] = positions[slots[table[key] - 1]] + 1;
  }
}

Status ChooseOptimized(BitmapHandle& source, const T_PaletteEntry* palette, uint32_t colors, Chosen& chosen) noexcept {
  uint32_t slots[256];
  T_PaletteEntry kept[256];
  uint32_t free = 0, keptCount = 0;
  for (uint32_t i = 0; i < colors; ++i) {
    if (!palette || IsFree(palette[i])) {
      slots[free++] = i;
    } else {
      kept[keptCount++] = palette[i];
    }
  }
  if (palette) std::memcpy(chosen.entries, palette, colors * sizeof(T_PaletteEntry));
  chosen.count = colors;
  if (free == 0) return SUCCESS;
  OptimizedPalette made;
  TARN_TRY(OptimizeBitmap(source, free, kept, keptCount, made));
  for (uint32_t i = 0; i < made.count && i < free; ++i) chosen.entries[slots[i]] = made.entries[i];
  if (!palette && made.count > 0) chosen.count = made.count;
  if (!made.built) return SUCCESS;
  chosen.own.Take(made.table.Give());
  chosen.lent = chosen.own.Get();
  Renumber(chosen.lent, chosen.entries, chosen.count, slots);
  return SUCCESS;
}

Status ChoosePalette(BitmapHandle& source, int32_t bits, uint32_t flags, const T_PaletteEntry* palette,
                     uint32_t* matchTable, uint32_t colors, Chosen& chosen) noexcept {
  const uint32_t type = flags & kTypeMask;
  std::memset(chosen.entries, 0, sizeof chosen.entries);
  chosen.fixed = false;
  chosen.lent = nullptr;
  if (IsOptimized(type)) return ChooseOptimized(source, palette, colors, chosen);
  const bool web = type == T_RES_WEB || (type == (T_RES_FIXED | T_RES_WEB) && bits == 8);
  if (web) {
    if (bits != 8) return ERR_INVALID_PARAMETER;
    std::memcpy(chosen.entries, T_IntGetNetscapePalette(), kWebColors * sizeof(T_PaletteEntry));
    chosen.count = kWebColors;
    return SUCCESS;
  }
  if (type == T_RES_FIXED || type == (T_RES_FIXED | T_RES_WEB)) {
    chosen.count = 1u << bits;
    chosen.fixed = true;
    return T_GetFixedPalette(chosen.entries, static_cast<uint32_t>(bits));
  }
  if ((type & ~uint32_t{T_RES_BORROW_TABLE}) != T_RES_PALETTE || !palette) return ERR_INVALID_PARAMETER;
  std::memcpy(chosen.entries, palette, colors * sizeof(T_PaletteEntry));
  chosen.count = colors;
  chosen.lent = matchTable;
  return SUCCESS;
}

// ---- Rows ----------------------------------------------------------------------------------------------------------

/// Rows of a source, as many beside each other as the batch holds.
class RowBatch {
 public:
  RowBatch(BitmapHandle& bitmap, Here here) noexcept : bitmap_(bitmap), here_(here), reader_(bitmap, here) {}
  Status Open() noexcept {
    TARN_TRY(reader_.Open());
    if (reader_.InOneBlock()) return SUCCESS;
    copies_ = TrackedBuffer<uint8_t>(uint64_t{bitmap_.BytesPerLine} * Rows(), here_);
    return copies_ ? SUCCESS : ERR_NO_MEMORY;
  }
  Status Read(int32_t first, int32_t count) noexcept {
    for (int32_t i = 0; i < count; ++i) {
      const uint8_t* const row = reader_.Row(first + i);
      if (!row) return reader_.status();
      rows_[i] = row;
      if (reader_.InOneBlock()) continue;
      uint8_t* const copy = copies_.data() + uint64_t{bitmap_.BytesPerLine} * static_cast<uint32_t>(i);
      std::memcpy(copy, row, bitmap_.BytesPerLine);
      rows_[i] = copy;
    }
    return SUCCESS;
  }
  [[nodiscard]] const uint8_t* const* Lines() const noexcept { return rows_; }

 private:
  [[nodiscard]] uint32_t Rows() const noexcept {
    const int32_t height = bitmap_.Height;
    return static_cast<uint32_t>(height < kBatch ? height : kBatch);
  }
  BitmapHandle& bitmap_;
  Here here_;
  RowReader reader_;
  TrackedBuffer<uint8_t> copies_;
  const uint8_t* rows_[kBatch];
};

/// Lines of indices on their way to a bitmap.
class IndexBatch {
 public:
  IndexBatch(BitmapHandle& bitmap, Here here) noexcept : bitmap_(bitmap), here_(here), writer_(bitmap, here) {}
  Status Open() noexcept {
    const uint64_t rowBytes = bitmap_.BytesPerLine;
    used_ = (static_cast<uint64_t>(bitmap_.Width) * static_cast<uint32_t>(bitmap_.BitsPerPixel) + 7) / 8;
    TARN_TRY(writer_.Open());
    if (writer_.InOneBlock()) return SUCCESS;
    const int32_t height = bitmap_.Height;
    copies_ = TrackedBuffer<uint8_t>(rowBytes * static_cast<uint32_t>(height < kBatch ? height : kBatch), here_);
    return copies_ ? SUCCESS : ERR_NO_MEMORY;
  }
  /// Places for rows first .. first + count - 1, cleared where pixels do not reach.
  uint8_t* const* Lines(int32_t first, int32_t count) noexcept {
    const uint64_t rowBytes = bitmap_.BytesPerLine;
    for (int32_t i = 0; i < count; ++i) {
      rows_[i] = writer_.InOneBlock() ? writer_.Row(first + i) : copies_.data() + rowBytes * static_cast<uint32_t>(i);
      rows_[i][used_ - 1] = 0;
      std::memset(rows_[i] + used_, 0, rowBytes - used_);
    }
    return rows_;
  }
  Status Store(int32_t first, int32_t count) noexcept {
    if (writer_.InOneBlock()) return SUCCESS;
    for (int32_t i = 0; i < count; ++i) {
      std::memcpy(writer_.Row(first + i), rows_[i], bitmap_.BytesPerLine);
      TARN_TRY(writer_.Commit());
    }
    return SUCCESS;
  }

 private:
  BitmapHandle& bitmap_;
  Here here_;
  uint64_t used_ = 0;
  RowWriter writer_;
  TrackedBuffer<uint8_t> copies_;
  uint8_t* rows_[kBatch];
};

Status DitherRows(BitmapHandle& target, BitmapHandle& source, uint32_t method, const Chosen& chosen) noexcept {
  struct Owner {
    ~Owner() { DitherRun::Destroy(run); }
    DitherRun* run = nullptr;
  } owner;
  Status status = SUCCESS;
  owner.run = DitherRun::Create(source, method,
                                {chosen.fixed ? nullptr : chosen.entries, chosen.count,
                                 static_cast<uint32_t>(target.BitsPerPixel), chosen.lent, !chosen.own.Get()},
                                status);
  if (!owner.run) return status;
  (void)owner.run->OpenGroups();  // without, it only takes longer
  const BitmapLock lock(source);
  RowBatch from(source, TARN_HERE);
  IndexBatch to(target, TARN_HERE);
  TARN_TRY(from.Open());
  TARN_TRY(to.Open());
  const int32_t height = source.Height;
  Progress progress(height);
  for (int32_t first = 0; first < height; first += kBatch) {
    const int32_t count = height - first < kBatch ? height - first : kBatch;
    TARN_TRY(from.Read(first, count));
    owner.run->Lines(to.Lines(first, count), from.Lines(), count);
    TARN_TRY(to.Store(first, count));
    for (int32_t i = 0; i < count; ++i) TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

/// More than 8 bits.
Status ConvertRows(BitmapHandle& target, BitmapHandle& source) noexcept {
  const int32_t bits = source.BitsPerPixel;
  const bool alpha = source.Order != T_ORDER_GRAY && (bits == 32 || bits == 64);
  FormatLines lines;
  TARN_TRY(lines.Open(source, {target.BitsPerPixel, target.Order, nullptr}, alpha ? 0 : uint32_t{T_CONVERT_OPAQUE},
                      TARN_HERE));
  return MakeRows(target, source, lines);
}

// ---- Bitmaps -------------------------------------------------------------------------------------------------------

constexpr uint32_t OrderOf(int32_t bits) noexcept {
  if (bits <= 8) return T_ORDER_RGB;
  return bits == 12 ? T_ORDER_GRAY : T_ORDER_BGR;
}

struct Request {
  int32_t bits;
  uint32_t flags;
  const T_PaletteEntry* palette;
  uint32_t* matchTable;
  uint32_t colors;
};

Status FillResult(BitmapHandle& result, BitmapHandle& source, const Request& request, const Chosen& chosen) noexcept {
  DescribeSamples(result, OrderOf(request.bits));
  if (request.bits > 8) return ConvertRows(result, source);
  return DitherRows(result, source, request.flags >> 16 & 255, chosen);
}

Status MakePalette(int32_t bits, const Chosen& chosen, T_PaletteEntry*& palette) noexcept {
  palette = bits <= 8 ? T_CreateNewPalette(chosen.entries, 1u << bits) : nullptr;
  return bits > 8 || palette ? SUCCESS : ERR_NO_MEMORY;
}

Status Resolve(BitmapHandle& source, BitmapHandle* destination, const Request& request) noexcept {
  Chosen chosen;
  if (request.bits <= 8)
    TARN_TRY(ChoosePalette(source, request.bits, request.flags, request.palette, request.matchTable, request.colors,
                           chosen));
  T_PaletteEntry* palette = nullptr;
  TARN_TRY(MakePalette(request.bits, chosen, palette));
  Undo freePalette([&] {
    const Here here = TARN_HERE;
    if (palette) T_GlobalFree(palette, here.line, here.file);
  });
  const uint32_t colors = palette ? 1u << request.bits : 0;
  if (!destination) {
    ScratchBitmap result;
    TARN_TRY(result.Create(source, source.Width, source.Height, request.bits));
    TARN_TRY(FillResult(result.Record(), source, request, chosen));
    result.Commit(source);
    AdoptPalette(source, palette, colors);
    freePalette.Dismiss();
    return SUCCESS;
  }
  BitmapHandle made;
  TARN_TRY(T_DupBitmapNewDim(&made, &source, sizeof made, source.Width, source.Height, request.bits,
                             DUP_STORAGE | DUP_REGION | DUP_OVERLAYS));
  made.Palette = nullptr;
  if (const Status filled = FillResult(made, source, request, chosen); !filled.Ok()) {
    T_FreeBitmap(&made);
    return filled;
  }
  made.Palette = palette;
  made.Colors = colors;
  freePalette.Dismiss();
  *destination = made;
  return SUCCESS;
}

constexpr bool IsResultDepth(int32_t bits) noexcept {
  return (bits >= 1 && bits <= 8) || bits == 12 || bits == 16 || bits == 24 || bits == 32 || bits == 48 || bits == 64;
}

constexpr uint32_t ColorsFor(int32_t bits, uint32_t colors) noexcept {
  const uint32_t most = bits <= 8 ? 1u << bits : 0;
  return colors == 0 || colors > most ? most : colors;
}

Status RequireSource(const BitmapHandle* source, uint32_t structSize) noexcept {
  if (!source) return ERR_INVALID_PARAMETER;
  if (source->StructSize != sizeof(BitmapHandle) || structSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
  if (!IsAllocated(*source)) return ERR_NO_BITMAP;
  const bool table = (source->Flags & T_FLAG_LUT_IN_USE) != 0;
  if ((source->Flags & T_FLAG_SIGNED_DATA) && !table) return ERR_SIGNED_DATA;
  return GeometryHolds(*source) ? SUCCESS : ERR_INVALID_PARAMETER;
}

// ---- Lists ---------------------------------------------------------------------------------------------------------

/// A match table that all bitmaps of a list share as the thread's.
class SharedTable {
 public:
  Status Install() noexcept {
    const Here here = TARN_HERE;
    auto* const table = static_cast<uint32_t*>(T_LocalAllocInit(kMatchKeys, sizeof(uint32_t), here.line, here.file));
    if (!table) return ERR_NO_MEMORY;
    table_.Take(table);
    before_ = T_SetUserMatchTable(table);
    installed_ = true;
    return SUCCESS;
  }
  ~SharedTable() {
    if (installed_) T_SetUserMatchTable(before_);
  }

 private:
  MatchTable table_;
  uint32_t* before_ = nullptr;
  bool installed_ = false;
};

Status ResolveList(T_BitmapList& list, Request request) noexcept {
  OptimizedPalette shared;
  SharedTable table;
  if (request.bits <= 8) {
    request.flags &= ~uint32_t{128};
    const uint32_t type = request.flags & kTypeMask;
    const uint32_t others = request.flags & ~kTypeMask;
    if (type == 0 || type == 2 || type == 8 || type == 10) {
      if (!request.palette) {
        TARN_TRY(OptimizeBitmaps(list.Items, list.Count, request.colors, shared));
        request.palette = shared.entries;
        request.matchTable = shared.built ? shared.table.Get() : nullptr;
        if (shared.count > 0) request.colors = shared.count;
        request.flags = others | T_RES_PALETTE | T_RES_BORROW_TABLE;
      }
    } else if (type == T_RES_PALETTE || type == 256) {
      TARN_TRY(table.Install());
      request.flags |= T_RES_BORROW_TABLE;
    }
  }
  for (uint32_t i = 0; i < list.Count; ++i) {
    BitmapHandle bitmap = list.Items[i];
    TARN_TRY(T_ColorResBitmap(&bitmap, nullptr, sizeof bitmap, request.bits, request.flags, request.palette,
                              request.matchTable, request.colors, nullptr, nullptr));
    list.Items[i] = bitmap;
  }
  return SUCCESS;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_ColorResBitmap(BitmapHandle* source, BitmapHandle* destination, uint32_t structSize, int32_t bits,
                         uint32_t flags, const T_PaletteEntry* palette, uint32_t* matchTable, uint32_t colors,
                         T_StatusCallback callback, void* userData) noexcept {
  const bool borrowed = (flags & T_RES_BORROW_TABLE) != 0;
  const MatchTable given(matchTable, !borrowed);  // frees it in every case where it is not lent
  BitmapHandle* const result = destination == source ? nullptr : destination;
  const CallbackScope scope(callback, userData);
  Status status = RequireSource(source, structSize);
  if (status.Ok() && !IsResultDepth(bits)) status = ERR_INVALID_PARAMETER;
  if (status.Ok()) {
    uint32_t* table = matchTable;
    if (borrowed && !table) {
      table = T_SetUserMatchTable(nullptr);
      T_SetUserMatchTable(table);
    }
    status = Resolve(*source, result, {bits, flags, palette, table, ColorsFor(bits, colors)});
  }
  if (result && !status.Ok()) {
    std::memset(static_cast<void*>(result), 0, sizeof *result);
    result->StructSize = sizeof *result;
  }
  return status.code;
}

int32_t T_ColorResBitmapList(T_BitmapList* list, int32_t bits, uint32_t flags, const T_PaletteEntry* palette,
                             uint32_t* matchTable, uint32_t colors) noexcept {
  return T_ColorResBitmapListExt(list, bits, flags, palette, matchTable, colors, nullptr, nullptr);
}

int32_t T_ColorResBitmapListExt(T_BitmapList* list, int32_t bits, uint32_t flags, const T_PaletteEntry* palette,
                                uint32_t* matchTable, uint32_t colors, T_StatusCallback callback,
                                void* userData) noexcept {
  const MatchTable given(matchTable, !(flags & T_RES_BORROW_TABLE));
  if (!list || (palette && matchTable) || !IsResultDepth(bits)) return ERR_INVALID_PARAMETER;
  if (list->Count > 0 && !list->Items) return ERR_NULL_POINTER;
  const CallbackScope scope(callback, userData);
  // A table serves a palette that is given, which a list takes without one only: no bitmap looks at it.
  const uint32_t own = matchTable ? flags & ~uint32_t{T_RES_BORROW_TABLE} : flags;
  return ResolveList(*list, {bits, own, palette, nullptr, ColorsFor(bits, colors)}).code;
}
