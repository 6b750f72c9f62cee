// View perspectives: what leads from one to another, for points, rectangles and pixels.

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/Rotate.h"
#include "tarn/copy.h"
#include "tarn/flip.h"
#include "tarn/rotate.h"

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

// ---- Pixels that move ----------------------------------------------------------------------------------------------

/// A change of perspective that is under way.
struct Change {
  Move move;
  uint32_t perspective;
};

Status FinishChange(BitmapHandle& bitmap, void* context) noexcept {
  const auto& change = *static_cast<const Change*>(context);
  const T_RegionHooks* const hooks = RegionHooks();
  const bool flips = change.move.flip && hooks && hooks->Flip;
  if (flips) TARN_TRY(hooks->Flip(&bitmap));
  if (change.move.angle != 0 && hooks && hooks->Rotate) {
    const Status turned = hooks->Rotate(&bitmap, change.move.angle * 100, ROTATE_RESIZE);
    if (!turned.Ok()) {
      if (flips) (void)hooks->Flip(&bitmap);  // back
      return turned;
    }
  }
  bitmap.ViewPerspective = change.perspective;
  return SUCCESS;
}

Status FinishPixels(BitmapHandle& bitmap, void* context) noexcept {
  bitmap.ViewPerspective = static_cast<const Change*>(context)->perspective;
  return SUCCESS;
}

/// A flip and a turn in one, so that it is done or not.
Status ChangePixels(BitmapHandle& bitmap, uint32_t perspective, TurnEnd end) noexcept {
  Change change{MoveBetween(bitmap.ViewPerspective, perspective), perspective};
  const bool flip = change.move.flip;
  switch (change.move.angle) {
    case 90:
      return TransposeStored(bitmap, flip ? kMainDiagonal : kTurnRight, 0, 100, end, &change);
    case 270:
      return TransposeStored(bitmap, flip ? kOtherDiagonal : kTurnLeft, 0, 100, end, &change);
    case 180:
      return TurnStored(bitmap, flip ? Turn::kReverse : Turn::kHalf, 0, 100, end, &change);
    default:
      return TurnStored(bitmap, Turn::kFlip, 0, 100, end, &change);
  }
}

Status ChangePerspective(BitmapHandle& bitmap, uint32_t perspective, TurnEnd end) noexcept {
  if (bitmap.ViewPerspective == perspective) return SUCCESS;
  if (!IsPerspective(bitmap.ViewPerspective) || !IsPerspective(perspective)) return ERR_INVALID_PARAMETER;
  return ChangePixels(bitmap, perspective, end);
}

}  // namespace

Status CopyInPerspective(ScratchBitmap& copy, BitmapHandle& source, uint32_t perspective) noexcept {
  const QuietCallback quiet;
  TARN_TRY(copy.Create(source, source.Width, source.Height, source.BitsPerPixel));
  {
    const BitmapLock lock(source);
    RowReader from(source, TARN_HERE);
    RowWriter to(copy.Record(), TARN_HERE);
    TARN_TRY(from.Open());
    TARN_TRY(to.Open());
    for (int32_t row = 0; row < source.Height; ++row) {
      const uint8_t* const line = from.Row(row);
      if (!line) return from.status();
      std::memcpy(to.Row(row), line, copy.Record().BytesPerLine);
      TARN_TRY(to.Commit());
    }
  }
  return ChangePerspective(copy.Record(), perspective, FinishPixels);
}

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

int32_t T_IntChangeBitmapViewPerspective(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize,
                                         uint32_t viewPerspective, uint32_t mode) noexcept {
  if (!source || !GeometryHolds(*source)) return ERR_INVALID_PARAMETER;
  const QuietCallback quiet;
  if (!destination || destination == source) return ChangePerspective(*source, viewPerspective, FinishChange).code;
  const uint32_t own = mode | DUP_STORAGE;
  TARN_TRY(
      T_DupBitmapNewDim(destination, source, structSize, source->Width, source->Height, source->BitsPerPixel, own));
  Status status = T_CopyBitmapData(destination, source);
  if (status.Ok()) status = ChangePerspective(*destination, viewPerspective, FinishChange);
  if (!status.Ok()) {
    T_FreeDuplicateBitmap(destination, own);
    destination->Flags &= ~static_cast<uint32_t>(T_FLAG_ALLOCATED);
  }
  return status.code;
}

int32_t T_ChangeBitmapViewPerspective(BitmapHandle* destination, BitmapHandle* source, uint32_t structSize,
                                      uint32_t viewPerspective) noexcept {
  TARN_TRY(RequireAllocatedThenSize(source, ERR_INVALID_PARAMETER));
  if (!destination || destination == source)
    return T_IntChangeBitmapViewPerspective(nullptr, source, source->StructSize, viewPerspective, 0);
  if (structSize != sizeof(BitmapHandle)) return ERR_BAD_STRUCT_SIZE;
  constexpr uint32_t kAll = DUP_STORAGE | DUP_PALETTE | DUP_REGION | DUP_OVERLAYS;
  return T_IntChangeBitmapViewPerspective(destination, source, structSize, viewPerspective, kAll);
}
