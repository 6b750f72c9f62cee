#pragma once
// A picture as the codecs describe it, and the bitmap that holds it.
//
// What a file holds becomes one of these bitmaps; the top row is row 0 unless the file says otherwise (orientation):
//   1, 2, 4 or 8 bits   palette indices; gray pictures have a gray ramp as palette (descending where 0 is white)
//   16 bits             gray, T_ORDER_GRAY
//   24 and 32 bits      blue, green, red (, opacity), a byte each
//   48 and 64 bits      the same in 16-bit samples, low byte first

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tarn/tarn.h"

namespace tarn::tool {

class Console;
class InputFile;
class OutputFile;
class Progress;
struct Layout;

enum class TiffCompression { kDefault, kNone, kLzw, kDeflate, kPackBits, kG4 };

struct Picture {
  std::string container;  // format and variant of the file: "PNG, interlaced"
  std::string depth;      // what the file holds: "8-bit palette, 200 colours"
  int32_t width = 0;
  int32_t height = 0;
  int32_t bits = 0;                     // of the bitmap, as drawn above
  std::vector<T_PaletteEntry> palette;  // 1 << bits entries up to 8 bits, else empty
  int32_t xDpi = 0;                     // 0: the file does not say
  int32_t yDpi = 0;
  uint32_t orientation = 1;                                 // view perspective: 1 the top row first, left to right
  std::vector<uint8_t> profile;                             // ICC colour profile, empty when there is none
  TiffCompression compression = TiffCompression::kDefault;  // of a TIFF page, where it is one that can be written

  uint32_t Order() const noexcept;
  uint64_t RowBytes() const noexcept { return (static_cast<uint64_t>(width) * static_cast<uint64_t>(bits) + 7) / 8; }
};

/// Meaning of a palette that is a gray ramp.
enum class Ramp { kNone, kBlackIsZero, kWhiteIsZero };
Ramp RampOf(const std::vector<T_PaletteEntry>& palette) noexcept;
std::vector<T_PaletteEntry> GrayRamp(int32_t bits, bool whiteIsZero);
/// The bitmap's depth in words: "8-bit gray", "4-bit palette", "48-bit colour", "32-bit colour with opacity".
std::string DepthName(const Picture& picture);
/// Dots per inch from dots per metre, rounded; 0 (not stated) when out of range.
int32_t DotsPerInch(double perInch) noexcept;

// ---- Storage -------------------------------------------------------------------------------------------------------

enum class StorageKind { kAuto, kMemory, kTiled, kDisk, kCompressed, kSuper };

struct StorageChoice {
  StorageKind kind = StorageKind::kAuto;
  uint64_t tileBytes = 0;  // 0: the library's default
  uint64_t maxMemory = 0;  // bytes of pixels to keep in memory, 0: as the machine allows; for kAuto and kMemory
  uint64_t maxPixels = 0;  // of a picture that is read, 0: kMostPixels, and any number on the user's disk
};

constexpr uint64_t kMostPixels = uint64_t{1} << 28;  // unless told: 16384 x 16384

constexpr bool SuperCompressible(int32_t bits) { return bits == 1 || bits == 8 || bits == 24; }
/// Throws Failure when the storage asked for does not take such pixels.
void RequireStorable(const StorageChoice& choice, const Layout& layout, const std::string& file);
/// Throws Failure (Exit::kLimit) for a picture that is larger than may be read; it says which option would allow it.
void RequireWithin(const StorageChoice& choice, const Picture& picture, const std::string& file);
/// The library's answer as a Failure: `doing` says to what.
[[noreturn]] void ThrowStatus(int64_t status, const std::string& file, const std::string& doing);

/// A bitmap and its storage. The constructors throw Failure, naming `file`.
class Bitmap {
 public:
  /// For the rows of a file.
  Bitmap(const Picture& picture, const StorageChoice& choice, std::string file);
  Bitmap(int32_t width, int32_t height, const Layout& layout, uint32_t orientation, const StorageChoice& choice,
         std::string file);
  /// What a call of the library makes of other bitmaps: it gets a record and the memory type to ask for.
  using Maker = std::function<int32_t(BitmapHandle* made, uint32_t memoryType)>;
  Bitmap(const Maker& make, const StorageChoice& choice, std::string file, const std::string& doing);
  /// A bitmap whose storage stays somebody else's.
  Bitmap(const BitmapHandle& lent, std::string file) : handle_(lent), file_(std::move(file)), lent_(true) {}
  ~Bitmap();
  Bitmap(const Bitmap&) = delete;
  Bitmap& operator=(const Bitmap&) = delete;

  /// Whole rows of BytesPerLine() bytes; padding included.
  void PutRow(int32_t row, const uint8_t* source);
  void GetRow(int32_t row, uint8_t* target);
  /// Bytes of a row from a pixel on; below 8 bits the column lies on a byte.
  void PutPart(int32_t row, uint32_t column, const uint8_t* source, uint64_t bytes);
  void GetPart(int32_t row, uint32_t column, uint8_t* target, uint64_t bytes);

  /// The record's storage is somebody else's from here on.
  void Release() noexcept { handle_ = {}; }

  uint32_t BytesPerLine() const noexcept { return handle_.BytesPerLine; }
  BitmapHandle& Handle() noexcept { return handle_; }
  const BitmapHandle& Handle() const noexcept { return handle_; }
  /// "one block in memory", "4 tiles of 1048576 bytes, 1 kept in memory", ...
  std::string StorageName() const;

 private:
  void Make(const Maker& make, const StorageChoice& choice, const std::string& doing);
  void Check(int64_t moved, uint64_t wanted, int32_t row, const char* doing) const;

  BitmapHandle handle_{};
  std::string file_;
  bool lent_ = false;
};

// ---- Codecs --------------------------------------------------------------------------------------------------------

class Reader {
 public:
  virtual ~Reader() = default;
  /// Complete once the reader is made, but for the orientation, which some files tell after their rows.
  const Picture& Info() const noexcept { return picture_; }
  /// Reads all rows into a bitmap made for Info(). Throws Failure; a picture with any part missing or damaged fails.
  virtual void ReadInto(Bitmap& bitmap, Progress& progress) = 0;
  /// Calls of Progress::Step that ReadInto makes.
  virtual uint64_t Steps() const noexcept { return static_cast<uint64_t>(picture_.height); }

  virtual int Pages() const noexcept { return 1; }
  int Page() const noexcept { return page_; }
  /// Info() and ReadInto are those of another page, 1 to Pages(), from here on. Throws Failure.
  virtual void TurnTo(int) {}
  /// Format, variant and, of several, the page.
  std::string Source() const;

 protected:
  /// " (page 2, row 17, byte 4711)": where the file is damaged, as far as it is known; counted as told the user.
  /// @param byte of the file, -1 when the codec does not know
  std::string Where(int64_t byte) const;

  Picture picture_;
  int page_ = 1;
  int32_t row_ = -1;  // that is being read, as stored; -1: none yet
};

enum class Format { kPng, kJpeg, kTiff, kBmp };

struct WriteOptions {
  std::optional<Format> format;  // else the extension says
  int jpegQuality = 90;
  TiffCompression compression = TiffCompression::kDefault;
};

constexpr int kEveryPage = -1;

/// Recognises the file by its first bytes. `page` counts from 1; 0: the file's only page; kEveryPage: the first one of
/// any number.
/// @param memory bytes that a decoder may take at a time, where that is more than it may anyway
std::unique_ptr<Reader> OpenPicture(InputFile& file, Console& console, int page, uint64_t memory = 0);
/// The format of an output file, as the options or its extension say; throws Failure.
Format FormatOf(const std::string& name, const WriteOptions& options = {});
/// Throws Failure (Exit::kDepth) when the format cannot hold the picture without loss of depth.
void RequireHolds(Format format, const WriteOptions& options, const Picture& picture, const std::string& name);
void WritePicture(Format format, const WriteOptions& options, const Picture& picture, Bitmap& bitmap, OutputFile& file,
                  Console& console, Progress& progress);

/// Pages of a TIFF file, one after another.
class PageWriter {
 public:
  virtual ~PageWriter() = default;
  virtual void Add(const Picture& picture, Bitmap& bitmap, Progress& progress, TiffCompression compression) = 0;
};
/// @param pixelBytes of all pages
std::unique_ptr<PageWriter> WriteTiffPages(OutputFile& file, Console& console, uint64_t pixelBytes, int pages);

// One pair for each codec, behind the functions above.
std::unique_ptr<Reader> OpenBmp(InputFile& file);
std::unique_ptr<Reader> OpenPng(InputFile& file, Console& console);
std::unique_ptr<Reader> OpenJpeg(InputFile& file, Console& console, uint64_t memory);
std::unique_ptr<Reader> OpenTiff(InputFile& file, Console& console, int page, uint64_t memory);
void WriteBmp(const Picture& picture, Bitmap& bitmap, OutputFile& file, Console& console, Progress& progress);
void WritePng(const Picture& picture, Bitmap& bitmap, OutputFile& file, Console& console, Progress& progress);
void WriteJpeg(const Picture& picture, Bitmap& bitmap, OutputFile& file, Console& console, Progress& progress,
               int quality);
void WriteTiff(const Picture& picture, Bitmap& bitmap, OutputFile& file, Console& console, Progress& progress,
               TiffCompression compression);

/// Orientation (1..8) of an Exif block without its "Exif\0\0" head; 1 when it tells none.
uint32_t ExifOrientation(const uint8_t* block, size_t bytes) noexcept;
/// The shortest Exif block that tells an orientation.
std::vector<uint8_t> ExifBlock(uint32_t orientation);

}  // namespace tarn::tool
