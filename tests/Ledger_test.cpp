#include "Common/Internal/Ledger.h"

#include <gtest/gtest.h>

#include <map>
#include <random>
#include <thread>
#include <vector>

#include "Platform/Platform.h"
#include "tarn/memory.h"

using namespace tarn;
using ledger::Kind;

namespace {

void* Object(uint64_t value) { return reinterpret_cast<void*>(value); }

struct Live {
  Kind kind;
  uint32_t line;
  bool operator==(const Live&) const = default;
};
using LiveMap = std::map<std::pair<const void*, int>, Live>;

LiveMap Collect() {
  LiveMap live;
  ledger::ForEachLive(
      [](const void* object, Kind kind, Here here, void* context) {
        (*static_cast<LiveMap*>(context))[{object, int(kind)}] = {kind, here.line};
      },
      &live);
  return live;
}

class LedgerTest : public testing::Test {
 protected:
  void SetUp() override { ledger::StartRecording(); }
  void TearDown() override { ledger::StopRecording(); }
};

}  // namespace

// Neighbouring addresses make long probe chains; removing from their middle must lose nobody.
TEST_F(LedgerTest, AgreesWithAModelThroughGrowthAndRemoval) {
  std::mt19937 random(4711);
  LiveMap model;
  for (int step = 0; step < 40000; ++step) {
    const Kind kind = random() % 2 ? Kind::kGlobal : Kind::kSystem;
    void* const object = Object(0x10000 + 16 * (random() % 3000));
    const auto key = std::pair<const void*, int>(object, int(kind));
    if (random() % 3) {
      const uint32_t line = uint32_t(step);
      ASSERT_EQ(ledger::Add(object, kind, {line, L"x"}), object);
      model[key] = {kind, line};
    } else {
      ledger::Remove(object, kind, {0, L"x"});
      model.erase(key);
    }
    ASSERT_EQ(ledger::Now().objects, model.size());
  }
  EXPECT_EQ(Collect(), model);
  EXPECT_EQ(ledger::Now().lost, 0u);
}

TEST_F(LedgerTest, WhatIsTakenComesBackWithItsPlace) {
  ledger::Add(Object(64), Kind::kHandle, {17, L"x"});
  const ledger::Removed removed = ledger::Take(Object(64), Kind::kHandle);
  EXPECT_EQ(ledger::Now().objects, 0u);
  ledger::PutBack(removed);
  EXPECT_EQ(Collect(), (LiveMap{{{Object(64), 3}, {Kind::kHandle, 17}}}));
  ledger::PutBack(ledger::Take(Object(999), Kind::kHandle));  // was not there: stays away
  EXPECT_EQ(ledger::Now().objects, 1u);
  EXPECT_EQ(ledger::Now().unknownRemoves, 1u);
}

TEST_F(LedgerTest, CountsTheBytesOfHeapBlocksOnly) {
  void* const first = T_LocalAlloc(1, 1000, 1, L"x");
  void* const second = T_LocalAlloc(1, 500, 2, L"x");
  void* const movable = T_GlobalAlloc(1, 100000, 3, L"x");
  const uint64_t both = platform::HeapBlockSize(first) + platform::HeapBlockSize(second);
  EXPECT_EQ(ledger::Now().objects, 3u);
  EXPECT_EQ(ledger::Now().heapBytes, both);
  T_LocalFree(first, 4, L"x");
  EXPECT_EQ(ledger::Now().heapBytes, platform::HeapBlockSize(second));
  EXPECT_EQ(ledger::Now().peakHeapBytes, both);
  T_LocalFree(second, 5, L"x");
  T_GlobalFree(movable, 6, L"x");
  EXPECT_EQ(ledger::Now().objects, 0u);
  EXPECT_EQ(ledger::Now().heapBytes, 0u);
}

TEST_F(LedgerTest, KeepsNothingWhenSwitchedOff) {
  ledger::Add(Object(64), Kind::kGlobal, {1, L"x"});
  ledger::StopRecording();
  ledger::Add(Object(128), Kind::kSystem, {1, L"x"});
  ledger::Remove(Object(256), Kind::kSystem, {1, L"x"});
  EXPECT_EQ(ledger::Now().objects, 1u);
  EXPECT_EQ(ledger::Now().unknownRemoves, 0u);
  ledger::StartRecording();
  EXPECT_EQ(ledger::Now().objects, 0u);
  EXPECT_EQ(ledger::Add(nullptr, Kind::kSystem, {1, L"x"}), nullptr);
  EXPECT_EQ(ledger::Now().objects, 0u);
}

// The announcements of callers go nowhere in this release.
TEST_F(LedgerTest, ExportedEntryPointsKeepNothing) {
  T_ResourceLeakDetect(1);
  T_ResourceAdd(Object(64), T_KIND_LOCAL, 1, L"x");
  T_ResourceRemove(Object(128), T_KIND_LOCAL, 1, L"x");
  T_ResourceLeakReport(0);
  EXPECT_EQ(ledger::Now().objects, 0u);
  EXPECT_EQ(ledger::Now().unknownRemoves, 0u);
}

// An address must leave the ledger before it can be given to another thread.
TEST_F(LedgerTest, BalancesWhenThreadsPassAddressesAround) {
  std::vector<std::thread> threads;
  for (unsigned seed = 0; seed < 4; ++seed)
    threads.emplace_back([seed] {
      std::mt19937 random(seed);
      void* blocks[8] = {};
      for (int step = 0; step < 5000; ++step) {
        void*& block = blocks[random() % 8];
        switch (random() % 3) {
          case 0:
            block = T_LocalRealloc(block, random() % 5000, 1, L"x");
            break;
          case 1:
            T_LocalFree(block, 2, L"x");
            block = T_LocalAlloc(1, random() % 5000, 3, L"x");
            break;
          default:
            T_LocalFree(block, 4, L"x");
            block = nullptr;
        }
      }
      for (void* block : blocks) T_LocalFree(block, 5, L"x");
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(ledger::Now().objects, 0u);
  EXPECT_EQ(ledger::Now().heapBytes, 0u);
  EXPECT_EQ(ledger::Now().unknownRemoves, 0u);
}
