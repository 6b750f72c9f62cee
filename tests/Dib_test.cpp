// Device-independent bitmaps: what is made of every depth, order and perspective, and what is read of every layout.

#include <gtest/gtest.h>

#include <string>

#include "Common/Internal/Rows.h"
#include "DibBytes.h"
#include "Scope.h"
#include "engine/Picture.h"
#include "engine/Random.h"

using namespace tarn::test;
using tarn::engine::Kind;
using tarn::engine::Picture;
using tarn::engine::Random;
using tarn::engine::Shape;

namespace {

/// Bits of a stored row, most significant first.
uint32_t BitsAt(const Bytes& row, uint64_t bit, uint32_t count) {
  uint32_t value = 0;
  for (; count > 0; --count, ++bit) value = value << 1 | (row[bit / 8] >> (7 - bit % 8) & 1);
  return value;
}
uint32_t WordAt(const Bytes& row, size_t byte) { return row[byte] | static_cast<uint32_t>(row[byte + 1]) << 8; }

/// The top eight of `count` significant bits, fewer spread over 0..255.
uint32_t GrayOf(uint32_t sample, int32_t low, int32_t count) {
  const uint32_t value = sample >> low & ((1u << count) - 1);
  return count >= 8 ? value >> (count - 8) : value * 255 / ((1u << count) - 1);
}

/// What a stored pixel shows, in the depth that a DIB has for it.
Color StoredColor(const BitmapHandle& bitmap, const Bytes& row, int32_t column) {
  const auto bits = static_cast<uint32_t>(bitmap.BitsPerPixel);
  const auto at = static_cast<size_t>(column);
  const bool swapped = bitmap.Order == T_ORDER_RGB;
  Color color{};
  if (bits <= 8) {
    const T_PaletteEntry entry = bitmap.Palette[BitsAt(row, at * bits, bits)];
    return {entry.Blue, entry.Green, entry.Red, 0};
  }
  if (bitmap.Order == T_ORDER_GRAY) {
    uint32_t sample = 0;
    if (bits == 32) return {row[4 * at + 3], row[4 * at + 3], row[4 * at + 3], 0};
    if (bits == 16) sample = WordAt(row, 2 * at);
    if (bits == 12) sample = at % 2 ? WordAt(row, at * 3 / 2) >> 4 : WordAt(row, at * 3 / 2) & 0xFFF;
    if (bitmap.Flags & T_FLAG_LUT_IN_USE) {
      const T_PaletteEntry entry = bitmap.LUT[std::min(sample >> bitmap.LowBit, V(bitmap.LUTLength) - 1)];
      return {entry.Blue, entry.Green, entry.Red, 0};
    }
    const uint32_t gray = GrayOf(sample, bitmap.LowBit, bitmap.HighBit - bitmap.LowBit + 1);
    return {gray, gray, gray, 0};
  }
  if (bits == 16) {
    const uint32_t word = WordAt(row, 2 * at);
    color = {word & 31, word >> 5 & 31, word >> 10 & 31, 0};
  } else if (bits <= 32) {
    const size_t byte = at * bits / 8;
    color = {row[byte], row[byte + 1], row[byte + 2], bits == 32 ? row[byte + 3] : 0u};
  } else {
    const size_t byte = at * bits / 8;  // the high bytes
    color = {row[byte + 1], row[byte + 3], row[byte + 5], bits == 64 ? row[byte + 7] : 0u};
  }
  return swapped ? Color{color.red, color.green, color.blue, color.alpha} : color;
}

/// Where a stored pixel is shown, written out for each perspective.
struct Place {
  int32_t x, y;
};
Place ShownAt(uint32_t perspective, int32_t column, int32_t row, int32_t width, int32_t height) {
  switch (perspective) {
    case 1:
      return {column, row};
    case 2:
      return {width - 1 - column, row};
    case 3:
      return {width - 1 - column, height - 1 - row};
    case 4:
      return {column, height - 1 - row};
    case 5:
      return {row, column};
    case 6:
      return {height - 1 - row, column};
    case 7:
      return {height - 1 - row, width - 1 - column};
    default:
      return {row, width - 1 - column};
  }
}

/// Compares a DIB with the bitmap that it was made of, pixel by pixel.
void ExpectShows(BitmapHandle& bitmap, const uint8_t* dib) {
  const int32_t width = bitmap.Width, height = bitmap.Height;
  const uint32_t perspective = bitmap.ViewPerspective;
  const bool turned = perspective >= 5;
  const tarn::BitmapLock lock(bitmap);
  ASSERT_EQ(static_cast<int32_t>(Get32(dib + 4)), turned ? height : width);
  ASSERT_EQ(static_cast<int32_t>(Get32(dib + 8)), turned ? width : height);
  for (int32_t row = 0; row < height; ++row) {
    const Bytes line = Row(bitmap, static_cast<uint32_t>(row));
    for (int32_t column = 0; column < width; ++column) {
      const Place at = ShownAt(perspective, column, row, width, height);
      const Color shown = DibPixel(dib, at.x, at.y), stored = StoredColor(bitmap, line, column);
      ASSERT_EQ(shown, stored) << "row " << row << " column " << column << ": " << shown.blue << " " << shown.green
                               << " " << shown.red << " " << shown.alpha << " for " << stored.blue << " "
                               << stored.green << " " << stored.red << " " << stored.alpha;
    }
  }
}

/// A DIB of the caller's, locked.
class Dib {
 public:
  explicit Dib(BitmapHandle& bitmap) { status = T_ConvertToDIB(&bitmap, &block_); }
  ~Dib() {
    if (!block_) return;
    if (start_) T_OsUnlockHandle(HandleOf(block_), 1, L"here");
    FreeBlock(block_);
  }
  Dib(const Dib&) = delete;
  const uint8_t* Data() {
    if (!start_) start_ = static_cast<const uint8_t*>(T_OsLockHandle(HandleOf(block_), 1, L"here"));
    return start_;
  }
  int32_t status;

 private:
  void* block_ = nullptr;
  const uint8_t* start_ = nullptr;
};

void GiveColours(BitmapHandle& record) {
  if (record.BitsPerPixel > 8) return;
  T_PaletteEntry entries[256];
  for (uint32_t i = 0; i < 256; ++i)
    entries[i] = {static_cast<uint8_t>(i * 7 + 1), static_cast<uint8_t>(i * 11), static_cast<uint8_t>(i * 13 + 5), 9};
  ASSERT_EQ(T_SetBitmapNewPalette(&record, entries, record.Colors), SUCCESS);
}

}  // namespace

TEST(Dib, ShowsEveryDepthFromEveryPerspectiveAndStorage) {
  const tarn::engine::ThresholdScope scope;
  int number = 0;
  for (const int32_t bits : tarn::engine::kDepths) {
    for (uint32_t perspective = 1; perspective <= 8; ++perspective) {
      for (const uint32_t order : {T_ORDER_RGB, T_ORDER_BGR, T_ORDER_GRAY}) {
        const bool gray = order == T_ORDER_GRAY;
        if (bits <= 8 ? order != T_ORDER_RGB : gray ? bits != 12 && bits != 16 && bits != 32 : bits == 12) continue;
        const Shape shape = {13 + static_cast<int32_t>(perspective), 11, bits};
        Kind kind{};
        do kind = static_cast<Kind>(++number % tarn::engine::kKinds);
        while (!shape.Suits(kind));
        Picture picture;
        ASSERT_EQ(picture.Make(kind, shape, static_cast<uint64_t>(number)), "");
        BitmapHandle& record = picture.record;
        GiveColours(record);
        record.Order = order;
        record.ViewPerspective = perspective;
        record.XResolution = 300;
        record.YResolution = 600;
        SCOPED_TRACE(std::string(NameOf(kind)) + " " + std::to_string(bits) + " bits, order " + std::to_string(order) +
                     ", perspective " + std::to_string(perspective));
        Dib dib(record);
        ASSERT_EQ(dib.status, SUCCESS);
        ExpectShows(record, dib.Data());
        if (HasFatalFailure()) return;
        EXPECT_EQ(Get32(dib.Data() + 24), perspective >= 5 ? 23622u : 11811u);
        EXPECT_EQ(Get32(dib.Data() + 28), perspective >= 5 ? 11811u : 23622u);
      }
    }
  }
}

TEST(Dib, GraySamplesGoBySignificantBitsAndLookupTable) {
  for (const int32_t bits : {12, 16}) {
    for (const int32_t low : {0, 3, 5}) {
      for (const int32_t significant : {1, 5, 7}) {
        for (const bool lut : {false, true}) {
          Picture picture;
          ASSERT_EQ(picture.Make(Kind::kBlock, {37, 9, bits}, 5), "");
          BitmapHandle& record = picture.record;
          record.Order = T_ORDER_GRAY;
          record.LowBit = low;
          record.HighBit = lut ? bits - 1 : low + significant - 1;
          if (lut) {
            record.LUTLength = 100;
            record.LUT = static_cast<T_PaletteEntry*>(T_GlobalAlloc(100, 4, 1, L"here"));
            for (uint8_t i = 0; i < 100; ++i) record.LUT[i] = {i, static_cast<uint8_t>(2 * i), 77, 0};
            record.Flags |= T_FLAG_LUT_IN_USE;
          }
          SCOPED_TRACE(testing::Message() << bits << " bits from " << low << ", " << significant << " lut " << lut);
          Dib dib(record);
          ASSERT_EQ(dib.status, SUCCESS);
          ExpectShows(record, dib.Data());
        }
      }
    }
  }
}

// Tables that are announced, and are not there or shorter.
TEST(Dib, TablesAreWhatTheirBlocksHold) {
  Picture gray;
  ASSERT_EQ(gray.Make(Kind::kBlock, {9, 3, 12}, 5), "");
  BitmapHandle& record = gray.record;
  record.Order = T_ORDER_GRAY;
  record.Flags |= T_FLAG_LUT_IN_USE;
  const auto bits = [&] {
    Dib dib(record);
    EXPECT_EQ(dib.status, SUCCESS);
    return dib.status == SUCCESS ? dib.Data()[14] : 0;  // of a pixel, in the header
  };
  EXPECT_EQ(bits(), 8) << "no table";
  record.LUT = static_cast<T_PaletteEntry*>(T_GlobalAllocInit(100, 4, 1, L"here"));
  EXPECT_EQ(bits(), 8) << "of no length";
  record.LUTLength = 101;
  EXPECT_EQ(bits(), 8) << "longer than its block";
  record.LUTLength = 100;
  EXPECT_EQ(bits(), 24);

  const T_PaletteEntry three[3] = {{1, 2, 3, 0}, {4, 5, 6, 0}, {7, 8, 9, 0}};
  for (const uint32_t said : {2u, 16u}) {
    Bitmap named;
    ASSERT_EQ(T_CreateBitmap(&named, 212, TYPE_CONV, 9, 3, 4, 0, nullptr, 1, nullptr, 0), SUCCESS);
    ASSERT_EQ(T_SetBitmapNewPalette(&named, three, 3), SUCCESS);
    named.Colors = said;
    Dib dib(named);
    ASSERT_EQ(dib.status, SUCCESS);
    Bytes table(dib.Data() + 40, dib.Data() + 40 + 16 * 4), wanted(16 * 4);
    std::memcpy(wanted.data(), three, said == 2 ? 8 : 12);
    EXPECT_EQ(table, wanted);
  }
}

TEST(Dib, RoundTripsKeepPixelsColoursAndResolution) {
  for (const int32_t bits : {1, 4, 8, 16, 24, 32}) {
    for (const int32_t width : {1, 7, 8, 9, 33}) {
      Picture picture;
      ASSERT_EQ(picture.Make(Kind::kBlock, {width, 6, bits}, 8), "");
      BitmapHandle& record = picture.record;
      GiveColours(record);
      record.XResolution = 204;
      record.YResolution = 196;
      Bytes before, after;
      ASSERT_EQ(tarn::engine::ReadPixels(record, before), "");
      Bytes palette(record.Palette ? record.Colors * 4 : 0);
      if (!palette.empty()) {
        auto* const entries = reinterpret_cast<T_PaletteEntry*>(palette.data());
        ASSERT_EQ(T_GetBitmapColors(&record, 0, record.Colors, entries), SUCCESS);
      }
      void* dib = nullptr;
      ASSERT_EQ(T_ChangeToDIB(&record, &dib), SUCCESS);
      EXPECT_FALSE(record.Flags & T_FLAG_ALLOCATED);
      EXPECT_EQ(V(record.Palette), nullptr);
      ASSERT_EQ(T_ChangeFromDIB(&record, 212, dib), SUCCESS);
      EXPECT_EQ(T_OsLockHandle(HandleOf(dib), 1, L"here"), nullptr);
      ASSERT_EQ(tarn::engine::ReadPixels(record, after), "");
      EXPECT_EQ(after, before) << bits << " bits " << width;
      EXPECT_EQ(record.BitsPerPixel, bits);
      EXPECT_EQ(record.ViewPerspective, 4u);
      EXPECT_EQ(record.XResolution, 204);
      EXPECT_EQ(record.YResolution, 196);
      for (size_t i = 0; i < palette.size(); ++i) {
        if (i % 4 != 3) {
          EXPECT_EQ(reinterpret_cast<uint8_t*>(V(record.Palette))[i], palette[i]) << i;
        }
      }
    }
  }
}

// ---- Reading -------------------------------------------------------------------------------------------------------

namespace {

/// A channel of a pixel, its bits repeated until there are eight.
uint32_t ChannelOf(uint32_t word, uint32_t mask) {
  std::string bits;
  for (int bit = 31; bit >= 0; --bit)
    if (mask >> bit & 1) bits += word >> bit & 1 ? '1' : '0';
  if (bits.empty()) return 0;
  uint32_t value = 0;
  for (size_t i = 0; i < 8; ++i) value = value << 1 | (bits[i % bits.size()] == '1');
  return value;
}

Bytes RandomRows(const DibPlan& plan, uint64_t seed) {
  Random random(seed);
  Bytes rows(plan.RowBytes() * static_cast<uint64_t>(std::abs(plan.height)));
  for (uint8_t& byte : rows) byte = random.Byte();
  return rows;
}

struct MaskCase {
  uint32_t bits, masks[4];
  int32_t becomes;
};
constexpr MaskCase kMaskCases[] = {{16, {0x7C00, 0x3E0, 0x1F, 0}, 16},
                                   {16, {0x7C00, 0x3E0, 0x1F, 0x8000}, 16},
                                   {16, {0xF800, 0x7E0, 0x1F, 0}, 24},
                                   {16, {0x1F, 0x3E0, 0x7C00, 0}, 24},
                                   {16, {0xF00, 0xF0, 0xF, 0xF000}, 32},
                                   {16, {0xE0, 0x1C, 0x3, 0}, 24},
                                   {16, {0x8000, 0x4000, 0x2000, 0x1}, 32},
                                   {16, {0x7C00, 0x3E0, 0xF, 0}, 24},
                                   {16, {0x7C00, 0x1E0, 0x1F, 0x8000}, 32},
                                   {32, {0xFF0000, 0xFF00, 0xFF, 0}, 32},
                                   {32, {0xFF0000, 0xFF00, 0xF, 0xFF000000}, 32},
                                   {32, {0xFF0000, 0xF00, 0xFF, 0xFF000000}, 32},
                                   {32, {0xFF0000, 0xFF00, 0xFF, 0xFF000000}, 32},
                                   {32, {0xFF, 0xFF00, 0xFF0000, 0xFF000000}, 32},
                                   {32, {0x3FF00000, 0xFFC00, 0x3FF, 0xC0000000}, 32},
                                   {32, {0, 0xFFFFFFFF, 0, 0}, 32}};

}  // namespace

TEST(Dib, ReadsEveryDepthHeaderAndDirection) {
  for (const uint32_t header : {12u, 40u, 52u, 56u, 108u, 124u}) {
    for (const uint32_t bits : {1u, 2u, 4u, 8u, 16u, 24u, 32u}) {
      for (const bool topDown : {false, true}) {
        for (const bool apart : {false, true}) {
          if (header == 12 && (topDown || bits == 16 || bits == 32)) continue;
          DibPlan plan;
          plan.header = header;
          plan.width = 19;
          plan.height = topDown ? -5 : 5;
          plan.bits = bits;
          plan.colors = bits == 4 && header != 12 ? 11 : 0;
          plan.xPerMetre = 3937;
          plan.yPerMetre = topDown ? 0 : 7874;
          SCOPED_TRACE(testing::Message() << "header " << header << " bits " << bits << " top " << topDown << apart);
          const Bytes rows = RandomRows(plan, bits), head = DibHead(plan), whole = Joined(head, rows);
          Bitmap made;
          ASSERT_EQ(T_ConvertFromDIB(&made, 212, apart ? head.data() : whole.data(), apart ? rows.data() : nullptr),
                    SUCCESS);
          EXPECT_EQ(made.Width, 19);
          EXPECT_EQ(made.Height, 5);
          EXPECT_EQ(made.BitsPerPixel, static_cast<int32_t>(bits));
          EXPECT_EQ(made.ViewPerspective, topDown ? 1u : 4u);
          EXPECT_EQ(made.XResolution, header == 12 || topDown ? 150 : 100);
          EXPECT_EQ(made.YResolution, header == 12 || topDown ? 150 : 200);
          const uint64_t used = 19 * bits;
          for (uint32_t row = 0; row < 5; ++row) {
            Bytes wanted(rows.begin() + static_cast<ptrdiff_t>(row * plan.RowBytes()),
                         rows.begin() + static_cast<ptrdiff_t>((row + 1) * plan.RowBytes()));
            for (uint64_t bit = used; bit < wanted.size() * 8; ++bit)
              wanted[bit / 8] &= static_cast<uint8_t>(~(0x80 >> bit % 8));
            EXPECT_EQ(Row(made, row), wanted) << row;
          }
          if (bits > 8) continue;
          const uint32_t each = header == 12 ? 3 : 4;
          for (uint32_t i = 0; i < 1u << bits; ++i) {
            const bool there = i < plan.TableEntries();
            const T_PaletteEntry entry = made.Palette[i];
            EXPECT_EQ(entry.Blue, there ? static_cast<uint8_t>(3 * each * i + 1) : 0) << i;
            EXPECT_EQ(entry.Red, there ? static_cast<uint8_t>(3 * each * i + 7) : 0) << i;
          }
        }
      }
    }
  }
}

TEST(Dib, ReadsChannelsOfAnyMasks) {
  for (const MaskCase& test : kMaskCases) {
    for (const uint32_t header : {40u, 52u, 56u, 124u}) {
      const bool alphaTold = header >= 56 || test.masks[3];
      if (header == 52 && test.masks[3]) continue;  // has no place for it
      DibPlan plan;
      plan.header = header;
      plan.width = 17;
      plan.height = 4;
      plan.bits = test.bits;
      plan.compression = header == 40 && alphaTold ? 6 : 3;
      std::memcpy(plan.masks, test.masks, sizeof plan.masks);
      SCOPED_TRACE(testing::Message() << test.bits << " bits, red " << std::hex << test.masks[0] << " header "
                                      << std::dec << header);
      const Bytes rows = RandomRows(plan, test.masks[0]), whole = Joined(DibHead(plan), rows);
      Bitmap made;
      ASSERT_EQ(T_ConvertFromDIB(&made, 212, whole.data(), nullptr), SUCCESS);
      ASSERT_EQ(made.BitsPerPixel, test.becomes);
      EXPECT_EQ(made.Order, 1u);
      for (uint32_t row = 0; row < 4; ++row) {
        const Bytes line = Row(made, row);
        const uint8_t* const source = rows.data() + row * plan.RowBytes();
        for (uint32_t i = 0; i < 17; ++i) {
          const uint32_t word =
              test.bits == 32 ? Get32(source + 4 * i) : source[2 * i] | static_cast<uint32_t>(source[2 * i + 1]) << 8;
          if (test.becomes == 16) {
            ASSERT_EQ(WordAt(line, 2 * i), word);
            continue;
          }
          const size_t at = i * static_cast<uint32_t>(test.becomes) / 8;
          ASSERT_EQ(line[at], ChannelOf(word, test.masks[2]));
          ASSERT_EQ(line[at + 1], ChannelOf(word, test.masks[1]));
          ASSERT_EQ(line[at + 2], ChannelOf(word, test.masks[0]));
          if (test.becomes == 32) {
            ASSERT_EQ(line[at + 3], ChannelOf(word, test.masks[3]));
          }
        }
      }
    }
  }
}

namespace {

/// A picture of indices, drawn pixel by pixel by what a stream of run lengths says.
std::vector<Bytes> DrawRuns(const Bytes& stream, int32_t bits, int32_t width, int32_t height) {
  std::vector<Bytes> rows(static_cast<size_t>(height), Bytes(static_cast<size_t>(width), 0));
  int64_t x = 0, y = 0;
  const auto draw = [&](uint32_t index) {
    if (x < width && y < height) rows[static_cast<size_t>(y)][static_cast<size_t>(x)] = static_cast<uint8_t>(index);
    ++x;
  };
  const auto half = [bits](uint8_t byte, int i) { return bits == 8 ? byte : i % 2 ? byte & 15 : byte >> 4; };
  for (size_t at = 0; at + 2 <= stream.size() && y < height;) {
    const uint8_t count = stream[at], value = stream[at + 1];
    at += 2;
    if (count) {
      for (int i = 0; i < count; ++i) draw(half(value, i));
    } else if (value == 0) {
      x = 0, ++y;
    } else if (value == 1) {
      break;
    } else if (value == 2) {
      if (at + 2 > stream.size()) break;
      x += stream[at], y += stream[at + 1];
      at += 2;
    } else {
      const size_t each = bits == 8 ? 1 : 2;
      for (int i = 0; i < value; ++i)
        if (at + static_cast<size_t>(i) / each < stream.size())
          draw(half(stream[at + static_cast<size_t>(i) / each], i));
      const size_t bytes = (value + each - 1) / each;
      at += bytes + bytes % 2;
    }
  }
  return rows;
}

void ExpectRuns(const Bytes& stream, uint32_t bits, int32_t width, int32_t height) {
  DibPlan plan;
  plan.width = width;
  plan.height = height;
  plan.bits = bits;
  plan.compression = bits == 8 ? 1 : 2;
  plan.imageBytes = static_cast<uint32_t>(stream.size());
  const Bytes whole = Joined(DibHead(plan), stream);
  Bitmap made;
  ASSERT_EQ(T_ChangeFromDIB(&made, 212, BlockOf(whole)), SUCCESS);
  const std::vector<Bytes> wanted = DrawRuns(stream, static_cast<int32_t>(bits), width, height);
  for (int32_t row = 0; row < height; ++row) {
    const Bytes line = Row(made, static_cast<uint32_t>(row));
    for (int32_t column = 0; column < width; ++column)
      ASSERT_EQ(BitsAt(line, static_cast<uint64_t>(column) * bits, bits), wanted[row][column])
          << "row " << row << " column " << column;
  }
}

}  // namespace

TEST(Dib, ReadsRunLengths) {
  const Bytes streams[] = {
      {3, 0x12, 0, 0, 2, 0x34, 0, 1},                     // two short rows
      {1, 0x51, 0, 3, 0x12, 0x34, 0x56, 0, 0, 1},         // indices as they are, at an odd column
      {2, 0x77, 0, 2, 3, 2, 2, 0x99, 0, 2, 0, 1, 1, 15},  // other places, the rest of a row and none
      {255, 0x21, 4, 0x43, 0, 0, 9, 0x65},                // beyond the row; the end is missing
      {0, 0, 0, 0, 0, 0, 0, 0, 5, 0xAB},                  // beyond the picture
      {0, 9, 0x12, 0x34},                                 // cut off within indices
      {0, 9, 0x12, 0x34, 0x56},                           // at an odd place
      {4, 0x11, 0, 2, 1},                                 // within a move
      {4, 0x11, 7},                                       // within a run
      {0, 2, 255, 0, 5, 0x11, 0, 2, 0, 255, 5, 0x11},     // far away
      {0, 1, 5, 0x11},                                    // nothing behind the end
  };
  for (const uint32_t bits : {4u, 8u}) {
    for (const Bytes& stream : streams) {
      SCOPED_TRACE(testing::Message() << bits << " bits, stream " << &stream - streams);
      ExpectRuns(stream, bits, 9, 4);
    }
    Random random(bits);
    for (int round = 0; round < 3000; ++round) {
      Bytes stream(random.Below(60));
      for (uint8_t& byte : stream) byte = random.OneIn(3) ? static_cast<uint8_t>(random.Below(4)) : random.Byte();
      SCOPED_TRACE(testing::Message() << bits << " bits, round " << round);
      ExpectRuns(Joined(stream, {0, 0}), bits, random.Between(1, 70), random.Between(1, 9));
      if (HasFatalFailure()) return;
    }
  }
}

// ---- Refusals ------------------------------------------------------------------------------------------------------

namespace {

struct Refusal {
  const char* name;
  void (*change)(DibPlan& plan);
};
constexpr Refusal kRefusals[] = {
    {"header of 16", [](DibPlan& p) { p.header = 16; }},
    {"header of 64", [](DibPlan& p) { p.header = 64; }},
    {"no planes", [](DibPlan& p) { p.planes = 0; }},
    {"width 0", [](DibPlan& p) { p.width = 0; }},
    {"negative width", [](DibPlan& p) { p.width = -3; }},
    {"height 0", [](DibPlan& p) { p.height = 0; }},
    {"lowest height", [](DibPlan& p) { p.height = INT32_MIN; }},
    {"0 bits", [](DibPlan& p) { p.bits = 0; }},
    {"3 bits", [](DibPlan& p) { p.bits = 3; }},
    {"48 bits", [](DibPlan& p) { p.bits = 48; }},
    {"core without planes", [](DibPlan& p) { p.header = 12, p.planes = 0; }},
    {"core of 5 bits", [](DibPlan& p) { p.header = 12, p.bits = 5; }},
    {"core of 16 bits", [](DibPlan& p) { p.header = 12, p.bits = 16; }},
    {"core of 32 bits", [](DibPlan& p) { p.header = 12, p.bits = 32; }},
    {"runs of 24 bits", [](DibPlan& p) { p.compression = 1; }},
    {"runs of 8 bits as 4", [](DibPlan& p) { p.compression = 2, p.bits = 8; }},
    {"runs, top first", [](DibPlan& p) { p.compression = 1, p.bits = 8, p.height = -2, p.imageBytes = 2; }},
    {"runs of unknown length", [](DibPlan& p) { p.compression = 1, p.bits = 8; }},
    {"masks of 24 bits", [](DibPlan& p) { p.compression = 3; }},
    {"another format inside", [](DibPlan& p) { p.compression = 4, p.bits = 0; }},
    {"another format of 24 bits", [](DibPlan& p) { p.compression = 5; }},
    {"unknown compression", [](DibPlan& p) { p.compression = 0x31424752; }},
    {"no masks", [](DibPlan& p) { p.compression = 3, p.bits = 32; }},
    {"masks overlap",
     [](DibPlan& p) { p.compression = 3, p.bits = 32, p.masks[0] = 0xFF, p.masks[1] = 0x80, p.masks[2] = 0xF00; }},
    {"a mask with a gap",
     [](DibPlan& p) { p.compression = 3, p.bits = 32, p.masks[0] = 0xF0F, p.masks[1] = 0xF0, p.masks[2] = 0xF000; }},
    {"masks beyond 16 bits",
     [](DibPlan& p) { p.compression = 3, p.bits = 16, p.masks[0] = 0x1F000, p.masks[1] = 0x3E0, p.masks[2] = 0x1F; }},
};

bool IsUntouched(const BitmapHandle& record) {
  const auto* const bytes = reinterpret_cast<const uint8_t*>(&record);
  return std::all_of(bytes, bytes + sizeof record, [](uint8_t byte) { return byte == 0x3C; });
}

}  // namespace

TEST(Dib, RefusesWhatItCannotRead) {
  for (const Refusal& refusal : kRefusals) {
    SCOPED_TRACE(refusal.name);
    DibPlan plan;
    plan.width = 3;
    plan.height = 2;
    refusal.change(plan);
    Bytes whole = DibHead(plan);
    whole.resize(whole.size() + 4000);
    BitmapHandle record;
    std::memset(static_cast<void*>(&record), 0x3C, sizeof record);
    EXPECT_EQ(T_ConvertFromDIB(&record, 212, whole.data(), nullptr), ERR_UNSUPPORTED_FORMAT);
    if (std::strcmp(refusal.name, "runs of unknown length") != 0) {  // a block bounds them
      void* const block = BlockOf(whole);
      EXPECT_EQ(T_ChangeFromDIB(&record, 212, block), ERR_UNSUPPORTED_FORMAT);
      FreeBlock(block);
    }
    EXPECT_TRUE(IsUntouched(record));
  }
}

TEST(Dib, ChecksComeInOrder) {
  DibPlan plan;
  const Bytes whole = Joined(DibHead(plan), Bytes(4));
  BitmapHandle record;
  std::memset(static_cast<void*>(&record), 0x3C, sizeof record);
  EXPECT_EQ(T_ConvertFromDIB(nullptr, 5, whole.data(), nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ConvertFromDIB(&record, 5, nullptr, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ConvertFromDIB(&record, 5, whole.data(), nullptr), ERR_BAD_STRUCT_SIZE);
  void* const block = BlockOf(whole);
  EXPECT_EQ(T_ChangeFromDIB(nullptr, 5, block), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ChangeFromDIB(&record, 5, nullptr), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ChangeFromDIB(&record, 5, block), ERR_BAD_STRUCT_SIZE);
  EXPECT_TRUE(IsUntouched(record));
  FreeBlock(block);
  EXPECT_EQ(T_ChangeFromDIB(&record, 212, block), ERR_INVALID_PARAMETER);  // no block any more

  void* dib = &record;
  Bitmap bitmap(5, 5, 24);
  EXPECT_EQ(T_ConvertToDIB(nullptr, &dib), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ConvertToDIB(&bitmap, nullptr), ERR_INVALID_PARAMETER);
  bitmap.StructSize = 3;
  EXPECT_EQ(T_ConvertToDIB(&bitmap, &dib), ERR_BAD_STRUCT_SIZE);
  bitmap.StructSize = 212;
  EXPECT_EQ(T_ChangeToDIB(&bitmap, &dib), ERR_NO_BITMAP);
  ASSERT_EQ(T_AllocateBitmap(&bitmap, 1), SUCCESS);
  bitmap.Flags |= T_FLAG_SIGNED_DATA;
  bitmap.ViewPerspective = 9;
  EXPECT_EQ(T_ChangeToDIB(&bitmap, &dib), ERR_INVALID_PARAMETER);
  bitmap.ViewPerspective = 0;
  EXPECT_EQ(T_ChangeToDIB(&bitmap, &dib), ERR_INVALID_PARAMETER);
  bitmap.ViewPerspective = 1;
  bitmap.Order = T_ORDER_GRAY;
  EXPECT_EQ(T_ChangeToDIB(&bitmap, &dib), ERR_INVALID_PARAMETER);
  const struct {
    int32_t bits;
    uint32_t order;
    bool shown;
  } orders[] = {{24, T_ORDER_WIDE, true}, {48, T_ORDER_WIDE, true},  {16, T_ORDER_WIDE, false},
                {24, 3, false},           {48, T_ORDER_GRAY, false}, {64, T_ORDER_GRAY, false},
                {16, T_ORDER_GRAY, true}, {32, T_ORDER_GRAY, true}};
  for (const auto& o : orders) {
    Bitmap other(5, 5, o.bits);
    ASSERT_EQ(T_AllocateBitmap(&other, 1), SUCCESS);
    other.Order = o.order;
    const Dib shown(other);
    EXPECT_EQ(shown.status, o.shown ? SUCCESS : ERR_INVALID_PARAMETER) << o.bits << " bits, order " << o.order;
  }
  Bitmap large(5, 5, 2);
  large.Width = 1 << 20, large.Height = 1 << 14, large.BytesPerLine = 1 << 18;  // four bits a pixel are too many
  large.Flags |= T_FLAG_ALLOCATED | T_FLAG_IN_MEMORY | T_FLAG_USER_DATA;
  EXPECT_EQ(T_ConvertToDIB(&large, &dib), ERR_IMAGE_TOO_LARGE);
  bitmap.Order = T_ORDER_BGR;
  EXPECT_EQ(T_ChangeToDIB(&bitmap, &dib), ERR_SIGNED_DATA);
  bitmap.Flags &= ~T_FLAG_SIGNED_DATA;
  EXPECT_TRUE(bitmap.Flags & T_FLAG_ALLOCATED);
  EXPECT_EQ(dib, &record);
}

// A block of any length that is too short is told apart, and nothing behind it is read (the address sanitizer looks
// on).
TEST(Dib, RefusesEveryBlockThatIsCutOff) {
  const auto held = tarn::platform::Held();
  DibPlan plans[6];
  for (DibPlan& plan : plans) plan.width = 5, plan.height = 3;
  plans[1].header = 12, plans[1].bits = 4;
  plans[2].bits = 16, plans[2].compression = 3, plans[2].masks[0] = 0xF800, plans[2].masks[1] = 0x7E0,
  plans[2].masks[2] = 0x1F;
  plans[3].bits = 8, plans[3].compression = 1, plans[3].imageBytes = 36;
  plans[4].header = 124, plans[4].bits = 1, plans[4].height = -3;
  plans[5].bits = 24, plans[5].colors = 7;  // of no use, but there
  for (const DibPlan& plan : plans) {
    const Bytes whole = Joined(DibHead(plan), RandomRows(plan, 1)), cut = {};
    const size_t length = plan.imageBytes ? DibHead(plan).size() + plan.imageBytes : whole.size();
    for (size_t bytes = 1; bytes <= length; ++bytes) {
      Bytes part = whole;
      part.resize(bytes);
      BitmapHandle record;
      std::memset(static_cast<void*>(&record), 0x3C, sizeof record);
      void* const block = BlockOf(part);
      const int32_t status = T_ChangeFromDIB(&record, 212, block);
#if defined(_WIN32)
      const bool rounded = true;  // the system's blocks may be a little longer than asked for
#else
      const bool rounded = false;
#endif
      if (bytes == length) {
        ASSERT_EQ(status, SUCCESS);
        T_FreeBitmap(&record);
      } else if (rounded && status == SUCCESS) {
        T_FreeBitmap(&record);
      } else {
        ASSERT_EQ(status, ERR_INVALID_PARAMETER) << bytes << " of " << length;
        ASSERT_TRUE(IsUntouched(record));
        FreeBlock(block);
      }
    }
  }
  EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
}

TEST(Dib, AStoppedConversionLeavesEverythingAsItWas) {
  int32_t answer = -5;
  Bitmap bitmap(20, 30, 24);
  ASSERT_EQ(T_AllocateBitmap(&bitmap, 1), SUCCESS);
  Fill(bitmap, 2);
  const BitmapHandle before = bitmap;
  DibPlan plan;
  plan.width = 9;
  plan.height = 9;
  const Bytes whole = Joined(DibHead(plan), RandomRows(plan, 3));
  void* const block = BlockOf(whole);
  const auto held = tarn::platform::Held();
  const auto stop = [](int32_t, void* result) { return *static_cast<int32_t*>(result); };
  T_SetStatusCallBack(stop, &answer, nullptr, nullptr);
  void* dib = nullptr;
  for (const int32_t value : {0, -5, 2}) {
    answer = value;
    EXPECT_EQ(T_ConvertToDIB(&bitmap, &dib), value);
    EXPECT_EQ(T_ChangeToDIB(&bitmap, &dib), value);
    BitmapHandle record;
    std::memset(static_cast<void*>(&record), 0x3C, sizeof record);
    EXPECT_EQ(T_ConvertFromDIB(&record, 212, whole.data(), nullptr), value);
    EXPECT_EQ(T_ChangeFromDIB(&record, 212, block), value);
    EXPECT_TRUE(IsUntouched(record));
  }
  T_SetStatusCallBack(nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(dib, nullptr);
  EXPECT_EQ(std::memcmp(&before, static_cast<BitmapHandle*>(&bitmap), sizeof before), 0);
  EXPECT_EQ(FirstDifference(bitmap, 2, 30), -1);
  EXPECT_TRUE(SameHeld(held, tarn::platform::Held()));
  FreeBlock(block);
}
