// Combining rectangles: every pair of formats and every operation against a statement of each, pixel by pixel, which
// shares nothing with the library but the palettes.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <string>
#include <vector>

#include "ConvertReference.h"
#include "Levels.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Random.h"
#include "engine/Scene.h"

using convertref::Entry;
using tarn::engine::Bytes;
using tarn::engine::Kind;
using tarn::engine::Picture;
using tarn::engine::Random;
using tarn::test::V;

namespace {

// ---- Bitmaps and pixels --------------------------------------------------------------------------------------------

/// The fixed palette, the gray one, or any colours.
enum class Colors { kFixed, kGray, kOwn };

struct Format {
  int bits;
  unsigned order;
  Colors colors = Colors::kFixed;
  int low = -1, high = -1;  // significant bits of deep gray
};
constexpr Format kFormats[] = {{1, 0},
                               {1, 0, Colors::kOwn},
                               {2, 0},
                               {3, 0, Colors::kOwn},
                               {4, 0},
                               {5, 0, Colors::kOwn},
                               {6, 0},
                               {7, 0, Colors::kOwn},
                               {8, 0},
                               {8, 0, Colors::kGray},
                               {8, 0, Colors::kOwn},
                               {12, 2},
                               {12, 2, Colors::kFixed, 2, 9},
                               {12, 2, Colors::kFixed, 4, 11},
                               {16, 0},
                               {16, 1},
                               {16, 2},
                               {16, 2, Colors::kFixed, 0, 11},
                               {24, 0},
                               {24, 1},
                               {24, 5},
                               {32, 0},
                               {32, 1},
                               {32, 2},
                               {48, 0},
                               {48, 1},
                               {64, 0},
                               {64, 1}};

std::string Text(const Format& f) {
  return std::to_string(f.bits) + " bits, order " + std::to_string(f.order) + ", colours " +
         std::to_string(static_cast<int>(f.colors)) + ", low bit " + std::to_string(f.low);
}

/// A block with noise in every byte, padding included.
struct Block : tarn::test::Bitmap {
  Block(const Format& f, int32_t width, int32_t height, Random& random) : Bitmap(width, height, f.bits), format(f) {
    EXPECT_EQ(T_AllocateBitmap(this, TYPE_NOTILED), SUCCESS);
    Order = f.order;
    ViewPerspective = 1;
    LowBit = std::max(f.low, 0);
    if (f.high >= 0) HighBit = f.high;
    if (f.bits <= 8) Furnish(random);
    for (uint64_t i = 0; i < uint64_t{BytesPerLine} * static_cast<uint32_t>(height); ++i) Data[i] = random.Byte();
  }
  void Furnish(Random& random) {
    palette.resize(size_t{1} << format.bits);
    const T_PaletteEntry* const fixed = T_IntGetFixedPalette(static_cast<uint32_t>(format.bits));
    for (size_t i = 0; i < palette.size(); ++i) {
      const auto level = static_cast<uint8_t>(i);
      palette[i] = format.colors == Colors::kGray  ? Entry{level, level, level, 0}
                   : format.colors == Colors::kOwn ? Entry{random.Byte(), random.Byte(), random.Byte(), 0}
                                                   : Entry{fixed[i].Blue, fixed[i].Green, fixed[i].Red, 0};
    }
    if (format.colors == Colors::kFixed) return;
    std::vector<T_PaletteEntry> entries;
    for (const Entry& e : palette) entries.push_back({e.blue, e.green, e.red, 0});
    EXPECT_EQ(T_SetBitmapNewPalette(this, entries.data(), static_cast<uint32_t>(entries.size())), SUCCESS);
  }
  Bytes Rows() const {
    return Bytes(Data, Data + size_t{BytesPerLine} * static_cast<uint32_t>(static_cast<int32_t>(Height)));
  }
  Format format;
  convertref::Palette palette;
};

/// Stored bits: those of 12-bit pixels count from the lowest bit of a byte, those below 8 from the highest.
uint64_t Get(const uint8_t* row, int64_t column, int bits) {
  uint64_t value = 0;
  for (int i = 0; i < bits; ++i) {
    const int64_t at = column * bits + i;
    if (bits < 8) {
      value = value << 1 | (row[at / 8] >> (7 - at % 8) & 1u);
    } else {
      value |= uint64_t{row[at / 8] >> (at % 8) & 1u} << i;
    }
  }
  return value;
}
void Set(uint8_t* row, int64_t column, int bits, uint64_t value) {
  for (int i = 0; i < bits; ++i) {
    const int64_t at = column * bits + i;
    const int bit = static_cast<int>(bits < 8 ? 7 - at % 8 : at % 8);
    const uint64_t one = value >> (bits < 8 ? bits - 1 - i : i) & 1;
    row[at / 8] = static_cast<uint8_t>((row[at / 8] & ~(1u << bit)) | one << bit);
  }
}

// ---- The statement -------------------------------------------------------------------------------------------------

bool IsDeep(const Format& f) { return f.order == 2 && f.bits > 8; }
bool HasAlpha(const Format& f) { return (f.bits == 32 && f.order != 2) || f.bits == 64; }
bool IsRanged(const Format& f) { return IsDeep(f) && f.high >= 0; }

convertref::Side SideOf(const Format& f, const convertref::Palette& palette) {
  if (f.colors == Colors::kGray) return {8, 2};
  return {f.bits, f.order, f.bits <= 8 ? &palette : nullptr};
}

bool Same(const Block& a, const Block& b) {
  if (a.format.bits != b.format.bits || a.format.order != b.format.order) return false;
  if (a.format.low != b.format.low || a.format.high != b.format.high) return false;
  if ((a.format.colors == Colors::kGray) != (b.format.colors == Colors::kGray)) return false;
  for (size_t i = 0; i < a.palette.size(); ++i)
    if (std::memcmp(&a.palette[i], &b.palette[i], 3) != 0) return false;
  return true;
}

/// One pixel of the source as one of a format.
uint64_t Converted(uint64_t pixel, const Block& source, const Format& to, const convertref::Palette& palette) {
  Bytes line(8);
  Set(line.data(), 0, source.format.bits, pixel);
  convertref::Options options;
  if (HasAlpha(to) && !HasAlpha(source.format)) options.flags |= T_CONVERT_OPAQUE;
  if (IsRanged(source.format)) {
    options.flags |= T_CONVERT_SOURCE_RANGE;
    options.low = source.format.low;
    options.high = source.format.high;
  }
  const Bytes made = convertref::Convert(line, 1, SideOf(source.format, source.palette), SideOf(to, palette), options);
  uint64_t value = Get(made.data(), 0, to.bits);
  if (IsRanged(to)) value = value >> (to.bits - (to.high - to.low + 1)) << to.low;
  return value;
}

uint64_t OnSamples(unsigned operation, uint64_t d, uint64_t s, uint64_t most, uint64_t a, uint64_t opaque) {
  const auto divided = [](long double x) { return static_cast<uint64_t>(x + 0.5L); };
  switch (operation) {
    case T_COMBINE_ADD:
      return std::min(d + s, most);
    case T_COMBINE_SUBTRACT:
      return d - std::min(d, s);
    case T_COMBINE_AVERAGE:
      return (d + s + 1) / 2;
    case T_COMBINE_MINIMUM:
      return std::min(d, s);
    case T_COMBINE_MAXIMUM:
      return std::max(d, s);
    case T_COMBINE_MULTIPLY:
      return divided(static_cast<long double>(d) * static_cast<long double>(s) / static_cast<long double>(most));
    default:
      return divided(static_cast<long double>(s * a + d * (opaque - a)) / static_cast<long double>(opaque));
  }
}

/// Fields of bits of a pixel that are combined one by one; the last one is alpha when there is any.
uint64_t OnFields(unsigned flags, uint64_t d, uint64_t s, int field, int fields, bool alpha, uint64_t a,
                  uint64_t opaque) {
  const uint64_t most = (field == 64 ? 0 : uint64_t{1} << field) - 1;
  uint64_t result = 0;
  for (int i = 0; i < fields; ++i) {
    const bool isAlpha = alpha && i == fields - 1;
    uint64_t x = d >> i * field & most, y = s >> i * field & most;
    if (isAlpha) {
      if ((flags & 255) == T_COMBINE_ALPHA) x = OnSamples(T_COMBINE_ALPHA, x, most, most, a, opaque);
    } else {
      if (flags & T_COMBINE_INVERT_DESTINATION) x = most - x;
      if (flags & T_COMBINE_INVERT_SOURCE) y = most - y;
      x = OnSamples(flags & 255, x, y, most, a, opaque);
      if (flags & T_COMBINE_INVERT_RESULT) x = most - x;
    }
    result |= x << i * field;
  }
  return result;
}

uint64_t Expected(unsigned flags, uint64_t d, const Block& target, uint64_t raw, const Block& source) {
  const Format& f = target.format;
  const unsigned operation = flags & 255;
  const auto into = [&](const Format& form, const convertref::Palette& palette, bool same) {
    return same ? raw : Converted(raw, source, form, palette);
  };
  if (operation <= T_COMBINE_XOR) {
    const uint64_t all = f.bits == 64 ? ~uint64_t{0} : (uint64_t{1} << f.bits) - 1;
    uint64_t s = into(f, target.palette, Same(source, target));
    if (flags & T_COMBINE_INVERT_DESTINATION) d ^= all;
    if (flags & T_COMBINE_INVERT_SOURCE) s ^= all;
    const uint64_t r = operation == T_COMBINE_COPY  ? s
                       : operation == T_COMBINE_AND ? d & s
                       : operation == T_COMBINE_OR  ? d | s
                                                    : d ^ s;
    return flags & T_COMBINE_INVERT_RESULT ? r ^ all : r;
  }
  const uint64_t deep = HasAlpha(source.format) ? raw >> (source.format.bits / 4 * 3) : 0;
  const uint64_t alpha8 = source.format.bits == 32 ? deep : deep >> 8;
  const uint64_t alpha16 = source.format.bits == 32 ? deep * 257 : deep;
  const uint64_t a8 = HasAlpha(source.format) ? alpha8 : 255, a16 = HasAlpha(source.format) ? alpha16 : 65535;
  if (IsDeep(f)) {
    const uint64_t s = into(f, target.palette, Same(source, target));
    const int low = std::max(f.low, 0), bits = IsRanged(f) ? f.high - f.low + 1 : f.bits;
    return OnFields(flags, d >> low, s >> low, bits, 1, false, a16, 65535) << low;
  }
  const bool colors = (f.bits <= 8 && f.colors != Colors::kGray) || f.bits == 16;
  if (!colors) {
    const uint64_t s = into(f, target.palette, Same(source, target));
    const int field = f.bits >= 48 ? 16 : 8;
    return OnFields(flags, d, s, field, f.bits / field, HasAlpha(f), field == 16 ? a16 : a8, field == 16 ? 65535 : 255);
  }
  const Format form{32, 1};
  const convertref::Palette none;
  const bool same = source.format.bits == 32 && source.format.order == 1;
  const uint64_t s = into(form, none, same);
  Bytes line(8);
  Set(line.data(), 0, f.bits, d);
  const Bytes wide = convertref::Convert(line, 1, SideOf(f, target.palette), {32, 1}, {});
  uint64_t made = OnFields(flags, Get(wide.data(), 0, 32) & 0xFFFFFF, s & 0xFFFFFF, 8, 3, false, a8, 255);
  Bytes back(8);
  Set(back.data(), 0, 32, made);
  made = Get(convertref::Convert(back, 1, {32, 1}, SideOf(f, target.palette), {}).data(), 0, f.bits);
  return f.bits == 16 ? (made & 0x7FFF) | (d & 0x8000) : made;
}

struct Place {
  int32_t left, top, sourceLeft, sourceTop, width, height;
};

Bytes ExpectedRows(unsigned flags, const Block& target, const Block& source, const Place& p) {
  Bytes rows = target.Rows();
  const int32_t sourceWidth = source.Width, sourceHeight = source.Height;
  const uint32_t stride = target.BytesPerLine, sourceStride = source.BytesPerLine;
  for (int32_t y = 0; y < p.height; ++y) {
    for (int32_t x = 0; x < p.width; ++x) {
      const int32_t tx = p.left + x, ty = p.top + y, sx = p.sourceLeft + x, sy = p.sourceTop + y;
      if (tx < 0 || ty < 0 || tx >= target.Width || ty >= target.Height) continue;
      if (sx < 0 || sy < 0 || sx >= sourceWidth || sy >= sourceHeight) continue;
      uint8_t* const row = rows.data() + size_t{stride} * static_cast<uint32_t>(ty);
      const uint64_t raw = Get(source.Data + size_t{sourceStride} * static_cast<uint32_t>(sy), sx, source.format.bits);
      Set(row, tx, target.format.bits, Expected(flags, Get(row, tx, target.format.bits), target, raw, source));
    }
  }
  return rows;
}

int32_t Call(BitmapHandle& target, BitmapHandle& source, const Place& p, unsigned flags) {
  return T_CombineBitmapKrn(&target, p.left, p.top, &source, p.sourceLeft, p.sourceTop, p.width, p.height, flags);
}

std::string Text(const Place& p, unsigned flags) {
  return "to " + std::to_string(p.left) + "," + std::to_string(p.top) + " from " + std::to_string(p.sourceLeft) + "," +
         std::to_string(p.sourceTop) + ", " + std::to_string(p.width) + " x " + std::to_string(p.height) + ", flags " +
         std::to_string(flags);
}

constexpr unsigned kInversions[] = {0, 0x100, 0x200, 0x400, 0x300, 0x500, 0x600, 0x700};

class CombineLevels : public testing::TestWithParam<tarn::Isa> {
 protected:
  void SetUp() override {
    if (tarn::ForceIsa(GetParam()) != GetParam()) GTEST_SKIP() << "not on this processor";
  }
  void TearDown() override { tarn::ForceIsa(tarn::Isa::kCount); }
};

}  // namespace

TEST_P(CombineLevels, EveryPairOfFormats) {
  Random random(tarn::engine::RunSeed());
  for (const Format& from : kFormats) {
    for (const Format& to : kFormats) {
      for (unsigned operation = 0; operation <= T_COMBINE_ALPHA; ++operation) {
        Block target(to, 61, 3, random), source(from, 47, 4, random);
        const unsigned flags = operation | random.Pick(kInversions);
        const Place p{random.Between(-3, 20), random.Between(-1, 1), random.Between(-3, 20),
                      random.Between(-1, 1),  random.Between(1, 50), 3};
        const Bytes wanted = ExpectedRows(flags, target, source, p);
        ASSERT_EQ(Call(target, source, p, flags), SUCCESS);
        ASSERT_EQ(target.Rows(), wanted) << Text(from) << " onto " << Text(to) << ", " << Text(p, flags) << ", "
                                         << tarn::engine::SeedText();
      }
    }
  }
}

TEST_P(CombineLevels, EveryOperationOnEqualFormats) {
  Random random(tarn::engine::RunSeed() + 1);
  for (const Format& format : kFormats) {
    Block source(format, 350, 2, random);
    for (unsigned operation = 0; operation <= T_COMBINE_ALPHA; ++operation) {
      for (const unsigned inversion : kInversions) {
        Block target(format, 350, 2, random);
        if (format.bits <= 8 && format.colors == Colors::kOwn) {
          target.palette = source.palette;
          T_SetBitmapNewPalette(&target, source.Palette, static_cast<uint32_t>(source.palette.size()));
        }
        const unsigned flags = operation | inversion;
        const Place p{random.Between(0, 9), 0, random.Between(0, 9), 0, random.Between(300, 341), 2};
        const Bytes wanted = ExpectedRows(flags, target, source, p);
        ASSERT_EQ(Call(target, source, p, flags), SUCCESS);
        ASSERT_EQ(target.Rows(), wanted) << Text(format) << ", " << Text(p, flags) << ", " << tarn::engine::SeedText();
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Isa, CombineLevels, testing::ValuesIn(tarn::test::kLevels), tarn::test::NameOfLevel);

// ---- Storage, overlaps ---------------------------------------------------------------------------------------------

namespace {
Bytes PixelsOf(const BitmapHandle& record) {
  Bytes rows;
  EXPECT_EQ(tarn::engine::ReadPixels(record, rows), "");
  return rows;
}
}  // namespace

TEST(Combine, EveryStorageOntoEveryOther) {
  const tarn::engine::ThresholdScope scope;
  for (const int32_t bits : {1, 5, 24}) {
    const tarn::engine::Shape shape{64, 11, bits};  // rows without padding
    for (int from = 0; from < tarn::engine::kKinds; ++from) {
      for (int to = 0; to < tarn::engine::kKinds; ++to) {
        if (!shape.Suits(static_cast<Kind>(from)) || !shape.Suits(static_cast<Kind>(to))) continue;
        for (const Place& p : {Place{5, 2, 8, -1, 30, 8}, Place{0, 2, 0, 1, 64, 8}, Place{8, 2, 8, 1, 24, 8}}) {
          if (bits != 24 && p.left != 5) continue;
          Bytes wanted;
          for (const bool block : {true, false}) {
            Picture source, target;
            ASSERT_EQ(source.Make(block ? Kind::kBlock : static_cast<Kind>(from), shape, 1), "");
            ASSERT_EQ(target.Make(block ? Kind::kBlock : static_cast<Kind>(to), shape, 2), "");
            ASSERT_EQ(Call(target.record, source.record, p, p.left == 5 ? T_COMBINE_XOR : T_COMBINE_COPY), SUCCESS);
            if (block) wanted = PixelsOf(target.record);
            ASSERT_EQ(PixelsOf(target.record), wanted) << from << " onto " << to << ", " << bits << Text(p, 0);
          }
        }
      }
    }
  }
}

TEST(Combine, OntoItselfAsIfCopiedFirst) {
  const tarn::engine::ThresholdScope scope;
  for (const int32_t bits : {1, 3, 8, 12, 24, 64}) {
    const tarn::engine::Shape shape{40, 12, bits};
    for (int kind = 0; kind < tarn::engine::kKinds; ++kind) {
      if (!shape.Suits(static_cast<Kind>(kind))) continue;
      for (const int32_t dx : {-3, 0, 5}) {
        for (const int32_t dy : {-2, 0, 1}) {
          const Place p{6 + dx, 3 + dy, 6, 3, 27, 6};
          Picture other, target, same;
          ASSERT_EQ(other.Make(Kind::kBlock, shape, 9), "");
          ASSERT_EQ(target.Make(Kind::kBlock, shape, 9), "");
          ASSERT_EQ(same.Make(static_cast<Kind>(kind), shape, 9), "");
          for (const unsigned flags : {0u, T_COMBINE_XOR | 0x100u, unsigned{T_COMBINE_AVERAGE}}) {
            const Bytes before = PixelsOf(target.record);
            std::memcpy(other.record.Data, target.record.Data, before.size());
            ASSERT_EQ(Call(target.record, other.record, p, flags), SUCCESS);
            ASSERT_EQ(Call(same.record, same.record, p, flags), SUCCESS);
            ASSERT_EQ(PixelsOf(same.record), PixelsOf(target.record))
                << tarn::engine::NameOf(static_cast<Kind>(kind)) << ", " << bits << " bits, " << Text(p, flags);
          }
        }
      }
    }
  }
}

TEST(Combine, BitmapsInTheSameMemory) {
  // A window into a larger picture's memory, rows of another length included.
  Bytes memory(64 * 20);
  Random random(5);
  for (uint8_t& byte : memory) byte = random.Byte();
  const Bytes before = memory;
  for (const int32_t windowWidth : {64, 32, 80}) {
    for (const int32_t offset : {0, 1, 64, 130}) {
      memory = before;
      tarn::test::Bitmap whole(64, 20, 8), window(windowWidth, 8, 8);
      ASSERT_EQ(T_AllocateBitmap(&whole, TYPE_USER), SUCCESS);
      ASSERT_EQ(T_AllocateBitmap(&window, TYPE_USER), SUCCESS);
      whole.Data = memory.data();
      window.Data = memory.data() + offset;
      ASSERT_EQ(Call(whole, window, {0, 1, 0, 0, 64, 8}, T_COMBINE_COPY), SUCCESS);
      Bytes wanted = before;
      for (size_t y = 0; y < 8; ++y)
        for (size_t x = 0; x < static_cast<size_t>(std::min(windowWidth, 64)); ++x)
          wanted[(y + 1) * 64 + x] = before[static_cast<size_t>(offset) + y * static_cast<size_t>(windowWidth) + x];
      ASSERT_EQ(memory, wanted) << windowWidth << ", " << offset;
    }
  }
}

// Copies that are larger than the caches are those of their parts.
TEST(Combine, LargeCopies) {
  constexpr int32_t kRows = 5100, kRowBytes = 5000;
  for (const int32_t bits : {1, 8, 12}) {
    const int32_t width = kRowBytes * 8 / bits / 8 * 8;
    tarn::test::Bitmap source(width, kRows, bits), atOnce(width, kRows, bits), inParts(width, kRows, bits);
    for (tarn::test::Bitmap* each : {&source, &atOnce, &inParts})
      ASSERT_EQ(T_AllocateBitmap(each, TYPE_NOTILED), SUCCESS);
    const size_t bytes = size_t{source.BytesPerLine} * kRows;
    Random random(6);
    for (size_t i = 0; i < bytes; i += 61) source.Data[i] = random.Byte();
    ASSERT_EQ(Call(atOnce, source, {3, 0, 8, 0, width - 11, kRows}, T_COMBINE_COPY), SUCCESS);
    for (int32_t row = 0; row < kRows; row += 1275)
      ASSERT_EQ(Call(inParts, source, {3, row, 8, row, width - 11, 1275}, T_COMBINE_COPY), SUCCESS);
    EXPECT_EQ(std::memcmp(atOnce.Data, inParts.Data, bytes), 0) << bits << " bits";
  }
}

// Palettes that differ in one channel of one entry are not the same.
TEST(Combine, PalettesThatDifferALittle) {
  for (int channel = 0; channel < 3; ++channel) {
    tarn::test::Bitmap source, target;
    for (tarn::test::Bitmap* each : {&source, &target})
      ASSERT_EQ(T_CreateBitmap(each, 212, TYPE_CONV, 4, 1, 2, 0, nullptr, 1, nullptr, 0), SUCCESS);
    const T_PaletteEntry first[4] = {{0, 0, 0, 0}, {9, 9, 9, 0}, {90, 90, 90, 0}, {200, 0, 0, 0}};
    T_PaletteEntry second[4] = {{0, 0, 0, 0}, {200, 0, 0, 0}, {90, 90, 90, 0}, {9, 9, 9, 0}};
    if (channel > 0) std::memcpy(second, first, sizeof second);
    if (channel == 1) second[3].Green = 220;
    if (channel == 2) second[3].Red = 220;
    ASSERT_EQ(T_SetBitmapNewPalette(&source, first, 4), SUCCESS);
    ASSERT_EQ(T_SetBitmapNewPalette(&target, second, 4), SUCCESS);
    const uint32_t indices = 0x1B;  // 0 1 2 3
    T_PutBitmapRow(&source, &indices, 0, 4);
    ASSERT_EQ(Call(target, source, {0, 0, 0, 0, 4, 1}, T_COMBINE_COPY), SUCCESS);
    const T_PaletteEntry& last = first[3];
    const uint32_t nearest = T_FindPaletteIndex(second, 4, last.Red, last.Green, last.Blue);
    EXPECT_EQ(nearest, channel == 0 ? 1u : 2u);
    EXPECT_EQ(tarn::test::Row(target, 0)[0], channel == 0 ? 0x39 : 0x1A) << channel;
  }
}

// ---- Formats that need a word --------------------------------------------------------------------------------------

TEST(Combine, LookupTablesAndSigns) {
  Random random(8);
  Block source({16, 2, Colors::kFixed, 0, 7}, 20, 2, random), target({24, 1}, 20, 2, random);
  std::vector<T_PaletteEntry> table(256);
  for (auto& e : table) e = {random.Byte(), random.Byte(), random.Byte(), 0};
  source.LUT = table.data();
  source.LUTLength = 256;
  source.Flags |= T_FLAG_LUT_IN_USE;
  for (int i = 0; i < 20 * 2; ++i) source.Data[2 * i + 1] = 0;
  ASSERT_EQ(Call(target, source, {0, 0, 0, 0, 20, 2}, 0), SUCCESS);
  for (int i = 0; i < 20; ++i) {
    const T_PaletteEntry& e = table[source.Data[2 * i]];
    EXPECT_EQ(target.Data[3 * i], e.Blue);
    EXPECT_EQ(target.Data[3 * i + 2], e.Red);
  }
  source.Flags &= ~uint32_t{T_FLAG_LUT_IN_USE};
  source.LUT = nullptr;
  source.LUTLength = 0;

  Block other({16, 2, Colors::kFixed, 0, 7}, 20, 2, random);
  source.Flags |= T_FLAG_SIGNED_DATA;
  EXPECT_EQ(Call(other, source, {0, 0, 0, 0, 20, 2}, 0), ERR_SIGNED_DATA);
  other.Flags |= T_FLAG_SIGNED_DATA;
  EXPECT_EQ(Call(other, source, {0, 0, 0, 0, 20, 2}, T_COMBINE_ADD), ERR_SIGNED_DATA);
  EXPECT_EQ(Call(other, source, {0, 0, 0, 0, 20, 2}, 0), SUCCESS);
  EXPECT_EQ(std::memcmp(other.Data, source.Data, 40), 0);
  other.HighBit = 9;
  EXPECT_EQ(Call(other, source, {0, 0, 0, 0, 20, 2}, 0), ERR_SIGNED_DATA) << "of another range";
}

TEST(Combine, ChecksInTheirOrder) {
  Random random(8);
  Block source({24, 1}, 20, 4, random), target({8, 0}, 20, 4, random);
  const Bytes before = target.Rows();
  const Place all{0, 0, 0, 0, 20, 4};
  EXPECT_EQ(T_CombineBitmapKrn(nullptr, 0, 0, &source, 0, 0, 1, 1, 0), ERR_NO_BITMAP);
  EXPECT_EQ(T_CombineBitmapKrn(&target, 0, 0, nullptr, 0, 0, 1, 1, 0), ERR_NO_BITMAP);
  source.StructSize = 1;
  EXPECT_EQ(Call(target, source, all, 99), ERR_BAD_STRUCT_SIZE);
  source.StructSize = sizeof(BitmapHandle);
  for (const unsigned flags : {11u, 0x800u, 0x80000000u})
    EXPECT_EQ(Call(target, source, all, flags), ERR_INVALID_PARAMETER);
  EXPECT_EQ(Call(target, source, {0, 0, 0, 0, -1, 4}, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(Call(target, source, {0, 0, 0, 0, 20, -4}, 0), ERR_INVALID_PARAMETER);
  source.Width = 99;
  EXPECT_EQ(Call(target, source, all, 0), ERR_INVALID_PARAMETER);
  source.Width = 20;
  source.Order = 2;
  EXPECT_EQ(Call(target, source, all, 0), ERR_INVALID_PARAMETER) << "24-bit gray";
  source.Order = 1;
  constexpr int32_t kFar = INT32_MAX, kBack = INT32_MIN;
  for (const Place& p : {Place{20, 0, 0, 0, 20, 4}, Place{0, 0, 0, -4, 20, 4}, Place{0, 0, 0, 0, 0, 4},
                         Place{kFar, 0, kBack, 0, kFar, kFar}, Place{kBack, kBack, kFar, kFar, kFar, kFar}})
    EXPECT_EQ(Call(target, source, p, 0), SUCCESS) << Text(p, 0);
  EXPECT_EQ(target.Rows(), before);
  EXPECT_EQ(Call(target, source, {-5, -1, -5, -1, kFar, kFar}, 0), SUCCESS);
  EXPECT_NE(target.Rows(), before);
}

// ---- Stopping ------------------------------------------------------------------------------------------------------

namespace {
struct Calls {
  std::vector<int32_t> percent;
  size_t stopAt = 0;
};
int32_t Count(int32_t percent, void* data) {
  auto& calls = *static_cast<Calls*>(data);
  calls.percent.push_back(percent);
  return calls.percent.size() == calls.stopAt ? -100 : SUCCESS;
}
}  // namespace

TEST(Combine, StoppedAtEveryCall) {
  tarn::engine::Scene scene;
  for (int kind = 0; kind < tarn::engine::kKinds; ++kind) {
    for (const bool upwards : {false, true}) {
      SCOPED_TRACE(std::string(tarn::engine::NameOf(static_cast<Kind>(kind))) + (upwards ? ", upwards" : ""));
      Picture picture;
      ASSERT_EQ(picture.Make(static_cast<Kind>(kind), {19, 11, 1}, 7), "");
      const Bytes before = PixelsOf(picture.record);
      T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
      const tarn::engine::World world = LookAround(scene);
      for (size_t at = 1;; ++at) {
        Calls calls{{}, at};
        T_SetStatusCallBack(Count, &calls, nullptr, nullptr);
        const Place p{2, upwards ? 3 : 1, 1, 2, 15, 7};
        const int32_t status = Call(picture.record, picture.record, p, T_COMBINE_XOR | T_COMBINE_INVERT_RESULT);
        T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
        if (status == SUCCESS) {
          EXPECT_EQ(calls.percent.front(), 0);
          EXPECT_EQ(calls.percent.back(), 100);
          EXPECT_TRUE(std::is_sorted(calls.percent.begin(), calls.percent.end()));
          break;
        }
        ASSERT_EQ(status, -100);
        ASSERT_EQ(PixelsOf(picture.record), before) << at;
        ASSERT_EQ(Changes(world, LookAround(scene)), "");
      }
      EXPECT_NE(PixelsOf(picture.record), before);
    }
  }
}
