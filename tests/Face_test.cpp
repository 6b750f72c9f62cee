// The C++ face: who owns what, failures as results, callables that stop operations, rows as spans.

#include <gtest/gtest.h>

#include <fstream>
#include <regex>
#include <set>
#include <stdexcept>
#include <string>
#include <vector>

#include "Holding.h"
#include "tarn/tarn.hpp"

using namespace tarn;
using tarn::test::Recording;

namespace {

using Bytes = std::vector<uint8_t>;

/// A bitmap whose bytes differ from row to row; bits behind the last pixel are 0.
Bitmap Pattern(int32_t width, int32_t height, Depth depth, Storage storage = Storage::Automatic) {
  Bitmap made = Bitmap::create(width, height, depth, {.storage = storage}).value();
  Bytes line(made.rowBytes());
  const int32_t spare = static_cast<int32_t>(made.pixelBytes()) * 8 - width * made.bits();
  for (int32_t row = 0; row < height; ++row) {
    for (size_t i = 0; i < made.pixelBytes(); ++i)
      line[i] = static_cast<uint8_t>(i * 7 + static_cast<size_t>(row) * 31);
    line[made.pixelBytes() - 1] &= static_cast<uint8_t>(0xFF << spare);
    made.writeRow(row, line).value();
  }
  return made;
}

Bytes Pixels(const Bitmap& bitmap) {
  Bytes all, line(bitmap.rowBytes());
  for (int32_t row = 0; row < bitmap.height(); ++row) {
    bitmap.readRow(row, line).value();
    all.insert(all.end(), line.begin(), line.end());
  }
  return all;
}

TEST(Face, MovesLeaveEmptiesAndClonesAreDeep) {
  const Recording recording;
  {
    Bitmap first = Pattern(33, 9, Depth::Bits24);
    const Bytes pixels = Pixels(first);
    Bitmap second = std::move(first);
    EXPECT_TRUE(first.empty());  // NOLINT(bugprone-use-after-move): what is left is the point
    EXPECT_EQ(first.flip().status(), ERR_INVALID_PARAMETER);
    EXPECT_EQ(Pixels(second), pixels);

    Bitmap third = second.clone().value();
    ASSERT_TRUE(third.fill(Color::rgb(1, 2, 3)));
    EXPECT_EQ(Pixels(second), pixels);
    third = std::move(second);  // frees what it had
    EXPECT_EQ(Pixels(third), pixels);
    Bitmap& itself = third;
    third = std::move(itself);
    EXPECT_EQ(Pixels(third), pixels);

    BitmapHandle record = third.release();
    EXPECT_TRUE(third.empty());
    EXPECT_EQ(T_FlipBitmap(&record), SUCCESS);
    third = Bitmap::adopt(record);
    ASSERT_TRUE(third.flip());
    EXPECT_EQ(Pixels(third), pixels);
    third.reset();
    third.reset();
    EXPECT_TRUE(third.empty());
    EXPECT_TRUE(Bitmap::adopt(BitmapHandle{}).empty());
  }
  EXPECT_EQ(recording.Left(), "");
}

TEST(Face, CallerMemoryStaysTheCallers) {
  const Recording recording;
  Bytes memory(12 * 5, 0x55);
  {
    EXPECT_EQ(Bitmap::over(std::span(memory).first(59), 3, 5, Depth::Bits24).status(), ERR_INVALID_PARAMETER);
    Bitmap bitmap = Bitmap::over(memory, 3, 5, Depth::Bits24).value();
    EXPECT_EQ(bitmap.rowInPlace(1).data(), memory.data() + 12);
    ASSERT_TRUE(bitmap.setPixel(1, 0, Color::rgb(9, 8, 7)));
    Bitmap copy = bitmap.clone(Storage::Automatic).value();
    ASSERT_TRUE(bitmap.clear());
    EXPECT_EQ(copy.pixel(1, 0).value(), Color::rgb(9, 8, 7));
  }
  EXPECT_EQ(memory, Bytes(60, 0));
  EXPECT_EQ(recording.Left(), "");
}

TEST(Face, FailuresArriveAsResults) {
  Bitmap empty, page = Pattern(20, 20, Depth::Bits8);
  Bytes line(20);
  const struct {
    const char* what;
    int32_t status, expected;
  } cases[] = {
      {"depth", Bitmap::create(5, 5, static_cast<Depth>(9)).status(), ERR_BAD_BITS_PER_PIXEL},
      {"no rows", Bitmap::create(5, 0, Depth::Bits8).status(), ERR_EMPTY_AREA},
      {"too large", Bitmap::create(1 << 30, 1 << 30, Depth::Bits8).status(), ERR_IMAGE_TOO_LARGE},
      {"compressed 8 bits", Bitmap::create(5, 5, Depth::Bits8, {.storage = Storage::Compressed}).status(),
       ERR_INVALID_PARAMETER},
      {"short palette", Bitmap::create(5, 5, Depth::Bits8, {.palette = Palette::gray(Depth::Bits4)}).status(),
       ERR_INVALID_PARAMETER},
      {"perspective", Bitmap::create(5, 5, Depth::Bits8, {.viewPerspective = 9}).status(), ERR_INVALID_PARAMETER},
      {"clone of none", empty.clone().status(), ERR_INVALID_PARAMETER},
      {"gray of none", empty.gray().status(), ERR_NO_BITMAP},
      {"convert none", empty.convert(Depth::Bits24).status(), ERR_NO_BITMAP},
      {"rows of none", empty.readRows([](int32_t, std::span<const uint8_t>) {}).status(), ERR_NO_BITMAP},
      {"row above", page.readRow(-1, line).status(), ERR_INVALID_PARAMETER},
      {"row below", page.readRow(20, line).status(), ERR_INVALID_PARAMETER},
      {"short row", page.writeRow(0, Bytes(19)).status(), ERR_INVALID_PARAMETER},
      {"pixel beside", page.pixel(0, 20).status(), ERR_INVALID_PARAMETER},
      {"crop beside", page.crop({30, 30, 5, 5}).status(), ERR_EMPTY_AREA},
      {"shear", page.shear(9000).status(), ERR_INVALID_PARAMETER},
      {"colours", page.optimizedPalette(257).status(), ERR_INVALID_PARAMETER},
      {"overlay", page.overlay(0).status(), ERR_OVERLAY_INDEX},
      {"list item", BitmapList().take(0).status(), ERR_INVALID_PARAMETER},
      {"empty to list", BitmapList().append(Bitmap()).status(), ERR_NO_BITMAP},
  };
  for (const auto& c : cases) EXPECT_EQ(c.status, c.expected) << c.what << ": " << statusName(c.status);
  EXPECT_EQ(page.rowInPlace(20).data(), nullptr);
  EXPECT_EQ(Pixels(page), Pixels(Pattern(20, 20, Depth::Bits8)));

  EXPECT_EQ(std::move(page).clone().and_then([](Bitmap&& b) { return b.crop({0, 0, 0, 0}); }).status(), ERR_EMPTY_AREA);
  EXPECT_EQ(page.pixel(99, 0).value_or(Color::gray(7)), Color::gray(7));
  try {
    empty.convert(Depth::Bits8).value();
    ADD_FAILURE() << "nothing was thrown";
  } catch (const Error& error) {
    EXPECT_EQ(error.status(), ERR_NO_BITMAP);
    EXPECT_STREQ(error.what(), "ERR_NO_BITMAP (-2)");
  }
  EXPECT_THROW(static_cast<void>(empty.clone().value()), Error);
}

TEST(Face, RefusedMemoryLeavesNothing) {
  const Bitmap photo = Pattern(40, 30, Depth::Bits24);
  const Recording recording;
  const auto refused = tarn::test::RefuseEachCall(
      [&] {
        auto made = photo.clone();
        if (!made) return made.status();
        if (const auto done = made->convert(Depth::Bits4, {.dither = Dither::Burkes}); !done) return done.status();
        if (const auto counted = made->optimizedPalette(8); !counted) return counted.status();
        auto dib = made->toDib();
        if (!dib) return dib.status();
        if (auto block = Dib::copyOf(dib->bytes()); !block) return block.status();
        auto back = Bitmap::fromDib(*dib);
        EXPECT_EQ(dib->empty(), back.has_value());
        if (!back) return back.status();
        BitmapList list;
        const auto put = list.append(std::move(*back));
        EXPECT_EQ(back->empty(), put.has_value());
        if (!put) return put.status();
        return list.copy().status();
      },
      [&](int32_t status, bool answered) {
        // Some requests are made again in another way, and then the call succeeds.
        EXPECT_TRUE(status == SUCCESS || (answered && status == ERR_NO_MEMORY)) << statusName(status);
        EXPECT_EQ(recording.Left(), "");
      });
  EXPECT_GT(refused, 15u);
}

TEST(Face, CallablesStopOperations) {
  const Bitmap original = Pattern(64, 200, Depth::Bits24, Storage::Disk);
  Bitmap page = original.clone().value();
  void* const before = reinterpret_cast<void*>(&page);
  const T_StatusCallback outer = [](int32_t, void*) -> int32_t { return SUCCESS; };
  T_SetStatusCallBack(outer, before, nullptr, nullptr);
  std::vector<int32_t> told;
  {
    const ProgressScope watch([&](int32_t percent) { told.push_back(percent); });  // goes on
    ASSERT_TRUE(page.flip());
    ASSERT_TRUE(page.flip());
    EXPECT_EQ(told.back(), 100);
    {
      const ProgressScope stop([](int32_t percent) { return percent < 30; });
      told.clear();
      EXPECT_EQ(page.flip().status(), kCancelled);
      EXPECT_EQ(page.convert(Depth::Bits8).status(), kCancelled);
      EXPECT_EQ(page.resize(30, 0).status(), kCancelled);
      EXPECT_EQ(page.clone().status(), kCancelled);
      EXPECT_EQ(page.copy({0, 0, 64, 200}).status(), kCancelled);
      EXPECT_EQ(page.gray().status(), kCancelled);
      EXPECT_EQ(page.toDib().status(), kCancelled);
      EXPECT_TRUE(told.empty());
    }
    const ProgressScope answers([](int32_t percent) -> int32_t { return percent < 50 ? SUCCESS : -4711; });
    EXPECT_EQ(page.reverse().status(), -4711);
  }
  void* data = nullptr;
  EXPECT_EQ(T_GetStatusCallBack(&data), outer);
  EXPECT_EQ(data, before);
  EXPECT_EQ(T_GetCopyStatusCallBack(nullptr), nullptr);
  T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(Pixels(page), Pixels(original));
}

TEST(Face, ExceptionsOfCallablesPassAroundTheLibrary) {
  const Bitmap original = Pattern(64, 200, Depth::Bits8, Storage::Disk);
  Bitmap page = original.clone().value();
  BitmapList list;
  ASSERT_TRUE(list.append(original.clone().value()));
  int32_t limit = 40;
  {
    ProgressScope watch([&](int32_t percent) {
      if (percent >= limit) throw std::out_of_range("enough");
    });
    const Recording recording;
    EXPECT_THROW(static_cast<void>(page.flip()), std::out_of_range);
    EXPECT_THROW(static_cast<void>(page.rotate(4500)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(page.converted(Depth::Bits24)), std::out_of_range);
    EXPECT_THROW(static_cast<void>(page.clone()), std::out_of_range);
    EXPECT_THROW(static_cast<void>(page.toDib()), std::out_of_range);
    EXPECT_THROW(static_cast<void>(list.copy()), std::out_of_range);
    EXPECT_EQ(T_FlipBitmap(page.handle()), kCancelled);  // nobody there to throw it on
    EXPECT_EQ(page.crop({99, 0, 1, 1}).status(), ERR_EMPTY_AREA);
    EXPECT_THROW(watch.rethrow(), std::out_of_range);
    watch.rethrow();  // it was told
    EXPECT_EQ(recording.Left(), "");
    limit = 101;
    EXPECT_TRUE(page.flip());
    EXPECT_TRUE(page.flip());
  }
  EXPECT_EQ(Pixels(page), Pixels(original));

  // What visits rows and items may throw as well.
  EXPECT_THROW(static_cast<void>(page.editRows([](int32_t, std::span<uint8_t>) { throw 1; })), int);
  EXPECT_THROW(static_cast<void>(list.edit(0,
                                           [](Bitmap& item) {
                                             item.resize(32, 100).value();
                                             throw 1;
                                           })),
               int);
  EXPECT_EQ(list.take(0)->width(), 32);
}

TEST(Face, RowsAreTheSameInPlaceAndCopied) {
  const struct {
    Storage storage;
    Depth depth;
    bool inPlace;
  } cases[] = {{Storage::Memory, Depth::Bits24, true},         {Storage::Memory, Depth::Bits1, true},
               {Storage::Tiled, Depth::Bits12, false},         {Storage::Disk, Depth::Bits24, false},
               {Storage::Disk, Depth::Bits64, false},          {Storage::Compressed, Depth::Bits1, false},
               {Storage::SuperCompressed, Depth::Bits8, false}};
  for (const auto& c : cases) {
    SCOPED_TRACE("storage " + std::to_string(static_cast<uint32_t>(c.storage)));
    const Bytes expected = Pixels(Pattern(61, 40, c.depth));
    Bitmap bitmap = Pattern(61, 40, c.depth);
    ASSERT_TRUE(bitmap.moveTo(c.storage, c.storage == Storage::Tiled ? 1000 : 0));
    EXPECT_EQ(bitmap.storage()->kind, c.storage);
    EXPECT_EQ(bitmap.storage()->tileCount > 1, c.storage == Storage::Tiled);
    EXPECT_EQ(bitmap.rowInPlace(3).size(), c.inPlace ? bitmap.rowBytes() : 0);
    Bytes seen;
    int32_t next = 0;
    ASSERT_TRUE(bitmap.readRows([&](int32_t row, std::span<const uint8_t> line) {
      EXPECT_EQ(row, next++);
      const uint8_t* const lies = std::as_const(bitmap).rowInPlace(row).data();
      EXPECT_EQ(lies, c.inPlace ? line.data() : nullptr);
      seen.insert(seen.end(), line.begin(), line.end());
    }));
    EXPECT_EQ(seen, expected);
    EXPECT_EQ(Pixels(bitmap), expected);

    ASSERT_TRUE(bitmap.editRows([&](int32_t, std::span<uint8_t> line) {
      for (uint8_t& byte : line.first(bitmap.pixelBytes() - 1)) byte ^= 0xFF;
    }));
    Bytes changed = expected;
    for (size_t i = 0; i < changed.size(); ++i)
      if (i % bitmap.rowBytes() < bitmap.pixelBytes() - 1) changed[i] ^= 0xFF;
    EXPECT_EQ(Pixels(bitmap), changed);
  }
}

TEST(Face, ListsOwnTheirItems) {
  const Recording recording;
  {
    BitmapList pages;
    for (int32_t width : {10, 20, 30}) ASSERT_TRUE(pages.append(Pattern(width, 8, Depth::Bits24)));
    Bitmap refused = Pattern(5, 5, Depth::Bits8);
    EXPECT_EQ(pages.replace(3, std::move(refused)).status(), ERR_INVALID_PARAMETER);
    EXPECT_FALSE(refused.empty());  // NOLINT(bugprone-use-after-move): not taken
    EXPECT_EQ(pages.replace(1, std::move(refused))->width(), 20);
    ASSERT_TRUE(pages.edit(0, [](Bitmap& page) { page.resize(40, 8).value(); }));
    EXPECT_EQ(pages.edit(3, [](Bitmap&) { FAIL(); }).status(), ERR_INVALID_PARAMETER);
    BitmapList moved = std::move(pages);
    EXPECT_TRUE(pages.empty());  // NOLINT(bugprone-use-after-move)
    BitmapList copied = moved.copy(0, 1).value(), tail = moved.split(2).value();
    EXPECT_EQ(moved.size(), 2u);
    EXPECT_EQ(copied.take(0)->width(), 40);
    EXPECT_EQ(tail.take(0)->width(), 30);
    const Palette common = moved.optimizedPalette(16).value();
    EXPECT_LE(common.size(), 16u);
    ASSERT_TRUE(moved.convert(Depth::Bits4, {.kind = PaletteKind::Given, .palette = common}));
    Bitmap kept;
    ASSERT_TRUE(moved.edit(0, [&](Bitmap& page) { kept = std::move(page); }));  // an empty item stays
    EXPECT_EQ(kept.depth(), Depth::Bits4);
    EXPECT_EQ(moved.size(), 2u);
    ASSERT_TRUE(moved.insert(0, std::move(kept)));
    ASSERT_TRUE(moved.erase(1));
    EXPECT_EQ(moved.take(1)->width(), 5);
  }
  EXPECT_EQ(recording.Left(), "");
}

TEST(Face, OverlaysAndDibsChangeHands) {
  const Recording recording;
  {
    Bitmap page = Pattern(30, 20, Depth::Bits24), mask = Pattern(8, 8, Depth::Bits1);
    const Bytes bits = Pixels(mask);
    ASSERT_TRUE(page.setOverlay(0, std::move(mask)));
    EXPECT_TRUE(mask.empty());  // NOLINT(bugprone-use-after-move)
    EXPECT_EQ(page.overlayCount(), 1u);
    EXPECT_EQ(Pixels(page.overlay(0).value()), bits);

    Dib dib = page.toDib().value();
    EXPECT_EQ(dib.bytes().size(), 40u + 92 * 20);
    const Bitmap back = Bitmap::fromDib(Dib::copyOf(dib.bytes()).value()).value();
    EXPECT_EQ(back.pixel(19, 3).value(), page.pixel(0, 3).value());  // bottom row first
    dib.bytes()[0] = 39;
    EXPECT_EQ(Bitmap::fromDib(dib).status(), ERR_UNSUPPORTED_FORMAT);
    EXPECT_EQ(dib.bytes().size(), 40u + 92 * 20);
    dib.bytes()[0] = 40;
    EXPECT_EQ(Pixels(Bitmap::fromDib(dib).value()), Pixels(back));
    EXPECT_TRUE(dib.empty());
    EXPECT_EQ(Bitmap::fromDib(dib).status(), ERR_INVALID_PARAMETER);
    ASSERT_TRUE(page.removeOverlay(0));

    Bitmap slice = Pattern(30, 20, Depth::Bits24);
    const Palette blackAndWhite = Palette::gray(Depth::Bits1);
    ASSERT_EQ(T_StartDithering(slice.handle(), blackAndWhite.data(), 2), SUCCESS);
    // left running: it ends with the bitmap
  }
  EXPECT_EQ(recording.Left(), "");
}

TEST(Face, ValuesAreThoseOfTheLibrary) {
  static_assert(Color::rgb(1, 2, 3).value() == 0x00030201 && Color::index(5).value() == 0x01000005);
  static_assert(Color::gray(0xABCD).value() == 0x0400ABCD && Color::gray(0xABCD).blue() == 0xAB);
  static_assert(Palette::gray(Depth::Bits2).color(1) == Color::rgb(85, 85, 85));
  static_assert(!std::is_copy_constructible_v<Bitmap> && std::is_nothrow_move_assignable_v<Bitmap>);
  static_assert(!std::is_copy_constructible_v<BitmapList> && !std::is_copy_constructible_v<Dib>);
  for (uint32_t bits = 1; bits <= 8; ++bits) {
    T_PaletteEntry* const ramp = T_CreateGrayPalette(bits);
    EXPECT_EQ(Palette(std::span(ramp, size_t{1} << bits)), Palette::gray(static_cast<Depth>(bits)));
    T_GlobalFree(ramp, __LINE__, L"Face_test.cpp");
    const Bitmap plain = Bitmap::create(4, 4, static_cast<Depth>(bits)).value();
    EXPECT_EQ(plain.palette(), Palette::fixed(static_cast<Depth>(bits)));
  }
  Palette mine{Color::rgb(0, 0, 0), Color::rgb(200, 0, 0)};
  EXPECT_EQ(mine.nearest(Color::rgb(190, 9, 9)), 1u);
  Bitmap page = Pattern(16, 16, Depth::Bits24);
  ASSERT_TRUE(page.convert(Depth::Bits4, {.kind = PaletteKind::Given, .palette = mine}));
  EXPECT_EQ(page.palette().color(1), Color::rgb(200, 0, 0));
  EXPECT_LE(page.countColors().value(), 2u);
  ASSERT_TRUE(page.setPalette(Palette{Color::rgb(5, 6, 7)}, 1));
  EXPECT_EQ(page.palette().color(1), Color::rgb(5, 6, 7));

  // Every status of the C header has its name here.
  std::ifstream header(TARN_SOURCE_DIR "/include/tarn/types.h");
  const std::regex status("^  (SUCCESS|ERR_\\w+) = (-?\\d+).*");
  std::set<std::string> names;
  for (std::string line; std::getline(header, line);) {
    if (!line.empty() && line.back() == '\r') line.pop_back();
    std::smatch match;
    if (!std::regex_match(line, match, status)) continue;
    EXPECT_EQ(statusName(std::stoi(match[2])), match[1].str());
    names.insert(match[1]);
  }
  EXPECT_GT(names.size(), 15u);
  EXPECT_STREQ(statusName(-4711), "status");
}

}  // namespace
