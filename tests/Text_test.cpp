// Narrow text: what cannot be converted, buffers that are short, names and callbacks that are narrow.

#include "tarn/text.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "Common/Internal/Ledger.h"
#include "TestFiles.h"
#include "tarn/memory.h"
#include "tarn/settings.h"

using namespace tarn::test;

namespace {

// What no name is: on Windows every byte of a code page may be one.
#ifdef _WIN32
constexpr const char* kNoText = nullptr;
#else
constexpr const char* kNoText = "\xFF\xFE";
#endif

std::string lastName;
int64_t RecordNarrow(const char* name, int32_t flags, int32_t mode, void* userData) {
  lastName = name;
  return flags + mode + *static_cast<int*>(userData);
}

}  // namespace

TEST(Text, IsConvertedOrRefused) {
  wchar_t* wide = nullptr;
  char* narrow = nullptr;
  ASSERT_EQ(T_NarrowToWide("a name", &wide), SUCCESS);
  EXPECT_STREQ(wide, L"a name");
  ASSERT_EQ(T_WideToNarrow(wide, &narrow), SUCCESS);
  EXPECT_STREQ(narrow, "a name");
  T_FreeText(wide);
  T_FreeText(narrow);
  T_FreeText(nullptr);
  EXPECT_EQ(T_NarrowToWide("a", nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_WideToNarrow(L"a", nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_NarrowToWide(kNoText, &wide), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_WideToNarrow(nullptr, &narrow), ERR_INVALID_PARAMETER);
  EXPECT_EQ(wide, nullptr);
  EXPECT_EQ(narrow, nullptr);
}

TEST(Text, DirectoryIsCutAtACharacter) {
  wchar_t before[T_TEMP_DIRECTORY_LENGTH];
  ASSERT_EQ(T_GetTempDirectory(before, T_TEMP_DIRECTORY_LENGTH), SUCCESS);
  char name[64];
  EXPECT_EQ(T_GetTempDirectoryA(nullptr, 64), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetTempDirectoryA(name, 0), ERR_INVALID_PARAMETER);
  char whole[T_TEMP_DIRECTORY_LENGTH * 4];
  ASSERT_EQ(T_GetTempDirectoryA(whole, sizeof whole), SUCCESS);
  std::string expected = whole;
  expected.resize(3);
  ASSERT_EQ(T_GetTempDirectoryA(name, 4), SUCCESS);
  EXPECT_EQ(name, expected);
#ifndef _WIN32
  const std::string accented = std::string(whole) + "/\xC3\xA9t\xC3\xA9";
  ASSERT_TRUE(std::filesystem::create_directory(accented));
  ASSERT_EQ(T_SetTempDirectoryA(accented.c_str()), SUCCESS);
  ASSERT_EQ(T_GetTempDirectoryA(whole, static_cast<uint32_t>(accented.size())), SUCCESS);
  EXPECT_EQ(whole, accented.substr(0, accented.size() - 2)) << "half a character is none";
  std::filesystem::remove(accented);
#endif
  T_SetTempDirectory(before);
}

TEST(Text, TempNamesFitOrLeaveNothing) {
  char directory[T_TEMP_DIRECTORY_LENGTH * 4], name[4200];
  ASSERT_EQ(T_GetTempDirectoryA(directory, sizeof directory), SUCCESS);
  EXPECT_EQ(T_OsGetTempNameA(directory, nullptr, 10), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_OsGetTempNameA(directory, name, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_OsGetTempNameA("no such directory", name, sizeof name), ERR_FILE_WRITE);
  if (kNoText) {
    EXPECT_EQ(T_OsGetTempNameA(kNoText, name, sizeof name), ERR_FILE_WRITE);
  }
  ASSERT_EQ(T_OsGetTempNameA(nullptr, name, sizeof name), SUCCESS) << "the thread's directory";
  EXPECT_EQ(std::strncmp(name, directory, std::strlen(directory)), 0);
  ASSERT_EQ(T_OsDeleteA(name), 0);
  ASSERT_TRUE(std::filesystem::create_directory(name));
  const std::string inside = name;
  EXPECT_EQ(T_OsGetTempNameA(inside.c_str(), name, static_cast<uint32_t>(inside.size())), ERR_INVALID_PARAMETER);
  EXPECT_TRUE(std::filesystem::is_empty(inside));
  EXPECT_TRUE(std::filesystem::remove(inside));
}

TEST(Text, NarrowCallbacksOpen) {
  int base = 1000;
  T_RedirectIOA(RecordNarrow, nullptr, nullptr, nullptr, nullptr, &base);
  EXPECT_EQ(T_RedirectedOpen(L"one", 4, 20), 1024);
  EXPECT_EQ(lastName, "one");
  EXPECT_EQ(T_RedirectedOpenA("two", 0, 0), 1000);
  EXPECT_EQ(lastName, "two");
  EXPECT_EQ(T_RedirectedOpenA(kNoText, 0, 0), -1);
  EXPECT_EQ(T_RedirectedOpen(nullptr, 0, 0), -1) << "no name";
  EXPECT_EQ(T_RedirectedOpen(L"half a pair: \xD800", 0, 0), -1) << "no narrow name";
  EXPECT_EQ(lastName, "two");
  // What stands for the narrow callback outlives it when it is put back by hand.
  T_OpenCallback open = nullptr;
  T_FilterIO(&open, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  T_RedirectIOA(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  T_RedirectIO(open, nullptr, nullptr, nullptr, nullptr, &base);
  EXPECT_EQ(T_RedirectedOpen(L"three", 0, 0), -1);
  EXPECT_EQ(lastName, "two");
  T_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(T_RedirectedOpenA("no such file, I hope", T_OPEN_READ, 0), -1);
  EXPECT_EQ(lastName, "two");
}
