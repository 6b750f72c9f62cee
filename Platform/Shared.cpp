// The part of the platform layer that is the same on every system.

#include <cwchar>

#include "Platform/Internal.h"

namespace tarn::platform {

constinit Counts counts{};

Counters Held() noexcept {
  return {counts.blockBytes.load(), counts.blocks.load(),        counts.viewBytes.load(), counts.views.load(),
          counts.sections.load(),   counts.movableBlocks.load(), counts.files.load(),     counts.palettes.load()};
}

static void PauseProcessor() noexcept {
#if defined(__x86_64__)
  __builtin_ia32_pause();
#endif
}

void SpinLock::Acquire() noexcept {
  while (counter_.fetch_add(1, std::memory_order_acquire) != 0) {
    counter_.fetch_sub(1, std::memory_order_relaxed);
    if (sleeps_)
      SleepMilliseconds(1);
    else
      YieldThread();
  }
}

void BriefSection::EnterTaken() noexcept {
  // The holder is done within nanoseconds unless the system has put it aside; then it needs the processor more than we.
  for (uint32_t look = 0;; ++look) {
    if (!taken_.load(std::memory_order_relaxed) && !taken_.exchange(true, std::memory_order_acquire)) return;
    if (look < 100)
      PauseProcessor();
    else if (look < 110)
      YieldThread();
    else
      SleepMilliseconds(1);
  }
}

bool MemoryRefused(fault::Point point, Here here) noexcept {
  if (!fault::Refused(point, here)) return false;
  SetSystemError(SystemError::kNoMemory);
  return true;
}

bool FileRefused(fault::Point point, Here here, fault::Answer& answer) noexcept {
  answer = fault::Ask(point, here);
  if (answer == fault::Answer::kDiskFull)
    SetDiskFull();
  else if (answer == fault::Answer::kRefuse)
    SetSystemError(point == fault::Point::kRead ? SystemError::kReadFault : SystemError::kWriteFault);
  else
    return false;
  return true;
}

static bool IsSeparator(wchar_t character) noexcept {
#ifdef _WIN32
  return character == L'\\' || character == L'/' || character == L':';
#else
  return character == L'/';
#endif
}

bool TemporaryNameIn(const wchar_t* directory, uint64_t random, wchar_t* name, uint32_t room) noexcept {
  const size_t length = directory ? std::wcslen(directory) : 0;
  const bool separated = length > 0 && IsSeparator(directory[length - 1]);
  if (!name || length == 0 || length + !separated + kTemporaryNameLength + 1 > room) {
    SetSystemError(SystemError::kInvalid);
    return false;
  }
  std::wmemcpy(name, directory, length);
  wchar_t* next = name + length;
#ifdef _WIN32
  if (!separated) *next++ = L'\\';
#else
  if (!separated) *next++ = L'/';
#endif
  std::wmemcpy(next, L"tarn", 4);
  next += 4;
  for (int digit = 0; digit < 16; ++digit, random >>= 4) *next++ = L"0123456789abcdef"[random & 15];
  std::wmemcpy(next, L".tmp", 5);
  return true;
}

}  // namespace tarn::platform
