// A process that is killed in the midst of work on temporary files leaves none.

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <string>
#include <thread>

#include "Platform/Fault.h"
#include "engine/Picture.h"
#include "engine/Random.h"
#include "engine/Scene.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <signal.h>
#include <sys/ptrace.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace tarn {
namespace {

using engine::Kind;
using engine::Picture;
using engine::Random;
using engine::Shape;

/// Every way in which temporary files come, change and go. Some of it exists at any moment but the first.
void WorkOnce() {
  constexpr Shape kShape = {70, 20, 24};
  Picture disk;
  disk.Make(Kind::kDisk, kShape, 1);
  Picture tiles;
  tiles.Make(Kind::kSwapTiles, kShape, 2);
  T_CopyBitmapData(&tiles.record, &disk.record);
  T_ChangeBitmapHeight(&tiles.record, 29);
  T_ChangeBitmapHeight(&disk.record, 40);
  T_SetBitmapMemoryInfo(&tiles.record, 0, 0, 0, 4, 2, 0, T_INFO_CONVENTIONAL_TILES | T_INFO_MAX_MAPPED_TILES);
  T_SetBitmapMemoryInfo(&disk.record, TYPE_TILED, 1000, 0, 0, 0, 0, T_INFO_MEMORY_TYPE | T_INFO_TILE_SIZE);
  T_SetBitmapMemoryInfo(&tiles.record, TYPE_DISK, 0, 0, 0, 0, 0, T_INFO_MEMORY_TYPE);
  fault::Arm({.first = 2, .last = 3, .points = Mask(fault::Point::kMemory) | Mask(fault::Point::kSection)});
  T_HugeMemory* const huge = T_AllocHugeMemory(50000);
  fault::Disarm();
  T_ZeroHugeMemory(huge, 0, 50000);
  T_FreeHugeMemory(huge);
}

#if defined(_WIN32)

constexpr wchar_t kChild[] = L"TARN_KILL_DIRECTORY";  // names the directory of a child's work

/// A child's part: works until it is killed, but not for ever should nobody do it.
bool WorkedAsChild() {
  wchar_t directory[T_TEMP_DIRECTORY_LENGTH];
  const DWORD length = GetEnvironmentVariableW(kChild, directory, T_TEMP_DIRECTORY_LENGTH);
  if (length == 0 || length >= T_TEMP_DIRECTORY_LENGTH) return false;
  T_SetTempDirectory(directory);
  const ULONGLONG end = GetTickCount64() + 60000;
  while (GetTickCount64() < end) WorkOnce();
  return true;
}

/// A child is killed some time after its first file is there.
void KillAfter(uint32_t milliseconds) {
  const engine::OwnDirectory directory;
  SetEnvironmentVariableW(kChild, directory.Name().c_str());
  wchar_t program[MAX_PATH];
  GetModuleFileNameW(nullptr, program, MAX_PATH);
  std::wstring command = std::wstring(L"\"") + program + L"\" --gtest_filter=Kill.LeavesNoFile";
  STARTUPINFOW start{};
  start.cb = sizeof start;
  PROCESS_INFORMATION child{};
  const BOOL made = CreateProcessW(program, command.data(), nullptr, nullptr, FALSE, DETACHED_PROCESS, nullptr, nullptr,
                                   &start, &child);
  SetEnvironmentVariableW(kChild, nullptr);
  ASSERT_TRUE(made);
  for (int tries = 0; tries < 3000 && directory.Files().empty(); ++tries) Sleep(10);
  EXPECT_FALSE(directory.Files().empty()) << "the child did not work";
  Sleep(milliseconds);
  TerminateProcess(child.hProcess, 9);
  WaitForSingleObject(child.hProcess, INFINITE);
  CloseHandle(child.hThread);
  CloseHandle(child.hProcess);
  // The system closes a dead process's files when it gets round to it.
  for (int tries = 0; tries < 500 && !directory.Files().empty(); ++tries) Sleep(10);
  EXPECT_EQ(directory.Files().size(), 0u) << "killed after " << milliseconds << " ms";
}

void KillAtTimes(int kills) {
  Random random(engine::RunSeed());
  for (int i = 0; i < kills; ++i) KillAfter(static_cast<uint32_t>(random.Below(80)));
}

void KillAtCalls(int) {}

#else

bool WorkedAsChild() { return false; }

/// Where a child works; it is killed at the latest with its parent's patience.
template <class Kill>
void KillChild(Kill kill, bool traced) {
  const engine::OwnDirectory directory;
  const pid_t child = fork();
  ASSERT_NE(child, -1);
  if (child == 0) {
    T_SetTempDirectory(directory.Name().c_str());
    if (traced) {
      if (ptrace(PTRACE_TRACEME, 0, nullptr, nullptr) != 0) _exit(77);
      raise(SIGSTOP);
      WorkOnce();
      _exit(0);
    }
    alarm(60);
    for (;;) WorkOnce();
  }
  kill(child);
  EXPECT_EQ(directory.Files().size(), 0u);
}

void KillAtTimes(int kills) {
  Random random(engine::RunSeed());
  for (int i = 0; i < kills; ++i) {
    const uint64_t microseconds = random.Below(12000);
    SCOPED_TRACE(std::to_string(microseconds) + " microseconds, " + engine::SeedText());
    KillChild(
        [&](pid_t child) {
          std::this_thread::sleep_for(std::chrono::microseconds(microseconds));
          kill(child, SIGKILL);
          waitpid(child, nullptr, 0);
        },
        false);
  }
}

/// Kills at entry to and return from system call 1, 1 + stride, ...
void KillAtCalls(int stride) {
  bool ended = false;
  for (int wanted = 1; !ended && !testing::Test::HasFailure(); wanted += stride) {
    SCOPED_TRACE("stop " + std::to_string(wanted));
    KillChild(
        [&](pid_t child) {
          int status = 0;
          waitpid(child, &status, 0);
          if (!WIFSTOPPED(status)) {
            std::printf("Processes cannot be traced here: killed by time only.\n");
            ended = true;
            return;
          }
          for (int stop = 0; stop < wanted; ++stop) {
            ptrace(PTRACE_SYSCALL, child, nullptr, nullptr);
            waitpid(child, &status, 0);
            if (!WIFSTOPPED(status)) {
              EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << status;
              EXPECT_GT(wanted, 200) << "the work is too short to be of use";
              ended = true;
              return;
            }
          }
          kill(child, SIGKILL);
          waitpid(child, nullptr, 0);
        },
        true);
  }
}

#endif

TEST(Kill, LeavesNoFile) {
  if (WorkedAsChild()) return;
#if defined(_WIN32)
  KillAtTimes(3);
#else
  KillAtTimes(40);
#endif
  KillAtCalls(23);
}

TEST(Kill, DISABLED_SweepOfEveryMoment) {
  KillAtTimes(1000);
  KillAtCalls(1);
}

}  // namespace
}  // namespace tarn
