// The record: describing, creating, locking, freeing.

#include <gtest/gtest.h>

#include "Platform/Fault.h"
#include "Scope.h"

using namespace tarn::test;

TEST(Bitmap, InitDescribesEveryDepth) {
  struct Case {
    int32_t width, bits;
    uint32_t rowBytes, colors, order;
    int32_t highBit;
  };
  const Case cases[] = {{1, 1, 4, 2, 0, 0},   {3, 24, 12, 0, 1, 7}, {5, 12, 8, 0, 2, 11}, {5, 8, 8, 256, 0, 7},
                        {9, 7, 8, 128, 0, 6}, {2, 16, 4, 0, 1, 15}, {1, 32, 4, 0, 1, -1}, {1, 48, 8, 0, 1, 15},
                        {1, 64, 8, 0, 1, 15}, {33, 1, 8, 2, 0, 0},  {8, 4, 4, 16, 0, 3}};
  for (const Case& c : cases) {
    BitmapHandle b;
    std::memset(&b, 0xAB, sizeof b);
    ASSERT_EQ(T_InitBitmap(&b, sizeof b, c.width, 3, c.bits), SUCCESS) << c.bits;
    EXPECT_EQ(b.BytesPerLine, c.rowBytes) << c.width << " x " << c.bits;
    EXPECT_EQ(V(b.Size), uint64_t{c.rowBytes} * 3);
    EXPECT_EQ(b.Colors, c.colors) << c.bits;
    EXPECT_EQ(b.Order, c.order) << c.bits;
    EXPECT_EQ(b.HighBit, c.highBit) << c.bits;
    EXPECT_EQ(b.AltHighBit, c.highBit) << c.bits;
    EXPECT_EQ(b.ViewPerspective, 4u);
    EXPECT_EQ(b.DitheringMethod, 7u);
    EXPECT_EQ(b.Percentage, 100u);
    EXPECT_EQ(b.XResolution, 150);
    EXPECT_EQ(b.Flags | b.Reserved | b.Closing | b.CachedRow, 0u);
  }
  const int32_t x = T_SetDefaultXResolution(0), y = T_SetDefaultYResolution(72);
  const Bitmap b(1, 1, 8);
  T_SetDefaultXResolution(x);
  T_SetDefaultYResolution(y);
  EXPECT_EQ(b.XResolution, 150) << "a default of none";
  EXPECT_EQ(b.YResolution, 72);
}

TEST(Bitmap, InitRefuses) {
  BitmapHandle zeroed{};
  struct Case {
    uint32_t structSize;
    int32_t width, height, bits, status;
  };
  const Case cases[] = {
      {211, 1, 1, 9, ERR_BAD_STRUCT_SIZE},
      {213, 0, 0, 0, ERR_BAD_STRUCT_SIZE},
      {212, 4, 4, 9, ERR_BAD_BITS_PER_PIXEL},
      {212, 4, 4, 0, ERR_BAD_BITS_PER_PIXEL},
      {212, 4, 4, -1, ERR_BAD_BITS_PER_PIXEL},
      {212, 65536, 65536, 32, ERR_IMAGE_TOO_LARGE},
      {212, -1, 4, 8, ERR_IMAGE_TOO_LARGE},
      {212, 4, -1, 8, ERR_IMAGE_TOO_LARGE},
      {212, INT32_MAX, 1, 64, ERR_IMAGE_TOO_LARGE},
      {212, INT32_MAX, INT32_MAX, 1, ERR_IMAGE_TOO_LARGE},
      {212, INT32_MIN, INT32_MIN, 8, ERR_IMAGE_TOO_LARGE},
  };
  for (const Case& c : cases) {
    BitmapHandle b;
    std::memset(&b, 0xAB, sizeof b);
    BitmapHandle before = b;
    EXPECT_EQ(T_InitBitmap(&b, c.structSize, c.width, c.height, c.bits), c.status) << c.width << ' ' << c.bits;
    if (c.status == ERR_BAD_STRUCT_SIZE) {
      EXPECT_EQ(std::memcmp(&b, &before, sizeof b), 0);
    } else {
      zeroed.StructSize = c.status == ERR_BAD_BITS_PER_PIXEL ? 212 : 0;
      EXPECT_EQ(std::memcmp(&b, &zeroed, sizeof b), 0) << c.status;
    }
  }
  EXPECT_EQ(T_InitBitmap(nullptr, 0, 1, 1, 1), ERR_INVALID_PARAMETER);
  BitmapHandle b;
  EXPECT_EQ(T_InitBitmap(&b, 212, 0, 0, 0), SUCCESS);
  zeroed.StructSize = 212;
  EXPECT_EQ(std::memcmp(&b, &zeroed, sizeof b), 0);
  // The largest image that the cap lets through, and one row more.
  EXPECT_EQ(T_InitBitmap(&b, 212, 65536, 65535, 8), SUCCESS);
  EXPECT_EQ(V(b.Size), T_MAX_IMAGE_BYTES);
  EXPECT_EQ(T_InitBitmap(&b, 212, 65536, 65536, 8), ERR_IMAGE_TOO_LARGE);
}

TEST(Bitmap, CopyHandle) {
  Bitmap source(3, 4, 8);
  BitmapHandle copy{};
  EXPECT_EQ(T_CopyBitmapHandle(nullptr, &source, 1), SUCCESS);
  EXPECT_EQ(T_CopyBitmapHandle(&copy, nullptr, 1), SUCCESS);
  EXPECT_EQ(T_CopyBitmapHandle(&copy, &source, 211), ERR_BAD_STRUCT_SIZE);
  source.StructSize = 211;
  EXPECT_EQ(T_CopyBitmapHandle(&copy, &source, 212), ERR_BAD_STRUCT_SIZE);
  source.StructSize = 212;
  EXPECT_EQ(T_CopyBitmapHandle(&copy, &source, 212), SUCCESS);
  EXPECT_EQ(std::memcmp(&copy, &source, sizeof copy), 0);
}

TEST(Bitmap, CreateGivesPaletteOrderAndPerspective) {
  const T_PaletteEntry own[4] = {{1, 2, 3, 4}, {5, 6, 7, 8}, {9, 10, 11, 12}, {13, 14, 15, 16}};
  {
    Bitmap b;
    ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 5, 5, 2, 1, own, 0, nullptr, 0), SUCCESS);
    EXPECT_EQ(b.ViewPerspective, 1u);
    EXPECT_EQ(b.Order, 0u);
    ASSERT_NE(V(b.Palette), nullptr);
    EXPECT_EQ(std::memcmp(V(b.Palette), own, sizeof own), 0);
  }
  {
    Bitmap b;
    ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 5, 5, 0, 1, own, 2, nullptr, 0), SUCCESS);
    EXPECT_EQ(b.BitsPerPixel, 8);
    EXPECT_EQ(b.Palette[200].Red, 200);
    EXPECT_EQ(b.Colors, 256u);
  }
  {
    Bitmap b;
    ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 5, 5, 2, 0, nullptr, 1, nullptr, 0), SUCCESS);
    EXPECT_EQ(b.Palette[1].Green, 85);
  }
  {
    Bitmap b;
    EXPECT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 5, 5, 32, T_ORDER_WIDE, nullptr, 1, nullptr, 0),
              ERR_BAD_BITS_PER_PIXEL);
    EXPECT_FALSE(b.Flags & T_FLAG_ALLOCATED);
    for (const int32_t bits : {24, 48}) {
      EXPECT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 5, 5, bits, T_ORDER_WIDE, nullptr, 1, nullptr, 0), SUCCESS);
      EXPECT_EQ(b.Order, 5u);
      EXPECT_EQ(V(b.Palette), nullptr);
      T_FreeBitmap(&b);
    }
  }
  {
    Bitmap b;
    EXPECT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 5, 5, 24, 1, nullptr, 9, nullptr, 0), ERR_INVALID_PARAMETER);
    EXPECT_TRUE(b.Flags & T_FLAG_ALLOCATED);
    EXPECT_EQ(b.ViewPerspective, 9u);
  }
  EXPECT_EQ(T_CreateBitmap(nullptr, 212, 1, 1, 1, 1, 0, nullptr, 0, nullptr, 0), ERR_INVALID_PARAMETER);
  BitmapHandle b{};
  EXPECT_EQ(T_CreateBitmap(&b, 211, 1, 1, 1, 1, 0, nullptr, 0, nullptr, 0), ERR_BAD_STRUCT_SIZE);
}

TEST(Bitmap, CallerMemoryIsUsedAndNeverFreed) {
  std::vector<uint8_t> pixels(16 * 4, 7);
  Bitmap b;
  ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_USER, 4, 4, 32, 1, nullptr, 1, pixels.data(), pixels.size()), SUCCESS);
  EXPECT_EQ(V(b.Data), pixels.data());
  const uint32_t word = 0x04030201;
  EXPECT_EQ(T_PutBitmapRowCol(&b, &word, 1, 1, 4), 4);
  EXPECT_EQ(pixels[16 + 4], 1);
  EXPECT_EQ(T_ChangeBitmapHeight(&b, 3), ERR_INVALID_PARAMETER);
  // A caller-memory bitmap takes any pointer; another one only its own size.
  EXPECT_EQ(T_SetBitmapDataPointer(&b, pixels.data(), 1), SUCCESS);
  Bitmap c(4, 4, 32);
  EXPECT_EQ(T_SetBitmapDataPointer(&c, pixels.data(), 63), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetBitmapDataPointer(nullptr, nullptr, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetBitmapDataPointer(&c, pixels.data(), 64), SUCCESS);
  EXPECT_EQ(V(c.Data), pixels.data());
  Bitmap later;  // its memory comes later
  EXPECT_EQ(T_CreateBitmap(&later, 212, TYPE_USER, 4, 4, 32, 1, nullptr, 1, nullptr, 0), SUCCESS);
  EXPECT_EQ(V(later.Data), nullptr);
  c.StructSize = 1;
  EXPECT_EQ(T_SetBitmapDataPointer(&c, nullptr, 0), ERR_BAD_STRUCT_SIZE);
  T_FreeBitmap(&b);
  EXPECT_FALSE(b.Flags & (T_FLAG_ALLOCATED | T_FLAG_USER_DATA | T_FLAG_IN_MEMORY));
  EXPECT_EQ(pixels[0], 7);
}

TEST(Bitmap, LocksOfMovableBlocksNest) {
  const uint64_t block = T_OsAllocHandle(T_BLOCK_MOVABLE | T_BLOCK_ZERO, 64, 1, L"here");
  ASSERT_NE(block, 0u);
  Bitmap b(4, 4, 32);
  ASSERT_EQ(T_AllocateBitmap(&b, TYPE_USER), SUCCESS);
  b.MemoryHandle = block;
  b.Flags |= T_FLAG_HANDLE_DATA;
  uint8_t line[16] = {};
  EXPECT_EQ(T_GetBitmapRow(&b, line, 0, 16), ERR_NO_BITMAP);  // not locked: no pixels to be had
  const int32_t outer = T_LockBitmap(&b);
  const int32_t inner = T_LockBitmap(&b);
  EXPECT_EQ(outer, 0);
  EXPECT_EQ(inner, 1);
  ASSERT_NE(V(b.Data), nullptr);
  EXPECT_EQ(T_GetBitmapRow(&b, line, 0, 16), 16);
  const BitmapHandle locked = b;
  T_AccessBitmap(&b);
  EXPECT_EQ(std::memcmp(&locked, static_cast<BitmapHandle*>(&b), sizeof locked), 0);
  T_UnlockBitmap(&b, inner);
  EXPECT_TRUE(b.Flags & T_FLAG_LOCKED);
  T_UnlockBitmap(&b, outer);
  EXPECT_FALSE(b.Flags & T_FLAG_LOCKED);
  EXPECT_EQ(V(b.Data), nullptr);
  EXPECT_EQ(T_LockBitmap(nullptr), 0);
  T_AccessBitmap(nullptr);
  T_ReleaseBitmap(nullptr);
  // What says that it is locked and cannot be.
  Bitmap plain(4, 4, 32);
  ASSERT_EQ(T_AllocateBitmap(&plain, TYPE_CONV), SUCCESS);
  plain.Flags |= T_FLAG_LOCKED;
  const BitmapHandle before = plain;
  T_ReleaseBitmap(&plain);
  EXPECT_EQ(std::memcmp(&before, static_cast<BitmapHandle*>(&plain), sizeof before), 0);
  T_OsFreeHandle(block, 1, L"here");
}

TEST(Bitmap, HandleBlockOfTheBitmapIsResizedAndFreed) {
  const auto before = tarn::platform::Held();
  {
    Bitmap b(4, 4, 32);
    ASSERT_EQ(T_AllocateBitmap(&b, TYPE_USER), SUCCESS);
    b.MemoryHandle = T_OsAllocHandle(T_BLOCK_MOVABLE | T_BLOCK_ZERO, 64, 1, L"here");
    b.Flags = (b.Flags | T_FLAG_HANDLE_DATA) & ~static_cast<uint32_t>(T_FLAG_USER_DATA);  // given to the library
    const int32_t lock = T_LockBitmap(&b);
    Fill(b, 3);
    EXPECT_EQ(T_ChangeBitmapHeight(&b, 9), ERR_INVALID_PARAMETER);  // locked
    T_UnlockBitmap(&b, lock);
    ASSERT_EQ(T_ChangeBitmapHeight(&b, 9), SUCCESS);
    EXPECT_EQ(V(b.Size), 16u * 9);
    T_LockBitmap(&b);
    EXPECT_EQ(FirstDifference(b, 3, 4), -1);
    EXPECT_EQ(Row(b, 8), std::vector<uint8_t>(16, 0));
  }
  EXPECT_TRUE(SameHeld(before, tarn::platform::Held()));
}

TEST(Bitmap, DamagedOffsetsLeadNowhere) {
  for (const uint64_t offset : {uint64_t{1}, uint64_t{65}, ~uint64_t{}, ~uint64_t{} - 63, uint64_t{1} << 63}) {
    Bitmap movable(4, 4, 32);
    ASSERT_EQ(T_AllocateBitmap(&movable, TYPE_USER), SUCCESS);
    movable.MemoryHandle = T_OsAllocHandle(T_BLOCK_MOVABLE | T_BLOCK_ZERO, 64, 1, L"here");
    movable.Flags = (movable.Flags | T_FLAG_HANDLE_DATA) & ~static_cast<uint32_t>(T_FLAG_USER_DATA);
    movable.DataOffset = offset;
    EXPECT_EQ(T_LockBitmap(&movable), 0);
    EXPECT_EQ(V(movable.Data), nullptr) << offset;
    if (offset > 64) {
      EXPECT_EQ(T_ChangeBitmapHeight(&movable, 9), ERR_INVALID_PARAMETER) << offset;
    }

    Bitmap block(40, 9, 8);
    ASSERT_EQ(T_AllocateBitmap(&block, TYPE_CONV), SUCCESS);
    Fill(block, 5);
    block.DataOffset = offset;
    ASSERT_EQ(T_ChangeBitmapHeight(&block, 20), SUCCESS);
    EXPECT_EQ(FirstDifference(block, 5, 9), -1) << offset;
    EXPECT_EQ(Row(block, 19), std::vector<uint8_t>(40, 0)) << offset;
  }
}

// A damaged record's pointer may name what is no block, or no storage at all: neither is taken for one.
TEST(Bitmap, ForeignPointersAreNoBlocks) {
  const ThresholdScope scope;
  T_SetMemoryThresholds(0, 0x7FFFFFFF, 100, 0, 1, 31);
  Bitmap b(40, 9, 8), tiled(40, 9, 8);
  ASSERT_EQ(T_AllocateBitmap(&b, TYPE_NOTILED), SUCCESS);
  ASSERT_EQ(T_AllocateBitmap(&tiled, TYPE_TILED), SUCCESS);
  Fill(b, 5);
  Fill(tiled, 6);
  std::vector<uint8_t> memory(360, 7);
  const auto held = tarn::platform::Held();
  for (uint8_t* const foreign : {memory.data(), V(tiled.Data)}) {
    BitmapHandle damaged = b;
    damaged.Data = foreign;
    EXPECT_EQ(T_ChangeBitmapHeight(&damaged, 20), ERR_NO_MEMORY);
    damaged.GrayParams = nullptr;
    T_FreeBitmap(&damaged);
    EXPECT_EQ(damaged.Flags & T_FLAG_ALLOCATED, 0u);
    EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
  }
  EXPECT_EQ(FirstDifference(b, 5, 9), -1);
  EXPECT_EQ(FirstDifference(tiled, 6, 9), -1);
  EXPECT_EQ(memory, std::vector<uint8_t>(360, 7));
}

TEST(Bitmap, DiskRowsSurviveAFailedGrowthWhateverSizeSays) {
  for (const uint64_t size : {uint64_t{0}, uint64_t{41}, uint64_t{40} * 9, ~uint64_t{}}) {
    Bitmap b(40, 9, 8);
    ASSERT_EQ(T_AllocateBitmap(&b, TYPE_DISK), SUCCESS);
    Fill(b, 8);
    b.Size = size;
    tarn::fault::Arm({.first = 1, .last = 1, .points = Mask(tarn::fault::Point::kSize)});
    EXPECT_EQ(T_ChangeBitmapHeight(&b, 100), ERR_NO_MEMORY);
    tarn::fault::Disarm();
    EXPECT_EQ(FirstDifference(b, 8, 9), -1) << size;
    EXPECT_EQ(T_ChangeBitmapHeight(&b, 100), SUCCESS);
    EXPECT_EQ(FirstDifference(b, 8, 9), -1) << size;
  }
}

TEST(Bitmap, FreeReturnsToTheDescribedState) {
  Bitmap b;
  ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 40, 9, 8, 0, nullptr, 3, nullptr, 0), SUCCESS);
  T_FreeBitmap(&b);
  EXPECT_EQ(b.Flags & (T_FLAG_ALLOCATED | T_FLAG_IN_MEMORY), 0u);
  EXPECT_EQ(V(b.Palette), nullptr);
  EXPECT_EQ(V(b.GrayParams), nullptr);
  EXPECT_EQ(V(b.Data), nullptr);
  EXPECT_EQ(b.Width, 40);
  EXPECT_EQ(b.ViewPerspective, 3u);
  for (const uint32_t type : {TYPE_CONV, TYPE_DISK}) {
    ASSERT_EQ(T_AllocateBitmap(&b, type), SUCCESS);  // a freed record takes storage again
    Fill(b, type);
    EXPECT_EQ(FirstDifference(b, type, 9), -1);
    T_FreeBitmap(&b);
  }
  T_FreeBitmap(nullptr);
  b.StructSize = 3;
  T_FreeBitmap(&b);
  b.StructSize = 212;
  Bitmap one(70, 9, 1);
  ASSERT_EQ(T_AllocateBitmap(&one, TYPE_COMPRESSED), SUCCESS);
  Fill(one, 1);
  T_FreeBitmap(&one);
  EXPECT_TRUE(one.Flags & T_FLAG_IN_MEMORY);  // stays with these kinds
  EXPECT_EQ(V(one.Size), 12u * 9);
}
