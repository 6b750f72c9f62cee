#pragma once
// What the Windows files share.

#define WIN32_LEAN_AND_MEAN
#ifndef NOMINMAX
#define NOMINMAX
#endif
#include <windows.h>

#include "Platform/Internal.h"

namespace tarn::platform {

/// The library or program that contains this code. WindowsDll.cpp and WindowsArchive.cpp each provide it, together with
/// the load notifications: asking for it links one of them.
HMODULE OwnModule() noexcept;

/// Passes the end of the calling thread on, for the load notifications.
void ThreadEnds() noexcept;

class KeepLastError {
 public:
  KeepLastError() noexcept : value_(GetLastError()) {}
  ~KeepLastError() { SetLastError(value_); }
  KeepLastError(const KeepLastError&) = delete;
  KeepLastError& operator=(const KeepLastError&) = delete;

 private:
  DWORD value_;
};

inline HANDLE HandleOf(uint64_t value) noexcept { return reinterpret_cast<HANDLE>(static_cast<uintptr_t>(value)); }
inline HANDLE HandleOf(int64_t value) noexcept { return reinterpret_cast<HANDLE>(static_cast<intptr_t>(value)); }
inline DWORD HighHalf(uint64_t value) noexcept { return static_cast<DWORD>(value >> 32); }
inline DWORD LowHalf(uint64_t value) noexcept { return static_cast<DWORD>(value); }

}  // namespace tarn::platform
