// Start and stop, threads, errors and libraries.

#include <dlfcn.h>
#include <elf.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <sched.h>
#include <sys/stat.h>
#include <time.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <cwchar>

#include "Platform/PosixShared.h"

namespace tarn::platform {

// ---- Start and stop ------------------------------------------------------------------------------------------------

namespace {

[[gnu::constructor]] void Load() noexcept {
  // Deliberate: the system cannot refuse a load here. After a failed start the process-wide settings serve every
  // thread.
  (void)LibraryAttach();
}

[[gnu::destructor]] void Unload() noexcept {
  LibraryDetach();
  ForgetDoomedNames();
}

}  // namespace

// ---- Threads -------------------------------------------------------------------------------------------------------

namespace {

pthread_key_t key;
constinit std::atomic<bool> keyMade{false};

void ThreadEnds(void* value) noexcept { LibraryThreadDetach(value); }

}  // namespace

bool TlsCreate() noexcept {
  if (keyMade.load(std::memory_order_acquire)) return true;
  const int error = pthread_key_create(&key, ThreadEnds);
  if (error) {
    errno = error;
    return false;
  }
  keyMade.store(true, std::memory_order_release);
  return true;
}

// A key left behind would call into the unloaded library when a thread ends.
void TlsDestroy() noexcept {
  if (keyMade.exchange(false)) pthread_key_delete(key);
}

void* TlsGet() noexcept { return keyMade.load(std::memory_order_acquire) ? pthread_getspecific(key) : nullptr; }

bool TlsSet(void* value) noexcept {
  const int error = keyMade.load(std::memory_order_acquire) ? pthread_setspecific(key, value) : EINVAL;
  if (error) errno = error;
  return error == 0;
}

void CriticalSection::Enter() noexcept {
  static_assert(sizeof(pthread_mutex_t) <= sizeof state_ && alignof(pthread_mutex_t) <= 16);
  pthread_mutex_lock(reinterpret_cast<pthread_mutex_t*>(state_));
}

void CriticalSection::Leave() noexcept { pthread_mutex_unlock(reinterpret_cast<pthread_mutex_t*>(state_)); }

void SleepMilliseconds(uint32_t milliseconds) noexcept {
  const KeepErrno keep;
  timespec rest{static_cast<time_t>(milliseconds / 1000), static_cast<long>(milliseconds % 1000) * 1000000};
  while (nanosleep(&rest, &rest) == -1 && errno == EINTR) {
  }
}

void YieldThread() noexcept { sched_yield(); }

// ---- Errors and messages -------------------------------------------------------------------------------------------

void SetSystemError(SystemError error) noexcept {
  switch (error) {
    case SystemError::kFileExists:
      errno = EEXIST;
      break;
    case SystemError::kReadFault:
    case SystemError::kWriteFault:
      errno = EIO;
      break;
    case SystemError::kNoMemory:
      errno = ENOMEM;
      break;
    case SystemError::kInvalid:
      errno = EINVAL;
      break;
  }
}

void SetDiskFull() noexcept { errno = ENOSPC; }

bool LastErrorIsDiskFull() noexcept { return errno == ENOSPC || errno == EDQUOT; }

namespace {

/// Collects one line for standard error and hands it over in one piece as far as it fits.
class ErrorLine {
 public:
  void Append(const wchar_t* text) noexcept {
    for (; text && *text; ++text) {
      if (used_ + 5 > sizeof bytes_) Flush();
      // A line stays one line.
      const bool control = static_cast<uint32_t>(*text) < 0x20 || *text == 0x7F;
      used_ += EncodeUtf8(control ? L' ' : *text, bytes_ + used_);
    }
  }
  void End() noexcept {
    bytes_[used_++] = '\n';
    Flush();
  }

 private:
  void Flush() noexcept {
    for (size_t done = 0; done < used_;) {
      const ssize_t moved =
          Repeat(fault::Answer::kPass, [&] { return write(STDERR_FILENO, bytes_ + done, used_ - done); });
      if (moved <= 0) break;
      done += static_cast<size_t>(moved);
    }
    used_ = 0;
  }

  size_t used_ = 0;
  char bytes_[4096];
};

}  // namespace

void ShowMessage(const wchar_t* text, const wchar_t* caption) noexcept {
  const KeepErrno keep;
  ErrorLine line;
  if (caption && *caption) {
    line.Append(caption);
    line.Append(L": ");
  }
  line.Append(text);
  line.End();
}

// ---- Libraries loaded at run time ----------------------------------------------------------------------------------

namespace {

/// All of `bytes` bytes at an offset.
bool ReadAt(int file, void* target, size_t bytes, uint64_t offset) noexcept {
  return Repeat(fault::Answer::kPass, [&] { return pread(file, target, bytes, static_cast<off_t>(offset)); }) ==
         static_cast<ssize_t>(bytes);
}

/// Whether what the headers of an ELF file announce lies inside it. The system's loader maps a library without looking
/// at its length and is killed by what is not there.
bool IsWhole(int file) noexcept {
  struct stat facts;
  ElfW(Ehdr) header;
  if (fstat(file, &facts) != 0 || !S_ISREG(facts.st_mode) || !ReadAt(file, &header, sizeof header, 0)) return false;
  ElfW(Phdr) segment;
  if (std::memcmp(header.e_ident, ELFMAG, SELFMAG) != 0 || header.e_phentsize != sizeof segment) return false;
  const auto size = static_cast<uint64_t>(facts.st_size);
  const auto inside = [size](uint64_t offset, uint64_t bytes) { return offset <= size && bytes <= size - offset; };
  if (!inside(header.e_shoff, uint64_t{header.e_shnum} * header.e_shentsize)) return false;
  for (uint32_t i = 0; i < header.e_phnum; ++i) {
    if (!ReadAt(file, &segment, sizeof segment, header.e_phoff + i * sizeof segment)) return false;
    if (!inside(segment.p_offset, segment.p_filesz)) return false;
  }
  return true;
}

}  // namespace

void* ModuleOpen(const wchar_t* path) noexcept {
  const Utf8Name name(path);
  if (!name || !*name.c_str()) {
    errno = EINVAL;
    return nullptr;
  }
  if (const int file = open(name.c_str(), O_RDONLY | O_CLOEXEC); file != -1) {  // else the loader will say why
    const bool whole = IsWhole(file);
    close(file);
    if (!whole) {
      errno = ENOEXEC;
      return nullptr;
    }
  }
  errno = 0;
  void* module = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (!module && errno == 0) errno = ENOENT;
  return module;
}

void* ModuleSymbol(void* module, const char* name) noexcept {
  void* symbol = module && name ? dlsym(module, name) : nullptr;
  if (!symbol) errno = EINVAL;
  return symbol;
}

void ModuleClose(void* module) noexcept {
  if (module) dlclose(module);
}

namespace {

/// The file mapped at an address, from the list of mappings; false when it is not there.
bool MappedFile(uintptr_t address, char* path, size_t room) noexcept {
  const int list = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  if (list == -1) return false;
  char line[kPathBytes + 128];
  size_t held = 0;
  bool found = false;
  for (;;) {
    const ssize_t got = Repeat(fault::Answer::kPass, [&] { return read(list, line + held, sizeof line - 1 - held); });
    if (got <= 0) break;
    held += static_cast<size_t>(got);
    line[held] = 0;
    char* start = line;
    for (char* end;
         !found && (end = static_cast<char*>(std::memchr(start, '\n', static_cast<size_t>(line + held - start))));
         start = end + 1) {
      *end = 0;
      char* next = nullptr;
      const uint64_t low = std::strtoull(start, &next, 16);
      const uint64_t high = *next == '-' ? std::strtoull(next + 1, &next, 16) : 0;
      if (address < low || address >= high) continue;
      const char* file = std::strchr(next, '/');
      if (!file || std::strlen(file) >= room) break;
      std::strcpy(path, file);
      found = true;
    }
    if (found) break;
    held = static_cast<size_t>(line + held - start);
    if (held == sizeof line - 1) held = 0;  // longer than any path: cannot be ours
    std::memmove(line, start, held);
  }
  close(list);
  return found;
}

}  // namespace

bool OwnDirectory(wchar_t* path, uint32_t room) noexcept {
  char file[kPathBytes];
  const void* here = reinterpret_cast<const void*>(&OwnDirectory);
  Dl_info info{};
  link_map* map = nullptr;
  // A relative name was meant for the directory of the day it was loaded.
  if (dladdr1(here, &info, reinterpret_cast<void**>(&map), RTLD_DL_LINKMAP) && map && map->l_name[0] == '/' &&
      std::strlen(map->l_name) < sizeof file)
    std::strcpy(file, map->l_name);
  else if (!MappedFile(reinterpret_cast<uintptr_t>(here), file, sizeof file)) {
    errno = ENOENT;
    return false;
  }
  std::strrchr(file, '/')[1] = 0;
  return FromUtf8(file, path, room);
}

}  // namespace tarn::platform
