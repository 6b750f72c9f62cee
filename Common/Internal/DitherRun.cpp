#include "Common/Internal/DitherRun.h"

#include <cstring>
#include <new>
#include <utility>

#include "Common/Internal/Geometry.h"
#include "tarn/memory.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

// ---- Methods -------------------------------------------------------------------------------------------------------

enum Method : uint32_t { kNone = 0, kStevensonArce = 5, kOrdered = 7, kClustered = 8 };

/// Weights as they are published: where the error of a pixel goes. Row 0 holds x + 1 and x + 2, the others x - 3 .. x
/// + 3.
struct Published {
  int16_t ahead[2];
  int16_t below[3][7];
  int32_t rows;
  int32_t divisor;
};

constexpr Published kPublished[] = {
    {},
    // Floyd and Steinberg 1976
    {{7, 0}, {{0, 0, 3, 5, 1, 0, 0}}, 1, 16},
    // Stucki 1981
    {{8, 4}, {{0, 2, 4, 8, 4, 2, 0}, {0, 1, 2, 4, 2, 1, 0}}, 2, 42},
    // Burkes 1988
    {{8, 4}, {{0, 2, 4, 8, 4, 2, 0}}, 1, 32},
    // Sierra 1989
    {{5, 3}, {{0, 2, 4, 5, 4, 2, 0}, {0, 0, 2, 3, 2, 0, 0}}, 2, 32},
    // Stevenson and Arce 1985
    {{0, 32}, {{12, 0, 26, 0, 30, 0, 16}, {0, 12, 0, 26, 0, 12, 0}, {5, 0, 12, 0, 12, 0, 5}}, 3, 200},
    // Jarvis, Judice and Ninke 1976
    {{7, 5}, {{0, 3, 5, 7, 5, 3, 0}, {0, 1, 3, 5, 3, 1, 0}}, 2, 48},
};

/// The same seen from the pixel that receives: what x sends to x + 1 below comes from 1 to the left above.
constexpr DitherKernel Receiving(const Published& sent) noexcept {
  DitherKernel kernel{};
  kernel.left[0] = sent.ahead[0];
  kernel.left[1] = sent.ahead[1];
  for (int row = 0; row < 3; ++row) {
    for (int k = 0; k < 7; ++k) kernel.above[row][k] = sent.below[row][6 - k];
  }
  kernel.rows = sent.rows;
  kernel.divisor = sent.divisor;
  switch (
      sent.divisor) {  // exact in the range of the sums: the surplus of the multiplier times the sum stays below 2^n
    case 16:
      kernel.multiplier = 4096, kernel.shift = 0;
      break;
    case 32:
      kernel.multiplier = 2048, kernel.shift = 0;
      break;
    case 42:
      kernel.multiplier = 24967, kernel.shift = 4;
      break;
    case 48:
      kernel.multiplier = 43691, kernel.shift = 5;
      break;
    default:
      kernel.multiplier = 83887, kernel.shift = 24, kernel.wide = true;
  }
  return kernel;
}

constexpr uint8_t kDispersed[8][8] = {{0, 128, 32, 160, 8, 136, 40, 168},   {192, 64, 224, 96, 200, 72, 232, 104},
                                      {48, 176, 16, 144, 56, 184, 24, 152}, {236, 112, 208, 80, 244, 120, 216, 88},
                                      {12, 140, 44, 172, 4, 132, 36, 164},  {204, 76, 232, 108, 196, 68, 228, 100},
                                      {60, 188, 28, 156, 52, 180, 20, 148}, {248, 124, 220, 92, 240, 116, 212, 84}};
constexpr uint8_t kCluster[8][8] = {{112, 40, 72, 104, 144, 176, 208, 136}, {88, 8, 16, 48, 192, 232, 240, 168},
                                    {56, 24, 0, 80, 160, 224, 248, 200},    {96, 64, 32, 120, 128, 216, 184, 152},
                                    {148, 180, 212, 140, 116, 44, 76, 108}, {196, 236, 244, 172, 92, 12, 20, 52},
                                    {164, 228, 252, 204, 60, 28, 4, 84},    {132, 220, 188, 156, 100, 68, 36, 124}};
// Deliberate: five cells of the dispersed matrix (236, 244, 232, 248, 240) are not those of the recursive one; results
// of old are compared byte for byte.

constexpr int16_t OffsetOf(int32_t t, uint32_t bits) noexcept {
  switch (bits) {
    case 1:
      return static_cast<int16_t>(t - 128);
    case 2:
      return static_cast<int16_t>((t >> 1) - 64);
    case 3:
      return static_cast<int16_t>(t / 3 - 42);
    case 4:
      return static_cast<int16_t>((t >> 2) - 32);
    case 5:
      return static_cast<int16_t>(t / 5 - 25);
    case 6:
      return static_cast<int16_t>(t / 6 - 21);
    case 7:
      return static_cast<int16_t>(t / 7 - 18);
    default:
      return static_cast<int16_t>((t >> 3) - 16);
  }
}

// ---- Palette modes -------------------------------------------------------------------------------------------------

enum Mode : uint32_t {
  kOwnTable = 0,
  kLentTable = 1,
  kTwo = 2,
  kFour = 3,
  kSixteen = 5,
  kTwoHundred = 9,
  kWebMode = 10
};

/// Bits of B | G << 8 | R << 16 that make a key of the match table.
constexpr uint32_t kKeyMask = 0xF8F8F8;

/// One channel of a fixed mode: its top bits, with components spread evenly over 0..255 (see DitherColors), at a place
/// of the index.
constexpr DitherColors::Channel Top(int bits, int place) noexcept {
  constexpr uint16_t kRise[] = {0, 1020, 340, 146};  // 255, 85 and 255 / 7, in quarters
  return {static_cast<uint16_t>(1 << (8 + bits)), kRise[bits], static_cast<uint16_t>(1 << place)};
}
constexpr DitherColors::Channel WebStep(int weight) noexcept { return {1286, 204, static_cast<uint16_t>(weight)}; }

/// Blue, green, red of the modes from the 8-colour one on. Deliberate: of the 16 colours the key has red lowest.
constexpr DitherColors::Channel kSteps[][3] = {{Top(1, 0), Top(1, 1), Top(1, 2)},    {Top(1, 2), Top(1, 1), Top(1, 0)},
                                               {Top(1, 0), Top(2, 1), Top(2, 3)},    {Top(2, 0), Top(2, 2), Top(2, 4)},
                                               {Top(2, 0), Top(3, 2), Top(2, 5)},    {Top(2, 0), Top(3, 2), Top(3, 5)},
                                               {WebStep(1), WebStep(6), WebStep(36)}};

constexpr uint32_t KeyOf(const T_PaletteEntry& entry) noexcept {
  return static_cast<uint32_t>(entry.Red >> 3 << 10 | entry.Green >> 3 << 5 | entry.Blue >> 3);
}

bool Same(const T_PaletteEntry* a, const T_PaletteEntry* b, uint32_t count) noexcept {
  return std::memcmp(a, b, count * sizeof(T_PaletteEntry)) == 0;
}

}  // namespace

void DitherRun::UseFixed(uint32_t mode) noexcept {
  mode_ = mode;
  const bool web = mode == kWebMode;
  const uint32_t bits = web ? 8 : mode - 1;
  const T_PaletteEntry* const table = web ? T_IntGetNetscapePalette() : T_IntGetFixedPalette(bits);
  const uint32_t count = web ? 216 : 1u << bits;
  for (uint32_t key = 0; key < count; ++key) {
    // Deliberate: of the 16 colours any channel of the upper half chooses a bright one, and the two grays are never
    // used.
    const uint32_t index = mode == kSixteen && key > 0 ? 8 | key : key;
    positions_[key][0] = table[index].Blue;
    positions_[key][1] = table[index].Green;
    positions_[key][2] = table[index].Red;
    positions_[key][3] = 0;
    indices_[key] = static_cast<uint8_t>(index);
  }
  colors_.rule = mode == kTwo ? DitherColors::kGray1 : mode == kFour ? DitherColors::kGray2 : DitherColors::kSteps;
  colors_.renamed = mode == kSixteen;
  if (mode > kFour) std::memcpy(colors_.channels, kSteps[mode - kFour - 1], sizeof colors_.channels);
}

/// What becomes of every value of each channel; the places of the match table are free in the fixed modes.
void DitherRun::MakeSteps() noexcept {
  static_assert(sizeof cache_ >= 3 * kStepValues * sizeof(DitherStep));
  auto* step = reinterpret_cast<DitherStep*>(cache_);
  for (int c = 0; c < 3; ++c) {
    const DitherColors::Channel& channel = colors_.channels[c];
    colors_.steps[c] = step;
    for (int32_t value = -256; value < kStepValues - 256; ++value) {
      const int32_t level = value < 0 ? 0 : value > 255 ? 255 : value;
      const int32_t at = level * channel.scale >> 16;
      const int32_t error = level - ((at * channel.rise + 1) >> 2);
      *step++ = {static_cast<int16_t>(error * kernel_.left[0]), static_cast<int16_t>(error),
                 static_cast<uint16_t>(at * channel.weight), 0};
    }
  }
}

Status DitherRun::UseCache(const T_PaletteEntry* palette, const DitherTarget& target) noexcept {
  mode_ = target.matchTable ? kLentTable : kOwnTable;
  constexpr uint8_t kNotUsable = 3;
  for (int pass = 0; pass < 2 && usableCount_ == 0; ++pass) {  // without a usable entry all are
    for (uint32_t i = 0; i < target.count; ++i) {
      if (pass == 0 && (palette[i].Reserved & kNotUsable)) continue;
      const uint32_t position = usableCount_++;
      usable_[position] = palette[i];
      indices_[position] = static_cast<uint8_t>(i);
      positions_[position][0] = palette[i].Blue;
      positions_[position][1] = palette[i].Green;
      positions_[position][2] = palette[i].Red;
      positions_[position][3] = 0;
    }
  }
  if (target.matchTable) {
    table_ = target.matchTable;
  } else {
    const Here here = TARN_HERE;
    table_ = static_cast<uint32_t*>(T_LocalAllocInit(kMatchKeys, sizeof(uint32_t), here.line, here.file));
    if (!table_) return ERR_NO_MEMORY;
    ownsTable_ = true;
  }
  new (search_) NearestSearch(usable_, usableCount_);
  std::memset(cache_, kUnknown, sizeof cache_);
  colors_.rule = DitherColors::kTable;
  colors_.mask = kKeyMask;
  colors_.unknown = kUnknown;
  colors_.renamed = false;
  for (uint32_t i = 0; i < usableCount_; ++i) colors_.renamed |= indices_[i] != i;
  return SUCCESS;
}

Status DitherRun::ChooseColors(const DitherTarget& target) noexcept {
  const uint32_t bits = BitsFor(target.count);
  const T_PaletteEntry* const fixed = T_IntGetFixedPalette(bits);
  const T_PaletteEntry* const palette = target.palette ? target.palette : fixed;
  if (!target.matchTable) {
    if (Same(palette, fixed, target.count)) {
      UseFixed(bits + 1);
      return SUCCESS;
    }
    if (target.count > 128 && target.count <= 216 && Same(palette, T_IntGetNetscapePalette(), target.count)) {
      UseFixed(kWebMode);
      return SUCCESS;
    }
  }
  return UseCache(palette, target);
}

uint32_t DitherRun::Resolve(void* owner, uint32_t key) noexcept {
  DitherRun& run = *static_cast<DitherRun*>(owner);
  uint32_t entry = run.table_[key];
  if (entry == 0 || entry > run.usableCount_) {
    const NearestSearch& search = *std::launder(reinterpret_cast<const NearestSearch*>(run.search_));
    entry = search.Find(key >> 10 << 3, (key >> 5 & 31) << 3, (key & 31) << 3) + 1;
    run.table_[key] = entry;
  }
  const uint32_t position = entry - 1;
  run.cache_[key] = static_cast<uint8_t>(position);  // 255 stays unknown and asks again
  return position;
}

void DitherRun::ReleaseTable() noexcept {
  const Here here = TARN_HERE;
  if (ownsTable_) T_LocalFree(table_, here.line, here.file);
  ownsTable_ = false;
}

// ---- Start and end -------------------------------------------------------------------------------------------------

DitherRun* DitherRun::Create(const BitmapHandle& source, uint32_t method, const DitherTarget& target,
                             Status& status) noexcept {
  const Here here = TARN_HERE;
  constexpr size_t kAlign = alignof(DitherRun);
  status = ERR_NO_MEMORY;
  void* const raw = T_LocalAllocInit(1, sizeof(DitherRun) + kAlign, here.line, here.file);
  if (!raw) return nullptr;
  const auto at = reinterpret_cast<uintptr_t>(raw);
  auto* const run = new (static_cast<uint8_t*>(raw) + (kAlign - at % kAlign) % kAlign) DitherRun;
  run->raw_ = raw;
  status = run->Open(source, method, target);
  if (status.Ok()) return run;
  Destroy(run);
  return nullptr;
}

void DitherRun::Destroy(DitherRun* run) noexcept {
  if (!run) return;
  const Here here = TARN_HERE;
  void* const raw = run->raw_;
  run->~DitherRun();
  T_LocalFree(raw, here.line, here.file);
}

Status DitherRun::Open(const BitmapHandle& source, uint32_t method, const DitherTarget& target) noexcept {
  if (!IsBitDepth(source.BitsPerPixel) || source.Width < 1) return ERR_INVALID_PARAMETER;
  if (target.count == 0 || target.count > 256) return ERR_INVALID_PARAMETER;
  if (target.bits < 1 || target.bits > 8 || target.count > 1u << target.bits) return ERR_INVALID_PARAMETER;
  if (method > T_DITHER_LAST) return ERR_INVALID_PARAMETER;
  TARN_TRY(source_.Open(source));
  width_ = source.Width;
  method_ = method;
  bits_ = target.bits;
  kernels_ = &Kernels();
  colors_.table = cache_;
  colors_.resolve = Resolve;
  colors_.owner = this;
  colors_.colors = positions_;
  colors_.indices = indices_;
  TARN_TRY(ChooseColors(target));
  if (method >= 1 && method < kOrdered) kernel_ = Receiving(kPublished[method]);
  if (colors_.rule == DitherColors::kSteps && kernel_.rows && !kernel_.wide) MakeSteps();
  gray_ = source_.IsGray() && (mode_ == kTwo || mode_ == kFour) && !kernel_.wide;
  grayBits_ = mode_ == kTwo ? 1 : 2;
  if (kernel_.rows) TARN_TRY(MakeRows(kernel_.rows + 1));
  // Nothing can fail from here: a lent table is changed by runs that start only.
  for (uint32_t i = 0; table_ && i < usableCount_; ++i) {
    uint32_t& entry = table_[KeyOf(usable_[i])];
    if (entry == 0) entry = i + 1;
  }
  // Of large pictures nearly every key is asked for once, and then nobody has to ask whether it is known.
  constexpr int64_t kLarge = int64_t{1} << 20;
  if (table_ && !(target.matchTable && target.looked) && width_ * source.Height >= kLarge) {
    for (uint32_t key = 0; key < kMatchKeys; ++key) (void)Resolve(this, key);
    colors_.unknown = kNoneUnknown;
  }
  return SUCCESS;
}

Status DitherRun::MakeRows(int rows) noexcept {
  const int64_t lanes = gray_ ? 1 : 4;
  stride_ = (width_ + 2 * kDitherReach) * lanes;
  auto fresh = TrackedBuffer<int16_t>::Zeroed(static_cast<uint64_t>(stride_) * static_cast<uint64_t>(rows), TARN_HERE);
  if (!fresh) return ERR_NO_MEMORY;  // what there is stays in use
  errors_ = std::move(fresh);
  rows_ = rows;
  return SUCCESS;
}

Status DitherRun::OpenGroups() noexcept {
  if (kernel_.rows == 0 || lineNumber_ != 0) return SUCCESS;
  TARN_TRY(MakeRows(kernel_.rows + kDitherGroup));
  return OpenWave();
}

/// The row of errors of a line, its first pixel.
int16_t* DitherRun::RowOf(uint32_t line) noexcept {
  const uint32_t row = line % static_cast<uint32_t>(rows_);
  return errors_.data() + row * stride_ + kDitherReach * (gray_ ? 1 : 4);
}

// ---- Lines ---------------------------------------------------------------------------------------------------------

void DitherRun::PutIndices(uint8_t* line, const uint8_t* indices, int64_t first, int64_t count) noexcept {
  uint8_t* const place = line + first * bits_ / 8;
  const int64_t bits = count * bits_;
  const auto kept = static_cast<uint8_t>(bits % 8 ? 0xFF >> bits % 8 : 0);
  const uint8_t old = kept ? place[bits / 8] & kept : 0;
  kernels_->pixels->packIndices(place, indices, count, static_cast<int32_t>(bits_));
  if (kept) place[bits / 8] |= old;
}

/// Methods without diffusion.
void DitherRun::PlainLine(uint8_t* indices, const uint8_t* line) noexcept {
  const DitherKernels& kernels = *kernels_->dither;
  const bool ordered = method_ != kNone;
  const uint8_t* const limits = (method_ == kClustered ? kCluster : kDispersed)[lineNumber_ & 7];
  const uint32_t size = mode_ <= kLentTable ? bits_ : mode_ == kWebMode ? 6 : mode_ - 1;
  int16_t offsets[8];
  for (int x = 0; x < 8; ++x) offsets[x] = ordered ? OffsetOf(limits[x], size) : int16_t{0};
  constexpr int64_t kPart = 512;
  alignas(32) uint8_t pixels[4 * kPart];
  alignas(32) uint8_t found[kPart];
  alignas(32) uint8_t levels[kPart];
  for (int64_t first = 0; first < width_; first += kPart) {
    const int64_t count = width_ - first < kPart ? width_ - first : kPart;
    if (ordered && mode_ == kTwo) {
      if (gray_) {
        source_.Levels(levels, line, first, count);
      } else {
        source_.Colors(pixels, line, first, count);
        kernels_->pixels->gray32(levels, pixels, count, false);
      }
      kernels.threshold(found, levels, count, limits);
    } else {
      source_.Colors(pixels, line, first, count);
      if (ordered && mode_ == kSixteen) {
        constexpr uint8_t kBright[8] = {0, 9, 10, 11, 12, 13, 14, 15};
        kernels.thresholds(found, pixels, count, limits, kBright);
      } else {
        kernels.ordered(found, pixels, count, offsets, colors_);
      }
    }
    PutIndices(indices, found, first, count);
  }
  ++lineNumber_;
}

namespace {

/// Room of one line's block on the stack.
struct BlockRoom {
  alignas(32) uint8_t pixels[4 * kDitherBlock];
  alignas(32) int32_t sums[4 * kDitherBlock];
  alignas(32) uint8_t indices[kDitherBlock];
};

}  // namespace

/// Pixels of a block, and what reaches them from the lines above.
void DitherRun::PrepareBlock(DitherBlock& block, const uint8_t* line, uint32_t number, int64_t first) noexcept {
  const int64_t lanes = gray_ ? 1 : 4;
  const int16_t* rows[3];
  for (uint32_t above = 0; above < 3; ++above)
    rows[above] = static_cast<int32_t>(above) < kernel_.rows
                      ? RowOf(number + static_cast<uint32_t>(rows_) - 1 - above) + first * lanes
                      : nullptr;
  block.errors = RowOf(number) + first * lanes;
  auto* const pixels = const_cast<uint8_t*>(block.pixels);
  if (gray_) {
    source_.Levels(pixels, line, first, block.count);
    kernels_->dither->aboveGray(static_cast<int16_t*>(block.sums), rows, block.count, kernel_);
  } else {
    source_.Colors(pixels, line, first, block.count);
    kernels_->dither->above(block.sums, rows, block.count, kernel_);
  }
}

void DitherRun::Diffuse(const DitherBlock* blocks, int count) noexcept {
  if (gray_) {
    kernels_->dither->diffuseGray(blocks, count, kernel_, grayBits_);
  } else {
    kernels_->dither->diffuse(blocks, count, kernel_, colors_);
  }
}

void DitherRun::Line(uint8_t* indices, const uint8_t* line) noexcept { Lines(&indices, &line, 1); }

void DitherRun::Lines(uint8_t* const* indices, const uint8_t* const* lines, int count) noexcept {
  if (kernel_.rows == 0) {
    for (int line = 0; line < count; ++line) PlainLine(indices[line], lines[line]);
  } else if (rows_ >= kernel_.rows + kDitherGroup) {
    while (const int together = WaveOf(count)) {
      WaveLines(indices, lines, together);
      indices += together;
      lines += together;
      count -= together;
    }
    if (count > 0) DiffuseLines(indices, lines, count);
  } else {  // no room for lines beside each other
    for (int line = 0; line < count; ++line) DiffuseLines(indices + line, lines + line, 1);
  }
}

/// Up to kDitherGroup lines are on the way at once, each some blocks to the left of the one above: what reaches a pixel
/// from above, up to kDitherReach pixels to the right, must be known. A line that ends makes place for the next one.
void DitherRun::DiffuseLines(uint8_t* const* indices, const uint8_t* const* lines, int count) noexcept {
  BlockRoom room[kDitherGroup];
  int64_t done[kDitherGroup + 1];  // pixels of the lines on the way, by line modulo the size
  constexpr int kSize = kDitherGroup + 1;
  int oldest = 0, next = 0;  // lines oldest .. next - 1 are on the way
  while (oldest < count) {
    if (next < count && next - oldest < kDitherGroup) done[next++ % kSize] = 0;
    DitherBlock blocks[kDitherGroup];
    int64_t firsts[kDitherGroup];
    int owners[kDitherGroup];
    int ready = 0;
    for (int line = oldest; line < next; ++line) {
      const int64_t first = done[line % kSize];
      const int64_t above = line == oldest ? width_ : done[(line - 1) % kSize];
      const int64_t known = above == width_ ? width_ : (above - kDitherReach) & ~int64_t{7};
      const int64_t end = first + kDitherBlock < known ? first + kDitherBlock : known;
      if (first >= end) continue;
      BlockRoom& place = room[line % kDitherGroup];
      DitherBlock& block = blocks[ready];
      block = {place.pixels, place.sums, nullptr, place.indices, static_cast<int32_t>(end - first)};
      PrepareBlock(block, lines[line], lineNumber_ + static_cast<uint32_t>(line), first);
      firsts[ready] = first;
      owners[ready++] = line;
    }
    Diffuse(blocks, ready);
    for (int i = 0; i < ready; ++i) {
      PutIndices(indices[owners[i]], blocks[i].indices, firsts[i], blocks[i].count);
      done[owners[i] % kSize] += blocks[i].count;
    }
    while (oldest < next && done[oldest % kSize] == width_) ++oldest;
  }
  lineNumber_ += static_cast<uint32_t>(count);
}

}  // namespace tarn
