// View perspectives: what leads from one to another, and where points and rectangles come to lie.

#include "Common/Internal/Checks.h"
#include "Common/Internal/Turn.h"
#include "tarn/flip.h"

namespace tarn {
namespace {

constexpr bool IsPerspective(uint32_t value) noexcept { return value >= 1 && value <= 8; }

/// Every perspective is a flip, or not, and a turn.
struct Display {
  bool flip;
  int32_t angle;
};
constexpr Display kDisplays[9] = {{},         {false, 0},  {true, 180}, {false, 180}, {true, 0},
                                  {true, 90}, {false, 90}, {true, 270}, {false, 270}};

struct Move {
  bool flip;
  int32_t angle;  // after the flip
};

/// Undoes `to` after doing `from`.
constexpr Move MoveBetween(uint32_t from, uint32_t to) noexcept {
  const Display& source = kDisplays[from];
  const Display& target = kDisplays[to];
  const int32_t turn = source.angle - target.angle;
  // A flip behind a turn is a flip before the opposite turn.
  return {source.flip != target.flip, (720 + (target.flip ? -turn : turn)) % 360};
}

/// A position under the new perspective; `last` is 1 for pixels and 0 for the edges between them.
template <int64_t kLast>
void MovePoint(const Move& move, int64_t width, int64_t height, int64_t& x, int64_t& y) noexcept {
  if (move.flip) y = height - y - kLast;
  const int64_t column = x, row = y;
  switch (move.angle) {
    case 90:
      x = height - row - kLast;
      y = column;
      break;
    case 180:
      x = width - column - kLast;
      y = height - row - kLast;
      break;
    case 270:
      x = row;
      y = width - column - kLast;
      break;
    default:
      break;
  }
}

struct Extents {
  int64_t width;
  int64_t height;
};

void MovePixel(const Move& move, const Extents& extents, int32_t& x, int32_t& y) noexcept {
  int64_t column = x, row = y;
  MovePoint<1>(move, extents.width, extents.height, column, row);
  x = static_cast<int32_t>(column);
  y = static_cast<int32_t>(row);
}

void MoveRect(const Move& move, const Extents& extents, T_Rect& rect) noexcept {
  int64_t left = rect.left, top = rect.top, right = rect.right, bottom = rect.bottom;
  MovePoint<0>(move, extents.width, extents.height, left, top);
  MovePoint<0>(move, extents.width, extents.height, right, bottom);
  rect.left = static_cast<int32_t>(left < right ? left : right);
  rect.right = static_cast<int32_t>(left < right ? right : left);
  rect.top = static_cast<int32_t>(top < bottom ? top : bottom);
  rect.bottom = static_cast<int32_t>(top < bottom ? bottom : top);
}

/// Extents that positions under a foreign perspective are taken to have.
Extents ForeignExtents(const BitmapHandle& bitmap, uint32_t viewPerspective) noexcept {
  // Deliberate: perspectives 5 and 7 count with the extents as they are; callers have adapted to it.
  const bool exchanged = IsTransposed(bitmap.ViewPerspective) != (viewPerspective == 6 || viewPerspective == 8);
  if (exchanged) return {bitmap.Height, bitmap.Width};
  return {bitmap.Width, bitmap.Height};
}

Status RequirePerspectives(const BitmapHandle* bitmap, uint32_t viewPerspective) noexcept {
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  const bool known = IsPerspective(bitmap->ViewPerspective) && IsPerspective(viewPerspective);
  return known ? SUCCESS : ERR_INVALID_PARAMETER;
}

int32_t ReplacePerspective(BitmapHandle* bitmap, const uint32_t (&next)[9]) noexcept {
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  if (!IsPerspective(bitmap->ViewPerspective)) return ERR_INVALID_PARAMETER;
  bitmap->ViewPerspective = next[bitmap->ViewPerspective];
  return SUCCESS;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_GetChangeViewPerspectiveParams(uint32_t from, uint32_t to, int32_t* flip, int32_t* angle) noexcept {
  if (!IsPerspective(from) || !IsPerspective(to) || !flip || !angle) return ERR_INVALID_PARAMETER;
  const Move move = MoveBetween(from, to);
  *flip = move.flip ? 1 : 0;
  *angle = move.angle;
  return SUCCESS;
}

int32_t T_FlipBitmapViewPerspective(BitmapHandle* bitmap) noexcept {
  return ReplacePerspective(bitmap, {0, 4, 3, 2, 1, 8, 7, 6, 5});
}

int32_t T_ReverseBitmapViewPerspective(BitmapHandle* bitmap) noexcept {
  return ReplacePerspective(bitmap, {0, 2, 1, 4, 3, 6, 5, 8, 7});
}

int32_t T_PointToBitmap(const BitmapHandle* bitmap, uint32_t viewPerspective, int32_t* x, int32_t* y) noexcept {
  if (!bitmap || !x || !y) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequirePerspectives(bitmap, viewPerspective));
  MovePixel(MoveBetween(viewPerspective, bitmap->ViewPerspective), ForeignExtents(*bitmap, viewPerspective), *x, *y);
  return SUCCESS;
}

int32_t T_PointFromBitmap(const BitmapHandle* bitmap, uint32_t viewPerspective, int32_t* x, int32_t* y) noexcept {
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  if (bitmap->ViewPerspective == viewPerspective) return SUCCESS;
  TARN_TRY(RequirePerspectives(bitmap, viewPerspective));
  if (!x || !y) return ERR_INVALID_PARAMETER;
  MovePixel(MoveBetween(bitmap->ViewPerspective, viewPerspective), {bitmap->Width, bitmap->Height}, *x, *y);
  return SUCCESS;
}

int32_t T_RectToBitmap(const BitmapHandle* bitmap, uint32_t viewPerspective, T_Rect* rect) noexcept {
  if (!bitmap || !rect) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequirePerspectives(bitmap, viewPerspective));
  MoveRect(MoveBetween(viewPerspective, bitmap->ViewPerspective), ForeignExtents(*bitmap, viewPerspective), *rect);
  return SUCCESS;
}

int32_t T_RectFromBitmap(const BitmapHandle* bitmap, uint32_t viewPerspective, T_Rect* rect) noexcept {
  if (!bitmap || !rect) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequirePerspectives(bitmap, viewPerspective));
  MoveRect(MoveBetween(bitmap->ViewPerspective, viewPerspective), {bitmap->Width, bitmap->Height}, *rect);
  return SUCCESS;
}

int32_t T_ChangeRectViewPerspective(uint32_t from, uint32_t to, int32_t width, int32_t height, T_Rect* rect) noexcept {
  if (!rect || !IsPerspective(from) || !IsPerspective(to)) return ERR_INVALID_PARAMETER;
  MoveRect(MoveBetween(from, to), {width, height}, *rect);
  return SUCCESS;
}
