// Alpha out of bitmaps and into them.

#include "tarn/alpha.h"

#include <gtest/gtest.h>

#include "Holding.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "tarn/flip.h"
#include "tarn/hooks.h"
#include "tarn/rotate.h"

using namespace tarn::test;
namespace engine = tarn::engine;
using Bytes = std::vector<uint8_t>;

namespace {

TEST(Alpha, ComesOutOfEveryDepth) {
  for (const int32_t bits : engine::kDepths) {
    for (const auto kind : {engine::Kind::kBlock, engine::Kind::kSwapTiles, engine::Kind::kDisk}) {
      SCOPED_TRACE(testing::Message() << bits << " bits, " << NameOf(kind));
      engine::Picture picture;
      ASSERT_EQ(picture.Make(kind, {21, 9, bits}, 4), "");
      BitmapHandle alpha;
      ASSERT_EQ(T_GetBitmapAlpha(&picture.record, &alpha, sizeof alpha), SUCCESS);
      EXPECT_EQ(alpha.BitsPerPixel, bits == 64 ? 16 : 8);
      EXPECT_EQ(alpha.ViewPerspective, picture.record.ViewPerspective);
      EXPECT_EQ((alpha.Flags & T_FLAG_ON_DISK) != 0, kind == engine::Kind::kDisk);
      EXPECT_EQ(T_IsGrayScaleBitmap(&alpha), 1);
      for (uint32_t y = 0; y < 9; ++y) {
        const Bytes from = Row(picture.record, y), got = Row(alpha, y);
        for (size_t x = 0; x < 21; ++x) {
          if (bits == 64) {
            EXPECT_EQ(std::memcmp(&got[2 * x], &from[8 * x + 6], 2), 0);
          } else {
            EXPECT_EQ(got[x], bits == 32 ? from[4 * x + 3] : bits == 16 ? from[2 * x + 1] >> 7 ? 255 : 0 : 0);
          }
        }
      }
      T_FreeBitmap(&alpha);
    }
  }
}

/// A gray bitmap of 8 bits or 16 with a known level for each pixel.
int Level(int32_t x, int32_t y) { return (x * 37 + y * 101) & 255; }
void MakeAlpha(Bitmap& alpha, int32_t width, int32_t height, int32_t bits) {
  ASSERT_EQ(T_CreateBitmap(&alpha, 212, TYPE_CONV, width, height, bits == 8 ? 0 : bits, bits == 16 ? 2 : 0, nullptr, 1,
                           nullptr, 0),
            SUCCESS);
  for (int32_t y = 0; y < height; ++y) {
    Bytes line(alpha.BytesPerLine);
    for (int32_t x = 0; x < width; ++x) {
      const int level = Level(x, y);
      if (bits == 16) {
        line[2 * static_cast<size_t>(x)] = line[2 * static_cast<size_t>(x) + 1] = static_cast<uint8_t>(level);
      } else if (bits == 8) {
        line[static_cast<size_t>(x)] = static_cast<uint8_t>(level);
      } else if (level >= 128) {
        line[static_cast<size_t>(x) / 8] |= static_cast<uint8_t>(0x80 >> x % 8);
      }
    }
    T_PutBitmapRow(&alpha, line.data(), static_cast<uint32_t>(y), line.size());
  }
}

TEST(Alpha, GoesIntoEveryDepthWhereBothReach) {
  for (const int32_t bits : {8, 16, 24, 32, 48, 64}) {
    for (const int32_t alphaBits : {1, 8, 16}) {
      for (const auto kind : {engine::Kind::kBlock, engine::Kind::kMixedTiles, engine::Kind::kDisk}) {
        SCOPED_TRACE(testing::Message() << alphaBits << " into " << bits << ", " << NameOf(kind));
        engine::Picture picture;
        ASSERT_EQ(picture.Make(kind, {21, 9, bits}, 4), "");
        BitmapHandle& target = picture.record;
        target.ViewPerspective = 1;
        Bitmap alpha;
        MakeAlpha(alpha, 15, 12, alphaBits);  // narrower and higher
        const bool has = bits == 16 || bits == 32 || bits == 64;
        std::vector<Bytes> before;
        for (uint32_t y = 0; y < 9; ++y) before.push_back(Row(target, y));
        ASSERT_EQ(T_SetBitmapAlpha(&target, &alpha), SUCCESS);
        const int32_t now = has ? bits : bits == 48 ? 64 : 32;
        ASSERT_EQ(target.BitsPerPixel, now);
        for (int32_t y = 0; y < 9; ++y) {
          const Bytes row = Row(target, static_cast<uint32_t>(y));
          for (int32_t x = 0; x < 21; ++x) {
            const auto at = static_cast<size_t>(x);
            const int level = alphaBits == 1 ? Level(x, y) >= 128 ? 255 : 0 : Level(x, y);
            const int got = now == 64 ? row[8 * at + 7] : now == 32 ? row[4 * at + 3] : row[2 * at + 1] >> 7;
            if (x < 15) {
              EXPECT_EQ(got, now == 16 ? level >= 128 : level) << x << ", " << y;
            } else if (!has) {
              EXPECT_EQ(got, 255);
            }
            if (!has) continue;
            const Bytes& old = before[static_cast<size_t>(y)];
            const size_t colors = now == 64 ? 6 : now == 32 ? 3 : 1, pixel = static_cast<size_t>(now) / 8;
            EXPECT_EQ(std::memcmp(&row[pixel * at], &old[pixel * at], colors), 0);
            EXPECT_TRUE(x < 15 || std::memcmp(&row[pixel * at], &old[pixel * at], pixel) == 0);
          }
        }
      }
    }
  }
}

TEST(Alpha, IsTurnedToTheTargetsPerspective) {
  Bitmap target, alpha, twin;
  ASSERT_EQ(T_CreateBitmap(&target, 212, TYPE_CONV, 12, 12, 32, 1, nullptr, 1, nullptr, 0), SUCCESS);
  MakeAlpha(alpha, 12, 12, 8);
  ASSERT_EQ(T_ChangeBitmapViewPerspective(nullptr, &alpha, 212, 6), SUCCESS);  // the same picture, stored turned
  ASSERT_EQ(T_SetBitmapAlpha(&target, &alpha), SUCCESS);
  EXPECT_EQ(alpha.ViewPerspective, 6u);
  for (int32_t y = 0; y < 12; ++y) {
    const Bytes row = Row(target, static_cast<uint32_t>(y));
    for (int32_t x = 0; x < 12; ++x) EXPECT_EQ(row[4 * static_cast<size_t>(x) + 3], Level(x, y));
  }
}

// Levels of fewer bits than the target's are widened, whatever says which they are.
TEST(Alpha, OfSignificantBits) {
  struct Range {
    int32_t low, high;
  };
  for (const Range& range : {Range{0, 15}, Range{-1, -1}, Range{0, 11}, Range{4, 15}, Range{2, 9}}) {
    SCOPED_TRACE(testing::Message() << range.low << ".." << range.high);
    Bitmap target, alpha, levels;
    ASSERT_EQ(T_CreateBitmap(&target, 212, TYPE_CONV, 15, 12, 64, 1, nullptr, 1, nullptr, 0), SUCCESS);
    MakeAlpha(alpha, 15, 12, 16);
    alpha.LowBit = range.low;
    alpha.HighBit = range.high;
    ASSERT_EQ(T_CreateGrayScaleBitmap(&levels, &alpha, 16, 212), SUCCESS);
    ASSERT_EQ(T_SetBitmapAlpha(&target, &alpha), SUCCESS);
    for (uint32_t y = 0; y < 12; ++y) {
      const Bytes got = Row(target, y), wanted = Row(levels, y);
      for (size_t x = 0; x < 15; ++x) ASSERT_EQ(std::memcmp(&got[8 * x + 6], &wanted[2 * x], 2), 0) << x << ", " << y;
    }
  }
}

TEST(Alpha, GrayHasNone) {
  for (const int32_t bits : {16, 32}) {
    Bitmap gray, alpha, mask;
    ASSERT_EQ(T_CreateBitmap(&gray, 212, TYPE_CONV, 15, 12, bits, T_ORDER_GRAY, nullptr, 1, nullptr, 0), SUCCESS);
    Fill(gray, 3);
    ASSERT_EQ(T_GetBitmapAlpha(&gray, &alpha, 212), SUCCESS);
    for (uint32_t y = 0; y < 12; ++y) EXPECT_EQ(Row(alpha, y), Bytes(alpha.BytesPerLine));
    MakeAlpha(mask, 15, 12, 8);
    ASSERT_EQ(T_SetBitmapAlpha(&gray, &mask), SUCCESS);
    EXPECT_EQ(gray.BitsPerPixel, 32);
    EXPECT_NE(gray.Order, uint32_t{T_ORDER_GRAY});
    EXPECT_EQ(Row(gray, 5)[4 * 6 + 3], Level(6, 5));
  }
}

TEST(Alpha, RefusedCallsChangeNothing) {
  engine::Picture target;
  ASSERT_EQ(target.Make(engine::Kind::kDisk, {15, 6, 32}, 4), "");
  target.record.ViewPerspective = 1;
  Bitmap mask, onDisk, out;
  MakeAlpha(mask, 15, 12, 8);
  ASSERT_EQ(T_CopyBitmap2(&onDisk, &mask, TYPE_DISK, 212), SUCCESS);
  engine::Bytes before, after;
  ASSERT_EQ(engine::ReadPixels(target.record, before), "");
  auto held = tarn::platform::Held();
  EXPECT_GE(RefuseEachCall([&] { return T_GetBitmapAlpha(&target.record, &out, 212); },
                           [&](int32_t status, bool) {
                             EXPECT_EQ((out.Flags & T_FLAG_ALLOCATED) != 0, status == SUCCESS);
                             T_FreeBitmap(&out);
                             EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
                           }),
            5u);
  for (Bitmap* alpha : {&mask, &onDisk}) {
    held = tarn::platform::Held();
    EXPECT_GE(RefuseEachCall([&] { return T_SetBitmapAlpha(&target.record, alpha); },
                             [&](int32_t status, bool) {
                               ASSERT_EQ(engine::ReadPixels(target.record, after), "");
                               if (status == SUCCESS) before = after;
                               EXPECT_EQ(after, before);
                               EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
                             }),
              5u);
    EXPECT_EQ(Row(target.record, 5)[4 * 6 + 3], Level(6, 5));
  }
}

TEST(Alpha, RefusesAndAsksTheHook) {
  Bitmap none, b, alpha;
  ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 5, 5, 32, 1, nullptr, 1, nullptr, 0), SUCCESS);
  Bitmap other, damaged;
  for (Bitmap* each : {&other, &damaged})
    ASSERT_EQ(T_CreateBitmap(each, 212, TYPE_CONV, 5, 5, 0, 0, nullptr, 1, nullptr, 0), SUCCESS);
  damaged.BytesPerLine = 1;
  for (const int32_t status :
       {T_GetBitmapAlpha(&b, &b, 212), T_GetBitmapAlpha(&damaged, &alpha, 212), T_SetBitmapAlpha(nullptr, &b),
        T_SetBitmapAlpha(&b, nullptr), T_SetBitmapAlpha(&none, &b), T_SetBitmapAlpha(&b, &damaged)})
    EXPECT_EQ(status, ERR_INVALID_PARAMETER);
  other.StructSize = 211;
  EXPECT_EQ(T_SetBitmapAlpha(&b, &other), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_SetBitmapAlpha(&other, &b), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_GetBitmapAlpha(&other, &alpha, 212), ERR_BAD_STRUCT_SIZE);
  other.StructSize = sizeof(BitmapHandle);
  EXPECT_EQ(T_GetBitmapAlpha(nullptr, &alpha, 212), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapAlpha(&none, &alpha, 212), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapAlpha(&b, nullptr, 212), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapAlpha(&b, &alpha, 211), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_SetBitmapAlpha(&b, &none), ERR_INVALID_PARAMETER);
  b.Flags |= T_FLAG_SIGNED_DATA;
  EXPECT_EQ(T_GetBitmapAlpha(&b, &alpha, 212), ERR_SIGNED_DATA);
  EXPECT_EQ(T_SetBitmapAlpha(&b, &b), ERR_SIGNED_DATA);
  b.Flags &= ~static_cast<uint32_t>(T_FLAG_SIGNED_DATA);
  const auto before = tarn::platform::Held();
  const T_BitmapCreationHook old =
      T_SetBitmapCreationHook([](BitmapHandle*, BitmapHandle*, int32_t a, int32_t c) { return a + c == 0 ? -77 : 0; });
  EXPECT_EQ(T_GetBitmapAlpha(&b, &alpha, 212), -77);
  EXPECT_TRUE(SameHeld(before, tarn::platform::Held()));
  EXPECT_FALSE(alpha.Flags & T_FLAG_ALLOCATED);
  T_SetBitmapCreationHook([](BitmapHandle* made, BitmapHandle* from, int32_t, int32_t) {
    return made->Width == from->Width ? static_cast<int32_t>(SUCCESS) : -78;
  });
  EXPECT_EQ(T_GetBitmapAlpha(&b, &alpha, 212), SUCCESS);
  T_SetBitmapCreationHook(old);
}

TEST(Alpha, FillsARow) {
  Bytes row(35, 7);
  T_SetRowAlphaValues(24, row.data(), row.size(), 0x1234);
  T_SetRowAlphaValues(32, nullptr, 8, 1);
  EXPECT_EQ(row, Bytes(35, 7));
  T_SetRowAlphaValues(32, row.data(), row.size(), 0x1234);
  for (size_t i = 0; i < 35; ++i) EXPECT_EQ(row[i], i % 4 == 3 ? 0x34 : 7) << i;
  T_SetRowAlphaValues(64, row.data(), row.size(), 0xABCD);
  EXPECT_EQ(row[6], 0xCD);
  EXPECT_EQ(row[7], 0xAB);
  EXPECT_EQ(row[34], 7);
}

}  // namespace
