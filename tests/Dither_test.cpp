// Dithering: every method, palette and source format against the published rules; groups of lines against single ones.

#include "tarn/dither.h"

#include <gtest/gtest.h>

#include <array>

#include "Common/Internal/DitherRun.h"
#include "DitherReference.h"
#include "Levels.h"
#include "Platform/Fault.h"
#include "Scope.h"
#include "engine/Random.h"

using namespace tarn::test;
using ditherref::Palette;
using tarn::Isa;
using tarn::engine::Random;
using Bytes = std::vector<uint8_t>;

namespace {

struct Source {
  int32_t bits;
  uint32_t order;
  bool gray;  // a gray palette
};
constexpr Source kSources[] = {{24, 1, false}, {24, 0, false}, {8, 0, true},   {8, 0, false},  {1, 0, false},
                               {3, 0, true},   {12, 2, true},  {16, 2, true},  {8, 2, false},  {16, 1, false},
                               {32, 0, false}, {32, 2, true},  {48, 1, false}, {64, 0, false}, {24, 5, false}};

/// A described bitmap with a palette of its own, and the colours of its lines as the rules have them.
struct Described : Bitmap {
  Described(const Source& source, int32_t width, Random& random) : Bitmap(width, 1, source.bits) {
    Order = source.order;
    if (source.bits > 8) return;
    for (int i = 0; i < 1 << source.bits; ++i) {
      const uint8_t v = random.Byte();
      colors.push_back(source.gray ? convertref::Entry{v, v, v, 0}
                                   : convertref::Entry{v, random.Byte(), random.Byte(), 0});
    }
    T_SetBitmapNewPalette(this, reinterpret_cast<const T_PaletteEntry*>(colors.data()), 1u << source.bits);
  }
  std::vector<int> Rgb(const Bytes& line) const {
    std::vector<int> rgb;
    if ((BitsPerPixel == 12 || BitsPerPixel == 16) && Order == 2) {
      for (int32_t x = 0; x < Width; ++x) {
        const size_t at = static_cast<size_t>(BitsPerPixel == 12 ? x * 3 / 2 : 2 * x);
        uint32_t v = line[at] | line[at + 1] * 256u;
        if (BitsPerPixel == 12) v = x % 2 ? v >> 4 : v & 4095;
        const int level = static_cast<int>(v * 255 / (BitsPerPixel == 12 ? 4095 : 65535));
        rgb.insert(rgb.end(), 3, level);
      }
      return rgb;
    }
    const Bytes bgr =
        convertref::Convert(line, Width, {BitsPerPixel, Order, colors.empty() ? nullptr : &colors}, {24, 0}, {});
    return {bgr.begin(), bgr.begin() + 3 * Width};
  }
  ditherref::Palette colors;
};

/// Smooth parts, noise about the edges between few levels, and noise, in whatever format the bytes are read.
Bytes MakeLine(Random& random, size_t bytes, int row) {
  Bytes line(bytes);
  for (size_t i = 0; i < bytes; ++i) {
    line[i] = random.Byte();
    if (i < bytes / 2) line[i] = static_cast<uint8_t>(i / 3 + static_cast<size_t>(row) * 5 + line[i] % 8);
    if (i >= bytes / 4 * 3) line[i] = static_cast<uint8_t>(61 + row % 3 * 64 + line[i] % 6);
  }
  return line;
}

struct Target {
  const char* name;
  int count, bits;
  bool given;
  Palette palette;
  bool lent;
};

std::vector<Target> Targets(Random& random) {
  std::vector<Target> targets;
  for (const int bits : {1, 2, 3, 4, 5, 6, 7, 8}) targets.push_back({"fixed", 1 << bits, bits, false, {}, false});
  targets.push_back({"fixed, one colour", 1, 1, false, {}, false});
  targets.push_back({"fixed, 11 in 8 bits", 11, 8, false, {}, false});
  Palette web;
  for (int i = 0; i < 216; ++i)
    web.push_back(
        {static_cast<uint8_t>(i % 6 * 51), static_cast<uint8_t>(i / 6 % 6 * 51), static_cast<uint8_t>(i / 36 * 51), 0});
  targets.push_back({"web", 216, 8, true, web, false});
  const auto chosen = [&](int count, uint8_t reserved) {
    Palette palette;
    for (int i = 0; i < count; ++i)
      palette.push_back({random.Byte(), random.Byte(), random.Byte(), static_cast<uint8_t>(random.Byte() & reserved)});
    return palette;
  };
  targets.push_back({"own, 256", 256, 8, true, chosen(256, 0), false});
  targets.push_back({"own, 255, some not usable", 255, 8, true, chosen(255, 7), false});
  targets.push_back({"own, 5", 5, 3, true, chosen(5, 0), false});
  Palette none = chosen(9, 0);
  for (auto& entry : none) entry.reserved = 1;
  targets.push_back({"own, none usable", 9, 4, true, none, false});
  targets.push_back({"own, 256 with a lent table", 256, 8, true, chosen(256, 0), true});
  targets.push_back({"fixed with a lent table", 16, 4, false, {}, true});
  return targets;
}

/// With some of the keys; some entries are beyond the count.
std::vector<uint32_t> LentTable() {
  std::vector<uint32_t> table(32768);
  for (uint32_t i = 0; i < 32768; i += 37) table[i] = i % 300;
  return table;
}

Bytes Packed(const std::vector<int>& indices, int bits, uint8_t before) {
  Bytes line((indices.size() * static_cast<size_t>(bits) + 7) / 8, before);
  for (size_t i = 0; i < indices.size(); ++i) {
    for (int bit = 0; bit < bits; ++bit) {
      const size_t at = i * static_cast<size_t>(bits) + static_cast<size_t>(bit);
      const auto mask = static_cast<uint8_t>(0x80 >> at % 8);
      const bool one = indices[i] >> (bits - 1 - bit) & 1;
      line[at / 8] = static_cast<uint8_t>(one ? line[at / 8] | mask : line[at / 8] & ~mask);
    }
  }
  return line;
}

class Dither : public testing::TestWithParam<Isa> {
 protected:
  void SetUp() override {
    if (GetParam() > tarn::BestIsa()) GTEST_SKIP() << "not on this processor";
    tarn::ForceIsa(GetParam());
  }
  void TearDown() override { tarn::ForceIsa(Isa::kCount); }

  void Check(const Source& source, const Target& target, uint32_t method, int32_t width, Random& random) {
    SCOPED_TRACE(testing::Message() << source.bits << "/" << source.order << " to " << target.name << ", "
                                    << target.count << " in " << target.bits << " bits, method " << method << ", width "
                                    << width);
    Described bitmap(source, width, random);
    bitmap.DitheringMethod = method;
    if (method % 2 == 0) bitmap.Height = 1 << 20;  // large pictures know every key from the start
    std::vector<uint32_t> lent = LentTable(), lentToo = lent;
    ditherref::Run reference(width, static_cast<int>(method), target.given ? &target.palette : nullptr, target.count,
                             target.bits, target.lent ? &lentToo : nullptr);
    ASSERT_EQ(T_StartDitheringExt(
                  &bitmap, target.given ? reinterpret_cast<const T_PaletteEntry*>(target.palette.data()) : nullptr,
                  static_cast<uint32_t>(target.count), static_cast<uint32_t>(target.bits),
                  target.lent ? lent.data() : nullptr),
              SUCCESS);
    for (int row = 0; row < 11; ++row) {
      const Bytes line = MakeLine(random, bitmap.BytesPerLine, row);
      const Bytes wanted = Packed(reference.Line(bitmap.Rgb(line)), target.bits, 0x5A);
      Bytes got(wanted.size(), 0x5A);
      ASSERT_EQ(T_DitherLine(&bitmap, line.data(), got.data()), SUCCESS);
      ASSERT_EQ(got, wanted) << "row " << row;
    }
    EXPECT_EQ(T_StopDithering(&bitmap), SUCCESS);
    EXPECT_EQ(V(bitmap.DitherContext), nullptr);
    EXPECT_EQ(lent, lentToo);
  }
};

TEST_P(Dither, EveryMethodAndPalette) {
  Random random(51);
  const auto targets = Targets(random);
  for (const Target& target : targets) {
    for (uint32_t method = 0; method <= 8; ++method) {
      for (const Source& source : {kSources[0], kSources[2]}) Check(source, target, method, 300, random);
      if (HasFatalFailure()) return;
    }
  }
}

TEST_P(Dither, EverySourceAndWidth) {
  Random random(52);
  const auto targets = Targets(random);
  for (const Source& source : kSources) {
    for (const size_t target : {size_t{0}, size_t{1}, size_t{3}, size_t{10}, size_t{11}}) {
      for (const int32_t width : {1, 2, 5, 13, 127, 128, 131}) {
        Check(source, targets[target], static_cast<uint32_t>(width) % 9, width, random);
        Check(source, targets[target], 1, width, random);
        if (HasFatalFailure()) return;
      }
    }
  }
}

TEST_P(Dither, GroupsOfLinesAreTheLines) {
  Random random(53);
  const auto targets = Targets(random);
  for (const Source& source : {kSources[0], kSources[2], kSources[7]}) {
    for (const Target& target : targets) {
      for (uint32_t method = 0; method < 8; ++method) {
        const int32_t wide = method == 1 || method == 6 ? 700 : 200;
        for (const int32_t width : {9, 61, wide}) {
          SCOPED_TRACE(testing::Message()
                       << source.bits << " to " << target.name << " method " << method << " width " << width);
          Described bitmap(source, width, random);
          std::vector<uint32_t> lent = LentTable(), lentToo = LentTable(), lentThree = LentTable();
          tarn::DitherTarget to = {
              target.given ? reinterpret_cast<const T_PaletteEntry*>(target.palette.data()) : nullptr,
              static_cast<uint32_t>(target.count), static_cast<uint32_t>(target.bits), nullptr};
          tarn::Status status = SUCCESS;
          to.matchTable = target.lent ? lent.data() : nullptr;
          tarn::DitherRun* const single = tarn::DitherRun::Create(bitmap, method, to, status);
          to.matchTable = target.lent ? lentToo.data() : nullptr;
          tarn::DitherRun* const group = tarn::DitherRun::Create(bitmap, method, to, status);
          to.matchTable = target.lent ? lentThree.data() : nullptr;
          tarn::DitherRun* const noWaves = tarn::DitherRun::Create(bitmap, method, to, status);
          ASSERT_TRUE(single && group && noWaves);
          ASSERT_TRUE(group->OpenGroups().Ok());
          // Without the memory of waves lines go by fours.
          tarn::fault::Arm({.first = 2, .points = tarn::fault::kMemoryPoints});
          (void)noWaves->OpenGroups();
          tarn::fault::Disarm();
          const size_t bytes = (static_cast<size_t>(width) * to.bits + 7) / 8;
          for (const int lines : {4, 3, 1, 53, 17, 2}) {  // by fours, as waves, and both
            std::vector<Bytes> in, one(53, Bytes(bytes, 0x5A)), many = one, fours = one;
            const uint8_t* sources[53];
            uint8_t* results[53];
            for (int i = 0; i < lines; ++i) {
              in.push_back(MakeLine(random, bitmap.BytesPerLine, i));
              sources[i] = in.back().data();
              results[i] = many[static_cast<size_t>(i)].data();
            }
            for (int i = 0; i < lines; ++i) sources[i] = in[static_cast<size_t>(i)].data();
            for (int i = 0; i < lines; ++i) single->Line(one[static_cast<size_t>(i)].data(), sources[i]);
            group->Lines(results, sources, lines);
            ASSERT_EQ(one, many);
            for (int i = 0; i < lines; ++i) results[i] = fours[static_cast<size_t>(i)].data();
            noWaves->Lines(results, sources, lines);
            ASSERT_EQ(one, fours);
          }
          EXPECT_EQ(lent, lentToo);
          tarn::DitherRun::Destroy(noWaves);
          tarn::DitherRun::Destroy(single);
          tarn::DitherRun::Destroy(group);
        }
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, Dither, testing::ValuesIn(tarn::test::kLevels));

TEST(DitherRun, RefusesAndKeeps) {
  Bitmap b(20, 4, 24);
  uint8_t line[80] = {}, out[80] = {};
  const auto start = [&](uint32_t count, uint32_t bits) {
    return T_StartDitheringExt(&b, nullptr, count, bits, nullptr);
  };
  EXPECT_EQ(T_StartDithering(nullptr, nullptr, 2), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_StartDithering(&b, nullptr, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_StartDithering(&b, nullptr, 257), ERR_INVALID_PARAMETER);
  EXPECT_EQ(start(0, 8), ERR_INVALID_PARAMETER);
  EXPECT_EQ(start(257, 8), ERR_INVALID_PARAMETER);
  EXPECT_EQ(start(2, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(start(2, 9), ERR_INVALID_PARAMETER);
  EXPECT_EQ(start(5, 2), ERR_INVALID_PARAMETER);
  b.DitheringMethod = 9;
  EXPECT_EQ(start(2, 1), ERR_INVALID_PARAMETER);
  b.DitheringMethod = 1;
  b.StructSize = 211;
  EXPECT_EQ(start(2, 1), ERR_BAD_STRUCT_SIZE);
  b.StructSize = 212;
  EXPECT_EQ(V(b.DitherContext), nullptr);
  EXPECT_EQ(T_DitherLine(&b, line, out), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_StopDithering(&b), SUCCESS);
  EXPECT_EQ(T_StopDithering(nullptr), ERR_INVALID_PARAMETER);

  const auto before = tarn::platform::Held();
  T_PaletteEntry own[20] = {};
  for (uint8_t i = 0; i < 20; ++i) own[i] = {i, 7, 9, 0};
  for (uint64_t n = 1;; ++n) {  // every allocation refused in turn
    tarn::fault::Arm({.first = n, .last = n, .points = Mask(tarn::fault::Point::kMemory)});
    const int32_t status = T_StartDithering(&b, own, 20);
    tarn::fault::Disarm();
    if (status == SUCCESS) break;
    EXPECT_EQ(status, ERR_NO_MEMORY);
    EXPECT_EQ(V(b.DitherContext), nullptr);
    ASSERT_LT(n, 10u);
  }
  EXPECT_EQ(T_DitherLine(&b, nullptr, out), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_DitherLine(&b, line, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_DitherLine(nullptr, line, out), ERR_INVALID_PARAMETER);
  b.StructSize = 211;
  EXPECT_EQ(T_DitherLine(&b, line, out), ERR_BAD_STRUCT_SIZE);
  b.StructSize = 212;
  b.Flags |= T_FLAG_SIGNED_DATA;
  EXPECT_EQ(T_DitherLine(&b, line, out), ERR_SIGNED_DATA);
  b.Flags &= ~static_cast<uint32_t>(T_FLAG_SIGNED_DATA);
  EXPECT_EQ(T_DitherLine(&b, line, out), SUCCESS);
  EXPECT_EQ(T_StopDithering(&b), SUCCESS);
  EXPECT_TRUE(SameHeld(before, tarn::platform::Held()));
}

// Gray samples with a lookup table are dithered as the levels that it gives, those beyond it as its last.
TEST(DitherRun, LevelsOfLookupTables) {
  constexpr int32_t kWidth = 60;
  Random random(12);
  for (const uint32_t length : {4096u, 1000u}) {
    for (const uint32_t colors : {2u, 4u, 9u}) {
      SCOPED_TRACE(testing::Message() << length << " entries to " << colors);
      Bitmap deep, plain;
      ASSERT_EQ(T_CreateBitmap(&deep, 212, TYPE_CONV, kWidth, 4, 12, T_ORDER_GRAY, nullptr, 1, nullptr, 0), SUCCESS);
      ASSERT_EQ(T_CreateBitmap(&plain, 212, TYPE_CONV, kWidth, 4, 0, 0, nullptr, 1, nullptr, 0), SUCCESS);
      deep.DitheringMethod = plain.DitheringMethod = DITHER_FLOYD_STEINBERG;
      deep.Flags |= T_FLAG_LUT_IN_USE;
      const auto start = [&](BitmapHandle& b) { return T_StartDithering(&b, nullptr, colors); };
      ASSERT_EQ(start(deep), SUCCESS) << "a table that is not there is not used";
      ASSERT_EQ(T_StopDithering(&deep), SUCCESS);
      deep.LUT = static_cast<T_PaletteEntry*>(T_GlobalAllocInit(length, sizeof(T_PaletteEntry), 1, L"here"));
      for (const uint32_t wrong : {0u, length + 1}) {
        deep.LUTLength = wrong;
        EXPECT_EQ(start(deep), ERR_BAD_LUT_LENGTH);
      }
      deep.LUTLength = length;
      for (uint32_t i = 0; i < length; ++i) {
        const auto level = static_cast<uint8_t>(255 - i * 255 / length);
        deep.LUT[i] = {level, level, level, 0};
      }
      ASSERT_EQ(start(deep), SUCCESS);
      ASSERT_EQ(start(plain), SUCCESS);
      for (int row = 0; row < 4; ++row) {
        Bytes samples(kWidth * 3 / 2), levels(kWidth), got(kWidth), wanted(kWidth);
        for (size_t i = 0; i < kWidth; ++i) {
          const uint32_t sample = random.Byte() * 16u + random.Byte() % 16;
          uint8_t* const at = &samples[i / 2 * 3 + i % 2];
          at[0] = static_cast<uint8_t>(i % 2 ? at[0] | (sample & 15) << 4 : sample);
          at[1] = static_cast<uint8_t>(i % 2 ? sample >> 4 : sample >> 8);
          levels[i] = deep.LUT[std::min(sample, length - 1)].Red;
        }
        EXPECT_EQ(T_DitherLine(&deep, samples.data(), got.data()), SUCCESS);
        EXPECT_EQ(T_DitherLine(&plain, levels.data(), wanted.data()), SUCCESS);
        EXPECT_EQ(got, wanted) << row;
      }
      T_StopDithering(&deep);
      T_StopDithering(&plain);
    }
  }
}

TEST(MatchTable, HoldsTheNearestOfEveryKey) {
  Random random(54);
  T_PaletteEntry palette[200];
  for (auto& entry : palette) entry = {random.Byte(), random.Byte(), random.Byte(), 1};
  uint32_t* const table = T_CreateUserMatchTable(palette, 200);
  ASSERT_NE(table, nullptr);
  for (uint32_t key = 0; key < 32768; key += 11)
    ASSERT_EQ(table[key],
              T_FindPaletteIndex(palette, 200, static_cast<uint8_t>(key >> 10 << 3),
                                 static_cast<uint8_t>((key >> 5 & 31) << 3), static_cast<uint8_t>((key & 31) << 3)) +
                  1);
  EXPECT_EQ(T_FreeUserMatchTable(table), SUCCESS);
  EXPECT_EQ(T_FreeUserMatchTable(nullptr), SUCCESS);
  EXPECT_EQ(T_CreateUserMatchTable(nullptr, 5), nullptr);
  EXPECT_EQ(T_CreateUserMatchTable(palette, 0), nullptr);
}

// ---- Kernels -------------------------------------------------------------------------------------------------------

/// Lines of different lengths, sums of up to half of what can occur: every level does what the portable one does.
TEST(Dither, LinesTogetherAtEveryLevel) {
  using namespace tarn;
  constexpr int kMargin = 4;
  struct Lines {
    std::vector<uint8_t> pixels[kDitherGroup], indices[kDitherGroup];
    std::vector<int16_t> sums[kDitherGroup], errors[kDitherGroup];
  };
  const DitherKernel kernels[] = {
      {{7, 0}, {}, 1, 16, 4096, 0, false}, {{8, 4}, {}, 2, 42, 24967, 4, false}, {{7, 5}, {}, 2, 48, 43691, 5, false}};
  Random random(engine::RunSeed());
  std::vector<std::array<int16_t, 4>> colors(64);
  std::vector<uint8_t> table(64), names(64);
  for (size_t i = 0; i < 64; ++i) {
    colors[i] = {random.Byte(), random.Byte(), random.Byte(), 0};
    table[i] = static_cast<uint8_t>(random.Below(64));
    names[i] = random.Byte();
  }
  DitherColors target{};
  target.rule = DitherColors::kTable;
  target.mask = 0x00C0C0C0;
  target.table = table.data();
  target.unknown = kNoneUnknown;
  target.colors = reinterpret_cast<const int16_t(*)[4]>(colors.data());
  target.indices = names.data();
  target.renamed = true;
  for (int round = 0; round < 400; ++round) {
    const DitherKernel& kernel = random.Pick(kernels);
    const int lines = random.Between(1, kDitherGroup);
    const int32_t mostSum = 120 * kernel.divisor;
    const bool gray = round % 3 == 0;
    const size_t lanes = gray ? 1 : 4;
    Lines start;
    for (int line = 0; line < lines; ++line) {
      const auto count = static_cast<size_t>(random.Between(1, kDitherBlock));
      start.pixels[line].resize(count * lanes);
      for (size_t i = 0; i < start.pixels[line].size(); ++i)
        start.pixels[line][i] = lanes == 4 && i % 4 == 3 ? 0 : random.Byte();
      start.sums[line].assign(kDitherBlock * lanes, 0);
      for (size_t i = 0; i < count * lanes; ++i)
        start.sums[line][i] = static_cast<int16_t>(lanes == 4 && i % 4 == 3 ? 0 : random.Between(-mostSum, mostSum));
      start.errors[line].assign((kDitherBlock + 2 * kMargin) * lanes, 0);
      for (size_t i = 0; i < kMargin * lanes; ++i)
        start.errors[line][i] = static_cast<int16_t>(lanes == 4 && i % 4 == 3 ? 0 : random.Between(-128, 128));
      start.indices[line].assign(kDitherBlock, 0);
    }
    Lines wanted;
    for (const Isa level : test::kLevels) {
      if (ForceIsa(level) != level) break;
      Lines made = start;
      DitherBlock blocks[kDitherGroup];
      for (int i = 0; i < lines; ++i)
        blocks[i] = {made.pixels[i].data(), made.sums[i].data(), made.errors[i].data() + kMargin * lanes,
                     made.indices[i].data(), static_cast<int32_t>(made.pixels[i].size() / lanes)};
      if (gray)
        Kernels().dither->diffuseGray(blocks, lines, kernel, 1 + static_cast<uint32_t>(round % 2));
      else
        Kernels().dither->diffuse(blocks, lines, kernel, target);
      if (level == Isa::kPortable) wanted = made;
      for (int i = 0; i < lines; ++i) {
        const auto count = static_cast<size_t>(blocks[i].count);
        made.errors[i].resize((count + kMargin) * lanes);
        wanted.errors[i].resize((count + kMargin) * lanes);
        EXPECT_EQ(made.errors[i], wanted.errors[i]) << test::LevelName(level) << ", round " << round;
        EXPECT_TRUE(std::equal(made.indices[i].begin(), made.indices[i].begin() + static_cast<int64_t>(count),
                               wanted.indices[i].begin()))
            << test::LevelName(level) << ", round " << round << ", line " << i << " of " << lines;
      }
    }
    ForceIsa(Isa::kCount);
  }
}

}  // namespace
