// PNG by way of libpng. libpng reports an error by a jump: every stretch of calls runs in Guarded(), whose step holds
// nothing that a jump could skip the destruction of.

#include <png.h>

#include <array>
#include <csetjmp>
#include <cstdio>
#include <cstdlib>

#include "Console.h"
#include "Failure.h"
#include "Files.h"
#include "Picture.h"

namespace tarn::tool {
namespace {

constexpr double kMetresPerInch = 0.0254;

/// What libpng's callbacks know.
struct PngContext {
  Console* console;
  const std::string* name;
  std::array<char, 200> error{};
  bool outOfMemory = false;

  static png_voidp Allocate(png_structp png, png_alloc_size_t bytes) {
    void* block = std::malloc(bytes);
    if (!block) static_cast<PngContext*>(png_get_mem_ptr(png))->outOfMemory = true;
    return block;
  }
  static void Release(png_structp, png_voidp block) { std::free(block); }
  [[noreturn]] static void OnError(png_structp png, png_const_charp message) {
    auto* context = static_cast<PngContext*>(png_get_error_ptr(png));
    std::snprintf(context->error.data(), context->error.size(), "%s", message);
    png_longjmp(png, 1);
  }
  static void OnWarning(png_structp png, png_const_charp message) {
    const auto* context = static_cast<PngContext*>(png_get_error_ptr(png));
    context->console->Note(*context->name, message);
  }
};

/// False when libpng has reported an error.
template <class Step>
bool Guarded(png_structp png, const Step& step) {
  if (setjmp(png_jmpbuf(png)) != 0) return false;
  step();
  return true;
}

const char* ColourName(int type) {
  switch (type) {
    case PNG_COLOR_TYPE_PALETTE:
      return "palette";
    case PNG_COLOR_TYPE_GRAY:
      return "gray";
    case PNG_COLOR_TYPE_GRAY_ALPHA:
      return "gray with opacity";
    case PNG_COLOR_TYPE_RGB:
      return "colour";
    default:
      return "colour with opacity";
  }
}

// ---- Reading -------------------------------------------------------------------------------------------------------

class PngReader final : public Reader {
 public:
  PngReader(InputFile& file, Console& console) : file_(file), context_{&console, &file.Name()} {
    png_ = png_create_read_struct_2(PNG_LIBPNG_VER_STRING, &context_, PngContext::OnError, PngContext::OnWarning,
                                    &context_, PngContext::Allocate, PngContext::Release);
    if (!png_) throw std::bad_alloc();
    info_ = png_create_info_struct(png_);
    try {
      if (!info_) throw std::bad_alloc();
      ReadHeader();
    } catch (...) {
      png_destroy_read_struct(&png_, &info_, nullptr);
      throw;
    }
  }
  ~PngReader() override { png_destroy_read_struct(&png_, &info_, nullptr); }

  uint64_t Steps() const noexcept override {
    return static_cast<uint64_t>(picture_.height) * static_cast<uint64_t>(passes_);
  }

  void ReadInto(Bitmap& bitmap, Progress& progress) override {
    std::vector<uint8_t> line(bitmap.BytesPerLine());
    for (int pass = 0; pass < passes_; ++pass) {
      for (int32_t row = 0; row < picture_.height; ++row) {
        // An interlaced picture comes in passes, each of which fills in pixels of the rows that it has.
        const bool touched = passes_ == 1 || PNG_ROW_IN_INTERLACE_PASS(static_cast<png_uint_32>(row), pass);
        if (passes_ > 1 && touched) bitmap.GetRow(row, line.data());
        uint8_t* const target = line.data();
        row_ = row;
        Run([&] { png_read_row(png_, target, nullptr); });
        if (touched) bitmap.PutRow(row, line.data());
        progress.Step();
      }
    }
    // The chunks after the pixels prove that nothing is cut off.
    Run([&] { png_read_end(png_, info_); });
    ReadOrientation();
    bitmap.Handle().ViewPerspective = picture_.orientation;
  }

 private:
  template <class Step>
  void Run(const Step& step) {
    if (Guarded(png_, step)) return;
    file_.ThrowIfFailed();
    if (context_.outOfMemory) throw Failure(Exit::kMemory, file_.Name(), "needs too much memory to decode");
    throw Failure(Exit::kDamaged, file_.Name(),
                  std::string("damaged PNG: ") + context_.error.data() + Where(static_cast<int64_t>(file_.Position())));
  }

  static void ReadBytes(png_structp png, png_bytep target, size_t bytes) {
    auto* file = static_cast<InputFile*>(png_get_io_ptr(png));
    if (file->Read(target, bytes) != bytes) png_error(png, "the file is cut off");
  }

  void ReadHeader();
  void ReadPalette(int bits);
  void ReadProfile();
  void ReadOrientation();
  void CheckPlausible(int fileBits) const;

  InputFile& file_;
  PngContext context_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  int passes_ = 1;
};

void PngReader::ReadHeader() {
  png_uint_32 width = 0, height = 0, xPerMetre = 0, yPerMetre = 0;
  int bits = 0, type = 0, interlace = 0, unit = PNG_RESOLUTION_UNKNOWN;
  png_bytep opacity = nullptr;
  int opacityCount = 0;
  bool transparent = false;
  Run([&] {
    png_set_user_limits(png_, PNG_UINT_31_MAX,
                        PNG_UINT_31_MAX);  // CheckPlausible and the bitmap have limits of their own
    png_set_read_fn(png_, &file_, ReadBytes);
    png_read_info(png_, info_);
    png_get_IHDR(png_, info_, &width, &height, &bits, &type, &interlace, nullptr, nullptr);
    png_get_pHYs(png_, info_, &xPerMetre, &yPerMetre, &unit);
    transparent = png_get_tRNS(png_, info_, &opacity, &opacityCount, nullptr) != 0;
  });
  if (type == PNG_COLOR_TYPE_PALETTE && transparent) {
    transparent = false;  // unless an entry says otherwise
    for (int i = 0; i < opacityCount; ++i) transparent = transparent || opacity[i] != 255;
  }

  picture_.width = static_cast<int32_t>(width);
  picture_.height = static_cast<int32_t>(height);
  picture_.container = interlace == PNG_INTERLACE_NONE ? "PNG" : "PNG, interlaced";
  picture_.depth = std::to_string(bits) + "-bit " + ColourName(type);
  if (type == PNG_COLOR_TYPE_RGB || type == PNG_COLOR_TYPE_RGB_ALPHA || type == PNG_COLOR_TYPE_GRAY_ALPHA) {
    picture_.depth = std::to_string(bits * png_get_channels(png_, info_)) + "-bit " + ColourName(type);
  }
  if (transparent) picture_.depth += ", with transparency";
  if (unit == PNG_RESOLUTION_METER) {
    picture_.xDpi = DotsPerInch(xPerMetre * kMetresPerInch);
    picture_.yDpi = DotsPerInch(yPerMetre * kMetresPerInch);
  }
  const bool withOpacity = transparent || (type & PNG_COLOR_MASK_ALPHA) != 0;
  const bool colour = withOpacity || (type & PNG_COLOR_MASK_COLOR) != 0;
  const bool indexed = !withOpacity && bits <= 8 && (type == PNG_COLOR_TYPE_PALETTE || type == PNG_COLOR_TYPE_GRAY);
  if (indexed) {
    picture_.bits = bits;
    ReadPalette(bits);
  } else {
    picture_.bits = (bits == 16 ? 16 : 8) * (withOpacity ? 4 : colour ? 3 : 1);
  }
  CheckPlausible(bits * png_get_channels(png_, info_));
  if (colour == ((type & PNG_COLOR_MASK_COLOR) != 0)) ReadProfile();  // a profile of grays says nothing about colours
  ReadOrientation();

  Run([&] {
    if (!indexed) {
      if (transparent) png_set_expand(png_);
      if (colour) png_set_gray_to_rgb(png_);
      png_set_bgr(png_);
      if (bits == 16) png_set_swap(png_);
    }
    passes_ = png_set_interlace_handling(png_);
    png_read_update_info(png_, info_);
  });
  if (png_get_rowbytes(png_, info_) != picture_.RowBytes()) {
    throw Failure(Exit::kInternal, file_.Name(), "unexpected row length");
  }
}

/// A file of a few bytes may claim a picture of gigabytes; deflate makes at most 1032 bytes of one.
void PngReader::CheckPlausible(int fileBits) const {
  constexpr uint64_t kMaxExpansion = 1032;
  const uint64_t pixels = static_cast<uint64_t>(picture_.width) * static_cast<uint64_t>(picture_.height);
  const uint64_t bytesPerRatio = pixels / 8 / kMaxExpansion;  // at most 2^62 / 8256, times 64 below
  if (bytesPerRatio * static_cast<uint64_t>(fileBits) > file_.Size()) {
    throw Failure(Exit::kDamaged, file_.Name(),
                  "damaged PNG: too short for " + std::to_string(picture_.width) + " x " +
                      std::to_string(picture_.height) + " pixels");
  }
}

void PngReader::ReadPalette(int bits) {
  png_colorp colours = nullptr;
  int count = 0;
  if (png_get_PLTE(png_, info_, &colours, &count) != PNG_INFO_PLTE ||
      png_get_color_type(png_, info_) == PNG_COLOR_TYPE_GRAY) {
    picture_.palette = GrayRamp(bits, false);
    return;
  }
  picture_.depth += ", " + std::to_string(count) + (count == 1 ? " colour" : " colours");
  picture_.palette.resize(size_t{1} << bits);
  for (size_t i = 0; i < picture_.palette.size() && i < static_cast<size_t>(count); ++i) {
    picture_.palette[i] = {colours[i].blue, colours[i].green, colours[i].red, 0};
  }
}

void PngReader::ReadProfile() {
  png_charp name = nullptr;
  int method = 0;
  png_bytep profile = nullptr;
  png_uint_32 bytes = 0;
  if (png_get_iCCP(png_, info_, &name, &method, &profile, &bytes) != 0)
    picture_.profile.assign(profile, profile + bytes);
}

void PngReader::ReadOrientation() {
  png_bytep block = nullptr;
  png_uint_32 bytes = 0;
  if (png_get_eXIf_1(png_, info_, &bytes, &block) != 0) picture_.orientation = ExifOrientation(block, bytes);
}

// ---- Writing -------------------------------------------------------------------------------------------------------

class PngWriter {
 public:
  PngWriter(OutputFile& file, Console& console) : file_(file), context_{&console, &file.Name()} {
    png_ = png_create_write_struct_2(PNG_LIBPNG_VER_STRING, &context_, PngContext::OnError, PngContext::OnWarning,
                                     &context_, PngContext::Allocate, PngContext::Release);
    if (!png_) throw std::bad_alloc();
    info_ = png_create_info_struct(png_);
    if (!info_) {
      png_destroy_write_struct(&png_, nullptr);
      throw std::bad_alloc();
    }
  }
  ~PngWriter() { png_destroy_write_struct(&png_, &info_); }
  PngWriter(const PngWriter&) = delete;
  PngWriter& operator=(const PngWriter&) = delete;

  void Write(const Picture& picture, Bitmap& bitmap, Progress& progress) {
    WriteHeader(picture, bitmap.Handle());
    std::vector<uint8_t> line(bitmap.BytesPerLine());
    for (int32_t row = 0; row < picture.height; ++row) {
      bitmap.GetRow(row, line.data());
      const uint8_t* const source = line.data();
      Run([&] { png_write_row(png_, source); });
      progress.Step();
    }
    Run([&] { png_write_end(png_, nullptr); });
  }

 private:
  template <class Step>
  void Run(const Step& step) {
    if (Guarded(png_, step)) return;
    file_.ThrowIfFailed();
    if (context_.outOfMemory) throw Failure(Exit::kMemory, file_.Name(), "needs too much memory to encode");
    throw Failure(Exit::kOutput, file_.Name(), std::string("cannot encode PNG: ") + context_.error.data());
  }

  static void WriteBytes(png_structp png, png_bytep source, size_t bytes) {
    if (!static_cast<OutputFile*>(png_get_io_ptr(png))->Write(source, bytes)) png_error(png, "write failed");
  }
  static void FlushBytes(png_structp) {}

  void WriteHeader(const Picture& picture, const BitmapHandle& bitmap);

  OutputFile& file_;
  PngContext context_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
};

void PngWriter::WriteHeader(const Picture& picture, const BitmapHandle& bitmap) {
  const Ramp ramp = RampOf(picture.palette);
  int type = PNG_COLOR_TYPE_GRAY;
  int bits = picture.bits;
  std::vector<png_color> colours;
  if (picture.bits > 16) {
    type = picture.bits == 32 || picture.bits == 64 ? PNG_COLOR_TYPE_RGB_ALPHA : PNG_COLOR_TYPE_RGB;
    bits = picture.bits == 48 || picture.bits == 64 ? 16 : 8;
  } else if (picture.bits <= 8 && ramp == Ramp::kNone) {
    type = PNG_COLOR_TYPE_PALETTE;
    for (const T_PaletteEntry& entry : picture.palette) colours.push_back({entry.Red, entry.Green, entry.Blue});
  }
  const uint32_t orientation = bitmap.ViewPerspective;
  const std::vector<uint8_t> exif = ExifBlock(orientation);
  const auto perMetre = [](int32_t dpi) { return static_cast<png_uint_32>(dpi / kMetresPerInch + 0.5); };
  const int32_t xDpi = bitmap.XResolution, yDpi = bitmap.YResolution;

  Run([&] {
    png_set_user_limits(png_, PNG_UINT_31_MAX, PNG_UINT_31_MAX);
    png_set_write_fn(png_, &file_, WriteBytes, FlushBytes);
    png_set_IHDR(png_, info_, static_cast<png_uint_32>(picture.width), static_cast<png_uint_32>(picture.height), bits,
                 type, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (!colours.empty()) png_set_PLTE(png_, info_, colours.data(), static_cast<int>(colours.size()));
    if (picture.xDpi > 0 && picture.yDpi > 0) {
      png_set_pHYs(png_, info_, perMetre(xDpi), perMetre(yDpi), PNG_RESOLUTION_METER);
    }
    if (!picture.profile.empty()) {
      png_set_benign_errors(png_, 1);  // a profile that libpng finds fault with is left out, with a note
      png_set_iCCP(png_, info_, "ICC profile", PNG_COMPRESSION_TYPE_BASE, picture.profile.data(),
                   static_cast<png_uint_32>(picture.profile.size()));
    }
    if (orientation != 1) {
      png_set_eXIf_1(png_, info_, static_cast<png_uint_32>(exif.size()), const_cast<png_bytep>(exif.data()));
    }
    png_write_info(png_, info_);
    if (ramp == Ramp::kWhiteIsZero) png_set_invert_mono(png_);
    if (picture.bits > 16) png_set_bgr(png_);
    if (bits == 16) png_set_swap(png_);
  });
}

}  // namespace

std::unique_ptr<Reader> OpenPng(InputFile& file, Console& console) {
  return std::make_unique<PngReader>(file, console);
}

void WritePng(const Picture& picture, Bitmap& bitmap, OutputFile& file, Console& console, Progress& progress) {
  PngWriter(file, console).Write(picture, bitmap, progress);
}

}  // namespace tarn::tool
