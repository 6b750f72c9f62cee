// Start and stop of the library.

#include "Common/Internal/Library.h"

#include "Common/Internal/CodecModule.h"
#include "Common/Internal/Hooks.h"
#include "Common/Internal/Settings.h"
#include "Platform/Platform.h"
#include "tarn/memory.h"

namespace tarn {

constinit platform::CriticalSection slotSection;
constinit platform::BriefSection rowSection;

// Notifications come one at a time: the loader holds its lock.
static constinit uint32_t attachCount = 0;

bool platform::LibraryAttach() noexcept {
  if (attachCount > 0) {
    ++attachCount;
    return true;
  }
  if (!StartSettings()) return false;
  ++attachCount;
  return true;
}

void platform::LibraryDetach() noexcept {
  if (attachCount == 0) return;  // the start failed
  if (--attachCount > 0) return;
  T_ResourceLeakReport(0);
  ResetHooks();
  UnloadCodec();
  StopSettings();
  ResetSlots();
}

void platform::LibraryThreadDetach(void* threadValue) noexcept {
  FreeThreadSettings(static_cast<Settings*>(threadValue));
}

}  // namespace tarn
