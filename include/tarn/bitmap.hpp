/** @file
 *  A bitmap that owns its record. Part of tarn.hpp.
 *
 *  Each method is one call of the C function named beside it, whose header states what can fail; a failure comes back
 * as its status, and the bitmap is then as it was. Everything else that the C headers offer is reached through
 * handle().
 */
#ifndef TARN_BITMAP_HPP
#define TARN_BITMAP_HPP

#include <algorithm>
#include <concepts>
#include <span>
#include <utility>

#include "alpha.h"
#include "copy.h"
#include "dib.hpp"
#include "fill.h"
#include "flip.h"
#include "gray.h"
#include "list.h"
#include "options.hpp"
#include "overlay.h"
#include "progress.hpp"
#include "result.hpp"
#include "rows.h"
#include "shear.h"

namespace tarn {
inline namespace v15 {

/** One row's worth of the library's tracked memory. */
class RowBuffer {
 public:
  RowBuffer() noexcept = default;
  explicit RowBuffer(size_t bytes) noexcept
      : line_(static_cast<uint8_t*>(T_LocalAllocInit(1, bytes, __LINE__, L"tarn/bitmap.hpp"))),
        bytes_(line_ ? bytes : 0) {}
  RowBuffer(RowBuffer&& other) noexcept
      : line_(std::exchange(other.line_, nullptr)), bytes_(std::exchange(other.bytes_, 0)) {}
  RowBuffer& operator=(RowBuffer&& other) noexcept {
    std::swap(line_, other.line_);
    std::swap(bytes_, other.bytes_);
    return *this;
  }
  ~RowBuffer() {
    if (line_) T_LocalFree(line_, __LINE__, L"tarn/bitmap.hpp");
  }
  /** Empty without memory. */
  std::span<uint8_t> span() noexcept { return {line_, bytes_}; }

 private:
  uint8_t* line_ = nullptr;
  size_t bytes_ = 0;
};

/** Owns a bitmap. It moves, leaving an empty one, and is copied by clone() only. An empty bitmap has no pixels;
 *  operations on it fail with ERR_NO_BITMAP or ERR_INVALID_PARAMETER.
 *
 *  A bitmap is for one thread at a time, and that holds for its const methods too: reading a row remembers where it
 * was. Different bitmaps are independent. */
class Bitmap {
 public:
  Bitmap() noexcept : record_(emptyRecord()) {}
  Bitmap(Bitmap&& other) noexcept : record_(other.release()) {}
  Bitmap& operator=(Bitmap&& other) noexcept {
    if (this != &other) {
      reset();
      record_ = other.release();
    }
    return *this;
  }
  ~Bitmap() { reset(); }

  /* ---- Making and giving away ---------------------------------------------------------------------------------- */

  /** A new bitmap of zeros; ERR_INVALID_PARAMETER also for a palette that is too short. T_CreateBitmap */
  static Result<Bitmap> create(int32_t width, int32_t height, Depth depth, const Format& format = {}) {
    Bitmap made;
    if (!holdsPalette(format, depth)) return Failure{ERR_INVALID_PARAMETER};
    return made.ifDone(T_CreateBitmap(&made.record_, kSize, static_cast<uint32_t>(format.storage), width, height,
                                      static_cast<int32_t>(depth), static_cast<uint32_t>(format.order),
                                      format.palette.empty() ? nullptr : format.palette.data(), format.viewPerspective,
                                      nullptr, 0));
  }
  /** A bitmap of pixels in the caller's memory, which stays the caller's and must stay in place. `pixels` holds all
   *  rows, each padded to 4 bytes; fewer bytes are ERR_INVALID_PARAMETER. T_CreateBitmap, TYPE_USER */
  static Result<Bitmap> over(std::span<uint8_t> pixels, int32_t width, int32_t height, Depth depth,
                             const Format& format = {}) {
    Bitmap described;
    const int32_t status = T_InitBitmap(&described.record_, kSize, width, height, static_cast<int32_t>(depth));
    if (status != SUCCESS) return described.record_ = emptyRecord(), Failure{status};
    const uint64_t wanted = described.record_.Size;
    if (pixels.size() < wanted || !holdsPalette(format, depth)) return Failure{ERR_INVALID_PARAMETER};
    Bitmap made;
    return made.ifDone(T_CreateBitmap(&made.record_, kSize, TYPE_USER, width, height, static_cast<int32_t>(depth),
                                      static_cast<uint32_t>(format.order),
                                      format.palette.empty() ? nullptr : format.palette.data(), format.viewPerspective,
                                      pixels.data(), wanted));
  }
  /** Takes over a record and all that it owns. */
  static Bitmap adopt(const BitmapHandle& record) noexcept {
    Bitmap made;
    if (record.StructSize == kSize) made.record_ = record;
    return made;
  }
  /** Gives the record away with all that it owns; whoever has it calls T_FreeBitmap. */
  BitmapHandle release() noexcept {
    const BitmapHandle given = record_;
    record_ = emptyRecord();
    return given;
  }
  /** Frees everything, a dithering run too. T_FreeBitmap, T_StopDithering */
  void reset() noexcept {
    T_StopDithering(&record_);
    T_FreeBitmap(&record_);
    record_ = emptyRecord();
  }
  /** The record, for C functions that do not free it. */
  BitmapHandle* handle() noexcept { return &record_; }
  const BitmapHandle* handle() const noexcept { return &record_; }

  /** A copy with pixels, palette, overlays of its own in storage of the same kind, or as asked for. T_CopyBitmap */
  Result<Bitmap> clone() const {
    return make([&](BitmapHandle* to) { return T_CopyBitmap(to, &record_, kSize); });
  }
  Result<Bitmap> clone(Storage storage) const {
    return make([&](BitmapHandle* to) { return T_CopyBitmap2(to, &record_, static_cast<uint32_t>(storage), kSize); });
  }
  /** What lies in a rectangle, zeros where it reaches beyond. T_CopyBitmapRect */
  Result<Bitmap> copy(const Area& area) const {
    return make([&](BitmapHandle* to) {
      return T_CopyBitmapRect(to, &record_, kSize, area.left, area.top, area.width, area.height);
    });
  }
  Result<Bitmap> copy(const Area& area, Storage storage) const {
    return make([&](BitmapHandle* to) {
      return T_CopyBitmapRect2(to, &record_, kSize, area.left, area.top, area.width, area.height,
                               static_cast<uint32_t>(storage));
    });
  }

  /* ---- What it is ---------------------------------------------------------------------------------------------- */

  bool empty() const noexcept { return !(record_.Flags & T_FLAG_ALLOCATED); }
  explicit operator bool() const noexcept { return !empty(); }
  int32_t width() const noexcept { return record_.Width; }
  int32_t height() const noexcept { return record_.Height; }
  Depth depth() const noexcept { return static_cast<Depth>(record_.BitsPerPixel); }
  int32_t bits() const noexcept { return record_.BitsPerPixel; }
  Order order() const noexcept { return static_cast<Order>(record_.Order); }
  /** Bytes of a row with its padding, and of the pixels that are in it. */
  size_t rowBytes() const noexcept { return record_.BytesPerLine; }
  size_t pixelBytes() const noexcept {
    return static_cast<size_t>((int64_t{record_.Width} * record_.BitsPerPixel + 7) / 8);
  }
  /** 1..8, how stored rows lie in the picture (flip.h). */
  uint32_t viewPerspective() const noexcept { return record_.ViewPerspective; }
  /** Dots per inch. */
  int32_t xResolution() const noexcept { return record_.XResolution; }
  int32_t yResolution() const noexcept { return record_.YResolution; }
  void setResolution(int32_t x, int32_t y) noexcept { record_.XResolution = x, record_.YResolution = y; }

  /* ---- Storage ------------------------------------------------------------------------------------------------- */

  /** How pixels are kept. T_GetBitmapMemoryInfo */
  Result<StorageInfo> storage() const {
    StorageInfo info;
    uint32_t kind = 0;
    const int32_t status = T_GetBitmapMemoryInfo(&record_, &kind, &info.tileSize, &info.tileCount,
                                                 &info.conventionalTiles, &info.maxMappedTiles, &info.mappedTiles);
    if (status != SUCCESS) return Failure{status};
    info.kind = static_cast<Storage>(kind);
    return info;
  }
  /** Moves the pixels to another storage; tileSize in bytes, 0: the thread's. T_SetBitmapMemoryInfo */
  Result<void> moveTo(Storage storage, int64_t tileSize = 0) {
    return detail::done(T_SetBitmapMemoryInfo(&record_, static_cast<uint32_t>(storage), tileSize, 0, 0, 0, 0,
                                              T_INFO_MEMORY_TYPE | (tileSize ? T_INFO_TILE_SIZE : 0)));
  }
  /** Adds rows of zeros at the end, or takes rows away. T_ChangeBitmapHeight */
  Result<void> setHeight(int32_t height) { return detail::done(T_ChangeBitmapHeight(&record_, height)); }

  /* ---- Rows ---------------------------------------------------------------------------------------------------- */

  /** The row where it lies, rowBytes() bytes; empty unless all pixels are in one block of memory. It holds until an
   *  operation changes the bitmap's storage. */
  std::span<uint8_t> rowInPlace(int32_t row) noexcept { return {address(row), address(row) ? rowBytes() : 0}; }
  std::span<const uint8_t> rowInPlace(int32_t row) const noexcept {
    return {address(row), address(row) ? rowBytes() : 0};
  }
  /** Copies a row of any storage; the buffer has at least pixelBytes(). T_GetBitmapRow */
  Result<void> readRow(int32_t row, std::span<uint8_t> buffer) const {
    const uint64_t bytes = std::min(buffer.size(), rowBytes());
    if (row < 0 || bytes < pixelBytes()) return Failure{ERR_INVALID_PARAMETER};
    return moved(T_GetBitmapRow(&record_, buffer.data(), static_cast<uint32_t>(row), bytes), bytes, ERR_FILE_READ);
  }
  /** Replaces a row, likewise. T_PutBitmapRow */
  Result<void> writeRow(int32_t row, std::span<const uint8_t> pixels) {
    const uint64_t bytes = std::min(pixels.size(), rowBytes());
    if (row < 0 || bytes < pixelBytes()) return Failure{ERR_INVALID_PARAMETER};
    return moved(T_PutBitmapRow(&record_, pixels.data(), static_cast<uint32_t>(row), bytes), bytes, ERR_FILE_WRITE);
  }
  /** Calls visit(row, bytes) with every row from the top, in place where that is possible, else through one buffer. */
  template <std::invocable<int32_t, std::span<const uint8_t>> F>
  Result<void> readRows(F&& visit) const {
    return eachRow([&](int32_t row, std::span<uint8_t> line) { visit(row, std::span<const uint8_t>(line)); }, false);
  }
  /** The same with rows that visit may change; they are written back. */
  template <std::invocable<int32_t, std::span<uint8_t>> F>
  Result<void> editRows(F&& visit) {
    return eachRow(visit, true);
  }

  /* ---- Pixels and colours -------------------------------------------------------------------------------------- */

  /** A pixel's colour; ERR_INVALID_PARAMETER for what has none. T_GetPixelColor */
  Result<Color> pixel(int32_t row, int32_t column) const {
    const uint32_t color = T_GetPixelColor(&record_, row, column);
    if (color == T_NO_COLOR) return Failure{empty() ? ERR_NO_BITMAP : ERR_INVALID_PARAMETER};
    return Color::of(color);
  }
  /** T_PutPixelColor */
  Result<void> setPixel(int32_t row, int32_t column, Color color) {
    return detail::done(T_PutPixelColor(&record_, row, column, color.value()));
  }
  /** The whole bytes that a pixel has bits in. T_GetPixelData, T_PutPixelData */
  Result<void> readPixel(int32_t row, int32_t column, std::span<uint8_t> bytes) const {
    return detail::done(T_GetPixelData(&record_, bytes.data(), row, column, bytes.size()));
  }
  Result<void> writePixel(int32_t row, int32_t column, std::span<const uint8_t> bytes) {
    return detail::done(T_PutPixelData(&record_, bytes.data(), row, column, bytes.size()));
  }
  /** The pixel that a colour is here, 1 to 8 bytes. T_ColorToPixel */
  Result<void> colorToPixel(Color color, std::span<uint8_t> bytes) const {
    return detail::done(T_ColorToPixel(&record_, color.value(), bytes.data(), bytes.size()));
  }
  /** Every pixel gets a colour, or every byte 0. T_FillBitmap, T_ClearBitmap */
  Result<void> fill(Color color) { return detail::done(T_FillBitmap(&record_, color.value())); }
  Result<void> clear() { return detail::done(T_ClearBitmap(&record_)); }

  /** The palette, empty when there is none. T_GetBitmapPaletteEntries */
  Palette palette() const noexcept {
    std::array<T_PaletteEntry, Palette::kMost> entries;
    return Palette(std::span(entries).first(T_GetBitmapPaletteEntries(&record_, 0, Palette::kMost, entries.data())));
  }
  /** Replaces entries from `first` on; the others stay. T_PutBitmapColors */
  Result<void> setPalette(std::span<const T_PaletteEntry> entries, int32_t first = 0) {
    return detail::done(T_PutBitmapColors(&record_, first, static_cast<uint32_t>(entries.size()), entries.data()));
  }
  /** The number of different colours. T_GetBitmapColorCountExt */
  Result<uint32_t> countColors() const {
    uint32_t count = 0;
    const int32_t status = T_GetBitmapColorCountExt(&record_, &count, nullptr);
    if (const auto counted = detail::done(status); !counted) return counted.failure();
    return count;
  }
  /** The palette of so many entries, 1 to 256, that suits the picture best. T_CreateBitmapListOptPal */
  Result<Palette> optimizedPalette(uint32_t colors = 256) const;
  /** 0 colours, 1 gray from black, 2 gray from white, 3 other grays, or a status. T_IsGrayScaleBitmap */
  int32_t grayClass() const noexcept { return T_IsGrayScaleBitmap(&record_); }

  /* ---- Formats ------------------------------------------------------------------------------------------------- */

  /** Another depth, in place or as a new bitmap. T_ColorResBitmap */
  Result<void> convert(Depth depth, const ConvertOptions& options = {}) {
    return detail::done(toDepth(nullptr, depth, options));
  }
  Result<Bitmap> converted(Depth depth, const ConvertOptions& options = {}) const {
    return make([&](BitmapHandle* to) { return toDepth(to, depth, options); });
  }
  /** Gray of 8, 12, 16 or 32 bits, in place or as a new bitmap. T_GrayScaleBitmap, T_CreateGrayScaleBitmap */
  Result<void> toGray(Depth depth = Depth::Bits8) {
    return detail::done(T_GrayScaleBitmap(&record_, static_cast<int32_t>(depth)));
  }
  Result<Bitmap> gray(Depth depth = Depth::Bits8) const {
    return make(
        [&](BitmapHandle* to) { return T_CreateGrayScaleBitmap(to, &record_, static_cast<int32_t>(depth), kSize); });
  }
  /** 32-bit gray by its recorded limits to 16 or 8 bits. T_Gray32To16, T_Gray32To8 */
  Result<void> narrowGray(Depth depth) {
    if (depth != Depth::Bits8 && depth != Depth::Bits16) return Failure{ERR_BAD_BITS_PER_PIXEL};
    return detail::done(depth == Depth::Bits8 ? T_Gray32To8(&record_) : T_Gray32To16(&record_));
  }

  /** Opacity as a gray bitmap, and back from one. T_GetBitmapAlpha, T_SetBitmapAlpha */
  Result<Bitmap> alpha() const {
    return make([&](BitmapHandle* to) { return T_GetBitmapAlpha(&record_, to, kSize); });
  }
  Result<void> setAlpha(const Bitmap& alpha) { return detail::done(T_SetBitmapAlpha(&record_, &alpha.record_)); }

  /* ---- Size, shape, orientation -------------------------------------------------------------------------------- */

  /** Another size; one extent may be 0 and follows from the other. T_SizeBitmap */
  Result<void> resize(int32_t width, int32_t height, ResizeMethod method = ResizeMethod::Smooth) {
    return detail::done(T_SizeBitmap(&record_, width, height, static_cast<uint32_t>(method)));
  }
  /** Into a bitmap of the same depth and order, which has the size wanted. T_ResizeBitmap */
  Result<void> resizeInto(Bitmap& target, ResizeMethod method = ResizeMethod::Smooth) const {
    return detail::done(T_ResizeBitmap(&record_, &target.record_, static_cast<uint32_t>(method)));
  }
  /** Turns the picture clockwise by hundredths of a degree. T_RotateBitmap */
  Result<void> rotate(int32_t angleHundredths, const RotateOptions& options = {}) {
    return detail::done(T_RotateBitmap(
        &record_, angleHundredths,
        static_cast<uint32_t>(options.method) | (options.resize ? static_cast<uint32_t>(ROTATE_RESIZE) : 0),
        options.fill.value()));
  }
  /** T_RotateBitmap90 */
  Result<void> rotateQuarter(Turn turn) {
    return detail::done(T_RotateBitmap90(&record_, static_cast<int32_t>(turn), 0, 100));
  }
  /** Upside down, and left to right. T_FlipBitmap, T_ReverseBitmap */
  Result<void> flip() { return detail::done(T_FlipBitmap(&record_)); }
  Result<void> reverse() { return detail::done(T_ReverseBitmap(&record_)); }
  /** Slants by hundredths of a degree. T_ShearBitmap */
  Result<void> shear(int32_t angleHundredths, ShearAxis axis = ShearAxis::Rows, Color fill = {}) {
    return detail::done(T_ShearBitmap(&record_, angleHundredths, static_cast<int32_t>(axis), fill.value()));
  }
  /** Cuts down to the part of a rectangle that lies inside. T_TrimBitmap */
  Result<void> crop(const Area& area) {
    return detail::done(T_TrimBitmap(&record_, area.left, area.top, area.width, area.height));
  }
  /** Moves pixels so that the same picture has another perspective, 1 to 8. T_ChangeBitmapViewPerspective */
  Result<void> changePerspective(uint32_t viewPerspective) {
    return detail::done(T_ChangeBitmapViewPerspective(nullptr, &record_, kSize, viewPerspective));
  }

  /* ---- Device-independent bitmaps ------------------------------------------------------------------------------ */

  /** T_ConvertToDIB */
  Result<Dib> toDib() const {
    void* block = nullptr;
    if (const auto made = detail::done(T_ConvertToDIB(&record_, &block)); !made) return made.failure();
    return Dib::adopt(block);
  }
  /** Reads nothing outside of the block, which is freed after a success and else stays as it is. T_ChangeFromDIB */
  static Result<Bitmap> fromDib(Dib& dib) {
    const size_t bytes = dib.bytes().size();
    void* const block = dib.release();
    Bitmap made;
    const int32_t status = T_ChangeFromDIB(&made.record_, kSize, block);
    if (status != SUCCESS && block) dib = Dib::adopt(block, bytes);
    return made.ifDone(status);
  }
  static Result<Bitmap> fromDib(Dib&& dib) { return fromDib(dib); }

  /* ---- Overlays ------------------------------------------------------------------------------------------------ */

  /** Places, used or not. T_GetOverlayCount */
  uint32_t overlayCount() const noexcept {
    uint32_t count = 0;
    return T_GetOverlayCount(&record_, &count) == SUCCESS ? count : 0;
  }
  /** Puts a bitmap into a place, or the count's to append; after a failure it is the caller's. T_SetOverlayBitmap */
  Result<void> setOverlay(int32_t index, Bitmap&& overlay) {
    const auto moved = detail::done(T_SetOverlayBitmap(&record_, index, &overlay.record_, T_OVERLAY_MOVE));
    if (moved) overlay.record_ = emptyRecord();
    return moved;
  }
  /** A copy of an overlay. T_GetOverlayBitmap */
  Result<Bitmap> overlay(int32_t index) const {
    return make([&](BitmapHandle* to) { return T_GetOverlayBitmap(&record_, index, to, kSize, T_OVERLAY_COPY); });
  }
  /** Empties a place. T_SetOverlayBitmap */
  Result<void> removeOverlay(int32_t index) {
    return detail::done(T_SetOverlayBitmap(&record_, index, nullptr, T_OVERLAY_COPY));
  }

 private:
  static constexpr uint32_t kSize = sizeof(BitmapHandle);

  static BitmapHandle emptyRecord() noexcept {
    BitmapHandle record{};
    record.StructSize = kSize;
    return record;
  }
  /** Whether there are as many entries as the library will read, or none. */
  static bool holdsPalette(const Format& format, Depth depth) noexcept {
    const auto bits = static_cast<int32_t>(depth);
    return format.palette.empty() || bits < 1 || bits > 8 || format.palette.size() >= size_t{1} << bits;
  }
  /** This bitmap if it was made, else the status; what a failure left in the record is nothing that is owned. */
  Result<Bitmap> ifDone(int32_t status) {
    if (status != SUCCESS && empty()) record_ = emptyRecord();
    if (const auto made = detail::done(status); !made) return made.failure();
    return std::move(*this);
  }
  template <class F>
  Result<Bitmap> make(F operation) const {
    Bitmap made;
    return made.ifDone(operation(&made.record_));
  }
  int32_t toDepth(BitmapHandle* target, Depth depth, const ConvertOptions& options) const {
    const size_t given = options.palette.size();
    return T_ColorResBitmap(&record_, target, kSize, static_cast<int32_t>(depth),
                            static_cast<uint32_t>(options.kind) | T_RES_DITHER(options.dither),
                            given ? options.palette.data() : nullptr, nullptr,
                            given ? static_cast<uint32_t>(given) : options.colors, nullptr, nullptr);
  }
  uint8_t* address(int32_t row) const noexcept {
    constexpr uint32_t kElsewhere = T_FLAG_ON_DISK | T_FLAG_COMPRESSED | T_FLAG_TILED | T_FLAG_SUPER_COMPRESSED;
    const uint32_t flags = record_.Flags;
    const bool oneBlock = (flags & T_FLAG_ALLOCATED) && (flags & T_FLAG_IN_MEMORY) && !(flags & kElsewhere);
    const bool unlocked = (flags & T_FLAG_HANDLE_DATA) && !(flags & T_FLAG_LOCKED);
    if (!oneBlock || unlocked || !record_.Data || row < 0 || row >= record_.Height) return nullptr;
    return record_.Data + static_cast<size_t>(row) * record_.BytesPerLine;
  }
  static Result<void> moved(int64_t result, uint64_t bytes, int32_t shortCount) {
    if (result == static_cast<int64_t>(bytes)) return {};
    return Failure{result < 0 ? static_cast<int32_t>(result) : shortCount};
  }
  template <class F>
  Result<void> eachRow(F&& visit, bool write) const {
    if (empty()) return Failure{ERR_NO_BITMAP};
    RowBuffer buffer;
    const int32_t rows = height();
    for (int32_t row = 0; row < rows; ++row) {
      if (uint8_t* const direct = address(row); direct) {
        visit(row, std::span(direct, rowBytes()));
        continue;
      }
      if (buffer.span().empty()) buffer = RowBuffer(rowBytes());
      if (buffer.span().empty()) return Failure{ERR_NO_MEMORY};
      if (auto read = readRow(row, buffer.span()); !read) return read;
      visit(row, buffer.span());
      if (!write) continue;
      const int64_t put = T_PutBitmapRow(&record_, buffer.span().data(), static_cast<uint32_t>(row), rowBytes());
      if (auto written = moved(put, rowBytes(), ERR_FILE_WRITE); !written) return written;
    }
    return {};
  }

  mutable BitmapHandle record_;  // the functions that read rows remember in it where they were
};

inline Result<Palette> Bitmap::optimizedPalette(uint32_t colors) const {
  if (empty()) return Failure{ERR_NO_BITMAP};
  T_BitmapList* list = nullptr;
  int32_t status = T_CreateBitmapList(&list);
  if (status != SUCCESS) return Failure{status};
  std::array<T_PaletteEntry, Palette::kMost> entries{};
  uint32_t count = colors, optimized = 0;
  if (count < 1 || count > Palette::kMost) status = ERR_INVALID_PARAMETER;
  if (status == SUCCESS) status = T_InsertBitmapListItem(list, T_LIST_END, &record_);
  if (status == SUCCESS) {
    status = T_CreateBitmapListOptPal(list, entries.data(), &count, nullptr, &optimized);
    T_RemoveBitmapListItem(list, 0, &record_);  // it was lent
  }
  T_DestroyBitmapList(list);
  if (const auto made = detail::done(status); !made) return made.failure();
  return Palette(std::span(entries).first(count));
}

}  // namespace v15
}  // namespace tarn

#endif
