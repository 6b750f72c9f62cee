// Bitmaps in another size: taking the nearest pixels, and what every way of resizing does with regions and overlays.

#include "tarn/resize.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/Overlays.h"
#include "Common/Internal/PackedPixels.h"
#include "Common/Internal/Scaling.h"
#include "Common/Internal/TapPlan.h"
#include "Common/Internal/Turn.h"
#include "Kernels/Kernels.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

// ---- Nearest -------------------------------------------------------------------------------------------------------

int32_t SourceIndex(int32_t i, int32_t from, int32_t to) noexcept {
  return static_cast<int32_t>(static_cast<int64_t>(i) * from / to);
}

/// Rows of the nearest pixels. Pixels that are not of whole bytes are spread to bytes or, at 12 bits, to words.
class NearestRows {
 public:
  NearestRows(BitmapHandle& source, BitmapHandle& target) noexcept
      : reader_(source, TARN_HERE),
        staying_(BlockOf(target) != nullptr),
        bits_(source.BitsPerPixel),
        fromWidth_(source.Width),
        fromHeight_(source.Height),
        width_(target.Width),
        height_(target.Height) {}

  Status Open(uint64_t targetBytes, Here here) noexcept {
    TARN_TRY(reader_.Open());
    const auto from = static_cast<uint64_t>(fromWidth_);
    const auto to = static_cast<uint64_t>(width_);
    unitBytes_ = bits_ == 12 ? 2 : bits_ < 8 ? 1 : bits_ / 8;
    if (fromWidth_ != width_ && bits_ == 1) {
      TARN_TRY(OpenBits(here));
    } else if (fromWidth_ != width_) {
      indices_ = TrackedBuffer<uint32_t>(to, here);
      if (!indices_) return ERR_NO_MEMORY;
      for (int32_t i = 0; i < width_; ++i)
        indices_[static_cast<uint64_t>(i)] = static_cast<uint32_t>(SourceIndex(i, fromWidth_, width_));
      if (Packed()) {
        spread_ = TrackedBuffer<uint8_t>(from * static_cast<uint32_t>(unitBytes_), here);
        taken_ = TrackedBuffer<uint8_t>(to * static_cast<uint32_t>(unitBytes_), here);
        if (!spread_ || !taken_) return ERR_NO_MEMORY;
      } else {
        const auto each = static_cast<uint32_t>(unitBytes_);
        TARN_TRY(taps_.Build(int64_t{width_} * unitBytes_, 1, int64_t{fromWidth_} * unitBytes_, here,
                             [&](int64_t i, TapSet& set) {
                               const auto at = static_cast<uint64_t>(i);
                               set.places[0] = indices_[at / each] * each + static_cast<uint32_t>(at % each);
                             }));
      }
    }
    if (height_ <= fromHeight_ || staying_) return SUCCESS;
    line_ = TrackedBuffer<uint8_t>(targetBytes, here);
    return line_ ? SUCCESS : ERR_NO_MEMORY;
  }

  Status Make(uint8_t* target, uint64_t bytes, int32_t row) noexcept {
    const int32_t from = SourceIndex(row, fromHeight_, height_);
    if (height_ <= fromHeight_) return MakeFrom(target, bytes, from);
    if (from != made_) {
      last_ = staying_ ? target : line_.data();
      TARN_TRY(MakeFrom(last_, bytes, from));
      made_ = from;
    }
    if (last_ != target) std::memcpy(target, last_, bytes);
    return SUCCESS;
  }

 private:
  [[nodiscard]] bool Packed() const noexcept { return bits_ < 8 || bits_ == 12; }

  /// Bits that are taken, or where runs of a bit end.
  Status OpenBits(Here here) noexcept {
    doubled_ = int64_t{2} * fromWidth_ == width_;  // bytes of the source doubled fit a row, which is padded
    if (doubled_) return SUCCESS;
    const bool grows = width_ > fromWidth_;
    const auto words = (static_cast<uint64_t>(grows ? width_ : fromWidth_) + 63) / 64;
    bitMasks_ = TrackedBuffer<uint64_t>(words, here);
    if (!bitMasks_) return ERR_NO_MEMORY;
    const auto bit = [](uint64_t at) { return uint64_t{1} << (63 - at % 64); };
    std::memset(bitMasks_.data(), 0, words * sizeof(uint64_t));
    if (!grows) {
      for (int32_t i = 0; i < width_; ++i) {
        const auto at = static_cast<uint64_t>(SourceIndex(i, fromWidth_, width_));
        bitMasks_[at / 64] |= bit(at);
      }
      return SUCCESS;
    }
    lastBits_ = TrackedBuffer<uint32_t>(words, here);
    if (!lastBits_) return ERR_NO_MEMORY;
    for (int32_t i = 0; i < width_; ++i) {
      const auto at = static_cast<uint64_t>(i);
      const int32_t from = SourceIndex(i, fromWidth_, width_);
      lastBits_[at / 64] = static_cast<uint32_t>(from);
      if (at % 64 == 63 || i + 1 == width_ || SourceIndex(i + 1, fromWidth_, width_) != from)
        bitMasks_[at / 64] |= bit(at);
    }
    return SUCCESS;
  }

  /// `used` bytes, the bits behind the last pixel zero.
  void MakeBits(uint8_t* target, const uint8_t* source, uint64_t used) noexcept {
    const ScaleKernels& scale = *Kernels().scale;
    const auto sourceBytes = (static_cast<uint64_t>(fromWidth_) + 7) / 8;
    const int64_t words = (int64_t{width_ > fromWidth_ ? width_ : fromWidth_} + 63) / 64;
    if (doubled_) {
      scale.doubleBits(target, source, static_cast<int64_t>(sourceBytes));
      if (width_ % 8) target[used - 1] &= static_cast<uint8_t>(0xFF00 >> width_ % 8);
    } else if (!lastBits_) {
      scale.takeBits(target, source, sourceBytes, bitMasks_.data(), words);
    } else {
      const auto before = static_cast<uint64_t>(words - 1);
      uint8_t last[8];
      scale.repeatBits(target, source, bitMasks_.data(), lastBits_.data(), words - 1);
      scale.repeatBits(last, source, bitMasks_.data() + before, lastBits_.data() + before, 1);
      std::memcpy(target + 8 * before, last, used - 8 * before);
    }
  }

  Status MakeFrom(uint8_t* target, uint64_t bytes, int32_t row) noexcept {
    const uint8_t* const source = reader_.Row(row);
    if (!source) return reader_.status();
    const uint64_t used = (static_cast<uint64_t>(width_) * static_cast<uint32_t>(bits_) + 7) / 8;
    if (doubled_ || bitMasks_) {
      MakeBits(target, source, used);
    } else if (!indices_) {
      std::memcpy(target, source, used);
    } else if (taps_) {
      Kernels().scale->takeBytes(target, source, taps_.taps());
    } else if (!Packed()) {
      Kernels().scale->gather(target, source, indices_.data(), width_, unitBytes_);
    } else {
      UnpackPixels(spread_.data(), source, fromWidth_, bits_);
      Kernels().scale->gather(taken_.data(), spread_.data(), indices_.data(), width_, unitBytes_);
      PackPixels(target, taken_.data(), width_, bits_);
    }
    std::memset(target + used, 0, bytes - used);
    return SUCCESS;
  }

  RowReader reader_;
  bool staying_;  // rows of the target remain where they were written
  int32_t bits_;
  int32_t fromWidth_;
  int32_t fromHeight_;
  int32_t width_;
  int32_t height_;
  int32_t unitBytes_ = 1;
  TrackedBuffer<uint32_t> indices_;   // none: the width stays
  TapPlan taps_;                      // the same, for permuting kernels
  bool doubled_ = false;              // of bits
  TrackedBuffer<uint64_t> bitMasks_;  // of bits: those taken, or the ends of runs
  TrackedBuffer<uint32_t> lastBits_;  // where the width grows
  TrackedBuffer<uint8_t> spread_;
  TrackedBuffer<uint8_t> taken_;
  TrackedBuffer<uint8_t> line_;  // the row that repeats, unless it can be read from the target
  uint8_t* last_ = nullptr;      // where it is
  int32_t made_ = -1;
};

// ---- Whole bitmaps -------------------------------------------------------------------------------------------------

Status ScalePixels(BitmapHandle& target, BitmapHandle& source, ScaleMethod method) noexcept {
  const BitmapLock lockTarget(target);
  const BitmapLock lockSource(source);
  const bool reversed = target.ViewPerspective != source.ViewPerspective;
  switch (method) {
    case ScaleMethod::kNearest:
      return ScaleNearest(target, source, reversed);
    case ScaleMethod::kInk:
      return ScaleInk(target, source);
    default:
      return ScaleSamples(target, source, method == ScaleMethod::kSpline, reversed);
  }
}

int32_t ScaledPosition(int32_t position, int32_t from, int32_t to) noexcept {
  const int64_t product = static_cast<int64_t>(position) * to;
  const int64_t floor = product / from - (product % from < 0);
  return static_cast<int32_t>(floor < INT32_MIN ? INT32_MIN : floor > INT32_MAX ? INT32_MAX : floor);
}

int32_t ScaledExtent(int32_t extent, int32_t from, int32_t to) noexcept {
  const int32_t scaled = ScaledPosition(extent, from, to);
  return scaled < 1 ? 1 : scaled;
}

/// Copies of a bitmap's overlays for a picture of another size; null when it has none.
Status ScaleOverlays(T_OverlayList*& scaled, const BitmapHandle& source, int32_t width, int32_t height,
                     uint32_t flags) noexcept {
  TARN_TRY(DuplicateOverlays(scaled, source.Overlays));
  const QuietCallback quiet;
  const int32_t fromWidth = source.Width;
  const int32_t fromHeight = source.Height;
  for (uint32_t i = 0; scaled && i < scaled->count; ++i) {
    Overlay& overlay = scaled->Items()[i];
    overlay.left = ScaledPosition(overlay.left, fromWidth, width);
    overlay.top = ScaledPosition(overlay.top, fromHeight, height);
    if (!IsAllocated(overlay.bitmap)) continue;
    const Status sized = T_SizeBitmap(&overlay.bitmap, ScaledExtent(overlay.bitmap.Width, fromWidth, width),
                                      ScaledExtent(overlay.bitmap.Height, fromHeight, height), flags);
    if (!sized.Ok()) {
      FreeOverlays(scaled);
      scaled = nullptr;
      return sized;
    }
  }
  return SUCCESS;
}

/// The destination's region, scaled from the source's size by a hook that works on the source.
Status ScaleRegionOf(BitmapHandle& destination, BitmapHandle& source) noexcept {
  const T_RegionHooks* const hooks = RegionHooks();
  if (!hooks || !hooks->Scale || !destination.Region) return SUCCESS;
  const uint64_t own = source.Region;
  source.Region = destination.Region;
  const Status scaled = hooks->Scale(&source, destination.Width, destination.Height);
  destination.Region = source.Region;
  if (&destination != &source) source.Region = own;
  return scaled;
}

bool RowsCanReverse(const BitmapHandle& a, const BitmapHandle& b) noexcept {
  const auto plain = [](uint32_t perspective) { return perspective == 1 || perspective == 4; };
  return a.ViewPerspective == b.ViewPerspective || (plain(a.ViewPerspective) && plain(b.ViewPerspective));
}

}  // namespace

Status ScaleNearest(BitmapHandle& target, BitmapHandle& source, bool reversed) noexcept {
  NearestRows rows(source, target);
  TARN_TRY(rows.Open(target.BytesPerLine, TARN_HERE));
  return WriteRows(target, rows, reversed);
}

ScaleMethod MethodOf(uint32_t flags, const BitmapHandle& source, int32_t width, int32_t height) noexcept {
  if (flags & RESIZE_AREA) return ScaleMethod::kArea;
  if (!(flags & RESIZE_SMOOTH)) return ScaleMethod::kNearest;
  return width <= source.Width && height <= source.Height ? ScaleMethod::kArea : ScaleMethod::kSpline;
}

Status CompleteExtents(int32_t oldWidth, int32_t oldHeight, int32_t& width, int32_t& height) noexcept {
  if (width < 0 || height < 0 || (width == 0 && height == 0)) return ERR_INVALID_PARAMETER;
  const auto complete = [](double missing, double given, int32_t value, bool firstOrder, int32_t& result) {
    const double ratio = given == 0 ? 0 : firstOrder ? missing / given * value : value / given * missing;
    if (!(ratio >= 1 && ratio < 2147483648.0)) return false;
    result = static_cast<int32_t>(ratio);
    return true;
  };
  // Deliberate: the given extent is compared with the other one of the old picture; that only changes which division
  // comes first, and results of old rest on it.
  if (width == 0 && !complete(oldWidth, oldHeight, height, height <= oldWidth, width)) return ERR_INVALID_PARAMETER;
  if (height == 0 && !complete(oldHeight, oldWidth, width, width <= oldHeight, height)) return ERR_INVALID_PARAMETER;
  return SUCCESS;
}

Status ScaleInPlace(BitmapHandle& bitmap, int32_t width, int32_t height, ScaleMethod method, uint32_t flags) noexcept {
  if (!GeometryHolds(bitmap) || width < 1 || height < 1) return ERR_INVALID_PARAMETER;
  ScratchBitmap result;
  TARN_TRY(result.Create(bitmap, width, height, bitmap.BitsPerPixel));
  TARN_TRY(ScalePixels(result.Record(), bitmap, method));
  T_OverlayList* overlays = nullptr;
  TARN_TRY(ScaleOverlays(overlays, bitmap, width, height, flags));
  const Status scaled = T_KrnSizeBitmapRgn(&bitmap, width, height);
  if (!scaled.Ok()) {
    FreeOverlays(overlays);
    return scaled;
  }
  T_OverlayList* const old = bitmap.Overlays;
  result.Record().Region = bitmap.Region;
  result.Record().Overlays = overlays;
  result.Commit(bitmap);
  FreeOverlays(old);
  return SUCCESS;
}

Status ScaleInto(BitmapHandle& destination, BitmapHandle& source, ScaleMethod method, uint32_t flags) noexcept {
  if (!IsAllocated(source) || !IsAllocated(destination)) return ERR_NO_BITMAP;
  if (source.BitsPerPixel != destination.BitsPerPixel || source.Order != destination.Order || !GeometryHolds(source) ||
      !GeometryHolds(destination))
    return ERR_INVALID_PARAMETER;
  ScratchBitmap turned;
  BitmapHandle* from = &source;
  if (!RowsCanReverse(source, destination)) {
    TARN_TRY(CopyInPerspective(turned, source, destination.ViewPerspective));
    from = &turned.Record();
  }
  TARN_TRY(ScalePixels(destination, *from, method));
  TARN_TRY(ScaleRegionOf(destination, *from));
  if (!source.Overlays || source.Overlays == destination.Overlays) return SUCCESS;
  T_OverlayList* overlays = nullptr;
  TARN_TRY(ScaleOverlays(overlays, source, destination.Width, destination.Height, flags));
  FreeOverlays(destination.Overlays);
  destination.Overlays = overlays;
  return SUCCESS;
}

}  // namespace tarn

using namespace tarn;

int32_t T_SizeBitmap(BitmapHandle* bitmap, int32_t newWidth, int32_t newHeight, uint32_t flags) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_INVALID_PARAMETER));
  if (newWidth == bitmap->Width && newHeight == bitmap->Height) return SUCCESS;
  TARN_TRY(CompleteExtents(bitmap->Width, bitmap->Height, newWidth, newHeight));
  ScaleMethod method = MethodOf(flags, *bitmap, newWidth, newHeight);
  if (bitmap->BitsPerPixel == 1 && (flags & RESIZE_INK_COUNT) && T_IsGrayScaleBitmap(bitmap) > 0) {
    method = MethodOf(flags & ~static_cast<uint32_t>(RESIZE_AREA), *bitmap, newWidth, newHeight);
    if (method == ScaleMethod::kNearest) method = ScaleMethod::kInk;
  }
  return ScaleInPlace(*bitmap, newWidth, newHeight, method, flags).code;
}

int32_t T_ResizeBitmap(BitmapHandle* source, BitmapHandle* destination, uint32_t flags) noexcept {
  if (!source || !destination) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireSize(source, ERR_INVALID_PARAMETER));
  TARN_TRY(RequireSize(destination, ERR_INVALID_PARAMETER));
  const bool ink = (flags & RESIZE_INK_COUNT) && source->BitsPerPixel == 1;
  const ScaleMethod method =
      ink ? ScaleMethod::kInk : MethodOf(flags, *source, destination->Width, destination->Height);
  return ScaleInto(*destination, *source, method, flags).code;
}

int32_t T_KrnSizeBitmapRgn(BitmapHandle* bitmap, int32_t newWidth, int32_t newHeight) noexcept {
  if (!bitmap) return ERR_INVALID_PARAMETER;
  const T_RegionHooks* const hooks = RegionHooks();
  return hooks && hooks->Scale ? hooks->Scale(bitmap, newWidth, newHeight) : SUCCESS;
}
