// Bitmaps of several threads at once give what they give one after the other. The names of these cases contain Thread:
// the thread sanitizer runs them.

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "Holding.h"
#include "Platform/Platform.h"
#include "engine/Judge.h"
#include "engine/Model.h"
#include "engine/Scene.h"

#if !defined(_WIN32)
#include <unistd.h>

#include <fstream>
#endif

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

// ---- The whole operation table -------------------------------------------------------------------------------------

int32_t GoOn(int32_t, void*) { return SUCCESS; }

/// Settings that are this thread's, and a look whether they still are.
class OwnSettings {
 public:
  OwnSettings(int number, uint32_t slot) : number_(number), slot_(slot) {
    T_DefaultDithering(static_cast<uint32_t>(number % 9));
    T_SetDefaultXResolution(1000 + number);
    T_SetDefaultYResolution(2000 + number);
    T_SetStatusCallBack(GoOn, this, nullptr, nullptr);
    T_SetCopyStatusCallBack(GoOn, &number_, nullptr, nullptr);
    T_VecSetSubstituteFontCallback(Font, this);
    T_SetUserMatchTable(table_.data());
    T_SetMemoryThresholds(0, 0x7FFFFFFF - number, 0, -100, 1 + number, 31);
    T_TlsSetValue(slot_, static_cast<uint64_t>(number) + 1);
  }
  OwnSettings(const OwnSettings&) = delete;
  OwnSettings& operator=(const OwnSettings&) = delete;

  bool AreMine() {
    void *status = nullptr, *copy = nullptr, *font = nullptr;
    T_SubstituteFontCallback callback = nullptr;
    int32_t threshold = 0, tiles = 0, views = 0;
    int64_t block = 0, tile = 0;
    T_GetMemoryThresholds(&threshold, &block, &tile, &tiles, &views);
    T_GetCopyStatusCallBack(&copy);
    return T_GetDefaultDithering() == static_cast<uint32_t>(number_ % 9) &&
           T_GetDefaultXResolution() == 1000 + number_ && T_GetDefaultYResolution() == 2000 + number_ &&
           T_GetStatusCallBack(&status) == GoOn && status == this && copy == &number_ &&
           T_VecGetSubstituteFontCallback(&callback, &font) == SUCCESS && font == this &&
           T_SetUserMatchTable(table_.data()) == table_.data() && block == 0x7FFFFFFF - number_ &&
           views == 1 + number_ && T_TlsGetValue(slot_) == static_cast<uint64_t>(number_) + 1;
  }

 private:
  static int32_t Font(void*, void*) { return SUCCESS; }
  int number_;
  uint32_t slot_;
  std::array<uint32_t, 4> table_{};  // never read: conversions do not ask for it
};

/// `count` random rows of the table on random pictures, and a hash of all that they give.
struct Soak {
  uint64_t digest = 0;
  std::string wrong;

  void Run(int number, uint32_t slot, int count) {
    engine::Scene scene(engine::Scene::Place::kOther);
    OwnSettings settings(number, slot);
    Random random(engine::Mix(engine::RunSeed(), static_cast<uint64_t>(number)));
    const std::vector<engine::Operation>& table = engine::Operations();
    for (int done = 0; done < count && wrong.empty();) {
      const engine::Operation& operation = table[random.Below(table.size())];
      const auto kind = static_cast<Kind>(random.Below(engine::kKinds));
      const Shape shape = {random.Between(17, 140), random.Between(10, 30), random.Pick(engine::kDepths)};
      if (operation.alone || !operation.Suits(kind, shape)) continue;
      Bytes result;
      wrong = engine::RunBeside(scene, {operation, kind, shape, random.Next()}, result);
      for (const uint8_t byte : result) digest = (digest ^ byte) * UINT64_C(0x100000001B3);
      if (wrong.empty() && !settings.AreMine()) wrong = std::string("settings have changed after ") + operation.name;
      if (wrong.empty() && !scene.Directory().Files().empty()) wrong = std::string("files after ") + operation.name;
      ++done;
    }
  }
};

void SoakThreads(int count) {
  engine::Operations();  // made before the threads ask for it
  const engine::Scene scene;
  const test::Recording recording;
  std::array<Soak, kThreads> alone, together;
  const uint32_t slot = T_TlsAlloc();
  for (int i = 0; i < kThreads; ++i) std::thread([&, i] { alone[static_cast<size_t>(i)].Run(i, slot, count); }).join();
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&, i] { together[static_cast<size_t>(i)].Run(i, slot, count); });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(T_TlsFree(slot), 1);
  for (size_t i = 0; i < kThreads; ++i) {
    EXPECT_EQ(alone[i].wrong, "");
    EXPECT_EQ(together[i].wrong, "");
    EXPECT_EQ(together[i].digest, alone[i].digest) << "thread " << i << ", " << engine::SeedText();
  }
  EXPECT_EQ(recording.Left(), "");
}

TEST(Threads, EightThreadsRunTheOperationTable) { SoakThreads(150); }
TEST(Threads, DISABLED_SweepOfTheOperationTableOnEightThreads) { SoakThreads(20000); }

/// Bytes of memory that the process has; 0 where that is not to be had.
int64_t ResidentBytes() {
#if defined(_WIN32)
  return 0;
#else
  int64_t all = 0, resident = 0;
  std::ifstream("/proc/self/statm") >> all >> resident;
  return resident * sysconf(_SC_PAGESIZE);
#endif
}

/// Each of them gets settings, slots, a palette's colours and storage, and leaves some of it to its end.
void RunShortThreads(int count) {
  const uint32_t slot = T_TlsAlloc();
  std::atomic<int> wrong{0};
  const auto work = [&](int number) {
    if (T_GetDefaultXResolution() != 150 || T_GetDefaultDithering() != 7 || T_TlsGetValue(slot) != 0) ++wrong;
    T_SetDefaultXResolution(number + 1);
    T_TlsSetValue(slot, 1);
    BitmapHandle bitmap;
    if (T_InitBitmap(&bitmap, sizeof bitmap, 30, 20, 8) != SUCCESS || bitmap.XResolution != number + 1) ++wrong;
    if (T_AllocateBitmap(&bitmap, number % 16 ? TYPE_CONV : TYPE_DISK) != SUCCESS) ++wrong;
    if (number % 64 == 0) T_GetPixelColor(&bitmap, 3, 3);
    T_FreeBitmap(&bitmap);
  };
  const auto run = [&](int threads) {
    for (int first = 0; first < threads; first += kThreads) {
      std::array<std::thread, kThreads> some;
      for (int i = 0; i < kThreads; ++i) some[static_cast<size_t>(i)] = std::thread(work, first + i);
      for (std::thread& thread : some) thread.join();
    }
  };
  run(800);  // the allocator's and the system's own
  const test::Recording recording;
  [[maybe_unused]] const int64_t before = ResidentBytes();
  run(count);
  EXPECT_EQ(wrong, 0);
  EXPECT_EQ(recording.Left(), "");
#if !defined(__SANITIZE_ADDRESS__)               // it keeps what was freed for a while
  EXPECT_LT(ResidentBytes() - before, 4 << 20);  // 100,000 records of settings would be a hundred times as much
#endif
  EXPECT_EQ(T_TlsFree(slot), 1);
}

TEST(Threads, ManyShortThreadsLeaveNothing) { RunShortThreads(4000); }
TEST(Threads, DISABLED_SweepOfShortThreads) { RunShortThreads(100000); }

}  // namespace
}  // namespace tarn
