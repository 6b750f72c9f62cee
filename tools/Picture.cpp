#include "Picture.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cmath>
#include <cstring>

#include "Console.h"
#include "Failure.h"
#include "Files.h"

namespace tarn::tool {

uint32_t Picture::Order() const noexcept {
  if (bits <= 8) return T_ORDER_RGB;
  return bits == 16 ? T_ORDER_GRAY : T_ORDER_BGR;
}

std::vector<T_PaletteEntry> GrayRamp(int32_t bits, bool whiteIsZero) {
  T_PaletteEntry* ramp = T_CreateGrayPalette(static_cast<uint32_t>(bits));
  if (!ramp) throw std::bad_alloc();
  std::vector<T_PaletteEntry> palette(ramp, ramp + (size_t{1} << bits));
  T_GlobalFree(ramp, __LINE__, L"tools/Picture.cpp");
  if (whiteIsZero) std::reverse(palette.begin(), palette.end());
  return palette;
}

Ramp RampOf(const std::vector<T_PaletteEntry>& palette) noexcept {
  const size_t last = palette.empty() ? 0 : palette.size() - 1;
  bool up = last > 0, down = last > 0;
  for (size_t i = 0; i <= last && (up || down); ++i) {
    const T_PaletteEntry& entry = palette[i];
    const bool gray = entry.Blue == entry.Green && entry.Green == entry.Red;
    up = up && gray && entry.Red == i * 255 / last;
    down = down && gray && entry.Red == (last - i) * 255 / last;
  }
  return up ? Ramp::kBlackIsZero : down ? Ramp::kWhiteIsZero : Ramp::kNone;
}

std::string DepthName(const Picture& picture) {
  const std::string bits = std::to_string(picture.bits) + "-bit ";
  if (picture.bits <= 8) return bits + (RampOf(picture.palette) == Ramp::kNone ? "palette" : "gray");
  if (picture.bits == 16) return bits + "gray";
  return bits + (picture.bits == 32 || picture.bits == 64 ? "colour with opacity" : "colour");
}

int32_t DotsPerInch(double perInch) noexcept {
  const double rounded = std::floor(perInch + 0.5);
  return rounded >= 1 && rounded <= 1000000 ? static_cast<int32_t>(rounded) : 0;
}

// ---- Formats -------------------------------------------------------------------------------------------------------

namespace {

constexpr std::array<const char*, 4> kFormatNames = {"PNG", "JPEG", "TIFF", "BMP"};
constexpr uint32_t kJpegMaxSide = 65500;

[[noreturn]] void Refuse(Format format, const std::string& name, const std::string& what) {
  const char* other = format == Format::kJpeg || format == Format::kBmp ? "PNG or TIFF" : "TIFF";
  throw Failure(Exit::kDepth, name,
                std::string(kFormatNames[static_cast<size_t>(format)]) + " cannot hold " + what + "; write " + other);
}

}  // namespace

std::string Reader::Source() const {
  if (Pages() == 1) return picture_.container;
  return picture_.container + ", page " + std::to_string(page_) + " of " + std::to_string(Pages());
}

std::string Reader::Where(int64_t byte) const {
  std::string where;
  const auto add = [&](const char* what, int64_t number) {
    where += (where.empty() ? " (" : ", ") + std::string(what) + " " + std::to_string(number);
  };
  if (Pages() > 1) add("page", page_);
  if (row_ >= 0) add("row", row_);
  if (byte >= 0) add("byte", byte);
  return where.empty() ? where : where + ")";
}

std::unique_ptr<Reader> OpenPicture(InputFile& file, Console& console, int page, uint64_t memory) {
  unsigned char head[8] = {};
  const size_t got = file.Read(head, sizeof head);
  file.ThrowIfFailed();
  file.Seek(0);
  const auto starts = [&](const char* magic, size_t bytes) { return got >= bytes && !std::memcmp(head, magic, bytes); };
  if (starts("II*\0", 4) || starts("MM\0*", 4) || starts("II+\0", 4) || starts("MM\0+", 4)) {
    return OpenTiff(file, console, page, memory);
  }
  if (page > 1) throw Failure(Exit::kUsage, file.Name(), "has one page only");
  if (starts("\x89PNG\r\n\x1A\n", 8)) return OpenPng(file, console);
  if (starts("\xFF\xD8\xFF", 3)) return OpenJpeg(file, console, memory);
  if (starts("BM", 2)) return OpenBmp(file);
  throw Failure(Exit::kDamaged, file.Name(), "is not a PNG, JPEG, TIFF or BMP file");
}

Format FormatOf(const std::string& name, const WriteOptions& options) {
  if (options.format) return *options.format;
  if (name == kStandardStream) throw Failure(Exit::kUsage, "", "standard output needs --format png, jpeg, tiff or bmp");
  const size_t dot = name.find_last_of("./");
  std::string extension = dot == std::string::npos || name[dot] == '/' ? "" : name.substr(dot + 1);
  for (char& c : extension) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (extension == "png") return Format::kPng;
  if (extension == "jpg" || extension == "jpeg") return Format::kJpeg;
  if (extension == "tif" || extension == "tiff") return Format::kTiff;
  if (extension == "bmp") return Format::kBmp;
  throw Failure(Exit::kUsage, name,
                "the extension names no format that can be written; use .png, .jpg, .tif or .bmp, or say --format");
}

void RequireHolds(Format format, const WriteOptions& options, const Picture& picture, const std::string& name) {
  const int32_t bits = picture.bits;
  if (format == Format::kPng && bits <= 8 && (bits & (bits - 1)) != 0) Refuse(format, name, DepthName(picture));
  if (format == Format::kBmp && bits > 8 && bits != 24 && bits != 32) Refuse(format, name, DepthName(picture));
  if (format == Format::kJpeg) {
    const bool gray = bits == 8 && RampOf(picture.palette) != Ramp::kNone;
    if (!gray && bits != 24) Refuse(format, name, DepthName(picture));
    if (static_cast<uint32_t>(std::max(picture.width, picture.height)) > kJpegMaxSide) {
      Refuse(format, name, "more than " + std::to_string(kJpegMaxSide) + " rows or columns");
    }
  }
  if (format == Format::kTiff && options.compression == TiffCompression::kG4 && bits != 1) {
    throw Failure(Exit::kDepth, name, "G4 compression holds 1-bit pictures only, this is " + DepthName(picture));
  }
}

void WritePicture(Format format, const WriteOptions& options, const Picture& picture, Bitmap& bitmap, OutputFile& file,
                  Console& console, Progress& progress) {
  switch (format) {
    case Format::kPng:
      return WritePng(picture, bitmap, file, console, progress);
    case Format::kJpeg:
      return WriteJpeg(picture, bitmap, file, console, progress, options.jpegQuality);
    case Format::kTiff:
      return WriteTiff(picture, bitmap, file, console, progress, options.compression);
    case Format::kBmp:
      return WriteBmp(picture, bitmap, file, console, progress);
  }
}

// ---- Orientation ---------------------------------------------------------------------------------------------------
// An Exif block is a small TIFF file; its first directory may hold tag 0x0112, a 16-bit number 1..8.

uint32_t ExifOrientation(const uint8_t* block, size_t bytes) noexcept {
  constexpr uint32_t kTag = 0x0112, kShort = 3, kEntryBytes = 12;
  if (bytes < 8) return 1;
  const bool big = block[0] == 'M';
  const auto word = [&](size_t at) -> uint32_t {
    return big ? uint32_t{block[at]} << 8 | block[at + 1] : uint32_t{block[at + 1]} << 8 | block[at];
  };
  const auto number = [&](size_t at) { return big ? word(at) << 16 | word(at + 2) : word(at + 2) << 16 | word(at); };
  if (block[0] != block[1] || (!big && block[0] != 'I') || word(2) != 42) return 1;
  const uint64_t directory = number(4);
  if (directory + 2 > bytes) return 1;
  const uint32_t entries = word(directory);
  for (uint64_t i = 0; i < entries; ++i) {
    const uint64_t at = directory + 2 + i * kEntryBytes;
    if (at + kEntryBytes > bytes) break;
    if (word(at) != kTag || word(at + 2) != kShort) continue;
    const uint32_t value = word(at + 8);
    return value >= 1 && value <= 8 ? value : 1;
  }
  return 1;
}

std::vector<uint8_t> ExifBlock(uint32_t orientation) {
  return {'M', 'M',  0, 42, 0, 0, 0, 8,                                              // header: directory at byte 8
          0,   1,                                                                    // one entry
          1,   0x12, 0, 3,  0, 0, 0, 1, 0, static_cast<uint8_t>(orientation), 0, 0,  // tag, 16 bits, one value
          0,   0,    0, 0};                                                          // no further directory
}

}  // namespace tarn::tool
