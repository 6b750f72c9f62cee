#include "test_pictures.h"

#include <cstdio>
// jpeglib.h needs stdio first.
#include <jpeglib.h>
#include <png.h>
#include <tiffio.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <stdexcept>

namespace tarn::test {
namespace {

/// A sample of the test pattern: slopes, edges and some noise, 0..65535.
uint16_t Pattern(int x, int y, int channel) {
  uint32_t h =
      static_cast<uint32_t>(x) * 2654435761u ^ static_cast<uint32_t>(y) * 40503u ^ static_cast<uint32_t>(channel) * 97u;
  h = (h ^ (h >> 15)) * 2246822519u;
  const uint32_t slope = static_cast<uint32_t>(x * 1500 + y * 900 + channel * 20000);
  return static_cast<uint16_t>((x / 5 + y / 3) % 4 == 0 ? h >> 16 : slope);
}

uint16_t Widen(uint32_t value, int bits) { return static_cast<uint16_t>(value * 65535u / ((1u << bits) - 1)); }
uint32_t Level(int x, int y, int channel, int bits) {
  return static_cast<uint32_t>(Pattern(x, y, channel)) >> (16 - bits);
}

/// Packs samples of 1 to 16 bits, most significant first; 16-bit ones in the machine's order.
class Packer {
 public:
  explicit Packer(std::vector<uint8_t>& line) : line_(line) { line_.clear(); }
  void Put(uint32_t value, int bits) {
    if (bits == 16) {
      line_.push_back(static_cast<uint8_t>(value));
      line_.push_back(static_cast<uint8_t>(value >> 8));
      return;
    }
    if (used_ == 0) line_.push_back(0);
    line_.back() |= static_cast<uint8_t>(value << (8 - bits - used_));
    used_ = (used_ + bits) % 8;
  }

 private:
  std::vector<uint8_t>& line_;
  int used_ = 0;
};

uint32_t Unpack(const uint8_t* line, int index, int bits) {
  if (bits == 16) return static_cast<uint32_t>(line[2 * index] | line[2 * index + 1] << 8);
  return (line[index * bits / 8] >> (8 - bits - index * bits % 8)) & ((1u << bits) - 1);
}

/// Entry i of the test palette; the same in both formats.
void PaletteEntry(uint32_t i, uint8_t* rgb) {
  rgb[0] = static_cast<uint8_t>(i * 37 + 11);
  rgb[1] = static_cast<uint8_t>(i * 101 + 60);
  rgb[2] = static_cast<uint8_t>(200 - i * 53);
}

std::vector<uint8_t> Exif(int orientation) {  // little-endian, unlike the tool's
  return {'I', 'I', 42, 0, 8, 0, 0, 0, 1, 0, 0x12, 1, 3, 0, 1, 0, 0, 0, static_cast<uint8_t>(orientation),
          0,   0,   0,  0, 0, 0, 0};
}
int ExifValue(const uint8_t* block, size_t bytes) {  // as the tool and the line above write it
  if (bytes < 20) return 1;
  return block[0] == 'M' ? block[19] : block[18];
}

[[noreturn]] void Throw(const std::string& text) { throw std::runtime_error(text); }
void PngError(png_structp, png_const_charp message) { Throw(message); }
void PngIgnore(png_structp, png_const_charp) {}

struct File {
  File(const std::string& name, const char* mode) : file(std::fopen(name.c_str(), mode)) {
    if (!file) Throw("cannot open " + name);
  }
  ~File() { std::fclose(file); }
  std::FILE* file;
};

}  // namespace

// ---- PNG -----------------------------------------------------------------------------------------------------------

Pixels MakePng(const std::string& name, int width, int height, const PngKind& kind, const Meta& meta) {
  const bool palette = kind.type == PNG_COLOR_TYPE_PALETTE;
  const bool colour = (kind.type & PNG_COLOR_MASK_COLOR) != 0 && !palette;
  const bool alpha = (kind.type & PNG_COLOR_MASK_ALPHA) != 0;
  const int channels = (colour ? 3 : 1) + (alpha ? 1 : 0);
  const uint32_t entries = std::min(1u << kind.depth, 200u);
  Pixels truth{width, height, std::vector<uint16_t>(static_cast<size_t>(width) * height * 4)};
  // The colour that tRNS makes transparent is that of a pixel in the middle.
  uint32_t keyed[3] = {};
  for (int c = 0; c < 3; ++c) keyed[c] = Level(width / 2, height / 2, colour ? c : 0, kind.depth);

  std::vector<std::vector<uint8_t>> rows(static_cast<size_t>(height));
  for (int y = 0; y < height; ++y) {
    Packer packer(rows[static_cast<size_t>(y)]);
    for (int x = 0; x < width; ++x) {
      uint32_t v[4] = {};
      for (int c = 0; c < channels; ++c) v[c] = Level(x, y, c, kind.depth);
      uint16_t* const pixel = truth.At(x, y);
      pixel[3] = 65535;
      if (palette) {
        v[0] %= entries;
        uint8_t rgb[3];
        PaletteEntry(v[0], rgb);
        for (int c = 0; c < 3; ++c) pixel[c] = static_cast<uint16_t>(rgb[c] * 257);
        if (kind.transparent && v[0] < 3) pixel[3] = static_cast<uint16_t>((v[0] * 100) * 257);
      } else {
        for (int c = 0; c < 3; ++c) pixel[c] = Widen(v[colour ? c : 0], kind.depth);
        if (alpha) pixel[3] = Widen(v[channels - 1], kind.depth);
        const bool match = v[0] == keyed[0] && (!colour || (v[1] == keyed[1] && v[2] == keyed[2]));
        if (kind.transparent && match) pixel[3] = 0;
      }
      for (int c = 0; c < channels; ++c) packer.Put(v[c], kind.depth);
    }
  }

  const File file(name, "wb");
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, PngError, PngIgnore);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file.file);
  png_set_IHDR(png, info, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), kind.depth, kind.type,
               kind.interlaced ? PNG_INTERLACE_ADAM7 : PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  if (palette) {
    std::vector<png_color> colours(entries);
    for (uint32_t i = 0; i < entries; ++i) {
      uint8_t rgb[3];
      PaletteEntry(i, rgb);
      colours[i] = {rgb[0], rgb[1], rgb[2]};
    }
    png_set_PLTE(png, info, colours.data(), static_cast<int>(entries));
  }
  png_byte opacity[3] = {0, 100, 200};
  png_color_16 key{};
  key.gray = key.red = static_cast<png_uint_16>(keyed[0]);
  key.green = static_cast<png_uint_16>(keyed[1]);
  key.blue = static_cast<png_uint_16>(keyed[2]);
  if (kind.transparent)
    png_set_tRNS(png, info, opacity, std::min(3, static_cast<int>(entries)), palette ? nullptr : &key);
  if (meta.dpi != 0) {
    const auto perMetre = static_cast<png_uint_32>(meta.dpi / 0.0254 + 0.5);
    png_set_pHYs(png, info, perMetre, perMetre, PNG_RESOLUTION_METER);
  }
  std::vector<uint8_t> exif = Exif(meta.orientation);
  if (meta.orientation != 1) png_set_eXIf_1(png, info, static_cast<png_uint_32>(exif.size()), exif.data());
  if (!meta.profile.empty()) {
    png_set_iCCP(png, info, "p", 0, reinterpret_cast<png_const_bytep>(meta.profile.data()),
                 static_cast<png_uint_32>(meta.profile.size()));
  }
  std::vector<png_bytep> pointers;
  for (std::vector<uint8_t>& row : rows) pointers.push_back(row.data());
  png_set_rows(png, info, pointers.data());
  png_write_png(png, info, PNG_TRANSFORM_SWAP_ENDIAN, nullptr);
  png_destroy_write_struct(&png, &info);
  return truth;
}

Pixels DecodePng(const std::string& name, std::string* what, Meta* meta) {
  const File file(name, "rb");
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, PngError, PngIgnore);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file.file);
  png_read_info(png, info);
  const int type = png_get_color_type(png, info);
  if (what) {
    static const char* const kNames[] = {"gray", "", "colour", "palette", "gray+opacity", "", "colour+opacity"};
    *what = kNames[type] + (" " + std::to_string(png_get_bit_depth(png, info)));
  }
  if (meta) {
    png_charp profileName = nullptr;
    png_bytep block = nullptr;
    png_uint_32 bytes = 0;
    int method = 0;
    meta->dpi = static_cast<int>(png_get_x_pixels_per_meter(png, info) * 0.0254 + 0.5);
    if (png_get_iCCP(png, info, &profileName, &method, &block, &bytes)) meta->profile.assign(block, block + bytes);
    if (png_get_eXIf_1(png, info, &bytes, &block)) meta->orientation = ExifValue(block, bytes);
  }
  png_set_expand_16(png);
  if ((type & PNG_COLOR_MASK_COLOR) == 0) png_set_gray_to_rgb(png);
  png_set_add_alpha(png, 65535, PNG_FILLER_AFTER);
  png_set_swap(png);
  png_read_update_info(png, info);
  Pixels pixels{
      static_cast<int>(png_get_image_width(png, info)), static_cast<int>(png_get_image_height(png, info)), {}};
  pixels.samples.resize(static_cast<size_t>(pixels.width) * pixels.height * 4);
  for (int y = 0; y < pixels.height; ++y) png_read_row(png, reinterpret_cast<png_bytep>(pixels.At(0, y)), nullptr);
  png_read_end(png, info);
  png_destroy_read_struct(&png, &info, nullptr);
  return pixels;
}

std::vector<std::array<uint16_t, 4>> PngPalette(const std::string& name) {
  const File file(name, "rb");
  png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, PngError, PngIgnore);
  png_infop info = png_create_info_struct(png);
  png_init_io(png, file.file);
  png_read_info(png, info);
  png_colorp colours = nullptr;
  int count = 0;
  png_get_PLTE(png, info, &colours, &count);
  std::vector<std::array<uint16_t, 4>> entries;
  for (int i = 0; i < count; ++i) {
    const auto wide = [](png_byte v) { return static_cast<uint16_t>(v * 257); };
    entries.push_back({wide(colours[i].red), wide(colours[i].green), wide(colours[i].blue), 65535});
  }
  png_destroy_read_struct(&png, &info, nullptr);
  return entries;
}

// ---- TIFF ----------------------------------------------------------------------------------------------------------

namespace {

/// Sample c of the file's pixel, and what it shows.
uint32_t TiffSample(const TiffKind& kind, int x, int y, int c) {
  const bool opacity = c > 0 && c == kind.samples - 1 && kind.samples != 3;
  const uint32_t level = Level(x, y, c, kind.bits);
  if (!kind.multiplied || opacity) return level;
  // Colours never exceed the opacity that they were multiplied with.
  const uint32_t most = Level(x, y, kind.samples - 1, kind.bits);
  return level % (most + 1);
}

void Show(const TiffKind& kind, const uint32_t* v, uint16_t* pixel) {
  const uint32_t full = (1u << kind.bits) - 1;
  const int base = kind.samples >= 3 ? 3 : 1;
  pixel[3] = kind.samples > base ? Widen(v[base], kind.bits) : 65535;
  for (int c = 0; c < 3; ++c) {
    uint32_t level = v[base == 3 ? c : 0];
    if (kind.photometric == PHOTOMETRIC_MINISWHITE) level = full - level;
    if (kind.multiplied && v[base] != 0) level = std::min(full, (level * full + v[base] / 2) / v[base]);
    pixel[c] = Widen(level, kind.bits);
  }
  if (kind.photometric == PHOTOMETRIC_PALETTE) {
    uint8_t rgb[3];
    PaletteEntry(v[0], rgb);
    for (int c = 0; c < 3; ++c) pixel[c] = static_cast<uint16_t>(rgb[c] * 257);
  }
}

}  // namespace

Pixels MakeTiff(const std::string& name, int width, int height, const TiffKind& kind, const Meta& meta) {
  Pixels truth{width, height, std::vector<uint16_t>(static_cast<size_t>(width) * height * 4)};
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      uint32_t v[4] = {};
      for (int c = 0; c < kind.samples; ++c) v[c] = TiffSample(kind, x, y, c);
      Show(kind, v, truth.At(x, y));
    }
  }
  TIFF* tiff = TIFFOpen(name.c_str(), kind.bigEndian ? "wb" : "wl");
  if (!tiff) Throw("cannot write " + name);
  for (int page = 0; page < kind.pages; ++page) {
    TIFFSetField(tiff, TIFFTAG_IMAGEWIDTH, width);
    TIFFSetField(tiff, TIFFTAG_IMAGELENGTH, height);
    TIFFSetField(tiff, TIFFTAG_BITSPERSAMPLE, kind.bits);
    TIFFSetField(tiff, TIFFTAG_SAMPLESPERPIXEL, kind.samples);
    TIFFSetField(tiff, TIFFTAG_PHOTOMETRIC, kind.photometric);
    TIFFSetField(tiff, TIFFTAG_COMPRESSION, kind.compression);
    TIFFSetField(tiff, TIFFTAG_PLANARCONFIG, kind.planes ? PLANARCONFIG_SEPARATE : PLANARCONFIG_CONTIG);
    TIFFSetField(tiff, TIFFTAG_ORIENTATION, meta.orientation);
    if (kind.photometric == PHOTOMETRIC_YCBCR) TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
    if (kind.samples == 2 || kind.samples == 4) {
      const uint16_t extra = kind.multiplied ? EXTRASAMPLE_ASSOCALPHA : EXTRASAMPLE_UNASSALPHA;
      TIFFSetField(tiff, TIFFTAG_EXTRASAMPLES, 1, &extra);
    }
    if (kind.photometric == PHOTOMETRIC_PALETTE) {
      std::vector<uint16_t> map[3];
      for (uint32_t i = 0; i < 1u << kind.bits; ++i) {
        uint8_t rgb[3];
        PaletteEntry(i, rgb);
        for (int c = 0; c < 3; ++c) map[c].push_back(static_cast<uint16_t>(rgb[c] * 257));
      }
      TIFFSetField(tiff, TIFFTAG_COLORMAP, map[0].data(), map[1].data(), map[2].data());
    }
    if (meta.dpi != 0) {
      TIFFSetField(tiff, TIFFTAG_RESOLUTIONUNIT, RESUNIT_CENTIMETER);
      TIFFSetField(tiff, TIFFTAG_XRESOLUTION, meta.dpi / 2.54);
      TIFFSetField(tiff, TIFFTAG_YRESOLUTION, meta.dpi / 2.54);
    }
    if (!meta.profile.empty()) {
      TIFFSetField(tiff, TIFFTAG_ICCPROFILE, static_cast<uint32_t>(meta.profile.size()), meta.profile.data());
    }
    const int side = kind.tiles ? 16 : 0;
    const int blockWidth = kind.tiles ? side : width, blockHeight = kind.tiles ? side : 5;
    if (kind.tiles) {
      TIFFSetField(tiff, TIFFTAG_TILEWIDTH, side);
      TIFFSetField(tiff, TIFFTAG_TILELENGTH, side);
    } else {
      TIFFSetField(tiff, TIFFTAG_ROWSPERSTRIP, kind.compression == COMPRESSION_JPEG ? 16 : blockHeight);
    }
    std::vector<uint8_t> line, block;
    const int planes = kind.planes ? kind.samples : 1;
    // Pixels beyond the edge of the last tiles are junk that nobody may see.
    const auto pack = [&](int left, int y, int plane) {
      Packer packer(line);
      for (int x = left; x < left + blockWidth; ++x) {
        const bool inside = x < width && y < height;
        for (int c = 0; c < kind.samples; ++c) {
          if (planes == 1 || c == plane) packer.Put(inside ? TiffSample(kind, x, y, c) : 1, kind.bits);
        }
      }
    };
    bool good = true;
    for (int plane = 0; plane < planes; ++plane) {
      for (int top = 0; top < height; top += kind.tiles ? side : 1) {
        for (int left = 0; left < width; left += blockWidth) {
          block.clear();
          for (int y = top; y < top + (kind.tiles ? side : 1); ++y) {
            pack(left, y, plane);
            block.insert(block.end(), line.begin(), line.end());
          }
          const auto sample = static_cast<uint16_t>(plane);
          good = good && (kind.tiles ? TIFFWriteTile(tiff, block.data(), static_cast<uint32_t>(left),
                                                     static_cast<uint32_t>(top), 0, sample) > 0
                                     : TIFFWriteScanline(tiff, block.data(), static_cast<uint32_t>(top), sample) == 1);
        }
      }
    }
    if (!good || TIFFWriteDirectory(tiff) != 1) Throw("cannot encode " + name);
  }
  TIFFClose(tiff);
  return truth;
}

int TiffPageCount(const std::string& name) {
  TIFF* tiff = TIFFOpen(name.c_str(), "r");
  if (!tiff) Throw("cannot read " + name);
  const int pages = static_cast<int>(TIFFNumberOfDirectories(tiff));
  for (int page = 0; page < pages; ++page) {
    uint16_t number = 0, count = 0;
    const bool set = TIFFSetDirectory(tiff, static_cast<tdir_t>(page)) == 1;
    const bool numbered = TIFFGetField(tiff, TIFFTAG_PAGENUMBER, &number, &count) == 1;
    if (!set || numbered != (pages > 1) || (numbered && (number != page || count != pages))) {
      Throw("wrong page numbers in " + name);
    }
  }
  TIFFClose(tiff);
  return pages;
}

Pixels DecodeTiff(const std::string& name, TiffKind* kindOut, Meta* meta, int page) {
  TIFF* tiff = TIFFOpen(name.c_str(), "r");
  if (!tiff || TIFFSetDirectory(tiff, static_cast<tdir_t>(page)) != 1) Throw("cannot read " + name);
  uint32_t width = 0, height = 0, profileBytes = 0;
  uint16_t bits = 1, samples = 1, photometric = 0, compression = 1, orientation = 1, planar = 1, unit = 0;
  float resolution = 0;
  const void* profile = nullptr;
  TIFFGetField(tiff, TIFFTAG_IMAGEWIDTH, &width);
  TIFFGetField(tiff, TIFFTAG_IMAGELENGTH, &height);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_BITSPERSAMPLE, &bits);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_SAMPLESPERPIXEL, &samples);
  TIFFGetField(tiff, TIFFTAG_PHOTOMETRIC, &photometric);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_COMPRESSION, &compression);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_ORIENTATION, &orientation);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_PLANARCONFIG, &planar);
  TIFFGetFieldDefaulted(tiff, TIFFTAG_RESOLUTIONUNIT, &unit);
  TIFFGetField(tiff, TIFFTAG_XRESOLUTION, &resolution);
  if (meta) {
    meta->dpi = static_cast<int>(resolution * (unit == RESUNIT_CENTIMETER ? 2.54f : 1) + 0.5f);
    meta->orientation = orientation;
    if (TIFFGetField(tiff, TIFFTAG_ICCPROFILE, &profileBytes, &profile) == 1) {
      meta->profile.assign(static_cast<const char*>(profile), profileBytes);
    }
  }
  if (photometric == PHOTOMETRIC_YCBCR) TIFFSetField(tiff, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB);
  if (planar != PLANARCONFIG_CONTIG || TIFFIsTiled(tiff)) Throw("this decoder reads strips only");
  const TiffKind kind{photometric, bits, samples, compression};
  uint16_t* map[3] = {};
  if (photometric == PHOTOMETRIC_PALETTE) TIFFGetField(tiff, TIFFTAG_COLORMAP, &map[0], &map[1], &map[2]);
  Pixels pixels{static_cast<int>(width), static_cast<int>(height), std::vector<uint16_t>(size_t{width} * height * 4)};
  std::vector<uint8_t> line(static_cast<size_t>(TIFFScanlineSize(tiff)));
  for (uint32_t y = 0; y < height; ++y) {
    if (TIFFReadScanline(tiff, line.data(), y, 0) != 1) Throw("cannot decode " + name);
    for (uint32_t x = 0; x < width; ++x) {
      uint32_t v[4] = {};
      for (int c = 0; c < samples; ++c) v[c] = Unpack(line.data(), static_cast<int>(x) * samples + c, bits);
      uint16_t* const pixel = pixels.At(static_cast<int>(x), static_cast<int>(y));
      Show(kind, v, pixel);
      if (map[0]) {
        for (int c = 0; c < 3; ++c) pixel[c] = map[c][v[0]];
      }
    }
  }
  TIFFClose(tiff);
  if (kindOut) *kindOut = kind;
  return pixels;
}

// ---- JPEG ----------------------------------------------------------------------------------------------------------

void MakeJpeg(const std::string& name, int width, int height, const JpegKind& kind, const Meta& meta) {
  const File file(name, "wb");
  jpeg_error_mgr error;
  jpeg_compress_struct codec{};
  codec.err = jpeg_std_error(&error);
  jpeg_create_compress(&codec);
  jpeg_stdio_dest(&codec, file.file);
  codec.image_width = static_cast<JDIMENSION>(width);
  codec.image_height = static_cast<JDIMENSION>(height);
  codec.input_components = kind.components;
  codec.in_color_space = kind.components == 1 ? JCS_GRAYSCALE : kind.components == 3 ? JCS_RGB : JCS_CMYK;
  jpeg_set_defaults(&codec);
  jpeg_set_quality(&codec, 92, TRUE);
  if (kind.progressive) jpeg_simple_progression(&codec);
  codec.density_unit = meta.dpi != 0;
  if (meta.dpi != 0) codec.X_density = codec.Y_density = static_cast<UINT16>(meta.dpi);
  jpeg_start_compress(&codec, TRUE);
  if (meta.orientation != 1) {
    std::vector<uint8_t> block = {'E', 'x', 'i', 'f', 0, 0};
    for (const uint8_t byte : Exif(meta.orientation)) block.push_back(byte);
    jpeg_write_marker(&codec, JPEG_APP0 + 1, block.data(), static_cast<unsigned>(block.size()));
  }
  if (!meta.profile.empty()) {
    jpeg_write_icc_profile(&codec, reinterpret_cast<const JOCTET*>(meta.profile.data()),
                           static_cast<unsigned>(meta.profile.size()));
  }
  std::vector<uint8_t> line(static_cast<size_t>(width) * kind.components);
  for (int y = 0; y < height; ++y) {
    for (size_t i = 0; i < line.size(); ++i) {  // smooth: what JPEG is made for
      line[i] =
          static_cast<uint8_t>(40 + (i / kind.components) * 2 + static_cast<size_t>(y) + i % kind.components * 60);
    }
    JSAMPROW row = line.data();
    jpeg_write_scanlines(&codec, &row, 1);
  }
  jpeg_finish_compress(&codec);
  jpeg_destroy_compress(&codec);
}

Pixels DecodeJpeg(const std::string& name, Meta* meta) {
  const File file(name, "rb");
  jpeg_error_mgr error;
  jpeg_decompress_struct codec{};
  codec.err = jpeg_std_error(&error);
  jpeg_create_decompress(&codec);
  jpeg_stdio_src(&codec, file.file);
  jpeg_save_markers(&codec, JPEG_APP0 + 1, 0xFFFF);
  jpeg_save_markers(&codec, JPEG_APP0 + 2, 0xFFFF);
  jpeg_read_header(&codec, TRUE);
  if (meta) {
    meta->dpi = codec.density_unit == 1 ? codec.X_density : 0;
    for (jpeg_saved_marker_ptr at = codec.marker_list; at; at = at->next) {
      if (at->marker == JPEG_APP0 + 1 && at->data_length > 6)
        meta->orientation = ExifValue(at->data + 6, at->data_length - 6);
    }
    JOCTET* profile = nullptr;
    unsigned bytes = 0;
    if (jpeg_read_icc_profile(&codec, &profile, &bytes)) meta->profile.assign(profile, profile + bytes);
    std::free(profile);
  }
  codec.out_color_space = JCS_RGB;
  jpeg_start_decompress(&codec);
  Pixels pixels{static_cast<int>(codec.output_width), static_cast<int>(codec.output_height), {}};
  pixels.samples.resize(static_cast<size_t>(pixels.width) * pixels.height * 4, 65535);
  std::vector<uint8_t> line(static_cast<size_t>(pixels.width) * 3);
  for (int y = 0; y < pixels.height; ++y) {
    JSAMPROW row = line.data();
    jpeg_read_scanlines(&codec, &row, 1);
    for (int x = 0; x < pixels.width; ++x) {
      for (int c = 0; c < 3; ++c)
        pixels.At(x, y)[c] = static_cast<uint16_t>(line[static_cast<size_t>(x) * 3 + c] * 257);
    }
  }
  jpeg_finish_decompress(&codec);
  jpeg_destroy_decompress(&codec);
  return pixels;
}

// ---- BMP -----------------------------------------------------------------------------------------------------------

namespace {

void Append(std::string& bytes, uint32_t value, int count) {
  for (int i = 0; i < count; ++i) bytes += static_cast<char>(value >> 8 * i);
}

/// A row of indices as run lengths: runs where there are some, else indices as they are.
void AppendRuns(std::string& bytes, const std::vector<uint32_t>& row, int bits) {
  for (size_t x = 0; x < row.size();) {
    size_t run = 1;
    while (x + run < row.size() && run < 255 && row[x + run] == row[x]) ++run;
    const size_t left = row.size() - x;
    if (run > 1 || left < 3) {
      Append(bytes, static_cast<uint32_t>(run), 1);
      Append(bytes, bits == 8 ? row[x] : row[x] * 17, 1);
      x += run;
      continue;
    }
    const size_t count = std::min<size_t>(left, 5);
    Append(bytes, 0, 1);
    Append(bytes, static_cast<uint32_t>(count), 1);
    std::string data;
    for (size_t i = 0; i < count; i += bits == 8 ? 1 : 2)
      Append(data, bits == 8 ? row[x + i] : row[x + i] << 4 | (i + 1 < count ? row[x + i + 1] : 0), 1);
    if (data.size() % 2) data += '\0';
    bytes += data;
    x += count;
  }
  Append(bytes, 0, 2);
}

/// Shift and width of red, green, blue and opacity within a pixel.
struct BmpField {
  int shift, bits;
};

std::array<BmpField, 4> BmpFields(const BmpKind& kind) {
  if (kind.bits == 16 && kind.opacity) return {{{8, 4}, {4, 4}, {0, 4}, {12, 4}}};
  if (kind.bits == 16 && kind.otherMasks) return {{{11, 5}, {5, 6}, {0, 5}, {0, 0}}};
  if (kind.bits == 16) return {{{10, 5}, {5, 5}, {0, 5}, {0, 0}}};
  if (kind.otherMasks) return {{{0, 8}, {8, 8}, {16, 8}, {24, kind.opacity ? 8 : 0}}};
  return {{{16, 8}, {8, 8}, {0, 8}, {24, kind.opacity ? 8 : 0}}};
}

/// Eight bits of which the `bits` are repeated.
uint32_t Repeated(uint32_t value, int bits) {
  uint32_t wide = 0;
  for (int i = 0; i < 8; ++i) wide = wide << 1 | (value >> (bits - 1 - i % bits) & 1);
  return wide;
}

}  // namespace

Pixels MakeBmp(const std::string& name, int width, int height, const BmpKind& kind, const Meta& meta) {
  Pixels truth{width, height, std::vector<uint16_t>(static_cast<size_t>(width) * height * 4)};
  const uint32_t entries = kind.bits <= 8 ? (kind.header == 12 ? 1u << kind.bits : std::min(1u << kind.bits, 200u)) : 0;
  const bool masks = kind.opacity || kind.otherMasks;
  const std::array<BmpField, 4> fields = BmpFields(kind);
  std::string rows;
  for (int i = 0; i < height; ++i) {
    const int y = kind.topDown ? i : height - 1 - i;
    std::vector<uint32_t> line;
    for (int x = 0; x < width; ++x) {
      uint16_t* const pixel = truth.At(x, y);
      pixel[3] = 65535;
      uint32_t word = 0;
      if (kind.bits <= 8) {
        word = Level(x, y, 0, kind.bits) % entries;
        uint8_t rgb[3];
        PaletteEntry(word, rgb);
        for (int c = 0; c < 3; ++c) pixel[c] = static_cast<uint16_t>(rgb[c] * 257);
      } else {
        for (int c = 0; c < 4; ++c) {
          const BmpField field = fields[static_cast<size_t>(c)];
          if (field.bits == 0) continue;
          const uint32_t level = Level(x, y, c, field.bits);
          word |= level << field.shift;
          pixel[c] = static_cast<uint16_t>(Repeated(level, field.bits) * 257);
        }
      }
      line.push_back(word);
    }
    if (kind.runs) {
      AppendRuns(rows, line, kind.bits);
      continue;
    }
    std::vector<uint8_t> packed;
    Packer packer(packed);
    for (const uint32_t word : line) {
      if (kind.bits <= 8) packer.Put(word, kind.bits);
      for (int byte = 0; kind.bits > 8 && byte < kind.bits / 8; ++byte)
        packed.push_back(static_cast<uint8_t>(word >> 8 * byte));
    }
    packed.resize((packed.size() + 3) / 4 * 4);
    rows.append(packed.begin(), packed.end());
  }
  if (kind.runs) Append(rows, 0x0100, 2);

  std::string head;
  Append(head, static_cast<uint32_t>(kind.header), 4);
  if (kind.header == 12) {
    Append(head, static_cast<uint32_t>(width), 2);
    Append(head, static_cast<uint32_t>(height), 2);
  } else {
    Append(head, static_cast<uint32_t>(width), 4);
    Append(head, static_cast<uint32_t>(kind.topDown ? -height : height), 4);
  }
  Append(head, 1, 2);
  Append(head, static_cast<uint32_t>(kind.bits), 2);
  if (kind.header != 12) {
    Append(head, kind.runs ? (kind.bits == 8 ? 1 : 2) : masks ? 3 : 0, 4);
    Append(head, static_cast<uint32_t>(rows.size()), 4);
    for (int i = 0; i < 2; ++i) Append(head, static_cast<uint32_t>(meta.dpi / 0.0254 + 0.5), 4);
    Append(head, entries, 4);
    Append(head, 0, 4);
    for (size_t c = 0; masks && c < (kind.header == 40 || kind.header == 52 ? 3 : 4); ++c)
      Append(head, ((1u << fields[c].bits) - 1) << (fields[c].bits ? fields[c].shift : 0), 4);
    if (static_cast<int>(head.size()) < kind.header) head.resize(static_cast<size_t>(kind.header));
  }
  for (uint32_t i = 0; i < entries; ++i) {
    uint8_t rgb[3];
    PaletteEntry(i, rgb);
    for (int c = 2; c >= 0; --c) Append(head, rgb[c], 1);
    if (kind.header != 12) Append(head, 0, 1);
  }
  std::string bytes = "BM";
  Append(bytes, static_cast<uint32_t>(14 + head.size() + rows.size()), 4);
  Append(bytes, 0, 4);
  Append(bytes, static_cast<uint32_t>(14 + head.size()), 4);
  bytes += head + rows;
  const File file(name, "wb");
  if (std::fwrite(bytes.data(), 1, bytes.size(), file.file) != bytes.size()) Throw("cannot write " + name);
  return truth;
}

Pixels DecodeBmp(const std::string& name, std::string* what, Meta* meta) {
  std::vector<uint8_t> bytes;
  {
    const File file(name, "rb");
    for (int c; (c = std::fgetc(file.file)) != EOF;) bytes.push_back(static_cast<uint8_t>(c));
  }
  const auto number = [&](size_t at) {
    return bytes.at(at) | static_cast<uint32_t>(bytes.at(at + 1)) << 8 | static_cast<uint32_t>(bytes.at(at + 2)) << 16 |
           static_cast<uint32_t>(bytes.at(at + 3)) << 24;
  };
  const int width = static_cast<int>(number(18)), height = static_cast<int>(number(22)), bits = bytes.at(28);
  const bool opacity = bits == 32 && number(30) == 3 && number(66) == 0xFF000000;
  if (bytes[0] != 'B' || bytes[1] != 'M' || number(2) != bytes.size()) Throw("not a whole BMP file");
  if (!opacity && number(30) != 0) Throw("unexpected compression");
  if (what)
    *what = bits <= 8 ? "palette " + std::to_string(bits)
            : opacity ? "colour+opacity 32"
                      : "colour " + std::to_string(bits);
  if (meta) *meta = {static_cast<int>(number(38) * 0.0254 + 0.5), 1, ""};
  const size_t table = 14 + number(14), pixels = number(10);
  const size_t rowBytes = (static_cast<size_t>(width) * static_cast<size_t>(bits) + 31) / 32 * 4;
  if (pixels + rowBytes * static_cast<size_t>(height) != bytes.size()) Throw("rows of another length");
  Pixels result{width, height, std::vector<uint16_t>(static_cast<size_t>(width) * height * 4)};
  for (int y = 0; y < height; ++y) {
    const uint8_t* const row = &bytes[pixels + static_cast<size_t>(height - 1 - y) * rowBytes];
    for (int x = 0; x < width; ++x) {
      const uint8_t* bgr = row + x * bits / 8;
      if (bits <= 8) bgr = &bytes.at(table + 4 * Unpack(row, x, bits));
      uint16_t* const pixel = result.At(x, y);
      for (int c = 0; c < 3; ++c) pixel[c] = static_cast<uint16_t>(bgr[2 - c] * 257);
      pixel[3] = opacity ? static_cast<uint16_t>(bgr[3] * 257) : 65535;
    }
  }
  return result;
}

Pixels Seen(Pixels stored, int orientation) {
  const int w = stored.width, h = stored.height;
  Pixels seen;
  seen.width = orientation >= 5 ? h : w;
  seen.height = orientation >= 5 ? w : h;
  for (int y = 0; y < seen.height; ++y) {
    for (int x = 0; x < seen.width; ++x) {
      const int columns[] = {x, w - 1 - x, w - 1 - x, x, y, y, w - 1 - y, w - 1 - y};
      const int rows[] = {y, y, h - 1 - y, h - 1 - y, x, h - 1 - x, h - 1 - x, x};
      const uint16_t* const pixel = stored.At(columns[orientation - 1], rows[orientation - 1]);
      seen.samples.insert(seen.samples.end(), pixel, pixel + 4);
    }
  }
  return seen;
}

}  // namespace tarn::test
