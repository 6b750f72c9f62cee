// JPEG by way of libjpeg. Errors jump; warnings that mean lost pixels are errors too. Every stretch of calls runs in
// Guarded(), whose step holds nothing that a jump could skip the destruction of.

#include <cstdio>
// jpeglib.h needs stdio first.
#include <jerror.h>
#include <jpeglib.h>

#include <algorithm>
#include <array>
#include <climits>
#include <csetjmp>
#include <cstring>

#include "Console.h"
#include "Failure.h"
#include "Files.h"
#include "Picture.h"

namespace tarn::tool {
namespace {

constexpr size_t kBufferBytes = 64 * 1024;
constexpr uint64_t kDecoderMemory = 1 << 30;  // coefficients of a progressive picture, unless more is allowed
constexpr int kMaxScans = 500;                // a scan costs a pass over the picture; real files have about ten
constexpr uint8_t kExifHead[] = {'E', 'x', 'i', 'f', 0, 0};
constexpr int kExifMarker = JPEG_APP0 + 1;
constexpr int kProfileMarker = JPEG_APP0 + 2;

/// What libjpeg's callbacks know; `base` comes first so that libjpeg's pointer is this one.
struct JpegContext {
  jpeg_error_mgr base;
  jmp_buf jump;
  Console* console;
  const std::string* name;
  bool outOfMemory;
  bool beyondLimit;  // of the memory that it may take
  std::array<char, JMSG_LENGTH_MAX> message;

  static JpegContext& Of(j_common_ptr codec) { return *reinterpret_cast<JpegContext*>(codec->err); }

  [[noreturn]] static void OnError(j_common_ptr codec) {
    JpegContext& context = Of(codec);
    codec->err->format_message(codec, context.message.data());
    context.outOfMemory = codec->err->msg_code == JERR_OUT_OF_MEMORY;
    context.beyondLimit = codec->err->msg_code == JERR_NO_BACKING_STORE;
    longjmp(context.jump, 1);
  }
  /// Bytes between the last pixels and the end marker, odd version numbers and unknown colour tags leave the picture
  /// whole; all other warnings say that the decoder made pixels up.
  static bool IsHarmless(const jpeg_error_mgr& error) {
    switch (error.msg_code) {
      case JWRN_EXTRANEOUS_DATA:
        return error.msg_parm.i[1] == JPEG_EOI;
      case JWRN_ADOBE_XFORM:
      case JWRN_JFIF_MAJOR:
      case JWRN_BOGUS_ICC:
        return true;
      default:
        return false;
    }
  }
  static void OnMessage(j_common_ptr codec, int level) {
    if (level >= 0) return;  // traces
    JpegContext& context = Of(codec);
    if (!IsHarmless(*codec->err)) OnError(codec);
    codec->err->format_message(codec, context.message.data());
    context.console->Note(*context.name, context.message.data());
  }
  void Install(Console& c, const std::string& n) {
    jpeg_std_error(&base);
    base.error_exit = OnError;
    base.emit_message = OnMessage;
    console = &c;
    name = &n;
  }
};

/// False when libjpeg has reported an error.
template <class Step>
bool Guarded(JpegContext& context, const Step& step) {
  if (setjmp(context.jump) != 0) return false;
  step();
  return true;
}

// ---- Reading -------------------------------------------------------------------------------------------------------

struct FileSource {
  jpeg_source_mgr base;
  InputFile* file;
  std::array<JOCTET, kBufferBytes> buffer;

  static FileSource& Of(j_decompress_ptr codec) { return *reinterpret_cast<FileSource*>(codec->src); }
  static void Start(j_decompress_ptr) {}
  static boolean Fill(j_decompress_ptr codec) {
    FileSource& source = Of(codec);
    const size_t got = source.file->Read(source.buffer.data(), source.buffer.size());
    if (got == 0) ERREXIT(codec, JERR_INPUT_EOF);
    source.base.next_input_byte = source.buffer.data();
    source.base.bytes_in_buffer = got;
    return TRUE;
  }
  static void Skip(j_decompress_ptr codec, long bytes) {
    FileSource& source = Of(codec);
    if (bytes <= 0) return;
    const auto count = static_cast<uint64_t>(bytes);
    if (count <= source.base.bytes_in_buffer) {
      source.base.next_input_byte += count;
      source.base.bytes_in_buffer -= count;
    } else {
      source.file->Seek(source.file->Position() + (count - source.base.bytes_in_buffer));
      source.base.bytes_in_buffer = 0;
    }
  }
  void Install(InputFile& input) {
    file = &input;
    base.init_source = Start;
    base.fill_input_buffer = Fill;
    base.skip_input_data = Skip;
    base.resync_to_restart = jpeg_resync_to_restart;
    base.term_source = Start;
    base.next_input_byte = nullptr;
    base.bytes_in_buffer = 0;
  }
};

class JpegReader final : public Reader {
 public:
  JpegReader(InputFile& file, Console& console, uint64_t memory)
      : file_(file), memory_(std::max(memory, kDecoderMemory)) {
    context_.Install(console, file.Name());
    source_.Install(file);
    codec_.err = &context_.base;
    try {
      ReadHeader();
    } catch (...) {
      jpeg_destroy_decompress(&codec_);
      throw;
    }
  }
  ~JpegReader() override { jpeg_destroy_decompress(&codec_); }

  void ReadInto(Bitmap& bitmap, Progress& progress) override {
    std::vector<uint8_t> line(bitmap.BytesPerLine());
    JSAMPROW target = line.data();
    Run([&] { jpeg_start_decompress(&codec_); });
    for (int32_t row = 0; row < picture_.height; ++row) {
      row_ = row;
      Run([&] { jpeg_read_scanlines(&codec_, &target, 1); });
      bitmap.PutRow(row, line.data());
      progress.Step();
    }
    Run([&] { jpeg_finish_decompress(&codec_); });
  }

 private:
  template <class Step>
  void Run(const Step& step) {
    if (Guarded(context_, step)) return;
    file_.ThrowIfFailed();
    if (context_.outOfMemory) throw Failure(Exit::kMemory, file_.Name(), "needs too much memory to decode");
    if (context_.beyondLimit) {
      throw Failure(Exit::kLimit, file_.Name(),
                    "needs more than " + std::to_string(memory_) + " bytes to decode; --max-memory raises the limit");
    }
    const auto byte = static_cast<int64_t>(file_.Position() - source_.base.bytes_in_buffer);
    throw Failure(Exit::kDamaged, file_.Name(), std::string("damaged JPEG: ") + context_.message.data() + Where(byte));
  }

  static void CountScans(j_common_ptr common) {
    const auto* codec = reinterpret_cast<j_decompress_ptr>(common);
    if (codec->input_scan_number > kMaxScans) ERREXIT(common, JERR_BAD_PROGRESSION);
  }

  void ReadHeader();

  InputFile& file_;
  uint64_t memory_;
  JpegContext context_{};
  FileSource source_{};
  jpeg_progress_mgr watch_{};
  jpeg_decompress_struct codec_{};
};

void JpegReader::ReadHeader() {
  Run([&] {
    jpeg_create_decompress(&codec_);
    codec_.mem->max_memory_to_use = static_cast<long>(std::min<uint64_t>(memory_, LONG_MAX));
    codec_.src = &source_.base;
    watch_.progress_monitor = CountScans;
    codec_.progress = &watch_;
    jpeg_save_markers(&codec_, kExifMarker, 0xFFFF);
    jpeg_save_markers(&codec_, kProfileMarker, 0xFFFF);
    jpeg_read_header(&codec_, TRUE);
  });
  const bool gray = codec_.jpeg_color_space == JCS_GRAYSCALE;
  if (!gray && codec_.jpeg_color_space != JCS_YCbCr && codec_.jpeg_color_space != JCS_RGB) {
    const bool inks = codec_.jpeg_color_space == JCS_CMYK || codec_.jpeg_color_space == JCS_YCCK;
    throw Failure(Exit::kDamaged, file_.Name(),
                  inks ? "JPEG in printing inks (CMYK) is not supported"
                       : "JPEG of " + std::to_string(codec_.num_components) + " channels is not supported");
  }
  picture_.container = codec_.progressive_mode ? "JPEG, progressive"
                       : codec_.arith_code     ? "JPEG, arithmetic coding"
                                               : "JPEG";
  picture_.depth = gray ? "8-bit gray" : "24-bit colour";
  picture_.width = static_cast<int32_t>(codec_.image_width);
  picture_.height = static_cast<int32_t>(codec_.image_height);
  picture_.bits = gray ? 8 : 24;
  if (gray) picture_.palette = GrayRamp(8, false);
  codec_.out_color_space = gray ? JCS_GRAYSCALE : JCS_EXT_BGR;
  const double perInch = codec_.density_unit == 1 ? 1 : codec_.density_unit == 2 ? 2.54 : 0;
  picture_.xDpi = DotsPerInch(codec_.X_density * perInch);
  picture_.yDpi = DotsPerInch(codec_.Y_density * perInch);

  for (jpeg_saved_marker_ptr at = codec_.marker_list; at; at = at->next) {
    const jpeg_marker_struct& marker = *at;
    if (marker.marker == kExifMarker && marker.data_length > sizeof kExifHead &&
        !std::memcmp(marker.data, kExifHead, sizeof kExifHead)) {
      picture_.orientation = ExifOrientation(marker.data + sizeof kExifHead, marker.data_length - sizeof kExifHead);
      break;
    }
  }
  JOCTET* profile = nullptr;
  unsigned bytes = 0;
  bool found = false;
  Run([&] { found = jpeg_read_icc_profile(&codec_, &profile, &bytes) == TRUE; });
  const std::unique_ptr<JOCTET, decltype(&free)> owner(profile, free);
  if (found) picture_.profile.assign(profile, profile + bytes);
}

// ---- Writing -------------------------------------------------------------------------------------------------------

struct FileTarget {
  jpeg_destination_mgr base;
  OutputFile* file;
  std::array<JOCTET, kBufferBytes> buffer;

  static FileTarget& Of(j_compress_ptr codec) { return *reinterpret_cast<FileTarget*>(codec->dest); }
  void Rewind() {
    base.next_output_byte = buffer.data();
    base.free_in_buffer = buffer.size();
  }
  static void Start(j_compress_ptr codec) { Of(codec).Rewind(); }
  static boolean Empty(j_compress_ptr codec) {
    FileTarget& target = Of(codec);
    if (!target.file->Write(target.buffer.data(), target.buffer.size())) ERREXIT(codec, JERR_FILE_WRITE);
    target.Rewind();
    return TRUE;
  }
  static void End(j_compress_ptr codec) {
    FileTarget& target = Of(codec);
    const size_t used = target.buffer.size() - target.base.free_in_buffer;
    if (!target.file->Write(target.buffer.data(), used)) ERREXIT(codec, JERR_FILE_WRITE);
  }
  void Install(OutputFile& output) {
    file = &output;
    base.init_destination = Start;
    base.empty_output_buffer = Empty;
    base.term_destination = End;
  }
};

class JpegWriter {
 public:
  JpegWriter(OutputFile& file, Console& console) : file_(file) {
    context_.Install(console, file.Name());
    target_.Install(file);
    codec_.err = &context_.base;
  }
  ~JpegWriter() { jpeg_destroy_compress(&codec_); }
  JpegWriter(const JpegWriter&) = delete;
  JpegWriter& operator=(const JpegWriter&) = delete;

  void Write(const Picture& picture, Bitmap& bitmap, Progress& progress, int quality) {
    Start(picture, bitmap.Handle(), quality);
    const bool invert = RampOf(picture.palette) == Ramp::kWhiteIsZero;
    std::vector<uint8_t> line(bitmap.BytesPerLine());
    JSAMPROW source = line.data();
    for (int32_t row = 0; row < picture.height; ++row) {
      bitmap.GetRow(row, line.data());
      if (invert) {
        for (uint8_t& sample : line) sample = static_cast<uint8_t>(255 - sample);
      }
      Run([&] { jpeg_write_scanlines(&codec_, &source, 1); });
      progress.Step();
    }
    Run([&] { jpeg_finish_compress(&codec_); });
  }

 private:
  template <class Step>
  void Run(const Step& step) {
    if (Guarded(context_, step)) return;
    file_.ThrowIfFailed();
    if (context_.outOfMemory) throw Failure(Exit::kMemory, file_.Name(), "needs too much memory to encode");
    throw Failure(Exit::kOutput, file_.Name(), std::string("cannot encode JPEG: ") + context_.message.data());
  }

  void Start(const Picture& picture, const BitmapHandle& bitmap, int quality) {
    const bool gray = picture.bits == 8;
    const int32_t xDpi = bitmap.XResolution, yDpi = bitmap.YResolution;
    std::vector<uint8_t> exif(kExifHead, kExifHead + sizeof kExifHead);
    const uint32_t orientation = bitmap.ViewPerspective;
    for (const uint8_t byte : ExifBlock(orientation)) exif.push_back(byte);
    Run([&] {
      jpeg_create_compress(&codec_);
      codec_.dest = &target_.base;
      codec_.image_width = static_cast<JDIMENSION>(picture.width);
      codec_.image_height = static_cast<JDIMENSION>(picture.height);
      codec_.input_components = gray ? 1 : 3;
      codec_.in_color_space = gray ? JCS_GRAYSCALE : JCS_EXT_BGR;
      jpeg_set_defaults(&codec_);
      jpeg_set_quality(&codec_, quality, TRUE);
      if (picture.xDpi > 0 && picture.yDpi > 0 && std::max(xDpi, yDpi) <= 0xFFFF) {
        codec_.density_unit = 1;
        codec_.X_density = static_cast<UINT16>(xDpi);
        codec_.Y_density = static_cast<UINT16>(yDpi);
      }
      jpeg_start_compress(&codec_, TRUE);
      if (orientation != 1) {
        jpeg_write_marker(&codec_, kExifMarker, exif.data(), static_cast<unsigned>(exif.size()));
      }
      if (!picture.profile.empty()) {
        jpeg_write_icc_profile(&codec_, picture.profile.data(), static_cast<unsigned>(picture.profile.size()));
      }
    });
  }

  OutputFile& file_;
  JpegContext context_{};
  FileTarget target_{};
  jpeg_compress_struct codec_{};
};

}  // namespace

std::unique_ptr<Reader> OpenJpeg(InputFile& file, Console& console, uint64_t memory) {
  return std::make_unique<JpegReader>(file, console, memory);
}

void WriteJpeg(const Picture& picture, Bitmap& bitmap, OutputFile& file, Console& console, Progress& progress,
               int quality) {
  JpegWriter(file, console).Write(picture, bitmap, progress, quality);
}

}  // namespace tarn::tool
