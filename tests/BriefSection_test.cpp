// Mutual exclusion by the section for a few instructions.

#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Platform/Platform.h"

using namespace tarn;

namespace {

TEST(BriefSectionThreads, OneAtATime) {
  platform::BriefSection section;
  constexpr int kThreads = 4;
  constexpr int kTurns = 5000;
  int64_t counter = 0;  // guarded by the section alone
  std::vector<std::thread> threads;
  for (int i = 0; i < kThreads; ++i)
    threads.emplace_back([&] {
      for (int turn = 0; turn < kTurns; ++turn) {
        const platform::Guard guard(section);
        ++counter;
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counter, int64_t{kThreads} * kTurns);
}

// The holder is put aside for longer than anybody spins.
TEST(BriefSectionThreads, WaitsForASleepingHolder) {
  platform::BriefSection section;
  bool done = false;
  bool seen = false;
  section.Enter();
  std::thread waiting([&] {
    const platform::Guard guard(section);
    seen = done;
  });
  platform::SleepMilliseconds(20);
  done = true;
  section.Leave();
  waiting.join();
  EXPECT_TRUE(seen);
}

}  // namespace
