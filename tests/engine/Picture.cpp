#include "engine/Picture.h"

#include <cstring>
#include <utility>

#include "Platform/Here.h"
#include "engine/Random.h"

namespace tarn::engine {

const char* NameOf(Kind kind) {
  constexpr const char* kNames[] = {"block",      "caller memory", "movable block", "memory tiles", "mixed tiles",
                                    "swap tiles", "disk",          "compressed",    "super"};
  return kNames[static_cast<int>(kind)];
}

bool Shape::Suits(Kind kind) const {
  if (!(DepthsOf(kind) & DepthBit(bits))) return false;
  return !(Bit(kind) & kTiledKinds) || height > kTileRows;
}

std::string Text(const Shape& shape) {
  return std::to_string(shape.width) + " x " + std::to_string(shape.height) + " x " + std::to_string(shape.bits) +
         " bits";
}

void ClearPadding(uint8_t* row, const Shape& shape) {
  const uint64_t bits = static_cast<uint64_t>(shape.width) * static_cast<uint32_t>(shape.bits);
  if (bits % 8) row[bits / 8] &= static_cast<uint8_t>(0xFF00 >> bits % 8);
  const uint64_t first = (bits + 7) / 8;
  std::memset(row + first, 0, shape.RowBytes() - first);
}

Bytes MakeContent(const Shape& shape, uint64_t seed) {
  const uint32_t rowBytes = shape.RowBytes();
  Bytes rows(static_cast<size_t>(rowBytes) * static_cast<uint32_t>(shape.height));
  Random random(Mix(seed, 1));
  for (int32_t r = 0; r < shape.height; ++r) {
    uint8_t* const row = rows.data() + static_cast<size_t>(r) * rowBytes;
    switch (random.Below(6)) {
      case 0:
        break;
      case 1:
        std::memset(row, 0xFF, rowBytes);
        break;
      case 2:  // runs of bytes, their borders inside bytes
        for (uint32_t at = 0; at < rowBytes;) {
          const auto length = static_cast<uint32_t>(1 + random.Below(rowBytes));
          const uint8_t value = random.OneIn(2) ? 0 : 0xFF;
          for (const uint32_t end = at + length; at < end && at < rowBytes; ++at) row[at] = value;
          if (at < rowBytes) row[at - 1] = static_cast<uint8_t>(0xFF << random.Below(8));
        }
        break;
      case 3:  // edges
        row[0] = 0x80;
        row[(static_cast<uint64_t>(shape.width) * static_cast<uint32_t>(shape.bits) - 1) / 8] |= random.Byte();
        break;
      default:
        for (uint32_t at = 0; at < rowBytes; ++at) row[at] = random.Byte();
    }
    ClearPadding(row, shape);
  }
  return rows;
}

// ---- Picture -------------------------------------------------------------------------------------------------------

namespace {

struct TileRules {
  int32_t conventionalTiles;
  int32_t tileViews;
};

int32_t AllocateTiles(BitmapHandle& record, Kind kind) {
  const ThresholdScope scope;
  const TileRules rules = kind == Kind::kMemoryTiles  ? TileRules{-100, 1}
                          : kind == Kind::kMixedTiles ? TileRules{3, 2}
                                                      : TileRules{0, 1};
  // Blocks of one byte at most, so that a bitmap is tiled; memory to plan with, so that tiles may lie there.
  T_SetMemoryThresholds(0, 1, int64_t{kTileRows} * record.BytesPerLine, rules.conventionalTiles, rules.tileViews, 31);
  return T_AllocateBitmap(&record, TYPE_CONV);
}

}  // namespace

std::string Picture::MakeBlank(Kind kind, const Shape& shape) {
  Free();
  int32_t status = T_InitBitmap(&record, sizeof record, shape.width, shape.height, shape.bits);
  if (status != SUCCESS) return "T_InitBitmap gives " + std::to_string(status);
  uint32_t wanted = T_FLAG_ALLOCATED | T_FLAG_IN_MEMORY;
  switch (kind) {
    case Kind::kCaller:
      wanted |= T_FLAG_USER_DATA;
      memory_.assign(record.Size, 0);
      status = T_AllocateBitmap(&record, TYPE_USER);
      if (status == SUCCESS) status = T_SetBitmapDataPointer(&record, memory_.data(), memory_.size());
      break;
    case Kind::kMovable:
      wanted |= T_FLAG_HANDLE_DATA;
      status = T_AllocateBitmap(&record, TYPE_USER);
      if (status == SUCCESS) {
        const Here here = TARN_HERE;
        record.Flags = wanted;
        record.MemoryHandle = T_OsAllocHandle(T_BLOCK_MOVABLE | T_BLOCK_ZERO, record.Size, here.line, here.file);
        if (!record.MemoryHandle) status = ERR_NO_MEMORY;
      }
      break;
    case Kind::kMemoryTiles:
    case Kind::kMixedTiles:
    case Kind::kSwapTiles:
      wanted |= T_FLAG_TILED;
      status = AllocateTiles(record, kind);
      break;
    case Kind::kDisk:
      wanted = T_FLAG_ALLOCATED | T_FLAG_ON_DISK;
      status = T_AllocateBitmap(&record, TYPE_DISK);
      break;
    case Kind::kCompressed:
      wanted |= T_FLAG_COMPRESSED;
      status = T_AllocateBitmap(&record, TYPE_COMPRESSED);
      break;
    case Kind::kSuper:
      wanted |= T_FLAG_SUPER_COMPRESSED;
      status = T_AllocateBitmap(&record, TYPE_SUPERCOMPRESSED);
      break;
    default:
      status = T_AllocateBitmap(&record, TYPE_CONV);
  }
  if (status != SUCCESS) return std::string(NameOf(kind)) + " storage: status " + std::to_string(status);
  if (record.Flags != wanted) return std::string(NameOf(kind)) + " storage: flags " + std::to_string(record.Flags);
  return {};
}

std::string Picture::Make(Kind kind, const Shape& shape, uint64_t seed) {
  std::string wrong = MakeBlank(kind, shape);
  if (!wrong.empty()) return wrong;
  const Bytes rows = MakeContent(shape, seed);
  const uint32_t rowBytes = record.BytesPerLine;
  const int32_t locked = T_LockBitmap(&record);
  for (int32_t row = 0; row < shape.height && wrong.empty(); ++row) {
    const int64_t put = T_PutBitmapRow(&record, rows.data() + static_cast<size_t>(row) * rowBytes, row, rowBytes);
    if (put != rowBytes) wrong = "row " + std::to_string(row) + " cannot be put: " + std::to_string(put);
  }
  T_UnlockBitmap(&record, locked);
  return wrong;
}

void Picture::Free() {
  T_FreeBitmap(&record);
  record = {};
  memory_.clear();
}

void Picture::Exchange(Picture& other) {
  std::swap(record, other.record);
  memory_.swap(other.memory_);  // the addresses of the bytes stay
}

void GiveTable(BitmapHandle& record, Random& random) {
  constexpr uint32_t kEntries = 4096;
  const Here here = TARN_HERE;
  record.Order = T_ORDER_GRAY;
  record.LUTLength = kEntries;
  record.LUT = static_cast<T_PaletteEntry*>(T_GlobalAlloc(kEntries, sizeof(T_PaletteEntry), here.line, here.file));
  for (uint32_t i = 0; i < kEntries; ++i) record.LUT[i] = {random.Byte(), random.Byte(), random.Byte(), 0};
  record.Flags |= T_FLAG_LUT_IN_USE;
}

std::string ReadPixels(const BitmapHandle& record, Bytes& pixels) {
  BitmapHandle copy = record;
  const uint32_t rowBytes = copy.BytesPerLine;
  pixels.assign(static_cast<size_t>(rowBytes) * static_cast<uint32_t>(copy.Height), 0xCC);
  const int32_t locked = T_LockBitmap(&copy);
  std::string wrong;
  for (int32_t row = 0; row < copy.Height && wrong.empty(); ++row) {
    const int64_t got = T_GetBitmapRow(&copy, pixels.data() + static_cast<size_t>(row) * rowBytes, row, rowBytes);
    if (got != rowBytes) wrong = "row " + std::to_string(row) + " cannot be read: " + std::to_string(got);
  }
  T_UnlockBitmap(&copy, locked);
  return wrong;
}

ThresholdScope::ThresholdScope() { T_GetMemoryThresholds(&threshold_, &block_, &tile_, &conventional_, &views_); }
ThresholdScope::~ThresholdScope() { T_SetMemoryThresholds(threshold_, block_, tile_, conventional_, views_, 31); }

}  // namespace tarn::engine
