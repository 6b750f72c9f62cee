// Rotation of bitmaps: which turn it is, where the result comes to lie, what goes with the pixels.

#include "tarn/rotate.h"

#include "Common/Internal/Checks.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/PixelColor.h"
#include "Common/Internal/Rotate.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

constexpr int32_t kFullTurn = 36000;
constexpr double kOne = 16384;

// ---- Sines ---------------------------------------------------------------------------------------------------------

struct SineTable {
  int32_t entries[9001];  // round(sin(i / 100 degrees) * 16384)
};

/// By the power series, at compile time: the same on every system. Its error is far below what could round otherwise.
constexpr SineTable MakeSines() noexcept {
  constexpr double kRadians = 3.14159265358979323846 / 18000;
  SineTable table{};
  for (int32_t i = 0; i <= 9000; ++i) {
    const double x = i * kRadians;
    double term = x, sum = x;
    for (int32_t n = 2; n <= 24; n += 2) {
      term = -term * x * x / (n * (n + 1));
      sum += term;
    }
    table.entries[i] = static_cast<int32_t>(sum * kOne + 0.5);
  }
  return table;
}
constexpr SineTable kSines = MakeSines();
static_assert(kSines.entries[3000] == 8192 && kSines.entries[9000] == 16384);

constexpr int32_t Normalised(int64_t angle) noexcept {
  return static_cast<int32_t>((angle % kFullTurn + kFullTurn) % kFullTurn);
}

constexpr int32_t SineOf(int32_t angle) noexcept {  // 0..35999
  if (angle <= 9000) return kSines.entries[angle];
  if (angle <= 18000) return kSines.entries[18000 - angle];
  if (angle <= 27000) return -kSines.entries[angle - 18000];
  return -kSines.entries[kFullTurn - angle];
}
constexpr int32_t CosineOf(int32_t angle) noexcept { return SineOf((angle + 9000) % kFullTurn); }

// ---- What is rotated -----------------------------------------------------------------------------------------------

/// A caller's rotation with the perspective folded in.
struct Rotation {
  int32_t asked;         // what the displayed picture turns by, clockwise, 0..35999
  int32_t clockwise;     // and the rows, displayed under `perspective`
  uint32_t perspective;  // of the result: 1 or 4
  uint32_t flags;
  uint32_t fill;
  int32_t firstPercent;
  int32_t lastPercent;
  double centerX;
  double centerY;
  [[nodiscard]] bool IsMirroredStorage() const noexcept { return perspective == 4; }
};

Rotation FoldPerspective(uint32_t viewPerspective, int32_t angle) noexcept {
  constexpr int32_t kTurns[] = {0, 0, 18000, 18000, 0, 9000, 9000, 27000, 27000};
  Rotation rotation{};
  const int32_t folded = viewPerspective <= 8 ? kTurns[viewPerspective] : 0;
  rotation.asked = Normalised(angle);
  rotation.clockwise = Normalised(int64_t{angle} + folded);
  rotation.perspective = IsMirrored(viewPerspective) ? 4 : 1;
  return rotation;
}

/// Perspective and region of the result, the last that can fail.
Status FinishRotation(BitmapHandle& bitmap, void* context) noexcept {
  const auto& rotation = *static_cast<const Rotation*>(context);
  const uint32_t before = bitmap.ViewPerspective;
  bitmap.ViewPerspective = rotation.perspective;
  const T_RegionHooks* const hooks = RegionHooks();
  const Status status =
      hooks && hooks->Rotate ? hooks->Rotate(&bitmap, rotation.clockwise, rotation.flags) : int32_t{SUCCESS};
  if (!status.Ok()) bitmap.ViewPerspective = before;
  return status;
}

// ---- Any angle -----------------------------------------------------------------------------------------------------

struct Point {
  double x;
  double y;
};

/// Extents of the result, and the point of it that the centre of the source goes to.
struct Layout {
  double width;
  double height;
  Point source;  // the centre
  Point target;
};

Layout LayOut(const BitmapHandle& bitmap, const Rotation& rotation, double cosine, double sine) noexcept {
  const double width = bitmap.Width, height = bitmap.Height;
  const bool given = (rotation.flags & ROTATE_CENTER) != 0;
  const Point center = given ? Point{rotation.centerX, rotation.centerY} : Point{width / 2, height / 2};
  if (!given && !(rotation.flags & ROTATE_RESIZE)) return {width, height, center, center};
  double left = 0, right = 0, top = 0, bottom = 0;
  for (int corner = 0; corner < 4; ++corner) {
    const double dx = (corner & 1 ? width : 0) - center.x, dy = (corner & 2 ? height : 0) - center.y;
    const double x = dx * cosine + dy * sine + center.x, y = -dx * sine + dy * cosine + center.y;
    left = corner == 0 || x < left ? x : left;
    right = corner == 0 || x > right ? x : right;
    top = corner == 0 || y < top ? y : top;
    bottom = corner == 0 || y > bottom ? y : bottom;
  }
  return {right - left + 0.6, bottom - top + 0.6, center, {center.x - left, center.y - top}};
}

/// A position in pixels as 1/16384 from the centre of pixel 0.
int64_t FixedPosition(double position) noexcept {
  const auto index = static_cast<int64_t>(position);
  return index * 16384 + static_cast<int64_t>((position - (static_cast<double>(index) + 0.5)) * kOne);
}

/// Dots per inch along both directions of the result, mixed by how much of each lies in them.
void MixResolutions(BitmapHandle& result, const BitmapHandle& source, int32_t cosine, int32_t sine) noexcept {
  const double x = source.XResolution, y = source.YResolution;
  if (!(x > 0 && y > 0)) return;
  const double c = cosine < 0 ? -cosine : cosine, s = sine < 0 ? -sine : sine;
  const double width = source.Width, height = source.Height;
  result.XResolution = static_cast<int32_t>(0.5 + (width * c + height * s) / (width * c / x + height * s / y));
  result.YResolution = static_cast<int32_t>(0.5 + (width * s + height * c) / (width * s / x + height * c / y));
}

/// The recorded range of a 32-bit gray bitmap holds the fill, too.
void WidenRange(BitmapHandle& bitmap, uint32_t fill) noexcept {
  const uint32_t flip = bitmap.Flags & T_FLAG_SIGNED_DATA ? 0x80000000u : 0;
  const auto level = static_cast<int32_t>(fill);
  if ((fill ^ flip) < (static_cast<uint32_t>(bitmap.MinValue) ^ flip)) bitmap.MinValue = level;
  if ((fill ^ flip) > (static_cast<uint32_t>(bitmap.MaxValue) ^ flip)) bitmap.MaxValue = level;
}

uint32_t QualityOf(const BitmapHandle& bitmap, uint32_t flags) noexcept {
  const bool table = bitmap.Order == T_ORDER_GRAY && bitmap.LUT;
  const bool indices = bitmap.BitsPerPixel < 8 || (bitmap.BitsPerPixel == 8 && T_IsGrayScaleBitmap(&bitmap) != 1);
  return table || indices ? 0 : flags & (ROTATE_CORRECT | ROTATE_BILINEAR);
}

Status RotateSampled(BitmapHandle& bitmap, Rotation& rotation) noexcept {
  uint64_t fill = 0;
  TARN_TRY(TaggedPixelOf(bitmap, rotation.fill, fill));
  // Rows that are displayed from the bottom up turn the other way.
  const int32_t angle = rotation.IsMirroredStorage() ? rotation.clockwise : Normalised(-rotation.clockwise);
  const int32_t cosine = CosineOf(angle), sine = SineOf(angle);
  const double c = cosine / kOne, s = sine / kOne;
  const Layout layout = LayOut(bitmap, rotation, c, s);
  constexpr double kMost = 2147483647;
  if (!(layout.width <= kMost && layout.height <= kMost)) return ERR_IMAGE_TOO_LARGE;
  ScratchBitmap result;
  TARN_TRY(result.Create(bitmap, static_cast<int32_t>(layout.width), static_cast<int32_t>(layout.height),
                         bitmap.BitsPerPixel));
  BitmapHandle& record = result.Record();
  FollowSource(record, bitmap);
  MixResolutions(record, bitmap, cosine, sine);
  const double dx = 0.5 - layout.target.x, dy = 0.5 - layout.target.y;
  const Sampling sampling{FixedPosition(dx * c - dy * s + layout.source.x),
                          FixedPosition(dx * s + dy * c + layout.source.y),
                          cosine,
                          sine,
                          QualityOf(bitmap, rotation.flags),
                          fill};
  TARN_TRY(SampleRows(record, bitmap, sampling, rotation.firstPercent, rotation.lastPercent));
  if (record.BitsPerPixel == 32 && record.Order == T_ORDER_GRAY) WidenRange(record, static_cast<uint32_t>(fill));
  TARN_TRY(FinishRotation(record, &rotation));
  result.Commit(bitmap);
  return SUCCESS;
}

// ---- Choice --------------------------------------------------------------------------------------------------------

Status RotateNothing(BitmapHandle& bitmap, Rotation& rotation) noexcept {
  void* userData = nullptr;
  if (const T_StatusCallback callback = T_GetStatusCallBack(&userData)) {
    TARN_TRY(callback(rotation.firstPercent, userData));
    TARN_TRY(callback(rotation.lastPercent, userData));
  }
  bitmap.ViewPerspective = rotation.perspective;
  return SUCCESS;
}

Status RotatePixels(BitmapHandle& bitmap, Rotation& rotation) noexcept {
  if (!(rotation.flags & ROTATE_CENTER)) {
    if (rotation.clockwise == 0) return RotateNothing(bitmap, rotation);
    if (rotation.clockwise == 18000)
      return TurnStored(bitmap, Turn::kHalf, rotation.firstPercent, rotation.lastPercent, FinishRotation, &rotation);
    const bool quarter = rotation.clockwise % 9000 == 0;
    if (quarter && ((rotation.flags & ROTATE_RESIZE) || bitmap.Width == bitmap.Height)) {
      const bool right = (rotation.clockwise == 9000) != rotation.IsMirroredStorage();
      return TransposeStored(bitmap, right ? kTurnRight : kTurnLeft, rotation.firstPercent, rotation.lastPercent,
                             FinishRotation, &rotation);
    }
  }
  return RotateSampled(bitmap, rotation);
}

/// The nearest whole number, held to what a position can be.
int32_t Rounded(double value) noexcept {
  const double most = 2147483647;
  const double shifted = value + 0.5;
  if (!(shifted > -most)) return -2147483647;
  if (shifted >= most) return 2147483647;
  const auto whole = static_cast<int32_t>(shifted);
  return whole > shifted ? whole - 1 : whole;
}

/// Where the centres of overlays go when the displayed picture turns.
struct OverlayTurn {
  Point from;
  Point to;
};

OverlayTurn CentersOf(const BitmapHandle& bitmap, const Rotation& rotation) noexcept {
  const double width = DisplayedWidth(bitmap), height = DisplayedHeight(bitmap);
  if (!(rotation.flags & (ROTATE_RESIZE | ROTATE_CENTER)))
    return {{width / 2, height / 2}, {bitmap.Width / 2.0, bitmap.Height / 2.0}};
  const double c = CosineOf(rotation.asked) / kOne, s = SineOf(rotation.asked) / kOne;
  Point center{width / 2, height / 2};
  if (rotation.flags & ROTATE_CENTER) center = {rotation.centerX, rotation.centerY};
  double left = 0, top = 0;
  for (int corner = 0; corner < 4; ++corner) {
    const double dx = (corner & 1 ? width : 0) - center.x, dy = (corner & 2 ? height : 0) - center.y;
    const double x = dx * c - dy * s, y = dx * s + dy * c;
    left = corner == 0 || x < left ? x : left;
    top = corner == 0 || y < top ? y : top;
  }
  return {center, {-left, -top}};
}

Status RotateOverlays(ChangedOverlays& overlays, const BitmapHandle& owner, const Rotation& rotation) noexcept {
  const QuietCallback quiet;
  TARN_TRY(overlays.Copy(owner));
  const OverlayTurn turn = CentersOf(owner, rotation);
  const double c = CosineOf(rotation.asked) / kOne, s = SineOf(rotation.asked) / kOne;
  for (uint32_t i = 0; i < overlays.Count(); ++i) {
    Overlay& overlay = overlays[i];
    BitmapHandle& picture = overlay.bitmap;
    const double dx = overlay.left + DisplayedWidth(picture) / 2.0 - turn.from.x;
    const double dy = overlay.top + DisplayedHeight(picture) / 2.0 - turn.from.y;
    if (IsAllocated(picture)) TARN_TRY(T_RotateBitmap(&picture, rotation.asked, ROTATE_RESIZE, 0));
    overlay.left = Rounded(turn.to.x + dx * c - dy * s - DisplayedWidth(picture) / 2.0);
    overlay.top = Rounded(turn.to.y + dx * s + dy * c - DisplayedHeight(picture) / 2.0);
  }
  return SUCCESS;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_SinValue(int32_t angle) noexcept { return SineOf(Normalised(angle)); }
int32_t T_CosValue(int32_t angle) noexcept { return CosineOf(Normalised(angle)); }

int32_t T_IntRotateBitmap(BitmapHandle* bitmap, int32_t angle, uint32_t flags, uint32_t fill, int32_t firstPercent,
                          int32_t lastPercent, float centerX, float centerY) noexcept {
  if (!bitmap || !IsAllocated(*bitmap)) return ERR_NO_BITMAP;
  if (!GeometryHolds(*bitmap)) return ERR_INVALID_PARAMETER;
  constexpr float kFarthest = 1e9F;
  const auto near = [](float value) noexcept { return value >= -kFarthest && value <= kFarthest; };
  if ((flags & ROTATE_CENTER) && !(near(centerX) && near(centerY))) return ERR_INVALID_PARAMETER;
  Rotation rotation = FoldPerspective(bitmap->ViewPerspective, angle);
  rotation.flags = flags;
  rotation.fill = fill;
  rotation.firstPercent = firstPercent;
  rotation.lastPercent = lastPercent;
  rotation.centerX = centerX;
  rotation.centerY = centerY;
  ChangedOverlays overlays;
  if (bitmap->Overlays) TARN_TRY(RotateOverlays(overlays, *bitmap, rotation));
  TARN_TRY(RotatePixels(*bitmap, rotation));
  overlays.Commit(*bitmap);
  return SUCCESS;
}

int32_t T_RotateBitmap(BitmapHandle* bitmap, int32_t angle, uint32_t flags, uint32_t fill) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_NO_BITMAP));
  return T_IntRotateBitmap(bitmap, angle, flags, fill, 0, 100, 0, 0);
}

int32_t T_IntRotateBitmapViewPerspective(BitmapHandle* bitmap, int32_t degrees) noexcept {
  constexpr uint32_t kNext[] = {0, 6, 7, 8, 5, 2, 3, 4, 1};  // a quarter turn clockwise
  if (!bitmap) return ERR_INVALID_PARAMETER;
  const int32_t angle = (degrees % 360 + 360) % 360;
  if (angle == 0) return SUCCESS;
  uint32_t perspective = bitmap->ViewPerspective;
  if (angle % 90 != 0 || perspective < 1 || perspective > 8) return ERR_INVALID_PARAMETER;
  for (int32_t turned = 0; turned < angle; turned += 90) perspective = kNext[perspective];
  bitmap->ViewPerspective = perspective;
  return SUCCESS;
}

int32_t T_RotateBitmapViewPerspective(BitmapHandle* bitmap, int32_t degrees) noexcept {
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  return T_IntRotateBitmapViewPerspective(bitmap, degrees);
}
