#include "Common/Internal/FormatLines.h"

#include <cstring>

#include "tarn/convert.h"
#include "tarn/palette.h"

namespace tarn {

Status FormatLines::Open(const BitmapHandle& source, const LineFormat& target, uint32_t flags, Here here) noexcept {
  width_ = source.Width;
  const int32_t bits = source.BitsPerPixel;
  usedBytes_ = (static_cast<uint64_t>(width_) * static_cast<uint32_t>(target.bits ? target.bits : 8) + 7) / 8;
  if (UsesTable(source)) {
    TARN_TRY(colors_.Open(source));
    decoded_ = TrackedBuffer<uint8_t>(static_cast<uint64_t>(width_) * 4, here);
    if (!decoded_) return ERR_NO_MEMORY;
    return converter_.Open({32, T_ORDER_BGR, nullptr}, target, {flags, -1, -1});
  }
  // Orders say nothing of a palette; a damaged count of colours does not lead beyond the palette's block.
  LineFormat format = {bits, bits > 8 ? source.Order : uint32_t{T_ORDER_RGB}, nullptr};
  if (bits <= 8 && source.Palette) {
    std::memset(palette_, 0, sizeof palette_);
    T_GetBitmapPaletteEntries(&source, 0, 256, palette_);
    format.palette = palette_;
  }
  const bool gray = bits > 8 && source.Order == T_ORDER_GRAY;
  return converter_.Open(format, target,
                         {flags | (gray ? uint32_t{T_CONVERT_SOURCE_RANGE} : 0), source.LowBit, source.HighBit});
}

void FormatLines::Make(uint8_t* target, const uint8_t* source, uint32_t targetBytes) noexcept {
  MakePixels(target, source, width_);
  std::memset(target + usedBytes_, 0, targetBytes - usedBytes_);
}

void FormatLines::MakePixels(uint8_t* target, const uint8_t* source, int64_t count) noexcept {
  if (decoded_) {
    colors_.Colors(decoded_.data(), source, 0, count);
    source = decoded_.data();
  }
  converter_.Convert(target, source, count);
}

}  // namespace tarn
