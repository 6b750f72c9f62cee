// Row functions: check order, results at the edges, the offset cache, segments by hand.

#include <gtest/gtest.h>

#include "Scope.h"

using namespace tarn::test;

TEST(RowCol, CheckOrder) {
  Bitmap b(10, 4, 8);
  uint8_t buffer[64] = {};
  const uint32_t segments[2] = {0, 1};
  EXPECT_EQ(T_GetBitmapRow(nullptr, buffer, 0, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_PutBitmapRow(&b, nullptr, 0, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_PutBitmapRowSegments(&b, buffer, 0, 0, nullptr, 2, 0), ERR_INVALID_PARAMETER);
  b.StructSize = 211;
  EXPECT_EQ(T_GetBitmapRow(&b, nullptr, 0, 1), ERR_INVALID_PARAMETER);  // pointers come first
  EXPECT_EQ(T_GetBitmapRowCol(&b, buffer, 99, 0, 1), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_PutBitmapRowSegments(&b, buffer, 0, 0, segments, 2, 0), ERR_BAD_STRUCT_SIZE);
  b.StructSize = 212;
  EXPECT_EQ(T_GetBitmapRow(&b, buffer, 0, 1), ERR_NO_MEMORY);  // no storage of any kind
  b.Flags = T_FLAG_ALLOCATED | T_FLAG_IN_MEMORY | T_FLAG_USER_DATA;
  EXPECT_EQ(T_GetBitmapRow(&b, buffer, 0, 1), ERR_NO_BITMAP);  // memory without pixels
  EXPECT_EQ(T_PutBitmapRowCol(&b, buffer, 0, 0, 1), ERR_NO_BITMAP);
  EXPECT_EQ(T_PutBitmapRowSegments(&b, buffer, 0, 0, segments, 2, 0), ERR_NO_BITMAP);
  b.Flags = 0;
  ASSERT_EQ(T_AllocateBitmap(&b, 1), SUCCESS);
  EXPECT_EQ(T_GetBitmapRow(&b, buffer, 4, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_PutBitmapRow(&b, buffer, ~0u, 1), ERR_INVALID_PARAMETER);
}

TEST(RowCol, CountsAtTheEdges) {
  const ThresholdScope scope;
  T_SetMemoryThresholds(0, 0x7FFFFFFF, 24, 0, 1, 31);
  const struct {
    uint32_t type;
    int32_t bits;
    int64_t getAll, putAll, putColAll;  // results of moving far more than there is
  } kinds[] = {
      {8, 8, 48, 48, 48},              // one block: what there is
      {128, 8, 48, 48, 48},            // disk: what there is
      {4, 8, 1000, 0, ERR_NO_MEMORY},  // tiles
      {512, 1, 1000, 1000, 1000},      // compressed rows
  };
  for (const auto& kind : kinds) {
    Bitmap b(kind.bits == 1 ? 96 : 12, 4, kind.bits);
    ASSERT_EQ(b.BytesPerLine, 12u);
    ASSERT_EQ(T_AllocateBitmap(&b, kind.type), SUCCESS);
    std::vector<uint8_t> buffer(1000);
    for (size_t i = 0; i < buffer.size(); ++i) buffer[i] = static_cast<uint8_t>(i * 7 + 1);
    EXPECT_EQ(T_PutBitmapRow(&b, buffer.data(), 0, 0), 0) << kind.type;
    EXPECT_EQ(T_PutBitmapRow(&b, buffer.data(), 0, 1000), kind.putAll) << kind.type;
    EXPECT_EQ(T_PutBitmapRowCol(&b, buffer.data(), 0, 0, 1000), kind.putColAll) << kind.type;
    std::vector<uint8_t> back(1000, 0xEE);
    EXPECT_EQ(T_GetBitmapRow(&b, back.data(), 0, 1000), kind.getAll) << kind.type;
    EXPECT_TRUE(std::equal(back.begin(), back.begin() + 48, buffer.begin())) << kind.type;
    EXPECT_EQ(back[48], 0xEE) << kind.type;  // nothing behind the storage was read
    // A count over several rows, from the middle of a row.
    std::fill(back.begin(), back.end(), 0);
    EXPECT_EQ(T_GetBitmapRowCol(&b, back.data(), 1, kind.bits == 1 ? 40 : 5, 20), 20) << kind.type;
    EXPECT_TRUE(std::equal(back.begin(), back.begin() + 20, buffer.begin() + 17)) << kind.type;
  }
}

TEST(RowCol, ColumnsTakeTheByteOfTheirFirstBit) {
  const struct {
    int32_t bits;
    uint32_t column, offset;
  } cases[] = {{1, 13, 1}, {2, 5, 1},  {3, 5, 1},   {4, 5, 2},   {5, 5, 3},   {6, 5, 3},   {7, 5, 4},
               {8, 5, 5},  {12, 5, 7}, {16, 5, 10}, {24, 5, 15}, {32, 5, 20}, {48, 5, 30}, {64, 5, 40}};
  for (const auto& c : cases) {
    Bitmap b(40, 2, c.bits);
    ASSERT_EQ(T_AllocateBitmap(&b, 1), SUCCESS);
    Fill(b, 6);
    uint8_t byte = 0;
    EXPECT_EQ(T_GetBitmapRowCol(&b, &byte, 1, c.column, 1), 1);
    EXPECT_EQ(byte, Pattern(b, 1, 6)[c.offset]) << c.bits;
  }
  Bitmap b(20, 2, 1);
  ASSERT_EQ(T_AllocateBitmap(&b, 512), SUCCESS);
  uint8_t bytes[4] = {};
  EXPECT_EQ(T_GetBitmapRowCol(&b, bytes, 0, 20, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_PutBitmapRowCol(&b, bytes, 0, 20, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapRowCol(&b, bytes, 0, 13, 1), 1);
}

TEST(RowCol, OffsetCacheFollowsTheRows) {
  Bitmap b(10, 50, 24);
  ASSERT_EQ(T_AllocateBitmap(&b, 1), SUCCESS);
  Fill(b, 2);
  for (const uint32_t row : {7u, 8u, 7u, 6u, 49u, 0u, 1u, 30u, 30u}) {
    EXPECT_EQ(Row(b, row), Pattern(b, row, 2));
    EXPECT_EQ(b.CachedRow, row);
    EXPECT_EQ(V(b.CachedRowOffset), uint64_t{row} * b.BytesPerLine);
  }
}

TEST(RowCol, SegmentsByHand) {
  Bitmap b(16, 1, 1);
  ASSERT_EQ(T_AllocateBitmap(&b, 1), SUCCESS);
  const uint8_t ones[4] = {0xFF, 0xFF, 0xFF, 0xFF};
  const uint32_t bits34[2] = {3, 5};
  EXPECT_EQ(T_PutBitmapRowSegments(&b, ones, 0, 0, bits34, 2, 0), SUCCESS);
  EXPECT_EQ(Row(b, 0), (std::vector<uint8_t>{0x18, 0, 0, 0}));
  const uint32_t clipped[5] = {14, 99, 9, 2, 1};  // cut at the width, backwards, and a last entry without partner
  EXPECT_EQ(T_PutBitmapRowSegments(&b, ones, 0, 0, clipped, 5, 0), SUCCESS);
  EXPECT_EQ(Row(b, 0), (std::vector<uint8_t>{0x18, 0x03, 0, 0}));
  const uint32_t whole[2] = {0, 8};
  const uint8_t other[4] = {0xA5, 0, 0, 0};
  EXPECT_EQ(T_PutBitmapRowSegments(&b, other, 0, 0, whole, 2, 0), SUCCESS);
  EXPECT_EQ(Row(b, 0), (std::vector<uint8_t>{0xA5, 0x03, 0, 0}));
  EXPECT_EQ(T_PutBitmapRowSegments(&b, other, 0, 9, whole, 2, 0), SUCCESS);  // moves whole bytes: lands at pixel 8
  EXPECT_EQ(Row(b, 0), (std::vector<uint8_t>{0xA5, 0xA5, 0, 0}));
}

TEST(RowCol, SegmentsKeepAlpha) {
  const ThresholdScope scope;
  T_SetMemoryThresholds(0, 0x7FFFFFFF, 1, 0, 1, 31);
  for (const uint32_t type : {TYPE_NOTILED, TYPE_TILED, TYPE_DISK}) {
    for (const int32_t bits : {32, 64}) {
      Bitmap b(6, 2, bits);
      ASSERT_EQ(T_AllocateBitmap(&b, type), SUCCESS);
      Fill(b, 1);
      const auto fresh = Pattern(b, 0, 77);
      const uint32_t segments[4] = {1, 3, 5, 6};
      EXPECT_EQ(T_PutBitmapRowSegments(&b, fresh.data(), 1, 0, segments, 4, 1), SUCCESS);
      auto want = Pattern(b, 1, 1);
      const size_t pixel = static_cast<size_t>(bits) / 8;
      for (const size_t p : {1, 2, 5}) std::copy_n(fresh.begin() + p * pixel, pixel / 4 * 3, want.begin() + p * pixel);
      EXPECT_EQ(Row(b, 1), want) << type << ' ' << bits;
      EXPECT_EQ(Row(b, 0), Pattern(b, 0, 1));
    }
  }
}
