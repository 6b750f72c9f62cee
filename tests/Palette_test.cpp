// Fixed tables, gray ramps and the palette a bitmap owns.

#include <gtest/gtest.h>

#include "Scope.h"

using namespace tarn::test;

namespace {
uint32_t Rgb(const T_PaletteEntry& e) { return static_cast<uint32_t>(e.Red << 16 | e.Green << 8 | e.Blue); }
}  // namespace

TEST(Palette, FixedTables) {
  const struct {
    uint32_t bits, index, rgb;
  } samples[] = {{1, 1, 0xFFFFFF},    {2, 1, 0x555555},    {2, 2, 0xAAAAAA},    {3, 4, 0xFF0000},
                 {3, 3, 0x00FFFF},    {4, 8, 0xC0C0C0},    {4, 5, 0x800080},    {4, 9, 0xFF0000},
                 {5, 27, 0xFF55FF},   {6, 0x1B, 0x55AAFF}, {7, 0x25, 0x552455}, {7, 0x7F, 0xFFFFFF},
                 {8, 0x53, 0x4992FF}, {8, 0xFF, 0xFFFFFF}, {8, 0x20, 0x240000}};
  for (const auto& s : samples) {
    EXPECT_EQ(Rgb(T_IntGetFixedPalette(s.bits)[s.index]), s.rgb) << s.bits << ' ' << s.index;
    T_PaletteEntry copy[256];
    ASSERT_EQ(T_GetFixedPalette(copy, s.bits), SUCCESS);
    EXPECT_EQ(Rgb(copy[s.index]), s.rgb);
  }
  EXPECT_EQ(Rgb(T_IntGetNetscapePalette()[36 * 2 + 6 * 3 + 4]), 0x6699CCu);
  EXPECT_EQ(T_IntGetFixedPalette(0), nullptr);
  EXPECT_EQ(T_IntGetFixedPalette(9), nullptr);
  T_PaletteEntry ramp[256];
  EXPECT_EQ(T_GetFixedPalette(ramp, 0), SUCCESS);
  EXPECT_EQ(Rgb(ramp[77]), 0x4D4D4Du);
  EXPECT_EQ(T_GetFixedPalette(nullptr, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetFixedPalette(ramp, 9), ERR_INVALID_PARAMETER);
}

TEST(Palette, CreatorsGiveOwnBlocks) {
  T_PaletteEntry* const black = T_CreateFixedPalette(0);
  ASSERT_NE(black, nullptr);
  EXPECT_EQ(Rgb(black[1]), 0xFFFFFFu);
  T_PaletteEntry* const ramp = T_CreateGrayPalette(3);
  EXPECT_EQ(Rgb(ramp[1]), 0x242424u);  // 255 / 7, truncated
  T_PaletteEntry* const copy = T_CreateNewPalette(ramp, 8);
  EXPECT_EQ(std::memcmp(copy, ramp, 32), 0);
  for (T_PaletteEntry* p : {black, ramp, copy}) T_GlobalFree(p, 1, L"here");
  EXPECT_EQ(T_CreateFixedPalette(9), nullptr);
  EXPECT_EQ(T_CreateNewPalette(ramp, 257), nullptr);
  EXPECT_EQ(T_CreateNewPalette(nullptr, 2), nullptr);
  EXPECT_EQ(T_CreateNewPalette(copy, 0), nullptr);
}

TEST(Palette, OfABitmap) {
  Bitmap b(4, 4, 2);
  ASSERT_EQ(T_AllocateBitmap(&b, 1), SUCCESS);
  T_PaletteEntry got[4] = {};
  EXPECT_EQ(T_GetBitmapColors(&b, 0, 4, got), ERR_INVALID_PARAMETER);  // no palette
  ASSERT_EQ(T_CreateBitmapFixedPalette(&b), SUCCESS);
  EXPECT_EQ(Rgb(b.Palette[1]), 0xFFFFFFu);  // black, white, black, black
  EXPECT_EQ(Rgb(b.Palette[2]) | Rgb(b.Palette[3]), 0u);
  EXPECT_EQ(b.Palette[3].Reserved, 128);
  const T_PaletteEntry two[2] = {{1, 2, 3, 4}, {5, 6, 7, 8}};
  EXPECT_EQ(T_PutBitmapColors(&b, 2, 2, two), SUCCESS);
  EXPECT_EQ(T_PutBitmapColors(&b, 3, 2, two), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_PutBitmapColors(&b, -1, 1, two), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_PutBitmapColors(&b, 1, ~0u, two), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapColors(&b, 2, 2, got), SUCCESS);
  EXPECT_EQ(std::memcmp(got, two, sizeof two), 0);
  EXPECT_EQ(T_GetBitmapColors(&b, 2, 3, got), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapColors(&b, 0, 0, got), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapPaletteEntries(&b, 3, 99, got), 1u);
  EXPECT_EQ(T_GetBitmapPaletteEntries(&b, 4, 1, got), 0u);
  EXPECT_EQ(T_SetBitmapNewPalette(&b, b.Palette + 2, 2), SUCCESS);  // from itself
  EXPECT_EQ(b.Colors, 2u);
  EXPECT_EQ(std::memcmp(V(b.Palette), two, sizeof two), 0);
  EXPECT_EQ(T_SetBitmapNewPalette(&b, two, 300), 0);
  EXPECT_EQ(V(b.Palette), nullptr);
  EXPECT_EQ(b.Colors, 300u);
  b.Colors = 4;
  EXPECT_EQ(T_PutBitmapColors(&b, 1, 1, two), SUCCESS);  // a zeroed palette is made first
  EXPECT_EQ(Rgb(b.Palette[0]), 0u);
  EXPECT_EQ(T_SetBitmapNewPalette(&b, nullptr, 7), SUCCESS);
  EXPECT_EQ(b.Colors, 4u);
  b.Colors = 5;
  EXPECT_EQ(T_CreateBitmapFixedPalette(&b), 0);
  Bitmap deep(4, 4, 16);
  EXPECT_EQ(T_CreateBitmapGrayPalette(&deep), ERR_BAD_BITS_PER_PIXEL);
  EXPECT_EQ(T_PutBitmapColors(&deep, 0, 0, two), ERR_NO_BITMAP);
}

TEST(Palette, CopyBetweenBitmaps) {
  Bitmap from;
  Bitmap to(4, 4, 8);
  ASSERT_EQ(T_CreateBitmap(&from, 212, 1, 4, 4, 4, 0, nullptr, 1, nullptr, 0), SUCCESS);
  EXPECT_EQ(T_CopyBitmapPalette(&from, &from), SUCCESS);
  EXPECT_EQ(T_CopyBitmapPalette(nullptr, &from), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CopyBitmapPalette(&to, &from), SUCCESS);
  EXPECT_EQ(to.Colors, 16u);
  EXPECT_NE(V(to.Palette), V(from.Palette));
  Bitmap none(4, 4, 24);
  EXPECT_EQ(T_CopyBitmapPalette(&to, &none), SUCCESS);
  EXPECT_EQ(to.Colors, 0u);
  EXPECT_EQ(V(to.Palette), nullptr);
}
