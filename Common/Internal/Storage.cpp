#include "Common/Internal/Storage.h"

#include <cstring>

#include "Common/Internal/Geometry.h"
#include "Common/Internal/Library.h"
#include "tarn/bitmap.h"
#include "tarn/memory.h"

namespace tarn {

namespace {

// Chains of the nodes that the storages themselves hold: 20,000 live bitmaps make chains of about five.
constexpr uint32_t kBucketBits = 12;
StorageNode* buckets[1u << kBucketBits];

uint32_t BucketOf(const void* data) noexcept {
  const uint64_t key = reinterpret_cast<uintptr_t>(data) >> 3;
  return static_cast<uint32_t>((key * UINT64_C(0x9E3779B97F4A7C15)) >> (64 - kBucketBits));
}

// Parameter block that new bitmaps start from.
uint8_t defaultGrayParams[kGrayParamsBytes];

}  // namespace

void RegisterStorage(StorageNode& node) noexcept {
  const platform::Guard guard(rowSection);
  StorageNode*& head = buckets[BucketOf(node.data)];
  node.next = head;
  head = &node;
}

void UnregisterStorage(StorageNode& node) noexcept {
  const platform::Guard guard(rowSection);
  for (StorageNode** link = &buckets[BucketOf(node.data)]; *link; link = &(*link)->next) {
    if (*link == &node) {
      *link = node.next;
      return;
    }
  }
}

StorageNode* FindStorageLocked(const void* data) noexcept {
  StorageNode* node = buckets[BucketOf(data)];
  while (node && node->data != data) node = node->next;
  return node;
}

StorageNode* FindStorage(const void* data) noexcept {
  const platform::Guard guard(rowSection);
  return FindStorageLocked(data);
}

RowPlace PlaceOf(BitmapHandle& bitmap, uint32_t row) noexcept {
  const platform::Guard guard(rowSection);
  uint64_t limit = SpanBytes(bitmap);
  if (bitmap.Flags & T_FLAG_IN_MEMORY) {
    if (const StorageNode* node = FindStorageLocked(bitmap.Data)) {
      if (node->kind != StorageKind::kBlock) return {ERR_NO_MEMORY, 0, 0};
      if (node->bytes < limit) limit = node->bytes;
    }
  }
  const uint32_t rowBytes = bitmap.BytesPerLine;
  const uint32_t cached = bitmap.CachedRow;
  uint64_t offset = bitmap.CachedRowOffset;
  if (row == cached + 1) {
    offset += rowBytes;
  } else if (row + 1 == cached) {
    offset -= rowBytes;
  } else if (row != cached) {
    offset = static_cast<uint64_t>(row) * rowBytes;
  }
  if (offset > limit) offset = static_cast<uint64_t>(row) * rowBytes;  // a cache that somebody else wrote to
  bitmap.CachedRowOffset = offset;
  bitmap.CachedRow = row;
  return {SUCCESS, offset, limit};
}

const StorageOps* OpsOf(const BitmapHandle& bitmap) noexcept {
  const uint32_t flags = bitmap.Flags;
  if (flags & T_FLAG_COMPRESSED) return &kCompressedOps;
  if (flags & T_FLAG_TILED) return &kTileOps;
  if (flags & T_FLAG_SUPER_COMPRESSED) return nullptr;  // no bitmap gets this far without its codec library
  if (flags & T_FLAG_IN_MEMORY) return &kBlockOps;
  if (flags & T_FLAG_ON_DISK) return &kDiskOps;
  return nullptr;
}

void ReleaseStorage(BitmapHandle& bitmap) noexcept {
  if (bitmap.Flags & T_FLAG_USER_DATA) {
    bitmap.Flags &= ~static_cast<uint32_t>(T_FLAG_COMPRESSED | T_FLAG_IN_MEMORY | T_FLAG_ON_DISK | T_FLAG_USER_DATA);
    return;
  }
  if (const StorageOps* ops = OpsOf(bitmap)) ops->release(bitmap);
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

Status CopyGrayParams(BitmapHandle& target, const BitmapHandle& source, bool ownLut) noexcept {
  if (ownLut && source.LUT && source.LUTLength) {
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
