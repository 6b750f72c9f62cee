// Pixels in one piece of memory: a block of the library's own, caller memory, or a movable block while it is locked.

#include <cstring>

#include "Common/Internal/Geometry.h"
#include "Common/Internal/Ledger.h"
#include "Common/Internal/RowPlace.h"
#include "Common/Internal/Storage.h"
#include "Platform/Platform.h"
#include "tarn/bitmap.h"
#include "tarn/memory.h"

namespace tarn {
namespace {

// A block begins with its registration; Data follows at the next multiple of 32.
//
//   | StorageNode ... | pad (DataOffset) | pixels, Size bytes ... |
//   ^ block           ^ view             ^ Data
constexpr uint64_t kHeader = 64;
constexpr uint64_t kAlign = 32;
static_assert(sizeof(StorageNode) <= kHeader);

constexpr uint64_t BlockBytes(uint64_t bytes) noexcept { return kHeader + bytes + kAlign - 1; }

struct NewBlock {
  platform::Block block;
  uint8_t* data;
};

bool MakeBlock(uint64_t bytes, const BitmapHandle& bitmap, uint32_t rows, NewBlock& made) noexcept {
  const Here here = TARN_HERE;
  if (!platform::BlockCreate(BlockBytes(bytes), made.block, here)) return false;
  uint8_t* const view = made.block.view + kHeader;
  made.data = view + (kAlign - reinterpret_cast<uintptr_t>(view) % kAlign) % kAlign;
  auto& node = *reinterpret_cast<StorageNode*>(made.block.view);
  node = {
      nullptr, made.data, bytes, StorageKind::kBlock, bitmap.BytesPerLine, rows, static_cast<uint32_t>(bitmap.Width)};
  RegisterStorage(node);
  ledger::Add(made.block.view, ledger::Kind::kSystem, here);
  return true;
}

void ReleaseBlock(uint64_t section, StorageNode& node) noexcept {
  auto* const start = reinterpret_cast<uint8_t*>(&node);
  const uint64_t bytes = BlockBytes(node.bytes);
  UnregisterStorage(node);
  ledger::Remove(start, ledger::Kind::kSystem, TARN_HERE);
  platform::BlockRelease({section, start}, bytes);
}

int64_t ReadBlock(BitmapHandle& bitmap, uint8_t* target, uint32_t row, uint64_t offset, uint64_t bytes) noexcept {
  const RowPlace place = PlaceOf(bitmap, row);
  if (!place.status.Ok()) return place.status.code;
  const uint8_t* const data = bitmap.Data;
  if (!data) return ERR_NO_BITMAP;
  const uint64_t start = place.offset + offset;
  const uint64_t moved = place.Clip(start, bytes);
  std::memcpy(target, data + start, moved);
  return static_cast<int64_t>(moved);
}

int64_t WriteBlock(BitmapHandle& bitmap, const uint8_t* source, uint32_t row, uint64_t offset, uint64_t bytes,
                   int64_t) noexcept {
  const RowPlace place = PlaceOf(bitmap, row);
  if (!place.status.Ok()) return place.status.code;
  uint8_t* const data = bitmap.Data;
  if (!data) return ERR_NO_BITMAP;
  const uint64_t start = place.offset + offset;
  const uint64_t moved = place.Clip(start, bytes);
  std::memcpy(data + start, source, moved);
  return static_cast<int64_t>(moved);
}

uint8_t* DirectBlockRow(BitmapHandle& bitmap, uint32_t row) noexcept {
  uint8_t* const data = bitmap.Data;
  if (!data) return nullptr;
  const uint64_t offset = static_cast<uint64_t>(row) * bitmap.BytesPerLine;
  const uint64_t end = offset + bitmap.BytesPerLine;
  if (end > SpanBytes(bitmap)) return nullptr;
  if (const StorageNode* node = FindStorage(data); node && (node->kind != StorageKind::kBlock || end > node->bytes))
    return nullptr;
  return data + offset;
}

Status ResizeBlock(BitmapHandle& bitmap, int32_t height) noexcept {
  const uint64_t pixels = static_cast<uint64_t>(bitmap.BytesPerLine) * static_cast<uint32_t>(height);
  uint64_t offset = bitmap.DataOffset;
  const Here here = TARN_HERE;
  if (bitmap.Flags & T_FLAG_HANDLE_DATA) {
    if (!BlockHolds(bitmap, 0)) return ERR_INVALID_PARAMETER;
    const uint64_t length = pixels + offset;
    const uint64_t handle =
        T_OsReallocHandle(bitmap.MemoryHandle, length, T_BLOCK_MOVABLE | T_BLOCK_ZERO, here.line, here.file);
    if (!handle) return ERR_NO_MEMORY;
    bitmap.MemoryHandle = handle;
  } else {
    StorageNode* const old = FindStorage(bitmap.Data);
    if (!old || old->kind != StorageKind::kBlock) return ERR_NO_MEMORY;
    NewBlock made;
    if (!MakeBlock(pixels, bitmap, static_cast<uint32_t>(height), made)) return ERR_NO_MEMORY;
    offset = static_cast<uint64_t>(made.data - made.block.view) - kHeader;
    std::memcpy(made.data, bitmap.Data, old->bytes < pixels ? old->bytes : pixels);
    ReleaseBlock(bitmap.MemoryHandle, *old);
    bitmap.MemoryHandle = made.block.section;
    bitmap.Data = made.data;
    bitmap.DataOffset = offset;
  }
  bitmap.Size = CappedSize(pixels + offset);
  return SUCCESS;
}

void ReleaseBlockStorage(BitmapHandle& bitmap) noexcept {
  T_ReleaseBitmap(&bitmap);
  if (bitmap.Flags & T_FLAG_HANDLE_DATA) {
    const Here here = TARN_HERE;
    T_OsFreeHandle(bitmap.MemoryHandle, here.line, here.file);
  } else if (StorageNode* node = FindStorage(bitmap.Data); node && node->kind == StorageKind::kBlock) {
    ReleaseBlock(bitmap.MemoryHandle, *node);
  }
  bitmap.MemoryHandle = 0;
  bitmap.Data = nullptr;
  bitmap.DataOffset = 0;
  bitmap.Flags &= ~static_cast<uint32_t>(T_FLAG_IN_MEMORY | T_FLAG_HANDLE_DATA);
}

}  // namespace

Status CreateBlockStorage(BitmapHandle& bitmap) noexcept {
  NewBlock made;
  if (!MakeBlock(bitmap.Size, bitmap, static_cast<uint32_t>(bitmap.Height), made)) return ERR_NO_MEMORY;
  bitmap.MemoryHandle = made.block.section;
  bitmap.Data = made.data;
  bitmap.DataOffset = static_cast<uint64_t>(made.data - made.block.view) - kHeader;
  return SUCCESS;
}

const StorageOps kBlockOps = {ReadBlock, WriteBlock, DirectBlockRow, ResizeBlock, ReleaseBlockStorage};

}  // namespace tarn
