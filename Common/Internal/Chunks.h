#pragma once
// Moving any count through functions that take 32-bit counts.

#include <cstdint>

namespace tarn {

constexpr uint32_t kChunkBytes = 0x7FFFFFF;

/// Calls move(address, count), which returns the bytes moved or a negative value, until `bytes` are moved. A short
/// chunk goes on with the rest. Returns the bytes moved: fewer when a second chunk in a row was empty; -1 as soon as a
/// chunk fails.
template <class Byte, class Move>
int64_t MoveInChunks(Byte* buffer, uint64_t bytes, Move move) noexcept {
  uint64_t done = 0;
  bool wasEmpty = false;
  while (done < bytes) {
    const uint64_t rest = bytes - done;
    const uint32_t count = rest < kChunkBytes ? static_cast<uint32_t>(rest) : kChunkBytes;
    const int64_t moved = move(buffer + done, count);
    if (moved < 0 || moved > count) return -1;  // a callback that claims more has lost count
    if (moved == 0 && wasEmpty) break;
    wasEmpty = moved == 0;
    done += static_cast<uint64_t>(moved);
  }
  return static_cast<int64_t>(done);
}

}  // namespace tarn
