// A rectangle of one bitmap mapped onto a quadrilateral of another.

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/EditRows.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/LinesInto.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/SharedRows.h"
#include "Common/Internal/WarpSamples.h"
#include "Kernels/Kernels.h"
#include "tarn/combine.h"
#include "tarn/convert.h"
#include "tarn/copy.h"

namespace tarn {
namespace {

// ---- The quadrilateral ---------------------------------------------------------------------------------------------

struct Difference {
  int64_t x, y;
};
Difference Minus(const T_WarpPoint& a, const T_WarpPoint& b) noexcept {
  return {int64_t{a.x} - b.x, int64_t{a.y} - b.y};
}
/// Differences of points are below 2^31, sums of two below 2^32: products and their difference fit 64 bits.
int64_t Cross(const Difference& a, const Difference& b) noexcept { return a.x * b.y - a.y * b.x; }

/// Corners turn one way only.
bool IsStrictlyConvex(const T_WarpPoint* p) noexcept {
  int turns = 0;
  for (int i = 0; i < 4; ++i) {
    const int64_t turn = Cross(Minus(p[(i + 1) % 4], p[i]), Minus(p[(i + 2) % 4], p[(i + 1) % 4]));
    turns += turn > 0 ? 1 : turn < 0 ? -1 : 0;
  }
  return turns == 4 || turns == -4;
}

constexpr int64_t CeilDivide(int64_t a, int64_t b) noexcept { return a / b + (a % b > 0 ? 1 : 0); }  // b > 0

struct Span {
  int64_t first, end;
};

/// Pixels of a row whose centres lie inside, in integers.
Span SpanOf(const T_WarpPoint* points, int64_t row, int64_t width) noexcept {
  const int64_t y = 256 * row + 128;
  Span span{0, 0};
  int crossings = 0;
  for (int i = 0; i < 4; ++i) {
    T_WarpPoint a = points[i], b = points[(i + 1) % 4];
    if (a.y > b.y) {
      const T_WarpPoint upper = b;
      b = a;
      a = upper;
    }
    if (y < a.y || y >= b.y) continue;
    // 256 column + 128 >= a.x + (y - a.y) * dx / dy. Below 2^61: coordinates are below 2^29, differences below 2^30.
    const int64_t dx = int64_t{b.x} - a.x, dy = int64_t{b.y} - a.y;
    const int64_t column = CeilDivide((a.x - int64_t{128}) * dy + (y - a.y) * dx, 256 * dy);
    if (crossings++ == 0) {
      span = {column, column};
    } else if (column < span.first) {
      span.first = column;
    } else {
      span.end = column;
    }
  }
  if (span.first < 0) span.first = 0;
  if (span.end > width) span.end = width;
  return span;
}

/// From a place in the destination to one in the source's rectangle: the inverse of the mapping of the unit square
/// (P. Heckbert, Fundamentals of Texture Mapping and Image Warping, 1989), in double precision, each step as written.
class Projection {
 public:
  Projection(const T_WarpPoint* p, int64_t width, int64_t height) noexcept
      : originX_(p[0].x),
        originY_(p[0].y),
        width_(256.0 * static_cast<double>(width)),
        height_(256.0 * static_cast<double>(height)) {
    const Difference one = Minus(p[1], p[0]), three = Minus(p[3], p[0]);
    const Difference d1 = Minus(p[1], p[2]), d2 = Minus(p[3], p[2]);
    const Difference d3{int64_t{p[0].x} - p[1].x + p[2].x - p[3].x, int64_t{p[0].y} - p[1].y + p[2].y - p[3].y};
    const int64_t whole = Cross(d1, d2), partG = Cross(d3, d2), partH = Cross(d1, d3);  // whole is not 0
    const auto d = static_cast<double>(whole);
    const double g = static_cast<double>(partG) / d, h = static_cast<double>(partH) / d;
    const double g1 = static_cast<double>(whole + partG) / d, h1 = static_cast<double>(whole + partH) / d;
    const auto x1 = static_cast<double>(one.x), y1 = static_cast<double>(one.y);
    const auto x3 = static_cast<double>(three.x), y3 = static_cast<double>(three.y);
    uX_ = h1 * y3;
    uY_ = -(h1 * x3);
    vX_ = -(g1 * y1);
    vY_ = g1 * x1;
    wX_ = g1 * y1 * h - h1 * y3 * g;
    wY_ = h1 * x3 * g - g1 * x1 * h;
    w1_ = g1 * h1 * static_cast<double>(Cross(one, three));
  }

  /// Places of a row from column `first` on, in 1/256 of a source pixel, inside of the rectangle.
  [[nodiscard]] WarpRow RowFrom(int64_t first, int64_t row) const noexcept {
    const auto y = static_cast<double>(256 * row + 128 - originY_);
    return {.first = static_cast<double>(256 * first + 128 - originX_),
            .uX = uX_,
            .uRow = uY_ * y,
            .vX = vX_,
            .vRow = vY_ * y,
            .wX = wX_,
            .wRow = wY_ * y + w1_,
            .width = width_,
            .height = height_,
            .half = 0,
            .lastX = 0,
            .lastY = 0};
  }

 private:
  int64_t originX_, originY_;
  double width_, height_;
  double uX_, uY_, vX_, vY_, wX_, wY_, w1_;
};

// ---- Rows ----------------------------------------------------------------------------------------------------------

struct Area {
  int64_t left, top, width, height;
};

class Warp {
 public:
  Warp(BitmapHandle& source, const Area& area, const T_WarpPoint* points, uint32_t flags) noexcept
      : points_(points),
        projection_(points, area.width, area.height),
        area_(area),
        bilinear_((flags & T_WARP_BILINEAR) != 0),
        sampler_(source) {}

  /// Rows and columns of the destination that may change; none: nothing is to be done.
  bool FindBand(const BitmapHandle& destination) noexcept {
    width_ = destination.Width;
    const int32_t height = destination.Height;
    int64_t top = T_WARP_LIMIT, bottom = -top;
    for (int i = 0; i < 4; ++i) {
      if (points_[i].y < top) top = points_[i].y;
      if (points_[i].y > bottom) bottom = points_[i].y;
    }
    const int64_t firstRow = top < 0 ? 0 : top / 256, endRow = bottom < 0 ? 0 : bottom / 256 + 1;
    left_ = width_;
    for (int64_t row = firstRow; row < endRow && row < height; ++row) {
      const Span span = SpanOf(points_, row, width_);
      if (span.first >= span.end) continue;
      if (rows_.first == rows_.end) rows_.first = row;
      rows_.end = row + 1;
      if (span.first < left_) left_ = span.first;
      if (span.end > right_) right_ = span.end;
    }
    return rows_.first < rows_.end;
  }

  Status Open(const BitmapHandle& destination) noexcept {
    bits_ = destination.BitsPerPixel;
    TARN_TRY(sampler_.Open(area_.width, area_.height, bilinear_));
    TARN_TRY(into_.Open(sampler_.Form(), destination, right_ - left_, TARN_HERE));
    const int64_t columns = right_ - left_;
    stripRows_ = sampler_.Direct() ? 1 : kStripRows;
    places_ = TrackedBuffer<WarpPlace>(static_cast<uint64_t>(stripRows_ * kTileColumns), TARN_HERE);
    strip_ = TrackedBuffer<uint8_t>(static_cast<uint64_t>(stripRows_ * columns * sampler_.Unit()), TARN_HERE);
    packed_ = TrackedBuffer<uint8_t>(BytesOf(columns, sampler_.Form().BitsPerPixel) + 8, TARN_HERE);
    made_ = TrackedBuffer<uint8_t>(BytesOf(columns, bits_) + 8, TARN_HERE);
    return places_ && strip_ && packed_ && made_ ? SUCCESS : ERR_NO_MEMORY;
  }

  Status Edit(BitmapHandle& destination, bool sure) noexcept {
    const uint64_t firstBit = static_cast<uint64_t>(left_) * static_cast<uint32_t>(bits_);
    const uint64_t endBit = static_cast<uint64_t>(right_) * static_cast<uint32_t>(bits_);
    const RowBand band{static_cast<int32_t>(rows_.first), static_cast<int32_t>(rows_.end - rows_.first), firstBit / 8,
                       (endBit + 7) / 8 - firstBit / 8};
    return EditRows(destination, band, {.sure = sure}, *this);
  }

  Status Change(uint8_t* row, int32_t number) noexcept {
    const Span span = SpanOf(points_, number, width_);
    if (span.first >= span.end) return SUCCESS;
    if (number >= stripEnd_) TARN_TRY(MakeStrip(number));
    const uint8_t* const samples = StripPlace(span.first, number);
    const int64_t count = span.end - span.first;
    const uint8_t* const line = sampler_.Packed(packed_.data(), samples, count);
    const uint8_t* pixels = line;
    if (!into_.Direct()) {
      into_.Make(made_.data(), line, count);
      pixels = made_.data();
    }
    const uint64_t firstBit = static_cast<uint64_t>(span.first) * static_cast<uint32_t>(bits_);
    if (SharesBytes(bits_)) {
      ShiftFor(bits_)(row + firstBit / 8, static_cast<uint32_t>(firstBit % 8), pixels, 0,
                      static_cast<uint64_t>(count) * static_cast<uint32_t>(bits_));
    } else {
      std::memcpy(row + firstBit / 8, pixels, BytesOf(count, bits_));
    }
    return SUCCESS;
  }

 private:
  static constexpr int64_t kStripRows = 32;
  static constexpr int64_t kTileColumns = 512;

  uint8_t* StripPlace(int64_t column, int64_t row) noexcept {
    return strip_.data() + ((row - stripTop_) * (right_ - left_) + column - left_) * sampler_.Unit();
  }

  Status MakeStrip(int32_t top) noexcept {
    stripTop_ = top;
    stripEnd_ = top + stripRows_ < rows_.end ? top + stripRows_ : rows_.end;
    for (int64_t left = left_; left < right_; left += kTileColumns) {
      const int64_t right = left + kTileColumns < right_ ? left + kTileColumns : right_;
      TARN_TRY(MakeTile(left, right, stripTop_, stripEnd_));
    }
    return SUCCESS;
  }

  /// A tile whose source takes too much memory is made in halves.
  Status MakeTile(int64_t left, int64_t right, int64_t top, int64_t bottom) noexcept {
    WarpReach reach;
    int64_t pixels = 0;
    for (int64_t row = top; row < bottom; ++row) {
      const Span span = Within(left, right, row);
      WarpRow places = projection_.RowFrom(span.first, row);
      sampler_.Hold(places);
      Kernels().warp->places(places_.data() + pixels, span.end - span.first, places, reach);
      pixels += span.end - span.first;
    }
    if (pixels == 0) return SUCCESS;
    const WarpBox box = sampler_.BoxOf(reach);
    if (!sampler_.Direct() && !sampler_.Holds(box) && pixels > 1) {
      const bool across = right - left > 1;
      const int64_t column = across ? (left + right) / 2 : right;
      const int64_t row = across ? bottom : (top + bottom) / 2;
      TARN_TRY(MakeTile(left, column, top, row));
      return across ? MakeTile(column, right, top, bottom) : MakeTile(left, right, row, bottom);
    }
    TARN_TRY(sampler_.Read(box, area_.left, area_.top));
    const WarpPlace* places = places_.data();
    for (int64_t row = top; row < bottom; ++row) {
      const Span span = Within(left, right, row);
      if (span.first >= span.end) continue;
      sampler_.Sample(StripPlace(span.first, row), places, span.end - span.first);
      places += span.end - span.first;
    }
    return SUCCESS;
  }

  [[nodiscard]] Span Within(int64_t left, int64_t right, int64_t row) const noexcept {
    Span span = SpanOf(points_, row, width_);
    if (span.first < left) span.first = left;
    if (span.end > right) span.end = right;
    if (span.end < span.first) span.end = span.first;
    return span;
  }

  const T_WarpPoint* points_;
  Projection projection_;
  Area area_;
  bool bilinear_;
  int32_t bits_ = 0;
  int64_t width_ = 0;
  Span rows_{0, 0};
  int64_t left_ = 0, right_ = 0;
  WarpSampler sampler_;
  LinesInto into_;
  int64_t stripRows_ = 1, stripTop_ = 0, stripEnd_ = 0;
  TrackedBuffer<WarpPlace> places_;
  TrackedBuffer<uint8_t> strip_;   // samples of some rows
  TrackedBuffer<uint8_t> packed_;  // one of them as the sampled form is stored
  TrackedBuffer<uint8_t> made_;    // and as the destination's
};

Status WarpOnto(BitmapHandle& destination, BitmapHandle& source, const Area& area, const T_WarpPoint* points,
                uint32_t flags) noexcept {
  const BitmapLock lock(source);
  Warp warp(source, area, points, flags);
  if (!warp.FindBand(destination)) return SUCCESS;
  TARN_TRY(warp.Open(destination));
  return warp.Edit(destination, LiesInMemory(source));
}

/// A bitmap that frees itself.
struct Copy {
  ~Copy() {
    if (live) T_FreeBitmap(&record);
  }
  BitmapHandle record{};
  bool live = false;
};

/// A source that the destination's changes would show in is copied first.
Status WarpAny(BitmapHandle& destination, BitmapHandle& source, const Area& area, const T_WarpPoint* points,
               uint32_t flags) noexcept {
  if (SharingOf(destination, source) == Sharing::kNone) return WarpOnto(destination, source, area, points, flags);
  Copy copy;
  {
    const QuietCallback quiet;
    TARN_TRY(T_CopyBitmapRect(&copy.record, &source, sizeof source, static_cast<int32_t>(area.left),
                              static_cast<int32_t>(area.top), static_cast<int32_t>(area.width),
                              static_cast<int32_t>(area.height)));
    copy.live = true;
  }
  return WarpOnto(destination, copy.record, {0, 0, area.width, area.height}, points, flags);
}

bool AreaHolds(const T_Rect& area, const BitmapHandle& source) noexcept {
  constexpr int32_t kMost = T_WARP_LIMIT / 256;  // places of 1/256 pixel fit 32 bits
  return area.left >= 0 && area.top >= 0 && area.left < area.right && area.top < area.bottom &&
         area.right <= source.Width && area.bottom <= source.Height && area.right - area.left <= kMost &&
         area.bottom - area.top <= kMost;
}

bool PointsHold(const T_WarpPoint* points) noexcept {
  for (int i = 0; i < 4; ++i) {
    if (points[i].x < -T_WARP_LIMIT || points[i].x > T_WARP_LIMIT) return false;
    if (points[i].y < -T_WARP_LIMIT || points[i].y > T_WARP_LIMIT) return false;
  }
  return IsStrictlyConvex(points);
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_CombineBitmapWarp(BitmapHandle* destination, const T_WarpPoint* points, BitmapHandle* source,
                            const T_Rect* area, uint32_t flags) noexcept {
  if (!destination || !source || !IsAllocated(*destination) || !IsAllocated(*source)) return ERR_NO_BITMAP;
  if (destination->StructSize != sizeof *destination || source->StructSize != sizeof *source)
    return ERR_BAD_STRUCT_SIZE;
  if (!points || flags & ~uint32_t{T_WARP_BILINEAR}) return ERR_INVALID_PARAMETER;
  if (!GeometryHolds(*destination) || !GeometryHolds(*source)) return ERR_INVALID_PARAMETER;
  const T_Rect part = area ? *area : T_Rect{0, 0, source->Width, source->Height};
  if (!AreaHolds(part, *source) || !PointsHold(points)) return ERR_INVALID_PARAMETER;
  if ((destination->Flags | source->Flags) & T_FLAG_SIGNED_DATA) {
    const bool both = (destination->Flags & source->Flags & T_FLAG_SIGNED_DATA) != 0;
    if (!both || flags != T_WARP_NEAREST || !SameFormat(*destination, *source)) return ERR_SIGNED_DATA;
  }
  return WarpAny(*destination, *source,
                 {part.left, part.top, int64_t{part.right} - part.left, int64_t{part.bottom} - part.top}, points, flags)
      .code;
}
