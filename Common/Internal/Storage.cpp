#include "Common/Internal/Storage.h"

#include <cstring>

#include "Common/Internal/KnownExtents.h"
#include "Common/Internal/RowPlace.h"
#include "tarn/bitmap.h"
#include "tarn/memory.h"

namespace tarn {

constinit StorageNode* storageBuckets[kStorageBuckets] = {};
constinit KnownExtents knownBlocks;
constinit KnownExtents knownPalettes;

namespace {

// Parameter block that new bitmaps start from.
uint8_t defaultGrayParams[kGrayParamsBytes];

}  // namespace

void RegisterStorage(StorageNode& node) noexcept {
  const platform::Guard guard(rowSection);
  StorageNode*& head = storageBuckets[StorageBucketOf(node.data)];
  node.next = head;
  head = &node;
}

void UnregisterStorage(StorageNode& node) noexcept {
  knownBlocks.Forget(node.data);
  const platform::Guard guard(rowSection);
  StorageNode** link = &storageBuckets[StorageBucketOf(node.data)];
  while (*link != &node) link = &(*link)->next;  // it is there: only what was found or just made is taken out
  *link = node.next;
}

StorageNode* FindStorage(const void* data) noexcept {
  const platform::Guard guard(rowSection);
  return FindStorageLocked(data);
}

void ReleaseStorage(BitmapHandle& bitmap) noexcept {
  if (bitmap.Flags & T_FLAG_USER_DATA) {
    bitmap.Flags &= ~static_cast<uint32_t>(T_FLAG_COMPRESSED | T_FLAG_IN_MEMORY | T_FLAG_ON_DISK | T_FLAG_USER_DATA);
    return;
  }
  if (const StorageOps* ops = OpsOf(bitmap)) ops->release(bitmap);
}

bool BlockHolds(const BitmapHandle& bitmap, uint64_t bytes) noexcept {
  const uint64_t held = platform::MovableSize(bitmap.MemoryHandle);
  const uint64_t offset = bitmap.DataOffset;
  return offset <= held && bytes <= held - offset;
}

uint64_t CappedSize(uint64_t bytes) noexcept { return bytes < T_MAX_IMAGE_BYTES ? bytes : T_MAX_IMAGE_BYTES; }

Status CreateGrayParams(BitmapHandle& bitmap) noexcept {
  const Here here = TARN_HERE;
  void* block = T_LocalAlloc(1, kGrayParamsBytes, here.line, here.file);
  if (!block) return ERR_NO_MEMORY;
  std::memcpy(block, defaultGrayParams, kGrayParamsBytes);
  bitmap.GrayParams = block;
  return SUCCESS;
}

uint32_t HeldEntries(const T_PaletteEntry* entries) noexcept {
  const uint64_t block = platform::MovableHandle(entries);
  if (!block) return UINT32_MAX;
  const uint64_t bytes = platform::MovableSize(block);
  knownPalettes.Remember(entries, bytes);
  const uint64_t held = bytes / sizeof(T_PaletteEntry);
  return held < UINT32_MAX ? static_cast<uint32_t>(held) : UINT32_MAX;
}

uint32_t TouchableEntries(const T_PaletteEntry* entries, uint32_t count) noexcept {
  if (!entries) return 0;
  if (knownPalettes.Holds(entries, uint64_t{count} * sizeof(T_PaletteEntry))) return count;
  const uint32_t held = HeldEntries(entries);
  return count < held ? count : held;
}
uint32_t PaletteEntriesOf(const BitmapHandle& bitmap) noexcept {
  return TouchableEntries(bitmap.Palette, bitmap.Colors);
}
uint32_t LutEntriesOf(const BitmapHandle& bitmap) noexcept { return TouchableEntries(bitmap.LUT, bitmap.LUTLength); }

Status CopyGrayParams(BitmapHandle& target, const BitmapHandle& source, bool ownLut) noexcept {
  if (ownLut && source.LUT && source.LUTLength) {
    if (source.LUTLength > HeldEntries(source.LUT)) return ERR_BAD_LUT_LENGTH;
    const Here here = TARN_HERE;
    const uint64_t count = source.LUTLength;
    void* lut = T_GlobalAlloc(count, sizeof(T_PaletteEntry), here.line, here.file);
    if (!lut) return ERR_NO_MEMORY;
    std::memcpy(lut, source.LUT, count * sizeof(T_PaletteEntry));
    if (target.LUT) T_GlobalFree(target.LUT, here.line, here.file);
    target.LUT = static_cast<T_PaletteEntry*>(lut);
    target.LUTLength = source.LUTLength;
    target.Flags |= source.Flags & T_FLAG_LUT_IN_USE;
  }
  target.LowBit = source.LowBit;
  target.HighBit = source.HighBit;
  target.AltLowBit = source.AltLowBit;
  target.AltHighBit = source.AltHighBit;
  target.Percentage = source.Percentage;
  target.MinValue = source.MinValue;
  target.MaxValue = source.MaxValue;
  if (target.GrayParams && source.GrayParams) std::memcpy(target.GrayParams, source.GrayParams, kGrayParamsBytes);
  return SUCCESS;
}

}  // namespace tarn

using namespace tarn;

void T_FreeGrayParams(BitmapHandle* handle) noexcept {
  if (!handle) return;
  const Here here = TARN_HERE;
  if (handle->LUT) T_GlobalFree(handle->LUT, here.line, here.file);
  handle->LUT = nullptr;
  handle->LUTLength = 0;
  handle->Flags &= ~static_cast<uint32_t>(T_FLAG_LUT_IN_USE);
  if (handle->GrayParams) T_LocalFree(handle->GrayParams, here.line, here.file);
  handle->GrayParams = nullptr;
}
