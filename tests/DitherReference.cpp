#include "DitherReference.h"

#include <algorithm>

#include "tarn/palette.h"

namespace ditherref {
namespace {

struct Send {
  int dx, dy, weight;
};
struct Kernel {
  int divisor;
  std::vector<Send> sends;
};

const Kernel& KernelOf(int method) {
  static const Kernel kernels[] = {
      {1, {}},
      {16, {{1, 0, 7}, {-1, 1, 3}, {0, 1, 5}, {1, 1, 1}}},
      {42,
       {{1, 0, 8},
        {2, 0, 4},
        {-2, 1, 2},
        {-1, 1, 4},
        {0, 1, 8},
        {1, 1, 4},
        {2, 1, 2},
        {-2, 2, 1},
        {-1, 2, 2},
        {0, 2, 4},
        {1, 2, 2},
        {2, 2, 1}}},
      {32, {{1, 0, 8}, {2, 0, 4}, {-2, 1, 2}, {-1, 1, 4}, {0, 1, 8}, {1, 1, 4}, {2, 1, 2}}},
      {32,
       {{1, 0, 5},
        {2, 0, 3},
        {-2, 1, 2},
        {-1, 1, 4},
        {0, 1, 5},
        {1, 1, 4},
        {2, 1, 2},
        {-1, 2, 2},
        {0, 2, 3},
        {1, 2, 2}}},
      {200,
       {{2, 0, 32},
        {-3, 1, 12},
        {-1, 1, 26},
        {1, 1, 30},
        {3, 1, 16},
        {-2, 2, 12},
        {0, 2, 26},
        {2, 2, 12},
        {-3, 3, 5},
        {-1, 3, 12},
        {1, 3, 12},
        {3, 3, 5}}},
      {48,
       {{1, 0, 7},
        {2, 0, 5},
        {-2, 1, 3},
        {-1, 1, 5},
        {0, 1, 7},
        {1, 1, 5},
        {2, 1, 3},
        {-2, 2, 1},
        {-1, 2, 3},
        {0, 2, 5},
        {1, 2, 3},
        {2, 2, 1}}}};
  return kernels[method];
}

const int kOrdered[64] = {0,  128, 32, 160, 8,  136, 40, 168, 192, 64,  224, 96,  200, 72,  232, 104,
                          48, 176, 16, 144, 56, 184, 24, 152, 236, 112, 208, 80,  244, 120, 216, 88,
                          12, 140, 44, 172, 4,  132, 36, 164, 204, 76,  232, 108, 196, 68,  228, 100,
                          60, 188, 28, 156, 52, 180, 20, 148, 248, 124, 220, 92,  240, 116, 212, 84};
const int kClustered[64] = {112, 40,  72,  104, 144, 176, 208, 136, 88,  8,   16,  48,  192, 232, 240, 168,
                            56,  24,  0,   80,  160, 224, 248, 200, 96,  64,  32,  120, 128, 216, 184, 152,
                            148, 180, 212, 140, 116, 44,  76,  108, 196, 236, 244, 172, 92,  12,  20,  52,
                            164, 228, 252, 204, 60,  28,  4,   84,  132, 220, 188, 156, 100, 68,  36,  124};

int Offset(int t, int bits) {
  switch (bits) {
    case 1:
      return t - 128;
    case 2:
      return (t >> 1) - 64;
    case 3:
      return t / 3 - 42;
    case 4:
      return (t >> 2) - 32;
    case 5:
      return t / 5 - 25;
    case 6:
      return t / 6 - 21;
    case 7:
      return t / 7 - 18;
    default:
      return (t >> 3) - 16;
  }
}

Palette Fixed(int bits) {
  T_PaletteEntry entries[256];
  T_GetFixedPalette(entries, static_cast<uint32_t>(bits));
  Palette palette;
  for (int i = 0; i < 1 << bits; ++i) palette.push_back({entries[i].Blue, entries[i].Green, entries[i].Red, 0});
  return palette;
}
Palette Web() {
  Palette palette;
  for (int i = 0; i < 216; ++i)
    palette.push_back(
        {static_cast<uint8_t>(i % 6 * 51), static_cast<uint8_t>(i / 6 % 6 * 51), static_cast<uint8_t>(i / 36 * 51), 0});
  return palette;
}
bool Begins(const Palette& table, const Palette& with, int count) {
  if (static_cast<int>(table.size()) < count) return false;
  for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
    const auto &a = table[i], &b = with[i];
    if (a.red != b.red || a.green != b.green || a.blue != b.blue || a.reserved != b.reserved) return false;
  }
  return true;
}

}  // namespace

Run::Run(int width, int method, const Palette* palette, int count, int bits, std::vector<uint32_t>* lent)
    : width_(width), method_(method), bits_(bits) {
  int size = 1;
  while (1 << size < count) ++size;
  const Palette fixed = Fixed(size);
  target_ = palette ? *palette : fixed;
  target_.resize(std::max<size_t>(static_cast<size_t>(count), palette ? 0 : fixed.size()));
  if (lent) {
    mode_ = 1;
  } else if (Begins(fixed, target_, count)) {
    mode_ = size + 1;
    target_ = fixed;
  } else if (count > 128 && count <= 216 && Begins(Web(), target_, count)) {
    mode_ = 10;
    target_ = Web();
  } else {
    mode_ = 0;
  }
  own_.assign(32768, 0);
  table_ = lent ? lent : &own_;
  if (mode_ < 2) {
    target_.resize(static_cast<size_t>(count));
    for (int i = 0; i < count; ++i)
      if (!(target_[static_cast<size_t>(i)].reserved & 3)) usable_.push_back(i);
    if (usable_.empty())
      for (int i = 0; i < count; ++i) usable_.push_back(i);
    for (size_t i = 0; i < usable_.size(); ++i) {
      const auto& e = target_[static_cast<size_t>(usable_[i])];
      uint32_t& known = (*table_)[static_cast<size_t>(e.red / 8 * 1024 + e.green / 8 * 32 + e.blue / 8)];
      if (known == 0) known = static_cast<uint32_t>(i + 1);
    }
  }
  sums_.assign(4, std::vector<int64_t>(static_cast<size_t>(width) * 3));
}

int Run::Cached(int r, int g, int b) const {
  uint32_t& known = (*table_)[static_cast<size_t>(r / 8 * 1024 + g / 8 * 32 + b / 8)];
  if (known == 0 || known > usable_.size()) {
    std::vector<T_PaletteEntry> list;
    for (const int i : usable_) {
      const auto& e = target_[static_cast<size_t>(i)];
      list.push_back({e.blue, e.green, e.red, 0});
    }
    known = T_FindPaletteIndex(list.data(), static_cast<uint32_t>(list.size()), static_cast<uint8_t>(r & 248),
                               static_cast<uint8_t>(g & 248), static_cast<uint8_t>(b & 248)) +
            1;
  }
  return usable_[known - 1];
}

/// `limit` is the threshold of an ordered method, or -1.
int Run::IndexOf(int r, int g, int b, int limit) const {
  const int gray = (5 * g + 2 * r + b + 4) / 8;
  switch (mode_) {
    case 2:
      return limit >= 0 ? gray > limit : gray >> 7;
    case 3:
      return gray >> 6;
    case 4:
      return (r & 128) >> 5 | (g & 128) >> 6 | (b & 128) >> 7;
    case 5: {
      const int middle = limit >= 0 ? limit : 127;
      const int bits = (r > middle) | (g > middle) << 1 | (b > middle) << 2;
      return bits ? bits + 8 : 0;
    }
    case 6:
      return (r & 192) >> 3 | (g & 192) >> 5 | (b & 128) >> 7;
    case 7:
      return (r & 192) >> 2 | (g & 192) >> 4 | (b & 192) >> 6;
    case 8:
      return (r & 192) >> 1 | (g & 224) >> 3 | (b & 192) >> 6;
    case 9:
      return (r & 224) | (g & 224) >> 3 | (b & 192) >> 6;
    case 10:
      return r / 51 * 36 + g / 51 * 6 + b / 51;
    default:
      return Cached(r, g, b);
  }
}

std::vector<int> Run::Line(const std::vector<int>& rgb) {
  std::vector<int> indices;
  const bool ordered = method_ >= 7;
  const Kernel& kernel = KernelOf(ordered ? 0 : method_);
  const int size = mode_ < 2 ? bits_ : mode_ == 10 ? 6 : mode_ - 1;
  for (int x = 0; x < width_; ++x) {
    const int t = (method_ == 8 ? kClustered : kOrdered)[(line_ & 7) * 8 + (x & 7)];
    const bool threshold = ordered && (mode_ == 2 || mode_ == 5);
    int c[3];
    for (size_t k = 0; k < 3; ++k) {
      const size_t at = static_cast<size_t>(x) * 3 + k;
      int64_t value = rgb[at] + sums_[0][at] / kernel.divisor;
      if (ordered && !threshold) value += Offset(t, size);
      c[k] = static_cast<int>(std::clamp<int64_t>(value, 0, 255));
    }
    const int index = IndexOf(c[0], c[1], c[2], threshold ? t : -1);
    indices.push_back(index);
    const auto& chosen = target_[static_cast<size_t>(index)];
    const int error[3] = {c[0] - chosen.red, c[1] - chosen.green, c[2] - chosen.blue};
    for (const Send& send : kernel.sends) {
      const int to = x + send.dx;
      if (to < 0 || to >= width_) continue;
      for (size_t k = 0; k < 3; ++k)
        sums_[static_cast<size_t>(send.dy)][static_cast<size_t>(to) * 3 + k] += error[k] * send.weight;
    }
  }
  std::rotate(sums_.begin(), sums_.begin() + 1, sums_.end());
  std::fill(sums_[3].begin(), sums_[3].end(), 0);
  ++line_;
  return indices;
}

}  // namespace ditherref
