#pragma once
// One-bit pages: read from a file, or drawn here, the same everywhere.

#include <cstdint>
#include <string>
#include <vector>

namespace bench {

/// Rows padded to 4 bytes, ones are ink.
struct PageImage {
  PageImage(uint32_t pageWidth, uint32_t pageHeight)
      : width(pageWidth), height(pageHeight), stride((pageWidth + 31) / 8 & ~3u), bits(uint64_t{stride} * height) {}
  uint32_t width;
  uint32_t height;
  uint32_t stride;
  std::vector<uint8_t> bits;
  [[nodiscard]] double Pixels() const { return static_cast<double>(width) * height; }
};

/// A binary PBM file; without a width when it cannot be read.
PageImage ReadPbm(const std::string& path);
/// Lines of made-up letters of round and straight strokes, about 10 points high.
PageImage DrawText(uint32_t width, uint32_t height, uint32_t dotsPerInch);
/// Every pixel black or white by chance.
PageImage DrawNoise(uint32_t width, uint32_t height);

}  // namespace bench
