// Quarter turns, half turns, rotation by any angle, perspectives that change with their pixels.

#include <gtest/gtest.h>

#include <cmath>

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

TEST(Rotate, Sines) {
  for (int32_t angle = -36000; angle <= 72000; angle += 7) {
    const double radians = angle * 3.14159265358979323846 / 18000;
    ASSERT_NEAR(T_SinValue(angle), std::sin(radians) * 16384, 0.5000001) << angle;
    ASSERT_NEAR(T_CosValue(angle), std::cos(radians) * 16384, 0.5000001) << angle;
  }
  EXPECT_EQ(T_SinValue(3000), 8192);
  EXPECT_EQ(T_CosValue(9000), 0);
  EXPECT_EQ(T_CosValue(18000), -16384);
  EXPECT_EQ(T_CosValue(36000), 16384);
}

// Blocks of pictures that are too large for the caches are written past them.
TEST(Rotate, StreamedBlocks) {
  struct Case {
    tarn::TurnKernels::Transpose tarn::TurnKernels::*kernel;
    size_t bytes;
  };
  using K = tarn::TurnKernels;
  constexpr Case kCases[] = {{&K::transpose8, 1},  {&K::transpose16, 2}, {&K::transpose24, 3},
                             {&K::transpose32, 4}, {&K::transpose48, 6}, {&K::transpose64, 8}};
  constexpr size_t kPixels = 261, kStride = 2112, kRoom = kPixels * kStride;
  engine::Random random(18);
  Bytes source(kRoom);
  for (uint8_t& byte : source) byte = random.Byte();
  for (const Case& c : kCases) {
    for (const size_t lines : {size_t{64}, size_t{128}, size_t{150}}) {
      for (const size_t offset : {size_t{0}, size_t{16}}) {
        const tarn::TurnOn on{.ahead = 4096, .streamed = true};
        const auto turned = [&](Isa level) {
          Bytes target(kRoom + 128, 0x55);
          uint8_t* const first = target.data() + 64 - reinterpret_cast<uintptr_t>(target.data()) % 64 + offset;
          (tarn::KernelsFor(level).turn->*c.kernel)(first, kStride, source.data(), kStride, kPixels, lines, on);
          return Bytes(first, first + kRoom - 64);
        };
        const Bytes wanted = turned(Isa::kPortable);
        for (const Isa level : {Isa::kAvx2, Isa::kAvx512})
          ASSERT_TRUE(turned(level) == wanted) << 8 * c.bytes << " bits, " << lines << " lines, offset " << offset;
      }
    }
  }
}

TEST(Rotate, BuffersOfEverySize) {
  engine::Random random(8);
  for (const Isa level : tarn::test::kLevels) {
    tarn::ForceIsa(level);
    for (const int32_t bits : engine::kDepths) {
      for (int round = 0; round < 40; ++round) {
        const int32_t width = random.Between(1, round < 20 ? 40 : 300),
                      height = random.Between(1, round < 30 ? 140 : 300);
        const int32_t direction = round % 2;
        SCOPED_TRACE(testing::Message() << bits << " bits, " << width << " x " << height << " to " << direction);
        const auto bytesOf = [bits](int32_t pixels) { return static_cast<size_t>((pixels * bits + 7) / 8); };
        // Rows that all begin at the same place of a cache line, and such that do not.
        const auto lines = [](size_t bytes) { return (bytes + 63) / 64 * 64; };
        const size_t from = round % 4 < 2 ? bytesOf(width) : lines(bytesOf(width));
        const size_t to = round % 4 < 2 ? bytesOf(height) + random.Below(3) : lines(bytesOf(height));
        Bytes before(from * static_cast<size_t>(height));
        for (uint8_t& byte : before) byte = random.Byte();
        runref::Exact source(before.data(), before.size(), random.Below(64));
        const size_t room = to * static_cast<size_t>(width - 1) + bytesOf(height);
        runref::Guarded target(room, random.Below(64));
        std::memset(target.data(), 0x77, room);
        Bytes wanted(target.data(), target.data() + room);
        for (int32_t y = 0; y < width; ++y) {
          uint8_t* const line = wanted.data() + to * static_cast<size_t>(y);
          std::memset(line, 0, bytesOf(height));
          for (int32_t x = 0; x < height; ++x) {
            const int32_t row = direction ? height - 1 - x : x, column = direction ? y : width - 1 - y;
            SetPixel(line, static_cast<size_t>(x), bits,
                     PixelAt(before.data() + from * static_cast<size_t>(row), static_cast<size_t>(column), bits));
          }
        }
        ASSERT_EQ(T_RotateBuffer90(target.data(), static_cast<uint32_t>(to), source.data(), static_cast<uint32_t>(from),
                                   width, height, bits, direction),
                  SUCCESS);
        ASSERT_TRUE(target.GuardsKept());
        ASSERT_EQ(Bytes(target.data(), target.data() + room), wanted);
      }
    }
  }
  tarn::ForceIsa(Isa::kCount);
  uint8_t bytes[8] = {};
  EXPECT_EQ(T_RotateBuffer90(nullptr, 1, bytes, 1, 1, 1, 8, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_RotateBuffer90(bytes, 1, nullptr, 1, 1, 1, 8, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_RotateBuffer90(bytes, 1, bytes + 4, 1, 0, 1, 8, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_RotateBuffer90(bytes, 1, bytes + 4, 1, 1, -1, 8, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_RotateBuffer90(bytes, 1, bytes + 4, 1, 1, 2, 8, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_RotateBuffer90(bytes, 1, bytes + 4, 1, 2, 1, 8, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_RotateBuffer90(bytes, 1, bytes + 4, 1, 1, 1, 10, 1), ERR_BAD_BITS_PER_PIXEL);
  EXPECT_EQ(T_RotateBuffer90(bytes, 1, bytes + 4, 1, 1, 1, 8, 2), ERR_INVALID_PARAMETER);
}

// Rows that begin between cache lines, and results that go past the caches.
TEST(Rotate, QuarterTurnsOfBlocks) {
  for (const int32_t bits : {8, 24, 64}) {
    for (const size_t offset : {size_t{0}, size_t{16}, size_t{40}}) {
      const int32_t width = 64 * 3, height = 70;
      Bytes memory(size_t{192} * 70 * 8 + 128);
      uint8_t* const data = memory.data() + 64 - reinterpret_cast<uintptr_t>(memory.data()) % 64 + offset;
      Bitmap b(width, height, bits);
      ASSERT_EQ(T_AllocateBitmap(&b, TYPE_USER), SUCCESS);
      b.Data = data;
      b.ViewPerspective = 1;
      Fill(b, 4);
      const Grid before = GridOf(b);
      ASSERT_EQ(T_RotateBitmap(&b, 9000, ROTATE_RESIZE, 0), SUCCESS);
      EXPECT_TRUE(GridOf(b) == TurnedRight(before)) << bits << " bits, offset " << offset;
    }
  }
  Bitmap large(2000, 1600, 64);  // 25.6 MB
  ASSERT_EQ(T_AllocateBitmap(&large, TYPE_NOTILED), SUCCESS);
  large.ViewPerspective = 1;
  for (uint64_t i = 0; i < 2000 * 1600; ++i) std::memcpy(large.Data + 8 * i, &i, 8);
  ASSERT_EQ(T_RotateBitmap(&large, 9000, ROTATE_RESIZE, 0), SUCCESS);
  uint64_t wrong = 0, pixel = 0;
  for (uint64_t y = 0; y < 2000; ++y) {
    for (uint64_t x = 0; x < 1600; ++x) {
      std::memcpy(&pixel, large.Data + 8 * (1600 * y + x), 8);
      wrong += pixel != (1599 - x) * 2000 + y;
    }
  }
  EXPECT_EQ(wrong, 0u);
}

TEST(Rotate, QuarterTurnsOfEveryDepthAndStorage) {
  for (const int32_t bits : engine::kDepths) {
    for (int number = 0; number < engine::kKinds; ++number) {
      const auto kind = static_cast<Kind>(number);
      const engine::Shape shape{139, 70, bits};
      if (!shape.Suits(kind)) continue;
      SCOPED_TRACE(testing::Message() << bits << " bits, " << NameOf(kind));
      engine::Picture picture;
      ASSERT_EQ(picture.Make(kind, shape, 11), "");
      BitmapHandle& b = picture.record;
      b.ViewPerspective = 1;
      b.XResolution = 300;
      b.YResolution = 200;
      const Grid before = GridOf(b);
      ASSERT_EQ(T_RotateBitmap(&b, 9000, ROTATE_RESIZE, 0), SUCCESS);
      ASSERT_EQ(GridOf(b), TurnedRight(before));
      EXPECT_EQ(b.XResolution, 200);
      EXPECT_EQ(b.YResolution, 300);
      ASSERT_EQ(T_RotateBitmap(&b, 9000 + 36000, ROTATE_RESIZE, 0), SUCCESS);
      ASSERT_EQ(GridOf(b), Reversed(Flipped(before)));
      ASSERT_EQ(T_RotateBitmap(&b, -18000, 0, 0), SUCCESS);
      ASSERT_EQ(GridOf(b), before);
      ASSERT_EQ(T_RotateBitmap90(&b, 0, 0, 100), SUCCESS);
      ASSERT_EQ(TurnedRight(GridOf(b)), before);
      ASSERT_EQ(T_RotateBitmap(&b, -27000, ROTATE_RESIZE, 0), SUCCESS);
      ASSERT_EQ(GridOf(b), before);
    }
  }
}

TEST(Rotate, EveryPerspectiveTurnsAsDisplayed) {
  for (uint32_t perspective = 1; perspective <= 8; ++perspective) {
    for (const int32_t angle : {0, 9000, 18000, 27000, -9000}) {
      SCOPED_TRACE(testing::Message() << "perspective " << perspective << ", angle " << angle);
      engine::Picture picture;
      ASSERT_EQ(picture.Make(Kind::kBlock, {37, 10, 24}, perspective), "");
      BitmapHandle& b = picture.record;
      b.ViewPerspective = perspective;
      Grid wanted = Displayed(GridOf(b), perspective);
      for (int32_t turned = 0; turned < (angle + 36000) % 36000; turned += 9000) wanted = TurnedRight(wanted);
      BitmapHandle field = b;
      ASSERT_EQ(T_RotateBitmapViewPerspective(&field, angle / 100), SUCCESS);
      EXPECT_EQ(Displayed(GridOf(b), V(field.ViewPerspective)), wanted);
      ASSERT_EQ(T_RotateBitmap(&b, angle, ROTATE_RESIZE, 0), SUCCESS);
      EXPECT_EQ(V(b.ViewPerspective),
                perspective == 2 || perspective == 4 || perspective == 5 || perspective == 7 ? 4u : 1u);
      EXPECT_EQ(Displayed(GridOf(b), V(b.ViewPerspective)), wanted);
      const Grid right = TurnedRight(wanted);
      ASSERT_EQ(T_RotateBitmap90(&b, 1, 0, 100), SUCCESS);
      EXPECT_EQ(Displayed(GridOf(b), V(b.ViewPerspective)), right);
    }
  }
  Bitmap b(4, 4, 8);
  EXPECT_EQ(T_RotateBitmapViewPerspective(&b, 45), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_RotateBitmapViewPerspective(&b, -720), SUCCESS);
  EXPECT_EQ(T_RotateBitmapViewPerspective(nullptr, 90), ERR_INVALID_PARAMETER);
}

TEST(Rotate, ChangedPerspectivesShowTheSamePicture) {
  for (uint32_t from = 1; from <= 8; ++from) {
    for (uint32_t to = 1; to <= 8; ++to) {
      SCOPED_TRACE(testing::Message() << from << " to " << to);
      engine::Picture picture;
      ASSERT_EQ(picture.Make(Kind::kMixedTiles, {21, 10, 4}, from), "");
      BitmapHandle& b = picture.record;
      b.ViewPerspective = from;
      const Grid wanted = Displayed(GridOf(b), from);
      BitmapHandle copy{};
      ASSERT_EQ(T_ChangeBitmapViewPerspective(&copy, &b, sizeof copy, to), SUCCESS);
      EXPECT_EQ(V(copy.ViewPerspective), to);
      EXPECT_EQ(Displayed(GridOf(copy), to), wanted);
      EXPECT_EQ(Displayed(GridOf(b), from), wanted);
      ASSERT_EQ(T_ChangeBitmapViewPerspective(nullptr, &b, sizeof b, to), SUCCESS);
      EXPECT_EQ(V(b.ViewPerspective), to);
      EXPECT_EQ(GridOf(b), GridOf(copy));
      T_FreeBitmap(&copy);
    }
  }
  Bitmap b(4, 4, 8);
  BitmapHandle copy{};
  EXPECT_EQ(T_ChangeBitmapViewPerspective(nullptr, &b, sizeof b, 2), ERR_INVALID_PARAMETER);
  ASSERT_EQ(T_AllocateBitmap(&b, TYPE_CONV), SUCCESS);
  EXPECT_EQ(T_ChangeBitmapViewPerspective(nullptr, &b, 0, 9), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ChangeBitmapViewPerspective(&copy, &b, 0, 2), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_ChangeBitmapViewPerspective(&copy, &b, sizeof copy, 9), ERR_INVALID_PARAMETER);
  EXPECT_FALSE(copy.Flags & T_FLAG_ALLOCATED);
}

// ---- Any angle -----------------------------------------------------------------------------------------------------

/// A position as the pixel's index and a fraction, kept within -8191..8192.
struct Position {
  int64_t index;
  int64_t fraction;
  void Add(int64_t more) {
    fraction += more;
    if (fraction > 8192) ++index, fraction -= 16384;
    if (fraction < -8191) --index, fraction += 16384;
  }
  static Position Of(double value) {
    const auto index = static_cast<int64_t>(value);
    Position position{index, static_cast<int64_t>((value - (static_cast<double>(index) + 0.5)) * 16384)};
    position.Add(0);
    return position;
  }
};

struct Channels {
  int32_t count;
  int32_t bits;
};

int64_t Channel(uint64_t pixel, int32_t bits, int32_t channel) {
  return static_cast<int64_t>(pixel >> bits * channel & (~uint64_t{} >> (64 - bits)));
}

/// Rotation stated pixel by pixel; stored rows, perspective 1.
Grid RotatedSlowly(const Grid& source, int32_t angle, uint32_t flags, uint64_t fill, Channels channels) {
  angle = ((-angle) % 36000 + 36000) % 36000;
  const int32_t cosine = T_CosValue(angle), sine = T_SinValue(angle);
  const double c = cosine / 16384.0, s = sine / 16384.0;
  double cx = source.width / 2.0, cy = source.height / 2.0, tx = cx, ty = cy;
  Grid result{source.width, source.height, {}};
  if (flags & ROTATE_RESIZE) {
    double x0 = 1e9, x1 = -1e9, y0 = 1e9, y1 = -1e9;
    for (const double px : {0.0, double(source.width)}) {
      for (const double py : {0.0, double(source.height)}) {
        const double x = (px - cx) * c + (py - cy) * s + cx, y = -(px - cx) * s + (py - cy) * c + cy;
        x0 = std::min(x0, x), x1 = std::max(x1, x), y0 = std::min(y0, y), y1 = std::max(y1, y);
      }
    }
    result.width = static_cast<int32_t>(x1 - x0 + 0.6);
    result.height = static_cast<int32_t>(y1 - y0 + 0.6);
    tx = cx - x0, ty = cy - y0;
  }
  const auto at = [&](int64_t x, int64_t y) {
    const bool inside = x >= 0 && y >= 0 && x < source.width && y < source.height;
    return inside ? source.At(static_cast<int32_t>(x), static_cast<int32_t>(y)) : fill;
  };
  Position rowX = Position::Of((0.5 - tx) * c - (0.5 - ty) * s + cx);
  Position rowY = Position::Of((0.5 - tx) * s + (0.5 - ty) * c + cy);
  for (int32_t row = 0; row < result.height; ++row, rowX.Add(-sine), rowY.Add(cosine)) {
    Position x = rowX, y = rowY;
    for (int32_t column = 0; column < result.width; ++column, x.Add(cosine), y.Add(sine)) {
      const bool inside = x.index >= 0 && y.index >= 0 && x.index < source.width && y.index < source.height;
      if (!inside || !(flags & (ROTATE_CORRECT | ROTATE_BILINEAR))) {
        result.pixels.push_back(inside ? at(x.index, y.index) : fill);
        continue;
      }
      uint64_t pixel = 0;
      for (int32_t i = 0; i < channels.count; ++i) {
        const auto sample = [&](int64_t px, int64_t py) { return Channel(at(px, py), channels.bits, i); };
        int64_t value = sample(x.index, y.index);
        if (flags & ROTATE_BILINEAR) {
          const int64_t left = x.fraction < 0 ? x.index - 1 : x.index, top = y.fraction < 0 ? y.index - 1 : y.index;
          const int64_t fx = (x.fraction + 16384) % 16384, fy = (y.fraction + 16384) % 16384;
          const int64_t a = sample(left, top), b = sample(left + 1, top);
          const int64_t d = sample(left, top + 1), e = sample(left + 1, top + 1);
          const int64_t upper = a + (b - a) * fx / 16384, lower = d + (e - d) * fx / 16384;
          value = upper + (lower - upper) * fy / 16384;
        } else {
          if (x.fraction > 0) value -= (value - sample(x.index + 1, y.index)) * x.fraction / 16384;
          if (x.fraction < 0) value += (value - sample(x.index - 1, y.index)) * x.fraction / 16384;
          if (y.fraction > 0) value -= (value - sample(x.index, y.index + 1)) * y.fraction / 16384;
          if (y.fraction < 0) value += (value - sample(x.index, y.index - 1)) * y.fraction / 16384;
        }
        pixel |= static_cast<uint64_t>(value) << channels.bits * i;
      }
      result.pixels.push_back(pixel);
    }
  }
  return result;
}

TEST(Rotate, AnyAngleAsStated) {
  struct Format {
    int32_t bits;
    bool gray;
    Channels channels;
    uint32_t fill;
    uint64_t pixel;
  };
  const Format formats[] = {{8, true, {1, 8}, 0x00404040, 0x40},
                            {12, true, {1, 12}, 0x04000123, 0x123},
                            {16, true, {1, 16}, 0x04000123, 0x123},
                            {24, false, {3, 8}, 0x00102030, 0x102030},
                            {32, true, {1, 32}, 0x04001234, 0x12341234},
                            {32, false, {4, 8}, 0x00102030, 0x102030},
                            {48, false, {3, 16}, 0x00102030, 0x101020203030},
                            {64, false, {4, 16}, 0x00102030, 0x101020203030}};
  for (const Format& format : formats) {
    for (const uint32_t quality : {0, int(ROTATE_CORRECT), int(ROTATE_BILINEAR)}) {
      for (const int32_t angle : {1730, -4500, 9000, 12345, 31999, 1, 26999}) {
        const uint32_t flags = quality | (angle & 1 ? uint32_t{ROTATE_RESIZE} : 0);
        SCOPED_TRACE(testing::Message() << format.bits << (format.gray ? " gray, " : " colour, ") << angle << ", flags "
                                        << flags);
        engine::Picture picture;
        // Of 8 bits, large enough for squares away from the edges.
        const engine::Shape shape = format.bits == 8 ? engine::Shape{101, 110, 8} : engine::Shape{41, 30, format.bits};
        ASSERT_EQ(picture.Make(Kind::kBlock, shape, 77), "");
        BitmapHandle& b = picture.record;
        b.ViewPerspective = 1;
        if (format.bits == 8) T_CreateBitmapGrayPalette(&b);
        if (format.bits > 8) b.Order = format.gray ? T_ORDER_GRAY : T_ORDER_BGR;
        uint64_t fill = 0;
        ASSERT_EQ(T_ColorToPixel(&b, format.fill, &fill, static_cast<uint64_t>((format.bits + 7) / 8)), SUCCESS);
        const Grid wanted = RotatedSlowly(GridOf(b), angle, flags, fill, format.channels);
        ASSERT_EQ(T_RotateBitmap(&b, angle, flags, format.fill), SUCCESS);
        ASSERT_EQ(GridOf(b), wanted);
      }
    }
  }
}

TEST(Rotate, SquaresAreRows) {
  constexpr int64_t kSide = 160, kColumns = 40, kReach = 18;
  engine::Random random(27);
  Bytes source(kSide * kSide);
  for (uint8_t& byte : source) byte = random.Byte();
  const tarn::RotateKernels& rows = *tarn::KernelsFor(Isa::kPortable).rotate;
  for (const Isa level : tarn::test::kLevels) {
    const tarn::RotateSquares& squares = *tarn::KernelsFor(level).rotateSquares;
    const struct {
      tarn::RotateSquares::Sample square;
      tarn::RotateKernels::Sample row;
    } pairs[] = {{squares.nearest8, rows.nearest[0]},
                 {squares.corrected8, rows.corrected[0]},
                 {squares.bilinear8, rows.bilinear[0]}};
    for (const auto& pair : pairs) {
      for (int32_t angle = 0; angle < 36000 && pair.square; angle += angle % 4500 == 0 ? 1 : 107) {
        const int32_t cosine = T_CosValue(angle), sine = T_SinValue(angle);
        const auto start = [&](int32_t right, int32_t down) {  // the least of the band comes to lie at the edge
          const int64_t corner = std::min(right, 0) * (kColumns - 1) + std::min(down, 0) * 7;
          return kReach * 16384 - corner + random.Between(-8191, 8192);
        };
        const tarn::SamplePath path{start(cosine, -sine), start(sine, cosine), cosine, sine};
        Bytes made(8 * kColumns), wanted(8 * kColumns);
        pair.square(made.data(), kColumns, source.data(), kSide, path, kColumns);
        for (int64_t i = 0; i < 8; ++i)
          pair.row(wanted.data() + i * kColumns, source.data(), kSide,
                   {path.x - i * sine, path.y + i * cosine, cosine, sine}, kColumns);
        ASSERT_EQ(made, wanted) << angle;
      }
    }
  }
}

TEST(Rotate, MirroredPerspectivesTurnTheSameWay) {
  for (const uint32_t perspective : {4u, 2u, 7u}) {
    engine::Picture mirrored, plain;
    ASSERT_EQ(mirrored.Make(Kind::kBlock, {40, 40, 8}, 5), "");
    ASSERT_EQ(plain.Make(Kind::kBlock, {40, 40, 8}, 5), "");
    mirrored.record.ViewPerspective = plain.record.ViewPerspective = perspective;
    ASSERT_EQ(T_ChangeBitmapViewPerspective(nullptr, &plain.record, sizeof plain.record, 1), SUCCESS);
    ASSERT_EQ(T_RotateBitmap(&mirrored.record, 3000, 0, 0), SUCCESS);
    ASSERT_EQ(T_RotateBitmap(&plain.record, 3000, 0, 0), SUCCESS);
    // Positions that fall between two pixels go to the one or the other side.
    const Grid a = Displayed(GridOf(mirrored.record), V(mirrored.record.ViewPerspective)), b = GridOf(plain.record);
    ASSERT_EQ(a.pixels.size(), b.pixels.size());
    size_t differ = 0;
    for (size_t i = 0; i < a.pixels.size(); ++i) differ += a.pixels[i] != b.pixels[i];
    EXPECT_LE(differ, a.pixels.size() / 100) << perspective;
  }
}

// Results that are made in several strips and tiles.
TEST(Rotate, LargePicturesInOtherStorage) {
  struct Case {
    engine::Shape shape;
    int32_t angle;
    uint32_t flags = ROTATE_RESIZE;
  };
  // Results whose rows are so long that few, or single ones, are made together, and tiles beside the source.
  for (const Case& c : {Case{{9000, 700, 1}, 1730},
                        {{2400, 2500, 24}, -9000},
                        {{700, 900, 24}, 1730},
                        {{200, 5000, 8}, 9000},
                        {{70, 17000, 8}, -9000},
                        {{3, 140000, 64}, 9000},
                        {{1100, 1100, 8}, 4500},
                        {{100000, 43, 64}, 2, 0},
                        {{270000, 17, 64}, 1, 0}}) {
    engine::Picture block, disk;
    ASSERT_EQ(block.Make(Kind::kBlock, c.shape, 3), "");
    ASSERT_EQ(disk.Make(Kind::kDisk, c.shape, 3), "");
    ASSERT_EQ(T_RotateBitmap(&block.record, c.angle, c.flags, 0), SUCCESS);
    ASSERT_EQ(T_RotateBitmap(&disk.record, c.angle, c.flags, 0), SUCCESS);
    ASSERT_EQ(V(disk.record.Width), V(block.record.Width));
    for (int32_t row = 0; row < block.record.Height; ++row)
      ASSERT_EQ(Row(disk.record, static_cast<uint32_t>(row)), Row(block.record, static_cast<uint32_t>(row)))
          << c.shape.bits << " bits, angle " << c.angle << ", row " << row;
  }
}

TEST(Rotate, StoppedBitmapsAreAsTheyWere) {
  for (const Kind kind : {Kind::kBlock, Kind::kSwapTiles, Kind::kDisk, Kind::kCompressed}) {
    for (const int32_t angle : {0, 9000, 18000, 1730}) {
      engine::Picture picture;
      ASSERT_EQ(picture.Make(kind, {150, 90, 1}, 5), "");
      BitmapHandle& b = picture.record;
      b.ViewPerspective = 2;
      const Grid before = GridOf(b);
      for (int stop = 1;; ++stop) {
        SCOPED_TRACE(testing::Message() << NameOf(kind) << ", angle " << angle << ", call " << stop);
        const BitmapHandle record = b;
        Stopper stopper{stop, -100 - stop};
        T_SetStatusCallBack(Stopper::Call, &stopper, nullptr, nullptr);
        const int32_t status = T_RotateBitmap(&b, angle, ROTATE_RESIZE, 0);
        T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
        ASSERT_TRUE(stopper.ordered);
        if (status == SUCCESS) {
          EXPECT_EQ(stopper.last, 100);
          EXPECT_GE(stop, 3);
          break;
        }
        ASSERT_EQ(status, -100 - stop);
        ASSERT_EQ(b.ViewPerspective, 2u);
        ASSERT_EQ(V(b.Data), V(record.Data));
        ASSERT_EQ(GridOf(b), before);
      }
    }
  }
}

TEST(Rotate, CentreAndLimits) {
  Bitmap b(8, 6, 8);
  EXPECT_EQ(T_RotateBitmap(nullptr, 0, 0, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_IntRotateBitmap(&b, 0, 0, 0, 0, 100, 0, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_RotateBitmap90(&b, 1, 0, 100), ERR_NO_BITMAP);
  ASSERT_EQ(T_AllocateBitmap(&b, TYPE_CONV), SUCCESS);
  b.ViewPerspective = 1;
  Fill(b, 9);
  const Grid before = GridOf(b);
  EXPECT_EQ(T_RotateBitmap90(&b, 2, 0, 100), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_IntRotateBitmap(&b, 10, ROTATE_CENTER, 0, 0, 100, std::nanf(""), 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(GridOf(b), before);
  for (const auto& [x, y] : {std::pair{2e9F, 0.0F}, {-2e9F, 0.0F}, {0.0F, 2e9F}, {0.0F, -2e9F}, {0.0F, std::nanf("")}})
    EXPECT_EQ(T_IntRotateBitmap(&b, 10, ROTATE_CENTER, 0, 0, 100, x, y), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_IntRotateBitmap(nullptr, 0, 0, 0, 0, 100, 0, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_RotateBitmap90(nullptr, 1, 0, 100), ERR_NO_BITMAP);
  EXPECT_EQ(T_RotateBitmap(&b, 10, 0, 0x01000100), ERR_INVALID_PARAMETER) << "no such palette entry";
  EXPECT_EQ(GridOf(b), before);
  // About any centre the whole picture is there; a quarter turn by samples is the turn by pixels.
  ASSERT_EQ(T_IntRotateBitmap(&b, 9000, ROTATE_CENTER, 0, 0, 100, 100.0F, -7.0F), SUCCESS);
  EXPECT_EQ(GridOf(b), TurnedRight(before));
  ASSERT_EQ(T_RotateBitmap(&b, 0, ROTATE_CENTER, 0), SUCCESS);
  EXPECT_EQ(GridOf(b), TurnedRight(before));
  // Without room the extents stay.
  ASSERT_EQ(T_RotateBitmap(&b, 9000, 0, 0), SUCCESS);
  EXPECT_EQ(b.Width, 6);
  EXPECT_EQ(b.Height, 8);
  // A square needs none.
  Bitmap square(9, 9, 8);
  ASSERT_EQ(T_AllocateBitmap(&square, TYPE_CONV), SUCCESS);
  square.ViewPerspective = 1;
  Fill(square, 9);
  const Grid upright = GridOf(square);
  ASSERT_EQ(T_RotateBitmap(&square, 9000, 0, 0), SUCCESS);
  EXPECT_EQ(GridOf(square), TurnedRight(upright));
  // Results of more columns, or rows, than there can be, before any pixel is looked at.
  Bitmap wide(INT32_MAX, 1, 1), high(1, 1, 1);
  for (Bitmap* each : {&wide, &high}) ASSERT_EQ(T_AllocateBitmap(each, TYPE_USER), SUCCESS);
  high.Height = INT32_MAX;
  for (Bitmap* each : {&wide, &high}) EXPECT_EQ(T_RotateBitmap(each, 1, ROTATE_RESIZE, 0), ERR_IMAGE_TOO_LARGE);
}

TEST(Rotate, RecordedRangesHoldTheFill) {
  struct Case {
    uint32_t flags;
    uint32_t fill;
    int32_t least, most;
    int32_t wantedLeast, wantedMost;
  };
  constexpr uint32_t kWhite = 0xFFFFFF;
  for (const Case& c : {Case{0, 0, 100, 200, 0, 200}, Case{0, kWhite, 100, 200, 100, -1}, Case{0, 0, 0, -1, 0, -1},
                        Case{T_FLAG_SIGNED_DATA, 0, 100, 200, 0, 200}, Case{T_FLAG_SIGNED_DATA, kWhite, 5, 9, -1, 9},
                        Case{T_FLAG_SIGNED_DATA, 0, -100, -50, -100, 0}}) {
    Bitmap b;
    ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 5, 4, 32, T_ORDER_GRAY, nullptr, 1, nullptr, 0), SUCCESS);
    b.Flags |= c.flags;
    b.MinValue = c.least;
    b.MaxValue = c.most;
    ASSERT_EQ(T_RotateBitmap(&b, 4500, ROTATE_RESIZE, c.fill), SUCCESS);
    EXPECT_EQ(V(b.MinValue), c.wantedLeast) << c.flags << ", fill " << c.fill;
    EXPECT_EQ(V(b.MaxValue), c.wantedMost) << c.flags << ", fill " << c.fill;
  }
}

}  // namespace
