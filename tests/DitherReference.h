#pragma once
// Dithering as it is published: each pixel's error is pushed to the sums of its neighbours, one pixel after the other.
// Slow, and without any of the library's tables.

#include <cstdint>
#include <vector>

#include "ConvertReference.h"

namespace ditherref {

using Palette = convertref::Palette;

class Run {
 public:
  /// A null palette is the fixed table. `lent` is a match table of position + 1, or null.
  Run(int width, int method, const Palette* palette, int count, int bits, std::vector<uint32_t>* lent);
  /// Colours of one line as r, g, b triples; returns its indices.
  std::vector<int> Line(const std::vector<int>& rgb);

 private:
  int IndexOf(int r, int g, int b, int limit) const;
  int Cached(int r, int g, int b) const;

  int width_, method_, bits_, mode_;
  Palette target_;
  std::vector<int> usable_;
  mutable std::vector<uint32_t> own_;
  std::vector<uint32_t>* table_;
  std::vector<std::vector<int64_t>> sums_;  // of this line and the three below, r, g, b a pixel
  int line_ = 0;
};

}  // namespace ditherref
