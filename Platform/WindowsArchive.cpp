// Load notifications of the archive: the program's start and end, and its thread callbacks.

#include "Platform/WindowsShared.h"

namespace {

[[gnu::constructor]] void Load() noexcept {
  // Deliberate: a program cannot be refused. After a failed start the process-wide settings serve every thread.
  (void)tarn::platform::LibraryAttach();
}

[[gnu::destructor]] void Unload() noexcept { tarn::platform::LibraryDetach(); }

void NTAPI Notify(PVOID, DWORD reason, PVOID) {
  if (reason == DLL_THREAD_DETACH) tarn::platform::ThreadEnds();
}

}  // namespace

// The loader calls what it finds in this section; the name sorts it between the section's ends.
extern "C" [[gnu::section(".CRT$XLB"), gnu::used]] const PIMAGE_TLS_CALLBACK tarnThreadCallback = Notify;

HMODULE tarn::platform::OwnModule() noexcept {
  HMODULE module = nullptr;
  GetModuleHandleExW(GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
                     reinterpret_cast<LPCWSTR>(&Notify), &module);
  return module;
}
