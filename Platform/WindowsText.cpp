// UTF-16 and the active code page.

#include <cstring>
#include <cwchar>

#include "Platform/WindowsShared.h"

namespace tarn::platform {

namespace {

bool Refuse(DWORD error) noexcept {
  SetLastError(error);
  return false;
}

bool IsSeparator(wchar_t character) noexcept { return character == L'\\' || character == L'/'; }

int Room(size_t room) noexcept { return room > INT32_MAX ? INT32_MAX : static_cast<int>(room); }

}  // namespace

size_t WideRoom(const char* text) noexcept { return text ? std::strlen(text) + 1 : 0; }
size_t NarrowRoom(const wchar_t* text) noexcept { return text ? std::wcslen(text) * 4 + 1 : 0; }

bool NarrowToWide(const char* text, wchar_t* target, size_t room) noexcept {
  if (!text) return Refuse(ERROR_INVALID_PARAMETER);
  return MultiByteToWideChar(CP_ACP, MB_ERR_INVALID_CHARS, text, -1, target, Room(room)) != 0;
}

bool WideToNarrow(const wchar_t* text, char* target, size_t room) noexcept {
  if (!text) return Refuse(ERROR_INVALID_PARAMETER);
  // Only where the code page is UTF-8 does the system refuse by itself what cannot be expressed.
  if (GetACP() == CP_UTF8)
    return WideCharToMultiByte(CP_ACP, WC_ERR_INVALID_CHARS, text, -1, target, Room(room), nullptr, nullptr) != 0;
  BOOL lost = FALSE;
  if (WideCharToMultiByte(CP_ACP, WC_NO_BEST_FIT_CHARS, text, -1, target, Room(room), nullptr, &lost) == 0)
    return false;
  return !lost || Refuse(ERROR_NO_UNICODE_TRANSLATION);
}

bool IsFullPath(const wchar_t* path) noexcept {
  if (IsSeparator(path[0])) return IsSeparator(path[1]);
  const wchar_t drive = path[0] | 0x20;
  return drive >= L'a' && drive <= L'z' && path[1] == L':' && IsSeparator(path[2]);
}

bool HasFolder(const wchar_t* path) noexcept { return std::wcspbrk(path, L"\\/:") != nullptr; }

}  // namespace tarn::platform
