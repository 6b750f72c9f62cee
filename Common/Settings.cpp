// The per-thread settings record and the getters and setters over it, and the version record.

#include "Common/Internal/Settings.h"

#include <atomic>
#include <cstring>
#include <cwchar>

#include "Common/Internal/Library.h"
#include "Common/Internal/NearestCache.h"
#include "Platform/Platform.h"

namespace tarn {

// ---- Records -------------------------------------------------------------------------------------------------------

static constexpr Settings kDefaults{
    .userMatchTable = nullptr,
    .redirect = {.open = T_OsOpen,
                 .read = T_OsRead,
                 .write = T_OsWrite,
                 .seek = T_OsSeek,
                 .close = T_OsClose,
                 .openData = nullptr,
                 .readData = nullptr,
                 .writeData = nullptr,
                 .seekData = nullptr,
                 .closeData = nullptr},
    .narrowOpen = nullptr,
    .defaultDithering = T_DITHER_DEFAULT,
    .defaultXResolution = 150,
    .defaultYResolution = 150,
    .defaultMemoryType = TYPE_CONV,
    .maxConventionalSize = 0x7FFFFFFF,
    .tiledThreshold = 0,
    .tileSize = 0,
    .conventionalTiles = -100,
    .tileViews = 1,
    .tempDirectory = L".",  // when the system names none
    .statusCallback = nullptr,
    .statusUserData = nullptr,
    .copyStatusCallback = nullptr,
    .copyStatusUserData = nullptr,
    .slots = nullptr,
    .substituteFontCallback = nullptr,
    .substituteFontUserData = nullptr,
    .nearestCache = nullptr,
    .previous = nullptr,
    .next = nullptr,
};

namespace {

struct ThreadRecord {  // one allocation: a thread has both or neither
  Settings settings;   // first: the address is the record's
  uint64_t slots[T_TLS_SLOTS];
};

constinit Settings processWide = kDefaults;
constinit std::atomic<bool> started{false};
constinit Settings* allRecords = nullptr;  // guarded by slotSection

void SetDefaults(Settings& settings) noexcept {
  settings = kDefaults;
  wchar_t path[T_TEMP_DIRECTORY_LENGTH];
  if (platform::TemporaryPath(path, T_TEMP_DIRECTORY_LENGTH)) std::wcscpy(settings.tempDirectory, path);
}

void FreeRecord(Settings* settings) noexcept {
  const Here here = TARN_HERE;
  FreeNearestCache(settings->nearestCache);
  T_LocalFree(settings, here.line, here.file);
}

Settings* CreateThreadRecord() noexcept {
  const Here here = TARN_HERE;
  ThreadRecord* const record = static_cast<ThreadRecord*>(T_LocalAllocInit(1, sizeof *record, here.line, here.file));
  if (!record) return nullptr;
  SetDefaults(record->settings);
  record->settings.slots = record->slots;
  if (!platform::TlsSet(&record->settings)) {
    T_LocalFree(record, here.line, here.file);
    return nullptr;
  }
  platform::Guard guard(slotSection);
  record->settings.next = allRecords;
  if (allRecords) allRecords->previous = &record->settings;
  allRecords = &record->settings;
  return &record->settings;
}

[[gnu::noinline]] Settings& FirstUse() noexcept {
  if (!started.load(std::memory_order_relaxed)) return processWide;
  if (Settings* const made = CreateThreadRecord()) return *made;
  platform::TlsSet(&processWide);
  return processWide;
}

}  // namespace

Settings& ThreadSettings() noexcept {
  if (void* const own = platform::TlsGet()) [[likely]]
    return *static_cast<Settings*>(own);
  return FirstUse();
}

bool StartSettings() noexcept {
  SetDefaults(processWide);
  if (!platform::TlsCreate()) return false;
  if (!CreateThreadRecord()) {
    platform::TlsDestroy();
    return false;
  }
  started.store(true, std::memory_order_relaxed);
  return true;
}

void StopSettings() noexcept {
  if (!started.exchange(false)) return;
  platform::TlsDestroy();  // from here no thread finds its record, and none is announced as ended
  Settings* record;
  {
    platform::Guard guard(slotSection);
    record = allRecords;
    allRecords = nullptr;
  }
  while (record) {
    Settings* const next = record->next;
    FreeRecord(record);
    record = next;
  }
}

void FreeThreadSettings(Settings* settings) noexcept {
  if (settings == &processWide) return;
  {
    platform::Guard guard(slotSection);
    if (!started.load(std::memory_order_relaxed)) return;  // StopSettings has it, or had it
    if (settings->next) settings->next->previous = settings->previous;
    (settings->previous ? settings->previous->next : allRecords) = settings->next;
  }
  FreeRecord(settings);
}

void ClearSlotOfAllThreads(uint32_t slot) noexcept {
  for (Settings* record = allRecords; record; record = record->next) record->slots[slot] = 0;
}

template <class Callback>
static void Exchange(Callback& callback, void*& userData, Callback newCallback, void* newUserData, Callback* previous,
                     void** previousUserData) noexcept {
  if (previous) *previous = callback;
  if (previousUserData) *previousUserData = userData;
  callback = newCallback;
  userData = newUserData;
}

template <class T>
static T Replace(T& value, T newValue) noexcept {
  const T previous = value;
  value = newValue;
  return previous;
}

}  // namespace tarn

using tarn::Settings;
using tarn::ThreadSettings;

// ---- Defaults ------------------------------------------------------------------------------------------------------

uint32_t T_GetDefaultDithering() noexcept { return ThreadSettings().defaultDithering; }

int32_t T_DefaultDithering(uint32_t method) noexcept {
  if (method > T_DITHER_LAST) return ERR_INVALID_PARAMETER;
  ThreadSettings().defaultDithering = method;
  return SUCCESS;
}

int32_t T_GetDefaultXResolution() noexcept { return ThreadSettings().defaultXResolution; }
int32_t T_GetDefaultYResolution() noexcept { return ThreadSettings().defaultYResolution; }

int32_t T_SetDefaultXResolution(int32_t dotsPerInch) noexcept {
  return tarn::Replace(ThreadSettings().defaultXResolution, dotsPerInch);
}

int32_t T_SetDefaultYResolution(int32_t dotsPerInch) noexcept {
  return tarn::Replace(ThreadSettings().defaultYResolution, dotsPerInch);
}

int32_t T_GetTempDirectory(wchar_t* buffer, uint32_t length) noexcept {
  if (!buffer || length == 0) return ERR_INVALID_PARAMETER;
  const wchar_t* const directory = ThreadSettings().tempDirectory;
  const size_t wanted = std::wcslen(directory);
  const size_t copied = wanted < length ? wanted : length - 1;
  std::wmemcpy(buffer, directory, copied);
  buffer[copied] = L'\0';
  return SUCCESS;
}

int32_t T_SetTempDirectory(const wchar_t* path) noexcept {
  if (!path) return ERR_INVALID_PARAMETER;
  if (std::wcslen(path) >= T_TEMP_DIRECTORY_LENGTH) return ERR_INVALID_PARAMETER;
  if (!tarn::platform::IsDirectory(path)) return ERR_INVALID_PARAMETER;
  Settings& settings = ThreadSettings();
  std::wmemmove(settings.tempDirectory, path, std::wcslen(path) + 1);
  return SUCCESS;
}

// ---- Callbacks -----------------------------------------------------------------------------------------------------

void T_SetStatusCallBack(T_StatusCallback callback, void* userData, T_StatusCallback* previous,
                         void** previousUserData) noexcept {
  Settings& settings = ThreadSettings();
  tarn::Exchange(settings.statusCallback, settings.statusUserData, callback, userData, previous, previousUserData);
}

T_StatusCallback T_GetStatusCallBack(void** userData) noexcept {
  const Settings& settings = ThreadSettings();
  if (userData) *userData = settings.statusUserData;
  return settings.statusCallback;
}

void T_SetCopyStatusCallBack(T_StatusCallback callback, void* userData, T_StatusCallback* previous,
                             void** previousUserData) noexcept {
  Settings& settings = ThreadSettings();
  tarn::Exchange(settings.copyStatusCallback, settings.copyStatusUserData, callback, userData, previous,
                 previousUserData);
}

T_StatusCallback T_GetCopyStatusCallBack(void** userData) noexcept {
  const Settings& settings = ThreadSettings();
  if (userData) *userData = settings.copyStatusUserData;
  return settings.copyStatusCallback;
}

int32_t T_VecSetSubstituteFontCallback(T_SubstituteFontCallback callback, void* userData) noexcept {
  Settings& settings = ThreadSettings();
  settings.substituteFontCallback = callback;
  settings.substituteFontUserData = userData;
  return SUCCESS;
}

int32_t T_VecGetSubstituteFontCallback(T_SubstituteFontCallback* callback, void** userData) noexcept {
  if (!callback || !userData) return ERR_INVALID_PARAMETER;
  const Settings& settings = ThreadSettings();
  *callback = settings.substituteFontCallback;
  *userData = settings.substituteFontUserData;
  return SUCCESS;
}

uint32_t* T_SetUserMatchTable(uint32_t* table) noexcept {
  return tarn::Replace(ThreadSettings().userMatchTable, table);
}

// ---- Version -------------------------------------------------------------------------------------------------------

static constexpr T_Version kVersion{.StructSize = sizeof(T_Version),
                                    .Product = "Tarn Imaging Kernel",
                                    .Reserved = 0,
                                    .MajorNumber = 15,
                                    .MinorNumber = 0,
                                    .Date = "Jun 11 2010",
                                    .Time = "12:53:56"};

int32_t T_VersionInfo(T_Version* version, uint32_t structSize) noexcept {
  if (!version) return ERR_INVALID_PARAMETER;
  if (structSize != sizeof(T_Version)) return ERR_BAD_STRUCT_SIZE;
  *version = kVersion;
  return SUCCESS;
}
