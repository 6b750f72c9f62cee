// Slanting pictures row by row.

#include "tarn/shear.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Duplicate.h"
#include "Common/Internal/Fill.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/PixelColor.h"
#include "Common/Internal/Rows.h"
#include "Kernels/Kernels.h"
#include "tarn/bitmap.h"
#include "tarn/rotate.h"

namespace tarn {
namespace {

constexpr int32_t kQuarter = 9000;

/// How far rows move, as a staircase: every row by `whole` pixels more than the one below, and by one more pixel
/// whenever the remainders have come to more than a whole one.
class Slope {
 public:
  Slope(int32_t angle, int32_t height) noexcept : c_(T_SinValue(kQuarter - angle)), s_(T_SinValue(angle)) {
    whole_ = s_ / c_;
    rest_ = s_ % c_;
    total_ = int64_t{s_} * height / c_;
  }
  [[nodiscard]] int64_t Total() const noexcept { return total_; }
  [[nodiscard]] int64_t Shift() const noexcept { return shift_; }
  void Next() noexcept {
    shift_ += whole_;
    gathered_ += rest_;
    if (gathered_ > c_) {  // deliberate: not at equality
      gathered_ -= c_;
      ++shift_;
    }
  }

 private:
  int32_t c_, s_;
  int64_t whole_ = 0, total_ = 0, shift_ = 0;
  int32_t rest_ = 0, gathered_ = 0;
};

/// A row of nothing but the fill colour.
class FillRow {
 public:
  Status Open(const BitmapHandle& like, uint64_t pixel, Here here) noexcept {
    line_ = TrackedBuffer<uint8_t>::Zeroed(like.BytesPerLine, here);
    if (!line_) return ERR_NO_MEMORY;
    BitmapHandle strip;
    TARN_TRY(T_InitBitmap(&strip, sizeof strip, like.Width, 1, like.BitsPerPixel));
    TARN_TRY(T_AllocateBitmap(&strip, TYPE_USER));
    strip.Data = line_.data();
    FillRows(strip, pixel);
    T_FreeBitmap(&strip);
    return SUCCESS;
  }
  [[nodiscard]] const uint8_t* Data() const noexcept { return line_.data(); }

 private:
  TrackedBuffer<uint8_t> line_;
};

/// Displayed rows go from the bottom up as stored rows go down.
constexpr bool BottomFirst(uint32_t perspective) noexcept {
  return perspective == 3 || perspective == 4 || perspective == 5 || perspective == 7;
}

/// A negative angle is the mirrored picture slanted and mirrored back: the same steps from the other side.
Status ShearRows(BitmapHandle& bitmap, int32_t angle, uint64_t pixel, Progress& progress) noexcept {
  const bool leansLeft = angle < 0;
  const int32_t height = bitmap.Height;
  Slope slope(leansLeft ? -angle : angle, height);
  const int64_t newWidth = bitmap.Width + slope.Total();
  if (newWidth > INT32_MAX) return ERR_IMAGE_TOO_LARGE;
  const auto bits = static_cast<uint32_t>(bitmap.BitsPerPixel);
  ScratchBitmap result;
  TARN_TRY(result.Create(bitmap, static_cast<int32_t>(newWidth), height, bitmap.BitsPerPixel));
  {
    const BitmapLock lock(bitmap);
    FillRow fill;
    RowReader from(bitmap, TARN_HERE);
    RowWriter to(result.Record(), TARN_HERE);
    TARN_TRY(fill.Open(result.Record(), pixel, TARN_HERE));
    TARN_TRY(from.Open());
    TARN_TRY(to.Open());
    const auto shiftBits = bits == 12 ? Kernels().shiftLowBits : Kernels().shiftBits;
    const uint64_t used = static_cast<uint64_t>(bitmap.Width) * bits;
    for (int32_t step = 0; step < height; ++step) {
      const int32_t row = BottomFirst(bitmap.ViewPerspective) ? step : height - 1 - step;
      const uint8_t* const line = from.Row(row);
      if (!line) return from.status();
      uint8_t* const place = to.Row(row);
      const auto column = static_cast<uint64_t>(leansLeft ? slope.Total() - slope.Shift() : slope.Shift());
      const uint64_t bit = column * bits;
      // The fill colour beside the pixels, the bytes that they share with it included.
      const uint64_t before = (bit + 7) / 8, behind = (bit + used) / 8;
      std::memcpy(place, fill.Data(), before);
      std::memcpy(place + behind, fill.Data() + behind, result.Record().BytesPerLine - behind);
      shiftBits(place + bit / 8, static_cast<uint32_t>(bit % 8), line, 0, used);
      TARN_TRY(to.Commit());
      TARN_TRY(progress.Step());
      slope.Next();
    }
  }
  if (const T_RegionHooks* const hooks = RegionHooks(); hooks && hooks->Delete && bitmap.Region)
    hooks->Delete(bitmap.Region);
  result.Record().Region = 0;
  result.Commit(bitmap);
  return SUCCESS;
}

/// Columns move: the picture is turned, slanted and turned back, all of it aside.
Status ShearTurned(BitmapHandle& bitmap, int32_t angle, uint64_t pixel, uint32_t fill) noexcept {
  Progress progress(bitmap.Width);
  BitmapHandle work;
  TARN_TRY(CopyWhole(work, bitmap));
  Undo free([&] { T_FreeBitmap(&work); });
  const QuietCallback quiet;
  TARN_TRY(T_RotateBitmap90(&work, 1, 0, 20));
  TARN_TRY(ShearRows(work, angle, pixel, progress));
  TARN_TRY(T_RotateBitmap(&work, -kQuarter, ROTATE_RESIZE, fill));
  free.Dismiss();
  ReplaceWhole(bitmap, work);
  return SUCCESS;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_ShearBitmap(BitmapHandle* bitmap, int32_t angle, int32_t horizontal, uint32_t fill) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_NO_BITMAP));
  if (angle <= -kQuarter || angle >= kQuarter || !GeometryHolds(*bitmap)) return ERR_INVALID_PARAMETER;
  uint64_t pixel = 0;
  TARN_TRY(TaggedPixelOf(*bitmap, fill, pixel));
  const uint32_t perspective = bitmap->ViewPerspective;
  const bool transposed = perspective >= 5 && perspective <= 8;
  if ((horizontal != 0) == transposed) return ShearTurned(*bitmap, angle, pixel, fill).code;
  Progress progress(bitmap->Height);
  return ShearRows(*bitmap, angle, pixel, progress).code;
}
