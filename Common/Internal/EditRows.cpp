#include "Common/Internal/EditRows.h"

#include <cstring>

#include "Common/Internal/Duplicate.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/TrackedBuffer.h"

namespace tarn {
namespace {

bool IsWatched() noexcept {
  void* userData = nullptr;
  return T_GetStatusCallBack(&userData) != nullptr;
}

/// Rows in memory. Those that were changed are put back unless the run comes to its end.
class EditInPlace {
 public:
  EditInPlace(BitmapHandle& bitmap, const RowBand& band, const EditOptions& options) noexcept
      : bitmap_(bitmap), band_(band), options_(options), base_(BlockOf(bitmap)) {}

  Status Run(RowEditor editor, void* context) noexcept {
    const bool keeps = IsWatched() || !options_.sure;
    Progress progress(band_.count);
    TARN_TRY(progress.Start());
    if (keeps) {
      kept_ = TrackedBuffer<uint8_t>(static_cast<uint64_t>(band_.count) * band_.bytes, TARN_HERE);
      if (!kept_) return ERR_NO_MEMORY;
    }
    Status status = SUCCESS;
    for (int32_t i = 0; i < band_.count && status.Ok(); ++i) {
      uint8_t* const row = RowOf(i);
      if (keeps) std::memcpy(KeptOf(i), row + band_.offset, band_.bytes);
      status = editor(context, row, NumberOf(i));
      if (status.Ok()) status = progress.Step();
      if (!status.Ok()) PutBack(i);
    }
    return status;
  }

 private:
  [[nodiscard]] int32_t NumberOf(int32_t step) const noexcept {
    return band_.first + (options_.upwards ? band_.count - 1 - step : step);
  }
  uint8_t* RowOf(int32_t step) noexcept {
    const int32_t row = NumberOf(step);
    return base_ ? base_ + static_cast<uint64_t>(row) * bitmap_.BytesPerLine : DirectRow(bitmap_, row);
  }
  uint8_t* KeptOf(int32_t step) noexcept { return kept_.data() + static_cast<uint64_t>(step) * band_.bytes; }
  void PutBack(int32_t last) noexcept {
    for (int32_t i = last; i >= 0; --i) std::memcpy(RowOf(i) + band_.offset, KeptOf(i), band_.bytes);
  }

  BitmapHandle& bitmap_;
  const RowBand& band_;
  const EditOptions& options_;
  uint8_t* base_;
  TrackedBuffer<uint8_t> kept_;
};

/// Rows outside of the band, `count` of them. Compressed ones need not be unpacked.
Status CopyOn(BitmapHandle& target, BitmapHandle& source, int32_t first, int32_t count, RowReader& from, RowWriter& to,
              Progress& progress) noexcept {
  if (count <= 0) return SUCCESS;
  if (target.Flags & source.Flags & T_FLAG_COMPRESSED)
    return CopyCompressedRows(target, static_cast<uint32_t>(first), source, static_cast<uint32_t>(first),
                              static_cast<uint32_t>(count), progress);
  for (int32_t row = first; row < first + count; ++row) {
    const uint8_t* const line = from.Row(row);
    if (!line) return from.status();
    std::memcpy(to.Row(row), line, target.BytesPerLine);
    TARN_TRY(to.Commit());
    TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

Status EditCopy(BitmapHandle& target, BitmapHandle& source, const RowBand& band, RowEditor editor,
                void* context) noexcept {
  const BitmapLock lockTarget(target);
  const BitmapLock lockSource(source);
  RowReader from(source, TARN_HERE);
  RowWriter to(target, TARN_HERE);
  TARN_TRY(from.Open());
  TARN_TRY(to.Open());
  Progress progress(source.Height);
  TARN_TRY(progress.Start());
  TARN_TRY(CopyOn(target, source, 0, band.first, from, to, progress));
  const int32_t end = band.first + band.count;
  for (int32_t row = band.first; row < end; ++row) {
    const uint8_t* const line = from.Row(row);
    if (!line) return from.status();
    uint8_t* const place = to.Row(row);
    std::memcpy(place, line, target.BytesPerLine);
    TARN_TRY(editor(context, place, row));
    TARN_TRY(to.Commit());
    TARN_TRY(progress.Step());
  }
  return CopyOn(target, source, end, source.Height - end, from, to, progress);
}

}  // namespace

Status EditRows(BitmapHandle& bitmap, const RowBand& band, const EditOptions& options, RowEditor editor,
                void* context) noexcept {
  {
    const BitmapLock lock(bitmap);
    if (LiesInMemory(bitmap)) return EditInPlace(bitmap, band, options).Run(editor, context);
  }
  ScratchBitmap result;
  TARN_TRY(result.Create(bitmap, bitmap.Width, bitmap.Height, bitmap.BitsPerPixel));
  BitmapHandle& record = result.Record();
  record.DitheringMethod = bitmap.DitheringMethod;
  if (record.BytesPerLine != bitmap.BytesPerLine) return ERR_INVALID_PARAMETER;  // rows with room of their own
  TARN_TRY(EditCopy(record, bitmap, band, editor, context));
  result.Commit(bitmap);
  return SUCCESS;
}

}  // namespace tarn
