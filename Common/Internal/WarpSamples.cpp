#include "Common/Internal/WarpSamples.h"

#include <cstring>

#include "Common/Internal/PackedPixels.h"
#include "Kernels/Kernels.h"
#include "tarn/convert.h"

namespace tarn {
namespace {

constexpr int64_t kMostWindow = int64_t{8} << 20;

}  // namespace

WarpKernels::Sample WarpSampler::ChooseSampler() const noexcept {
  const WarpKernels& kernels = *Kernels().warp;
  if (bilinear_) {
    switch (form_.BitsPerPixel) {
      case 8:
        return kernels.bilinear8;
      case 12:
      case 16:
        return kernels.bilinear16;
      case 24:
        return kernels.bilinear24;
      case 32:
        return form_.Order == T_ORDER_GRAY ? kernels.bilinear32Gray : kernels.bilinear32;
      case 48:
        return kernels.bilinear48;
      default:
        return kernels.bilinear64;
    }
  }
  switch (unit_) {
    case 1:
      return kernels.nearest8;
    case 2:
      return kernels.nearest16;
    case 3:
      return kernels.nearest24;
    case 4:
      return kernels.nearest32;
    case 6:
      return kernels.nearest48;
    default:
      return kernels.nearest64;
  }
}

Status WarpSampler::Open(int64_t areaWidth, int64_t areaHeight, bool bilinear) noexcept {
  bilinear_ = bilinear;
  form_ = source_;  // a format, nothing else
  const int32_t bits = source_.BitsPerPixel;
  if (bilinear) {
    levels_ = IsDeepGray(source_);
    params_ = SamplesOf(source_);
    if (IsWholeSample(params_, bits)) levels_ = false;
    colors_ = (bits <= 8 && !IsGray8(source_)) || (bits == 16 && source_.Order != T_ORDER_GRAY);
    if (colors_) {
      form_.BitsPerPixel = 32;
      form_.Order = T_ORDER_BGR;
      form_.Palette = nullptr;
      TARN_TRY(lines_.Open(source_, {32, T_ORDER_BGR, nullptr}, T_CONVERT_OPAQUE, TARN_HERE));
    }
  }
  const int32_t formBits = form_.BitsPerPixel;
  unit_ = formBits < 8 ? 1 : formBits == 12 ? 2 : formBits / 8;
  sampler_ = ChooseSampler();
  window_.lastColumn = areaWidth - 1;
  window_.lastRow = areaHeight - 1;
  TARN_TRY(reader_.Open());
  if (!SharesBytes(bits) && !colors_ && !levels_) block_ = BlockOf(source_);
  if (block_) return SUCCESS;
  // At least four pixels, so that one sample's always fit.
  const int64_t rowBytes = areaWidth * unit_;
  windowBytes_ = rowBytes >= kMostWindow || rowBytes * areaHeight >= kMostWindow ? kMostWindow : rowBytes * areaHeight;
  held_ = TrackedBuffer<uint8_t>(static_cast<uint64_t>(windowBytes_) + 8, TARN_HERE);
  if (!held_) return ERR_NO_MEMORY;
  aligned_ = TrackedBuffer<uint8_t>(source_.BytesPerLine + uint64_t{8}, TARN_HERE);
  return aligned_ ? SUCCESS : ERR_NO_MEMORY;
}

void WarpSampler::Hold(WarpRow& row) const noexcept {
  row.half = bilinear_ ? 128 : 0;
  // Nearest: the last pixel reaches to 255 behind its beginning.
  row.lastX = static_cast<int32_t>(256 * window_.lastColumn + (bilinear_ ? 0 : 255));
  row.lastY = static_cast<int32_t>(256 * window_.lastRow + (bilinear_ ? 0 : 255));
}

WarpBox WarpSampler::BoxOf(const WarpReach& reach) const noexcept {
  const auto end = [this](int32_t most, int64_t last) noexcept {
    const int64_t pixel = (most >> 8) + (bilinear_ ? 1 : 0);
    return (pixel < last ? pixel : last) + 1;
  };
  return {reach.leastX >> 8, reach.leastY >> 8, end(reach.mostX, window_.lastColumn),
          end(reach.mostY, window_.lastRow)};
}

/// Pixels of a row from a bit of `part` on, in units of their own.
void WarpSampler::ReadLine(uint8_t* target, const uint8_t* part, uint32_t firstBit, int64_t count) noexcept {
  const int32_t bits = source_.BitsPerPixel;
  if (firstBit) {
    ShiftFor(bits)(aligned_.data(), 0, part, firstBit, static_cast<uint64_t>(count) * static_cast<uint32_t>(bits));
    part = aligned_.data();
  }
  if (colors_) {
    lines_.MakePixels(target, part, count);
  } else if (SharesBytes(bits)) {
    UnpackPixels(target, part, count, bits);
  } else {
    std::memcpy(target, part, BytesOf(count, bits));
  }
  if (!levels_) return;
  for (int64_t i = 0; i < count; ++i) {
    uint32_t sample = 0;
    std::memcpy(&sample, target + i * unit_, static_cast<size_t>(unit_));
    sample = sample >> params_.shift & params_.mask;
    std::memcpy(target + i * unit_, &sample, static_cast<size_t>(unit_));
  }
}

Status WarpSampler::Read(const WarpBox& box, int64_t areaLeft, int64_t areaTop) noexcept {
  if (block_) {
    window_.stride = source_.BytesPerLine;
    window_.data = block_ + areaTop * window_.stride + areaLeft * unit_;
    return SUCCESS;
  }
  const int64_t width = box.right - box.left;
  const auto bits = static_cast<uint32_t>(source_.BitsPerPixel);
  const uint64_t firstBit = static_cast<uint64_t>(areaLeft + box.left) * bits;
  const uint64_t bytes = (firstBit % 8 + static_cast<uint64_t>(width) * bits + 7) / 8;
  window_.stride = width * unit_;
  for (int64_t row = box.top; row < box.bottom; ++row) {
    const uint8_t* const part = reader_.Part(static_cast<int32_t>(areaTop + row), firstBit / 8, bytes);
    if (!part) return reader_.status();
    ReadLine(held_.data() + (row - box.top) * window_.stride, part, static_cast<uint32_t>(firstBit % 8), width);
  }
  window_.data = held_.data() - box.top * window_.stride - box.left * unit_;
  return SUCCESS;
}

void WarpSampler::Sample(uint8_t* target, const WarpPlace* places, int64_t count) const noexcept {
  sampler_(target, window_, places, count);
}

const uint8_t* WarpSampler::Packed(uint8_t* buffer, const uint8_t* samples, int64_t count) const noexcept {
  const int32_t bits = form_.BitsPerPixel;
  if (!levels_ && !SharesBytes(bits)) return samples;
  if (!levels_) {
    PackPixels(buffer, samples, count, bits);
    return buffer;
  }
  for (int64_t i = 0; i < count; ++i) {
    uint32_t sample = 0;
    std::memcpy(&sample, samples + i * unit_, static_cast<size_t>(unit_));
    sample <<= params_.shift;
    if (bits == 12) {
      uint8_t* const at = buffer + i / 2 * 3 + i % 2;
      at[0] = static_cast<uint8_t>(i % 2 ? (at[0] & 15) | sample << 4 : sample);
      at[1] = static_cast<uint8_t>(i % 2 ? sample >> 4 : sample >> 8);
    } else {
      std::memcpy(buffer + i * unit_, &sample, static_cast<size_t>(unit_));
    }
  }
  return buffer;
}

}  // namespace tarn
