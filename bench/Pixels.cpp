// Single pixels in order and anywhere, the nearest entry of a palette, filling.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <random>

#include "Bitmaps.h"

namespace bench {
namespace {

constexpr int32_t kSide = 256;
constexpr size_t kPixels = size_t{kSide} * kSide;
constexpr double kPerPixel = 1e9 / kPixels;

/// A picture in the second-level cache, and the order in which its pixels are visited.
struct Visit {
  Visit(int32_t bits, bool inOrder) : bitmap(kSide, kSide, bits, TYPE_CONV), places(kPixels) {
    for (size_t i = 0; i < kPixels; ++i) places[i] = {static_cast<int32_t>(i / kSide), static_cast<int32_t>(i % kSide)};
    std::mt19937 random(3);
    if (!inOrder) std::shuffle(places.begin(), places.end(), random);
    if (bits <= 8) Require(T_CreateBitmapGrayPalette(&bitmap) == SUCCESS, "T_CreateBitmapGrayPalette");
    for (const Place& p : places)
      Require(T_PutPixelColor(&bitmap, p.row, p.column, random() & 0xFFFFFF) == SUCCESS, "T_PutPixelColor");
  }
  struct Place {
    int32_t row, column;
  };
  Bitmap bitmap;
  std::vector<Place> places;

  void Get() {
    uint32_t joined = 0;
    for (const Place& p : places) joined |= T_GetPixelColor(&bitmap, p.row, p.column);
    Require((joined & T_NO_COLOR) == 0, "T_GetPixelColor");
  }
  void Put() {
    int32_t joined = SUCCESS;
    for (const Place& p : places) joined &= T_PutPixelColor(&bitmap, p.row, p.column, 0x123456);
    Require(joined == SUCCESS, "T_PutPixelColor");
  }
};

struct Palettes {
  Palettes() : entries(256), colors(1 << 12) {
    std::mt19937 random(5);
    for (auto& entry : entries)
      entry = {static_cast<uint8_t>(random()), static_cast<uint8_t>(random()), static_cast<uint8_t>(random()), 0};
    for (auto& color : colors) color = random() & 0xFFFFFF;
  }
  std::vector<T_PaletteEntry> entries;
  std::vector<uint32_t> colors;

  void Find(uint32_t count) {
    uint32_t joined = 0;
    for (const uint32_t color : colors)
      joined |= T_FindPaletteIndex(entries.data(), count, static_cast<uint8_t>(color), static_cast<uint8_t>(color >> 8),
                                   static_cast<uint8_t>(color >> 16));
    Require(joined < 256, "T_FindPaletteIndex");
  }
};

}  // namespace

Group PixelGroup() {
  Group group{"pixels", "Single pixels of a 256 x 256 picture in one block", {"ns a pixel"}, {}, {}};
  for (const bool inOrder : {true, false}) {
    const std::string way = inOrder ? ", in order" : ", anywhere";
    for (const int32_t bits : {1, 8, 24, 64}) {
      const auto visit = std::make_shared<Visit>(bits, inOrder);
      const std::string who = std::to_string(bits) + (bits == 1 ? " bit" : " bits");
      const size_t get = group.Add("get", [visit] { visit->Get(); });
      const size_t put = group.Add("put", [visit] { visit->Put(); });
      group.lines.push_back({"T_GetPixelColor" + way, who, {Scaled(get, kPerPixel, AtMost(10))}});
      // A put into a palette searches it.
      group.lines.push_back(
          {"T_PutPixelColor" + way, who, {Scaled(put, kPerPixel, bits == 8 ? Target{} : AtMost(10))}});
    }
  }
  return group;
}

Group NearestGroup() {
  Group group{"nearest", "The nearest entry of a palette, any colours", {"ns a colour"}, {}, {}};
  const auto palettes = std::make_shared<Palettes>();
  const double perColor = 1e9 / static_cast<double>(palettes->colors.size());
  for (const uint32_t count : {2u, 16u, 256u}) {
    const size_t find = group.Add("find", [palettes, count] { palettes->Find(count); });
    group.lines.push_back({"T_FindPaletteIndex",
                           std::to_string(count) + " entries",
                           {Scaled(find, perColor, count == 256 ? AtMost(60) : Target{})}});
  }
  return group;
}

Group FillGroup() {
  Group group{"fill", "A picture of 48 MB filled", {"GB/s", "x memset"}, {}, {}};
  constexpr double kGigabytes = static_cast<double>(kPictureBytes) / 1e9;
  constexpr double kMost = 1.2;
  for (const int32_t bits : {1, 8, 24, 32, 48}) {
    constexpr int32_t kRowBytes = 12 << 10;
    const auto bitmap = std::make_shared<Bitmap>(kRowBytes * 8 / bits, static_cast<int32_t>(kPictureBytes / kRowBytes),
                                                 bits, TYPE_NOTILED);
    const uint64_t bytes = uint64_t{bitmap->RowBytes()} * bitmap->Rows();
    const size_t memset = group.Add("memset", [bitmap, bytes] {
      std::memset(bitmap->Data(), 0x5A, bytes);
      benchmark::ClobberMemory();
    });
    const size_t fill =
        group.Add("fill", [bitmap] { Require(T_FillBitmap(&*bitmap, 0x00804020) == SUCCESS, "T_FillBitmap"); });
    const std::string who = std::to_string(bits) + (bits == 1 ? " bit" : " bits");
    group.lines.push_back({"T_FillBitmap", who, {Rate(fill, kGigabytes), Ratio(fill, memset, AtMost(kMost))}});
  }
  return group;
}

}  // namespace bench
