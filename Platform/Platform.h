#pragma once
// The system as the library sees it: one interface, Posix.cpp and Windows.cpp behind it. No pixel, no record and no
// tracked memory here. Failing calls leave the system's last error set. Every call that makes something asks a fault
// gate first (Platform/Fault.h).

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "Platform/Here.h"

namespace tarn::platform {

// ---- Start and stop ------------------------------------------------------------------------------------------------
// Provided by Common/Library.cpp, called by the platform's load and unload notifications.

bool LibraryAttach() noexcept;  // false: the load is refused where the system can refuse one
void LibraryDetach() noexcept;
void LibraryThreadDetach(void* threadValue) noexcept;  // the value of TlsSet in the thread that ends, never null

// ---- Threads -------------------------------------------------------------------------------------------------------

/// One value per thread; LibraryThreadDetach runs for every thread that ends with a value set.
bool TlsCreate() noexcept;
void TlsDestroy() noexcept;
void* TlsGet() noexcept;  // null before TlsCreate too
bool TlsSet(void* value) noexcept;

/// Mutual exclusion, not recursive. Usable from static initialisation on: an instance of static storage needs no call.
class CriticalSection {
 public:
  constexpr CriticalSection() noexcept = default;
  CriticalSection(const CriticalSection&) = delete;
  CriticalSection& operator=(const CriticalSection&) = delete;
  void Enter() noexcept;
  void Leave() noexcept;

 private:
  alignas(16) unsigned char state_[64] = {};  // a zeroed pthread_mutex_t or SRWLOCK
};

/// The same for a few instructions at a time: entering is one atomic exchange and leaving a plain store, which takes a
/// third of the time of the system's own lock. Whoever finds it taken looks again and soon sleeps between the looks.
class BriefSection {
 public:
  constexpr BriefSection() noexcept = default;
  BriefSection(const BriefSection&) = delete;
  BriefSection& operator=(const BriefSection&) = delete;
  void Enter() noexcept {
    if (taken_.exchange(true, std::memory_order_acquire)) [[unlikely]]
      EnterTaken();
  }
  void Leave() noexcept { taken_.store(false, std::memory_order_release); }

 private:
  void EnterTaken() noexcept;
  std::atomic<bool> taken_{false};
};

template <class Section>
class Guard {
 public:
  explicit Guard(Section& section) noexcept : section_(section) { section_.Enter(); }
  ~Guard() { section_.Leave(); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  Section& section_;
};

void SleepMilliseconds(uint32_t milliseconds) noexcept;
void YieldThread() noexcept;

/// An atomic counter: whoever raises it to 1 holds the lock, the others step back and try again.
class SpinLock {
 public:
  constexpr explicit SpinLock(bool sleeps) noexcept : sleeps_(sleeps) {}
  void Acquire() noexcept;
  void Release() noexcept { counter_.fetch_sub(1, std::memory_order_release); }

 private:
  std::atomic<int32_t> counter_{0};
  bool sleeps_;  // waits 1 ms between tries instead of yielding
};

// ---- Errors and messages -------------------------------------------------------------------------------------------

/// Portable names of the errors that callers set or ask for; GetLastError codes on Windows, errno on Linux.
enum class SystemError { kFileExists, kReadFault, kWriteFault, kNoMemory, kInvalid };
void SetSystemError(SystemError error) noexcept;
bool LastErrorIsDiskFull() noexcept;

/// A message box where there is a window station, else a line on standard error.
void ShowMessage(const wchar_t* text, const wchar_t* caption) noexcept;

// ---- Figures -------------------------------------------------------------------------------------------------------

struct MemoryFigures {
  uint64_t totalPhysical;
  uint64_t availablePhysical;
  uint64_t totalPageFile;
  uint64_t availablePageFile;
};
/// Bytes. Linux: cgroup limits respected; cached for 100 ms unless `wanted` exceeds an eighth of what was available.
MemoryFigures Memory(uint64_t wanted) noexcept;

/// Handles (open descriptors) of this process and the most that it should use. False: cannot be known.
bool HandleCount(uint32_t& count, uint32_t& limit) noexcept;

uint32_t AllocationGranularity() noexcept;  // of view offsets; at least 1
bool DiskFree(const wchar_t* directory, uint64_t& bytes) noexcept;

/// Usable bytes of a heap block from malloc, calloc or realloc.
size_t HeapBlockSize(const void* block) noexcept;

// ---- Movable blocks ------------------------------------------------------------------------------------------------
// GlobalAlloc and companions. flags: 2 movable, 64 zero-filled; a fixed block's handle is its address.

uint64_t MovableAlloc(uint32_t flags, uint64_t bytes, Here here) noexcept;                     // 0 on failure
uint64_t MovableRealloc(uint64_t handle, uint64_t bytes, uint32_t flags, Here here) noexcept;  // 0: old block stays
void MovableFree(uint64_t handle) noexcept;
void* MovableLock(uint64_t handle) noexcept;  // null: unknown handle or empty block
void MovableUnlock(uint64_t handle) noexcept;
uint64_t MovableHandle(const void* address) noexcept;  // of a block's locked address; 0 when unknown
uint64_t MovableSize(uint64_t handle) noexcept;

// ---- Memory blocks and sections ------------------------------------------------------------------------------------

/// A zero-filled block of memory mapped whole: page-file-backed section or anonymous mapping. section is never 0.
struct Block {
  uint64_t section = 0;
  uint8_t* view = nullptr;  // aligned to 64 bytes or more
};
bool BlockCreate(uint64_t bytes, Block& block, Here here) noexcept;
void BlockRelease(const Block& block, uint64_t bytes) noexcept;  // bytes as created

/// A section of which parts are viewed. 0 on failure. Anonymous, or over the first `bytes` bytes of an open file, which
/// must exist and be reserved (FileReserve) and stay open.
uint64_t SectionCreate(uint64_t bytes, Here here) noexcept;
uint64_t SectionOnFile(int64_t file, uint64_t bytes, Here here) noexcept;
void SectionClose(uint64_t section) noexcept;
/// offset: a multiple of AllocationGranularity. Writes go to the section. Null on failure.
uint8_t* ViewMap(uint64_t section, uint64_t offset, uint64_t bytes, Here here) noexcept;
void ViewUnmap(uint8_t* view, uint64_t bytes) noexcept;

// ---- Files ---------------------------------------------------------------------------------------------------------

constexpr int64_t kNoFile = -1;
enum : uint32_t { kRead = 1, kWrite = 2 };            // access
enum : uint32_t { kShareRead = 1, kShareWrite = 2 };  // sharing; Linux does not enforce it
enum class Disposition { kOpenExisting, kTruncateExisting, kCreateAlways, kOpenOrCreate };
enum : uint32_t { kReadOnly = 1, kHidden = 2, kSystem = 4, kDeleteOnClose = 8, kNormal = 16 };  // attributes

int64_t FileOpen(const wchar_t* name, uint32_t access, uint32_t share, Disposition disposition, uint32_t attributes,
                 Here here) noexcept;
int64_t FileRead(int64_t file, void* buffer, uint32_t bytes, Here here) noexcept;         // bytes, 0 at the end, or -1
int64_t FileWrite(int64_t file, const void* buffer, uint32_t bytes, Here here) noexcept;  // bytes, fewer if full; or -1
int64_t FileSeek(int64_t file, int64_t offset, int32_t origin, Here here) noexcept;       // new position, or -1
bool FileSetSize(int64_t file, int64_t bytes, Here here) noexcept;  // keeps the position where the system allows
bool FileCutHere(int64_t file, Here here) noexcept;                 // truncates at the position
/// Makes the file at least `bytes` long with its disk space reserved, new bytes zero; the position is undefined
/// afterwards. False, with the last error set, when the disk is full.
bool FileReserve(int64_t file, uint64_t bytes, Here here) noexcept;
bool FileClose(int64_t file, Here here) noexcept;  // a refusing gate still closes
bool FileDelete(const wchar_t* name) noexcept;
/// Whether the name leads to this open file, by whatever path or link. False when either cannot be looked at.
bool FileIsNamed(int64_t file, const wchar_t* name) noexcept;

/// A new private file for reading and writing that vanishes when it is closed or the process dies, by whatever way.
/// Linux: never visible under a name, mode 0600.
int64_t FileTemporary(const wchar_t* directory, Here here) noexcept;
/// Creates a new empty file with an unguessable name. False: not created, last error set.
bool FileTemporaryName(const wchar_t* directory, wchar_t* name, uint32_t room, Here here) noexcept;

/// The system's directory for temporary files; the directory's text as the system gives it.
bool TemporaryPath(wchar_t* path, uint32_t room) noexcept;
bool IsDirectory(const wchar_t* path) noexcept;

// ---- Logical palettes ----------------------------------------------------------------------------------------------
// GDI's palette objects; on Linux objects of the library's own that count and answer alike. A handle that names no
// palette has size 0 and holds nothing.

struct LogicalColor {
  uint8_t red, green, blue, flags;
};
constexpr uint32_t kMostLogicalColors = 256;
void* PaletteCreate(const LogicalColor* entries, uint32_t count, Here here) noexcept;  // count 1..256; null on failure
bool PaletteDelete(void* palette) noexcept;
uint32_t PaletteSize(void* palette) noexcept;
/// Entries moved: min(first + count, size) - first, 0 when first is not below the size.
uint32_t PaletteGet(void* palette, uint32_t first, uint32_t count, LogicalColor* entries) noexcept;
uint32_t PaletteSet(void* palette, uint32_t first, uint32_t count, const LogicalColor* entries) noexcept;
/// The first entry at the smallest sum of squared differences from red | green << 8 | blue << 16.
uint32_t PaletteNearest(void* palette, uint32_t color) noexcept;
/// The screen's palette; 0 when it has none, which is always so on Linux.
uint32_t ScreenPalette(LogicalColor (&entries)[kMostLogicalColors], Here here) noexcept;

// ---- Narrow text ---------------------------------------------------------------------------------------------------
// UTF-8 on Linux, the active code page on Windows.

/// Characters, with the terminator, that certainly hold the converted text; 0 for null.
size_t WideRoom(const char* text) noexcept;
size_t NarrowRoom(const wchar_t* text) noexcept;
/// Strict; false, with the last error set, when the text is ill-formed, cannot be expressed, or does not fit.
bool NarrowToWide(const char* text, wchar_t* target, size_t room) noexcept;
bool WideToNarrow(const wchar_t* text, char* target, size_t room) noexcept;

// ---- Libraries loaded at run time ----------------------------------------------------------------------------------

/// Null with the last error set, for a library that was cut off too.
void* ModuleOpen(const wchar_t* path) noexcept;
void* ModuleSymbol(void* module, const char* name) noexcept;
void ModuleClose(void* module) noexcept;
/// Whether a file name leads somewhere without the current folder, and whether it names a folder at all.
bool IsFullPath(const wchar_t* path) noexcept;
bool HasFolder(const wchar_t* path) noexcept;
/// Directory of the library that contains this code, with a trailing separator.
bool OwnDirectory(wchar_t* path, uint32_t room) noexcept;

// ---- What is held, for tests and reports ---------------------------------------------------------------------------

struct Counters {
  int64_t blockBytes;  // of BlockCreate
  int64_t blocks;
  int64_t viewBytes;  // of ViewMap
  int64_t views;
  int64_t sections;  // of SectionCreate and SectionOnFile
  int64_t movableBlocks;
  int64_t files;     // open through this layer
  int64_t palettes;  // of PaletteCreate; on Windows only GDI knows
};
Counters Held() noexcept;

}  // namespace tarn::platform
