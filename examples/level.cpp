// Levels a scanned page: tries angles, keeps the one at which lines of text stand out most from the gaps between them.

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <tarn/tarn.hpp>

using namespace tarn;

namespace {

// A page with lines of text, black on white.
Bitmap page() {
  Bitmap made = Bitmap::create(800, 600, Depth::Bits1).value();
  made.fill(Color::rgb(255, 255, 255)).value();
  made.editRows([](int32_t y, std::span<uint8_t> row) {
        if (y < 60 || y >= 540 || y / 12 % 2 != 0) return;
        for (uint8_t& eight : row.subspan(10, 80)) eight = 0;  // eight pixels a byte, 0 is black
      })
      .value();
  return made;
}

// Squared differences of white from row to row.
double contrast(const Bitmap& bitmap) {
  double sum = 0, above = 0;
  bitmap
      .readRows([&](int32_t, std::span<const uint8_t> row) {
        int white = 0;
        for (const uint8_t eight : row) white += std::popcount(eight);
        sum += (white - above) * (white - above);
        above = white;
      })
      .value();
  return sum;
}

}  // namespace

int main() {
  const RotateOptions onWhite{.resize = false, .fill = Color::rgb(255, 255, 255)};
  Bitmap scan = page();
  scan.rotate(170, onWhite).value();  // it lay 1.7 degrees askew

  int32_t best = 0;
  double most = 0;
  for (int32_t angle = -300; angle <= 300; angle += 10) {  // hundredths of a degree
    Bitmap turned = scan.clone().value();
    turned.rotate(angle, onWhite).value();
    const double found = contrast(turned);
    if (found > most) most = found, best = angle;
  }
  scan.rotate(best, onWhite).value();
  std::printf("turned by %.1f degrees\n", best / 100.0);
  return std::abs(best + 170) <= 20 ? 0 : 1;
}
