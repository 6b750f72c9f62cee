#pragma once
// What flipping, mirroring and rotating share: pixels that change places.

#include <cstdint>

#include "Common/Internal/Overlays.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/Status.h"
#include "tarn/types.h"

namespace tarn {

/// The thread's status callback over `steps` steps, from percent `first` to percent `last`: told when the percentage
/// changed, which includes the last step.
class RangeProgress {
 public:
  RangeProgress(int64_t steps, int32_t first, int32_t last) noexcept
      : steps_(steps), range_(int64_t{last} - first), first_(first), told_(first) {
    callback_ = T_GetStatusCallBack(&userData_);
  }
  Status Step() noexcept {
    if (!callback_) return SUCCESS;
    ++done_;
    const auto percent = static_cast<int32_t>(first_ + range_ * done_ / steps_);
    if (percent == told_) return SUCCESS;
    told_ = percent;
    return callback_(percent, userData_);
  }

 private:
  T_StatusCallback callback_ = nullptr;
  void* userData_ = nullptr;
  int64_t steps_;
  int64_t range_;
  int64_t done_ = 0;
  int32_t first_;
  int32_t told_;
};

/// Turns that keep the extents: upside down, left to right, both.
enum class Turn : uint8_t { kFlip, kReverse, kHalf };

/// What is left to do when the pixels are in place; `bitmap` is the record that will be the caller's.
using TurnEnd = Status (*)(BitmapHandle& bitmap, void* context) noexcept;

/// Turns the stored pixels of a bitmap whose geometry holds, without its overlays and perspective. A failure, also of
/// `end`, leaves the bitmap as it was.
Status TurnStored(BitmapHandle& bitmap, Turn turn, int32_t firstPercent, int32_t lastPercent, TurnEnd end,
                  void* context) noexcept;

/// Reverses the pixels of a line in place; other depths than a bitmap can have are left alone. Bits and bytes behind
/// the last pixel stay.
void MirrorPixels(uint8_t* line, int64_t pixels, int32_t bits) noexcept;

/// Makes `copy` the same picture under another perspective, from a bitmap of sound geometry: pixels only, without hooks
/// and progress. ERR_INVALID_PARAMETER for a perspective that does not exist.
Status CopyInPerspective(ScratchBitmap& copy, BitmapHandle& source, uint32_t perspective) noexcept;

/// The displayed picture has the stored columns as its rows.
constexpr bool IsTransposed(uint32_t viewPerspective) noexcept { return viewPerspective >= 5 && viewPerspective <= 8; }
/// The displayed picture is a mirror image of the stored rows.
constexpr bool IsMirrored(uint32_t viewPerspective) noexcept {
  return viewPerspective == 2 || viewPerspective == 4 || viewPerspective == 5 || viewPerspective == 7;
}
inline int32_t DisplayedWidth(const BitmapHandle& bitmap) noexcept {
  return IsTransposed(bitmap.ViewPerspective) ? bitmap.Height : bitmap.Width;
}
inline int32_t DisplayedHeight(const BitmapHandle& bitmap) noexcept {
  return IsTransposed(bitmap.ViewPerspective) ? bitmap.Width : bitmap.Height;
}

/// Copies of a bitmap's overlays, to be changed and to take their place when everything else is done.
class ChangedOverlays {
 public:
  ChangedOverlays() noexcept = default;
  ~ChangedOverlays() { FreeOverlays(list_); }
  ChangedOverlays(const ChangedOverlays&) = delete;
  ChangedOverlays& operator=(const ChangedOverlays&) = delete;
  Status Copy(const BitmapHandle& owner) noexcept { return DuplicateOverlays(list_, owner.Overlays); }
  [[nodiscard]] uint32_t Count() const noexcept { return list_ ? list_->count : 0; }
  Overlay& operator[](uint32_t index) noexcept { return list_->Items()[index]; }
  void Commit(BitmapHandle& owner) noexcept {
    if (!list_) return;
    FreeOverlays(owner.Overlays);
    owner.Overlays = list_;
    list_ = nullptr;
  }

 private:
  T_OverlayList* list_ = nullptr;
};

}  // namespace tarn
