// Overlays: places, attributes, bits.
#include <gtest/gtest.h>

#include <tuple>
#include <vector>

#include "Common/Internal/Overlays.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "tarn/tarn.h"

namespace {

using tarn::engine::Kind;
using tarn::engine::Picture;

constexpr T_OverlayAttributes kMoved{sizeof(T_OverlayAttributes), 3, -2, 0x00FF00, 0, 6};

class Overlay : public testing::Test {
 protected:
  Overlay() {
    owner.Make(Kind::kBlock, {40, 30, 8}, 1);
    mask.Make(Kind::kBlock, {13, 11, 1}, 2);
  }
  uint32_t Count() {
    uint32_t count = 99;
    EXPECT_EQ(T_GetOverlayCount(&owner.record, &count), SUCCESS);
    return count;
  }
  Picture owner, mask;
};

TEST_F(Overlay, PlacesAreAppendedEmptiedAndCutOff) {
  BitmapHandle* const bitmap = &owner.record;
  EXPECT_EQ(Count(), 0u);
  for (int32_t i = 0; i < 4; ++i) ASSERT_EQ(T_SetOverlayBitmap(bitmap, i, &mask.record, T_OVERLAY_COPY), SUCCESS);
  EXPECT_EQ(T_SetOverlayBitmap(bitmap, 5, &mask.record, T_OVERLAY_COPY), ERR_OVERLAY_INDEX);
  EXPECT_EQ(T_SetOverlayBitmap(bitmap, -1, &mask.record, T_OVERLAY_COPY), ERR_OVERLAY_INDEX);
  EXPECT_EQ(T_SetOverlayBitmap(bitmap, 2, nullptr, 0), SUCCESS);
  EXPECT_EQ(Count(), 4u);
  BitmapHandle got;
  EXPECT_EQ(T_GetOverlayBitmap(bitmap, 2, &got, sizeof got, T_OVERLAY_SHARE), ERR_OVERLAY_INDEX);
  EXPECT_EQ(T_SetOverlayBitmap(bitmap, 3, nullptr, 0), SUCCESS);
  EXPECT_EQ(Count(), 2u) << "the empty one before the last goes too";
  EXPECT_EQ(T_SetOverlayBitmap(bitmap, 3, nullptr, 0), ERR_OVERLAY_INDEX);
  EXPECT_EQ(T_SetOverlayBitmap(bitmap, 0, nullptr, 0), SUCCESS);
  EXPECT_EQ(T_SetOverlayBitmap(bitmap, 1, nullptr, 0), SUCCESS);
  EXPECT_EQ(Count(), 0u);
  EXPECT_TRUE(bitmap->Overlays == nullptr);
}

TEST_F(Overlay, PlacesAreGivenAnewAndLimited) {
  BitmapHandle* const bitmap = &owner.record;
  ASSERT_EQ(T_SetOverlayBitmap(bitmap, 0, &mask.record, T_OVERLAY_COPY), SUCCESS);
  auto held = tarn::platform::Held();
  ASSERT_EQ(T_SetOverlayBitmap(bitmap, 0, &mask.record, T_OVERLAY_COPY), SUCCESS);
  EXPECT_TRUE(tarn::test::SameHeld(held, tarn::platform::Held())) << "the one before is freed";
  ASSERT_EQ(T_SetOverlayAttributes(bitmap, 1, &kMoved, T_OVERLAY_POSITION), SUCCESS);
  EXPECT_EQ(Count(), 2u);
  EXPECT_EQ(T_SetOverlayBitmap(bitmap, 1, nullptr, 0), SUCCESS) << "one without a bitmap";
  EXPECT_EQ(Count(), 1u);

  constexpr uint32_t kMost = 65536;
  Picture full;
  full.Make(Kind::kBlock, {5, 5, 8}, 3);
  full.record.Overlays = static_cast<T_OverlayList*>(
      T_LocalAllocInit(1, sizeof(T_OverlayList) + kMost * sizeof(tarn::Overlay), 1, L"here"));
  full.record.Overlays->count = kMost;
  held = tarn::platform::Held();
  for (const uint32_t mode : {T_OVERLAY_COPY, T_OVERLAY_MOVE})
    EXPECT_EQ(T_SetOverlayBitmap(&full.record, kMost, &mask.record, mode), ERR_OVERLAY_INDEX);
  EXPECT_EQ(T_SetOverlayAttributes(&full.record, kMost, &kMoved, T_OVERLAY_POSITION), ERR_OVERLAY_INDEX);
  EXPECT_TRUE(tarn::test::SameHeld(held, tarn::platform::Held()));
  EXPECT_TRUE(mask.record.Flags & T_FLAG_ALLOCATED);
  EXPECT_EQ(T_SetOverlayAttributes(&full.record, kMost - 1, &kMoved, T_OVERLAY_POSITION), SUCCESS);
}

TEST_F(Overlay, BitmapsAreCopiedSharedAndMoved) {
  BitmapHandle* const bitmap = &owner.record;
  const void* const data = mask.record.Data;
  ASSERT_EQ(T_SetOverlayBitmap(bitmap, 0, &mask.record, T_OVERLAY_MOVE), SUCCESS);
  EXPECT_EQ(mask.record.Flags & T_FLAG_ALLOCATED, 0u);
  EXPECT_EQ(T_SetOverlayBitmap(bitmap, 1, &mask.record, T_OVERLAY_MOVE), ERR_OVERLAY_NO_BITMAP);
  EXPECT_EQ(T_SetOverlayBitmap(bitmap, 1, bitmap, T_OVERLAY_MOVE), ERR_INVALID_PARAMETER);
  BitmapHandle shared, copy, moved;
  ASSERT_EQ(T_GetOverlayBitmap(bitmap, 0, &shared, sizeof shared, T_OVERLAY_SHARE), SUCCESS);
  EXPECT_TRUE(shared.Data == data);
  ASSERT_EQ(T_GetOverlayBitmap(bitmap, 0, &copy, sizeof copy, T_OVERLAY_COPY), SUCCESS);
  EXPECT_TRUE(copy.Data != data);
  ASSERT_EQ(T_SetOverlayAttributes(bitmap, 0, &kMoved, 15), SUCCESS);
  ASSERT_EQ(T_GetOverlayBitmap(bitmap, 0, &moved, sizeof moved, T_OVERLAY_MOVE), SUCCESS);
  EXPECT_TRUE(moved.Data == data);
  EXPECT_EQ(T_GetOverlayBitmap(bitmap, 0, &shared, sizeof shared, T_OVERLAY_SHARE), ERR_OVERLAY_NO_BITMAP);
  EXPECT_EQ(T_MoveOverlayBits(bitmap, 0, T_OVERLAY_TO_BITMAP), ERR_OVERLAY_NO_BITMAP);
  // The attributes wait for the next one.
  ASSERT_EQ(T_SetOverlayBitmap(bitmap, 0, &moved, T_OVERLAY_MOVE), SUCCESS);
  T_OverlayAttributes attributes;
  ASSERT_EQ(T_GetOverlayAttributes(bitmap, 0, &attributes, sizeof attributes), SUCCESS);
  EXPECT_EQ(std::tie(attributes.Left, attributes.Top, attributes.Color, attributes.Flags, attributes.Bit),
            std::make_tuple(3, -2, 0x00FF00u, 0u, 6));
  T_FreeBitmap(&copy);
}

TEST_F(Overlay, RefusesInTheDocumentedOrder) {
  BitmapHandle* const bitmap = &owner.record;
  uint32_t count;
  T_OverlayAttributes attributes = kMoved;
  EXPECT_EQ(T_GetOverlayCount(nullptr, &count), ERR_NULL_POINTER);
  EXPECT_EQ(T_GetOverlayCount(bitmap, nullptr), ERR_NULL_POINTER);
  EXPECT_EQ(T_SetOverlayAttributes(bitmap, 0, nullptr, 1), ERR_NULL_POINTER);
  BitmapHandle empty;
  T_InitBitmap(&empty, sizeof empty, 4, 4, 8);
  EXPECT_EQ(T_SetOverlayBitmap(&empty, 0, &mask.record, 0), ERR_NO_BITMAP);
  empty.StructSize = 211;
  EXPECT_EQ(T_GetOverlayCount(&empty, &count), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_GetOverlayBitmap(bitmap, 0, &empty, 211, 0), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_GetOverlayAttributes(bitmap, 0, &attributes, sizeof attributes), ERR_OVERLAY_INDEX);
  attributes.Bit = 32;
  EXPECT_EQ(T_SetOverlayAttributes(bitmap, 0, &attributes, T_OVERLAY_BIT), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetOverlayAttributes(bitmap, 0, &attributes, 16), ERR_INVALID_PARAMETER);
  EXPECT_EQ(Count(), 0u) << "nothing was put into use";
  attributes.Bit = 8;
  ASSERT_EQ(T_SetOverlayAttributes(bitmap, 0, &attributes, T_OVERLAY_BIT), SUCCESS);
  EXPECT_EQ(T_MoveOverlayBits(bitmap, 0, T_OVERLAY_FROM_BITMAP), ERR_INVALID_PARAMETER) << "8-bit pixels";
  ASSERT_EQ(T_SetOverlayBitmap(bitmap, 0, bitmap, T_OVERLAY_COPY), SUCCESS);
  EXPECT_EQ(T_MoveOverlayBits(bitmap, 0, T_OVERLAY_FROM_BITMAP), ERR_BAD_BITS_PER_PIXEL);

  ASSERT_EQ(T_SetOverlayBitmap(bitmap, 0, &mask.record, T_OVERLAY_COPY), SUCCESS);
  ASSERT_EQ(T_SetOverlayAttributes(bitmap, 0, &kMoved, T_OVERLAY_BIT), SUCCESS);
  BitmapHandle got;
  EXPECT_EQ(T_GetOverlayBitmap(bitmap, 0, nullptr, sizeof got, 0), ERR_NULL_POINTER);
  EXPECT_EQ(T_GetOverlayBitmap(bitmap, 0, &got, sizeof got, 3), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetOverlayBitmap(bitmap, 0, &mask.record, T_OVERLAY_SHARE), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetOverlayAttributes(bitmap, 0, nullptr, sizeof attributes), ERR_NULL_POINTER);
  EXPECT_EQ(T_GetOverlayAttributes(bitmap, 0, &attributes, 1), ERR_BAD_STRUCT_SIZE);
  attributes.Bit = -1;
  EXPECT_EQ(T_SetOverlayAttributes(bitmap, 0, &attributes, T_OVERLAY_BIT), ERR_INVALID_PARAMETER);
  attributes.StructSize = 1;
  EXPECT_EQ(T_SetOverlayAttributes(bitmap, 0, &attributes, T_OVERLAY_BIT), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_MoveOverlayBits(bitmap, 0, 2), ERR_INVALID_PARAMETER);
  for (BitmapHandle* damaged : {bitmap, &bitmap->Overlays->Items()[0].bitmap}) {
    const uint32_t rowBytes = damaged->BytesPerLine;
    damaged->BytesPerLine = 1;
    EXPECT_EQ(T_MoveOverlayBits(bitmap, 0, T_OVERLAY_TO_BITMAP), ERR_INVALID_PARAMETER);
    damaged->BytesPerLine = rowBytes;
  }
  // A perspective that does not exist: no overlay, and nothing left of it.
  ASSERT_EQ(T_SetOverlayAttributes(bitmap, 1, &kMoved, T_OVERLAY_BIT), SUCCESS);
  const auto held = tarn::platform::Held();
  bitmap->ViewPerspective = 9;
  EXPECT_EQ(T_MoveOverlayBits(bitmap, 1, T_OVERLAY_FROM_BITMAP), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetOverlayBitmap(bitmap, 1, &got, sizeof got, T_OVERLAY_SHARE), ERR_OVERLAY_NO_BITMAP);
  EXPECT_TRUE(tarn::test::SameHeld(held, tarn::platform::Held()));
}

TEST_F(Overlay, EveryFunctionRefusesAlike) {
  using Function = int32_t (*)(BitmapHandle * bitmap, int32_t index);
  constexpr Function functions[] = {
      [](BitmapHandle* b, int32_t i) { return T_SetOverlayBitmap(b, i, nullptr, 0); },
      [](BitmapHandle* b, int32_t i) { return T_SetOverlayAttributes(b, i, &kMoved, T_OVERLAY_BIT); },
      [](BitmapHandle* b, int32_t i) { return T_MoveOverlayBits(b, i, T_OVERLAY_FROM_BITMAP); },
      [](BitmapHandle* b, int32_t i) {
        BitmapHandle got;
        return T_GetOverlayBitmap(b, i, &got, sizeof got, T_OVERLAY_SHARE);
      },
      [](BitmapHandle* b, int32_t i) {
        T_OverlayAttributes got;
        return T_GetOverlayAttributes(b, i, &got, sizeof got);
      }};
  for (const Function function : functions) {
    SCOPED_TRACE(&function - functions);
    tarn::test::Bitmap empty(4, 4, 8);
    EXPECT_EQ(function(nullptr, 0), ERR_NULL_POINTER);
    EXPECT_EQ(function(&empty, 0), ERR_NO_BITMAP);
    empty.StructSize = 211;
    EXPECT_EQ(function(&empty, 0), ERR_BAD_STRUCT_SIZE);
    for (const int32_t index : {-1, INT32_MIN, 1, INT32_MAX})
      EXPECT_EQ(function(&owner.record, index), ERR_OVERLAY_INDEX) << index;
  }
  EXPECT_EQ(Count(), 0u);
}

/// The bit of a pixel, read from its bytes.
int BitOf(BitmapHandle& bitmap, int32_t x, int32_t y, int32_t bit) {
  std::vector<uint8_t> row(size_t(bitmap.BytesPerLine));
  EXPECT_GT(T_GetBitmapRow(&bitmap, row.data(), uint32_t(y), row.size()), 0);
  if (bitmap.BitsPerPixel == 1) return row[size_t(x / 8)] >> (7 - x % 8) & 1;
  const int32_t at = x * bitmap.BitsPerPixel + bit;
  return row[size_t(at / 8)] >> (at % 8) & 1;
}

TEST_F(Overlay, BitsGoIntoAPlaneAndBack) {
  for (const int32_t bits : {8, 12, 16, 32}) {
    for (const Kind kind : {Kind::kBlock, Kind::kMixedTiles, Kind::kDisk}) {
      SCOPED_TRACE(bits);
      owner.Make(kind, {21, 17, bits}, 3);
      if (bits == 32) owner.record.Order = T_ORDER_GRAY;
      Picture before;
      before.Make(Kind::kBlock, {21, 17, bits}, 3);
      BitmapHandle* const bitmap = &owner.record;
      const int32_t bit = bits - 2;
      const T_OverlayAttributes place{sizeof place, 12, -3, 0, 1, bit};
      ASSERT_EQ(T_SetOverlayBitmap(bitmap, 0, &mask.record, T_OVERLAY_COPY), SUCCESS);
      ASSERT_EQ(T_SetOverlayAttributes(bitmap, 0, &place, T_OVERLAY_POSITION | T_OVERLAY_BIT), SUCCESS);
      ASSERT_EQ(T_MoveOverlayBits(bitmap, 0, T_OVERLAY_TO_BITMAP), SUCCESS);
      for (int32_t y = 0; y < 17; ++y) {
        for (int32_t x = 0; x < 21; ++x) {
          const bool under = x >= 12 && x < 25 && y < 8;
          for (int32_t b = 0; b < bits; ++b) {
            const int wanted = under && b == bit ? BitOf(mask.record, x - 12, y + 3, 0) : BitOf(before.record, x, y, b);
            ASSERT_EQ(BitOf(*bitmap, x, y, b), wanted) << x << ',' << y << ' ' << b;
          }
        }
      }
      // Out again: what hangs over is 0.
      ASSERT_EQ(T_MoveOverlayBits(bitmap, 0, T_OVERLAY_FROM_BITMAP), SUCCESS);
      BitmapHandle read;
      ASSERT_EQ(T_GetOverlayBitmap(bitmap, 0, &read, sizeof read, T_OVERLAY_SHARE), SUCCESS);
      for (int32_t y = 0; y < 11; ++y)
        for (int32_t x = 0; x < 13; ++x)
          ASSERT_EQ(BitOf(read, x, y, 0), y >= 3 && x < 9 ? BitOf(mask.record, x, y, 0) : 0) << x << ',' << y;
      // A place without a bitmap gets the whole plane.
      ASSERT_EQ(T_SetOverlayAttributes(bitmap, 1, &place, T_OVERLAY_BIT), SUCCESS);
      ASSERT_EQ(T_MoveOverlayBits(bitmap, 1, T_OVERLAY_FROM_BITMAP), SUCCESS);
      ASSERT_EQ(T_GetOverlayBitmap(bitmap, 1, &read, sizeof read, T_OVERLAY_SHARE), SUCCESS);
      for (int32_t y = 0; y < 17; ++y)
        for (int32_t x = 0; x < 21; ++x) ASSERT_EQ(BitOf(read, x, y, 0), BitOf(*bitmap, x, y, bit));
    }
  }
}

TEST_F(Overlay, BitsOfOverlaysBesideTheBitmap) {
  BitmapHandle* const bitmap = &owner.record;
  tarn::engine::Bytes before, after;
  tarn::engine::ReadPixels(*bitmap, before);
  constexpr int32_t kFar = INT32_MAX;
  for (const auto& [left, top] : {std::pair{40, 0}, {0, 30}, {-13, 3}, {3, -11}, {kFar, kFar}, {-kFar, -kFar}}) {
    const T_OverlayAttributes place{sizeof place, left, top, 0, 0, 5};
    ASSERT_EQ(T_SetOverlayBitmap(bitmap, 0, &mask.record, T_OVERLAY_COPY), SUCCESS);
    ASSERT_EQ(T_SetOverlayAttributes(bitmap, 0, &place, T_OVERLAY_POSITION | T_OVERLAY_BIT), SUCCESS);
    EXPECT_EQ(T_MoveOverlayBits(bitmap, 0, T_OVERLAY_TO_BITMAP), SUCCESS);
    tarn::engine::ReadPixels(*bitmap, after);
    EXPECT_EQ(after, before) << left << ',' << top;
    EXPECT_EQ(T_MoveOverlayBits(bitmap, 0, T_OVERLAY_FROM_BITMAP), SUCCESS);
    tarn::engine::ReadPixels(bitmap->Overlays->Items()[0].bitmap, after);
    EXPECT_EQ(after, tarn::engine::Bytes(after.size())) << left << ',' << top;
  }
}

// Rows of the caller's that are longer than their pixels need: what is made of them has no such room.
TEST_F(Overlay, BitsIntoRowsWithRoomOfTheirOwn) {
  constexpr int32_t kWidth = 30, kHeight = 20;
  std::vector<uint8_t> memory(size_t{164} * kHeight, 0x11);
  tarn::test::Bitmap b(kWidth, kHeight, 8);
  b.BytesPerLine = 164;
  b.Size = static_cast<uint32_t>(memory.size());
  ASSERT_EQ(T_AllocateBitmap(&b, TYPE_USER), SUCCESS);
  ASSERT_EQ(T_SetBitmapDataPointer(&b, memory.data(), memory.size()), SUCCESS);
  Picture overlay;
  ASSERT_EQ(overlay.Make(Kind::kBlock, {kWidth, kHeight, 1}, 5), "");
  ASSERT_EQ(T_SetOverlayBitmap(&b, 0, &overlay.record, T_OVERLAY_COPY), SUCCESS);
  const T_OverlayAttributes attributes{sizeof attributes, 0, 0, 0, 0, 7};
  ASSERT_EQ(T_SetOverlayAttributes(&b, 0, &attributes, T_OVERLAY_BIT), SUCCESS);
  ASSERT_EQ(T_MoveOverlayBits(&b, 0, T_OVERLAY_TO_BITMAP), SUCCESS);
  for (uint32_t y = 0; y < kHeight; ++y) {
    const std::vector<uint8_t> row = tarn::test::Row(b, y), bits = tarn::test::Row(overlay.record, y);
    for (size_t x = 0; x < kWidth; ++x) EXPECT_EQ(row.at(x), 0x11 | (bits.at(x / 8) << x % 8 & 0x80)) << x << ", " << y;
  }
}

}  // namespace
