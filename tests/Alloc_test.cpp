// Where pixels go: memory types, thresholds, tile layout, height, moving storage.

#include <gtest/gtest.h>

#include "Platform/Fault.h"
#include "Scope.h"

#ifndef _WIN32
#include <sys/resource.h>
#endif

using namespace tarn::test;

namespace {

// 64 rows of 1,000 bytes.
constexpr int32_t kWidth = 1000;
constexpr int32_t kHeight = 64;

void Thresholds(int64_t maxBlock, int64_t tileSize, int32_t conventional, int32_t views) {
  ASSERT_EQ(T_SetMemoryThresholds(0, maxBlock, tileSize, conventional, views, 31), SUCCESS);
}

struct Figures {
  uint32_t type, count, conventional, maxMapped, mapped;
  int64_t tileSize;
};

Figures Info(const BitmapHandle& b) {
  Figures f{};
  EXPECT_EQ(T_GetBitmapMemoryInfo(&b, &f.type, &f.tileSize, &f.count, &f.conventional, &f.maxMapped, &f.mapped),
            SUCCESS);
  return f;
}

}  // namespace

TEST(Alloc, MemoryTypes) {
  struct Case {
    int32_t bits;
    uint32_t type;
    int32_t status;
    uint32_t flags;
  };
  constexpr uint32_t kIn = T_FLAG_ALLOCATED | T_FLAG_IN_MEMORY;
  const Case cases[] = {
      {8, 1, SUCCESS, kIn},
      {8, 2, SUCCESS, kIn | T_FLAG_USER_DATA},
      {8, 4, SUCCESS, kIn},  // smaller than a tile
      {8, 8, SUCCESS, kIn},
      {8, 9, SUCCESS, kIn},
      {8, 128, SUCCESS, T_FLAG_ALLOCATED | T_FLAG_ON_DISK},
      {8, 256, SUCCESS, kIn},
      {1, 512, SUCCESS, kIn | T_FLAG_COMPRESSED},
      {1, 768, SUCCESS, kIn | T_FLAG_COMPRESSED},
      {1, 513, SUCCESS, kIn | T_FLAG_COMPRESSED},
      {8, 513, SUCCESS, kIn},
      {8, 512, ERR_INVALID_PARAMETER, 0},
      {8, 768, SUCCESS, kIn},
      {4, 1024, ERR_INVALID_PARAMETER, 0},
      {4, 1025, SUCCESS, kIn},
      {8, 1024, SUCCESS, kIn | T_FLAG_SUPER_COMPRESSED},
      {24, 1025, SUCCESS, kIn | T_FLAG_SUPER_COMPRESSED},
      {8, 0, ERR_INVALID_PARAMETER, 0},
      {8, 3, ERR_INVALID_PARAMETER, 0},
      {8, 5, ERR_INVALID_PARAMETER, 0},
      {8, 129, ERR_INVALID_PARAMETER, 0},
      {8, 257, ERR_INVALID_PARAMETER, 0},
      {8, ~0u, ERR_INVALID_PARAMETER, 0},
  };
  for (const Case& c : cases) {
    Bitmap b(kWidth, kHeight, c.bits);
    b.Flags = T_FLAG_LOCKED | T_FLAG_TILED | T_FLAG_SIGNED_DATA;  // left over; only the storage bits are cleared
    EXPECT_EQ(T_AllocateBitmap(&b, c.type), c.status) << c.bits << " bits, type " << c.type;
    EXPECT_EQ(b.Flags, c.flags | T_FLAG_SIGNED_DATA) << c.bits << " bits, type " << c.type;
    EXPECT_EQ(b.GrayParams != nullptr, c.status == SUCCESS);
    if (c.flags == kIn) {
      EXPECT_EQ(reinterpret_cast<uintptr_t>(V(b.Data)) % 32, 0u);
      EXPECT_NE(V(b.MemoryHandle), 0u);
    }
  }
  EXPECT_EQ(T_AllocateBitmap(nullptr, 1), ERR_INVALID_PARAMETER);
  Bitmap b;
  EXPECT_EQ(T_AllocateBitmap(&b, 1), ERR_BAD_STRUCT_SIZE);
  T_InitBitmap(&b, 212, 0, 0, 0);
  EXPECT_EQ(T_AllocateBitmap(&b, 77), ERR_EMPTY_AREA);
  Bitmap noRows(4, 4, 8), noBytes(4, 4, 8), large(4, 4, 8);
  noRows.Height = 0;
  noBytes.BytesPerLine = 0;
  large.Size = uint64_t{T_MAX_IMAGE_BYTES} + 1;
  EXPECT_EQ(T_AllocateBitmap(&noRows, 1), ERR_EMPTY_AREA);
  EXPECT_EQ(T_AllocateBitmap(&noBytes, 1), ERR_EMPTY_AREA);
  EXPECT_EQ(T_AllocateBitmap(&large, 1), ERR_IMAGE_TOO_LARGE);
}

TEST(Alloc, ThresholdsChooseTheKind) {
  const ThresholdScope scope;
  struct Case {
    int64_t maxBlock, tileSize;
    uint32_t type, reported;
  };
  const Case cases[] = {
      {1000, 0, 1, 4},           {1000, 0, 9, 128},         {1000, 0, 8, 128},
      {64000, 0, 1, 1},          {63999, 0, 1, 4},          {0x100000000, 0, 1, 4},  // only the low 32 bits count
      {1000, 4096, 256, 4},      {1000, 4096, 768, 4},      {0x7FFFFFFF, 10000, 4, 4},
      {0x7FFFFFFF, 64000, 4, 1}, {0x7FFFFFFF, 63999, 4, 4}, {-100, 0, 1, 1},
  };
  for (const Case& c : cases) {
    Thresholds(c.maxBlock, c.tileSize, -100, 1);
    Bitmap b(kWidth, kHeight, 8);
    ASSERT_EQ(T_AllocateBitmap(&b, c.type), SUCCESS) << c.type;
    EXPECT_EQ(b.Reported(), c.reported) << c.maxBlock << ' ' << c.tileSize << ' ' << c.type;
  }
  // All memory is to stay free: nothing fits one block.
  ASSERT_EQ(T_SetMemoryThresholds(-100, 0x7FFFFFFF, 10000, -100, 1, 31), SUCCESS);
  Bitmap b(kWidth, kHeight, 8);
  ASSERT_EQ(T_AllocateBitmap(&b, 1), SUCCESS);
  EXPECT_EQ(Info(b).conventional, 0u);
}

TEST(Alloc, ThresholdBounds) {
  const ThresholdScope scope;
  EXPECT_EQ(T_SetMemoryThresholds(-101, 5, 0, 0, 0, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetMemoryThresholds(7, -101, 0, 0, 0, 3), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetMemoryThresholds(0, 0, -1, 0, 0, 4), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetMemoryThresholds(0, 0, 0, -101, 0, 8), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetMemoryThresholds(0, 0, 0, 0, -101, 16), ERR_INVALID_PARAMETER);
  int32_t threshold = 0;
  EXPECT_EQ(T_GetMemoryThresholds(&threshold, nullptr, nullptr, nullptr, nullptr), 7);  // stored before the refusal
  EXPECT_EQ(threshold, 7);
  int64_t block = 0;
  const int64_t last = T_GetMemoryThresholds(nullptr, &block, nullptr, nullptr, nullptr);
  EXPECT_EQ(last, block);
  EXPECT_EQ(T_SetDefaultMemoryType(2), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetDefaultMemoryType(nullptr), ERR_INVALID_PARAMETER);
  uint32_t type = 0;
  EXPECT_EQ(T_SetDefaultMemoryType(TYPE_DISK), SUCCESS);
  EXPECT_EQ(T_GetDefaultMemoryType(&type), SUCCESS);
  EXPECT_EQ(type, 128u);
  T_SetDefaultMemoryType(TYPE_CONV);
}

TEST(Alloc, TileLayout) {
  const ThresholdScope scope;
  struct Case {
    int64_t tileSize;
    int32_t conventional, views;
    uint32_t count, inMemory, maxMapped;
    int64_t rounded;
  };
  // A bitmap that one block must not hold (limit 1,000 bytes), 64 rows of 1,000 bytes.
  const Case cases[] = {
      {10000, -100, 1, 7, 7, 0, 10000},                                    // all fit in memory
      {10999, 7, 1, 7, 7, 0, 10000},                                       // rounded down to whole rows
      {1, -100, 1, 64, 64, 0, 1000},                                       // raised to a row
      {10000, 4, 1, 7, 3, 1, 10000},                                       // one of the four is a view
      {10000, 4, 2, 7, 2, 2, 10000},     {10000, 4, 9, 7, 0, 4, 10000},    // more views than the budget
      {10000, 0, 1, 7, 0, 1, 10000},     {10000, -50, 1, 7, 2, 1, 10000},  // half of 7, truncated
      {10000, -50, -50, 7, 0, 3, 10000},                                 // 50 * 4 / 50 = 4 views exceed the budget of 3
      {10000, -50, -20, 7, 2, 1, 10000},                                 // 20 * 4 / 80 = 1
      {10000, 4, -100, 7, 0, 4, 10000},  {10000, 4, 0, 7, 3, 1, 10000},  // no views becomes one
  };
  for (const Case& c : cases) {
    Thresholds(1000, c.tileSize, c.conventional, c.views);
    Bitmap b(kWidth, kHeight, 8);
    ASSERT_EQ(T_AllocateBitmap(&b, 1), SUCCESS);
    const Figures f = Info(b);
    EXPECT_EQ(f.type, 4u);
    EXPECT_EQ(f.count, c.count);
    EXPECT_EQ(f.conventional, c.inMemory) << c.conventional << ' ' << c.views;
    EXPECT_EQ(f.maxMapped, c.maxMapped) << c.conventional << ' ' << c.views;
    EXPECT_EQ(f.tileSize, c.rounded);
    EXPECT_EQ(f.mapped, c.inMemory == c.count ? 0u : 1u);
    Fill(b, 5);
    EXPECT_EQ(FirstDifference(b, 5, kHeight), -1);
    EXPECT_LE(Info(b).mapped, c.maxMapped);
  }
  Thresholds(0x7FFFFFFF, 10000, -100, 1);
  Bitmap b(kWidth, kHeight, 8);
  ASSERT_EQ(T_AllocateBitmap(&b, TYPE_TILED), SUCCESS);
  EXPECT_EQ(Info(b).conventional, 0u);  // tiles asked for outright are all swap-backed
}

TEST(Alloc, HeightChangesKeepRows) {
  const ThresholdScope scope;
  const struct {
    uint32_t type;
    int32_t conventional;
    int32_t bits;
  } kinds[] = {{8, 0, 8}, {128, 0, 8}, {1, -100, 8}, {1, 3, 8}, {4, 0, 8}, {512, 0, 1}};
  for (const auto& kind : kinds) {
    Thresholds(kind.type == 8 ? 0x7FFFFFFF : 1000, 10000, kind.conventional, 1);
    if (kind.type == 512) T_SetMemoryThresholds(0, 0x7FFFFFFF, 0, 0, 0, 2);
    Bitmap b(kWidth, kHeight, kind.bits);
    ASSERT_EQ(T_AllocateBitmap(&b, kind.type), SUCCESS);
    Fill(b, 9);
    for (const int32_t height : {65, 70, 200, 199, 71, 10, 7, 1, 3, 64}) {
      const int32_t kept = height < b.Height ? height : b.Height;
      const int32_t before = b.Height;
      ASSERT_EQ(T_ChangeBitmapHeight(&b, height), SUCCESS) << kind.type << ' ' << height;
      ASSERT_EQ(b.Height, height);
      if (kind.type != 512) {
        EXPECT_EQ(V(b.Size), uint64_t{b.BytesPerLine} * static_cast<uint32_t>(height));
      }
      ASSERT_EQ(FirstDifference(b, 9, kept), -1) << kind.type << ' ' << before << " to " << height;
      for (int32_t row = kept; row < height; ++row)
        ASSERT_EQ(Row(b, static_cast<uint32_t>(row)), std::vector<uint8_t>(b.BytesPerLine, 0))
            << kind.type << ' ' << row;
      Fill(b, 9);
      ASSERT_EQ(FirstDifference(b, 9, height), -1);
    }
    EXPECT_EQ(T_ChangeBitmapHeight(&b, 0), ERR_INVALID_PARAMETER);
    EXPECT_EQ(T_ChangeBitmapHeight(&b, -5), ERR_INVALID_PARAMETER);
    if (kind.bits == 8) {
      EXPECT_EQ(T_ChangeBitmapHeight(&b, INT32_MAX), ERR_IMAGE_TOO_LARGE);
    }
    EXPECT_EQ(T_ChangeBitmapHeight(&b, 64), SUCCESS);
  }
  Bitmap b(2, 2, 8);
  EXPECT_EQ(T_ChangeBitmapHeight(&b, 3), ERR_NO_BITMAP);
  EXPECT_EQ(T_ChangeBitmapHeight(nullptr, 3), ERR_NO_BITMAP);
}

TEST(Alloc, CompressedHeightCrossesSegments) {
  Bitmap b(33, 40000, 1);
  ASSERT_EQ(T_AllocateBitmap(&b, TYPE_COMPRESSED), SUCCESS);
  Fill(b, 2);
  ASSERT_EQ(T_ChangeBitmapHeight(&b, 32768), SUCCESS);
  EXPECT_EQ(FirstDifference(b, 2, 32768), -1);
  const uint64_t held = b.Size;
  ASSERT_EQ(T_ChangeBitmapHeight(&b, 70000), SUCCESS);
  EXPECT_EQ(V(b.Size), held);  // rows without a record take nothing
  EXPECT_EQ(FirstDifference(b, 2, 32768), -1);
  for (const int32_t height : {60000, 110000}) {  // the border moves, segments go and come: all or nothing
    for (uint64_t first = 1; b.Height != height; ++first) {
      tarn::fault::Arm({.first = first, .last = first, .points = tarn::fault::kMemoryPoints});
      const int32_t status = T_ChangeBitmapHeight(&b, height);
      tarn::fault::Disarm();
      ASSERT_EQ(status, b.Height == height ? SUCCESS : ERR_NO_MEMORY);
    }
    EXPECT_EQ(FirstDifference(b, 2, 32768), -1);
  }
  EXPECT_EQ(Row(b, 69999), std::vector<uint8_t>(b.BytesPerLine, 0));
  const auto line = Pattern(b, 69999, 2);
  EXPECT_EQ(T_PutBitmapRow(&b, line.data(), 69999, line.size()), static_cast<int64_t>(line.size()));
  EXPECT_EQ(Row(b, 69999), line);
}

TEST(Alloc, MemoryInfoChecksAndMoves) {
  const ThresholdScope scope;
  const auto held = tarn::platform::Held();
  {
    Bitmap b;
    ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 333, 80, 1, 0, nullptr, 7, nullptr, 0), SUCCESS);
    T_PaletteEntry* const palette = b.Palette;
    void* const gray = b.GrayParams;
    Fill(b, 11);
    uint32_t type = 0;
    EXPECT_EQ(T_GetBitmapMemoryInfo(nullptr, &type, nullptr, nullptr, nullptr, nullptr, nullptr), ERR_NO_BITMAP);
    EXPECT_EQ(T_GetBitmapMemoryInfo(&b, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), ERR_INVALID_PARAMETER);
    const uint32_t moves[] = {128, 4, 512, 1024, 4, 1, 1024, 512, 128, 8};
    for (const uint32_t to : moves) {
      Thresholds(0x7FFFFFFF, 500, -100, 1);
      ASSERT_EQ(T_SetBitmapMemoryInfo(&b, to, 0, 0, 0, 0, 0, T_INFO_MEMORY_TYPE), SUCCESS) << to;
      EXPECT_EQ(b.Reported(), to == 8 ? 1 : to);
      EXPECT_EQ(FirstDifference(b, 11, 80), -1) << to;
      EXPECT_EQ(V(b.Palette), palette);
      EXPECT_EQ(V(b.GrayParams), gray);
      EXPECT_EQ(b.ViewPerspective, 7u);
    }
    EXPECT_EQ(T_SetBitmapMemoryInfo(&b, 2, 0, 0, 0, 0, 0, T_INFO_MEMORY_TYPE), ERR_NO_BITMAP);
    EXPECT_EQ(T_SetBitmapMemoryInfo(&b, 77, 0, 0, 0, 0, 0, T_INFO_MEMORY_TYPE), ERR_INVALID_PARAMETER);
    EXPECT_EQ(T_SetBitmapMemoryInfo(&b, 0, -1, 0, 0, 0, 0, T_INFO_TILE_SIZE), ERR_INVALID_PARAMETER);
    EXPECT_EQ(FirstDifference(b, 11, 80), -1);
  }
  EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
}

TEST(Alloc, TilesAreAdjustedInPlace) {
  const ThresholdScope scope;
  Thresholds(1000, 10000, 3, 1);
  Bitmap b(kWidth, kHeight, 8);
  ASSERT_EQ(T_AllocateBitmap(&b, 1), SUCCESS);
  Fill(b, 4);
  const uint8_t* const table = b.Data;
  struct Case {
    uint32_t conventional, maxMapped;
    uint32_t wantConventional, wantMax;
  };
  const Case cases[] = {{5, 2, 5, 2}, {1, 3, 1, 3}, {7, 1, 7, 0}, {2, 9, 2, 7}, {99, 9, 7, 0}, {3, 1, 3, 1}};
  for (const Case& c : cases) {
    ASSERT_EQ(T_SetBitmapMemoryInfo(&b, 0, 0, 0, c.conventional, c.maxMapped, 0,
                                    T_INFO_CONVENTIONAL_TILES | T_INFO_MAX_MAPPED_TILES),
              SUCCESS);
    const Figures f = Info(b);
    EXPECT_EQ(f.conventional, c.wantConventional);
    EXPECT_EQ(f.maxMapped, c.wantMax);
    EXPECT_EQ(V(b.Data), table);
    EXPECT_EQ(FirstDifference(b, 4, kHeight), -1) << c.conventional;
    EXPECT_LE(Info(b).mapped, c.wantMax);
  }
  // Another tile size makes other tiles.
  ASSERT_EQ(T_SetBitmapMemoryInfo(&b, 0, 20000, 0, 2, 1, 0, T_INFO_TILE_SIZE | T_INFO_CONVENTIONAL_TILES), SUCCESS);
  EXPECT_EQ(Info(b).count, 4u);
  EXPECT_EQ(Info(b).conventional, 2u);
  EXPECT_EQ(FirstDifference(b, 4, kHeight), -1);
  ASSERT_EQ(T_SetBitmapMemoryInfo(&b, 0, 0, 8, 0, 0, 0, T_INFO_TILE_COUNT), SUCCESS);
  EXPECT_EQ(Info(b).count, 8u);
  EXPECT_EQ(FirstDifference(b, 4, kHeight), -1);
}

TEST(Alloc, CompressionChangesBothWays) {
  Bitmap b;
  ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 100, 30, 1, 0, nullptr, 1, nullptr, 0), SUCCESS);
  Fill(b, 8);
  const uint64_t size = b.Size;
  EXPECT_EQ(T_ChangeBitmapCompression(&b, 0), SUCCESS);
  EXPECT_EQ(T_ChangeBitmapCompression(&b, 512), SUCCESS);
  EXPECT_EQ(b.Reported(), 512u);
  EXPECT_EQ(FirstDifference(b, 8, 30), -1);
  EXPECT_EQ(T_ChangeBitmapCompression(&b, 512), SUCCESS);
  EXPECT_EQ(T_ChangeBitmapCompression(&b, 1024), SUCCESS);
  EXPECT_EQ(b.Reported(), 1024u);
  EXPECT_EQ(FirstDifference(b, 8, 30), -1);
  EXPECT_EQ(T_ChangeBitmapCompression(&b, 1024), SUCCESS);
  EXPECT_EQ(T_ChangeBitmapCompression(&b, 0), SUCCESS);
  EXPECT_EQ(b.Reported(), 1u);
  EXPECT_EQ(V(b.Size), size);
  EXPECT_EQ(FirstDifference(b, 8, 30), -1);
  EXPECT_EQ(T_ChangeBitmapCompression(&b, 1), ERR_INVALID_PARAMETER);
  Bitmap deep(4, 4, 8);
  EXPECT_EQ(T_ChangeBitmapCompression(&deep, 512), ERR_NO_BITMAP);
  T_AllocateBitmap(&deep, 1);
  EXPECT_EQ(T_ChangeBitmapCompression(&deep, 512), ERR_BAD_BITS_PER_PIXEL);
}

TEST(Alloc, DiskFileIsOneByteLongerThanTheStorage) {
  Bitmap b(kWidth, kHeight, 8);
  ASSERT_EQ(T_AllocateBitmap(&b, TYPE_DISK), SUCCESS);
  EXPECT_EQ(T_OsSeekBig(static_cast<T_FileHandle>(V(b.MemoryHandle)), 0, T_SEEK_END, nullptr), kWidth * kHeight + 1);
  EXPECT_EQ(Row(b, 63), std::vector<uint8_t>(kWidth, 0));
}

TEST(Alloc, NewStorageIsZero) {
  const ThresholdScope scope;
  for (const uint32_t type : {TYPE_NOTILED, TYPE_TILED, TYPE_DISK}) {
    for (int round = 0; round < 3; ++round) {  // released memory must not come back with old pixels
      Thresholds(0x7FFFFFFF, 100000, -100, 1);
      Bitmap b(700, 700, 8);
      ASSERT_EQ(T_AllocateBitmap(&b, type), SUCCESS);
      for (uint32_t row = 0; row < 700; row += 53) EXPECT_EQ(Row(b, row), std::vector<uint8_t>(700, 0));
      Fill(b, 1);
    }
  }
}

// Tiles of half the size are tried while they can be had, as long as the machine could hold the picture at all.
TEST(Alloc, TilesShrinkUntilTheyAreThere) {
  using tarn::fault::Point;
  const ThresholdScope scope;
  Thresholds(1000, 64000, -100, 1);
  for (uint64_t refused = 0; refused < 4; ++refused) {
    Bitmap b(kWidth, kHeight, 8);
    // A tile's memory and its swap file.
    tarn::fault::Arm({.first = 1, .last = 2 * refused, .points = Mask(Point::kBlock) | Mask(Point::kOpen)});
    const int32_t status = T_AllocateBitmap(&b, 1);
    tarn::fault::Disarm();
    ASSERT_EQ(status, SUCCESS) << refused;
    EXPECT_EQ(Info(b).tileSize, refused < 3 ? 64000 >> refused : 0);  // of more than eight rows
    EXPECT_EQ(b.Reported(), refused < 3 ? 4u : 128u);
  }
}

// With nine tenths of the process's handles in use nothing is made that takes many of them.
TEST(Alloc, ScarceHandlesAreSpared) {
#ifdef _WIN32
  GTEST_SKIP() << "the budget is a constant there";
#else
  const ThresholdScope scope;
  Thresholds(0x7FFFFFFF, 10000, 0, 1);
  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &saved), 0);
  uint32_t count = 0, budget = 0;
  ASSERT_TRUE(tarn::platform::HandleCount(count, budget));
  const struct {
    int32_t bits;
    uint32_t type, plenty, scarce;
  } cases[] = {{8, TYPE_TILED, 4, 1}, {24, TYPE_SUPERCOMPRESSED | TYPE_CONV, 1024, 1}, {1, TYPE_COMPRESSED, 512, 512}};
  for (const auto& c : cases) {
    // Some left; nearly none; none, so that they cannot even be counted.
    for (const rlim_t allowed : {saved.rlim_cur, rlim_t{count + 1}, rlim_t{3}}) {
      const bool scarce = allowed != saved.rlim_cur;
      Bitmap b(kWidth, kHeight, c.bits);
      rlimit limits = saved;
      limits.rlim_cur = allowed;
      ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limits), 0);
      const int32_t status = T_AllocateBitmap(&b, c.type);
      ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &saved), 0);
      EXPECT_EQ(status, SUCCESS);
      EXPECT_EQ(b.Reported(), scarce ? c.scarce : c.plenty) << c.type;
    }
  }
#endif
}

// Flags that name a kind of storage, over memory that is none.
TEST(Alloc, StorageOfNobodysIsRefused) {
  Bitmap b(kWidth, kHeight, 8);
  ASSERT_EQ(T_AllocateBitmap(&b, 1), SUCCESS);
  uint8_t memory[4096] = {};
  const struct {
    uint32_t flags;
    int32_t status;
  } kinds[] = {{T_FLAG_IN_MEMORY | T_FLAG_TILED, ERR_NO_MEMORY},
               {T_FLAG_IN_MEMORY | T_FLAG_SUPER_COMPRESSED, ERR_NO_MEMORY},
               {T_FLAG_IN_MEMORY | T_FLAG_COMPRESSED, ERR_NO_MEMORY},
               {0, ERR_NO_BITMAP}};
  for (const auto& kind : kinds) {
    BitmapHandle lie = b;
    lie.Flags = T_FLAG_ALLOCATED | kind.flags;
    lie.Data = memory;
    lie.GrayParams = nullptr;
    SCOPED_TRACE(kind.flags);
    EXPECT_EQ(T_ChangeBitmapHeight(&lie, 70), kind.status);
    EXPECT_EQ(T_CompactBitmap(&lie), kind.flags & T_FLAG_SUPER_COMPRESSED ? ERR_NO_MEMORY : SUCCESS);
    if (kind.flags & T_FLAG_TILED) {
      EXPECT_EQ(T_SetBitmapMemoryInfo(&lie, 0, 0, 0, 2, 1, 0, T_INFO_CONVENTIONAL_TILES), ERR_NO_MEMORY);
      EXPECT_EQ(Info(lie).count, 0u);
    }
    EXPECT_EQ(lie.Height, kHeight);
    T_FreeBitmap(&lie);
    EXPECT_FALSE(lie.Flags & T_FLAG_ALLOCATED);
  }
  T_FreeGrayParams(nullptr);
}
