// tarn_disk_turn [SIDE [DIRECTORY]]: a quarter turn of a 24-bit picture of SIDE x SIDE pixels that lies in a file,
// beside `cp` of a file of its size. Says how long both took, how much memory the turn had, and how many bytes it read.

#include <sys/statvfs.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "tarn/tarn.h"

namespace {

using Clock = std::chrono::steady_clock;

void Require(bool done, const char* what) {
  if (done) return;
  std::fprintf(stderr, "tarn_disk_turn: failed: %s\n", what);
  std::exit(1);
}

double SecondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

/// The number behind a name in a file of /proc.
long long Fact(const char* file, const std::string& name) {
  std::ifstream in(file);
  for (std::string line; std::getline(in, line);)
    if (line.starts_with(name + ":")) return std::atoll(line.c_str() + name.size() + 1);
  return 0;
}

uint8_t Sample(int32_t column, int32_t row, int32_t channel) {
  const uint32_t mixed = (static_cast<uint32_t>(column) * 0x9E3779B1u) ^ (static_cast<uint32_t>(row) * 0x85EBCA6Bu);
  return static_cast<uint8_t>((mixed * 0xC2B2AE35u) >> (8 * channel));
}

void FillLine(std::vector<uint8_t>& line, int32_t side, int32_t row) {
  for (int32_t x = 0; x < side; ++x)
    for (int32_t i = 0; i < 3; ++i) line[static_cast<size_t>(3 * x + i)] = Sample(x, row, i);
}

double CopyFile(const std::string& from, const std::string& to) {
  const auto start = Clock::now();
  const pid_t child = fork();
  Require(child >= 0, "fork");
  if (child == 0) {
    execlp("cp", "cp", from.c_str(), to.c_str(), static_cast<char*>(nullptr));
    _exit(127);
  }
  int status = 0;
  Require(waitpid(child, &status, 0) == child && status == 0, "cp");
  const double seconds = SecondsSince(start);
  unlink(to.c_str());
  return seconds;
}

}  // namespace

int main(int count, char** arguments) {
  const int32_t side = count > 1 ? std::atoi(arguments[1]) : 20000;
  const std::string directory = count > 2 ? arguments[2] : ".";
  Require(side > 0 && side <= 40000, "a side of 1 to 40000");
  BitmapHandle bitmap{};
  Require(T_InitBitmap(&bitmap, sizeof bitmap, side, side, 24) == SUCCESS, "T_InitBitmap");
  const uint64_t bytes = uint64_t{bitmap.BytesPerLine} * static_cast<uint32_t>(side);
  struct statvfs disk;
  Require(statvfs(directory.c_str(), &disk) == 0, "the directory");
  if (disk.f_bavail * static_cast<uint64_t>(disk.f_frsize) < 4 * bytes) {
    std::printf("skipped: %s has no room for four files of %.2f GB\n", directory.c_str(), double(bytes) / 1e9);
    return 0;
  }

  std::vector<uint8_t> line(bitmap.BytesPerLine);
  const std::string plain = directory + "/tarn-disk-turn.tmp", copy = plain + ".copy";
  FILE* const file = std::fopen(plain.c_str(), "wb");
  Require(file != nullptr, "making a file");
  for (int32_t row = 0; row < side; ++row) {
    FillLine(line, side, row);
    Require(std::fwrite(line.data(), 1, line.size(), file) == line.size(), "writing a file");
  }
  Require(std::fflush(file) == 0 && fsync(fileno(file)) == 0 && std::fclose(file) == 0, "writing a file");
  double copying = CopyFile(plain, copy);

  const std::wstring wide(directory.begin(), directory.end());
  Require(T_SetTempDirectory(wide.c_str()) == SUCCESS, "T_SetTempDirectory");
  Require(T_AllocateBitmap(&bitmap, TYPE_DISK) == SUCCESS, "T_AllocateBitmap");
  bitmap.ViewPerspective = 1;
  for (int32_t row = 0; row < side; ++row) {
    FillLine(line, side, row);
    Require(T_PutBitmapRow(&bitmap, line.data(), static_cast<uint32_t>(row), line.size()) ==
                static_cast<int64_t>(line.size()),
            "T_PutBitmapRow");
  }
  sync();
  const long long readBefore = Fact("/proc/self/io", "rchar");
  const auto start = Clock::now();
  Require(T_RotateBitmap(&bitmap, 9000, ROTATE_RESIZE, 0) == SUCCESS, "T_RotateBitmap");
  const double turning = SecondsSince(start);
  const long long read = Fact("/proc/self/io", "rchar") - readBefore;
  const long long most = Fact("/proc/self/status", "VmHWM");

  for (int32_t row = 0; row < side; row += 97) {
    Require(T_GetBitmapRow(&bitmap, line.data(), static_cast<uint32_t>(row), line.size()) ==
                static_cast<int64_t>(line.size()),
            "T_GetBitmapRow");
    for (int32_t x = 0; x < side; ++x)
      for (int32_t i = 0; i < 3; ++i)
        Require(line[static_cast<size_t>(3 * x + i)] == Sample(row, side - 1 - x, i), "the turned picture");
  }
  T_FreeBitmap(&bitmap);
  copying = (copying + CopyFile(plain, copy)) / 2;
  unlink(plain.c_str());
  std::printf("%d x %d, 24 bits, %.2f GB in a file, a quarter turn: %.1f s; cp: %.1f s; %.2f x cp\n", side, side,
              double(bytes) / 1e9, turning, copying, turning / copying);
  std::printf(
      "read: %.2f x the picture, of which 1 are pieces put down on the way; most memory of the process: %.0f MB\n",
      static_cast<double>(read) / static_cast<double>(bytes), static_cast<double>(most) / 1024);
  return 0;
}
