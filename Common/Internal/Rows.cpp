#include "Common/Internal/Rows.h"

#include "Common/Internal/Storage.h"

namespace tarn {

uint8_t* DirectRow(BitmapHandle& bitmap, int32_t row) noexcept {
  const StorageOps* const ops = OpsOf(bitmap);
  return ops ? ops->direct(bitmap, static_cast<uint32_t>(row)) : nullptr;
}

// Checked once for the whole bitmap.
uint8_t* BlockOf(BitmapHandle& bitmap) noexcept {
  if (OpsOf(bitmap) != &kBlockOps || bitmap.Height <= 0) return nullptr;
  return DirectRow(bitmap, bitmap.Height - 1) ? DirectRow(bitmap, 0) : nullptr;
}

bool LiesInMemory(BitmapHandle& bitmap) noexcept {
  if (BlockOf(bitmap)) return true;
  for (int32_t row = 0; row < bitmap.Height; ++row)
    if (!DirectRow(bitmap, row)) return false;
  return true;
}

static uint8_t* RowFrom(BitmapHandle& bitmap, uint8_t* base, int32_t row) noexcept {
  return base ? base + static_cast<uint64_t>(row) * bitmap.BytesPerLine : DirectRow(bitmap, row);
}

// A damaged BytesPerLine is told before a line of gigabytes is made for it.
static bool HoldsLines(const BitmapHandle& bitmap) noexcept {
  const StorageNode* const node = FindStorage(bitmap.Data);
  return !node || node->kind == StorageKind::kBlock || bitmap.BytesPerLine <= node->rowBytes;
}

Status RowReader::Open() noexcept {
  base_ = BlockOf(bitmap_);
  if (base_) return SUCCESS;
  if (!HoldsLines(bitmap_)) return ERR_FILE_READ;
  line_ = TrackedBuffer<uint8_t>(bitmap_.BytesPerLine, here_);
  return line_ ? SUCCESS : ERR_NO_MEMORY;
}

const uint8_t* RowReader::Part(int32_t row, uint64_t offset, uint64_t bytes) noexcept {
  if (const uint8_t* direct = RowFrom(bitmap_, const_cast<uint8_t*>(base_), row)) return direct + offset;
  const StorageOps* const ops = OpsOf(bitmap_);
  const int64_t got =
      ops ? ops->read(bitmap_, line_.data(), static_cast<uint32_t>(row), offset, bytes) : int64_t{ERR_NO_MEMORY};
  if (got == static_cast<int64_t>(bytes)) return line_.data();
  status_ = got < 0 ? static_cast<int32_t>(got) : ERR_FILE_READ;  // a short read is a failure
  return nullptr;
}

void RowReader::Ask(int32_t row) const noexcept {
  if (!base_ || row < 0 || row >= bitmap_.Height) return;
  constexpr uint64_t kCacheLine = 64;
  const uint64_t bytes = bitmap_.BytesPerLine;
  const uint8_t* const start = base_ + static_cast<uint64_t>(row) * bytes;
  for (uint64_t at = 0; at < bytes; at += kCacheLine) __builtin_prefetch(start + at, 0, 2);
}

Status RowWriter::Open() noexcept {
  base_ = BlockOf(bitmap_);
  if (base_) return SUCCESS;
  if (!HoldsLines(bitmap_)) return ERR_FILE_WRITE;
  line_ = TrackedBuffer<uint8_t>(bitmap_.BytesPerLine, here_);
  return line_ ? SUCCESS : ERR_NO_MEMORY;
}

uint8_t* RowWriter::Row(int32_t row) noexcept {
  row_ = row;
  uint8_t* const direct = RowFrom(bitmap_, base_, row);
  direct_ = direct != nullptr;
  return direct_ ? direct : line_.data();
}

Status RowWriter::Commit() noexcept {
  if (direct_) return SUCCESS;
  const uint32_t rowBytes = bitmap_.BytesPerLine;
  const int64_t put = T_PutBitmapRow(&bitmap_, line_.data(), static_cast<uint32_t>(row_), rowBytes);
  if (put == rowBytes) return SUCCESS;
  return put < 0 ? static_cast<int32_t>(put) : ERR_FILE_WRITE;
}

}  // namespace tarn
