// What a conversion is: which formats are accepted, which stages and tables a line needs.

#include "Common/Internal/LineConverter.h"

#include <cstring>

#include "Common/Internal/Geometry.h"
#include "tarn/convert.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

constexpr bool IsLineDepth(int32_t bits) noexcept { return bits == 0 || IsBitDepth(bits); }
constexpr bool HasAlpha(const LineSide& side) noexcept { return side.color && (side.bits == 32 || side.bits == 64); }
/// Orders that name a place for each channel.
constexpr bool NamesChannels(uint32_t order) noexcept { return order <= T_ORDER_BGR || order == T_ORDER_WIDE; }

LineSide SideOf(const LineFormat& format) noexcept {
  const int32_t bits = format.bits;
  const bool gray = format.order == T_ORDER_GRAY;
  return {.bits = bits == 0 ? 8 : bits,
          .gray = gray,
          .rgb = format.order == T_ORDER_RGB,
          .wide = format.order == T_ORDER_WIDE,
          .color = bits >= 16 && !gray,
          .ranged = false};
}

/// A depth that the order can have.
bool SideHolds(const LineFormat& format, const LineSide& side) noexcept {
  const int32_t bits = format.bits;
  if (!IsLineDepth(bits) || (bits == 12 && !side.gray)) return false;
  if (side.wide && bits != 24 && bits != 48) return false;
  return !side.gray || bits <= 16 || bits == 32;
}

/// Sets side.ranged; false for a range outside the sample. One that is the whole sample is none.
bool RangeHolds(LineSide& side, const LineOptions& options) noexcept {
  const int32_t low = options.lowBit < 0 ? 0 : options.lowBit;
  const int32_t high = options.highBit < 0 ? side.bits - 1 : options.highBit;
  side.ranged = low > 0 || high != side.bits - 1;
  return low <= high && high < side.bits;
}

GrayParams BitsOf(const LineSide& side, int32_t most, const LineOptions& options) noexcept {
  return GrayParamsOf(side.bits, most, side.ranged ? options.lowBit : -1, side.ranged ? options.highBit : -1);
}

const T_PaletteEntry* PaletteOf(const LineFormat& format) noexcept {
  return format.palette ? format.palette : T_IntGetFixedPalette(static_cast<uint32_t>(format.bits));
}

/// A canonical colour as 8-bit gray.
constexpr uint32_t GrayOf(uint32_t color) noexcept {
  return (5 * (color >> 8 & 255) + 2 * (color >> 16 & 255) + (color & 255) + 4) >> 3;
}

/// 8-bit gray as a sample of the target.
constexpr uint32_t SampleOf(uint32_t gray, const GrayParams& target) noexcept {
  const int32_t d = target.significant;
  const uint64_t level = d < 8 ? gray >> (8 - d) : ((uint64_t{gray} << d) - gray) / 255;
  return static_cast<uint32_t>(level << target.shift);
}

}  // namespace

Status LineConverter::OpenSides(const LineFormat& source, const LineFormat& target,
                                const LineOptions& options) noexcept {
  k_.source = SideOf(source);
  k_.target = SideOf(target);
  const bool sourceRange = k_.source.gray && (options.flags & T_CONVERT_SOURCE_RANGE);
  const bool targetRange = (options.flags & T_CONVERT_TARGET_RANGE) != 0;
  if (targetRange && (sourceRange || !k_.target.gray)) return ERR_INVALID_PARAMETER;
  if (!SideHolds(source, k_.source) || !SideHolds(target, k_.target)) return ERR_INVALID_PARAMETER;
  if (source.bits == 24 && !NamesChannels(source.order)) return ERR_INVALID_PARAMETER;
  if (k_.source.color && k_.target.color && !NamesChannels(target.order)) return ERR_INVALID_PARAMETER;
  if (sourceRange && !RangeHolds(k_.source, options)) return ERR_INVALID_PARAMETER;
  if (targetRange && !RangeHolds(k_.target, options)) return ERR_INVALID_PARAMETER;
  return SUCCESS;
}

Status LineConverter::Open(const LineFormat& source, const LineFormat& target, const LineOptions& options) noexcept {
  TARN_TRY(OpenSides(source, target, options));
  k_.kernels = Kernels().pixels;
  ChooseStages(source, target);
  const bool bytes = k_.form == Form::kBytes || k_.form == Form::kColor8;
  k_.deep = BitsOf(k_.source, bytes ? 8 : source.bits == 32 && target.bits == 32 ? 32 : 16, options);
  k_.samples = BitsOf(k_.target, 32, options);
  k_.toWide = k_.target.wide && !k_.source.wide;
  k_.fromWide = k_.source.wide && !k_.target.wide;
  const bool filled = (options.flags & (T_CONVERT_ALPHA | T_CONVERT_OPAQUE)) != 0;
  k_.keepAlpha = HasAlpha(k_.source) && !filled;
  k_.alpha = filled ? 255 : 0;
  MakeTables(source, target);
  identity_ = FindIdentity();
  whole_ = FuseLine(k_);
  return SUCCESS;
}

void LineConverter::ChooseStages(const LineFormat& source, const LineFormat& target) noexcept {
  if (k_.source.color) {
    k_.domain = source.bits >= 48 ? Domain::kColor16 : Domain::kColor8;
  } else if (source.bits > 8) {
    k_.domain = Domain::kDeep;
  } else {
    k_.domain = source.bits == 0 && !k_.source.ranged ? Domain::kLevel8 : Domain::kIndex;
  }
  if (k_.target.color) {
    k_.form = target.bits >= 48 ? Form::kColor16 : Form::kColor8;
  } else {
    k_.form = target.bits > 8 ? Form::kValues : Form::kBytes;
  }
  k_.nearest = k_.form == Form::kBytes && !k_.target.gray && target.bits != 0;
  if (k_.domain == Domain::kIndex && !k_.nearest && IndicesAreLevels(source)) k_.domain = Domain::kLevel8;
  read_ = LineReader(k_.source.bits, k_.source.color);
  step_ = LineStepOf(k_.domain, k_.form);
  write_ = LineWriter(k_.target.bits, k_.target.color);
}

/// Indices of 8 bits whose palette is the gray ramp are their own levels.
bool LineConverter::IndicesAreLevels(const LineFormat& source) const noexcept {
  if (source.bits != 8 || k_.source.ranged) return false;
  if (k_.source.gray) return true;
  uint32_t differs = 0;
  const auto* const palette = reinterpret_cast<const uint8_t*>(PaletteOf(source));
  for (uint32_t i = 0; i < 256; ++i) {
    uint32_t entry;
    std::memcpy(&entry, palette + size_t{4} * i, 4);
    differs |= (entry ^ i * 0x010101) & 0xFFFFFF;
  }
  return differs == 0;
}

/// Tables from indices or 8-bit levels to colours and to what the target stores.
void LineConverter::MakeTables(const LineFormat& source, const LineFormat& target) noexcept {
  const bool indexed = k_.domain == Domain::kIndex;
  const uint32_t count = indexed ? 1u << k_.source.bits : 256;
  if (indexed && k_.source.gray) {  // levels packed like indices: a palette of those levels
    for (uint32_t i = 0; i < count; ++i)
      k_.colors[i] = (i >> k_.deep.shift & k_.deep.mask) * 255 / k_.deep.mask * 0x010101u;
  } else if (indexed) {
    std::memcpy(k_.colors, PaletteOf(source), count * sizeof(T_PaletteEntry));
  }
  k_.bytesSame = true;
  if (k_.nearest) {
    k_.map.Open(PaletteOf(target), 1u << target.bits);
    const auto* const palette = indexed ? reinterpret_cast<const T_PaletteEntry*>(k_.colors) : nullptr;
    if (!k_.source.color) k_.bytesSame = k_.map.IndexMap(palette, count, k_.bytes);
  } else if (k_.form == Form::kBytes) {
    if (!indexed && k_.samples.significant == 8) return;  // bytes are levels
    for (uint32_t i = 0; i < count; ++i) {
      k_.bytes[i] = static_cast<uint8_t>(SampleOf(indexed ? GrayOf(k_.colors[i]) : i, k_.samples));
      k_.bytesSame = k_.bytesSame && k_.bytes[i] == i;
    }
  } else if (k_.form == Form::kValues && k_.domain != Domain::kDeep && k_.domain != Domain::kColor16) {
    if (k_.domain == Domain::kLevel8 && target.bits == 16 && !k_.target.ranged) return;  // one kernel, see FuseLine
    for (uint32_t i = 0; i < count; ++i) k_.values[i] = SampleOf(indexed ? GrayOf(k_.colors[i]) : i, k_.samples);
  }
}

bool LineConverter::FindIdentity() const noexcept {
  if (k_.source.bits != k_.target.bits) return false;
  if (k_.source.color && k_.target.color) {
    return k_.SameOrder() && !k_.toWide && !k_.fromWide && (k_.keepAlpha || !HasAlpha(k_.source));
  }
  if (k_.domain == Domain::kDeep) return k_.form == Form::kValues && !k_.source.ranged && !k_.target.ranged;
  return !k_.source.color && k_.form == Form::kBytes && k_.bytesSame;
}

void LineConverter::ConvertBlock(uint8_t* target, const uint8_t* source, int count) const noexcept {
  alignas(32) uint8_t block[8 * kLineBlock];
  alignas(32) uint8_t stepped[8 * kLineBlock];
  read_(block, source, count, k_);
  if (k_.fromWide) FromWideGamut(block, count, k_.domain == Domain::kColor16);
  uint8_t* const form = step_ ? stepped : block;
  if (step_) step_(form, block, count, k_);
  if (k_.toWide) ToWideGamut(form, count, k_.form == Form::kColor16);
  write_(target, form, count, k_);
}

/// A line in place whose pixels get wider: its end lies behind all of its source, and what is then the end again, until
/// little is left. Memory is filled upwards that way, which it takes faster. Returns the pixels left at the beginning.
int64_t LineConverter::ConvertEnd(uint8_t* target, const uint8_t* source, int64_t width) const noexcept {
  const int32_t from = k_.source.bits, to = k_.target.bits;
  while (width > kLineBlock) {
    const int64_t first = ((width * from + to - 1) / to + 63) / 64 * 64;
    if (first >= width) break;
    whole_(target + first * to / 8, source + first * from / 8, width - first, k_);
    width = first;
  }
  return width;
}

void LineConverter::Convert(uint8_t* target, const uint8_t* source, int64_t width) const noexcept {
  const int32_t from = k_.source.bits, to = k_.target.bits;
  if (identity_) {
    if (target != source) std::memcpy(target, source, static_cast<size_t>((width * from + 7) / 8));
    return;
  }
  if (whole_) {
    if (target == source && to > from) width = ConvertEnd(target, source, width);
    whole_(target, source, width, k_);
    return;
  }
  // Blocks of a multiple of 8 pixels begin at whole bytes. Where pixels get wider the last block goes first, so that no
  // block overwrites what is still to be read.
  const int64_t blocks = (width + kLineBlock - 1) / kLineBlock;
  for (int64_t i = 0; i < blocks; ++i) {
    const int64_t first = (to > from ? blocks - 1 - i : i) * kLineBlock;
    const int64_t left = width - first;
    ConvertBlock(target + first * to / 8, source + first * from / 8,
                 static_cast<int>(left < kLineBlock ? left : kLineBlock));
  }
}

}  // namespace tarn
