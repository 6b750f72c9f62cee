// Filling and clearing: every format and storage kind pixel by pixel, hooks, stopping at every call.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <vector>

#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Scene.h"

using tarn::engine::Bytes;
using tarn::engine::Kind;
using tarn::engine::Picture;
using tarn::engine::Shape;
using tarn::test::V;

namespace {

Bytes PixelsOf(const BitmapHandle& record) {
  Bytes rows;
  EXPECT_EQ(tarn::engine::ReadPixels(record, rows), "");
  return rows;
}

/// What putting the colour into every pixel of a bitmap of zeros makes.
Bytes PutEverywhere(const Shape& shape, uint32_t order, uint32_t color) {
  Picture picture;
  EXPECT_EQ(picture.MakeBlank(Kind::kBlock, shape), "");
  picture.record.Order = order;
  for (int32_t row = 0; row < shape.height; ++row)
    for (int32_t column = 0; column < shape.width; ++column) T_PutPixelColor(&picture.record, row, column, color);
  return PixelsOf(picture.record);
}

struct Calls {
  std::vector<int32_t> percent;
  size_t stopAt = 0;  // number of the call that is answered with `answer`
  int32_t answer = SUCCESS;
};
int32_t Count(int32_t percent, void* data) {
  auto& calls = *static_cast<Calls*>(data);
  calls.percent.push_back(percent);
  return calls.percent.size() == calls.stopAt ? calls.answer : SUCCESS;
}

}  // namespace

TEST(Fill, EveryFormatAndStorage) {
  const struct {
    int32_t bits;
    uint32_t order;
  } formats[] = {{1, 0},  {2, 0},  {3, 0},  {4, 0},  {5, 0},  {6, 0},  {7, 0},  {8, 0},  {12, 2}, {16, 1},
                 {16, 2}, {24, 0}, {24, 1}, {24, 5}, {32, 1}, {32, 2}, {48, 0}, {48, 5}, {64, 1}};
  // Rows with and without padding, of few bytes, and longer than what is copied on at a time.
  const Shape shapes[] = {{1, 5, 0}, {21, 7, 0}, {32, 6, 0}, {5003, 4, 0}, {9, 700, 0}};
  for (const auto& f : formats) {
    for (Shape shape : shapes) {
      shape.bits = f.bits;
      for (const uint32_t color : {0x00000000u, 0x00FFFFFFu, 0x00B0A0E0u, 0x0400ABCDu}) {
        if (color != 0x00B0A0E0 && shape.width * shape.height > 1000) continue;
        const Bytes wanted = PutEverywhere(shape, f.order, color);
        for (int kind = 0; kind < tarn::engine::kKinds; ++kind) {
          if (!shape.Suits(static_cast<Kind>(kind))) continue;
          if (shape.height > 100 && kind > static_cast<int>(Kind::kMemoryTiles)) continue;
          SCOPED_TRACE(Text(shape) + ", " + tarn::engine::NameOf(static_cast<Kind>(kind)) + ", order " +
                       std::to_string(f.order) + ", color " + std::to_string(color));
          const tarn::engine::ThresholdScope scope;
          Picture picture;
          ASSERT_EQ(picture.Make(static_cast<Kind>(kind), shape, 3), "");
          picture.record.Order = f.order;
          const uint32_t storage = picture.record.Flags & (T_FLAG_COMPRESSED | T_FLAG_ON_DISK | T_FLAG_USER_DATA);
          ASSERT_EQ(T_FillBitmap(&picture.record, color), SUCCESS);
          ASSERT_EQ(PixelsOf(picture.record), wanted);
          ASSERT_EQ(picture.record.Flags & (T_FLAG_COMPRESSED | T_FLAG_ON_DISK | T_FLAG_USER_DATA), storage);
          ASSERT_EQ(V(picture.record.Order), f.order);
          ASSERT_EQ(T_ClearBitmap(&picture.record), SUCCESS);
          ASSERT_EQ(PixelsOf(picture.record), Bytes(wanted.size()));
        }
      }
    }
  }
}

TEST(Fill, IndicesAndAlpha) {
  Picture p;
  ASSERT_EQ(p.Make(Kind::kBlock, {9, 4, 4}, 1), "");
  EXPECT_EQ(T_FillBitmap(&p.record, 0x0100000B), SUCCESS);
  EXPECT_EQ(PixelsOf(p.record)[0], 0xBB);
  EXPECT_EQ(T_FillBitmap(&p.record, 0x01000010), ERR_INVALID_PARAMETER);
  EXPECT_EQ(PixelsOf(p.record)[0], 0xBB);
  Picture alpha;
  ASSERT_EQ(alpha.Make(Kind::kBlock, {9, 4, 32}, 1), "");
  EXPECT_EQ(T_FillBitmap(&alpha.record, 0x0100000B), SUCCESS) << "indices are black where there is no palette";
  EXPECT_EQ(PixelsOf(alpha.record), Bytes(9 * 4 * 4));
}

TEST(Fill, ChecksInTheirOrder) {
  Picture p;
  ASSERT_EQ(p.Make(Kind::kBlock, {9, 4, 24}, 1), "");
  BitmapHandle& b = p.record;
  const Bytes before = PixelsOf(b);
  EXPECT_EQ(T_FillBitmap(nullptr, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_ClearBitmap(nullptr), ERR_NO_BITMAP);
  b.StructSize = 1;
  EXPECT_EQ(T_FillBitmap(&b, 0), ERR_BAD_STRUCT_SIZE);
  b.Flags ^= T_FLAG_ALLOCATED;
  EXPECT_EQ(T_ClearBitmap(&b), ERR_NO_BITMAP);
  b.Flags ^= T_FLAG_ALLOCATED;
  b.StructSize = sizeof b;
  b.Width = 99;
  EXPECT_EQ(T_FillBitmap(&b, 0xFFFFFF), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ClearBitmap(&b), ERR_INVALID_PARAMETER);
  b.Width = 9;
  EXPECT_EQ(PixelsOf(b), before);
}

TEST(Fill, StoppedAtEveryCall) {
  tarn::engine::Scene scene;
  for (const Kind kind : {Kind::kBlock, Kind::kCaller, Kind::kMovable, Kind::kMemoryTiles, Kind::kSwapTiles,
                          Kind::kDisk, Kind::kCompressed}) {
    for (const bool clear : {false, true}) {
      SCOPED_TRACE(std::string(tarn::engine::NameOf(kind)) + (clear ? ", clear" : ", fill"));
      Picture p;
      ASSERT_EQ(p.Make(kind, {19, 11, 1}, 7), "");
      const auto run = [&](Calls& calls) {
        T_SetStatusCallBack(Count, &calls, nullptr, nullptr);
        const int32_t status = clear ? T_ClearBitmap(&p.record) : T_FillBitmap(&p.record, 0xFFFFFF);
        T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
        return status;
      };
      T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
      const Bytes before = PixelsOf(p.record);
      const BitmapHandle record = p.record;
      const tarn::engine::World world = LookAround(scene);
      Calls all;
      for (size_t at = 1;; ++at) {
        Calls calls;
        calls.stopAt = at;
        calls.answer = at % 2 ? -100 : 2;
        const int32_t status = run(calls);
        if (status == SUCCESS) {
          all = calls;
          break;
        }
        ASSERT_EQ(status, calls.answer);
        ASSERT_EQ(PixelsOf(p.record), before) << at;
        ASSERT_EQ(V(p.record.Data), V(record.Data));
        ASSERT_EQ(V(p.record.MemoryHandle), V(record.MemoryHandle));
        ASSERT_EQ(Changes(world, LookAround(scene)), "");
      }
      EXPECT_NE(PixelsOf(p.record), before);
      EXPECT_EQ(all.percent.front(), 0);
      EXPECT_EQ(all.percent.back(), 100);
      EXPECT_TRUE(std::is_sorted(all.percent.begin(), all.percent.end()));
      EXPECT_EQ(std::count(all.percent.begin(), all.percent.end(), 100), 1);
    }
  }
}

namespace {
uint32_t hookColor = 0;
int32_t FillRegion(BitmapHandle*, uint32_t color) {
  hookColor = color;
  return -77;
}
}  // namespace

TEST(Fill, RegionsAreTheHooks) {
  Picture p;
  ASSERT_EQ(p.Make(Kind::kBlock, {9, 4, 24}, 1), "");
  const Bytes before = PixelsOf(p.record);
  T_RegionHooks hooks{};
  hooks.StructSize = sizeof hooks;
  hooks.Fill = FillRegion;
  const T_RegionHooks* const old = T_SetRegionHooks(&hooks);
  p.record.Region = 5;
  EXPECT_EQ(T_FillBitmap(&p.record, 0x0100ABCD), -77);
  EXPECT_EQ(hookColor, 0x0100ABCDu);
  EXPECT_EQ(PixelsOf(p.record), before);
  p.record.Region = 0;
  EXPECT_EQ(T_FillBitmap(&p.record, 0x00112233), SUCCESS) << "without a region the bitmap";
  EXPECT_EQ(PixelsOf(p.record)[0], 0x11);
  p.record.Region = 5;
  EXPECT_EQ(T_ClearBitmap(&p.record), SUCCESS);
  EXPECT_EQ(PixelsOf(p.record)[0], 0);
  hooks.Fill = nullptr;
  EXPECT_EQ(T_FillBitmap(&p.record, 0x00112233), SUCCESS) << "without the hook, too";
  EXPECT_EQ(PixelsOf(p.record)[0], 0x11);
  p.record.Region = 0;
  T_SetRegionHooks(old);
}
