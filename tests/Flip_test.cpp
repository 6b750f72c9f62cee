// Flipping, mirroring and view perspectives.

#include <gtest/gtest.h>

#include <algorithm>

#include "Grid.h"
#include "Kernels/Kernels.h"
#include "Levels.h"
#include "RunReference.h"
#include "engine/Picture.h"
#include "engine/Random.h"

using namespace tarn::test;
namespace engine = tarn::engine;
using engine::Kind;
using tarn::Isa;
using Bytes = std::vector<uint8_t>;

namespace {

class ForcedLevel {
 public:
  explicit ForcedLevel(Isa level) { tarn::ForceIsa(level); }
  ~ForcedLevel() { tarn::ForceIsa(Isa::kCount); }
};

TEST(Flip, LinesOfEveryWidthAreMirrored) {
  engine::Random random(3);
  for (const Isa level : kLevels) {
    const ForcedLevel forced(level);
    for (const int32_t bits : engine::kDepths) {
      for (int32_t width = 1; width <= 1100; width += width < 280 ? 1 : 53) {
        const size_t used = (static_cast<size_t>(width) * static_cast<size_t>(bits) + 7) / 8;
        Bytes before(used);
        for (uint8_t& byte : before) byte = random.Byte();
        Bytes wanted = before;
        for (size_t x = 0; x < static_cast<size_t>(width); ++x)
          SetPixel(wanted.data(), static_cast<size_t>(width) - 1 - x, bits, PixelAt(before.data(), x, bits));
        runref::Guarded line(used, random.Below(64));
        std::memcpy(line.data(), before.data(), used);
        Bytes turned = before;
        ASSERT_EQ(T_RotateBuffer180(turned.data(), width, bits), SUCCESS);
        ASSERT_EQ(turned, wanted);
        ASSERT_EQ(T_MirrorLine(line.data(), width, bits), SUCCESS);
        ASSERT_TRUE(line.GuardsKept()) << bits << " bits, width " << width;
        ASSERT_EQ(Bytes(line.data(), line.data() + used), wanted) << bits << " bits, width " << width;
      }
    }
  }
}

TEST(Flip, StretchesChangePlaces) {
  engine::Random random(4);
  for (const Isa level : kLevels) {
    for (size_t bytes = 0; bytes < 300; ++bytes) {
      runref::Guarded a(bytes, random.Below(64)), b(bytes, random.Below(64));
      Bytes first(bytes), second(bytes);
      for (size_t i = 0; i < bytes; ++i)
        a.data()[i] = first[i] = random.Byte(), b.data()[i] = second[i] = random.Byte();
      tarn::KernelsFor(level).turn->exchange(a.data(), b.data(), bytes, 256);
      ASSERT_TRUE(a.GuardsKept() && b.GuardsKept());
      ASSERT_EQ(Bytes(a.data(), a.data() + bytes), second);
      ASSERT_EQ(Bytes(b.data(), b.data() + bytes), first);
    }
  }
}

TEST(Flip, LineArguments) {
  uint8_t line[8] = {1, 2, 3, 4, 5, 6, 7, 8};
  const Bytes before(line, line + 8);
  EXPECT_EQ(T_MirrorLine(nullptr, 8, 8), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_MirrorLine(line, 6, 10), SUCCESS);
  EXPECT_EQ(T_MirrorLine(line, -1, 8), SUCCESS);
  EXPECT_EQ(Bytes(line, line + 8), before);
}

TEST(Flip, EveryPerspectiveIsTurnedAsDisplayed) {
  for (const int32_t bits : {1, 5, 8, 12, 24}) {
    for (uint32_t perspective = 1; perspective <= 8; ++perspective) {
      for (const Kind kind : {Kind::kBlock, Kind::kMixedTiles}) {
        SCOPED_TRACE(testing::Message() << bits << " bits, perspective " << perspective);
        engine::Picture picture;
        ASSERT_EQ(picture.Make(kind, {37, 9, bits}, perspective), "");
        BitmapHandle& b = picture.record;
        b.ViewPerspective = perspective;
        const Grid stored = GridOf(b);
        const Grid before = Displayed(stored, perspective);
        ASSERT_EQ(T_FlipBitmap(&b), SUCCESS);
        EXPECT_EQ(Displayed(GridOf(b), V(b.ViewPerspective)), Flipped(before));
        ASSERT_EQ(T_FlipBitmap(&b), SUCCESS);
        ASSERT_EQ(T_ReverseBitmap(&b), SUCCESS);
        EXPECT_EQ(Displayed(GridOf(b), V(b.ViewPerspective)), Reversed(before));
        ASSERT_EQ(T_ReverseBitmap(&b), SUCCESS);
        EXPECT_EQ(GridOf(b), stored);
        ASSERT_EQ(T_FlipBitmapViewPerspective(&b), SUCCESS);
        EXPECT_EQ(Displayed(stored, V(b.ViewPerspective)), Flipped(before));
        ASSERT_EQ(T_FlipBitmapViewPerspective(&b), SUCCESS);
        ASSERT_EQ(T_ReverseBitmapViewPerspective(&b), SUCCESS);
        EXPECT_EQ(Displayed(stored, V(b.ViewPerspective)), Reversed(before));
      }
    }
  }
}

TEST(Flip, StoppedBitmapsAreAsTheyWere) {
  for (int kind = 0; kind < engine::kKinds; ++kind) {
    for (const bool flip : {true, false}) {
      engine::Picture picture;
      ASSERT_EQ(picture.Make(static_cast<Kind>(kind), {37, 8, 1}, 5), "");
      BitmapHandle& b = picture.record;
      const Grid before = GridOf(b);
      for (int stop = 1;; ++stop) {
        SCOPED_TRACE(testing::Message() << NameOf(static_cast<Kind>(kind)) << " call " << stop);
        Stopper stopper{stop, -100 + stop};
        T_SetStatusCallBack(Stopper::Call, &stopper, nullptr, nullptr);
        const int32_t status = flip ? T_FlipBitmap(&b) : T_ReverseBitmap(&b);
        T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
        ASSERT_TRUE(stopper.ordered);
        if (status == SUCCESS) {
          EXPECT_EQ(stopper.last, 100);
          EXPECT_GE(stop, 4);
          EXPECT_EQ(GridOf(b), flip ? Flipped(before) : Reversed(before));
          break;
        }
        ASSERT_EQ(status, -100 + stop);
        ASSERT_EQ(GridOf(b), before);
      }
    }
  }
}

TEST(Flip, RegionHooksAreAskedAndMayRefuse) {
  static int calls;
  static int32_t answer;
  T_RegionHooks hooks{};
  hooks.StructSize = sizeof hooks;
  hooks.Flip = [](BitmapHandle*) { return ++calls, answer; };
  hooks.Reverse = [](BitmapHandle*) { return calls += 10, answer; };
  for (const Kind kind : {Kind::kBlock, Kind::kDisk}) {
    engine::Picture picture;
    ASSERT_EQ(picture.Make(kind, {20, 7, 8}, 5), "");
    BitmapHandle& b = picture.record;
    const Grid before = GridOf(b);
    calls = 0;
    answer = -77;
    const T_RegionHooks* const old = T_SetRegionHooks(&hooks);
    EXPECT_EQ(T_FlipBitmap(&b), -77);
    EXPECT_EQ(T_ReverseBitmap(&b), -77);
    EXPECT_EQ(GridOf(b), before);
    answer = SUCCESS;
    EXPECT_EQ(T_IntFlipBitmap(&b), SUCCESS);
    T_SetRegionHooks(old);
    EXPECT_EQ(calls, 12);
    EXPECT_EQ(GridOf(b), Flipped(before));
  }
}

TEST(Flip, RefusesInOrder) {
  Bitmap b(8, 8, 8);
  EXPECT_EQ(T_FlipBitmap(nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ReverseBitmap(&b), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_IntFlipBitmap(nullptr), ERR_NO_BITMAP);
  EXPECT_EQ(T_IntReverseBitmap(&b), ERR_NO_BITMAP);
  ASSERT_EQ(T_AllocateBitmap(&b, TYPE_CONV), SUCCESS);
  b.StructSize = 1;
  EXPECT_EQ(T_FlipBitmap(&b), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_IntFlipBitmap(&b), SUCCESS);
  b.StructSize = sizeof(BitmapHandle);
  b.BytesPerLine = 4;
  EXPECT_EQ(T_FlipBitmap(&b), ERR_INVALID_PARAMETER);
  b.BytesPerLine = 8;
}

// Rows that are longer than what is asked for ahead of them.
TEST(Flip, LongRows) {
  for (const int32_t width : {9000, 40000, 140000}) {
    engine::Picture picture, old;
    ASSERT_EQ(picture.Make(Kind::kBlock, {width, 6, 8}, 3), "");
    ASSERT_EQ(old.Make(Kind::kBlock, {width, 6, 8}, 3), "");
    ASSERT_EQ(T_ReverseBitmap(&picture.record), SUCCESS);
    for (uint32_t row = 0; row < 6; ++row) {
      Bytes wanted = Row(old.record, row);
      std::reverse(wanted.begin(), wanted.end());
      ASSERT_EQ(Row(picture.record, row), wanted) << width << ", row " << row;
    }
  }
}

TEST(Flip, PerspectivesRefuse) {
  Bitmap b(8, 8, 8), wrong(8, 8, 8), damaged(8, 8, 8);
  for (Bitmap* each : {&b, &wrong, &damaged}) ASSERT_EQ(T_AllocateBitmap(each, TYPE_CONV), SUCCESS);
  wrong.ViewPerspective = 0;
  damaged.BytesPerLine = 4;
  int32_t x = 1, y = 2, flip = 3;
  T_Rect rect{1, 2, 3, 4};
  const int32_t refused[] = {T_FlipBitmapViewPerspective(nullptr),
                             T_ReverseBitmapViewPerspective(&wrong),
                             T_GetChangeViewPerspectiveParams(1, 1, nullptr, &flip),
                             T_PointToBitmap(nullptr, 1, &x, &y),
                             T_PointToBitmap(&b, 1, nullptr, &y),
                             T_PointToBitmap(&b, 1, &x, nullptr),
                             T_PointToBitmap(&b, 9, &x, &y),
                             T_PointToBitmap(&wrong, 1, &x, &y),
                             T_PointFromBitmap(nullptr, 1, &x, &y),
                             T_PointFromBitmap(&b, 1, nullptr, &y),
                             T_PointFromBitmap(&b, 1, &x, nullptr),
                             T_PointFromBitmap(&b, 9, &x, &y),
                             T_RectToBitmap(nullptr, 1, &rect),
                             T_RectToBitmap(&b, 1, nullptr),
                             T_RectToBitmap(&b, 0, &rect),
                             T_RectFromBitmap(nullptr, 1, &rect),
                             T_RectFromBitmap(&b, 1, nullptr),
                             T_RectFromBitmap(&b, 9, &rect),
                             T_ChangeRectViewPerspective(1, 2, 8, 8, nullptr),
                             T_ChangeRectViewPerspective(0, 2, 8, 8, &rect),
                             T_ChangeRectViewPerspective(1, 9, 8, 8, &rect),
                             T_ChangeBitmapViewPerspective(nullptr, nullptr, 212, 1),
                             T_ChangeBitmapViewPerspective(nullptr, &b, 212, 9),
                             T_ChangeBitmapViewPerspective(nullptr, &wrong, 212, 1),
                             T_IntChangeBitmapViewPerspective(nullptr, nullptr, 212, 1, 0),
                             T_IntChangeBitmapViewPerspective(nullptr, &damaged, 212, 1, 0),
                             T_IntRotateBitmapViewPerspective(nullptr, 90),
                             T_IntRotateBitmapViewPerspective(&b, 45),
                             T_IntRotateBitmapViewPerspective(&wrong, 90)};
  for (const int32_t& status : refused) EXPECT_EQ(status, ERR_INVALID_PARAMETER) << &status - refused;
  EXPECT_TRUE(x == 1 && y == 2 && flip == 3 && rect.left == 1 && rect.bottom == 4);
  EXPECT_EQ(b.ViewPerspective, 4u);
  // The source as its own destination is changed in place, through either door.
  Fill(b, 3);
  const Grid before = GridOf(b);
  EXPECT_EQ(T_ChangeBitmapViewPerspective(&b, &b, 212, 1), SUCCESS);
  EXPECT_EQ(GridOf(b), Flipped(before));
  EXPECT_EQ(T_IntChangeBitmapViewPerspective(&b, &b, 212, 4, 0), SUCCESS);
  EXPECT_EQ(GridOf(b), before);
}

TEST(Flip, ParametersBetweenPerspectives) {
  struct Case {
    uint32_t from, to;
    int32_t flip, angle;
  };
  for (const Case& c : {Case{4, 1, 1, 0}, {6, 1, 0, 90}, {1, 2, 1, 180}, {1, 5, 1, 90}, {5, 7, 0, 180}, {2, 3, 1, 0}}) {
    int32_t flip = -1, angle = -1;
    ASSERT_EQ(T_GetChangeViewPerspectiveParams(c.from, c.to, &flip, &angle), SUCCESS);
    EXPECT_EQ(flip, c.flip) << c.from << " to " << c.to;
    EXPECT_EQ(angle, c.angle) << c.from << " to " << c.to;
  }
  // Whatever is displayed under one perspective is displayed under the other after the flip and the turn.
  const Grid stored{3, 2, {1, 2, 3, 4, 5, 6}};
  for (uint32_t from = 1; from <= 8; ++from) {
    for (uint32_t to = 1; to <= 8; ++to) {
      int32_t flip = -1, angle = -1;
      ASSERT_EQ(T_GetChangeViewPerspectiveParams(from, to, &flip, &angle), SUCCESS);
      Grid moved = flip ? Flipped(stored) : stored;
      for (int32_t i = 0; i < angle; i += 90) moved = TurnedRight(moved);
      EXPECT_EQ(Displayed(moved, to), Displayed(stored, from)) << from << " to " << to;
    }
  }
  int32_t value = 7;
  EXPECT_EQ(T_GetChangeViewPerspectiveParams(0, 1, &value, &value), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetChangeViewPerspectiveParams(1, 9, &value, &value), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetChangeViewPerspectiveParams(1, 1, &value, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(value, 7);
}

TEST(Flip, PointsFollowTheirPixels) {
  Bitmap b(3, 2, 8);
  const Grid picture{3, 2, {1, 2, 3, 4, 5, 6}};
  for (uint32_t from = 1; from <= 8; ++from) {
    for (uint32_t to = 1; to <= 8; ++to) {
      SCOPED_TRACE(testing::Message() << from << " to " << to);
      b.ViewPerspective = from;
      int32_t flip = 0, angle = 0;
      T_GetChangeViewPerspectiveParams(from, to, &flip, &angle);
      Grid moved = flip ? Flipped(picture) : picture;
      for (int32_t i = 0; i < angle; i += 90) moved = TurnedRight(moved);
      for (int32_t i = 0; i < 6; ++i) {
        const int32_t left = i % 3, top = i / 3;
        int32_t x = left, y = top;
        ASSERT_EQ(T_PointFromBitmap(&b, to, &x, &y), SUCCESS);
        EXPECT_EQ(moved.At(x, y), picture.At(left, top));
        T_Rect rect{left, top, left + 1, top + 1};
        ASSERT_EQ(T_RectFromBitmap(&b, to, &rect), SUCCESS);
        EXPECT_TRUE(rect.left == x && rect.top == y && rect.right == x + 1 && rect.bottom == y + 1);
        T_Rect same{left, top, left + 1, top + 1};
        ASSERT_EQ(T_ChangeRectViewPerspective(from, to, 3, 2, &same), SUCCESS);
        EXPECT_EQ(std::memcmp(&same, &rect, sizeof rect), 0);
        if (to == 5 || to == 7) continue;  // extents that callers have adapted to
        int32_t px = x, py = y;
        ASSERT_EQ(T_PointToBitmap(&b, to, &px, &py), SUCCESS);
        EXPECT_TRUE(px == left && py == top) << px << ", " << py;
        ASSERT_EQ(T_RectToBitmap(&b, to, &rect), SUCCESS);
        EXPECT_TRUE(rect.left == left && rect.top == top && rect.right == left + 1 && rect.bottom == top + 1);
      }
    }
  }
}

}  // namespace
