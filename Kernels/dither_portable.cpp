// Dithering, one sample at a time.

#include <cstring>

#include "Kernels/Dither.h"

namespace tarn {
namespace {

int32_t Clamped(int32_t value) noexcept { return value < 0 ? 0 : value > 255 ? 255 : value; }

uint32_t Word(const uint8_t* bgr) noexcept { return static_cast<uint32_t>(bgr[0] | bgr[1] << 8 | bgr[2] << 16); }

/// Bits of value under mask, moved together.
uint32_t Extract(uint32_t value, uint32_t mask) noexcept {
  uint32_t key = 0;
  for (uint32_t bit = 1; mask; mask &= mask - 1, bit <<= 1) {
    if (value & mask & (0 - mask)) key |= bit;
  }
  return key;
}

/// Position of a clamped colour.
uint32_t PositionOf(const uint8_t* bgr, const DitherColors& colors) noexcept {
  const uint32_t gray = (5u * bgr[1] + 2u * bgr[2] + bgr[0] + 4) >> 3;
  switch (colors.rule) {
    case DitherColors::kGray1:
      return gray >> 7;
    case DitherColors::kGray2:
      return gray >> 6;
    case DitherColors::kSteps: {
      uint32_t position = 0;
      for (int lane = 0; lane < 3; ++lane)
        position += (uint32_t{bgr[lane]} * colors.channels[lane].scale >> 16) * colors.channels[lane].weight;
      return position;
    }
    default:  // kTable
      break;
  }
  const uint32_t key = Extract(Word(bgr), colors.mask);
  const uint32_t position = colors.table[key];
  return position == colors.unknown ? colors.resolve(colors.owner, key) : position;
}

template <class Sum>
void GatherAbove(Sum* sums, const int16_t* const* rows, int32_t count, int32_t lanes,
                 const DitherKernel& kernel) noexcept {
  for (int32_t i = 0; i < count * lanes; ++i) {
    int32_t sum = 0;
    for (int32_t row = 0; row < kernel.rows; ++row) {
      for (int32_t k = 0; k < 7; ++k) sum += kernel.above[row][k] * rows[row][i + (k - 3) * lanes];
    }
    sums[i] = static_cast<Sum>(sum);
  }
}

void Above(void* sums, const int16_t* const* rows, int32_t count, const DitherKernel& kernel) noexcept {
  if (kernel.wide) {
    GatherAbove(static_cast<int32_t*>(sums), rows, count, 4, kernel);
  } else {
    GatherAbove(static_cast<int16_t*>(sums), rows, count, 4, kernel);
  }
}

void AboveGray(int16_t* sums, const int16_t* const* rows, int32_t count, const DitherKernel& kernel) noexcept {
  GatherAbove(sums, rows, count, 1, kernel);
}

void DiffuseLine(const DitherBlock& block, const DitherKernel& kernel, const DitherColors& colors) noexcept {
  const auto* const narrow = static_cast<const int16_t*>(block.sums);
  const auto* const wide = static_cast<const int32_t*>(block.sums);
  for (int32_t x = 0; x < block.count; ++x) {
    int16_t* const errors = block.errors + 4 * x;
    uint8_t clamped[3];
    for (int lane = 0; lane < 3; ++lane) {
      const int32_t sum = (kernel.wide ? wide[4 * x + lane] : narrow[4 * x + lane]) +
                          kernel.left[0] * errors[lane - 4] + kernel.left[1] * errors[lane - 8];
      clamped[lane] = static_cast<uint8_t>(Clamped(block.pixels[4 * x + lane] + sum / kernel.divisor));
    }
    const uint32_t position = PositionOf(clamped, colors);
    for (int lane = 0; lane < 3; ++lane)
      errors[lane] = static_cast<int16_t>(clamped[lane] - colors.colors[position][lane]);
    errors[3] = 0;
    block.indices[x] = colors.indices[position];
  }
}

void Diffuse(const DitherBlock* blocks, int lines, const DitherKernel& kernel, const DitherColors& colors) noexcept {
  for (int line = 0; line < lines; ++line) DiffuseLine(blocks[line], kernel, colors);
}

void DiffuseGray(const DitherBlock* blocks, int lines, const DitherKernel& kernel, uint32_t bits) noexcept {
  const int32_t step = bits == 1 ? 255 : 85;
  for (int line = 0; line < lines; ++line) {
    const DitherBlock& block = blocks[line];
    const auto* const sums = static_cast<const int16_t*>(block.sums);
    for (int32_t x = 0; x < block.count; ++x) {
      int16_t* const errors = block.errors + x;
      const int32_t sum = sums[x] + kernel.left[0] * errors[-1] + kernel.left[1] * errors[-2];
      const int32_t level = Clamped(block.pixels[x] + sum / kernel.divisor);
      const int32_t index = level >> (8 - bits);
      errors[0] = static_cast<int16_t>(level - index * step);
      block.indices[x] = static_cast<uint8_t>(index);
    }
  }
}

void Ordered(uint8_t* indices, const uint8_t* pixels, int64_t count, const int16_t* offsets,
             const DitherColors& colors) noexcept {
  for (int64_t x = 0; x < count; ++x, pixels += 4) {
    uint8_t clamped[3];
    for (int lane = 0; lane < 3; ++lane) clamped[lane] = static_cast<uint8_t>(Clamped(pixels[lane] + offsets[x & 7]));
    indices[x] = colors.indices[PositionOf(clamped, colors)];
  }
}

void Threshold(uint8_t* indices, const uint8_t* levels, int64_t count, const uint8_t* limits) noexcept {
  for (int64_t x = 0; x < count; ++x) indices[x] = levels[x] > limits[x & 7];
}

void Thresholds(uint8_t* indices, const uint8_t* pixels, int64_t count, const uint8_t* limits,
                const uint8_t* map) noexcept {
  for (int64_t x = 0; x < count; ++x, pixels += 4) {
    const uint8_t limit = limits[x & 7];
    indices[x] = map[(pixels[2] > limit) | (pixels[1] > limit) << 1 | (pixels[0] > limit) << 2];
  }
}

}  // namespace

constinit const DitherKernels kDitherPortable = {.above = Above,
                                                 .diffuse = Diffuse,
                                                 .aboveGray = AboveGray,
                                                 .diffuseGray = DiffuseGray,
                                                 .walk = nullptr,
                                                 .walkGray = nullptr,
                                                 .ordered = Ordered,
                                                 .threshold = Threshold,
                                                 .thresholds = Thresholds};

}  // namespace tarn
