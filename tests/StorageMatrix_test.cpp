// Rows of every storage kind and depth against a slow model, random sequences of operations, and what storage takes
// while it works.

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "Common/Internal/Ledger.h"
#include "engine/Model.h"
#include "engine/Scene.h"

namespace tarn {
namespace {

using engine::Bytes;
using engine::Kind;
using engine::Model;
using engine::Picture;
using engine::Random;
using engine::Rules;
using engine::Shape;

constexpr Shape kShapes[] = {{1, 5, 0}, {13, 8, 0}, {37, 10, 0}};
constexpr uint8_t kGuard = 0xE7;
constexpr size_t kGuardBytes = 24;

class StorageMatrix : public testing::Test {
 protected:
  /// A picture of every kind, depth and shape together with its model.
  template <class Visit>
  void ForEachPicture(Visit visit) {
    for (int kind = 0; kind < engine::kKinds; ++kind) {
      for (const int32_t bits : engine::kDepths) {
        for (Shape shape : kShapes) {
          shape.bits = bits;
          if (!shape.Suits(static_cast<Kind>(kind))) continue;
          const uint64_t seed = engine::Mix(engine::RunSeed(), static_cast<uint64_t>(bits));
          SCOPED_TRACE(std::string(engine::NameOf(static_cast<Kind>(kind))) + ", " + Text(shape) + ", seed " +
                       std::to_string(seed));
          Picture picture;
          ASSERT_EQ(picture.Make(static_cast<Kind>(kind), shape, seed), "");
          T_LockBitmap(&picture.record);
          Model model(shape, MakeContent(shape, seed));
          Random random(seed);
          visit(picture.record, model, random);
          if (testing::Test::HasFatalFailure()) return;
        }
      }
    }
  }
  engine::Scene scene_;
};

void ExpectSameRows(const BitmapHandle& bitmap, const Model& model, const std::string& after) {
  Bytes rows;
  ASSERT_EQ(engine::ReadPixels(bitmap, rows), "") << after;
  ASSERT_EQ(rows, model.Rows()) << after;
}

/// Rows, columns and counts around every border: of a byte, a row, a tile, the bitmap.
struct Stretch {
  uint32_t row;
  uint32_t column;
  uint64_t bytes;
};
std::vector<Stretch> Stretches(const Shape& shape) {
  const auto width = static_cast<uint32_t>(shape.width);
  const auto height = static_cast<uint32_t>(shape.height);
  const uint64_t rowBytes = shape.RowBytes();
  std::vector<Stretch> all;
  for (const uint32_t row : {0u, 2u, 3u, height - 1, height, ~0u}) {
    for (const uint32_t column : {0u, 1u, 7u, 8u, 9u, width - 1, width, width + 9}) {
      for (const uint64_t bytes : {uint64_t{0}, uint64_t{1}, rowBytes - 1, rowBytes, 3 * rowBytes + 1,
                                   rowBytes * height, rowBytes * height + 7})
        all.push_back({row, column, bytes});
    }
  }
  return all;
}
std::string Text(const Stretch& stretch) {
  return "row " + std::to_string(stretch.row) + ", column " + std::to_string(stretch.column) + ", " +
         std::to_string(stretch.bytes) + " bytes";
}

TEST_F(StorageMatrix, GetsEveryStretchLikeTheModel) {
  ForEachPicture([](BitmapHandle& bitmap, Model& model, Random&) {
    const Rules rules = engine::RulesOf(bitmap);
    for (const Stretch& stretch : Stretches(model.GetShape())) {
      Bytes got(stretch.bytes + kGuardBytes, kGuard);
      Bytes wanted = got;
      const int64_t result = model.Get(rules, wanted, stretch.row, stretch.column, stretch.bytes);
      ASSERT_EQ(T_GetBitmapRowCol(&bitmap, got.data(), stretch.row, stretch.column, stretch.bytes), result)
          << Text(stretch);
      ASSERT_EQ(got, wanted) << Text(stretch);
      if (stretch.column) continue;
      got.assign(got.size(), kGuard);
      ASSERT_EQ(T_GetBitmapRow(&bitmap, got.data(), stretch.row, stretch.bytes), result) << Text(stretch);
      ASSERT_EQ(got, wanted) << Text(stretch);
    }
  });
}

TEST_F(StorageMatrix, PutsEveryStretchLikeTheModel) {
  ForEachPicture([](BitmapHandle& bitmap, Model& model, Random& random) {
    const Rules rules = engine::RulesOf(bitmap);
    for (const Stretch& stretch : Stretches(model.GetShape())) {
      Bytes bytes(stretch.bytes + 1);
      for (uint8_t& byte : bytes) byte = random.Byte();
      const bool whole = stretch.column == 0 && random.OneIn(2);
      const int64_t wanted =
          model.Put(rules, bytes, stretch.row, stretch.column, stretch.bytes, whole ? 0 : int64_t{ERR_NO_MEMORY});
      const int64_t result = whole
                                 ? T_PutBitmapRow(&bitmap, bytes.data(), stretch.row, stretch.bytes)
                                 : T_PutBitmapRowCol(&bitmap, bytes.data(), stretch.row, stretch.column, stretch.bytes);
      ASSERT_EQ(result, wanted) << Text(stretch);
      if (!random.OneIn(6)) continue;
      ExpectSameRows(bitmap, model, "after " + Text(stretch) + " at the latest");
      if (testing::Test::HasFatalFailure()) return;
    }
    ExpectSameRows(bitmap, model, "the end");
  });
}

TEST_F(StorageMatrix, PutsSegmentsLikeTheModel) {
  ForEachPicture([](BitmapHandle& bitmap, Model& model, Random& random) {
    const auto width = static_cast<uint32_t>(model.GetShape().width);
    const std::vector<std::vector<uint32_t>> lists = {{},
                                                      {3},
                                                      {3, 5},
                                                      {0, 8},
                                                      {0, width},
                                                      {width, 0},
                                                      {1, 2, 3, 4, 9},
                                                      {0, width + 40},
                                                      {2, 2, 5, 4},
                                                      {width - 1, width},
                                                      {0, 1, 7, 9, 15, 17, 20, width},
                                                      {4, 12, 6, 30}};
    for (size_t i = 0; i < lists.size(); ++i) {
      for (const uint32_t offset : {0u, 1u, 3u, 8u, width - 1, width}) {
        for (const int32_t preserveAlpha : {0, 1}) {
          Bytes line(model.GetShape().RowBytes());
          for (uint8_t& byte : line) byte = random.Byte();
          const uint32_t row = static_cast<uint32_t>(i) % static_cast<uint32_t>(model.GetShape().height);
          const uint32_t none = 0;
          const std::string what = "list " + std::to_string(i) + ", column offset " + std::to_string(offset);
          ASSERT_EQ(
              T_PutBitmapRowSegments(&bitmap, line.data(), row, offset, lists[i].empty() ? &none : lists[i].data(),
                                     static_cast<uint32_t>(lists[i].size()), preserveAlpha),
              model.PutSegments(line, row, offset, lists[i], preserveAlpha))
              << what;
          ExpectSameRows(bitmap, model, what);
          if (testing::Test::HasFatalFailure()) return;
        }
      }
    }
  });
}

/// `sequences` seeds on every kind.
void RunSequences(int sequences, int steps) {
  for (int kind = 0; kind < engine::kKinds; ++kind) {
    for (int i = 0; i < sequences; ++i) {
      uint64_t digest = 0;
      ASSERT_EQ(engine::RunSequence(static_cast<Kind>(kind), engine::Mix(engine::RunSeed(), static_cast<uint64_t>(i)),
                                    steps, digest),
                "");
    }
  }
}

TEST_F(StorageMatrix, RandomSequencesAgreeOnEveryStorage) {
  const engine::World before = LookAround(scene_);
  RunSequences(25, 60);
  EXPECT_EQ(Changes(before, LookAround(scene_)), "");
}

TEST_F(StorageMatrix, DISABLED_SweepOfRandomSequences) { RunSequences(2000, 200); }

// ---- What storage takes --------------------------------------------------------------------------------------------

/// A line of a page: some dozens of runs.
void PageLine(Bytes& line, Random& random) {
  std::memset(line.data(), 0, line.size());
  if (random.OneIn(3)) return;
  for (uint64_t run = random.Below(60); run-- > 0;) {
    const uint64_t first = random.Below(line.size() - 2);
    line[first] |= random.Byte();
    line[first + 1] |= random.Byte();
  }
}

TEST_F(StorageMatrix, CompressedStorageHoldsRunsOnly) {
  constexpr Shape kPage = {2480, 70000, 1};  // three heaps
  constexpr uint64_t kTable = 8 * 70000 + 3 * 256 + 512;
  // While it grows a heap may be a quarter larger than its runs and the longest row; the smallest has 2048 words.
  constexpr uint64_t kSlack = 3 * (2 * 2048 + 2 * (2480 + 1) + 64);
  Picture picture;
  const uint64_t before = ledger::Now().heapBytes;
  ASSERT_EQ(picture.MakeBlank(Kind::kCompressed, kPage), "");
  Random random(engine::RunSeed());
  Bytes line(kPage.RowBytes());
  for (int32_t row = 0; row < kPage.height; ++row) {
    if (row % 2 == 0) PageLine(line, random);
    ASSERT_EQ(T_PutBitmapRow(&picture.record, line.data(), static_cast<uint32_t>(row), line.size()),
              static_cast<int64_t>(line.size()));
    const uint64_t held = ledger::Now().heapBytes - before;
    const uint64_t runs = picture.record.Size;  // two bytes a word
    ASSERT_LE(held, runs + runs / 4 + kTable + kSlack) << "row " << row << ", " << engine::SeedText();
  }
  const uint64_t packed = uint64_t{kPage.RowBytes()} * static_cast<uint32_t>(kPage.height);
  EXPECT_LT(ledger::Now().peakHeapBytes - before, packed);
  ASSERT_EQ(T_TrimBitmapHeap(&picture.record), SUCCESS);
  // The allocator rounds each of the three heaps and row tables to pages.
  EXPECT_LE(ledger::Now().heapBytes - before, picture.record.Size + kTable + 6 * 4096);
}

TEST_F(StorageMatrix, TilesNeverMapMoreViewsThanTheirLimit) {
  constexpr Shape kPicture = {50, 60, 24};
  for (const uint32_t limit : {1u, 2u, 5u}) {
    SCOPED_TRACE("limit " + std::to_string(limit));
    Picture picture;
    ASSERT_EQ(picture.Make(Kind::kSwapTiles, kPicture, 5), "");
    ASSERT_EQ(T_SetBitmapMemoryInfo(&picture.record, 0, 0, 0, 0, limit, 0, T_INFO_MAX_MAPPED_TILES), SUCCESS);
    Model model(kPicture, MakeContent(kPicture, 5));
    const int64_t others = platform::Held().views - 1;
    const int64_t tileBytes = int64_t{engine::kTileRows} * kPicture.RowBytes();
    Random random(engine::Mix(engine::RunSeed(), limit));
    int64_t most = 0;
    for (int step = 0; step < 600; ++step) {
      // Along the rows first, then anywhere.
      const auto row = static_cast<uint32_t>(step < 120 ? step % 60 : random.Below(60));
      Bytes line(kPicture.RowBytes() * (1 + random.Below(8)));
      for (uint8_t& byte : line) byte = random.Byte();
      if (random.OneIn(2)) {
        ASSERT_EQ(T_PutBitmapRow(&picture.record, line.data(), row, line.size()),
                  model.Put(Rules::kTiles, line, row, 0, line.size(), 0));
      } else {
        ASSERT_EQ(T_GetBitmapRow(&picture.record, line.data(), row, line.size()), static_cast<int64_t>(line.size()));
      }
      const platform::Counters held = platform::Held();
      ASSERT_LE(held.views - others, limit) << "step " << step;
      ASSERT_LE(held.viewBytes, static_cast<int64_t>(limit) * tileBytes) << "step " << step;
      most = std::max(most, held.views - others);
    }
    EXPECT_EQ(most, limit);
    ExpectSameRows(picture.record, model, "the end");
  }
}

}  // namespace
}  // namespace tarn
