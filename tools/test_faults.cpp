// Preloaded under the tool by its tests: makes system calls and allocations fail, or a signal arrive, at a chosen
// moment. Only calls of the tool's own output file count, and every allocation.
//
//   TARN_TEST_AT      number of the counted call, from 1
//   TARN_TEST_WHAT    an errno value; -N raises signal N; "short" writes half
//   TARN_TEST_MEMORY  count allocations instead of file calls; "once" or "forever" from that call on
//   TARN_TEST_NAMED   the file system has no unnamed files
//   TARN_TEST_DONE    file to create when the fault has happened

#include <dlfcn.h>
#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdlib>
#include <cstring>

namespace {

template <class F>
F Next(const char* name) {
  return reinterpret_cast<F>(dlsym(RTLD_NEXT, name));
}

long Number(const char* name) {
  const char* text = getenv(name);
  return text ? atol(text) : 0;
}

std::atomic<int> output{-1};  // descriptor of the tool's output
std::atomic<long> calls{0};

void Done() {
  const char* name = getenv("TARN_TEST_DONE");
  if (!name) return;
  const auto create = Next<int (*)(const char*, int, ...)>("open");
  const auto release = Next<int (*)(int)>("close");
  release(create(name, O_WRONLY | O_CREAT | O_CLOEXEC, 0666));
}

/// True when this call must fail; errno is set. *half: instead, move half of the bytes.
bool Fails(bool* half = nullptr) {
  if (getenv("TARN_TEST_MEMORY") || ++calls != Number("TARN_TEST_AT")) return false;
  Done();
  const char* what = getenv("TARN_TEST_WHAT");
  if (strcmp(what, "short") == 0) {
    if (half) *half = true;
    return false;
  }
  const int error = atoi(what);
  if (error < 0) {
    raise(-error);
    return false;
  }
  errno = error;
  return true;
}

#if !defined(__SANITIZE_ADDRESS__)  // its allocator must stay in charge
int (*programMain)(int, char**, char**);
bool started = false;  // before main there is nobody to report a failure

int StartCounting(int argc, char** argv, char** environment) {
  started = true;
  return programMain(argc, argv, environment);
}

bool NoMemory() {
  static const char* const mode = getenv("TARN_TEST_MEMORY");
  static const long at = Number("TARN_TEST_AT");
  if (!mode || !started) return false;
  const long call = ++calls;
  if (mode[0] == 'o' ? call != at : call < at) return false;
  if (call == at) Done();
  errno = ENOMEM;
  return true;
}
#endif

}  // namespace

extern "C" {

int openat(int directory, const char* name, int flags, ...) {
  va_list arguments;
  va_start(arguments, flags);
  const mode_t mode = (flags & (O_CREAT | O_TMPFILE)) != 0 ? va_arg(arguments, mode_t) : 0;
  va_end(arguments);
  const bool made = (flags & O_RDWR) != 0;
  if (made && (flags & O_TMPFILE) == O_TMPFILE && getenv("TARN_TEST_NAMED")) {
    errno = EOPNOTSUPP;
    return -1;
  }
  if (made && Fails()) return -1;
  const int file = Next<int (*)(int, const char*, int, ...)>("openat")(directory, name, flags, mode);
  if (made) output = file;
  return file;
}

ssize_t pwrite(int file, const void* source, size_t bytes, off_t offset) {
  bool half = false;
  if (file == output && Fails(&half)) return -1;
  return Next<ssize_t (*)(int, const void*, size_t, off_t)>("pwrite")(file, source, half ? (bytes + 1) / 2 : bytes,
                                                                      offset);
}

int fsync(int file) {
  if (file == output && Fails()) return -1;
  return Next<int (*)(int)>("fsync")(file);
}

int linkat(int from, const char* name, int to, const char* entry, int flags) {
  if (Fails()) return -1;
  return Next<int (*)(int, const char*, int, const char*, int)>("linkat")(from, name, to, entry, flags);
}

int renameat(int from, const char* name, int to, const char* entry) {
  if (Fails()) return -1;
  return Next<int (*)(int, const char*, int, const char*)>("renameat")(from, name, to, entry);
}

int close(int file) {
  const bool fails = file == output && file >= 0 && Fails();
  const int error = errno;
  if (file == output) output = -1;
  const int result = Next<int (*)(int)>("close")(file);
  if (!fails) return result;
  errno = error;
  return -1;
}

#if !defined(__SANITIZE_ADDRESS__)
void* __libc_malloc(size_t bytes);
void* __libc_calloc(size_t count, size_t bytes);
void* __libc_realloc(void* block, size_t bytes);

int __libc_start_main(int (*main)(int, char**, char**), int argc, char** argv, void (*init)(), void (*fini)(),
                      void (*unload)(), void* stack) {
  programMain = main;
  return Next<decltype(&__libc_start_main)>("__libc_start_main")(StartCounting, argc, argv, init, fini, unload, stack);
}

void* malloc(size_t bytes) { return NoMemory() ? nullptr : __libc_malloc(bytes); }
void* calloc(size_t count, size_t bytes) { return NoMemory() ? nullptr : __libc_calloc(count, bytes); }
void* realloc(void* block, size_t bytes) { return NoMemory() ? nullptr : __libc_realloc(block, bytes); }
#endif

}  // extern "C"
