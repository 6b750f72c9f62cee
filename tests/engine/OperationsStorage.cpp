// Making, resizing and moving storage.

#include "engine/Operations.h"

namespace tarn::engine {
namespace {

/// How many bytes a tile has, and how many tiles lie in memory or in views.
struct Thresholds {
  int32_t tileRows;
  int32_t conventionalTiles;
  int32_t tileViews;
};

void SetThresholds(const Work& w, const Thresholds& wanted, int64_t largestBlock) {
  T_SetMemoryThresholds(0, largestBlock, int64_t{wanted.tileRows} * w.shape.RowBytes(), wanted.conventionalTiles,
                        wanted.tileViews, 31);
}

void KeepThresholds(Work& w) {
  // Until the end of the run; the pictures are freed by then.
  const auto scope = std::make_shared<ThresholdScope>();
  w.Later([scope] {});
}

void Describe(Work& w) { T_InitBitmap(&w.made, sizeof w.made, w.shape.width, w.shape.height, w.shape.bits); }

const std::vector<int64_t> kAllocation = {ERR_NO_MEMORY, ERR_FILE_WRITE};
const std::vector<int64_t> kMoving = {ERR_NO_MEMORY, ERR_FILE_WRITE, ERR_FILE_SEEK, ERR_FILE_READ, ERR_DISK_FULL};

Operation Allocate(const char* name, uint32_t type, uint64_t depths = kAllDepths) {
  return {.name = name, .depths = depths, .failures = kAllocation, .prepare = Describe, .call = [type](Work& w) {
            return T_AllocateBitmap(&w.made, type);
          }};
}

/// Storage of a type where no block is larger than a byte.
Operation AllocateTiles(const char* name, uint32_t type, const Thresholds& thresholds) {
  return {.name = name,
          .failures = kAllocation,
          .prepare =
              [thresholds](Work& w) {
                Describe(w);
                KeepThresholds(w);
                SetThresholds(w, thresholds, 1);
              },
          .call = [type](Work& w) { return T_AllocateBitmap(&w.made, type); }};
}

Operation Create(const char* name, uint32_t type, bool gray, uint64_t depths) {
  return {.name = name, .depths = depths, .failures = kAllocation, .call = [type, gray](Work& w) {
            return T_CreateBitmap(&w.made, sizeof w.made, type, w.shape.width, w.shape.height, gray ? 0 : w.shape.bits,
                                  T_ORDER_BGR, nullptr, 1, nullptr, 0);
          }};
}

Operation ChangeHeight(const char* name, int32_t (*newHeight)(int32_t height)) {
  return {.name = name,
          .kinds = kOwnKinds | Bit(Kind::kMovable),
          .failures = {ERR_NO_MEMORY},
          .call = [newHeight](Work& w) { return T_ChangeBitmapHeight(&w.subject.record, newHeight(w.shape.height)); }};
}

Operation MoveTo(const char* name, uint32_t type, uint64_t depths = kAllDepths) {
  return {.name = name, .kinds = kAllKinds, .depths = depths, .failures = kMoving, .call = [type](Work& w) {
            return T_SetBitmapMemoryInfo(&w.subject.record, type, 0, 0, 0, 0, 0, T_INFO_MEMORY_TYPE);
          }};
}

Operation MoveToTiles(const char* name, int32_t tileRows, uint32_t conventional, uint32_t maxMapped) {
  return {.name = name, .kinds = kAllKinds, .failures = kMoving, .call = [=](Work& w) {
            constexpr uint32_t kGiven =
                T_INFO_MEMORY_TYPE | T_INFO_TILE_SIZE | T_INFO_CONVENTIONAL_TILES | T_INFO_MAX_MAPPED_TILES;
            return T_SetBitmapMemoryInfo(&w.subject.record, TYPE_TILED, int64_t{tileRows} * w.shape.RowBytes(), 0,
                                         conventional, maxMapped, 0, kGiven);
          }};
}

Operation AdjustTiles(const char* name, uint32_t conventional, uint32_t maxMapped, uint32_t mapped) {
  return {.name = name, .kinds = kTiledKinds, .failures = kMoving, .call = [=](Work& w) {
            return T_SetBitmapMemoryInfo(&w.subject.record, 0, 0, 0, conventional, maxMapped, mapped,
                                         T_INFO_CONVENTIONAL_TILES | T_INFO_MAX_MAPPED_TILES | T_INFO_MAPPED_TILES);
          }};
}

}  // namespace

void AddStorageOperations(std::vector<Operation>& table) {
  table.push_back(Allocate("T_AllocateBitmap 1", TYPE_CONV));
  table.push_back(Allocate("T_AllocateBitmap 2", TYPE_USER));
  table.push_back(Allocate("T_AllocateBitmap 8", TYPE_NOTILED));
  table.push_back(Allocate("T_AllocateBitmap 9", TYPE_NOTILED | TYPE_CONV));
  table.push_back(Allocate("T_AllocateBitmap 128", TYPE_DISK));
  table.push_back(Allocate("T_AllocateBitmap 256", TYPE_NODISK));
  table.push_back(Allocate("T_AllocateBitmap 512", TYPE_COMPRESSED, DepthBit(1)));
  table.push_back(Allocate("T_AllocateBitmap 768", TYPE_COMPRESSED | TYPE_NODISK));
  table.push_back(Allocate("T_AllocateBitmap 1025", TYPE_SUPERCOMPRESSED | TYPE_CONV, ~kSuperDepths));
  table.push_back(Allocate("T_AllocateBitmap 1024", TYPE_SUPERCOMPRESSED, kSuperDepths));
  table.push_back(AllocateTiles("T_AllocateBitmap 1, memory tiles", TYPE_CONV, {kTileRows, -100, 1}));
  table.push_back(AllocateTiles("T_AllocateBitmap 1, memory and swap tiles", TYPE_CONV, {kTileRows, 3, 2}));
  table.push_back(AllocateTiles("T_AllocateBitmap 256, swap tiles", TYPE_NODISK, {1, 0, 1}));
  table.push_back(AllocateTiles("T_AllocateBitmap 9, too large", TYPE_NOTILED | TYPE_CONV, {kTileRows, -100, 1}));
  table.push_back(AllocateTiles("T_AllocateBitmap 4", TYPE_TILED, {kTileRows, -100, -50}));
  table.push_back(AllocateTiles("T_AllocateBitmap 4, tiles that shrink", TYPE_TILED, {18, 0, 1}));

  table.push_back(Create("T_CreateBitmap 1", TYPE_CONV, false, kAllDepths));
  table.push_back(Create("T_CreateBitmap 128, gray", TYPE_DISK, true, DepthBit(8)));
  table.push_back(Create("T_CreateBitmap 512", TYPE_COMPRESSED, false, DepthBit(1)));

  table.push_back(ChangeHeight("T_ChangeBitmapHeight, one row more", [](int32_t height) { return height + 1; }));
  table.push_back(ChangeHeight("T_ChangeBitmapHeight, seven more", [](int32_t height) { return height + 7; }));
  table.push_back(ChangeHeight("T_ChangeBitmapHeight, one less", [](int32_t height) { return height - 1; }));
  table.push_back(ChangeHeight("T_ChangeBitmapHeight, two left", [](int32_t) { return 2; }));

  table.push_back(MoveTo("T_SetBitmapMemoryInfo, memory", TYPE_CONV));
  table.push_back(MoveTo("T_SetBitmapMemoryInfo, memory only", TYPE_NODISK));
  table.push_back(MoveTo("T_SetBitmapMemoryInfo, disk", TYPE_DISK));
  table.push_back(MoveTo("T_SetBitmapMemoryInfo, compressed", TYPE_COMPRESSED, DepthBit(1)));
  table.push_back(MoveTo("T_SetBitmapMemoryInfo, super-compressed", TYPE_SUPERCOMPRESSED, kSuperDepths));
  table.push_back(MoveToTiles("T_SetBitmapMemoryInfo, swap tiles", 2, 0, 0));
  table.push_back(MoveToTiles("T_SetBitmapMemoryInfo, memory and swap tiles", 1, 2, 2));
  table.push_back(MoveToTiles("T_SetBitmapMemoryInfo, memory tiles", 4, 100, 0));
  table.push_back(AdjustTiles("T_SetBitmapMemoryInfo, all tiles to memory", 100, 0, 0));
  table.push_back(AdjustTiles("T_SetBitmapMemoryInfo, one tile in memory", 1, 3, 3));
  table.push_back(AdjustTiles("T_SetBitmapMemoryInfo, more views", 2, 2, 2));

  table.push_back({.name = "T_ChangeBitmapCompression 512",
                   .kinds = kAllKinds,
                   .depths = DepthBit(1),
                   .failures = kMoving,
                   .call = [](Work& w) { return T_ChangeBitmapCompression(&w.subject.record, TYPE_COMPRESSED); }});
  table.push_back({.name = "T_ChangeBitmapCompression 0",
                   .kinds = Bit(Kind::kCompressed) | Bit(Kind::kSuper),
                   .failures = kMoving,
                   .call = [](Work& w) { return T_ChangeBitmapCompression(&w.subject.record, 0); }});
  table.push_back({.name = "T_ChangeBitmapCompression 1024",
                   .kinds = kAllKinds,
                   .depths = kSuperDepths,
                   .failures = kMoving,
                   .call = [](Work& w) { return T_ChangeBitmapCompression(&w.subject.record, TYPE_SUPERCOMPRESSED); }});
  table.push_back({.name = "T_CompactBitmap", .kinds = kAllKinds, .failures = {ERR_NO_MEMORY}, .call = [](Work& w) {
                     return T_CompactBitmap(&w.subject.record);
                   }});
  table.push_back({.name = "T_GrowBitmapHeap", .kinds = Bit(Kind::kCompressed), .failures = {0}, .call = [](Work& w) {
                     return T_GrowBitmapHeap(&w.subject.record, 5000);
                   }});
  table.push_back({.name = "T_TrimBitmapHeap", .kinds = Bit(Kind::kCompressed), .failures = {0}, .call = [](Work& w) {
                     return T_TrimBitmapHeap(&w.subject.record);
                   }});
}

}  // namespace tarn::engine
