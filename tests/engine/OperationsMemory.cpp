// Tracked memory and huge memory.

#include <cstring>

#include "Platform/Fault.h"
#include "Platform/Here.h"
#include "engine/Operations.h"

namespace tarn::engine {
namespace {

constexpr uint32_t kBytes = 100;

/// What an allocating function does; its block is released by `release`.
Operation Allocate(const char* name, void* (*allocate)(Here here), void (*release)(void* block, Here here)) {
  return {.name = name,
          .depths = DepthBit(1),
          .failures = {ERR_NO_MEMORY},
          .call = [allocate](Work& w) -> int64_t {
            w.block = allocate(TARN_HERE);
            return w.block ? SUCCESS : ERR_NO_MEMORY;
          },
          .finish = [release](Work& w) { release(w.block, TARN_HERE); }};
}

/// What a resizing function does to a block of kBytes: it keeps its bytes, also when there is no memory.
Operation Resize(const char* name, void* (*allocate)(Here here), void* (*resize)(void* block, Here here),
                 void (*release)(void* block, Here here)) {
  Operation row = Allocate(name, allocate, release);
  row.prepare = [allocate](Work& w) {
    w.block = allocate(TARN_HERE);
    std::memset(w.block, 0x5A, kBytes);
  };
  row.call = [resize](Work& w) -> int64_t {
    void* const resized = resize(w.block, TARN_HERE);
    if (!resized) return ERR_NO_MEMORY;
    w.block = resized;
    const auto* const start = static_cast<const uint8_t*>(resized);
    w.buffer.assign(start, start + kBytes);
    return SUCCESS;
  };
  row.afterFailure = [](Work& w) -> std::string {
    const Bytes bytes(kBytes, 0x5A);
    return std::memcmp(w.block, bytes.data(), kBytes) == 0 ? "" : "the old block changed; ";
  };
  return row;
}

void FreeLocal(void* block, Here here) { T_LocalFree(block, here.line, here.file); }
void FreeGlobal(void* block, Here here) { T_GlobalFree(block, here.line, here.file); }
void* LocalBlock(Here here) { return T_LocalAlloc(kBytes, 1, here.line, here.file); }
void* GlobalBlock(Here here) { return T_GlobalAlloc(kBytes, 1, here.line, here.file); }

// ---- Movable blocks by handle ----

Operation AllocateHandle(const char* name, uint64_t (*allocate)(Here here)) {
  return {.name = name,
          .depths = DepthBit(1),
          .failures = {ERR_NO_MEMORY},
          .call = [allocate](Work& w) -> int64_t {
            w.handle = allocate(TARN_HERE);
            return w.handle ? SUCCESS : ERR_NO_MEMORY;
          },
          .finish =
              [](Work& w) {
                const Here here = TARN_HERE;
                T_OsFreeHandle(w.handle, here.line, here.file);
              }};
}

// ---- Huge memory ----

constexpr uint32_t kHugeBytes = 400000;  // several views, whatever the system's granularity

T_HugeMemory* HugeOf(const Work& w) { return static_cast<T_HugeMemory*>(w.block); }

/// Clears a block, writes here and there and reads all of it back.
int64_t UseHuge(T_HugeMemory* huge, Bytes& buffer) {
  buffer.assign(kHugeBytes, 0xCC);
  int32_t status = T_ZeroHugeMemory(huge, 0, kHugeBytes);
  for (const uint32_t offset : {0u, kHugeBytes - 10, 200000u, 65530u}) {
    void* address = nullptr;
    if (status == SUCCESS) status = T_AccessHugeMemory(huge, &address, offset, 10);
    if (status == SUCCESS) std::memset(address, static_cast<int>(offset % 251), 10);
  }
  for (uint32_t offset = kHugeBytes; status == SUCCESS && offset > 0; offset -= 50000) {
    void* address = nullptr;
    status = T_AccessHugeMemory(huge, &address, offset - 50000, 50000);
    if (status == SUCCESS) std::memcpy(buffer.data() + offset - 50000, address, 50000);
  }
  return status;
}

/// A block that lies in a section; `refused` further attempts at memory are refused while it is made.
void MakeMapped(Work& w, uint64_t refused) {
  fault::Arm({.first = 2, .last = 1 + refused, .points = Mask(fault::Point::kMemory) | Mask(fault::Point::kSection)});
  w.block = T_AllocHugeMemory(kHugeBytes);
  fault::Disarm();
  w.Later([&w] { T_FreeHugeMemory(HugeOf(w)); });
}

Operation UseMapped(const char* name, uint64_t refused) {
  return {.name = name,
          .depths = DepthBit(1),
          .failures = {ERR_NO_MEMORY},
          .leaves = kFewerViews,
          .alone = true,
          .prepare = [refused](Work& w) { MakeMapped(w, refused); },
          .call = [](Work& w) { return UseHuge(HugeOf(w), w.buffer); }};
}

}  // namespace

void AddMemoryOperations(std::vector<Operation>& table) {
  table.push_back(Allocate("T_LocalAlloc", LocalBlock, FreeLocal));
  table.push_back(Allocate(
      "T_LocalAllocInit", [](Here here) { return T_LocalAllocInit(kBytes, 1, here.line, here.file); }, FreeLocal));
  table.push_back(Allocate("T_GlobalAlloc", GlobalBlock, FreeGlobal));
  table.push_back(Allocate(
      "T_GlobalAllocInit", [](Here here) { return T_GlobalAllocInit(kBytes, 1, here.line, here.file); }, FreeGlobal));
  table.push_back(Resize(
      "T_LocalRealloc", LocalBlock,
      [](void* block, Here here) { return T_LocalRealloc(block, 3 * kBytes, here.line, here.file); }, FreeLocal));
  table.push_back(Resize(
      "T_LocalReallocInit", LocalBlock,
      [](void* block, Here here) { return T_LocalReallocInit(block, 3 * kBytes, here.line, here.file); }, FreeLocal));
  table.push_back(Resize(
      "T_GlobalRealloc", GlobalBlock,
      [](void* block, Here here) { return T_GlobalRealloc(block, 3 * kBytes, here.line, here.file); }, FreeGlobal));

  table.push_back(AllocateHandle(
      "T_OsAllocHandle", [](Here here) { return T_OsAllocHandle(T_BLOCK_MOVABLE, kBytes, here.line, here.file); }));
  table.push_back(AllocateHandle("T_OsAllocHandleInit",
                                 [](Here here) { return T_OsAllocHandleInit(0, kBytes, here.line, here.file); }));
  Operation resized = AllocateHandle("T_OsReallocHandle", nullptr);
  resized.prepare = [](Work& w) {
    const Here here = TARN_HERE;
    w.handle = T_OsAllocHandle(T_BLOCK_MOVABLE | T_BLOCK_ZERO, kBytes, here.line, here.file);
  };
  resized.call = [](Work& w) -> int64_t {
    const Here here = TARN_HERE;
    const uint64_t handle =
        T_OsReallocHandle(w.handle, 5 * kBytes, T_BLOCK_MOVABLE | T_BLOCK_ZERO, here.line, here.file);
    if (!handle) return ERR_NO_MEMORY;
    w.handle = handle;
    return SUCCESS;
  };
  table.push_back(resized);

  table.push_back(
      {.name = "T_AllocHugeMemory", .depths = DepthBit(1), .failures = {ERR_NO_MEMORY}, .call = [](Work& w) -> int64_t {
         T_HugeMemory* const huge = T_AllocHugeMemory(kHugeBytes);
         if (!huge) return ERR_NO_MEMORY;
         const int64_t status = UseHuge(huge, w.buffer);
         T_FreeHugeMemory(huge);
         return status;
       }});
  table.push_back(UseMapped("T_AccessHugeMemory, section", 1));
  table.push_back(UseMapped("T_AccessHugeMemory, swap file", 2));
  // Nobody hears of a close that fails; the rest is released nevertheless.
  table.push_back({.name = "T_FreeHugeMemory, swap file",
                   .depths = DepthBit(1),
                   .alone = true,
                   .prepare = [](Work& w) { MakeMapped(w, 2); },
                   .call = [](Work& w) -> int64_t {
                     T_FreeHugeMemory(HugeOf(w));
                     w.block = nullptr;
                     return SUCCESS;
                   }});
}

}  // namespace tarn::engine
