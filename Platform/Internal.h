#pragma once
// What the files of this directory share. Nothing outside Platform/ and its tests includes it.

#include <atomic>
#include <cstdint>

#include "Platform/Fault.h"
#include "Platform/Platform.h"

namespace tarn::platform {

/// What is held now; every make and release keeps its figure.
struct Counts {
  std::atomic<int64_t> blockBytes;
  std::atomic<int64_t> blocks;
  std::atomic<int64_t> viewBytes;
  std::atomic<int64_t> views;
  std::atomic<int64_t> sections;
  std::atomic<int64_t> movableBlocks;
  std::atomic<int64_t> files;
  std::atomic<int64_t> palettes;
};
extern Counts counts;

inline void Add(std::atomic<int64_t>& figure, int64_t change) noexcept {
  figure.fetch_add(change, std::memory_order_relaxed);
}

/// Asks the gate of a call that makes memory. True: refused, with the system's error for "no memory" set.
bool MemoryRefused(fault::Point point, Here here) noexcept;
/// Asks the gate of a file call. True: refused, with an input/output error or a full disk as the system's error. Other
/// answers are left to the call.
bool FileRefused(fault::Point point, Here here, fault::Answer& answer) noexcept;
/// Sets the system's error for a full disk.
void SetDiskFull() noexcept;

/// Bytes that a transfer of `bytes` may move under a gate's answer.
inline uint32_t Granted(uint32_t bytes, fault::Answer answer) noexcept {
  return answer == fault::Answer::kZero ? 0 : answer == fault::Answer::kShort ? bytes / 2 : bytes;
}

/// Characters of "tarn" + 16 hexadecimal digits + ".tmp".
constexpr uint32_t kTemporaryNameLength = 4 + 16 + 4;
/// Names tried before a temporary file is given up; a second one is needed only when somebody has the first.
constexpr int kTemporaryNameTries = 64;
/// Writes directory, a separator unless it ends in one, and a name made of 64 random bits. False, with the invalid
/// parameter error set: too little room, or no directory.
bool TemporaryNameIn(const wchar_t* directory, uint64_t random, wchar_t* name, uint32_t room) noexcept;

}  // namespace tarn::platform
