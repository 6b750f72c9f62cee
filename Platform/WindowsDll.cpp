// Load notifications of the shared library.

#include "Platform/WindowsShared.h"

namespace {
HMODULE ownModule = nullptr;
bool attached = false;  // a refused load is followed by a detach
}  // namespace

HMODULE tarn::platform::OwnModule() noexcept { return ownModule; }

extern "C" BOOL WINAPI DllMain(HINSTANCE module, DWORD reason, LPVOID terminating) {
  switch (reason) {
    case DLL_PROCESS_ATTACH:
      ownModule = module;
      attached = tarn::platform::LibraryAttach();
      return attached;
    case DLL_THREAD_DETACH:
      tarn::platform::ThreadEnds();
      break;
    case DLL_PROCESS_DETACH:
      // When the process ends the other threads are already gone, perhaps with a lock of ours or of the heap held: the
      // system takes everything back by itself.
      if (attached && !terminating) tarn::platform::LibraryDetach();
      break;
    default:
      break;
  }
  return TRUE;
}
