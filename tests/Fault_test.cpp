#include "Platform/Fault.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cwchar>
#include <functional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Platform.h"
#include "PlatformSystem.h"

namespace tarn {

using fault::Answer;
using fault::Mask;
using fault::Point;
using test::ScratchDirectory;

namespace {

/// The answers of eight calls, one letter each: '.' passes, 'X' is answered.
std::string EightAnswers(Point point) {
  std::string answers;
  for (int i = 0; i < 8; ++i) answers += fault::Ask(point, TARN_HERE) == Answer::kPass ? '.' : 'X';
  return answers;
}

}  // namespace

TEST(Fault, NumbersCallsFromOneAndAnswersARange) {
  struct Case {
    uint64_t first, last;
    uint32_t points;
    const char* answers;
    uint64_t counted;
  };
  const Case cases[] = {
      {0, ~uint64_t{}, fault::kAllPoints, "........", 8},
      {1, ~uint64_t{}, fault::kAllPoints, "XXXXXXXX", 8},
      {1, 1, fault::kAllPoints, "X.......", 8},
      {3, 4, Mask(Point::kRead), "..XX....", 8},
      {8, 8, fault::kFilePoints, ".......X", 8},
      {9, 9, fault::kAllPoints, "........", 8},
      {5, 4, fault::kAllPoints, "........", 8},
      {1, 8, fault::kMemoryPoints, "........", 0},
      {1, 8, fault::kAllPoints & ~Mask(Point::kRead), "........", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.first << ".." << c.last << " points " << c.points);
    fault::Arm({.first = c.first, .last = c.last, .points = c.points});
    EXPECT_EQ(EightAnswers(Point::kRead), c.answers);
    const std::string answers = c.answers;
    EXPECT_EQ(fault::Answered(), uint64_t(std::count(answers.begin(), answers.end(), 'X')));
    EXPECT_EQ(fault::Disarm(), c.counted);
    EXPECT_EQ(EightAnswers(Point::kRead), "........") << "disarmed";
  }
}

TEST(Fault, ListsEachSourceLineOnce) {
  // Two literals of one name, as two source files that include one header have them.
  const std::wstring copyOfName = L"Common\\Alloc.cpp";
  fault::ClearSites();
  fault::Arm({.first = 2, .last = 3});
  for (const wchar_t* file : {L"Common\\Alloc.cpp", copyOfName.c_str(), L"Common\\Util.cpp"}) {
    (void)fault::Ask(Point::kMemory, {10, file});
    (void)fault::Ask(Point::kBlock, {10, file});
    (void)fault::Ask(Point::kMemory, {11, file});
  }
  fault::Disarm();
  (void)fault::Ask(Point::kMemory, {12, L"Common\\Alloc.cpp"});

  fault::Site sites[16];
  ASSERT_EQ(fault::Sites(sites, 16), 6u);
  uint64_t calls = 0;
  uint64_t refused = 0;
  for (const fault::Site& site : std::vector<fault::Site>(sites, sites + 6)) {
    EXPECT_EQ(site.calls, std::wcscmp(site.here.file, L"Common\\Util.cpp") == 0 ? 1u : 2u);
    calls += site.calls;
    refused += site.refused;
  }
  EXPECT_EQ(calls, 9u);
  EXPECT_EQ(refused, 2u);

  EXPECT_EQ(fault::Sites(sites, 2), 6u) << "a short table gives the whole number";
  EXPECT_EQ(fault::Sites(nullptr, 0), 6u);
  fault::ClearSites();
  EXPECT_EQ(fault::Sites(nullptr, 0), 0u);
}

TEST(Fault, AnswersMoreLinesThanItLists) {
  fault::ClearSites();
  fault::Arm({.first = 1});
  for (uint32_t line = 1; line <= 2000; ++line) ASSERT_TRUE(fault::Refused(Point::kView, {line, L"many"})) << line;
  EXPECT_EQ(fault::Disarm(), 2000u);
  std::vector<fault::Site> sites(2000);
  const uint32_t listed = fault::Sites(sites.data(), 2000);
  EXPECT_EQ(listed, 1024u);
  for (uint32_t i = 0; i < listed; ++i) EXPECT_EQ(sites[i].calls, 1u);
  fault::ClearSites();
}

TEST(Fault, CountsTheCallsOfEveryThread) {
  fault::Arm({.first = 1500, .last = 1500});
  std::atomic<int> refused{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 1000; ++i) refused += fault::Refused(Point::kMemory, TARN_HERE);
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(fault::Disarm(), 4000u);
  EXPECT_EQ(refused, 1);
  fault::ClearSites();
}

// ---- What the platform's calls make of the answers -----------------------------------------------------------------

namespace {

class AnswersTest : public testing::Test {
 protected:
  void SetUp() override {
    name_ = directory_.File(L"answers");
    file_ = platform::FileOpen(name_.c_str(), platform::kRead | platform::kWrite, 0,
                               platform::Disposition::kCreateAlways, platform::kNormal, TARN_HERE);
    ASSERT_NE(file_, platform::kNoFile);
    ASSERT_EQ(platform::FileWrite(file_, "0123456789", 10, TARN_HERE), 10);
    Seek(0);
  }
  void TearDown() override {
    fault::Disarm();
    if (file_ != platform::kNoFile) platform::FileClose(file_, TARN_HERE);
    fault::ClearSites();
  }
  int64_t Seek(int64_t offset, int32_t origin = 0) { return platform::FileSeek(file_, offset, origin, TARN_HERE); }
  static void Once(Answer answer) { fault::Arm({.first = 1, .last = 1, .answer = answer}); }
  std::string Contents() {
    fault::Disarm();
    char bytes[32];
    Seek(0);
    const int64_t count = platform::FileRead(file_, bytes, sizeof bytes, TARN_HERE);
    return std::string(bytes, size_t(count < 0 ? 0 : count));
  }

  ScratchDirectory directory_;
  std::wstring name_;
  int64_t file_ = platform::kNoFile;
};

}  // namespace

TEST_F(AnswersTest, RefusedCallsFailLikeTheSystem) {
  char buffer[8];
  wchar_t name[512];
  const std::wstring other = directory_.File(L"other");
  const std::wstring directory = directory_.Text();
  struct Case {
    const char* name;
    std::function<bool()> succeeds;
  };
  const Case cases[] = {
      {"open",
       [&] {
         return platform::FileOpen(other.c_str(), platform::kWrite, 0, platform::Disposition::kCreateAlways, 0,
                                   TARN_HERE) != platform::kNoFile;
       }},
      {"temporary", [&] { return platform::FileTemporary(directory.c_str(), TARN_HERE) != platform::kNoFile; }},
      {"temporary name", [&] { return platform::FileTemporaryName(directory.c_str(), name, 512, TARN_HERE); }},
      {"read", [&] { return platform::FileRead(file_, buffer, 4, TARN_HERE) != -1; }},
      {"write", [&] { return platform::FileWrite(file_, "abcd", 4, TARN_HERE) != -1; }},
      {"seek", [&] { return platform::FileSeek(file_, 3, 0, TARN_HERE) != -1; }},
      {"set size", [&] { return platform::FileSetSize(file_, 3, TARN_HERE); }},
      {"cut", [&] { return platform::FileCutHere(file_, TARN_HERE); }},
      {"reserve", [&] { return platform::FileReserve(file_, 100, TARN_HERE); }},
  };
  for (const Case& c : cases) {
    for (const Answer answer : {Answer::kRefuse, Answer::kDiskFull}) {
      SCOPED_TRACE(testing::Message() << c.name << (answer == Answer::kRefuse ? " refused" : " on a full disk"));
      Once(answer);
      test::SetLastSystemError(0);
      EXPECT_FALSE(c.succeeds());
      EXPECT_EQ(platform::LastErrorIsDiskFull(), answer == Answer::kDiskFull);
      EXPECT_NE(test::LastSystemError(), 0);
      EXPECT_EQ(fault::Disarm(), 1u) << "one gate a call";
      EXPECT_EQ(Seek(0, 1), 0) << "the position stays";
    }
  }
  EXPECT_EQ(Contents(), "0123456789");
  EXPECT_EQ(directory_.Entries(), 1u) << "only the file under test";
}

TEST_F(AnswersTest, ARefusedCloseClosesAllTheSame) {
  const int64_t open = platform::Held().files;
  for (const Answer answer : {Answer::kRefuse, Answer::kDiskFull}) {
    Once(answer);
    EXPECT_FALSE(platform::FileClose(file_, TARN_HERE));
    EXPECT_EQ(platform::LastErrorIsDiskFull(), answer == Answer::kDiskFull);
    fault::Disarm();
    EXPECT_EQ(platform::Held().files, open - 1);
    char byte;
    EXPECT_EQ(platform::FileRead(file_, &byte, 1, TARN_HERE), -1) << "closed";
    file_ = platform::FileOpen(name_.c_str(), platform::kRead, 0, platform::Disposition::kOpenExisting, 0, TARN_HERE);
    ASSERT_NE(file_, platform::kNoFile);
  }
}

TEST_F(AnswersTest, ShortAndEmptyTransfersMoveWhatTheySay) {
  char buffer[] = "................";
  Once(Answer::kShort);
  EXPECT_EQ(platform::FileRead(file_, buffer, 7, TARN_HERE), 3);
  EXPECT_EQ(std::string(buffer, 5), "012..");
  EXPECT_EQ(Seek(0, 1), 3);

  Once(Answer::kZero);
  EXPECT_EQ(platform::FileRead(file_, buffer, 7, TARN_HERE), 0);
  EXPECT_EQ(Seek(0, 1), 3);

  Once(Answer::kShort);
  EXPECT_EQ(platform::FileWrite(file_, "abcdef", 6, TARN_HERE), 3);
  Once(Answer::kZero);
  EXPECT_EQ(platform::FileWrite(file_, "uvwxyz", 6, TARN_HERE), 0);
  EXPECT_EQ(Contents(), "012abc6789");
}

TEST_F(AnswersTest, AWrongPositionIsOneByteOff) {
  Once(Answer::kWrongPosition);
  EXPECT_EQ(Seek(4), 5);
  EXPECT_EQ(Seek(0, 1), 5);
  EXPECT_EQ(Seek(4), 4) << "the next one is right";
}

TEST_F(AnswersTest, InterruptedCallsAreRepeated) {
  char buffer[8];
  Once(Answer::kInterrupt);
  EXPECT_EQ(platform::FileRead(file_, buffer, 8, TARN_HERE), 8);
  EXPECT_EQ(fault::Answered(), 1u);
  Once(Answer::kInterrupt);
  EXPECT_EQ(platform::FileWrite(file_, "ab", 2, TARN_HERE), 2);
  EXPECT_EQ(Contents(), "01234567ab");
  Once(Answer::kInterrupt);
  EXPECT_TRUE(platform::FileSetSize(file_, 5, TARN_HERE));
  Once(Answer::kInterrupt);
  EXPECT_TRUE(platform::FileReserve(file_, 6, TARN_HERE));
  EXPECT_EQ(Contents(), std::string("01234\0", 6));
  Once(Answer::kInterrupt);
  EXPECT_TRUE(platform::FileClose(file_, TARN_HERE));
  Once(Answer::kInterrupt);
  file_ = platform::FileOpen(name_.c_str(), platform::kRead, 0, platform::Disposition::kOpenExisting, 0, TARN_HERE);
  EXPECT_NE(file_, platform::kNoFile);
}

TEST_F(AnswersTest, MemoryIsRefusedByItsOwnPoint) {
  platform::Block block;
  const uint64_t section = platform::SectionCreate(100000, TARN_HERE);
  const uint64_t movable = platform::MovableAlloc(66, 100, TARN_HERE);
  ASSERT_NE(section, 0u);
  ASSERT_NE(movable, 0u);
  const platform::Counters before = platform::Held();
  const auto refuse = [](Point point) { fault::Arm({.first = 1, .points = Mask(point)}); };
  const auto refused = [](bool made, const char* what) {
    EXPECT_FALSE(made) << what;
    EXPECT_EQ(test::LastSystemError(), test::kErrorNoMemory) << what;
    EXPECT_EQ(fault::Disarm(), 1u) << what;
  };
  refuse(Point::kBlock);
  refused(platform::BlockCreate(100000, block, TARN_HERE), "block");
  EXPECT_EQ(block.view, nullptr);
  refuse(Point::kSection);
  refused(platform::SectionCreate(100000, TARN_HERE) != 0, "section");
  refuse(Point::kSection);
  refused(platform::SectionOnFile(file_, 10, TARN_HERE) != 0, "section on a file");
  refuse(Point::kView);
  refused(platform::ViewMap(section, 0, 100000, TARN_HERE) != nullptr, "view");
  refuse(Point::kMemory);
  refused(platform::MovableAlloc(66, 100, TARN_HERE) != 0, "movable block");
  refuse(Point::kMemory);
  refused(platform::MovableRealloc(movable, 1000, 66, TARN_HERE) != 0, "movable block resized");
  EXPECT_EQ(platform::MovableSize(movable), 100u);

  const platform::Counters after = platform::Held();
  EXPECT_EQ(after.blocks, before.blocks);
  EXPECT_EQ(after.sections, before.sections);
  EXPECT_EQ(after.views, before.views);
  EXPECT_EQ(after.movableBlocks, before.movableBlocks);
  platform::MovableFree(movable);
  platform::SectionClose(section);
}

}  // namespace tarn
