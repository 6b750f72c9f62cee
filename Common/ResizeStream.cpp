// Rows that pass by one at a time, and single lines, nearest.

#include <cstring>

#include "Common/Internal/Geometry.h"
#include "Common/Internal/Scaling.h"
#include "Kernels/Kernels.h"
#include "tarn/memory.h"
#include "tarn/resize.h"

namespace tarn {
namespace {

/// The source positions of a line's pixels.
class Stepper {
 public:
  Stepper(int32_t first, int32_t step, int32_t accumulator, int32_t remainder, int32_t divisor, bool enlarge) noexcept
      : first_(first), step_(enlarge ? 0 : step), accumulator_(accumulator), remainder_(remainder), divisor_(divisor) {}

  void Indices(uint32_t* indices, int64_t start, int count) const noexcept {
    // The accumulator overflows at most once a pixel, and not while it is negative.
    const int64_t sum = accumulator_ + start * remainder_;
    const int64_t overflows = divisor_ <= 0 ? start : sum < 0 ? 0 : Least(sum / divisor_, start);
    int64_t position = first_ + start * step_ + overflows;
    int64_t accumulator = sum - overflows * divisor_;
    for (int i = 0; i < count; ++i) {
      indices[i] = static_cast<uint32_t>(position);
      accumulator += remainder_;
      const bool over = accumulator >= divisor_;
      position += step_ + over;
      accumulator -= over ? divisor_ : 0;
    }
  }

 private:
  static int64_t Least(int64_t a, int64_t b) noexcept { return a < b ? a : b; }

  int64_t first_;
  int64_t step_;
  int64_t accumulator_;
  int64_t remainder_;
  int64_t divisor_;
};

constexpr int kBlock = 256;  // pixels, whole bytes at every depth

/// Pixels of fewer than 8 bits to bytes.
void TakeBits(uint8_t* values, const uint8_t* source, const uint32_t* indices, int count, int32_t bits) noexcept {
  for (int i = 0; i < count; ++i) {
    const uint64_t first = static_cast<uint64_t>(indices[i]) * static_cast<uint32_t>(bits);
    const auto inByte = static_cast<int32_t>(first % 8);
    uint32_t pair = static_cast<uint32_t>(source[first / 8]) << 8;
    if (inByte + bits > 8) pair |= source[first / 8 + 1];
    values[i] = static_cast<uint8_t>((pair >> (16 - inByte - bits)) & ((1u << bits) - 1));
  }
}

/// Pairs of 12 bits, in place of the pixels from a whole byte on; the last half byte is 0.
void Take12(uint8_t* target, const uint8_t* source, const uint32_t* indices, int count) noexcept {
  for (int i = 0; i < count; ++i) {
    const uint8_t* const at = source + static_cast<uint64_t>(indices[i]) * 3 / 2;
    const int pair = at[0] | at[1] << 8;
    const int value = indices[i] % 2 ? pair >> 4 : pair & 4095;
    uint8_t* const to = target + i * 3 / 2;
    if (i % 2) {
      to[0] = static_cast<uint8_t>(to[0] | value << 4);
      to[1] = static_cast<uint8_t>(value >> 4);
    } else {
      to[0] = static_cast<uint8_t>(value);
      to[1] = static_cast<uint8_t>(value >> 8);
    }
  }
}

void MoveBlock(uint8_t* target, const uint8_t* source, const Stepper& steps, int64_t start, int count,
               int32_t bits) noexcept {
  uint32_t indices[kBlock];
  uint8_t pixels[kBlock * 8];
  steps.Indices(indices, start, count);
  if (bits == 12) {
    Take12(pixels, source, indices, count);
  } else if (bits < 8) {
    uint8_t values[kBlock];
    TakeBits(values, source, indices, count, bits);
    Kernels().pixels->packIndices(pixels, values, count, bits);
  } else {
    Kernels().scale->gather(pixels, source, indices, count, bits / 8);
  }
  std::memcpy(target + start * bits / 8, pixels, (static_cast<size_t>(count) * static_cast<uint32_t>(bits) + 7) / 8);
}

/// Blocks in an order in which none is written over pixels that are still wanted.
void MoveLine(uint8_t* target, const uint8_t* source, const Stepper& steps, int32_t pixels, int32_t bits,
              int64_t clearBytes, bool backward) noexcept {
  if (pixels < 1) return;
  const int64_t blocks = (int64_t{pixels} + kBlock - 1) / kBlock;
  for (int64_t n = 0; n < blocks; ++n) {
    const int64_t start = (backward ? blocks - 1 - n : n) * kBlock;
    const int64_t rest = pixels - start;
    MoveBlock(target, source, steps, start, static_cast<int>(rest < kBlock ? rest : kBlock), bits);
  }
  const int64_t used = (int64_t{pixels} * bits + 7) / 8;
  const bool cleared = bits == 12 || (bits < 8 && bits != 4);
  if (cleared && clearBytes > used) std::memset(target + used, 0, static_cast<size_t>(clearBytes - used));
}

}  // namespace
}  // namespace tarn

using namespace tarn;

void T_GetResizedScanLine(int32_t bitsPerPixel, int32_t clearBytes, int32_t firstPixel, int32_t step,
                          int32_t accumulator, int32_t remainder, const void* source, void* target, int32_t pixels,
                          int32_t divisor, int32_t enlarge) noexcept {
  if (!source || !target || !IsBitDepth(bitsPerPixel)) return;
  MoveLine(static_cast<uint8_t*>(target), static_cast<const uint8_t*>(source),
           Stepper(firstPixel, step, accumulator, remainder, divisor, enlarge != 0), pixels, bitsPerPixel, clearBytes,
           false);
}

void T_ReverseGetResizedScanLine(int32_t bitsPerPixel, int32_t clearBytes, int32_t firstPixel, int32_t step,
                                 int32_t accumulator, int32_t remainder, const void* source, void* target,
                                 int32_t pixels, int32_t divisor, int32_t enlarge) noexcept {
  if (!source || !target || !IsBitDepth(bitsPerPixel)) return;
  MoveLine(static_cast<uint8_t*>(target), static_cast<const uint8_t*>(source),
           Stepper(firstPixel, step, accumulator, remainder, divisor, enlarge != 0), pixels, bitsPerPixel, clearBytes,
           true);
}

int32_t T_StartResize(int32_t oldWidth, int32_t oldHeight, int32_t newWidth, int32_t newHeight,
                      ResizeRowState** state) noexcept {
  if (!state || oldWidth < 1 || oldHeight < 1) return ERR_INVALID_PARAMETER;
  TARN_TRY(CompleteExtents(oldWidth, oldHeight, newWidth, newHeight));
  const Here here = TARN_HERE;
  auto* const made = static_cast<ResizeRowState*>(T_LocalAllocInit(1, sizeof(ResizeRowState), here.line, here.file));
  if (!made) return ERR_NO_MEMORY;
  made->LastRow = -1;
  made->OldWidth = oldWidth;
  made->OldHeight = oldHeight;
  made->NewWidth = newWidth;
  made->NewHeight = newHeight;
  made->WidthStep = oldWidth / newWidth;
  made->WidthRemainder = oldWidth % newWidth;
  made->RowCount = newHeight / oldHeight;
  made->RowRemainder = newHeight % oldHeight;
  *state = made;
  return SUCCESS;
}

int32_t T_Resize(void* buffer, int32_t row, int32_t bitsPerPixel, int32_t* newWidth, int32_t* rows,
                 ResizeRowState* state) noexcept {
  if (!buffer || !newWidth || !rows || !state) return ERR_INVALID_PARAMETER;
  ResizeRowState& s = *state;
  *newWidth = s.NewWidth;
  if (s.OldWidth == s.NewWidth && s.OldHeight == s.NewHeight) return *rows = 1;
  const bool backward = row == int64_t{s.LastRow} - 1;
  const bool forward = row == int64_t{s.LastRow} + 1;
  if ((!forward && !backward) || (s.Backward != 0) != backward) {
    const int64_t reached = static_cast<int64_t>(s.RowRemainder) * row % s.OldHeight;
    s.RowAccumulator = static_cast<int32_t>(reached);
    s.Backward = backward;
  }
  int32_t count = s.RowCount;
  int64_t accumulator = s.RowAccumulator;
  accumulator += backward ? -int64_t{s.RowRemainder} : int64_t{s.RowRemainder};
  if (backward ? accumulator < 0 : accumulator >= s.OldHeight) {
    accumulator += backward ? s.OldHeight : -int64_t{s.OldHeight};
    ++count;
  }
  s.RowAccumulator = static_cast<int32_t>(accumulator);
  s.LastRow = row;
  *rows = count;
  if (count == 0 || s.NewWidth == s.OldWidth || !IsBitDepth(bitsPerPixel)) return count;
  const bool grows = s.NewWidth > s.OldWidth;
  // Deliberate: shorter pixels of a row that shrinks are moved from the front as well, where the row is not overtaken.
  MoveLine(static_cast<uint8_t*>(buffer), static_cast<const uint8_t*>(buffer),
           Stepper(0, s.WidthStep, 0, s.WidthRemainder, s.NewWidth, grows), s.NewWidth, bitsPerPixel,
           (static_cast<int64_t>(bitsPerPixel) * s.OldWidth + 7) / 8, grows);
  return count;
}

int32_t T_StopResize(ResizeRowState* state) noexcept {
  if (!state) return ERR_INVALID_PARAMETER;
  const Here here = TARN_HERE;
  T_LocalFree(state, here.line, here.file);
  return SUCCESS;
}
