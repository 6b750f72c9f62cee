// Duplicated records and pixel copies.

#include <gtest/gtest.h>

#include "Common/Internal/Overlays.h"
#include "Common/Internal/Rows.h"
#include "Holding.h"
#include "Scope.h"

using namespace tarn::test;

namespace {

int32_t CountCalls(int32_t percent, void* userData) {
  static_cast<std::vector<int32_t>*>(userData)->push_back(percent);
  return SUCCESS;
}

int32_t StopAt50(int32_t percent, void*) { return percent >= 50 ? 0 : SUCCESS; }

int32_t deletedRegions = 0;
int32_t CopyRegion(uint64_t* region, const BitmapHandle* source) {
  *region = source->Region + 1;
  return SUCCESS;
}
int32_t RefuseRegion(uint64_t*, const BitmapHandle*) { return -77; }
void DeleteRegion(uint64_t) { ++deletedRegions; }

}  // namespace

TEST(Copy, DuplicateTakesWhatTheModeSays) {
  Bitmap source;
  ASSERT_EQ(T_CreateBitmap(&source, 212, 1, 30, 20, 8, 0, nullptr, 6, nullptr, 0), SUCCESS);
  source.Flags |= T_FLAG_SIGNED_DATA;
  source.PlaybackDelay = 40;
  source.Region = 99;
  source.XResolution = 300;
  BitmapHandle dup{};
  ASSERT_EQ(T_DupBitmapNewDim(&dup, &source, 212, 7, 5, 8, 0), SUCCESS);
  EXPECT_EQ(V(dup.Palette), V(source.Palette));
  EXPECT_EQ(V(dup.Region), 99u);
  EXPECT_EQ(dup.Width, 7);
  EXPECT_EQ(dup.ViewPerspective, 6u);
  EXPECT_EQ(dup.XResolution, 300);
  EXPECT_EQ(dup.PlaybackDelay, 40u);
  EXPECT_EQ(dup.Flags, T_FLAG_SIGNED_DATA);
  EXPECT_EQ(T_FreeDuplicateBitmap(&dup, 0), SUCCESS);
  EXPECT_NE(V(source.Palette), nullptr);

  ASSERT_EQ(T_DupBitmapNewDim(&dup, &source, 212, 7, 5, 8, 15), SUCCESS);
  EXPECT_NE(V(dup.Palette), V(source.Palette));
  EXPECT_EQ(V(dup.Region), 0u);  // no hooks: regions are dropped
  EXPECT_TRUE(dup.Flags & T_FLAG_ALLOCATED);
  EXPECT_EQ(T_FreeDuplicateBitmap(&dup, 15), SUCCESS);

  EXPECT_EQ(T_DupBitmapNewDim(nullptr, &source, 212, 7, 5, 8, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_DupBitmapNewDim(&dup, nullptr, 212, 7, 5, 8, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_DupBitmapNewDim(&dup, &source, 211, 7, 5, 8, 0), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_DupBitmapNewDim(&dup, &source, 212, 7, 5, 9, 15), ERR_BAD_BITS_PER_PIXEL);
  source.Region = 0;
}

TEST(Copy, RegionHooks) {
  T_RegionHooks hooks{};
  EXPECT_EQ(T_SetRegionHooks(&hooks), nullptr);  // a table of another size is refused
  hooks.StructSize = sizeof hooks;
  hooks.Duplicate = CopyRegion;
  hooks.Delete = DeleteRegion;
  T_SetRegionHooks(&hooks);
  deletedRegions = 0;
  Bitmap source;
  ASSERT_EQ(T_CreateBitmap(&source, 212, 1, 30, 20, 8, 0, nullptr, 6, nullptr, 0), SUCCESS);
  source.Region = 99;
  BitmapHandle dup{};
  ASSERT_EQ(T_DupBitmapNewDim(&dup, &source, 212, 7, 5, 8, 15), SUCCESS);
  EXPECT_EQ(V(dup.Region), 100u);
  T_FreeDuplicateBitmap(&dup, 15);
  EXPECT_EQ(deletedRegions, 1);
  hooks.Duplicate = RefuseRegion;
  const auto held = tarn::platform::Held();
  EXPECT_EQ(T_DupBitmapNewDim(&dup, &source, 212, 7, 5, 8, 15), -77);
  EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
  EXPECT_EQ(T_SetRegionHooks(nullptr), &hooks);
  source.Region = 0;
}

TEST(Copy, GrayParametersAndLookupTableGoAlong) {
  Bitmap source(9, 9, 12);
  ASSERT_EQ(T_AllocateBitmap(&source, 1), SUCCESS);
  source.LUT = static_cast<T_PaletteEntry*>(T_GlobalAlloc(4096, 4, 1, L"here"));
  source.LUTLength = 4096;
  source.LUT[5].Red = 55;
  source.Flags |= T_FLAG_LUT_IN_USE;
  source.LowBit = 2;
  source.Percentage = 60;
  std::memset(source.GrayParams, 0x5A, 256);
  BitmapHandle dup{};
  ASSERT_EQ(T_DupBitmapNewDim(&dup, &source, 212, 3, 3, 12, DUP_STORAGE), SUCCESS);
  EXPECT_EQ(dup.Order, 2u);
  EXPECT_EQ(dup.LowBit, 2);
  EXPECT_EQ(dup.Percentage, 60u);
  EXPECT_NE(V(dup.LUT), V(source.LUT));
  EXPECT_EQ(dup.LUT[5].Red, 55);
  EXPECT_TRUE(dup.Flags & T_FLAG_LUT_IN_USE);
  EXPECT_EQ(std::memcmp(V(dup.GrayParams), V(source.GrayParams), 256), 0);
  T_FreeDuplicateBitmap(&dup, DUP_STORAGE);
  EXPECT_EQ(V(dup.LUT), nullptr);
  const auto held = tarn::platform::Held();
  for (const bool ofType : {false, true}) {
    RefuseEachCall([&] { return ofType ? T_CopyBitmap2(&dup, &source, 1, 212) : T_CopyBitmap(&dup, &source, 212); },
                   [&](int32_t status, bool) {
                     EXPECT_EQ((dup.Flags & T_FLAG_ALLOCATED) != 0, status == SUCCESS);
                     if (status == SUCCESS) {
                       EXPECT_EQ(dup.LUT[5].Red, 55);
                       T_FreeBitmap(&dup);
                     }
                     EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
                   });
  }
  // To another depth without a table, and from a record that has lost its block of parameters.
  for (const bool lost : {false, true}) {
    if (lost) T_FreeGrayParams(&source);
    ASSERT_EQ(T_DupBitmapNewDim(&dup, &source, 212, 3, 3, 16, DUP_STORAGE), SUCCESS);
    EXPECT_EQ(V(dup.LUT), nullptr);
    EXPECT_EQ(static_cast<const uint8_t*>(V(dup.GrayParams))[7], lost ? 0 : 0x5A);
    T_FreeDuplicateBitmap(&dup, DUP_STORAGE);
  }
}

TEST(Copy, DataBetweenAllKinds) {
  const ThresholdScope scope;
  T_SetMemoryThresholds(0, 0x7FFFFFFF, 100, 0, 1, 31);
  const uint32_t kinds[] = {8, 4, 128, 512};
  for (const uint32_t from : kinds) {
    for (const uint32_t to : kinds) {
      Bitmap a(130, 25, 1);
      Bitmap b(130, 25, 1);
      ASSERT_EQ(T_AllocateBitmap(&a, from), SUCCESS);
      ASSERT_EQ(T_AllocateBitmap(&b, to), SUCCESS);
      Fill(a, from);
      EXPECT_EQ(T_CopyBitmapData(&b, &a), SUCCESS);
      EXPECT_EQ(FirstDifference(b, from, 25), -1) << from << " to " << to;
    }
  }
  Bitmap a(4, 4, 8);
  Bitmap b(4, 5, 8);
  EXPECT_EQ(T_CopyBitmapData(&a, &b), ERR_NO_BITMAP);
  T_AllocateBitmap(&a, 1);
  T_AllocateBitmap(&b, 1);
  EXPECT_EQ(T_CopyBitmapData(&a, &b), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CopyBitmapData(&a, &a), SUCCESS);
  EXPECT_EQ(T_CopyBitmapData(nullptr, &a), ERR_NO_BITMAP);
  EXPECT_EQ(T_CopyBitmapData(&a, nullptr), ERR_NO_BITMAP);
  const BitmapHandle before = a;
  T_CopyPlaybackParms(nullptr, &a);
  T_CopyPlaybackParms(&a, nullptr);
  EXPECT_EQ(std::memcmp(&before, static_cast<BitmapHandle*>(&a), sizeof before), 0);
  b.StructSize = 5;
  EXPECT_EQ(T_CopyBitmapData(&b, &a), ERR_BAD_STRUCT_SIZE);
  b.StructSize = 212;
}

TEST(Copy, ProgressAndStop) {
  for (const int32_t height : {1, 7, 100, 101, 250}) {
    Bitmap a(4, height, 8);
    Bitmap b(4, height, 8);
    T_AllocateBitmap(&a, 1);
    T_AllocateBitmap(&b, 1);
    std::vector<int32_t> percents;
    T_SetCopyStatusCallBack(CountCalls, &percents, nullptr, nullptr);
    EXPECT_EQ(T_CopyBitmapData(&b, &a), SUCCESS);
    std::vector<int32_t> want;
    for (int32_t row = 1; row <= height; ++row) {
      const int32_t percent = 100 * row / height;
      if (percent != 100 * (row - 1) / height) want.push_back(percent);
    }
    EXPECT_EQ(percents, want) << height;
    T_SetCopyStatusCallBack(StopAt50, nullptr, nullptr, nullptr);
    EXPECT_EQ(T_CopyBitmapData(&b, &a), 0);
    T_SetCopyStatusCallBack(nullptr, nullptr, nullptr, nullptr);
  }
}

TEST(Copy, OverlaysAreDuplicatedAndFreed) {
  const auto held = tarn::platform::Held();
  tarn::ledger::StartRecording();
  {
    Bitmap source;
    ASSERT_EQ(T_CreateBitmap(&source, 212, 1, 30, 20, 8, 0, nullptr, 1, nullptr, 0), SUCCESS);
    auto* const list =
        static_cast<T_OverlayList*>(T_LocalAllocInit(1, sizeof(T_OverlayList) + 2 * sizeof(tarn::Overlay), 1, L"here"));
    list->count = 2;
    ASSERT_EQ(T_CreateBitmap(&list->Items()[1].bitmap, 212, 1, 9, 9, 1, 0, nullptr, 1, nullptr, 0), SUCCESS);
    Fill(list->Items()[1].bitmap, 5);
    list->Items()[1].inUse = 1;
    source.Overlays = list;
    Bitmap dup;
    ASSERT_EQ(T_DupBitmapNewDim(&dup, &source, 212, 3, 3, 8, 15), SUCCESS);
    ASSERT_NE(V(dup.Overlays), nullptr);
    EXPECT_NE(V(dup.Overlays), V(source.Overlays));
    EXPECT_EQ(FirstDifference(dup.Overlays->Items()[1].bitmap, 5, 9), -1);
    EXPECT_EQ(dup.Overlays->Items()[0].bitmap.StructSize, 0u);
  }
  EXPECT_EQ(tarn::ledger::Now().objects, 0u);
  tarn::ledger::StopRecording();
  EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
}

TEST(Copy, ScratchResultReplacesStorageOnly) {
  Bitmap b;
  ASSERT_EQ(T_CreateBitmap(&b, 212, 1, 30, 20, 8, 0, nullptr, 1, nullptr, 0), SUCCESS);
  T_PaletteEntry* const palette = b.Palette;
  void* const run = &b;
  b.DitherContext = run;
  const BitmapHandle before = b;
  {
    tarn::ScratchBitmap dropped;
    ASSERT_TRUE(dropped.Create(b, 5, 5, 8).Ok());
  }
  EXPECT_EQ(std::memcmp(&before, static_cast<BitmapHandle*>(&b), sizeof before), 0);
  tarn::ScratchBitmap result;
  ASSERT_TRUE(result.Create(b, 40, 3, 8).Ok());
  Fill(result.Record(), 6);
  result.Commit(b);
  EXPECT_EQ(b.Width, 40);
  EXPECT_EQ(V(b.Palette), palette);
  EXPECT_EQ(V(b.DitherContext), run);
  EXPECT_EQ(FirstDifference(b, 6, 3), -1);
  b.DitherContext = nullptr;
}
