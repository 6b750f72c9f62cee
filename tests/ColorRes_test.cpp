// Counting colours, optimized palettes and colour resolution.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "Common/Internal/BitmapList.h"
#include "Common/Internal/Optimizer.h"
#include "Platform/Fault.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Random.h"
#include "tarn/colors.h"
#include "tarn/convert.h"
#include "tarn/dither.h"

using namespace tarn::test;
namespace engine = tarn::engine;
using engine::Random;
using Bytes = std::vector<uint8_t>;

namespace {

/// A BGR picture; kinds of content that optimizers meet.
enum class Content { kNoise, kGradient, kDominant, kFew, kAlike };
void Paint(BitmapHandle& b, Content content, Random& random) {
  Bytes line(b.BytesPerLine);
  for (int32_t y = 0; y < b.Height; ++y) {
    for (int32_t x = 0; x < b.Width; ++x) {
      uint8_t* const p = &line[static_cast<size_t>(x) * 3];
      switch (content) {
        case Content::kNoise:
          p[0] = random.Byte(), p[1] = random.Byte(), p[2] = random.Byte();
          break;
        case Content::kGradient:
          p[0] = static_cast<uint8_t>(x * 2), p[1] = static_cast<uint8_t>(y * 3),
          p[2] = static_cast<uint8_t>(x + y + random.Byte() % 9);
          break;
        case Content::kDominant:
          if (x % 10) {
            p[0] = 200, p[1] = 33, p[2] = 7;
          } else if (y % 4) {
            p[0] = 9, p[1] = 133, p[2] = 7;
          } else {
            p[0] = random.Byte(), p[1] = random.Byte(), p[2] = random.Byte();
          }
          break;
        case Content::kFew:
          p[0] = static_cast<uint8_t>(x % 5 * 3), p[1] = static_cast<uint8_t>(y % 3), p[2] = 250;
          break;
        case Content::kAlike:  // many colours, and two of 15 bits
          p[0] = random.Byte() & 7, p[1] = random.Byte() & 7, p[2] = x % 5 ? 64 : 128;
          break;
      }
    }
    T_PutBitmapRow(&b, line.data(), static_cast<uint32_t>(y), line.size());
  }
}

struct Colored : Bitmap {
  Colored(int32_t width, int32_t height, Content content, uint64_t seed) {
    EXPECT_EQ(T_CreateBitmap(this, 212, TYPE_CONV, width, height, 24, T_ORDER_BGR, nullptr, 1, nullptr, 0), SUCCESS);
    Random random(seed);
    Paint(*this, content, random);
  }
};

// ---- The optimizer, slowly -----------------------------------------------------------------------------------------

struct SlowBox {
  std::vector<int> keys;
  long long weight = 0, mean[3]{}, spread[3]{};
};
int Part(int key, int channel) { return key >> (10 - 5 * channel) & 31; }

SlowBox Measured(std::vector<int> keys, std::map<int, long long>& counts) {
  SlowBox box;
  box.keys = std::move(keys);
  for (const int key : box.keys) box.weight += counts[key];
  for (int c = 0; c < 3; ++c) {
    for (const int key : box.keys) box.mean[c] += Part(key, c) * counts[key];
    box.mean[c] /= box.weight;
    for (const int key : box.keys)
      box.spread[c] += (Part(key, c) - box.mean[c]) * (Part(key, c) - box.mean[c]) * counts[key];
  }
  return box;
}
double Variance(const SlowBox& box) {
  return static_cast<double>(box.spread[0] + box.spread[1] + box.spread[2]) / static_cast<double>(box.weight);
}

/// Entries as red << 16 | green << 8 | blue, and the table.
std::vector<int> SlowPalette(BitmapHandle& b, size_t wanted, std::vector<uint32_t>& table, long long full = 1LL << 31) {
  std::map<int, long long> counts;
  std::vector<int> order;
  for (int32_t y = 0; y < b.Height; ++y) {
    const Bytes line = Row(b, static_cast<uint32_t>(y));
    for (int32_t x = 0; x < b.Width; ++x) {
      const uint8_t* const p = &line[static_cast<size_t>(x) * 3];
      const int key = p[2] / 8 * 1024 + p[1] / 8 * 32 + p[0] / 8;
      if (counts[key] == full)
        for (auto& [other, count] : counts) count = (count + 1) / 2;
      if (counts[key]++ == 0) order.push_back(key);
    }
  }
  std::vector<SlowBox> boxes;
  std::vector<int> rest = order;
  while (wanted >= boxes.size() + 1 + 63 && rest.size() >= 2) {
    const auto best = std::max_element(rest.begin(), rest.end(), [&](int a, int c) { return counts[a] < counts[c]; });
    long long second = 0;
    for (auto at = rest.begin(); at != rest.end(); ++at)
      if (at != best) second = std::max(second, counts[*at]);
    if (counts[*best] <= 2 * second) break;
    boxes.push_back(Measured({*best}, counts));
    rest.erase(best);
  }
  boxes.push_back(Measured(rest, counts));
  while (boxes.size() < wanted) {
    size_t chosen = 0;
    for (size_t i = 1; i < boxes.size(); ++i)
      if (Variance(boxes[i]) > Variance(boxes[chosen]) ||
          (Variance(boxes[i]) == Variance(boxes[chosen]) && boxes[i].keys.size() > boxes[chosen].keys.size()))
        chosen = i;
    if (boxes[chosen].keys.size() < 2) break;
    const SlowBox box = boxes[chosen];
    const int channel = static_cast<int>(std::max_element(box.spread, box.spread + 3) - box.spread);
    std::vector<int> low, high;
    for (const int key : box.keys) (Part(key, channel) <= box.mean[channel] ? low : high).push_back(key);
    boxes[chosen] = Measured(low, counts);
    boxes.push_back(Measured(high, counts));
  }
  std::vector<int> palette;
  std::vector<size_t> owners;
  for (size_t i = 0; i < boxes.size(); ++i) {
    const auto wide = [](long long m) { return static_cast<int>(m * 8 + m / 4); };
    palette.push_back(wide(boxes[i].mean[0]) << 16 | wide(boxes[i].mean[1]) << 8 | wide(boxes[i].mean[2]));
    owners.push_back(i);
  }
  for (size_t i = 0; i < palette.size(); ++i)
    for (size_t j = i + 1; j < palette.size(); ++j)
      if (palette[j] > palette[i]) std::swap(palette[i], palette[j]), std::swap(owners[i], owners[j]);
  table.assign(32768, 0);
  for (size_t i = 0; i < owners.size(); ++i)
    for (const int key : boxes[owners[i]].keys) table[static_cast<size_t>(key)] = static_cast<uint32_t>(i + 1);
  return palette;
}

struct List {
  List() { T_CreateBitmapList(&handle); }
  ~List() { T_DestroyBitmapList(handle); }
  void Add(BitmapHandle& b) {
    T_InsertBitmapListItem(handle, T_LIST_END, &b);
    b.Flags = 0;  // the list's now
    b.Palette = nullptr;
    b.GrayParams = nullptr;
  }
  BitmapHandle Item(uint32_t i) const {
    BitmapHandle b;
    EXPECT_EQ(T_GetBitmapListItem(handle, i, &b, sizeof b), SUCCESS);
    return b;
  }
  T_BitmapList* handle = nullptr;
};

TEST(OptimizedPalette, IsTheSlowOne) {
  for (const Content content :
       {Content::kNoise, Content::kGradient, Content::kDominant, Content::kFew, Content::kAlike}) {
    for (const uint32_t wanted : {1u, 2u, 10u, 16u, 64u, 66u, 200u, 256u}) {
      for (const int32_t width : {61, 240}) {
        SCOPED_TRACE(testing::Message() << static_cast<int>(content) << ", " << wanted << " colours, width " << width);
        Colored picture(width, 40, content, wanted);
        std::vector<uint32_t> slowTable;
        const std::vector<int> slow = SlowPalette(picture, wanted, slowTable);
        std::set<int> distinct;
        for (int32_t y = 0; y < 40; ++y) {
          const Bytes line = Row(picture, static_cast<uint32_t>(y));
          for (int32_t x = 0; x < width; ++x)
            distinct.insert(line[static_cast<size_t>(x) * 3 + 2] << 16 | line[static_cast<size_t>(x) * 3 + 1] << 8 |
                            line[static_cast<size_t>(x) * 3]);
        }
        List list;
        list.Add(picture);
        T_PaletteEntry palette[256];
        uint32_t count = wanted, optimized = 9;
        uint32_t* table = nullptr;
        ASSERT_EQ(T_CreateBitmapListOptPal(list.handle, palette, &count, &table, &optimized), SUCCESS);
        std::vector<int> got;
        for (uint32_t i = 0; i < count; ++i) {
          got.push_back(palette[i].Red << 16 | palette[i].Green << 8 | palette[i].Blue);
          EXPECT_EQ(palette[i].Reserved, 0);
        }
        if (distinct.size() <= wanted) {
          EXPECT_EQ(got, std::vector<int>(distinct.rbegin(), distinct.rend()));
          EXPECT_EQ(optimized, 0u);
          EXPECT_EQ(table, nullptr);
        } else {
          EXPECT_EQ(got, slow);
          EXPECT_EQ(optimized, 1u);
          ASSERT_NE(table, nullptr);
          EXPECT_TRUE(std::equal(slowTable.begin(), slowTable.end(), table));
        }
        T_FreeUserMatchTable(table);
      }
    }
  }
}

// A count that is full makes all be halved, wherever it comes within a row.
TEST(OptimizedPalette, CountsAreHalvedWhenOneIsFull) {
  for (const Content content : {Content::kDominant, Content::kAlike, Content::kGradient}) {
    for (const uint64_t full : {8u, 50u, 61u, 700u}) {
      SCOPED_TRACE(testing::Message() << static_cast<int>(content) << ", full at " << full);
      Colored picture(full % 2 ? 61 : 60, 40, content, full);
      tarn::Optimizer optimizer;
      ASSERT_TRUE(optimizer.Open(70, full).Ok());
      ASSERT_TRUE(optimizer.Add(picture).Ok());
      T_PaletteEntry palette[256];
      const uint32_t count = optimizer.Build(palette);
      uint32_t* const table = optimizer.TakeMatchTable();
      std::vector<int> got;
      for (uint32_t i = 0; i < count; ++i)
        got.push_back(palette[i].Red << 16 | palette[i].Green << 8 | palette[i].Blue);
      std::vector<uint32_t> slowTable;
      EXPECT_EQ(got, SlowPalette(picture, 70, slowTable, static_cast<long long>(full)));
      EXPECT_TRUE(std::equal(slowTable.begin(), slowTable.end(), table));
      T_FreeUserMatchTable(table);
    }
  }
}

TEST(OptimizedPalette, SeveralBitmapsShareOne) {
  List list;
  T_PaletteEntry palette[256];
  uint32_t count = 4, optimized = 9;
  uint32_t* table = nullptr;
  EXPECT_EQ(T_CreateBitmapListOptPal(list.handle, palette, &count, &table, &optimized), ERR_NO_BITMAP);
  for (int i = 0; i < 3; ++i) {
    Bitmap b;
    ASSERT_EQ(T_CreateBitmap(&b, 212, TYPE_CONV, 9, 9, 1, 0, nullptr, 1, nullptr, 0), SUCCESS);
    list.Add(b);
  }
  EXPECT_EQ(T_CreateBitmapListOptPal(list.handle, palette, &count, &table, &optimized), SUCCESS);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(optimized, 1u);
  EXPECT_EQ(palette[0].Red, 255);
  EXPECT_EQ(palette[1].Red, 0);
  EXPECT_EQ(table, nullptr);
  Colored photo(50, 50, Content::kNoise, 3);
  list.Add(photo);
  count = 40;
  EXPECT_EQ(T_CreateBitmapListOptPal(list.handle, palette, &count, &table, &optimized), SUCCESS);
  EXPECT_EQ(count, 40u);
  EXPECT_NE(table, nullptr);
  T_FreeUserMatchTable(table);
  EXPECT_EQ(T_CreateBitmapListOptPal(nullptr, palette, &count, &table, &optimized), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CreateBitmapListOptPal(list.handle, nullptr, &count, &table, &optimized), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CreateBitmapListOptPal(list.handle, palette, &count, &table, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CreateBitmapListOptPal(list.handle, palette, nullptr, &table, &optimized), ERR_INVALID_PARAMETER);
  for (const uint32_t wrong : {0u, 257u}) {
    count = wrong;
    EXPECT_EQ(T_CreateBitmapListOptPal(list.handle, palette, &count, &table, &optimized), ERR_INVALID_PARAMETER);
  }
  // Whatever is wrong with one of the records.
  BitmapHandle* const items = list.handle->Items;
  const BitmapHandle good = items[1];
  count = 40;
  const struct {
    int32_t status;
    void (*damage)(BitmapHandle&);
  } damages[] = {{ERR_NO_BITMAP, [](BitmapHandle& b) { b.Flags &= ~uint32_t{T_FLAG_ALLOCATED}; }},
                 {ERR_BAD_STRUCT_SIZE, [](BitmapHandle& b) { b.StructSize = 211; }},
                 {ERR_INVALID_PARAMETER, [](BitmapHandle& b) { b.BitsPerPixel = -5, b.Palette = nullptr; }},
                 {ERR_INVALID_PARAMETER, [](BitmapHandle& b) { b.BytesPerLine = 1; }},
                 {SUCCESS, [](BitmapHandle& b) { b.Palette = nullptr; }},  // the fixed one
                 {SUCCESS, [](BitmapHandle&) {}}};
  for (const auto& damage : damages) {
    damage.damage(items[1]);
    table = nullptr;
    EXPECT_EQ(T_CreateBitmapListOptPal(list.handle, palette, &count, &table, &optimized), damage.status);
    T_FreeUserMatchTable(table);
    items[1] = good;
  }
  EXPECT_EQ(T_CreateBitmapListOptPal(list.handle, palette, &count, nullptr, &optimized), SUCCESS) << "no table wanted";
  items[0].Order = T_ORDER_GRAY, items[0].BitsPerPixel = 12, items[0].Width = 2;
  items[0].Flags |= T_FLAG_LUT_IN_USE, items[0].LUT = palette;  // of no length
  EXPECT_EQ(T_CreateBitmapListOptPal(list.handle, palette, &count, &table, &optimized), ERR_BAD_LUT_LENGTH);
  EXPECT_EQ(T_ColorResBitmapList(list.handle, 8, 0, nullptr, nullptr, 0), ERR_BAD_LUT_LENGTH);
  items[0].LUT = nullptr;
  list.handle->Items = nullptr;
  EXPECT_EQ(T_CreateBitmapListOptPal(list.handle, palette, &count, &table, &optimized), ERR_NULL_POINTER);
  EXPECT_EQ(T_ColorResBitmapList(list.handle, 8, 0, nullptr, nullptr, 0), ERR_NULL_POINTER);
  list.handle->Items = items;
}

TEST(ColorCount, CountsWhatThereIs) {
  for (const int32_t bits : engine::kDepths) {
    for (const uint32_t order : {1u, 2u}) {
      if (order == 2 && bits != 12 && bits != 16) continue;
      if (order == 1 && bits == 12) continue;
      SCOPED_TRACE(testing::Message() << bits << " bits, order " << order);
      engine::Picture picture;
      ASSERT_EQ(picture.Make(engine::Kind::kSwapTiles, {37, 10, bits}, 6), "");
      picture.record.Order = order;
      std::set<uint32_t> colors;
      for (uint32_t y = 0; y < 10; ++y) {
        Bytes line = Row(picture.record, y);
        Bytes wide = line;
        wide.resize(400);
        const bool plain = bits <= 8 || order == 2;
        ASSERT_EQ(T_ConvertBuffer(wide.data(), 37, bits, plain ? (bits <= 8 ? 0 : 16) : 24, bits <= 8 ? 2 : order,
                                  plain ? 2 : 1, nullptr, nullptr),
                  SUCCESS);
        for (size_t x = 0; x < 37; ++x)
          colors.insert(bits <= 8 ? wide[x]
                        : plain   ? wide[2 * x] | wide[2 * x + 1] * 256u
                                  : wide[3 * x] | wide[3 * x + 1] * 256u | wide[3 * x + 2] * 65536u);
      }
      uint32_t count = 0;
      EXPECT_EQ(T_GetBitmapColorCountExt(&picture.record, &count, nullptr), SUCCESS);
      EXPECT_EQ(count, colors.size());
      T_PaletteEntry palette[600];
      count = 5;
      EXPECT_EQ(T_GetBitmapColorCountExt(&picture.record, &count, palette), SUCCESS);
      EXPECT_EQ(count, bits > 8 && colors.size() > 5 ? 6u : colors.size());
      if (bits != 24) continue;
      count = 600;
      EXPECT_EQ(T_GetBitmapColorCountExt(&picture.record, &count, palette), SUCCESS);
      auto at = colors.begin();
      for (uint32_t i = 0; i < count; ++i, ++at)
        EXPECT_EQ(static_cast<uint32_t>(palette[i].Red << 16 | palette[i].Green << 8 | palette[i].Blue), *at);
    }
  }
  uint32_t count = 0;
  Bitmap none;
  EXPECT_EQ(T_GetBitmapColorCountExt(nullptr, &count, nullptr), ERR_NO_BITMAP);
  EXPECT_EQ(T_GetBitmapColorCountExt(&none, &count, nullptr), ERR_NO_BITMAP);
}

// ---- Resolution ----------------------------------------------------------------------------------------------------

/// Lines of a bitmap through the dithering engine, one by one.
std::vector<Bytes> Dithered(BitmapHandle& source, uint32_t method, const T_PaletteEntry* palette, uint32_t count,
                            uint32_t bits, uint32_t* table) {
  const uint32_t before = source.DitheringMethod;
  source.DitheringMethod = method;
  EXPECT_EQ(T_StartDitheringExt(&source, palette, count, bits, table), SUCCESS);
  std::vector<Bytes> rows;
  for (int32_t y = 0; y < source.Height; ++y) {
    const Bytes line = Row(source, static_cast<uint32_t>(y));
    Bytes out(((static_cast<size_t>(source.Width) * bits + 31) / 32) * 4);
    EXPECT_EQ(T_DitherLine(&source, line.data(), out.data()), SUCCESS);
    rows.push_back(out);
  }
  T_StopDithering(&source);
  source.DitheringMethod = before;
  return rows;
}

std::vector<Bytes> RowsOf(BitmapHandle& b) {
  std::vector<Bytes> rows;
  for (int32_t y = 0; y < b.Height; ++y) rows.push_back(Row(b, static_cast<uint32_t>(y)));
  return rows;
}

void ExpectResolved(BitmapHandle& source, int32_t bits, uint32_t flags, const T_PaletteEntry* palette, uint32_t colors,
                    const std::vector<Bytes>& wanted, const T_PaletteEntry* entries, uint32_t count) {
  BitmapHandle apart;
  ASSERT_EQ(T_ColorResBitmap(&source, &apart, 212, bits, flags, palette, nullptr, colors, nullptr, nullptr), SUCCESS);
  EXPECT_EQ(RowsOf(apart), wanted);
  EXPECT_EQ(apart.Colors, 1u << bits);
  EXPECT_EQ(std::memcmp(V(apart.Palette), entries, count * sizeof(T_PaletteEntry)), 0);
  ASSERT_EQ(T_ColorResBitmap(&source, nullptr, 212, bits, flags, palette, nullptr, colors, nullptr, nullptr), SUCCESS);
  EXPECT_EQ(RowsOf(source), wanted);
  EXPECT_EQ(source.BitsPerPixel, bits);
  EXPECT_EQ(source.Order, 0u);
  T_FreeBitmap(&apart);
}

TEST(ColorRes, FixedWebAndOwnPalettesThroughTheEngine) {
  Random random(9);
  T_PaletteEntry own[256];
  for (auto& entry : own) entry = {random.Byte(), random.Byte(), random.Byte(), 0};
  for (const int32_t from : engine::kDepths) {
    for (const uint32_t method : {0u, 1u, 5u, 7u}) {
      SCOPED_TRACE(testing::Message() << from << " bits, method " << method);
      const auto make = [&](engine::Picture& picture, engine::Kind kind) {
        ASSERT_EQ(picture.Make(kind, {70, 135, from}, 8), "");  // more rows than a batch
        if (from <= 8) T_CreateBitmapFixedPalette(&picture.record);
      };
      engine::Picture a, b, c;
      make(a, engine::Kind::kBlock);
      ExpectResolved(a.record, 4, T_RES_FIXED | T_RES_DITHER(method), nullptr, 0,
                     Dithered(a.record, method, nullptr, 16, 4, nullptr), T_IntGetFixedPalette(4), 16);
      make(b, engine::Kind::kMixedTiles);
      ExpectResolved(b.record, 8, T_RES_WEB | T_RES_DITHER(method), nullptr, 0,
                     Dithered(b.record, method, T_IntGetNetscapePalette(), 216, 8, nullptr), T_IntGetNetscapePalette(),
                     216);
      make(c, engine::Kind::kDisk);
      ExpectResolved(c.record, 7, T_RES_PALETTE | T_RES_DITHER(method), own, 90,
                     Dithered(c.record, method, own, 90, 7, nullptr), own, 90);
    }
  }
}

TEST(ColorRes, OptimizedPaletteBringsItsTable) {
  for (const uint32_t method : {0u, 1u}) {
    Colored picture(150, 80, Content::kGradient, 4), twin(150, 80, Content::kGradient, 4);
    List list;
    list.Add(twin);
    T_PaletteEntry palette[256];
    uint32_t count = 50, optimized;
    uint32_t* table = nullptr;
    ASSERT_EQ(T_CreateBitmapListOptPal(list.handle, palette, &count, &table, &optimized), SUCCESS);
    const auto wanted = Dithered(picture, method, palette, count, 8, table);
    ExpectResolved(picture, 8, T_RES_OPTIMIZED | T_RES_DITHER(method), nullptr, 50, wanted, palette, count);
    T_FreeUserMatchTable(table);
  }
}

TEST(ColorRes, FreeSlotsAreFilledAndOthersKept) {
  Colored picture(60, 60, Content::kNoise, 5);
  T_PaletteEntry palette[16];
  for (uint8_t i = 0; i < 16; ++i) palette[i] = {1, i, 2, static_cast<uint8_t>(i % 4)};  // slots 2, 6, 10, 14 are free
  BitmapHandle made;
  ASSERT_EQ(T_ColorResBitmap(&picture, &made, 212, 4, T_RES_OPTIMIZED, palette, nullptr, 0, nullptr, nullptr), SUCCESS);
  std::set<int> used;
  for (int32_t y = 0; y < 60; ++y) {
    const Bytes row = Row(made, static_cast<uint32_t>(y));
    for (int i = 0; i < 30; ++i)
      used.insert(row[static_cast<size_t>(i)] >> 4), used.insert(row[static_cast<size_t>(i)] & 15);
  }
  for (uint8_t i = 0; i < 16; ++i) {
    const T_PaletteEntry entry = made.Palette[i];
    if (i % 4 == 2) {
      EXPECT_EQ(entry.Reserved, 0);
      EXPECT_TRUE(used.count(i)) << int{i};
    } else {
      EXPECT_EQ(std::memcmp(&entry, &palette[i], sizeof entry), 0) << int{i};
      EXPECT_TRUE(i % 4 == 0 || !used.count(i)) << int{i};  // the others are marked as not to be used
    }
  }
  T_FreeBitmap(&made);
}

// Colours that an entry holds already take no free slot; so many that fit come out as they were.
TEST(ColorRes, KeptEntriesAreNotMadeAgain) {
  constexpr uint8_t kFree = 2;
  const struct {
    const char* name;
    int kept;      // entries that are not free
    bool present;  // they are colours of the picture
    bool indexed;  // the picture has 8 bits, and colours more than once
    bool exact;
  } cases[] = {{"some are there", 3, true, false, true},
               {"none is there, and there is no room for all", 3, false, false, false},
               {"names that mean the same", 3, true, true, true},
               {"nothing is free", 16, true, false, true}};
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Bitmap named, deep;
    T_PaletteEntry palette[256] = {}, many[256] = {};
    for (int i = 0; i < 256; ++i)  // 15 colours
      many[i] = {static_cast<uint8_t>(i % 5 * 40), static_cast<uint8_t>(i / 5 % 3 * 80), 250, 0};
    ASSERT_EQ(T_CreateBitmap(&named, 212, TYPE_CONV, 30, 12, 8, 0, many, 1, nullptr, 0), SUCCESS);
    ASSERT_EQ(T_CreateBitmap(&deep, 212, TYPE_CONV, 30, 12, 24, T_ORDER_BGR, nullptr, 1, nullptr, 0), SUCCESS);
    for (int32_t y = 0; y < 12; ++y) {
      for (int32_t x = 0; x < 30; ++x) {
        const auto index = static_cast<uint8_t>(x == 16 ? 15 : x % 15);  // 15 is 0 once more
        T_PutPixelData(&named, &index, y, x, 1);
        T_PutPixelData(&deep, &many[index], y, x, 3);
      }
    }
    for (int i = 0; i < 16; ++i) palette[i] = i < c.kept && c.present ? many[i % 15] : T_PaletteEntry{1, 2, 3, 0};
    for (int i = c.kept; i < 16; ++i) palette[i].Reserved = kFree;
    BitmapHandle& source = c.indexed ? named : deep;
    BitmapHandle made;
    ASSERT_EQ(T_ColorResBitmap(&source, &made, 212, 4, T_RES_OPTIMIZED, palette, nullptr, 99, nullptr, nullptr),
              SUCCESS);
    EXPECT_EQ(std::memcmp(V(made.Palette), palette, static_cast<size_t>(c.kept) * 4), 0);
    int same = 0;
    for (int32_t y = 0; y < 12; ++y)
      for (int32_t x = 0; x < 30; ++x) same += T_GetPixelColor(&made, y, x) == T_GetPixelColor(&source, y, x);
    EXPECT_EQ(same == 30 * 12, c.exact) << same;
    T_FreeBitmap(&made);
  }
}

TEST(ColorRes, DeeperResultsAreTheConverters) {
  for (const int32_t from : engine::kDepths) {
    for (const int32_t bits : {12, 16, 24, 32, 48, 64}) {
      SCOPED_TRACE(testing::Message() << from << " to " << bits);
      engine::Picture picture;
      ASSERT_EQ(picture.Make(engine::Kind::kBlock, {37, 9, from}, 2), "");
      BitmapHandle& source = picture.record;
      const bool alpha = from == 32 || from == 64;
      std::vector<Bytes> wanted;
      const uint32_t order = bits == 12 ? 2 : 1;
      for (uint32_t y = 0; y < 9; ++y) {
        Bytes line = Row(source, y);
        line.resize(400);
        ASSERT_EQ(T_ConvertBufferExt(line.data(), 37, from, bits, from <= 8 ? 0 : source.Order, order, source.Palette,
                                     nullptr, alpha ? 0 : T_CONVERT_OPAQUE, -1, -1),
                  SUCCESS);
        std::fill(line.begin() + (37 * bits + 7) / 8, line.end(), uint8_t{0});
        line.resize(static_cast<size_t>((37 * bits + 31) / 32 * 4));
        wanted.push_back(line);
      }
      ASSERT_EQ(T_ColorResBitmap(&source, nullptr, 212, bits, 0, nullptr, nullptr, 0, nullptr, nullptr), SUCCESS);
      EXPECT_EQ(RowsOf(source), wanted);
      EXPECT_EQ(source.Order, order);
      EXPECT_EQ(source.Colors, 0u);
      EXPECT_EQ(V(source.Palette), nullptr);
    }
  }
}

TEST(ColorRes, ListsShareAPaletteAndGiveTheTableBack) {
  for (const uint32_t flags : {uint32_t{T_RES_OPTIMIZED}, uint32_t{T_RES_PALETTE}, uint32_t{T_RES_FIXED}}) {
    List list;
    for (int i = 0; i < 3; ++i) {
      Colored b(40 + i, 30, i == 1 ? Content::kNoise : Content::kGradient, static_cast<uint64_t>(i));
      list.Add(b);
    }
    uint32_t mine[1] = {};
    uint32_t* const before = T_SetUserMatchTable(mine);
    T_PaletteEntry own[256] = {};
    for (int i = 0; i < 256; ++i) own[i].Green = static_cast<uint8_t>(i);
    EXPECT_EQ(T_ColorResBitmapList(list.handle, 8, flags | T_RES_DITHER(1), flags == T_RES_PALETTE ? own : nullptr,
                                   nullptr, 0),
              SUCCESS);
    const BitmapHandle first = list.Item(0);
    for (uint32_t i = 0; i < 3; ++i) {
      const BitmapHandle item = list.Item(i);
      EXPECT_EQ(item.BitsPerPixel, 8);
      EXPECT_EQ(std::memcmp(V(item.Palette), V(first.Palette), 1024), 0);
    }
    // A failure gives it back too, and leaves the bitmaps behind it.
    tarn::fault::Arm({.first = 30, .last = 30, .points = Mask(tarn::fault::Point::kMemory)});
    const int32_t status =
        T_ColorResBitmapList(list.handle, 4, flags, flags == T_RES_PALETTE ? own : nullptr, nullptr, 0);
    tarn::fault::Disarm();
    EXPECT_TRUE(status == SUCCESS || status == ERR_NO_MEMORY) << status;
    EXPECT_EQ(T_SetUserMatchTable(before), mine);
  }
  List list;
  T_PaletteEntry own[2] = {};
  EXPECT_EQ(T_ColorResBitmapList(nullptr, 8, 0, nullptr, nullptr, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ColorResBitmapList(list.handle, 9, 0, nullptr, nullptr, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ColorResBitmapList(list.handle, 1, 16, own, T_CreateUserMatchTable(own, 2), 0), ERR_INVALID_PARAMETER);
}

// A list gives what each of its bitmaps would give alone with the same palette.
TEST(ColorRes, ListsAreLikeTheirBitmaps) {
  const auto fill = [](List& list) {
    for (int i = 0; i < 2; ++i) {
      Colored b(40 + i, 20, i ? Content::kNoise : Content::kGradient, static_cast<uint64_t>(i));
      list.Add(b);
    }
  };
  T_PaletteEntry own[256] = {};
  for (int i = 0; i < 256; ++i) own[i] = {static_cast<uint8_t>(i), static_cast<uint8_t>(i * 7), 9, 0};
  const struct {
    int32_t bits;
    uint32_t flags, colors;
    bool palette, table;
  } cases[] = {{16, 0, 0, false, false},
               {64, T_RES_FIXED, 0, true, false},
               {8, T_RES_OPTIMIZED, 30, true, false},
               {4, T_RES_PALETTE, 9, true, false},
               {8, T_RES_WEB, 0, false, true},
               {4, T_RES_FIXED | T_RES_WEB, 0, false, true},
               {8, T_RES_FIXED | T_RES_WEB, 0, false, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.bits << " bits, flags " << c.flags);
    List together, alone;
    fill(together);
    fill(alone);
    const T_PaletteEntry* const palette = c.palette ? own : nullptr;
    uint32_t* const table = c.table ? T_CreateUserMatchTable(own, 2) : nullptr;  // freed by the call
    ASSERT_EQ(T_ColorResBitmapList(together.handle, c.bits, c.flags, palette, table, c.colors), SUCCESS);
    for (uint32_t i = 0; i < 2; ++i) {
      BitmapHandle one = together.handle->Items[i];
      BitmapHandle& other = alone.handle->Items[i];
      ASSERT_EQ(T_ColorResBitmap(&other, nullptr, 212, c.bits, c.flags, palette, nullptr, c.colors, nullptr, nullptr),
                SUCCESS);
      EXPECT_EQ(RowsOf(one), RowsOf(other));
      const size_t entries = c.bits <= 8 ? size_t{1} << c.bits : 0;
      EXPECT_TRUE(entries == 0 || std::memcmp(V(one.Palette), V(other.Palette), 4 * entries) == 0);
    }
    if (c.flags != (T_RES_FIXED | T_RES_WEB)) continue;
    const T_PaletteEntry* const known = c.bits == 8 ? T_IntGetNetscapePalette() : T_IntGetFixedPalette(4);
    EXPECT_EQ(std::memcmp(V(together.handle->Items[0].Palette), known, 16 * 4), 0);
  }
  // Other names of the palette that is made for all; colours that are few.
  std::vector<Bytes> first;
  for (const uint32_t flags : {0u, 2u, 8u, 10u}) {
    List list;
    fill(list);
    ASSERT_EQ(T_ColorResBitmapList(list.handle, 4, flags, nullptr, nullptr, 0), SUCCESS);
    BitmapHandle item = list.handle->Items[1];
    if (flags == 0) first = RowsOf(item);
    EXPECT_EQ(RowsOf(item), first) << flags;
    ASSERT_EQ(T_ColorResBitmapList(list.handle, 8, flags, nullptr, nullptr, 0), SUCCESS);
    EXPECT_EQ(list.handle->Items[0].BitsPerPixel, 8);
  }
  List list;
  EXPECT_EQ(T_ColorResBitmapList(list.handle, 8, 0, nullptr, nullptr, 0), SUCCESS) << "of no bitmaps";
  fill(list);
  uint32_t mine[1] = {};
  uint32_t* const before = T_SetUserMatchTable(mine);
  EXPECT_EQ(T_ColorResBitmapList(list.handle, 8, 256, own, nullptr, 0), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_SetUserMatchTable(before), mine);
  EXPECT_EQ(list.handle->Items[0].BitsPerPixel, 24);
}

TEST(ColorRes, RefusesInOrderAndKeepsTheSource) {
  Colored picture(90, 70, Content::kGradient, 7);
  const auto resolve = [&](int32_t bits, uint32_t flags) {
    return T_ColorResBitmap(&picture, nullptr, 212, bits, flags, nullptr, nullptr, 0, nullptr, nullptr);
  };
  Bitmap none;
  EXPECT_EQ(T_ColorResBitmap(nullptr, nullptr, 212, 8, 0, nullptr, nullptr, 0, nullptr, nullptr),
            ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ColorResBitmap(&picture, nullptr, 211, 8, 0, nullptr, nullptr, 0, nullptr, nullptr), ERR_BAD_STRUCT_SIZE);
  none.StructSize = 212;
  EXPECT_EQ(T_ColorResBitmap(&none, nullptr, 212, 8, 0, nullptr, nullptr, 0, nullptr, nullptr), ERR_NO_BITMAP);
  const Bytes row = Row(picture, 33);
  for (const auto& [bits, flags] : std::vector<std::pair<int32_t, uint32_t>>{
           {0, 0}, {9, 0}, {15, 0}, {8, 4}, {8, 16}, {8, 48}, {4, 64}, {8, 256}, {8, 1 | T_RES_DITHER(9)}})
    EXPECT_EQ(resolve(bits, flags), ERR_INVALID_PARAMETER) << bits << " " << flags;
  picture.Flags |= T_FLAG_SIGNED_DATA;
  EXPECT_EQ(resolve(8, 1), ERR_SIGNED_DATA);
  picture.Flags &= ~static_cast<uint32_t>(T_FLAG_SIGNED_DATA);
  EXPECT_EQ(Row(picture, 33), row);

  const auto rows = RowsOf(picture);
  const BitmapHandle before = picture;
  for (const int32_t answer : {0, -100, INT32_MIN}) {
    for (int stop = 1; stop <= 70; stop += 23) {
      struct Stop {
        int left;
        int32_t answer, last;
      } data{stop, answer, -1};
      const auto callback = [](int32_t percent, void* userData) {
        Stop& at = *static_cast<Stop*>(userData);
        EXPECT_GE(percent, at.last);
        at.last = percent;
        return --at.left == 0 ? at.answer : static_cast<int32_t>(SUCCESS);
      };
      const int32_t status =
          T_ColorResBitmap(&picture, nullptr, 212, 8, T_RES_DITHER(1), nullptr, nullptr, 0, callback, &data);
      EXPECT_EQ(status, answer);
      EXPECT_EQ(std::memcmp(&before, static_cast<BitmapHandle*>(&picture), sizeof before), 0);
      ASSERT_EQ(RowsOf(picture), rows);
    }
  }
}

}  // namespace
