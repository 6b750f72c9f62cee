#pragma once
// Rows of a bitmap changed one after another, so that a run which fails or is stopped leaves the bitmap as it was.

#include <cstdint>

#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

/// What a run may change: some bytes of some rows.
struct RowBand {
  int32_t first;
  int32_t count;    // at least 1
  uint64_t offset;  // of the first byte
  uint64_t bytes;
};

struct EditOptions {
  bool sure = true;      // no change of a row can fail
  bool upwards = false;  // last row first; only heeded where rows are changed in place
};

using RowEditor = Status (*)(void* context, uint8_t* row, int32_t number) noexcept;

/// Calls the editor with each row of the band, its bytes as they are; it may change the band's. Rows come downwards.
/// Rows in memory are given in place. Others are copies whose storage becomes the bitmap's at the end: until then
/// readers of the bitmap see it as it was. The thread's status callback is told.
Status EditRows(BitmapHandle& bitmap, const RowBand& band, const EditOptions& options, RowEditor editor,
                void* context) noexcept;

/// The same with an object's method Change(row, number).
template <class Editor>
Status EditRows(BitmapHandle& bitmap, const RowBand& band, const EditOptions& options, Editor& editor) noexcept {
  return EditRows(
      bitmap, band, options,
      [](void* context, uint8_t* row, int32_t number) noexcept -> Status {
        return static_cast<Editor*>(context)->Change(row, number);
      },
      &editor);
}

}  // namespace tarn
