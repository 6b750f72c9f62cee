// Rotation by any angle: each pixel of the result is sampled where it comes from.
//
// Along a row of the result source positions move by (cosine, sine) / 16384 of a pixel. A position T counts from the
// centre of pixel 0: its pixel is (T + 8191) >> 14, and its fraction, -8191..8192, counts from that pixel's centre.

#include <cstring>

#include "Common/Internal/Geometry.h"
#include "Common/Internal/PackedPixels.h"
#include "Common/Internal/Rotate.h"
#include "Kernels/Kernels.h"
#include "tarn/rotate.h"

namespace tarn {
namespace {

constexpr int32_t kOneShift = 14;
constexpr int64_t kOne = int64_t{1} << kOneShift;
constexpr int64_t kHalfBelow = kOne / 2 - 1;

constexpr int64_t PixelOfPosition(int64_t position) noexcept { return (position + kHalfBelow) >> kOneShift; }

/// Part of the source in memory, a whole number of bytes a pixel.
struct Window {
  const uint8_t* data;
  int64_t stride;
  int64_t left;  // source column and row of the first pixel
  int64_t top;
};

/// Everything that samples of one bitmap have in common.
struct Source {
  int64_t width;
  int64_t height;
  uint8_t fill[8];
};

/// Positions of a run of pixels.
struct Path {
  int64_t x;
  int64_t y;
  int64_t stepX;
  int64_t stepY;
};

// ---- Pixel formats: samples of one pixel ---------------------------------------------------------------------------

template <class Sample, int kSamples>
struct Samples {
  static constexpr int kBytes = static_cast<int>(sizeof(Sample)) * kSamples;
  static constexpr int kCount = kSamples;
  static void Load(const uint8_t* at, int64_t (&values)[kCount]) noexcept {
    Sample samples[kSamples];
    std::memcpy(samples, at, kBytes);
    for (int i = 0; i < kSamples; ++i) values[i] = samples[i];
  }
  static void Store(uint8_t* at, const int64_t (&values)[kCount]) noexcept {
    Sample samples[kSamples];
    for (int i = 0; i < kSamples; ++i) samples[i] = static_cast<Sample>(values[i]);
    std::memcpy(at, samples, kBytes);
  }
};

/// Three samples of five bits, and one of one bit.
struct Samples555 {
  static constexpr int kBytes = 2;
  static constexpr int kCount = 4;
  static void Load(const uint8_t* at, int64_t (&values)[kCount]) noexcept {
    uint16_t word;
    std::memcpy(&word, at, 2);
    for (int i = 0; i < 3; ++i) values[i] = word >> 5 * i & 31;
    values[3] = word >> 15;
  }
  static void Store(uint8_t* at, const int64_t (&values)[kCount]) noexcept {
    const auto word = static_cast<uint16_t>(values[0] | values[1] << 5 | values[2] << 10 | values[3] << 15);
    std::memcpy(at, &word, 2);
  }
};

// ---- Sampling ------------------------------------------------------------------------------------------------------

const uint8_t* AddressOf(const Window& window, int64_t x, int64_t y, int64_t bytes) noexcept {
  return window.data + (y - window.top) * window.stride + (x - window.left) * bytes;
}

template <int kBytes>
void SampleNearest(uint8_t* target, const Window& window, const Source&, Path path, int64_t count) noexcept {
  const uint8_t* const origin = AddressOf(window, 0, 0, kBytes);
  for (int64_t i = 0; i < count; ++i, target += kBytes, path.x += path.stepX, path.y += path.stepY)
    std::memcpy(target, origin + PixelOfPosition(path.y) * window.stride + PixelOfPosition(path.x) * kBytes, kBytes);
}

/// The pixel at a place, or the fill colour beyond the edges; kInside says that there are none near.
template <class Format, bool kInside>
void Fetch(int64_t (&values)[Format::kCount], const Window& window, const Source& source, int64_t x,
           int64_t y) noexcept {
  const bool inside = kInside || (x >= 0 && y >= 0 && x < source.width && y < source.height);
  Format::Load(inside ? AddressOf(window, x, y, Format::kBytes) : source.fill, values);
}

template <class Format, bool kInside>
void SampleCorrected(uint8_t* target, const Window& window, const Source& source, Path path, int64_t count) noexcept {
  for (int64_t i = 0; i < count; ++i, target += Format::kBytes, path.x += path.stepX, path.y += path.stepY) {
    const int64_t x = PixelOfPosition(path.x), y = PixelOfPosition(path.y);
    const int64_t dx = path.x - x * kOne, dy = path.y - y * kOne;
    int64_t values[Format::kCount], beside[Format::kCount], below[Format::kCount];
    Fetch<Format, true>(values, window, source, x, y);
    Fetch<Format, kInside>(beside, window, source, dx < 0 ? x - 1 : x + 1, y);
    Fetch<Format, kInside>(below, window, source, x, dy < 0 ? y - 1 : y + 1);
    const int64_t shareX = dx < 0 ? -dx : dx, shareY = dy < 0 ? -dy : dy;
    for (int sample = 0; sample < Format::kCount; ++sample) {
      int64_t& value = values[sample];
      value -= (value - beside[sample]) * shareX / kOne;
      value -= (value - below[sample]) * shareY / kOne;
    }
    Format::Store(target, values);
  }
}

template <class Format, bool kInside>
void SampleBilinear(uint8_t* target, const Window& window, const Source& source, Path path, int64_t count) noexcept {
  for (int64_t i = 0; i < count; ++i, target += Format::kBytes, path.x += path.stepX, path.y += path.stepY) {
    const int64_t x = path.x >> kOneShift, y = path.y >> kOneShift;  // of the upper left one of four neighbours
    const int64_t shareX = path.x & (kOne - 1), shareY = path.y & (kOne - 1);
    int64_t a[Format::kCount], b[Format::kCount], c[Format::kCount], d[Format::kCount];
    Fetch<Format, kInside>(a, window, source, x, y);
    Fetch<Format, kInside>(b, window, source, x + 1, y);
    Fetch<Format, kInside>(c, window, source, x, y + 1);
    Fetch<Format, kInside>(d, window, source, x + 1, y + 1);
    for (int sample = 0; sample < Format::kCount; ++sample) {
      const int64_t upper = a[sample] + (b[sample] - a[sample]) * shareX / kOne;
      const int64_t lower = c[sample] + (d[sample] - c[sample]) * shareX / kOne;
      a[sample] = upper + (lower - upper) * shareY / kOne;
    }
    Format::Store(target, a);
  }
}

using Sampler = void (*)(uint8_t* target, const Window& window, const Source& source, Path path,
                         int64_t count) noexcept;

/// How pixels are sampled whose neighbours are all inside, and others.
struct Samplers {
  Sampler inner;
  Sampler edge;
};

template <class Format>
Samplers SamplersOf(uint32_t quality) noexcept {
  if (quality & ROTATE_BILINEAR) return {SampleBilinear<Format, true>, SampleBilinear<Format, false>};
  if (quality & ROTATE_CORRECT) return {SampleCorrected<Format, true>, SampleCorrected<Format, false>};
  return {SampleNearest<Format::kBytes>, SampleNearest<Format::kBytes>};
}

Samplers ChooseSamplers(int32_t bits, bool gray, uint32_t quality) noexcept {
  switch (bits) {
    case 12:
      return SamplersOf<Samples<uint16_t, 1>>(quality);
    case 16:
      return gray ? SamplersOf<Samples<uint16_t, 1>>(quality) : SamplersOf<Samples555>(quality);
    case 24:
      return SamplersOf<Samples<uint8_t, 3>>(quality);
    case 32:
      return gray ? SamplersOf<Samples<uint32_t, 1>>(quality) : SamplersOf<Samples<uint8_t, 4>>(quality);
    case 48:
      return SamplersOf<Samples<uint16_t, 3>>(quality);
    case 64:
      return SamplersOf<Samples<uint16_t, 4>>(quality);
    default:
      return SamplersOf<Samples<uint8_t, 1>>(quality);
  }
}

// ---- Clipping ------------------------------------------------------------------------------------------------------

struct Interval {
  int64_t first;
  int64_t end;
};

constexpr int64_t FloorDivide(int64_t a, int64_t b) noexcept { return a / b - (a % b < 0 ? 1 : 0); }  // b > 0

/// The part of an interval of i where start + i * step lies in low..high.
Interval Clip(Interval interval, int64_t start, int64_t step, int64_t low, int64_t high) noexcept {
  if (step < 0) {  // the same with all signs turned
    const int64_t turned = -low;
    low = -high;
    high = turned;
    start = -start;
    step = -step;
  }
  if (step == 0) return start >= low && start <= high ? interval : Interval{interval.first, interval.first};
  const int64_t first = -FloorDivide(start - low, step);
  const int64_t end = FloorDivide(high - start, step) + 1;
  Interval clipped{interval.first > first ? interval.first : first, interval.end < end ? interval.end : end};
  if (clipped.end < clipped.first) clipped.end = clipped.first = interval.first;
  return clipped;
}

/// Pixels of a row that come from source pixels `margin` away from every edge.
Interval ClipToSource(Interval interval, const Source& source, const Path& path, int64_t margin) noexcept {
  const auto low = margin * kOne - kHalfBelow;
  interval = Clip(interval, path.x, path.stepX, low, (source.width - margin) * kOne - kHalfBelow - 1);
  return Clip(interval, path.y, path.stepY, low, (source.height - margin) * kOne - kHalfBelow - 1);
}

// ---- Rows ----------------------------------------------------------------------------------------------------------

constexpr int64_t kTile = 512;
constexpr int64_t kStripBytes = int64_t{32} << 20;

class SamplingRun {
 public:
  SamplingRun(BitmapHandle& result, BitmapHandle& source, const Sampling& sampling) noexcept
      : result_(result),
        source_(source),
        sampling_(sampling),
        from_(source, TARN_HERE),
        to_(result, TARN_HERE),
        bits_(source.BitsPerPixel),
        shares_(bits_ < 8 || bits_ == 12),
        unit_(bits_ <= 8    ? 1
              : bits_ == 12 ? 2
                            : bits_ / 8),
        width_(result.Width),
        height_(result.Height),
        extents_{source.Width, source.Height, {}},
        samplers_(ChooseSamplers(bits_, source.Order == T_ORDER_GRAY, sampling.quality)) {
    std::memcpy(extents_.fill, &sampling.fill, sizeof extents_.fill);
    if (!shares_) block_ = BlockOf(source);
  }

  Status Run(int32_t firstPercent, int32_t lastPercent) noexcept {
    TARN_TRY(from_.Open());
    TARN_TRY(to_.Open());
    RangeProgress progress(height_, firstPercent, lastPercent);
    if (block_) return RunWhole(progress);
    return RunTiles(progress);
  }

 private:
  Status RunWhole(RangeProgress& progress) noexcept {
    const Window whole{block_, source_.BytesPerLine, 0, 0};
    const int64_t used = width_ * unit_;
    for (int64_t row = 0; row < height_; ++row) {
      uint8_t* const line = to_.Row(static_cast<int32_t>(row));
      SampleSpan(line, whole, 0, width_, row);
      std::memset(line + used, 0, result_.BytesPerLine - static_cast<uint64_t>(used));
      TARN_TRY(to_.Commit());
      TARN_TRY(progress.Step());
    }
    return SUCCESS;
  }

  Status RunTiles(RangeProgress& progress) noexcept {
    int64_t rows = kStripBytes / (width_ * unit_);
    rows = rows < 16 ? 16 : rows > kTile ? kTile : rows;
    // A tile's source is a box around the turned tile: no side of it is longer than 3/2 of the tile's.
    const int64_t side = kTile * 3 / 2 + 4;
    windowStride_ = side * unit_;
    window_ = TrackedBuffer<uint8_t>(static_cast<uint64_t>(side * windowStride_), TARN_HERE);
    strip_ =
        TrackedBuffer<uint8_t>(static_cast<uint64_t>((rows < height_ ? rows : height_) * width_ * unit_), TARN_HERE);
    if (!window_ || !strip_) return ERR_NO_MEMORY;
    for (int64_t top = 0; top < height_; top += rows) {
      const int64_t bottom = top + rows < height_ ? top + rows : height_;
      for (int64_t left = 0; left < width_; left += kTile) {
        const int64_t right = left + kTile < width_ ? left + kTile : width_;
        Window window{};
        TARN_TRY(ReadBox(left, top, right, bottom, window));
        for (int64_t row = top; row < bottom; ++row)
          SampleSpan(strip_.data() + ((row - top) * width_ + left) * unit_, window, left, right, row);
      }
      TARN_TRY(WriteStrip(top, bottom, progress));
    }
    return SUCCESS;
  }

  [[nodiscard]] Path PathAt(int64_t column, int64_t row) const noexcept {
    return {sampling_.startX + column * sampling_.cosine - row * sampling_.sine,
            sampling_.startY + column * sampling_.sine + row * sampling_.cosine, sampling_.cosine, sampling_.sine};
  }

  void Fill(uint8_t* target, int64_t count) const noexcept {
    for (int64_t i = 0; i < count; ++i, target += unit_) std::memcpy(target, extents_.fill, static_cast<size_t>(unit_));
  }

  /// Pixels left..right - 1 of a row; target is the place of the first.
  void SampleSpan(uint8_t* target, const Window& window, int64_t left, int64_t right, int64_t row) const noexcept {
    const Path path = PathAt(left, row);
    const Interval all{0, right - left};
    const Interval inside = ClipToSource(all, extents_, path, 0);
    const Interval inner = ClipToSource(inside, extents_, path, 1);
    const auto sample = [&](Sampler sampler, int64_t first, int64_t end) noexcept {
      if (first >= end) return;
      const Path at{path.x + first * path.stepX, path.y + first * path.stepY, path.stepX, path.stepY};
      sampler(target + first * unit_, window, extents_, at, end - first);
    };
    Fill(target, inside.first);
    if (inner.first < inner.end) {
      sample(samplers_.edge, inside.first, inner.first);
      sample(samplers_.inner, inner.first, inner.end);
      sample(samplers_.edge, inner.end, inside.end);
    } else {
      sample(samplers_.edge, inside.first, inside.end);
    }
    Fill(target + inside.end * unit_, all.end - inside.end);
  }

  /// Source pixels that a tile of the result needs, one byte or more each.
  Status ReadBox(int64_t left, int64_t top, int64_t right, int64_t bottom, Window& window) noexcept {
    const Path corners[] = {PathAt(left, top), PathAt(right - 1, top), PathAt(left, bottom - 1),
                            PathAt(right - 1, bottom - 1)};
    int64_t x0 = corners[0].x, x1 = x0, y0 = corners[0].y, y1 = y0;
    for (const Path& corner : corners) {
      x0 = corner.x < x0 ? corner.x : x0;
      x1 = corner.x > x1 ? corner.x : x1;
      y0 = corner.y < y0 ? corner.y : y0;
      y1 = corner.y > y1 ? corner.y : y1;
    }
    const auto within = [](int64_t value, int64_t end) noexcept { return value < 0 ? 0 : value > end ? end : value; };
    // With the neighbours; packed pixels are read from a byte on.
    const int64_t firstColumn = within(PixelOfPosition(x0) - 1, extents_.width);
    const int64_t endColumn = within(PixelOfPosition(x1) + 2, extents_.width);
    const int64_t firstRow = within(PixelOfPosition(y0) - 1, extents_.height);
    const int64_t endRow = within(PixelOfPosition(y1) + 2, extents_.height);
    window = {window_.data(), windowStride_, firstColumn, firstRow};
    if (firstColumn >= endColumn) return SUCCESS;
    const int64_t skipped = shares_ ? firstColumn % 8 : 0;
    const int64_t count = endColumn - firstColumn + skipped;
    const auto offset = static_cast<uint64_t>((firstColumn - skipped) * bits_ / 8);
    const auto bytes = static_cast<uint64_t>((count * bits_ + 7) / 8);
    for (int64_t row = firstRow; row < endRow; ++row) {
      const uint8_t* const part = from_.Part(static_cast<int32_t>(row), offset, bytes);
      if (!part) return from_.status();
      uint8_t* const line = window_.data() + (row - firstRow) * windowStride_;
      if (shares_) {
        UnpackFrom(line, part, skipped, count);
      } else {
        std::memcpy(line, part, bytes);
      }
    }
    return SUCCESS;
  }

  void UnpackFrom(uint8_t* line, const uint8_t* packed, int64_t skipped, int64_t count) noexcept {
    if (bits_ != 12) {
      Kernels().pixels->unpackIndices(unpacked_, packed, count, bits_);
      std::memcpy(line, unpacked_ + skipped, static_cast<size_t>(count - skipped));
      return;
    }
    for (int64_t i = skipped; i < count; ++i, line += 2) {
      const auto sample = static_cast<uint16_t>(DeepSample(packed, i, 12));
      std::memcpy(line, &sample, 2);
    }
  }

  Status WriteStrip(int64_t top, int64_t bottom, RangeProgress& progress) noexcept {
    for (int64_t row = top; row < bottom; ++row) {
      const uint8_t* const values = strip_.data() + (row - top) * width_ * unit_;
      uint8_t* const line = to_.Row(static_cast<int32_t>(row));
      if (shares_) {
        PackPixels(line, values, width_, bits_);
      } else {
        std::memcpy(line, values, static_cast<size_t>(width_ * unit_));
      }
      const auto used = static_cast<uint64_t>((width_ * bits_ + 7) / 8);
      std::memset(line + used, 0, result_.BytesPerLine - used);
      TARN_TRY(to_.Commit());
      TARN_TRY(progress.Step());
    }
    return SUCCESS;
  }

  BitmapHandle& result_;
  BitmapHandle& source_;
  Sampling sampling_;
  RowReader from_;
  RowWriter to_;
  int32_t bits_;
  bool shares_;   // pixels share bytes: they are unpacked
  int64_t unit_;  // bytes of a pixel while it is worked on
  int64_t width_;
  int64_t height_;
  Source extents_;
  Samplers samplers_;
  const uint8_t* block_ = nullptr;
  int64_t windowStride_ = 0;
  TrackedBuffer<uint8_t> window_;
  TrackedBuffer<uint8_t> strip_;
  uint8_t unpacked_[kTile * 3 / 2 + 16];
};

}  // namespace

Status SampleRows(BitmapHandle& result, BitmapHandle& source, const Sampling& sampling, int32_t firstPercent,
                  int32_t lastPercent) noexcept {
  const BitmapLock lockResult(result);
  const BitmapLock lockSource(source);
  SamplingRun run(result, source, sampling);
  return run.Run(firstPercent, lastPercent);
}

}  // namespace tarn
