// Thread-local slots of the library's own: a table of slots for the process, an array of values for each thread.

#include <atomic>

#include "Common/Internal/Library.h"
#include "Common/Internal/Settings.h"
#include "tarn/memory.h"

namespace tarn {

static constexpr uint32_t kNoSlot = 0xFFFFFFFF;

static constinit uint8_t slotInUse[T_TLS_SLOTS] = {};  // 255 in use, 0 free; guarded by slotSection
// Slots ever handed out, less the highest ones given back. Written under slotSection, read without it: reading a value
// must cost no lock.
static constinit std::atomic<uint32_t> slotCount{0};

static uint32_t FreeSlot() noexcept {
  const uint32_t count = slotCount.load(std::memory_order_relaxed);
  if (count < T_TLS_SLOTS) {
    slotCount.store(count + 1, std::memory_order_relaxed);
    return count;
  }
  for (uint32_t slot = 0; slot < T_TLS_SLOTS; ++slot)
    if (!slotInUse[slot]) return slot;
  return kNoSlot;
}

void ResetSlots() noexcept {
  platform::Guard guard(slotSection);
  for (uint8_t& used : slotInUse) used = 0;
  slotCount.store(0, std::memory_order_relaxed);
}

}  // namespace tarn

uint32_t T_TlsAlloc() noexcept {
  tarn::platform::Guard guard(tarn::slotSection);
  const uint32_t slot = tarn::FreeSlot();
  if (slot == tarn::kNoSlot) return slot;
  tarn::slotInUse[slot] = 255;
  tarn::ClearSlotOfAllThreads(slot);  // what a former owner left
  return slot;
}

int32_t T_TlsFree(uint32_t slot) noexcept {
  tarn::platform::Guard guard(tarn::slotSection);
  const uint32_t count = tarn::slotCount.load(std::memory_order_relaxed);
  if (slot >= count || !tarn::slotInUse[slot]) return 0;
  tarn::slotInUse[slot] = 0;
  // Deliberate: only the highest slot comes back at once, the others wait until all have been handed out.
  if (slot == count - 1) tarn::slotCount.store(count - 1, std::memory_order_relaxed);
  return 1;
}

uint64_t T_TlsGetValue(uint32_t slot) noexcept {
  if (slot >= tarn::slotCount.load(std::memory_order_relaxed)) return 0;
  const uint64_t* const values = tarn::ThreadSettings().slots;
  return values ? values[slot] : 0;
}

int32_t T_TlsSetValue(uint32_t slot, uint64_t value) noexcept {
  if (slot >= tarn::slotCount.load(std::memory_order_relaxed)) return 0;
  uint64_t* const values = tarn::ThreadSettings().slots;
  if (!values) return 0;
  values[slot] = value;
  return 1;
}
