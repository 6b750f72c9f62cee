// The bitmap behind the tool: storage by the user's choice, rows with every failure reported.

#include <algorithm>
#include <limits>

#include "Failure.h"
#include "Layout.h"
#include "Picture.h"

namespace tarn::tool {
namespace {

constexpr uint64_t kDefaultTileBytes = 16 << 20;
constexpr uint64_t kMaxBlock = 0xFFFFFFFF;  // the threshold counts in 32 bits; no bitmap is larger

/// Sets the thread's thresholds for a choice and returns the memory type to ask for.
uint32_t MemoryType(const StorageChoice& choice, const std::string& file) {
  uint64_t block = kMaxBlock;
  uint64_t tile = choice.tileBytes;
  int32_t memoryTiles = -100;  // all, as far as there is memory
  if (choice.kind == StorageKind::kAuto && choice.maxMemory != 0) {
    block = std::min(choice.maxMemory, kMaxBlock);
    // What does not fit one block of that size goes to tiles, and as many of them stay in memory as fit.
    if (tile == 0) tile = std::min(kDefaultTileBytes, choice.maxMemory);
    memoryTiles =
        static_cast<int32_t>(std::min<uint64_t>(choice.maxMemory / tile, std::numeric_limits<int32_t>::max()));
  }
  const int32_t set = T_SetMemoryThresholds(
      0, static_cast<int64_t>(block), static_cast<int64_t>(tile), memoryTiles, 1,
      T_THRESHOLD_MAX_CONVENTIONAL | T_THRESHOLD_TILE_SIZE | T_THRESHOLD_CONVENTIONAL_TILES | T_THRESHOLD_TILE_VIEWS);
  if (set != SUCCESS) throw Failure(Exit::kInternal, file, "storage thresholds refused: " + std::to_string(set));
  switch (choice.kind) {
    case StorageKind::kAuto:
      return TYPE_CONV;
    case StorageKind::kMemory:
      return TYPE_NOTILED;
    case StorageKind::kTiled:
      return TYPE_TILED;
    case StorageKind::kDisk:
      return TYPE_DISK;
    case StorageKind::kCompressed:
      return TYPE_COMPRESSED;
    case StorageKind::kSuper:
      return TYPE_SUPERCOMPRESSED;
  }
  return TYPE_CONV;
}

}  // namespace

void RequireStorable(const StorageChoice& choice, const Layout& layout, const std::string& file) {
  if (choice.kind == StorageKind::kCompressed && layout.bits != 1) {
    throw Failure(Exit::kDepth, file, "compressed storage holds 1-bit pictures only, this is " + NameOf(layout));
  }
  if (choice.kind == StorageKind::kSuper && !SuperCompressible(layout.bits)) {
    throw Failure(Exit::kDepth, file, "super storage holds pictures of 1, 8 or 24 bits, this is " + NameOf(layout));
  }
}

void RequireWithin(const StorageChoice& choice, const Picture& picture, const std::string& file) {
  const auto width = static_cast<uint64_t>(picture.width), height = static_cast<uint64_t>(picture.height);
  const std::string sides = std::to_string(width) + " x " + std::to_string(height) + " pixels";
  const auto refuse = [&](const std::string& what, const std::string& option, uint64_t limit, uint64_t needed) {
    throw Failure(Exit::kLimit, file,
                  what + ", more than the limit of " + std::to_string(limit) + "; " + option + " " +
                      std::to_string(needed) + " allows it");
  };
  // Who asks for tiles or a file expects a large picture, and has said where it goes.
  const bool onDisk = choice.kind == StorageKind::kTiled || choice.kind == StorageKind::kDisk;
  const uint64_t pixels = width * height;  // below 2^62
  const uint64_t most = choice.maxPixels != 0 ? choice.maxPixels : onDisk ? pixels : kMostPixels;
  if (pixels > most) refuse("is " + sides, "--max-pixels", most, pixels);
  const uint64_t bytes = picture.RowBytes() * height;
  if (choice.kind == StorageKind::kMemory && choice.maxMemory != 0 && bytes > choice.maxMemory) {
    refuse(sides + " of " + DepthName(picture) + " take " + std::to_string(bytes) + " bytes", "--max-memory",
           choice.maxMemory, bytes);
  }
}

namespace {

std::string TemporaryFolder() {
  char name[4096] = {};
  return T_GetTempDirectoryA(name, sizeof name) == SUCCESS && name[0] ? name : "the temporary directory";
}

}  // namespace

void ThrowStatus(int64_t status, const std::string& file, const std::string& doing) {
  switch (status) {
    case ERR_NO_MEMORY:
      throw Failure(Exit::kMemory, file, doing + ": no memory");
    case ERR_IMAGE_TOO_LARGE:
      throw Failure(Exit::kDepth, file, doing + ": a bitmap holds at most 4294901760 bytes");
    case ERR_DISK_FULL:
      throw Failure(Exit::kOutput, file, doing + ": no room for temporary files in " + TemporaryFolder());
    case ERR_FILE_SEEK:
    case ERR_FILE_READ:
    case ERR_FILE_WRITE:
    case 0:
      throw Failure(Exit::kOutput, file, doing + ": temporary files in " + TemporaryFolder() + " cannot be used");
    case ERR_LIBRARY_NOT_LOADED:
      throw Failure(Exit::kInternal, file, doing + ": the codec library is not beside libtarn");
    default:
      throw Failure(Exit::kInternal, file, doing + ": the library answers " + std::to_string(status));
  }
}

Bitmap::Bitmap(const Picture& picture, const StorageChoice& choice, std::string file)
    : Bitmap(picture.width, picture.height, LayoutOf(picture), picture.orientation, choice, std::move(file)) {
  if (picture.xDpi > 0) handle_.XResolution = picture.xDpi;
  if (picture.yDpi > 0) handle_.YResolution = picture.yDpi;
}

Bitmap::Bitmap(int32_t width, int32_t height, const Layout& layout, uint32_t orientation, const StorageChoice& choice,
               std::string file)
    : file_(std::move(file)) {
  RequireStorable(choice, layout, file_);
  Make(
      [&](BitmapHandle* made, uint32_t memoryType) {
        return T_CreateBitmap(made, sizeof *made, memoryType, width, height, layout.bits, layout.order,
                              layout.palette.empty() ? nullptr : layout.palette.data(), orientation, nullptr, 0);
      },
      choice,
      "storage for " + std::to_string(width) + " x " + std::to_string(height) + " pixels of " +
          std::to_string(layout.bits) + " bits");
}

Bitmap::Bitmap(const Maker& make, const StorageChoice& choice, std::string file, const std::string& doing)
    : file_(std::move(file)) {
  Make(make, choice, doing);
}

void Bitmap::Make(const Maker& make, const StorageChoice& choice, const std::string& doing) {
  const int32_t made = make(&handle_, MemoryType(choice, file_));
  if (made != SUCCESS) ThrowStatus(made, file_, doing);
  if (choice.kind == StorageKind::kMemory && (handle_.Flags & T_FLAG_ON_DISK) != 0) {
    T_FreeBitmap(&handle_);
    ThrowStatus(ERR_NO_MEMORY, file_, doing);
  }
}

Bitmap::~Bitmap() {
  if (!lent_) T_FreeBitmap(&handle_);
}

void Bitmap::Check(int64_t moved, uint64_t wanted, int32_t row, const char* doing) const {
  if (moved >= 0 && static_cast<uint64_t>(moved) == wanted) return;
  ThrowStatus(moved < 0 ? moved : 0, file_, std::string(doing) + " row " + std::to_string(row));
}

void Bitmap::PutRow(int32_t row, const uint8_t* source) {
  const uint64_t bytes = handle_.BytesPerLine;
  Check(T_PutBitmapRow(&handle_, source, static_cast<uint32_t>(row), bytes), bytes, row, "storing");
}

void Bitmap::GetRow(int32_t row, uint8_t* target) {
  const uint64_t bytes = handle_.BytesPerLine;
  Check(T_GetBitmapRow(&handle_, target, static_cast<uint32_t>(row), bytes), bytes, row, "fetching");
}

void Bitmap::PutPart(int32_t row, uint32_t column, const uint8_t* source, uint64_t bytes) {
  Check(T_PutBitmapRowCol(&handle_, source, static_cast<uint32_t>(row), column, bytes), bytes, row, "storing");
}

void Bitmap::GetPart(int32_t row, uint32_t column, uint8_t* target, uint64_t bytes) {
  Check(T_GetBitmapRowCol(&handle_, target, static_cast<uint32_t>(row), column, bytes), bytes, row, "fetching");
}

std::string Bitmap::StorageName() const {
  uint32_t type = 0, tiles = 0, memoryTiles = 0, views = 0;
  int64_t tileBytes = 0;
  const int32_t got = T_GetBitmapMemoryInfo(&handle_, &type, &tileBytes, &tiles, &memoryTiles, &views, nullptr);
  if (got != SUCCESS) return "unknown";
  switch (type) {
    case TYPE_TILED:
      return std::to_string(tiles) + (tiles == 1 ? " tile of " : " tiles of ") + std::to_string(tileBytes) +
             " bytes, " + std::to_string(memoryTiles) + " kept in memory, " + std::to_string(tiles - memoryTiles) +
             " swapped to files";
    case TYPE_DISK:
      return "a temporary file";
    case TYPE_COMPRESSED:
      return "compressed rows in memory";
    case TYPE_SUPERCOMPRESSED:
      return "compressed strips in memory";
    default:
      return "one block in memory";
  }
}

}  // namespace tarn::tool
