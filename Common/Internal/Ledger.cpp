// The recorder behind the ledger's hooks: an open-addressing hash table under a lock. Its memory comes straight from
// malloc, neither tracked nor gated, so that recording changes nothing of what it observes.

#include "Common/Internal/Ledger.h"

#include <atomic>
#include <cstdlib>

#include "Platform/Platform.h"

namespace tarn::ledger {
namespace {

struct Record {
  void* object;  // null: the place is free
  Kind kind;
  Here here;
  size_t bytes;  // heap blocks only
};

constinit std::atomic<bool> recording{false};
constinit platform::CriticalSection section;

// All guarded by the section.
constinit Record* table = nullptr;
constinit size_t capacity = 0;  // 0 or a power of two
constinit Totals totals{};

size_t Home(const void* object, Kind kind) noexcept {
  const uint64_t key = reinterpret_cast<uintptr_t>(object) ^ static_cast<uint64_t>(kind) << 60;
  return static_cast<size_t>((key * 0x9E3779B97F4A7C15u) >> 20) & (capacity - 1);  // Fibonacci hashing
}

/// The record's place, or the free one where it would go. The table is never full.
size_t Find(const void* object, Kind kind) noexcept {
  size_t place = Home(object, kind);
  while (table[place].object && (table[place].object != object || table[place].kind != kind))
    place = (place + 1) & (capacity - 1);
  return place;
}

bool Grow() noexcept {
  const size_t oldCapacity = capacity;
  const size_t newCapacity = oldCapacity ? oldCapacity * 2 : 1024;
  Record* const newTable = static_cast<Record*>(std::calloc(newCapacity, sizeof(Record)));
  if (!newTable) return false;
  Record* const oldTable = table;
  table = newTable;
  capacity = newCapacity;
  for (size_t i = 0; i < oldCapacity; ++i)
    if (oldTable[i].object) table[Find(oldTable[i].object, oldTable[i].kind)] = oldTable[i];
  std::free(oldTable);
  return true;
}

void Erase(size_t hole) noexcept {
  totals.heapBytes -= table[hole].bytes;
  --totals.objects;
  // Backward shift: whatever probed past the hole moves into it, so that no tombstones are needed.
  for (size_t next = (hole + 1) & (capacity - 1); table[next].object; next = (next + 1) & (capacity - 1)) {
    const size_t home = Home(table[next].object, table[next].kind);
    if (((next - home) & (capacity - 1)) < ((next - hole) & (capacity - 1))) continue;
    table[hole] = table[next];
    hole = next;
  }
  table[hole] = {};
}

void Insert(const Record& record) noexcept {
  if (totals.objects * 4 >= capacity * 3 && !Grow()) {
    ++totals.lost;
    return;
  }
  const size_t place = Find(record.object, record.kind);
  if (table[place].object) {  // its release was not announced; the address is in use again
    totals.heapBytes -= table[place].bytes;
    --totals.objects;
  }
  table[place] = record;
  ++totals.objects;
  totals.heapBytes += record.bytes;
  if (totals.heapBytes > totals.peakHeapBytes) totals.peakHeapBytes = totals.heapBytes;
}

}  // namespace

void* Add(void* object, Kind kind, Here here) noexcept {
  if (!recording.load(std::memory_order_relaxed)) [[likely]]
    return object;
  if (!object) return object;
  const size_t bytes = kind == Kind::kLocal ? platform::HeapBlockSize(object) : 0;
  platform::Guard guard(section);
  Insert({object, kind, here, bytes});
  return object;
}

Removed Take(void* object, Kind kind) noexcept {
  if (!recording.load(std::memory_order_relaxed)) [[likely]]
    return {};
  if (!object) return {};
  platform::Guard guard(section);
  const size_t place = capacity ? Find(object, kind) : 0;
  if (!capacity || !table[place].object) {
    ++totals.unknownRemoves;
    return {};
  }
  const Removed removed{object, kind, table[place].here};
  Erase(place);
  return removed;
}

void Remove(void* object, Kind kind, Here) noexcept { (void)Take(object, kind); }

void PutBack(const Removed& removed) noexcept { Add(removed.object, removed.kind, removed.here); }

void StartRecording() noexcept {
  platform::Guard guard(section);
  std::free(table);
  table = nullptr;
  capacity = 0;
  totals = {};
  recording.store(true, std::memory_order_relaxed);
}

void StopRecording() noexcept { recording.store(false, std::memory_order_relaxed); }

Totals Now() noexcept {
  platform::Guard guard(section);
  return totals;
}

void ForEachLive(void (*visit)(const void* object, Kind kind, Here here, void* context), void* context) noexcept {
  platform::Guard guard(section);
  for (size_t i = 0; i < capacity; ++i)
    if (table[i].object) visit(table[i].object, table[i].kind, table[i].here, context);
}

}  // namespace tarn::ledger
