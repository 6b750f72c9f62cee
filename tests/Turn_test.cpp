// What flips, turns and slants have in common: overlays and regions go along, a callback may stop them anywhere, and
// sampling is the same at every level.

#include <gtest/gtest.h>

#include <cstring>

#include "Common/Internal/Overlays.h"
#include "Common/Internal/Rotate.h"
#include "Grid.h"
#include "Holding.h"
#include "Levels.h"
#include "Platform/Fault.h"
#include "Platform/Platform.h"
#include "RunReference.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Random.h"

using namespace tarn::test;
namespace engine = tarn::engine;
using engine::Kind;
using tarn::Isa;

namespace {

struct Operation {
  const char* name;
  int32_t (*run)(BitmapHandle& bitmap);
};
constexpr Operation kOperations[] = {
    {"flip", [](BitmapHandle& b) { return T_FlipBitmap(&b); }},
    {"reverse", [](BitmapHandle& b) { return T_ReverseBitmap(&b); }},
    {"half turn", [](BitmapHandle& b) { return T_RotateBitmap(&b, 18000, ROTATE_RESIZE, 0); }},
    {"quarter turn", [](BitmapHandle& b) { return T_RotateBitmap(&b, 9000, ROTATE_RESIZE, 0); }},
    {"30 degrees", [](BitmapHandle& b) { return T_RotateBitmap(&b, 3000, ROTATE_RESIZE | ROTATE_BILINEAR, 0); }},
    {"-100 degrees", [](BitmapHandle& b) { return T_RotateBitmap(&b, -10000, ROTATE_CORRECT, 0); }},
    {"shear", [](BitmapHandle& b) { return T_ShearBitmap(&b, -2000, 1, 0); }},
    {"upright shear", [](BitmapHandle& b) { return T_ShearBitmap(&b, 1000, 0, 0); }},
};

/// The operation with a callback that stops it at its n-th call, for every n there is.
void StopEverywhere(const Operation& operation, Kind kind, const engine::Shape& shape) {
  engine::Picture picture;
  ASSERT_EQ(picture.Make(kind, shape, 21), "");
  BitmapHandle& b = picture.record;
  b.ViewPerspective = 6;
  engine::Bytes before;
  ASSERT_EQ(engine::ReadPixels(b, before), "");
  for (int stop = 1;; ++stop) {
    SCOPED_TRACE(testing::Message() << "call " << stop);
    const BitmapHandle record = b;
    Stopper stopper{stop, stop % 2 ? -100 - stop : 100 + stop};
    T_SetStatusCallBack(Stopper::Call, &stopper, nullptr, nullptr);
    const int32_t status = operation.run(b);
    T_StatusCallback left = nullptr;
    T_SetStatusCallBack(nullptr, nullptr, &left, nullptr);
    ASSERT_EQ(left, &Stopper::Call);
    ASSERT_TRUE(stopper.ordered);
    if (stopper.left > 0) {
      ASSERT_EQ(status, SUCCESS);
      EXPECT_EQ(stopper.last, 100);
      EXPECT_GE(stop, 2);
      return;
    }
    ASSERT_EQ(status, stopper.answer);
    ASSERT_EQ(stopper.calls, stop);  // what is put back is not told
    BitmapHandle after = b;
    after.CachedRow = record.CachedRow;
    after.CachedRowOffset = record.CachedRowOffset;
    ASSERT_EQ(std::memcmp(&after, &record, sizeof record), 0);
    engine::Bytes pixels;
    ASSERT_EQ(engine::ReadPixels(b, pixels), "");
    ASSERT_EQ(pixels, before);
  }
}

TEST(Turn, StoppedAnywhereNothingHasHappened) {
  for (const Operation& operation : kOperations) {
    for (const int32_t bits : {1, 3, 8, 12, 24}) {
      for (int number = 0; number < engine::kKinds; ++number) {
        const auto kind = static_cast<Kind>(number);
        const engine::Shape shape{19, 13, bits};
        if (!shape.Suits(kind)) continue;
        SCOPED_TRACE(testing::Message() << operation.name << ", " << bits << " bits, " << NameOf(kind));
        ASSERT_NO_FATAL_FAILURE(StopEverywhere(operation, kind, shape));
      }
    }
  }
}

// Rows that are in memory, and a result that is not.
TEST(Turn, ResultsThatLieElsewhere) {
  const engine::Shape shape{19, 7, 8};
  for (const Operation& operation : kOperations) {
    SCOPED_TRACE(operation.name);
    engine::Picture block;
    ASSERT_EQ(block.Make(Kind::kBlock, shape, 2), "");
    ASSERT_EQ(operation.run(block.record), SUCCESS);
    const ThresholdScope scope;
    T_SetMemoryThresholds(0, 1, 100, 0, 1, 31);
    ASSERT_NO_FATAL_FAILURE(StopEverywhere(operation, Kind::kCaller, shape));
    engine::Picture picture;
    ASSERT_EQ(picture.Make(Kind::kCaller, shape, 2), "");
    const auto held = tarn::platform::Held();
    const Grid before = GridOf(picture.record);
    const auto number = &operation - kOperations;
    const bool moves = number > 2;
    const auto left = [&](int32_t status, bool refused) {
      if (status == SUCCESS) {
        EXPECT_TRUE(refused || ((picture.record.Flags & T_FLAG_TILED) != 0) == moves);
        ASSERT_EQ(picture.Make(Kind::kCaller, shape, 2), "");
      }
      ASSERT_EQ(GridOf(picture.record), before);
      EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
    };
    if (number == 3 || number == 4) RefuseEachCall([&] { return operation.run(picture.record); }, left);
    ASSERT_EQ(operation.run(picture.record), SUCCESS);
    EXPECT_EQ(GridOf(picture.record), GridOf(block.record));
  }
}

/// Little room for pictures in files, for a scope.
class SmallRoom {
 public:
  explicit SmallRoom(int64_t bytes) : before_(tarn::SetTurnRoom(bytes)) {}
  ~SmallRoom() { tarn::SetTurnRoom(before_); }
  SmallRoom(const SmallRoom&) = delete;
  SmallRoom& operator=(const SmallRoom&) = delete;

 private:
  int64_t before_;
};

TEST(Turn, FilesLargerThanTheirRoom) {
  for (const int32_t bits : engine::kDepths) {
    for (const uint32_t perspective : {1u, 4u}) {
      for (const int32_t angle : {9000, -9000}) {
        SCOPED_TRACE(testing::Message() << bits << " bits, perspective " << perspective << ", angle " << angle);
        engine::Picture disk, block;
        ASSERT_EQ(disk.Make(Kind::kDisk, {211, 150, bits}, 9), "");
        ASSERT_EQ(block.Make(Kind::kBlock, {211, 150, bits}, 9), "");
        disk.record.ViewPerspective = block.record.ViewPerspective = perspective;
        {
          const SmallRoom room(bits * (perspective == 1 ? 1000 : 2000));  // for 64 rows at least; the latter for more
          ASSERT_EQ(T_RotateBitmap(&disk.record, angle, ROTATE_RESIZE, 0), SUCCESS);
        }
        ASSERT_EQ(T_RotateBitmap(&block.record, angle, ROTATE_RESIZE, 0), SUCCESS);
        engine::Bytes turned, wanted;
        ASSERT_EQ(engine::ReadPixels(disk.record, turned), "");
        ASSERT_EQ(engine::ReadPixels(block.record, wanted), "");
        ASSERT_EQ(turned, wanted);
      }
    }
  }
  const SmallRoom room(1000);
  StopEverywhere(kOperations[2], Kind::kDisk, {70, 80, 8});  // displayed: a quarter turn of the rows
  // Whatever is refused while it is under way, the picture is turned or as it was.
  for (uint64_t n = 1;; ++n) {
    SCOPED_TRACE(testing::Message() << "refused: " << n);
    engine::Picture picture;
    ASSERT_EQ(picture.Make(Kind::kDisk, {70, 80, 8}, 9), "");
    picture.record.ViewPerspective = 1;
    const Grid before = GridOf(picture.record);
    const auto held = tarn::platform::Held();
    tarn::fault::Arm({.first = n, .last = n, .points = tarn::fault::kAllPoints});
    const int32_t status = T_RotateBitmap(&picture.record, 9000, ROTATE_RESIZE, 0);
    const bool refused = tarn::fault::Answered() > 0;
    tarn::fault::Disarm();
    ASSERT_EQ(GridOf(picture.record), status == SUCCESS ? TurnedRight(before) : before);
    const auto after = tarn::platform::Held();
    ASSERT_EQ(std::memcmp(&after, &held, sizeof held), 0);
    if (!refused) break;
  }
}

// ---- Overlays ------------------------------------------------------------------------------------------------------

/// The displayed picture with its one overlay on top.
Grid Seen(BitmapHandle& owner) {
  Grid seen = Displayed(GridOf(owner), owner.ViewPerspective);
  tarn::Overlay& overlay = owner.Overlays->Items()[0];
  const Grid top = Displayed(GridOf(overlay.bitmap), overlay.bitmap.ViewPerspective);
  for (int32_t y = 0; y < top.height; ++y) {
    for (int32_t x = 0; x < top.width; ++x) {
      const int32_t column = overlay.left + x, row = overlay.top + y;
      if (column < 0 || row < 0 || column >= seen.width || row >= seen.height) continue;
      seen.pixels[static_cast<size_t>(row * seen.width + column)] = top.At(x, y);
    }
  }
  return seen;
}

void GiveOverlay(BitmapHandle& owner, uint32_t perspective, int32_t left, int32_t top) {
  auto* const list =
      static_cast<T_OverlayList*>(T_LocalAllocInit(1, sizeof(T_OverlayList) + sizeof(tarn::Overlay), 1, L"here"));
  list->count = 1;
  tarn::Overlay& overlay = list->Items()[0];
  overlay.left = left;
  overlay.top = top;
  ASSERT_EQ(T_InitBitmap(&overlay.bitmap, sizeof overlay.bitmap, 5, 3, 8), SUCCESS);
  ASSERT_EQ(T_AllocateBitmap(&overlay.bitmap, TYPE_CONV), SUCCESS);
  overlay.bitmap.ViewPerspective = perspective;
  for (int32_t i = 0; i < 15; ++i) overlay.bitmap.Data[i / 5 * 8 + i % 5] = static_cast<uint8_t>(100 + i);
  owner.Overlays = list;
}

TEST(Turn, OverlaysStayWhereTheyAreSeen) {
  struct Case {
    const Operation& operation;
    Grid (*expected)(const Grid& seen);
  };
  const Case cases[] = {
      {kOperations[0], Flipped},
      {kOperations[1], Reversed},
      {kOperations[2], [](const Grid& g) { return Flipped(Reversed(g)); }},
      {kOperations[3], TurnedRight},
  };
  for (const Case& c : cases) {
    for (uint32_t perspective = 1; perspective <= 8; ++perspective) {
      for (const uint32_t own : {1u, 4u, 5u, 6u}) {
        SCOPED_TRACE(testing::Message() << c.operation.name << ", perspectives " << perspective << " and " << own);
        engine::Picture picture;
        ASSERT_EQ(picture.Make(Kind::kBlock, {17, 11, 8}, 4), "");
        BitmapHandle& b = picture.record;
        b.ViewPerspective = perspective;
        GiveOverlay(b, own, perspective % 2 ? 2 : -1, 4);  // also partly outside
        const Grid before = Seen(b);
        // Stopped: the overlays are as they were, too.
        Stopper stopper{1, -5};
        T_SetStatusCallBack(Stopper::Call, &stopper, nullptr, nullptr);
        EXPECT_EQ(c.operation.run(b), -5);
        T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
        EXPECT_EQ(Seen(b), before);
        ASSERT_EQ(c.operation.run(b), SUCCESS);
        EXPECT_EQ(Seen(b), c.expected(before));
      }
    }
  }
}

TEST(Turn, RefusedOverlaysChangeNothing) {
  for (const Operation& operation : kOperations) {
    if (&operation - kOperations > 5) break;  // slants leave overlays alone
    SCOPED_TRACE(operation.name);
    engine::Picture picture;
    const auto make = [&] {
      ASSERT_EQ(picture.Make(Kind::kBlock, {17, 11, 8}, 4), "");
      GiveOverlay(picture.record, 6, 2, 4);
    };
    make();
    const Grid before = Seen(picture.record);
    const auto held = tarn::platform::Held();
    const uint64_t calls = RefuseEachCall([&] { return operation.run(picture.record); },
                                          [&](int32_t status, bool refused) {
                                            if (status == SUCCESS && refused) make();
                                            if (status == SUCCESS && !refused) return;
                                            EXPECT_EQ(Seen(picture.record), before);
                                            EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
                                          });
    EXPECT_GE(calls, 3u);
  }
}

TEST(Turn, OverlaysOfOtherTurns) {
  struct Case {
    int32_t angle;
    uint32_t flags;
    int32_t left, top;              // of a place without a bitmap, a point
    int32_t wantedLeft, wantedTop;  // the picture is 20 x 20
  };
  constexpr int32_t kMost = INT32_MAX;
  constexpr Case cases[] = {{9000, 0, 2, 3, 17, 2},
                            {9000, ROTATE_RESIZE, 2, 3, 17, 2},
                            {9000, ROTATE_CENTER, 2, 3, 17, 2},
                            {3000, 0, 10, 10, 10, 10},
                            {3000, 0, 20, 10, 19, 15},
                            {3000, ROTATE_RESIZE, 10, 10, 14, 14},  // of 28 x 28
                            {3000, ROTATE_CENTER, 10, 10, 14, 14},
                            {4500, 0, kMost, -kMost, kMost, -4},
                            {4500, 0, -kMost, kMost, -kMost, -4},
                            {4500, 0, kMost, kMost, 10, kMost}};
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.angle << ", flags " << c.flags << ", " << c.left << ", " << c.top);
    engine::Picture picture;
    ASSERT_EQ(picture.Make(Kind::kBlock, {20, 20, 8}, 4), "");
    BitmapHandle& b = picture.record;
    b.ViewPerspective = 1;
    const T_OverlayAttributes place{sizeof place, c.left, c.top, 0, 0, 0};
    ASSERT_EQ(T_SetOverlayAttributes(&b, 0, &place, T_OVERLAY_POSITION), SUCCESS);
    ASSERT_EQ(T_IntRotateBitmap(&b, c.angle, c.flags, 0, 0, 100, -5.0F, 30.0F), SUCCESS);
    T_OverlayAttributes got;
    ASSERT_EQ(T_GetOverlayAttributes(&b, 0, &got, sizeof got), SUCCESS);
    EXPECT_EQ(got.Left, c.wantedLeft);
    EXPECT_EQ(got.Top, c.wantedTop);
    ASSERT_EQ(T_FlipBitmap(&b), SUCCESS);
    ASSERT_EQ(T_ReverseBitmap(&b), SUCCESS);
    ASSERT_EQ(T_GetOverlayAttributes(&b, 0, &got, sizeof got), SUCCESS);
    EXPECT_EQ(static_cast<uint32_t>(got.Left), static_cast<uint32_t>(V(b.Width)) - static_cast<uint32_t>(c.wantedLeft));
    EXPECT_EQ(static_cast<uint32_t>(got.Top), static_cast<uint32_t>(V(b.Height)) - static_cast<uint32_t>(c.wantedTop));
  }
}

// A perspective that is turned as well can cut a picture off on both sides, overlays with it.
TEST(Turn, OverlaysOfPicturesThatAreCutOff) {
  for (const uint32_t perspective : {1u, 2u, 3u, 4u, 5u, 6u, 7u, 8u}) {
    SCOPED_TRACE(perspective);
    engine::Picture picture;
    ASSERT_EQ(picture.Make(Kind::kBlock, {17, 11, 8}, 4), "");
    BitmapHandle& b = picture.record;
    b.ViewPerspective = perspective;
    GiveOverlay(b, 4, 2, 5);
    const Grid before = Seen(b);
    ASSERT_EQ(T_RotateBitmap(&b, 0, 0, 0), SUCCESS);
    const int32_t dx = (17 - before.width) / 2, dy = (11 - before.height) / 2;
    EXPECT_EQ(Seen(b), Taken(17, 11, [&](int32_t x, int32_t y) {
                const bool inside = x >= dx && x - dx < before.width && y >= dy && y - dy < before.height;
                return inside ? before.At(x - dx, y - dy) : 0;
              }));
  }
}

// ---- Regions -------------------------------------------------------------------------------------------------------

struct Told {
  int flips = 0, reverses = 0, turns = 0;
  int32_t angle = 0;
  uint32_t flags = 0;
  uint32_t perspective = 0;
  int32_t width = 0;
  int32_t answer = SUCCESS;
};
Told told;

TEST(Turn, RegionsAreToldOnce) {
  T_RegionHooks hooks{};
  hooks.StructSize = sizeof hooks;
  hooks.Flip = [](BitmapHandle*) { return ++told.flips, told.answer; };
  hooks.Reverse = [](BitmapHandle*) { return ++told.reverses, told.answer; };
  hooks.Rotate = [](BitmapHandle* b, int32_t angle, uint32_t flags) {
    ++told.turns;
    told.angle = angle;
    told.flags = flags;
    told.perspective = b->ViewPerspective;
    told.width = b->Width;
    return told.answer;
  };
  const T_RegionHooks* const old = T_SetRegionHooks(&hooks);
  for (const Kind kind : {Kind::kBlock, Kind::kDisk}) {
    for (const int32_t angle : {9000, 18000, 3000, -9000}) {
      SCOPED_TRACE(testing::Message() << NameOf(kind) << ", angle " << angle);
      engine::Picture picture;
      ASSERT_EQ(picture.Make(kind, {20, 9, 8}, 5), "");
      BitmapHandle& b = picture.record;
      b.ViewPerspective = 6;  // a quarter turn by itself
      const Grid before = GridOf(b);
      told = {};
      told.answer = -77;
      const bool turns = angle != -9000;  // which leaves the rows as they are
      if (turns) {
        EXPECT_EQ(T_RotateBitmap(&b, angle, ROTATE_RESIZE, 0), -77);
      }
      EXPECT_EQ(GridOf(b), before);
      EXPECT_EQ(b.ViewPerspective, 6u);
      told = {};
      ASSERT_EQ(T_RotateBitmap(&b, angle, ROTATE_RESIZE, 0), SUCCESS);
      EXPECT_EQ(told.turns, turns ? 1 : 0);
      EXPECT_EQ(told.flips + told.reverses, 0);
      if (!turns) continue;
      EXPECT_EQ(told.angle, angle + 9000);
      EXPECT_EQ(told.flags, uint32_t{ROTATE_RESIZE});
      EXPECT_EQ(told.perspective, 1u);
      EXPECT_EQ(told.width, V(b.Width));
    }
    // A flip as displayed is told as what happens to the rows.
    engine::Picture picture;
    ASSERT_EQ(picture.Make(kind, {20, 9, 8}, 5), "");
    picture.record.ViewPerspective = 5;
    told = {};
    EXPECT_EQ(T_FlipBitmap(&picture.record), SUCCESS);
    EXPECT_EQ(told.reverses, 1);
    EXPECT_EQ(told.flips, 0);
    EXPECT_EQ(T_ReverseBitmap(&picture.record), SUCCESS);
    EXPECT_EQ(told.reverses, 1);
    EXPECT_EQ(told.flips, 1);
  }
  T_SetRegionHooks(old);
}

TEST(Turn, RegionsFollowChangedPerspectives) {
  struct Case {
    uint32_t to;
    int flips;
    int32_t angle;  // in degrees
  };
  T_RegionHooks hooks{};
  hooks.StructSize = sizeof hooks;
  hooks.Flip = [](BitmapHandle*) { return ++told.flips, told.width ? -77 : SUCCESS; };
  hooks.Rotate = [](BitmapHandle*, int32_t angle, uint32_t) {
    ++told.turns;
    told.angle = angle;
    return told.answer;
  };
  const T_RegionHooks* const old = T_SetRegionHooks(&hooks);
  for (const Kind kind : {Kind::kBlock, Kind::kDisk}) {
    for (const Case& c : {Case{4, 1, 0}, {3, 0, 180}, {5, 1, 90}, {6, 0, 270}, {2, 1, 180}}) {
      SCOPED_TRACE(testing::Message() << NameOf(kind) << ", to " << c.to);
      engine::Picture picture;
      ASSERT_EQ(picture.Make(kind, {20, 9, 8}, 5), "");
      BitmapHandle& b = picture.record;
      b.ViewPerspective = 1;
      const Grid before = GridOf(b);
      const auto change = [&](int32_t refuseFlip, int32_t answer) {
        told = {};
        told.width = refuseFlip;
        told.answer = answer;
        return T_ChangeBitmapViewPerspective(nullptr, &b, sizeof b, c.to);
      };
      if (c.flips) {
        EXPECT_EQ(change(1, SUCCESS), -77);
        EXPECT_EQ(told.turns, 0);
      }
      if (c.angle) {
        EXPECT_EQ(change(0, -78), -78);
        EXPECT_EQ(told.flips, 2 * c.flips) << "the region is flipped back";
      }
      EXPECT_EQ(GridOf(b), before);
      EXPECT_EQ(b.ViewPerspective, 1u);
      EXPECT_EQ(change(0, SUCCESS), SUCCESS);
      EXPECT_EQ(told.flips, c.flips);
      EXPECT_EQ(told.angle, 100 * c.angle);
      EXPECT_EQ(Displayed(GridOf(b), c.to), before);
    }
  }
  T_SetRegionHooks(old);
}

// Tables need not have every function: then a region stays what it is, an opaque value.
TEST(Turn, RegionTablesMayHaveHoles) {
  static int deleted;
  T_RegionHooks hooks{};
  hooks.StructSize = sizeof hooks;
  const T_RegionHooks* const old = T_SetRegionHooks(&hooks);
  engine::Picture picture, plain;
  ASSERT_EQ(picture.Make(Kind::kBlock, {20, 9, 8}, 5), "");
  ASSERT_EQ(plain.Make(Kind::kBlock, {20, 9, 8}, 5), "");
  BitmapHandle& b = picture.record;
  b.ViewPerspective = plain.record.ViewPerspective = 1;
  b.Region = 7;
  constexpr Operation others[] = {
      {"perspective", [](BitmapHandle& h) { return T_ChangeBitmapViewPerspective(nullptr, &h, sizeof h, 2); }},
      {"size", [](BitmapHandle& h) { return T_SizeBitmap(&h, 30, 14, 0); }},
      {"resize", [](BitmapHandle& h) { return T_ResizeBitmap(&h, &h, 0); }}};
  for (int i = 0; i < 8; ++i) {
    const Operation& operation = i < 3 ? others[i] : kOperations[i - 3];
    ASSERT_EQ(operation.run(b), SUCCESS) << operation.name;
    ASSERT_EQ(operation.run(plain.record), SUCCESS) << operation.name;
    EXPECT_EQ(V(b.Region), 7u) << operation.name;
  }
  EXPECT_EQ(GridOf(b), GridOf(plain.record));
  // A slant has no region left; who deletes regions is told so once.
  BitmapHandle& other = plain.record;
  other.Region = 8;
  other.ViewPerspective = b.ViewPerspective = 1;
  EXPECT_EQ(T_ShearBitmap(&b, 1000, 1, 0), SUCCESS);
  EXPECT_EQ(V(b.Region), 0u);
  hooks.Delete = [](uint64_t region) { deleted = deleted * 10 + static_cast<int>(region); };
  EXPECT_EQ(T_ShearBitmap(&b, 1000, 1, 0), SUCCESS);
  EXPECT_EQ(T_ShearBitmap(&other, 1000, 1, 0), SUCCESS);
  EXPECT_EQ(V(other.Region), 0u);
  EXPECT_EQ(deleted, 8);
  T_SetRegionHooks(old);
  EXPECT_EQ(T_ShearBitmap(&other, 1000, 1, 0), SUCCESS);
}

// ---- Kernels -------------------------------------------------------------------------------------------------------

TEST(Turn, SamplingIsTheSameAtEveryLevel) {
  constexpr int64_t kBytes[] = {1, 2, 2, 3, 4, 4, 6, 8};
  engine::Random random(9);
  const tarn::RotateKernels& portable = *tarn::KernelsFor(Isa::kPortable).rotate;
  for (int round = 0; round < 4000; ++round) {
    const auto format = static_cast<size_t>(random.Below(tarn::kSampleFormats));
    const int64_t bytes = kBytes[format];
    const int32_t angle = random.Between(0, 35999), pixels = random.Between(1, 200);
    tarn::SamplePath path{random.Between(0, 16383), random.Between(0, 16383), T_CosValue(angle), T_SinValue(angle)};
    // A picture that reaches two pixels further than the path, and not a byte more.
    const auto extent = [&](int64_t& start, int32_t step) {
      const int64_t end = start + int64_t{step} * (pixels - 1);
      const int64_t least = (std::min(start, end) + 8191) >> 14, most = (std::max(start, end) + 8191) >> 14;
      start += (2 - least) << 14;
      return most - least + 5;
    };
    const int64_t width = extent(path.x, path.stepX), height = extent(path.y, path.stepY);
    std::vector<uint8_t> source(static_cast<size_t>(width * height * bytes));
    for (uint8_t& byte : source) byte = random.OneIn(8) ? 0 : random.OneIn(8) ? 255 : random.Byte();
    const auto run = [&](const tarn::RotateKernels& kernels, int quality, uint8_t* target) {
      const auto sample = (quality == 0   ? kernels.nearest
                           : quality == 1 ? kernels.corrected
                                          : kernels.bilinear)[format];
      sample(target, source.data(), width * bytes, path, pixels);
    };
    for (int quality = 0; quality < 3; ++quality) {
      std::vector<uint8_t> wanted(static_cast<size_t>(pixels * bytes));
      run(portable, quality, wanted.data());
      for (const Isa level : kLevels) {
        runref::Guarded target(wanted.size(), static_cast<size_t>(round) % 64);
        run(*tarn::KernelsFor(level).rotate, quality, target.data());
        ASSERT_TRUE(target.GuardsKept()) << LevelName(level) << ", format " << format << ", quality " << quality;
        ASSERT_EQ(std::memcmp(target.data(), wanted.data(), wanted.size()), 0)
            << LevelName(level) << ", format " << format << ", quality " << quality << ", angle " << angle;
      }
    }
  }
}

}  // namespace
