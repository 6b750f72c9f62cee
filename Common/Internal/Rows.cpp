#include "Common/Internal/Rows.h"

#include "Common/Internal/Storage.h"

namespace tarn {
namespace {

// First row when all rows lie behind each other in memory, checked once for the whole bitmap.
uint8_t* WholeBlock(BitmapHandle& bitmap) noexcept {
  if (OpsOf(bitmap) != &kBlockOps || bitmap.Height <= 0) return nullptr;
  uint8_t* const last = kBlockOps.direct(bitmap, static_cast<uint32_t>(bitmap.Height) - 1);
  return last ? kBlockOps.direct(bitmap, 0) : nullptr;
}

uint8_t* DirectRow(BitmapHandle& bitmap, uint8_t* base, int32_t row) noexcept {
  if (base) return base + static_cast<uint64_t>(row) * bitmap.BytesPerLine;
  const StorageOps* const ops = OpsOf(bitmap);
  return ops ? ops->direct(bitmap, static_cast<uint32_t>(row)) : nullptr;
}

}  // namespace

Status RowReader::Open() noexcept {
  base_ = WholeBlock(bitmap_);
  if (base_) return SUCCESS;
  line_ = TrackedBuffer<uint8_t>(bitmap_.BytesPerLine, here_);
  return line_ ? SUCCESS : ERR_NO_MEMORY;
}

const uint8_t* RowReader::Part(int32_t row, uint64_t offset, uint64_t bytes) noexcept {
  if (const uint8_t* direct = DirectRow(bitmap_, const_cast<uint8_t*>(base_), row)) return direct + offset;
  const StorageOps* const ops = OpsOf(bitmap_);
  const int64_t got =
      ops ? ops->read(bitmap_, line_.data(), static_cast<uint32_t>(row), offset, bytes) : int64_t{ERR_NO_MEMORY};
  if (got == static_cast<int64_t>(bytes)) return line_.data();
  status_ = got < 0 ? static_cast<int32_t>(got) : ERR_FILE_READ;  // a short read is a failure
  return nullptr;
}

Status RowWriter::Open() noexcept {
  base_ = WholeBlock(bitmap_);
  if (base_) return SUCCESS;
  line_ = TrackedBuffer<uint8_t>(bitmap_.BytesPerLine, here_);
  return line_ ? SUCCESS : ERR_NO_MEMORY;
}

uint8_t* RowWriter::Row(int32_t row) noexcept {
  row_ = row;
  uint8_t* const direct = DirectRow(bitmap_, base_, row);
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
