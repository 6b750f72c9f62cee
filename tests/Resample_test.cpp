// Averages and curves against slow statements of their rules, walked sample by sample.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "Kernels/Kernels.h"
#include "Levels.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Random.h"
#include "tarn/tarn.h"

using namespace tarn::test;
namespace engine = tarn::engine;
using Bytes = std::vector<uint8_t>;

namespace {

using Line = std::vector<int64_t>;

// ---- The rules on one channel --------------------------------------------------------------------------------------

Line Average(const Line& from, int64_t to, bool rounded) {
  const auto size = static_cast<int64_t>(from.size());
  const int64_t step = (size * 4096 + (rounded ? to / 2 : 0)) / to;
  int64_t firstWeight = 4096, first = 0, end = step / 4096, endFraction = step % 4096;
  Line result;
  for (int64_t i = 0; i < to; ++i) {
    end = std::min(end, size);
    first = std::min(first, size - 1);
    __int128 sum = static_cast<__int128>(from[static_cast<size_t>(first)]) * firstWeight;
    int64_t total = firstWeight;
    for (int64_t n = first + 1; n < end; ++n)
      sum += static_cast<__int128>(from[static_cast<size_t>(n)]) * 4096, total += 4096;
    if (end < size) sum += static_cast<__int128>(from[static_cast<size_t>(end)]) * endFraction, total += endFraction;
    result.push_back(static_cast<int64_t>(sum / total));
    first = end;
    firstWeight = 4096 - endFraction;
    end += step / 4096;
    endFraction += step % 4096;
    if (endFraction >= 4096) endFraction -= 4096, ++end;
  }
  return result;
}

Line Interpolate(const Line& from, int64_t to, bool isSigned) {
  const auto size = static_cast<int64_t>(from.size());
  Line result;
  int64_t accumulator = 0;
  for (int64_t j = 0; j < size; ++j) {
    int64_t n = to / size;
    accumulator += to % size;
    if (accumulator >= size) accumulator -= size, ++n;
    const int64_t a = from[static_cast<size_t>(j)], b = j + 1 < size ? from[static_cast<size_t>(j + 1)] : a;
    if (j == 0) result.assign(static_cast<size_t>(n / 2), a);
    if (n == 0) continue;
    int64_t increment = (b - a) / n, remainder = (b - a) % n, value = a, carry = 0;
    if (remainder < 0 && !isSigned) remainder += n, --increment;
    for (int64_t k = 0; k < n; ++k) {
      result.push_back(value);
      value += increment;
      carry += remainder;
      if (carry >= n) carry -= n, ++value;
    }
  }
  result.resize(static_cast<size_t>(to));
  return result;
}

struct Range {
  int64_t least, most;
};

template <class Real>
int64_t Round(Real value, const Range& range) {
  const int64_t whole = static_cast<int64_t>(std::floor(value + Real(0.5)));
  return std::clamp(whole, range.least, range.most);
}

/// Calls with the sample before each position and the fraction behind it.
void StepAlong(int64_t from, int64_t to, const std::function<void(int64_t, float)>& each) {
  const float step = static_cast<float>(from) / static_cast<float>(to);
  const auto more = static_cast<int64_t>(0.5f / step);
  float t = 0;
  int64_t at = 0;
  for (int64_t i = 0; i < to; ++i) {
    const bool beyond = at >= from - 1;
    each(beyond ? from - 1 : at, beyond ? 0 : t);
    if (i < more) continue;
    t += step;
    if (t >= 1.0f) t -= 1.0f, ++at;
  }
}

template <class Real>
Real Curve(Real y1, Real y2, Real m1, Real m2, float t) {
  const float s = 1.0f - t;
  const Real c1 = (s * s * s - s) / 6.0f, c2 = (t * t * t - t) / 6.0f;
  return (Real(1) - Real(t)) * y1 + Real(t) * y2 + c1 * m1 + c2 * m2;
}

template <class Real>
Line Spline(const Line& from, int64_t to, const Range& range) {
  const size_t size = from.size();
  std::vector<Real> factor(size, 0), kept(size, 0), second(size, 0);
  for (size_t i = 1; i + 1 < size; ++i) {
    const Real right = Real(6) * (Real(from[i - 1]) - Real(2) * Real(from[i]) + Real(from[i + 1]));
    if (right == 0) continue;
    factor[i] = Real(-1) / (factor[i - 1] + Real(4));
    kept[i] = (kept[i - 1] - right) * factor[i];
  }
  for (size_t i = size; i-- > 2;) second[i - 1] = i - 1 < size - 1 ? factor[i - 1] * second[i] + kept[i - 1] : 0;
  Line result;
  StepAlong(static_cast<int64_t>(size), to, [&](int64_t at, float t) {
    const auto i = static_cast<size_t>(at);
    result.push_back(t == 0 ? from[i]
                            : Round(Curve(Real(from[i]), Real(from[i + 1]), second[i], second[i + 1], t), range));
  });
  return result;
}

/// Down: four rows at each place.
template <class Real>
Line SplineDown(const Line& from, int64_t to, const Range& range) {
  const auto size = static_cast<int64_t>(from.size());
  const auto y = [&](int64_t i) { return Real(from[static_cast<size_t>(std::clamp<int64_t>(i, 0, size - 1))]); };
  Line result;
  StepAlong(size, to, [&](int64_t i, float t) {
    const Real d1 = y(i - 1) - Real(2) * y(i) + y(i + 1), d2 = y(i) - Real(2) * y(i + 1) + y(i + 2);
    const Real m2 = (Real(6) * d2 - Real(1.5) * d1) * Real(0.266667f), m1 = Real(1.5) * d1 - m2 / Real(4);
    result.push_back(t == 0 ? from[static_cast<size_t>(i)] : Round(Curve(y(i), y(i + 1), m1, m2, t), range));
  });
  return result;
}

// ---- On pictures ---------------------------------------------------------------------------------------------------

struct Format {
  const char* name;
  int32_t bits;
  uint32_t order;
  int32_t sampleBytes;
  bool isSigned;
  int32_t Channels() const { return bits / 8 / sampleBytes; }
  Range Limits() const {
    const int64_t top = int64_t{1} << (8 * sampleBytes - isSigned);
    return {isSigned ? -top : 0, top - 1};
  }
};
constexpr Format kFormats[] = {
    {"8-bit gray", 8, 0, 1, false},         {"16-bit gray", 16, 2, 2, false},  {"16-bit signed", 16, 2, 2, true},
    {"32-bit gray", 32, 2, 4, false},       {"32-bit signed", 32, 2, 4, true}, {"24-bit", 24, 1, 1, false},
    {"24-bit wide gamut", 24, 5, 1, false}, {"32-bit", 32, 0, 1, false},       {"48-bit", 48, 1, 2, false},
    {"48-bit signed", 48, 1, 2, true},      {"64-bit", 64, 1, 2, false}};

/// Rows of samples.
struct Samples {
  int64_t width, height;
  int32_t channels;
  Line values;
  int64_t& At(int64_t x, int64_t y, int32_t c) { return values[static_cast<size_t>((y * width + x) * channels + c)]; }
};

Samples Read(BitmapHandle& b, const Format& f) {
  Samples s{b.Width, b.Height, f.Channels(), {}};
  for (int32_t y = 0; y < b.Height; ++y) {
    const Bytes line = Row(b, static_cast<uint32_t>(y));
    for (int64_t i = 0; i < s.width * s.channels; ++i) {
      uint64_t value = 0;
      std::memcpy(&value, line.data() + i * f.sampleBytes, static_cast<size_t>(f.sampleBytes));
      const int unused = 64 - 8 * f.sampleBytes;
      s.values.push_back(f.isSigned ? static_cast<int64_t>(value << unused) >> unused : static_cast<int64_t>(value));
    }
  }
  return s;
}

using Rule = std::function<Line(const Line&, int64_t)>;

/// Across, then down.
Samples Scaled(Samples from, int64_t width, int64_t height, const Rule& across, const Rule& down) {
  Samples wide{width, from.height, from.channels, Line(static_cast<size_t>(width * from.height * from.channels))};
  for (int32_t c = 0; c < from.channels; ++c) {
    for (int64_t y = 0; y < from.height; ++y) {
      Line line;
      for (int64_t x = 0; x < from.width; ++x) line.push_back(from.At(x, y, c));
      const Line made = across(line, width);
      for (int64_t x = 0; x < width; ++x) wide.At(x, y, c) = made[static_cast<size_t>(x)];
    }
  }
  Samples result{width, height, from.channels, Line(static_cast<size_t>(width * height * from.channels))};
  for (int32_t c = 0; c < from.channels; ++c) {
    for (int64_t x = 0; x < width; ++x) {
      Line line;
      for (int64_t y = 0; y < from.height; ++y) line.push_back(wide.At(x, y, c));
      const Line made = down(line, height);
      for (int64_t y = 0; y < height; ++y) result.At(x, y, c) = made[static_cast<size_t>(y)];
    }
  }
  return result;
}

Samples Wanted(const Samples& from, const Format& f, int64_t width, int64_t height, bool spline) {
  const Range range = f.Limits();
  const auto rule = [&](bool across) -> Rule {
    return [&f, range, spline, across](const Line& line, int64_t to) {
      if (to <= static_cast<int64_t>(line.size())) return Average(line, to, across || spline);
      if (!spline) return Interpolate(line, to, f.isSigned);
      if (f.sampleBytes == 4) return across ? Spline<double>(line, to, range) : SplineDown<double>(line, to, range);
      return across ? Spline<float>(line, to, range) : SplineDown<float>(line, to, range);
    };
  };
  return Scaled(from, width, height, rule(true), rule(false));
}

void Make(engine::Picture& picture, const Format& f, engine::Shape shape, uint64_t seed) {
  ASSERT_EQ(picture.Make(engine::Kind::kBlock, shape, seed), "");
  picture.record.Order = f.order;
  if (f.isSigned) picture.record.Flags |= T_FLAG_SIGNED_DATA;
  if (f.bits == 8) T_CreateBitmapGrayPalette(&picture.record);
}

void ExpectRule(const Format& f, engine::Shape shape, int32_t width, int32_t height, bool spline) {
  SCOPED_TRACE(testing::Message() << f.name << ", " << shape.width << " x " << shape.height << " to " << width << " x "
                                  << height << (spline ? " spline" : " area"));
  engine::Picture picture;
  Make(picture, f, shape, 11);
  BitmapHandle& b = picture.record;
  Samples wanted = Wanted(Read(b, f), f, width, height, spline);
  ASSERT_EQ(spline ? T_BicubicResampleBitmap(&b, width, height) : T_ResampleBitmap(&b, width, height), SUCCESS);
  Samples got = Read(b, f);
  ASSERT_EQ(got.values.size(), wanted.values.size());
  for (size_t i = 0; i < got.values.size(); ++i) {
    ASSERT_EQ(got.values[i], wanted.values[i]) << "sample " << i % static_cast<size_t>(width * f.Channels())
                                               << " of row " << i / static_cast<size_t>(width * f.Channels());
  }
}

class Resample : public testing::TestWithParam<tarn::Isa> {
 protected:
  void SetUp() override { tarn::ForceIsa(GetParam()); }
  void TearDown() override { tarn::ForceIsa(tarn::Isa::kCount); }
};
INSTANTIATE_TEST_SUITE_P(Levels, Resample, testing::ValuesIn(tarn::test::kLevels));

TEST_P(Resample, EveryFormatFollowsTheRules) {
  struct Size {
    int32_t width, height;
  };
  constexpr Size sizes[] = {{33, 12}, {67, 30},  {134, 24}, {25, 8},   {1, 1},    {66, 23},
                            {67, 24}, {150, 11}, {20, 50},  {201, 73}, {400, 97}, {22, 3}};
  for (const Format& f : kFormats) {
    for (const Size& size : sizes) {
      for (const bool spline : {false, true}) {
        ExpectRule(f, {67, 24, f.bits}, size.width, size.height, spline);
        if (HasFailure()) return;
      }
    }
    for (const bool spline : {false, true}) {  // longer than what kernels repeat
      ExpectRule(f, {501, 5, f.bits}, 1002, 10, spline);
      ExpectRule(f, {501, 9, f.bits}, 185, 4, spline);
    }
    ExpectRule(f, {501, 6, f.bits}, 250, 3, false);
    ExpectRule(f, {1, 1, f.bits}, 7, 3, true);
    ExpectRule(f, {2, 3, f.bits}, 17, 2, false);
    ExpectRule(f, {2, 2, f.bits}, 5, 9, true);
    if (HasFailure()) return;
  }
}

// Numerators around and beyond the limits of the fast forms of division, and lines of all ones.
TEST_P(Resample, LongCells) {
  for (const Format& f : kFormats) {
    for (const int32_t ratio : {2, 4, 8, 15, 16, 17, 300}) {
      ExpectRule(f, {7 * ratio + 3, 40, f.bits}, 7, 39, false);
      ExpectRule(f, {7 * ratio, 40, f.bits}, 7, 20, false);
      ExpectRule(f, {40, 3 * ratio + 1, f.bits}, 39, 3, true);
      ExpectRule(f, {33, 3 * ratio + 1, f.bits}, 33, 3, false);
      if (ratio <= 8) ExpectRule(f, {131 * ratio, 6, f.bits}, 131, 4, false);  // cells of so many whole pixels
      if (HasFailure()) return;
    }
    ExpectRule(f, {9000, 2, f.bits}, 2, 1, false);
    ExpectRule(f, {2, 9000, f.bits}, 1, 2, false);
    ExpectRule(f, {9, 2, f.bits}, 4000, 2, false);
    ExpectRule(f, {3, 2, f.bits}, 2, 1500, false);
    if (f.bits == 8) ExpectRule(f, {65600, 3, f.bits}, 65650, 4, true);
    ExpectRule(f, {40, 2, f.bits}, 41, 300, false);
    // Steps of columns are rounded: the last cell is what is left, a part of a sample.
    ExpectRule(f, {8001, 3, f.bits}, 8000, 2, false);
    if (HasFailure()) return;
  }
}

TEST_P(Resample, FlatPicturesStayFlat) {
  for (const Format& f : kFormats) {
    for (const int level : {0x00, 0x01, 0x7F, 0x80, 0xFB, 0xFF}) {
      for (const bool spline : {false, true}) {
        for (const int32_t side : {13, 64, 100}) {
          engine::Picture picture;
          Make(picture, f, {40, 40, f.bits}, 1);
          BitmapHandle& b = picture.record;
          const Bytes line(b.BytesPerLine, static_cast<uint8_t>(level));
          for (uint32_t row = 0; row < 40; ++row) T_PutBitmapRow(&b, line.data(), row, line.size());
          ASSERT_EQ(T_SizeBitmap(&b, side, 77 - side / 2, spline ? RESIZE_SMOOTH : RESIZE_AREA), SUCCESS);
          const Samples got = Read(b, f);
          const int64_t first = got.values[0];
          EXPECT_EQ(first & 255, level);
          for (const int64_t value : got.values) ASSERT_EQ(value, first) << f.name << " " << side << " level " << level;
        }
      }
    }
  }
}

TEST_P(Resample, ByHand) {
  const auto resized = [](const Bytes& row, int32_t width) {
    Bitmap b;
    T_CreateBitmap(&b, 212, TYPE_CONV, static_cast<int32_t>(row.size()), 1, 8, 0, nullptr, 1, nullptr, 0);
    T_CreateBitmapGrayPalette(&b);
    Bytes line = row;
    line.resize(b.BytesPerLine);
    T_PutBitmapRow(&b, line.data(), 0, line.size());
    EXPECT_EQ(T_ResampleBitmap(&b, width, 1), SUCCESS);
    line = Row(b, 0);
    line.resize(static_cast<size_t>(width));
    return line;
  };
  EXPECT_EQ(resized({10, 20, 30, 40}, 2), (Bytes{15, 35}));
  EXPECT_EQ(resized({0, 100}, 8), (Bytes{0, 0, 0, 25, 50, 75, 100, 100}));
  EXPECT_EQ(resized({30, 60, 120}, 2), (Bytes{40, 100}));  // (30 + 60 / 2) / 1.5, (60 / 2 + 120) / 1.5
}

// ---- Formats that go through others --------------------------------------------------------------------------------

TEST(ResampleFormats, PalettesAreDitheredBack) {
  for (const int32_t bits : {1, 2, 3, 4, 5, 6, 7, 8}) {
    for (const bool wider : {false, true}) {
      SCOPED_TRACE(testing::Message() << bits << " bits" << (wider ? ", wider" : ""));
      engine::Picture picture;
      ASSERT_EQ(picture.Make(engine::Kind::kBlock, {61, 20, bits}, 4), "");
      BitmapHandle& b = picture.record;
      engine::Random random(5);
      std::vector<T_PaletteEntry> palette(size_t{1} << bits);
      for (auto& entry : palette) entry = {random.Byte(), random.Byte(), random.Byte(), 0};
      T_SetBitmapNewPalette(&b, palette.data(), static_cast<uint32_t>(palette.size()));
      const int32_t width = wider ? 100 : 30, height = wider ? 13 : 33;
      Bitmap work;
      ASSERT_EQ(T_CreateBitmap(&work, 212, TYPE_CONV, 61, 20, 24, T_ORDER_BGR, nullptr, 4, nullptr, 0), SUCCESS);
      for (uint32_t row = 0; row < 20; ++row) {
        Bytes line = Row(b, row);
        line.resize(200);
        ASSERT_EQ(T_ConvertBuffer(line.data(), 61, bits, 24, 0, T_ORDER_BGR, palette.data(), nullptr), SUCCESS);
        T_PutBitmapRow(&work, line.data(), row, 183);
      }
      ASSERT_EQ(T_ResampleBitmap(&work, width, height), SUCCESS);
      ASSERT_EQ(T_ResampleBitmap(&b, width, height), SUCCESS);
      work.DitheringMethod = DITHER_FLOYD_STEINBERG;
      ASSERT_EQ(T_StartDitheringExt(&work, palette.data(), static_cast<uint32_t>(palette.size()),
                                    static_cast<uint32_t>(bits), nullptr),
                SUCCESS);
      for (uint32_t row = 0; row < static_cast<uint32_t>(height); ++row) {
        Bytes wanted(b.BytesPerLine, 0);
        T_DitherLine(&work, Row(work, row).data(), wanted.data());
        EXPECT_EQ(Row(b, row), wanted) << row;
      }
      T_StopDithering(&work);
    }
  }
}

/// What a bitmap of few or deep bits gives is what its lines give in a wider format.
TEST(ResampleFormats, DeepGrayAndHighColourGoThroughWiderSamples) {
  struct Case {
    int32_t bits;
    uint32_t order;
    int32_t low, high;
    int32_t wideBits;
  };
  for (const Case& c : {Case{12, 2, 0, 11, 16}, Case{12, 2, 2, 9, 16}, Case{16, 2, 3, 14, 16}, Case{16, 1, 0, -1, 32},
                        Case{16, 0, 0, -1, 32}}) {
    SCOPED_TRACE(testing::Message() << c.bits << " bits, order " << c.order << ", " << c.low << ".." << c.high);
    engine::Picture picture;
    ASSERT_EQ(picture.Make(engine::Kind::kBlock, {50, 11, c.bits}, 9), "");
    BitmapHandle& b = picture.record;
    b.Order = c.order;
    const bool gray = c.order == 2;
    if (gray) b.LowBit = c.low, b.HighBit = c.high;
    Bitmap wide;
    ASSERT_EQ(T_CreateBitmap(&wide, 212, TYPE_CONV, 50, 11, c.wideBits, c.order, nullptr, 4, nullptr, 0), SUCCESS);
    for (uint32_t row = 0; row < 11; ++row) {
      Bytes line = Row(b, row);
      line.resize(T_CalcConvertSize(50, c.bits, 50, c.wideBits));
      ASSERT_EQ(T_ConvertBufferExt(line.data(), 50, c.bits, c.wideBits, c.order, c.order, nullptr, nullptr,
                                   gray ? T_CONVERT_SOURCE_RANGE : 0, c.low, c.high),
                SUCCESS);
      T_PutBitmapRow(&wide, line.data(), row, wide.BytesPerLine);
    }
    for (BitmapHandle* each : {&b, static_cast<BitmapHandle*>(&wide)})
      ASSERT_EQ(T_SizeBitmap(each, 33, 25, RESIZE_SMOOTH), SUCCESS);
    for (uint32_t row = 0; row < 25; ++row) {
      Bytes line = Row(wide, row);
      ASSERT_EQ(T_ConvertBufferExt(line.data(), 33, c.wideBits, c.bits, c.order, c.order, nullptr, nullptr,
                                   gray ? T_CONVERT_TARGET_RANGE : 0, c.low, c.high),
                SUCCESS);
      const size_t used = (33 * static_cast<size_t>(c.bits) + 7) / 8;
      Bytes got = Row(b, row);
      line.resize(used);
      got.resize(used);
      EXPECT_EQ(got, line) << row;
    }
  }
}

TEST(ResampleFormats, StreamedRowsAreTheBitmaps) {
  for (const int32_t bits : engine::kDepths) {
    for (const uint32_t flags : {uint32_t{RESIZE_AREA}, uint32_t{RESIZE_SMOOTH}}) {
      for (const int32_t width : {20, 90}) {
        SCOPED_TRACE(testing::Message() << bits << " bits, flags " << flags << ", width " << width);
        engine::Picture picture;
        ASSERT_EQ(picture.Make(engine::Kind::kMixedTiles, {41, 20, bits}, 2), "");
        BitmapHandle& b = picture.record;
        const int32_t height = 57 - width / 2;
        void* state = nullptr;
        ASSERT_EQ(T_StartResizeBitmap(&state, &b, width, height, flags), SUCCESS);
        uint32_t size;
        std::memcpy(&size, state, 4);
        EXPECT_EQ(size, 2736u);
        BitmapHandle copy{};
        ASSERT_EQ(T_CopyBitmap(&copy, &b, sizeof copy), SUCCESS);
        ASSERT_EQ(T_SizeBitmap(&copy, width, height, flags), SUCCESS);
        Bytes line(copy.BytesPerLine);
        const auto expectRow = [&](uint32_t row) {
          ASSERT_EQ(T_GetResizedRowCol(state, line.data(), row, 0, line.size()), SUCCESS);
          ASSERT_EQ(line, Row(copy, row)) << row;
        };
        for (uint32_t row = 0; row < static_cast<uint32_t>(height); ++row) expectRow(row);
        for (const uint32_t row : {5u, 9u, 9u, 0u, 3u}) expectRow(row);
        uint8_t part[8] = {};
        ASSERT_EQ(T_GetResizedRowCol(state, part, 4, 8, 3), SUCCESS);
        EXPECT_EQ(std::memcmp(part, Row(copy, 4).data() + bits, 3), 0);
        EXPECT_EQ(T_GetResizedRowCol(state, part, static_cast<uint32_t>(height), 0, 1), ERR_INVALID_PARAMETER);
        EXPECT_EQ(T_GetResizedRowCol(state, part, 0, static_cast<uint32_t>(width), 1), ERR_INVALID_PARAMETER);
        EXPECT_EQ(T_GetResizedRowCol(state, part, 0, 0, line.size() + 1), ERR_INVALID_PARAMETER);
        EXPECT_EQ(T_GetResizedRowCol(state, nullptr, 0, 0, 1), ERR_INVALID_PARAMETER);
        EXPECT_EQ(T_StopResizeBitmap(state), SUCCESS);
        T_FreeBitmap(&copy);
      }
    }
  }
  uint32_t no = 2735;
  EXPECT_EQ(T_StopResizeBitmap(&no), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_StopResizeBitmap(nullptr), ERR_INVALID_PARAMETER);
  Bitmap b(5, 5, 8);
  void* state = nullptr;
  EXPECT_EQ(T_StartResizeBitmap(&state, &b, 3, 3, RESIZE_AREA), ERR_NO_BITMAP);
  T_AllocateBitmap(&b, TYPE_CONV);
  EXPECT_EQ(T_StartResizeBitmap(&state, &b, 3, 3, RESIZE_NEAREST), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_StartResizeBitmap(&state, &b, 0, 0, RESIZE_AREA), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_StartResizeBitmap(nullptr, &b, 3, 3, RESIZE_AREA), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_StartResizeBitmap(&state, nullptr, 3, 3, RESIZE_AREA), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetResizedRowCol(nullptr, &no, 0, 0, 1), ERR_INVALID_PARAMETER);
  Bitmap deep(5, 5, 64);
  ASSERT_EQ(T_AllocateBitmap(&deep, TYPE_CONV), SUCCESS);
  EXPECT_EQ(T_StartResizeBitmap(&state, &deep, INT32_MAX, 3, RESIZE_AREA), ERR_IMAGE_TOO_LARGE);
  EXPECT_EQ(state, nullptr);
}

}  // namespace
