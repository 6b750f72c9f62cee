// Nearest resizing, ink count, regions and overlays, rows that pass by.

#include "tarn/resize.h"

#include <gtest/gtest.h>

#include <string>

#include "Common/Internal/Overlays.h"
#include "Holding.h"
#include "Kernels/Kernels.h"
#include "Levels.h"
#include "Platform/Here.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Random.h"

using namespace tarn::test;
namespace engine = tarn::engine;
using Bytes = std::vector<uint8_t>;

namespace {

/// A pixel's bits as a number; 12 bits count from the low end of the line, fewer than 8 from the high end of a byte.
uint64_t PixelOf(const Bytes& line, int64_t column, int32_t bits) {
  uint64_t value = 0;
  for (int i = 0; i < bits; ++i) {
    const int64_t bit = column * bits + i;
    const uint8_t byte = line[static_cast<size_t>(bit / 8)];
    if (bits < 8)
      value = value << 1 | (byte >> (7 - bit % 8) & 1);
    else
      value |= uint64_t(byte >> (bit % 8) & 1) << i;
  }
  return value;
}

/// Source positions, walked with an accumulator.
std::vector<int32_t> Walk(int32_t from, int32_t to) {
  std::vector<int32_t> positions;
  int32_t whole = from / to, remainder = from % to, accumulator = 0, at = 0;
  if (to >= from && remainder == 0) whole = 0, remainder = to;
  for (int32_t i = 0; i < to; ++i) {
    positions.push_back(at);
    at += whole;
    accumulator += remainder;
    if (accumulator >= to) accumulator -= to, ++at;
  }
  return positions;
}

struct Extents {
  int32_t width, height;
};
constexpr Extents kOld = {149, 9};
constexpr Extents kNew[] = {{80, 5},   {320, 21}, {149, 18}, {50, 9},  {1, 1},  {1200, 2},
                            {148, 40}, {150, 3},  {298, 18}, {66, 10}, {170, 9}};

/// Cases for every level that this processor has.
class ResizeLevel : public testing::TestWithParam<tarn::Isa> {
 protected:
  void SetUp() override {
    if (GetParam() > tarn::BestIsa()) GTEST_SKIP() << "not on this processor";
    tarn::ForceIsa(GetParam());
  }
  void TearDown() override { tarn::ForceIsa(tarn::Isa::kCount); }
};
INSTANTIATE_TEST_SUITE_P(Levels, ResizeLevel, testing::ValuesIn(kLevels), NameOfLevel);

void ExpectNearest(engine::Kind kind, int32_t bits, Extents from, Extents size) {
  SCOPED_TRACE(testing::Message() << bits << " bits, " << from.width << " x " << from.height << " to " << size.width
                                  << " x " << size.height);
  engine::Picture picture;
  ASSERT_EQ(picture.Make(kind, {from.width, from.height, bits}, 3), "");
  BitmapHandle& b = picture.record;
  std::vector<Bytes> old;
  for (uint32_t row = 0; row < static_cast<uint32_t>(from.height); ++row) old.push_back(Row(b, row));
  ASSERT_EQ(T_SizeBitmap(&b, size.width, size.height, RESIZE_NEAREST), SUCCESS);
  ASSERT_EQ(V(b.Width), size.width);
  ASSERT_EQ(V(b.Height), size.height);
  const auto columns = Walk(from.width, size.width), rows = Walk(from.height, size.height);
  for (size_t y = 0; y < rows.size(); ++y) {
    const Bytes got = Row(b, static_cast<uint32_t>(y));
    const Bytes& line = old[static_cast<size_t>(rows[y])];
    for (int32_t x = 0; x < size.width; ++x)
      ASSERT_EQ(PixelOf(got, x, bits), PixelOf(line, columns[static_cast<size_t>(x)], bits)) << x << ", " << y;
    Bytes clean = got;
    engine::ClearPadding(clean.data(), {size.width, size.height, bits});
    EXPECT_EQ(got, clean);
  }
}

TEST_P(ResizeLevel, NearestTakesWhatTheStepsReach) {
  for (const int32_t bits : engine::kDepths) {
    for (const Extents& size : kNew) ExpectNearest(engine::Kind::kMixedTiles, bits, kOld, size);
    // Small multiples and in between, longer than what kernels repeat.
    for (const Extents& size : {Extents{1000, 18}, Extents{1500, 4}, Extents{502, 9}, Extents{184, 5}})
      ExpectNearest(engine::Kind::kBlock, bits, {500, 9}, size);
    if (HasFailure()) return;
  }
}

TEST(Resize, MissingExtentsKeepTheShape) {
  struct Case {
    Extents old;
    Extents asked;
    Extents wanted;  // width 0: refused
  };
  const Case cases[] = {
      {{200, 100}, {0, 50}, {100, 50}},    {{200, 100}, {100, 0}, {100, 50}},  {{100, 200}, {0, 150}, {75, 150}},
      {{100, 200}, {250, 0}, {250, 500}},  {{200, 100}, {0, 0}, {0, 0}},       {{200, 100}, {-1, 5}, {0, 0}},
      {{200, 100}, {5, -1}, {0, 0}},       {{200, 1}, {100, 0}, {0, 0}},       {{200, 100}, {200, 100}, {200, 100}},
      {{1000, 1}, {0, INT32_MAX}, {0, 0}}, {{1, 1000}, {INT32_MAX, 0}, {0, 0}}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.asked.width << " x " << c.asked.height);
    Bitmap b(c.old.width, c.old.height, 8);
    ASSERT_EQ(T_AllocateBitmap(&b, TYPE_CONV), SUCCESS);
    ResizeRowState* state = nullptr;
    const int32_t started = T_StartResize(c.old.width, c.old.height, c.asked.width, c.asked.height, &state);
    EXPECT_EQ(T_SizeBitmap(&b, c.asked.width, c.asked.height, 0), c.wanted.width ? SUCCESS : ERR_INVALID_PARAMETER);
    EXPECT_EQ(started, c.wanted.width ? SUCCESS : ERR_INVALID_PARAMETER);
    const Extents& now = c.wanted.width ? c.wanted : c.old;
    EXPECT_EQ(V(b.Width), now.width);
    EXPECT_EQ(V(b.Height), now.height);
    if (state) {
      EXPECT_EQ(state->NewWidth, now.width);
      EXPECT_EQ(state->NewHeight, now.height);
      EXPECT_EQ(T_StopResize(state), SUCCESS);
    }
  }
}

TEST(Resize, RefusesInOrder) {
  Bitmap b(20, 10, 8), other(20, 10, 4), same(7, 7, 8);
  EXPECT_EQ(T_SizeBitmap(nullptr, 5, 5, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SizeBitmap(&b, 5, 5, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ResampleBitmap(nullptr, 5, 5), ERR_NO_BITMAP);
  EXPECT_EQ(T_BicubicResampleBitmap(nullptr, 5, 5), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ResizeBitmap(nullptr, &b, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ResizeBitmap(&b, nullptr, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ResampleBitmapInt(nullptr, &b, 212), ERR_NO_BITMAP);
  EXPECT_EQ(T_BicubicResampleBitmapInt(&b, nullptr, 212), ERR_NO_BITMAP);
  EXPECT_EQ(T_ResizeBitmap(&b, &same, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_ResampleBitmapInt(&b, &same, 212), ERR_NO_BITMAP);
  for (Bitmap* each : {&b, &other, &same}) ASSERT_EQ(T_AllocateBitmap(each, TYPE_CONV), SUCCESS);
  EXPECT_EQ(T_ResizeBitmap(&b, &other, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_BicubicResampleBitmapInt(&b, &other, 212), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ResampleBitmapInt(&b, &same, 211), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_ResampleBitmap(&b, 0, 5), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ResampleBitmap(&b, 5, 0), ERR_INVALID_PARAMETER);
  b.Height = 0;
  EXPECT_EQ(T_SizeBitmap(&b, 0, 5, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SizeBitmap(&b, 5, 5, 0), ERR_INVALID_PARAMETER);
  b.Height = 10;
  EXPECT_EQ(T_SizeBitmap(&b, INT32_MAX, INT32_MAX, 0), ERR_IMAGE_TOO_LARGE);
  b.StructSize = 211;
  EXPECT_EQ(T_SizeBitmap(&b, 5, 5, 0), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_ResizeBitmap(&b, &same, 0), ERR_BAD_STRUCT_SIZE);
  b.StructSize = 212;
}

// ---- Ink count -----------------------------------------------------------------------------------------------------

/// Ink of a picture, from the top; counted cell by cell.
std::vector<std::vector<bool>> CountedInk(const std::vector<std::vector<bool>>& ink, Extents size) {
  const auto oldWidth = static_cast<int32_t>(ink[0].size()), oldHeight = static_cast<int32_t>(ink.size());
  const int32_t sx = std::max(oldWidth / size.width, 1), sy = std::max(oldHeight / size.height, 1);
  const int32_t root = T_SQRT(sx * sy);
  const int32_t threshold = std::max(root < 5 ? root - 1 : root, 1);
  std::vector<std::vector<bool>> result;
  const auto columns = Walk(oldWidth, size.width), rows = Walk(oldHeight, size.height);
  for (int32_t y = 0; y < size.height; ++y) {
    std::vector<int32_t> counts(static_cast<size_t>(size.width), 0);
    const int32_t first = rows[static_cast<size_t>(y)];
    int32_t last = y + 1 < size.height ? rows[static_cast<size_t>(y) + 1] : oldHeight;
    if (size.height >= oldHeight) last = first + 1;
    for (int32_t row = first; row < last; ++row) {
      const auto& line = ink[static_cast<size_t>(row)];
      for (int32_t x = 0; x < std::max(oldWidth, size.width); ++x) {
        if (size.width >= oldWidth) {
          if (x < size.width)
            counts[static_cast<size_t>(x)] += line[static_cast<size_t>(columns[static_cast<size_t>(x)])];
        } else {
          const int64_t cell = (int64_t{x} * size.width + size.width - 1) / oldWidth;
          counts[static_cast<size_t>(cell)] += line[static_cast<size_t>(x)];
        }
      }
    }
    std::vector<bool> made;
    for (const int32_t count : counts) made.push_back(count >= threshold);
    result.push_back(made);
  }
  return result;
}

std::vector<std::vector<bool>> InkOf(BitmapHandle& b, bool inkIsOne) {
  std::vector<std::vector<bool>> ink;
  for (int32_t y = 0; y < b.Height; ++y) {
    const Bytes line = Row(b, static_cast<uint32_t>(b.ViewPerspective == 4 ? b.Height - 1 - y : y));
    std::vector<bool> pixels;
    for (int32_t x = 0; x < b.Width; ++x) pixels.push_back((PixelOf(line, x, 1) == 1) == inkIsOne);
    ink.push_back(pixels);
  }
  return ink;
}

TEST_P(ResizeLevel, InkCountKeepsThinLines) {
  EXPECT_EQ(T_SQRT(-3), 0);
  EXPECT_EQ(T_SQRT(3), 1);
  EXPECT_EQ(T_SQRT(25), 5);
  EXPECT_EQ(T_SQRT(1 << 30), 1 << 15);
  for (const bool whiteFirst : {false, true}) {
    for (const uint32_t perspective : {1u, 4u}) {
      // Of 405 columns: the last cell is wider, or all are alike, or some in between are. Of others: lines in memory.
      constexpr Extents sizes[] = {{202, 15},  {135, 41}, {135, 13},  {101, 27}, {202, 41}, {135, 27}, {134, 27},
                                   {101, 20},  {100, 5},  {81, 16},   {202, 9},  {101, 90}, {7, 3},    {300, 30},
                                   {533, 200}, {101, 16}, {202, 5},   {101, 10}, {810, 41}, {540, 27}, {405, 20},
                                   {810, 27},  {405, 41}, {1620, 27}, {405, 90}, {810, 20}, {160, 41}};
      for (const Extents& size : sizes) {
        const bool wide = &size >= sizes + 18;
        const int32_t width = size.width == 160 ? 321 : wide ? 1621 : 405;
        SCOPED_TRACE(testing::Message() << size.width << " x " << size.height << " perspective " << perspective);
        engine::Picture picture;
        const auto kind = wide ? engine::Kind::kBlock : engine::Kind::kCompressed;
        ASSERT_EQ(picture.Make(kind, {width, 83, 1}, 8), "");
        BitmapHandle& b = picture.record;
        b.ViewPerspective = perspective;
        const T_PaletteEntry black = {0, 0, 0, 0}, white = {255, 255, 255, 0};
        const T_PaletteEntry palette[2] = {whiteFirst ? white : black, whiteFirst ? black : white};
        T_SetBitmapNewPalette(&b, palette, 2);
        ASSERT_EQ(T_IsGrayScaleBitmap(&b), whiteFirst ? 2 : 1);
        const auto wanted = CountedInk(InkOf(b, whiteFirst), size);
        BitmapHandle copy{};
        ASSERT_EQ(T_CopyBitmap(&copy, &b, sizeof copy), SUCCESS);
        ASSERT_EQ(T_SizeBitmap(&copy, size.width, size.height, RESIZE_INK_COUNT | RESIZE_AREA), SUCCESS);
        EXPECT_EQ(InkOf(copy, whiteFirst), wanted);
        copy.ViewPerspective = 5 - perspective;
        ASSERT_EQ(T_ResizeBitmap(&b, &copy, RESIZE_INK_COUNT), SUCCESS);
        EXPECT_EQ(InkOf(copy, whiteFirst), wanted);
        T_FreeBitmap(&copy);
      }
    }
  }
  // Colours: nearest instead.
  Bitmap colored(4, 1, 1);
  const T_PaletteEntry palette[2] = {{0, 0, 255, 0}, {255, 255, 255, 0}};
  ASSERT_EQ(T_CreateBitmap(&colored, 212, TYPE_CONV, 4, 1, 1, 0, palette, 1, nullptr, 0), SUCCESS);
  const uint32_t line = 0x60;  // 0110
  T_PutBitmapRow(&colored, &line, 0, 4);
  ASSERT_EQ(T_SizeBitmap(&colored, 2, 1, RESIZE_INK_COUNT), SUCCESS);
  EXPECT_EQ(Row(colored, 0)[0], 0x40);  // pixels 0 and 2
}

// Smoothing goes before the ink count; where there is no ink to count, the flag does not matter.
TEST(Resize, InkCountGivesWay) {
  struct Case {
    int32_t bits;
    uint32_t other;
  };
  for (const Case& c : {Case{1, RESIZE_SMOOTH}, Case{8, RESIZE_NEAREST}, Case{8, RESIZE_AREA}}) {
    engine::Picture with, without, into;
    const T_PaletteEntry palette[2] = {{0, 0, 0, 0}, {255, 255, 255, 0}};
    for (engine::Picture* p : {&with, &without}) {
      ASSERT_EQ(p->Make(engine::Kind::kBlock, {50, 40, c.bits}, 3), "");
      if (c.bits == 1) T_SetBitmapNewPalette(&p->record, palette, 2);
    }
    ASSERT_EQ(into.MakeBlank(engine::Kind::kBlock, {20, 15, c.bits}), "");
    if (c.bits == 8) {
      ASSERT_EQ(T_ResizeBitmap(&with.record, &into.record, c.other | RESIZE_INK_COUNT), SUCCESS);
    }
    ASSERT_EQ(T_SizeBitmap(&with.record, 20, 15, c.other | RESIZE_INK_COUNT), SUCCESS);
    ASSERT_EQ(T_SizeBitmap(&without.record, 20, 15, c.other), SUCCESS);
    for (uint32_t row = 0; row < 15; ++row) {
      EXPECT_EQ(Row(with.record, row), Row(without.record, row)) << c.bits << " bits, flags " << c.other;
      if (c.bits == 8) {
        EXPECT_EQ(Row(into.record, row), Row(without.record, row));
      }
    }
  }
}

// ---- Perspectives, regions, overlays -------------------------------------------------------------------------------

TEST(Resize, PictureComesOutInTheDestinationsPerspective) {
  // Stored rows 1 2 3 / 4 5 6; where each perspective stores what perspective 1 shows so.
  const struct {
    uint32_t perspective;
    std::vector<Bytes> rows;
  } cases[] = {{1, {{1, 2, 3}, {4, 5, 6}}},   {2, {{3, 2, 1}, {6, 5, 4}}},   {3, {{6, 5, 4}, {3, 2, 1}}},
               {4, {{4, 5, 6}, {1, 2, 3}}},   {5, {{1, 4}, {2, 5}, {3, 6}}}, {6, {{3, 6}, {2, 5}, {1, 4}}},
               {7, {{6, 3}, {5, 2}, {4, 1}}}, {8, {{4, 1}, {5, 2}, {6, 3}}}};
  for (const int32_t bits : {3, 4, 8, 12, 24}) {
    for (const auto& from : cases) {
      for (const auto& to : cases) {
        SCOPED_TRACE(testing::Message() << bits << " bits, " << from.perspective << " to " << to.perspective);
        const auto make = [bits](Bitmap& b, const auto& c) {
          const auto width = static_cast<int32_t>(c.rows[0].size()), height = static_cast<int32_t>(c.rows.size());
          ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, width, height, bits, bits == 12 ? 2 : 0, nullptr, c.perspective,
                                   nullptr, 0),
                    SUCCESS);
          for (int32_t y = 0; y < height; ++y) {
            uint8_t line[12] = {};
            for (int32_t x = 0; x < width; ++x) {
              for (int bit = 0; bit < bits; ++bit) {
                const int value = c.rows[static_cast<size_t>(y)][static_cast<size_t>(x)];
                const int at = x * bits + bit;
                const int one = bits < 8 ? value >> (bits - 1 - bit) & 1 : value >> bit & 1;
                line[at / 8] = static_cast<uint8_t>(line[at / 8] | one << (bits < 8 ? 7 - at % 8 : at % 8));
              }
            }
            T_PutBitmapRow(&b, line, static_cast<uint32_t>(y), b.BytesPerLine);
          }
        };
        Bitmap source, destination, wanted;
        make(source, from);
        make(destination, to);
        make(wanted, to);
        T_ClearBitmap(&destination);
        ASSERT_EQ(T_ResizeBitmap(&source, &destination, RESIZE_NEAREST), SUCCESS);
        for (int32_t y = 0; y < wanted.Height; ++y)
          EXPECT_EQ(Row(destination, static_cast<uint32_t>(y)), Row(wanted, static_cast<uint32_t>(y)));
      }
    }
  }
}

int32_t regionAnswer;
int32_t ScaleRegion(BitmapHandle* bitmap, int32_t newWidth, int32_t newHeight) {
  bitmap->Region = bitmap->Region * 1000000 + static_cast<uint32_t>(newWidth) * 1000 + static_cast<uint32_t>(newHeight);
  return regionAnswer;
}

TEST(Resize, RegionsAndOverlaysGoAlong) {
  T_RegionHooks hooks{};
  hooks.StructSize = sizeof hooks;
  hooks.Scale = ScaleRegion;
  const T_RegionHooks* const before = T_SetRegionHooks(&hooks);
  Bitmap b(20, 10, 8), destination(40, 30, 8);
  ASSERT_EQ(T_AllocateBitmap(&b, TYPE_CONV), SUCCESS);
  ASSERT_EQ(T_AllocateBitmap(&destination, TYPE_CONV), SUCCESS);
  const tarn::Here here = TARN_HERE;
  b.Overlays = static_cast<T_OverlayList*>(
      T_LocalAllocInit(1, sizeof(T_OverlayList) + sizeof(tarn::Overlay), here.line, here.file));
  b.Overlays->count = 1;
  tarn::Overlay& overlay = b.Overlays->Items()[0];
  overlay.left = -3;
  overlay.top = 4;
  T_CreateBitmap(&overlay.bitmap, 212, TYPE_CONV, 5, 4, 8, 0, nullptr, 1, nullptr, 0);
  for (const uint32_t flags : {0u, uint32_t{RESIZE_AREA}, uint32_t{RESIZE_SMOOTH}}) {
    regionAnswer = SUCCESS;
    b.Region = 7;
    destination.Region = 5;
    ASSERT_EQ(T_ResizeBitmap(&b, &destination, flags), SUCCESS);
    EXPECT_EQ(V(b.Region), 7u);
    EXPECT_EQ(V(destination.Region), 5040030u);
    EXPECT_EQ(destination.Overlays->Items()[0].left, -6);
    EXPECT_EQ(destination.Overlays->Items()[0].top, 12);
    EXPECT_EQ(V(destination.Overlays->Items()[0].bitmap.Width), 10);
    EXPECT_EQ(V(destination.Overlays->Items()[0].bitmap.Height), 12);
  }
  b.Region = 7;
  destination.Region = 0;
  ASSERT_EQ(T_ResizeBitmap(&b, &destination, 0), SUCCESS);
  EXPECT_EQ(V(destination.Region), 0u) << "there is none to scale";
  destination.Region = 5;
  ASSERT_EQ(T_ResizeBitmap(&b, &b, 0), SUCCESS) << "into itself";
  EXPECT_EQ(V(b.Region), 7020010u);
  EXPECT_EQ(b.Overlays->Items()[0].left, -3);
  regionAnswer = -77;
  EXPECT_EQ(T_ResizeBitmap(&b, &destination, 0), -77);
  EXPECT_EQ(T_SizeBitmap(&b, 10, 5, 0), -77);
  EXPECT_EQ(V(b.Width), 20);
  EXPECT_EQ(b.Overlays->Items()[0].left, -3);
  regionAnswer = SUCCESS;
  b.Region = 7;
  ASSERT_EQ(T_SizeBitmap(&b, 10, 5, 0), SUCCESS);
  EXPECT_EQ(V(b.Region), 7010005u);
  EXPECT_EQ(b.Overlays->Items()[0].left, -2);  // floor of -1.5
  EXPECT_EQ(V(b.Overlays->Items()[0].bitmap.Width), 2);
  EXPECT_EQ(T_KrnSizeBitmapRgn(nullptr, 1, 1), ERR_INVALID_PARAMETER);
  T_SetRegionHooks(before);
  b.Region = destination.Region = 0;
}

TEST(Resize, PositionsOfOverlaysAreHeldToTheirRange) {
  Bitmap b(20, 10, 8);
  ASSERT_EQ(T_AllocateBitmap(&b, TYPE_CONV), SUCCESS);
  constexpr int32_t kPositions[][2] = {{INT32_MAX, INT32_MIN}, {INT32_MIN, INT32_MAX}, {3, -3}};
  for (int32_t i = 0; i < 3; ++i) {  // without bitmaps
    const T_OverlayAttributes place{sizeof place, kPositions[i][0], kPositions[i][1], 0, 0, 0};
    ASSERT_EQ(T_SetOverlayAttributes(&b, i, &place, T_OVERLAY_POSITION), SUCCESS);
  }
  ASSERT_EQ(T_SizeBitmap(&b, 50, 25, 0), SUCCESS);
  for (int32_t i = 0; i < 3; ++i) {
    T_OverlayAttributes got;
    ASSERT_EQ(T_GetOverlayAttributes(&b, i, &got, sizeof got), SUCCESS);
    EXPECT_EQ(got.Left, i < 2 ? kPositions[i][0] : 7);
    EXPECT_EQ(got.Top, i < 2 ? kPositions[i][1] : -8);
  }
}

TEST(Resize, RefusedCallsKeepTheBitmap) {
  struct Case {
    int32_t bits;
    uint32_t order, flags;
    Extents size;
  };
  constexpr Case cases[] = {{1, 0, RESIZE_INK_COUNT, {20, 4}}, {1, 0, RESIZE_INK_COUNT, {7, 3}},
                            {1, 0, RESIZE_SMOOTH, {50, 10}},   {4, 0, RESIZE_NEAREST, {50, 10}},
                            {8, 0, RESIZE_AREA, {50, 10}},     {12, 2, RESIZE_AREA, {25, 1}},
                            {16, 2, RESIZE_SMOOTH, {50, 10}},  {16, 1, RESIZE_SMOOTH, {25, 6}},
                            {24, 1, RESIZE_AREA, {25, 1}},     {24, 1, RESIZE_SMOOTH, {50, 10}}};
  for (const Case& c : cases) {
    for (const auto kind : {engine::Kind::kBlock, engine::Kind::kDisk}) {
      SCOPED_TRACE(testing::Message() << c.bits << " bits, flags " << c.flags << ", " << NameOf(kind));
      engine::Picture picture, mask;
      engine::Bytes before, after;
      ASSERT_EQ(mask.Make(engine::Kind::kBlock, {5, 4, 8}, 2), "");
      const auto make = [&] {
        ASSERT_EQ(picture.Make(kind, {40, 9, c.bits}, 2), "");
        picture.record.Order = c.order;
        const T_PaletteEntry palette[2] = {{0, 0, 0, 0}, {255, 255, 255, 0}};
        if (c.bits == 1) T_SetBitmapNewPalette(&picture.record, palette, 2);
        ASSERT_EQ(T_SetOverlayBitmap(&picture.record, 0, &mask.record, T_OVERLAY_COPY), SUCCESS);
      };
      make();
      ASSERT_EQ(engine::ReadPixels(picture.record, before), "");
      const auto held = tarn::platform::Held();
      const auto judge = [&](int32_t status, bool refused) {
        if (status == SUCCESS && refused) make();
        if (status == SUCCESS && !refused) return;
        ASSERT_EQ(picture.record.Width, 40);
        ASSERT_EQ(V(picture.record.Overlays->Items()[0].bitmap.Width), 5);
        ASSERT_EQ(engine::ReadPixels(picture.record, after), "");
        ASSERT_EQ(after, before);
        ASSERT_TRUE(SameHeld(held, tarn::platform::Held()));
      };
      EXPECT_GE(
          RefuseEachCall([&] { return T_SizeBitmap(&picture.record, c.size.width, c.size.height, c.flags); }, judge),
          4u);
    }
  }
}

// ---- Cancelling ----------------------------------------------------------------------------------------------------

TEST(Resize, EveryCallOfTheCallbackCanStop) {
  struct Way {
    int32_t bits;
    uint32_t order, flags;
  };
  constexpr Way ways[] = {{1, 0, RESIZE_NEAREST},  {1, 0, RESIZE_INK_COUNT}, {1, 0, RESIZE_AREA},
                          {1, 0, RESIZE_SMOOTH},   {8, 0, RESIZE_AREA},      {8, 0, RESIZE_SMOOTH},
                          {12, 2, RESIZE_NEAREST}, {16, 2, RESIZE_AREA},     {24, 1, RESIZE_NEAREST},
                          {24, 1, RESIZE_SMOOTH},  {48, 1, RESIZE_AREA},     {64, 1, RESIZE_SMOOTH}};
  for (const auto& [bits, order, flags] : ways) {
    SCOPED_TRACE(testing::Message() << bits << " bits, flags " << flags);
    for (const int32_t newHeight : {17, 130}) {
      Bitmap b;
      ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 40, 30, bits, order, nullptr, 1, nullptr, 0), SUCCESS);
      Fill(b, 2);
      struct Stop {
        int left;
        int32_t answer;
        int32_t last;
        int calls;
      };
      const auto callback = [](int32_t percent, void* userData) {
        Stop& at = *static_cast<Stop*>(userData);
        EXPECT_GE(percent, at.last);
        at.last = percent;
        ++at.calls;
        return --at.left == 0 ? at.answer : static_cast<int32_t>(SUCCESS);
      };
      const int32_t answers[] = {0, -1, -100, 2, INT32_MIN};
      for (int stop = 1;; ++stop) {
        Stop data{stop, answers[stop % 5], 0, 0};
        T_SetStatusCallBack(callback, &data, nullptr, nullptr);
        BitmapHandle before = b;
        const int32_t status = T_SizeBitmap(&b, 25, newHeight, flags);
        T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
        if (data.calls < stop) {
          EXPECT_EQ(status, SUCCESS);
          EXPECT_EQ(data.last, 100);
          EXPECT_EQ(stop - 1, newHeight > 100 ? 101 : newHeight + 1);
          break;
        }
        ASSERT_EQ(status, data.answer);
        ASSERT_EQ(std::memcmp(&before, &b, sizeof before), 0);
        ASSERT_EQ(FirstDifference(b, 2, 30), -1);
      }
    }
  }
}

// ---- Rows that pass by ---------------------------------------------------------------------------------------------

TEST(ResizeRows, AreTheRowsOfTheResizedBitmap) {
  for (const int32_t bits : engine::kDepths) {
    for (const Extents& size : kNew) {
      SCOPED_TRACE(testing::Message() << bits << " bits to " << size.width << " x " << size.height);
      engine::Picture picture;
      ASSERT_EQ(picture.Make(engine::Kind::kBlock, {kOld.width, kOld.height, bits}, 6), "");
      BitmapHandle copy{};
      ASSERT_EQ(T_CopyBitmap(&copy, &picture.record, sizeof copy), SUCCESS);
      ASSERT_EQ(T_SizeBitmap(&copy, size.width, size.height, 0), SUCCESS);
      ResizeRowState* state = nullptr;
      ASSERT_EQ(T_StartResize(kOld.width, kOld.height, size.width, size.height, &state), SUCCESS);
      const size_t used = (static_cast<size_t>(size.width) * static_cast<size_t>(bits) + 7) / 8;
      uint32_t total = 0;
      // A row is written where the sum of the counts says: floor((row + 1) D / S) rows are done behind it.
      for (int32_t row = 0; row < kOld.height; ++row) {
        Bytes line = Row(picture.record, static_cast<uint32_t>(row));
        line.resize(std::max(line.size(), used) + 8, 0xAA);
        int32_t width = 0, count = 0;
        const int32_t result = T_Resize(line.data(), row, bits, &width, &count, state);
        ASSERT_EQ(result, count);
        EXPECT_EQ(width, size.width);
        total += static_cast<uint32_t>(count);
        EXPECT_EQ(total, static_cast<uint32_t>((row + 1) * size.height / kOld.height));
        for (int32_t y = 0; count && y < size.height; ++y) {
          if (y * kOld.height / size.height != row) continue;
          Bytes wanted = Row(copy, static_cast<uint32_t>(y));
          wanted.resize(used);
          ASSERT_EQ(Bytes(line.begin(), line.begin() + static_cast<ptrdiff_t>(used)), wanted) << row;
        }
      }
      EXPECT_EQ(total, static_cast<uint32_t>(size.height));
      T_StopResize(state);
      T_FreeBitmap(&copy);
    }
  }
}

TEST(ResizeRows, UpwardsCountsAreThoseOfTheRowAbove) {
  for (const int32_t newHeight : {4, 7, 15, 33}) {
    ResizeRowState* state = nullptr;
    ASSERT_EQ(T_StartResize(8, 10, 8, newHeight, &state), SUCCESS);
    uint64_t pixels = 0;
    int32_t width = 0, count = 0;
    std::vector<int32_t> down;
    for (int32_t row = 0; row < 10; ++row) down.push_back(T_Resize(&pixels, row, 8, &width, &count, state));
    for (size_t row = 9; row-- > 1;)
      EXPECT_EQ(T_Resize(&pixels, static_cast<int32_t>(row), 8, &width, &count, state), down[row - 1]) << row;
    EXPECT_EQ(state->Backward, 1);
    EXPECT_EQ(T_Resize(&pixels, 6, 8, &width, &count, state), down[6]);  // a jump
    EXPECT_EQ(state->Backward, 0);
    EXPECT_EQ(T_Resize(&pixels, 7, 8, &width, &count, state), down[7]);
    const int32_t refused[] = {
        T_Resize(nullptr, 7, 8, &width, &count, state), T_Resize(&pixels, 7, 8, nullptr, &count, state),
        T_Resize(&pixels, 7, 8, &width, nullptr, state), T_Resize(&pixels, 7, 8, &width, &count, nullptr)};
    for (const int32_t status : refused) EXPECT_EQ(status, ERR_INVALID_PARAMETER);
    T_StopResize(state);
  }
  // Nothing is moved where the extents stay, and at depths that do not exist.
  uint64_t pixels = 0x0807060504030201;
  for (const Extents& size : {Extents{8, 10}, Extents{4, 10}}) {
    ResizeRowState* state = nullptr;
    int32_t width = 0, count = 0;
    ASSERT_EQ(T_StartResize(8, 10, size.width, size.height, &state), SUCCESS);
    EXPECT_EQ(T_Resize(&pixels, 0, size.width == 8 ? 8 : 9, &width, &count, state), 1);
    EXPECT_EQ(width, size.width);
    EXPECT_EQ(count, 1);
    EXPECT_EQ(pixels, 0x0807060504030201u);
    T_StopResize(state);
  }
  ResizeRowState* none = nullptr;
  EXPECT_EQ(T_StartResize(0, 8, 4, 4, &none), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_StartResize(8, 0, 4, 4, &none), ERR_INVALID_PARAMETER);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(T_StopResize(nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_StartResize(8, 8, 4, 4, nullptr), ERR_INVALID_PARAMETER);
}

TEST(ResizeRows, LinesFromAnyPixelAndInPlace) {
  const Bytes source = {0x12, 0x34, 0x56};
  Bytes target(3, 0xEE);
  T_GetResizedScanLine(4, 0, 1, 0, 0, 3, source.data(), target.data(), 4, 6, 1);  // doubled from the second nibble on
  EXPECT_EQ(target, (Bytes{0x22, 0x33, 0xEE}));
  target.assign(3, 0xEE);
  T_GetResizedScanLine(1, 3, 0, 2, 0, 0, source.data(), target.data(), 12, 12, 0);  // every other bit
  EXPECT_EQ(target, (Bytes{0x14, 0x10, 0}));  // 0001 0010 0011 0100 0101 0110: 0 1 0 1 ..
  target.assign(3, 0xEE);
  T_GetResizedScanLine(9, 3, 0, 1, 0, 0, source.data(), target.data(), 2, 2, 0);
  T_ReverseGetResizedScanLine(9, 3, 0, 1, 0, 0, source.data(), target.data(), 2, 2, 0);
  T_ReverseGetResizedScanLine(8, 3, 0, 1, 0, 0, nullptr, target.data(), 2, 2, 0);
  T_ReverseGetResizedScanLine(8, 3, 0, 1, 0, 0, source.data(), nullptr, 2, 2, 0);
  T_GetResizedScanLine(8, 3, 0, 1, 0, 0, nullptr, target.data(), 2, 2, 0);
  T_GetResizedScanLine(8, 3, 0, 1, 0, 0, source.data(), nullptr, 2, 2, 0);
  T_GetResizedScanLine(1, 3, 0, 1, 0, 0, source.data(), target.data(), 0, 2, 0);
  EXPECT_EQ(target, Bytes(3, 0xEE));
  Bytes line(700);
  for (size_t i = 0; i < 300; ++i) line[i] = static_cast<uint8_t>(i * 7);
  const Bytes old = line;
  T_ReverseGetResizedScanLine(8, 0, 0, 0, 0, 300, line.data(), line.data(), 700, 700, 1);
  for (size_t i = 0; i < 700; ++i) ASSERT_EQ(line[i], old[i * 300 / 700]) << i;
  // Long lines go in parts: wherever one begins, the accumulator is what it would be.
  struct Steps {
    int32_t step, accumulator, remainder, divisor;
  };
  Bytes from(2000);
  engine::Random random(4);
  for (uint8_t& byte : from) byte = random.Byte();
  for (const Steps& s : {Steps{1, 0, 300, 700}, Steps{0, -2000, 5, 700}, Steps{1, -400, 1, 1}, Steps{0, 0, 0, 0},
                         Steps{1, 0, 3, -5}, Steps{1, 2000, 3, 7}, Steps{0, 0, 0, 9}}) {
    Bytes wanted, down(700), up(700);
    int64_t accumulator = s.accumulator;
    for (size_t i = 0, at = 5; i < 700; ++i) {
      wanted.push_back(from.at(at));
      accumulator += s.remainder;
      const bool over = accumulator >= s.divisor;
      at += static_cast<size_t>(s.step + over);
      accumulator -= over ? s.divisor : 0;
    }
    T_GetResizedScanLine(8, 0, 5, s.step, s.accumulator, s.remainder, from.data(), down.data(), 700, s.divisor, 0);
    T_ReverseGetResizedScanLine(8, 0, 5, s.step, s.accumulator, s.remainder, from.data(), up.data(), 700, s.divisor, 0);
    EXPECT_EQ(down, wanted) << s.accumulator << ", " << s.divisor;
    EXPECT_EQ(up, wanted) << s.accumulator << ", " << s.divisor;
  }
  line = Bytes(1400);
  for (size_t i = 0; i < line.size(); ++i) line[i] = static_cast<uint8_t>(i * 7 ^ i >> 8);
  const Bytes whole = line;
  T_GetResizedScanLine(8, 0, 0, 2, 0, 0, line.data(), line.data(), 700, 700, 0);
  for (size_t i = 0; i < 700; ++i) ASSERT_EQ(line[i], whole[2 * i]) << i;
}

}  // namespace
