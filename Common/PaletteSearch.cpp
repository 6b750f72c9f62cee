// Questions about colours: the nearest entry, maps from palette to palette, gray scales, colours of another bitmap.

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/GrayParams.h"
#include "Common/Internal/Nearest.h"
#include "Common/Internal/PaletteMap.h"
#include "Common/Internal/PixelColor.h"
#include "Common/Internal/Storage.h"
#include "tarn/palette.h"

namespace tarn {
namespace {

constexpr uint32_t kNoEntry = 0xFFFFFFFF;

bool Holds(const T_PaletteEntry& entry, uint8_t level) noexcept {
  return entry.Red == level && entry.Green == level && entry.Blue == level;
}

/// Deliberate: black is looked for at the first entry and then at the last, white the other way round, before the
/// search proper. Black and white pages whose palette holds such an entry elsewhere too rely on the ends. False when
/// neither end decides.
bool AtAnEnd(const T_PaletteEntry* entries, uint32_t count, uint32_t color, uint32_t& index) noexcept {
  const uint32_t last = count - 1;
  if (color == 0) {
    if (Holds(entries[0], 0)) return index = 0, true;
    if (Holds(entries[last], 0)) return index = last, true;
  } else if (color == 0xFFFFFF) {
    if (Holds(entries[last], 255)) return index = last, true;
    if (Holds(entries[0], 255)) return index = 0, true;
  }
  return false;
}

constexpr uint32_t Packed(uint32_t red, uint32_t green, uint32_t blue) noexcept {
  return red << 16 | green << 8 | blue;
}

const uint8_t* BytesOf(const T_PaletteEntry* entries) noexcept { return &entries->Blue; }

bool SameColor(const T_PaletteEntry& a, const T_PaletteEntry& b) noexcept {
  return a.Red == b.Red && a.Green == b.Green && a.Blue == b.Blue;
}

// ---- Gray scales ---------------------------------------------------------------------------------------------------

bool IsGray(const T_PaletteEntry& entry) noexcept { return entry.Red == entry.Green && entry.Red == entry.Blue; }

/// The class that one gray entry decides.
int32_t ClassOf(const T_PaletteEntry& entry) noexcept { return entry.Red == 0 ? 1 : entry.Red < 255 ? 3 : 2; }

/// What a gray bitmap's lookup table may be long: all values of the significant bits, or of the pixel.
bool LutLengthHolds(const BitmapHandle& bitmap, uint32_t significant) noexcept {
  const uint64_t length = bitmap.LUTLength;
  if (!bitmap.LUT) return length == 0;
  const int32_t bits = bitmap.BitsPerPixel;
  const bool whole = bits > 0 && bits <= 32 && length == uint64_t{1} << bits;
  return (whole || length == uint64_t{1} << significant) && LutEntriesOf(bitmap) == length;
}

int32_t ClassOfGrayBitmap(const BitmapHandle& bitmap) noexcept {
  const int32_t bits = bitmap.BitsPerPixel;
  const auto significant = static_cast<uint32_t>(GrayParamsOf(bits, 32, bitmap.LowBit, bitmap.HighBit).significant);
  if (!LutLengthHolds(bitmap, significant)) return ERR_BAD_LUT_LENGTH;
  if (!bitmap.LUT || !(bitmap.Flags & T_FLAG_LUT_IN_USE)) return 1;
  const T_PaletteEntry* const lut = bitmap.LUT;
  const uint64_t length = bitmap.LUTLength;
  const uint64_t values = uint64_t{1} << significant;
  for (uint64_t i = 0; i < values && i < length; ++i)
    if (!IsGray(lut[i])) return 0;
  return ClassOf(lut[bitmap.Flags & T_FLAG_SIGNED_DATA ? length / 2 : 0]);
}

// ---- Colours of another bitmap -------------------------------------------------------------------------------------

bool HasPaletteDepth(const BitmapHandle& bitmap) noexcept { return bitmap.BitsPerPixel < 9; }

uint32_t IndexIn(const BitmapHandle& bitmap, uint32_t color) noexcept {
  return (T_GetNearestPaletteIndex(&bitmap, color) & 0xFFFF) | kIndexTag;
}

uint32_t PlainColor(const BitmapHandle& destination, uint32_t color) noexcept {
  return HasPaletteDepth(destination) ? IndexIn(destination, color) : color;
}

uint32_t TranslateGray(const BitmapHandle& destination, uint32_t color) noexcept {
  const uint32_t level = color >> 8 & 255;
  if (destination.Order != T_ORDER_GRAY) return PlainColor(destination, level | level << 8 | level << 16);
  if (!(destination.Flags & T_FLAG_LUT_IN_USE)) return color;
  // Deliberate: the last of 65536 entries is never found, which keeps 0xFFFF free for "none".
  const uint32_t held = LutEntriesOf(destination);
  const uint32_t index = T_FindPaletteIndex(destination.LUT, held < 65535 ? held : 65535, static_cast<uint8_t>(color),
                                            static_cast<uint8_t>(color >> 8), static_cast<uint8_t>(color >> 16));
  return (index & 0xFFFF) | kIndexTag;
}

uint32_t TranslateIndex(const BitmapHandle& destination, const BitmapHandle* source, uint32_t color) noexcept {
  const uint32_t index = color & 255;
  T_PaletteEntry entry;
  if (!source || !HasPaletteDepth(*source) || T_GetBitmapPaletteEntries(source, index, 1, &entry) != 1)
    return PlainColor(destination, 0);
  const uint32_t plain = entry.Red | entry.Green << 8 | static_cast<uint32_t>(entry.Blue) << 16;
  if (!HasPaletteDepth(destination)) return plain;
  T_PaletteEntry same;
  if (T_GetBitmapPaletteEntries(&destination, index, 1, &same) == 1 && SameColor(entry, same)) return color;
  return IndexIn(destination, plain);
}

}  // namespace

NearestSearch::NearestSearch(const T_PaletteEntry* entries, uint32_t count) noexcept
    : entries_(entries), count_(count), kernels_(Kernels()) {
  if (entries && count > 0 && count <= kPreparedEntries) PreparePalette(prepared_, BytesOf(entries), count);
}

uint32_t NearestSearch::Find(uint32_t red, uint32_t green, uint32_t blue) const noexcept {
  if (!entries_) return 0;
  if (count_ == 0) return kNoEntry;
  const uint32_t color = Packed(red, green, blue);
  uint32_t index = 0;
  if (AtAnEnd(entries_, count_, color, index)) return index;
  if (count_ > kPreparedEntries) return kernels_.nearestEntry(BytesOf(entries_), count_, color);
  return kernels_.nearestPrepared(prepared_, color);
}

void NearestSearch::FindCell(uint32_t cell, uint8_t* answers) const noexcept {
  kernels_.nearestCell(answers, prepared_, cell);
  uint32_t index = 0;  // black and white are the first colour of the first cell and the last of the last
  if (cell == 0 && AtAnEnd(entries_, count_, 0, index)) answers[0] = static_cast<uint8_t>(index);
  if (cell == kCells - 1 && AtAnEnd(entries_, count_, 0xFFFFFF, index))
    answers[kCellColors - 1] = static_cast<uint8_t>(index);
}

bool BuildPaletteIndexMap(const T_PaletteEntry* source, uint32_t sourceCount, const T_PaletteEntry* target,
                          uint32_t targetCount, uint8_t* map) noexcept {
  if (!source && !target) return true;
  if (source && target && targetCount >= sourceCount &&
      std::memcmp(source, target, sourceCount * sizeof(T_PaletteEntry)) == 0) {
    for (uint32_t i = 0; i < sourceCount; ++i) map[i] = static_cast<uint8_t>(i);
    return true;
  }
  const NearestSearch nearest(target, targetCount);
  bool identity = true;
  for (uint32_t i = 0; i < sourceCount; ++i) {
    uint32_t to;
    if (!source) {
      to = nearest.Find(i, i, i);
    } else {
      const T_PaletteEntry& entry = source[i];
      to = target ? nearest.Find(entry.Red, entry.Green, entry.Blue)
                  : (5u * entry.Green + 2u * entry.Red + entry.Blue + 4u) >> 3;
    }
    map[i] = static_cast<uint8_t>(to);
    identity = identity && map[i] == i;
  }
  return identity;
}

}  // namespace tarn

using namespace tarn;

uint32_t T_FindPaletteIndex(const T_PaletteEntry* entries, uint32_t count, uint8_t red, uint8_t green,
                            uint8_t blue) noexcept {
  if (!entries) return 0;
  if (count == 0) return kNoEntry;
  const uint32_t color = Packed(red, green, blue);
  uint32_t index = 0;
  if (AtAnEnd(entries, count, color, index)) return index;
  return Kernels().nearestEntry(BytesOf(entries), count, color);
}

int32_t T_CompareBitmapToPalette(const BitmapHandle* bitmap, const T_PaletteEntry* entries, uint32_t count) noexcept {
  if (!bitmap) return 0;
  const T_PaletteEntry* const own = bitmap->Palette;
  if (!own) return 1;
  if (!entries) return 0;
  const uint32_t held = PaletteEntriesOf(*bitmap);
  for (uint32_t i = 0; i < count && i < held; ++i)
    if (!SameColor(own[i], entries[i])) return 0;
  return 1;
}

int32_t T_IsGrayScalePalette(const T_PaletteEntry* entries, uint32_t count) noexcept {
  if (!entries) return ERR_INVALID_PARAMETER;
  for (uint32_t i = 0; i < count; ++i)
    if (!IsGray(entries[i])) return 0;
  if (count < 2) return ClassOf(entries[0]);
  const bool rising = entries[0].Red == 0;
  const auto step = static_cast<uint8_t>(255 / (count - 1));
  uint8_t level = rising ? 0 : 255;
  for (uint32_t i = 0; i < count; ++i) {
    if (entries[i].Red != level) return 3;
    level = static_cast<uint8_t>(rising ? level + step : level - step);
  }
  return rising ? 1 : 2;
}

int32_t T_IsGrayScaleBitmap(const BitmapHandle* bitmap) noexcept {
  TARN_TRY(RequireSize(bitmap, ERR_INVALID_PARAMETER));
  if (bitmap->Order == T_ORDER_GRAY) return ClassOfGrayBitmap(*bitmap);
  const int32_t bits = bitmap->BitsPerPixel;
  const uint32_t colors = bitmap->Colors;
  if (bits > 8 || colors == 0 || PaletteEntriesOf(*bitmap) != colors) return 0;
  const int32_t found = T_IsGrayScalePalette(bitmap->Palette, colors);
  const bool whole = bits >= 0 && colors == 1u << bits;
  return found == 0 || whole ? found : 3;
}

uint32_t T_TranslateBitmapColor(const BitmapHandle* destination, const BitmapHandle* source, uint32_t color) noexcept {
  if (!destination) return color;
  switch (color & kColorTag) {
    case kGrayTag:
      return TranslateGray(*destination, color);
    case kIndexTag:
      return TranslateIndex(*destination, source, color);
    default:
      return PlainColor(*destination, color);
  }
}
