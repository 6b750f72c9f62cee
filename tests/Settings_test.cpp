#include "Common/Internal/Settings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <thread>

#include "Holding.h"
#include "TestFiles.h"

using namespace tarn;
using namespace tarn::test;

namespace {

int32_t FirstStatus(int32_t, void*) { return SUCCESS; }
int32_t SecondStatus(int32_t, void*) { return SUCCESS; }
int32_t FirstFont(void*, void*) { return SUCCESS; }

std::wstring Directory() {
  wchar_t text[T_TEMP_DIRECTORY_LENGTH];
  EXPECT_EQ(T_GetTempDirectory(text, T_TEMP_DIRECTORY_LENGTH), SUCCESS);
  return text;
}

void ExpectDefaults() {
  EXPECT_EQ(T_GetDefaultDithering(), 7u);
  EXPECT_EQ(T_GetDefaultXResolution(), 150);
  EXPECT_EQ(T_GetDefaultYResolution(), 150);
  void* data = &data;
  EXPECT_EQ(T_GetStatusCallBack(&data), nullptr);
  EXPECT_EQ(data, nullptr);
  data = &data;
  EXPECT_EQ(T_GetCopyStatusCallBack(&data), nullptr);
  EXPECT_EQ(data, nullptr);
  T_SubstituteFontCallback font = FirstFont;
  data = &data;
  EXPECT_EQ(T_VecGetSubstituteFontCallback(&font, &data), SUCCESS);
  EXPECT_EQ(font, nullptr);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(T_SetUserMatchTable(nullptr), nullptr);
  EXPECT_EQ(T_GetFilterIOData(&data, nullptr, nullptr, nullptr, nullptr), nullptr);
  const Settings& settings = ThreadSettings();
  EXPECT_EQ(settings.defaultMemoryType, 1u);
  EXPECT_EQ(settings.maxConventionalSize, 0x7FFFFFFF);
  EXPECT_EQ(settings.tiledThreshold, 0);
  EXPECT_EQ(settings.tileSize, 0);
  EXPECT_EQ(settings.conventionalTiles, -100);
  EXPECT_EQ(settings.tileViews, 1);
  EXPECT_EQ(settings.redirect.open, T_OsOpen);
  EXPECT_EQ(settings.redirect.close, T_OsClose);
  wchar_t system[T_TEMP_DIRECTORY_LENGTH];
  ASSERT_TRUE(platform::TemporaryPath(system, T_TEMP_DIRECTORY_LENGTH));
  EXPECT_EQ(Directory(), system);
}

void ChangeEverything(void* data) {
  static uint32_t table[4];
  T_DefaultDithering(3);
  T_SetDefaultXResolution(300);
  T_SetDefaultYResolution(-5);
  T_SetStatusCallBack(FirstStatus, data, nullptr, nullptr);
  T_SetCopyStatusCallBack(SecondStatus, data, nullptr, nullptr);
  T_VecSetSubstituteFontCallback(FirstFont, data);
  T_SetUserMatchTable(table);
  T_SetTempDirectory(L".");
  T_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, data);
}

}  // namespace

TEST(Settings, EachThreadStartsFromTheDefaults) {
  std::thread([] {
    ExpectDefaults();
    int mine = 0;
    ChangeEverything(&mine);
    std::thread(ExpectDefaults).join();
    EXPECT_EQ(T_GetDefaultDithering(), 3u);
    EXPECT_EQ(T_GetDefaultXResolution(), 300);
    EXPECT_EQ(Directory(), L".");
  }).join();
  std::thread(ExpectDefaults).join();  // nor what an ended thread left
}

TEST(Settings, SettersHandBackThePreviousValue) {
  EXPECT_EQ(T_SetDefaultXResolution(0), 150);
  EXPECT_EQ(T_SetDefaultXResolution(INT32_MIN), 0);
  EXPECT_EQ(T_SetDefaultXResolution(150), INT32_MIN);
  EXPECT_EQ(T_SetDefaultYResolution(600), 150);
  EXPECT_EQ(T_SetDefaultYResolution(150), 600);
  uint32_t table[4];
  EXPECT_EQ(T_SetUserMatchTable(table), nullptr);
  EXPECT_EQ(T_SetUserMatchTable(nullptr), table);
}

TEST(Settings, DitheringTakesTheMethodsThereAre) {
  for (uint32_t method = 0; method <= 8; ++method) {
    EXPECT_EQ(T_DefaultDithering(method), SUCCESS);
    EXPECT_EQ(T_GetDefaultDithering(), method);
  }
  for (uint32_t method : {9u, 0xFFFFFFFFu}) {
    EXPECT_EQ(T_DefaultDithering(method), ERR_INVALID_PARAMETER);
    EXPECT_EQ(T_GetDefaultDithering(), 8u);
  }
  EXPECT_EQ(T_DefaultDithering(7), SUCCESS);
}

namespace {

struct CallbackPair {
  const char* name;
  void (*set)(T_StatusCallback, void*, T_StatusCallback*, void**);
  T_StatusCallback (*get)(void**);
};
const CallbackPair kPairs[] = {{"status", T_SetStatusCallBack, T_GetStatusCallBack},
                               {"copy status", T_SetCopyStatusCallBack, T_GetCopyStatusCallBack}};

}  // namespace

TEST(Settings, CallbacksAreExchangedWithTheirData) {
  for (const CallbackPair& pair : kPairs) {
    SCOPED_TRACE(pair.name);
    const CallbackPair& other = &pair == kPairs ? kPairs[1] : kPairs[0];
    int first = 0, second = 0;
    pair.set(FirstStatus, &first, nullptr, nullptr);
    T_StatusCallback callback = nullptr;
    void* data = nullptr;
    pair.set(SecondStatus, &second, &callback, &data);
    EXPECT_EQ(callback, FirstStatus);
    EXPECT_EQ(data, &first);
    EXPECT_EQ(pair.get(&data), SecondStatus);
    EXPECT_EQ(data, &second);
    EXPECT_EQ(pair.get(nullptr), SecondStatus);
    EXPECT_EQ(other.get(nullptr), nullptr);
    // The new pair may come from the places that receive the old one.
    callback = FirstStatus;
    data = &first;
    pair.set(callback, data, &callback, &data);
    EXPECT_EQ(callback, SecondStatus);
    EXPECT_EQ(data, &second);
    pair.set(nullptr, nullptr, &callback, nullptr);
    EXPECT_EQ(callback, FirstStatus);
    EXPECT_EQ(pair.get(&data), nullptr);
    EXPECT_EQ(data, nullptr);
  }
  T_SubstituteFontCallback font = nullptr;
  void* data = nullptr;
  EXPECT_EQ(T_VecSetSubstituteFontCallback(FirstFont, &data), SUCCESS);
  EXPECT_EQ(T_VecGetSubstituteFontCallback(nullptr, &data), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_VecGetSubstituteFontCallback(&font, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_VecGetSubstituteFontCallback(&font, &data), SUCCESS);
  EXPECT_EQ(font, FirstFont);
  EXPECT_EQ(data, &data);
  T_VecSetSubstituteFontCallback(nullptr, nullptr);
}

TEST(Settings, TempDirectoryIsKeptAsGiven) {
  const std::wstring before = Directory();
  const TempFile file;
  wchar_t text[T_TEMP_DIRECTORY_LENGTH] = L"unchanged";
  EXPECT_EQ(T_GetTempDirectory(nullptr, 10), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetTempDirectory(text, 0), ERR_INVALID_PARAMETER);
  EXPECT_STREQ(text, L"unchanged");

  const std::wstring tooLong = [] {
    std::wstring path = L".";
    while (path.size() < T_TEMP_DIRECTORY_LENGTH) path += L"/.";
    return path;
  }();
  const std::wstring longest = tooLong.substr(0, T_TEMP_DIRECTORY_LENGTH - 1);
  for (const wchar_t* bad :
       {static_cast<const wchar_t*>(nullptr), L"", L"no such directory", file.Text(), tooLong.c_str()}) {
    EXPECT_EQ(T_SetTempDirectory(bad), ERR_INVALID_PARAMETER);
    EXPECT_EQ(Directory(), before);
  }
  EXPECT_EQ(T_SetTempDirectory(L"./"), SUCCESS);
  EXPECT_EQ(Directory(), L"./");
#ifndef _WIN32  // there a path of 263 characters is too long for the system
  EXPECT_EQ(T_SetTempDirectory(longest.c_str()), SUCCESS);
  EXPECT_EQ(Directory(), longest);
#endif
  EXPECT_EQ(T_SetTempDirectory(before.c_str()), SUCCESS);
  ASSERT_GT(before.size(), 2u);
  for (uint32_t length : {1u, 2u, uint32_t(before.size()), uint32_t(before.size()) + 1}) {
    std::wmemset(text, L'#', T_TEMP_DIRECTORY_LENGTH);
    EXPECT_EQ(T_GetTempDirectory(text, length), SUCCESS);
    EXPECT_EQ(text, before.substr(0, length - 1));
    EXPECT_EQ(text[length], L'#');
  }
}

TEST(Settings, VersionRecord) {
  struct {
    T_Version version;
    uint8_t guard;
  } record;
  std::memset(&record, 0xEE, sizeof record);
  const auto untouched = record;
  EXPECT_EQ(T_VersionInfo(nullptr, 1), ERR_INVALID_PARAMETER);
  for (uint32_t size : {0u, 107u, 109u}) EXPECT_EQ(T_VersionInfo(&record.version, size), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(std::memcmp(&record, &untouched, sizeof record), 0);

  EXPECT_EQ(T_VersionInfo(&record.version, 108), SUCCESS);
  EXPECT_EQ(record.version.StructSize, 108u);
  EXPECT_STREQ(record.version.Product, "Tarn Imaging Kernel");
  EXPECT_EQ(record.version.Reserved, 0u);
  EXPECT_EQ(record.version.MajorNumber, 15u);
  EXPECT_EQ(record.version.MinorNumber, 0u);
  EXPECT_STREQ(record.version.Date, "Jun 11 2010");
  EXPECT_STREQ(record.version.Time, "12:53:56");
  EXPECT_EQ(record.guard, 0xEE);
}

// What such a thread sets stays in force for it, and the slots of others stay their own.
TEST(Settings, AThreadWithoutMemoryKeepsTheSharedRecord) {
  const uint32_t slot = T_TlsAlloc();
  ASSERT_EQ(T_TlsSetValue(slot, 42), 1);
  const Recording recording;
  std::thread([&] {
    {
      const Armed refusing({.first = 1});
      EXPECT_EQ(T_GetDefaultDithering(), 7u);
      EXPECT_EQ(fault::Answered(), 1u);
    }
    T_SetDefaultXResolution(300);
    EXPECT_EQ(T_GetDefaultXResolution(), 300);
    EXPECT_EQ(T_TlsSetValue(slot, 1), 0);
    EXPECT_EQ(T_TlsGetValue(slot), 0u);
    std::thread(ExpectDefaults).join();
    EXPECT_EQ(T_SetDefaultXResolution(150), 300);
    EXPECT_EQ(recording.Left(), "");
  }).join();
  EXPECT_EQ(recording.Left(), "");
  EXPECT_EQ(T_TlsGetValue(slot), 42u);
  EXPECT_EQ(T_TlsFree(slot), 1);
}
