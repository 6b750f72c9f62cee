#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "Holding.h"
#include "TestFiles.h"
#include "tarn/files.h"
#include "tarn/memory.h"

using namespace tarn;
using namespace tarn::test;

// ---- The table -----------------------------------------------------------------------------------------------------

namespace {

/// Writes down each call; every callback returns the recorder's answer.
struct Recorder {
  std::string calls;
  int64_t answer = 0;
};
Recorder& Of(void* data) { return *static_cast<Recorder*>(data); }

T_FileHandle RecordOpen(const wchar_t* name, int32_t flags, int32_t mode, void* data) {
  Of(data).calls += "open " + std::to_string(name[0]) + " " + std::to_string(flags) + " " + std::to_string(mode) + ";";
  return Of(data).answer;
}
int64_t RecordRead(T_FileHandle file, void*, uint32_t bytes, void* data) {
  Of(data).calls += "read " + std::to_string(file) + " " + std::to_string(bytes) + ";";
  return Of(data).answer;
}
int64_t RecordWrite(T_FileHandle file, const void*, uint32_t bytes, void* data) {
  Of(data).calls += "write " + std::to_string(file) + " " + std::to_string(bytes) + ";";
  return Of(data).answer;
}
int64_t RecordSeek(T_FileHandle file, int64_t offset, int32_t origin, void* data) {
  Of(data).calls += "seek " + std::to_string(file) + " " + std::to_string(offset) + " " + std::to_string(origin) + ";";
  return Of(data).answer;
}
int32_t RecordClose(T_FileHandle file, void* data) {
  Of(data).calls += "close " + std::to_string(file) + ";";
  return int32_t(Of(data).answer);
}

void Restore() { T_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }

/// The table as T_FilterIO shows it.
struct Table {
  T_OpenCallback open = nullptr;
  T_ReadCallback read = nullptr;
  T_WriteCallback write = nullptr;
  T_SeekCallback seek = nullptr;
  T_CloseCallback close = nullptr;
  void* data[5] = {};
  bool operator==(const Table&) const = default;

  void Exchange() { T_FilterIO(&open, &read, &write, &seek, &close, &data[0], &data[1], &data[2], &data[3], &data[4]); }
  static Table Current() {
    Table table;
    T_FilterIO(&table.open, &table.read, &table.write, &table.seek, &table.close, nullptr, nullptr, nullptr, nullptr,
               nullptr);
    T_GetFilterIOData(&table.data[0], &table.data[1], &table.data[2], &table.data[3], &table.data[4]);
    return table;
  }
};
const Table kSystem{T_OsOpen, T_OsRead, T_OsWrite, T_OsSeek, T_OsClose, {}};

}  // namespace

TEST(Redirect, CallbacksGetEveryArgumentAndTheirResultsComeBack) {
  Recorder recorder{"", -7};
  T_RedirectIO(RecordOpen, RecordRead, RecordWrite, RecordSeek, RecordClose, &recorder);
  char byte = 0;
  EXPECT_EQ(T_RedirectedOpen(L"A", 0x302, 384), -7);
  EXPECT_EQ(T_RedirectedRead(int64_t{1} << 40, &byte, 0xFFFFFFFF), -7);
  EXPECT_EQ(T_RedirectedWrite(5, &byte, 0), -7);
  EXPECT_EQ(T_RedirectedSeek(6, -(int64_t{1} << 40), 9), -7);
  EXPECT_EQ(T_RedirectedClose(-3), -7);
  EXPECT_EQ(recorder.calls,
            "open 65 770 384;read 1099511627776 4294967295;write 5 0;seek 6 -1099511627776 9;close -3;");
  Restore();
  EXPECT_EQ(Table::Current(), kSystem);
}

TEST(Redirect, NullCallbacksAreTheSystemsFunctions) {
  Recorder recorder;
  T_RedirectIO(nullptr, RecordRead, nullptr, nullptr, RecordClose, &recorder);
  EXPECT_EQ(Table::Current(), (Table{T_OsOpen,
                                     RecordRead,
                                     T_OsWrite,
                                     T_OsSeek,
                                     RecordClose,
                                     {&recorder, &recorder, &recorder, &recorder, &recorder}}));
  Restore();
  const TempFile file(Pattern(100));
  const T_FileHandle handle = T_RedirectedOpen(file.Text(), T_OPEN_READ_WRITE, 0);
  ASSERT_NE(handle, -1);
  uint8_t bytes[10];
  EXPECT_EQ(T_RedirectedSeek(handle, 50, T_SEEK_START), 50);
  EXPECT_EQ(T_RedirectedRead(handle, bytes, 10), 10);
  EXPECT_EQ(std::memcmp(bytes, Pattern(100).data() + 50, 10), 0);
  EXPECT_EQ(T_RedirectedWrite(handle, bytes, 0), 0);
  EXPECT_EQ(T_RedirectedClose(handle), 0);
  EXPECT_EQ(ReadWhole(file.Name()).size(), 60u);
}

TEST(Redirect, FiltersExchangeWhatTheyGive) {
  int values[5];
  Table filter{nullptr,    RecordRead, nullptr,
               RecordSeek, nullptr,    {&values[0], &values[1], &values[2], &values[3], &values[4]}};
  filter.Exchange();
  EXPECT_EQ(filter, kSystem);  // what was given as null is handed out too
  EXPECT_EQ(Table::Current(), (Table{T_OsOpen,
                                     RecordRead,
                                     T_OsWrite,
                                     RecordSeek,
                                     T_OsClose,
                                     {&values[0], &values[1], &values[2], &values[3], &values[4]}}));
  filter.Exchange();
  EXPECT_EQ(Table::Current(), kSystem);

  void* only = &values[2];
  T_FilterIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, &only, nullptr, nullptr);
  EXPECT_EQ(only, nullptr);
  void *first = &only, *third = &only;
  EXPECT_EQ(T_GetFilterIOData(&first, nullptr, &third, nullptr, nullptr), &values[2]);
  EXPECT_EQ(first, nullptr);
  EXPECT_EQ(third, &values[2]);
  EXPECT_EQ(T_GetFilterIOData(nullptr, nullptr, nullptr, nullptr, nullptr), nullptr);
  Restore();
}

TEST(Redirect, IsOfOneThread) {
  Recorder recorder;
  T_RedirectIO(RecordOpen, RecordRead, RecordWrite, RecordSeek, RecordClose, &recorder);
  std::thread([] { EXPECT_EQ(Table::Current(), kSystem); }).join();
  Restore();
}

// ---- Any count -----------------------------------------------------------------------------------------------------

namespace {

/// Answers chunk after chunk from a list: a count, kAll, or -1; at its end with kAll.
constexpr int64_t kAll = INT64_MAX;
struct Script {
  std::vector<int64_t> answers;
  std::vector<uint32_t> asked;
  std::vector<uint64_t> at;  // distance of each chunk from the buffer
  const uint8_t* buffer = nullptr;

  int64_t Answer(const void* address, uint32_t bytes) {
    const int64_t answer = asked.size() < answers.size() ? answers[asked.size()] : kAll;
    asked.push_back(bytes);
    at.push_back(uint64_t(static_cast<const uint8_t*>(address) - buffer));
    return answer == kAll ? bytes : answer;
  }
};
int64_t ScriptRead(T_FileHandle, void* buffer, uint32_t bytes, void* data) {
  return static_cast<Script*>(data)->Answer(buffer, bytes);
}
int64_t ScriptWrite(T_FileHandle, const void* buffer, uint32_t bytes, void* data) {
  return static_cast<Script*>(data)->Answer(buffer, bytes);
}

}  // namespace

TEST(Redirect, AnyCountMovesInChunks) {
  constexpr uint32_t kMost = 0x7FFFFFF;
  std::vector<uint32_t> manyAsked(32, kMost);
  manyAsked.push_back(32);
  std::vector<uint64_t> manyAt;
  for (uint64_t i = 0; i <= 32; ++i) manyAt.push_back(i * kMost);
  const struct {
    const char* name;
    uint64_t bytes;
    std::vector<int64_t> answers;
    int64_t result;
    std::vector<uint32_t> asked;
    std::vector<uint64_t> at;
  } cases[] = {
      {"nothing", 0, {}, 0, {}, {}},
      {"one chunk", 100, {}, 100, {100}, {0}},
      {"just one", kMost, {}, kMost, {kMost}, {0}},
      {"one more", uint64_t{kMost} + 1, {}, int64_t{kMost} + 1, {kMost, 1}, {0, kMost}},
      {"beyond 32 bits", 0x100000000, {}, 0x100000000, manyAsked, manyAt},
      {"short chunks go on", 100, {30, 1, kAll}, 100, {100, 70, 69}, {0, 30, 31}},
      {"one empty chunk goes on", 100, {30, 0, 20, 0, kAll}, 100, {100, 70, 70, 50, 50}, {0, 30, 30, 50, 50}},
      {"a second one ends", 100, {30, 0, 0}, 30, {100, 70, 70}, {0, 30, 30}},
      {"empty from the start", 100, {0, 0}, 0, {100, 100}, {0, 0}},
      {"a failure is all that comes back", 100, {30, -1}, -1, {100, 70}, {0, 30}},
      {"also another negative value", 100, {-5}, -1, {100}, {0}},
      {"more than asked for is a failure", 100, {30, 71}, -1, {100, 70}, {0, 30}},
  };
  // The callbacks touch nothing, so that a small buffer may stand for a large one.
  uint8_t buffer[1];
  for (const auto& row : cases)
    for (bool write : {false, true}) {
      SCOPED_TRACE(std::string(row.name) + (write ? ", writing" : ", reading"));
      Script script{row.answers, {}, {}, buffer};
      T_RedirectIO(nullptr, ScriptRead, ScriptWrite, nullptr, nullptr, &script);
      EXPECT_EQ(write ? T_RedirectedWriteBig(3, buffer, row.bytes) : T_RedirectedReadBig(3, buffer, row.bytes),
                row.result);
      EXPECT_EQ(script.asked, row.asked);
      EXPECT_EQ(script.at, row.at);
    }
  Restore();
}

// ---- A block of memory as a file -----------------------------------------------------------------------------------

namespace {

/// A redirection to memory for the length of a scope; Stop() gives the block and frees what the library made.
class MemoryFile {
 public:
  MemoryFile(uint32_t flags, void* buffer, uint64_t size) {
    EXPECT_EQ(T_StartRedirectToBuffer(&redirect_, &file_, flags, buffer, size), SUCCESS);
    EXPECT_EQ(file_, 5);
  }
  ~MemoryFile() {
    if (redirect_) T_GlobalFree(Stop(), 1, L"x");
  }
  void* Stop(uint64_t* length = nullptr) {
    void* buffer = nullptr;
    EXPECT_EQ(T_StopRedirectToBuffer(redirect_, &buffer, length), SUCCESS);
    redirect_ = nullptr;
    return buffer;
  }

 private:
  T_BufferRedirect* redirect_ = nullptr;
  T_FileHandle file_ = -1;
};

uint8_t contents[4096];

}  // namespace

TEST(MemoryFile, ReadsExactlyItsContents) {
  const Recording recording;
  const Bytes bytes = Pattern(1000);
  std::memcpy(contents, bytes.data(), 1000);
  {
    MemoryFile file(T_BUFFER_CONTENTS, contents, 1000);
    EXPECT_EQ(T_RedirectedOpen(L"any name", T_OPEN_READ, 0), 5);
    uint8_t target[2000];
    EXPECT_EQ(T_RedirectedRead(5, target, 400), 400);
    EXPECT_EQ(T_RedirectedRead(5, target + 400, 2000), 600);
    EXPECT_EQ(std::memcmp(target, bytes.data(), 1000), 0);
    EXPECT_EQ(T_RedirectedRead(5, target, 1), 0);
    EXPECT_EQ(T_RedirectedReadBig(5, target, 10), 0);

    EXPECT_EQ(T_RedirectedRead(4, target, 1), -1);
    EXPECT_EQ(T_RedirectedRead(5, nullptr, 1), -1);
    EXPECT_EQ(T_RedirectedWrite(5, target, 1), -1);  // not for writing
    EXPECT_EQ(T_RedirectedWrite(5, target, 0), -1);
    EXPECT_EQ(T_RedirectedClose(6), -1);
    EXPECT_EQ(T_RedirectedClose(5), 0);

    EXPECT_EQ(T_RedirectedSeek(5, 995, T_SEEK_START), 995);
    EXPECT_EQ(T_RedirectedRead(5, target, 10), 5);
    EXPECT_EQ(T_RedirectedOpen(L"again", T_OPEN_READ, 0), 5);  // from the start
    EXPECT_EQ(T_RedirectedRead(5, target, 10), 10);
    EXPECT_EQ(target[0], bytes[0]);
    EXPECT_EQ(T_RedirectedOpen(L"emptied", T_OPEN_READ_WRITE | T_OPEN_TRUNCATE, 0), 5);
    EXPECT_EQ(T_RedirectedRead(5, target, 10), 0);
    uint64_t length = 1;
    EXPECT_EQ(file.Stop(&length), contents);
    EXPECT_EQ(length, 0u);
  }
  EXPECT_EQ(Table::Current(), kSystem);
  EXPECT_EQ(recording.Left(), "");
}

TEST(MemoryFile, SeeksWithoutBounds) {
  MemoryFile file(T_BUFFER_CONTENTS | T_BUFFER_WRITE, contents, 1000);
  uint8_t byte = 0;
  const struct {
    int64_t offset;
    int32_t origin;
    int64_t result, read, write, truncate;  // of one byte, or the results of the calls there
  } cases[] = {
      {0, 0, 0, 1, 1, 0},
      {999, 0, 999, 1, 1, 0},
      {1000, 0, 1000, 0, 0, 0},  // at the end: nothing to read, no room to write
      {1001, 0, 1001, -1, -1, -1},
      {-1, 0, -1, -1, -1, -1},
      {-1000, 2, 0, 1, 1, 0},
      {-1001, 2, -1, -1, -1, -1},
      {INT64_MAX, 0, INT64_MAX, -1, -1, -1},
      {INT64_MIN, 0, INT64_MIN, -1, -1, -1},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(std::to_string(row.offset) + " from " + std::to_string(row.origin));
    EXPECT_EQ(T_RedirectedSeek(5, row.offset, row.origin), row.result);
    EXPECT_EQ(T_RedirectedRead(5, &byte, 1), row.read);
    EXPECT_EQ(T_RedirectedSeek(5, row.offset, row.origin), row.result);
    EXPECT_EQ(T_RedirectedWrite(5, &byte, 1), row.write);
    EXPECT_EQ(T_RedirectedSeek(5, row.offset, row.origin), row.result);
    EXPECT_EQ(T_RedirectedWrite(5, &byte, 0), row.truncate);
    // Fill the file again for the next row.
    EXPECT_EQ(T_RedirectedSeek(5, 0, T_SEEK_START), 0);
    EXPECT_EQ(T_RedirectedWrite(5, contents, 1000), 1000);
  }
  EXPECT_EQ(T_RedirectedSeek(5, 10, T_SEEK_START), 10);
  EXPECT_EQ(T_RedirectedSeek(5, -4, T_SEEK_CURRENT), 6);
  EXPECT_EQ(T_RedirectedSeek(5, 0, 3), -1);
  EXPECT_EQ(T_RedirectedSeek(5, 0, -1), -1);
  EXPECT_EQ(T_RedirectedSeek(5, 0, T_SEEK_CURRENT), 6);
  file.Stop();
}

TEST(MemoryFile, GrowsInSteps) {
  const Recording recording;
  {
    MemoryFile file(T_BUFFER_GROW | T_BUFFER_WRITE, nullptr, 0);
    uint8_t byte = 0;
    EXPECT_EQ(T_RedirectedRead(5, &byte, 1), -1);  // no block yet
    EXPECT_EQ(T_RedirectedSeek(5, 40000, T_SEEK_START), 40000);
    EXPECT_EQ(T_RedirectedWrite(5, "0123456789", 10), 10);
    uint64_t length = 0;
    uint8_t* const buffer = static_cast<uint8_t*>(file.Stop(&length));
    EXPECT_EQ(length, 40010u);
    EXPECT_EQ(platform::MovableSize(platform::MovableHandle(buffer)), 65536u);
    EXPECT_EQ(Bytes(buffer, buffer + 40000), Bytes(40000));  // zeros, those that were skipped too
    EXPECT_EQ(std::memcmp(buffer + 40000, "0123456789", 10), 0);
    T_GlobalFree(buffer, 1, L"x");
  }
  EXPECT_EQ(recording.Left(), "");
}

TEST(MemoryFile, AddsNoStepWhenTheEndIsOne) {
  MemoryFile file(T_BUFFER_GROW | T_BUFFER_WRITE, nullptr, 0);
  EXPECT_EQ(T_RedirectedWrite(5, Pattern(32768).data(), 32768), 32768);
  void* const buffer = file.Stop();
  EXPECT_EQ(platform::MovableSize(platform::MovableHandle(buffer)), 32768u);
  T_GlobalFree(buffer, 1, L"x");
}

TEST(MemoryFile, StopsAtTheEndOfAFixedBlock) {
  uint8_t block[20];
  std::memset(block, 0xEE, sizeof block);
  MemoryFile file(T_BUFFER_WRITE, block, 10);
  EXPECT_EQ(T_RedirectedSeek(5, 4, T_SEEK_START), 4);
  EXPECT_EQ(T_RedirectedWrite(5, "0123456789", 10), 6);
  EXPECT_EQ(T_RedirectedWrite(5, "0123456789", 10), 0);
  EXPECT_EQ(T_RedirectedWriteBig(5, "0123456789", 10), 0);
  EXPECT_EQ(block[3], 0xEE);
  EXPECT_EQ(std::memcmp(block + 4, "012345", 6), 0);
  EXPECT_EQ(block[10], 0xEE);
  EXPECT_EQ(T_RedirectedWrite(5, nullptr, 1), -1);
  EXPECT_EQ(T_RedirectedWrite(7, "0", 1), -1);
  EXPECT_EQ(T_RedirectedClose(5), 0);
  uint64_t length = 0;
  EXPECT_EQ(file.Stop(&length), block);
  EXPECT_EQ(length, 10u);
}

// A block that cannot grow takes what it has room for.
TEST(MemoryFile, LivesOnWhenItCannotGrow) {
  const Recording recording;
  {
    MemoryFile file(T_BUFFER_GROW | T_BUFFER_WRITE, nullptr, 0);
    const Bytes bytes = Pattern(50000);
    {
      const Armed refusing({.first = 1});
      EXPECT_EQ(T_RedirectedWrite(5, bytes.data(), 100), 0);
    }
    EXPECT_EQ(T_RedirectedWrite(5, bytes.data(), 30000), 30000);
    {
      const Armed refusing({.first = 1});
      EXPECT_EQ(T_RedirectedWrite(5, bytes.data() + 30000, 20000), 2768);
      EXPECT_EQ(T_RedirectedSeek(5, 32769, T_SEEK_START), 32769);
      EXPECT_EQ(T_RedirectedWrite(5, bytes.data(), 1), -1);
    }
    EXPECT_EQ(T_RedirectedSeek(5, 32768, T_SEEK_START), 32768);
    EXPECT_EQ(T_RedirectedWrite(5, bytes.data() + 32768, 17232), 17232);
    uint64_t length = 0;
    uint8_t* const buffer = static_cast<uint8_t*>(file.Stop(&length));
    ASSERT_EQ(length, 50000u);
    EXPECT_EQ(Bytes(buffer, buffer + length), bytes);
    T_GlobalFree(buffer, 1, L"x");
  }
  EXPECT_EQ(recording.Left(), "");
}

TEST(MemoryFile, ShrinksWhenClosedIfItMay) {
  const struct {
    uint32_t flags;
    uint64_t size;
  } cases[] = {
      {T_BUFFER_WRITE | T_BUFFER_GROW | T_BUFFER_SHRINK, 100},
      {T_BUFFER_WRITE | T_BUFFER_GROW, 32768},
      {T_BUFFER_WRITE | T_BUFFER_GROW | T_BUFFER_SHRINK | T_BUFFER_CONTENTS, 32768},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.flags);
    const Recording recording;
    {
      MemoryFile file(row.flags, nullptr, 0);
      const Bytes bytes = Pattern(200);
      EXPECT_EQ(T_RedirectedWrite(5, bytes.data(), 200), 200);
      EXPECT_EQ(T_RedirectedSeek(5, 100, T_SEEK_START), 100);
      EXPECT_EQ(T_RedirectedWrite(5, "", 0), 0);
      EXPECT_EQ(T_RedirectedClose(5), 0);
      uint64_t length = 0;
      uint8_t* const buffer = static_cast<uint8_t*>(file.Stop(&length));
      EXPECT_EQ(length, 100u);
      EXPECT_EQ(platform::MovableSize(platform::MovableHandle(buffer)), row.size);
      EXPECT_EQ(Bytes(buffer, buffer + 100), Bytes(bytes.begin(), bytes.begin() + 100));
      T_GlobalFree(buffer, 1, L"x");
    }
    EXPECT_EQ(recording.Left(), "");
  }
}

TEST(MemoryFile, NestsAndStopsInReverse) {
  Recorder recorder;
  T_RedirectIO(RecordOpen, RecordRead, RecordWrite, RecordSeek, RecordClose, &recorder);
  const Table outside = Table::Current();
  uint8_t outer[4] = {}, inner[4] = {};
  MemoryFile first(T_BUFFER_WRITE, outer, 4);
  EXPECT_EQ(T_RedirectedWrite(5, "ab", 2), 2);
  {
    MemoryFile second(T_BUFFER_WRITE, inner, 4);
    EXPECT_EQ(T_RedirectedWrite(5, "xy", 2), 2);
    second.Stop();
  }
  EXPECT_EQ(T_RedirectedWrite(5, "cd", 2), 2);
  first.Stop();
  EXPECT_EQ(std::memcmp(outer, "abcd", 4), 0);
  EXPECT_EQ(std::memcmp(inner, "xy\0\0", 4), 0);
  EXPECT_EQ(Table::Current(), outside);
  EXPECT_EQ(recorder.calls, "");
  Restore();
}

TEST(MemoryFile, RefusesNullAndWantOfMemory) {
  EXPECT_EQ(T_StartRedirectToBuffer(nullptr, nullptr, 0, contents, 10), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_StopRedirectToBuffer(nullptr, nullptr, nullptr), ERR_INVALID_PARAMETER);
  const Recording recording;
  T_BufferRedirect* redirect = nullptr;
  T_FileHandle file = -9;
  EXPECT_EQ(RefuseEachCall([&] { return T_StartRedirectToBuffer(&redirect, &file, 0, contents, 10); },
                           [&](int32_t status, bool refused) {
                             EXPECT_EQ(status, refused ? ERR_NO_MEMORY : SUCCESS);
                             if (!refused) return;
                             EXPECT_EQ(redirect, nullptr);
                             EXPECT_EQ(file, -9);
                             EXPECT_EQ(Table::Current(), kSystem);
                             EXPECT_EQ(recording.Left(), "");
                           }),
            1u);
  EXPECT_EQ(T_StopRedirectToBuffer(redirect, nullptr, nullptr), SUCCESS);
  EXPECT_EQ(Table::Current(), kSystem);
}

// Positions within the file, where both agree; a growing block must not be told from a file.
TEST(MemoryFile, BehavesLikeAFile) {
  for (uint32_t seed = 0; seed < 4; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    const TempFile disk;
    const T_FileHandle file = T_OsOpen(disk.Text(), T_OPEN_READ_WRITE | T_OPEN_CREATE, 0, nullptr);
    ASSERT_NE(file, -1);
    MemoryFile memory(T_BUFFER_GROW | T_BUFFER_WRITE, nullptr, 0);
    Bytes fromDisk(50000), fromMemory(50000);
    ASSERT_EQ(T_RedirectedWrite(5, "first", 5), T_OsWrite(file, "first", 5, nullptr));
    for (int step = 0; step < 500; ++step) {
      const uint32_t count = random() % (random() % 8 ? 3000 : 50000);
      switch (random() % 8) {
        case 0:
        case 1:
        case 2: {
          const Bytes bytes = Pattern(count + 1, random());
          ASSERT_EQ(T_RedirectedWrite(5, bytes.data(), count + 1), T_OsWrite(file, bytes.data(), count + 1, nullptr));
          break;
        }
        case 3:
        case 4: {
          const int64_t got = T_OsRead(file, fromDisk.data(), count, nullptr);
          ASSERT_EQ(T_RedirectedRead(5, fromMemory.data(), count), got);
          ASSERT_EQ(std::memcmp(fromMemory.data(), fromDisk.data(), size_t(got)), 0);
          break;
        }
        case 5:
          if (random() % 4 == 0) {
            ASSERT_EQ(T_RedirectedWrite(5, "", 0), T_OsWrite(file, "", 0, nullptr));
          }
          break;
        default: {
          const int64_t length = T_RedirectedSeek(5, 0, T_SEEK_END);
          ASSERT_EQ(T_OsSeek(file, 0, T_SEEK_END, nullptr), length);
          const int64_t to = int64_t(random() % uint64_t(length + 1));
          ASSERT_EQ(T_RedirectedSeek(5, to, T_SEEK_START), T_OsSeek(file, to, T_SEEK_START, nullptr));
        }
      }
    }
    T_OsClose(file, nullptr);
  }
}
