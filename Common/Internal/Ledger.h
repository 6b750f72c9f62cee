#pragma once
// The resource ledger's hooks: every tracked creation passes through Add, every release through Remove, first thing.
// They keep nothing until a recorder is switched on, which tests do.

#include <cstdint>

#include "Platform/Here.h"

namespace tarn::ledger {

enum class Kind : uint8_t { kGlobal = 1, kLocal = 2, kHandle = 3, kSystem = 4 };

/// Returns object unchanged. Objects are addresses or handle values; null is not recorded.
void* Add(void* object, Kind kind, Here here) noexcept;
void Remove(void* object, Kind kind, Here here) noexcept;

struct Totals {
  uint64_t objects;      // live now, of those added while recording
  uint64_t heapBytes;    // usable bytes of the live heap blocks (Kind::kLocal)
  uint64_t peakHeapBytes;
  uint64_t unknownRemoves;  // releases of objects that were not recorded
};
void StartRecording() noexcept;  // forgets earlier records
void StopRecording() noexcept;
Totals Now() noexcept;
/// Calls visit for each live record, oldest first not guaranteed.
void ForEachLive(void (*visit)(const void* object, Kind kind, Here here, void* context), void* context) noexcept;

}  // namespace tarn::ledger
