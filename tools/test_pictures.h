#pragma once
// Pictures for the tool's tests, written and read by straightforward code of their own: every sample in 16 bits.

#include <array>
#include <cstdint>
#include <string>
#include <vector>

namespace tarn::test {

/// Red, green, blue, opacity of every pixel, 0..65535, rows from the top.
struct Pixels {
  int width = 0;
  int height = 0;
  std::vector<uint16_t> samples;

  bool operator==(const Pixels&) const = default;
  uint16_t* At(int x, int y) { return samples.data() + 4 * (static_cast<size_t>(y) * width + x); }
};

/// The picture as it is seen, by the rules of the orientation tag.
Pixels Seen(Pixels stored, int orientation);

struct Meta {
  int dpi = 0;  // 0: none
  int orientation = 1;
  std::string profile;  // ICC bytes
  bool operator==(const Meta&) const = default;
};

struct PngKind {
  int type;   // PNG_COLOR_TYPE_...
  int depth;  // bits a sample
  bool interlaced;
  bool transparent;  // with a tRNS chunk
};
Pixels MakePng(const std::string& name, int width, int height, const PngKind& kind, const Meta& meta = {});
/// Decodes; `what` gets "gray 1" and the like: colour type and bits a sample.
Pixels DecodePng(const std::string& name, std::string* what = nullptr, Meta* meta = nullptr);
/// The palette of a PNG file, red, green, blue and full opacity in 16 bits; empty when there is none.
std::vector<std::array<uint16_t, 4>> PngPalette(const std::string& name);

struct TiffKind {
  int photometric;
  int bits;     // a sample
  int samples;  // a pixel
  int compression;
  bool tiles = false;
  bool planes = false;
  bool bigEndian = false;
  bool multiplied = false;  // colours multiplied with the opacity
  int pages = 1;
};
Pixels MakeTiff(const std::string& name, int width, int height, const TiffKind& kind, const Meta& meta = {});
/// @param page counted from 0
Pixels DecodeTiff(const std::string& name, TiffKind* kind = nullptr, Meta* meta = nullptr, int page = 0);
/// Throws when the pages are not numbered, or a single one is.
int TiffPageCount(const std::string& name);

struct JpegKind {
  int components = 3;  // 1 gray, 3 colour, 4 inks
  bool progressive = false;
};
void MakeJpeg(const std::string& name, int width, int height, const JpegKind& kind, const Meta& meta = {});
Pixels DecodeJpeg(const std::string& name, Meta* meta = nullptr);

struct BmpKind {
  int bits;  // 1, 2, 4, 8, 16, 24 or 32
  int header = 40;
  bool topDown = false;
  bool runs = false;     // of 4 and 8 bits
  bool opacity = false;  // of 16 and 32 bits: a mask of its own, with a header of 56 and more
  bool otherMasks = false;
};
Pixels MakeBmp(const std::string& name, int width, int height, const BmpKind& kind, const Meta& meta = {});
/// Uncompressed files with the bottom row first; `what` gets "palette 4", "colour 24", "colour+opacity 32".
Pixels DecodeBmp(const std::string& name, std::string* what = nullptr, Meta* meta = nullptr);

}  // namespace tarn::test
