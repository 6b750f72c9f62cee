// Deep gray of which only some bits count: combined and warped, a sample is its level, whatever lies beside it.

#include <gtest/gtest.h>

#include <cstring>

#include "Scope.h"
#include "engine/Picture.h"

using tarn::engine::Kind;
using tarn::engine::Picture;
using tarn::engine::Random;
using tarn::engine::Shape;
using tarn::test::Row;

namespace {

constexpr int32_t kWidth = 37, kHeight = 12;  // of an odd number of half bytes

uint32_t SampleAt(const std::vector<uint8_t>& row, int32_t x, int32_t bits) {
  uint32_t sample = 0;
  if (bits == 12) {
    const size_t at = static_cast<size_t>(x) / 2 * 3;
    return x % 2 ? row[at + 1] >> 4 | row[at + 2] << 4 : row[at] | (row[at + 1] & 15) << 8;
  }
  std::memcpy(&sample, row.data() + static_cast<size_t>(x) * static_cast<size_t>(bits) / 8,
              static_cast<size_t>(bits) / 8);
  return sample;
}

struct Range {
  int32_t bits, low;  // eight bits from `low` on
};
constexpr Range kRanges[] = {{12, 2}, {12, 4}, {16, 3}, {16, 8}, {32, 8}, {32, 21}};

void MakeGray(Picture& picture, Kind kind, const Range& range, uint64_t seed) {
  ASSERT_EQ(picture.Make(kind, {kWidth, kHeight, range.bits}, seed), "");
  picture.record.Order = T_ORDER_GRAY;
  picture.record.LowBit = range.low;
  picture.record.HighBit = range.low + 7;
}

/// The same levels with nothing beside them.
void MakeLevels(Picture& levels, Picture& of, const Range& range) {
  ASSERT_EQ(levels.MakeBlank(Kind::kBlock, {kWidth, kHeight, 8}), "");
  levels.record.Order = T_ORDER_GRAY;
  for (int32_t y = 0; y < kHeight; ++y) {
    const std::vector<uint8_t> from = Row(of.record, static_cast<uint32_t>(y));
    std::vector<uint8_t> row(levels.record.BytesPerLine);
    for (int32_t x = 0; x < kWidth; ++x)
      row[static_cast<size_t>(x)] = static_cast<uint8_t>(SampleAt(from, x, range.bits) >> range.low);
    ASSERT_EQ(T_PutBitmapRow(&levels.record, row.data(), static_cast<uint32_t>(y), row.size()),
              static_cast<int64_t>(row.size()));
  }
}

void ExpectLevels(Picture& levels, Picture& samples, const Range& range) {
  for (int32_t y = 0; y < kHeight; ++y) {
    const std::vector<uint8_t> wanted = Row(levels.record, static_cast<uint32_t>(y));
    const std::vector<uint8_t> row = Row(samples.record, static_cast<uint32_t>(y));
    for (int32_t x = 0; x < kWidth; ++x)
      ASSERT_EQ(SampleAt(row, x, range.bits) >> range.low & 255, wanted[static_cast<size_t>(x)]) << x << ", " << y;
  }
}

TEST(GrayBits, WarpedLevelsAreThoseOfEightBits) {
  constexpr T_WarpPoint kCorners[4] = {
      {300, -200}, {256 * kWidth + 100, 300}, {256 * kWidth - 700, 256 * kHeight + 90}, {-128, 256 * kHeight - 500}};
  for (const Range& range : kRanges) {
    for (const Kind kind : {Kind::kBlock, Kind::kDisk, Kind::kSwapTiles}) {
      SCOPED_TRACE(testing::Message() << range.bits << " bits from " << range.low << ", " << NameOf(kind));
      Picture source, target, levels, wanted;
      MakeGray(source, kind, range, 5);
      MakeGray(target, kind, range, 6);
      MakeLevels(levels, source, range);
      MakeLevels(wanted, target, range);
      ASSERT_EQ(T_CombineBitmapWarp(&target.record, kCorners, &source.record, nullptr, T_WARP_BILINEAR), SUCCESS);
      ASSERT_EQ(T_CombineBitmapWarp(&wanted.record, kCorners, &levels.record, nullptr, T_WARP_BILINEAR), SUCCESS);
      ExpectLevels(wanted, target, range);
    }
  }
}

TEST(GrayBits, CombinedLevelsAreThoseOfEightBits) {
  for (const Range& range : kRanges) {
    SCOPED_TRACE(testing::Message() << range.bits << " bits from " << range.low);
    Picture gray, target, wanted;
    ASSERT_EQ(gray.Make(Kind::kBlock, {kWidth, kHeight, 8}, 7), "");
    gray.record.Order = T_ORDER_GRAY;
    for (const uint32_t operation : {T_COMBINE_COPY, T_COMBINE_AVERAGE}) {
      MakeGray(target, Kind::kBlock, range, 6);
      MakeLevels(wanted, target, range);
      ASSERT_EQ(T_CombineBitmapKrn(&target.record, 0, 0, &gray.record, 0, 0, kWidth, kHeight, operation), SUCCESS);
      ASSERT_EQ(T_CombineBitmapKrn(&wanted.record, 0, 0, &gray.record, 0, 0, kWidth, kHeight, operation), SUCCESS);
      ExpectLevels(wanted, target, range);
    }
  }
}

// Tables of their own with the same colours make no other format: samples are copied as they are.
TEST(GrayBits, EqualTablesAreOneFormat) {
  for (const int32_t bits : {12, 16}) {
    SCOPED_TRACE(bits);
    Picture source, target;
    Random one(3), same(3);
    const Shape shape = {kWidth, kHeight, bits};
    ASSERT_EQ(source.Make(Kind::kBlock, shape, 5), "");
    ASSERT_EQ(target.Make(Kind::kBlock, shape, 6), "");
    GiveTable(source.record, one);
    GiveTable(target.record, same);
    const auto copy = [&] {
      return T_CombineBitmapKrn(&target.record, 0, 0, &source.record, 0, 0, kWidth, kHeight, T_COMBINE_COPY);
    };
    const auto differing = [&] {
      int count = 0;
      for (uint32_t y = 0; y < kHeight; ++y)
        for (int32_t x = 0; x < kWidth; ++x)
          count += SampleAt(Row(target.record, y), x, bits) != SampleAt(Row(source.record, y), x, bits);
      return count;
    };
    ASSERT_EQ(copy(), SUCCESS);
    EXPECT_EQ(differing(), 0);
    target.record.LUT[4095].Red ^= 1;  // any entry counts
    ASSERT_EQ(copy(), SUCCESS);
    EXPECT_GT(differing(), 0);
  }
}

TEST(GrayBits, WhatAWarpRefuses) {
  Picture source, target;
  const Range range = {16, 0};
  MakeGray(source, Kind::kBlock, range, 1);
  MakeGray(target, Kind::kBlock, range, 2);
  constexpr T_WarpPoint kCorners[4] = {{0, 0}, {5000, 0}, {5000, 3000}, {0, 3000}};
  const auto warp = [&](uint32_t flags) {
    return T_CombineBitmapWarp(&target.record, kCorners, &source.record, nullptr, flags);
  };
  const std::vector<uint8_t> before = Row(target.record, 3);
  for (BitmapHandle* record : {&source.record, &target.record}) {
    record->StructSize -= 4;
    EXPECT_EQ(warp(T_WARP_NEAREST), ERR_BAD_STRUCT_SIZE);
    record->StructSize += 4;
    record->Flags |= T_FLAG_SIGNED_DATA;
    EXPECT_EQ(warp(T_WARP_NEAREST), record == &source.record ? ERR_SIGNED_DATA : SUCCESS) << "one alone, then both";
    EXPECT_EQ(warp(T_WARP_BILINEAR), ERR_SIGNED_DATA);
    if (record == &source.record) {
      EXPECT_EQ(Row(target.record, 3), before);
    }
  }
  target.record.LowBit = 4;  // another format
  EXPECT_EQ(warp(T_WARP_NEAREST), ERR_SIGNED_DATA);
}

}  // namespace
