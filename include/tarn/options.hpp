/** @file
 *  The numbers of the C headers as types: depths, orders, storage, methods, colours; and palettes as values. Part of
 *  tarn.hpp.
 */
#ifndef TARN_OPTIONS_HPP
#define TARN_OPTIONS_HPP

#include <algorithm>
#include <array>
#include <cstdint>
#include <initializer_list>
#include <span>

#include "bitmap.h"
#include "colors.h"
#include "dither.h"
#include "palette.h"
#include "pixel.h"
#include "resize.h"
#include "rotate.h"

namespace tarn {
inline namespace v15 {

/** Bits a pixel. */
enum class Depth : int32_t {
  Bits1 = 1,
  Bits2 = 2,
  Bits3 = 3,
  Bits4 = 4,
  Bits5 = 5,
  Bits6 = 6,
  Bits7 = 7,
  Bits8 = 8,
  Bits12 = 12,
  Bits16 = 16,
  Bits24 = 24,
  Bits32 = 32,
  Bits48 = 48,
  Bits64 = 64
};

/** What comes first in a pixel of more than 8 bits: red, blue; gray samples; the wide-gamut space of convert.h. */
enum class Order : uint32_t { Rgb = T_ORDER_RGB, Bgr = T_ORDER_BGR, Gray = T_ORDER_GRAY, Wide = T_ORDER_WIDE };

/** Where pixels are to be kept, or are. */
enum class Storage : uint32_t {
  Automatic = TYPE_CONV,                 /**< asked for: one block, tiles or a file, as size and memory allow */
  Memory = TYPE_CONV,                    /**< reported: one block, or memory of the caller's */
  Tiled = TYPE_TILED,                    /**< tiles, those that memory has no room for in temporary files */
  NoTiles = TYPE_NOTILED,                /**< asked for: one block or a file */
  Disk = TYPE_DISK,                      /**< one temporary file */
  NoDisk = TYPE_NODISK,                  /**< asked for: one block or tiles */
  Compressed = TYPE_COMPRESSED,          /**< run lengths, 1 bit only */
  SuperCompressed = TYPE_SUPERCOMPRESSED /**< by the codec library; 1, 8 and 24 bits */
};

/** How colours that a palette lacks are made of its entries (dither.h). */
enum class Dither : uint32_t {
  None = DITHER_NONE,
  FloydSteinberg = DITHER_FLOYD_STEINBERG,
  Stucki = DITHER_STUCKI,
  Burkes = DITHER_BURKES,
  Sierra = DITHER_SIERRA,
  StevensonArce = DITHER_STEVENSON_ARCE,
  Jarvis = DITHER_JARVIS,
  Ordered = DITHER_ORDERED,
  Clustered = DITHER_CLUSTERED
};

/** Where the palette of a conversion to 1 to 8 bits comes from (colors.h). */
enum class PaletteKind : uint32_t {
  Optimized = T_RES_OPTIMIZED,  /**< made of the colours that occur */
  Fixed = T_RES_FIXED,          /**< the fixed table of the depth */
  Given = T_RES_PALETTE,        /**< the one that comes with the call */
  Web = T_RES_FIXED | T_RES_WEB /**< 216 colours, 8 bits only */
};

/** How a bitmap is resized (resize.h). */
enum class ResizeMethod : uint32_t {
  Nearest = RESIZE_NEAREST,
  InkCount = RESIZE_INK_COUNT,
  Area = RESIZE_AREA,
  Smooth = RESIZE_SMOOTH
};

/** How a bitmap is sampled when it is rotated (rotate.h). */
enum class RotateMethod : uint32_t { Nearest = 0, Correct = ROTATE_CORRECT, Bilinear = ROTATE_BILINEAR };

/** Direction of a quarter turn. */
enum class Turn : int32_t { CounterClockwise = 0, Clockwise = 1 };

/** What a shear moves: rows sideways, or columns up and down. */
enum class ShearAxis : int32_t { Columns = 0, Rows = 1 };

/** A rectangle of pixels. */
struct Area {
  int32_t left = 0;
  int32_t top = 0;
  int32_t width = 0;
  int32_t height = 0;
};

/** A colour value: red, green and blue, a gray level of 16 bits, or an index into a bitmap's palette. */
class Color {
 public:
  constexpr Color() noexcept = default; /**< black */
  /** Of a colour value 0x00BBGGRR, 0x0100nnnn or 0x0400gggg. */
  static constexpr Color of(uint32_t value) noexcept { return Color(value); }
  static constexpr Color rgb(uint8_t red, uint8_t green, uint8_t blue) noexcept {
    return Color(uint32_t{red} | uint32_t{green} << 8 | uint32_t{blue} << 16);
  }
  static constexpr Color gray(uint16_t level) noexcept { return Color(0x04000000u | level); }
  static constexpr Color index(uint16_t entry) noexcept { return Color(0x01000000u | entry); }

  /** The number that the C functions take. */
  constexpr uint32_t value() const noexcept { return value_; }
  constexpr bool isRgb() const noexcept { return value_ >> 24 == 0; }
  constexpr bool isIndex() const noexcept { return value_ >> 24 == 1; }
  constexpr bool isGray() const noexcept { return value_ >> 24 == 4; }
  /** Channels; of a gray level its upper byte. */
  constexpr uint8_t red() const noexcept { return static_cast<uint8_t>(isGray() ? value_ >> 8 : value_); }
  constexpr uint8_t green() const noexcept { return static_cast<uint8_t>(value_ >> 8); }
  constexpr uint8_t blue() const noexcept { return static_cast<uint8_t>(isGray() ? value_ >> 8 : value_ >> 16); }
  friend constexpr bool operator==(Color, Color) noexcept = default;

 private:
  constexpr explicit Color(uint32_t value) noexcept : value_(value) {}
  uint32_t value_ = 0;
};

/** Up to 256 colours, held by value. */
class Palette {
 public:
  static constexpr size_t kMost = 256;

  constexpr Palette() noexcept = default;
  /** The first 256 of these. */
  constexpr explicit Palette(std::span<const T_PaletteEntry> entries) noexcept {
    for (const T_PaletteEntry& entry : entries.first(std::min(entries.size(), kMost))) entries_[count_++] = entry;
  }
  constexpr Palette(std::initializer_list<Color> colors) noexcept {
    for (const Color color : colors) add(color);
  }

  /** The library's table of 1 << bits entries; empty above 8 bits. */
  static Palette fixed(Depth depth) noexcept {
    Palette made;
    const auto bits = static_cast<uint32_t>(depth);
    if (bits <= 8 && T_GetFixedPalette(made.entries_.data(), bits) == SUCCESS) made.count_ = size_t{1} << bits;
    return made;
  }
  /** A ramp of 1 << bits grays from black to white; empty above 8 bits. */
  static constexpr Palette gray(Depth depth) noexcept {
    Palette made;
    const auto bits = static_cast<uint32_t>(depth);
    if (bits > 8) return made;
    const uint32_t last = (1u << bits) - 1;
    for (uint32_t i = 0; i <= last; ++i) {
      const auto level = static_cast<uint8_t>(i * 255 / last);
      made.add(Color::rgb(level, level, level));
    }
    return made;
  }
  /** The 216 colours of the web palette. */
  static Palette web() noexcept { return Palette(std::span(T_IntGetNetscapePalette(), 216)); }

  constexpr size_t size() const noexcept { return count_; }
  constexpr bool empty() const noexcept { return count_ == 0; }
  constexpr const T_PaletteEntry* data() const noexcept { return entries_.data(); }
  constexpr T_PaletteEntry* data() noexcept { return entries_.data(); }
  constexpr const T_PaletteEntry* begin() const noexcept { return data(); }
  constexpr const T_PaletteEntry* end() const noexcept { return data() + count_; }
  constexpr T_PaletteEntry* begin() noexcept { return data(); }
  constexpr T_PaletteEntry* end() noexcept { return data() + count_; }
  constexpr const T_PaletteEntry& operator[](size_t index) const noexcept { return entries_[index]; }
  constexpr T_PaletteEntry& operator[](size_t index) noexcept { return entries_[index]; }

  /** An entry; black beyond the last one. */
  constexpr Color color(size_t index) const noexcept {
    if (index >= count_) return {};
    const T_PaletteEntry& entry = entries_[index];
    return Color::rgb(entry.Red, entry.Green, entry.Blue);
  }
  /** Appends a colour. False when there are 256 already. */
  constexpr bool add(Color color) noexcept {
    if (count_ == kMost) return false;
    entries_[count_++] = {color.blue(), color.green(), color.red(), 0};
    return true;
  }
  /** The nearest entry, by the library's one rule; of an empty palette 0xFFFFFFFF. */
  uint32_t nearest(Color color) const noexcept {
    return T_FindPaletteIndex(data(), static_cast<uint32_t>(count_), color.red(), color.green(), color.blue());
  }
  /** The class of T_IsGrayScalePalette: 0 not gray, 1 a ramp upwards, 2 downwards, 3 other grays. */
  int32_t grayClass() const noexcept { return T_IsGrayScalePalette(data(), static_cast<uint32_t>(count_)); }

  /** Equal in red, green and blue. */
  friend constexpr bool operator==(const Palette& a, const Palette& b) noexcept {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(), [](const T_PaletteEntry& x, const T_PaletteEntry& y) {
      return x.Red == y.Red && x.Green == y.Green && x.Blue == y.Blue;
    });
  }

 private:
  std::array<T_PaletteEntry, kMost> entries_{};
  size_t count_ = 0;
};

/** What a new bitmap is, besides its extents and depth. */
struct Format {
  Order order = Order::Rgb; /**< above 8 bits */
  Storage storage = Storage::Automatic;
  std::span<const T_PaletteEntry> palette{}; /**< 1 << bits entries up to 8 bits; empty: the fixed table */
  uint32_t viewPerspective = 1;              /**< 1..8 */
};

/** How Bitmap::convert finds colours for 1 to 8 bits. */
struct ConvertOptions {
  PaletteKind kind = PaletteKind::Optimized;
  std::span<const T_PaletteEntry> palette{}; /**< with PaletteKind::Given; with Optimized entries to keep */
  Dither dither = Dither::None;
  uint32_t colors = 0; /**< most colours of a palette that is made; 0: as many as the depth has */
};

/** How Bitmap::rotate works. */
struct RotateOptions {
  RotateMethod method = RotateMethod::Bilinear;
  bool resize = true; /**< the bitmap becomes as large as the rotated picture */
  Color fill{};       /**< for pixels that have no source */
};

/** How a bitmap is kept (T_GetBitmapMemoryInfo). */
struct StorageInfo {
  Storage kind = Storage::Memory;
  int64_t tileSize = 0; /**< bytes; tile figures are 0 without tiles */
  uint32_t tileCount = 0;
  uint32_t conventionalTiles = 0;
  uint32_t maxMappedTiles = 0;
  uint32_t mappedTiles = 0;
};

}  // namespace v15
}  // namespace tarn

#endif
