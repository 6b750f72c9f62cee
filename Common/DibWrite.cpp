// Device-independent bitmaps made from bitmaps of any depth, order and view perspective.

#include <cstring>

#include "Common/Internal/Dib.h"
#include "Common/Internal/PackedPixels.h"
#include "Common/Internal/Rows.h"
#include "Common/Internal/Storage.h"
#include "Kernels/Kernels.h"
#include "tarn/convert.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

/// What a row of the bitmap goes through on its way to a row of the DIB.
enum class Step {
  kNone,
  kIndices,    // wider fields for palette indices
  kColours,    // blue, green, red in 8 bits
  kGray,       // the top eight bits of the significant ones
  kLutColours  // the colours of the lookup table
};

struct Plan {
  int32_t bits;  // of the DIB
  Step step;
};

bool HasLut(const BitmapHandle& bitmap) noexcept {
  return (bitmap.Flags & T_FLAG_LUT_IN_USE) && bitmap.LUT && bitmap.LUTLength &&
         bitmap.LUTLength <= HeldEntries(bitmap.LUT);
}

Plan PlanFor(const BitmapHandle& bitmap) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  const bool gray = bitmap.Order == T_ORDER_GRAY;
  const bool bgr = bitmap.Order != T_ORDER_RGB && bitmap.Order != T_ORDER_WIDE;
  switch (bits) {
    case 1:
    case 4:
    case 8:
      return {bits, Step::kNone};
    case 2:
    case 3:
      return {4, Step::kIndices};
    case 5:
    case 6:
    case 7:
      return {8, Step::kIndices};
    case 12:
      return HasLut(bitmap) ? Plan{24, Step::kLutColours} : Plan{8, Step::kGray};
    case 16:
      if (gray) return HasLut(bitmap) ? Plan{24, Step::kLutColours} : Plan{8, Step::kGray};
      return {16, bgr ? Step::kNone : Step::kColours};
    case 32:
      if (gray) return {8, Step::kGray};
      return {32, bgr ? Step::kNone : Step::kColours};
    case 48:
      return {24, Step::kColours};
    case 64:
      return {32, Step::kColours};
    default:
      return {24, bgr ? Step::kNone : Step::kColours};
  }
}

// ---- Rows ----------------------------------------------------------------------------------------------------------

uint32_t IndexAt(const uint8_t* row, uint64_t bit, uint32_t bits) noexcept {
  const uint32_t place = static_cast<uint32_t>(bit % 8);
  const uint32_t next = place + bits > 8 ? row[bit / 8 + 1] : 0u;
  return (static_cast<uint32_t>(row[bit / 8] << 8) | next) >> (16 - place - bits) & ((1u << bits) - 1);
}

void WidenIndices(uint8_t* target, const uint8_t* source, int32_t width, uint32_t bits, int32_t targetBits) noexcept {
  uint64_t bit = 0;
  for (int32_t i = 0; i < width; ++i, bit += bits) {
    const auto index = static_cast<uint8_t>(IndexAt(source, bit, bits));
    if (targetBits == 8) {
      target[i] = index;
    } else if (i % 2) {
      target[i / 2] |= index;
    } else {
      target[i / 2] = static_cast<uint8_t>(index << 4);
    }
  }
}

uint32_t SampleAt(const uint8_t* row, int64_t column, int32_t bits) noexcept {
  if (bits == 32) {
    uint32_t sample;
    std::memcpy(&sample, row + 4 * column, sizeof sample);
    return sample;
  }
  return DeepSample(row, column, bits);
}

/// Rows of a bitmap, one at a time, as rows of a DIB with the columns as they are stored.
class RowMaker {
 public:
  RowMaker(BitmapHandle& bitmap, const Plan& plan) noexcept
      : bitmap_(bitmap), plan_(plan), reader_(bitmap, TARN_HERE) {}

  Status Open() noexcept {
    TARN_TRY(reader_.Open());
    if (plan_.step == Step::kNone) return SUCCESS;
    const uint64_t made = DibRowBytes(bitmap_.Width, plan_.bits);
    const uint64_t stored = bitmap_.BytesPerLine;
    line_ = TrackedBuffer<uint8_t>(made > stored ? made : stored, TARN_HERE);
    return line_ ? SUCCESS : ERR_NO_MEMORY;
  }

  Status Make(int32_t row, const uint8_t*& made) noexcept {
    made = reader_.Row(row);
    if (!made) return reader_.status();
    if (plan_.step == Step::kNone) return SUCCESS;
    TARN_TRY(Convert(made));
    made = line_.data();
    return SUCCESS;
  }

 private:
  Status Convert(const uint8_t* source) noexcept {
    const int32_t width = bitmap_.Width;
    const int32_t bits = bitmap_.BitsPerPixel;
    const uint32_t order = bitmap_.Order;
    switch (plan_.step) {
      case Step::kIndices:
        WidenIndices(line_.data(), source, width, static_cast<uint32_t>(bits), plan_.bits);
        return SUCCESS;
      case Step::kLutColours:
        LookUp(source);
        return SUCCESS;
      case Step::kGray:
        ToLevels(source);
        return SUCCESS;
      default:
        std::memcpy(line_.data(), source, bitmap_.BytesPerLine);
        return T_ConvertBuffer(line_.data(), width, bits, plan_.bits, order, T_ORDER_BGR, nullptr, nullptr);
    }
  }

  // The top eight significant bits; fewer are spread over all levels.
  void ToLevels(const uint8_t* source) noexcept {
    const int32_t width = bitmap_.Width;
    const int32_t bits = bitmap_.BitsPerPixel;
    uint32_t mask = 0;
    int32_t shift = 0;
    T_GetGrayParams(bits, 8, bitmap_.LowBit, bitmap_.HighBit, nullptr, &mask, &shift);
    uint8_t levels[256];
    for (uint32_t value = 0; value <= mask; ++value) levels[value] = static_cast<uint8_t>(value * 255 / mask);
    uint8_t* const target = line_.data();
    for (int32_t i = 0; i < width; ++i) target[i] = levels[SampleAt(source, i, bits) >> shift & mask];
  }

  // A sample is the significant bits of a pixel; one beyond the table shows its last entry.
  void LookUp(const uint8_t* source) noexcept {
    const int32_t width = bitmap_.Width;
    const int32_t bits = bitmap_.BitsPerPixel;
    uint32_t mask = 0;
    int32_t shift = 0;
    T_GetGrayParams(bits, bits, bitmap_.LowBit, bitmap_.HighBit, nullptr, &mask, &shift);
    const T_PaletteEntry* const lut = bitmap_.LUT;
    const uint32_t last = bitmap_.LUTLength - 1;
    uint8_t* target = line_.data();
    for (int32_t i = 0; i < width; ++i, target += 3) {
      const uint32_t sample = SampleAt(source, i, bits) >> shift & mask;
      const T_PaletteEntry entry = lut[sample < last ? sample : last];
      target[0] = entry.Blue;
      target[1] = entry.Green;
      target[2] = entry.Red;
    }
  }

  BitmapHandle& bitmap_;
  Plan plan_;
  RowReader reader_;
  TrackedBuffer<uint8_t> line_;
};

// ---- Where pixels go -----------------------------------------------------------------------------------------------

/// How stored rows lie in the picture that is shown, by view perspective.
struct View {
  explicit View(uint32_t perspective) noexcept
      : transposed(perspective >= 5),
        fromRight(perspective == 2 || perspective == 3 || perspective == 6 || perspective == 7),
        fromBottom(perspective == 3 || perspective == 4 || perspective == 7 || perspective == 8) {}
  bool transposed;  // stored rows are columns
  bool fromRight;   // in the picture: what is stored first lies right
  bool fromBottom;  // ... lies at the bottom
};

/// The rows of a DIB, the bottom one first, zero at the start.
struct Canvas {
  uint8_t* rows;
  uint64_t rowBytes;
  int32_t width;
  int32_t height;
  int32_t bits;

  [[nodiscard]] uint8_t* Row(int32_t fromTop) const noexcept {
    return rows + static_cast<uint64_t>(height - 1 - fromTop) * rowBytes;
  }
};

void CopyPixels(const Canvas& canvas, uint8_t* row, const uint8_t* line) noexcept {
  Kernels().shiftBits(row, 0, line, 0, static_cast<uint64_t>(canvas.width) * static_cast<uint32_t>(canvas.bits));
}

/// Puts the pixels of a line along a straight walk through the canvas: pixel i to (x + i * stepX, y + i * stepY).
struct Walk {
  int32_t x, y, stepX, stepY;
};

template <int kBytes>
void PutWholeBytes(const Canvas& canvas, const uint8_t* line, int32_t count, Walk walk) noexcept {
  for (int32_t i = 0; i < count; ++i, walk.x += walk.stepX, walk.y += walk.stepY)
    std::memcpy(canvas.Row(walk.y) + static_cast<int64_t>(walk.x) * kBytes, line + static_cast<int64_t>(i) * kBytes,
                kBytes);
}

template <uint32_t kBits>
void PutParts(const Canvas& canvas, const uint8_t* line, int32_t count, Walk walk) noexcept {
  constexpr uint32_t kEach = 8 / kBits;
  const auto shift = [](int32_t column) { return (kEach - 1 - static_cast<uint32_t>(column) % kEach) * kBits; };
  for (int32_t i = 0; i < count; ++i, walk.x += walk.stepX, walk.y += walk.stepY) {
    const uint32_t index = line[static_cast<uint32_t>(i) / kEach] >> shift(i) & ((1u << kBits) - 1);
    canvas.Row(walk.y)[static_cast<uint32_t>(walk.x) / kEach] |= static_cast<uint8_t>(index << shift(walk.x));
  }
}

void PutAlong(const Canvas& canvas, const uint8_t* line, int32_t count, const Walk& walk) noexcept {
  switch (canvas.bits) {
    case 1:
      return PutParts<1>(canvas, line, count, walk);
    case 4:
      return PutParts<4>(canvas, line, count, walk);
    case 8:
      return PutWholeBytes<1>(canvas, line, count, walk);
    case 16:
      return PutWholeBytes<2>(canvas, line, count, walk);
    case 24:
      return PutWholeBytes<3>(canvas, line, count, walk);
    default:
      return PutWholeBytes<4>(canvas, line, count, walk);
  }
}

void Place(const Canvas& canvas, const View& view, int32_t row, const uint8_t* line) noexcept {
  const int32_t right = canvas.width - 1;
  const int32_t bottom = canvas.height - 1;
  if (view.transposed) {
    const int32_t y = view.fromBottom ? bottom : 0;
    PutAlong(canvas, line, canvas.height, {view.fromRight ? right - row : row, y, 0, view.fromBottom ? -1 : 1});
    return;
  }
  const int32_t y = view.fromBottom ? bottom - row : row;
  if (view.fromRight) return PutAlong(canvas, line, canvas.width, {right, y, -1, 0});
  CopyPixels(canvas, canvas.Row(y), line);
}

Status DrawRows(BitmapHandle& bitmap, const Plan& plan, const Canvas& canvas) noexcept {
  const View view(bitmap.ViewPerspective);
  const int32_t rows = bitmap.Height;
  RowMaker maker(bitmap, plan);
  TARN_TRY(maker.Open());
  Progress progress(rows);
  for (int32_t row = 0; row < rows; ++row) {
    const uint8_t* line = nullptr;
    TARN_TRY(maker.Make(row, line));
    Place(canvas, view, row, line);
    TARN_TRY(progress.Step());
  }
  return SUCCESS;
}

// ---- Header and colour table ---------------------------------------------------------------------------------------

uint32_t TableEntries(const BitmapHandle& bitmap, const Plan& plan) noexcept {
  if (plan.bits > 8) return 0;
  return plan.step == Step::kGray ? 256 : 1u << bitmap.BitsPerPixel;
}

void WriteRamp(T_PaletteEntry* table, uint32_t entries) noexcept {
  for (uint32_t i = 0; i < entries; ++i) {
    const auto level = static_cast<uint8_t>(i * 255 / (entries - 1));
    table[i] = {level, level, level, 0};
  }
}

void WriteTable(T_PaletteEntry* table, uint32_t entries, const BitmapHandle& bitmap, const Plan& plan) noexcept {
  const T_PaletteEntry* palette = bitmap.Palette;
  if (plan.step == Step::kGray || (!palette && bitmap.Order == T_ORDER_GRAY)) return WriteRamp(table, entries);
  uint32_t held = entries;
  if (palette) {
    const uint32_t real = HeldEntries(palette);
    if (bitmap.Colors < held) held = bitmap.Colors;
    if (real < held) held = real;
  } else {
    palette = T_IntGetFixedPalette(static_cast<uint32_t>(bitmap.BitsPerPixel));
  }
  for (uint32_t i = 0; i < held; ++i) table[i] = {palette[i].Blue, palette[i].Green, palette[i].Red, 0};
}

int32_t PixelsPerMetre(int32_t dotsPerInch) noexcept {
  if (dotsPerInch <= 0) return 0;
  const int64_t rounded = (int64_t{dotsPerInch} * 10000 + 127) / 254;
  return rounded < INT32_MAX ? static_cast<int32_t>(rounded) : INT32_MAX;
}

Status MakeBlock(BitmapHandle& bitmap, const Plan& plan, uint8_t* start, const DibInfoHeader& header) noexcept {
  std::memcpy(start, &header, sizeof header);
  auto* const table = reinterpret_cast<T_PaletteEntry*>(start + sizeof header);
  WriteTable(table, header.colors, bitmap, plan);
  const Canvas canvas = {reinterpret_cast<uint8_t*>(table + header.colors), DibRowBytes(header.width, plan.bits),
                         header.width, header.height, plan.bits};
  return DrawRows(bitmap, plan, canvas);
}

}  // namespace

Status DibFromBitmap(BitmapHandle& bitmap, uint64_t& block) noexcept {
  const Plan plan = PlanFor(bitmap);
  const bool turned = View(bitmap.ViewPerspective).transposed;
  DibInfoHeader header{};
  header.size = sizeof header;
  header.width = turned ? bitmap.Height : bitmap.Width;
  header.height = turned ? bitmap.Width : bitmap.Height;
  header.planes = 1;
  header.bits = static_cast<uint16_t>(plan.bits);
  header.compression = kDibRgb;
  // Width times bits is below 2^36 and rows below 2^31: no product passes 64 bits.
  const uint64_t imageBytes = DibRowBytes(header.width, plan.bits) * static_cast<uint32_t>(header.height);
  if (imageBytes > T_MAX_IMAGE_BYTES) return ERR_IMAGE_TOO_LARGE;
  header.imageBytes = static_cast<uint32_t>(imageBytes);
  header.xPixelsPerMetre = PixelsPerMetre(turned ? bitmap.YResolution : bitmap.XResolution);
  header.yPixelsPerMetre = PixelsPerMetre(turned ? bitmap.XResolution : bitmap.YResolution);
  header.colors = TableEntries(bitmap, plan);
  const uint64_t bytes = sizeof header + header.colors * sizeof(T_PaletteEntry) + imageBytes;
  const Here here = TARN_HERE;
  const uint64_t made = T_OsAllocHandle(T_BLOCK_MOVABLE | T_BLOCK_ZERO, bytes, here.line, here.file);
  if (!made) return ERR_NO_MEMORY;
  auto* const start = static_cast<uint8_t*>(T_OsLockHandle(made, here.line, here.file));
  const Status written = start ? MakeBlock(bitmap, plan, start, header) : Status(ERR_NO_MEMORY);
  if (start) T_OsUnlockHandle(made, here.line, here.file);
  if (written.Ok()) {
    block = made;
  } else {
    T_OsFreeHandle(made, here.line, here.file);
  }
  return written;
}

}  // namespace tarn
