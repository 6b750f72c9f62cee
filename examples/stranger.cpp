// A picture from a stranger: limits before memory, a deadline, damage as a status, several at a time.

#include <chrono>
#include <cstdio>
#include <tarn/tarn.hpp>
#include <thread>
#include <vector>

using namespace tarn;
using namespace std::chrono_literals;

namespace {

constexpr int64_t kMostPixels = 40'000'000;
constexpr uint64_t kMostBytes = 200'000'000;

// Room for a picture whose size a file claims; nothing is allocated for one that is too large.
Result<Bitmap> admit(int64_t width, int64_t height, Depth depth) {
  if (width < 1 || height < 1 || width > kMostPixels || height > kMostPixels / width) {
    return Failure{ERR_IMAGE_TOO_LARGE};
  }
  BitmapHandle asked;  // a description only
  const int32_t status = T_InitBitmap(&asked, sizeof asked, static_cast<int32_t>(width), static_cast<int32_t>(height),
                                      static_cast<int32_t>(depth));
  if (status != SUCCESS) return Failure{status};
  if (asked.Size > kMostBytes) return Failure{ERR_IMAGE_TOO_LARGE};
  return Bitmap::create(asked.Width, asked.Height, depth, {.storage = Storage::NoDisk});
}

// Stops whatever runs on this thread once the time is up.
auto deadline(std::chrono::steady_clock::duration time) {
  const auto end = std::chrono::steady_clock::now() + time;
  return [end](int) { return std::chrono::steady_clock::now() < end; };
}

// The device-independent bitmap in a block of known length, as a thumbnail.
Result<Bitmap> thumbnail(std::span<const uint8_t> file) {
  ProgressScope stop(deadline(5s));
  Result<Dib> block = Dib::copyOf(file);
  if (!block) return block.failure();
  Result<Bitmap> picture = Bitmap::fromDib(*block);  // reads nothing outside of the block
  if (!picture) return picture;
  if (const auto done = picture->resize(64, 0); !done) return done.failure();
  return picture;
}

int failures = 0;
void expect(bool holds, const char* what) {
  if (!holds) ++failures, std::printf("not so: %s\n", what);
}

}  // namespace

int main() {
  expect(admit(100'000, 100'000, Depth::Bits24).status() == ERR_IMAGE_TOO_LARGE, "too many pixels are refused");
  expect(admit(6'000, 6'000, Depth::Bits64).status() == ERR_IMAGE_TOO_LARGE, "too many bytes are refused");
  expect(admit(-5, 7, Depth::Bits8).status() == ERR_IMAGE_TOO_LARGE, "negative sides are refused");
  Bitmap photo = admit(1024, 768, Depth::Bits24).value();
  photo.fill(Color::rgb(30, 90, 150)).value();

  {
    ProgressScope stop(deadline(0s));
    expect(photo.rotate(1000).status() == kCancelled, "work stops when the time is up");
  }
  expect(photo.width() == 1024 && photo.pixel(700, 1000).value() == Color::rgb(30, 90, 150), "and has changed nothing");

  // Every thread has settings of its own, and bitmaps of its own.
  const Dib made = photo.toDib().value();
  std::vector<std::thread> workers;
  std::vector<int> wrong(4);
  for (size_t worker = 0; worker < wrong.size(); ++worker) {
    workers.emplace_back([&made, &mine = wrong[worker], worker] {
      std::vector<uint8_t> file(made.bytes().begin(), made.bytes().end());
      if (thumbnail(file).value_or(Bitmap()).width() != 64) ++mine;
      file.resize(file.size() / (worker + 2));  // cut off
      if (thumbnail(file).status() != ERR_INVALID_PARAMETER) ++mine;
      file[14] = 77;  // a depth that there is not
      if (thumbnail(file).status() != ERR_UNSUPPORTED_FORMAT) ++mine;
    });
  }
  for (std::thread& worker : workers) worker.join();
  for (const int mine : wrong) expect(mine == 0, "whole files give thumbnails, damaged ones a status");
  std::puts(failures == 0 ? "done" : "failed");
  return failures != 0;
}
