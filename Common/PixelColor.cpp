// What pixels of each format stand for.

#include "Common/Internal/PixelColor.h"

#include <cstring>

#include "Common/Internal/Geometry.h"
#include "Common/Internal/GrayParams.h"
#include "Common/Internal/LineContext.h"
#include "Common/Internal/Storage.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

/// Colours that indices lead to.
struct Colors {
  const T_PaletteEntry* entries;
  uint32_t count;  // at most 1 << BitsPerPixel
};

/// The bitmap's palette; the fixed one of its depth where it has none. One-bit bitmaps have two colours, whatever the
/// record says.
Colors ColorsOf(const BitmapHandle& bitmap) noexcept {
  const auto bits = static_cast<uint32_t>(bitmap.BitsPerPixel);
  const uint32_t most = 1u << bits;
  const T_PaletteEntry* const entries = bitmap.Palette;
  if (!entries) return {T_IntGetFixedPalette(bits), most};
  const uint32_t wanted = bits == 1 || bitmap.Colors > most ? most : bitmap.Colors;
  return {entries, TouchableEntries(entries, wanted)};
}

bool HasLut(const BitmapHandle& bitmap) noexcept { return (bitmap.Flags & T_FLAG_LUT_IN_USE) && bitmap.LUT; }

/// Pixels whose colour is one gray sample: all of 12 bits, and 16 and 32 bits in gray order.
bool IsDeepGray(const BitmapHandle& bitmap) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  return bits == 12 || ((bits == 16 || bits == 32) && bitmap.Order == T_ORDER_GRAY);
}

GrayParams ParamsOf(const BitmapHandle& bitmap) noexcept {
  return GrayParamsOf(bitmap.BitsPerPixel, 16, bitmap.LowBit, bitmap.HighBit);
}

constexpr uint32_t Color(uint32_t red, uint32_t green, uint32_t blue) noexcept { return red | green << 8 | blue << 16; }
uint32_t Color(const T_PaletteEntry& entry) noexcept { return Color(entry.Red, entry.Green, entry.Blue); }

// ---- From pixels ---------------------------------------------------------------------------------------------------

uint32_t ColorOfGray(const BitmapHandle& bitmap, uint32_t stored) noexcept {
  const GrayParams params = ParamsOf(bitmap);
  const uint32_t sample = stored >> params.shift & params.mask;
  if (HasLut(bitmap)) {
    const T_PaletteEntry* const lut = bitmap.LUT;
    return sample < LutEntriesOf(bitmap) ? Color(lut[sample]) : kNoColor;
  }
  return (params.mask == 65535 ? sample : sample * 65535 / params.mask) | kGrayTag;
}

constexpr uint32_t Widened(uint32_t channel) noexcept { return channel << 3 | channel >> 2; }

/// The first stored sample is red, or blue.
constexpr uint32_t Placed(uint32_t first, uint32_t second, uint32_t third, bool blueFirst) noexcept {
  return blueFirst ? Color(third, second, first) : Color(first, second, third);
}

/// One canonical pixel, four samples of 8 or 16 bits, as the conversion of lines has it.
struct Canonical {
  uint8_t bytes[8] = {};
  int sampleBits;

  void Set(int at, uint32_t sample) noexcept {
    std::memcpy(bytes + at * sampleBits / 8, &sample, static_cast<size_t>(sampleBits) / 8);
  }
  [[nodiscard]] uint32_t Get(int at) const noexcept {
    uint32_t sample = 0;
    std::memcpy(&sample, bytes + at * sampleBits / 8, static_cast<size_t>(sampleBits) / 8);
    return sample;
  }
};

uint32_t ColorOfWide(uint64_t pixel, int sampleBits) noexcept {
  Canonical block{.sampleBits = sampleBits};
  for (int i = 0; i < 3; ++i) block.Set(i, static_cast<uint32_t>(pixel >> i * sampleBits));
  FromWideGamut(block.bytes, 1, sampleBits == 16);
  const int upper = sampleBits - 8;
  return Color(block.Get(2) >> upper, block.Get(1) >> upper, block.Get(0) >> upper);
}

// ---- To pixels -----------------------------------------------------------------------------------------------------

struct Rgb {
  uint32_t red, green, blue;
  [[nodiscard]] uint32_t Gray() const noexcept { return (5 * green + 2 * red + blue + 4) >> 3; }
};

/// A gray level counts as its upper byte.
Rgb RgbOf(uint32_t color) noexcept {
  const uint32_t green = color >> 8 & 255;
  if ((color & kColorTag) == kGrayTag) return {green, green, green};
  return {color & 255, green, color >> 16 & 255};
}

Status IndexOf(const BitmapHandle& bitmap, const Rgb& rgb, uint64_t& pixel) noexcept {
  const Colors colors = ColorsOf(bitmap);
  if (colors.count == 0) return ERR_INVALID_PARAMETER;
  pixel = T_FindPaletteIndex(colors.entries, colors.count, static_cast<uint8_t>(rgb.red),
                             static_cast<uint8_t>(rgb.green), static_cast<uint8_t>(rgb.blue));
  return SUCCESS;
}

/// A sample of 12 or 16 bits.
Status SampleOf(const BitmapHandle& bitmap, uint32_t color, const Rgb& rgb, uint64_t& pixel) noexcept {
  const GrayParams params = ParamsOf(bitmap);
  const auto depth = static_cast<uint32_t>(params.significant);
  uint32_t sample;
  if (HasLut(bitmap)) {
    const uint32_t held = LutEntriesOf(bitmap);
    const uint32_t reached = held <= params.mask ? held : params.mask + 1;
    if (reached == 0) return ERR_BAD_LUT_LENGTH;
    sample = T_FindPaletteIndex(bitmap.LUT, reached, static_cast<uint8_t>(rgb.red), static_cast<uint8_t>(rgb.green),
                                static_cast<uint8_t>(rgb.blue));
  } else if ((color & kColorTag) == kGrayTag) {
    const uint32_t level = color & 65535;
    // Deliberate: rounds up, so that a level that was read from a sample leads back to it.
    sample = depth < 16 ? ((level << depth) - level + 65534) / 65535 : level;
  } else {
    const uint32_t gray = rgb.Gray();
    sample = depth > 8 ? ((gray << depth) - gray) / 255 : gray >> (8 - depth);
  }
  pixel = uint64_t{sample} << params.shift;  // NOLINT: from 0 on
  return SUCCESS;
}

uint64_t Joined(uint64_t first, uint64_t second, uint64_t third, int sampleBits) noexcept {
  return first | second << sampleBits | third << 2 * sampleBits;
}

/// Three samples; the format's fourth one stays 0.
uint64_t ColorPixel(uint32_t order, bool maybeWide, const Rgb& rgb, int sampleBits) noexcept {
  const uint32_t scale = sampleBits == 16 ? 257 : 1;
  const uint32_t red = rgb.red * scale;
  const uint32_t green = rgb.green * scale;
  const uint32_t blue = rgb.blue * scale;
  if (maybeWide && order == T_ORDER_WIDE) {
    Canonical block{.sampleBits = sampleBits};
    block.Set(0, blue);
    block.Set(1, green);
    block.Set(2, red);
    ToWideGamut(block.bytes, 1, sampleBits == 16);
    return Joined(block.Get(0), block.Get(1), block.Get(2), sampleBits);
  }
  return order == T_ORDER_BGR ? Joined(blue, green, red, sampleBits) : Joined(red, green, blue, sampleBits);
}

uint64_t Gray32Of(uint32_t color, const Rgb& rgb) noexcept {
  return (color & kColorTag) == kGrayTag ? (color & 65535) * 65537u : rgb.Gray() * 0x01010101u;
}

}  // namespace

uint32_t ColorOf(const BitmapHandle& bitmap, uint64_t pixel) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  if (bits <= 8) {
    const Colors colors = ColorsOf(bitmap);
    return pixel < colors.count ? Color(colors.entries[pixel]) : kNoColor;
  }
  const uint32_t order = bitmap.Order;
  const bool blueFirst = order == T_ORDER_BGR;
  const auto low = static_cast<uint32_t>(pixel);
  switch (bits) {
    case 12:
      return ColorOfGray(bitmap, low);
    case 16:
      if (order == T_ORDER_GRAY) return ColorOfGray(bitmap, low);
      return Placed(Widened(low & 31), Widened(low >> 5 & 31), Widened(low >> 10 & 31), blueFirst);
    case 24:
      if (order == T_ORDER_WIDE) return ColorOfWide(pixel, 8);
      return Placed(low & 255, low >> 8 & 255, low >> 16 & 255, blueFirst);
    case 32:
      if (order == T_ORDER_GRAY) return kNoColor;
      return Placed(low & 255, low >> 8 & 255, low >> 16 & 255, blueFirst);
    case 48:
      if (order == T_ORDER_WIDE) return ColorOfWide(pixel, 16);
      [[fallthrough]];
    default:  // 64
      return Placed(low >> 8 & 255, low >> 24 & 255, static_cast<uint32_t>(pixel >> 40) & 255, blueFirst);
  }
}

Status PixelOf(const BitmapHandle& bitmap, uint32_t color, uint64_t& pixel) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  if (!IsBitDepth(bits)) return ERR_BAD_BITS_PER_PIXEL;
  const Rgb rgb = RgbOf(color);
  if (bits <= 8) return IndexOf(bitmap, rgb, pixel);
  if (IsDeepGray(bitmap)) {
    if (bits != 32) return SampleOf(bitmap, color, rgb, pixel);
    pixel = Gray32Of(color, rgb);
    return SUCCESS;
  }
  const uint32_t order = bitmap.Order;
  if (bits == 16) {
    const Rgb small = {rgb.red >> 3, rgb.green >> 3, rgb.blue >> 3};
    pixel = ColorPixel(order, false, small, 5);
  } else {
    pixel = ColorPixel(order, bits == 24 || bits == 48, rgb, bits >= 48 ? 16 : 8);
  }
  return SUCCESS;
}

Status TaggedPixelOf(const BitmapHandle& bitmap, uint32_t color, uint64_t& pixel) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  if ((color & kColorTag) != kIndexTag) return PixelOf(bitmap, color, pixel);
  if (bits < 1 || bits > 8) return PixelOf(bitmap, 0, pixel);
  pixel = color & 0xFFFF;
  return pixel >> bits == 0 ? SUCCESS : ERR_INVALID_PARAMETER;
}

}  // namespace tarn
