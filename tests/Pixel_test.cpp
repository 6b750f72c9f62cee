// Single pixels of every format and storage kind against a slow model: bits moved one at a time, colours by the rules
// written out anew.

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <functional>
#include <vector>

#include "Common/Internal/KnownExtents.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Random.h"

using tarn::engine::Bytes;
using tarn::engine::Kind;
using tarn::engine::Picture;
using tarn::engine::Random;
using tarn::engine::Shape;
using tarn::test::V;

namespace {

/// One bit of a row, numbered the way pixels are: from the top of the first byte below 8 bits, else from its bottom.
bool BitOf(const Bytes& row, uint64_t bit, bool topFirst) {
  return row[bit / 8] >> (topFirst ? 7 - bit % 8 : bit % 8) & 1;
}

uint64_t PixelAt(const Bytes& row, int32_t bits, int32_t column) {
  uint64_t pixel = 0;
  for (int32_t i = 0; i < bits; ++i) {
    const bool topFirst = bits < 8;
    const uint64_t bit = BitOf(row, uint64_t(column) * bits + i, topFirst);
    pixel |= topFirst ? bit << (bits - 1 - i) : bit << i;
  }
  return pixel;
}

void SetPixel(Bytes& row, int32_t bits, int32_t column, uint64_t pixel, uint64_t mask) {
  for (int32_t i = 0; i < bits; ++i) {
    const bool topFirst = bits < 8;
    const int32_t of = topFirst ? bits - 1 - i : i;
    if (!(mask >> of & 1)) continue;
    const uint64_t at = uint64_t(column) * bits + i;
    const auto one = static_cast<uint8_t>(topFirst ? 0x80 >> at % 8 : 1 << at % 8);
    if (pixel >> of & 1)
      row[at / 8] |= one;
    else
      row[at / 8] &= static_cast<uint8_t>(~one);
  }
}

struct Format {
  int32_t bits;
  uint32_t order;
  int32_t low = 0;
  int32_t high = -1;
  uint32_t lut = 0;  // entries of a lookup table
};
constexpr Format kFormats[] = {{1, 0},
                               {2, 0},
                               {3, 0},
                               {4, 0},
                               {5, 0},
                               {6, 0},
                               {7, 0},
                               {8, 0},
                               {12, 2, 0, 11},
                               {12, 2, 2, 9},
                               {12, 2, 3, 6},
                               {12, 2, 0, 11, 4096},
                               {16, 0},
                               {16, 1},
                               {16, 2, 0, 15},
                               {16, 2, 4, 12},
                               {16, 2, 1, 4, 16},
                               {24, 0},
                               {24, 1},
                               {24, 5},
                               {32, 0},
                               {32, 1},
                               {32, 2, 0, 31},
                               {48, 0},
                               {48, 1},
                               {48, 5},
                               {64, 0},
                               {64, 1}};

std::string Text(const Format& f) {
  return std::to_string(f.bits) + " bits, order " + std::to_string(f.order) + ", range " + std::to_string(f.low) +
         ".." + std::to_string(f.high) + ", table " + std::to_string(f.lut);
}

T_PaletteEntry EntryAt(uint32_t i) {
  return {static_cast<uint8_t>(i * 37 + 11), static_cast<uint8_t>(i * 91 + 5), static_cast<uint8_t>(i * 53), 0};
}

using Channels = std::array<int64_t, 3>;

int64_t Clamp(int64_t value, int64_t most) { return value < 0 ? 0 : value > most ? most : value; }

/// Stored samples of the wide order to blue, green, red, and back.
Channels FromWide(const Channels& p, int64_t most) {
  return {Clamp((9467 * p[0] - 1151 * p[1] - 125 * p[2] + 4095) / 8192, most),
          Clamp((-305 * p[0] + 10232 * p[1] - 1735 * p[2] + 4095) / 8192, most),
          Clamp((-2156 * p[0] - 6498 * p[1] + 16846 * p[2] + 4095) / 8192, most)};
}
Channels ToWide(const Channels& bgr, int64_t most) {
  return {Clamp((7151 * bgr[0] + 897 * bgr[1] + 145 * bgr[2] + 4095) >> 13, most),
          Clamp((394 * bgr[0] + 7067 * bgr[1] + 731 * bgr[2] + 4095) >> 13, most),
          Clamp((1067 * bgr[0] + 2841 * bgr[1] + 4284 * bgr[2] + 4095) >> 13, most)};
}

uint32_t Rgb(int64_t r, int64_t g, int64_t b) { return static_cast<uint32_t>(r | g << 8 | b << 16); }
uint32_t RgbOf(const T_PaletteEntry& e) { return Rgb(e.Red, e.Green, e.Blue); }

uint32_t SlowColor(const Format& f, uint64_t pixel) {
  if (f.bits <= 8) return RgbOf(EntryAt(static_cast<uint32_t>(pixel)));
  if (f.order == 2) {
    if (f.bits == 32) return 0x80000000;
    const uint64_t maximum = (uint64_t{1} << (f.high - f.low + 1)) - 1;
    const uint64_t sample = pixel >> f.low & maximum;
    if (f.lut) return RgbOf(EntryAt(static_cast<uint32_t>(sample)));
    return static_cast<uint32_t>(sample * 65535 / maximum) | 0x04000000;
  }
  const int sampleBits = f.bits == 16 ? 5 : f.bits < 48 ? 8 : 16;
  Channels c;
  for (int i = 0; i < 3; ++i) c[i] = static_cast<int64_t>(pixel >> i * sampleBits & ((1 << sampleBits) - 1));
  if (f.order == 5) c = FromWide(c, (1 << sampleBits) - 1);
  for (auto& v : c) v = sampleBits == 5 ? v * 8 + v / 4 : v >> (sampleBits - 8);
  return f.order == 0 ? Rgb(c[0], c[1], c[2]) : Rgb(c[2], c[1], c[0]);
}

/// The pixel that a put makes of another one.
uint64_t SlowPut(const Format& f, uint64_t old, uint32_t color) {
  const bool level = color >> 24 == 4;
  int64_t r = color & 255, g = color >> 8 & 255, b = color >> 16 & 255;
  if (level) r = b = g;
  const int64_t gray = (5 * g + 2 * r + b + 4) / 8;
  if (f.bits <= 8) {
    std::vector<T_PaletteEntry> palette;
    for (uint32_t i = 0; i < 1u << f.bits; ++i) palette.push_back(EntryAt(i));
    return T_FindPaletteIndex(palette.data(), static_cast<uint32_t>(palette.size()), static_cast<uint8_t>(r),
                              static_cast<uint8_t>(g), static_cast<uint8_t>(b));
  }
  if (f.order == 2) {
    const int64_t v = color & 65535;
    if (f.bits == 32) return static_cast<uint64_t>(level ? v << 16 | v : gray << 24 | gray << 16 | gray << 8 | gray);
    const int d = f.high - f.low + 1;
    int64_t sample;
    if (f.lut) {
      std::vector<T_PaletteEntry> table;
      for (uint32_t i = 0; i < f.lut; ++i) table.push_back(EntryAt(i));
      sample = T_FindPaletteIndex(table.data(), f.lut, static_cast<uint8_t>(r), static_cast<uint8_t>(g),
                                  static_cast<uint8_t>(b));
    } else if (level) {
      sample = d == 16 ? v : (v * ((1 << d) - 1) + 65534) / 65535;
    } else {
      sample = d > 8 ? gray * ((1 << d) - 1) / 255 : gray >> (8 - d);
    }
    return static_cast<uint64_t>(sample << f.low);
  }
  const int sampleBits = f.bits == 16 ? 5 : f.bits < 48 ? 8 : 16;
  Channels bgr = {b, g, r};
  for (auto& c : bgr) c = sampleBits == 5 ? c >> 3 : sampleBits == 8 ? c : c * 257;
  if (f.order == 5) bgr = ToWide(bgr, (1 << sampleBits) - 1);
  if (f.order == 0) std::swap(bgr[0], bgr[2]);
  const uint64_t mask = (uint64_t{1} << 3 * sampleBits) - 1;
  uint64_t pixel = 0;
  for (int i = 0; i < 3; ++i) pixel |= static_cast<uint64_t>(bgr[i]) << i * sampleBits;
  return (old & ~mask) | pixel;
}

void Furnish(BitmapHandle& record, const Format& f) {
  record.Order = f.order;
  record.LowBit = f.low;
  record.HighBit = f.high;
  std::vector<T_PaletteEntry> entries;
  for (uint32_t i = 0; i < (f.lut ? f.lut : 256u); ++i) entries.push_back(EntryAt(i));
  if (f.bits <= 8) T_SetBitmapNewPalette(&record, entries.data(), 1u << f.bits);
  if (!f.lut) return;
  record.LUT = static_cast<T_PaletteEntry*>(T_GlobalAlloc(f.lut, sizeof(T_PaletteEntry), 1, L"here"));
  std::memcpy(record.LUT, entries.data(), f.lut * sizeof(T_PaletteEntry));
  record.LUTLength = f.lut;
  record.Flags |= T_FLAG_LUT_IN_USE;
}

constexpr int32_t kWidth = 21;
constexpr int32_t kHeight = 7;

Bytes RowOf(const BitmapHandle& record, int32_t row) {
  Bytes all;
  EXPECT_EQ(tarn::engine::ReadPixels(record, all), "");
  const auto first = all.begin() + static_cast<std::ptrdiff_t>(row) * record.BytesPerLine;
  return {first, first + record.BytesPerLine};
}

void CheckFormat(const Format& f, Kind kind) {
  SCOPED_TRACE(Text(f) + ", " + tarn::engine::NameOf(kind));
  Picture picture;
  const Shape shape{kWidth, kHeight, f.bits};
  if (!shape.Suits(kind)) return;
  ASSERT_EQ(picture.Make(kind, shape, 5), "");
  BitmapHandle& record = picture.record;
  Furnish(record, f);
  Random random(static_cast<uint64_t>(f.bits) * 10 + f.order);
  for (int round = 0; round < 40; ++round) {
    const auto row = static_cast<int32_t>(random.Below(kHeight));
    const int32_t column = round < 4 ? (round % 2 ? kWidth - 1 : 0) : static_cast<int32_t>(random.Below(kWidth));
    Bytes wanted = RowOf(record, row);
    const uint64_t old = PixelAt(wanted, f.bits, column);
    ASSERT_EQ(T_GetPixelColor(&record, row, column), SlowColor(f, old)) << row << ' ' << column;

    auto color = static_cast<uint32_t>(random.Next());
    color = random.OneIn(2) ? (color & 0xFFFF) | 0x04000000 : color & 0xFFFFFF;
    SetPixel(wanted, f.bits, column, SlowPut(f, old, color), ~uint64_t{});
    ASSERT_EQ(T_PutPixelColor(&record, row, column, color), SUCCESS);
    ASSERT_EQ(RowOf(record, row), wanted) << std::hex << color << " at " << row << ' ' << column;

    // The same colour as bytes: what a put leaves alone is 0 there.
    uint8_t bytes[8] = {};
    ASSERT_EQ(T_ColorToPixel(&record, color, bytes, 8), SUCCESS);
    uint64_t number = 0;
    std::memcpy(&number, bytes, 8);
    ASSERT_EQ(number, SlowPut(f, 0, color)) << std::hex << color;

    // Raw bytes, and their neighbours' bits with them.
    const int64_t first = int64_t{column} * f.bits / 8;
    const int64_t count = ((int64_t{column} + 1) * f.bits + 7) / 8 - first;
    uint8_t raw[8] = {};
    ASSERT_EQ(T_GetPixelData(&record, raw, row, column, static_cast<uint64_t>(count)), SUCCESS);
    ASSERT_EQ(std::memcmp(raw, wanted.data() + first, static_cast<size_t>(count)), 0);
    ASSERT_EQ(T_GetPixelData(&record, raw, row, column, static_cast<uint64_t>(count) - 1), ERR_INVALID_PARAMETER);
    ASSERT_EQ(T_PutPixelData(&record, raw, row, column, static_cast<uint64_t>(count) - 1), ERR_INVALID_PARAMETER);
    raw[0] ^= 0x80;
    wanted[static_cast<size_t>(first)] ^= 0x80;
    ASSERT_EQ(T_PutPixelData(&record, raw, row, column, 8), SUCCESS);
    ASSERT_EQ(RowOf(record, row), wanted);
  }
}

}  // namespace

TEST(Pixel, EveryFormatAndStorage) {
  const tarn::engine::ThresholdScope scope;
  for (const Format& f : kFormats) {
    for (int kind = 0; kind < tarn::engine::kKinds; ++kind) {
      CheckFormat(f, static_cast<Kind>(kind));
      if (HasFatalFailure()) return;
    }
  }
}

TEST(Pixel, ByHand) {
  Picture gray;
  ASSERT_EQ(gray.MakeBlank(Kind::kBlock, {5, 2, 16}), "");
  gray.record.Order = T_ORDER_GRAY;
  const uint8_t word[] = {0x34, 0x12};
  ASSERT_EQ(T_PutPixelData(&gray.record, word, 1, 4, 2), SUCCESS);
  EXPECT_EQ(T_GetPixelColor(&gray.record, 1, 4), 0x04001234u);
  gray.record.Order = T_ORDER_BGR;
  const uint8_t ones[] = {0xFF, 0x7F};
  ASSERT_EQ(T_PutPixelData(&gray.record, ones, 0, 0, 2), SUCCESS);
  EXPECT_EQ(T_GetPixelColor(&gray.record, 0, 0), 0x00FFFFFFu);
  Picture twelve;
  ASSERT_EQ(twelve.MakeBlank(Kind::kBlock, {5, 2, 12}), "");
  ASSERT_EQ(T_PutPixelColor(&twelve.record, 0, 1, 0x0400FFFF), SUCCESS);
  EXPECT_EQ(T_GetPixelColor(&twelve.record, 0, 1), 0x0400FFFFu);
  EXPECT_EQ(T_GetPixelColor(&twelve.record, 0, 0), 0x04000000u);
  uint8_t bytes[2] = {};
  ASSERT_EQ(T_GetPixelData(&twelve.record, bytes, 0, 1, 2), SUCCESS);
  EXPECT_EQ(bytes[0], 0xF0);
  EXPECT_EQ(bytes[1], 0xFF);
}

TEST(Pixel, ChecksInTheirOrder) {
  Picture p;
  ASSERT_EQ(p.MakeBlank(Kind::kBlock, {9, 4, 24}), "");
  BitmapHandle& b = p.record;
  uint8_t buffer[8] = {};
  EXPECT_EQ(T_GetPixelColor(nullptr, 0, 0), T_NO_COLOR);
  EXPECT_EQ(T_PutPixelColor(nullptr, 0, 0, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_GetPixelData(nullptr, buffer, 0, 0, 8), ERR_NO_BITMAP);
  EXPECT_EQ(T_GetPixelData(&b, nullptr, 0, 0, 8), ERR_NO_BITMAP);
  const struct {
    int32_t row, column;
  } outside[] = {{-1, 0}, {4, 0}, {0, -1}, {0, 9}, {INT32_MIN, INT32_MAX}, {INT32_MAX, INT32_MIN}};
  for (const auto& o : outside) {
    EXPECT_EQ(T_GetPixelColor(&b, o.row, o.column), T_NO_COLOR);
    EXPECT_EQ(T_PutPixelColor(&b, o.row, o.column, 0), ERR_EMPTY_AREA);
  }
  for (const int32_t row : {-1, 4, INT32_MIN}) EXPECT_EQ(T_GetPixelData(&b, buffer, row, 0, 8), ERR_NO_MEMORY);
  for (const int32_t column : {-1, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(T_GetPixelData(&b, buffer, 3, column, 8), ERR_NO_MEMORY) << column;
    EXPECT_EQ(T_PutPixelData(&b, buffer, 3, column, 8), ERR_NO_MEMORY) << column;
  }
  b.Flags |= T_FLAG_SIGNED_DATA;
  EXPECT_EQ(T_PutPixelColor(&b, -1, 0, 0), ERR_SIGNED_DATA);
  EXPECT_EQ(T_GetPixelColor(&b, 0, 0), 0u);
  b.StructSize = 211;
  EXPECT_EQ(T_PutPixelColor(&b, -1, 0, 0), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_GetPixelColor(&b, 0, 0), T_NO_COLOR);
  EXPECT_EQ(T_GetPixelData(&b, nullptr, 0, 0, 8), ERR_NO_BITMAP);
  EXPECT_EQ(T_GetPixelData(&b, buffer, 0, 0, 0), ERR_BAD_STRUCT_SIZE);
  EXPECT_EQ(T_ColorToPixel(&b, 0, buffer, 8), ERR_BAD_STRUCT_SIZE);
  b.Flags &= ~uint32_t{T_FLAG_ALLOCATED};
  EXPECT_EQ(T_PutPixelColor(&b, 0, 0, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_PutPixelData(&b, buffer, 0, 0, 0), ERR_NO_BITMAP);
  b.Flags |= T_FLAG_ALLOCATED;
  b.StructSize = 212;
  EXPECT_EQ(T_ColorToPixel(&b, 0, buffer, 2), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ColorToPixel(&b, 0, nullptr, 8), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ColorToPixel(nullptr, 0, buffer, 8), ERR_INVALID_PARAMETER);
}

// Records that say more than there is: a status, whatever is asked, and nothing changes.
TEST(Pixel, StorageThatIsNotThere) {
  const struct {
    const char* name;
    Kind kind;
    void (*damage)(BitmapHandle&);
  } cases[] = {
      {"no address", Kind::kBlock, [](BitmapHandle& b) { b.Data = nullptr; }},
      {"fewer rows than said", Kind::kBlock, [](BitmapHandle& b) { b.Height = 1 << 20; }},
      {"tiles that say they are a block", Kind::kMixedTiles,
       [](BitmapHandle& b) { b.Flags &= ~uint32_t{T_FLAG_TILED}; }},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Picture p;
    ASSERT_EQ(p.Make(c.kind, {9, 4, 24}, 3), "");
    BitmapHandle lie = p.record;
    c.damage(lie);
    const int32_t row = lie.Height - 1;
    uint8_t buffer[8] = {1, 2, 3};
    const auto rows = [&] {
      Bytes all;
      for (uint32_t y = 0; y < 4; ++y) {
        const Bytes line = tarn::test::Row(p.record, y);
        all.insert(all.end(), line.begin(), line.end());
      }
      return all;
    };
    const Bytes before = rows();
    EXPECT_EQ(T_GetPixelColor(&lie, row, 2), T_NO_COLOR);
    EXPECT_NE(T_PutPixelColor(&lie, row, 2, 0xABCDEF), SUCCESS);
    EXPECT_EQ(T_GetPixelData(&lie, buffer, row, 2, 8), ERR_NO_MEMORY);
    EXPECT_EQ(T_PutPixelData(&lie, buffer, row, 2, 8), ERR_NO_MEMORY);
    EXPECT_EQ(rows(), before);
  }
}

TEST(Pixel, ColoursThatAreNotThere) {
  Picture p;
  ASSERT_EQ(p.MakeBlank(Kind::kBlock, {9, 4, 4}), "");
  BitmapHandle& b = p.record;
  uint8_t byte = 0xF0;
  T_PutPixelData(&b, &byte, 0, 0, 1);
  EXPECT_EQ(T_GetPixelColor(&b, 0, 0), 0x00FFFFFFu) << "without a palette the fixed one";
  ASSERT_EQ(T_PutPixelColor(&b, 1, 0, 0x000000FF), SUCCESS);
  ASSERT_EQ(T_GetPixelData(&b, &byte, 1, 0, 1), SUCCESS);
  EXPECT_EQ(byte, 0x90);
  const T_PaletteEntry two[] = {{0, 0, 0, 0}, {1, 2, 3, 0}};
  ASSERT_EQ(T_SetBitmapNewPalette(&b, two, 2), SUCCESS);
  EXPECT_EQ(T_GetPixelColor(&b, 0, 0), T_NO_COLOR) << "an index beyond the palette";
  EXPECT_EQ(T_GetPixelColor(&b, 0, 1), 0u);
  b.Colors = 16;  // more than the block holds
  EXPECT_EQ(T_GetPixelColor(&b, 0, 0), T_NO_COLOR);
  EXPECT_EQ(T_PutPixelColor(&b, 0, 0, 0xFFFFFF), SUCCESS);
  EXPECT_EQ(T_GetPixelColor(&b, 0, 0), 0x00010203u);
  b.Colors = 0;
  EXPECT_EQ(T_PutPixelColor(&b, 0, 0, 0xFFFFFF), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ColorToPixel(&b, 0x0100000F, &byte, 1), SUCCESS);
  EXPECT_EQ(byte, 15);
  EXPECT_EQ(T_ColorToPixel(&b, 0x01000010, &byte, 1), ERR_INVALID_PARAMETER);
  // A new block at an old address has its own length.
  for (int i = 0; i < 8; ++i) {
    b.Colors = 16;
    T_PaletteEntry many[16] = {};
    ASSERT_EQ(T_SetBitmapNewPalette(&b, many, 16), SUCCESS);
    EXPECT_EQ(T_GetPixelColor(&b, 0, 1), 0u);
    ASSERT_EQ(T_SetBitmapNewPalette(&b, two, 2), SUCCESS);
    b.Colors = 16;
    byte = 0xF0;
    T_PutPixelData(&b, &byte, 0, 0, 1);
    EXPECT_EQ(T_GetPixelColor(&b, 0, 0), T_NO_COLOR);
  }
}

// A lookup table is what its block holds; one that is announced and not there is none.
TEST(Pixel, TablesThatAreShort) {
  Picture p;
  ASSERT_EQ(p.MakeBlank(Kind::kBlock, {5, 2, 16}), "");
  BitmapHandle& b = p.record;
  b.Order = T_ORDER_GRAY;
  const uint8_t nine[] = {9, 0};
  ASSERT_EQ(T_PutPixelData(&b, nine, 1, 4, 2), SUCCESS);
  b.Flags |= T_FLAG_LUT_IN_USE;
  EXPECT_EQ(T_GetPixelColor(&b, 1, 4), 0x04000009u);
  b.LUT = static_cast<T_PaletteEntry*>(T_GlobalAllocInit(4, sizeof(T_PaletteEntry), 1, L"here"));
  b.LUTLength = 65536;
  EXPECT_EQ(T_GetPixelColor(&b, 0, 0), 0u);
  EXPECT_EQ(T_GetPixelColor(&b, 1, 4), T_NO_COLOR);
  b.LUT[3].Green = 200;
  ASSERT_EQ(T_PutPixelColor(&b, 0, 1, 0x0000C800), SUCCESS);
  uint8_t bytes[2] = {};
  ASSERT_EQ(T_GetPixelData(&b, bytes, 0, 1, 2), SUCCESS);
  EXPECT_EQ(bytes[0], 3);
  b.LUTLength = 0;
  EXPECT_EQ(T_PutPixelColor(&b, 0, 1, 0), ERR_BAD_LUT_LENGTH);
  ASSERT_EQ(T_GetPixelData(&b, bytes, 0, 1, 2), SUCCESS);
  EXPECT_EQ(bytes[0], 3);
  EXPECT_EQ(T_ColorToPixel(&b, 0x01000007, bytes, 2), ERR_BAD_LUT_LENGTH) << "an index where there are none is black";
  b.Flags &= ~uint32_t{T_FLAG_LUT_IN_USE};
  EXPECT_EQ(T_ColorToPixel(&b, 0x01000007, bytes, 2), SUCCESS);
  EXPECT_EQ(bytes[0] | bytes[1], 0);
}

namespace {
struct Asked {
  int32_t row, column;
  uint32_t color;
  int32_t answer;
};
Asked asked;
int32_t Ask(BitmapHandle*, int32_t row, int32_t column, uint32_t color) {
  asked = {row, column, color, asked.answer};
  return asked.answer;
}
}  // namespace

TEST(Pixel, HookIsAskedFirst) {
  Picture p;
  ASSERT_EQ(p.MakeBlank(Kind::kBlock, {9, 4, 24}), "");
  const T_PixelPositionHook before = T_SetPixelPositionHook(Ask);
  asked = {0, 0, 0, 0};
  EXPECT_EQ(T_PutPixelColor(&p.record, 2, 3, 0x00123456), ERR_EMPTY_AREA);
  EXPECT_EQ(asked.row, 2);
  EXPECT_EQ(asked.column, 3);
  EXPECT_EQ(asked.color, 0x00123456u);
  EXPECT_EQ(T_GetPixelColor(&p.record, 2, 3), 0u);
  asked.answer = 7;
  EXPECT_EQ(T_PutPixelColor(&p.record, 2, 3, 0x00123456), SUCCESS);
  EXPECT_EQ(T_GetPixelColor(&p.record, 2, 3), 0x00123456u);
  EXPECT_EQ(T_PutPixelColor(&p.record, -5, 99, 0x00123456), ERR_EMPTY_AREA) << "outside, whatever it says";
  EXPECT_EQ(asked.row, -5);
  EXPECT_EQ(asked.column, 99);
  EXPECT_EQ(T_SetPixelPositionHook(before), &Ask);
}

// Lengths are rounded: never up, and down by little.
TEST(Pixel, ExtentsRememberedAreNeverLonger) {
  static tarn::KnownExtents known;
  alignas(16) static uint8_t memory[64];
  for (const uint64_t bytes : {UINT64_C(0), UINT64_C(1), UINT64_C(1024), UINT64_C(65535), UINT64_C(65536),
                               UINT64_C(65537), UINT64_C(131073), UINT64_C(0x7FFFFFFF), UINT64_C(0xFFFF0000)}) {
    known.Remember(memory, bytes);
    EXPECT_FALSE(known.Holds(memory, bytes + 1)) << bytes;
    if (bytes < UINT64_C(1) << 31) {
      EXPECT_TRUE(known.Holds(memory, bytes - bytes / 32768)) << bytes;
    }
    EXPECT_FALSE(known.Holds(memory + 16, 1));
    EXPECT_FALSE(known.Holds(memory + 1, 1)) << "shares its place, not its address";
  }
  known.Forget(memory + 16);
  EXPECT_TRUE(known.Holds(memory, 1000));
  known.Forget(memory);
  EXPECT_FALSE(known.Holds(memory, 1));
  known.Remember(memory, 8);
  known.ForgetAll();
  EXPECT_FALSE(known.Holds(memory, 1));
}
