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

constexpr int64_t kReach = 2;  // pixels around a sampled one that kernels may read
constexpr int64_t kSquare = 8;
constexpr int64_t kSquareReach = 18;  // the same of those that make squares

SampleFormat FormatOf(int32_t bits, bool gray) noexcept {
  switch (bits) {
    case 12:
      return SampleFormat::k16;
    case 16:
      return gray ? SampleFormat::k16 : SampleFormat::k555;
    case 24:
      return SampleFormat::k24;
    case 32:
      return gray ? SampleFormat::k32Gray : SampleFormat::k32;
    case 48:
      return SampleFormat::k48;
    case 64:
      return SampleFormat::k64;
    default:
      return SampleFormat::k8;
  }
}

RotateKernels::Sample SamplerOf(SampleFormat format, uint32_t quality) noexcept {
  const RotateKernels& kernels = *Kernels().rotate;
  const auto index = static_cast<size_t>(format);
  if (quality & ROTATE_BILINEAR) return kernels.bilinear[index];
  if (quality & ROTATE_CORRECT) return kernels.corrected[index];
  return kernels.nearest[index];
}

/// Null: rows one by one.
RotateSquares::Sample SquareSamplerOf(SampleFormat format, uint32_t quality) noexcept {
  if (format != SampleFormat::k8) return nullptr;
  const RotateSquares& kernels = *Kernels().rotateSquares;
  if (quality & ROTATE_BILINEAR) return kernels.bilinear8;
  if (quality & ROTATE_CORRECT) return kernels.corrected8;
  return kernels.nearest8;
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
Interval ClipToSource(Interval interval, const Source& source, const SamplePath& path, int64_t margin) noexcept {
  const auto low = margin * kOne - kHalfBelow;
  interval = Clip(interval, path.x, path.stepX, low, (source.width - margin) * kOne - kHalfBelow - 1);
  return Clip(interval, path.y, path.stepY, low, (source.height - margin) * kOne - kHalfBelow - 1);
}

// ---- Rows ----------------------------------------------------------------------------------------------------------

constexpr int64_t kTile = 512;
constexpr int64_t kBlockColumns = 512;
constexpr int64_t kBlockRows = 64;
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
        sampler_(SamplerOf(FormatOf(bits_, source.Order == T_ORDER_GRAY), sampling.quality)),
        squares_(SquareSamplerOf(FormatOf(bits_, source.Order == T_ORDER_GRAY), sampling.quality)) {
    std::memcpy(extents_.fill, &sampling.fill, sizeof extents_.fill);
    for (int64_t i = 0; i < kTile; ++i) std::memcpy(filled_ + i * unit_, extents_.fill, static_cast<size_t>(unit_));
    if (!shares_) block_ = BlockOf(source);
  }

  Status Run(int32_t firstPercent, int32_t lastPercent) noexcept {
    TARN_TRY(from_.Open());
    TARN_TRY(to_.Open());
    RangeProgress progress(height_, firstPercent, lastPercent);
    if (!block_) return RunTiles(progress);
    return to_.InOneBlock() ? RunBlocks(progress) : RunWhole(progress);
  }

 private:
  Status RunWhole(RangeProgress& progress) noexcept {
    const Window whole{block_, source_.BytesPerLine, 0, 0};
    const int64_t used = width_ * unit_;
    for (int64_t row = 0; row < height_; ++row) {
      uint8_t* const line = to_.Row(static_cast<int32_t>(row));
      SampleSpan(line, whole, 0, width_, row, SpansOf(row));
      std::memset(line + used, 0, result_.BytesPerLine - static_cast<uint64_t>(used));
      TARN_TRY(to_.Commit());
      TARN_TRY(progress.Step());
    }
    return SUCCESS;
  }

  /// The same in blocks, whose source stays in the caches while they are made.
  Status RunBlocks(RangeProgress& progress) noexcept {
    const Window whole{block_, source_.BytesPerLine, 0, 0};
    const int64_t used = width_ * unit_;
    for (int64_t top = 0; top < height_; top += kBlockRows) {
      const int64_t bottom = top + kBlockRows < height_ ? top + kBlockRows : height_;
      RowSpans spans[kBlockRows];
      for (int64_t row = top; row < bottom; ++row) spans[row - top] = SpansOf(row);
      for (int64_t left = 0; left < width_; left += kBlockColumns) {
        const int64_t right = left + kBlockColumns < width_ ? left + kBlockColumns : width_;
        for (int64_t row = top; row < bottom; row += kSquare)
          SampleBand(whole, left, right, row, row + kSquare < bottom ? row + kSquare : bottom, spans + (row - top));
      }
      for (int64_t row = top; row < bottom; ++row) {
        std::memset(to_.Row(static_cast<int32_t>(row)) + used, 0, result_.BytesPerLine - static_cast<uint64_t>(used));
        TARN_TRY(progress.Step());
      }
    }
    return SUCCESS;
  }

  Status RunTiles(RangeProgress& progress) noexcept {
    int64_t rows = kStripBytes / (width_ * unit_);
    rows = rows < 16 ? 16 : rows > kTile ? kTile : rows;
    // A tile's source is a box around the turned tile: no side of it is longer than 3/2 of the tile's.
    const int64_t side = kTile * 3 / 2 + 2 * (kReach + 1);
    windowStride_ = side * unit_;
    window_ = TrackedBuffer<uint8_t>(static_cast<uint64_t>(side * windowStride_), TARN_HERE);
    strip_ =
        TrackedBuffer<uint8_t>(static_cast<uint64_t>((rows < height_ ? rows : height_) * width_ * unit_), TARN_HERE);
    if (!window_ || !strip_) return ERR_NO_MEMORY;
    for (int64_t top = 0; top < height_; top += rows) {
      const int64_t bottom = top + rows < height_ ? top + rows : height_;
      RowSpans spans[kTile];
      for (int64_t row = top; row < bottom; ++row) spans[row - top] = SpansOf(row);
      for (int64_t left = 0; left < width_; left += kTile) {
        const int64_t right = left + kTile < width_ ? left + kTile : width_;
        Window window{};
        TARN_TRY(ReadBox(left, top, right, bottom, window));
        for (int64_t row = top; row < bottom; ++row)
          SampleSpan(strip_.data() + ((row - top) * width_ + left) * unit_, window, left, right, row, spans[row - top]);
      }
      TARN_TRY(WriteStrip(top, bottom, progress));
    }
    return SUCCESS;
  }

  [[nodiscard]] SamplePath PathAt(int64_t column, int64_t row) const noexcept {
    return {sampling_.startX + column * sampling_.cosine - row * sampling_.sine,
            sampling_.startY + column * sampling_.sine + row * sampling_.cosine, sampling_.cosine, sampling_.sine};
  }

  void Fill(uint8_t* target, int64_t count) const noexcept {
    for (int64_t i = 0; i < count; i += kTile)
      std::memcpy(target + i * unit_, filled_, static_cast<size_t>((count - i < kTile ? count - i : kTile) * unit_));
  }

  /// Pixels near the edges, through copies of what is around them, the fill colour beyond.
  void SampleEdge(uint8_t* target, const Window& window, SamplePath path, int64_t count) const noexcept {
    constexpr int64_t kSide = 2 * kReach + 1;
    uint8_t around[kSide * kSide * sizeof extents_.fill];
    const int64_t stride = kSide * unit_;
    const SamplePath still{0, 0, 0, 0};
    for (int64_t i = 0; i < count; ++i, target += unit_, path.x += path.stepX, path.y += path.stepY) {
      const int64_t left = PixelOfPosition(path.x) - kReach, top = PixelOfPosition(path.y) - kReach;
      for (int64_t y = 0; y < kSide; ++y) {
        for (int64_t x = 0; x < kSide; ++x) {
          const int64_t column = left + x, row = top + y;
          const bool inside = column >= 0 && row >= 0 && column < extents_.width && row < extents_.height;
          std::memcpy(around + y * stride + x * unit_, inside ? AddressOf(window, column, row) : extents_.fill,
                      static_cast<size_t>(unit_));
        }
      }
      SamplePath at = still;
      at.x = path.x - left * kOne;
      at.y = path.y - top * kOne;
      sampler_(target, around, stride, at, 1);
    }
  }

  [[nodiscard]] const uint8_t* AddressOf(const Window& window, int64_t column, int64_t row) const noexcept {
    return window.data + (row - window.top) * window.stride + (column - window.left) * unit_;
  }

  /// Columns of a row of the result that come from the source, and those of them whose surroundings are in it, too.
  struct RowSpans {
    Interval inside;
    Interval inner;
  };
  [[nodiscard]] RowSpans SpansOf(int64_t row) const noexcept {
    const SamplePath path = PathAt(0, row);
    RowSpans spans{};
    spans.inside = ClipToSource({0, width_}, extents_, path, 0);
    spans.inner = ClipToSource(spans.inside, extents_, path, kReach);
    if (spans.inner.first >= spans.inner.end) spans.inner = {spans.inside.end, spans.inside.end};
    return spans;
  }

  /// Pixels left..right - 1 of a row; target is the place of the first.
  void SampleSpan(uint8_t* target, const Window& window, int64_t left, int64_t right, int64_t row,
                  const RowSpans& spans) const noexcept {
    const auto within = [&](int64_t column) noexcept { return column < left ? left : column > right ? right : column; };
    const Interval inside{within(spans.inside.first), within(spans.inside.end)};
    const Interval inner{within(spans.inner.first), within(spans.inner.end)};
    const auto place = [&](int64_t column) noexcept { return target + (column - left) * unit_; };
    Fill(target, inside.first - left);
    SampleEdge(place(inside.first), window, PathAt(inside.first, row), inner.first - inside.first);
    if (inner.first < inner.end)
      sampler_(place(inner.first), AddressOf(window, 0, 0), window.stride, PathAt(inner.first, row),
               inner.end - inner.first);
    SampleEdge(place(inner.end), window, PathAt(inner.end, row), inside.end - inner.end);
    Fill(place(inside.end), right - inside.end);
  }

  /// Rows top..bottom - 1, at most kSquare: squares of pixels that lie deep in the source, and what is beside them.
  void SampleBand(const Window& window, int64_t left, int64_t right, int64_t top, int64_t bottom,
                  const RowSpans* spans) noexcept {
    Interval deep{left, right};
    if (squares_ && bottom - top == kSquare) {
      // Columns that are in a convex picture in the first and the last row are in it between them.
      deep = ClipToSource(ClipToSource(deep, extents_, PathAt(0, top), kSquareReach), extents_, PathAt(0, bottom - 1),
                          kSquareReach);
      deep.end -= (deep.end - deep.first) % kSquare;
    } else {
      deep.end = deep.first;
    }
    uint8_t* const first = to_.Row(static_cast<int32_t>(top));
    if (deep.first < deep.end) {
      uint8_t* const second = to_.Row(static_cast<int32_t>(top + 1));
      squares_(first + deep.first * unit_, second - first, AddressOf(window, 0, 0), window.stride,
               PathAt(deep.first, top), deep.end - deep.first);
    }
    for (int64_t row = top; row < bottom; ++row) {
      uint8_t* const line = to_.Row(static_cast<int32_t>(row));
      const RowSpans& at = spans[row - top];
      if (deep.first >= deep.end) {
        SampleSpan(line + left * unit_, window, left, right, row, at);
        continue;
      }
      SampleSpan(line + left * unit_, window, left, deep.first, row, at);
      SampleSpan(line + deep.end * unit_, window, deep.end, right, row, at);
    }
  }

  /// Source pixels that a tile of the result needs, one byte or more each.
  Status ReadBox(int64_t left, int64_t top, int64_t right, int64_t bottom, Window& window) noexcept {
    const SamplePath corners[] = {PathAt(left, top), PathAt(right - 1, top), PathAt(left, bottom - 1),
                                  PathAt(right - 1, bottom - 1)};
    int64_t x0 = corners[0].x, x1 = x0, y0 = corners[0].y, y1 = y0;
    for (const SamplePath& corner : corners) {
      x0 = corner.x < x0 ? corner.x : x0;
      x1 = corner.x > x1 ? corner.x : x1;
      y0 = corner.y < y0 ? corner.y : y0;
      y1 = corner.y > y1 ? corner.y : y1;
    }
    const auto within = [](int64_t value, int64_t end) noexcept { return value < 0 ? 0 : value > end ? end : value; };
    // With the neighbours; packed pixels are read from a byte on.
    const int64_t firstColumn = within(PixelOfPosition(x0) - kReach, extents_.width);
    const int64_t endColumn = within(PixelOfPosition(x1) + 1 + kReach, extents_.width);
    const int64_t firstRow = within(PixelOfPosition(y0) - kReach, extents_.height);
    const int64_t endRow = within(PixelOfPosition(y1) + 1 + kReach, extents_.height);
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
  RotateKernels::Sample sampler_;
  RotateSquares::Sample squares_;
  const uint8_t* block_ = nullptr;
  int64_t windowStride_ = 0;
  TrackedBuffer<uint8_t> window_;
  TrackedBuffer<uint8_t> strip_;
  uint8_t filled_[kTile * sizeof Source::fill];
  uint8_t unpacked_[kTile * 3 / 2 + 32];
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
