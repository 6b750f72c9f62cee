#pragma once
// How the pixels of a bitmap are laid out, and bitmaps of one layout made from bitmaps of another.
//
// Files hold a few layouts (Picture.h); bitmaps can have all of these:
//   1..8 bits                  palette indices, or gray levels when the order is gray
//   12 and 16 bits, gray       gray samples
//   16 bits, RGB or BGR        three channels of five bits
//   24, 32, 48, 64, RGB or BGR colour, with opacity at 32 and 64 bits
//   32 bits, gray              gray samples

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Picture.h"

namespace tarn::tool {

struct Layout {
  int32_t bits = 0;
  uint32_t order = T_ORDER_RGB;         // up to 8 bits: gray when what becomes such a pixel is weighed, not looked up
  std::vector<T_PaletteEntry> palette;  // 1 << bits entries up to 8 bits, a ramp for gray levels; else empty

  bool Indexed() const noexcept { return bits <= 8; }
  /// Gray samples, or a palette that is a gray ramp.
  bool Gray() const noexcept;
  bool Opacity() const noexcept { return (bits == 32 || bits == 64) && order != T_ORDER_GRAY; }
  /// Equal pixels mean the same.
  bool operator==(const Layout& other) const noexcept;
};

Layout LayoutOf(const Picture& picture);
Layout LayoutOf(const BitmapHandle& bitmap);
/// Gray levels of a depth that has them: 1 to 8 (as indices they belong to a ramp), 12, 16 or 32 bits.
Layout GrayLayout(int32_t bits);
/// A palette of up to 1 << bits colours. Deliberate: what is missing is filled with the last colour, so that nearest
/// colours are colours that were given.
Layout PaletteLayout(int32_t bits, std::vector<T_PaletteEntry> colours);

/// "8-bit gray", "4-bit palette", "48-bit colour", "32-bit colour with opacity".
std::string NameOf(const Layout& layout);
/// The samples of a pixel in words: "blue, green, red".
std::string SamplesOf(const Layout& layout);

/// The layout in which a file can hold every pixel of this one, without loss:
///   3 bits with a palette      4 bits, the same colours first; 5 to 7 bits become 8
///   3, 5, 6, 7 bits of gray    8 bits of gray
///   12 bits of gray            16 bits
///   32 bits of gray            16 bits; Converted refuses samples that have more
///   16 bits of colour          24 bits
///   colour, red first          blue first
Layout FileLayout(const Layout& layout);

/// Rewrites rows of one layout in another, each in a buffer that holds both.
class RowConverter {
 public:
  RowConverter(const Layout& from, const Layout& to, int32_t width);

  bool SameLayout() const noexcept { return same_; }
  /// At least RowBytes of either layout, in whole 4-byte words.
  uint8_t* Line() noexcept { return line_.data(); }
  /// The row in Line() becomes one of the new layout, its padding zero. False when 32-bit gray samples lose bits.
  bool Convert(const std::string& file);

 private:
  const Layout from_;
  const Layout to_;
  int32_t width_;
  bool same_;
  std::vector<uint8_t> line_;
};

/// Storage for a bitmap that is on the way to another: compressed rows are for 1-bit pictures only.
StorageChoice PassingStorage(const StorageChoice& choice, int32_t bits);

/// A new bitmap with the same picture, resolution and orientation. Throws Failure, naming `file`.
std::unique_ptr<Bitmap> Converted(Bitmap& source, const Layout& layout, const StorageChoice& storage,
                                  const std::string& file, Progress& progress);

}  // namespace tarn::tool
