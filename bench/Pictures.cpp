#include "Pictures.h"

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "Bench.h"

namespace bench {
namespace {

constexpr int32_t kSquare = 512;

/// An uncompressed 24-bit BMP file; no width when it is something else.
Pixels ReadBmp(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  const std::vector<uint8_t> bytes{std::istreambuf_iterator<char>(file), {}};
  const auto word = [&](size_t at) {
    int32_t value = 0;
    std::memcpy(&value, bytes.data() + at, sizeof value);
    return value;
  };
  constexpr size_t kHeaders = 54;
  constexpr int32_t kMost = 1 << 15;
  if (bytes.size() < kHeaders || bytes[0] != 'B' || bytes[28] != 24 || word(30) != 0) return {};
  const int32_t width = word(18);
  const int32_t height = std::abs(word(22));
  if (width < 1 || width > kMost || height < 1 || height > kMost) return {};
  Pixels pixels(kBgr24, width, height);
  const auto first = static_cast<uint32_t>(word(10));
  if (first > bytes.size() || bytes.size() - first < pixels.bytes.size()) return {};
  for (int32_t row = 0; row < height; ++row) {
    const int32_t from = word(22) > 0 ? height - 1 - row : row;
    std::memcpy(pixels.Row(row), bytes.data() + first + uint64_t{pixels.rowBytes} * static_cast<uint32_t>(from),
                pixels.rowBytes);
  }
  return pixels;
}

/// Hills under a sky, with some noise.
Pixels Landscape() {
  Pixels pixels(kBgr24, 2 * kSquare, 2 * kSquare);
  uint32_t state = 7;
  for (int32_t y = 0; y < pixels.height; ++y) {
    uint8_t* at = pixels.Row(y);
    for (int32_t x = 0; x < pixels.width; ++x, at += 3) {
      const double ridge = 500 + 90 * std::sin(x / 97.0) + 40 * std::sin(x / 31.0 + 1) + 12 * std::sin(x / 7.0);
      const double shade = y < ridge ? y / 6.0 : 60 + 50 * std::sin((x + 2 * y) / 23.0) * std::sin(y / 17.0);
      state = state * 1664525u + 1013904223u;
      const double grain = shade + (state >> 29);
      at[0] = static_cast<uint8_t>(y < ridge ? 230 - grain / 4 : 20 + grain / 3);
      at[1] = static_cast<uint8_t>(y < ridge ? 150 + grain / 2 : 50 + grain);
      at[2] = static_cast<uint8_t>(y < ridge ? 90 + grain : 40 + grain / 2);
    }
  }
  return pixels;
}

/// There and back again: 0..size-1 for any place.
int32_t Reflected(int32_t at, int32_t size) {
  at %= 2 * size;
  return at < size ? at : 2 * size - 1 - at;
}

}  // namespace

Pixels::Pixels(Format itsFormat, int32_t itsWidth, int32_t itsHeight)
    : format(itsFormat),
      width(itsWidth),
      height(itsHeight),
      rowBytes(static_cast<uint32_t>((int64_t{itsWidth} * itsFormat.bits + 31) / 32 * 4)),
      bytes(uint64_t{rowBytes} * static_cast<uint32_t>(itsHeight)) {}

std::vector<Pixels> Photographs(const std::string& directory, std::string* names) {
  std::vector<std::filesystem::path> paths;
  std::error_code ignored;
  for (const auto& entry : std::filesystem::directory_iterator(directory, ignored)) {
    const std::string name = entry.path().filename().string();
    if (name.starts_with("photo-") && name.ends_with(".bmp")) paths.push_back(entry.path());
  }
  std::sort(paths.begin(), paths.end());
  std::vector<Pixels> photographs;
  std::string all;
  for (const auto& path : paths) {
    Pixels photograph = ReadBmp(path);
    if (photograph.width == 0) continue;
    photographs.push_back(std::move(photograph));
    all += (all.empty() ? "" : ", ") + path.stem().string().substr(6);
  }
  if (photographs.empty()) {
    photographs.push_back(Landscape());
    all = "a computed landscape";
  }
  if (names) *names = all;
  return photographs;
}

Pixels Mosaic(const std::string& directory, int32_t width, int32_t height, std::string* origin) {
  const std::vector<Pixels> photographs = Photographs(directory, origin);
  Pixels mosaic(kBgr24, width, height);
  for (int32_t y = 0; y < height; ++y) {
    uint8_t* at = mosaic.Row(y);
    for (int32_t x = 0; x < width; ++x, at += 3) {
      const int32_t column = x / kSquare;
      const int32_t row = y / kSquare;
      const Pixels& photograph = photographs[static_cast<size_t>(column + 3 * row) % photographs.size()];
      const int32_t fromX = Reflected(x % kSquare + 131 * row, photograph.width);
      const int32_t fromY = Reflected(y % kSquare + 89 * column, photograph.height);
      std::memcpy(at, photograph.Row(fromY) + 3 * int64_t{fromX}, 3);
    }
  }
  return mosaic;
}

Pixels Converted(const Pixels& source, Format format, const Palette& palette) {
  Pixels target(format, source.width, source.height);
  target.palette = palette;
  std::vector<uint8_t> line(T_CalcConvertSize(source.width, source.format.bits, source.width, format.bits));
  for (int32_t row = 0; row < source.height; ++row) {
    std::memcpy(line.data(), source.Row(row), source.rowBytes);
    Require(T_ConvertBuffer(line.data(), source.width, source.format.bits, format.bits, source.format.order,
                            format.order, source.Entries(), target.Entries()) == SUCCESS,
            "T_ConvertBuffer");
    std::memcpy(target.Row(row), line.data(), target.rowBytes);
  }
  return target;
}

Palette PickedColours(const Pixels& picture, uint32_t count) {
  Palette palette(count);
  uint32_t state = 17;
  const auto next = [&state](int32_t limit) {
    state = state * 1664525u + 1013904223u;
    return static_cast<int32_t>((uint64_t{state} * static_cast<uint32_t>(limit)) >> 32);
  };
  for (T_PaletteEntry& entry : palette) {
    const int32_t row = next(picture.height);
    const uint8_t* const at = picture.Row(row) + 3 * int64_t{next(picture.width)};
    entry = {at[0], at[1], at[2], 0};
  }
  return palette;
}

double MeanDifference(const Pixels& a, const Pixels& b) {
  Require(a.width == b.width && a.height == b.height, "pictures of equal size");
  const Pixels first = Converted(a, kBgr24);
  const Pixels second = Converted(b, kBgr24);
  uint64_t sum = 0;
  for (size_t i = 0; i < first.bytes.size(); ++i)
    sum += static_cast<uint32_t>(std::abs(int{first.bytes[i]} - int{second.bytes[i]}));
  return static_cast<double>(sum) / static_cast<double>(first.bytes.size());
}

double PeakSignalToNoise(const Pixels& a, const Pixels& b, int32_t side) {
  Require(a.width == b.width && a.height == b.height, "pictures of equal size");
  const Pixels first = Converted(a, kBgr24);
  const Pixels second = Converted(b, kBgr24);
  const int32_t columns = a.width / side;
  std::vector<int64_t> sums(static_cast<size_t>(columns) * 3);
  double squares = 0;
  for (int32_t row = 0; row + side <= a.height; row += side) {
    std::fill(sums.begin(), sums.end(), 0);
    for (int32_t y = row; y < row + side; ++y) {
      const uint8_t* one = first.Row(y);
      const uint8_t* other = second.Row(y);
      for (int32_t column = 0; column < columns; ++column) {
        int64_t* const sum = sums.data() + 3 * static_cast<size_t>(column);
        for (int32_t x = 0; x < side; ++x, one += 3, other += 3)
          for (int c = 0; c < 3; ++c) sum[c] += int{one[c]} - int{other[c]};
      }
    }
    for (const int64_t sum : sums) squares += static_cast<double>(sum * sum);
  }
  const double values = static_cast<double>(a.height / side) * columns * 3;
  const double error = squares / values / std::pow(side, 4);
  return error > 0 ? 10 * std::log10(255 * 255 / error) : 99;
}

}  // namespace bench
