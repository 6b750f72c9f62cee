// Shearing: rows by the staircase, pixel by pixel, for every depth and perspective.

#include "tarn/shear.h"

#include <gtest/gtest.h>

#include <cmath>

#include "Scope.h"
#include "engine/Picture.h"
#include "tarn/flip.h"
#include "tarn/pixel.h"
#include "tarn/rotate.h"

using namespace tarn::test;
namespace engine = tarn::engine;
using Bytes = std::vector<uint8_t>;

namespace {

/// The shift of each row, counted from the displayed bottom, with sines rounded to 1/16384.
std::vector<int> Shifts(int angle, int height, int& total) {
  const auto sine = [](int hundredths) {
    return static_cast<int>(std::lround(std::sin(hundredths * 3.14159265358979323846 / 18000) * 16384));
  };
  const int c = sine(9000 - angle), s = sine(angle);
  std::vector<int> shifts;
  int shift = 0, gathered = 0;
  for (int row = 0; row < height; ++row) {
    shifts.push_back(shift);
    shift += s / c;
    gathered += s % c;
    if (gathered > c) gathered -= c, ++shift;
  }
  total = s * height / c;
  return shifts;
}

TEST(Shear, MovesRowsByTheStaircase) {
  for (const int32_t bits : engine::kDepths) {
    for (const int angle : {0, 1, 200, 1730, -1730, 4500, 8000, -8999 + 1500}) {
      for (const uint32_t perspective : {1u, 4u}) {
        SCOPED_TRACE(testing::Message() << bits << " bits, " << angle << ", perspective " << perspective);
        engine::Picture picture, old;
        ASSERT_EQ(picture.Make(engine::Kind::kMixedTiles, {23, 11, bits}, 3), "");
        ASSERT_EQ(old.Make(engine::Kind::kBlock, {23, 11, bits}, 3), "");
        for (engine::Picture* p : {&picture, &old}) {
          p->record.ViewPerspective = perspective;
          if (bits <= 8) T_CreateBitmapFixedPalette(&p->record);
        }
        BitmapHandle& b = picture.record;
        const uint32_t fill = 0x00FFFFFF;
        uint8_t fillPixel[8] = {};
        ASSERT_EQ(T_ColorToPixel(&b, fill, fillPixel, sizeof fillPixel), SUCCESS);
        ASSERT_EQ(T_ShearBitmap(&b, angle, 1, fill), SUCCESS);
        int total = 0;
        const std::vector<int> shifts = Shifts(std::abs(angle), 11, total);
        ASSERT_EQ(b.Width, 23 + total);
        ASSERT_EQ(b.Height, 11);
        Bitmap filled(b.Width, 1, bits);
        for (int32_t y = 0; y < 11; ++y) {
          const int fromBottom = perspective == 4 ? y : 10 - y;
          const int shift =
              angle < 0 ? total - shifts[static_cast<size_t>(fromBottom)] : shifts[static_cast<size_t>(fromBottom)];
          for (int32_t x = 0; x < b.Width; ++x) {
            const bool inside = x >= shift && x < shift + 23;
            const uint32_t got = T_GetPixelColor(&b, y, x);
            if (inside) {
              ASSERT_EQ(got, T_GetPixelColor(&old.record, y, x - shift)) << x << ", " << y;
            } else if (bits <= 8 || b.Order != 2) {
              ASSERT_EQ(got & 0xFFFFFF, bits <= 8 ? T_GetPixelColor(&b, y, x) & 0xFFFFFF : 0xFFFFFFu) << x << ", " << y;
            }
          }
        }
      }
    }
  }
}

TEST(Shear, OfColumnsIsThatOfTheTurnedPicture) {
  for (const int32_t bits : {1, 8, 24}) {
    for (const uint32_t perspective : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u}) {
      SCOPED_TRACE(testing::Message() << bits << " bits, perspective " << perspective);
      const auto make = [&](Bitmap& b, uint32_t stored) {
        ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 19, 14, bits, 1, nullptr, 1, nullptr, 0), SUCCESS);
        Fill(b, 5);
        ASSERT_EQ(T_ChangeBitmapViewPerspective(nullptr, &b, 212, stored), SUCCESS);
      };
      // The same picture stored in another way shears to the same displayed picture, unless it leans the other way.
      for (const int horizontal : {0, 1}) {
        Bitmap plain, other;
        make(plain, 1);
        make(other, perspective);
        const bool mirrored =
            perspective == 2 || perspective == 3 || (perspective >= 5 && (perspective <= 6) != (horizontal != 0));
        ASSERT_EQ(T_ShearBitmap(&plain, 1500, horizontal, 0), SUCCESS);
        ASSERT_EQ(T_ShearBitmap(&other, 1500, horizontal, 0), SUCCESS);
        ASSERT_EQ(T_ChangeBitmapViewPerspective(nullptr, &plain, 212, 1), SUCCESS);
        ASSERT_EQ(T_ChangeBitmapViewPerspective(nullptr, &other, 212, 1), SUCCESS);
        ASSERT_EQ(other.Width, plain.Width);
        ASSERT_EQ(other.Height, plain.Height);
        EXPECT_EQ(horizontal ? plain.Height : plain.Width, horizontal ? 14 : 19);
        for (uint32_t y = 0; !mirrored && y < static_cast<uint32_t>(plain.Height); ++y)
          ASSERT_EQ(Row(other, y), Row(plain, y)) << y;
      }
    }
  }
}

TEST(Shear, RefusesAndKeepsAStoppedBitmap) {
  Bitmap b;
  EXPECT_EQ(T_ShearBitmap(nullptr, 100, 1, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_ShearBitmap(&b, 100, 1, 0), ERR_NO_BITMAP);
  ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 30, 20, 8, 0, nullptr, 1, nullptr, 0), SUCCESS);
  Fill(b, 1);
  EXPECT_EQ(T_ShearBitmap(&b, 9000, 1, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ShearBitmap(&b, -9000, 0, 0), ERR_INVALID_PARAMETER);
  Bitmap high(1, 400000, 1);
  ASSERT_EQ(T_AllocateBitmap(&high, TYPE_CONV), SUCCESS);
  EXPECT_EQ(T_ShearBitmap(&high, 8999, 1, 0), ERR_IMAGE_TOO_LARGE);
  EXPECT_EQ(high.Width, 1);
  for (const int horizontal : {0, 1}) {
    for (int stop = 1; stop <= 20; ++stop) {
      int left = stop;
      const auto callback = [](int32_t, void* userData) {
        return --*static_cast<int*>(userData) == 0 ? -55 : static_cast<int32_t>(SUCCESS);
      };
      T_SetStatusCallBack(callback, &left, nullptr, nullptr);
      EXPECT_EQ(T_ShearBitmap(&b, 700, horizontal, 0), -55);
      T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
      ASSERT_EQ(b.Width, 30);
      ASSERT_EQ(FirstDifference(b, 1, 20), -1);
    }
  }
}

}  // namespace
