// BMP by way of the library's device-independent bitmaps, a strip of rows at a time: a strip with the file's header in
// front is a picture of its own. Pictures whose rows do not lie as a BMP wants them are turned as a whole.

#include <algorithm>
#include <cstring>

#include "Console.h"
#include "Failure.h"
#include "Files.h"
#include "Picture.h"

namespace tarn::tool {
namespace {

constexpr double kMetresPerInch = 0.0254;
constexpr uint32_t kFileHeader = 14;
constexpr uint32_t kCoreHeader = 12;
constexpr uint32_t kInfoHeader = 40;
constexpr uint32_t kAlphaHeader = 108;  // with masks, the fourth for opacity
constexpr uint64_t kStripBytes = 1 << 20;
enum Compression : uint32_t { kRgb = 0, kRuns8 = 1, kRuns4 = 2, kMasks = 3, kAlphaMasks = 6 };

uint32_t Word(const uint8_t* at) { return at[0] | static_cast<uint32_t>(at[1]) << 8; }
uint32_t Number(const uint8_t* at) { return Word(at) | Word(at + 2) << 16; }
void SetNumber(uint8_t* at, uint64_t value) {
  for (int i = 0; i < 4; ++i) at[i] = static_cast<uint8_t>(value >> 8 * i);
}
void SetWord(uint8_t* at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value);
  at[1] = static_cast<uint8_t>(value >> 8);
}

/// A bitmap of the library's making.
struct Strip {
  Strip() = default;
  ~Strip() { T_FreeBitmap(&record); }
  Strip(const Strip&) = delete;
  Strip& operator=(const Strip&) = delete;
  BitmapHandle record{};
};

int32_t StripRows(uint64_t rowBytes, int32_t height) {
  return static_cast<int32_t>(std::clamp<uint64_t>(kStripBytes / rowBytes, 1, static_cast<uint64_t>(height)));
}

// ---- Reading -------------------------------------------------------------------------------------------------------

class BmpReader final : public Reader {
 public:
  explicit BmpReader(InputFile& file) : file_(file) {
    ReadHead();
    ReadTable();
    FindPixels();
    Describe();
  }

  void ReadInto(Bitmap& bitmap, Progress& progress) override {
    std::vector<uint8_t> bytes;
    if (Runs()) {
      Fetch(pixels_, pixelBytes_, bytes);
      Decode(bytes, 0, picture_.height, bitmap, progress);
      return;
    }
    const int32_t most = StripRows(rowBytes_, picture_.height);
    for (int32_t top = 0; top < picture_.height; top += most) {
      const int32_t rows = std::min(most, picture_.height - top);
      row_ = top;
      const int32_t first = topDown_ ? top : picture_.height - top - rows;  // in the file's order
      Fetch(pixels_ + static_cast<uint64_t>(first) * rowBytes_, static_cast<uint64_t>(rows) * rowBytes_, bytes);
      Decode(bytes, top, rows, bitmap, progress);
    }
  }

 private:
  bool Runs() const { return compression_ == kRuns8 || compression_ == kRuns4; }
  [[noreturn]] void Damaged(const std::string& what) const {
    file_.ThrowIfFailed();
    throw Failure(Exit::kDamaged, file_.Name(), "damaged BMP: " + what + Where(static_cast<int64_t>(file_.Position())));
  }
  [[noreturn]] void Unsupported() const {
    throw Failure(Exit::kDamaged, file_.Name(), "BMP of a kind that is not supported");
  }
  void Fetch(uint64_t position, uint64_t count, std::vector<uint8_t>& bytes) {
    bytes.resize(count);
    file_.Seek(position);
    if (file_.Read(bytes.data(), count) != count) Damaged("the file is cut off");
  }

  void ReadHead();
  void ReadTable();
  void FindPixels();
  void Describe();
  void Make(Strip& strip, int32_t rows, const uint8_t* bytes);
  void Decode(const std::vector<uint8_t>& bytes, int32_t top, int32_t rows, Bitmap& bitmap, Progress& progress);

  InputFile& file_;
  std::vector<uint8_t> head_;  // header, masks and a whole colour table
  uint32_t headerBytes_ = 0;
  uint32_t bits_ = 0;
  uint32_t compression_ = kRgb;
  uint32_t colours_ = 0;  // in the file
  bool topDown_ = false;
  bool opacity_ = false;
  uint64_t table_ = 0;  // in the file, as are the next
  uint64_t pixels_ = 0;
  uint64_t pixelBytes_ = 0;
  uint64_t rowBytes_ = 0;
};

void BmpReader::ReadHead() {
  std::vector<uint8_t> start;
  Fetch(0, kFileHeader + 4, start);
  pixels_ = Number(&start[10]);
  headerBytes_ = Number(&start[kFileHeader]);
  constexpr uint32_t kSizes[] = {12, 40, 52, 56, 108, 124};
  if (std::find(std::begin(kSizes), std::end(kSizes), headerBytes_) == std::end(kSizes)) Unsupported();
  Fetch(kFileHeader, headerBytes_, head_);
  table_ = uint64_t{kFileHeader} + headerBytes_;
  if (headerBytes_ == kCoreHeader) {
    picture_.width = static_cast<int32_t>(Word(&head_[4]));
    picture_.height = static_cast<int32_t>(Word(&head_[6]));
    bits_ = Word(&head_[10]);
    return;
  }
  picture_.width = static_cast<int32_t>(Number(&head_[4]));
  const auto height = static_cast<int32_t>(Number(&head_[8]));
  if (height == INT32_MIN) Unsupported();
  topDown_ = height < 0;
  picture_.height = topDown_ ? -height : height;
  bits_ = Word(&head_[14]);
  compression_ = Number(&head_[16]);
  pixelBytes_ = Number(&head_[20]);
  colours_ = Number(&head_[32]);
  const bool masks = compression_ == kMasks || compression_ == kAlphaMasks;
  if (masks && headerBytes_ == kInfoHeader) {
    std::vector<uint8_t> behind;
    Fetch(table_, compression_ == kMasks ? 12 : 16, behind);
    table_ += behind.size();
    head_.insert(head_.end(), behind.begin(), behind.end());
  }
  // Only a mask tells that a fourth byte is opacity; without one files have anything there, mostly 0.
  opacity_ = masks && head_.size() >= kInfoHeader + 16 && Number(&head_[kInfoHeader + 12]) != 0;
}

/// The table goes to the library whole: colours that the file lacks are black.
void BmpReader::ReadTable() {
  if (bits_ > 8) {
    if (headerBytes_ != kCoreHeader) SetNumber(&head_[32], 0);
    return;
  }
  const uint32_t each = headerBytes_ == kCoreHeader ? 3 : 4;
  const uint32_t all = 1u << bits_;
  if (colours_ == 0 || colours_ > all) colours_ = all;
  if (pixels_ > table_) colours_ = static_cast<uint32_t>(std::min<uint64_t>(colours_, (pixels_ - table_) / each));
  std::vector<uint8_t> entries;
  Fetch(table_, uint64_t{colours_} * each, entries);
  entries.resize(uint64_t{all} * each);
  head_.insert(head_.end(), entries.begin(), entries.end());
  if (headerBytes_ != kCoreHeader) SetNumber(&head_[32], 0);
}

void BmpReader::FindPixels() {
  if (picture_.width <= 0 || picture_.height <= 0 || bits_ == 0 || bits_ > 32) Unsupported();
  const uint64_t left = file_.Size() > pixels_ ? file_.Size() - pixels_ : 0;
  rowBytes_ = (static_cast<uint64_t>(picture_.width) * bits_ + 31) / 32 * 4;
  const auto height = static_cast<uint64_t>(picture_.height);
  if (Runs()) {
    if (pixelBytes_ == 0) pixelBytes_ = std::min<uint64_t>(left, UINT32_MAX);
    // Two bytes make 255 pixels at most; only a picture that is as good as empty could do with less.
    constexpr uint64_t kHarmless = 64 << 20;
    const uint64_t pixels = static_cast<uint64_t>(picture_.width) * height;
    if (pixels > kHarmless && pixels / 255 > pixelBytes_) Damaged("too short for its size");
    SetNumber(&head_[20], pixelBytes_);
  } else {
    pixelBytes_ = rowBytes_ * height;  // below 2^33 x 2^31
  }
  if (pixels_ < table_ || pixelBytes_ == 0 || pixelBytes_ > left) Damaged("the file is cut off");
}

void BmpReader::Make(Strip& strip, int32_t rows, const uint8_t* bytes) {
  if (headerBytes_ == kCoreHeader) {
    SetWord(&head_[6], static_cast<uint32_t>(rows));
  } else {
    SetNumber(&head_[8], static_cast<uint32_t>(topDown_ ? -rows : rows));
  }
  const int32_t status = T_ConvertFromDIB(&strip.record, sizeof strip.record, head_.data(), bytes);
  if (status == ERR_UNSUPPORTED_FORMAT) Unsupported();
  if (status != SUCCESS) ThrowStatus(status, file_.Name(), "decoding BMP");
}

/// What the library makes of a single row tells what it makes of the picture.
void BmpReader::Describe() {
  Strip probe;
  const std::vector<uint8_t> row(Runs() ? 2 : std::min<uint64_t>(rowBytes_, UINT32_MAX));
  const uint64_t stream = pixelBytes_;
  if (Runs()) SetNumber(&head_[20], 2);
  Make(probe, 1, row.data());
  if (Runs()) SetNumber(&head_[20], stream);
  const BitmapHandle& record = probe.record;
  const bool indexed = record.BitsPerPixel <= 8;
  picture_.bits = indexed ? record.BitsPerPixel : opacity_ ? 32 : 24;
  if (indexed) {
    const T_PaletteEntry* const colours = record.Palette;
    picture_.palette.assign(colours, colours + record.Colors);
    for (T_PaletteEntry& entry : picture_.palette) entry.Reserved = 0;
  }
  picture_.container = std::string("BMP") + (Runs() ? ", run lengths" : topDown_ ? ", top row first" : "");
  picture_.depth = std::to_string(bits_) + "-bit " +
                   (indexed    ? "palette"
                    : opacity_ ? "colour with opacity"
                               : "colour");
  if (indexed) picture_.depth += ", " + std::to_string(colours_) + (colours_ == 1 ? " colour" : " colours");
  if (headerBytes_ == kCoreHeader) return;
  const auto x = static_cast<int32_t>(Number(&head_[24])), y = static_cast<int32_t>(Number(&head_[28]));
  if (x > 0 && y > 0) {
    picture_.xDpi = DotsPerInch(x * kMetresPerInch);
    picture_.yDpi = DotsPerInch(y * kMetresPerInch);
  }
}

void BmpReader::Decode(const std::vector<uint8_t>& bytes, int32_t top, int32_t rows, Bitmap& bitmap,
                       Progress& progress) {
  Strip strip;
  Make(strip, rows, bytes.data());
  BitmapHandle& record = strip.record;
  const int32_t from = record.BitsPerPixel;
  std::vector<uint8_t> line(T_CalcConvertSize(picture_.width, from, picture_.width, picture_.bits));
  line.resize(std::max<size_t>(line.size(), bitmap.BytesPerLine()));
  for (int32_t i = 0; i < rows; ++i) {
    const auto row = static_cast<uint32_t>(topDown_ ? i : rows - 1 - i);
    const uint64_t stored = record.BytesPerLine;
    const int64_t got = T_GetBitmapRow(&record, line.data(), row, stored);
    if (got != static_cast<int64_t>(stored)) ThrowStatus(got < 0 ? got : 0, file_.Name(), "decoding BMP");
    const std::vector<uint8_t> words(from == 16 && opacity_ ? line : std::vector<uint8_t>());
    if (from != picture_.bits) {
      const int32_t status =
          T_ConvertBuffer(line.data(), picture_.width, from, picture_.bits, T_ORDER_BGR, T_ORDER_BGR, nullptr, nullptr);
      if (status != SUCCESS) ThrowStatus(status, file_.Name(), "decoding BMP");
    }
    // The highest bit of 16 is opacity where a mask says so.
    for (size_t x = 0; 2 * x < words.size() && x < static_cast<size_t>(picture_.width); ++x)
      line[4 * x + 3] = words[2 * x + 1] & 0x80 ? 0xFF : 0;
    bitmap.PutRow(top + i, line.data());
    progress.Step();
  }
}

// ---- Writing -------------------------------------------------------------------------------------------------------

/// A DIB of the library's making, locked.
class Dib {
 public:
  Dib(BitmapHandle& bitmap, const std::string& file) {
    void* block = nullptr;
    const int32_t status = T_ConvertToDIB(&bitmap, &block);
    if (status != SUCCESS) ThrowStatus(status, file, "encoding BMP");
    handle_ = reinterpret_cast<uintptr_t>(block);
    data_ = static_cast<const uint8_t*>(T_OsLockHandle(handle_, __LINE__, L"tools/Bmp.cpp"));
    if (data_) return;
    T_OsFreeHandle(handle_, __LINE__, L"tools/Bmp.cpp");
    throw std::bad_alloc();
  }
  ~Dib() {
    T_OsUnlockHandle(handle_, __LINE__, L"tools/Bmp.cpp");
    T_OsFreeHandle(handle_, __LINE__, L"tools/Bmp.cpp");
  }
  Dib(const Dib&) = delete;
  Dib& operator=(const Dib&) = delete;

  const uint8_t* Header() const { return data_; }
  const uint8_t* Table() const { return data_ + kInfoHeader; }
  uint32_t TableBytes() const { return 4 * Number(data_ + 32); }
  const uint8_t* Rows() const { return Table() + TableBytes(); }
  uint64_t RowsBytes() const { return Number(data_ + 20); }

 private:
  uint64_t handle_ = 0;
  const uint8_t* data_ = nullptr;
};

/// File header, header and colour table for a picture whose rows go like the DIB's.
std::vector<uint8_t> BmpHead(const Dib& dib, int32_t height, const Picture& picture, const std::string& name) {
  const bool opacity = Word(dib.Header() + 14) == 32;
  const uint32_t header = opacity ? kAlphaHeader : kInfoHeader;
  std::vector<uint8_t> head(kFileHeader + header);
  uint8_t* const info = &head[kFileHeader];
  std::memcpy(info, dib.Header(), kInfoHeader);
  SetNumber(info, header);
  SetNumber(info + 8, static_cast<uint32_t>(height));
  const uint64_t rowBytes = (Number(info + 4) * uint64_t{Word(info + 14)} + 31) / 32 * 4;
  const uint64_t pixelBytes = rowBytes * static_cast<uint64_t>(height);
  if (opacity) {
    constexpr uint32_t kColourMasks[] = {0xFF0000, 0xFF00, 0xFF, 0xFF000000};
    constexpr uint32_t kStandardColours = 0x73524742;
    SetNumber(info + 16, kMasks);
    for (int i = 0; i < 4; ++i) SetNumber(info + kInfoHeader + 4 * i, kColourMasks[i]);
    SetNumber(info + 56, kStandardColours);
  }
  if (picture.xDpi <= 0 || picture.yDpi <= 0) std::memset(info + 24, 0, 8);
  head.insert(head.end(), dib.Table(), dib.Table() + dib.TableBytes());
  const uint64_t bytes = head.size() + pixelBytes;
  if (bytes > UINT32_MAX) throw Failure(Exit::kDepth, name, "BMP cannot hold more than 4 GB; write PNG or TIFF");
  SetNumber(&head[kFileHeader + 20], pixelBytes);
  head[0] = 'B';
  head[1] = 'M';
  SetNumber(&head[2], bytes);
  SetNumber(&head[10], head.size());
  return head;
}

}  // namespace

std::unique_ptr<Reader> OpenBmp(InputFile& file) { return std::make_unique<BmpReader>(file); }

void WriteBmp(const Picture& picture, Bitmap& bitmap, OutputFile& file, Console& console, Progress& progress) {
  if (!picture.profile.empty()) console.Note(file.Name(), "the colour profile is left out");
  BitmapHandle& record = bitmap.Handle();
  const bool inStrips = record.ViewPerspective == 1;
  const int32_t height = record.Height;
  const int32_t most = inStrips ? StripRows(record.BytesPerLine, height) : height;
  bool started = false;
  const auto write = [&](const Dib& dib, int32_t rows) {
    if (!started) {
      const auto shown = inStrips ? height : static_cast<int32_t>(Number(dib.Header() + 8));
      const std::vector<uint8_t> head = BmpHead(dib, shown, picture, file.Name());
      file.Write(head.data(), head.size());
    }
    started = true;
    file.Write(dib.Rows(), dib.RowsBytes());
    file.ThrowIfFailed();
    for (int32_t i = 0; i < rows; ++i) progress.Step();
  };
  if (!inStrips) return write(Dib(record, file.Name()), height);
  for (int32_t end = height; end > 0; end -= most) {  // the bottom rows come first
    const int32_t rows = std::min(most, end);
    Strip strip;
    const int32_t copied =
        T_CopyBitmapRect2(&strip.record, &record, sizeof record, 0, end - rows, record.Width, rows, TYPE_NOTILED);
    if (copied != SUCCESS) ThrowStatus(copied, file.Name(), "encoding BMP");
    write(Dib(strip.record, file.Name()), rows);
  }
}

}  // namespace tarn::tool
