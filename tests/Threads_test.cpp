// Bitmaps of several threads at once give what they give one after the other. The names of these cases contain Thread:
// the thread sanitizer runs them.

#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Platform.h"
#include "engine/Model.h"
#include "engine/Scene.h"

namespace tarn {
namespace {

using engine::Bytes;
using engine::Kind;
using engine::Picture;
using engine::Random;
using engine::Shape;

constexpr int kThreads = 8;
constexpr int kRounds = 3;

/// One thread's share: a sequence on each kind of storage, with temporary files in a directory of its own.
struct Share {
  uint64_t digest = 0;
  std::string wrong;

  void Run(uint64_t seed) {
    const engine::OwnDirectory directory;
    T_SetTempDirectory(directory.Name().c_str());
    for (int round = 0; round < kRounds && wrong.empty(); ++round) {
      for (int kind = 0; kind < engine::kKinds && wrong.empty(); ++kind) {
        uint64_t result = 0;
        wrong =
            engine::RunSequence(static_cast<Kind>(kind), engine::Mix(seed, static_cast<uint64_t>(round)), 50, result);
        digest = engine::Mix(digest, result);
      }
    }
    if (wrong.empty() && !directory.Files().empty()) wrong = "temporary files are left";
  }
};

/// Shares 0 .. kThreads - 1, `together` of them at a time.
std::vector<Share> RunShares(int together) {
  std::vector<Share> shares(kThreads);
  for (int first = 0; first < kThreads; first += together) {
    std::vector<std::thread> threads;
    for (int i = first; i < first + together; ++i)
      threads.emplace_back([&share = shares[static_cast<size_t>(i)], i] {
        share.Run(engine::Mix(engine::RunSeed(), static_cast<uint64_t>(i)));
      });
    for (std::thread& thread : threads) thread.join();
  }
  return shares;
}

TEST(Threads, EightThreadsDoWhatOneThreadDoes) {
  const platform::Counters before = platform::Held();
  const std::vector<Share> alone = RunShares(1);
  const std::vector<Share> together = RunShares(kThreads);
  for (size_t i = 0; i < kThreads; ++i) {
    EXPECT_EQ(alone[i].wrong, "");
    EXPECT_EQ(together[i].wrong, "");
    EXPECT_EQ(together[i].digest, alone[i].digest) << "thread " << i << ", " << engine::SeedText();
  }
  const platform::Counters after = platform::Held();
  EXPECT_EQ(after.blocks, before.blocks);
  EXPECT_EQ(after.views, before.views);
  EXPECT_EQ(after.sections, before.sections);
  EXPECT_EQ(after.files, before.files);
}

/// Readers of one record: only its row-offset cache changes, under the library's lock. Disk storage is left out: its
/// file has one position.
TEST(Threads, TwoThreadsReadOneBitmap) {
  constexpr Shape kPicture = {91, 40, 24};
  for (const Kind kind : {Kind::kBlock, Kind::kCaller, Kind::kMemoryTiles, Kind::kMixedTiles, Kind::kSwapTiles}) {
    SCOPED_TRACE(engine::NameOf(kind));
    Picture picture;
    ASSERT_EQ(picture.Make(kind, kPicture, 11), "");
    const Bytes rows = MakeContent(kPicture, 11);
    std::atomic<int> wrong{0};
    const auto read = [&](uint64_t seed) {
      Random random(engine::Mix(engine::RunSeed(), seed));
      const uint64_t rowBytes = kPicture.RowBytes();
      Bytes line(rowBytes * 5);
      for (int i = 0; i < 800; ++i) {
        const uint64_t row = random.Below(36);
        const uint64_t count = random.OneIn(3) ? line.size() : rowBytes;
        const int64_t got = T_GetBitmapRow(&picture.record, line.data(), static_cast<uint32_t>(row), count);
        if (got != static_cast<int64_t>(count) || !std::equal(line.begin(), line.begin() + static_cast<int64_t>(count),
                                                              rows.begin() + static_cast<int64_t>(row * rowBytes)))
          ++wrong;
      }
    };
    std::thread first(read, 1);
    std::thread second(read, 2);
    first.join();
    second.join();
    EXPECT_EQ(wrong, 0) << engine::SeedText();
  }
}

}  // namespace
}  // namespace tarn
