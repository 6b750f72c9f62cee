// How a bitmap is stored: reporting it, moving its pixels to other storage, changing its height.

#include "Common/Internal/Checks.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/Settings.h"
#include "Common/Internal/Storage.h"
#include "Common/Internal/Tiles.h"
#include "tarn/bitmap.h"

namespace tarn {
namespace {

struct MemoryInfo {
  uint32_t type;
  TileFigures tiles;
};

MemoryInfo InfoOf(const BitmapHandle& bitmap) noexcept {
  MemoryInfo info = {TYPE_CONV, {}};
  const uint32_t flags = bitmap.Flags;
  if (!(flags & T_FLAG_IN_MEMORY)) {
    info.type = TYPE_DISK;
  } else if (flags & T_FLAG_COMPRESSED) {
    info.type = TYPE_COMPRESSED;
  } else if (flags & T_FLAG_SUPER_COMPRESSED) {
    info.type = TYPE_SUPERCOMPRESSED;
  } else if (flags & T_FLAG_TILED) {
    info.type = TYPE_TILED;
    (void)ReadTileFigures(bitmap, info.tiles);
  }
  return info;
}

// Makes new storage on a copy of the record, moves the pixels and lets the new storage take the old one's place. Every
// field that does not belong to storage stays.
template <class Create>
Status MoveStorage(BitmapHandle& bitmap, Create create) noexcept {
  BitmapHandle fresh = bitmap;
  fresh.GrayParams = nullptr;
  fresh.LUT = nullptr;
  fresh.LUTLength = 0;
  fresh.Size = SpanBytes(bitmap);  // compressed storage keeps another figure there
  TARN_TRY(create(fresh));
  Undo discard([&fresh] {
    ReleaseStorage(fresh);
    T_FreeGrayParams(&fresh);
  });
  {
    const QuietCallback quiet;
    TARN_TRY(T_CopyBitmapData(&fresh, &bitmap));
  }
  discard.Dismiss();
  T_FreeGrayParams(&fresh);
  T_ReleaseBitmap(&bitmap);
  ReleaseStorage(bitmap);
  bitmap.MemoryHandle = fresh.MemoryHandle;
  bitmap.Data = fresh.Data;
  bitmap.DataOffset = fresh.DataOffset;
  bitmap.Flags = fresh.Flags | (bitmap.Flags & T_FLAG_LUT_IN_USE);
  bitmap.Size = fresh.Size;
  bitmap.CachedRow = 0;
  bitmap.CachedRowOffset = 0;
  return SUCCESS;
}

// The thread's tile size for a scope.
class TileSizeScope {
 public:
  explicit TileSizeScope(uint64_t tileSize) noexcept : settings_(ThreadSettings()), before_(settings_.tileSize) {
    settings_.tileSize = static_cast<int64_t>(tileSize);
  }
  ~TileSizeScope() { settings_.tileSize = before_; }
  TileSizeScope(const TileSizeScope&) = delete;
  TileSizeScope& operator=(const TileSizeScope&) = delete;

 private:
  Settings& settings_;
  int64_t before_;
};

struct Wanted {
  uint32_t type;
  uint64_t tileSize;
  uint32_t conventional;
  uint32_t maxMapped;
  uint32_t mapped;
  uint32_t flags;  // T_INFO_...
};

// Figures of 0 are replaced by what the thread's thresholds give.
void FillDefaults(const BitmapHandle& bitmap, Wanted& wanted) noexcept {
  uint32_t conventional = 0;
  uint32_t maxMapped = 0;
  DefaultTileFigures(bitmap, wanted.tileSize, conventional, maxMapped);
  if ((wanted.flags & T_INFO_CONVENTIONAL_TILES) && wanted.conventional == 0) wanted.conventional = conventional;
  if ((wanted.flags & T_INFO_MAX_MAPPED_TILES) && wanted.maxMapped == 0) wanted.maxMapped = maxMapped;
}

Status CreateWanted(BitmapHandle& fresh, const Wanted& wanted) noexcept {
  const TileSizeScope scope(wanted.tileSize);
  TARN_TRY(T_AllocateBitmap(&fresh, wanted.type));
  constexpr uint32_t kLayout = T_INFO_CONVENTIONAL_TILES | T_INFO_MAX_MAPPED_TILES | T_INFO_MAPPED_TILES;
  if (!(fresh.Flags & T_FLAG_TILED) || !(wanted.flags & kLayout)) return SUCCESS;
  const Status adjusted = AdjustTiles(fresh, wanted.conventional, wanted.maxMapped, wanted.mapped);
  if (!adjusted.Ok()) {
    ReleaseStorage(fresh);
    T_FreeGrayParams(&fresh);
  }
  return adjusted;
}

Status SetMemoryInfo(BitmapHandle& bitmap, Wanted wanted) noexcept {
  const MemoryInfo now = InfoOf(bitmap);
  const uint32_t rowBytes = bitmap.BytesPerLine;
  if (!GeometryHolds(bitmap)) return ERR_EMPTY_AREA;
  if (wanted.type != TYPE_TILED) {
    if (wanted.type == now.type) return SUCCESS;
    return MoveStorage(bitmap,
                       [&wanted](BitmapHandle& fresh) { return Status(T_AllocateBitmap(&fresh, wanted.type)); });
  }
  FillDefaults(bitmap, wanted);
  const uint64_t rowsPerTile = wanted.tileSize / rowBytes + (wanted.tileSize % rowBytes != 0);
  if (now.type == TYPE_TILED && rowsPerTile == now.tiles.rowsPerTile) {
    if (wanted.conventional == now.tiles.conventional && wanted.maxMapped == now.tiles.maxMapped &&
        wanted.mapped == now.tiles.mapped)
      return SUCCESS;
    return AdjustTiles(bitmap, wanted.conventional, wanted.maxMapped, wanted.mapped);
  }
  return MoveStorage(bitmap, [&wanted](BitmapHandle& fresh) { return CreateWanted(fresh, wanted); });
}

// Tile size in bytes that cuts a bitmap into `count` tiles.
uint64_t TileSizeFor(const BitmapHandle& bitmap, uint32_t count) noexcept {
  const auto rows = static_cast<uint32_t>(bitmap.Height);
  return (rows / count + (rows % count != 0)) * static_cast<uint64_t>(bitmap.BytesPerLine);
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_GetBitmapMemoryInfo(const BitmapHandle* handle, uint32_t* memoryType, int64_t* tileSize, uint32_t* tileCount,
                              uint32_t* conventionalTiles, uint32_t* maxMappedTiles, uint32_t* mappedTiles) noexcept {
  TARN_TRY(RequireAllocatedThenSize(handle, ERR_NO_BITMAP));
  if (!memoryType) return ERR_INVALID_PARAMETER;
  const MemoryInfo info = InfoOf(*handle);
  *memoryType = info.type;
  if (tileSize) *tileSize = static_cast<int64_t>(info.tiles.tileSize);
  if (tileCount) *tileCount = info.tiles.count;
  if (conventionalTiles) *conventionalTiles = info.tiles.conventional;
  if (maxMappedTiles) *maxMappedTiles = info.tiles.maxMapped;
  if (mappedTiles) *mappedTiles = info.tiles.mapped;
  return SUCCESS;
}

int32_t T_SetBitmapMemoryInfo(BitmapHandle* handle, uint32_t memoryType, int64_t tileSize, uint32_t tileCount,
                              uint32_t conventionalTiles, uint32_t maxMappedTiles, uint32_t mappedTiles,
                              uint32_t flags) noexcept {
  TARN_TRY(RequireAllocatedThenSize(handle, ERR_NO_BITMAP));
  const MemoryInfo now = InfoOf(*handle);
  Wanted wanted = {now.type, now.tiles.tileSize, now.tiles.conventional, now.tiles.maxMapped, now.tiles.mapped, flags};
  if (flags & T_INFO_MEMORY_TYPE) wanted.type = memoryType;
  if (flags & T_INFO_CONVENTIONAL_TILES) wanted.conventional = conventionalTiles;
  if (flags & T_INFO_MAX_MAPPED_TILES) wanted.maxMapped = maxMappedTiles;
  if (flags & T_INFO_MAPPED_TILES) wanted.mapped = mappedTiles;
  if (flags & T_INFO_TILE_SIZE) {
    if (tileSize < 0) return ERR_INVALID_PARAMETER;
    wanted.tileSize = static_cast<uint64_t>(tileSize);
  } else if ((flags & T_INFO_TILE_COUNT) && tileCount != 0 && handle->Height > 0) {
    wanted.tileSize = TileSizeFor(*handle, tileCount);
  }
  if (wanted.tileSize == 0) wanted.tileSize = DefaultTileSize();
  return SetMemoryInfo(*handle, wanted).code;
}

int32_t T_ChangeBitmapHeight(BitmapHandle* handle, int32_t height) noexcept {
  TARN_TRY(RequireAllocatedThenSize(handle, ERR_NO_BITMAP));
  if ((handle->Flags & (T_FLAG_USER_DATA | T_FLAG_LOCKED)) || height < 1) return ERR_INVALID_PARAMETER;
  if (height == handle->Height) return SUCCESS;
  uint64_t bytes = 0;
  if (!ImageBytes(handle->BytesPerLine, height, bytes)) return ERR_IMAGE_TOO_LARGE;
  const StorageOps* const ops = OpsOf(*handle);
  if (!ops) return ERR_NO_BITMAP;
  TARN_TRY(ops->resize(*handle, height));
  handle->Height = height;
  handle->CachedRow = 0;
  handle->CachedRowOffset = 0;
  return SUCCESS;
}

int32_t T_ChangeBitmapCompression(BitmapHandle* handle, uint32_t type) noexcept {
  TARN_TRY(RequireAllocatedThenSize(handle, ERR_NO_BITMAP));
  if (type != 0 && type != TYPE_COMPRESSED && type != TYPE_SUPERCOMPRESSED) return ERR_INVALID_PARAMETER;
  const uint32_t now = InfoOf(*handle).type;
  const bool compressed = now == TYPE_COMPRESSED || now == TYPE_SUPERCOMPRESSED;
  if (type == now || (type == 0 && !compressed)) return SUCCESS;
  const int32_t bits = handle->BitsPerPixel;
  if (type == TYPE_COMPRESSED && bits != 1) return ERR_BAD_BITS_PER_PIXEL;
  if (type == TYPE_SUPERCOMPRESSED && bits != 1 && bits != 8 && bits != 24) return ERR_BAD_BITS_PER_PIXEL;
  const uint32_t wanted = type ? type : static_cast<uint32_t>(TYPE_CONV);
  return MoveStorage(*handle, [wanted](BitmapHandle& fresh) { return Status(T_AllocateBitmap(&fresh, wanted)); }).code;
}
