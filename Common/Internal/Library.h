#pragma once
// The library-wide critical sections. Neither is recursive, and nothing is called out to while one is held. They need
// no start-up: they work from static initialisation on.

#include "Platform/Platform.h"

namespace tarn {

/// Guards the table of thread-local slots and the list of settings records.
extern platform::CriticalSection slotSection;
/// Guards the row-offset caches of bitmaps and the registry of storage.
extern platform::BriefSection rowSection;

/// Provided by Common/TlsSlots.cpp: every slot is free again.
void ResetSlots() noexcept;

}  // namespace tarn
