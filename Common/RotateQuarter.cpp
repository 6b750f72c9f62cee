// Quarter turns: blocks of the source are transposed into strips of the result.

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/PackedPixels.h"
#include "Common/Internal/Rotate.h"
#include "Kernels/Kernels.h"
#include "tarn/flip.h"
#include "tarn/rotate.h"

namespace tarn {
namespace {

constexpr int64_t kBand = 64;  // source rows that are turned together: a cache line of bytes in each row of the result
constexpr int64_t kColumns = 256;  // of a source in memory, at a time: rows of the result, and their pages, to write to

/// Whether a result of so many bytes has left the caches before anybody reads it.
constexpr bool IsStreamed(int64_t bytes) noexcept { return bytes >= int64_t{24} << 20; }

/// Pixels before the first one that begins a cache line, the same in every row; 0 for none. What is taken in cache
/// lines is read and written once only.
int64_t PixelsToCacheLine(const uint8_t* data, int64_t stride, int32_t bits, int64_t most) noexcept {
  constexpr uint64_t kLine = 64;
  if (!data || stride % int64_t{kLine} != 0 || bits % 8 != 0) return 0;
  const auto address = reinterpret_cast<uintptr_t>(data);
  for (uint64_t pixels = 0; pixels < kLine; ++pixels)
    if ((address + pixels * static_cast<uint64_t>(bits) / 8) % kLine == 0)
      return static_cast<int64_t>(pixels) < most ? static_cast<int64_t>(pixels) : 0;
  return 0;
}

/// From `first` on, or from 0 to it, or less at the end.
constexpr int64_t StepFrom(int64_t at, int64_t first, int64_t step, int64_t end) noexcept {
  const int64_t next = at < first ? first : at + step;
  return (next < end ? next : end) - at;
}

/// Pixels with a starting byte of their own, whose rows may also go upwards.
struct Plane {
  uint8_t* data;
  int64_t stride;
};
struct Lines {
  const uint8_t* data;
  int64_t stride;
};

// ---- Blocks --------------------------------------------------------------------------------------------------------

/// Pixels that share bytes, through squares of whole bytes or words. Columns and lines begin at bytes.
void TransposePacked(const Plane& target, const Lines& source, int64_t pixels, int64_t lines, int32_t bits) noexcept {
  constexpr int64_t kSide = kBand;
  uint8_t before[kSide * kSide * 2], after[kSide * kSide * 2];
  const int64_t unit = bits == 12 ? 2 : 1;
  const int64_t stride = kSide * unit;
  for (int64_t top = 0; top < lines; top += kSide) {
    const int64_t rows = lines - top < kSide ? lines - top : kSide;
    for (int64_t left = 0; left < pixels; left += kSide) {
      const int64_t columns = pixels - left < kSide ? pixels - left : kSide;
      for (int64_t y = 0; y < rows; ++y)
        UnpackPixels(before + y * stride, source.data + (top + y) * source.stride + left * bits / 8, columns, bits);
      const auto transpose = unit == 1 ? Kernels().turn->transpose8 : Kernels().turn->transpose16;
      transpose(after, stride, before, stride, columns, rows, {});
      for (int64_t x = 0; x < columns; ++x)
        PackPixels(target.data + (left + x) * target.stride + top * bits / 8, after + x * stride, rows, bits);
    }
  }
}

/// Row i of the target gets pixel i of each line. Lines are a multiple of 8 but for the last ones of a picture.
void TransposeBlock(const Plane& target, const Lines& source, int64_t pixels, int64_t lines, int32_t bits,
                    const TurnOn& on) noexcept {
  const TurnKernels& kernels = *Kernels().turn;
  const auto run = [&](TurnKernels::Transpose kernel) noexcept {
    kernel(target.data, target.stride, source.data, source.stride, pixels, lines, on);
  };
  switch (bits) {
    case 1:
      return run(kernels.transpose1);
    case 8:
      return run(kernels.transpose8);
    case 16:
      return run(kernels.transpose16);
    case 24:
      return run(kernels.transpose24);
    case 32:
      return run(kernels.transpose32);
    case 48:
      return run(kernels.transpose48);
    case 64:
      return run(kernels.transpose64);
    default:
      return TransposePacked(target, source, pixels, lines, bits);
  }
}

// ---- Strips --------------------------------------------------------------------------------------------------------

/// Bytes of the result that are made at a time where it does not lie in memory. Strips grow beyond this when rows of
/// the source would otherwise be read in crumbs.
constexpr int64_t kStripBytes = int64_t{16} << 20;
constexpr int64_t kMostStripBytes = int64_t{64} << 20;
constexpr int64_t kCrumbBytes = 4096;

/// Source columns a strip has, a multiple of 64.
int64_t StripColumns(const BitmapHandle& target, int64_t width, int32_t bits) noexcept {
  const auto rowBytes = static_cast<int64_t>(target.BytesPerLine);
  const int64_t wanted = kStripBytes / rowBytes;
  const int64_t whole = kCrumbBytes * 8 / bits;
  const int64_t most = kMostStripBytes / rowBytes;
  int64_t columns = wanted > whole ? wanted : whole < most ? whole : most;
  columns = columns / kBand * kBand;
  if (columns < kBand) columns = kBand;
  return columns < width ? columns : width;
}

class Transposing {
 public:
  Transposing(BitmapHandle& target, BitmapHandle& source, Transposition turn) noexcept
      : target_(target),
        source_(source),
        from_(source, TARN_HERE),
        to_(target, TARN_HERE),
        turn_(turn),
        width_(source.Width),
        height_(source.Height),
        bits_(source.BitsPerPixel),
        targetBlock_(BlockOf(target)),
        sourceBlock_(BlockOf(source)),
        streamed_(targetBlock_ && IsStreamed(width_ * target.BytesPerLine)),
        columns_(targetBlock_ && sourceBlock_ ? (width_ < kColumns ? width_ : kColumns)
                                              : StripColumns(target, width_, bits_)),
        firstColumns_(targetBlock_ ? PixelsToCacheLine(sourceBlock_, source.BytesPerLine, bits_, width_) : 0) {}

  Status Run(int32_t firstPercent, int32_t lastPercent) noexcept {
    TARN_TRY(Open());
    const int64_t bands = (height_ + kBand - 1) / kBand;
    const int64_t strips = (firstColumns_ > 0 ? 1 : 0) + (width_ - firstColumns_ + columns_ - 1) / columns_;
    RangeProgress progress(bands * strips, firstPercent, lastPercent);
    for (int64_t left = 0, count = 0; left < width_; left += count) {
      count = StepFrom(left, firstColumns_, columns_, width_);
      const Plane strip = StripOf(left, count);
      for (int64_t top = 0; top < height_; top += kBand) {
        const int64_t lines = height_ - top < kBand ? height_ - top : kBand;
        Lines band{};
        TARN_TRY(ReadBand(left, count, top, lines, band));
        TransposeBlock({strip.data + top * bits_ / 8, strip.stride}, band, count, lines, bits_,
                       {.ahead = sourceBlock_ ? lines * band.stride : 0, .streamed = streamed_});
        if (top + kBand >= height_) TARN_TRY(WriteStrip(strip, left, count));
        TARN_TRY(progress.Step());
      }
    }
    return SUCCESS;
  }

 private:
  Status Open() noexcept {
    TARN_TRY(from_.Open());
    TARN_TRY(to_.Open());
    if (!sourceBlock_) {
      bandStride_ = (columns_ * bits_ + 7) / 8;
      band_ = TrackedBuffer<uint8_t>(static_cast<uint64_t>(bandStride_ * kBand), TARN_HERE);
      if (!band_) return ERR_NO_MEMORY;
    }
    if (!targetBlock_) {
      // Padding is never written, and zero.
      strip_ = TrackedBuffer<uint8_t>::Zeroed(static_cast<uint64_t>(columns_) * target_.BytesPerLine, TARN_HERE);
      if (!strip_) return ERR_NO_MEMORY;
    }
    return SUCCESS;
  }

  [[nodiscard]] int64_t TargetRow(int64_t column) const noexcept {
    return turn_.fromLastColumn ? width_ - 1 - column : column;
  }

  /// Where row i belongs to source column left + i.
  Plane StripOf(int64_t left, int64_t count) noexcept {
    const auto rowBytes = static_cast<int64_t>(target_.BytesPerLine);
    uint8_t* const first = targetBlock_ ? targetBlock_ + TargetRow(left) * rowBytes
                                        : strip_.data() + (turn_.fromLastColumn ? (count - 1) * rowBytes : 0);
    return {first, turn_.fromLastColumn ? -rowBytes : rowBytes};
  }

  /// Source rows for columns top.. of the result, in its order.
  Status ReadBand(int64_t left, int64_t count, int64_t top, int64_t lines, Lines& band) noexcept {
    const int64_t step = turn_.fromLastRow ? -1 : 1;
    const int64_t first = turn_.fromLastRow ? height_ - 1 - top : top;
    if (sourceBlock_) {
      const auto rowBytes = static_cast<int64_t>(source_.BytesPerLine);
      band = {sourceBlock_ + first * rowBytes + left * bits_ / 8, step * rowBytes};
      return SUCCESS;
    }
    const auto bytes = static_cast<uint64_t>((count * bits_ + 7) / 8);
    // Forwards in the file, whichever way the rows go.
    for (int64_t i = 0; i < lines; ++i) {
      const int64_t line = step < 0 ? lines - 1 - i : i;
      const auto row = static_cast<int32_t>(first + step * line);
      const uint8_t* const part = from_.Part(row, static_cast<uint64_t>(left * bits_ / 8), bytes);
      if (!part) return from_.status();
      std::memcpy(band_.data() + line * bandStride_, part, bytes);
    }
    band = {band_.data(), bandStride_};
    return SUCCESS;
  }

  Status WriteStrip(const Plane& strip, int64_t left, int64_t count) noexcept {
    if (targetBlock_) return SUCCESS;
    for (int64_t i = 0; i < count; ++i) {
      const int64_t line = turn_.fromLastColumn ? count - 1 - i : i;
      const auto row = static_cast<int32_t>(TargetRow(left + line));
      std::memcpy(to_.Row(row), strip.data + line * strip.stride, target_.BytesPerLine);
      TARN_TRY(to_.Commit());
    }
    return SUCCESS;
  }

  BitmapHandle& target_;
  BitmapHandle& source_;
  RowReader from_;
  RowWriter to_;
  Transposition turn_;
  int64_t width_;  // of the source
  int64_t height_;
  int32_t bits_;
  uint8_t* targetBlock_;
  const uint8_t* sourceBlock_;
  bool streamed_;
  int64_t columns_;       // of the source a strip
  int64_t firstColumns_;  // and in front of the first one
  int64_t bandStride_ = 0;
  TrackedBuffer<uint8_t> band_;
  TrackedBuffer<uint8_t> strip_;
};

}  // namespace

void TransposeLines(uint8_t* target, int64_t targetStride, const uint8_t* source, int64_t sourceStride, int64_t pixels,
                    int64_t lines, int32_t bits) noexcept {
  TransposeBlock({target, targetStride}, {source, sourceStride}, pixels, lines, bits, {});
}

Status TransposeStored(BitmapHandle& bitmap, Transposition turn, int32_t firstPercent, int32_t lastPercent, TurnEnd end,
                       void* context) noexcept {
  ScratchBitmap result;
  TARN_TRY(result.Create(bitmap, bitmap.Height, bitmap.Width, bitmap.BitsPerPixel));
  BitmapHandle& record = result.Record();
  FollowSource(record, bitmap);
  record.XResolution = bitmap.YResolution;
  record.YResolution = bitmap.XResolution;
  {
    const BitmapLock lock(bitmap);
    const BitmapLock lockResult(record);
    Status status = SUCCESS;
    if (!TransposeByPieces(record, bitmap, turn, firstPercent, lastPercent, status)) {
      Transposing transposing(record, bitmap, turn);
      status = transposing.Run(firstPercent, lastPercent);
    }
    TARN_TRY(status);
  }
  if (end) TARN_TRY(end(record, context));
  result.Commit(bitmap);
  return SUCCESS;
}

}  // namespace tarn

using namespace tarn;

int32_t T_RotateBitmap90(BitmapHandle* bitmap, int32_t direction, int32_t firstPercent, int32_t lastPercent) noexcept {
  if (!bitmap || !IsAllocated(*bitmap)) return ERR_NO_BITMAP;
  if (!GeometryHolds(*bitmap) || (direction != 0 && direction != 1)) return ERR_INVALID_PARAMETER;
  const bool right = (direction == 1) != IsMirrored(bitmap->ViewPerspective);
  return TransposeStored(*bitmap, right ? kTurnRight : kTurnLeft, firstPercent, lastPercent, nullptr, nullptr).code;
}

int32_t T_RotateBuffer90(void* target, uint32_t targetStride, const void* source, uint32_t sourceStride, int32_t width,
                         int32_t height, int32_t bits, int32_t direction) noexcept {
  if (!target || !source || width < 1 || height < 1) return ERR_INVALID_PARAMETER;
  if (direction != 0 && direction != 1) return ERR_INVALID_PARAMETER;
  if (!IsBitDepth(bits)) return ERR_BAD_BITS_PER_PIXEL;
  const auto bytesOf = [bits](int32_t pixels) noexcept { return (int64_t{pixels} * bits + 7) / 8; };
  if (targetStride < bytesOf(height) || sourceStride < bytesOf(width)) return ERR_INVALID_PARAMETER;
  const bool right = direction == 1;
  uint8_t* const to = static_cast<uint8_t*>(target) + (right ? 0 : (int64_t{width} - 1) * targetStride);
  const uint8_t* const from = static_cast<const uint8_t*>(source) + (right ? (int64_t{height} - 1) * sourceStride : 0);
  const int64_t toStride = right ? int64_t{targetStride} : -int64_t{targetStride};
  const int64_t fromStride = right ? -int64_t{sourceStride} : int64_t{sourceStride};
  const int64_t firstRows = PixelsToCacheLine(to, toStride, bits, height);
  const int64_t firstColumns = PixelsToCacheLine(from, fromStride, bits, width);
  const bool streamed = IsStreamed(int64_t{width} * targetStride);
  for (int64_t left = 0, pixels = 0; left < width; left += pixels) {
    pixels = StepFrom(left, firstColumns, kColumns, width);
    for (int64_t top = 0, lines = 0; top < height; top += lines) {
      lines = StepFrom(top, firstRows, kBand, height);
      TransposeBlock({to + left * toStride + top * bits / 8, toStride},
                     {from + top * fromStride + left * bits / 8, fromStride}, pixels, lines, bits,
                     {.ahead = lines * fromStride, .streamed = streamed});
    }
  }
  return SUCCESS;
}

int32_t T_RotateBuffer180(void* row, int32_t width, int32_t bits) noexcept { return T_MirrorLine(row, width, bits); }
