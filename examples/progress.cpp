// A long operation shows how far it is, and is stopped: by an answer, and by an exception.

#include <cstdio>
#include <stdexcept>
#include <tarn/tarn.hpp>

using namespace tarn;

namespace {
int failures = 0;
void expect(bool holds, const char* what) {
  if (!holds) ++failures, std::printf("not so: %s\n", what);
}
}  // namespace

int main() {
  Bitmap photo = Bitmap::create(1600, 1200, Depth::Bits24).value();
  photo.fill(Color::rgb(200, 120, 40)).value();

  int last = -1;
  {
    ProgressScope watch([&](int percent) {  // called on this thread, by every operation until the brace
      if (percent != last) std::printf("\r%3d %%", percent);
      last = percent;
    });
    photo.resize(1200, 0).value();
    std::puts("");
  }
  expect(last == 100 && photo.height() == 900, "resized, and told so");

  {
    ProgressScope button([](int percent) { return percent < 30; });  // false stops it
    expect(photo.rotate(1234).status() == kCancelled, "stopped");
  }
  expect(photo.width() == 1200, "a stopped operation leaves the bitmap as it was");

  try {
    ProgressScope watch([](int) { throw std::runtime_error("the window was closed"); });
    photo.rotate(1234).value();
    expect(false, "the exception came back");
  } catch (const std::runtime_error& error) {
    std::puts(error.what());
  }
  expect(photo.width() == 1200 && photo.pixel(0, 0).value() == Color::rgb(200, 120, 40), "as it was");
  return failures != 0;
}
