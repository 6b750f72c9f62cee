#include <cstring>
#include <new>

#include "Common/Internal/Geometry.h"
#include "Common/Internal/Ledger.h"
#include "Common/Internal/Settings.h"
#include "Common/Internal/Storage.h"
#include "Common/Internal/Tiles.h"
#include "Common/Internal/TrackedBuffer.h"
#include "Platform/Platform.h"
#include "tarn/memory.h"

namespace tarn {
namespace {

constexpr uint64_t kNoSwapFile = ~uint64_t{0};

#pragma pack(push, 4)
struct TileTable {
  uint32_t tileCount;
  uint32_t conventionalTileCount;
  uint32_t rowsPerTile;
  uint32_t mappedTiles;     // swap-backed tiles whose views are mapped
  uint32_t maxMappedTiles;  // limit of mappedTiles
};

struct Tile {
  uint64_t mapping;      // section of a memory tile, or of a mapped swap file; 0 when none
  uint8_t* view;         // null when not mapped
  uint64_t swapFile;     // kNoSwapFile for a memory tile
  uint32_t mappedOrder;  // slot i of the list of mapped tiles, most recently used first
};
#pragma pack(pop)

// One allocation holds the registration, the lock of the views, the table and its entries; Data points at the table.
//
//   | TileBlock | TileTable | Tile[tileCount] |
//               ^ Data
struct TileBlock {
  StorageNode node;
  platform::CriticalSection views;
};
static_assert(sizeof(TileBlock) % alignof(TileTable) == 0);

class Tiles {
 public:
  Tiles() noexcept = default;
  explicit Tiles(TileBlock* block) noexcept : block_(block) {}

  /// The tiles of a record; invalid when its Data is no tile table.
  static Tiles Of(const BitmapHandle& bitmap) noexcept {
    StorageNode* node = FindStorage(bitmap.Data);
    if (!node || node->kind != StorageKind::kTiles) return Tiles();
    return Tiles(reinterpret_cast<TileBlock*>(node));
  }

  static uint64_t BlockBytes(uint64_t tileCount) noexcept {
    return sizeof(TileBlock) + sizeof(TileTable) + tileCount * sizeof(Tile);
  }

  explicit operator bool() const noexcept { return block_ != nullptr; }
  TileBlock* Block() const noexcept { return block_; }
  StorageNode& Node() const noexcept { return block_->node; }
  TileTable& Table() const noexcept { return *reinterpret_cast<TileTable*>(block_ + 1); }
  Tile& At(uint32_t tile) const noexcept { return reinterpret_cast<Tile*>(&Table() + 1)[tile]; }

  uint64_t FullTileBytes() const noexcept { return static_cast<uint64_t>(Table().rowsPerTile) * Node().rowBytes; }
  uint64_t TileBytes(uint32_t tile) const noexcept {
    if (tile + 1 < Table().tileCount) return FullTileBytes();
    return (Node().rows - static_cast<uint64_t>(tile) * Table().rowsPerTile) * Node().rowBytes;
  }
  bool InMemory(uint32_t tile) const noexcept { return At(tile).swapFile == kNoSwapFile; }

  Status MakeMemoryTile(uint32_t tile) const noexcept { return MakeMemoryTile(At(tile), TileBytes(tile)); }
  Status MakeSwapTile(uint32_t tile) const noexcept { return MakeSwapTile(At(tile), TileBytes(tile)); }

  static Status MakeMemoryTile(Tile& tile, uint64_t bytes) noexcept {
    platform::Block block;
    if (!platform::BlockCreate(bytes, block, TARN_HERE)) return ERR_NO_MEMORY;
    ledger::Add(block.view, ledger::Kind::kSystem, TARN_HERE);
    tile.mapping = block.section;
    tile.view = block.view;
    tile.swapFile = kNoSwapFile;
    return SUCCESS;
  }

  static Status MakeSwapTile(Tile& tile, uint64_t bytes) noexcept {
    const int64_t file = platform::FileTemporary(ThreadSettings().tempDirectory, TARN_HERE);
    if (file == platform::kNoFile) return ERR_DISK_FULL;
    if (!platform::FileReserve(file, bytes, TARN_HERE)) {
      (void)platform::FileClose(file, TARN_HERE);
      return ERR_DISK_FULL;
    }
    ledger::Add(reinterpret_cast<void*>(file), ledger::Kind::kSystem, TARN_HERE);
    tile.mapping = 0;
    tile.view = nullptr;
    tile.swapFile = static_cast<uint64_t>(file);
    return SUCCESS;
  }

  /// Frees what a tile holds. A mapped swap tile must have left the list.
  static void ReleaseTile(Tile& tile, uint64_t bytes) noexcept {
    if (tile.swapFile == kNoSwapFile) {
      if (tile.view) {
        ledger::Remove(tile.view, ledger::Kind::kSystem, TARN_HERE);
        platform::BlockRelease({tile.mapping, tile.view}, bytes);
      }
    } else {
      UnmapView(tile, bytes);
      ledger::Remove(reinterpret_cast<void*>(tile.swapFile), ledger::Kind::kSystem, TARN_HERE);
      (void)platform::FileClose(static_cast<int64_t>(tile.swapFile), TARN_HERE);
    }
    tile.mapping = 0;
    tile.view = nullptr;
    tile.swapFile = kNoSwapFile;
  }

  /// View of a tile, mapped now if need be; the least recently used views make room. Null when it cannot be mapped.
  /// The caller holds the lock of the views.
  uint8_t* View(uint32_t tile) const noexcept {
    Tile& entry = At(tile);
    if (InMemory(tile)) return entry.view;
    if (entry.view) {
      MoveToFront(tile);
      return entry.view;
    }
    while (Table().mappedTiles >= Table().maxMappedTiles && Table().mappedTiles > 0) UnmapLast();
    const uint64_t bytes = TileBytes(tile);
    entry.mapping = platform::SectionOnFile(static_cast<int64_t>(entry.swapFile), bytes, TARN_HERE);
    if (!entry.mapping) return nullptr;
    entry.view = platform::ViewMap(entry.mapping, 0, bytes, TARN_HERE);
    if (!entry.view) {
      platform::SectionClose(entry.mapping);
      entry.mapping = 0;
      return nullptr;
    }
    At(Table().mappedTiles++).mappedOrder = tile;
    MoveToFront(tile);
    return entry.view;
  }

  void UnmapLast() const noexcept {
    const uint32_t tile = At(--Table().mappedTiles).mappedOrder;
    UnmapView(At(tile), TileBytes(tile));
  }

  void UnmapAll() const noexcept {
    while (Table().mappedTiles > 0) UnmapLast();
  }

  /// Releases tiles last to first, down to tile `first`.
  void ReleaseFrom(uint32_t first) const noexcept {
    UnmapAll();
    for (uint32_t tile = Table().tileCount; tile-- > first;) ReleaseTile(At(tile), TileBytes(tile));
  }

 private:
  static void UnmapView(Tile& tile, uint64_t bytes) noexcept {
    if (!tile.view) return;
    platform::ViewUnmap(tile.view, bytes);
    platform::SectionClose(tile.mapping);
    tile.view = nullptr;
    tile.mapping = 0;
  }

  void MoveToFront(uint32_t tile) const noexcept {
    uint32_t carried = tile;
    for (uint32_t slot = 0; slot < Table().mappedTiles; ++slot) {
      const uint32_t here = At(slot).mappedOrder;
      At(slot).mappedOrder = carried;
      if (here == tile) return;
      carried = here;
    }
  }

  TileBlock* block_ = nullptr;
};

struct Layout {
  uint32_t conventional;
  uint32_t maxMapped;
};

// How many of n tiles stay in memory and how many of the others may be mapped. Percentages are taken in double
// precision and truncated.
Layout PlanTiles(uint32_t n, uint64_t tileSize, uint64_t available, int32_t conventionalTiles,
                 int32_t tileViews) noexcept {
  const auto percentOf = [](int32_t percent, double whole) {
    return static_cast<uint64_t>(-static_cast<double>(percent) / 100.0 * whole);
  };
  uint64_t budget = conventionalTiles >= 0 ? static_cast<uint32_t>(conventionalTiles) : percentOf(conventionalTiles, n);
  if (available / tileSize < budget) budget = available / tileSize;
  if (budget >= n) return {n, 0};
  uint64_t views = static_cast<uint32_t>(tileViews);
  if (tileViews < 0) {
    const double q = -static_cast<double>(tileViews);
    views = q >= 100.0 ? budget : static_cast<uint64_t>(q * static_cast<double>(n - budget) / (100.0 - q));
  }
  if (views == 0) views = 1;
  uint64_t conventional = 0;
  if (views > budget) {
    views = budget ? budget : 1;
  } else {
    conventional = budget - views;
  }
  return {static_cast<uint32_t>(conventional), static_cast<uint32_t>(views < n ? views : n)};
}

uint32_t RowsPerTile(uint64_t tileSize, uint32_t rowBytes, int32_t height) noexcept {
  const uint64_t rows = tileSize / rowBytes;
  if (rows < 1) return 1;
  return rows < static_cast<uint32_t>(height) ? static_cast<uint32_t>(rows) : static_cast<uint32_t>(height);
}

uint32_t TileCountOf(uint32_t rows, uint32_t rowsPerTile) noexcept {
  return rows / rowsPerTile + (rows % rowsPerTile != 0);
}

// Fills tiles first.. of the table: in memory up to the quota, then in swap files. When memory runs out, what is left
// of the quota becomes views.
Status MakeTilesFrom(const Tiles& tiles, uint32_t first) noexcept {
  TileTable& table = tiles.Table();
  for (uint32_t tile = first; tile < table.tileCount; ++tile) {
    if (tile < table.conventionalTileCount) {
      if (tiles.MakeMemoryTile(tile).Ok()) continue;
      const uint64_t views = uint64_t{table.maxMappedTiles} + (table.conventionalTileCount - tile);
      table.maxMappedTiles = static_cast<uint32_t>(views < table.tileCount ? views : table.tileCount);
      table.conventionalTileCount = tile;
    }
    const Status made = tiles.MakeSwapTile(tile);
    if (!made.Ok()) {
      while (tile-- > first) Tiles::ReleaseTile(tiles.At(tile), tiles.TileBytes(tile));
      return made;
    }
  }
  return SUCCESS;
}

Status CreateWithLayout(BitmapHandle& bitmap, uint32_t rowsPerTile, const Layout& layout) noexcept {
  const auto rows = static_cast<uint32_t>(bitmap.Height);
  const uint32_t count = TileCountOf(rows, rowsPerTile);
  const Here here = TARN_HERE;
  void* const memory = T_LocalAllocInit(1, Tiles::BlockBytes(count), here.line, here.file);
  if (!memory) return ERR_NO_MEMORY;
  const Tiles tiles(::new (memory) TileBlock{});
  tiles.Node() = {
      nullptr, &tiles.Table(), 0, StorageKind::kTiles, bitmap.BytesPerLine, rows, static_cast<uint32_t>(bitmap.Width)};
  tiles.Table() = {count, layout.conventional, rowsPerTile, 0, layout.maxMapped};
  Status made = MakeTilesFrom(tiles, 0);
  if (made.Ok() && tiles.Table().conventionalTileCount < count && !tiles.View(tiles.Table().conventionalTileCount)) {
    tiles.ReleaseFrom(0);
    made = ERR_NO_MEMORY;
  }
  if (!made.Ok()) {
    T_LocalFree(memory, here.line, here.file);
    return made;
  }
  RegisterStorage(tiles.Node());
  bitmap.Data = reinterpret_cast<uint8_t*>(&tiles.Table());
  return SUCCESS;
}

// Walks the tiles that a transfer touches. move(view + offset, bytes so far, bytes here); returns false when a view
// could not be had, the bytes walked either way.
template <class Move>
bool WalkTiles(const Tiles& tiles, uint32_t row, uint64_t offset, uint64_t bytes, uint64_t& walked,
               Move move) noexcept {
  const TileTable& table = tiles.Table();
  const uint64_t start = static_cast<uint64_t>(row) * tiles.Node().rowBytes + offset;
  const uint64_t fullBytes = tiles.FullTileBytes();
  uint64_t tile = start / fullBytes;
  uint64_t within = start % fullBytes;
  for (walked = 0; walked < bytes && tile < table.tileCount; ++tile, within = 0) {
    const auto index = static_cast<uint32_t>(tile);
    const uint64_t tileBytes = tiles.TileBytes(index);
    if (within >= tileBytes) break;
    const uint64_t here = bytes - walked < tileBytes - within ? bytes - walked : tileBytes - within;
    if (tiles.InMemory(index)) {
      move(tiles.At(index).view + within, walked, here);
    } else {
      // Another thread's row may take the view away: it is used under the lock only.
      const platform::Guard guard(tiles.Block()->views);
      uint8_t* const view = tiles.View(index);
      if (!view) return false;
      move(view + within, walked, here);
    }
    walked += here;
  }
  return true;
}

int64_t ReadTiles(BitmapHandle& bitmap, uint8_t* target, uint32_t row, uint64_t offset, uint64_t bytes) noexcept {
  const Tiles tiles = Tiles::Of(bitmap);
  if (!tiles) return ERR_NO_MEMORY;
  uint64_t walked = 0;
  const bool whole =
      WalkTiles(tiles, row, offset, bytes, walked,
                [target](const uint8_t* at, uint64_t done, uint64_t here) { std::memcpy(target + done, at, here); });
  return whole ? static_cast<int64_t>(bytes) : int64_t{ERR_NO_MEMORY};
}

int64_t WriteTiles(BitmapHandle& bitmap, const uint8_t* source, uint32_t row, uint64_t offset, uint64_t bytes,
                   int64_t failedTile) noexcept {
  const Tiles tiles = Tiles::Of(bitmap);
  if (!tiles) return ERR_NO_MEMORY;
  uint64_t walked = 0;
  const bool whole = WalkTiles(tiles, row, offset, bytes, walked, [source](uint8_t* at, uint64_t done, uint64_t here) {
    std::memcpy(at, source + done, here);
  });
  return whole && walked == bytes ? static_cast<int64_t>(bytes) : failedTile;
}

uint8_t* DirectTileRow(BitmapHandle& bitmap, uint32_t row) noexcept {
  const Tiles tiles = Tiles::Of(bitmap);
  if (!tiles || row >= tiles.Node().rows || bitmap.BytesPerLine > tiles.Node().rowBytes) return nullptr;
  const uint32_t tile = row / tiles.Table().rowsPerTile;
  if (!tiles.InMemory(tile)) return nullptr;
  return tiles.At(tile).view + static_cast<uint64_t>(row % tiles.Table().rowsPerTile) * tiles.Node().rowBytes;
}

// A tile of another length with the old contents as far as they go; the old tile is untouched.
Status MakeResizedTile(const Tiles& tiles, uint32_t tile, uint64_t bytes, Tile& made) noexcept {
  const uint64_t oldBytes = tiles.TileBytes(tile);
  const uint64_t kept = oldBytes < bytes ? oldBytes : bytes;
  if (tiles.InMemory(tile)) {
    TARN_TRY(Tiles::MakeMemoryTile(made, bytes));
    std::memcpy(made.view, tiles.At(tile).view, kept);
    return SUCCESS;
  }
  TARN_TRY(Tiles::MakeSwapTile(made, bytes));
  const uint8_t* const view = tiles.View(tile);
  const auto file = static_cast<int64_t>(made.swapFile);
  bool written = view && platform::FileSeek(file, 0, T_SEEK_START, TARN_HERE) == 0;
  constexpr uint64_t kChunk = 0x7FFFFFF;
  for (uint64_t done = 0; written && done < kept;) {
    const auto wanted = static_cast<uint32_t>(kept - done < kChunk ? kept - done : kChunk);
    written = platform::FileWrite(file, view + done, wanted, TARN_HERE) == wanted;
    done += wanted;
  }
  if (written) return SUCCESS;
  Tiles::ReleaseTile(made, bytes);
  return ERR_NO_MEMORY;
}

// Everything new is made beside the old table; only then do the tiles change hands.
Status ResizeTiles(BitmapHandle& bitmap, int32_t height) noexcept {
  const Tiles old = Tiles::Of(bitmap);
  if (!old) return ERR_NO_MEMORY;
  const TileTable before = old.Table();
  const auto rows = static_cast<uint32_t>(height);
  const uint32_t count = TileCountOf(rows, before.rowsPerTile);
  const uint32_t kept = count < before.tileCount ? count : before.tileCount;
  const Here here = TARN_HERE;
  void* const memory = T_LocalAllocInit(1, Tiles::BlockBytes(count), here.line, here.file);
  if (!memory) return ERR_NO_MEMORY;
  const Tiles made(::new (memory) TileBlock{});
  made.Node() = {nullptr, &made.Table(), 0, StorageKind::kTiles, old.Node().rowBytes, rows, old.Node().width};
  made.Table() = {count, before.conventionalTileCount < count ? before.conventionalTileCount : count,
                  before.rowsPerTile, 0, before.maxMappedTiles ? before.maxMappedTiles : 1};
  Status status = SUCCESS;
  Tile border{0, nullptr, kNoSwapFile, 0};  // the last tile that both have, when its length changes
  const bool resized = old.TileBytes(kept - 1) != made.TileBytes(kept - 1);
  if (resized) status = MakeResizedTile(old, kept - 1, made.TileBytes(kept - 1), border);
  if (status.Ok()) {
    status = MakeTilesFrom(made, kept);
    if (!status.Ok() && resized) Tiles::ReleaseTile(border, made.TileBytes(kept - 1));
  }
  if (!status.Ok()) {
    T_LocalFree(memory, here.line, here.file);
    return ERR_NO_MEMORY;
  }
  old.UnmapAll();
  for (uint32_t tile = before.tileCount; tile-- > kept;) Tiles::ReleaseTile(old.At(tile), old.TileBytes(tile));
  for (uint32_t tile = 0; tile < kept; ++tile) made.At(tile) = old.At(tile);
  if (resized) {
    Tiles::ReleaseTile(old.At(kept - 1), old.TileBytes(kept - 1));
    made.At(kept - 1) = border;
  }
  if (made.Table().conventionalTileCount == count) made.Table().maxMappedTiles = 0;
  UnregisterStorage(old.Node());
  T_LocalFree(old.Block(), here.line, here.file);
  RegisterStorage(made.Node());
  bitmap.Data = reinterpret_cast<uint8_t*>(&made.Table());
  bitmap.Size = CappedSize(static_cast<uint64_t>(made.Node().rowBytes) * rows);
  return SUCCESS;
}

void ReleaseTiles(BitmapHandle& bitmap) noexcept {
  if (const Tiles tiles = Tiles::Of(bitmap)) {
    UnregisterStorage(tiles.Node());
    tiles.ReleaseFrom(0);
    const Here here = TARN_HERE;
    T_LocalFree(tiles.Block(), here.line, here.file);
  }
  bitmap.Data = nullptr;
  bitmap.Flags &= ~static_cast<uint32_t>(T_FLAG_TILED);
}

// What a tile becomes when it changes between memory and swap file.
Status MakeMovedTile(const Tiles& tiles, uint32_t tile, Tile& made) noexcept {
  const uint64_t bytes = tiles.TileBytes(tile);
  if (!tiles.InMemory(tile)) {
    const uint8_t* const view = tiles.View(tile);
    if (!view) return ERR_NO_MEMORY;
    TARN_TRY(Tiles::MakeMemoryTile(made, bytes));
    std::memcpy(made.view, view, bytes);
    return SUCCESS;
  }
  TARN_TRY(Tiles::MakeSwapTile(made, bytes));
  const uint64_t section = platform::SectionOnFile(static_cast<int64_t>(made.swapFile), bytes, TARN_HERE);
  uint8_t* const view = section ? platform::ViewMap(section, 0, bytes, TARN_HERE) : nullptr;
  if (view) {
    std::memcpy(view, tiles.At(tile).view, bytes);
    platform::ViewUnmap(view, bytes);
  }
  if (section) platform::SectionClose(section);
  if (view) return SUCCESS;
  Tiles::ReleaseTile(made, bytes);
  return ERR_NO_MEMORY;
}

}  // namespace

Status CreateTileStorage(BitmapHandle& bitmap, uint64_t tileSize, uint64_t available) noexcept {
  const Settings& settings = ThreadSettings();
  const uint32_t rowsPerTile = RowsPerTile(tileSize, bitmap.BytesPerLine, bitmap.Height);
  const uint32_t count = TileCountOf(static_cast<uint32_t>(bitmap.Height), rowsPerTile);
  return CreateWithLayout(bitmap, rowsPerTile,
                          PlanTiles(count, static_cast<uint64_t>(rowsPerTile) * bitmap.BytesPerLine, available,
                                    settings.conventionalTiles, settings.tileViews));
}

void DefaultTileFigures(const BitmapHandle& bitmap, uint64_t tileSize, uint32_t& conventional,
                        uint32_t& maxMapped) noexcept {
  const Settings& settings = ThreadSettings();
  const uint32_t rowsPerTile = RowsPerTile(tileSize, bitmap.BytesPerLine, bitmap.Height);
  const uint64_t bytes = static_cast<uint64_t>(rowsPerTile) * bitmap.BytesPerLine;
  const Layout layout = PlanTiles(TileCountOf(static_cast<uint32_t>(bitmap.Height), rowsPerTile), bytes,
                                  AvailableBytes(SpanBytes(bitmap)), settings.conventionalTiles, settings.tileViews);
  conventional = layout.conventional;
  maxMapped = layout.maxMapped;
}

bool ReadTileFigures(const BitmapHandle& bitmap, TileFigures& figures) noexcept {
  const Tiles tiles = Tiles::Of(bitmap);
  if (!tiles) return false;
  const TileTable& table = tiles.Table();
  figures = {tiles.FullTileBytes(),       table.rowsPerTile,    table.tileCount,
             table.conventionalTileCount, table.maxMappedTiles, table.mappedTiles};
  return true;
}

Status AdjustTiles(BitmapHandle& bitmap, uint32_t conventional, uint32_t maxMapped, uint32_t mapped) noexcept {
  const Tiles tiles = Tiles::Of(bitmap);
  if (!tiles) return ERR_NO_MEMORY;
  const platform::Guard guard(tiles.Block()->views);
  TileTable& table = tiles.Table();
  if (conventional > table.tileCount) conventional = table.tileCount;
  if (maxMapped > table.tileCount) maxMapped = table.tileCount;
  if (conventional == table.tileCount) {
    maxMapped = 0;
  } else if (maxMapped == 0) {
    maxMapped = 1;
  }
  const uint32_t low = conventional < table.conventionalTileCount ? conventional : table.conventionalTileCount;
  const uint32_t high = conventional < table.conventionalTileCount ? table.conventionalTileCount : conventional;
  TrackedBuffer<Tile> moved(high - low, TARN_HERE);
  if (!moved) return ERR_NO_MEMORY;
  for (uint32_t tile = low; tile < high; ++tile) {
    const Status made = MakeMovedTile(tiles, tile, moved[tile - low]);
    if (!made.Ok()) {
      while (tile-- > low) Tiles::ReleaseTile(moved[tile - low], tiles.TileBytes(tile));
      return made;
    }
  }
  if (high != low) tiles.UnmapAll();
  for (uint32_t tile = low; tile < high; ++tile) {
    const uint32_t order = tiles.At(tile).mappedOrder;
    Tiles::ReleaseTile(tiles.At(tile), tiles.TileBytes(tile));
    tiles.At(tile) = moved[tile - low];
    tiles.At(tile).mappedOrder = order;
  }
  table.conventionalTileCount = conventional;
  table.maxMappedTiles = maxMapped;
  while (table.mappedTiles > maxMapped) tiles.UnmapLast();
  // Views asked for are mapped if they can be; rows map theirs anyway.
  for (uint32_t tile = conventional;
       tile < table.tileCount && table.mappedTiles < mapped && table.mappedTiles < maxMapped; ++tile) {
    if (!tiles.View(tile)) break;
  }
  return SUCCESS;
}

const StorageOps kTileOps = {ReadTiles, WriteTiles, DirectTileRow, ResizeTiles, ReleaseTiles};

}  // namespace tarn
