// Figures, blocks, sections and views.

#include <fcntl.h>
#include <malloc.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <sys/syscall.h>
#include <sys/sysinfo.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "Platform/PosixShared.h"

namespace tarn::platform {

// ---- Memory figures ------------------------------------------------------------------------------------------------

int64_t ReadSmallFile(const char* path, char* target, size_t room) noexcept {
  const int file = Repeat(fault::Answer::kPass, [&] { return open(path, O_RDONLY | O_CLOEXEC); });
  if (file == -1) return -1;
  size_t held = 0;
  ssize_t got = 0;
  while (held < room - 1) {
    got = Repeat(fault::Answer::kPass, [&] { return read(file, target + held, room - 1 - held); });
    if (got <= 0) break;
    held += static_cast<size_t>(got);
  }
  close(file);
  target[held] = 0;
  return got < 0 ? -1 : static_cast<int64_t>(held);
}

namespace {

constexpr uint64_t kNoLimit = ~uint64_t{};
constexpr size_t kSmallFile = 8192;

/// The number behind a word at the start of a line.
bool NumberAfter(const char* text, const char* word, uint64_t& value) noexcept {
  const size_t length = std::strlen(word);
  for (const char* line = text; line; line = std::strchr(line, '\n')) {
    if (*line == '\n') ++line;
    if (std::strncmp(line, word, length) != 0) continue;
    char* end = nullptr;
    value = std::strtoull(line + length, &end, 10);
    return end != line + length;
  }
  return false;
}

/// A file that holds one number, or "max".
uint64_t NumberIn(const char* directory, const char* name) noexcept {
  char path[kPathBytes];
  char text[64];
  const int length = std::snprintf(path, sizeof path, "%s/%s", directory, name);
  uint64_t value = kNoLimit;
  if (length < 0 || static_cast<size_t>(length) >= sizeof path) return kNoLimit;
  return ReadSmallFile(path, text, sizeof text) > 0 && NumberAfter(text, "", value) ? value : kNoLimit;
}

/// File names of one version of the control groups.
struct GroupFiles {
  const char* limit;
  const char* usage;
  const char* reclaimable;  // a word of memory.stat
  const char* swapLimit;    // null: not counted apart
  const char* swapUsage;
};
constexpr GroupFiles kVersion1 = {"memory.limit_in_bytes", "memory.usage_in_bytes", "total_inactive_file ", nullptr,
                                  nullptr};
constexpr GroupFiles kVersion2 = {"memory.max", "memory.current", "inactive_file ", "memory.swap.max",
                                  "memory.swap.current"};

uint64_t Below(uint64_t limit, uint64_t usage) noexcept {
  return usage == kNoLimit ? limit : limit > usage ? limit - usage : 0;
}

/// Lowers the figures to what one group leaves. Cached file pages count as usage but give way.
void LimitByGroup(const char* directory, const GroupFiles& files, MemoryFigures& figures) noexcept {
  const uint64_t limit = NumberIn(directory, files.limit);
  if (limit < figures.totalPhysical) {
    figures.totalPhysical = limit;
    uint64_t available = Below(limit, NumberIn(directory, files.usage));
    char path[kPathBytes];
    char text[kSmallFile];
    uint64_t reclaimable = 0;
    const int length = std::snprintf(path, sizeof path, "%s/memory.stat", directory);
    if (length > 0 && static_cast<size_t>(length) < sizeof path && ReadSmallFile(path, text, sizeof text) > 0 &&
        NumberAfter(text, files.reclaimable, reclaimable))
      available += std::min(reclaimable, limit - available);
    figures.availablePhysical = std::min(figures.availablePhysical, available);
  }
  if (!files.swapLimit) return;
  const uint64_t swapLimit = NumberIn(directory, files.swapLimit);
  if (swapLimit < figures.totalPageFile) {
    figures.totalPageFile = swapLimit;
    figures.availablePageFile =
        std::min(figures.availablePageFile, Below(swapLimit, NumberIn(directory, files.swapUsage)));
  }
}

/// A group and its ancestors; inside a container the path may lead above what is mounted, levels that are not there
/// set no limit.
void LimitByGroups(const char* mount, const char* group, const GroupFiles& files, MemoryFigures& figures) noexcept {
  char directory[kPathBytes];
  const int length = std::snprintf(directory, sizeof directory, "%s%s", mount, group);
  if (length < 0 || static_cast<size_t>(length) >= sizeof directory) return;
  const size_t shortest = std::strlen(mount);
  for (;;) {
    LimitByGroup(directory, files, figures);
    char* slash = std::strrchr(directory, '/');
    if (!slash || static_cast<size_t>(slash - directory) < shortest) return;
    *slash = 0;
  }
}

/// Lines "number:controllers:path"; version 2 has number 0 and no controllers.
void LimitByOwnGroups(const char* root, MemoryFigures& figures) noexcept {
  char path[kPathBytes];
  char mount[kPathBytes];
  char text[kSmallFile];
  std::snprintf(path, sizeof path, "%s/proc/self/cgroup", root);
  if (ReadSmallFile(path, text, sizeof text) <= 0) return;
  for (char* line = text; line && *line;) {
    char* end = std::strchr(line, '\n');
    if (end) *end++ = 0;
    char* controllers = std::strchr(line, ':');
    char* group = controllers ? std::strchr(controllers + 1, ':') : nullptr;
    if (group) {
      *controllers++ = 0;
      *group++ = 0;
      bool memory = false;
      for (const char* name = controllers; name; name = std::strchr(name, ',')) {
        if (*name == ',') ++name;
        memory |= std::strncmp(name, "memory", 6) == 0 && (name[6] == ',' || name[6] == 0);
      }
      if (memory || !*controllers) {
        std::snprintf(mount, sizeof mount, "%s/sys/fs/cgroup%s", root, memory ? "/memory" : "");
        LimitByGroups(mount, group, memory ? kVersion1 : kVersion2, figures);
      }
    }
    line = end;
  }
}

}  // namespace

MemoryFigures MemoryBelow(const char* root) noexcept {
  MemoryFigures figures{};
  char path[kPathBytes];
  char text[kSmallFile];
  std::snprintf(path, sizeof path, "%s/proc/meminfo", root);
  if (ReadSmallFile(path, text, sizeof text) > 0 && NumberAfter(text, "MemTotal:", figures.totalPhysical)) {
    if (!NumberAfter(text, "MemAvailable:", figures.availablePhysical))
      NumberAfter(text, "MemFree:", figures.availablePhysical);
    NumberAfter(text, "SwapTotal:", figures.totalPageFile);
    NumberAfter(text, "SwapFree:", figures.availablePageFile);
    for (uint64_t* figure :
         {&figures.totalPhysical, &figures.availablePhysical, &figures.totalPageFile, &figures.availablePageFile})
      *figure *= 1024;
  } else {
    struct sysinfo info {};
    if (sysinfo(&info) == -1) return figures;
    figures = {uint64_t{info.totalram} * info.mem_unit, uint64_t{info.freeram} * info.mem_unit,
               uint64_t{info.totalswap} * info.mem_unit, uint64_t{info.freeswap} * info.mem_unit};
  }
  LimitByOwnGroups(root, figures);
  return figures;
}

namespace {

constexpr uint64_t kFiguresLastMilliseconds = 100;
constinit CriticalSection figuresSection;
MemoryFigures lastFigures;  // guarded by figuresSection
uint64_t lastTime = 0;      // milliseconds; 0: no figures yet

uint64_t Milliseconds() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}

}  // namespace

MemoryFigures Memory(uint64_t wanted) noexcept {
  const KeepErrno keep;
  const Guard guard(figuresSection);
  const uint64_t now = Milliseconds();
  if (lastTime == 0 || now - lastTime >= kFiguresLastMilliseconds || wanted > lastFigures.availablePhysical / 8) {
    lastFigures = MemoryBelow("");
    lastTime = std::max<uint64_t>(now, 1);
  }
  return lastFigures;
}

// ---- Other figures -------------------------------------------------------------------------------------------------

bool HandleCount(uint32_t& count, uint32_t& limit) noexcept {
  const KeepErrno keep;
  constexpr uint32_t kBudget = 20000;
  rlimit descriptors{};
  if (getrlimit(RLIMIT_NOFILE, &descriptors) == -1) return false;
  const int list = open("/proc/self/fd", O_RDONLY | O_DIRECTORY | O_CLOEXEC);
  if (list == -1) return false;
  alignas(8) char entries[8192] = {};  // the memory sanitizer does not see what the call stores
  uint32_t listed = 0;
  long got = 0;
  while ((got = syscall(SYS_getdents64, list, entries, sizeof entries)) > 0) {
    // Each entry: inode 8 bytes, offset 8 bytes, length 2 bytes, type 1 byte, name.
    for (long at = 0; at < got;) {
      uint16_t length = 0;
      std::memcpy(&length, entries + at + 16, sizeof length);
      listed += entries[at + 19] != '.';
      at += length;
    }
  }
  close(list);
  if (got < 0 || listed == 0) return false;
  count = listed - 1;  // less the list's own
  limit = static_cast<uint32_t>(std::min<uint64_t>(kBudget, descriptors.rlim_cur));
  return true;
}

uint32_t AllocationGranularity() noexcept {
  const long page = sysconf(_SC_PAGESIZE);
  return page > 0 ? static_cast<uint32_t>(page) : 1;
}

bool DiskFree(const wchar_t* directory, uint64_t& bytes) noexcept {
  const Utf8Name name(directory);
  struct statvfs figures {};
  if (!name || Repeat(fault::Answer::kPass, [&] { return statvfs(name.c_str(), &figures); }) == -1) return false;
  if (__builtin_mul_overflow(uint64_t{figures.f_bavail}, uint64_t{figures.f_frsize}, &bytes)) bytes = ~uint64_t{};
  return true;
}

size_t HeapBlockSize(const void* block) noexcept { return malloc_usable_size(const_cast<void*>(block)); }

// ---- Blocks --------------------------------------------------------------------------------------------------------

namespace {

// First touching the pages takes longer than anything else in making a block: 2 MiB in small pages cost twelve times as
// much as in one huge page, and twenty-five times as much as clearing memory that the heap still holds.
constexpr uint64_t kHeapBelow = uint64_t{1} << 20;
constexpr uint64_t kHugePage = uint64_t{2} << 20;
constexpr uint64_t kLargest = uint64_t{1} << 62;

uint64_t RoundUp(uint64_t value, uint64_t step) noexcept { return (value + step - 1) / step * step; }

/// What a block of `bytes` occupies: a last huge page is worth it from half its length on.
uint64_t MappedLength(uint64_t bytes) noexcept {
  return bytes % kHugePage >= kHugePage / 2 ? RoundUp(bytes, kHugePage) : RoundUp(bytes, AllocationGranularity());
}

uint8_t* MapAnonymous(uint64_t bytes) noexcept {
  void* view = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  return view == MAP_FAILED ? nullptr : static_cast<uint8_t*>(view);
}

/// Huge pages need an aligned block: more is mapped and trimmed.
uint8_t* MapHugePages(uint64_t length) noexcept {
  const uint64_t spare = kHugePage - AllocationGranularity();
  uint8_t* mapped = MapAnonymous(length + spare);
  if (!mapped) return MapAnonymous(length);
  const uint64_t start = reinterpret_cast<uintptr_t>(mapped);
  const uint64_t before = RoundUp(start, kHugePage) - start;
  const uint64_t after = spare - before;
  uint8_t* view = mapped + before;
  // Neither can fail: what remains is one mapping as before.
  if (before) munmap(mapped, before);
  if (after) munmap(view + length, after);
  madvise(view, length, MADV_HUGEPAGE);  // a wish; kernels without huge pages refuse it
  return view;
}

}  // namespace

bool BlockCreate(uint64_t bytes, Block& block, Here here) noexcept {
  if (MemoryRefused(fault::Point::kBlock, here)) return false;
  if (bytes > kLargest) {
    errno = ENOMEM;
    return false;
  }
  uint8_t* view = nullptr;
  if (bytes < kHeapBelow) {
    const uint64_t length = RoundUp(std::max<uint64_t>(bytes, 1), 64);
    view = static_cast<uint8_t*>(std::aligned_alloc(64, length));
    if (view) std::memset(view, 0, length);
  } else {
    view = MapHugePages(MappedLength(bytes));
  }
  if (!view) return false;
  block = {reinterpret_cast<uintptr_t>(view), view};
  Add(counts.blocks, 1);
  Add(counts.blockBytes, static_cast<int64_t>(bytes));
  return true;
}

void BlockRelease(const Block& block, uint64_t bytes) noexcept {
  if (!block.view) return;
  const KeepErrno keep;
  if (bytes < kHeapBelow)
    std::free(block.view);
  else
    munmap(block.view, MappedLength(bytes));
  Add(counts.blocks, -1);
  Add(counts.blockBytes, -static_cast<int64_t>(bytes));
}

// ---- Sections and views --------------------------------------------------------------------------------------------
// A section is its descriptor. A section over a file borrows the file's own, marked by a bit above every descriptor, so
// that it costs none.

namespace {

constexpr uint64_t kBorrowed = uint64_t{1} << 32;

int DescriptorOf(uint64_t section) noexcept { return static_cast<int>(section & 0x7FFFFFFF); }

int MemoryFile() noexcept {
#ifdef MFD_NOEXEC_SEAL
  constexpr unsigned kNotExecutable = MFD_NOEXEC_SEAL;
#else
  constexpr unsigned kNotExecutable = 8;
#endif
  int file = memfd_create("tarn", MFD_CLOEXEC | kNotExecutable);
  if (file == -1 && errno == EINVAL) file = memfd_create("tarn", MFD_CLOEXEC);  // before Linux 6.3
  return AboveStandardStreams(file);
}

}  // namespace

uint64_t SectionCreate(uint64_t bytes, Here here) noexcept {
  if (MemoryRefused(fault::Point::kSection, here)) return 0;
  // Reserving more than there is may summon the system's killer instead of an error.
  const MemoryFigures figures = Memory(bytes);
  if (bytes == 0 || bytes > figures.availablePhysical + figures.availablePageFile) {
    errno = bytes == 0 ? EINVAL : ENOMEM;
    return 0;
  }
  const int file = MemoryFile();
  if (file == -1) return 0;
  if (!Reserve(file, bytes, fault::Answer::kPass)) {
    close(file);
    errno = ENOMEM;  // it is memory that is full, whatever the file calls it
    return 0;
  }
  Add(counts.sections, 1);
  return static_cast<uint64_t>(file);
}

uint64_t SectionOnFile(int64_t file, uint64_t bytes, Here here) noexcept {
  if (MemoryRefused(fault::Point::kSection, here)) return 0;
  struct stat status {};
  if (file < 3 || file > INT32_MAX || bytes == 0) {
    errno = bytes == 0 ? EINVAL : EBADF;
    return 0;
  }
  if (fstat(static_cast<int>(file), &status) == -1) return 0;
  if (static_cast<uint64_t>(status.st_size) < bytes) {
    errno = EINVAL;
    return 0;
  }
  Add(counts.sections, 1);
  return kBorrowed | static_cast<uint64_t>(file);
}

void SectionClose(uint64_t section) noexcept {
  if (section == 0) return;
  const KeepErrno keep;
  if (!(section & kBorrowed)) close(DescriptorOf(section));
  Add(counts.sections, -1);
}

uint8_t* ViewMap(uint64_t section, uint64_t offset, uint64_t bytes, Here here) noexcept {
  if (MemoryRefused(fault::Point::kView, here)) return nullptr;
  struct stat status {};
  if (section == 0 || fstat(DescriptorOf(section), &status) == -1) {
    errno = EBADF;
    return nullptr;
  }
  // Touching a page behind the end would end the process.
  const uint64_t size = static_cast<uint64_t>(status.st_size);
  if (bytes == 0 || offset > size || bytes > size - offset) {
    errno = EINVAL;
    return nullptr;
  }
  void* view =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED, DescriptorOf(section), static_cast<off_t>(offset));
  if (view == MAP_FAILED) return nullptr;
  Add(counts.views, 1);
  Add(counts.viewBytes, static_cast<int64_t>(bytes));
  return static_cast<uint8_t*>(view);
}

void ViewUnmap(uint8_t* view, uint64_t bytes) noexcept {
  if (!view) return;
  const KeepErrno keep;
  munmap(view, bytes);
  Add(counts.views, -1);
  Add(counts.viewBytes, -static_cast<int64_t>(bytes));
}

}  // namespace tarn::platform
