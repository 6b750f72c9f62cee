// Files of any content through the readers: a whole picture, or a failure of a class that files can cause.

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <functional>
#include <vector>

#include "../Targets.h"
#include "Console.h"
#include "Failure.h"
#include "Files.h"
#include "Picture.h"
#include "Targets.h"

using namespace tarn::tool;
using tarn::fuzz::Require;

namespace {

constexpr int kMostPages = 4;
constexpr uint64_t kMostPixelsHere = 1 << 20;  // a claim costs time, not findings

/// The bytes under a name that can be opened.
class Named {
 public:
  Named(const uint8_t* data, size_t size) : file_(memfd_create("tarn-fuzz", MFD_CLOEXEC)) {
    Require(file_ >= 0 && write(file_, data, size) == static_cast<ssize_t>(size), "input stored");
  }
  ~Named() { close(file_); }
  Named(const Named&) = delete;
  Named& operator=(const Named&) = delete;
  std::string Name() const { return "/proc/self/fd/" + std::to_string(file_); }

 private:
  int file_;
};

using Opener = std::function<std::unique_ptr<Reader>(InputFile& file, Console& console)>;

void Read(const uint8_t* data, size_t size, const Opener& open) {
  if (size == 0) return;
  const Named named(data, size);
  Console console(false, true);
  StorageChoice storage;
  storage.maxPixels = kMostPixelsHere;
  try {
    InputFile file(named.Name());
    const std::unique_ptr<Reader> reader = open(file, console);
    for (int page = 1; page <= std::min(reader->Pages(), kMostPages); ++page) {
      if (page > 1) reader->TurnTo(page);
      const Picture& info = reader->Info();
      Require(info.width > 0 && info.height > 0, "sides");
      Require(info.palette.size() == (info.bits <= 8 ? size_t{1} << info.bits : 0), "palette");
      Require(info.orientation >= 1 && info.orientation <= 8, "orientation");
      RequireWithin(storage, info, file.Name());
      Bitmap bitmap(info, storage, file.Name());
      Progress progress(console, file.Name(), reader->Steps());
      reader->ReadInto(bitmap, progress);
    }
  } catch (const Failure& failure) {
    const Exit exit = failure.ExitCode();
    Require(exit == Exit::kDamaged || exit == Exit::kLimit || exit == Exit::kDepth || exit == Exit::kMemory,
            failure.what());
    Require(*failure.what() != 0, "a reason");
  }
}

/// The check sums of all chunks: random ones would end every input at its first chunk.
void MendChecks(std::vector<uint8_t>& png) {
  const auto number = [&](size_t at) {
    return uint32_t{png[at]} << 24 | uint32_t{png[at + 1]} << 16 | uint32_t{png[at + 2]} << 8 | png[at + 3];
  };
  for (size_t at = 8; at + 12 <= png.size();) {
    const uint64_t bytes = number(at);
    if (bytes > png.size() - at - 12) return;
    uint32_t check = 0xFFFFFFFF;
    for (size_t i = at + 4; i < at + 8 + bytes; ++i) {
      check ^= png[i];
      for (int bit = 0; bit < 8; ++bit) check = check >> 1 ^ (check & 1 ? 0xEDB88320 : 0);
    }
    for (size_t i = 0; i < 4; ++i) png[at + 8 + bytes + i] = static_cast<uint8_t>(~check >> (24 - 8 * i));
    at += 12 + bytes;
  }
}

}  // namespace

void FuzzPng(const uint8_t* data, size_t size) {
  std::vector<uint8_t> mended(data, data + size);
  MendChecks(mended);
  Read(mended.data(), size, [](InputFile& file, Console& console) { return OpenPng(file, console); });
}

void FuzzJpeg(const uint8_t* data, size_t size) {
  Read(data, size, [](InputFile& file, Console& console) { return OpenJpeg(file, console, 0); });
}

void FuzzTiff(const uint8_t* data, size_t size) {
  Read(data, size, [](InputFile& file, Console& console) { return OpenTiff(file, console, kEveryPage, 0); });
}

void FuzzBmp(const uint8_t* data, size_t size) {
  Read(data, size, [](InputFile& file, Console&) { return OpenBmp(file); });
}
