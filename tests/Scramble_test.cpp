// Scrambling against its description, and back again.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <utility>
#include <vector>

#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Random.h"
#include "engine/Scene.h"

using tarn::engine::Bytes;
using tarn::engine::Kind;
using tarn::engine::Picture;
using tarn::engine::Shape;

namespace {

Bytes PixelsOf(const BitmapHandle& record) {
  Bytes rows;
  EXPECT_EQ(tarn::engine::ReadPixels(record, rows), "");
  return rows;
}

struct Area {
  int32_t column, row, width, height;
};

int32_t Call(BitmapHandle& b, const Area& a, uint32_t key, uint32_t flags) {
  return T_ScrambleBitmap(&b, a.column, a.row, a.width, a.height, key, flags);
}

/// Bit positions of a pixel in a row: bits below 8 count from the top of a byte.
uint64_t BitOf(const Bytes& rows, size_t rowBytes, int64_t row, int64_t column, int bits, int bit) {
  const auto at = static_cast<size_t>(column * bits + (bits < 8 ? bits - 1 - bit : bit));
  const uint8_t byte = rows[static_cast<size_t>(row) * rowBytes + at / 8];
  return byte >> (bits < 8 ? 7 - at % 8 : at % 8) & 1;
}
void SetBit(Bytes& rows, size_t rowBytes, int64_t row, int64_t column, int bits, int bit, uint64_t value) {
  const auto at = static_cast<size_t>(column * bits + (bits < 8 ? bits - 1 - bit : bit));
  uint8_t& byte = rows[static_cast<size_t>(row) * rowBytes + at / 8];
  const int shift = static_cast<int>(bits < 8 ? 7 - at % 8 : at % 8);
  byte = static_cast<uint8_t>((byte & ~(1u << shift)) | value << shift);
}

uint64_t Next(uint64_t& s) {
  s += 0x9E3779B97F4A7C15u;
  uint64_t z = s;
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9u;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBu;
  return z ^ (z >> 31);
}

/// The description in the header, a pixel at a time.
Bytes Scrambled(Bytes rows, size_t rowBytes, int bits, const Area& a, uint32_t key) {
  const int bytes = bits <= 8 ? 1 : bits == 12 ? 2 : bits / 8;
  uint64_t block = 0;
  for (int32_t top = 0; top < a.height; top += 16) {
    for (int32_t left = 0; left < a.width; left += 4096, ++block) {
      const int32_t blockRows = std::min(16, a.height - top), blockColumns = std::min(4096, a.width - left);
      std::vector<uint64_t> pixels;
      for (int32_t y = 0; y < blockRows; ++y)
        for (int32_t x = 0; x < blockColumns; ++x) {
          uint64_t value = 0;
          for (int bit = 0; bit < bits; ++bit)
            value |= BitOf(rows, rowBytes, a.row + top + y, a.column + left + x, bits, bit) << bit;
          pixels.push_back(value);
        }
      uint64_t s = block;
      s = Next(s) ^ key;
      s = Next(s);
      uint64_t number = 0;
      int drawn = 0;
      for (size_t i = pixels.size() - 1; i >= 1; --i, ++drawn) {
        if (drawn % 2 == 0) number = Next(s);
        const uint64_t u = drawn % 2 ? number & 0xFFFFFFFF : number >> 32;
        std::swap(pixels[i], pixels[static_cast<size_t>((u * (i + 1)) >> 32)]);
        if (i == 1) break;
      }
      Bytes stream;
      while (stream.size() < pixels.size() * static_cast<size_t>(bytes)) {
        const uint64_t word = Next(s);
        for (int i = 0; i < 8; ++i) stream.push_back(static_cast<uint8_t>(word >> 8 * i));
      }
      size_t i = 0;
      for (int32_t y = 0; y < blockRows; ++y)
        for (int32_t x = 0; x < blockColumns; ++x, ++i) {
          uint64_t mask = 0;
          std::memcpy(&mask, stream.data() + i * static_cast<size_t>(bytes), static_cast<size_t>(bytes));
          for (int bit = 0; bit < bits; ++bit)
            SetBit(rows, rowBytes, a.row + top + y, a.column + left + x, bits, bit, (pixels[i] ^ mask) >> bit & 1);
        }
    }
  }
  return rows;
}

}  // namespace

TEST(Scramble, AsDescribedAndBackInEveryDepthAndStorage) {
  const Area areas[] = {{0, 0, 43, 37}, {5, 3, 17, 30}, {42, 36, 1, 1}, {11, 7, 21, 1}};
  for (const int32_t bits : tarn::engine::kDepths) {
    const Shape shape{43, 37, bits};
    for (int kind = 0; kind < tarn::engine::kKinds; ++kind) {
      if (!shape.Suits(static_cast<Kind>(kind))) continue;
      const tarn::engine::ThresholdScope scope;
      Picture picture;
      ASSERT_EQ(picture.Make(static_cast<Kind>(kind), shape, 11), "");
      // Where memory is at hand, with something in what no pixel uses.
      if (static_cast<Kind>(kind) == Kind::kBlock)
        for (uint32_t row = 0; row < 37; ++row) {
          uint8_t* const last = picture.record.Data + (row + 1) * picture.record.BytesPerLine - 1;
          if (int64_t{43} * bits % 32 != 0 && (int64_t{43} * bits + 7) / 8 < picture.record.BytesPerLine) *last = 0xA5;
        }
      const Bytes before = PixelsOf(picture.record);
      for (const Area& area : areas) {
        SCOPED_TRACE(Text(shape) + ", " + tarn::engine::NameOf(static_cast<Kind>(kind)) + ", " +
                     std::to_string(area.column));
        ASSERT_EQ(Call(picture.record, area, 0xC0FFEE, T_SCRAMBLE_SCRAMBLE), SUCCESS);
        ASSERT_EQ(PixelsOf(picture.record), Scrambled(before, picture.record.BytesPerLine, bits, area, 0xC0FFEE));
        ASSERT_EQ(Call(picture.record, area, 0xC0FFEE, T_SCRAMBLE_RESTORE), SUCCESS);
        ASSERT_EQ(PixelsOf(picture.record), before);
      }
    }
  }
}

TEST(Scramble, WideRowsAndOtherKeys) {
  const Shape shape{9001, 18, 4};
  Picture picture;
  ASSERT_EQ(picture.MakeBlank(Kind::kBlock, shape), "");
  const Bytes blank = PixelsOf(picture.record);
  const Area area{3, 1, 8990, 17};
  ASSERT_EQ(Call(picture.record, area, 5, T_SCRAMBLE_SCRAMBLE), SUCCESS);
  const Bytes first = PixelsOf(picture.record);
  EXPECT_EQ(first, Scrambled(blank, picture.record.BytesPerLine, 4, area, 5));
  // A blank page becomes noise: all indices, equally often.
  size_t counts[16] = {};
  for (int32_t y = 1; y < 18; ++y)
    for (int32_t x = 4; x < 8993; ++x)
      ++counts[first[static_cast<size_t>(y) * picture.record.BytesPerLine + static_cast<size_t>(x) / 2] >>
                   (x % 2 ? 0 : 4) &
               15];
  for (const size_t count : counts) EXPECT_NEAR(static_cast<double>(count), 17 * 8989 / 16.0, 600);
  // Another key does not restore it, nor is it another mask alone.
  ASSERT_EQ(Call(picture.record, area, 6, T_SCRAMBLE_RESTORE), SUCCESS);
  const Bytes wrong = PixelsOf(picture.record);
  size_t same = 0;
  for (size_t i = picture.record.BytesPerLine; i < wrong.size(); ++i) same += wrong[i] == blank[i];
  EXPECT_LT(same, wrong.size() / 50);
}

TEST(Scramble, ChecksInTheirOrder) {
  Picture p;
  ASSERT_EQ(p.Make(Kind::kBlock, {20, 10, 8}, 1), "");
  const Bytes before = PixelsOf(p.record);
  EXPECT_EQ(T_ScrambleBitmap(nullptr, 0, 0, 1, 1, 0, 1), ERR_NO_BITMAP);
  for (const uint32_t flags : {0u, 3u, 4u, 5u})
    EXPECT_EQ(Call(p.record, {0, 0, 5, 5}, 1, flags), ERR_INVALID_PARAMETER);
  for (const Area& a : {Area{-1, 0, 5, 5}, Area{0, -1, 5, 5}, Area{0, 0, 0, 5}, Area{0, 0, 5, -1}, Area{16, 0, 5, 5},
                        Area{0, 6, 5, 5}, Area{1, 1, INT32_MAX, INT32_MAX}, Area{INT32_MAX, 0, 1, 1}})
    EXPECT_EQ(Call(p.record, a, 1, 1), ERR_INVALID_PARAMETER);
  p.record.StructSize = 3;
  EXPECT_EQ(Call(p.record, {0, 0, 5, 5}, 1, 9), ERR_BAD_STRUCT_SIZE);
  p.record.StructSize = sizeof p.record;
  EXPECT_EQ(PixelsOf(p.record), before);
}

namespace {
struct Stop {
  int32_t calls, at;
};
int32_t StopAt(int32_t, void* data) {
  auto& stop = *static_cast<Stop*>(data);
  return ++stop.calls == stop.at ? 7 : SUCCESS;
}
}  // namespace

TEST(Scramble, StoppedAtEveryCall) {
  tarn::engine::Scene scene;
  for (const Kind kind : {Kind::kBlock, Kind::kMemoryTiles, Kind::kMixedTiles, Kind::kDisk, Kind::kCompressed}) {
    Picture p;
    ASSERT_EQ(p.Make(kind, {19, 40, 1}, 7), "");
    const Bytes before = PixelsOf(p.record);
    for (int32_t at = 1;; ++at) {
      Stop stop{0, at};
      T_SetStatusCallBack(StopAt, &stop, nullptr, nullptr);
      const int32_t status = Call(p.record, {3, 2, 15, 37}, 9, T_SCRAMBLE_SCRAMBLE);
      T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
      if (status == SUCCESS) break;
      ASSERT_EQ(status, 7);
      ASSERT_EQ(PixelsOf(p.record), before) << NameOf(kind) << ", " << at;
    }
    EXPECT_NE(PixelsOf(p.record), before);
  }
}
