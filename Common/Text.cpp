// Text between narrow and wide, and the functions that take narrow names.

#define T_EXPORT_METHODS  // of the classes in the next header
#include "tarn/text.h"

#include <cstring>
#include <cwchar>

#include "Common/Internal/Settings.h"
#include "Common/Internal/Text.h"
#include "tarn/files.h"
#include "tarn/memory.h"

using namespace tarn;

// ---- Conversion ----------------------------------------------------------------------------------------------------

namespace {

template <class From, class To>
int32_t Convert(const From* from, To** converted, size_t room, bool (*convert)(const From*, To*, size_t)) noexcept {
  if (!converted) return ERR_INVALID_PARAMETER;
  *converted = nullptr;
  if (!from) return ERR_INVALID_PARAMETER;
  const Here here = TARN_HERE;
  To* const text = static_cast<To*>(T_LocalAlloc(room, sizeof(To), here.line, here.file));
  if (!text) return ERR_NO_MEMORY;
  if (!convert(from, text, room)) {
    T_LocalFree(text, here.line, here.file);
    return ERR_INVALID_PARAMETER;
  }
  *converted = text;
  return SUCCESS;
}

}  // namespace

int32_t T_NarrowToWide(const char* narrow, wchar_t** wide) noexcept {
  return Convert<char, wchar_t>(narrow, wide, platform::WideRoom(narrow), platform::NarrowToWide);
}

int32_t T_WideToNarrow(const wchar_t* wide, char** narrow) noexcept {
  return Convert<wchar_t, char>(wide, narrow, platform::NarrowRoom(wide), platform::WideToNarrow);
}

void T_FreeText(void* text) noexcept {
  const Here here = TARN_HERE;
  if (text) T_LocalFree(text, here.line, here.file);
}

// ---- Settings ------------------------------------------------------------------------------------------------------

int32_t T_GetTempDirectoryA(char* buffer, uint32_t length) noexcept {
  if (!buffer || length == 0) return ERR_INVALID_PARAMETER;
  wchar_t directory[T_TEMP_DIRECTORY_LENGTH];
  T_GetTempDirectory(directory, T_TEMP_DIRECTORY_LENGTH);
  char narrow[T_TEMP_DIRECTORY_LENGTH * 4];
  // One character fewer at a time, so that none is cut in two.
  for (size_t characters = std::wcslen(directory);; directory[--characters] = 0) {
    if (!platform::WideToNarrow(directory, narrow, sizeof narrow)) return ERR_INVALID_PARAMETER;
    const size_t bytes = std::strlen(narrow) + 1;
    if (bytes > length) continue;
    std::memcpy(buffer, narrow, bytes);
    return SUCCESS;
  }
}

int32_t T_SetTempDirectoryA(const char* path) noexcept { return T_SetTempDirectory(WideName(path)); }

// ---- Files ---------------------------------------------------------------------------------------------------------

T_FileHandle T_OsOpenA(const char* name, int32_t flags, int32_t mode, void* userData) noexcept {
  return T_OsOpen(WideName(name), flags, mode, userData);
}

T_FileHandle T_OsCreatA(const char* name, int32_t attributes) noexcept { return T_OsCreat(WideName(name), attributes); }

int32_t T_OsDeleteA(const char* name) noexcept { return T_OsDelete(WideName(name)); }

int32_t T_OsGetTempNameA(const char* directory, char* name, uint32_t length) noexcept {
  if (!name || length == 0) return ERR_INVALID_PARAMETER;
  const WideName where(directory);
  if (directory && !where) return ERR_FILE_WRITE;
  constexpr uint32_t kRoom = 4096 + 64;
  TrackedBuffer<wchar_t> wide(kRoom, TARN_HERE);
  if (!wide) return ERR_NO_MEMORY;
  if (const int32_t made = T_OsGetTempName(where, wide.data(), kRoom); made != SUCCESS) return made;
  if (platform::WideToNarrow(wide.data(), name, length)) return SUCCESS;
  T_OsDelete(wide.data());
  return ERR_INVALID_PARAMETER;
}

int32_t T_CopyFileA(const char* source, const char* destination, int32_t failIfExists) noexcept {
  return T_CopyFile(WideName(source), WideName(destination), failIfExists);
}

T_FileHandle T_RedirectedOpenA(const char* name, int32_t flags, int32_t mode) noexcept {
  const WideName wide(name);
  return wide ? T_RedirectedOpen(wide, flags, mode) : platform::kNoFile;
}

// The open callback of a thread that redirected with a narrow one.
static T_FileHandle OpenNarrow(const wchar_t* name, int32_t flags, int32_t mode, void* userData) noexcept {
  const T_OpenCallbackA open = ThreadSettings().narrowOpen;
  const T_W2A narrow(name);
  return open && narrow ? open(narrow, flags, mode, userData) : platform::kNoFile;
}

void T_RedirectIOA(T_OpenCallbackA open, T_ReadCallback read, T_WriteCallback write, T_SeekCallback seek,
                   T_CloseCallback close, void* userData) noexcept {
  T_RedirectIO(open ? OpenNarrow : nullptr, read, write, seek, close, userData);
  ThreadSettings().narrowOpen = open;
}
