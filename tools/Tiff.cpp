// TIFF by way of libtiff: strips row by row, tiles tile by tile, samples together or in planes.
//
// libtiff reports errors through a handler and results. When it has no memory it reports that too, but then goes on
// into null pointers: the handler jumps out instead, and the handle is left alone from then on, not even closed.

#include <fcntl.h>
#include <tiffio.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csetjmp>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <new>

#include "Console.h"
#include "Failure.h"
#include "Files.h"
#include "Picture.h"

namespace tarn::tool {
namespace {

constexpr uint64_t kCodecMemory = 1 << 29;  // largest single buffer, a tile or row of the file, unless more is allowed
constexpr double kCentimetresPerInch = 2.54;

/// What libtiff's callbacks know. libtiff goes on after errors and warnings; the first of each is kept.
struct TiffContext {
  Console* console;
  const std::string* name;
  std::array<char, 200> error{};
  std::array<char, 200> warning{};
  jmp_buf jump{};
  bool armed = false;  // inside Call
  bool outOfMemory = false;

  void Clear() { error[0] = warning[0] = 0; }

  template <class Step>
  bool Guarded(const Step& step) {
    if (setjmp(jump) != 0) return false;
    step();
    return true;
  }
  /// Runs a call of libtiff; its step holds nothing that a jump could skip the destruction of. Throws without memory.
  template <class Step>
  auto Call(const Step& step) {
    decltype(step()) result{};
    errno = 0;  // libtiff tells of missing memory in words only; malloc leaves ENOMEM
    armed = true;
    const bool returned = Guarded([&] { result = step(); });
    armed = false;
    if (!returned) throw Failure(Exit::kMemory, *name, "needs too much memory");
    return result;
  }
  static void Format(std::array<char, 200>& text, const char* format, va_list arguments) {
    std::vsnprintf(text.data(), text.size(), format, arguments);
  }
  static int OnError(TIFF*, void* user, const char*, const char* format, va_list arguments) {
    auto* context = static_cast<TiffContext*>(user);
    if (errno == ENOMEM && context->armed) {
      context->outOfMemory = true;
      longjmp(context->jump, 1);
    }
    if (context->error[0] == 0) Format(context->error, format, arguments);
    return 1;
  }
  static int OnWarning(TIFF*, void* user, const char*, const char* format, va_list arguments) {
    auto* context = static_cast<TiffContext*>(user);
    std::array<char, 200> text;
    Format(text, format, arguments);
    if (context->warning[0] == 0) context->warning = text;
    context->console->Note(*context->name, text.data());
    return 1;
  }
};

/// The file behind libtiff's calls; File is InputFile or OutputFile.
template <class File>
struct TiffCalls {
  static File& Of(thandle_t handle) { return *static_cast<File*>(handle); }
  static tmsize_t Read(thandle_t handle, void* target, tmsize_t bytes) {
    return static_cast<tmsize_t>(Of(handle).Read(target, static_cast<size_t>(bytes)));
  }
  static tmsize_t Write(thandle_t handle, void* source, tmsize_t bytes) {
    if constexpr (requires(File & f) { f.Write(source, size_t{}); }) {
      return Of(handle).Write(source, static_cast<size_t>(bytes)) ? bytes : -1;
    } else {
      return -1;
    }
  }
  static toff_t Seek(thandle_t handle, toff_t offset, int origin) {
    File& file = Of(handle);
    const uint64_t base = origin == SEEK_CUR ? file.Position() : origin == SEEK_END ? file.Size() : 0;
    file.Seek(base + offset);
    return file.Position();
  }
  static int Close(thandle_t) { return 0; }
  static toff_t Size(thandle_t handle) { return Of(handle).Size(); }

  static TIFF* Open(File& file, const char* mode, uint64_t memory, TiffContext& context) {
    context.Clear();
    const std::unique_ptr<TIFFOpenOptions, decltype(&TIFFOpenOptionsFree)> options(TIFFOpenOptionsAlloc(),
                                                                                   TIFFOpenOptionsFree);
    if (!options) throw std::bad_alloc();
    TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), static_cast<tmsize_t>(std::min<uint64_t>(memory, INT64_MAX)));
    TIFFOpenOptionsSetErrorHandlerExtR(options.get(), TiffContext::OnError, &context);
    TIFFOpenOptionsSetWarningHandlerExtR(options.get(), TiffContext::OnWarning, &context);
    return context.Call([&] {
      return TIFFClientOpenExt(file.Name().c_str(), mode, &file, Read, Write, Seek, Close, Size, nullptr, nullptr,
                               options.get());
    });
  }
  static void Close(TIFF* tiff, const TiffContext& context) {
    if (tiff && !context.outOfMemory) TIFFClose(tiff);
  }
};

std::string CompressionName(uint16_t compression) {
  switch (compression) {
    case COMPRESSION_NONE:
      return "uncompressed";
    case COMPRESSION_CCITTRLE:
    case COMPRESSION_CCITTRLEW:
      return "modified Huffman";
    case COMPRESSION_CCITTFAX3:
      return "G3";
    case COMPRESSION_CCITTFAX4:
      return "G4";
    case COMPRESSION_LZW:
      return "LZW";
    case COMPRESSION_JPEG:
      return "JPEG";
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE:
      return "Deflate";
    case COMPRESSION_PACKBITS:
      return "PackBits";
    default:
      return "compression " + std::to_string(compression);
  }
}

/// The scheme as one that is written; kDefault for others.
TiffCompression WritableScheme(uint16_t compression) {
  switch (compression) {
    case COMPRESSION_NONE:
      return TiffCompression::kNone;
    case COMPRESSION_CCITTFAX4:
      return TiffCompression::kG4;
    case COMPRESSION_LZW:
      return TiffCompression::kLzw;
    case COMPRESSION_ADOBE_DEFLATE:
    case COMPRESSION_DEFLATE:
      return TiffCompression::kDeflate;
    case COMPRESSION_PACKBITS:
      return TiffCompression::kPackBits;
    default:
      return TiffCompression::kDefault;
  }
}

// ---- Samples -------------------------------------------------------------------------------------------------------

/// Writes sample `sample` of the file's pixels into the bitmap's channels; source has `stride` samples a pixel.
template <class T>
void Scatter(T* target, int channels, const T* source, int stride, uint32_t count, int sample, bool gray) {
  // Channels are blue, green, red, opacity; the file has red, green, blue, opacity or gray, opacity.
  if (gray && sample == 0) {
    for (uint32_t i = 0; i < count; ++i) {
      T* const pixel = target + uint64_t{i} * channels;
      pixel[0] = pixel[1] = pixel[2] = source[uint64_t{i} * stride];
    }
    return;
  }
  const int channel = gray || sample == 3 ? 3 : 2 - sample;
  for (uint32_t i = 0; i < count; ++i) target[uint64_t{i} * channels + channel] = source[uint64_t{i} * stride];
}

/// Divides colours by the opacity that they were multiplied with.
template <class T>
void Straighten(T* pixels, uint32_t count) {
  constexpr uint32_t kFull = static_cast<T>(~T{0});
  for (T* pixel = pixels; count > 0; --count, pixel += 4) {
    const uint32_t opacity = pixel[3];
    if (opacity == kFull || opacity == 0) continue;
    for (int i = 0; i < 3; ++i) {
      // kFull * kFull + kFull / 2 is below 2^32
      pixel[i] = static_cast<T>(std::min(kFull, (pixel[i] * kFull + opacity / 2) / opacity));
    }
  }
}

// ---- Reading -------------------------------------------------------------------------------------------------------

class TiffReader final : public Reader {
 public:
  TiffReader(InputFile& file, Console& console, int page, uint64_t memory)
      : file_(file), memory_(std::max(memory, kCodecMemory)), context_{&console, &file.Name()} {
    // "m": no memory mapping. Row-wise reading then takes long strips in pieces.
    tiff_ = TiffCalls<InputFile>::Open(file, "rm", memory_, context_);
    if (!tiff_) Damaged();
    try {
      FindPages();
      ChoosePage(page);
    } catch (...) {
      TiffCalls<InputFile>::Close(tiff_, context_);
      throw;
    }
  }
  ~TiffReader() override { TiffCalls<InputFile>::Close(tiff_, context_); }

  int Pages() const noexcept override { return static_cast<int>(pages_.size()); }
  void TurnTo(int page) override;
  uint64_t Steps() const noexcept override { return Reader::Steps() * static_cast<uint64_t>(planes_); }

  void ReadInto(Bitmap& bitmap, Progress& progress) override {
    line_.resize(bitmap.BytesPerLine());
    context_.Clear();
    if (TIFFIsTiled(tiff_)) {
      ReadTiles(bitmap, progress);
    } else {
      ReadStrips(bitmap, progress);
    }
  }

 private:
  [[noreturn]] void Damaged() const {
    file_.ThrowIfFailed();
    std::string reason = context_.error[0] ? context_.error.data() : context_.warning.data();
    if (reason.empty()) reason = "cannot be read";
    throw Failure(Exit::kDamaged, file_.Name(), "damaged TIFF: " + reason + Where(-1));
  }
  [[noreturn]] void Unsupported(const std::string& what) const {
    throw Failure(Exit::kDamaged, file_.Name(), "TIFF with " + what + " is not supported");
  }
  /// While pixels are decoded a warning, too, means that some of them are made up.
  void CheckDecoded(bool decoded) const {
    if (!decoded || context_.error[0] || context_.warning[0]) Damaged();
  }
  template <class T>
  T Tag(uint32_t tag) const {
    T value{};
    TIFFGetFieldDefaulted(tiff_, tag, &value);
    return value;
  }

  void FindPages();
  void ChoosePage(int page);
  void ReadHeader();
  void ReadSamples();
  void ReadPalette();
  void ReadStrips(Bitmap& bitmap, Progress& progress);
  void ReadTiles(Bitmap& bitmap, Progress& progress);
  void Put(Bitmap& bitmap, int32_t row, uint32_t column, uint32_t count, const uint8_t* source, int plane);
  template <class T>
  void PutChannels(Bitmap& bitmap, int32_t row, uint32_t column, uint32_t count, const T* source, int plane);

  InputFile& file_;
  uint64_t memory_;
  TiffContext context_;
  TIFF* tiff_ = nullptr;
  std::vector<uint64_t> pages_;  // offsets of their directories
  int samples_ = 1;              // of a pixel in the file
  int planes_ = 1;               // 1: samples lie together
  bool grayWithOpacity_ = false;
  bool multiplied_ = false;  // colours come multiplied with their opacity
  bool invertGray16_ = false;
  std::vector<uint8_t> line_;
};

/// Pages are the directories but for reduced copies and masks.
void TiffReader::FindPages() {
  const uint64_t first = TIFFCurrentDirOffset(tiff_);
  do {
    const auto kind = Tag<uint32_t>(TIFFTAG_SUBFILETYPE);
    if ((kind & (FILETYPE_REDUCEDIMAGE | FILETYPE_MASK)) == 0) pages_.push_back(TIFFCurrentDirOffset(tiff_));
  } while (context_.Call([&] { return TIFFReadDirectory(tiff_); }) == 1);
  if (context_.error[0]) Damaged();
  if (pages_.empty()) pages_.push_back(first);  // nothing but reduced copies
}

void TiffReader::ChoosePage(int page) {
  const int pages = Pages();
  if (page > pages) {
    throw Failure(Exit::kUsage, file_.Name(),
                  "has " + std::to_string(pages) + (pages == 1 ? " page" : " pages") + " only");
  }
  if (page == 0 && pages > 1) {
    throw Failure(Exit::kUsage, file_.Name(), "has " + std::to_string(pages) + " pages; choose one with --page");
  }
  TurnTo(std::max(page, 1));
}

void TiffReader::TurnTo(int page) {
  page_ = page;
  row_ = -1;
  picture_ = {};
  samples_ = planes_ = 1;
  grayWithOpacity_ = multiplied_ = invertGray16_ = false;
  context_.Clear();
  const uint64_t directory = pages_[static_cast<size_t>(page - 1)];
  if (context_.Call([&] { return TIFFSetSubDirectory(tiff_, directory); }) != 1) Damaged();
  ReadHeader();
  // libtiff makes up for a tag whose value is cut off, a colour map for instance.
  if (file_.RanOut()) throw Failure(Exit::kDamaged, file_.Name(), "damaged TIFF: the file is cut off" + Where(-1));
}

void TiffReader::ReadHeader() {
  const auto width = Tag<uint32_t>(TIFFTAG_IMAGEWIDTH);
  const auto height = Tag<uint32_t>(TIFFTAG_IMAGELENGTH);
  const auto compression = Tag<uint16_t>(TIFFTAG_COMPRESSION);
  if (width == 0 || height == 0) throw Failure(Exit::kDamaged, file_.Name(), "damaged TIFF: no pixels");
  if (width > INT32_MAX || height > INT32_MAX) Unsupported("sides of more than 31 bits");
  if (!TIFFIsCODECConfigured(compression) || compression == COMPRESSION_OJPEG)
    Unsupported(CompressionName(compression));
  picture_.width = static_cast<int32_t>(width);
  picture_.height = static_cast<int32_t>(height);
  picture_.container = std::string(TIFFIsBigTIFF(tiff_) ? "BigTIFF, " : "TIFF, ") + CompressionName(compression) +
                       (TIFFIsTiled(tiff_) ? ", tiles" : ", strips");
  picture_.compression = WritableScheme(compression);
  ReadSamples();

  const uint64_t block = TIFFIsTiled(tiff_) ? TIFFTileSize64(tiff_) : TIFFScanlineSize64(tiff_);
  if (block == 0 || context_.error[0]) Damaged();
  if (block > memory_) {
    throw Failure(Exit::kLimit, file_.Name(),
                  "a row or tile takes " + std::to_string(block) + " bytes, more than the limit of " +
                      std::to_string(memory_) + "; --max-memory " + std::to_string(block) + " allows it");
  }
  const auto unit = Tag<uint16_t>(TIFFTAG_RESOLUTIONUNIT);
  const double perInch = unit == RESUNIT_INCH ? 1 : unit == RESUNIT_CENTIMETER ? kCentimetresPerInch : 0;
  picture_.xDpi = DotsPerInch(static_cast<double>(Tag<float>(TIFFTAG_XRESOLUTION)) * perInch);
  picture_.yDpi = DotsPerInch(static_cast<double>(Tag<float>(TIFFTAG_YRESOLUTION)) * perInch);
  const auto orientation = Tag<uint16_t>(TIFFTAG_ORIENTATION);
  if (orientation >= 1 && orientation <= 8) picture_.orientation = orientation;
  uint32_t bytes = 0;
  const void* profile = nullptr;
  if (TIFFGetField(tiff_, TIFFTAG_ICCPROFILE, &bytes, &profile) == 1 && !grayWithOpacity_) {
    const auto* first = static_cast<const uint8_t*>(profile);
    picture_.profile.assign(first, first + bytes);
  }
}

void TiffReader::ReadSamples() {
  const auto bits = Tag<uint16_t>(TIFFTAG_BITSPERSAMPLE);
  const auto format = Tag<uint16_t>(TIFFTAG_SAMPLEFORMAT);
  uint16_t photometric = 0;
  if (TIFFGetField(tiff_, TIFFTAG_PHOTOMETRIC, &photometric) != 1) photometric = PHOTOMETRIC_MINISBLACK;
  samples_ = Tag<uint16_t>(TIFFTAG_SAMPLESPERPIXEL);
  uint16_t extraCount = 0;
  const uint16_t* extras = nullptr;
  TIFFGetFieldDefaulted(tiff_, TIFFTAG_EXTRASAMPLES, &extraCount, &extras);

  if (format != SAMPLEFORMAT_UINT && format != SAMPLEFORMAT_VOID) Unsupported("signed or floating-point samples");
  if (bits != 1 && bits != 2 && bits != 4 && bits != 8 && bits != 16) {
    Unsupported(std::to_string(bits) + "-bit samples");
  }
  if (photometric == PHOTOMETRIC_YCBCR && Tag<uint16_t>(TIFFTAG_COMPRESSION) == COMPRESSION_JPEG) {
    context_.Call([&] { return TIFFSetField(tiff_, TIFFTAG_JPEGCOLORMODE, JPEGCOLORMODE_RGB); });
    photometric = PHOTOMETRIC_RGB;
  }
  const bool gray = photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE;
  if (!gray && photometric != PHOTOMETRIC_RGB && photometric != PHOTOMETRIC_PALETTE) {
    Unsupported("colours of kind " + std::to_string(photometric));
  }
  const int base = photometric == PHOTOMETRIC_RGB ? 3 : 1;
  const bool opacity = samples_ == base + 1;
  if ((samples_ != base && !opacity) || extraCount > 1 || (opacity && photometric == PHOTOMETRIC_PALETTE)) {
    Unsupported(std::to_string(samples_) + " samples a pixel");
  }
  multiplied_ = opacity && extraCount == 1 && extras[0] == EXTRASAMPLE_ASSOCALPHA;
  const bool whiteIsZero = photometric == PHOTOMETRIC_MINISWHITE;
  if (samples_ == 1) {
    if (photometric == PHOTOMETRIC_PALETTE && bits > 8) Unsupported("16-bit palette indices");
    picture_.bits = bits;
    invertGray16_ = whiteIsZero && bits == 16;
    picture_.depth = std::to_string(bits) + (photometric == PHOTOMETRIC_PALETTE ? "-bit palette" : "-bit gray");
    if (whiteIsZero) picture_.depth += ", 0 is white";
    if (photometric == PHOTOMETRIC_PALETTE) {
      ReadPalette();
    } else if (bits <= 8) {
      picture_.palette = GrayRamp(bits, whiteIsZero);
    }
    return;
  }
  if (bits < 8) Unsupported(std::to_string(samples_) + " samples of " + std::to_string(bits) + " bits");
  if (whiteIsZero) Unsupported("opacity where 0 is white");
  grayWithOpacity_ = gray;
  picture_.bits = bits * (opacity ? 4 : 3);
  picture_.depth = std::to_string(bits * samples_) + (gray ? "-bit gray" : "-bit colour");
  if (opacity) picture_.depth += multiplied_ ? " with opacity, multiplied" : " with opacity";
  if (Tag<uint16_t>(TIFFTAG_PLANARCONFIG) == PLANARCONFIG_SEPARATE) {
    planes_ = samples_;
    picture_.container += ", planes";
  }
}

void TiffReader::ReadPalette() {
  const uint16_t *red = nullptr, *green = nullptr, *blue = nullptr;
  if (TIFFGetField(tiff_, TIFFTAG_COLORMAP, &red, &green, &blue) != 1) {
    throw Failure(Exit::kDamaged, file_.Name(), "damaged TIFF: no colour map");
  }
  if (!red || !green || !blue) throw std::bad_alloc();  // the library behind passes over its lack of memory here
  const size_t count = size_t{1} << picture_.bits;
  picture_.depth += ", " + std::to_string(count) + " colours";
  // Entries have 16 bits; old writers put 8-bit values there.
  bool wide = false;
  for (size_t i = 0; i < count; ++i) wide = wide || red[i] > 255 || green[i] > 255 || blue[i] > 255;
  const int shift = wide ? 8 : 0;
  for (size_t i = 0; i < count; ++i) {
    picture_.palette.push_back({static_cast<uint8_t>(blue[i] >> shift), static_cast<uint8_t>(green[i] >> shift),
                                static_cast<uint8_t>(red[i] >> shift), 0});
  }
}

template <class T>
void TiffReader::PutChannels(Bitmap& bitmap, int32_t row, uint32_t column, uint32_t count, const T* source, int plane) {
  const int channels = picture_.bits / static_cast<int>(8 * sizeof(T));
  const uint64_t bytes = uint64_t{count} * sizeof(T) * static_cast<uint64_t>(channels);
  auto* pixels = reinterpret_cast<T*>(line_.data());
  if (plane > 0) bitmap.GetPart(row, column, line_.data(), bytes);
  if (planes_ > 1) {
    Scatter(pixels, channels, source, 1, count, plane, grayWithOpacity_);
  } else {
    for (int sample = 0; sample < samples_; ++sample) {
      Scatter(pixels, channels, source + sample, samples_, count, sample, grayWithOpacity_);
    }
  }
  if (multiplied_ && plane == planes_ - 1) Straighten(pixels, count);
  bitmap.PutPart(row, column, line_.data(), bytes);
}

/// Puts `count` decoded pixels of a row, or one plane of them.
void TiffReader::Put(Bitmap& bitmap, int32_t row, uint32_t column, uint32_t count, const uint8_t* source, int plane) {
  if (picture_.bits > 16) {
    if (picture_.bits == 24 || picture_.bits == 32) {
      PutChannels(bitmap, row, column, count, source, plane);
    } else {
      PutChannels(bitmap, row, column, count, reinterpret_cast<const uint16_t*>(source), plane);
    }
    return;
  }
  const uint64_t bits = uint64_t{count} * static_cast<uint64_t>(picture_.bits);
  const uint64_t bytes = (bits + 7) / 8;
  std::memcpy(line_.data(), source, bytes);
  if (bits % 8 != 0)
    line_[bytes - 1] &= static_cast<uint8_t>(0xFF00 >> bits % 8);  // the file's padding may be anything
  if (invertGray16_) {
    for (uint64_t i = 0; i < bytes; ++i) line_[i] = static_cast<uint8_t>(~line_[i]);
  }
  bitmap.PutPart(row, column, line_.data(), bytes);
}

void TiffReader::ReadStrips(Bitmap& bitmap, Progress& progress) {
  const tmsize_t room = TIFFScanlineSize(tiff_);
  const uint64_t needed = (static_cast<uint64_t>(picture_.width) * Tag<uint16_t>(TIFFTAG_BITSPERSAMPLE) *
                               static_cast<uint64_t>(samples_ / planes_) +
                           7) /
                          8;
  if (room <= 0 || static_cast<uint64_t>(room) < needed) Damaged();
  // As 16-bit units: samples of two bytes are read in place.
  std::vector<uint16_t> line(static_cast<size_t>(room + 1) / 2);
  for (int plane = 0; plane < planes_; ++plane) {
    for (int32_t row = 0; row < picture_.height; ++row) {
      row_ = row;
      const auto at = static_cast<uint32_t>(row);
      const auto sample = static_cast<uint16_t>(plane);
      CheckDecoded(context_.Call([&] { return TIFFReadScanline(tiff_, line.data(), at, sample); }) == 1);
      Put(bitmap, row, 0, static_cast<uint32_t>(picture_.width), reinterpret_cast<const uint8_t*>(line.data()), plane);
      progress.Step();
    }
  }
}

void TiffReader::ReadTiles(Bitmap& bitmap, Progress& progress) {
  const auto tileWidth = Tag<uint32_t>(TIFFTAG_TILEWIDTH);
  const auto tileHeight = Tag<uint32_t>(TIFFTAG_TILELENGTH);
  const auto width = static_cast<uint32_t>(picture_.width), height = static_cast<uint32_t>(picture_.height);
  const tmsize_t rowBytes = TIFFTileRowSize(tiff_);
  const tmsize_t tileBytes = TIFFTileSize(tiff_);
  if (rowBytes <= 0 || tileBytes <= 0) Damaged();
  // Tile widths are multiples of 16 where the rules are kept; a tile must begin on a byte.
  if (tileWidth < width && tileWidth * static_cast<uint64_t>(picture_.bits) % 8 != 0) {
    Unsupported("tiles " + std::to_string(tileWidth) + " pixels wide");
  }
  std::vector<uint16_t> tile(static_cast<size_t>(tileBytes + 1) / 2);
  const auto* pixels = reinterpret_cast<const uint8_t*>(tile.data());
  for (int plane = 0; plane < planes_; ++plane) {
    for (uint32_t top = 0; top < height; top += std::min(tileHeight, height - top)) {
      const uint32_t rows = std::min(tileHeight, height - top);
      row_ = static_cast<int32_t>(top);
      for (uint32_t left = 0; left < width; left += std::min(tileWidth, width - left)) {
        const auto sample = static_cast<uint16_t>(plane);
        CheckDecoded(context_.Call([&] { return TIFFReadTile(tiff_, tile.data(), left, top, 0, sample); }) ==
                     tileBytes);
        const uint32_t count = std::min(tileWidth, width - left);
        for (uint32_t row = 0; row < rows; ++row) {
          Put(bitmap, static_cast<int32_t>(top + row), left, count,
              pixels + uint64_t{row} * static_cast<uint64_t>(rowBytes), plane);
        }
      }
      for (uint32_t row = 0; row < rows; ++row) progress.Step();
    }
  }
}

// ---- Writing -------------------------------------------------------------------------------------------------------

class TiffWriter final : public PageWriter {
 public:
  TiffWriter(OutputFile& file, Console& console, uint64_t pixelBytes, int pages)
      : file_(file), context_{&console, &file.Name()}, pages_(pages) {
    constexpr uint64_t kClassicLimit = 0xF0000000;  // offsets have 32 bits; leaves room for what compression may add
    tiff_ = TiffCalls<OutputFile>::Open(file, pixelBytes > kClassicLimit ? "w8" : "w", kCodecMemory, context_);
    if (!tiff_) Fail();
  }
  ~TiffWriter() override {
    if (tiff_) TIFFSetMode(tiff_, O_RDONLY);  // given up: closing must not write
    TiffCalls<OutputFile>::Close(tiff_, context_);
  }
  TiffWriter(const TiffWriter&) = delete;
  TiffWriter& operator=(const TiffWriter&) = delete;

  void Add(const Picture& picture, Bitmap& bitmap, Progress& progress, TiffCompression compression) override {
    const int32_t stripRows = WriteHeader(picture, bitmap.Handle(), compression);
    // A strip in one piece is what the quicker Deflate behind libtiff asks for: it sees all of its input at once.
    const auto rowBytes = static_cast<size_t>(picture.RowBytes());
    std::vector<uint8_t> strip(rowBytes * static_cast<size_t>(stripRows - 1) + bitmap.BytesPerLine());
    const int channels = picture.bits == 32 || picture.bits == 64 ? 4 : 3;
    for (int32_t top = 0; top < picture.height;) {
      const int32_t rows = std::min(stripRows, picture.height - top);
      for (int32_t row = 0; row < rows; ++row) {
        uint8_t* const line = strip.data() + rowBytes * static_cast<size_t>(row);
        bitmap.GetRow(top + row, line);
        if (picture.bits == 24 || picture.bits == 32) {
          SwapRedAndBlue(line, picture.width, channels);
        } else if (picture.bits > 32) {
          SwapRedAndBlue(reinterpret_cast<uint16_t*>(line), picture.width, channels);
        }
        progress.Step();
      }
      const auto number = static_cast<uint32_t>(top / stripRows);
      const auto bytes = static_cast<tmsize_t>(rowBytes * static_cast<size_t>(rows));
      Check(context_.Call([&] { return TIFFWriteEncodedStrip(tiff_, number, strip.data(), bytes); }) == bytes);
      top += rows;
    }
    // All of the page is written here; closing frees.
    Check(context_.Call([&] { return TIFFWriteDirectory(tiff_); }) == 1);
    ++page_;
  }

 private:
  template <class T>
  static void SwapRedAndBlue(T* pixel, int32_t count, int channels) {
    for (; count > 0; --count, pixel += channels) std::swap(pixel[0], pixel[2]);
  }
  [[noreturn]] void Fail() const {
    file_.ThrowIfFailed();
    throw Failure(Exit::kOutput, file_.Name(), std::string("cannot encode TIFF: ") + context_.error.data());
  }
  void Check(bool done) const {
    if (!done || context_.error[0] || file_.Failed()) Fail();
  }
  template <class... Values>
  void Set(uint32_t tag, Values... values) {
    Check(context_.Call([&] { return TIFFSetField(tiff_, tag, values...); }) == 1);
  }

  /// @return rows a strip
  int32_t WriteHeader(const Picture& picture, const BitmapHandle& bitmap, TiffCompression compression);
  void WritePalette(const Picture& picture);

  OutputFile& file_;
  TiffContext context_;
  TIFF* tiff_ = nullptr;
  int pages_;
  int page_ = 0;  // the next one, counted from 0
};

uint16_t Scheme(TiffCompression compression, bool blackAndWhite) {
  switch (compression) {
    case TiffCompression::kNone:
      return COMPRESSION_NONE;
    case TiffCompression::kLzw:
      return COMPRESSION_LZW;
    case TiffCompression::kDeflate:
      return COMPRESSION_ADOBE_DEFLATE;
    case TiffCompression::kPackBits:
      return COMPRESSION_PACKBITS;
    case TiffCompression::kG4:
      return COMPRESSION_CCITTFAX4;
    case TiffCompression::kDefault:
      break;
  }
  return blackAndWhite ? COMPRESSION_CCITTFAX4 : COMPRESSION_ADOBE_DEFLATE;
}

void TiffWriter::WritePalette(const Picture& picture) {
  std::array<std::vector<uint16_t>, 3> maps;
  for (const T_PaletteEntry& entry : picture.palette) {
    maps[0].push_back(static_cast<uint16_t>(entry.Red * 257));  // 255 -> 65535
    maps[1].push_back(static_cast<uint16_t>(entry.Green * 257));
    maps[2].push_back(static_cast<uint16_t>(entry.Blue * 257));
  }
  Set(TIFFTAG_COLORMAP, maps[0].data(), maps[1].data(), maps[2].data());
  // The library behind passes over its lack of memory for them, and would crash over it when it writes.
  const uint16_t* kept[3] = {};
  const int got = TIFFGetField(tiff_, TIFFTAG_COLORMAP, &kept[0], &kept[1], &kept[2]);
  if (got != 1 || !kept[0] || !kept[1] || !kept[2]) throw std::bad_alloc();
}

int32_t TiffWriter::WriteHeader(const Picture& picture, const BitmapHandle& bitmap, TiffCompression compression) {
  const bool colour = picture.bits > 16;
  const bool opacity = picture.bits == 32 || picture.bits == 64;
  const int samples = opacity ? 4 : colour ? 3 : 1;
  const Ramp ramp = RampOf(picture.palette);
  const uint16_t scheme = Scheme(compression, picture.bits == 1 && ramp != Ramp::kNone);
  int photometric = PHOTOMETRIC_MINISBLACK;
  if (colour) photometric = PHOTOMETRIC_RGB;
  if (picture.bits <= 8 && ramp == Ramp::kWhiteIsZero) photometric = PHOTOMETRIC_MINISWHITE;
  if (picture.bits <= 8 && ramp == Ramp::kNone) photometric = PHOTOMETRIC_PALETTE;

  Set(TIFFTAG_IMAGEWIDTH, static_cast<uint32_t>(picture.width));
  Set(TIFFTAG_IMAGELENGTH, static_cast<uint32_t>(picture.height));
  Set(TIFFTAG_BITSPERSAMPLE, picture.bits / samples);
  Set(TIFFTAG_SAMPLESPERPIXEL, samples);
  Set(TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  Set(TIFFTAG_PHOTOMETRIC, photometric);
  Set(TIFFTAG_COMPRESSION, static_cast<int>(scheme));
  if (scheme == COMPRESSION_ADOBE_DEFLATE || scheme == COMPRESSION_LZW) {
    // Differences of neighbours pack better where neighbours are alike; palette indices are not.
    const bool alike = picture.bits >= 8 && photometric != PHOTOMETRIC_PALETTE;
    Set(TIFFTAG_PREDICTOR, alike ? PREDICTOR_HORIZONTAL : PREDICTOR_NONE);
  }
  if (opacity) {
    const uint16_t kind = EXTRASAMPLE_UNASSALPHA;
    Set(TIFFTAG_EXTRASAMPLES, 1, &kind);
  }
  if (photometric == PHOTOMETRIC_PALETTE) WritePalette(picture);
  const uint32_t orientation = bitmap.ViewPerspective;
  Set(TIFFTAG_ORIENTATION, static_cast<int>(orientation));
  if (picture.xDpi > 0 && picture.yDpi > 0) {
    const int32_t x = bitmap.XResolution, y = bitmap.YResolution;
    Set(TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
    Set(TIFFTAG_XRESOLUTION, static_cast<double>(x));
    Set(TIFFTAG_YRESOLUTION, static_cast<double>(y));
  }
  if (!picture.profile.empty()) {
    Set(TIFFTAG_ICCPROFILE, static_cast<uint32_t>(picture.profile.size()), picture.profile.data());
  }
  if (pages_ > 1) {
    Set(TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
    Set(TIFFTAG_PAGENUMBER, page_, pages_);
  }
  constexpr uint64_t kStripBytes = 256 * 1024;
  const uint64_t rows = std::clamp<uint64_t>(kStripBytes / std::max<uint64_t>(picture.RowBytes(), 1), 1,
                                             static_cast<uint64_t>(picture.height));
  Set(TIFFTAG_ROWSPERSTRIP, static_cast<uint32_t>(rows));
  return static_cast<int32_t>(rows);
}

}  // namespace

std::unique_ptr<Reader> OpenTiff(InputFile& file, Console& console, int page, uint64_t memory) {
  return std::make_unique<TiffReader>(file, console, page, memory);
}

void WriteTiff(const Picture& picture, Bitmap& bitmap, OutputFile& file, Console& console, Progress& progress,
               TiffCompression compression) {
  const uint64_t pixelBytes = picture.RowBytes() * static_cast<uint64_t>(picture.height);
  TiffWriter(file, console, pixelBytes, 1).Add(picture, bitmap, progress, compression);
}

std::unique_ptr<PageWriter> WriteTiffPages(OutputFile& file, Console& console, uint64_t pixelBytes, int pages) {
  return std::make_unique<TiffWriter>(file, console, pixelBytes, pages);
}

}  // namespace tarn::tool
