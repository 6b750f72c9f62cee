#include "Platform/Platform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "PlatformSystem.h"
#include "tarn/settings.h"

#ifndef _WIN32
#include <dlfcn.h>
#include <fcntl.h>
#include <link.h>
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>

#include "Platform/PosixShared.h"
#endif

namespace tarn {

using platform::Disposition;
using platform::kDeleteOnClose;
using platform::kNoFile;
using platform::kRead;
using platform::kWrite;
using test::LastSystemError;
using test::ScratchDirectory;

namespace {

constexpr uint32_t kBoth = kRead | kWrite;
constexpr uint32_t kShareAll = platform::kShareRead | platform::kShareWrite;

int64_t Open(const std::wstring& name, uint32_t access, Disposition disposition, uint32_t attributes = 0) {
  return platform::FileOpen(name.c_str(), access, kShareAll, disposition, attributes, TARN_HERE);
}
int64_t Size(int64_t file) { return platform::FileSeek(file, 0, 2, TARN_HERE); }
std::string ReadAll(int64_t file) {
  std::string bytes(size_t(Size(file)), 0);
  platform::FileSeek(file, 0, 0, TARN_HERE);
  EXPECT_EQ(platform::FileRead(file, bytes.data(), uint32_t(bytes.size()), TARN_HERE), int64_t(bytes.size()));
  return bytes;
}
bool Write(int64_t file, const std::string& bytes) {
  return platform::FileWrite(file, bytes.data(), uint32_t(bytes.size()), TARN_HERE) == int64_t(bytes.size());
}
void Make(const std::wstring& name, const std::string& contents) {
  const int64_t file = Open(name, kWrite, Disposition::kCreateAlways);
  ASSERT_NE(file, kNoFile);
  EXPECT_TRUE(Write(file, contents));
  EXPECT_TRUE(platform::FileClose(file, TARN_HERE));
}
bool Exists(const std::wstring& name) { return std::filesystem::exists(test::AsPath(name)); }

#ifndef _WIN32
/// Runs a body in a child process; its exit status, -1 when a signal ended it.
template <class Body>
int InChild(Body body) {
  const pid_t child = fork();
  if (child == 0) _exit(body());
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}
/// Starts a child that ends by kill -9 once body has run in it.
template <class Body>
void InKilledChild(Body body) {
  const pid_t child = fork();
  if (child == 0) {
    body();
    kill(getpid(), SIGKILL);
  }
  int status = 0;
  EXPECT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}
#endif

}  // namespace

// ---- Threads and errors --------------------------------------------------------------------------------------------

TEST(PlatformThreads, LocksExcludeEachOther) {
  static platform::CriticalSection section;
  static platform::SpinLock yielding(false);
  static platform::SpinLock sleeping(true);
  int counters[3] = {};
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 5000; ++i) {
        {
          const platform::Guard guard(section);
          ++counters[0];
        }
        yielding.Acquire();
        ++counters[1];
        yielding.Release();
        if (i % 100 == 0) {
          sleeping.Acquire();
          ++counters[2];
          sleeping.Release();
        }
      }
    });
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(counters[0], 20000);
  EXPECT_EQ(counters[1], 20000);
  EXPECT_EQ(counters[2], 200);
}

TEST(PlatformThreads, ReadingTheThreadValueKeepsTheLastError) {
  test::SetLastSystemError(7);
  platform::TlsGet();
  EXPECT_EQ(LastSystemError(), 7);
  std::thread([] { EXPECT_EQ(platform::TlsGet(), nullptr) << "a new thread has no value"; }).join();
}

TEST(PlatformThreads, RestsAreWhole) {
#ifdef _WIN32
  GTEST_SKIP() << "nothing interrupts a rest there";
#else
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) {};
  ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
  const pthread_t sleeper = pthread_self();
  std::thread waker([&] {
    for (int i = 0; i < 3; ++i) {
      std::this_thread::sleep_for(std::chrono::milliseconds(8));
      pthread_kill(sleeper, SIGUSR1);
    }
  });
  const auto start = std::chrono::steady_clock::now();
  errno = 7;
  platform::SleepMilliseconds(60);
  EXPECT_EQ(errno, 7);
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(60));
  waker.join();
  sigaction(SIGUSR1, &before, nullptr);
#endif
}

TEST(PlatformErrors, MapToTheSystemsOwn) {
  struct Case {
    platform::SystemError error;
    int windows, linux;
  };
#ifndef _WIN32
  constexpr int kExists = EEXIST, kFault = EIO;
#else
  constexpr int kExists = 0, kFault = 0;
#endif
  const Case cases[] = {{platform::SystemError::kFileExists, 80, kExists},
                        {platform::SystemError::kReadFault, 30, kFault},
                        {platform::SystemError::kWriteFault, 29, kFault},
                        {platform::SystemError::kNoMemory, test::kErrorNoMemory, test::kErrorNoMemory},
                        {platform::SystemError::kInvalid, test::kErrorInvalid, test::kErrorInvalid}};
  for (const Case& c : cases) {
    platform::SetSystemError(c.error);
#ifdef _WIN32
    EXPECT_EQ(LastSystemError(), c.windows);
#else
    EXPECT_EQ(LastSystemError(), c.linux);
#endif
    EXPECT_FALSE(platform::LastErrorIsDiskFull());
  }
#ifdef _WIN32
  const int full[] = {39, 112};
#else
  const int full[] = {ENOSPC, EDQUOT};
#endif
  for (const int error : full) {
    test::SetLastSystemError(error);
    EXPECT_TRUE(platform::LastErrorIsDiskFull()) << error;
  }
}

TEST(PlatformErrors, AMessageIsOneLineOnStandardError) {
#ifdef _WIN32
  GTEST_SKIP() << "a message box waits for somebody to close it";
#else
  int pipe[2];
  ASSERT_EQ(::pipe(pipe), 0);
  const int before = dup(STDERR_FILENO);
  dup2(pipe[1], STDERR_FILENO);
  const wchar_t broken[] = {L'a', L'\n', L'b', wchar_t(0xD800), L'\u00e9', 0};
  errno = 7;
  platform::ShowMessage(broken, L"Tarn");
  platform::ShowMessage(nullptr, nullptr);
  EXPECT_EQ(errno, 7);
  dup2(before, STDERR_FILENO);
  close(before);
  close(pipe[1]);
  char text[64] = "";
  EXPECT_EQ(read(pipe[0], text, sizeof text), 14);
  close(pipe[0]);
  EXPECT_STREQ(text, "Tarn: a b?\xC3\xA9\n\n");

  // One that is longer than the room for it comes in pieces; one that nobody takes is dropped.
  const ScratchDirectory directory;
  const int again = dup(STDERR_FILENO);
  const int file = open((directory.Path() / "said").c_str(), O_RDWR | O_CREAT, 0600);
  const int full = open("/dev/full", O_WRONLY);
  dup2(file, STDERR_FILENO);
  platform::ShowMessage(std::wstring(5000, L'\x7F').c_str(), L"");
  if (full != -1) dup2(full, STDERR_FILENO);
  platform::ShowMessage(full != -1 ? L"nobody reads this" : L"", L"Tarn");
  dup2(again, STDERR_FILENO);
  for (const int descriptor : {again, full, file}) close(descriptor);
  std::ifstream said(directory.Path() / "said");
  std::string line;
  ASSERT_TRUE(std::getline(said, line));
  EXPECT_EQ(line, std::string(5000, ' '));
#endif
}

// ---- Figures -------------------------------------------------------------------------------------------------------

TEST(PlatformFigures, ArePlausible) {
  const platform::MemoryFigures memory = platform::Memory(0);
  EXPECT_GT(memory.totalPhysical, uint64_t{16} << 20);
  EXPECT_GT(memory.availablePhysical, 0u);
  EXPECT_LE(memory.availablePhysical, memory.totalPhysical);
  EXPECT_LE(memory.availablePageFile, memory.totalPageFile);
  EXPECT_EQ(65536 % platform::AllocationGranularity(), 0u);

  const ScratchDirectory directory;
  uint64_t bytes = 0;
  EXPECT_TRUE(platform::DiskFree(directory.Text().c_str(), bytes));
  EXPECT_GT(bytes, 0u);
  EXPECT_FALSE(platform::DiskFree(directory.File(L"missing").c_str(), bytes));
  EXPECT_FALSE(platform::DiskFree(nullptr, bytes));

  void* block = std::malloc(1000);
  EXPECT_GE(platform::HeapBlockSize(block), 1000u);
  std::free(block);
  EXPECT_EQ(platform::HeapBlockSize(nullptr), 0u);
}

TEST(PlatformFigures, HandlesAreCounted) {
  uint32_t before = 0, after = 0, limit = 0;
  ASSERT_TRUE(platform::HandleCount(before, limit));
  EXPECT_GT(limit, 0u);
  EXPECT_LE(limit, 20000u);
#ifndef _WIN32           // Wine does not count
  int descriptors[300];  // more than one reading of the list
  for (int& descriptor : descriptors) ASSERT_GE(descriptor = dup(STDERR_FILENO), 0);
  EXPECT_TRUE(platform::HandleCount(after, limit));
  EXPECT_EQ(after, before + 300);
  for (const int descriptor : descriptors) close(descriptor);
  EXPECT_TRUE(platform::HandleCount(after, limit));
  EXPECT_EQ(after, before);

  rlimit limits{};
  ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &limits), 0);
  const rlimit saved = limits;
  limits.rlim_cur = 128;
  ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &limits), 0);
  EXPECT_TRUE(platform::HandleCount(after, limit));
  EXPECT_EQ(limit, 128u);
  setrlimit(RLIMIT_NOFILE, &saved);
#else
  (void)after;
#endif
}

TEST(PlatformFigures, RespectControlGroups) {
#ifdef _WIN32
  GTEST_SKIP() << "there are none";
#else
  const char* const meminfo =
      "MemTotal:       1000 kB\nMemFree:         300 kB\nMemAvailable:    800 kB\nSwapCached:        9 kB\n"
      "SwapTotal:       500 kB\nSwapFree:        400 kB\n";
  struct File {
    const char* name;
    const char* text;
  };
  struct Case {
    const char* name;
    std::vector<File> files;
    platform::MemoryFigures expected;  // bytes
  };
  const uint64_t k = 1024;
  const Case cases[] = {
      {"no groups", {}, {1000 * k, 800 * k, 500 * k, 400 * k}},
      {"no limit",
       {{"proc/self/cgroup", "0::/a\n"}, {"sys/fs/cgroup/a/memory.max", "max\n"}},
       {1000 * k, 800 * k, 500 * k, 400 * k}},
      {"version 2",
       {{"proc/self/cgroup", "0::/a/b\n"},
        {"sys/fs/cgroup/a/b/memory.max", "614400\n"},
        {"sys/fs/cgroup/a/b/memory.current", "409600\n"}},
       {600 * k, 200 * k, 500 * k, 400 * k}},
      {"version 2, cached pages give way",
       {{"proc/self/cgroup", "0::/a\n"},
        {"sys/fs/cgroup/a/memory.max", "614400\n"},
        {"sys/fs/cgroup/a/memory.current", "409600\n"},
        {"sys/fs/cgroup/a/memory.stat", "anon 1\nactive_file 7\ninactive_file 102400\n"}},
       {600 * k, 300 * k, 500 * k, 400 * k}},
      {"version 2, the parent is tighter, swap too",
       {{"proc/self/cgroup", "0::/a/b\n"},
        {"sys/fs/cgroup/a/b/memory.max", "614400\n"},
        {"sys/fs/cgroup/a/b/memory.current", "102400\n"},
        {"sys/fs/cgroup/a/memory.max", "512000\n"},
        {"sys/fs/cgroup/a/memory.current", "409600\n"},
        {"sys/fs/cgroup/a/memory.swap.max", "102400\n"},
        {"sys/fs/cgroup/a/memory.swap.current", "51200\n"}},
       {500 * k, 100 * k, 100 * k, 50 * k}},
      {"version 2, own group mounted as the root",
       {{"proc/self/cgroup", "0::/above/what/is/seen\n"},
        {"sys/fs/cgroup/memory.max", "307200\n"},
        {"sys/fs/cgroup/memory.current", "307300\n"}},
       {300 * k, 0, 500 * k, 400 * k}},
      {"version 2, a limit above the machine",
       {{"proc/self/cgroup", "0::/a\n"},
        {"sys/fs/cgroup/a/memory.max", "10240000\n"},
        {"sys/fs/cgroup/a/memory.current", "10240000\n"}},
       {1000 * k, 800 * k, 500 * k, 400 * k}},
      {"version 1",
       {{"proc/self/cgroup", "9:cpu,cpuacct:/x\n5:memory:/y\n0::/z\n"},
        {"sys/fs/cgroup/memory/y/memory.limit_in_bytes", "614400\n"},
        {"sys/fs/cgroup/memory/y/memory.usage_in_bytes", "512000\n"},
        {"sys/fs/cgroup/memory/y/memory.stat", "cache 3\ninactive_file 9\ntotal_inactive_file 51200\n"}},
       {600 * k, 150 * k, 500 * k, 400 * k}},
      {"lines of other kinds, the last without an end",
       {{"proc/self/cgroup", "nothing\n\n7:memory\n6:memoryless,memo:/q\n5:cpu,memory,io:/y"},
        {"sys/fs/cgroup/memory/q/memory.limit_in_bytes", "1024\n"},
        {"sys/fs/cgroup/memory/y/memory.limit_in_bytes", "614400\n"},
        {"sys/fs/cgroup/memory/y/memory.stat", "cache 3\n"}},
       {600 * k, 600 * k, 500 * k, 400 * k}},
      {"limits that are no numbers, and none",
       {{"proc/self/cgroup", "0::/a/b\n"},
        {"sys/fs/cgroup/a/b/memory.max", "few\n"},
        {"sys/fs/cgroup/a/memory.max", ""}},
       {1000 * k, 800 * k, 500 * k, 400 * k}},
      {"an older kernel", {{"proc/meminfo", "MemFree: 300 kB\nMemTotal: 1000 kB\n"}}, {1000 * k, 300 * k, 0, 0}},
  };
  const auto put = [](const ScratchDirectory& root, const char* name, const std::string& text) {
    std::filesystem::create_directories((root.Path() / name).parent_path());
    std::ofstream(root.Path() / name) << text;
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const ScratchDirectory root;
    put(root, "proc/meminfo", meminfo);
    for (const File& file : c.files) put(root, file.name, file.text);
    const platform::MemoryFigures figures = platform::MemoryBelow(root.Path().c_str());
    EXPECT_EQ(figures.totalPhysical, c.expected.totalPhysical);
    EXPECT_EQ(figures.availablePhysical, c.expected.availablePhysical);
    EXPECT_EQ(figures.totalPageFile, c.expected.totalPageFile);
    EXPECT_EQ(figures.availablePageFile, c.expected.availablePageFile);
  }
  // Groups whose names are longer than any path set no limit; without a list of figures the system is asked.
  const ScratchDirectory root;
  put(root, "proc/meminfo", meminfo);
  const size_t fits = platform::kPathBytes - root.Path().string().size() - std::strlen("/sys/fs/cgroup") - 1;
  for (const size_t length : {fits - 5, fits + 5, size_t{9000}}) {
    put(root, "proc/self/cgroup", "0::/" + std::string(length - 1, 'a') + "\n");
    EXPECT_EQ(platform::MemoryBelow(root.Path().c_str()).totalPhysical, 1000 * k) << length;
  }
  for (const char* text : {"", "MemTotal:\n", "Buffers: 5 kB\n"}) {
    put(root, "proc/meminfo", text);
    EXPECT_GT(platform::MemoryBelow(root.Path().c_str()).totalPhysical, uint64_t{16} << 20);
  }
#endif
}

// ---- Movable blocks ------------------------------------------------------------------------------------------------

TEST(PlatformMovable, LocksResizesAndFindsItsHandle) {
  const int64_t before = platform::Held().movableBlocks;
  const uint64_t handle = platform::MovableAlloc(2 | 64, 100, TARN_HERE);
  ASSERT_NE(handle, 0u);
  EXPECT_EQ(platform::MovableSize(handle), 100u);
  auto* bytes = static_cast<uint8_t*>(platform::MovableLock(handle));
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(std::count(bytes, bytes + 100, 0), 100);
  EXPECT_EQ(platform::MovableLock(handle), bytes) << "locks count";
  EXPECT_EQ(platform::MovableHandle(bytes), handle);
  std::memset(bytes, 7, 100);
  EXPECT_EQ(platform::MovableRealloc(handle, 1 << 20, 64, TARN_HERE), 0u) << "locked, and may not move";
  EXPECT_EQ(platform::MovableHandle(bytes), handle);
  platform::MovableUnlock(handle);
  platform::MovableUnlock(handle);

  EXPECT_EQ(platform::MovableRealloc(handle, 1 << 20, 2 | 64, TARN_HERE), handle);
  bytes = static_cast<uint8_t*>(platform::MovableLock(handle));
  EXPECT_EQ(std::count(bytes, bytes + 100, 7), 100) << "kept";
  EXPECT_EQ(std::count(bytes + 100, bytes + (1 << 20), 0), (1 << 20) - 100) << "added bytes are zero";
  EXPECT_EQ(platform::MovableHandle(bytes), handle);
  // A locked block may move when the caller says so.
  EXPECT_EQ(platform::MovableRealloc(handle, 8 << 20, 2 | 64, TARN_HERE), handle);
  bytes = static_cast<uint8_t*>(platform::MovableLock(handle));
  EXPECT_EQ(platform::MovableHandle(bytes), handle);
  EXPECT_EQ(bytes[99], 7);
  EXPECT_EQ(platform::MovableRealloc(handle, ~uint64_t{} / 4, 2 | 64, TARN_HERE), 0u);
  EXPECT_EQ(platform::MovableSize(handle), uint64_t{8} << 20) << "the old block stays";
  EXPECT_EQ(bytes[99], 7);
  platform::MovableFree(handle);
  EXPECT_EQ(platform::MovableAlloc(2, ~uint64_t{} / 4, TARN_HERE), 0u);
  EXPECT_EQ(platform::Held().movableBlocks, before);
}

TEST(PlatformMovable, FixedAndEmptyBlocks) {
  const int64_t before = platform::Held().movableBlocks;
  const uint64_t fixed = platform::MovableAlloc(64, 100, TARN_HERE);
  auto* bytes = static_cast<uint8_t*>(platform::MovableLock(fixed));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes), fixed) << "its handle is its address";
  EXPECT_EQ(platform::MovableHandle(bytes), fixed);
  EXPECT_EQ(std::count(bytes, bytes + 100, 0), 100);
  bytes[99] = 5;
  platform::MovableUnlock(fixed);
  const uint64_t moved = platform::MovableRealloc(fixed, 1 << 20, 2 | 64, TARN_HERE);
  ASSERT_NE(moved, 0u);
  EXPECT_EQ(platform::MovableSize(moved), uint64_t{1} << 20);
  bytes = static_cast<uint8_t*>(platform::MovableLock(moved));
  EXPECT_EQ(platform::MovableHandle(bytes), moved);
  EXPECT_EQ(bytes[99], 5);
  EXPECT_EQ(bytes[100], 0);
  platform::MovableFree(moved);

  const uint64_t empty = platform::MovableAlloc(2 | 64, 0, TARN_HERE);
  ASSERT_NE(empty, 0u);
  EXPECT_EQ(platform::MovableLock(empty), nullptr);
  EXPECT_EQ(platform::MovableSize(empty), 0u);
  EXPECT_EQ(platform::MovableRealloc(empty, 10, 2 | 64, TARN_HERE), empty);
  bytes = static_cast<uint8_t*>(platform::MovableLock(empty));
  ASSERT_NE(bytes, nullptr);
  EXPECT_EQ(std::count(bytes, bytes + 10, 0), 10);
  platform::MovableUnlock(empty);
  EXPECT_EQ(platform::MovableRealloc(empty, 0, 2 | 64, TARN_HERE), empty);
  EXPECT_EQ(platform::MovableLock(empty), nullptr);
  platform::MovableFree(empty);
#ifndef _WIN32
  const uint64_t small = platform::MovableAlloc(64, 0, TARN_HERE);  // fixed: it has an address all the same
  bytes = static_cast<uint8_t*>(platform::MovableLock(small));
  EXPECT_EQ(reinterpret_cast<uintptr_t>(bytes), small);
  EXPECT_EQ(platform::MovableRealloc(small, 1 << 20, 64, TARN_HERE), 0u) << "may not move";
  EXPECT_EQ(platform::MovableRealloc(small, 1, 64, TARN_HERE), small) << "has room";
  EXPECT_EQ(platform::MovableRealloc(small, 0, 0, TARN_HERE), small);
  const uint64_t elsewhere = platform::MovableRealloc(small, 0, 2, TARN_HERE);  // its handle is its address
  ASSERT_NE(elsewhere, 0u);
  EXPECT_EQ(platform::MovableHandle(platform::MovableLock(elsewhere)), elsewhere);
  platform::MovableFree(elsewhere);
  const uint64_t held = platform::MovableAlloc(2, 10, TARN_HERE);
  bytes = static_cast<uint8_t*>(platform::MovableLock(held));
  EXPECT_EQ(platform::MovableRealloc(held, 0, 2, TARN_HERE), 0u) << "a locked block keeps its address";
  EXPECT_EQ(platform::MovableHandle(bytes), held);
  platform::MovableUnlock(held);
  EXPECT_EQ(platform::MovableRealloc(held, 20, 0, TARN_HERE), held) << "one that nobody holds moves";
  platform::MovableFree(held);
#endif
  EXPECT_EQ(platform::Held().movableBlocks, before);
}

TEST(PlatformMovable, UnknownHandlesTouchNothing) {
  EXPECT_EQ(platform::MovableLock(0), nullptr);
  EXPECT_EQ(platform::MovableHandle(nullptr), 0u);
  EXPECT_EQ(platform::MovableSize(0), 0u);
  platform::MovableFree(0);
  platform::MovableUnlock(0);
  int local = 5;
  EXPECT_EQ(platform::MovableHandle(&local), 0u);
#ifndef _WIN32  // the system's own calls follow some of these
  const int64_t before = platform::Held().movableBlocks;
  const uint64_t freed = platform::MovableAlloc(2, 10, TARN_HERE);
  const auto inside = reinterpret_cast<uintptr_t>(platform::MovableLock(freed)) + 1;
  for (const uint64_t handle : {uint64_t{inside}, uint64_t{reinterpret_cast<uintptr_t>(&local)}, uint64_t{12345}}) {
    EXPECT_EQ(platform::MovableLock(handle), nullptr);
    EXPECT_EQ(platform::MovableRealloc(handle, 100, 66, TARN_HERE), 0u);
    EXPECT_EQ(platform::MovableSize(handle), 0u);
    platform::MovableUnlock(handle);
    platform::MovableFree(handle);
  }
  EXPECT_EQ(platform::Held().movableBlocks, before + 1);
  platform::MovableFree(freed);
  platform::MovableFree(freed);
  EXPECT_EQ(platform::MovableLock(freed), nullptr);
  EXPECT_EQ(platform::MovableHandle(reinterpret_cast<void*>(inside - 1)), 0u);
  EXPECT_EQ(platform::Held().movableBlocks, before);
#endif
}

TEST(PlatformMovable, AgreesWithAModel) {
  struct Model {
    size_t bytes;
    uint8_t fill;
  };
  std::map<uint64_t, Model> blocks;
  std::mt19937 random(20);
  const int64_t before = platform::Held().movableBlocks;
  const auto check = [&](uint64_t handle, const Model& model) {
    auto* bytes = static_cast<uint8_t*>(platform::MovableLock(handle));
    ASSERT_NE(bytes, nullptr);
    EXPECT_EQ(platform::MovableHandle(bytes), handle);
    EXPECT_EQ(std::count(bytes, bytes + model.bytes, model.fill), std::ptrdiff_t(model.bytes));
    platform::MovableUnlock(handle);
  };
  for (int step = 0; step < 6000; ++step) {
    const uint32_t choice = random() % 4;
    if (choice < 2 || blocks.empty()) {
      const Model model{1 + random() % 300, uint8_t(random())};
      const uint64_t handle = platform::MovableAlloc(random() % 2 ? 2 : 0, model.bytes, TARN_HERE);
      ASSERT_TRUE(handle != 0 && !blocks.count(handle));
      std::memset(platform::MovableLock(handle), model.fill, model.bytes);
      platform::MovableUnlock(handle);
      blocks[handle] = model;
      continue;
    }
    auto it =
        blocks.lower_bound(blocks.begin()->first + random() % (blocks.rbegin()->first - blocks.begin()->first + 1));
    const auto [handle, model] = *it;
    check(handle, model);
    blocks.erase(it);
    if (choice == 2) {
      platform::MovableFree(handle);
      continue;
    }
    const size_t bytes = 1 + random() % 3000;
    const uint64_t resized = platform::MovableRealloc(handle, bytes, 2, TARN_HERE);
    ASSERT_TRUE(resized != 0 && !blocks.count(resized));
    check(resized, {std::min(bytes, model.bytes), model.fill});
    std::memset(platform::MovableLock(resized), model.fill, bytes);
    platform::MovableUnlock(resized);
    blocks[resized] = {bytes, model.fill};
  }
  EXPECT_EQ(platform::Held().movableBlocks, before + int64_t(blocks.size()));
  for (const auto& [handle, model] : blocks) {
    check(handle, model);
    platform::MovableFree(handle);
  }
  EXPECT_EQ(platform::Held().movableBlocks, before);
}

// ---- Blocks and sections -------------------------------------------------------------------------------------------

TEST(PlatformBlocks, AreZeroAlignedAndGoAway) {
  const platform::Counters before = platform::Held();
  const uint64_t huge = uint64_t{2} << 20;
  for (const uint64_t bytes : {uint64_t{1}, uint64_t{63}, uint64_t{65537}, huge / 2 - 1, huge / 2, huge / 2 + 1,
                               huge - 1, huge, huge + 1, huge * 3 / 2 - 1, huge * 3 / 2, 5 * huge + 4097}) {
    for (int again = 0; again < 2; ++again) {  // memory that was used before is zero too
      SCOPED_TRACE(bytes);
      platform::Block block;
      ASSERT_TRUE(platform::BlockCreate(bytes, block, TARN_HERE));
      EXPECT_NE(block.section, 0u);
      EXPECT_EQ(reinterpret_cast<uintptr_t>(block.view) % 64, 0u);
      EXPECT_EQ(std::count(block.view, block.view + bytes, 0), std::ptrdiff_t(bytes));
      std::memset(block.view, 0xA5, bytes);
      EXPECT_EQ(platform::Held().blockBytes, before.blockBytes + int64_t(bytes));
      EXPECT_EQ(platform::Held().blocks, before.blocks + 1);
#ifndef _WIN32
      EXPECT_TRUE(bytes < huge / 2 || reinterpret_cast<uintptr_t>(block.view) % huge == 0);
#endif
      platform::BlockRelease({block.section, block.view}, bytes);
#ifndef _WIN32
      if (bytes >= huge / 2) {
        for (const uint64_t at : {uint64_t{0}, (bytes - 1) / 4096 * 4096}) {
          EXPECT_EQ(msync(block.view + at, 4096, MS_ASYNC), -1) << "still mapped at " << at;
        }
      }
#endif
    }
  }
  EXPECT_EQ(platform::Held().blockBytes, before.blockBytes);
  EXPECT_EQ(platform::Held().blocks, before.blocks);

  platform::Block block;
  EXPECT_FALSE(platform::BlockCreate(uint64_t{1} << 60, block, TARN_HERE));
  EXPECT_FALSE(platform::BlockCreate(~uint64_t{}, block, TARN_HERE));
  EXPECT_EQ(block.view, nullptr);
  platform::BlockRelease(block, 1);
  EXPECT_EQ(platform::Held().blocks, before.blocks);
}

TEST(PlatformSections, ViewsShareTheSection) {
  const platform::Counters before = platform::Held();
  const uint64_t step = platform::AllocationGranularity();
  const uint64_t bytes = 3 * step + 100;
  const uint64_t section = platform::SectionCreate(bytes, TARN_HERE);
  ASSERT_NE(section, 0u);
  uint8_t* whole = platform::ViewMap(section, 0, bytes, TARN_HERE);
  uint8_t* part = platform::ViewMap(section, 2 * step, step + 100, TARN_HERE);
  ASSERT_TRUE(whole && part);
  EXPECT_EQ(std::count(whole, whole + bytes, 0), std::ptrdiff_t(bytes));
  whole[2 * step + 5] = 11;
  EXPECT_EQ(part[5], 11);
  part[step + 99] = 12;
  platform::ViewUnmap(part, step + 100);
  EXPECT_EQ(whole[bytes - 1], 12);
  platform::ViewUnmap(whole, bytes);
  whole = platform::ViewMap(section, 0, bytes, TARN_HERE);
  ASSERT_NE(whole, nullptr);
  EXPECT_EQ(whole[bytes - 1], 12) << "the section keeps what a view wrote";
  EXPECT_EQ(platform::Held().viewBytes, before.viewBytes + int64_t(bytes));
  platform::ViewUnmap(whole, bytes);

  // Views of what is not there.
  EXPECT_EQ(platform::ViewMap(section, 0, 0, TARN_HERE), nullptr);
  EXPECT_EQ(platform::ViewMap(section, 4 * step, 1, TARN_HERE), nullptr);
  EXPECT_EQ(platform::ViewMap(section, 2 * step, 2 * step, TARN_HERE), nullptr);
  EXPECT_EQ(platform::ViewMap(section, 1, 1, TARN_HERE), nullptr) << "no page begins there";
  EXPECT_EQ(platform::ViewMap(0, 0, 1, TARN_HERE), nullptr);
  platform::ViewUnmap(nullptr, 1);
  platform::SectionClose(0);
  platform::SectionClose(section);
  EXPECT_EQ(platform::SectionCreate(0, TARN_HERE), 0u);
  EXPECT_EQ(platform::SectionCreate(uint64_t{1} << 60, TARN_HERE), 0u);

  const platform::Counters after = platform::Held();
  EXPECT_EQ(after.sections, before.sections);
  EXPECT_EQ(after.views, before.views);
  EXPECT_EQ(after.viewBytes, before.viewBytes);
}

TEST(PlatformSections, OnAFileWriteToTheFile) {
  const ScratchDirectory directory;
  const int64_t file = platform::FileTemporary(directory.Text().c_str(), TARN_HERE);
  ASSERT_NE(file, kNoFile);
  const uint64_t step = platform::AllocationGranularity();
  ASSERT_TRUE(platform::FileReserve(file, 2 * step, TARN_HERE));
  EXPECT_EQ(platform::SectionOnFile(file, 2 * step + 1, TARN_HERE), 0u) << "longer than the file";
  EXPECT_EQ(platform::SectionOnFile(file, 0, TARN_HERE), 0u);
  EXPECT_EQ(platform::SectionOnFile(kNoFile, 1, TARN_HERE), 0u);
#ifndef _WIN32
  EXPECT_EQ(platform::SectionOnFile(int64_t{1} << 40, 1, TARN_HERE), 0u) << "no descriptor";
  EXPECT_EQ(platform::SectionOnFile(0x7FFFFFFF, 1, TARN_HERE), 0u) << "nobody's";
  EXPECT_EQ(platform::ViewMap(0x7FFFFFFF, 0, 1, TARN_HERE), nullptr);
#endif
  EXPECT_EQ(Size(file), int64_t(2 * step));
  const uint64_t section = platform::SectionOnFile(file, 2 * step, TARN_HERE);
  ASSERT_NE(section, 0u);
  uint8_t* view = platform::ViewMap(section, step, step, TARN_HERE);
  ASSERT_NE(view, nullptr);
  EXPECT_EQ(view[0], 0);
  view[7] = 'x';
  platform::ViewUnmap(view, step);
  platform::SectionClose(section);
  EXPECT_EQ(ReadAll(file)[step + 7], 'x') << "the file is still open, and changed";
  EXPECT_TRUE(platform::FileClose(file, TARN_HERE));
}

// ---- Files ---------------------------------------------------------------------------------------------------------

TEST(PlatformFiles, DispositionsDecideWhatBecomesOfAFile) {
  const ScratchDirectory directory;
  struct Case {
    Disposition disposition;
    uint32_t access;
    bool opensMissing, opensPresent;
    size_t sizeAfter;
  };
  const Case cases[] = {
      {Disposition::kOpenExisting, kRead, false, true, 10},
      {Disposition::kOpenExisting, kBoth, false, true, 10},
      {Disposition::kTruncateExisting, kWrite, false, true, 0},
      {Disposition::kTruncateExisting, kBoth, false, true, 0},
      {Disposition::kTruncateExisting, kRead, false, false, 10},  // emptying takes the right to write
      {Disposition::kCreateAlways, kBoth, true, true, 0},
      {Disposition::kCreateAlways, kRead, true, true, 0},
      {Disposition::kOpenOrCreate, kBoth, true, true, 10},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << int(c.disposition) << " access " << c.access);
    const std::wstring missing = directory.File(L"missing");
    int64_t file = Open(missing, c.access, c.disposition);
    EXPECT_EQ(file != kNoFile, c.opensMissing);
    if (file != kNoFile) platform::FileClose(file, TARN_HERE);
    EXPECT_EQ(Exists(missing), c.opensMissing);
    EXPECT_EQ(platform::FileDelete(missing.c_str()), c.opensMissing);

    const std::wstring present = directory.File(L"present");
    Make(present, "0123456789");
    file = Open(present, c.access, c.disposition);
    EXPECT_EQ(file != kNoFile, c.opensPresent);
    if (file != kNoFile) platform::FileClose(file, TARN_HERE);
    EXPECT_EQ(std::filesystem::file_size(test::AsPath(present)), c.sizeAfter);
  }
  const int64_t file = Open(directory.File(L"present"), kRead, Disposition::kOpenExisting);
  EXPECT_EQ(platform::FileWrite(file, "x", 1, TARN_HERE), -1) << "opened for reading";
  platform::FileClose(file, TARN_HERE);

  EXPECT_EQ(Open(directory.Text(), kRead, Disposition::kOpenExisting), kNoFile) << "a directory is no file";
  EXPECT_EQ(platform::FileOpen(nullptr, kRead, 0, Disposition::kOpenExisting, 0, TARN_HERE), kNoFile);
  EXPECT_FALSE(platform::FileDelete(directory.File(L"missing").c_str()));
  EXPECT_FALSE(platform::FileDelete(nullptr));
}

TEST(PlatformFiles, KeepNamesOfEveryAlphabet) {
  const ScratchDirectory directory;
#ifdef _WIN32
  const std::wstring astral = L"\xD83D\xDE00";
#else
  const std::wstring astral = L"\U0001F600";
#endif
  const std::wstring names[] = {L"plain", L"gr\u00fc\u00df", L"\u65e5\u672c\u8a9e", L"\u0627\u0644", astral};
  for (const std::wstring& name : names) {
    Make(directory.File(name), "x");
    EXPECT_TRUE(Exists(directory.File(name)));
  }
  EXPECT_EQ(directory.Entries(), std::size(names));
  for (const std::wstring& name : names) EXPECT_TRUE(platform::FileDelete(directory.File(name).c_str()));
  EXPECT_EQ(directory.Entries(), 0u);
  std::filesystem::create_directory(test::AsPath(directory.File(names[2])));
  EXPECT_TRUE(platform::IsDirectory(directory.File(names[2]).c_str()));
#ifndef _WIN32
  for (const uint32_t value : {0xD800u, 0xDFFFu, 0x110000u, 0xFFFFFFFFu}) {
    const std::wstring name = directory.File(std::wstring(1, wchar_t(value)));
    errno = 0;
    EXPECT_EQ(Open(name, kBoth, Disposition::kCreateAlways), kNoFile);
    EXPECT_EQ(errno, EINVAL);
    EXPECT_FALSE(platform::IsDirectory(name.c_str()));
    EXPECT_FALSE(platform::FileDelete(name.c_str()));
  }
  EXPECT_EQ(Open(std::wstring(5000, L'a'), kBoth, Disposition::kCreateAlways), kNoFile);
  EXPECT_EQ(errno, ENAMETOOLONG);
  EXPECT_EQ(directory.Entries(), 1u);
#endif
}

TEST(PlatformFiles, ConvertNamesStrictly) {
#ifdef _WIN32
  GTEST_SKIP() << "the system takes wide names";
#else
  struct Case {
    const char* bytes;
    std::wstring text;  // empty: ill-formed
  };
  const Case cases[] = {
      {"a", L"a"},
      {"\x7F", L"\x7F"},
      {"\xC2\x80", L"\u0080"},
      {"\xDF\xBF", L"\u07FF"},
      {"\xE0\xA0\x80", L"\u0800"},
      {"\xED\x9F\xBF", std::wstring(1, wchar_t(0xD7FF))},
      {"\xEE\x80\x80", std::wstring(1, wchar_t(0xE000))},
      {"\xEF\xBF\xBF", std::wstring(1, wchar_t(0xFFFF))},
      {"\xF0\x90\x80\x80", L"\U00010000"},
      {"\xF4\x8F\xBF\xBF", std::wstring(1, wchar_t(0x10FFFF))},
      {"\x80", L""},      // a tail alone
      {"\xC0\x80", L""},  // overlong
      {"\xC1\xBF", L""},
      {"\xE0\x9F\xBF", L""},
      {"\xF0\x8F\xBF\xBF", L""},
      {"\xED\xA0\x80", L""},      // a surrogate
      {"\xF4\x90\x80\x80", L""},  // above the last code point
      {"\xF5\x80\x80\x80", L""},
      {"\xFF", L""},
      {"\xC3", L""},  // cut short
      {"\xE2\x82", L""},
      {"\xF0\x9F\x98", L""},
      {"\xC3(", L""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::PrintToString(c.bytes));
    wchar_t wide[4] = L"???";
    char bytes[8] = "???????";
    errno = 0;
    EXPECT_EQ(platform::FromUtf8(c.bytes, wide, 4), !c.text.empty());
    if (c.text.empty()) {
      EXPECT_EQ(errno, EINVAL);
      continue;
    }
    EXPECT_EQ(wide, c.text);
    const size_t length = std::strlen(c.bytes);
    EXPECT_TRUE(platform::ToUtf8(wide, bytes, length + 1));
    EXPECT_STREQ(bytes, c.bytes);
    EXPECT_FALSE(platform::ToUtf8(wide, bytes, length)) << "no room for the terminator";
    EXPECT_FALSE(platform::FromUtf8(c.bytes, wide, 1));
  }
  char none[1];
  EXPECT_FALSE(platform::ToUtf8(L"", none, 0));
  EXPECT_TRUE(platform::ToUtf8(L"", none, 1));
  wchar_t wide[1];
  EXPECT_FALSE(platform::FromUtf8("", wide, 0));
  EXPECT_FALSE(platform::FromUtf8(nullptr, wide, 1));
  EXPECT_TRUE(platform::FromUtf8("", wide, 1));
#endif
}

TEST(PlatformFiles, PositionsAndSizes) {
  const ScratchDirectory directory;
  const int64_t file = Open(directory.File(L"f"), kBoth, Disposition::kCreateAlways);
  ASSERT_TRUE(Write(file, "0123456789"));
  const auto seek = [&](int64_t offset, int32_t origin) { return platform::FileSeek(file, offset, origin, TARN_HERE); };
  EXPECT_EQ(seek(0, 1), 10);
  EXPECT_EQ(seek(3, 0), 3);
  EXPECT_EQ(seek(4, 1), 7);
  EXPECT_EQ(seek(-1, 2), 9);
  EXPECT_EQ(seek(-2, 7), 8) << "any other origin is the end";
  EXPECT_EQ(seek(-1, 0), -1);
  EXPECT_EQ(seek(-9, 1), -1);
  EXPECT_EQ(seek(0, 1), 8) << "a failed seek stays";
  EXPECT_EQ(seek(int64_t{1} << 40, 0), int64_t{1} << 40) << "positions of more than 32 bits";

  seek(4, 0);
  EXPECT_TRUE(platform::FileSetSize(file, 6, TARN_HERE));
  EXPECT_EQ(seek(0, 1), 4) << "the position stays";
  EXPECT_TRUE(platform::FileSetSize(file, 8, TARN_HERE));
  EXPECT_EQ(ReadAll(file), std::string("012345\0\0", 8));
  EXPECT_FALSE(platform::FileSetSize(file, -1, TARN_HERE));
  seek(2, 0);
  EXPECT_TRUE(platform::FileCutHere(file, TARN_HERE));
  EXPECT_EQ(ReadAll(file), "01");
  seek(5, 0);
  EXPECT_TRUE(platform::FileCutHere(file, TARN_HERE)) << "behind the end it lengthens";
  EXPECT_EQ(ReadAll(file), std::string("01\0\0\0", 5));

  char byte;
  seek(0, 2);
  EXPECT_EQ(platform::FileRead(file, &byte, 1, TARN_HERE), 0) << "the end";
  EXPECT_EQ(platform::FileRead(file, &byte, 0, TARN_HERE), 0);
  EXPECT_EQ(platform::FileWrite(file, &byte, 0, TARN_HERE), 0);
  EXPECT_EQ(Size(file), 5);
  EXPECT_TRUE(platform::FileIsNamed(file, directory.File(L"f").c_str()));
  EXPECT_FALSE(platform::FileIsNamed(file, directory.File(L"missing").c_str()));
  EXPECT_FALSE(platform::FileIsNamed(file, nullptr));
  Make(directory.File(L"g"), "01");
  EXPECT_FALSE(platform::FileIsNamed(file, directory.File(L"g").c_str()));
  EXPECT_TRUE(platform::FileClose(file, TARN_HERE));

  const int64_t files = platform::Held().files;
  for (const int64_t closed : {file, kNoFile, int64_t{1} << 40}) {
#ifndef _WIN32  // where a handle that was closed may be the next one's
    EXPECT_FALSE(platform::FileIsNamed(closed, directory.File(L"f").c_str()));
#endif
    EXPECT_FALSE(platform::FileClose(closed, TARN_HERE));
    EXPECT_EQ(platform::FileRead(closed, &byte, 1, TARN_HERE), -1);
    EXPECT_EQ(platform::FileWrite(closed, &byte, 1, TARN_HERE), -1);
    EXPECT_EQ(platform::FileSeek(closed, 0, 0, TARN_HERE), -1);
    EXPECT_FALSE(platform::FileSetSize(closed, 0, TARN_HERE));
    EXPECT_FALSE(platform::FileCutHere(closed, TARN_HERE));
    EXPECT_FALSE(platform::FileReserve(closed, 10, TARN_HERE));
  }
  EXPECT_EQ(platform::Held().files, files);
}

TEST(PlatformFiles, PartialAndInterruptedTransfersGoOn) {
#ifdef _WIN32
  GTEST_SKIP() << "the system moves files whole";
#else
  const ScratchDirectory directory;
  const std::wstring name = directory.File(L"fifo");
  ASSERT_EQ(mkfifo(test::AsPath(name).c_str(), 0600), 0);
  struct sigaction action {};
  struct sigaction before {};
  action.sa_handler = [](int) {};  // without SA_RESTART: calls end with EINTR
  ASSERT_EQ(sigaction(SIGUSR1, &action, &before), 0);
  const pthread_t reader = pthread_self();
  std::string sent(300000, 0);
  for (size_t i = 0; i < sent.size(); ++i) sent[i] = char(i * 7);
  std::thread writer([&] {
    const int64_t file = Open(name, kWrite, Disposition::kOpenExisting);
    for (size_t at = 0; at < sent.size(); at += 100000) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      pthread_kill(reader, SIGUSR1);
      EXPECT_TRUE(Write(file, sent.substr(at, 100000)));
    }
    platform::FileClose(file, TARN_HERE);
  });
  const int64_t file = Open(name, kRead, Disposition::kOpenExisting);
  std::string got(sent.size() + 10, 0);
  EXPECT_EQ(platform::FileRead(file, got.data(), uint32_t(got.size()), TARN_HERE), int64_t(sent.size()));
  EXPECT_EQ(platform::FileRead(file, got.data() + sent.size(), 1, TARN_HERE), 0);
  got.resize(sent.size());
  EXPECT_TRUE(got == sent);
  writer.join();
  platform::FileClose(file, TARN_HERE);
  sigaction(SIGUSR1, &before, nullptr);
#endif
}

TEST(PlatformFiles, WritesThatAreCutOff) {
#ifdef _WIN32
  GTEST_SKIP() << "there is no such limit";
#else
  const ScratchDirectory directory;
  const int64_t file = Open(directory.File(L"f"), kBoth, Disposition::kCreateAlways);
  rlimit saved{};
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &saved), 0);
  rlimit limits = saved;
  limits.rlim_cur = 50;
  const auto before = signal(SIGXFSZ, SIG_IGN);
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limits), 0);
  const int64_t moved = platform::FileWrite(file, std::string(100, 'x').data(), 100, TARN_HERE);
  const int error = errno;
  const bool reserved = platform::ReserveByWriting(int(file), 100);
  setrlimit(RLIMIT_FSIZE, &saved);
  signal(SIGXFSZ, before);
  EXPECT_EQ(moved, -1) << "part of it, and then an error that is no full disk";
  EXPECT_EQ(error, EFBIG);
  EXPECT_FALSE(reserved);
  EXPECT_EQ(Size(file), 50);
  EXPECT_TRUE(platform::FileClose(file, TARN_HERE));

  // What cannot be read, written or cut.
  EXPECT_FALSE(platform::ReserveByWriting(-1, 10));
  const int64_t reader = Open(directory.File(L"f"), kRead, Disposition::kOpenExisting);
  EXPECT_FALSE(platform::ReserveByWriting(int(reader), 10));
  EXPECT_TRUE(platform::FileClose(reader, TARN_HERE));
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  EXPECT_FALSE(platform::FileCutHere(ends[1], TARN_HERE));
  EXPECT_FALSE(platform::FileReserve(ends[1], 10, TARN_HERE));
  for (const int end : ends) close(end);
  const int64_t full = Open(L"/dev/full", kWrite, Disposition::kOpenExisting);
  if (full == kNoFile) GTEST_SKIP() << "no device that is full";
  EXPECT_EQ(platform::FileWrite(full, "abc", 3, TARN_HERE), -1);
  EXPECT_TRUE(platform::LastErrorIsDiskFull());
  EXPECT_TRUE(platform::FileClose(full, TARN_HERE));
#endif
}

TEST(PlatformFiles, StandardStreamsAreLeftAlone) {
#ifdef _WIN32
  GTEST_SKIP() << "handles have no low numbers";
#else
  const ScratchDirectory directory;
  EXPECT_EQ(InChild([&] {
              close(STDIN_FILENO);
              close(STDOUT_FILENO);
              close(STDERR_FILENO);
              char byte = 0;
              const int64_t files[] = {Open(directory.File(L"f"), kBoth, Disposition::kCreateAlways),
                                       platform::FileTemporary(directory.Text().c_str(), TARN_HERE),
                                       int64_t(platform::SectionCreate(10, TARN_HERE))};
              for (const int64_t file : files) {
                if (file < 3) return 1;
                if (!(fcntl(int(file), F_GETFD) & FD_CLOEXEC)) return 2;
              }
              for (int stream = 0; stream < 3; ++stream)
                if (fcntl(stream, F_GETFD) != -1) return 3;
              if (platform::FileWrite(files[0], &byte, 1, TARN_HERE) != 1) return 4;
              // Nor do our calls reach a stream.
              if (open("/dev/null", O_RDWR) != 0) return 5;
              return platform::FileWrite(0, &byte, 1, TARN_HERE) == -1 && !platform::FileClose(0, TARN_HERE) ? 0 : 6;
            }),
            0);
#endif
}

TEST(PlatformFiles, DeleteOnCloseTakesTheNameAlong) {
  const ScratchDirectory directory;
  const std::wstring name = directory.File(L"doomed");
  const auto openDoomed = [](const std::wstring& path) {
    return Open(path, kBoth, Disposition::kCreateAlways, kDeleteOnClose);
  };
  int64_t file = openDoomed(name);
  ASSERT_NE(file, kNoFile);
  EXPECT_TRUE(Write(file, "x"));
  EXPECT_EQ(directory.Entries(), 1u);
  EXPECT_TRUE(platform::FileClose(file, TARN_HERE));
  EXPECT_EQ(directory.Entries(), 0u);
  EXPECT_EQ(openDoomed(directory.File(L"missing/doomed")), kNoFile);
#ifndef _WIN32
  // A relative name holds though the program goes elsewhere.
  const auto was = std::filesystem::current_path();
  std::filesystem::current_path(directory.Path());
  file = openDoomed(L"doomed");
  std::filesystem::current_path("/");
  EXPECT_EQ(directory.Entries(), 1u);
  EXPECT_TRUE(platform::FileClose(file, TARN_HERE));
  EXPECT_EQ(directory.Entries(), 0u);
  std::filesystem::current_path(was);

  // Another file that took the name over stays.
  file = openDoomed(name);
  Make(directory.File(L"other"), "y");
  std::filesystem::rename(test::AsPath(directory.File(L"other")), test::AsPath(name));
  EXPECT_TRUE(platform::FileClose(file, TARN_HERE));
  EXPECT_TRUE(Exists(name));

  // Two at once, each its own; and one whose name has gone before.
  file = openDoomed(name);
  const int64_t second = openDoomed(directory.File(L"second"));
  EXPECT_TRUE(platform::FileClose(file, TARN_HERE));
  EXPECT_FALSE(Exists(name));
  ASSERT_TRUE(platform::FileDelete(directory.File(L"second").c_str()));
  EXPECT_TRUE(platform::FileClose(second, TARN_HERE));
  EXPECT_EQ(directory.Entries(), 0u);
#endif
}

// ---- Disk space ----------------------------------------------------------------------------------------------------

TEST(PlatformReserve, LengthensWithZerosAndNeverShortens) {
  const ScratchDirectory directory;
  const int64_t file = Open(directory.File(L"f"), kBoth, Disposition::kCreateAlways);
  ASSERT_TRUE(Write(file, "0123456789"));
  EXPECT_TRUE(platform::FileReserve(file, 0, TARN_HERE));
  EXPECT_TRUE(platform::FileReserve(file, 5, TARN_HERE));
  EXPECT_EQ(Size(file), 10);
  EXPECT_TRUE(platform::FileReserve(file, 100000, TARN_HERE));
  EXPECT_EQ(ReadAll(file), "0123456789" + std::string(99990, 0));
  EXPECT_FALSE(platform::FileReserve(file, uint64_t{1} << 62, TARN_HERE));
  EXPECT_FALSE(platform::FileReserve(file, ~uint64_t{}, TARN_HERE));
  EXPECT_EQ(Size(file), 100000) << "as it was";
  EXPECT_TRUE(platform::FileClose(file, TARN_HERE));
}

TEST(PlatformReserve, LeavesNoHole) {
#ifdef _WIN32
  GTEST_SKIP() << "files have no holes unless asked for";
#else
  const ScratchDirectory directory;
  struct Case {
    const char* name;
    bool (*reserve)(int64_t file, uint64_t bytes);
  };
  const Case cases[] = {
      {"asked for", [](int64_t file, uint64_t bytes) { return platform::FileReserve(file, bytes, TARN_HERE); }},
      {"written", [](int64_t file, uint64_t bytes) { return platform::ReserveByWriting(int(file), bytes); }}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    const int64_t file = Open(directory.File(L"f"), kBoth, Disposition::kCreateAlways);
    ASSERT_TRUE(Write(file, "start"));
    platform::FileSeek(file, 70000, 0, TARN_HERE);
    ASSERT_TRUE(Write(file, "middle"));
    struct stat status {};
    ASSERT_EQ(fstat(int(file), &status), 0);
    EXPECT_TRUE(c.reserve(file, 200001));
    ASSERT_EQ(fstat(int(file), &status), 0);
    EXPECT_EQ(status.st_size, 200001);
    EXPECT_GE(status.st_blocks * 512, 200001);
    std::string expected(200001, 0);
    expected.replace(0, 5, "start").replace(70000, 6, "middle");
    EXPECT_TRUE(ReadAll(file) == expected);
    platform::FileClose(file, TARN_HERE);
  }
#endif
}

TEST(PlatformReserve, AFullDiskIsAnErrorAndNoSignal) {
#ifdef _WIN32
  GTEST_SKIP() << "needs a small file system of its own";
#else
  const ScratchDirectory directory;
  constexpr int kCannotMount = 99;
  // In a child with mounts of its own: nobody else sees the small file system, and it goes with the child.
  const int result = InChild([&] {
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tarn", directory.Path().c_str(), "tmpfs", 0, "size=64k,mode=0700") != 0)
      return kCannotMount;
    const std::string tooMuch(100000, 'x');
    const int64_t full = Open(directory.File(L"full"), kBoth, Disposition::kCreateAlways);
    const int64_t reserved = platform::FileTemporary(directory.Text().c_str(), TARN_HERE);
    if (full == kNoFile || reserved == kNoFile) return 1;
    if (!platform::FileReserve(reserved, 20000, TARN_HERE)) return 2;
    errno = 0;
    if (platform::FileReserve(reserved, 100000, TARN_HERE) || errno != ENOSPC) return 3;
    if (Size(reserved) != 20000) return 4;
    if (platform::ReserveByWriting(int(full), 100000) || !platform::LastErrorIsDiskFull()) return 5;
    if (!platform::FileSetSize(full, 0, TARN_HERE)) return 6;
    platform::FileSeek(full, 0, 0, TARN_HERE);
    const int64_t written = platform::FileWrite(full, tooMuch.data(), uint32_t(tooMuch.size()), TARN_HERE);
    if (written <= 0 || written >= 64 * 1024) return 7;  // what went in is told
    errno = 0;
    if (platform::FileWrite(full, "x", 1, TARN_HERE) != -1 || !platform::LastErrorIsDiskFull()) return 8;
    // The disk is full now: writing to what was reserved must not end the process.
    const uint64_t section = platform::SectionOnFile(reserved, 20000, TARN_HERE);
    uint8_t* view = section ? platform::ViewMap(section, 0, 20000, TARN_HERE) : nullptr;
    if (!view) return 9;
    std::memset(view, 1, 20000);
    platform::ViewUnmap(view, 20000);
    platform::SectionClose(section);
    if (platform::FileReserve(reserved, 64 * 1024, TARN_HERE)) return 10;
    return platform::FileClose(full, TARN_HERE) && platform::FileClose(reserved, TARN_HERE) ? 0 : 11;
  });
  if (result == kCannotMount) GTEST_SKIP() << "no right to mount";
  EXPECT_EQ(result, 0);
#endif
}

// ---- Temporary files -----------------------------------------------------------------------------------------------

TEST(PlatformTemporary, VanishesWhenClosed) {
  const ScratchDirectory directory;
  const int64_t files = platform::Held().files;
  const int64_t file = platform::FileTemporary(directory.Text().c_str(), TARN_HERE);
  ASSERT_NE(file, kNoFile);
  EXPECT_EQ(platform::Held().files, files + 1);
  EXPECT_TRUE(Write(file, "secret"));
  EXPECT_EQ(ReadAll(file), "secret");
#ifndef _WIN32
  EXPECT_EQ(directory.Entries(), 0u) << "never under a name";
  struct stat status {};
  ASSERT_EQ(fstat(int(file), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
#endif
  EXPECT_TRUE(platform::FileClose(file, TARN_HERE));
  EXPECT_EQ(directory.Entries(), 0u);
  EXPECT_EQ(platform::Held().files, files);

  EXPECT_EQ(platform::FileTemporary(directory.File(L"missing").c_str(), TARN_HERE), kNoFile);
  EXPECT_EQ(platform::FileTemporary(nullptr, TARN_HERE), kNoFile);
  EXPECT_EQ(platform::FileTemporary(L"", TARN_HERE), kNoFile);
#ifndef _WIN32
  const wchar_t half[] = {L'/', wchar_t(0xD800), 0};
  for (const wchar_t* place : {L"/proc", half}) {  // where no file can be, with or without a name
    EXPECT_EQ(platform::FileTemporary(place, TARN_HERE), kNoFile);
    EXPECT_EQ(platform::TemporaryUnlinked(place), -1);
  }
#endif
  EXPECT_EQ(platform::Held().files, files);
}

TEST(PlatformTemporary, VanishesWithTheProcess) {
#ifdef _WIN32
  // The test runs itself again, told by a variable where to make the file; that process ends without a farewell.
  const wchar_t* const variable = L"TARN_TEST_TEMPORARY";
  wchar_t place[512];
  if (GetEnvironmentVariableW(variable, place, 512) != 0) {
    const bool made = Write(platform::FileTemporary(place, TARN_HERE), "secret");
    TerminateProcess(GetCurrentProcess(), made ? 9 : 1);
  }
  const ScratchDirectory directory;
  wchar_t program[512];
  wchar_t line[] = L"tests --gtest_filter=PlatformTemporary.VanishesWithTheProcess";
  ASSERT_NE(GetModuleFileNameW(nullptr, program, 512), 0u);
  SetEnvironmentVariableW(variable, directory.Text().c_str());
  STARTUPINFOW start{};
  start.cb = sizeof start;
  PROCESS_INFORMATION process{};
  const bool started = CreateProcessW(program, line, nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start, &process);
  SetEnvironmentVariableW(variable, nullptr);
  ASSERT_TRUE(started);
  DWORD result = 0;
  EXPECT_EQ(WaitForSingleObject(process.hProcess, 60000), DWORD{WAIT_OBJECT_0});
  EXPECT_TRUE(GetExitCodeProcess(process.hProcess, &result));
  CloseHandle(process.hThread);
  CloseHandle(process.hProcess);
  EXPECT_EQ(result, 9u) << "made the file and was ended";
  EXPECT_EQ(directory.Entries(), 0u);
#else
  const ScratchDirectory directory;
  const std::wstring name = directory.Text();
  InKilledChild([&] { Write(platform::FileTemporary(name.c_str(), TARN_HERE), "secret"); });
  EXPECT_EQ(directory.Entries(), 0u);
  InKilledChild([&] { Write(platform::TemporaryUnlinked(name.c_str()), "secret"); });
  EXPECT_EQ(directory.Entries(), 0u) << "where the file system wants a name at first";
  const int file = platform::TemporaryUnlinked(name.c_str());
  struct stat status {};
  ASSERT_EQ(fstat(file, &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600u);
  EXPECT_EQ(status.st_nlink, 0u);
  close(file);
#endif
}

TEST(PlatformTemporary, NamesAreNewAndNobodyElses) {
  const ScratchDirectory directory;
  const std::wstring plain = directory.Text();
#ifdef _WIN32
  const std::wstring separators[] = {L"", L"\\", L"/"};
#else
  const std::wstring separators[] = {L"", L"/"};
#endif
  size_t made = 0;
  for (const std::wstring& separator : separators) {
    wchar_t name[512];
    ASSERT_TRUE(platform::FileTemporaryName((plain + separator).c_str(), name, 512, TARN_HERE));
    EXPECT_EQ(directory.Entries(), ++made);
    const std::wstring text = name;
    EXPECT_EQ(text.size(), plain.size() + 1 + 24);
    EXPECT_EQ(text.substr(plain.size() + 1, 4), L"tarn");
    EXPECT_EQ(text.substr(text.size() - 4), L".tmp");
    EXPECT_EQ(std::filesystem::file_size(test::AsPath(text)), 0u);
#ifndef _WIN32
    struct stat status {};
    ASSERT_EQ(stat(test::AsPath(text).c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0600u);
#endif
    // Exactly enough room, and one character too little.
    EXPECT_TRUE(platform::FileTemporaryName(plain.c_str(), name, uint32_t(text.size() + 1), TARN_HERE));
    EXPECT_EQ(directory.Entries(), ++made);
    EXPECT_FALSE(platform::FileTemporaryName(plain.c_str(), name, uint32_t(text.size()), TARN_HERE));
    EXPECT_EQ(LastSystemError(), test::kErrorInvalid);
    EXPECT_EQ(directory.Entries(), made);
  }
  wchar_t name[512];
  EXPECT_FALSE(platform::FileTemporaryName(nullptr, name, 512, TARN_HERE));
  EXPECT_FALSE(platform::FileTemporaryName(L"", name, 512, TARN_HERE));
  EXPECT_FALSE(platform::FileTemporaryName(plain.c_str(), nullptr, 512, TARN_HERE));
  EXPECT_FALSE(platform::FileTemporaryName(directory.File(L"missing").c_str(), name, 512, TARN_HERE));
}

TEST(PlatformTemporary, DirectoryIsTheSystems) {
  wchar_t path[512];
  ASSERT_TRUE(platform::TemporaryPath(path, 512));
  EXPECT_TRUE(platform::IsDirectory(path));
  EXPECT_FALSE(platform::TemporaryPath(path, 2)) << "too little room";
  const ScratchDirectory directory;
  Make(directory.File(L"file"), "x");
  EXPECT_FALSE(platform::IsDirectory(directory.File(L"file").c_str()));
  EXPECT_FALSE(platform::IsDirectory(directory.File(L"missing").c_str()));
  EXPECT_FALSE(platform::IsDirectory(nullptr));
#ifndef _WIN32
  const char* before = getenv("TMPDIR");
  const std::string saved = before ? before : "";
  struct Case {
    std::string value;
    std::wstring expected;
  };
  const std::string own = directory.Path().string();
  const Case cases[] = {{own, directory.Text()},     {own + "/", directory.Text() + L"/"},  // the text as given
                        {own + "/missing", L"/tmp"}, {own + "/file", L"/tmp"},
                        {own + "/\xFF", L"/tmp"},    {"", L"/tmp"}};
  for (const Case& c : cases) {
    setenv("TMPDIR", c.value.c_str(), 1);
    ASSERT_TRUE(platform::TemporaryPath(path, 512));
    EXPECT_EQ(path, c.expected);
  }
  setenv("TMPDIR", own.c_str(), 1);
  EXPECT_TRUE(platform::TemporaryPath(path, 6)) << "too long for the room: the default";
  EXPECT_STREQ(path, L"/tmp");
  unsetenv("TMPDIR");
  EXPECT_TRUE(platform::TemporaryPath(path, 512));
  EXPECT_STREQ(path, L"/tmp");
  if (before) setenv("TMPDIR", saved.c_str(), 1);
#endif
}

// ---- Libraries -----------------------------------------------------------------------------------------------------

TEST(PlatformModules, TheLibraryReallyUnloads) {
  const std::wstring path = std::filesystem::path(TARN_LIBRARY_PATH).wstring();
  for (int round = 0; round < 20; ++round) {
    void* module = platform::ModuleOpen(path.c_str());
    ASSERT_NE(module, nullptr) << LastSystemError();
    const auto method = reinterpret_cast<uint32_t (*)()>(platform::ModuleSymbol(module, "T_GetDefaultDithering"));
    ASSERT_NE(method, nullptr);
    EXPECT_EQ(platform::ModuleSymbol(module, "T_NoSuchFunction"), nullptr);
    EXPECT_EQ(method(), 7u);
    // A thread that has settings in the library outlives it: its end must not call what is gone.
    std::atomic<int> stage{0};
    std::thread survivor([&] {
      EXPECT_EQ(method(), 7u);
      stage = 1;
      while (stage != 2) std::this_thread::yield();
    });
    while (stage != 1) std::this_thread::yield();
    platform::ModuleClose(module);
#ifndef _WIN32
    EXPECT_EQ(dlopen(TARN_LIBRARY_PATH, RTLD_NOLOAD | RTLD_NOW), nullptr) << "still loaded";
#else
    EXPECT_EQ(GetModuleHandleW(std::filesystem::path(TARN_LIBRARY_PATH).filename().c_str()), nullptr);
#endif
    stage = 2;
    survivor.join();
  }
  EXPECT_EQ(platform::ModuleOpen((path + L".missing").c_str()), nullptr);
  EXPECT_NE(LastSystemError(), 0);
  EXPECT_EQ(platform::ModuleOpen(nullptr), nullptr);
  EXPECT_EQ(platform::ModuleOpen(L""), nullptr);
  EXPECT_EQ(platform::ModuleSymbol(nullptr, "T_GetDefaultDithering"), nullptr);
  platform::ModuleClose(nullptr);
}

// Headers that announce what is not in the file: the system's loader would map it and be killed.
TEST(PlatformModules, DamagedLibrariesAreNotMapped) {
#ifdef _WIN32
  GTEST_SKIP() << "the system's loader looks itself";
#else
  std::ifstream whole(TARN_CODEC_PATH, std::ios::binary);
  const std::string good{std::istreambuf_iterator<char>(whole), {}};
  const ScratchDirectory directory;
  const std::wstring name = directory.File(L"library.so");
  ElfW(Ehdr) header;
  ASSERT_GT(good.size(), sizeof header);
  std::memcpy(&header, good.data(), sizeof header);
  struct Damage {
    const char* what;
    size_t at;
    uint64_t value;
    size_t bytes;
  };
  const Damage damages[] = {
      {"mark", 0, 0x12345678, 4},
      {"size of a segment's header", offsetof(ElfW(Ehdr), e_phentsize), 1, 2},
      {"place of sections", offsetof(ElfW(Ehdr), e_shoff), good.size() - 10, 8},
      {"place of sections, far away", offsetof(ElfW(Ehdr), e_shoff), ~uint64_t{0}, 8},
      {"place of segments", offsetof(ElfW(Ehdr), e_phoff), good.size() - 10, 8},
      {"place of a segment", header.e_phoff + offsetof(ElfW(Phdr), p_offset), good.size() + 1, 8},
      {"length of a segment", header.e_phoff + offsetof(ElfW(Phdr), p_filesz), good.size() + 1, 8},
  };
  for (const Damage& damage : damages) {
    std::string bad = good;
    std::memcpy(&bad[damage.at], &damage.value, damage.bytes);
    Make(name, bad);
    EXPECT_EQ(platform::ModuleOpen(name.c_str()), nullptr) << damage.what;
    EXPECT_EQ(errno, ENOEXEC) << damage.what;
  }
  Make(name, good.substr(0, sizeof header - 1));
  EXPECT_EQ(platform::ModuleOpen(name.c_str()), nullptr) << "no whole header";
  EXPECT_EQ(platform::ModuleOpen(directory.Text().c_str()), nullptr) << "a directory";
  EXPECT_EQ(errno, ENOEXEC);
  Make(name, good);
  void* const module = platform::ModuleOpen(name.c_str());
  ASSERT_NE(module, nullptr);
  EXPECT_EQ(platform::ModuleSymbol(module, nullptr), nullptr);
  platform::ModuleClose(module);
#endif
}

TEST(PlatformModules, OwnDirectoryHoldsThisProgram) {
  wchar_t path[1024];
  ASSERT_TRUE(platform::OwnDirectory(path, 1024));
  const std::wstring text = path;
#ifdef _WIN32
  wchar_t program[1024];
  ASSERT_NE(GetModuleFileNameW(nullptr, program, 1024), 0u);
  const std::filesystem::path expected(program);
#else
  const std::filesystem::path expected = std::filesystem::read_symlink("/proc/self/exe");
#endif
  EXPECT_EQ(test::AsPath(text), expected.parent_path() / "");
  EXPECT_TRUE(platform::OwnDirectory(path, uint32_t(text.size() + 1)));
  EXPECT_FALSE(platform::OwnDirectory(path, uint32_t(text.size())));
}

}  // namespace tarn
