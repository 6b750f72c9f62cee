// Whole copies, rectangles and trims against a model that knows single pixels.

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "Common/Internal/Overlays.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Random.h"

using namespace tarn::test;
using tarn::engine::Bytes;
using tarn::engine::Kind;
using tarn::engine::kKinds;
using tarn::engine::Picture;
using tarn::engine::ReadPixels;
using tarn::engine::Shape;

namespace {

/// Bits of rows by pixel: most significant bits first, but pairs of 12-bit pixels least significant bits first.
bool BitOf(const Bytes& rows, const Shape& shape, int32_t row, int64_t bit) {
  const uint8_t byte = rows[static_cast<size_t>(row) * shape.RowBytes() + static_cast<size_t>(bit / 8)];
  return byte >> (shape.bits == 12 ? bit % 8 : 7 - bit % 8) & 1;
}
void SetBit(Bytes& rows, const Shape& shape, int32_t row, int64_t bit) {
  rows[static_cast<size_t>(row) * shape.RowBytes() + static_cast<size_t>(bit / 8)] |=
      static_cast<uint8_t>(1 << (shape.bits == 12 ? bit % 8 : 7 - bit % 8));
}

struct Area {
  int32_t left, top, width, height;
};
std::string Text(const Area& area) {
  return "(" + std::to_string(area.left) + ", " + std::to_string(area.top) + ") " + std::to_string(area.width) + " x " +
         std::to_string(area.height);
}

Bytes ModelOf(const Bytes& source, const Shape& shape, const Area& area) {
  const Shape target = {area.width, area.height, shape.bits};
  Bytes rows(static_cast<size_t>(target.RowBytes()) * static_cast<uint32_t>(area.height));
  for (int32_t y = 0; y < area.height; ++y) {
    for (int32_t x = 0; x < area.width; ++x) {
      const int64_t column = int64_t{area.left} + x, row = int64_t{area.top} + y;
      if (column < 0 || row < 0 || column >= shape.width || row >= shape.height) continue;
      for (int32_t bit = 0; bit < shape.bits; ++bit) {
        if (BitOf(source, shape, static_cast<int32_t>(row), column * shape.bits + bit))
          SetBit(rows, target, y, int64_t{x} * shape.bits + bit);
      }
    }
  }
  return rows;
}

Bytes PixelsOf(const BitmapHandle& bitmap) {
  Bytes rows;
  EXPECT_EQ(ReadPixels(bitmap, rows), "");
  return rows;
}

BitmapHandle& RecordWithBytes(BitmapHandle& record, uint8_t byte) {
  std::memset(static_cast<void*>(&record), byte, sizeof record);
  return record;
}

bool SameRecord(const BitmapHandle& a, const BitmapHandle& b) {
  BitmapHandle x = a, y = b;  // less what reading rows changes
  x.CachedRow = y.CachedRow = 0;
  x.CachedRowOffset = y.CachedRowOffset = 0;
  return std::memcmp(&x, &y, sizeof x) == 0;
}

int32_t Collect(int32_t percent, void* list) {
  static_cast<std::vector<int32_t>*>(list)->push_back(percent);
  return SUCCESS;
}
int32_t StopAtOnce(int32_t, void* result) { return *static_cast<int32_t*>(result); }

class CopyStatus {
 public:
  CopyStatus(T_StatusCallback callback, void* data) { T_SetCopyStatusCallBack(callback, data, nullptr, nullptr); }
  ~CopyStatus() { T_SetCopyStatusCallBack(nullptr, nullptr, nullptr, nullptr); }
};

constexpr Area kAreas[] = {
    {0, 0, 61, 11},   {3, 2, 40, 5},   {1, 0, 60, 11},    {13, 4, 1, 1},   {60, 10, 1, 1},    {8, 0, 32, 11},
    {-10, 0, 50, 11}, {-1, -1, 63, 4}, {-13, 5, 100, 20}, {59, 7, 40, 40}, {-7, -8, 200, 30}, {17, -3, 23, 4},
    {61, 0, 5, 5},    {0, 11, 5, 5},   {-5, 0, 5, 5},     {0, 0, 61, 3},   {0, -2, 61, 5},
};
constexpr uint32_t kTypes[] = {TYPE_CONV, TYPE_TILED, TYPE_DISK, TYPE_COMPRESSED | TYPE_NODISK};

}  // namespace

// Every rectangle from every storage kind and depth into every kind of storage, into a new bitmap and in place.
TEST(CopyRect, EqualsTheModelForEveryStorageAndDepth) {
  const tarn::engine::ThresholdScope scope;
  int number = 0;
  for (int k = 0; k < kKinds; ++k) {
    const auto kind = static_cast<Kind>(k);
    for (const int32_t bits : tarn::engine::kDepths) {
      const Shape shape = {61, 11, bits};
      if (!shape.Suits(kind)) continue;
      Picture picture;
      ASSERT_EQ(picture.Make(kind, shape, static_cast<uint64_t>(bits)), "");
      const Bytes before = PixelsOf(picture.record);
      for (const Area& area : kAreas) {
        SCOPED_TRACE(std::string(NameOf(kind)) + " " + std::to_string(bits) + " bits " + Text(area));
        const uint32_t type = kTypes[++number % 4];
        Bitmap like, chosen;
        ASSERT_EQ(T_CopyBitmapRect(&like, &picture.record, 212, area.left, area.top, area.width, area.height), SUCCESS);
        ASSERT_EQ(T_CopyBitmapRect2(&chosen, &picture.record, 212, area.left, area.top, area.width, area.height, type),
                  SUCCESS);
        const Bytes wanted = ModelOf(before, shape, area);
        ASSERT_EQ(PixelsOf(like), wanted);
        ASSERT_EQ(PixelsOf(chosen), wanted) << "type " << type;
        ASSERT_EQ(PixelsOf(picture.record), before);
      }
      const Area& area = kAreas[number % 12];  // one that has pixels inside
      SCOPED_TRACE(std::string(NameOf(kind)) + " " + std::to_string(bits) + " bits in place " + Text(area));
      BitmapHandle* const destination = number % 2 ? nullptr : &picture.record;
      ASSERT_EQ(T_CopyBitmapRect(destination, &picture.record, 212, area.left, area.top, area.width, area.height),
                SUCCESS);
      ASSERT_EQ(PixelsOf(picture.record), ModelOf(before, shape, area));
    }
  }
}

TEST(CopyRect, ChecksComeInOrderAndTouchNothing) {
  Bitmap source;
  ASSERT_EQ(T_CreateBitmap(&source, 212, 1, 20, 10, 8, 0, nullptr, 1, nullptr, 0), SUCCESS);
  Fill(source, 1);
  Bitmap empty(20, 10, 8);
  BitmapHandle untouched{}, made{};
  RecordWithBytes(untouched, 0x7D);
  using Call = std::function<int32_t(BitmapHandle * destination, BitmapHandle * source, uint32_t size)>;
  const Call calls[] = {
      [](BitmapHandle* d, BitmapHandle* s, uint32_t size) { return T_CopyBitmap(d, s, size); },
      [](BitmapHandle* d, BitmapHandle* s, uint32_t size) { return T_CopyBitmap2(d, s, TYPE_DISK, size); },
      [](BitmapHandle* d, BitmapHandle* s, uint32_t size) { return T_CopyBitmapRect(d, s, size, 1, 1, 5, 5); },
      [](BitmapHandle* d, BitmapHandle* s, uint32_t size) { return T_CopyBitmapRect2(d, s, size, 1, 1, 5, 5, 1); },
  };
  for (const Call& call : calls) {
    SCOPED_TRACE(&call - calls);
    RecordWithBytes(made, 0x7D);
    EXPECT_EQ(call(&made, nullptr, 5), ERR_INVALID_PARAMETER);
    empty.StructSize = 6;
    EXPECT_EQ(call(&made, &empty, 5), ERR_INVALID_PARAMETER);  // unallocated comes first
    empty.StructSize = 212;
    EXPECT_EQ(call(&made, &source, 211), ERR_BAD_STRUCT_SIZE);
    source.StructSize = 211;
    EXPECT_EQ(call(&made, &source, 212), ERR_BAD_STRUCT_SIZE);
    source.StructSize = 212;
    EXPECT_TRUE(SameRecord(made, untouched));
  }
  const BitmapHandle before = source;
  EXPECT_EQ(T_CopyBitmap(nullptr, &source, 212), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CopyBitmap(&source, &source, 7), SUCCESS);
  EXPECT_EQ(T_CopyBitmap2(&source, &source, 7, 7), SUCCESS);
  const auto held = tarn::platform::Held();
  struct Refused {
    int32_t left, top, width, height;
    uint32_t type;
    int32_t status;
  };
  const Refused refused[] = {{0, 0, 0, 5, 1, ERR_EMPTY_AREA},
                             {0, 0, 5, 0, 1, ERR_EMPTY_AREA},
                             {0, 0, -5, 5, 1, ERR_IMAGE_TOO_LARGE},
                             {0, 0, 5, -5, 1, ERR_IMAGE_TOO_LARGE},
                             {INT32_MIN, INT32_MAX, INT32_MAX, INT32_MAX, 1, ERR_IMAGE_TOO_LARGE},
                             {0, 0, 5, 5, 77, ERR_INVALID_PARAMETER},
                             {0, 0, 5, 5, TYPE_USER, ERR_NO_BITMAP}};
  for (const Refused& r : refused) {
    for (const bool inPlace : {false, true}) {
      made = {};
      EXPECT_EQ(T_CopyBitmapRect2(inPlace ? nullptr : &made, &source, 212, r.left, r.top, r.width, r.height, r.type),
                r.status);
      EXPECT_FALSE(made.Flags & T_FLAG_ALLOCATED);
      EXPECT_EQ(V(made.Palette), nullptr);
    }
  }
  EXPECT_EQ(T_CopyBitmap2(&made, &source, 77, 212), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CopyBitmap2(&made, &source, TYPE_USER, 212), ERR_NO_BITMAP);
  EXPECT_EQ(T_CopyBitmap2(&made, &source, TYPE_COMPRESSED, 212), ERR_INVALID_PARAMETER);
  EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
  EXPECT_TRUE(SameRecord(source, before));
  EXPECT_EQ(FirstDifference(source, 1, 10), -1);

  EXPECT_EQ(T_TrimBitmap(nullptr, 0, 0, 1, 1), ERR_INVALID_PARAMETER);
  empty.StructSize = 6;
  EXPECT_EQ(T_TrimBitmap(&empty, 0, 0, 1, 1), ERR_INVALID_PARAMETER);
  empty.StructSize = 212;
  source.StructSize = 6;
  EXPECT_EQ(T_TrimBitmap(&source, 0, 0, 1, 1), ERR_BAD_STRUCT_SIZE);
  source.StructSize = 212;
}

TEST(CopyRect, TrimClampsItsRectangle) {
  struct Trim {
    Area asked;
    int32_t status;
    Area wanted;
  };
  const Trim trims[] = {{{5, 3, 10, 4}, SUCCESS, {5, 3, 10, 4}},
                        {{-5, -3, 10, 5}, SUCCESS, {0, 0, 5, 2}},
                        {{25, 8, 100, 100}, SUCCESS, {25, 8, 5, 2}},
                        {{-100, -100, 1000, INT32_MAX}, SUCCESS, {0, 0, 30, 10}},
                        {{INT32_MAX, 0, INT32_MAX, 5}, ERR_EMPTY_AREA, {}},
                        {{30, 0, 4, 4}, ERR_EMPTY_AREA, {}},
                        {{0, 0, 0, 4}, ERR_EMPTY_AREA, {}},
                        {{0, 0, 4, -1}, ERR_EMPTY_AREA, {}},
                        {{0, INT32_MIN, 4, 7}, ERR_EMPTY_AREA, {}}};
  for (const Trim& trim : trims) {
    SCOPED_TRACE(Text(trim.asked));
    const Shape shape = {30, 10, 5};
    Picture picture;
    ASSERT_EQ(picture.Make(Kind::kBlock, shape, 9), "");
    const Bytes before = PixelsOf(picture.record);
    const BitmapHandle record = picture.record;
    const Area& asked = trim.asked;
    EXPECT_EQ(T_TrimBitmap(&picture.record, asked.left, asked.top, asked.width, asked.height), trim.status);
    if (trim.status == SUCCESS) {
      EXPECT_EQ(PixelsOf(picture.record), ModelOf(before, shape, trim.wanted));
      EXPECT_EQ(picture.record.Width, trim.wanted.width);
      EXPECT_EQ(picture.record.Height, trim.wanted.height);
    } else {
      EXPECT_TRUE(SameRecord(picture.record, record));
      EXPECT_EQ(PixelsOf(picture.record), before);
    }
  }
}

TEST(CopyRect, InPlaceBesideTheBitmapChangesNothing) {
  Picture picture;
  ASSERT_EQ(picture.Make(Kind::kBlock, {30, 10, 3}, 9), "");
  const Bytes before = PixelsOf(picture.record);
  const BitmapHandle record = picture.record;
  const auto held = tarn::platform::Held();
  EXPECT_EQ(T_CopyBitmapRect(nullptr, &picture.record, 212, 30, 0, 4, 4), SUCCESS);
  EXPECT_EQ(T_CopyBitmapRect(&picture.record, &picture.record, 212, 0, -4, 4, 4), SUCCESS);
  EXPECT_TRUE(SameRecord(picture.record, record));
  EXPECT_EQ(PixelsOf(picture.record), before);
  EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
}

TEST(CopyRect, WholeCopiesHaveStorageOfTheKindAskedFor) {
  const tarn::engine::ThresholdScope scope;
  for (int k = 0; k < kKinds; ++k) {
    const auto kind = static_cast<Kind>(k);
    for (const int32_t bits : tarn::engine::kDepths) {
      const Shape shape = {61, 11, bits};
      if (!shape.Suits(kind)) continue;
      SCOPED_TRACE(std::string(NameOf(kind)) + " " + std::to_string(bits) + " bits");
      Picture picture;
      ASSERT_EQ(picture.Make(kind, shape, static_cast<uint64_t>(bits)), "");
      picture.record.XResolution = 77;
      picture.record.Order = bits > 8 ? V(picture.record.Order) : 0u;
      picture.record.LowBit = 1;
      const Bytes before = PixelsOf(picture.record);
      Bitmap like;
      ASSERT_EQ(T_CopyBitmap(&like, &picture.record, 212), SUCCESS);
      EXPECT_EQ(like.Flags & T_FLAG_ON_DISK, picture.record.Flags & T_FLAG_ON_DISK);
      EXPECT_EQ(PixelsOf(like), before);
      EXPECT_EQ(like.XResolution, 77);
      EXPECT_EQ(like.LowBit, 1);
      EXPECT_EQ(V(like.Order), V(picture.record.Order));
      for (const uint32_t type : kTypes) {
        Bitmap chosen;
        ASSERT_EQ(T_CopyBitmap2(&chosen, &picture.record, type, 212), SUCCESS);
        EXPECT_EQ(PixelsOf(chosen), before) << type;
        EXPECT_EQ(chosen.LowBit, 1);
        if (type == TYPE_DISK) {
          EXPECT_EQ(chosen.Reported(), 128u);
        }
      }
    }
  }
}

TEST(CopyRect, CompressedRowsStayCompressed) {
  Bitmap source(3000, 40, 1);
  ASSERT_EQ(T_AllocateBitmap(&source, TYPE_COMPRESSED), SUCCESS);
  for (uint32_t row = 0; row < 40; ++row) {
    std::vector<uint8_t> line(source.BytesPerLine);
    line[row] = 0xFF;
    T_PutBitmapRow(&source, line.data(), row, line.size());
  }
  const Bytes before = PixelsOf(source);
  const Area areas[] = {{0, 0, 3000, 40}, {0, 7, 3000, 90}, {0, -5, 3000, 9}, {5, 3, 2000, 30}, {0, 3, 2999, 30}};
  for (const Area& area : areas) {
    SCOPED_TRACE(Text(area));
    Bitmap made;
    ASSERT_EQ(T_CopyBitmapRect(&made, &source, 212, area.left, area.top, area.width, area.height), SUCCESS);
    EXPECT_EQ(made.Reported(), 512u);
    EXPECT_EQ(PixelsOf(made), ModelOf(before, {3000, 40, 1}, area));
  }
}

TEST(CopyRect, ProgressCountsTheRowsInside) {
  for (const int32_t inside : {1, 3, 100, 130}) {
    for (const bool compressed : {false, true}) {
      Bitmap source(40, 200, 1);
      ASSERT_EQ(T_AllocateBitmap(&source, compressed ? TYPE_COMPRESSED : TYPE_CONV), SUCCESS);
      std::vector<int32_t> percents, wanted;
      const CopyStatus status(Collect, &percents);
      Bitmap made;
      ASSERT_EQ(T_CopyBitmapRect(&made, &source, 212, 0, 200 - inside, 40, inside + 50), SUCCESS);
      for (int32_t row = 1; row <= inside; ++row)
        if (100 * row / inside != 100 * (row - 1) / inside) wanted.push_back(100 * row / inside);
      EXPECT_EQ(percents, wanted) << inside;
    }
  }
}

TEST(CopyRect, AStoppedCopyLeavesEverythingAsItWas) {
  const auto held = tarn::platform::Held();
  tarn::ledger::StartRecording();
  {
    for (int32_t answer : {0, -1, 2, INT32_MIN}) {
      Bitmap source;
      ASSERT_EQ(T_CreateBitmap(&source, 212, 1, 30, 20, 4, 0, nullptr, 1, nullptr, 0), SUCCESS);
      Fill(source, 3);
      int run = 0;
      source.DitherContext = &run;
      const BitmapHandle before = source;
      Bitmap made;
      {
        const CopyStatus status(StopAtOnce, &answer);
        EXPECT_EQ(T_CopyBitmap(&made, &source, 212), answer);
        EXPECT_FALSE(made.Flags & T_FLAG_ALLOCATED);
        EXPECT_EQ(T_CopyBitmap2(&made, &source, TYPE_DISK, 212), answer);
        EXPECT_EQ(T_CopyBitmapRect(&made, &source, 212, 1, 1, 5, 5), answer);
        EXPECT_FALSE(made.Flags & T_FLAG_ALLOCATED);
        EXPECT_EQ(T_CopyBitmapRect(nullptr, &source, 212, 1, 1, 5, 5), answer);
        EXPECT_EQ(T_TrimBitmap(&source, 1, 1, 5, 5), answer);
      }
      EXPECT_TRUE(SameRecord(source, before));
      EXPECT_EQ(FirstDifference(source, 3, 20), -1);
      // A result that replaces the bitmap leaves it its dithering run.
      EXPECT_EQ(T_TrimBitmap(&source, 1, 1, 5, 6), SUCCESS);
      EXPECT_EQ(V(source.DitherContext), static_cast<void*>(&run));
      EXPECT_EQ(source.Height, 6);
      source.DitherContext = nullptr;
    }
  }
  EXPECT_EQ(tarn::ledger::Now().objects, 0u);
  tarn::ledger::StopRecording();
  EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
}

namespace {

int32_t deletedRegions = 0;
int32_t shiftedBy[2] = {};
int32_t shiftResult = SUCCESS;

int32_t DuplicateRegion(uint64_t* region, const BitmapHandle* source) {
  *region = source->Region + 1;
  return SUCCESS;
}
void DeleteRegion(uint64_t) { ++deletedRegions; }
int32_t ShiftRegion(BitmapHandle* destination, const BitmapHandle* source, int32_t dx, int32_t dy) {
  EXPECT_EQ(V(destination->Region), 0u);
  shiftedBy[0] = dx;
  shiftedBy[1] = dy;
  if (shiftResult == SUCCESS) destination->Region = source->Region + 1000;
  return shiftResult;
}

T_OverlayList* OneOverlay(int32_t left, int32_t top) {
  auto* const list =
      static_cast<T_OverlayList*>(T_LocalAllocInit(1, sizeof(T_OverlayList) + sizeof(tarn::Overlay), 1, L"here"));
  list->count = 1;
  list->Items()[0].left = left;
  list->Items()[0].top = top;
  return list;
}

}  // namespace

TEST(CopyRect, RegionAndOverlaysMoveAlong) {
  T_RegionHooks hooks{};
  hooks.StructSize = sizeof hooks;
  hooks.Duplicate = DuplicateRegion;
  hooks.Delete = DeleteRegion;
  hooks.CopyShifted = ShiftRegion;
  T_SetRegionHooks(&hooks);
  {
    Bitmap source;
    ASSERT_EQ(T_CreateBitmap(&source, 212, 1, 30, 20, 8, 0, nullptr, 1, nullptr, 0), SUCCESS);
    source.Region = 50;
    source.Overlays = OneOverlay(7, INT32_MIN);
    Bitmap made;
    deletedRegions = 0;
    ASSERT_EQ(T_CopyBitmapRect(&made, &source, 212, -3, 4, 9, 9), SUCCESS);
    EXPECT_EQ(V(made.Region), 1050u);
    EXPECT_EQ(deletedRegions, 1);  // the one that the duplicate had
    EXPECT_EQ(shiftedBy[0], 3);
    EXPECT_EQ(shiftedBy[1], -4);
    EXPECT_EQ(made.Overlays->Items()[0].left, 10);
    EXPECT_EQ(made.Overlays->Items()[0].top, INT32_MAX - 3);
    EXPECT_EQ(source.Overlays->Items()[0].left, 7);

    shiftResult = -77;
    const BitmapHandle before = source;
    EXPECT_EQ(T_CopyBitmapRect(nullptr, &source, 212, 1, 1, 5, 5), -77);
    EXPECT_TRUE(SameRecord(source, before));
    shiftResult = SUCCESS;
    EXPECT_EQ(T_TrimBitmap(&source, 2, 1, 5, 5), SUCCESS);
    EXPECT_EQ(V(source.Region), 1050u);
    EXPECT_EQ(source.Overlays->Items()[0].left, 5);
    EXPECT_EQ(T_CopyBitmapRect(nullptr, &source, 212, INT32_MIN, INT32_MAX, 5, 5), SUCCESS);
    // Tables need not have every function, nor bitmaps a region.
    source.Region = 50;
    hooks.Delete = nullptr;
    EXPECT_EQ(T_TrimBitmap(&source, 0, 0, 4, 4), SUCCESS);
    EXPECT_EQ(V(source.Region), 1050u);
    hooks.CopyShifted = nullptr;
    EXPECT_EQ(T_TrimBitmap(&source, 0, 0, 3, 3), SUCCESS);
    EXPECT_NE(V(source.Region), 2050u);
    hooks.CopyShifted = ShiftRegion;
    hooks.Delete = DeleteRegion;
    deletedRegions = 0;
    source.Region = 0;
    EXPECT_EQ(T_TrimBitmap(&source, 0, 0, 2, 2), SUCCESS);
    EXPECT_EQ(deletedRegions, 0);
    source.Region = 0;
    T_SetRegionHooks(nullptr);
  }
}
