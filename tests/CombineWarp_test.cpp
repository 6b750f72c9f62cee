// Rectangles mapped onto quadrilaterals: which pixels change, where they come from, and that storage and format do not
// matter.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <vector>

#include "Kernels/Kernels.h"
#include "Levels.h"
#include "RunReference.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Random.h"

using tarn::engine::Bytes;
using tarn::engine::Kind;
using tarn::engine::Picture;
using tarn::engine::Random;
using tarn::engine::Shape;

namespace {

__extension__ typedef __int128 Wide;

struct Quad {
  T_WarpPoint p[4];
};

Wide Turn(const T_WarpPoint& a, const T_WarpPoint& b, int64_t x, int64_t y) {
  return Wide(int64_t{b.x} - a.x) * (y - a.y) - Wide(int64_t{b.y} - a.y) * (x - a.x);
}

/// 1 or -1 for corners that all turn one way, else 0.
int SenseOf(const Quad& q) {
  int sum = 0;
  for (int i = 0; i < 4; ++i) {
    const Wide turn = Turn(q.p[i], q.p[(i + 1) % 4], q.p[(i + 2) % 4].x, q.p[(i + 2) % 4].y);
    sum += turn > 0 ? 1 : turn < 0 ? -1 : 0;
  }
  return sum / 4;
}

/// A centre on an edge counts as if it lay a little to the right, and by far less lower.
bool Inside(const Quad& q, int32_t column, int32_t row) {
  const int sense = SenseOf(q);
  for (int i = 0; i < 4; ++i) {
    const T_WarpPoint &a = q.p[i], &b = q.p[(i + 1) % 4];
    Wide side = Turn(a, b, 256 * column + 128, 256 * row + 128);
    if (side == 0) side = a.y != b.y ? int64_t{a.y} - b.y : int64_t{b.x} - a.x;
    if (side * sense < 0) return false;
  }
  return true;
}

/// The source place of a destination place: eight equations in long double.
struct Mapping {
  Mapping(const Quad& q, double width, double height) {
    const double u[4] = {0, width, width, 0}, v[4] = {0, 0, height, height};
    long double m[8][9];
    for (int i = 0; i < 4; ++i) {
      const long double x = q.p[i].x / 256.0L, y = q.p[i].y / 256.0L;
      const long double rows[2][9] = {{x, y, 1, 0, 0, 0, -u[i] * x, -u[i] * y, u[i]},
                                      {0, 0, 0, x, y, 1, -v[i] * x, -v[i] * y, v[i]}};
      std::memcpy(m[2 * i], rows, sizeof rows);
    }
    for (int c = 0; c < 8; ++c) {
      int best = c;
      for (int r = c; r < 8; ++r)
        if (std::fabs(m[r][c]) > std::fabs(m[best][c])) best = r;
      std::swap(m[c], m[best]);
      for (int r = 0; r < 8; ++r) {
        if (r == c) continue;
        const long double share = m[r][c] / m[c][c];
        for (int k = c; k < 9; ++k) m[r][k] -= share * m[c][k];
      }
    }
    for (int c = 0; c < 8; ++c) h[c] = m[c][8] / m[c][c];
  }
  void At(double x, double y, double& u, double& v) const {
    const long double w = h[6] * x + h[7] * y + 1;
    u = static_cast<double>((h[0] * x + h[1] * y + h[2]) / w);
    v = static_cast<double>((h[3] * x + h[4] * y + h[5]) / w);
  }
  long double h[8];
};

Quad RandomQuad(Random& random, int32_t width, int32_t height) {
  for (;;) {
    Quad q;
    const bool coarse = random.OneIn(2);  // centres on edges
    for (T_WarpPoint& p : q.p) {
      p = {random.Between(-64 * width, 320 * width), random.Between(-64 * height, 320 * height)};
      if (coarse) p = {p.x / 128 * 128, p.y / 128 * 128};
    }
    // Corners nearly in one line see the horizon: there the two statements may differ by more than a rounding.
    Wide least = Wide(1) << 100;
    for (int i = 0; i < 4; ++i) {
      const Wide turn = Turn(q.p[i], q.p[(i + 1) % 4], q.p[(i + 2) % 4].x, q.p[(i + 2) % 4].y);
      least = std::min(least, turn < 0 ? -turn : turn);
    }
    if (SenseOf(q) != 0 && least > Wide(1) << 18) return q;
  }
}

Bytes PixelsOf(const BitmapHandle& record) {
  Bytes rows;
  EXPECT_EQ(tarn::engine::ReadPixels(record, rows), "");
  return rows;
}

/// The rectangle that starts at a pixel.
Quad Rectangle(int32_t left, int32_t top, int32_t width, int32_t height) {
  const int32_t x0 = 256 * left, y0 = 256 * top, x1 = x0 + 256 * width, y1 = y0 + 256 * height;
  return {{{x0, y0}, {x1, y0}, {x1, y1}, {x0, y1}}};
}

}  // namespace

TEST(CombineWarp, PixelsComeFromWhereTheyLie) {
  constexpr int32_t kWidth = 60, kHeight = 45, kFromWidth = 31, kFromHeight = 23;
  Picture source, ramp;
  ASSERT_EQ(source.Make(Kind::kBlock, {kFromWidth, kFromHeight, 24}, 1), "");
  ASSERT_EQ(ramp.Make(Kind::kBlock, {kFromWidth, kFromHeight, 48}, 1), "");
  for (int32_t y = 0; y < kFromHeight; ++y) {
    for (int32_t x = 0; x < kFromWidth; ++x) {
      uint8_t* const pixel = source.record.Data + y * static_cast<int32_t>(source.record.BytesPerLine) + 3 * x;
      pixel[0] = static_cast<uint8_t>(x);
      pixel[1] = static_cast<uint8_t>(y);
      pixel[2] = 77;
      const uint16_t samples[3] = {static_cast<uint16_t>(2000 * x), static_cast<uint16_t>(2500 * y), 65535};
      std::memcpy(ramp.record.Data + y * static_cast<int32_t>(ramp.record.BytesPerLine) + 6 * x, samples, 6);
    }
  }
  Random random(tarn::engine::RunSeed() + 7);
  for (int round = 0; round < 300; ++round) {
    const Quad q = RandomQuad(random, kWidth, kHeight);
    SCOPED_TRACE(testing::Message() << "round " << round << ", " << tarn::engine::SeedText());
    const T_Rect area = round % 3 ? T_Rect{0, 0, kFromWidth, kFromHeight} : T_Rect{4, 5, 29, 20};
    const double areaWidth = area.right - area.left, areaHeight = area.bottom - area.top;
    const Mapping mapping(q, areaWidth, areaHeight);
    Picture nearest, smooth;
    ASSERT_EQ(nearest.MakeBlank(Kind::kBlock, {kWidth, kHeight, 24}), "");
    ASSERT_EQ(smooth.MakeBlank(Kind::kBlock, {kWidth, kHeight, 48}), "");
    ASSERT_EQ(T_CombineBitmapWarp(&nearest.record, q.p, &source.record, &area, T_WARP_NEAREST), SUCCESS);
    ASSERT_EQ(T_CombineBitmapWarp(&smooth.record, q.p, &ramp.record, &area, T_WARP_BILINEAR), SUCCESS);
    for (int32_t y = 0; y < kHeight; ++y) {
      for (int32_t x = 0; x < kWidth; ++x) {
        const uint8_t* const got = nearest.record.Data + y * static_cast<int32_t>(nearest.record.BytesPerLine) + 3 * x;
        uint16_t mixed[3];
        std::memcpy(mixed, smooth.record.Data + y * static_cast<int32_t>(smooth.record.BytesPerLine) + 6 * x, 6);
        ASSERT_EQ(got[2] == 77, Inside(q, x, y)) << x << ", " << y;
        ASSERT_EQ(mixed[2] == 65535, Inside(q, x, y)) << x << ", " << y;
        if (!Inside(q, x, y)) continue;
        double u = 0, v = 0;
        mapping.At(x + 0.5, y + 0.5, u, v);
        ASSERT_LE(std::fabs(u + area.left - got[0] - 0.5), 0.5 + 1 / 256.0) << x << ", " << y;
        ASSERT_LE(std::fabs(v + area.top - got[1] - 0.5), 0.5 + 1 / 256.0) << x << ", " << y;
        const double right = std::min(std::max(u - 0.5, 0.0), areaWidth - 1) + area.left;
        const double lower = std::min(std::max(v - 0.5, 0.0), areaHeight - 1) + area.top;
        ASSERT_NEAR(mixed[0], 2000 * right, 2000 / 256.0) << x << ", " << y;
        ASSERT_NEAR(mixed[1], 2500 * lower, 2500 / 256.0) << x << ", " << y;
      }
    }
  }
}

TEST(CombineWarp, NeighboursShareNoPixelAndLeaveNone) {
  const T_WarpPoint upper{256 * 9 + 128, 0}, lower{256 * 30 + 128, 256 * 42};
  const Quad left{{{0, 0}, upper, lower, {0, 256 * 42}}}, right{{upper, {256 * 50, 0}, {256 * 50, 256 * 42}, lower}};
  Picture source, target;
  ASSERT_EQ(source.MakeBlank(Kind::kBlock, {5, 5, 8}), "");
  ASSERT_EQ(target.MakeBlank(Kind::kBlock, {50, 42, 8}), "");
  T_CreateBitmapGrayPalette(&source.record);
  T_CreateBitmapGrayPalette(&target.record);
  ASSERT_EQ(T_FillBitmap(&source.record, 0x010101), SUCCESS);
  Bytes sum(50 * 42);
  for (const Quad& q : {left, right}) {
    ASSERT_EQ(T_ClearBitmap(&target.record), SUCCESS);
    ASSERT_EQ(T_CombineBitmapWarp(&target.record, q.p, &source.record, nullptr, 0), SUCCESS);
    for (size_t i = 0; i < sum.size(); ++i)
      sum[i] = static_cast<uint8_t>(sum[i] + target.record.Data[i / 50 * target.record.BytesPerLine + i % 50]);
  }
  EXPECT_EQ(sum, Bytes(50 * 42, 1));
}

/// A rectangle as it is: what the copy of a rectangle gives.
TEST(CombineWarp, EveryFormatAndStorageLikeACopy) {
  const tarn::engine::ThresholdScope scope;
  for (const int32_t from : tarn::engine::kDepths) {
    for (const int32_t to : tarn::engine::kDepths) {
      for (int kind = 0; kind < tarn::engine::kKinds; ++kind) {
        const Shape sourceShape{41, 13, from}, targetShape{38, 12, to};
        const Kind sourceKind = sourceShape.Suits(static_cast<Kind>(kind)) ? static_cast<Kind>(kind) : Kind::kBlock;
        const Kind targetKind = targetShape.Suits(static_cast<Kind>(kind)) ? static_cast<Kind>(kind) : Kind::kBlock;
        if (from != to && kind % 3 != (from + to) % 3) continue;
        Picture source, copied, warped;
        ASSERT_EQ(source.Make(sourceKind, sourceShape, 3), "");
        ASSERT_EQ(copied.Make(Kind::kBlock, targetShape, 4), "");
        ASSERT_EQ(T_CombineBitmapKrn(&copied.record, 3, -2, &source.record, 6, 1, 30, 11, T_COMBINE_COPY), SUCCESS);
        // Mixed colours of palettes go to the nearest entry, which may be another one of the same colour.
        const bool mixes = from == to && from > 8 && from != 16;
        for (uint32_t flags = 0; flags <= (mixes ? T_WARP_BILINEAR : T_WARP_NEAREST); ++flags) {
          ASSERT_EQ(warped.Make(targetKind, targetShape, 4), "");
          const T_Rect area{6, 1, 36, 12};
          ASSERT_EQ(T_CombineBitmapWarp(&warped.record, Rectangle(3, -2, 30, 11).p, &source.record, &area, flags),
                    SUCCESS);
          ASSERT_EQ(PixelsOf(warped.record), PixelsOf(copied.record))
              << Text(sourceShape) << " onto " << Text(targetShape) << ", " << NameOf(targetKind) << ", " << flags;
          warped.Free();
        }
      }
    }
  }
}

TEST(CombineWarp, PlacesOfEveryLevel) {
  Random random(31);
  const auto slope = [&] { return random.Between(-2000, 2000) / 1000.0; };
  for (int round = 0; round < 400; ++round) {
    // Every fourth row crosses the horizon, where places are no numbers.
    const double w = round % 4 ? 1e6 : 0;
    const tarn::WarpRow row{random.Between(-9000, 9000) * 1.0,
                            slope(),
                            slope() * 1e4,
                            slope(),
                            slope() * 1e4,
                            slope() / 10,
                            w,
                            25600,
                            12800,
                            round % 2 * 128,
                            25600 - 256,
                            12800 - 256};
    const int64_t count = random.Between(0, 90);
    const auto made = [&](tarn::Isa level, tarn::WarpReach& reach) {
      std::vector<tarn::WarpPlace> places(static_cast<size_t>(count) + 1);
      tarn::KernelsFor(level).warp->places(places.data(), count, row, reach);
      Bytes bytes(places.size() * sizeof places[0] + sizeof reach);
      std::memcpy(bytes.data(), places.data(), places.size() * sizeof places[0]);
      std::memcpy(bytes.data() + bytes.size() - sizeof reach, &reach, sizeof reach);
      return bytes;
    };
    tarn::WarpReach wanted;
    const Bytes places = made(tarn::Isa::kPortable, wanted);
    for (const tarn::Isa level : tarn::test::kLevels) {
      tarn::WarpReach reach;
      ASSERT_EQ(made(level, reach), places) << round;
    }
  }
}

// Pixels up to the last one of the memory they are in, near each other and far apart.
TEST(CombineWarp, SamplesOfEveryLevel) {
  using K = tarn::WarpKernels;
  const struct {
    K::Sample K::*kernel;
    int32_t bytes;
    bool bilinear;
  } cases[] = {{&K::nearest8, 1, false},  {&K::nearest16, 2, false},     {&K::nearest24, 3, false},
               {&K::nearest32, 4, false}, {&K::nearest48, 6, false},     {&K::nearest64, 8, false},
               {&K::bilinear8, 1, true},  {&K::bilinear16, 2, true},     {&K::bilinear24, 3, true},
               {&K::bilinear32, 4, true}, {&K::bilinear32Gray, 4, true}, {&K::bilinear48, 6, true},
               {&K::bilinear64, 8, true}};
  Random random(32);
  for (const auto& c : cases) {
    for (int round = 0; round < 60; ++round) {
      const int32_t width = random.Between(1, 60), height = random.Between(1, round % 8 ? 20 : 700);
      const int32_t stride = width * c.bytes + random.Between(0, 5);
      Bytes bytes(static_cast<size_t>(stride) * static_cast<size_t>(height - 1) +
                  static_cast<size_t>(width) * static_cast<size_t>(c.bytes));
      for (uint8_t& byte : bytes) byte = round % 3 ? random.Byte() : 255;
      runref::Exact source(bytes.data(), bytes.size(), random.Below(64));
      const tarn::WarpWindow window{source.data(), stride, width - 1, height - 1};
      const int32_t rest = c.bilinear ? 0 : 255;
      const int32_t lastX = 256 * (width - 1) + rest, lastY = 256 * (height - 1) + rest;
      const size_t count = random.Below(100);
      std::vector<tarn::WarpPlace> places;
      for (size_t i = 0; i < count; ++i) {
        const bool near = round % 2 != 0 && i > 0;
        const auto step = [&](int32_t at, int32_t last) {
          return near ? std::min(std::max(at + random.Between(-300, 300), 0), last) : random.Between(0, last);
        };
        places.push_back({step(near ? places.back().x : 0, lastX), step(near ? places.back().y : 0, lastY)});
      }
      const size_t used = count * static_cast<size_t>(c.bytes);
      const auto made = [&](tarn::Isa level) {
        runref::Guarded target(used, random.Below(64));
        (tarn::KernelsFor(level).warp->*c.kernel)(target.data(), window, places.data(), static_cast<int64_t>(count));
        EXPECT_TRUE(target.GuardsKept());
        return Bytes(target.data(), target.data() + used);
      };
      const Bytes wanted = made(tarn::Isa::kPortable);
      for (const tarn::Isa level : tarn::test::kLevels)
        ASSERT_EQ(made(level), wanted) << c.bytes << " bytes, bilinear " << c.bilinear << ", round " << round;
    }
  }
}

/// Boxes of the source are read, in halves where they are large; others sample in place.
TEST(CombineWarp, LargeSourcesOnDisk) {
  const Shape shape{4500, 2300, 8};
  // The second one stands on a corner: even a single column sees all of the source.
  const Quad quads[] = {{{{300, 900}, {256 * 70, -500}, {256 * 66, 256 * 29}, {0, 256 * 30}}},
                        {{{256 * 20, 0}, {256 * 40, 256 * 15}, {256 * 20, 256 * 30}, {0, 256 * 15}}}};
  Picture inMemory, onDisk;
  ASSERT_EQ(inMemory.Make(Kind::kBlock, shape, 3), "");
  ASSERT_EQ(onDisk.Make(Kind::kDisk, shape, 3), "");
  T_CreateBitmapGrayPalette(&inMemory.record);
  T_CreateBitmapGrayPalette(&onDisk.record);
  for (const uint32_t flags : {T_WARP_NEAREST, T_WARP_BILINEAR}) {
    for (const Quad& q : quads) {
      Picture a, b;
      ASSERT_EQ(a.Make(Kind::kBlock, {700, 50, 12}, 3), "");
      ASSERT_EQ(b.Make(Kind::kDisk, {700, 50, 12}, 3), "");
      ASSERT_EQ(T_CombineBitmapWarp(&a.record, q.p, &inMemory.record, nullptr, flags), SUCCESS);
      ASSERT_EQ(T_CombineBitmapWarp(&b.record, q.p, &onDisk.record, nullptr, flags), SUCCESS);
      EXPECT_EQ(PixelsOf(a.record), PixelsOf(b.record));
    }
  }
}

// Rows of a quadrilateral that leans begin and end at other tiles, and tiles are empty: each part is as if alone.
TEST(CombineWarp, WideDestinations) {
  constexpr int32_t kWidth = 1500, kHeight = 40, kPart = 300;
  const Quad q{{{-100, 0}, {256 * 210, 0}, {256 * 1490, 256 * 39}, {256 * 1300, 256 * 40}}};
  for (const Kind kind : {Kind::kBlock, Kind::kDisk}) {
    Picture source, whole;
    ASSERT_EQ(source.Make(kind, {90, 70, 24}, 3), "");
    ASSERT_EQ(whole.Make(Kind::kBlock, {kWidth, kHeight, 24}, 4), "");
    for (const uint32_t flags : {T_WARP_NEAREST, T_WARP_BILINEAR}) {
      ASSERT_EQ(T_CombineBitmapWarp(&whole.record, q.p, &source.record, nullptr, flags), SUCCESS);
      for (int32_t left = 0; left < kWidth; left += kPart) {
        Picture part;
        ASSERT_EQ(part.Make(Kind::kBlock, {kWidth, kHeight, 24}, 4), "");
        tarn::test::Bitmap window(kPart, kHeight, 24);
        ASSERT_EQ(T_AllocateBitmap(&window, TYPE_CONV), SUCCESS);
        window.Order = part.record.Order;
        ASSERT_EQ(T_CombineBitmapKrn(&window, 0, 0, &part.record, left, 0, kPart, kHeight, T_COMBINE_COPY), SUCCESS);
        Quad moved = q;
        for (T_WarpPoint& p : moved.p) p.x -= 256 * left;
        ASSERT_EQ(T_CombineBitmapWarp(&window, moved.p, &source.record, nullptr, flags), SUCCESS);
        for (uint32_t y = 0; y < kHeight; ++y) {
          const Bytes got = tarn::test::Row(whole.record, y), wanted = tarn::test::Row(window, y);
          ASSERT_EQ(std::memcmp(got.data() + 3 * left, wanted.data(), 3 * kPart), 0)
              << NameOf(kind) << ", column " << left << ", row " << y;
        }
      }
    }
  }
}

// As wide as an area may be: a row of colours that takes all of the memory for a box.
TEST(CombineWarp, WidestArea) {
  constexpr int32_t kMost = T_WARP_LIMIT / 256;
  Picture source, gray;
  ASSERT_EQ(source.Make(Kind::kDisk, {kMost + 1, 2, 1}, 3), "");
  ASSERT_EQ(gray.Make(Kind::kBlock, {kMost + 1, 2, 1}, 3), "");
  ASSERT_EQ(T_GrayScaleBitmap(&gray.record, 8), SUCCESS);
  Picture a, b;
  ASSERT_EQ(a.Make(Kind::kBlock, {40, 30, 24}, 3), "");
  ASSERT_EQ(b.Make(Kind::kBlock, {40, 30, 24}, 3), "");
  const Quad q{{{0, 100}, {256 * 40, 0}, {256 * 39, 256 * 29}, {0, 256 * 30}}};
  const T_Rect area{1, 0, kMost + 1, 2};
  EXPECT_EQ(T_CombineBitmapWarp(&a.record, q.p, &source.record, nullptr, T_WARP_BILINEAR), ERR_INVALID_PARAMETER);
  ASSERT_EQ(T_CombineBitmapWarp(&a.record, q.p, &source.record, &area, T_WARP_BILINEAR), SUCCESS);
  ASSERT_EQ(T_CombineBitmapWarp(&b.record, q.p, &gray.record, &area, T_WARP_BILINEAR), SUCCESS);
  EXPECT_EQ(PixelsOf(a.record), PixelsOf(b.record));
  tarn::test::Bitmap high(1, kMost + 1, 1);
  ASSERT_EQ(T_AllocateBitmap(&high, TYPE_USER), SUCCESS);
  EXPECT_EQ(T_CombineBitmapWarp(&a.record, q.p, &high, nullptr, T_WARP_BILINEAR), ERR_INVALID_PARAMETER);
}

TEST(CombineWarp, OntoItself) {
  for (const Kind kind : {Kind::kBlock, Kind::kMemoryTiles, Kind::kDisk}) {
    const tarn::engine::ThresholdScope scope;
    const Shape shape{50, 30, 24};
    Picture same, source, target;
    ASSERT_EQ(same.Make(kind, shape, 3), "");
    ASSERT_EQ(source.Make(Kind::kBlock, shape, 3), "");
    ASSERT_EQ(target.Make(Kind::kBlock, shape, 3), "");
    const Quad q{{{1000, 300}, {256 * 48, 900}, {256 * 40, 256 * 29}, {100, 256 * 22}}};
    ASSERT_EQ(T_CombineBitmapWarp(&same.record, q.p, &same.record, nullptr, T_WARP_BILINEAR), SUCCESS);
    ASSERT_EQ(T_CombineBitmapWarp(&target.record, q.p, &source.record, nullptr, T_WARP_BILINEAR), SUCCESS);
    EXPECT_EQ(PixelsOf(same.record), PixelsOf(target.record)) << NameOf(kind);
  }
}

TEST(CombineWarp, Refusals) {
  Picture source, target;
  ASSERT_EQ(source.Make(Kind::kBlock, {20, 10, 24}, 3), "");
  ASSERT_EQ(target.Make(Kind::kBlock, {20, 10, 24}, 4), "");
  const Bytes before = PixelsOf(target.record);
  const Quad whole = Rectangle(0, 0, 20, 10);
  const auto call = [&](const Quad& q, const T_Rect* area = nullptr, uint32_t flags = 0) {
    return T_CombineBitmapWarp(&target.record, q.p, &source.record, area, flags);
  };
  EXPECT_EQ(T_CombineBitmapWarp(nullptr, whole.p, &source.record, nullptr, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_CombineBitmapWarp(&target.record, whole.p, nullptr, nullptr, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_CombineBitmapWarp(&target.record, nullptr, &source.record, nullptr, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(call(whole, nullptr, 2), ERR_INVALID_PARAMETER);
  for (const T_Rect& area : {T_Rect{0, 0, 21, 10}, T_Rect{-1, 0, 5, 5}, T_Rect{5, 5, 5, 8}, T_Rect{5, 5, 8, 4},
                             T_Rect{0, -1, 5, 5}, T_Rect{0, 0, 5, 11}})
    EXPECT_EQ(call(whole, &area), ERR_INVALID_PARAMETER);
  constexpr int32_t kLimit = T_WARP_LIMIT;
  const Quad bad[] = {{{{0, 0}, {0, 0}, {900, 900}, {0, 900}}},      // two corners in one place
                      {{{0, 0}, {500, 0}, {1000, 0}, {0, 900}}},     // three in one line
                      {{{0, 0}, {900, 900}, {900, 0}, {0, 900}}},    // edges that cross
                      {{{0, 0}, {2000, 0}, {300, 300}, {0, 2000}}},  // a corner that points inwards
                      {{{5, 5}, {5, 5}, {5, 5}, {5, 5}}},            //
                      {{{-kLimit - 1, 0}, {900, 0}, {900, 900}, {0, 900}}},
                      {{{0, 0}, {kLimit + 1, 0}, {900, 900}, {0, 900}}},
                      {{{0, -kLimit - 1}, {900, 0}, {900, 900}, {0, 900}}},
                      {{{0, 0}, {900, 0}, {900, kLimit + 1}, {0, 900}}}};
  for (const Quad& q : bad) EXPECT_EQ(call(q), ERR_INVALID_PARAMETER);
  EXPECT_EQ(call(Rectangle(30, 0, 5, 5)), SUCCESS) << "beside the destination";
  EXPECT_EQ(call(Rectangle(0, -9, 5, 9)), SUCCESS);
  EXPECT_EQ(PixelsOf(target.record), before);
  const Quad far{{{-kLimit, -kLimit}, {kLimit, -kLimit}, {kLimit, kLimit}, {-kLimit, kLimit}}};
  EXPECT_EQ(call(far), SUCCESS);
  EXPECT_NE(PixelsOf(target.record), before);
}
