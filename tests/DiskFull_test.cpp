// A disk that fills up while pixels go to it: a status, never a signal, and nothing lost that was there before. On
// Linux the disk is a small file system of its own, where that may be mounted; everywhere the file calls' gate answers
// as a full disk from some call on.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <string>

#include "Platform/Fault.h"
#include "engine/Picture.h"
#include "engine/Random.h"
#include "engine/Scene.h"

#if defined(__linux__)
#include <sched.h>
#include <sys/mount.h>
#include <sys/wait.h>
#include <unistd.h>
#endif

namespace tarn {
namespace {

using engine::Bytes;
using engine::Kind;
using engine::Picture;
using engine::Shape;

constexpr int kSteps = 15;
constexpr uint64_t kPage = 4096;
constexpr Shape kShape = {500, 36, 8};  // 18,000 bytes; 12 tiles of 1,500

/// What a run on a disk of some size came to.
struct Outcome {
  std::string wrong;
  bool whole = true;  // nothing was refused
};

/// Refused with a status for a full disk, and nothing else.
void Note(Outcome& outcome, const char* what, int64_t status) {
  if (status == SUCCESS) return;
  outcome.whole = false;
  if (status != ERR_DISK_FULL && status != ERR_FILE_WRITE && status != ERR_NO_MEMORY)
    outcome.wrong += std::string(what) + " gives " + std::to_string(status) + "; ";
}

void ExpectRows(Outcome& outcome, const char* when, const BitmapHandle& record, Bytes wanted) {
  Bytes rows;
  const std::string wrong = engine::ReadPixels(record, rows);
  if (!wrong.empty()) outcome.wrong += std::string(when) + ": " + wrong + "; ";
  wanted.resize(rows.size());  // rows that were added are zero
  if (rows != wanted) outcome.wrong += std::string(when) + ": other pixels; ";
}

/// Makes a bitmap, fills it, lets it grow to twice its height. What could be made can be filled.
void UseStorage(Outcome& outcome, const char* what, int32_t status, BitmapHandle& record) {
  Note(outcome, what, status);
  if (status != SUCCESS) {
    if (record.Flags & T_FLAG_ALLOCATED) outcome.wrong += std::string(what) + " leaves a bitmap; ";
    return;
  }
  const Bytes rows = MakeContent(kShape, 1);
  const int64_t put = T_PutBitmapRow(&record, rows.data(), 0, rows.size());
  if (put == ERR_FILE_WRITE && fault::Answered() > 0) {  // only the gate refuses a write to space that is reserved
    outcome.whole = false;
    T_FreeBitmap(&record);
    return;
  }
  if (put != static_cast<int64_t>(rows.size())) outcome.wrong += std::string(what) + " cannot be filled; ";
  ExpectRows(outcome, what, record, rows);
  const int32_t grown = T_ChangeBitmapHeight(&record, 2 * kShape.height);
  Note(outcome, "T_ChangeBitmapHeight", grown);
  if (record.Height != (grown == SUCCESS ? 2 : 1) * kShape.height) outcome.wrong += "another height; ";
  ExpectRows(outcome, "after T_ChangeBitmapHeight", record, rows);
  T_FreeBitmap(&record);
}

Outcome UseDisk() {
  Outcome outcome;
  BitmapHandle record{};
  T_InitBitmap(&record, sizeof record, kShape.width, kShape.height, kShape.bits);
  UseStorage(outcome, "T_AllocateBitmap 128", T_AllocateBitmap(&record, TYPE_DISK), record);
  return outcome;
}

Outcome UseSwapTiles() {
  const engine::ThresholdScope scope;
  T_SetMemoryThresholds(0, 1, 1500, 0, 1, 31);
  Outcome outcome;
  BitmapHandle record{};
  T_InitBitmap(&record, sizeof record, kShape.width, kShape.height, kShape.bits);
  UseStorage(outcome, "T_AllocateBitmap 256", T_AllocateBitmap(&record, TYPE_NODISK), record);
  return outcome;
}

/// Tiles that leave memory while the disk fills up, all of them or none.
Outcome SwapOut() {
  Outcome outcome;
  Picture picture;
  outcome.wrong = picture.Make(Kind::kMemoryTiles, kShape, 2);
  const int32_t status =
      T_SetBitmapMemoryInfo(&picture.record, 0, 0, 0, 1, 2, 0, T_INFO_CONVENTIONAL_TILES | T_INFO_MAX_MAPPED_TILES);
  Note(outcome, "T_SetBitmapMemoryInfo", status);
  uint32_t type = 0;
  uint32_t inMemory = 0;
  T_GetBitmapMemoryInfo(&picture.record, &type, nullptr, nullptr, &inMemory, nullptr, nullptr);
  if (inMemory != (status == SUCCESS ? 1u : 12u)) outcome.wrong += std::to_string(inMemory) + " tiles in memory; ";
  ExpectRows(outcome, "after T_SetBitmapMemoryInfo", picture.record, MakeContent(kShape, 2));
  const int32_t moved = T_SetBitmapMemoryInfo(&picture.record, TYPE_DISK, 0, 0, 0, 0, 0, T_INFO_MEMORY_TYPE);
  Note(outcome, "T_SetBitmapMemoryInfo, disk", moved);
  ExpectRows(outcome, "after T_SetBitmapMemoryInfo, disk", picture.record, MakeContent(kShape, 2));
  return outcome;
}

constexpr uint32_t kHugeBytes = 40000;

/// A huge block that finds no room in memory; `full` refuses the file's space too.
Outcome UseHuge(bool full) {
  Outcome outcome;
  // The block itself and its section are calls 2 and 3, the file's space is call 4.
  fault::Arm({.first = 2,
              .last = full ? 4u : 3u,
              .answer = fault::Answer::kDiskFull,
              .points = Mask(fault::Point::kMemory) | Mask(fault::Point::kSection) | Mask(fault::Point::kSize)});
  T_HugeMemory* const huge = T_AllocHugeMemory(kHugeBytes);
  fault::Disarm();
  if (!huge) {
    outcome.whole = false;
    return outcome;
  }
  if (!huge->Mapped) outcome.wrong += "the block lies in memory; ";
  if (T_ZeroHugeMemory(huge, 0, kHugeBytes) != SUCCESS) outcome.wrong += "T_ZeroHugeMemory; ";
  for (uint32_t offset = 0; offset < kHugeBytes; offset += 1000) {
    void* address = nullptr;
    if (T_AccessHugeMemory(huge, &address, offset, 1000) != SUCCESS) {
      outcome.wrong += "T_AccessHugeMemory; ";
      break;
    }
    std::memset(address, 0xA5, 1000);
  }
  T_FreeHugeMemory(huge);
  return outcome;
}

// ---- A disk that is full by its gate -------------------------------------------------------------------------------

/// The use runs with the disk full from call 1, 2, ... on, the last time not at all.
void FillByGate(Outcome (*use)()) {
  engine::Scene scene;
  const engine::World before = LookAround(scene);
  bool whole = false;
  int calls = 0;
  for (; !whole && calls < 200; ++calls) {
    fault::Arm({.first = static_cast<uint64_t>(calls) + 1,
                .answer = fault::Answer::kDiskFull,
                .points = Mask(fault::Point::kWrite) | Mask(fault::Point::kSize)});
    const Outcome outcome = use();
    whole = fault::Answered() == 0;
    fault::Disarm();
    EXPECT_EQ(outcome.wrong, "") << "full from call " << calls + 1 << " on";
    EXPECT_EQ(Changes(before, LookAround(scene)), "") << "full from call " << calls + 1 << " on";
    if (whole) {
      EXPECT_TRUE(outcome.whole);
    }
  }
  EXPECT_TRUE(whole);
  EXPECT_GT(calls, 1);
}

// ---- A disk that is full -------------------------------------------------------------------------------------------

#if defined(__linux__)

/// Runs in a child process that sees a disk of so many bytes as its temporary directory. Nothing when the system does
/// not let us make one.
std::optional<Outcome> OnDisk(uint64_t bytes, Outcome (*use)()) {
  constexpr int kNoDisk = 77;
  constexpr int kRefused = 1;
  const engine::OwnDirectory directory;
  int pipe[2];
  if (::pipe(pipe) != 0) return std::nullopt;
  const std::string path(directory.Name().begin(), directory.Name().end());
  const pid_t child = fork();
  if (child == 0) {
    const std::string options = "size=" + std::to_string(bytes);
    if (unshare(CLONE_NEWNS) != 0 || mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount("tarn", path.c_str(), "tmpfs", MS_NOSUID | MS_NODEV, options.c_str()) != 0)
      _exit(kNoDisk);
    T_SetTempDirectory(directory.Name().c_str());
    Outcome outcome = use();
    if (!directory.Files().empty()) outcome.wrong += "files are left; ";
    [[maybe_unused]] const ssize_t told = write(pipe[1], outcome.wrong.data(), outcome.wrong.size());
    _exit(outcome.whole ? 0 : kRefused);
  }
  close(pipe[1]);
  Outcome outcome;
  char text[512];
  for (ssize_t got = 0; (got = read(pipe[0], text, sizeof text)) > 0;)
    outcome.wrong.append(text, static_cast<size_t>(got));
  close(pipe[0]);
  int status = 0;
  waitpid(child, &status, 0);
  if (WIFSIGNALED(status)) outcome.wrong += "signal " + std::to_string(WTERMSIG(status)) + "; ";
  if (WIFEXITED(status) && WEXITSTATUS(status) == kNoDisk) return std::nullopt;
  outcome.whole = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return outcome;
}

/// Disks of 4 KiB up to `largest` pages, which is enough.
void FillDisk(Outcome (*use)(), uint64_t largest) {
  std::optional<Outcome> outcome;
  for (uint64_t step = 0; step < kSteps; ++step) {
    const uint64_t pages = 1 + (largest - 1) * step / (kSteps - 1);
    outcome = OnDisk(pages * kPage, use);
    if (!outcome) {
      std::printf("No disk could be mounted: by the gate only.\n");
      return;
    }
    EXPECT_EQ(outcome->wrong, "") << "a disk of " << pages << " pages";
    if (step == 0) {
      EXPECT_FALSE(outcome->whole);
    }
  }
  EXPECT_TRUE(outcome->whole);
}

#else

void FillDisk(Outcome (*)(), uint64_t) {}

#endif

TEST(DiskFull, DiskBitmapIsRefusedOrWhole) {
  FillByGate(UseDisk);
  FillDisk(UseDisk, 12);
}

TEST(DiskFull, SwapTilesAreRefusedOrWhole) {
  FillByGate(UseSwapTiles);
  FillDisk(UseSwapTiles, 30);
}

TEST(DiskFull, TilesLeaveMemoryTogetherOrStay) {
  FillByGate(SwapOut);
  FillDisk(SwapOut, 24);
}

TEST(DiskFull, HugeBlockIsRefusedOrWhole) {
  engine::Scene scene;
  const engine::World before = LookAround(scene);
  const Outcome full = UseHuge(true);
  EXPECT_EQ(full.wrong, "");
  EXPECT_FALSE(full.whole);
  const Outcome roomy = UseHuge(false);
  EXPECT_EQ(roomy.wrong, "");
  EXPECT_TRUE(roomy.whole);
  EXPECT_EQ(Changes(before, LookAround(scene)), "");
  FillDisk([] { return UseHuge(false); }, 12);
}

}  // namespace
}  // namespace tarn
