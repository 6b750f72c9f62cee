// Conversion of lines: every pair of formats against the slow statement of the rules, at every instruction set.

#include "tarn/convert.h"

#include <gtest/gtest.h>

#include <cstring>

#include "Common/Internal/LineConverter.h"
#include "ConvertReference.h"
#include "Kernels/Kernels.h"
#include "Levels.h"
#include "Scope.h"
#include "engine/Random.h"

using namespace tarn::test;
using convertref::Options;
using convertref::Palette;
using convertref::Side;
using tarn::Isa;
using tarn::engine::Random;
using Bytes = std::vector<uint8_t>;

namespace {

constexpr int kBits[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 12, 16, 24, 32, 48, 64};
constexpr unsigned kOrders[] = {0, 1, 2, 5, 3};

size_t LineBytes(int width, int bits) {
  return (static_cast<size_t>(width) * static_cast<size_t>(bits ? bits : 8) + 7) / 8;
}

const T_PaletteEntry* Entries(const Side& side) {
  return side.palette ? reinterpret_cast<const T_PaletteEntry*>(side.palette->data()) : nullptr;
}

Palette RandomPalette(Random& random, int bits) {
  Palette palette(size_t{1} << bits);
  for (auto& entry : palette) entry = {random.Byte(), random.Byte(), random.Byte(), random.Byte()};
  return palette;
}

enum class Content { kNoise, kLowBits, kOnes, kFewColors };

Bytes MakeLine(Random& random, size_t bytes, int bits, Content content) {
  Bytes line(bytes);
  for (size_t i = 0; i < bytes; ++i) {
    if (content == Content::kNoise) line[i] = random.Byte();
    if (content == Content::kOnes) line[i] = 0xFF;
    // the low byte of each sample of 16 bits and more; of packed 12-bit pairs the same by chance
    if (content == Content::kLowBits) line[i] = bits >= 12 && i % (bits == 32 ? 4 : 2) == 0 ? random.Byte() : 0;
    if (content == Content::kFewColors) line[i] = i < 24 ? random.Byte() : line[i - 24];
  }
  return line;
}

std::string Name(const Side& side) {
  return std::to_string(side.bits) + "/" + std::to_string(side.order) + (side.palette ? "p" : "");
}

std::string Compare(Bytes got, Bytes wanted, int width, int bits) {
  const size_t used = static_cast<size_t>(width) * static_cast<size_t>(bits ? bits : 8) % 8;
  const auto kept = static_cast<uint8_t>(bits == 12 ? 0x0F : 0xFF00 >> used);
  if (used) got.back() &= kept, wanted.back() &= kept;
  for (size_t i = 0; i < wanted.size(); ++i)
    if (got[i] != wanted[i])
      return "byte " + std::to_string(i) + " is " + std::to_string(got[i]) + ", not " + std::to_string(wanted[i]);
  return "";
}

/// From blocks that hold the line and nothing else, at odd addresses: sanitizers see a kernel that reaches outside.
std::string CheckApart(const Bytes& line, const Bytes& wanted, int width, const Side& source, const Side& target,
                       const Options& options) {
  tarn::LineConverter converter;
  if (!converter
           .Open({source.bits, source.order, Entries(source)}, {target.bits, target.order, Entries(target)},
                 {options.flags, options.low, options.high})
           .Ok())
    return "refused";
  const size_t shift = static_cast<size_t>(width) % 5;
  Bytes from(shift);
  from.insert(from.end(), line.begin(), line.begin() + static_cast<std::ptrdiff_t>(LineBytes(width, source.bits)));
  Bytes to(shift + wanted.size());
  converter.Convert(to.data() + shift, from.data() + shift, width);
  return Compare({to.begin() + static_cast<std::ptrdiff_t>(shift), to.end()}, wanted, width, target.bits);
}

/// Converts between guard bytes and compares; "" when all is well.
std::string Check(const Bytes& line, int width, const Side& source, const Side& target, const Options& options) {
  const bool accepted = convertref::Accepts(source, target, options);
  const size_t size = T_CalcConvertSize(width, source.bits, width, target.bits);
  const size_t sourceBytes = LineBytes(width, source.bits);
  constexpr size_t kGuard = 40;
  Bytes buffer(size + 2 * kGuard, 0xA7);
  std::memcpy(buffer.data() + kGuard, line.data(), sourceBytes);
  const Bytes before = buffer;
  const int32_t status =
      T_ConvertBufferExt(buffer.data() + kGuard, width, source.bits, target.bits, source.order, target.order,
                         Entries(source), Entries(target), options.flags, options.low, options.high);
  const std::string what = Name(source) + " to " + Name(target) + ", width " + std::to_string(width) + ", flags " +
                           std::to_string(options.flags) + ", bits " + std::to_string(options.low) + ".." +
                           std::to_string(options.high) + ": ";
  if (!accepted) {
    if (status != ERR_INVALID_PARAMETER) return what + "accepted";
    return buffer == before ? "" : what + "refused but changed";
  }
  if (status != SUCCESS) return what + "status " + std::to_string(status);
  for (size_t i = 0; i < kGuard; ++i)
    if (buffer[i] != 0xA7 || buffer[kGuard + size + i] != 0xA7) return what + "wrote outside";
  const Bytes wanted = convertref::Convert(line, width, source, target, options);
  const Bytes got(buffer.begin() + kGuard, buffer.begin() + kGuard + static_cast<std::ptrdiff_t>(wanted.size()));
  std::string wrong = Compare(got, wanted, width, target.bits);
  if (!wrong.empty()) return what + wrong;
  wrong = CheckApart(line, wanted, width, source, target, options);
  return wrong.empty() ? wrong : what + "out of place: " + wrong;
}

class Convert : public testing::TestWithParam<Isa> {
 protected:
  void SetUp() override {
    if (GetParam() > tarn::BestIsa()) GTEST_SKIP() << "not on this processor";
    tarn::ForceIsa(GetParam());
  }
  void TearDown() override { tarn::ForceIsa(Isa::kCount); }

  void Expect(const Bytes& line, int width, const Side& source, const Side& target, const Options& options) {
    const std::string wrong = Check(line, width, source, target, options);
    if (!wrong.empty() && ++failures_ < 20) ADD_FAILURE() << wrong;
  }

  /// Every pair of bits and orders.
  template <class Visit>
  void EachPair(Visit visit) {
    for (const int sourceBits : kBits)
      for (const unsigned sourceOrder : kOrders)
        for (const int targetBits : kBits)
          for (const unsigned targetOrder : kOrders)
            visit(Side{sourceBits, sourceOrder}, Side{targetBits, targetOrder});
  }

 private:
  int failures_ = 0;
};

TEST_P(Convert, EveryPair) {
  Random random(31);
  EachPair([&](Side source, Side target) {
    const Palette from = RandomPalette(random, source.bits <= 8 ? source.bits : 0);
    const Palette to = RandomPalette(random, target.bits <= 8 ? target.bits : 0);
    for (const int given : {0, 1, 2, 3}) {
      if (given && source.bits > 8 && target.bits > 8) break;
      source.palette = given & 1 ? &from : nullptr;
      target.palette = given & 2 ? &to : nullptr;
      for (const int width : {1, 6, 33, 600}) {
        const Content content = width == 6 ? Content::kOnes : width == 33 ? Content::kLowBits : Content::kNoise;
        const Bytes line = MakeLine(random, LineBytes(width, source.bits), source.bits, content);
        Expect(line, width, source, target, {});
      }
    }
  });
}

TEST_P(Convert, EveryWidth) {
  Random random(32);
  EachPair([&](const Side& source, const Side& target) {
    if (source.order == 3 || target.order == 3 || !convertref::Accepts(source, target, {})) return;
    for (int width = 1; width <= 130; width += (source.order == target.order ? 1 : 7)) {
      const Bytes line = MakeLine(random, LineBytes(width, source.bits), source.bits, Content::kFewColors);
      Expect(line, width, source, target, {});
    }
  });
}

TEST_P(Convert, AlphaAndRanges) {
  Random random(33);
  const int ranges[][2] = {{-1, -1}, {0, 7},  {0, 11}, {0, 15}, {4, 11}, {2, 5},
                           {3, 3},   {1, 31}, {8, 30}, {6, 5},  {0, 99}};
  EachPair([&](const Side& source, const Side& target) {
    constexpr int kWidth = 21;
    const Bytes line = MakeLine(random, LineBytes(kWidth, source.bits), source.bits, Content::kNoise);
    for (const unsigned alpha : {16u, 32u, 48u, 3u}) Expect(line, kWidth, source, target, {alpha, -1, -1});
    if (source.order != 2 && target.order != 2) return;
    for (const auto& range : ranges)
      for (const unsigned flags : {4u, 8u, 12u, 20u}) Expect(line, kWidth, source, target, {flags, range[0], range[1]});
  });
}

TEST_P(Convert, ManyColorsFindWhatOneFinds) {
  Random random(35);
  for (const int bits : {2, 8}) {
    for (int round = 0; round < 4; ++round) {
      Palette palette = RandomPalette(random, bits);
      // Close to each other, equal ones, grays, black and white: what ties are made of.
      for (size_t i = 0; round && i < palette.size(); ++i)
        palette[i] = {static_cast<uint8_t>(palette[i].blue / 16 * 16), static_cast<uint8_t>(palette[i].green / 16 * 16),
                      static_cast<uint8_t>(palette[i].red / 16 * 16), 0};
      if (round == 2) palette[1] = {0, 0, 0, 0}, palette[2] = {255, 255, 255, 0};
      Bytes line(3 * 20000);
      for (uint8_t& byte : line) byte = round == 3 ? static_cast<uint8_t>(100 + random.Byte() % 24) : random.Byte();
      Expect(line, 20000, {24, 1}, {bits, 0, &palette}, {});
    }
  }
}

TEST_P(Convert, SamePaletteKeepsIndices) {
  Random random(34);
  for (const int bits : {1, 4, 8}) {
    Palette from = RandomPalette(random, bits);
    from.back() = from.front();  // the nearest search would give the first of the two
    Palette to = from;
    const Bytes line = MakeLine(random, LineBytes(77, bits), bits, Content::kNoise);
    Expect(line, 77, {bits, 0, &from}, {bits, 0, &to}, {});
    to.resize(256);
    Expect(line, 77, {bits, 0, &from}, {8, 0, &to}, {});
    ++to[0].reserved;  // counts
    Expect(line, 77, {bits, 0, &from}, {8, 0, &to}, {});
  }
}

INSTANTIATE_TEST_SUITE_P(Levels, Convert, testing::ValuesIn(tarn::test::kLevels));

TEST(ConvertBuffer, RefusesAndMeasures) {
  uint8_t line[64] = {1, 2, 3};
  EXPECT_EQ(T_ConvertBuffer(nullptr, 1, 8, 24, 0, 1, nullptr, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ConvertBuffer(line, 0, 8, 24, 0, 1, nullptr, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ConvertBuffer(line, -1, 8, 24, 0, 1, nullptr, nullptr), ERR_INVALID_PARAMETER);
  for (const int bits : {-1, 9, 15, 65, 128}) {
    EXPECT_EQ(T_ConvertBuffer(line, 1, bits, 24, 1, 1, nullptr, nullptr), ERR_INVALID_PARAMETER) << bits;
    EXPECT_EQ(T_ConvertBuffer(line, 1, 24, bits, 1, 1, nullptr, nullptr), ERR_INVALID_PARAMETER) << bits;
  }
  EXPECT_EQ(line[0] + line[1] + line[2], 6);
  EXPECT_EQ(T_CalcConvertSize(10, 1, 100, 24), 300u);
  EXPECT_EQ(T_CalcConvertSize(100, 24, 10, 1), 300u);
  EXPECT_EQ(T_CalcConvertSize(5, 0, 5, 8), 8u);
  EXPECT_EQ(T_CalcConvertSize(INT32_MAX, 64, 1, 1), uint64_t{INT32_MAX} * 8);
  EXPECT_EQ(T_CalcConvertSize(-5, 8, -5, 64), 0u);
}

TEST(ConvertBuffer, KnownValues) {
  struct Case {
    Bytes line;
    int from, to;
    unsigned fromOrder, toOrder;
    Bytes wanted;
  };
  const Case cases[] = {{{255, 255, 255}, 24, 0, 1, 0, {255}},
                        {{0, 0, 255}, 24, 0, 1, 0, {64}},
                        {{255, 1, 0}, 24, 48, 1, 1, {255, 255, 1, 1, 0, 0}},
                        {{0x1F, 0x04}, 16, 24, 1, 1, {255, 0, 8}},
                        {{255}, 0, 12, 0, 2, {255, 15}},
                        {{0x34, 0x12}, 16, 0, 2, 0, {0x12}},
                        {{255, 255, 255}, 24, 24, 1, 5, {255, 255, 255}},
                        {{0, 255, 0, 255}, 32, 64, 0, 1, {0, 0, 255, 255, 0, 0, 255, 255}},
                        {{0x78, 0x56, 0x34, 0x12}, 32, 32, 2, 1, {0x12, 0x12, 0x12, 0}}};
  for (const Case& c : cases) {
    Bytes line = c.line;
    line.resize(16);
    ASSERT_EQ(T_ConvertBuffer(line.data(), 1, c.from, c.to, c.fromOrder, c.toOrder, nullptr, nullptr), SUCCESS);
    line.resize(c.wanted.size());
    EXPECT_EQ(line, c.wanted) << c.from << "/" << c.fromOrder << " to " << c.to << "/" << c.toOrder;
  }
}

TEST(ConvertBuffer, WideGamutAndBackLosesRounding) {
  for (int b = 0; b < 256; b += 15)
    for (int g = 0; g < 256; g += 15)
      for (int r = 0; r < 256; r += 15) {
        uint8_t pixel[4] = {static_cast<uint8_t>(b), static_cast<uint8_t>(g), static_cast<uint8_t>(r)};
        T_ConvertBuffer(pixel, 1, 24, 24, 1, 5, nullptr, nullptr);
        T_ConvertBuffer(pixel, 1, 24, 24, 5, 1, nullptr, nullptr);
        EXPECT_LE(std::abs(pixel[0] - b) + std::abs(pixel[1] - g) + std::abs(pixel[2] - r), 6)
            << b << " " << g << " " << r;
      }
}

TEST(GrayParams, NamesBits) {
  int32_t significant, shift;
  uint32_t mask;
  const int32_t cases[][7] = {{16, 8, -1, -1, 8, 0xFF, 8},  {12, 16, 0, 11, 12, 0xFFF, 0}, {16, 16, 4, 11, 8, 0xFF, 4},
                              {32, 8, -1, -1, 8, 0xFF, 24}, {16, 8, 14, 15, 2, 3, 14},     {32, 32, 0, 31, 32, -1, 0}};
  for (const auto& c : cases) {
    T_GetGrayParams(c[0], c[1], c[2], c[3], &significant, &mask, &shift);
    EXPECT_EQ(significant, c[4]);
    EXPECT_EQ(mask, static_cast<uint32_t>(c[5]));
    EXPECT_EQ(shift, c[6]);
  }
  T_GetGrayParams(16, 8, 0, 15, nullptr, nullptr, nullptr);
}

}  // namespace
