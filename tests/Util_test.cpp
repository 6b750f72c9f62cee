// Tracked memory, the memory functions, thread-local slots, the file copy, start and stop.

#include <gtest/gtest.h>
#ifdef __GLIBC__
#include <malloc.h>
#endif

#include <algorithm>
#include <atomic>
#include <cstring>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Common/Internal/Hooks.h"
#include "Common/Internal/Message.h"
#include "Common/Internal/Settings.h"
#include "Common/Internal/TrackedMemory.h"
#include "Holding.h"
#include "TestFiles.h"
#include "tarn/memory.h"

using namespace tarn;
using namespace tarn::test;

namespace {

bool AllBytes(const void* block, uint8_t value, size_t bytes) {
  const uint8_t* const first = static_cast<const uint8_t*>(block);
  return std::all_of(first, first + bytes, [=](uint8_t byte) { return byte == value; });
}

}  // namespace

// ---- Tracked memory ------------------------------------------------------------------------------------------------

namespace {

/// One family of functions, with handles locked where there are any.
struct Family {
  const char* name;
  bool zeroed;       // new blocks are clear
  bool addedZeroed;  // what a resize adds is clear
  uint64_t (*make)(uint64_t count, uint64_t size);
  uint64_t (*resize)(uint64_t object, uint64_t size);
  int64_t (*release)(uint64_t object);
  int64_t released;  // what release returns
  uint8_t* (*address)(uint64_t object);
};

uint64_t Value(void* address) { return reinterpret_cast<uint64_t>(address); }
void* Pointer(uint64_t value) { return reinterpret_cast<void*>(value); }
uint8_t* Itself(uint64_t object) { return reinterpret_cast<uint8_t*>(object); }
uint8_t* Locked(uint64_t handle) {
  void* const address = T_OsLockHandle(handle, 1, L"x");
  T_OsUnlockHandle(handle, 1, L"x");
  return static_cast<uint8_t*>(address);
}

const Family kFamilies[] = {
    {"Global", true, true, [](uint64_t n, uint64_t size) { return Value(T_GlobalAlloc(n, size, 10, L"make")); },
     [](uint64_t p, uint64_t size) { return Value(T_GlobalRealloc(Pointer(p), size, 20, L"resize")); },
     [](uint64_t p) { return int64_t{T_GlobalFree(Pointer(p), 30, L"free")}; }, 1, Itself},
    {"GlobalInit", true, true, [](uint64_t n, uint64_t size) { return Value(T_GlobalAllocInit(n, size, 10, L"make")); },
     [](uint64_t p, uint64_t size) { return Value(T_GlobalRealloc(Pointer(p), size, 20, L"resize")); },
     [](uint64_t p) { return int64_t{T_GlobalFree(Pointer(p), 30, L"free")}; }, 1, Itself},
    {"Local", false, false, [](uint64_t n, uint64_t size) { return Value(T_LocalAlloc(n, size, 10, L"make")); },
     [](uint64_t p, uint64_t size) { return Value(T_LocalRealloc(Pointer(p), size, 20, L"resize")); },
     [](uint64_t p) { return int64_t{T_LocalFree(Pointer(p), 30, L"free")}; }, 1, Itself},
    {"LocalInit", true, false, [](uint64_t n, uint64_t size) { return Value(T_LocalAllocInit(n, size, 10, L"make")); },
     [](uint64_t p, uint64_t size) { return Value(T_LocalRealloc(Pointer(p), size, 20, L"resize")); },
     [](uint64_t p) { return int64_t{T_LocalFree(Pointer(p), 30, L"free")}; }, 1, Itself},
    {"Handle", true, true, [](uint64_t n, uint64_t size) { return T_OsAllocHandle(66, n * size, 10, L"make"); },
     [](uint64_t h, uint64_t size) { return T_OsReallocHandle(h, size, 66, 20, L"resize"); },
     [](uint64_t h) { return int64_t(T_OsFreeHandle(h, 30, L"free")); }, 0, Locked},
    {"HandleInit", true, true, [](uint64_t n, uint64_t size) { return T_OsAllocHandleInit(0, n * size, 10, L"make"); },
     [](uint64_t h, uint64_t size) { return T_OsReallocHandle(h, size, 66, 20, L"resize"); },
     [](uint64_t h) { return int64_t(T_OsFreeHandle(h, 30, L"free")); }, 0, Locked},
    {"HandleFixed", false, false, [](uint64_t n, uint64_t size) { return T_OsAllocHandle(0, n * size, 10, L"make"); },
     [](uint64_t h, uint64_t size) { return T_OsReallocHandle(h, size, 2, 20, L"resize"); },
     [](uint64_t h) { return int64_t(T_OsFreeHandle(h, 30, L"free")); }, 0, Itself},
};

/// The line and file of the only live object.
std::wstring OnlyPlace() {
  std::wstring place;
  ledger::ForEachLive(
      [](const void*, ledger::Kind, Here here, void* context) {
        *static_cast<std::wstring*>(context) += here.file + std::to_wstring(here.line);
      },
      &place);
  return place;
}

}  // namespace

TEST(TrackedMemory, MakesResizesAndReleasesThroughTheLedger) {
  for (const Family& family : kFamilies) {
    SCOPED_TRACE(family.name);
    const Recording recording;
    uint64_t object = family.make(10, 100);
    ASSERT_NE(object, 0u);
    EXPECT_EQ(OnlyPlace(), L"make10");
    uint8_t* address = family.address(object);
    ASSERT_NE(address, nullptr);
    EXPECT_TRUE(!family.zeroed || AllBytes(address, 0, 1000));
    std::memset(address, 0x5A, 1000);

    object = family.resize(object, 200000);
    ASSERT_NE(object, 0u);
    EXPECT_EQ(OnlyPlace(), L"resize20");
    address = family.address(object);
    EXPECT_TRUE(AllBytes(address, 0x5A, 1000));
    EXPECT_TRUE(!family.addedZeroed || AllBytes(address + 1000, 0, 199000));

    object = family.resize(object, 10);
    ASSERT_NE(object, 0u);
    EXPECT_TRUE(AllBytes(family.address(object), 0x5A, 10));
    object = family.resize(object, 0);  // an empty object, not a release
    ASSERT_NE(object, 0u);
    EXPECT_EQ(OnlyPlace(), L"resize20");
    EXPECT_EQ(family.release(object), family.released);
    EXPECT_EQ(recording.Left(), "");
  }
}

TEST(TrackedMemory, ARefusedCallLeavesWhatThereWas) {
  for (const Family& family : kFamilies) {
    SCOPED_TRACE(family.name);
    const Recording recording;
    EXPECT_GT(RefuseEachCall([&] { return family.make(1, 100); },
                             [&](uint64_t object, bool refused) {
                               EXPECT_EQ(object == 0, refused);
                               if (object) family.release(object);
                               EXPECT_EQ(recording.Left(), "");
                             }),
              0u);
    uint64_t object = family.make(1, 100);
    std::memset(family.address(object), 0x5A, 100);
    EXPECT_GT(RefuseEachCall([&] { return family.resize(object, 100000); },
                             [&](uint64_t resized, bool refused) {
                               EXPECT_EQ(resized == 0, refused);
                               EXPECT_EQ(OnlyPlace(), refused ? L"make10" : L"resize20");
                               if (resized) object = resized;
                               EXPECT_TRUE(AllBytes(family.address(object), 0x5A, 100));
                             }),
              0u);
    family.release(object);
    EXPECT_EQ(recording.Left(), "");
  }
}

TEST(TrackedMemory, RefusesWhatDoesNotFitAndIgnoresNull) {
  const Recording recording;
  for (const Family& family : kFamilies) {
    SCOPED_TRACE(family.name);
    if (std::strncmp(family.name, "Handle", 6) != 0) {
      EXPECT_EQ(family.make(uint64_t{1} << 33, uint64_t{1} << 31), 0u);  // the product is 0 in 64 bits
      EXPECT_EQ(family.make(~uint64_t{}, 3), 0u);
    }
    EXPECT_EQ(family.make(1, ~uint64_t{} - 64), 0u);
    EXPECT_EQ(family.release(0), family.released);
  }
  EXPECT_EQ(T_GlobalAlloc(0, 8, 1, L"x"), nullptr);
  EXPECT_EQ(T_GlobalRealloc(nullptr, 8, 1, L"x"), nullptr);
  EXPECT_EQ(T_OsReallocHandle(0, 8, 2, 1, L"x"), 0u);
  EXPECT_EQ(T_OsLockHandle(0, 1, L"x"), nullptr);
  T_OsUnlockHandle(0, 1, L"x");
  EXPECT_EQ(recording.Left(), "");
}

TEST(TrackedMemory, WhatIsNoBlockIsLeftAlone) {
#ifdef _WIN32
  GTEST_SKIP() << "the system follows what it is given";
#else
  const Recording recording;
  int local = 5;
  EXPECT_EQ(T_GlobalRealloc(&local, 8, 1, L"x"), nullptr);
  EXPECT_EQ(T_GlobalFree(&local, 1, L"x"), 1);
  EXPECT_EQ(local, 5);
  EXPECT_EQ(recording.Left(), "2 unknown releases; ");
#endif
}

TEST(TrackedMemory, ResizingNullAllocates) {
  const Recording recording;
  void* const plain = T_LocalRealloc(nullptr, 32, 1, L"x");
  void* const clear = T_LocalReallocInit(nullptr, 32, 1, L"x");
  ASSERT_TRUE(plain && clear);
  EXPECT_TRUE(AllBytes(clear, 0, 32));
  T_LocalFree(plain, 1, L"x");
  T_LocalFree(clear, 1, L"x");
  EXPECT_EQ(recording.Left(), "");
}

TEST(TrackedMemory, ReallocInitClearsTheWholeBlock) {
  uint8_t* block = static_cast<uint8_t*>(T_LocalAlloc(1, 16, 1, L"x"));
  std::memset(block, 0xEE, 16);
  {
    const Armed refusing({.first = 1});
    EXPECT_EQ(T_LocalReallocInit(block, 32, 1, L"x"), nullptr);
  }
  EXPECT_EQ(T_LocalReallocInit(block, UINT64_MAX / 4, 1, L"x"), nullptr) << "more than there is";
  EXPECT_EQ(ResizeTracked(block, {T_KIND_LOCAL, 0, true, uint64_t{1} << 33, uint64_t{1} << 33}, TARN_HERE), nullptr);
  EXPECT_TRUE(AllBytes(block, 0xEE, 16));
  block = static_cast<uint8_t*>(T_LocalReallocInit(block, 32, 1, L"x"));
  EXPECT_TRUE(AllBytes(block, 0, 32));
  std::memset(block, 0xEE, 32);
  block = static_cast<uint8_t*>(T_LocalReallocInit(block, 8, 1, L"x"));
  EXPECT_TRUE(AllBytes(block, 0, 8));
  T_LocalFree(block, 1, L"x");
}

TEST(TrackedMemory, EmptyHeapBlocksAreBlocks) {
  void* const first = T_LocalAlloc(0, 8, 1, L"x");
  void* const second = T_LocalAllocInit(8, 0, 1, L"x");
  EXPECT_TRUE(first && second && first != second);
  T_LocalFree(first, 1, L"x");
  T_LocalFree(second, 1, L"x");
}

TEST(TrackedMemory, MovableHandlesKeepTheirValueAndCountLocks) {
  const uint64_t handle = T_OsAllocHandleInit(0, 100, 1, L"x");
  uint8_t* const address = static_cast<uint8_t*>(T_OsLockHandle(handle, 1, L"x"));
  EXPECT_EQ(T_OsLockHandle(handle, 1, L"x"), address);
  EXPECT_NE(Value(address), handle);
  T_OsUnlockHandle(handle, 1, L"x");
  T_OsUnlockHandle(handle, 1, L"x");
  EXPECT_EQ(T_OsReallocHandle(handle, 1 << 20, 66, 1, L"x"), handle);
  EXPECT_EQ(T_OsFreeHandle(handle, 1, L"x"), 0u);
}

// The gate is asked with the caller's own place, so that sweeps can name what they refused.
TEST(TrackedMemory, AsksTheGateForTheCaller) {
  fault::ClearSites();
  {
    const Armed counting({.first = 0});
    T_LocalFree(T_LocalAlloc(1, 8, 4321, L"here"), 1, L"x");
  }
  fault::Site sites[16];
  const uint32_t count = std::min(fault::Sites(sites, 16), 16u);
  EXPECT_TRUE(std::any_of(sites, sites + count, [](const fault::Site& site) {
    return site.here.line == 4321 && std::wstring(site.here.file) == L"here" && site.point == fault::Point::kMemory;
  }));
}

namespace {

std::wstring shownText, shownCaption;

class Messages {
 public:
  Messages() {
    shownText.clear();
    previous_ = SetMessageRoutine([](const wchar_t* text, const wchar_t* caption) {
      shownText = text;
      shownCaption = caption;
    });
  }
  ~Messages() { SetMessageRoutine(previous_); }

 private:
  MessageRoutine previous_;
};

}  // namespace

TEST(TrackedMemory, AnUnknownKindIsAnnounced) {
  const Messages messages;
  const Recording recording;
  const std::wstring expected = L"Invalid resource type used in (4294967295) .\\Common\\Caller.cpp";
  const Here here{4294967295u, L".\\Common\\Caller.cpp"};
  int byte = 0;
  for (uint32_t kind : {0u, 4u, 0xFFFFFFFFu}) {
    shownText.clear();
    EXPECT_EQ(AllocateTracked({kind, 66, true, 1, 8}, here), nullptr);
    EXPECT_EQ(shownText, expected);
    shownText.clear();
    EXPECT_EQ(ResizeTracked(&byte, {kind, 66, true, 1, 8}, here), nullptr);
    EXPECT_EQ(shownText, expected);
    shownText.clear();
    EXPECT_EQ(ReleaseTracked(kind, &byte, here), 1);
    EXPECT_EQ(shownText, expected);
  }
  EXPECT_EQ(AllocateTracked({9, 66, true, 1, 8}, {7, nullptr}), nullptr);
  EXPECT_EQ(shownText, L"Invalid resource type used in (7) ");
  EXPECT_EQ(recording.Left(), "");
}

TEST(Message, IsCutToItsRoomAndNeverEmpty) {
  const Messages messages;
  ShowMessage(L"caption", L"%ls", std::wstring(5000, L'x').c_str());
  EXPECT_EQ(shownCaption, L"caption");
  EXPECT_EQ(shownText, std::wstring(kMessageLength - 1, L'x'));
  ShowMessage(L"caption", nullptr);
  EXPECT_FALSE(shownText.empty());
#ifndef _WIN32  // where a box would wait
  const MessageRoutine routine = SetMessageRoutine(nullptr);
  testing::internal::CaptureStderr();
  ShowMessage(L"Tarn", L"%d things", 3);
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "Tarn: 3 things\n");
  SetMessageRoutine(routine);
#endif
}

TEST(MemoryFunctions, BehaveLikeTheStandardOnes) {
  char text[16] = "abcdef";
  EXPECT_EQ(T_MemoryMove(text + 2, text, 4), text + 2);
  EXPECT_STREQ(text, "ababcd");
  EXPECT_EQ(T_MemoryCopy(text, "xyz", 3), text);
  EXPECT_STREQ(text, "xyzbcd");
  EXPECT_EQ(T_MemorySet(text + 1, 0x100 + 'q', 2), text + 1);
  EXPECT_STREQ(text, "xqqbcd");
  EXPECT_EQ(T_MemoryMove(nullptr, nullptr, 0), nullptr);
  EXPECT_EQ(T_MemoryCopy(text, nullptr, 0), text);
  EXPECT_EQ(T_MemorySet(nullptr, 1, 0), nullptr);
  EXPECT_EQ(T_MemoryChr(nullptr, 1, 0), nullptr);
  EXPECT_EQ(T_MemoryChr(text, 'b', 6), text + 3);
  EXPECT_EQ(T_MemoryChr(text, 'b', 3), nullptr);
  struct {
    const char *a, *b;
    size_t bytes;
    int sign, signI;
  } const cases[] = {{"abc", "abc", 3, 0, 0}, {"ABC", "abc", 3, -1, 0},    {"abd", "ABC", 3, 1, 1},
                     {"abX", "abY", 2, 0, 0}, {"\xC0", "\xE0", 1, -1, -1}, {"[", "{", 1, -1, -1},
                     {"Z", "_", 1, -1, 1},    {"a\0B", "A\0c", 3, 1, -1},  {nullptr, nullptr, 0, 0, 0}};
  const auto sign = [](int value) { return (value > 0) - (value < 0); };
  for (const auto& row : cases) {
    EXPECT_EQ(sign(T_MemoryCompare(row.a, row.b, row.bytes)), row.sign) << row.a << " " << row.b;
    EXPECT_EQ(sign(T_MemoryCompareI(row.a, row.b, row.bytes)), row.signI) << row.a << " " << row.b;
  }
}

// ---- Thread-local slots --------------------------------------------------------------------------------------------

TEST(Slots, AreHandedOutInOrderAndReusedOnlyWhenAllWere) {
  ASSERT_EQ(T_TlsAlloc(), 0u);
  for (uint32_t slot = 1; slot < 10; ++slot) ASSERT_EQ(T_TlsAlloc(), slot);
  EXPECT_EQ(T_TlsFree(5), 1);
  EXPECT_EQ(T_TlsFree(5), 0);
  EXPECT_EQ(T_TlsAlloc(), 10u);  // not 5
  EXPECT_EQ(T_TlsFree(10), 1);
  EXPECT_EQ(T_TlsFree(10), 0);
  EXPECT_EQ(T_TlsAlloc(), 10u);  // the highest comes back at once
  for (uint32_t slot = 11; slot < T_TLS_SLOTS; ++slot) ASSERT_EQ(T_TlsAlloc(), slot);
  EXPECT_EQ(T_TlsAlloc(), 5u);
  EXPECT_EQ(T_TlsAlloc(), 0xFFFFFFFFu);
  EXPECT_EQ(T_TlsFree(700), 1);
  EXPECT_EQ(T_TlsAlloc(), 700u);
  EXPECT_EQ(T_TlsFree(T_TLS_SLOTS), 0);
  EXPECT_EQ(T_TlsFree(0xFFFFFFFF), 0);
  for (uint32_t slot = T_TLS_SLOTS; slot-- > 0;) ASSERT_EQ(T_TlsFree(slot), 1);
  EXPECT_EQ(T_TlsFree(0), 0);
}

TEST(Slots, HoldOneValueForEachThread) {
  const uint32_t slot = T_TlsAlloc();
  EXPECT_EQ(T_TlsGetValue(slot), 0u);
  EXPECT_EQ(T_TlsSetValue(slot, 0x123456789ABCDEF0u), 1);
  std::thread([=] {
    EXPECT_EQ(T_TlsGetValue(slot), 0u);
    EXPECT_EQ(T_TlsSetValue(slot, 7), 1);
    EXPECT_EQ(T_TlsGetValue(slot), 7u);
  }).join();
  EXPECT_EQ(T_TlsGetValue(slot), 0x123456789ABCDEF0u);
  EXPECT_EQ(T_TlsSetValue(slot + 1, 1), 0);  // never handed out
  EXPECT_EQ(T_TlsGetValue(slot + 1), 0u);
  EXPECT_EQ(T_TlsSetValue(0xFFFFFFFF, 1), 0);
  EXPECT_EQ(T_TlsFree(slot), 1);
  EXPECT_EQ(T_TlsGetValue(slot), 0u);
  EXPECT_EQ(T_TlsAlloc(), slot);
  EXPECT_EQ(T_TlsGetValue(slot), 0u);  // nothing of the former owner
  EXPECT_EQ(T_TlsFree(slot), 1);
}

// ---- File copy -----------------------------------------------------------------------------------------------------

namespace {

#ifdef _WIN32
extern "C" __declspec(dllimport) unsigned long __stdcall GetLastError(void);
int LastError() { return int(GetLastError()); }
constexpr int kFileExists = 80, kReadFault = 30, kWriteFault = 29;
#else
int LastError() { return errno; }
constexpr int kFileExists = EEXIST, kReadFault = EIO, kWriteFault = EIO;
#endif

}  // namespace

TEST(CopyFile, CopiesWholeFilesAndReplacesLongerOnes) {
  for (size_t bytes : {0, 1, 1023, 1024, 1025, 2048, 5000}) {
    SCOPED_TRACE(bytes);
    const TempFile source(Pattern(bytes));
    const TempFile target(Pattern(6000, 2));
    const Recording recording;
    EXPECT_NE(T_CopyFile(source.Text(), target.Text(), 0), 0);
    EXPECT_EQ(recording.Left(), "");
    EXPECT_EQ(ReadWhole(target.Name()), Pattern(bytes));
    EXPECT_EQ(ReadWhole(source.Name()), Pattern(bytes));
  }
}

TEST(CopyFile, RefusesAnExistingDestinationWhenAsked) {
  const TempFile source(Pattern(10)), target(Pattern(20, 2));
  EXPECT_EQ(T_CopyFile(source.Text(), target.Text(), 1), 0);
  EXPECT_EQ(LastError(), kFileExists);
  EXPECT_EQ(ReadWhole(target.Name()), Pattern(20, 2));
  T_OsDelete(target.Text());
  EXPECT_NE(T_CopyFile(source.Text(), target.Text(), 1), 0);
  EXPECT_EQ(ReadWhole(target.Name()), Pattern(10));
}

TEST(CopyFile, FailsOnNamesThatLeadNowhere) {
  const TempFile source(Pattern(10)), target;
  T_OsDelete(target.Text());
  EXPECT_EQ(T_CopyFile(nullptr, target.Text(), 0), 0);
  EXPECT_EQ(T_CopyFile(source.Text(), nullptr, 0), 0);
  EXPECT_EQ(T_CopyFile(target.Text(), source.Text(), 0), 0);  // no such source: the destination is not touched
  EXPECT_EQ(ReadWhole(source.Name()), Pattern(10));
  EXPECT_EQ(T_CopyFile(source.Text(), (target.Name() + L"/there").c_str(), 0), 0);
}

TEST(CopyFile, DoesNotEmptyAFileCopiedOntoItself) {
  const TempFile file(Pattern(3000));
  const size_t slash = file.Name().find_last_of(L"/\\");
  const std::wstring detour = file.Name().substr(0, slash) + L"/." + file.Name().substr(slash);
  const Recording recording;
  for (const std::wstring& name : {file.Name(), detour}) {
    EXPECT_EQ(T_CopyFile(file.Text(), name.c_str(), 0), 0);
    EXPECT_EQ(ReadWhole(file.Name()), Pattern(3000));
  }
  EXPECT_EQ(recording.Left(), "");
}

TEST(CopyFile, NeverReportsAFailedCallAsSuccess) {
  using fault::Answer;
  using fault::Point;
  const struct {
    const char* name;
    Answer answer;
    uint32_t points;
    int error;  // 0: any
  } cases[] = {
      {"read refused", Answer::kRefuse, Mask(Point::kRead), kReadFault},
      {"write refused", Answer::kRefuse, Mask(Point::kWrite), kWriteFault},
      {"disk full", Answer::kDiskFull, Mask(Point::kWrite), kWriteFault},
      {"short write", Answer::kShort, Mask(Point::kWrite), kWriteFault},
      {"empty write", Answer::kZero, Mask(Point::kWrite), kWriteFault},
      {"open refused", Answer::kRefuse, Mask(Point::kOpen), 0},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const TempFile source(Pattern(3000)), target;
    const Recording recording;
    int error = 0;
    EXPECT_GT(AnswerEachCall(
                  row.answer, row.points,
                  [&] {
                    const int32_t copied = T_CopyFile(source.Text(), target.Text(), 0);
                    error = LastError();
                    return copied;
                  },
                  [&](int32_t copied, bool answered) {
                    EXPECT_EQ(copied == 0, answered);
                    EXPECT_TRUE(!answered || !row.error || error == row.error) << error;
                    EXPECT_TRUE(answered || ReadWhole(target.Name()) == Pattern(3000));
                    EXPECT_EQ(recording.Left(), "");
                  }),
              1u);
  }
}

TEST(CopyFile, AFailingCloseOfTheDestinationFails) {
  const TempFile source(Pattern(3000)), target;
  int failures = 0;
  // Closing the source, which was only read, may fail unnoticed; closing the destination may not.
  AnswerEachCall(
      fault::Answer::kRefuse, Mask(fault::Point::kClose), [&] { return T_CopyFile(source.Text(), target.Text(), 0); },
      [&](int32_t copied, bool) { failures += copied == 0; });
  EXPECT_EQ(failures, 1);
}

TEST(CopyFile, GoesOnAfterAnInterruptedCall) {
  const TempFile source(Pattern(3000)), target;
  AnswerEachCall(
      fault::Answer::kInterrupt, fault::kFilePoints, [&] { return T_CopyFile(source.Text(), target.Text(), 0); },
      [&](int32_t copied, bool) {
        EXPECT_NE(copied, 0);
        EXPECT_EQ(ReadWhole(target.Name()), Pattern(3000));
      });
}

TEST(CopyFile, WritesThroughTheRedirectedLayer) {
  const TempFile source(Pattern(40000));
  T_BufferRedirect* redirect = nullptr;
  constexpr uint32_t kFlags = T_BUFFER_GROW | T_BUFFER_WRITE | T_BUFFER_CONTENTS;  // to be emptied first
  ASSERT_EQ(T_StartRedirectToBuffer(&redirect, nullptr, kFlags, T_GlobalAlloc(1, 50000, 1, L"x"), 50000), SUCCESS);
  EXPECT_NE(T_CopyFile(source.Text(), L"in memory", 0), 0);
  void* buffer = nullptr;
  uint64_t length = 0;
  ASSERT_EQ(T_StopRedirectToBuffer(redirect, &buffer, &length), SUCCESS);
  ASSERT_EQ(length, 40000u);
  EXPECT_EQ(Bytes(static_cast<uint8_t*>(buffer), static_cast<uint8_t*>(buffer) + length), Pattern(40000));
  T_GlobalFree(buffer, 1, L"x");
}

// ---- Hooks ---------------------------------------------------------------------------------------------------------

TEST(Hooks, SettersExchangeAndReadersSeeTheLast) {
  const T_PixelPositionHook pixel = [](BitmapHandle*, int32_t, int32_t, uint32_t) { return int32_t{SUCCESS}; };
  const T_BitmapCreationHook creation = [](BitmapHandle*, BitmapHandle*, int32_t, int32_t) { return int32_t{SUCCESS}; };
  T_RegionHooks regions{}, other{};
  regions.StructSize = other.StructSize = sizeof(T_RegionHooks);

  EXPECT_EQ(T_SetPixelPositionHook(pixel), nullptr);
  EXPECT_EQ(PixelPositionHook(), pixel);
  EXPECT_EQ(T_SetPixelPositionHook(nullptr), pixel);
  EXPECT_EQ(PixelPositionHook(), nullptr);

  EXPECT_EQ(T_SetBitmapCreationHook(creation), nullptr);
  EXPECT_EQ(BitmapCreationHook(), creation);
  EXPECT_EQ(T_SetBitmapCreationHook(nullptr), creation);

  EXPECT_EQ(T_SetRegionHooks(&regions), nullptr);
  other.StructSize -= 8;
  EXPECT_EQ(T_SetRegionHooks(&other), nullptr);  // refused
  EXPECT_EQ(RegionHooks(), &regions);
  EXPECT_EQ(T_SetRegionHooks(nullptr), &regions);
  EXPECT_EQ(RegionHooks(), nullptr);
}

// ---- Start and stop ------------------------------------------------------------------------------------------------

namespace {

/// Bytes of the whole process's heap, where the system tells.
size_t HeapInUse() {
#ifdef __GLIBC__
  return mallinfo2().uordblks;
#else
  return 0;
#endif
}

}  // namespace

// The program itself was attached once, at its start.
TEST(Library, StopsAndStartsWithoutLeavingAnything) {
  const Recording recording;
  platform::LibraryDetach();  // the start's record is unknown to this recording
  ledger::StartRecording();
  for (int round = 0; round < 200; ++round) {
    ASSERT_TRUE(platform::LibraryAttach());
    T_SetDefaultXResolution(300);
    const uint32_t slot = T_TlsAlloc();
    ASSERT_EQ(slot, 0u);
    T_TlsSetValue(slot, 1);
    platform::LibraryDetach();
    ASSERT_EQ(recording.Left(), "");
    ASSERT_EQ(T_GetDefaultXResolution(), 150);
  }
  ASSERT_TRUE(platform::LibraryAttach());
}

TEST(Library, ThreadsHaveNoValueWhileItIsStopped) {
  EXPECT_TRUE(platform::TlsCreate()) << "there already";
  platform::LibraryDetach();
  int own = 0;
  EXPECT_FALSE(platform::TlsSet(&own));
  EXPECT_EQ(platform::TlsGet(), nullptr);
  platform::TlsDestroy();
  ASSERT_TRUE(platform::LibraryAttach());
}

// Its record is the first of all, and goes as any other.
TEST(Library, TheThreadThatStartedItMayEnd) {
  const auto start = [] {
    platform::LibraryDetach();
    ASSERT_TRUE(platform::LibraryAttach());
    T_SetDefaultXResolution(300);
    std::thread([] { EXPECT_EQ(T_SetDefaultXResolution(301), 150); }).join();
    EXPECT_EQ(T_GetDefaultXResolution(), 300);
  };
  for (int round = 0; round < 3; ++round) {
    std::thread(start).join();
    EXPECT_EQ(T_GetDefaultXResolution(), 150);
  }
}

TEST(Library, AttachesNest) {
  T_SetDefaultXResolution(300);
  ASSERT_TRUE(platform::LibraryAttach());
  EXPECT_EQ(T_GetDefaultXResolution(), 300);
  platform::LibraryDetach();
  EXPECT_EQ(T_SetDefaultXResolution(150), 300);
}

TEST(Library, AFailedStartLeavesTheSharedSettings) {
  platform::LibraryDetach();
  const Recording recording;
  EXPECT_EQ(RefuseEachCall([] { return platform::LibraryAttach(); },
                           [&](bool attached, bool refused) {
                             EXPECT_EQ(attached, !refused);
                             if (attached) return;
                             EXPECT_EQ(T_GetDefaultDithering(), 7u);
                             wchar_t directory[T_TEMP_DIRECTORY_LENGTH];
                             EXPECT_EQ(T_GetTempDirectory(directory, T_TEMP_DIRECTORY_LENGTH), SUCCESS);
                             EXPECT_EQ(T_SetTempDirectory(directory), SUCCESS);
                             EXPECT_EQ(T_TlsSetValue(T_TlsAlloc(), 1), 0);
                             T_TlsFree(0);
                             platform::LibraryDetach();  // as the system does for a library that did not start
                             EXPECT_EQ(recording.Left(), "");
                           }),
            1u);
}

TEST(Library, ShortThreadsLeaveNothing) {
  const Recording recording;
#ifdef _WIN32
  constexpr int kThreads = 300;  // Wine takes milliseconds for one
#else
  constexpr int kThreads = 2000;
#endif
  uint64_t peak = 0;
  for (int i = 0; i < kThreads; ++i) {
    std::thread([] {
      T_SetDefaultYResolution(200);
      T_DefaultDithering(1);
    }).join();
    peak = std::max(peak, ledger::Now().peakHeapBytes);
  }
  EXPECT_EQ(recording.Left(), "");
  EXPECT_LT(peak, 100000u);
}

TEST(Library, StoppingFreesTheRecordsOfRunningThreads) {
  const Recording recording;
  platform::LibraryDetach();
  ledger::StartRecording();
  ASSERT_TRUE(platform::LibraryAttach());
  std::atomic<int> phase{0};
  std::thread running([&] {
    T_SetDefaultXResolution(77);
    phase = 1;
    while (phase != 2) std::this_thread::yield();
    EXPECT_EQ(T_GetDefaultXResolution(), 150);  // a record of the new start
  });
  while (phase != 1) std::this_thread::yield();
  EXPECT_EQ(ledger::Now().objects, 2u);
  platform::LibraryDetach();
  EXPECT_EQ(recording.Left(), "");
  ASSERT_TRUE(platform::LibraryAttach());
  phase = 2;
  running.join();
  EXPECT_EQ(ledger::Now().objects, 1u);
}

// The shared library this time. Settings that start anew show that it was really unloaded, and the worker ends after
// its record and the index that led to it are gone.
TEST(Library, LoadsAndUnloadsForGood) {
  const char* const narrow = TARN_LIBRARY_PATH;
  const std::wstring path(narrow, narrow + std::strlen(narrow));
  using SetResolution = decltype(&T_SetDefaultXResolution);
  std::atomic<SetResolution> call{nullptr};
  std::atomic<bool> over{false};
  std::thread worker([&] {
    while (!over) {
      if (const SetResolution set = call.load()) {
        EXPECT_EQ(set(300), 150);
        call = nullptr;
      }
      std::this_thread::yield();
    }
  });
  size_t afterFirst = 0;
  for (int round = 0; round < 100; ++round) {
    void* const library = platform::ModuleOpen(path.c_str());
    EXPECT_NE(library, nullptr) << narrow;
    if (!library) break;
    const auto set = reinterpret_cast<SetResolution>(platform::ModuleSymbol(library, "T_SetDefaultXResolution"));
    EXPECT_NE(set, nullptr);
    EXPECT_EQ(set(300), 150);
    EXPECT_EQ(set(200), 300);
    call = set;
    while (call.load()) std::this_thread::yield();
    platform::ModuleClose(library);
    if (round == 10) afterFirst = HeapInUse();
  }
  EXPECT_LE(HeapInUse(), afterFirst + 4096);
  over = true;
  worker.join();
}
