#include "Common/Internal/LinesInto.h"

#include <cstring>

#include "Common/Internal/PackedPixels.h"
#include "Common/Internal/Storage.h"
#include "tarn/convert.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

bool SameColors(const T_PaletteEntry* a, const T_PaletteEntry* b, uint32_t count) noexcept {
  for (uint32_t i = 0; i < count; ++i)
    if (a[i].Blue != b[i].Blue || a[i].Green != b[i].Green || a[i].Red != b[i].Red) return false;
  return true;
}

/// All entries that indices can have: those that the palette lacks are black, without one it is the fixed one.
void TakePalette(const BitmapHandle& bitmap, T_PaletteEntry* entries) noexcept {
  constexpr uint32_t kMost = 256;
  std::memset(entries, 0, kMost * sizeof *entries);
  if (bitmap.Palette) {
    T_GetBitmapPaletteEntries(&bitmap, 0, kMost, entries);
  } else {
    const auto bits = static_cast<uint32_t>(bitmap.BitsPerPixel);
    std::memcpy(entries, T_IntGetFixedPalette(bits), (size_t{1} << bits) * sizeof *entries);
  }
}

bool SamePalette(const BitmapHandle& a, const BitmapHandle& b) noexcept {
  if (IsGray8(a) || IsGray8(b)) return IsGray8(a) && IsGray8(b);
  if (a.Palette == b.Palette) return true;
  T_PaletteEntry ofA[256], ofB[256];
  TakePalette(a, ofA);
  TakePalette(b, ofB);
  return SameColors(ofA, ofB, 1u << a.BitsPerPixel);
}

bool SameTable(const BitmapHandle& a, const BitmapHandle& b) noexcept {
  if (UsesTable(a) != UsesTable(b)) return false;
  if (!UsesTable(a) || a.LUT == b.LUT) return true;
  const uint32_t entries = LutEntriesOf(a);
  return entries == LutEntriesOf(b) && SameColors(a.LUT, b.LUT, entries);
}

}  // namespace

bool IsDeepGray(const BitmapHandle& bitmap) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  return bits == 12 || ((bits == 16 || bits == 32) && bitmap.Order == T_ORDER_GRAY);
}

bool IsGray8(const BitmapHandle& bitmap) noexcept {
  return bitmap.BitsPerPixel == 8 && (bitmap.Order == T_ORDER_GRAY || T_IsGrayScaleBitmap(&bitmap) == 1);
}

bool HasDeepAlpha(const BitmapHandle& bitmap) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  return (bits == 32 && bitmap.Order != T_ORDER_GRAY) || bits == 64;
}

GrayParams SamplesOf(const BitmapHandle& bitmap) noexcept {
  return GrayParamsOf(bitmap.BitsPerPixel, 32, bitmap.LowBit, bitmap.HighBit);
}

bool IsWholeSample(const GrayParams& params, int32_t bits) noexcept { return params.significant == bits; }

bool SameFormat(const BitmapHandle& a, const BitmapHandle& b) noexcept {
  const int32_t bits = a.BitsPerPixel;
  if (bits != b.BitsPerPixel) return false;
  if (bits <= 8) return SamePalette(a, b);
  if (bits != 12 && a.Order != b.Order) return false;
  if (!IsDeepGray(a)) return true;
  const GrayParams ofA = SamplesOf(a), ofB = SamplesOf(b);
  return ofA.significant == ofB.significant && ofA.shift == ofB.shift && SameTable(a, b);
}

LineFormat FormatOf(const BitmapHandle& bitmap, T_PaletteEntry* entries) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  if (IsGray8(bitmap)) return {8, T_ORDER_GRAY, nullptr};
  if (bits <= 8) {
    TakePalette(bitmap, entries);
    return {bits, T_ORDER_RGB, entries};
  }
  return {bits, bits == 12 ? uint32_t{T_ORDER_GRAY} : bitmap.Order, nullptr};
}

Status LinesInto::Open(const BitmapHandle& source, const BitmapHandle& target, int64_t pixels, Here here) noexcept {
  bits_ = target.BitsPerPixel;
  direct_ = SameFormat(source, target);
  if (direct_) return SUCCESS;
  const LineFormat format = FormatOf(target, entries_);
  if (IsDeepGray(target)) {
    range_ = SamplesOf(target);
    ranged_ = !IsWholeSample(range_, bits_);
  }
  const uint32_t flags = HasDeepAlpha(target) && !HasDeepAlpha(source) ? uint32_t{T_CONVERT_OPAQUE} : 0;
  levels_ = IsGray8(source);
  if (levels_) return fromGray_.Open({8, T_ORDER_GRAY, nullptr}, format, {flags, -1, -1});
  BitmapHandle line = source;  // its format is all that counts
  line.Width = static_cast<int32_t>(pixels);
  if (line.BitsPerPixel == 12) line.Order = T_ORDER_GRAY;
  return lines_.Open(line, format, flags, here);
}

/// Levels of the whole sample keep their top bits.
void LinesInto::Range(uint8_t* line, int64_t pixels) const noexcept {
  const int32_t cut = bits_ - range_.significant;
  for (int64_t i = 0; i < pixels; ++i) {
    if (bits_ == 32) {
      uint32_t sample;
      std::memcpy(&sample, line + 4 * i, 4);
      sample = sample >> cut << range_.shift;
      std::memcpy(line + 4 * i, &sample, 4);
      continue;
    }
    const uint32_t sample = DeepSample(line, i, bits_) >> cut << range_.shift;
    uint8_t* const at = line + (bits_ == 12 ? i * 3 / 2 : i * 2);
    if (bits_ == 16) {
      at[0] = static_cast<uint8_t>(sample);
      at[1] = static_cast<uint8_t>(sample >> 8);
    } else if (i % 2) {
      at[0] = static_cast<uint8_t>((at[0] & 15) | sample << 4);
      at[1] = static_cast<uint8_t>(sample >> 4);
    } else {
      at[0] = static_cast<uint8_t>(sample);
      at[1] = static_cast<uint8_t>((at[1] & 0xF0) | sample >> 8);
    }
  }
}

void LinesInto::Make(uint8_t* target, const uint8_t* source, int64_t pixels) noexcept {
  if (levels_) {
    fromGray_.Convert(target, source, pixels);
  } else {
    lines_.MakePixels(target, source, pixels);
  }
  if (ranged_) Range(target, pixels);
}

}  // namespace tarn
