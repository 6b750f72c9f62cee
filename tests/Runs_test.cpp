// The exported codec of compressed one-bit rows, and the workers on run words.

#include "Common/Internal/Runs.h"

#include <gtest/gtest.h>

#include "RunReference.h"
#include "tarn/rows.h"

using namespace runref;

namespace {

std::vector<uint8_t> Record(const Words& words) {
  const uint32_t count = static_cast<uint32_t>(words.size());
  std::vector<uint8_t> record(4 + 2 * words.size());
  std::memcpy(record.data(), &count, 4);
  if (count) std::memcpy(record.data() + 4, words.data(), 2 * words.size());
  return record;
}

std::vector<uint8_t> Records(const std::vector<Words>& rows) {
  std::vector<uint8_t> records;
  for (const Words& row : rows) {
    const std::vector<uint8_t> record = Record(row);
    records.insert(records.end(), record.begin(), record.end());
  }
  return records;
}

/// Runs `work` on a target of exactly the wanted bytes at an odd address.
template <class Work>
testing::AssertionResult Gives(const std::vector<uint8_t>& wanted, Work work) {
  Guarded target(wanted.size(), 1);
  work(target.data());
  if (!target.GuardsKept()) return testing::AssertionFailure() << "wrote outside";
  for (size_t i = 0; i < wanted.size(); ++i) {
    if (target.data()[i] != wanted[i]) {
      return testing::AssertionFailure() << "byte " << i << " of " << wanted.size() << ": " << int{target.data()[i]}
                                         << ", wanted " << int{wanted[i]};
    }
  }
  return testing::AssertionSuccess();
}

TEST(Runs, NullIsRefused) {
  uint8_t bytes[64] = {};
  EXPECT_EQ(T_CompressRow(nullptr, bytes, 0, 8), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CompressRow(bytes, nullptr, 0, 8), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CompressRow(bytes, bytes + 32, 0, 0x80000000u), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CompressRows(nullptr, bytes, 8, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_CompressRows(bytes, nullptr, 8, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ExpandRow(nullptr, bytes, 0, 8), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ExpandRow(bytes, nullptr, 0, 8), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ExpandRows(nullptr, bytes, 8, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_ExpandRows(bytes, nullptr, 8, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_MirrorCompressedBuffer(nullptr, bytes, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_MirrorCompressedBuffer(bytes, nullptr, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_FlipCompressedBuffer(nullptr, bytes, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_FlipCompressedBuffer(bytes, nullptr, 1), ERR_INVALID_PARAMETER);
}

TEST(Runs, RecordsByHand) {
  struct Case {
    const char* name;
    std::vector<uint8_t> packed;
    uint32_t startBit, pixels;
    Words words;
  };
  const std::vector<uint8_t> ones(25008, 0xFF);
  const Case cases[] = {
      {"zeros", {0, 0}, 0, 13, {13}},
      {"ones", {0xFF, 0xFF}, 0, 13, {0, 13}},
      {"no pixels", {0xFF}, 3, 0, {0}},
      {"mixed", {0x3C, 0x81}, 0, 16, {2, 4, 2, 1, 6, 1}},
      {"bits before the start are not counted", {0xFF, 0x00}, 3, 13, {0, 5, 8}},
      {"only the low three bits of the start count", {0x14, 0x00}, 11, 9, {0, 1, 1, 1, 6}},
      {"70000 ones", ones, 0, 70000, {0, 65528, 0, 4472}},
      {"65535 ones", ones, 0, 65535, {0, 65535}},
      {"65536 ones", ones, 0, 65536, {0, 65528, 0, 8}},
      {"65536 ones from bit 1", ones, 1, 65536, {0, 65535, 0, 1}},
      {"200000 ones from bit 5", ones, 5, 200000, {0, 65531, 0, 65528, 0, 65528, 0, 3413}},
  };
  for (const Case& c : cases) {
    EXPECT_TRUE(Gives(Record(c.words), [&](uint8_t* target) {
      EXPECT_EQ(T_CompressRow(target, c.packed.data(), c.startBit, c.pixels), static_cast<int32_t>(c.pixels));
    })) << c.name;
  }
}

TEST(Runs, ExpandingByHand) {
  struct Case {
    const char* name;
    Words words;
    uint32_t first, pixels;
    std::vector<uint8_t> packed;
  };
  const Case cases[] = {
      {"no words", {}, 0, 20, {0, 0, 0}},
      {"no pixels", {0, 8}, 0, 0, {}},
      {"from inside ones", {2, 10, 3}, 7, 8, {0xF8}},
      {"from inside zeros", {10, 4}, 7, 8, {0x1E}},
      {"from behind all runs", {10, 4}, 14, 9, {0, 0}},
      {"missing pixels are zeros", {1, 2}, 0, 16, {0x60, 0}},
      {"pixels beyond are cut", {0, 65535}, 0, 9, {0xFF, 0x80}},
      {"runs of length 0", {0, 3, 0, 0, 0, 2, 1, 0, 0, 1, 1}, 0, 8, {0xFA}},
  };
  for (const Case& c : cases) {
    EXPECT_TRUE(Gives(c.packed, [&](uint8_t* target) {
      EXPECT_EQ(T_ExpandRow(Record(c.words).data(), target, c.first, c.pixels), SUCCESS);
    })) << c.name;
  }
}

TEST(Runs, MirrorByHand) {
  struct Case {
    Words words, mirrored;
  };
  const Case cases[] = {
      {{0, 5}, {0, 5}},
      {{2, 3, 4}, {4, 3, 2}},
      {{7}, {7}},
      {{2, 3}, {0, 3, 2}},
      {{0, 3, 4}, {4, 3}},
      {{0}, {}},
      {{}, {0}},
      {{1, 2, 3, 4, 5, 6, 7, 8, 9, 10}, {0, 10, 9, 8, 7, 6, 5, 4, 3, 2, 1}},
      {{0, 65528, 0, 8, 5}, {5, 8, 0, 65528}},
  };
  std::vector<Words> rows, mirrored;
  for (const Case& c : cases) {
    rows.push_back(c.words);
    mirrored.push_back(c.mirrored);
  }
  const uint32_t count = static_cast<uint32_t>(rows.size());
  EXPECT_TRUE(Gives(Records(mirrored), [&](uint8_t* target) {
    EXPECT_EQ(T_MirrorCompressedBuffer(Records(rows).data(), target, count), SUCCESS);
  }));
}

/// A page of text lines: letters of upright and level strokes, a rule, white between lines, one row wider than strokes.
std::vector<Pixels> TextPage(uint32_t width, uint32_t height, Random& random) {
  std::vector<Pixels> page(height, Pixels(width));
  const auto fill = [&](uint32_t left, uint32_t top, uint32_t wide, uint32_t high) {
    for (uint32_t y = top; y < std::min(height, top + high); ++y) {
      for (uint32_t x = left; x < std::min(width, left + wide); ++x) page[y][x] = true;
    }
  };
  for (uint32_t top = 10; top + 30 < height; top += 30) {
    for (uint32_t left = 12; left + 40 < width; left += 14 + Below(random, 12)) {
      fill(left, top, 2 + Below(random, 3), 20);
      fill(left, top + Below(random, 18), 8 + Below(random, 4), 2);
      if (random() & 1) fill(left + 8, top + 6, 3, 14);
    }
  }
  fill(0, height / 2, width, 3);
  for (uint32_t x = 0; x < width; ++x) page[height - 1][x] = random() & 1;
  return page;
}

TEST(Runs, PageOfRows) {
  Random random(7);
  for (const uint32_t width : {1u, 8u, 31u, 32u, 33u, 1240u, 2479u}) {
    SCOPED_TRACE(width);
    const uint32_t height = 120;
    const std::vector<Pixels> page = TextPage(width, height, random);
    const size_t stride = (width + 31) / 8 & ~3u;
    std::vector<uint8_t> packed(stride * height), mirroredPacked(stride * height);
    std::vector<Words> rows;
    for (uint32_t y = 0; y < height; ++y) {
      const std::vector<uint8_t> row = Pack(page[y]);
      const std::vector<uint8_t> mirrored = Pack(Pixels(page[y].rbegin(), page[y].rend()));
      std::copy(row.begin(), row.end(), packed.begin() + y * stride);
      std::copy(mirrored.begin(), mirrored.end(), mirroredPacked.begin() + y * stride);
      rows.push_back(Compress(page[y]));
    }
    const std::vector<uint8_t> records = Records(rows);
    EXPECT_TRUE(Gives(
        records, [&](uint8_t* target) { EXPECT_EQ(T_CompressRows(target, packed.data(), width, height), SUCCESS); }));
    std::vector<uint8_t> expanded(packed.size());
    EXPECT_EQ(T_ExpandRows(records.data(), expanded.data(), width, height), SUCCESS);
    EXPECT_EQ(expanded, packed);

    EXPECT_TRUE(Gives(Records({rows.rbegin(), rows.rend()}), [&](uint8_t* target) {
      EXPECT_EQ(T_FlipCompressedBuffer(records.data(), target, height), SUCCESS);
    }));
    std::vector<uint8_t> mirrored(records.size() + 2 * height);
    EXPECT_EQ(T_MirrorCompressedBuffer(records.data(), mirrored.data(), height), SUCCESS);
    EXPECT_EQ(T_ExpandRows(mirrored.data(), expanded.data(), width, height), SUCCESS);
    EXPECT_EQ(expanded, mirroredPacked);
  }
}

/// Calls a worker with a target of exactly the words wanted.
template <class Work>
void ExpectWords(const Words& wanted, uint64_t room, Work work) {
  ASSERT_LE(wanted.size(), room);
  Guarded target(2 * wanted.size(), 1);
  ASSERT_EQ(work(target.data()), wanted.size());
  ASSERT_TRUE(Same(target.data(), wanted.data(), 2 * wanted.size()));
  ASSERT_TRUE(target.GuardsKept());
}

/// A width near the pixels of the words, now and then beyond what one run word holds.
uint32_t WidthNear(const Words& words, Random& random) {
  uint64_t sum = 0;
  for (const uint16_t word : words) sum += word;
  const uint32_t most = static_cast<uint32_t>(std::min<uint64_t>(sum, 300000)) + 20;
  return Below(random, 40) ? Below(random, most) : Below(random, 140000);
}

Words RowWords(Random& random) {
  if (random() & 1) return AnyWords(Below(random, 50), random);
  if (Below(random, 16)) return Compress(Picture(static_cast<int>(Below(random, 7)), Below(random, 600), random));
  return Compress(Picture(static_cast<int>(1 + Below(random, 2) * 6), Below(random, 200000), random));
}

TEST(Runs, SlicesAreWhatCompressingGives) {
  Random random(8);
  for (int round = 0; round < 3000; ++round) {
    const Words words = RowWords(random);
    const uint32_t count = static_cast<uint32_t>(words.size());
    const uint32_t width = WidthNear(words, random);
    const uint32_t first = Below(random, width + 9);
    const uint32_t firstBit = Below(random, 8);
    SCOPED_TRACE(testing::Message() << Text(words) << " width " << width << " from " << first << " bit " << firstBit);
    Exact source(words.data(), 2 * words.size(), random() % 64);
    ExpectWords(Compress(Expand(words, 0, width)), tarn::MaxRunWords(count, width),
                [&](void* target) { return tarn::CanonicalRuns(target, source.data(), count, width); });
    if (HasFatalFailure()) return;
    ExpectWords(Compress(Expand(words, first, width), firstBit), tarn::MaxRunWords(count, width),
                [&](void* target) { return tarn::SliceRuns(target, source.data(), count, first, width, firstBit); });
    if (HasFatalFailure()) return;
  }
}

TEST(Runs, RowsWithoutWordsAreZeros) {
  for (const uint32_t width : {0u, 1u, 65535u, 65536u, 200000u}) {
    SCOPED_TRACE(width);
    ExpectWords(Compress(Pixels(width)), tarn::MaxRunWords(0, width),
                [&](void* target) { return tarn::CanonicalRuns(target, nullptr, 0, width); });
  }
}

TEST(Runs, SplicesAreWhatCompressingGives) {
  Random random(9);
  for (int round = 0; round < 3000; ++round) {
    const Words row = RowWords(random);
    const Words insert = RowWords(random);
    const uint32_t rowCount = static_cast<uint32_t>(row.size());
    const uint32_t insertCount = static_cast<uint32_t>(insert.size());
    const uint32_t width = WidthNear(row, random);
    const uint32_t first = Below(random, width + 9);
    const uint32_t inserted = std::min(WidthNear(insert, random), Below(random, width + 9));
    SCOPED_TRACE(testing::Message() << Text(row) << " width " << width << " with " << Text(insert) << " at " << first
                                    << " for " << inserted);
    Pixels pixels = Expand(row, 0, width);
    const Pixels replacement = Expand(insert, 0, inserted);
    for (uint32_t x = 0; x < inserted && first + x < width; ++x) pixels[first + x] = replacement[x];
    Exact rowWords(row.data(), 2 * row.size(), random() % 64);
    Exact insertWords(insert.data(), 2 * insert.size(), random() % 64);
    const uint64_t room = tarn::MaxRunWords(uint64_t{rowCount} + insertCount + 2, width);
    ExpectWords(Compress(pixels), room, [&](void* target) {
      return tarn::SpliceRuns(target, rowWords.data(), rowCount, width, insertWords.data(), insertCount, first,
                              inserted);
    });
    if (HasFatalFailure()) return;
  }
}

TEST(Runs, RoomHoldsTheWorstRows) {
  for (const uint32_t width : {0u, 1u, 2u, 63u, 65528u, 65536u, 140000u}) {
    Pixels pixels(width);
    for (uint32_t x = 0; x < width; x += 2) pixels[x] = true;
    EXPECT_LE(Compress(pixels).size(), tarn::MaxRunWords(width)) << width;
    EXPECT_LE(Compress(Pixels(width, true)).size(), tarn::MaxRunWords(width)) << width;
  }
  Pixels shortest(131065, true);
  shortest[0] = false;
  EXPECT_LE(Compress(shortest, 7).size(), tarn::MaxRunWords(131065));
}

}  // namespace
