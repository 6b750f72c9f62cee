// A rectangle of one bitmap combined with a rectangle of another.

#include "tarn/combine.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Combine.h"
#include "Common/Internal/EditRows.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/SharedRows.h"

namespace tarn {
namespace {

constexpr uint32_t kFlags =
    T_COMBINE_OPERATION | T_COMBINE_INVERT_SOURCE | T_COMBINE_INVERT_DESTINATION | T_COMBINE_INVERT_RESULT;

/// Cuts one direction to what lies in both bitmaps; a count of 0 or less is nothing.
void Clip(int64_t& target, int64_t& source, int64_t& count, int64_t targetEnd, int64_t sourceEnd) noexcept {
  const int64_t lower = target < source ? target : source;
  const int64_t skipped = lower < 0 ? -lower : 0;
  target += skipped;
  source += skipped;
  count -= skipped;
  if (count > targetEnd - target) count = targetEnd - target;
  if (count > sourceEnd - source) count = sourceEnd - source;
}

/// The rows of a run, one after another.
class Run {
 public:
  Run(BitmapHandle& source, const Placement& placement) noexcept : placement_(placement), reader_(source, TARN_HERE) {}

  Status Open(BitmapHandle& destination, BitmapHandle& source, uint32_t flags) noexcept {
    TARN_TRY(combiner_.Open(destination, source, placement_, flags));
    TARN_TRY(reader_.Open());
    options_.sure = LiesInMemory(source);
    const Sharing sharing = SharingOf(destination, source);
    if (sharing == Sharing::kSameRows) {
      if (placement_.targetRow == placement_.sourceRow) combiner_.CopySourceFirst();
      options_.upwards = placement_.targetRow > placement_.sourceRow;
    }
    return sharing == Sharing::kSomehow ? KeepSource() : SUCCESS;
  }

  /// Rows that fill both bitmaps' blocks from edge to edge go at once: the system's copy knows best how.
  bool MovedAtOnce(BitmapHandle& destination, BitmapHandle& source) noexcept {
    void* userData = nullptr;
    const uint64_t rowBytes = destination.BytesPerLine;
    if (!combiner_.IsPlain() || T_GetStatusCallBack(&userData) || combiner_.TargetBytes() != rowBytes ||
        combiner_.SourceBytes() != rowBytes || source.BytesPerLine != rowBytes ||
        static_cast<uint64_t>(placement_.columns) * static_cast<uint32_t>(destination.BitsPerPixel) != rowBytes * 8)
      return false;
    const BitmapLock lock(destination);
    uint8_t* const target = BlockOf(destination);
    const uint8_t* const from = BlockOf(source);
    if (!target || !from) return false;
    std::memmove(target + static_cast<uint64_t>(placement_.targetRow) * rowBytes,
                 from + static_cast<uint64_t>(placement_.sourceRow) * rowBytes,
                 static_cast<uint64_t>(placement_.rows) * rowBytes);
    return true;
  }

  Status Edit(BitmapHandle& destination) noexcept {
    const RowBand band{static_cast<int32_t>(placement_.targetRow), static_cast<int32_t>(placement_.rows),
                       combiner_.TargetByte(), combiner_.TargetBytes()};
    return EditRows(destination, band, options_, *this);
  }

  Status Change(uint8_t* row, int32_t number) noexcept {
    const int64_t step = number - placement_.targetRow;
    const uint8_t* line = nullptr;
    if (kept_) {
      line = kept_.data() + static_cast<uint64_t>(step) * combiner_.SourceBytes();
    } else {
      line = reader_.Part(static_cast<int32_t>(placement_.sourceRow + step), combiner_.SourceByte(),
                          combiner_.SourceBytes());
      if (!line) return reader_.status();
    }
    combiner_.Run(row, line);
    return SUCCESS;
  }

 private:
  Status KeepSource() noexcept {
    const uint64_t bytes = combiner_.SourceBytes();
    TrackedBuffer<uint8_t> kept(static_cast<uint64_t>(placement_.rows) * bytes, TARN_HERE);
    if (!kept) return ERR_NO_MEMORY;
    for (int64_t row = 0; row < placement_.rows; ++row) {
      const uint8_t* const line =
          reader_.Part(static_cast<int32_t>(placement_.sourceRow + row), combiner_.SourceByte(), bytes);
      if (!line) return reader_.status();
      std::memcpy(kept.data() + static_cast<uint64_t>(row) * bytes, line, bytes);
    }
    kept_ = std::move(kept);
    return SUCCESS;
  }

  Placement placement_;
  RowReader reader_;
  RowCombiner combiner_;
  EditOptions options_;
  TrackedBuffer<uint8_t> kept_;  // the source's part, where rows cannot be ordered
};

Status Combine(BitmapHandle& destination, BitmapHandle& source, const Placement& placement, uint32_t flags) noexcept {
  const BitmapLock lock(source);
  Run run(source, placement);
  TARN_TRY(run.Open(destination, source, flags));
  return run.MovedAtOnce(destination, source) ? SUCCESS : run.Edit(destination);
}

Status RequireFlags(uint32_t flags) noexcept {
  return flags & ~kFlags || (flags & T_COMBINE_OPERATION) > T_COMBINE_ALPHA ? ERR_INVALID_PARAMETER : SUCCESS;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_CombineBitmapKrn(BitmapHandle* destination, int32_t left, int32_t top, BitmapHandle* source,
                           int32_t sourceLeft, int32_t sourceTop, int32_t width, int32_t height,
                           uint32_t flags) noexcept {
  if (!destination || !source || !IsAllocated(*destination) || !IsAllocated(*source)) return ERR_NO_BITMAP;
  if (destination->StructSize != sizeof *destination || source->StructSize != sizeof *source)
    return ERR_BAD_STRUCT_SIZE;
  TARN_TRY(RequireFlags(flags));
  if (width < 0 || height < 0) return ERR_INVALID_PARAMETER;
  if (!GeometryHolds(*destination) || !GeometryHolds(*source)) return ERR_INVALID_PARAMETER;
  if ((destination->Flags | source->Flags) & T_FLAG_SIGNED_DATA) {
    const bool both = (destination->Flags & source->Flags & T_FLAG_SIGNED_DATA) != 0;
    if (!both || (flags & T_COMBINE_OPERATION) > T_COMBINE_XOR || !SameFormat(*destination, *source))
      return ERR_SIGNED_DATA;
  }
  Placement placement{left, top, sourceLeft, sourceTop, width, height};
  Clip(placement.targetColumn, placement.sourceColumn, placement.columns, destination->Width, source->Width);
  Clip(placement.targetRow, placement.sourceRow, placement.rows, destination->Height, source->Height);
  if (placement.columns <= 0 || placement.rows <= 0) return SUCCESS;
  return Combine(*destination, *source, placement, flags).code;
}
