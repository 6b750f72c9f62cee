// Tracked memory by kind, the ledger's entry points and the plain memory functions.

#include <atomic>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "Common/Internal/KnownExtents.h"
#include "Common/Internal/Ledger.h"
#include "Common/Internal/Message.h"
#include "Common/Internal/TrackedMemory.h"
#include "Platform/Fault.h"
#include "Platform/Platform.h"
#include "tarn/memory.h"

namespace tarn {

// ---- Messages ------------------------------------------------------------------------------------------------------

static constinit std::atomic<MessageRoutine> messageRoutine{nullptr};

MessageRoutine SetMessageRoutine(MessageRoutine routine) noexcept { return messageRoutine.exchange(routine); }

void ShowMessage(const wchar_t* caption, const wchar_t* format, ...) noexcept {
  wchar_t text[kMessageLength];
  text[0] = L'\0';
  va_list arguments;
  va_start(arguments, format);
  std::vswprintf(text, kMessageLength, format ? format : L"An error occurred in the imaging library.", arguments);
  va_end(arguments);
  text[kMessageLength - 1] = L'\0';  // a text that was cut may come without its end
  if (const MessageRoutine routine = messageRoutine.load())
    routine(text, caption);
  else
    platform::ShowMessage(text, caption);
}

// ---- Tracked memory ------------------------------------------------------------------------------------------------

static void ComplainOfKind(Here here) noexcept {
  ShowMessage(L"Tarn", L"Invalid resource type used in (%u) %ls", here.line, here.file ? here.file : L"");
}

static bool Product(uint64_t count, uint64_t size, size_t& bytes) noexcept {
  return !__builtin_mul_overflow(count, size, &bytes);
}

static bool HeapRefuses(Here here) noexcept {
  if (!fault::Refused(fault::Point::kMemory, here)) [[likely]]
    return false;
  platform::SetSystemError(platform::SystemError::kNoMemory);
  return true;
}

// Movable blocks ask their gate in the platform.
static void* AllocateGlobal(size_t bytes, uint32_t flags, Here here) noexcept {
  if (bytes == 0) return nullptr;  // an empty movable block has no address
  const uint64_t handle = platform::MovableAlloc(flags, bytes, here);
  if (!handle) return nullptr;
  void* const address = platform::MovableLock(handle);
  if (!address) platform::MovableFree(handle);
  knownPalettes.Forget(address);
  return address;
}

static void* AllocateLocal(size_t bytes, bool zero, Here here) noexcept {
  if (HeapRefuses(here)) return nullptr;
  const size_t room = bytes ? bytes : 1;  // an empty block has an address of its own on every system
  return zero ? std::calloc(1, room) : std::malloc(room);
}

void* AllocateTracked(const MemoryRequest& request, Here here) noexcept {
  size_t bytes;
  if (!Product(request.count, request.size, bytes)) return nullptr;
  switch (request.kind) {
    case T_KIND_GLOBAL: {
      void* const address = AllocateGlobal(bytes, request.flags, here);
      if (address && request.zero) std::memset(address, 0, bytes);
      return ledger::Add(address, ledger::Kind::kGlobal, here);
    }
    case T_KIND_LOCAL:
      return ledger::Add(AllocateLocal(bytes, request.zero, here), ledger::Kind::kLocal, here);
    case T_KIND_HANDLE: {
      const uint64_t handle = platform::MovableAlloc(request.flags, bytes, here);
      return ledger::Add(reinterpret_cast<void*>(handle), ledger::Kind::kHandle, here);
    }
    default:
      ComplainOfKind(here);
      return nullptr;
  }
}

static void* ResizeGlobal(void* address, size_t bytes, uint32_t flags, Here here) noexcept {
  const uint64_t handle = platform::MovableHandle(address);
  if (!handle) return nullptr;
  knownPalettes.Forget(address);
  platform::MovableUnlock(handle);
  // One byte at least: a block of none would lose its address, and the caller its only way to name it.
  const uint64_t resized = platform::MovableRealloc(handle, bytes ? bytes : 1, flags, here);
  void* const locked = platform::MovableLock(resized ? resized : handle);
  return resized ? locked : nullptr;
}

static void* ResizeLocal(void* address, size_t bytes, bool zero, Here here) noexcept {
  if (HeapRefuses(here)) return nullptr;
  const size_t room = bytes ? bytes : 1;  // realloc of 0 bytes would free the block on some systems
  void* const resized = std::realloc(address, room);
  if (resized && zero) std::memset(resized, 0, room);
  return resized;
}

void* ResizeTracked(void* object, const MemoryRequest& request, Here here) noexcept {
  size_t bytes;
  if (!Product(request.count, request.size, bytes)) return nullptr;
  if (request.kind < T_KIND_GLOBAL || request.kind > T_KIND_HANDLE) {
    ComplainOfKind(here);
    return nullptr;
  }
  if (!object) return request.kind == T_KIND_LOCAL ? AllocateTracked(request, here) : nullptr;

  const ledger::Kind kind = static_cast<ledger::Kind>(request.kind);
  const ledger::Removed old = ledger::Take(object, kind);
  void* resized;
  switch (request.kind) {
    case T_KIND_GLOBAL:
      resized = ResizeGlobal(object, bytes, request.flags, here);
      break;
    case T_KIND_LOCAL:
      resized = ResizeLocal(object, bytes, request.zero, here);
      break;
    default:
      knownPalettes.ForgetAll();  // whatever the block's address is
      resized = reinterpret_cast<void*>(
          platform::MovableRealloc(reinterpret_cast<uintptr_t>(object), bytes, request.flags, here));
  }
  if (!resized) {
    ledger::PutBack(old);
    return nullptr;
  }
  return ledger::Add(resized, kind, here);
}

int32_t ReleaseTracked(uint32_t kind, void* object, Here here) noexcept {
  if (kind < T_KIND_GLOBAL || kind > T_KIND_HANDLE) {
    ComplainOfKind(here);
    return 1;
  }
  if (!object) return 1;
  ledger::Remove(object, static_cast<ledger::Kind>(kind), here);
  switch (kind) {
    case T_KIND_GLOBAL:
      knownPalettes.Forget(object);
      if (const uint64_t handle = platform::MovableHandle(object)) {
        platform::MovableUnlock(handle);
        platform::MovableFree(handle);
      }
      break;
    case T_KIND_LOCAL:
      std::free(object);
      break;
    default:
      knownPalettes.ForgetAll();
      platform::MovableFree(reinterpret_cast<uintptr_t>(object));
  }
  return 1;
}

}  // namespace tarn

// ---- Exports -------------------------------------------------------------------------------------------------------

using tarn::AllocateTracked;
using tarn::Here;
using tarn::ReleaseTracked;
using tarn::ResizeTracked;

static constexpr uint32_t kMovableZero = T_BLOCK_MOVABLE | T_BLOCK_ZERO;

void* T_GlobalAlloc(uint64_t count, uint64_t size, uint32_t line, const wchar_t* file) noexcept {
  return AllocateTracked({T_KIND_GLOBAL, kMovableZero, false, count, size}, {line, file});
}

void* T_GlobalAllocInit(uint64_t count, uint64_t size, uint32_t line, const wchar_t* file) noexcept {
  return AllocateTracked({T_KIND_GLOBAL, kMovableZero, true, count, size}, {line, file});
}

void* T_GlobalRealloc(void* address, uint64_t size, uint32_t line, const wchar_t* file) noexcept {
  return ResizeTracked(address, {T_KIND_GLOBAL, kMovableZero, false, 1, size}, {line, file});
}

int32_t T_GlobalFree(void* address, uint32_t line, const wchar_t* file) noexcept {
  return ReleaseTracked(T_KIND_GLOBAL, address, {line, file});
}

void* T_LocalAlloc(uint64_t count, uint64_t size, uint32_t line, const wchar_t* file) noexcept {
  return AllocateTracked({T_KIND_LOCAL, 0, false, count, size}, {line, file});
}

void* T_LocalAllocInit(uint64_t count, uint64_t size, uint32_t line, const wchar_t* file) noexcept {
  return AllocateTracked({T_KIND_LOCAL, 0, true, count, size}, {line, file});
}

void* T_LocalRealloc(void* address, uint64_t size, uint32_t line, const wchar_t* file) noexcept {
  return ResizeTracked(address, {T_KIND_LOCAL, 0, false, 1, size}, {line, file});
}

// Deliberate: callers rely on the whole block being cleared, not only on the part that was added.
void* T_LocalReallocInit(void* address, uint64_t size, uint32_t line, const wchar_t* file) noexcept {
  return ResizeTracked(address, {T_KIND_LOCAL, 0, true, 1, size}, {line, file});
}

int32_t T_LocalFree(void* address, uint32_t line, const wchar_t* file) noexcept {
  return ReleaseTracked(T_KIND_LOCAL, address, {line, file});
}

uint64_t T_OsAllocHandle(uint32_t flags, uint64_t size, uint32_t line, const wchar_t* file) noexcept {
  return reinterpret_cast<uintptr_t>(AllocateTracked({T_KIND_HANDLE, flags, false, 1, size}, {line, file}));
}

uint64_t T_OsAllocHandleInit(uint32_t, uint64_t size, uint32_t line, const wchar_t* file) noexcept {
  return T_OsAllocHandle(kMovableZero, size, line, file);
}

uint64_t T_OsReallocHandle(uint64_t handle, uint64_t size, uint32_t flags, uint32_t line,
                           const wchar_t* file) noexcept {
  return reinterpret_cast<uintptr_t>(
      ResizeTracked(reinterpret_cast<void*>(handle), {T_KIND_HANDLE, flags, false, 1, size}, {line, file}));
}

uint64_t T_OsFreeHandle(uint64_t handle, uint32_t line, const wchar_t* file) noexcept {
  ReleaseTracked(T_KIND_HANDLE, reinterpret_cast<void*>(handle), {line, file});
  return 0;
}

void* T_OsLockHandle(uint64_t handle, uint32_t, const wchar_t*) noexcept {
  return handle ? tarn::platform::MovableLock(handle) : nullptr;
}

void T_OsUnlockHandle(uint64_t handle, uint32_t, const wchar_t*) noexcept {
  if (handle) tarn::platform::MovableUnlock(handle);
}

void T_ResourceAdd(const void*, uint32_t, uint32_t, const wchar_t*) noexcept {}
void T_ResourceRemove(const void*, uint32_t, uint32_t, const wchar_t*) noexcept {}
void T_ResourceLeakDetect(uint32_t) noexcept {}
void T_ResourceLeakReport(uint32_t) noexcept {}

// A count of 0 is let through with null pointers, which the standard functions leave undefined.

void* T_MemoryCopy(void* target, const void* source, size_t bytes) noexcept {
  return bytes ? std::memcpy(target, source, bytes) : target;
}

void* T_MemoryMove(void* target, const void* source, size_t bytes) noexcept {
  return bytes ? std::memmove(target, source, bytes) : target;
}

void* T_MemorySet(void* target, int value, size_t bytes) noexcept {
  return bytes ? std::memset(target, value, bytes) : target;
}

int T_MemoryCompare(const void* a, const void* b, size_t bytes) noexcept {
  return bytes ? std::memcmp(a, b, bytes) : 0;
}

int T_MemoryCompareI(const void* a, const void* b, size_t bytes) noexcept {
  const auto lower = [](unsigned char c) { return c >= 'A' && c <= 'Z' ? c + ('a' - 'A') : int{c}; };
  const unsigned char* const first = static_cast<const unsigned char*>(a);
  const unsigned char* const second = static_cast<const unsigned char*>(b);
  for (size_t i = 0; i < bytes; ++i)
    if (const int difference = lower(first[i]) - lower(second[i])) return difference;
  return 0;
}

void* T_MemoryChr(const void* block, int value, size_t bytes) noexcept {
  return bytes ? const_cast<void*>(std::memchr(block, value, bytes)) : nullptr;
}
