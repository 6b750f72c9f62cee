#include <gtest/gtest.h>

#include <cstring>
#include <cwchar>
#include <filesystem>
#include <set>
#include <string>

#include "Holding.h"
#include "TestFiles.h"
#include "tarn/files.h"
#include "tarn/settings.h"

using namespace tarn;
using namespace tarn::test;
using fault::Answer;
using fault::Point;

TEST(Osys, OpenFlagsDecideAccessAndFate) {
  const struct {
    const char* name;
    int32_t flags;
    bool there;           // opens an existing file
    bool missing;         // makes a missing one
    int64_t read, write;  // of one byte in what was there
    int64_t size;         // of an existing file of 10 bytes after opening
  } cases[] = {
      {"read", T_OPEN_READ, true, false, 1, -1, 10},
      {"write", T_OPEN_WRITE, true, false, -1, 1, 10},
      {"both", T_OPEN_READ_WRITE, true, false, 1, 1, 10},
      {"3 is both too", 3, true, false, 1, 1, 10},
      {"truncate", T_OPEN_READ_WRITE | T_OPEN_TRUNCATE, true, false, 0, 1, 0},
      {"truncating asks for writing", T_OPEN_READ | T_OPEN_TRUNCATE, false, false, 0, 0, 10},
      {"create", T_OPEN_READ_WRITE | T_OPEN_CREATE, true, true, 0, 1, 0},
      {"create wins", T_OPEN_WRITE | T_OPEN_CREATE | T_OPEN_TRUNCATE, true, true, -1, 1, 0},
  };
  for (const auto& row : cases) {
    SCOPED_TRACE(row.name);
    const TempFile file(Pattern(10));
    const Recording recording;
    T_FileHandle handle = T_OsOpen(file.Text(), row.flags, 0, nullptr);
    ASSERT_EQ(handle != -1, row.there);
    if (handle != -1) {
      EXPECT_EQ(ledger::Now().objects, 1u);
      EXPECT_EQ(T_OsSeek(handle, 0, T_SEEK_END, nullptr), row.size);
      EXPECT_EQ(T_OsSeek(handle, 0, T_SEEK_START, nullptr), 0);
      uint8_t byte = 0;
      EXPECT_EQ(T_OsRead(handle, &byte, 1, nullptr), row.read);
      EXPECT_EQ(T_OsWrite(handle, &byte, 1, nullptr), row.write);
      EXPECT_EQ(T_OsClose(handle, nullptr), 0);
    } else {
      EXPECT_EQ(ReadWhole(file.Name()).size(), size_t(row.size));
    }
    T_OsDelete(file.Text());
    handle = T_OsOpen(file.Text(), row.flags, T_SHARE_READ | T_SHARE_WRITE, nullptr);
    EXPECT_EQ(handle != -1, row.missing);
    if (handle != -1) T_OsClose(handle, nullptr);
    EXPECT_EQ(Exists(file.Name()), row.missing);
    EXPECT_EQ(recording.Left(), "");
  }
  EXPECT_EQ(T_OsOpen(nullptr, T_OPEN_READ, 0, nullptr), -1);
  EXPECT_EQ(T_OsCreat(nullptr, 0), -1);
  EXPECT_EQ(T_OsDelete(nullptr), -1);
  EXPECT_EQ(T_OsClose(-1, nullptr), -1);
}

// Modes are sharing: Windows enforces it, Linux lets everybody in whatever the mode.
TEST(Osys, ModesAreSharing) {
#ifdef _WIN32
  constexpr bool kEnforced = true;
#else
  constexpr bool kEnforced = false;
#endif
  const struct {
    int32_t mode;
    bool read, write;
  } cases[] = {{0, false, false},
               {T_SHARE_WRITE, false, false},
               {T_SHARE_READ, true, false},
               {T_SHARE_READ | T_SHARE_WRITE, true, true}};
  constexpr int32_t kAll = T_SHARE_READ | T_SHARE_WRITE;
  for (const auto& row : cases) {
    SCOPED_TRACE(row.mode);
    const TempFile file(Pattern(10));
    const T_FileHandle first = T_OsOpen(file.Text(), T_OPEN_READ_WRITE, row.mode, nullptr);
    ASSERT_NE(first, -1);
    const T_FileHandle reader = T_OsOpen(file.Text(), T_OPEN_READ, kAll, nullptr);
    const T_FileHandle writer = T_OsOpen(file.Text(), T_OPEN_WRITE, kAll, nullptr);
    EXPECT_EQ(reader != -1, row.read || !kEnforced);
    EXPECT_EQ(writer != -1, row.write || !kEnforced);
    for (T_FileHandle handle : {first, reader, writer}) T_OsClose(handle, nullptr);
  }
}

TEST(Osys, CreatMakesEmptyFilesWithTheirAttributes) {
  const TempFile file(Pattern(10));
  const Recording recording;
  T_FileHandle handle = T_OsCreat(file.Text(), 0);
  ASSERT_NE(handle, -1);
  EXPECT_EQ(ledger::Now().objects, 1u);
  EXPECT_TRUE(Exists(file.Name()));  // shared
  uint8_t byte = 7;
  EXPECT_EQ(T_OsSeek(handle, 0, T_SEEK_END, nullptr), 0);
  EXPECT_EQ(T_OsWrite(handle, &byte, 1, nullptr), 1);
  EXPECT_EQ(T_OsSeek(handle, 0, T_SEEK_START, nullptr), 0);
  EXPECT_EQ(T_OsRead(handle, &byte, 1, nullptr), 1);
  EXPECT_EQ(T_OsClose(handle, nullptr), 0);

  handle = T_OsCreat(file.Text(), T_ATTRIBUTE_DELETE_ON_CLOSE | T_ATTRIBUTE_HIDDEN | T_ATTRIBUTE_SYSTEM);
  ASSERT_NE(handle, -1);
  EXPECT_EQ(T_OsWrite(handle, &byte, 1, nullptr), 1);
  EXPECT_EQ(T_OsClose(handle, nullptr), 0);
  EXPECT_FALSE(Exists(file.Name()));

  handle = T_OsCreat(file.Text(), T_ATTRIBUTE_READ_ONLY | T_ATTRIBUTE_DELETE_ON_CLOSE);
#ifndef _WIN32  // which refuses to delete a read-only file
  ASSERT_NE(handle, -1);
  EXPECT_EQ(T_OsWrite(handle, &byte, 1, nullptr), -1);
#endif
  EXPECT_EQ(T_OsClose(handle, nullptr), handle == -1 ? -1 : 0);
  EXPECT_EQ(recording.Left(), "");
}

TEST(Osys, SeeksAndCuts) {
  const TempFile file(Pattern(100));
  const T_FileHandle handle = T_OsOpen(file.Text(), T_OPEN_READ_WRITE, 0, nullptr);
  ASSERT_NE(handle, -1);
  for (auto seek : {T_OsSeek, T_OsSeekBig}) {
    EXPECT_EQ(seek(handle, 30, 0, nullptr), 30);
    EXPECT_EQ(seek(handle, -10, 1, nullptr), 20);
    EXPECT_EQ(seek(handle, -10, 2, nullptr), 90);
    EXPECT_EQ(seek(handle, -20, 7, nullptr), 80);
    EXPECT_EQ(seek(handle, -30, -1, nullptr), 70);
    EXPECT_EQ(seek(handle, -1, 0, nullptr), 0);  // failed
    EXPECT_EQ(seek(handle, 0, 1, nullptr), 70);  // and did not move
    EXPECT_EQ(seek(handle, int64_t{1} << 33, 0, nullptr), int64_t{1} << 33);
  }
  EXPECT_EQ(T_OsSeek(handle, 60, T_SEEK_START, nullptr), 60);
  EXPECT_EQ(T_OsWrite(handle, nullptr, 0, nullptr), 0);
  EXPECT_EQ(T_OsSeek(handle, 0, T_SEEK_CURRENT, nullptr), 60);
  EXPECT_EQ(T_OsSeek(handle, 0, T_SEEK_END, nullptr), 60);
  EXPECT_EQ(T_OsSetFileSize(handle, 50), 0);
  EXPECT_EQ(T_OsSetFileSize(handle, -1), -1);
  EXPECT_EQ(T_OsSeek(handle, 0, T_SEEK_END, nullptr), 50);
  EXPECT_EQ(T_OsSetFileSize(handle, 80), 0);
  EXPECT_EQ(T_OsRead(handle, nullptr, 1, nullptr), -1);
  EXPECT_EQ(T_OsWrite(handle, nullptr, 1, nullptr), -1);
  EXPECT_EQ(T_OsClose(handle, nullptr), 0);
  Bytes expected = Pattern(100);
  expected.resize(50);
  expected.resize(80);
  EXPECT_EQ(ReadWhole(file.Name()), expected);
  EXPECT_EQ(T_OsDelete(file.Text()), 0);
  EXPECT_EQ(T_OsDelete(file.Text()), -1);
}

TEST(Osys, AnyCountSurvivesShortCallsAndReportsFailures) {
  const struct {
    Answer answer;
    uint64_t first, last;
    int64_t written;
  } cases[] = {
      {Answer::kPass, 0, 0, 1000},        {Answer::kShort, 1, 3, 1000},          {Answer::kZero, 1, 1, 1000},
      {Answer::kInterrupt, 1, 9, 1000},   {Answer::kShort, 1, ~uint64_t{}, 999},  // halves until nothing more moves
      {Answer::kZero, 1, ~uint64_t{}, 0}, {Answer::kRefuse, 1, 1, -1},           {Answer::kDiskFull, 1, 1, -1},
  };
  const Bytes bytes = Pattern(1000);
  for (const auto& row : cases) {
    SCOPED_TRACE(int(row.answer));
    const TempFile file;
    const T_FileHandle handle = T_OsOpen(file.Text(), T_OPEN_READ_WRITE | T_OPEN_CREATE, 0, nullptr);
    ASSERT_NE(handle, -1);
    {
      const Armed armed({.first = row.first, .last = row.last, .answer = row.answer, .points = Mask(Point::kWrite)});
      EXPECT_EQ(T_OsWriteBig(handle, bytes.data(), 1000, nullptr), row.written);
    }
    if (row.written == 1000) {
      Bytes back(1000);
      T_OsSeek(handle, 0, T_SEEK_START, nullptr);
      const Armed armed({.first = row.first, .last = row.last, .answer = row.answer, .points = Mask(Point::kRead)});
      EXPECT_EQ(T_OsReadBig(handle, back.data(), 1000, nullptr), 1000);
      EXPECT_EQ(back, bytes);
    }
    EXPECT_EQ(T_OsSeek(handle, 500, T_SEEK_START, nullptr), 500);
    EXPECT_EQ(T_OsWriteBig(handle, bytes.data(), 0, nullptr), 0);  // cuts nothing
    EXPECT_EQ(T_OsReadBig(handle, nullptr, 0, nullptr), 0);
    EXPECT_EQ(T_OsRead(handle, nullptr, 0, nullptr), 0);
    EXPECT_EQ(T_OsRead(handle, nullptr, 1, nullptr), -1);
    EXPECT_EQ(T_OsSeek(handle, 0, T_SEEK_END, nullptr), std::max<int64_t>(row.written, 0));
    EXPECT_EQ(T_OsClose(handle, nullptr), 0);
  }
}

TEST(Osys, AFullDiskHasAStatusOfItsOwn) {
  const TempFile file;
  const T_FileHandle handle = T_OsOpen(file.Text(), T_OPEN_READ_WRITE, 0, nullptr);
  ASSERT_NE(handle, -1);
  for (const auto& [answer, status] :
       {std::pair{Answer::kDiskFull, ERR_DISK_FULL}, {Answer::kRefuse, ERR_FILE_WRITE}}) {
    const Armed armed({.first = 1, .answer = answer});
    EXPECT_EQ(T_OsWrite(handle, "x", 1, nullptr), -1);
    EXPECT_EQ(T_OsGetLastError(ERR_FILE_WRITE), status);
    EXPECT_EQ(T_OsSetFileSize(handle, 100), -1);
    EXPECT_EQ(T_OsGetLastError(ERR_FILE_WRITE), status);
    EXPECT_EQ(T_OsWrite(handle, "x", 0, nullptr), -1);
    EXPECT_EQ(T_OsGetLastError(ERR_FILE_WRITE), status);
  }
  EXPECT_EQ(T_OsClose(handle, nullptr), 0);
}

TEST(Osys, EachCallFailsAlone) {
  const TempFile file(Pattern(100));
  const Recording recording;
  {
    const Armed refusing({.first = 1});
    EXPECT_EQ(T_OsOpen(file.Text(), T_OPEN_READ, 0, nullptr), -1);
    EXPECT_EQ(T_OsCreat(file.Text(), 0), -1);
  }
  EXPECT_EQ(recording.Left(), "");
  EXPECT_EQ(ReadWhole(file.Name()).size(), 100u);
  const T_FileHandle handle = T_OsOpen(file.Text(), T_OPEN_READ_WRITE, 0, nullptr);
  {
    const Armed refusing({.first = 1});
    uint8_t byte;
    EXPECT_EQ(T_OsRead(handle, &byte, 1, nullptr), -1);
    EXPECT_EQ(T_OsSeek(handle, 5, T_SEEK_START, nullptr), 0);
    EXPECT_EQ(T_OsClose(handle, nullptr), -1);
  }
  EXPECT_EQ(recording.Left(), "");  // closed all the same
}

TEST(Osys, TempNamesAreNewFiles) {
  wchar_t directory[T_TEMP_DIRECTORY_LENGTH];
  ASSERT_EQ(T_GetTempDirectory(directory, T_TEMP_DIRECTORY_LENGTH), SUCCESS);
  std::set<std::wstring> names;
  for (const wchar_t* where : {static_cast<const wchar_t*>(nullptr), static_cast<const wchar_t*>(directory), L"."})
    for (int i = 0; i < 5; ++i) {
      wchar_t name[512];
      ASSERT_EQ(T_OsGetTempName(where, name, 512), SUCCESS);
      const wchar_t* const expected = where ? where : directory;
      EXPECT_EQ(std::wcsncmp(name, expected, std::wcslen(expected)), 0);
      EXPECT_TRUE(names.insert(name).second);
      EXPECT_TRUE(ReadWhole(name).empty());
    }
  for (const std::wstring& name : names) EXPECT_EQ(T_OsDelete(name.c_str()), 0);
}

TEST(Osys, TempNamesThatCannotBe) {
  const Recording recording;
  wchar_t name[512] = L"unchanged";
  EXPECT_EQ(T_OsGetTempName(nullptr, nullptr, 512), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_OsGetTempName(nullptr, name, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_OsGetTempName(L"no such directory", name, 512), ERR_FILE_WRITE);
  for (const auto& [answer, status] :
       {std::pair{Answer::kDiskFull, ERR_DISK_FULL}, {Answer::kRefuse, ERR_FILE_WRITE}}) {
    const Armed armed({.first = 1, .answer = answer});
    EXPECT_EQ(T_OsGetTempName(nullptr, name, 512), status);
  }
  EXPECT_STREQ(name, L"unchanged");

  // One character short: nothing is left in the directory.
  wchar_t whole[512];
  ASSERT_EQ(T_OsGetTempName(nullptr, whole, 512), SUCCESS);
  EXPECT_EQ(T_OsDelete(whole), 0);
  ASSERT_TRUE(std::filesystem::create_directory(whole));
  std::wmemset(name, L'#', 512);
  EXPECT_EQ(T_OsGetTempName(whole, name, 512), SUCCESS);
  const uint32_t needed = uint32_t(std::wcslen(name)) + 1;
  EXPECT_EQ(T_OsDelete(name), 0);
  EXPECT_EQ(T_OsGetTempName(whole, name, needed - 1), ERR_INVALID_PARAMETER);
  EXPECT_TRUE(std::filesystem::is_empty(whole));
  EXPECT_EQ(T_OsGetTempName(whole, name, needed), SUCCESS);
  EXPECT_EQ(name[needed], L'#');
  EXPECT_EQ(T_OsDelete(name), 0);
  EXPECT_TRUE(std::filesystem::remove(whole));
  EXPECT_EQ(recording.Left(), "");
}
