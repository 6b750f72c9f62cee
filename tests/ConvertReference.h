#pragma once
// What a conversion must give, said pixel by pixel: slow and obvious. It shares nothing with the library but the public
// palette functions.

#include <cstdint>
#include <vector>

namespace convertref {

struct Entry {
  uint8_t blue, green, red, reserved;
};
using Palette = std::vector<Entry>;

struct Side {
  int bits;
  unsigned order;
  const Palette* palette = nullptr;  // null: the fixed palette of the depth
};

struct Options {
  unsigned flags = 0;
  int low = -1;
  int high = -1;
};

/// Whether the pair is one that can be converted.
bool Accepts(const Side& source, const Side& target, const Options& options);
/// The converted line of `width` pixels, in whole bytes; bits behind the last pixel are 0.
std::vector<uint8_t> Convert(const std::vector<uint8_t>& line, int width, const Side& source, const Side& target,
                             const Options& options);

}  // namespace convertref
