// Drawing into bitmaps by GDI, on Windows and under Wine without a display.
#include <gtest/gtest.h>

#include <cstring>

#include "engine/Picture.h"
#include "tarn/tarn.h"
#include "tarn/windows.h"

namespace {

using tarn::engine::Kind;
using tarn::engine::Picture;

#if defined(_WIN32)

constexpr int32_t kWidth = 23, kHeight = 14;

RECT lastChanged;
void Remember(BitmapHandle*, const RECT* rectangle) { lastChanged = *rectangle; }
int32_t RefuseRegion(uint64_t) { return ERR_NO_MEMORY; }
uint64_t deletedRegion;
int32_t DeleteRegion(uint64_t region) {
  deletedRegion = region;
  return SUCCESS;
}

#endif

TEST(WinInterop, DrawingLandsInTheBitmap) {
#if !defined(_WIN32)
  GTEST_SKIP() << "Windows only";
#else
  const T_DisDispatch display{sizeof display, 0, nullptr, Remember};
  T_SetDisDispatch(&display);
  for (const int32_t bits : {1, 4, 8, 12, 16, 24, 32, 48, 64}) {
    for (const Kind kind : {Kind::kBlock, Kind::kMixedTiles, Kind::kDisk}) {
      for (const uint32_t perspective : {1u, 4u, 6u}) {
        Picture picture, before;
        const bool turned = perspective == 6;
        const tarn::engine::Shape shape{turned ? kHeight : kWidth, turned ? kWidth : kHeight, bits};
        picture.Make(kind, shape, 5);
        before.Make(Kind::kBlock, shape, 5);
        BitmapHandle* const bitmap = &picture.record;
        bitmap->ViewPerspective = before.record.ViewPerspective = perspective;
        if (bits <= 8) T_CreateBitmapGrayPalette(bitmap), T_CreateBitmapGrayPalette(&before.record);
        SCOPED_TRACE(testing::Message() << bits << " bits, perspective " << perspective);
        HDC dc = nullptr;
        ASSERT_EQ(T_CreateTarnDC(bitmap, &dc), SUCCESS);
        lastChanged = {};
        const RECT filled{3, 2, 9, 7};
        EXPECT_NE(FillRect(dc, &filled, static_cast<HBRUSH>(GetStockObject(WHITE_BRUSH))), 0);
        EXPECT_NE(FillRect(dc, &filled, static_cast<HBRUSH>(GetStockObject(BLACK_BRUSH))), 0);
        SetPixel(dc, 4, 4, RGB(255, 255, 255));
        ASSERT_EQ(T_DeleteTarnDC(dc), SUCCESS);
        EXPECT_GE(lastChanged.left, 3);
        EXPECT_LE(lastChanged.bottom, 7);
        for (int32_t y = 0; y < kHeight; ++y) {
          for (int32_t x = 0; x < kWidth; ++x) {
            int32_t column = x, row = y;
            T_PointToBitmap(bitmap, 1, &column, &row);
            uint8_t got[8] = {}, was[8] = {};
            ASSERT_EQ(T_GetPixelData(bitmap, got, row, column, 8), SUCCESS);
            ASSERT_EQ(T_GetPixelData(&before.record, was, row, column, 8), SUCCESS);
            const bool inside = x >= 3 && x < 9 && y >= 2 && y < 7;
            if (!inside && bits >= 8 && bits != 12) {
              ASSERT_EQ(std::memcmp(got, was, 8), 0) << x << ',' << y;
            } else {
              const uint32_t wanted = !inside            ? T_GetPixelColor(&before.record, row, column)
                                      : x == 4 && y == 4 ? bits == 12 ? 0x0400FFFFu : 0xFFFFFFu
                                      : bits == 12       ? 0x04000000u
                                                         : 0u;
              ASSERT_EQ(T_GetPixelColor(bitmap, row, column), wanted) << x << ',' << y;
            }
          }
        }
      }
    }
  }
  T_SetDisDispatch(nullptr);
#endif
}

TEST(WinInterop, ContextsThatAreNotOurs) {
#if !defined(_WIN32)
  GTEST_SKIP() << "Windows only";
#else
  const HDC other = CreateCompatibleDC(nullptr);
  EXPECT_EQ(T_UpdateTarnDC(other), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_DeleteTarnDC(other), ERR_INVALID_PARAMETER);
  DeleteDC(other);
  HDC dc = other;
  EXPECT_EQ(T_CreateTarnDC(nullptr, &dc), ERR_INVALID_PARAMETER);
  EXPECT_EQ(dc, nullptr);
  Picture picture;
  picture.Make(Kind::kBlock, {5, 5, 24}, 1);
  EXPECT_EQ(T_CreateTarnDC(&picture.record, nullptr), ERR_INVALID_PARAMETER);
  ASSERT_EQ(T_CreateTarnDC(&picture.record, &dc), SUCCESS);
  EXPECT_EQ(T_UpdateTarnDC(dc), SUCCESS) << "nothing drawn";
  T_FreeBitmap(&picture.record);
  EXPECT_EQ(T_DeleteTarnDC(dc), ERR_NO_BITMAP);
  EXPECT_EQ(T_DeleteTarnDC(dc), ERR_INVALID_PARAMETER) << "gone all the same";
#endif
}

TEST(WinInterop, RegionsGoThroughTheDisplay) {
#if !defined(_WIN32)
  GTEST_SKIP() << "Windows only";
#else
  BitmapHandle bitmap;
  T_InitBitmap(&bitmap, sizeof bitmap, 4, 4, 8);
  bitmap.Region = 77;
  EXPECT_EQ(T_DeleteTarnRgn(nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_DeleteTarnRgn(&bitmap), ERR_NO_DISPATCH);
  const T_DisDispatch refusing{sizeof refusing, 0, RefuseRegion, nullptr};
  const T_DisDispatch deleting{sizeof deleting, 0, DeleteRegion, nullptr};
  const T_DisDispatch wrong{sizeof wrong - 1, 0, DeleteRegion, nullptr};
  EXPECT_EQ(T_SetDisDispatch(&refusing), nullptr);
  EXPECT_EQ(T_DeleteTarnRgn(&bitmap), ERR_NO_MEMORY);
  EXPECT_TRUE(bitmap.Region == 77);
  EXPECT_EQ(T_SetDisDispatch(&wrong), nullptr);
  EXPECT_EQ(T_SetDisDispatch(&deleting), &refusing);
  EXPECT_EQ(T_DeleteTarnRgn(&bitmap), SUCCESS);
  EXPECT_EQ(deletedRegion, 77u);
  EXPECT_TRUE(bitmap.Region == 0);
  EXPECT_EQ(T_DeleteTarnRgn(&bitmap), SUCCESS);
  T_SetDisDispatch(nullptr);
#endif
}

}  // namespace
