// Fixed palettes, gray ramps and the palette a bitmap owns.

#include "tarn/palette.h"

#include <cstring>

#include "Common/Internal/Checks.h"
#include "Common/Internal/Storage.h"
#include "Platform/Here.h"
#include "tarn/memory.h"

namespace tarn {
namespace {

constexpr uint32_t kMostEntries = 256;

constexpr uint8_t Byte(uint32_t value) noexcept { return static_cast<uint8_t>(value); }

// k * 255 / 7, rounded.
constexpr uint32_t SevenStep(uint32_t k) noexcept { return (k * 255 * 2 + 7) / 14; }

constexpr T_PaletteEntry Rgb(uint32_t red, uint32_t green, uint32_t blue) noexcept {
  return {Byte(blue), Byte(green), Byte(red), 0};
}

template <uint32_t Count>
struct Table {
  T_PaletteEntry entries[Count];
};

template <uint32_t Count, class Make>
constexpr Table<Count> Generate(Make make) noexcept {
  Table<Count> table{};
  for (uint32_t i = 0; i < Count; ++i) table.entries[i] = make(i);
  return table;
}

constexpr auto kFixed1 = Generate<2>([](uint32_t i) { return Rgb(255 * i, 255 * i, 255 * i); });
constexpr auto kFixed2 = Generate<4>([](uint32_t i) { return Rgb(85 * i, 85 * i, 85 * i); });
constexpr auto kFixed3 =
    Generate<8>([](uint32_t i) { return Rgb(255 * (i >> 2 & 1), 255 * (i >> 1 & 1), 255 * (i & 1)); });
constexpr Table<16> kFixed4 = {{Rgb(0, 0, 0), Rgb(128, 0, 0), Rgb(0, 128, 0), Rgb(128, 128, 0), Rgb(0, 0, 128),
                                Rgb(128, 0, 128), Rgb(0, 128, 128), Rgb(128, 128, 128), Rgb(192, 192, 192),
                                Rgb(255, 0, 0), Rgb(0, 255, 0), Rgb(255, 255, 0), Rgb(0, 0, 255), Rgb(255, 0, 255),
                                Rgb(0, 255, 255), Rgb(255, 255, 255)}};
constexpr auto kFixed5 =
    Generate<32>([](uint32_t i) { return Rgb(85 * (i >> 3 & 3), 85 * (i >> 1 & 3), 255 * (i & 1)); });
constexpr auto kFixed6 =
    Generate<64>([](uint32_t i) { return Rgb(85 * (i >> 4 & 3), 85 * (i >> 2 & 3), 85 * (i & 3)); });
constexpr auto kFixed7 =
    Generate<128>([](uint32_t i) { return Rgb(85 * (i >> 5 & 3), SevenStep(i >> 2 & 7), 85 * (i & 3)); });
constexpr auto kFixed8 =
    Generate<256>([](uint32_t i) { return Rgb(SevenStep(i >> 5 & 7), SevenStep(i >> 2 & 7), 85 * (i & 3)); });
constexpr auto kWeb = Generate<216>([](uint32_t i) { return Rgb(51 * (i / 36), 51 * (i / 6 % 6), 51 * (i % 6)); });

// Four colours from a two-colour table: see T_CreateBitmapFixedPalette.
constexpr Table<4> kTwoOfFour = {{Rgb(0, 0, 0), Rgb(255, 255, 255), Rgb(0, 0, 0), {0, 0, 0, 128}}};

void FillGrayRamp(T_PaletteEntry* entries, uint32_t count) noexcept {
  for (uint32_t i = 0; i < count; ++i) {
    const uint32_t level = i * 255 / (count - 1);
    entries[i] = Rgb(level, level, level);
  }
}

T_PaletteEntry* NewEntries(uint32_t count, bool zeroed) noexcept {
  const Here here = TARN_HERE;
  void* const block = zeroed ? T_GlobalAllocInit(count, sizeof(T_PaletteEntry), here.line, here.file)
                             : T_GlobalAlloc(count, sizeof(T_PaletteEntry), here.line, here.file);
  return static_cast<T_PaletteEntry*>(block);
}

void FreePalette(BitmapHandle& bitmap) noexcept {
  const Here here = TARN_HERE;
  if (bitmap.Palette) T_GlobalFree(bitmap.Palette, here.line, here.file);
  bitmap.Palette = nullptr;
}

}  // namespace
}  // namespace tarn

using namespace tarn;

int32_t T_GetFixedPalette(T_PaletteEntry* entries, uint32_t bits) noexcept {
  if (!entries || bits > 8) return ERR_INVALID_PARAMETER;
  if (bits == 0) {
    FillGrayRamp(entries, 256);
  } else {
    std::memcpy(entries, T_IntGetFixedPalette(bits), sizeof(T_PaletteEntry) << bits);
  }
  return SUCCESS;
}

const T_PaletteEntry* T_IntGetFixedPalette(uint32_t bits) noexcept {
  switch (bits) {
    case 1:
      return kFixed1.entries;
    case 2:
      return kFixed2.entries;
    case 3:
      return kFixed3.entries;
    case 4:
      return kFixed4.entries;
    case 5:
      return kFixed5.entries;
    case 6:
      return kFixed6.entries;
    case 7:
      return kFixed7.entries;
    case 8:
      return kFixed8.entries;
    default:
      return nullptr;
  }
}

const T_PaletteEntry* T_IntGetNetscapePalette() noexcept { return kWeb.entries; }

T_PaletteEntry* T_CreateFixedPalette(uint32_t bits) noexcept {
  const uint32_t table = bits == 0 ? 1 : bits;
  return T_CreateNewPalette(T_IntGetFixedPalette(table), table <= 8 ? 1u << table : 0);
}

T_PaletteEntry* T_CreateNewPalette(const T_PaletteEntry* entries, uint32_t count) noexcept {
  if (!entries || count == 0 || count > kMostEntries) return nullptr;
  T_PaletteEntry* const block = NewEntries(count, false);
  if (block) std::memcpy(block, entries, count * sizeof(T_PaletteEntry));
  return block;
}

T_PaletteEntry* T_CreateGrayPalette(uint32_t bits) noexcept {
  if (bits > 8) return nullptr;
  const uint32_t count = 1u << (bits ? bits : 8);
  T_PaletteEntry* const block = NewEntries(count, false);
  if (block) FillGrayRamp(block, count);
  return block;
}

int32_t T_CreateBitmapGrayPalette(BitmapHandle* bitmap) noexcept {
  if (!bitmap) return ERR_INVALID_PARAMETER;
  const int32_t bits = bitmap->BitsPerPixel;
  if (bits < 1 || bits > 8) return ERR_BAD_BITS_PER_PIXEL;
  T_PaletteEntry* const ramp = T_CreateGrayPalette(static_cast<uint32_t>(bits));
  if (!ramp) return ERR_NO_MEMORY;
  bitmap->Colors = 1u << bits;
  bitmap->Palette = ramp;
  return SUCCESS;
}

int32_t T_CreateBitmapFixedPalette(BitmapHandle* bitmap) noexcept {
  if (!bitmap) return ERR_INVALID_PARAMETER;
  const uint32_t colors = bitmap->Colors;
  const T_PaletteEntry* table = nullptr;
  for (uint32_t bits = 1; bits <= 8; ++bits) {
    if (colors == 1u << bits) table = T_IntGetFixedPalette(bits);
  }
  if (colors == 4) table = kTwoOfFour.entries;
  if (!table) return 0;
  bitmap->Palette = T_CreateNewPalette(table, colors);
  return bitmap->Palette ? SUCCESS : ERR_NO_MEMORY;
}

int32_t T_SetBitmapNewPalette(BitmapHandle* bitmap, const T_PaletteEntry* entries, uint32_t count) noexcept {
  // The old entries may be the new ones: they are copied before they are freed.
  T_PaletteEntry* const copy = T_CreateNewPalette(entries, count);
  FreePalette(*bitmap);
  if (!entries) return SUCCESS;
  bitmap->Colors = count;
  bitmap->Palette = copy;
  return copy ? SUCCESS : 0;
}

int32_t T_CopyBitmapPalette(BitmapHandle* destination, const BitmapHandle* source) noexcept {
  if (!destination || !source) return ERR_INVALID_PARAMETER;
  TARN_TRY(RequireSize(source, ERR_INVALID_PARAMETER));
  TARN_TRY(RequireSize(destination, ERR_INVALID_PARAMETER));
  if (destination == source) return SUCCESS;
  if (source->Palette) {
    const uint32_t colors = source->Colors;
    return T_SetBitmapNewPalette(destination, source->Palette, colors == PaletteEntriesOf(*source) ? colors : 0);
  }
  FreePalette(*destination);
  destination->Colors = 0;
  return SUCCESS;
}

int32_t T_PutBitmapColors(BitmapHandle* bitmap, int32_t first, uint32_t count, const T_PaletteEntry* entries) noexcept {
  TARN_TRY(RequireAllocatedThenSize(bitmap, ERR_NO_BITMAP));
  const uint64_t end = static_cast<uint64_t>(first) + count;
  if (first < 0 || !entries || bitmap->BitsPerPixel > 8 || end > bitmap->Colors) return ERR_INVALID_PARAMETER;
  if (bitmap->Palette ? end > PaletteEntriesOf(*bitmap) : bitmap->Colors > kMostEntries) return ERR_INVALID_PARAMETER;
  if (!bitmap->Palette) {
    bitmap->Palette = NewEntries(bitmap->Colors, true);
    if (!bitmap->Palette) return ERR_NO_MEMORY;
  }
  std::memcpy(bitmap->Palette + first, entries, count * sizeof(T_PaletteEntry));
  return SUCCESS;
}

int32_t T_GetBitmapColors(const BitmapHandle* bitmap, uint32_t first, uint32_t count,
                          T_PaletteEntry* entries) noexcept {
  TARN_TRY(RequireSize(bitmap, ERR_NO_BITMAP));
  if (count == 0 || bitmap->BitsPerPixel > 8) return ERR_INVALID_PARAMETER;
  return T_GetBitmapPaletteEntries(bitmap, first, count, entries) == count ? SUCCESS : ERR_INVALID_PARAMETER;
}

uint32_t T_GetBitmapPaletteEntries(const BitmapHandle* bitmap, uint32_t first, uint32_t count,
                                   T_PaletteEntry* entries) noexcept {
  if (!bitmap || !entries || !bitmap->Palette || first >= PaletteEntriesOf(*bitmap)) return 0;
  const uint32_t left = PaletteEntriesOf(*bitmap) - first;
  const uint32_t copied = count < left ? count : left;
  std::memcpy(entries, bitmap->Palette + first, copied * sizeof(T_PaletteEntry));
  return copied;
}
