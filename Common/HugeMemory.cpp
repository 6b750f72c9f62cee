// Huge memory: plain memory when the heap has it, else a section seen through one view at a time.

#include <algorithm>
#include <cstring>

#include "Common/Internal/Ledger.h"
#include "Common/Internal/Settings.h"
#include "Common/Internal/Status.h"
#include "Platform/Platform.h"
#include "tarn/huge.h"
#include "tarn/memory.h"

namespace tarn {
namespace {

void Unmap(T_HugeMemory& block) noexcept {
  if (!block.Address) return;
  platform::ViewUnmap(static_cast<uint8_t*>(block.Address), block.ViewLength);
  block.Address = nullptr;
  block.ViewLength = 0;
}

/// Tries a view of viewLength bytes, then of half as many, down to `needed` bytes. Both are counted from the block's
/// ViewStart and lie inside the block.
Status MapShrinking(T_HugeMemory& block, uint32_t viewLength, uint32_t needed) noexcept {
  for (;;) {
    viewLength = std::max(viewLength, needed);
    block.Address = platform::ViewMap(block.Section, block.ViewStart, viewLength, TARN_HERE);
    if (block.Address) {
      block.ViewLength = viewLength;
      return SUCCESS;
    }
    if (viewLength <= needed) return ERR_NO_MEMORY;
    viewLength /= 2;
  }
}

bool Holds(const T_HugeMemory& block, uint64_t offset, uint64_t length) noexcept {
  return block.Address && block.ViewStart <= offset && offset + length <= uint64_t{block.ViewStart} + block.ViewLength;
}

/// Address of a range of a mapped block.
Status Reach(T_HugeMemory& block, uint64_t offset, uint64_t length, uint8_t*& address) noexcept {
  if (offset + length > block.Size) return ERR_INVALID_PARAMETER;
  if (!Holds(block, offset, length)) {
    Unmap(block);
    const uint64_t first = std::min<uint64_t>(offset, block.Size - 1);  // an empty range may lie at the very end
    const uint64_t end = std::max(offset + length, first + 1);
    block.ViewStart = static_cast<uint32_t>(first - first % block.Granularity);
    TARN_TRY(MapShrinking(block, block.Size - block.ViewStart, static_cast<uint32_t>(end - block.ViewStart)));
  }
  address = static_cast<uint8_t*>(block.Address) + (offset - block.ViewStart);
  return SUCCESS;
}

/// The section behind the block, of the page file or of a temporary file.
bool MakeSection(T_HugeMemory& block, uint32_t size) noexcept {
  const Here here = TARN_HERE;
  block.Section = platform::SectionCreate(size, here);
  if (!block.Section) {
    block.SwapFile = platform::FileTemporary(ThreadSettings().tempDirectory, here);
    if (block.SwapFile == platform::kNoFile) return false;
    ledger::AddSystem(block.SwapFile, here);
    if (!platform::FileReserve(block.SwapFile, size, here)) return false;
    block.Section = platform::SectionOnFile(block.SwapFile, size, here);
    if (!block.Section) return false;
  }
  ledger::AddSystem(static_cast<int64_t>(block.Section), here);
  return true;
}

void Release(T_HugeMemory* block) noexcept {
  const Here here = TARN_HERE;
  if (block->Mapped) {
    Unmap(*block);
    if (block->Section) {
      ledger::RemoveSystem(static_cast<int64_t>(block->Section), here);
      platform::SectionClose(block->Section);
    }
    if (block->SwapFile != platform::kNoFile) {
      ledger::RemoveSystem(block->SwapFile, here);
      platform::FileClose(block->SwapFile, here);
    }
  } else {
    T_LocalFree(block->Address, here.line, here.file);
  }
  T_LocalFree(block, here.line, here.file);
}

}  // namespace
}  // namespace tarn

T_HugeMemory* T_AllocHugeMemory(uint32_t size) noexcept {
  const tarn::Here here = TARN_HERE;
  T_HugeMemory* const block = static_cast<T_HugeMemory*>(T_LocalAllocInit(1, sizeof *block, here.line, here.file));
  if (!block) return nullptr;
  block->Size = size;
  block->SwapFile = tarn::platform::kNoFile;
  block->Granularity = std::max(tarn::platform::AllocationGranularity(), uint32_t{1});
  block->Address = T_LocalAlloc(1, size, here.line, here.file);
  if (block->Address) return block;
  block->Mapped = 1;
  if (size > 0 && tarn::MakeSection(*block, size)) {
    const uint32_t first = std::min(block->Granularity, size);
    if (tarn::MapShrinking(*block, first, first).Ok()) return block;
  }
  tarn::Release(block);
  return nullptr;
}

int32_t T_AccessHugeMemory(T_HugeMemory* block, void** address, uint32_t offset, uint32_t length) noexcept {
  if (!block) return ERR_NULL_POINTER;
  if (!address) return ERR_INVALID_PARAMETER;
  if (!block->Mapped) {
    *address = static_cast<uint8_t*>(block->Address) + offset;
    return SUCCESS;
  }
  uint8_t* reached;
  TARN_TRY(tarn::Reach(*block, offset, length, reached));
  *address = reached;
  return SUCCESS;
}

int32_t T_ZeroHugeMemory(T_HugeMemory* block, uint32_t offset, uint32_t length) noexcept {
  if (!block) return ERR_NULL_POINTER;
  if (!block->Mapped) {
    // Deliberate: callers clear a plain block from its start, with offset 0.
    std::memset(block->Address, static_cast<uint8_t>(offset), length);
    return SUCCESS;
  }
  const uint64_t end = uint64_t{offset} + length;
  for (uint64_t at = offset; at < end;) {
    uint8_t* reached;
    TARN_TRY(tarn::Reach(*block, at, 1, reached));
    const uint64_t count = std::min<uint64_t>(block->ViewStart + uint64_t{block->ViewLength}, end) - at;
    std::memset(reached, 0, count);
    at += count;
  }
  return SUCCESS;
}

void T_FreeHugeMemory(T_HugeMemory* block) noexcept {
  if (block) tarn::Release(block);
}
