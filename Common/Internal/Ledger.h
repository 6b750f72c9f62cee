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

/// What was removed, so that a resize that fails can put it back with the place where the object was made. The old
/// address must leave the ledger before the resize: from then on another thread may be given it.
struct Removed {
  void* object = nullptr;  // null: nothing was recorded
  Kind kind = Kind::kLocal;
  Here here{};
};
Removed Take(void* object, Kind kind) noexcept;
void PutBack(const Removed& removed) noexcept;

/// Handles of files and sections as objects of the ledger.
inline int64_t AddSystem(int64_t handle, Here here) noexcept {
  Add(reinterpret_cast<void*>(handle), Kind::kSystem, here);
  return handle;
}
inline void RemoveSystem(int64_t handle, Here here) noexcept {
  Remove(reinterpret_cast<void*>(handle), Kind::kSystem, here);
}

struct Totals {
  uint64_t objects;         // live now, of those added while recording
  uint64_t heapBytes;       // usable bytes of the live heap blocks (Kind::kLocal)
  uint64_t peakHeapBytes;   // the most that heapBytes has been
  uint64_t unknownRemoves;  // releases of objects that were not recorded
  uint64_t lost;            // objects that could not be recorded for want of memory
};
void StartRecording() noexcept;  // forgets earlier records
void StopRecording() noexcept;   // the totals and the live records stay readable
Totals Now() noexcept;
/// Calls visit for each live record, in no particular order. The ledger is locked meanwhile: visit must not make or
/// release a tracked object.
void ForEachLive(void (*visit)(const void* object, Kind kind, Here here, void* context), void* context) noexcept;

}  // namespace tarn::ledger
