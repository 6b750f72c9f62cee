#include "Common/Internal/ColorLines.h"

#include <cstring>

#include "Common/Internal/PackedPixels.h"
#include "Common/Internal/Storage.h"
#include "tarn/convert.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

bool IsGrayEntry(const T_PaletteEntry& entry) noexcept { return entry.Red == entry.Green && entry.Red == entry.Blue; }

void StoreColor(uint8_t* target, int64_t pixel, uint32_t color) noexcept { std::memcpy(target + 4 * pixel, &color, 4); }

}  // namespace

void ColorLines::TakePalette(const BitmapHandle& bitmap) noexcept {
  const uint32_t count = 1u << bitmap.BitsPerPixel;
  std::memset(palette_, 0, sizeof palette_);
  if (bitmap.Palette) {
    T_GetBitmapPaletteEntries(&bitmap, 0, count, palette_);
  } else {
    T_GetFixedPalette(palette_, static_cast<uint32_t>(bitmap.BitsPerPixel));
  }
  gray_ = true;
  for (uint32_t i = 0; i < count; ++i) gray_ = gray_ && IsGrayEntry(palette_[i]);
}

Status ColorLines::TakeTable(const BitmapHandle& bitmap) noexcept {
  if (bitmap.LUTLength == 0 || bitmap.LUTLength > HeldEntries(bitmap.LUT)) return ERR_BAD_LUT_LENGTH;
  table_ = bitmap.LUT;
  tableLength_ = bitmap.LUTLength;
  signed_ = (bitmap.Flags & T_FLAG_SIGNED_DATA) != 0;
  gray_ = true;
  for (int64_t i = 0; i < tableLength_ && gray_; ++i) gray_ = IsGrayEntry(table_[i]);
  return SUCCESS;
}

Status ColorLines::Open(const BitmapHandle& bitmap) noexcept {
  bits_ = bitmap.BitsPerPixel;
  const bool grayOrder = bitmap.Order == T_ORDER_GRAY;
  table_ = nullptr;
  deep_ = grayOrder && (bits_ == 12 || bits_ == 16);
  alpha_ = bits_ == 64 || (bits_ == 32 && !grayOrder);
  const bool grayRange = grayOrder && bits_ > 8;
  const LineOptions options = {grayRange ? uint32_t{T_CONVERT_SOURCE_RANGE} : 0, bitmap.LowBit, bitmap.HighBit};
  if (bits_ < 1) return ERR_INVALID_PARAMETER;
  if (deep_) {
    gray_ = true;
    params_ = GrayParamsOf(bits_, 16, bitmap.LowBit, bitmap.HighBit);
    if ((bitmap.Flags & T_FLAG_LUT_IN_USE) && bitmap.LUT) return TakeTable(bitmap);
    return SUCCESS;
  }
  gray_ = grayOrder;  // up to 8 bits too: levels, whatever the palette
  const bool indexed = bits_ <= 8 && !grayOrder;
  if (indexed) TakePalette(bitmap);
  const bool named = bits_ > 8 || grayOrder;
  const LineFormat source = {bits_, named ? bitmap.Order : uint32_t{T_ORDER_RGB}, indexed ? palette_ : nullptr};
  if (gray_) TARN_TRY(toLevels_.Open(source, {0, T_ORDER_RGB, nullptr}, options));
  return toColors_.Open(source, {32, T_ORDER_BGR, nullptr}, options);
}

uint32_t ColorLines::SampleAt(const uint8_t* line, int64_t pixel) const noexcept {
  return DeepSample(line, pixel, bits_) >> params_.shift & params_.mask;
}

/// A sample beyond the table is its last entry.
const T_PaletteEntry& ColorLines::EntryAt(uint32_t sample) const noexcept {
  int64_t entry = sample;
  if (signed_) {
    if (sample > params_.mask >> 1) entry -= int64_t{params_.mask} + 1;
    entry += tableLength_ / 2;
  }
  return table_[entry < 0 ? 0 : entry < tableLength_ ? entry : tableLength_ - 1];
}

void ColorLines::Colors(uint8_t* target, const uint8_t* line, int64_t first, int64_t count) const noexcept {
  if (deep_) {
    for (int64_t i = 0; i < count; ++i) {
      const uint32_t sample = SampleAt(line, first + i);
      if (table_) {
        const T_PaletteEntry& entry = EntryAt(sample);
        StoreColor(target, i, entry.Blue | entry.Green * 256u | entry.Red * 65536u);
      } else {
        StoreColor(target, i, sample * 255 / params_.mask * 0x010101u);
      }
    }
    return;
  }
  toColors_.Convert(target, line + first * bits_ / 8, count);
  if (!alpha_) return;
  for (int64_t i = 0; i < count; ++i) target[4 * i + 3] = 0;
}

void ColorLines::Levels(uint8_t* target, const uint8_t* line, int64_t first, int64_t count) const noexcept {
  if (!deep_) {
    toLevels_.Convert(target, line + first * bits_ / 8, count);
    return;
  }
  for (int64_t i = 0; i < count; ++i) {
    const uint32_t sample = SampleAt(line, first + i);
    target[i] = table_ ? EntryAt(sample).Red : static_cast<uint8_t>(sample * 255 / params_.mask);
  }
}

}  // namespace tarn
