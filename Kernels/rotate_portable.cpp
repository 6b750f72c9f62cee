// Pixels sampled one at a time.

#include <cstring>

#include "Kernels/Rotate.h"

namespace tarn {
namespace {

constexpr int32_t kOneShift = 14;
constexpr int64_t kOne = int64_t{1} << kOneShift;
constexpr int64_t kHalfBelow = kOne / 2 - 1;

constexpr int64_t PixelOfPosition(int64_t position) noexcept { return (position + kHalfBelow) >> kOneShift; }

// ---- Formats: samples of one pixel, in a type that holds a difference times 16384 ----------------------------------

template <class Sample, int kSamples, class Wide>
struct Samples {
  using Value = Wide;
  static constexpr int kBytes = static_cast<int>(sizeof(Sample)) * kSamples;
  static constexpr int kCount = kSamples;
  static void Load(const uint8_t* at, Wide (&values)[kCount]) noexcept {
    Sample samples[kSamples];
    std::memcpy(samples, at, kBytes);
    for (int i = 0; i < kSamples; ++i) values[i] = samples[i];
  }
  static void Store(uint8_t* at, const Wide (&values)[kCount]) noexcept {
    Sample samples[kSamples];
    for (int i = 0; i < kSamples; ++i) samples[i] = static_cast<Sample>(values[i]);
    std::memcpy(at, samples, kBytes);
  }
};

struct Samples555 {
  using Value = int32_t;
  static constexpr int kBytes = 2;
  static constexpr int kCount = 4;
  static void Load(const uint8_t* at, int32_t (&values)[kCount]) noexcept {
    uint16_t word;
    std::memcpy(&word, at, 2);
    for (int i = 0; i < 3; ++i) values[i] = word >> 5 * i & 31;
    values[3] = word >> 15;
  }
  static void Store(uint8_t* at, const int32_t (&values)[kCount]) noexcept {
    const auto word = static_cast<uint16_t>(values[0] | values[1] << 5 | values[2] << 10 | values[3] << 15);
    std::memcpy(at, &word, 2);
  }
};

using Gray8 = Samples<uint8_t, 1, int32_t>;
using Gray16 = Samples<uint16_t, 1, int32_t>;
using Color24 = Samples<uint8_t, 3, int32_t>;
using Color32 = Samples<uint8_t, 4, int32_t>;
using Gray32 = Samples<uint32_t, 1, int64_t>;
using Color48 = Samples<uint16_t, 3, int32_t>;
using Color64 = Samples<uint16_t, 4, int32_t>;

// ---- Sampling ------------------------------------------------------------------------------------------------------

template <int kBytes>
void Nearest(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path, int64_t pixels) noexcept {
  int64_t x = path.x + kHalfBelow, y = path.y + kHalfBelow;
  for (int64_t i = 0; i < pixels; ++i, target += kBytes, x += path.stepX, y += path.stepY)
    std::memcpy(target, origin + (y >> kOneShift) * stride + (x >> kOneShift) * kBytes, kBytes);
}

/// What lies share / 16384 of the way from a value to another.
template <class Value>
Value Mixed(Value from, Value to, Value share) noexcept {
  return from + (to - from) * share / static_cast<Value>(kOne);  // 16 bits times 14: fits 32
}

template <class Format>
void Corrected(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path,
               int64_t pixels) noexcept {
  using Value = typename Format::Value;
  int64_t atX = path.x, atY = path.y;
  for (int64_t i = 0; i < pixels; ++i, target += Format::kBytes, atX += path.stepX, atY += path.stepY) {
    const int64_t x = PixelOfPosition(atX), y = PixelOfPosition(atY);
    const int64_t dx = atX - x * kOne, dy = atY - y * kOne;
    const uint8_t* const pixel = origin + y * stride + x * Format::kBytes;
    Value values[Format::kCount], beside[Format::kCount], below[Format::kCount];
    Format::Load(pixel, values);
    Format::Load(dx < 0 ? pixel - Format::kBytes : pixel + Format::kBytes, beside);
    Format::Load(dy < 0 ? pixel - stride : pixel + stride, below);
    const auto shareX = static_cast<Value>(dx < 0 ? -dx : dx), shareY = static_cast<Value>(dy < 0 ? -dy : dy);
    for (int sample = 0; sample < Format::kCount; ++sample)
      values[sample] = Mixed(Mixed(values[sample], beside[sample], shareX), below[sample], shareY);
    Format::Store(target, values);
  }
}

template <class Format>
void Bilinear(uint8_t* target, const uint8_t* origin, int64_t stride, const SamplePath& path, int64_t pixels) noexcept {
  using Value = typename Format::Value;
  int64_t atX = path.x, atY = path.y;
  for (int64_t i = 0; i < pixels; ++i, target += Format::kBytes, atX += path.stepX, atY += path.stepY) {
    const uint8_t* const pixel = origin + (atY >> kOneShift) * stride + (atX >> kOneShift) * Format::kBytes;
    const auto shareX = static_cast<Value>(atX & (kOne - 1)), shareY = static_cast<Value>(atY & (kOne - 1));
    Value a[Format::kCount], b[Format::kCount], c[Format::kCount], d[Format::kCount];
    Format::Load(pixel, a);
    Format::Load(pixel + Format::kBytes, b);
    Format::Load(pixel + stride, c);
    Format::Load(pixel + stride + Format::kBytes, d);
    for (int sample = 0; sample < Format::kCount; ++sample) {
      const Value upper = Mixed(a[sample], b[sample], shareX), lower = Mixed(c[sample], d[sample], shareX);
      a[sample] = Mixed(upper, lower, shareY);
    }
    Format::Store(target, a);
  }
}

}  // namespace

constinit const RotateKernels kRotatePortable = {
    .nearest = {Nearest<1>, Nearest<2>, Nearest<2>, Nearest<3>, Nearest<4>, Nearest<4>, Nearest<6>, Nearest<8>},
    .corrected = {Corrected<Gray8>, Corrected<Gray16>, Corrected<Samples555>, Corrected<Color24>, Corrected<Color32>,
                  Corrected<Gray32>, Corrected<Color48>, Corrected<Color64>},
    .bilinear = {Bilinear<Gray8>, Bilinear<Gray16>, Bilinear<Samples555>, Bilinear<Color24>, Bilinear<Color32>,
                 Bilinear<Gray32>, Bilinear<Color48>, Bilinear<Color64>}};

}  // namespace tarn
