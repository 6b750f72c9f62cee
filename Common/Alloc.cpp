// Where a new bitmap's pixels go: one block, tiles, a temporary file, compressed rows.

#include "Common/Internal/Settings.h"
#include "Common/Internal/Status.h"
#include "Common/Internal/Storage.h"
#include "Common/Internal/Tiles.h"
#include "Platform/Platform.h"
#include "tarn/bitmap.h"

namespace tarn {
namespace {

constexpr uint32_t kStorageFlags = T_FLAG_ALLOCATED | T_FLAG_IN_MEMORY | T_FLAG_ON_DISK | T_FLAG_LOCKED |
                                   T_FLAG_COMPRESSED | T_FLAG_USER_DATA | T_FLAG_HANDLE_DATA | T_FLAG_TILED |
                                   T_FLAG_SUPER_COMPRESSED;

platform::SpinLock budgetLock{true};

// Every tile, file and section takes a handle: near the process's limit nothing that needs many is made.
bool HandlesAreScarce() noexcept {
  budgetLock.Acquire();
  uint32_t count = 0;
  uint32_t budget = 0;
  const bool known = platform::HandleCount(count, budget);
  const bool scarce = !known || count >= static_cast<uint64_t>(budget) * 9 / 10;
  budgetLock.Release();
  return scarce;
}

bool CanSuperCompress(int32_t bits) noexcept { return bits == 1 || bits == 8 || bits == 24; }

// Compressed kinds are taken out again where the depth rules them out.
uint32_t AdjustType(uint32_t type, int32_t bits) noexcept {
  if (type & TYPE_COMPRESSED) {
    type = bits == 1 ? static_cast<uint32_t>(TYPE_COMPRESSED | TYPE_NODISK)
                     : type & ~static_cast<uint32_t>(TYPE_COMPRESSED);
  }
  if ((type & TYPE_SUPERCOMPRESSED) && (!CanSuperCompress(bits) || HandlesAreScarce()))
    type &= ~static_cast<uint32_t>(TYPE_SUPERCOMPRESSED);
  return type;
}

bool IsMemoryType(uint32_t type) noexcept {
  switch (type) {
    case TYPE_CONV:
    case TYPE_USER:
    case TYPE_TILED:
    case TYPE_NOTILED:
    case TYPE_NOTILED | TYPE_CONV:
    case TYPE_DISK:
    case TYPE_NODISK:
    case TYPE_COMPRESSED | TYPE_NODISK:
    case TYPE_SUPERCOMPRESSED:
    case TYPE_SUPERCOMPRESSED | TYPE_CONV:
      return true;
    default:
      return false;
  }
}

// p percent in double precision, as the thresholds are defined.
uint64_t PercentOf(int64_t percent, uint64_t whole) noexcept {
  return static_cast<uint64_t>(static_cast<double>(percent) / 100.0 * static_cast<double>(whole));
}

uint64_t AvailableMemory(const platform::MemoryFigures& memory, int32_t threshold) noexcept {
  const uint64_t free = memory.availablePhysical + memory.availablePageFile;
  const uint64_t keep = threshold >= 0
                            ? static_cast<uint64_t>(threshold)
                            : PercentOf(-static_cast<int64_t>(threshold), memory.totalPhysical + memory.totalPageFile);
  return free > keep ? free - keep : 0;
}

uint64_t LargestBlock(const platform::MemoryFigures& memory, int64_t limit) noexcept {
  return limit >= 0 ? static_cast<uint32_t>(limit) : PercentOf(-limit, memory.totalPageFile + memory.totalPhysical);
}

// Smaller tiles are worth trying only where disk and memory together can hold the picture.
bool MachineCanHold(uint64_t bytes, const Settings& settings) noexcept {
  uint64_t disk = 0;
  if (!platform::DiskFree(settings.tempDirectory, disk)) disk = 0;
  if (disk > bytes) return true;
  const platform::MemoryFigures memory = platform::Memory(bytes);
  return memory.availablePhysical + memory.availablePageFile >= bytes - disk;
}

Status CreateTilesShrinking(BitmapHandle& bitmap, uint64_t available) noexcept {
  const Settings& settings = ThreadSettings();
  uint64_t tileSize = DefaultTileSize();
  const uint64_t smallest = uint64_t{8} * bitmap.BytesPerLine;
  Status made = CreateTileStorage(bitmap, tileSize, available);
  if (made.Ok() || !MachineCanHold(bitmap.Size, settings)) return made;
  for (tileSize /= 2; tileSize > smallest; tileSize /= 2) {
    made = CreateTileStorage(bitmap, tileSize, available);
    if (made.Ok()) return made;
  }
  return made;
}

Status AllocateOrdinary(BitmapHandle& bitmap, const uint32_t requested) noexcept {
  const Settings& settings = ThreadSettings();
  uint32_t type = requested;
  uint64_t available = 0;  // tiles asked for outright are planned without memory of their own
  if (type & TYPE_TILED) {
    if (bitmap.Size <= DefaultTileSize() || HandlesAreScarce()) type = TYPE_CONV;
  } else {
    const platform::MemoryFigures memory = platform::Memory(bitmap.Size);
    available = AvailableMemory(memory, settings.tiledThreshold);
    if (bitmap.Size > available || bitmap.Size > LargestBlock(memory, settings.maxConventionalSize)) type |= TYPE_TILED;
  }
  Status made = ERR_NO_MEMORY;
  if (!(type & (TYPE_TILED | TYPE_DISK))) {
    made = CreateBlockStorage(bitmap);
    if (made.Ok()) {
      bitmap.Flags |= T_FLAG_IN_MEMORY | T_FLAG_ALLOCATED;
      return SUCCESS;
    }
  }
  if (!(type & (TYPE_NOTILED | TYPE_DISK))) {
    made = CreateTilesShrinking(bitmap, available);
    if (made.Ok()) {
      bitmap.Flags |= T_FLAG_IN_MEMORY | T_FLAG_ALLOCATED | T_FLAG_TILED;
      return SUCCESS;
    }
  }
  if (requested != TYPE_NODISK) {
    made = CreateDiskStorage(bitmap);
    if (!made.Ok()) return made;
    bitmap.Flags |= T_FLAG_ON_DISK | T_FLAG_ALLOCATED;
    return SUCCESS;
  }
  return ERR_NO_MEMORY;
}

Status AllocateKind(BitmapHandle& bitmap, uint32_t type) noexcept {
  if (type & TYPE_USER) {
    bitmap.Flags |= T_FLAG_IN_MEMORY | T_FLAG_ALLOCATED | T_FLAG_USER_DATA;
    return SUCCESS;
  }
  if (type & TYPE_COMPRESSED) {
    TARN_TRY(CreateCompressedStorage(bitmap));
    bitmap.Flags |= T_FLAG_IN_MEMORY | T_FLAG_ALLOCATED | T_FLAG_COMPRESSED;
    return SUCCESS;
  }
  if (type & TYPE_SUPERCOMPRESSED) {
    TARN_TRY(CreateSuperStorage(bitmap));
    bitmap.Flags |= T_FLAG_IN_MEMORY | T_FLAG_ALLOCATED | T_FLAG_SUPER_COMPRESSED;
    return SUCCESS;
  }
  return AllocateOrdinary(bitmap, type);
}

}  // namespace

uint64_t AvailableBytes(uint64_t wanted) noexcept {
  return AvailableMemory(platform::Memory(wanted), ThreadSettings().tiledThreshold);
}

uint64_t DefaultTileSize() noexcept {
  const int64_t size = ThreadSettings().tileSize;
  return size < 1 ? uint64_t{16} << 20 : static_cast<uint64_t>(size);
}

}  // namespace tarn

using namespace tarn;

int32_t T_AllocateBitmap(BitmapHandle* handle, uint32_t memoryType) noexcept {
  if (!handle) return ERR_INVALID_PARAMETER;
  if (handle->StructSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
  if (handle->Size == 0 || handle->Height <= 0 || handle->BytesPerLine == 0) return ERR_EMPTY_AREA;
  if (handle->Size > T_MAX_IMAGE_BYTES) return ERR_IMAGE_TOO_LARGE;
  handle->Flags &= ~kStorageFlags;
  const uint32_t type = AdjustType(memoryType, handle->BitsPerPixel);
  if (!IsMemoryType(type)) return ERR_INVALID_PARAMETER;
  handle->MemoryHandle = 0;
  handle->Data = nullptr;
  handle->DataOffset = 0;
  handle->CachedRow = 0;
  handle->CachedRowOffset = 0;
  TARN_TRY(CreateGrayParams(*handle));
  const Status made = AllocateKind(*handle, type);
  if (!made.Ok()) T_FreeGrayParams(handle);
  return made.code;
}

int64_t T_GetMemoryThresholds(int32_t* tiledThreshold, int64_t* maxConventionalSize, int64_t* tileSize,
                              int32_t* conventionalTiles, int32_t* tileViews) noexcept {
  const Settings& settings = ThreadSettings();
  int64_t last = 0;
  if (tiledThreshold) last = *tiledThreshold = settings.tiledThreshold;
  if (maxConventionalSize) last = *maxConventionalSize = settings.maxConventionalSize;
  if (tileSize) last = *tileSize = settings.tileSize;
  if (conventionalTiles) last = *conventionalTiles = settings.conventionalTiles;
  if (tileViews) last = *tileViews = settings.tileViews;
  return last;
}

int32_t T_SetMemoryThresholds(int32_t tiledThreshold, int64_t maxConventionalSize, int64_t tileSize,
                              int32_t conventionalTiles, int32_t tileViews, uint32_t flags) noexcept {
  Settings& settings = ThreadSettings();
  constexpr int32_t kLowest = -100;  // percent
  if (flags & T_THRESHOLD_TILED) {
    if (tiledThreshold < kLowest) return ERR_INVALID_PARAMETER;
    settings.tiledThreshold = tiledThreshold;
  }
  if (flags & T_THRESHOLD_MAX_CONVENTIONAL) {
    if (maxConventionalSize < kLowest) return ERR_INVALID_PARAMETER;
    settings.maxConventionalSize = maxConventionalSize;
  }
  if (flags & T_THRESHOLD_TILE_SIZE) {
    if (tileSize < 0) return ERR_INVALID_PARAMETER;
    settings.tileSize = tileSize;
  }
  if (flags & T_THRESHOLD_CONVENTIONAL_TILES) {
    if (conventionalTiles < kLowest) return ERR_INVALID_PARAMETER;
    settings.conventionalTiles = conventionalTiles;
  }
  if (flags & T_THRESHOLD_TILE_VIEWS) {
    if (tileViews < kLowest) return ERR_INVALID_PARAMETER;
    settings.tileViews = tileViews;
  }
  return SUCCESS;
}

int32_t T_GetDefaultMemoryType(uint32_t* memoryType) noexcept {
  if (!memoryType) return ERR_INVALID_PARAMETER;
  *memoryType = ThreadSettings().defaultMemoryType;
  return SUCCESS;
}

int32_t T_SetDefaultMemoryType(uint32_t memoryType) noexcept {
  if (memoryType != TYPE_CONV && memoryType != TYPE_DISK) return ERR_INVALID_PARAMETER;
  ThreadSettings().defaultMemoryType = memoryType;
  return SUCCESS;
}
