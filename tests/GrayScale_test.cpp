// Gray-scale bitmaps: rows as the buffer converter makes them, lookup tables, recorded limits.

#include <gtest/gtest.h>

#include "Holding.h"
#include "Platform/Here.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Random.h"
#include "tarn/convert.h"
#include "tarn/gray.h"

using namespace tarn::test;
namespace engine = tarn::engine;
using Bytes = std::vector<uint8_t>;

namespace {

/// The gray line of a row: order and palette of the bitmap, whole range.
Bytes Expected(BitmapHandle& source, uint32_t row, int32_t bits) {
  Bytes line = Row(source, row);
  line.resize(T_CalcConvertSize(source.Width, source.BitsPerPixel, source.Width, bits));
  const bool palette = source.BitsPerPixel <= 8;
  EXPECT_EQ(T_ConvertBuffer(line.data(), source.Width, source.BitsPerPixel, bits == 8 ? 0 : bits,
                            palette ? 0 : source.Order, bits == 8 ? 0 : 2, source.Palette, nullptr),
            SUCCESS);
  line.resize((static_cast<size_t>(source.Width) * static_cast<size_t>(bits) + 7) / 8);
  return line;
}

void ExpectGrayFields(const BitmapHandle& b, int32_t bits) {
  EXPECT_EQ(b.BitsPerPixel, bits);
  EXPECT_EQ(b.Order, bits == 8 ? 0u : 2u);
  EXPECT_EQ(T_IsGrayScaleBitmap(&b), 1);
  EXPECT_EQ(b.Colors, bits == 8 ? 256u : 0u);
  EXPECT_EQ(V(b.Palette) != nullptr, bits == 8);
  EXPECT_EQ(V(b.LUT), nullptr);
}

TEST(GrayScale, RowsAreTheConverters) {
  for (const int32_t from : engine::kDepths) {
    for (const int32_t bits : {8, 12, 16, 32}) {
      SCOPED_TRACE(testing::Message() << from << " to " << bits);
      engine::Picture picture;
      ASSERT_EQ(picture.Make(engine::Kind::kMixedTiles, {37, 9, from}, 5), "");
      BitmapHandle& source = picture.record;
      if (from <= 8) T_CreateBitmapFixedPalette(&source);
      BitmapHandle made;
      ASSERT_EQ(T_CreateGrayScaleBitmap(&made, &source, bits, sizeof made), SUCCESS);
      ExpectGrayFields(made, bits);
      uint32_t least = UINT32_MAX, most = 0;
      for (uint32_t row = 0; row < 9; ++row) {
        Bytes got = Row(made, row);
        const Bytes wanted = Expected(source, row, bits);
        for (size_t i = 0; bits == 32 && i < wanted.size(); i += 4) {
          uint32_t value;
          std::memcpy(&value, &wanted[i], 4);
          least = std::min(least, value), most = std::max(most, value);
        }
        got.resize(wanted.size());
        ASSERT_EQ(got, wanted) << "row " << row;
      }
      if (bits == 32) {
        EXPECT_EQ(static_cast<uint32_t>(made.MinValue), least);
        EXPECT_EQ(static_cast<uint32_t>(made.MaxValue), most);
      }
      ASSERT_EQ(T_GrayScaleBitmap(&source, bits), SUCCESS);  // in place the same
      ExpectGrayFields(source, bits);
      for (uint32_t row = 0; row < 9; ++row) EXPECT_EQ(Row(source, row), Row(made, row));
      T_FreeBitmap(&made);
    }
  }
}

TEST(GrayScale, RangeOfTheRecordCounts) {
  Bitmap b;
  ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 3, 1, 16, T_ORDER_GRAY, nullptr, 1, nullptr, 0), SUCCESS);
  b.LowBit = 2;
  b.HighBit = 11;
  const uint16_t samples[4] = {0x0FFC, 0xF003, 0x0804, 0};
  T_PutBitmapRow(&b, samples, 0, 8);
  ASSERT_EQ(T_GrayScaleBitmap(&b, 8), SUCCESS);
  EXPECT_EQ(Row(b, 0), (Bytes{255, 0, 128, 0}));
  EXPECT_EQ(b.LowBit, 0);
  EXPECT_EQ(b.HighBit, 7);
}

TEST(GrayScale, SignedSamplesGoThroughTheTable) {
  Bitmap b;
  ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 4, 1, 16, T_ORDER_GRAY, nullptr, 1, nullptr, 0), SUCCESS);
  b.Flags |= T_FLAG_SIGNED_DATA;
  const int16_t samples[4] = {0, -1, 127, -128};
  T_PutBitmapRow(&b, samples, 0, 8);
  EXPECT_EQ(T_GrayScaleBitmap(&b, 8), ERR_SIGNED_DATA);
  const tarn::Here here = TARN_HERE;
  b.LUT = static_cast<T_PaletteEntry*>(T_GlobalAlloc(256, sizeof(T_PaletteEntry), here.line, here.file));
  for (int i = 0; i < 256; ++i)
    b.LUT[i] = {static_cast<uint8_t>(i), static_cast<uint8_t>(i), static_cast<uint8_t>(i), 0};
  b.LUTLength = 256;
  b.Flags |= T_FLAG_LUT_IN_USE;
  b.LUTLength = 257;
  EXPECT_EQ(T_GrayScaleBitmap(&b, 8), ERR_BAD_LUT_LENGTH);
  b.LUTLength = 256;
  ASSERT_EQ(T_GrayScaleBitmap(&b, 8), SUCCESS);
  EXPECT_EQ(Row(b, 0), (Bytes{128, 127, 255, 0}));
  EXPECT_FALSE(b.Flags & (T_FLAG_SIGNED_DATA | T_FLAG_LUT_IN_USE));
}

TEST(GrayScale, ThirtyTwoBitsThroughTheRecordedLimits) {
  struct Case {
    uint32_t flags;
    uint32_t least, most;
    uint32_t samples[4];
    uint16_t wanted[4];
  };
  const Case cases[] = {
      {0, 0, 0, {0, 0x12345678, 0x80000000, 0xFFFFFFFF}, {0, 0x1234, 0x8000, 0xFFFF}},
      {0, 100, 1100, {100, 1100, 600, 5000}, {0, 0xFFFF, 32767, 0xFFFF}},
      {0, 0x80000000, 0xFFFFFFFF, {5, 0x80000000, 0xC0000000, 0xFFFFFFFF}, {0, 0, 0x7FFF, 0xFFFF}},
      {T_FLAG_SIGNED_DATA, uint32_t(-10), 10, {uint32_t(-10), 0, 10, uint32_t(-99)}, {0, 32767, 0xFFFF, 0}},
      {T_FLAG_SIGNED_DATA, 7, 7, {0, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFF}, {0x8000, 0xFFFF, 0, 0x7FFF}}};
  for (const Case& c : cases) {
    for (const int bits : {16, 8}) {
      Bitmap b;
      ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 4, 1, 32, T_ORDER_GRAY, nullptr, 1, nullptr, 0), SUCCESS);
      T_PutBitmapRow(&b, c.samples, 0, 16);
      b.Flags |= c.flags;
      b.MinValue = static_cast<int32_t>(c.least);
      b.MaxValue = static_cast<int32_t>(c.most);
      ASSERT_EQ(bits == 16 ? T_Gray32To16(&b) : T_Gray32To8(&b), SUCCESS);
      ExpectGrayFields(b, bits);
      const Bytes row = Row(b, 0);
      for (size_t i = 0; i < 4; ++i) {
        const int got = bits == 16 ? row[2 * i] | row[2 * i + 1] << 8 : row[i];
        EXPECT_EQ(got, bits == 16 ? c.wanted[i] : c.wanted[i] >> 8) << c.least << ".." << c.most << " sample " << i;
      }
    }
  }
  Bitmap colored(4, 4, 32);
  T_AllocateBitmap(&colored, TYPE_CONV);
  EXPECT_EQ(T_Gray32To16(&colored), ERR_BAD_BITS_PER_PIXEL);
  EXPECT_EQ(T_Gray32To8(nullptr), ERR_NO_BITMAP);
}

TEST(GrayScale, RefusesInOrderAndKeepsACancelledBitmap) {
  Bitmap b;
  EXPECT_EQ(T_GrayScaleBitmap(nullptr, 8), ERR_NO_BITMAP);
  EXPECT_EQ(T_GrayScaleBitmap(&b, 8), ERR_NO_BITMAP);
  ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 20, 30, 4, 0, nullptr, 1, nullptr, 0), SUCCESS);
  EXPECT_EQ(T_GrayScaleBitmap(&b, 9), ERR_BAD_BITS_PER_PIXEL);
  BitmapHandle made;
  EXPECT_EQ(T_CreateGrayScaleBitmap(nullptr, &b, 8, 212), ERR_NO_BITMAP);
  EXPECT_EQ(T_CreateGrayScaleBitmap(&made, nullptr, 8, 212), ERR_NO_BITMAP);
  EXPECT_EQ(T_CreateGrayScaleBitmap(&made, &b, 8, 211), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_CreateGrayScaleBitmap(&b, &b, 8, 211), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_CreateGrayScaleBitmap(&made, &b, 9, 212), ERR_BAD_BITS_PER_PIXEL);
  const auto held = tarn::platform::Held();
  for (const int32_t bits : {8, 16}) {
    RefuseEachCall([&] { return T_CreateGrayScaleBitmap(&made, &b, bits, 212); },
                   [&](int32_t status, bool) {
                     EXPECT_EQ((made.Flags & T_FLAG_ALLOCATED) != 0, status == SUCCESS);
                     T_FreeBitmap(&made);
                     EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
                   });
  }
  Fill(b, 2);
  for (const int32_t answer : {0, -100, 2}) {
    for (int stop = 1; stop <= 30; ++stop) {
      struct Stop {
        int left;
        int32_t answer;
        int32_t last;
      } data{stop, answer, -1};
      const auto callback = [](int32_t percent, void* userData) {
        Stop& at = *static_cast<Stop*>(userData);
        EXPECT_GE(percent, at.last);
        at.last = percent;
        return --at.left == 0 ? at.answer : static_cast<int32_t>(SUCCESS);
      };
      T_SetStatusCallBack(callback, &data, nullptr, nullptr);
      BitmapHandle before = b;
      EXPECT_EQ(T_GrayScaleBitmap(&b, 16), answer);
      T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
      EXPECT_EQ(std::memcmp(&before, &b, sizeof before), 0);
      EXPECT_EQ(FirstDifference(b, 2, 30), -1);
    }
  }
  // The source as its own destination: in place.
  ASSERT_EQ(T_CreateGrayScaleBitmap(&made, &b, 8, 212), SUCCESS);
  ASSERT_EQ(T_CreateGrayScaleBitmap(&b, &b, 8, 212), SUCCESS);
  for (uint32_t row = 0; row < 30; ++row) EXPECT_EQ(Row(b, row), Row(made, row));
  T_FreeBitmap(&made);
}

}  // namespace
