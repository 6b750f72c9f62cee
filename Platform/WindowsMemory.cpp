// Figures, movable blocks, blocks, sections and views.

#include <malloc.h>

#include "Platform/WindowsShared.h"

namespace tarn::platform {

// ---- Figures -------------------------------------------------------------------------------------------------------

MemoryFigures Memory(uint64_t) noexcept {
  const KeepLastError keep;
  MEMORYSTATUSEX status{};
  status.dwLength = sizeof status;
  if (!GlobalMemoryStatusEx(&status)) return {};
  return {status.ullTotalPhys, status.ullAvailPhys, status.ullTotalPageFile, status.ullAvailPageFile};
}

bool HandleCount(uint32_t& count, uint32_t& limit) noexcept {
  const KeepLastError keep;
  using Counter = BOOL(WINAPI*)(HANDLE, PDWORD);
  const HMODULE kernel = GetModuleHandleW(L"kernel32");
  const auto counter =
      kernel ? reinterpret_cast<Counter>(reinterpret_cast<void*>(GetProcAddress(kernel, "GetProcessHandleCount")))
             : nullptr;
  DWORD handles = 0;
  if (!counter || !counter(GetCurrentProcess(), &handles)) return false;
  count = handles;
  limit = 20000;
  return true;
}

uint32_t AllocationGranularity() noexcept {
  SYSTEM_INFO info{};
  GetSystemInfo(&info);
  return info.dwAllocationGranularity ? info.dwAllocationGranularity : 1;
}

bool DiskFree(const wchar_t* directory, uint64_t& bytes) noexcept {
  ULARGE_INTEGER free{};
  if (!directory) {
    SetSystemError(SystemError::kInvalid);
    return false;
  }
  if (!GetDiskFreeSpaceExW(directory, &free, nullptr, nullptr)) return false;
  bytes = free.QuadPart;
  return true;
}

size_t HeapBlockSize(const void* block) noexcept { return block ? _msize(const_cast<void*>(block)) : 0; }

// ---- Movable blocks ------------------------------------------------------------------------------------------------

uint64_t MovableAlloc(uint32_t flags, uint64_t bytes, Here here) noexcept {
  if (MemoryRefused(fault::Point::kMemory, here)) return 0;
  const HGLOBAL block = GlobalAlloc(flags, bytes);
  if (block) Add(counts.movableBlocks, 1);
  return reinterpret_cast<uintptr_t>(block);
}

uint64_t MovableRealloc(uint64_t handle, uint64_t bytes, uint32_t flags, Here here) noexcept {
  if (MemoryRefused(fault::Point::kMemory, here)) return 0;
  return reinterpret_cast<uintptr_t>(GlobalReAlloc(HandleOf(handle), bytes, flags));
}

void MovableFree(uint64_t handle) noexcept {
  if (handle && !GlobalFree(HandleOf(handle))) Add(counts.movableBlocks, -1);
}

void* MovableLock(uint64_t handle) noexcept { return handle ? GlobalLock(HandleOf(handle)) : nullptr; }

void MovableUnlock(uint64_t handle) noexcept {
  const KeepLastError keep;  // the last unlock of a block sets it
  if (handle) GlobalUnlock(HandleOf(handle));
}

uint64_t MovableHandle(const void* address) noexcept {
  return address ? reinterpret_cast<uintptr_t>(GlobalHandle(address)) : 0;
}

uint64_t MovableSize(uint64_t handle) noexcept { return handle ? GlobalSize(HandleOf(handle)) : 0; }

// ---- Blocks, sections and views ------------------------------------------------------------------------------------

namespace {

HANDLE MakeSection(HANDLE file, uint64_t bytes) noexcept {
  return CreateFileMappingW(file, nullptr, PAGE_READWRITE, HighHalf(bytes), LowHalf(bytes), nullptr);
}

}  // namespace

bool BlockCreate(uint64_t bytes, Block& block, Here here) noexcept {
  if (MemoryRefused(fault::Point::kBlock, here)) return false;
  const HANDLE section = MakeSection(INVALID_HANDLE_VALUE, bytes ? bytes : 1);
  if (!section) return false;
  void* view = MapViewOfFile(section, FILE_MAP_WRITE, 0, 0, 0);
  if (!view) {
    const KeepLastError keep;
    CloseHandle(section);
    return false;
  }
  block = {reinterpret_cast<uintptr_t>(section), static_cast<uint8_t*>(view)};
  Add(counts.blocks, 1);
  Add(counts.blockBytes, static_cast<int64_t>(bytes));
  return true;
}

void BlockRelease(const Block& block, uint64_t bytes) noexcept {
  if (!block.view) return;
  const KeepLastError keep;
  UnmapViewOfFile(block.view);
  CloseHandle(HandleOf(block.section));
  Add(counts.blocks, -1);
  Add(counts.blockBytes, -static_cast<int64_t>(bytes));
}

uint64_t SectionCreate(uint64_t bytes, Here here) noexcept {
  if (MemoryRefused(fault::Point::kSection, here)) return 0;
  const HANDLE section = MakeSection(INVALID_HANDLE_VALUE, bytes);
  if (section) Add(counts.sections, 1);
  return reinterpret_cast<uintptr_t>(section);
}

uint64_t SectionOnFile(int64_t file, uint64_t bytes, Here here) noexcept {
  if (MemoryRefused(fault::Point::kSection, here)) return 0;
  LARGE_INTEGER size{};
  if (!GetFileSizeEx(HandleOf(file), &size)) return 0;
  // The system would take 0 for the whole file, and lengthen a short one without reserving it.
  if (bytes == 0 || bytes > static_cast<uint64_t>(size.QuadPart)) {
    SetSystemError(SystemError::kInvalid);
    return 0;
  }
  const HANDLE section = MakeSection(HandleOf(file), bytes);
  if (section) Add(counts.sections, 1);
  return reinterpret_cast<uintptr_t>(section);
}

void SectionClose(uint64_t section) noexcept {
  if (section == 0) return;
  const KeepLastError keep;
  CloseHandle(HandleOf(section));
  Add(counts.sections, -1);
}

uint8_t* ViewMap(uint64_t section, uint64_t offset, uint64_t bytes, Here here) noexcept {
  if (MemoryRefused(fault::Point::kView, here)) return nullptr;
  if (bytes == 0) {  // the system would map all of it
    SetSystemError(SystemError::kInvalid);
    return nullptr;
  }
  void* view = MapViewOfFile(HandleOf(section), FILE_MAP_WRITE, HighHalf(offset), LowHalf(offset), bytes);
  if (!view) return nullptr;
  Add(counts.views, 1);
  Add(counts.viewBytes, static_cast<int64_t>(bytes));
  return static_cast<uint8_t*>(view);
}

void ViewUnmap(uint8_t* view, uint64_t bytes) noexcept {
  if (!view) return;
  const KeepLastError keep;
  UnmapViewOfFile(view);
  Add(counts.views, -1);
  Add(counts.viewBytes, -static_cast<int64_t>(bytes));
}

}  // namespace tarn::platform
