// Threads, errors and libraries.

#include <cwchar>

#include "Platform/WindowsShared.h"

namespace tarn::platform {

// ---- Threads -------------------------------------------------------------------------------------------------------

namespace {
constinit std::atomic<DWORD> index{TLS_OUT_OF_INDEXES};
}

bool TlsCreate() noexcept {
  if (index.load(std::memory_order_acquire) != TLS_OUT_OF_INDEXES) return true;
  index.store(TlsAlloc(), std::memory_order_release);
  return index.load(std::memory_order_relaxed) != TLS_OUT_OF_INDEXES;
}

void TlsDestroy() noexcept {
  const DWORD own = index.exchange(TLS_OUT_OF_INDEXES);
  if (own != TLS_OUT_OF_INDEXES) TlsFree(own);
}

void* TlsGet() noexcept {
  const DWORD own = index.load(std::memory_order_acquire);
  if (own == TLS_OUT_OF_INDEXES) return nullptr;
  const KeepLastError keep;  // the system clears it
  return TlsGetValue(own);
}

bool TlsSet(void* value) noexcept {
  const DWORD own = index.load(std::memory_order_acquire);
  if (own != TLS_OUT_OF_INDEXES) return TlsSetValue(own, value);
  SetSystemError(SystemError::kInvalid);
  return false;
}

void ThreadEnds() noexcept {
  void* value = TlsGet();
  if (!value) return;
  TlsSet(nullptr);
  LibraryThreadDetach(value);
}

void CriticalSection::Enter() noexcept {
  static_assert(sizeof(SRWLOCK) <= sizeof state_);
  AcquireSRWLockExclusive(reinterpret_cast<SRWLOCK*>(state_));
}

void CriticalSection::Leave() noexcept { ReleaseSRWLockExclusive(reinterpret_cast<SRWLOCK*>(state_)); }

void SleepMilliseconds(uint32_t milliseconds) noexcept { Sleep(milliseconds); }

void YieldThread() noexcept { SwitchToThread(); }

// ---- Errors and messages -------------------------------------------------------------------------------------------

void SetSystemError(SystemError error) noexcept {
  switch (error) {
    case SystemError::kFileExists:
      SetLastError(ERROR_FILE_EXISTS);
      break;
    case SystemError::kReadFault:
      SetLastError(ERROR_READ_FAULT);
      break;
    case SystemError::kWriteFault:
      SetLastError(ERROR_WRITE_FAULT);
      break;
    case SystemError::kNoMemory:
      SetLastError(ERROR_NOT_ENOUGH_MEMORY);
      break;
    case SystemError::kInvalid:
      SetLastError(ERROR_INVALID_PARAMETER);
      break;
  }
}

void SetDiskFull() noexcept { SetLastError(ERROR_DISK_FULL); }

bool LastErrorIsDiskFull() noexcept {
  const DWORD error = GetLastError();
  return error == ERROR_DISK_FULL || error == ERROR_HANDLE_DISK_FULL;
}

namespace {

/// False for a service: nobody would see a message box, and nobody could close it.
bool CanBeSeen() noexcept {
  const HWINSTA station = GetProcessWindowStation();
  USEROBJECTFLAGS flags{};
  return station && GetUserObjectInformationW(station, UOI_FLAGS, &flags, sizeof flags, nullptr) &&
         (flags.dwFlags & WSF_VISIBLE);
}

void WriteError(const wchar_t* text) noexcept {
  const HANDLE stream = GetStdHandle(STD_ERROR_HANDLE);
  if (!stream || stream == INVALID_HANDLE_VALUE) return;
  constexpr size_t kPart = 512;
  for (size_t left = std::wcslen(text); left > 0;) {
    size_t part = left < kPart ? left : kPart;
    if (part < left && IS_HIGH_SURROGATE(text[part - 1])) --part;
    char bytes[3 * kPart];
    const int length =
        WideCharToMultiByte(CP_UTF8, 0, text, static_cast<int>(part), bytes, sizeof bytes, nullptr, nullptr);
    DWORD written = 0;
    if (length <= 0 || !WriteFile(stream, bytes, static_cast<DWORD>(length), &written, nullptr)) return;
    text += part;
    left -= part;
  }
}

}  // namespace

void ShowMessage(const wchar_t* text, const wchar_t* caption) noexcept {
  const KeepLastError keep;
  if (CanBeSeen()) {
    MessageBoxW(nullptr, text ? text : L"", caption ? caption : L"", MB_OK);
    return;
  }
  if (caption && *caption) {
    WriteError(caption);
    WriteError(L": ");
  }
  WriteError(text ? text : L"");
  WriteError(L"\r\n");
}

// ---- Libraries loaded at run time ----------------------------------------------------------------------------------

void* ModuleOpen(const wchar_t* path) noexcept {
  if (!path || !*path) {
    SetSystemError(SystemError::kInvalid);
    return nullptr;
  }
  const bool absolute = (path[0] == L'\\' && path[1] == L'\\') || (path[1] == L':' && path[2] == L'\\');
  DWORD mode = 0;
  SetThreadErrorMode(SEM_FAILCRITICALERRORS, &mode);  // no message boxes about damaged libraries
  // A library given by its full path finds its own companions beside it.
  const HMODULE module = LoadLibraryExW(path, nullptr, absolute ? LOAD_WITH_ALTERED_SEARCH_PATH : 0);
  const KeepLastError keep;
  SetThreadErrorMode(mode, nullptr);
  return module;
}

void* ModuleSymbol(void* module, const char* name) noexcept {
  if (!module || !name) {
    SetSystemError(SystemError::kInvalid);
    return nullptr;
  }
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(module), name));
}

void ModuleClose(void* module) noexcept {
  if (module) FreeLibrary(static_cast<HMODULE>(module));
}

bool OwnDirectory(wchar_t* path, uint32_t room) noexcept {
  wchar_t file[4096];
  const DWORD length = GetModuleFileNameW(OwnModule(), file, ARRAYSIZE(file));
  if (length == 0) return false;
  const wchar_t* name = length < ARRAYSIZE(file) ? std::wcsrchr(file, L'\\') : nullptr;
  const size_t directory = name ? static_cast<size_t>(name + 1 - file) : 0;
  if (directory == 0 || directory >= room) {
    SetSystemError(SystemError::kInvalid);
    return false;
  }
  std::wmemcpy(path, file, directory);
  path[directory] = 0;
  return true;
}

}  // namespace tarn::platform
