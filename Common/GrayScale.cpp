// Bitmaps to gray scale.

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Duplicate.h"
#include "Common/Internal/FormatLines.h"
#include "Common/Internal/Geometry.h"
#include "Common/Internal/Rows.h"
#include "tarn/gray.h"
#include "tarn/memory.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

constexpr bool IsGrayDepth(int32_t bits) noexcept { return bits == 8 || bits == 12 || bits == 16 || bits == 32; }

uint32_t Load32(const uint8_t* line, int32_t i) noexcept {
  uint32_t value;
  std::memcpy(&value, line + 4 * static_cast<size_t>(i), 4);
  return value;
}

// ---- Lines of a gray result ----------------------------------------------------------------------------------------

/// Makes lines of the result from lines of the source.
class GrayLines {
 public:
  Status Open(const BitmapHandle& source, int32_t bits, Here here) noexcept {
    if (!GeometryHolds(source)) return ERR_INVALID_PARAMETER;
    width_ = source.Width;
    bits_ = bits;
    if ((source.Flags & T_FLAG_SIGNED_DATA) && !UsesTable(source)) return ERR_SIGNED_DATA;
    const LineFormat target = {bits == 8 ? 0 : bits, bits == 8 ? uint32_t{T_ORDER_RGB} : uint32_t{T_ORDER_GRAY},
                               nullptr};
    return lines_.Open(source, target, 0, here);
  }

  void Make(uint8_t* target, const uint8_t* source, uint32_t targetBytes) noexcept {
    lines_.Make(target, source, targetBytes);
    for (int32_t i = 0; bits_ == 32 && i < width_; ++i) {
      const uint32_t value = Load32(target, i);
      least_ = value < least_ ? value : least_;
      most_ = value > most_ ? value : most_;
    }
  }

  void SetLimits(BitmapHandle& result) const noexcept {
    result.MinValue = static_cast<int32_t>(least_);
    result.MaxValue = static_cast<int32_t>(most_);
  }

 private:
  int32_t width_ = 0;
  int32_t bits_ = 0;
  FormatLines lines_;
  uint32_t least_ = UINT32_MAX;
  uint32_t most_ = 0;
};

/// 32-bit gray to fewer bits through the recorded limits.
class NarrowLines {
 public:
  NarrowLines(const BitmapHandle& source, int32_t bits) noexcept : width_(source.Width), bits_(bits) {
    // Signed samples count from the lowest one.
    flip_ = source.Flags & T_FLAG_SIGNED_DATA ? 0x80000000u : 0;
    least_ = static_cast<uint32_t>(source.MinValue) ^ flip_;
    most_ = static_cast<uint32_t>(source.MaxValue) ^ flip_;
  }

  void Make(uint8_t* target, const uint8_t* source, uint32_t targetBytes) noexcept {
    const size_t sampleBytes = static_cast<size_t>(bits_) / 8;
    for (int32_t i = 0; i < width_; ++i) {
      const uint32_t level = Level(Load32(source, i) ^ flip_);
      std::memcpy(target + static_cast<size_t>(i) * sampleBytes, &level, sampleBytes);
    }
    const size_t used = static_cast<size_t>(width_) * sampleBytes;
    std::memset(target + used, 0, targetBytes - used);
  }

  void SetLimits(BitmapHandle&) const noexcept {}

 private:
  uint32_t Level(uint32_t value) const noexcept {
    if (least_ >= most_) return value >> (32 - bits_);
    if (value <= least_) return 0;
    const uint64_t top = (1u << bits_) - 1;
    return static_cast<uint32_t>(value >= most_ ? top : (value - least_) * top / (most_ - least_));
  }

  int32_t width_;
  int32_t bits_;
  uint32_t flip_;
  uint32_t least_;
  uint32_t most_;
};

// ---- Bitmaps -------------------------------------------------------------------------------------------------------

template <class Lines>
Status FillResult(BitmapHandle& result, BitmapHandle& source, Lines& lines) noexcept {
  TARN_TRY(MakeRows(result, source, lines));
  lines.SetLimits(result);
  return SUCCESS;
}

constexpr uint32_t OrderOf(int32_t bits) noexcept { return bits == 8 ? T_ORDER_RGB : T_ORDER_GRAY; }

Status MakeRamp(int32_t bits, T_PaletteEntry*& ramp) noexcept {
  ramp = bits == 8 ? T_CreateGrayPalette(8) : nullptr;
  return bits != 8 || ramp ? SUCCESS : ERR_NO_MEMORY;
}

template <class Lines>
Status ReplaceBy(BitmapHandle& bitmap, int32_t bits, Lines& lines) noexcept {
  ScratchBitmap result;
  TARN_TRY(result.Create(bitmap, bitmap.Width, bitmap.Height, bits));
  DescribeSamples(result.Record(), OrderOf(bits));
  TARN_TRY(FillResult(result.Record(), bitmap, lines));
  T_PaletteEntry* ramp = nullptr;
  TARN_TRY(MakeRamp(bits, ramp));
  result.Commit(bitmap);
  AdoptPalette(bitmap, ramp, 256);
  return SUCCESS;
}

Status MakeGrayCopy(BitmapHandle& destination, BitmapHandle& source, int32_t bits) noexcept {
  GrayLines lines;
  TARN_TRY(lines.Open(source, bits, TARN_HERE));
  T_PaletteEntry* ramp = nullptr;
  TARN_TRY(MakeRamp(bits, ramp));
  BitmapHandle made;
  const uint32_t mode = DUP_STORAGE | DUP_REGION | DUP_OVERLAYS;
  Status status = T_DupBitmapNewDim(&made, &source, sizeof made, source.Width, source.Height, bits, mode);
  if (status.Ok()) {
    made.Palette = ramp;
    made.Colors = ramp ? 256 : 0;
    DescribeSamples(made, OrderOf(bits));
    status = FillResult(made, source, lines);
    if (status.Ok()) {
      destination = made;
      return SUCCESS;
    }
    T_FreeBitmap(&made);  // the ramp too
    return status;
  }
  const Here here = TARN_HERE;
  if (ramp) T_GlobalFree(ramp, here.line, here.file);
  return status;
}

int32_t Narrow(BitmapHandle* handle, int32_t bits) noexcept {
  TARN_TRY(RequireAllocatedThenSize(handle, ERR_NO_BITMAP));
  if (!GeometryHolds(*handle)) return ERR_INVALID_PARAMETER;
  if (handle->BitsPerPixel != 32 || handle->Order != T_ORDER_GRAY) return ERR_BAD_BITS_PER_PIXEL;
  NarrowLines lines(*handle, bits);
  return ReplaceBy(*handle, bits, lines).code;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_GrayScaleBitmap(BitmapHandle* handle, int32_t bits) noexcept {
  TARN_TRY(RequireAllocatedThenSize(handle, ERR_NO_BITMAP));
  if (!IsGrayDepth(bits)) return ERR_BAD_BITS_PER_PIXEL;
  GrayLines lines;
  TARN_TRY(lines.Open(*handle, bits, TARN_HERE));
  return ReplaceBy(*handle, bits, lines).code;
}

int32_t T_CreateGrayScaleBitmap(BitmapHandle* destination, BitmapHandle* source, int32_t bits,
                                uint32_t structSize) noexcept {
  if (!destination) return ERR_NO_BITMAP;
  if (destination == source)
    return structSize == sizeof *source ? T_GrayScaleBitmap(source, bits) : ERR_BAD_STRUCT_SIZE;
  TARN_TRY(RequireAllocatedThenSize(source, ERR_NO_BITMAP));
  if (structSize != sizeof *source) return ERR_BAD_STRUCT_SIZE;
  const bool fits = IsGrayDepth(bits);
  const Status made = fits ? MakeGrayCopy(*destination, *source, bits) : Status(ERR_BAD_BITS_PER_PIXEL);
  if (!made.Ok()) std::memset(destination, 0, sizeof *destination);
  return made.code;
}

int32_t T_Gray32To16(BitmapHandle* handle) noexcept { return Narrow(handle, 16); }
int32_t T_Gray32To8(BitmapHandle* handle) noexcept { return Narrow(handle, 8); }
