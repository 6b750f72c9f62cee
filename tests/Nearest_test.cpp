// The nearest entry of a palette: every level of the kernels and both doors against a slow statement of the rule; maps
// between palettes; bits of gray samples.

#include "Common/Internal/Nearest.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <random>
#include <thread>
#include <vector>

#include "Common/Internal/GrayParams.h"
#include "Common/Internal/PaletteMap.h"
#include "Holding.h"
#include "Levels.h"
#include "tarn/convert.h"
#include "tarn/palette.h"

namespace {

using Entries = std::vector<T_PaletteEntry>;
using tarn::Isa;

T_PaletteEntry Entry(int red, int green, int blue, int reserved = 0) {
  return {static_cast<uint8_t>(blue), static_cast<uint8_t>(green), static_cast<uint8_t>(red),
          static_cast<uint8_t>(reserved)};
}

/// The channels by size, written out as which of them are strictly larger.
int OrderCode(int r, int g, int b) {
  int code = 0;
  if (r < b) std::swap(r, b), code = 4;
  if (g < b) std::swap(g, b), code += 2;
  if (r < g) code += 1;
  return code;
}

uint32_t Slow(const Entries& palette, int r, int g, int b) {
  const auto is = [&](size_t at, int level) {
    return palette[at].Red == level && palette[at].Green == level && palette[at].Blue == level;
  };
  if (palette.empty()) return 0xFFFFFFFF;
  const size_t last = palette.size() - 1;
  if (!r && !g && !b) {
    if (is(0, 0)) return 0;
    if (is(last, 0)) return static_cast<uint32_t>(last);
  }
  if (r == 255 && g == 255 && b == 255) {
    if (is(last, 255)) return static_cast<uint32_t>(last);
    if (is(0, 255)) return 0;
  }
  int64_t best = -1;
  uint32_t index = 0;
  for (uint32_t i = 0; i <= last; ++i) {
    const auto& e = palette[i];
    const int64_t distance = (e.Red - r) * (e.Red - r) + (e.Green - g) * (e.Green - g) + (e.Blue - b) * (e.Blue - b);
    const bool takes =
        best < 0 || distance < best || (distance == best && OrderCode(e.Red, e.Green, e.Blue) == OrderCode(r, g, b));
    if (takes) best = distance, index = i;
    if (best == 0) break;
  }
  return index;
}

/// Channels of a few levels, so that several entries are equally near.
Entries Palette(std::mt19937& random, uint32_t count, int step) {
  Entries palette(count);
  for (auto& e : palette) {
    const auto level = [&] { return static_cast<int>(random() % 256) / step * step; };
    e = Entry(level(), level(), level(), static_cast<int>(random() % 256));
  }
  return palette;
}

// A thread without memory for what it learns searches each time.
TEST(Nearest, AThreadWithoutMemoryFindsTheSame) {
  std::mt19937 random(7);
  const auto byte = [&] { return static_cast<uint8_t>(random()); };
  Entries palette;
  for (int i = 0; i < 256; ++i) palette.push_back(Entry(byte(), byte(), byte()));
  std::vector<uint8_t> colors(3 * 400);
  for (uint8_t& value : colors) value = byte();
  const auto convert = [&](std::vector<uint8_t>& line) {
    line = colors;
    return T_ConvertBuffer(line.data(), 400, 24, 8, T_ORDER_BGR, T_ORDER_RGB, nullptr, palette.data());
  };
  std::vector<uint8_t> wanted;
  ASSERT_EQ(convert(wanted), SUCCESS);
  for (uint64_t first = 1, answered = 1; answered; ++first) {
    std::thread([&] {
      std::vector<uint8_t> line;
      {
        const tarn::test::Armed refusing({.first = first});
        EXPECT_EQ(convert(line), SUCCESS);
        answered = tarn::fault::Answered();
      }
      EXPECT_EQ(line, wanted) << "refused from " << first << " on";
    }).join();
  }
}

}  // namespace

TEST(Nearest, EveryLevelKeepsTheRule) {
  std::mt19937 random(11);
  const Isa before = tarn::ForceIsa(Isa::kCount);
  for (const Isa isa : tarn::test::kLevels) {
    if (isa > tarn::BestIsa()) continue;
    tarn::ForceIsa(isa);
    uint32_t rounds = 0;
    for (uint32_t count = 1; count <= 600; count += count < 66 || (count > 248 && count < 262) ? 1 : 67) {
      for (const int step : {1, 8, 64, 85, 255}) {
        const Entries entries = Palette(random, count, step);
        const std::unique_ptr<T_PaletteEntry[]> exact(new T_PaletteEntry[count]);  // the sanitizer guards its end
        std::copy(entries.begin(), entries.end(), exact.get());
        const tarn::NearestSearch search(exact.get(), count);
        for (int i = 0; i < 24; ++i) {
          const uint32_t at = random();
          int r = at & 255, g = at >> 8 & 255, b = at >> 16 & 255;
          if (i % 3 == 1) r = r / step * step, g = g / step * step, b = b / step * step;
          if (i == 0) r = g = b = 0;
          if (i == 3) r = g = b = 255;
          if (i == 6) g = b = r;
          const uint32_t wanted = Slow(entries, r, g, b);
          ASSERT_EQ(T_FindPaletteIndex(exact.get(), count, static_cast<uint8_t>(r), static_cast<uint8_t>(g),
                                       static_cast<uint8_t>(b)),
                    wanted)
              << count << " entries, step " << step << ", " << r << ' ' << g << ' ' << b << ", level " << int(isa);
          ASSERT_EQ(search.Find(r, g, b), wanted)
              << "prepared, " << count << " entries, step " << step << ", " << r << ' ' << g << ' ' << b;
          ++rounds;
        }
      }
    }
    EXPECT_GT(rounds, 8000u);
  }
  tarn::ForceIsa(before);
}

TEST(Nearest, CellsKeepTheRule) {
  std::mt19937 random(12);
  for (const Isa isa : tarn::test::kLevels) {
    if (tarn::ForceIsa(isa) != isa) continue;
    for (const uint32_t count : {1u, 2u, 7u, 8u, 9u, 100u, 255u, 256u}) {
      for (const int step : {1, 8, 64, 255}) {
        Entries entries = Palette(random, count, step);
        if (count > 8) entries[3] = entries[7] = entries[5];  // the first of equal ones
        const tarn::NearestSearch search(entries.data(), count);
        for (int i = 0; i < 12; ++i) {
          const auto& near = entries[random() % count];
          uint32_t cell = tarn::PlaceOfColor(near.Red, near.Green, near.Blue) / tarn::kCellColors;
          if (i == 0) cell = 0;
          if (i == 1) cell = tarn::kCells - 1;
          if (i == 2) cell = tarn::PlaceOfColor(near.Red, near.Red, near.Red) / tarn::kCellColors;  // grays
          if (i > 8) cell = random() % tarn::kCells;
          uint8_t answers[tarn::kCellColors];
          search.FindCell(cell, answers);
          for (uint32_t color = 0; color < tarn::kCellColors; ++color) {
            const uint32_t r = color >> 6, g = color >> 3 & 7, b = color & 7;
            const auto at = [cell](uint32_t channel, uint32_t low) {
              return static_cast<uint8_t>(tarn::CellBegin(cell, channel) | low);
            };
            ASSERT_EQ(answers[tarn::PlaceOfColor(r, g, b)],
                      T_FindPaletteIndex(entries.data(), count, at(2, r), at(1, g), at(0, b)))
                << count << " entries, step " << step << ", cell " << cell << ", " << r << ' ' << g << ' ' << b
                << ", level " << tarn::test::LevelName(isa);
          }
        }
      }
    }
  }
  tarn::ForceIsa(Isa::kCount);
}

TEST(Nearest, TiesAndEnds) {
  const auto find = [](const Entries& e, int r, int g, int b) {
    return T_FindPaletteIndex(e.data(), static_cast<uint32_t>(e.size()), static_cast<uint8_t>(r),
                              static_cast<uint8_t>(g), static_cast<uint8_t>(b));
  };
  // Both 10 away from (100, 50, 0); the later one has its channels in another order, then in the same one.
  EXPECT_EQ(find({Entry(100, 40, 0), Entry(100, 60, 0)}, 100, 50, 0), 1u);
  EXPECT_EQ(find({Entry(60, 40, 50), Entry(40, 60, 50)}, 50, 50, 50), 0u);
  EXPECT_EQ(find({Entry(51, 50, 50), Entry(50, 51, 50), Entry(49, 50, 50)}, 50, 50, 50), 0u);
  EXPECT_EQ(find({Entry(0, 9, 9), Entry(9, 9, 9, 1), Entry(9, 9, 9, 2)}, 9, 9, 9), 1u);
  const Entries blacks = {Entry(1, 1, 1), Entry(0, 0, 0), Entry(0, 0, 0)};
  EXPECT_EQ(find(blacks, 0, 0, 0), 2u);
  const Entries whites = {Entry(255, 255, 255), Entry(255, 255, 255), Entry(1, 1, 1)};
  EXPECT_EQ(find(whites, 255, 255, 255), 0u);
  EXPECT_EQ(T_FindPaletteIndex(nullptr, 5, 1, 2, 3), 0u);
  EXPECT_EQ(T_FindPaletteIndex(blacks.data(), 0, 0, 0, 0), 0xFFFFFFFFu);
  EXPECT_EQ(tarn::NearestSearch(nullptr, 5).Find(1, 2, 3), 0u);
  EXPECT_EQ(tarn::NearestSearch(blacks.data(), 0).Find(0, 0, 0), 0xFFFFFFFFu);
}

TEST(Nearest, MapsBetweenPalettes) {
  uint8_t map[256];
  EXPECT_TRUE(tarn::BuildPaletteIndexMap(nullptr, 256, nullptr, 0, nullptr));
  const Entries two = {Entry(0, 0, 0), Entry(255, 255, 255)};
  EXPECT_FALSE(tarn::BuildPaletteIndexMap(nullptr, 256, two.data(), 2, map));
  EXPECT_EQ(map[127], 0);
  EXPECT_EQ(map[128], 1);

  // Byte for byte equal beginnings are the identity even where a search would find another entry.
  Entries twice = {Entry(9, 9, 9), Entry(9, 9, 9), Entry(1, 2, 3, 4)};
  Entries longer = twice;
  longer.push_back(Entry(5, 5, 5));
  EXPECT_TRUE(tarn::BuildPaletteIndexMap(twice.data(), 3, longer.data(), 4, map));
  EXPECT_EQ(map[1], 1);
  longer[2].Reserved = 0;
  EXPECT_FALSE(tarn::BuildPaletteIndexMap(twice.data(), 3, longer.data(), 4, map));
  EXPECT_EQ(map[1], 0);
  EXPECT_EQ(map[2], 2);
  twice[1] = longer[1] = Entry(8, 8, 8);
  EXPECT_TRUE(tarn::BuildPaletteIndexMap(twice.data(), 3, longer.data(), 4, map)) << "searched, and found in place";

  const Entries primaries = {Entry(255, 0, 0), Entry(0, 255, 0), Entry(0, 0, 255), Entry(255, 255, 255)};
  EXPECT_FALSE(tarn::BuildPaletteIndexMap(primaries.data(), 4, nullptr, 0, map));
  EXPECT_EQ((std::vector<int>{map[0], map[1], map[2], map[3]}), (std::vector<int>{64, 159, 32, 255}));
}

TEST(GrayParams, RangesOfASample) {
  const struct {
    int32_t bits, maximum, low, high;
    int32_t significant;
    uint32_t mask;
    int32_t shift;
  } cases[] = {{16, 16, 0, 15, 16, 0xFFFF, 0},
               {16, 8, 0, 15, 8, 0xFF, 8},
               {12, 16, 0, -1, 12, 0xFFF, 0},
               {16, 16, 2, 11, 10, 0x3FF, 2},
               {16, 8, 2, 11, 8, 0xFF, 4},
               {32, 32, 0, -1, 32, 0xFFFFFFFF, 0},
               {32, 8, -5, -1, 8, 0xFF, 24},
               {16, 16, 15, 15, 1, 1, 15},
               // Damaged records: every shift stays inside the pixel.
               {12, 16, 0, 15, 12, 0xFFF, 0},
               {16, 16, 900, 12, 1, 1, 12},
               {16, 16, 9, 3, 1, 1, 3},
               {32, 32, INT32_MAX, INT32_MAX, 1, 1, 31},
               {16, 16, INT32_MIN, INT32_MIN, 16, 0xFFFF, 0},
               {0, 8, 0, -1, 8, 0xFF, 0},
               {INT32_MAX, 16, 0, INT32_MAX, 16, 0xFFFF, 16},
               {16, -3, 0, 15, 1, 1, 15}};
  for (const auto& c : cases) {
    const tarn::GrayParams got = tarn::GrayParamsOf(c.bits, c.maximum, c.low, c.high);
    EXPECT_EQ(got.significant, c.significant) << c.bits << ' ' << c.low << ' ' << c.high;
    EXPECT_EQ(got.mask, c.mask) << c.bits << ' ' << c.low << ' ' << c.high;
    EXPECT_EQ(got.shift, c.shift) << c.bits << ' ' << c.low << ' ' << c.high;
  }
}
