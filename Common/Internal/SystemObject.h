#pragma once
// What every tracked system call does around the call itself. For the Windows library only.

#include <windows.h>

#include "Common/Internal/Ledger.h"
#include "Platform/Fault.h"
#include "Platform/Here.h"

namespace tarn {

/// The caller of a tracked call asks for the system's last error: the ledger's own work must not show in it.
class KeepLastError {
 public:
  KeepLastError() noexcept : error_(GetLastError()) {}
  ~KeepLastError() { SetLastError(error_); }
  KeepLastError(const KeepLastError&) = delete;
  KeepLastError& operator=(const KeepLastError&) = delete;

 private:
  DWORD error_;
};

/// Enters a new object and gives it back; a failed call's null or INVALID_HANDLE_VALUE is no object.
template <class Object>
Object Track(Object object, Here here) noexcept {
  if (object != nullptr && static_cast<void*>(object) != INVALID_HANDLE_VALUE) {
    const KeepLastError keep;
    ledger::Add(object, ledger::Kind::kSystem, here);
  }
  return object;
}

/// Before the system releases the object: afterwards its value may already name another thread's new one.
inline void Untrack(void* object, Here here) noexcept {
  if (object == nullptr) return;
  const KeepLastError keep;
  ledger::Remove(object, ledger::Kind::kSystem, here);
}

inline bool CreationRefused(Here here) noexcept {
  if (!fault::Refused(fault::Point::kSection, here)) [[likely]]
    return false;
  SetLastError(ERROR_NOT_ENOUGH_MEMORY);
  return true;
}

/// Calls a creating function and enters what it gives. A refusal looks like the call's own failure, null.
template <class Object, class... Parameters, class... Arguments>
Object Create(Here here, Object(WINAPI* call)(Parameters...), Arguments... arguments) noexcept {
  if (CreationRefused(here)) return nullptr;
  return Track(call(arguments...), here);
}

}  // namespace tarn
