// Makes the pictures that the demo and the tests use: a landscape that is computed, and a page that looks scanned.
// The same input gives the same output: whole numbers, a fixed seed, no clock.

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "Console.h"
#include "Failure.h"
#include "Files.h"
#include "Options.h"
#include "Picture.h"

namespace tarn::tool {
namespace {

/// A small generator; every run gives the same numbers.
class Random {
 public:
  explicit Random(uint64_t seed) : state_(seed) {}
  uint32_t Next() noexcept {
    state_ ^= state_ << 13;
    state_ ^= state_ >> 7;
    state_ ^= state_ << 17;
    return static_cast<uint32_t>(state_ >> 32);
  }
  bool OneIn(uint32_t count) noexcept { return Next() % count == 0; }

 private:
  uint64_t state_;
};

// ---- Landscape -----------------------------------------------------------------------------------------------------

/// Value at a lattice point, 0..1.
double Lattice(int x, int y, uint32_t layer) {
  uint32_t h = static_cast<uint32_t>(x) * 374761393u + static_cast<uint32_t>(y) * 668265263u + layer * 2246822519u;
  h = (h ^ (h >> 13)) * 1274126177u;
  return ((h ^ (h >> 16)) & 0xFFFFFF) / double(0xFFFFFF);
}

/// Smooth noise: octaves of interpolated lattice values, 0..1.
double Noise(double x, double y, uint32_t layer, int octaves) {
  double sum = 0, weight = 0.5, total = 0;
  for (int octave = 0; octave < octaves; ++octave) {
    const int x0 = static_cast<int>(std::floor(x)), y0 = static_cast<int>(std::floor(y));
    const double fx = x - x0, fy = y - y0;
    const double sx = fx * fx * (3 - 2 * fx), sy = fy * fy * (3 - 2 * fy);
    const double top = Lattice(x0, y0, layer) * (1 - sx) + Lattice(x0 + 1, y0, layer) * sx;
    const double bottom = Lattice(x0, y0 + 1, layer) * (1 - sx) + Lattice(x0 + 1, y0 + 1, layer) * sx;
    sum += weight * (top * (1 - sy) + bottom * sy);
    total += weight;
    weight *= 0.5;
    x = x * 2 + 17.3;
    y = y * 2 + 9.1;
    ++layer;
  }
  return sum / total;
}

struct Colour {
  double red, green, blue;
  Colour operator*(double f) const { return {red * f, green * f, blue * f}; }
  Colour operator+(const Colour& o) const { return {red + o.red, green + o.green, blue + o.blue}; }
};
Colour Mix(const Colour& a, const Colour& b, double t) { return a * (1 - t) + b * t; }

constexpr int kWidth = 720, kHeight = 480, kShore = 310;

/// Mountains in haze under an evening sky; y grows downwards, kShore is the water line.
Colour Land(double x, double y) {
  const Colour low{252, 196, 138}, high{70, 112, 172}, haze{214, 176, 160};
  Colour colour = Mix(high, low, std::pow(std::min(1.0, y / 175), 1.3));
  const double glow = std::exp(-((x - 470) * (x - 470) + (y - 215) * (y - 215)) / 9000);
  colour = Mix(colour, {255, 240, 205}, 0.8 * glow);
  const double cloud = Noise(x / 170, y / 38, 90, 5);
  if (cloud > 0.52) colour = Mix(colour, {255, 222, 200}, std::min(1.0, (cloud - 0.52) * 3.5) * 0.7);
  for (int ridge = 0; ridge < 4; ++ridge) {
    const double scale = 210 - 38 * ridge;
    const double crest =
        130 + 42 * ridge + (Noise(x / scale + 7 * ridge, 0.5, 10u * (ridge + 1), 6) - 0.5) * (190 - 32 * ridge);
    if (y < crest) continue;
    const double near = (ridge + 1) / 4.0;
    const double grain = Noise(x / 9, y / 6, 200u + ridge, 4);
    const Colour rock = Mix({38, 52, 58}, {92, 98, 74}, grain);
    colour = Mix(haze, rock, 0.25 + 0.7 * near);
    const double mist = std::max(0.0, 1 - (kShore - y) / 60.0);
    colour = Mix(colour, haze, 0.55 * mist * (1 - 0.6 * near));
  }
  return colour;
}

Colour Scene(int x, int y) {
  if (y < kShore) return Land(x, y);
  const double depth = (y - kShore) / double(kHeight - kShore);
  const double ripple = (Noise(x / (14 + 40 * depth), y / (2 + 7 * depth), 300, 4) - 0.5) * (6 + 46 * depth);
  const double mirrored = std::clamp(kShore - (y - kShore) * 1.25 + ripple, 0.0, kShore - 1.0);
  return Mix(Land(x + ripple * 0.6, mirrored), {22, 44, 62}, 0.22 + 0.42 * depth);
}

/// In colour of 24 bits or gray of 16.
void MakeLandscape(const std::string& name, bool gray) {
  Console console(false, true);
  Picture picture;
  picture.width = kWidth;
  picture.height = kHeight;
  picture.bits = gray ? 16 : 24;
  picture.xDpi = picture.yDpi = 96;
  Bitmap bitmap(picture, {}, name);
  std::vector<uint8_t> line(bitmap.BytesPerLine());
  const auto byte = [](double v) { return static_cast<uint8_t>(std::clamp(v + 0.5, 0.0, 255.0)); };
  Random random(20);
  for (int y = 0; y < kHeight; ++y) {
    for (int x = 0; x < kWidth; ++x) {
      const Colour colour = Scene(x, y);
      const double grain = static_cast<int>(random.Next() % 5) - 2;  // of the film
      if (gray) {
        const double light = 0.299 * colour.red + 0.587 * colour.green + 0.114 * colour.blue;
        const auto level = static_cast<uint16_t>(std::clamp(light * 257 + grain * 64, 0.0, 65535.0));
        line[2 * x] = static_cast<uint8_t>(level);
        line[2 * x + 1] = static_cast<uint8_t>(level >> 8);
        continue;
      }
      uint8_t* const pixel = line.data() + 3 * x;
      pixel[0] = byte(colour.blue + grain);
      pixel[1] = byte(colour.green + grain);
      pixel[2] = byte(colour.red + grain);
    }
    bitmap.PutRow(y, line.data());
  }
  OutputFile output(name);
  Progress progress(console, name, kHeight);
  WritePicture(FormatOf(name), {}, picture, bitmap, output, console, progress);
  output.Commit();
}

// ---- Page ----------------------------------------------------------------------------------------------------------

/// One-bit pixels, 1 is ink.
class Sheet {
 public:
  Sheet(int width, int height) : width_(width), height_(height), ink_(static_cast<size_t>(width) * height) {}
  bool Ink(int x, int y) const {
    return x >= 0 && y >= 0 && x < width_ && y < height_ && ink_[static_cast<size_t>(y) * width_ + x];
  }
  void Set(int x, int y, bool ink) { ink_[static_cast<size_t>(y) * width_ + x] = ink; }
  int Width() const { return width_; }
  int Height() const { return height_; }

 private:
  int width_, height_;
  std::vector<uint8_t> ink_;
};

/// The sheet as a scanner sees it: turned by 0.6 degrees, edges ragged, dust on the glass.
Sheet Scan(const Sheet& page) {
  constexpr int64_t kSin = 686, kCos = 65532;  // of 0.6 degrees, times 65536
  constexpr uint32_t kRagged = 7, kDust = 3000;
  Sheet scan(page.Width(), page.Height());
  Random random(350);
  const int64_t centreX = page.Width() / 2, centreY = page.Height() / 2;
  for (int y = 0; y < page.Height(); ++y) {
    for (int x = 0; x < page.Width(); ++x) {
      const int64_t dx = x - centreX, dy = y - centreY;
      const int fromX = static_cast<int>(centreX + ((dx * kCos + dy * kSin + 32768) >> 16));
      const int fromY = static_cast<int>(centreY + ((dy * kCos - dx * kSin + 32768) >> 16));
      bool ink = page.Ink(fromX, fromY);
      const bool edge = ink != page.Ink(fromX - 1, fromY) || ink != page.Ink(fromX, fromY - 1);
      if (edge && random.OneIn(kRagged)) ink = !ink;
      if (ink || random.OneIn(kDust)) scan.Set(x, y, true);
    }
  }
  return scan;
}

void AgePage(const std::string& from, const std::string& name, int shrink) {
  Console console(false, true);
  InputFile input(from);
  const std::unique_ptr<Reader> reader = OpenPicture(input, console, 0);
  Picture picture = reader->Info();
  if (picture.bits != 1) throw Failure(Exit::kDepth, from, "is not a 1-bit page");
  Progress progress(console, name, 1);
  Bitmap printed(picture, {}, from);
  reader->ReadInto(printed, progress);

  Sheet page(picture.width / shrink, picture.height / shrink);
  const bool inkBit = RampOf(picture.palette) == Ramp::kWhiteIsZero;
  std::vector<uint8_t> line(printed.BytesPerLine());
  for (int y = 0; y < page.Height(); ++y) {
    printed.GetRow(y * shrink, line.data());
    for (int x = 0; x < page.Width(); ++x) {
      const int bit = x * shrink;
      page.Set(x, y, ((line[bit / 8] >> (7 - bit % 8)) & 1) == inkBit);
    }
  }
  const Sheet scan = Scan(page);

  picture.width = scan.Width();
  picture.height = scan.Height();
  picture.xDpi /= shrink;
  picture.yDpi /= shrink;
  picture.palette = GrayRamp(1, true);
  picture.profile.clear();  // the printer's, and the pixels are others now
  Bitmap bitmap(picture, {}, name);
  for (int y = 0; y < scan.Height(); ++y) {
    line.assign(bitmap.BytesPerLine(), 0);
    for (int x = 0; x < scan.Width(); ++x) line[x / 8] |= static_cast<uint8_t>(scan.Ink(x, y) << (7 - x % 8));
    bitmap.PutRow(y, line.data());
  }
  OutputFile output(name);
  WritePicture(FormatOf(name), {}, picture, bitmap, output, console, progress);
  output.Commit();
}

int Run(int argc, char** argv) {
  CommandLine line("tarn_samples", "Makes the pictures of the demo and the tests.");
  std::string input, output;
  int shrink = 1;
  bool gray = false;
  Options landscape = line.Command("landscape", "a computed landscape");
  landscape.Flag("--gray16", gray, "gray of 16 bits instead of colour of 24");
  landscape.Argument("out", output, "OUT", "file to write");
  Options scan = line.Command("scan", "a one-bit page as a scanner sees it: skewed and specked");
  scan.Argument("in", input, "IN", "page to scan");
  scan.Argument("out", output, "OUT", "file to write");
  scan.Number("--shrink", shrink, 1, 8, "take every N-th pixel");
  if (!line.Read(argc, argv)) return 0;
  if (line.Chosen() == "landscape") MakeLandscape(output, gray);
  if (line.Chosen() == "scan") AgePage(input, output, shrink);
  return 0;
}

}  // namespace
}  // namespace tarn::tool

int main(int argc, char** argv) {
  try {
    return tarn::tool::Run(argc, argv);
  } catch (const tarn::tool::Failure& failure) {
    std::fprintf(stderr, "tarn_samples: %s: %s\n", failure.File().c_str(), failure.what());
    return static_cast<int>(failure.ExitCode());
  } catch (const std::exception& error) {
    std::fprintf(stderr, "tarn_samples: %s\n", error.what());
    return static_cast<int>(tarn::tool::Exit::kInternal);
  }
}
