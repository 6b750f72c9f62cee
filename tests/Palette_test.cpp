// Fixed tables, gray ramps and the palette a bitmap owns.

#include <gtest/gtest.h>

#include <algorithm>

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
  EXPECT_EQ(T_CreateGrayPalette(9), nullptr);
  T_PaletteEntry* const full = T_CreateGrayPalette(0);  // of 8 bits
  EXPECT_EQ(Rgb(full[255]), 0xFFFFFFu);
  T_GlobalFree(full, 1, L"here");
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
  ASSERT_EQ(T_AllocateBitmap(&deep, 1), SUCCESS);
  EXPECT_EQ(T_PutBitmapColors(&deep, 0, 0, two), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapColors(&deep, 0, 1, got), ERR_INVALID_PARAMETER);
  deep.BitsPerPixel = 0;
  EXPECT_EQ(T_CreateBitmapGrayPalette(&deep), ERR_BAD_BITS_PER_PIXEL);
  EXPECT_EQ(T_CreateBitmapGrayPalette(nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CreateBitmapFixedPalette(nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_PutBitmapColors(&b, 0, 1, nullptr), ERR_INVALID_PARAMETER);
  b.Colors = 257;  // no palette is as long, and none is there
  EXPECT_EQ(T_PutBitmapColors(&b, 0, 1, two), ERR_INVALID_PARAMETER);
  ASSERT_EQ(T_SetBitmapNewPalette(&b, two, 2), SUCCESS);
  b.Colors = 4;  // more than the block holds
  EXPECT_EQ(T_PutBitmapColors(&b, 2, 1, two), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapPaletteEntries(&b, 0, 4, got), 2u);
  EXPECT_EQ(T_GetBitmapPaletteEntries(&b, 0, 4, nullptr), 0u);
  EXPECT_EQ(T_GetBitmapPaletteEntries(nullptr, 0, 4, got), 0u);
}

TEST(Palette, CopyBetweenBitmaps) {
  Bitmap from;
  Bitmap to(4, 4, 8);
  ASSERT_EQ(T_CreateBitmap(&from, 212, 1, 4, 4, 4, 0, nullptr, 1, nullptr, 0), SUCCESS);
  EXPECT_EQ(T_CopyBitmapPalette(&from, &from), SUCCESS);
  EXPECT_EQ(T_CopyBitmapPalette(nullptr, &from), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CopyBitmapPalette(&to, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CopyBitmapPalette(&to, &from), SUCCESS);
  EXPECT_EQ(to.Colors, 16u);
  EXPECT_NE(V(to.Palette), V(from.Palette));
  Bitmap none(4, 4, 24);
  EXPECT_EQ(T_CopyBitmapPalette(&to, &none), SUCCESS);
  EXPECT_EQ(to.Colors, 0u);
  EXPECT_EQ(V(to.Palette), nullptr);
}

namespace {

T_PaletteEntry Gray(int level) {
  const auto byte = static_cast<uint8_t>(level);
  return {byte, byte, byte, 0};
}

T_PaletteEntry Colored(int red, int green, int blue, int reserved = 0) {
  return {static_cast<uint8_t>(blue), static_cast<uint8_t>(green), static_cast<uint8_t>(red),
          static_cast<uint8_t>(reserved)};
}

/// A 16-bit gray bitmap with a table of its own.
void GiveLut(Bitmap& bitmap, uint32_t length) {
  bitmap.LUT = static_cast<T_PaletteEntry*>(T_GlobalAllocInit(length, sizeof(T_PaletteEntry), 1, L"here"));
  bitmap.LUTLength = length;
  bitmap.Flags |= T_FLAG_LUT_IN_USE;
}

}  // namespace

TEST(Palette, GrayClasses) {
  for (uint32_t bits = 1; bits <= 8; ++bits) {
    T_PaletteEntry* const ramp = T_CreateGrayPalette(bits);
    const bool divides = bits == 1 || bits == 2 || bits == 4 || bits == 8;
    EXPECT_EQ(T_IsGrayScalePalette(ramp, 1u << bits), divides ? 1 : 3) << bits;
    std::reverse(ramp, ramp + (1u << bits));
    EXPECT_EQ(T_IsGrayScalePalette(ramp, 1u << bits), divides ? 2 : 3) << bits;
    ramp[(1u << bits) - 1].Reserved = 9;
    EXPECT_NE(T_IsGrayScalePalette(ramp, 1u << bits), 0) << "reserved bytes do not count";
    ramp[1].Blue ^= 1;
    EXPECT_EQ(T_IsGrayScalePalette(ramp, 1u << bits), 0) << bits;
    T_GlobalFree(ramp, 1, L"here");
  }
  const struct { int level, kind; } single[] = {{0, 1}, {1, 3}, {254, 3}, {255, 2}};
  for (const auto& s : single) {
    const T_PaletteEntry entry = Gray(s.level);
    EXPECT_EQ(T_IsGrayScalePalette(&entry, 1), s.kind);
    EXPECT_EQ(T_IsGrayScalePalette(&entry, 0), s.kind);
  }
  const T_PaletteEntry gap[] = {Gray(0), Gray(127), Gray(254)};  // truncated steps are those that count
  EXPECT_EQ(T_IsGrayScalePalette(gap, 3), 1);
  EXPECT_EQ(T_IsGrayScalePalette(nullptr, 3), ERR_INVALID_PARAMETER);
}

TEST(Palette, GrayBitmaps) {
  Bitmap b;
  ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 4, 4, 0, 0, nullptr, 1, nullptr, 0), SUCCESS);
  EXPECT_EQ(T_IsGrayScaleBitmap(&b), 1);
  b.Colors = 255;
  EXPECT_EQ(T_IsGrayScaleBitmap(&b), 3) << "not all colours of its depth";
  b.Colors = 257;
  EXPECT_EQ(T_IsGrayScaleBitmap(&b), 0) << "more than there are";
  b.Colors = 256;
  b.Palette[7].Red = 99;
  EXPECT_EQ(T_IsGrayScaleBitmap(&b), 0);
  EXPECT_EQ(T_IsGrayScaleBitmap(nullptr), ERR_INVALID_PARAMETER);
  b.StructSize = 211;
  EXPECT_EQ(T_IsGrayScaleBitmap(&b), ERR_BAD_STRUCT_SIZE);
  b.StructSize = 212;
  const Bitmap deep(4, 4, 24);
  EXPECT_EQ(T_IsGrayScaleBitmap(&deep), 0);

  Bitmap gray(4, 4, 16);
  gray.Order = T_ORDER_GRAY;
  ASSERT_EQ(T_AllocateBitmap(&gray, TYPE_CONV), SUCCESS);
  EXPECT_EQ(T_IsGrayScaleBitmap(&gray), 1);
  gray.LUTLength = 1;
  EXPECT_EQ(T_IsGrayScaleBitmap(&gray), ERR_BAD_LUT_LENGTH);
  gray.LowBit = 2;
  gray.HighBit = 4;  // eight values
  GiveLut(gray, 8);
  EXPECT_EQ(T_IsGrayScaleBitmap(&gray), 1);
  gray.LUT[0] = Gray(255);
  EXPECT_EQ(T_IsGrayScaleBitmap(&gray), 2);
  gray.LUT[4] = Gray(7);
  gray.Flags |= T_FLAG_SIGNED_DATA;
  EXPECT_EQ(T_IsGrayScaleBitmap(&gray), 3) << "the entry of sample value 0 lies in the middle";
  gray.LUT[7].Green = 1;
  EXPECT_EQ(T_IsGrayScaleBitmap(&gray), 0);
  gray.Flags &= ~uint32_t{T_FLAG_LUT_IN_USE};
  EXPECT_EQ(T_IsGrayScaleBitmap(&gray), 1);
  gray.LUTLength = 7;
  EXPECT_EQ(T_IsGrayScaleBitmap(&gray), ERR_BAD_LUT_LENGTH);
  gray.LUTLength = 65536;
  EXPECT_EQ(T_IsGrayScaleBitmap(&gray), ERR_BAD_LUT_LENGTH) << "all values of the pixel, but not all there";
}

TEST(Palette, ComparedWithABitmaps) {
  Bitmap b;
  ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 4, 4, 2, 0, nullptr, 1, nullptr, 0), SUCCESS);
  T_PaletteEntry same[5];
  ASSERT_EQ(T_GetBitmapColors(&b, 0, 4, same), SUCCESS);
  same[0].Reserved = 77;
  same[4] = Colored(1, 2, 3);
  EXPECT_EQ(T_CompareBitmapToPalette(&b, same, 5), 1) << "as many as the bitmap has";
  same[3].Green ^= 1;
  EXPECT_EQ(T_CompareBitmapToPalette(&b, same, 4), 0);
  EXPECT_EQ(T_CompareBitmapToPalette(&b, same, 3), 1);
  EXPECT_EQ(T_CompareBitmapToPalette(&b, nullptr, 3), 0);
  EXPECT_EQ(T_CompareBitmapToPalette(nullptr, same, 3), 0);
  const Bitmap none(4, 4, 24);
  EXPECT_EQ(T_CompareBitmapToPalette(&none, same, 3), 1);
}

TEST(Palette, ColorsOfAnotherBitmap) {
  const T_PaletteEntry four[] = {Colored(0, 0, 0), Colored(200, 10, 20), Colored(10, 200, 20), Colored(250, 250, 250)};
  const T_PaletteEntry other[] = {Colored(250, 250, 250), Colored(200, 10, 20, 5), Colored(0, 0, 0), Colored(9, 9, 99)};
  Bitmap to, from;
  ASSERT_EQ(T_CreateBitmap(&to, 212, TYPE_CONV, 4, 4, 2, 0, four, 1, nullptr, 0), SUCCESS);
  ASSERT_EQ(T_CreateBitmap(&from, 212, TYPE_CONV, 4, 4, 2, 0, other, 1, nullptr, 0), SUCCESS);
  Bitmap deep(4, 4, 24), gray(4, 4, 16);
  gray.Order = T_ORDER_GRAY;
  ASSERT_EQ(T_AllocateBitmap(&gray, TYPE_CONV), SUCCESS);
  const struct {
    const BitmapHandle *to, *from;
    uint32_t color, wanted;
  } cases[] = {
      {nullptr, &from, 0x01000002, 0x01000002}, {&to, &from, 0x00FFFFFF, 0x01000003},
      {&to, nullptr, 0x00140AC8, 0x01000001},   {&deep, nullptr, 0x00140AC8, 0x00140AC8},
      {&to, &from, 0x01000000, 0x01000003},  // white there is another index here
      {&to, &from, 0x01000001, 0x01000001},  // the same place, whatever is reserved
      {&to, &from, 0x01000004, 0x01000000},  // no such entry: black
      {&to, &from, 0x01FFFF01, 0x01FFFF01},  // unchanged in every bit
      {&to, nullptr, 0x01000003, 0x01000000},   {&to, &deep, 0x01000003, 0x01000000},
      {&deep, &from, 0x01000001, 0x00140AC8},   {&deep, &deep, 0x01000001, 0x00000000},
      {&to, &from, 0x0400FFFF, 0x01000003},     {&deep, &from, 0x0400ABCD, 0x00ABABAB},
      {&gray, &from, 0x0400ABCD, 0x0400ABCD},   {&gray, &from, 0x01000001, 0x00140AC8},
      {&deep, nullptr, 0x02000001, 0x02000001},
  };
  for (const auto& c : cases) EXPECT_EQ(T_TranslateBitmapColor(c.to, c.from, c.color), c.wanted) << std::hex << c.color;

  GiveLut(gray, 65536);
  gray.LUT[65535] = Colored(0xCD, 0xAB, 0);  // would be found, were it looked at
  gray.LUT[65534] = Colored(0xCD, 0xAA, 0);
  EXPECT_EQ(T_TranslateBitmapColor(&gray, nullptr, 0x0400ABCD), 0x0100FFFEu);
}

TEST(Palette, LogicalPalettes) {
  const tarn::platform::Counters before = tarn::platform::Held();
  T_PaletteEntry entries[256];
  for (int i = 0; i < 256; ++i) entries[i] = Colored(i, 255 - i, i / 2, i == 3 ? 4 : 0);
  const T_LogicalPalette palette = T_CreatePalette(entries, 200);
  ASSERT_NE(palette, nullptr);
  EXPECT_EQ(T_GetPaletteSize(palette), 200u);
  T_PaletteEntry got[300];
  EXPECT_EQ(T_GetPaletteEntries(palette, 0, 300, got), 200u);
  EXPECT_EQ(std::memcmp(got, entries, 800), 0);
  EXPECT_EQ(T_GetPaletteEntries(palette, 198, 5, got), 2u);
  EXPECT_EQ(Rgb(got[1]), Rgb(entries[199]));
  EXPECT_EQ(T_GetPaletteEntries(palette, 200, 1, got), 0u);
  EXPECT_EQ(T_GetPaletteEntries(palette, ~0u, ~0u, got), 0u);
  EXPECT_EQ(T_GetPaletteEntries(palette, 0, 1, nullptr), 0u);
  EXPECT_EQ(T_SetPaletteEntries(palette, 199, ~0u, entries), 1u);
  EXPECT_EQ(T_SetPaletteEntries(palette, 200, 1, entries), 0u);
  EXPECT_EQ(T_SetPaletteEntries(palette, 0, 1, nullptr), 0u);
  const T_LogicalPalette full = T_CreatePalette(entries, 256);  // as long as any
  EXPECT_EQ(T_GetPaletteEntries(full, 0, 256, got), 256u);
  EXPECT_EQ(T_GetPaletteEntries(full, 0, 300, got), 256u);
  EXPECT_EQ(std::memcmp(got, entries, sizeof entries), 0);
  EXPECT_EQ(T_DeletePalette(full), 1);
  const T_LogicalPalette copy = T_DupPalette(palette);
  EXPECT_NE(copy, palette);
  EXPECT_EQ(T_GetPaletteEntries(copy, 199, 1, got), 1u);
  EXPECT_EQ(Rgb(got[0]), Rgb(entries[0]));

  Bitmap b(4, 4, 8);
  EXPECT_EQ(T_DupBitmapPalette(&b), nullptr);
  EXPECT_EQ(T_GetNearestPaletteIndex(&b, 0xFFFFFF), 0u);
  ASSERT_EQ(T_SetBitmapPalette(&b, copy), SUCCESS);
  EXPECT_EQ(b.Colors, 200u);
  EXPECT_EQ(Rgb(b.Palette[150]), Rgb(entries[150]));
  const T_LogicalPalette third = T_DupBitmapPalette(&b);
  EXPECT_EQ(T_GetPaletteSize(third), 200u);
  for (const T_LogicalPalette each : {palette, copy, third}) {
    EXPECT_EQ(T_DeletePalette(each), 1);
    EXPECT_EQ(T_DeletePalette(each), 0) << "is gone";
    EXPECT_EQ(T_GetPaletteSize(each), 0u);
    EXPECT_EQ(T_SetBitmapPalette(&b, each), ERR_INVALID_PARAMETER);
  }
  EXPECT_EQ(tarn::platform::Held().palettes, before.palettes);

  // What is no palette, and counts that none has.
  for (const T_LogicalPalette none : {T_LogicalPalette{}, static_cast<T_LogicalPalette>(entries),
                                      reinterpret_cast<T_LogicalPalette>(uintptr_t{0xDEADBEEF})}) {
    EXPECT_EQ(T_GetPaletteSize(none), 0u);
    EXPECT_EQ(T_DupPalette(none), nullptr);
    EXPECT_EQ(T_SetPaletteEntries(none, 0, 1, entries), 0u);
    EXPECT_EQ(T_GetPaletteEntries(none, 0, 1, got), 0u);
    EXPECT_EQ(T_DeletePalette(none), 0);
  }
  EXPECT_EQ(T_CreatePalette(entries, 0), nullptr);
  EXPECT_EQ(T_CreatePalette(entries, 257), nullptr);
  EXPECT_EQ(T_CreatePalette(nullptr, 2), nullptr);
  const T_LogicalPalette one = T_CreatePalette(entries, 1);
  EXPECT_EQ(T_SetBitmapPalette(&b, one), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetBitmapPalette(nullptr, one), ERR_NO_BITMAP);
  EXPECT_EQ(b.Colors, 200u);
#ifndef _WIN32
  const tarn::platform::LogicalColor color = {1, 2, 3, 0};
  EXPECT_EQ(tarn::platform::PaletteSet(nullptr, 0, 1, &color), 0u);
  EXPECT_EQ(tarn::platform::PaletteSet(one, 1, 1, &color), 0u);
  EXPECT_EQ(tarn::platform::PaletteNearest(nullptr, 0), 0u);
#endif
  T_DeletePalette(one);
  // Many at once, gone in another order.
  std::vector<T_LogicalPalette> many(700);
  for (size_t i = 0; i < many.size(); ++i) many[i] = T_CreatePalette(entries, 1 + static_cast<uint32_t>(i % 256));
  for (size_t i = 0; i < many.size(); ++i) EXPECT_EQ(T_GetPaletteSize(many[i]), 1 + i % 256);
  for (size_t i = 0; i < many.size(); ++i) EXPECT_EQ(T_DeletePalette(many[i * 3 % many.size()]), 1);
  EXPECT_EQ(tarn::platform::Held().palettes, before.palettes);
  const T_LogicalPalette screen = T_CreateSystemPalette();
  EXPECT_LE(T_GetPaletteSize(screen), 256u);
  EXPECT_EQ(T_DeletePalette(screen), screen != nullptr);  // none where nothing draws by palettes
}

TEST(Palette, NearestIndexIsTheFirstOfTies) {
  Bitmap b;
  const T_PaletteEntry four[] = {Colored(100, 40, 0), Colored(100, 60, 0, 1), Colored(0, 0, 0), Colored(0, 0, 0)};
  ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 4, 4, 2, 0, four, 1, nullptr, 0), SUCCESS);
  EXPECT_EQ(T_GetNearestPaletteIndex(&b, 0x00003264), 0u);
  EXPECT_EQ(T_GetNearestPaletteIndex(&b, 0x00003C64), 1u) << "flags do not hide an entry";
  EXPECT_EQ(T_GetNearestPaletteIndex(&b, 0x77000000), 2u);
  EXPECT_EQ(T_GetNearestPaletteIndex(nullptr, 0), 0u);
}
