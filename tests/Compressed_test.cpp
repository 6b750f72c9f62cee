// Rows as run-length records, through bitmaps of compressed and ordinary storage.

#include <gtest/gtest.h>

#include "Platform/Fault.h"
#include "Scope.h"
#include "engine/Random.h"

using namespace tarn::test;

namespace {

struct Record {
  std::vector<uint16_t> memory;  // count in the first two words
  explicit Record(size_t words) : memory(words + 2, 0xDDDD) {}
  Record(std::initializer_list<uint16_t> words) : memory(2) {
    memory[0] = static_cast<uint16_t>(words.size());
    memory.insert(memory.end(), words);
  }
  void* Data() { return memory.data(); }
  std::vector<uint16_t> Words() const {
    uint32_t count = 0;
    std::memcpy(&count, memory.data(), 4);
    return {memory.begin() + 2, memory.begin() + 2 + count};
  }
};

}  // namespace

TEST(Compressed, RecordsOfAnyStorageAreTheSame) {
  Bitmap plain(77, 5, 1);
  Bitmap packed(77, 5, 1);
  ASSERT_EQ(T_AllocateBitmap(&plain, 1), SUCCESS);
  ASSERT_EQ(T_AllocateBitmap(&packed, 512), SUCCESS);
  Record zeros(100);
  EXPECT_EQ(T_GetBitmapRowCompressed(&packed, nullptr, zeros.Data(), 0, 1), SUCCESS);
  EXPECT_EQ(zeros.Words(), (std::vector<uint16_t>{77}));  // no record yet: a row of zeros
  Fill(plain, 3);
  Fill(packed, 3);
  for (uint32_t row = 0; row < 5; ++row) {
    Record a(200);
    Record b(200);
    uint8_t own[12];
    void* const line = row % 2 ? own : nullptr;
    EXPECT_EQ(T_GetBitmapRowCompressed(&plain, line, a.Data(), row, 1), SUCCESS);
    EXPECT_EQ(T_GetBitmapRowCompressed(&packed, nullptr, b.Data(), row, 1), SUCCESS);
    EXPECT_EQ(a.Words(), b.Words());
    for (const uint32_t first : {0u, 1u, 7u, 8u, 33u, 76u}) {
      for (const uint32_t count : {0u, 1u, 20u, 99u}) {
        const int32_t want = static_cast<int32_t>(std::min(count, 77 - first));
        EXPECT_EQ(T_GetBitmapRowColCompressed(&plain, nullptr, a.Data(), row, first, count), want);
        EXPECT_EQ(T_GetBitmapRowColCompressed(&packed, nullptr, b.Data(), row, first, count), want);
        EXPECT_EQ(a.Words(), b.Words()) << first << '+' << count;
      }
    }
  }
  std::vector<uint16_t> all(5 * 90);
  std::vector<uint16_t> again(5 * 90);
  EXPECT_EQ(T_GetBitmapRowCompressed(&plain, nullptr, all.data(), 0, 99), SUCCESS);  // cut to the height
  EXPECT_EQ(T_GetBitmapRowCompressed(&packed, nullptr, again.data(), 0, 99), SUCCESS);
  EXPECT_EQ(all, again);
  EXPECT_EQ(T_GetBitmapRowCompressed(&plain, nullptr, all.data(), 5, 1), SUCCESS);
}

TEST(Compressed, PutsReplaceStretches) {
  for (const uint32_t type : {1u, 512u}) {
    Bitmap b(40, 3, 1);
    ASSERT_EQ(T_AllocateBitmap(&b, type), SUCCESS);
    Record row{0, 40};
    EXPECT_EQ(T_PutBitmapRowCompressed(&b, nullptr, row.Data(), 1, 1), SUCCESS);
    EXPECT_EQ(Row(b, 1), (std::vector<uint8_t>{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0, 0, 0}));
    Record part{2, 3, 3};
    EXPECT_EQ(T_PutBitmapRowColCompressed(&b, nullptr, part.Data(), 1, 16, 8), 1);
    EXPECT_EQ(Row(b, 1), (std::vector<uint8_t>{0xFF, 0xFF, 0x38, 0xFF, 0xFF, 0, 0, 0}));
    EXPECT_EQ(T_PutBitmapRowColCompressed(&b, nullptr, part.Data(), 1, 40, 8), ERR_INVALID_PARAMETER);
    EXPECT_EQ(T_PutBitmapRowColCompressed(&b, nullptr, part.Data(), 3, 0, 8), ERR_INVALID_PARAMETER);
    EXPECT_EQ(T_PutBitmapRowCompressed(&b, nullptr, part.Data(), 0, 0), SUCCESS);
    EXPECT_EQ(Row(b, 0), std::vector<uint8_t>(8, 0));
  }
}

TEST(Compressed, RecordsThatDoNotAddUpAreMended) {
  Bitmap b(20, 40, 1);  // tall enough that the runs stay below packed rows
  ASSERT_EQ(T_AllocateBitmap(&b, 512), SUCCESS);
  Record tooLong{4, 99};
  Record tooShort{4, 2};
  Record odd{0, 3, 0, 3, 14};  // joints inside a run are kept as given
  Record empty{};
  EXPECT_EQ(T_PutBitmapRowCompressed(&b, nullptr, tooLong.Data(), 0, 1), SUCCESS);
  EXPECT_EQ(T_PutBitmapRowCompressed(&b, nullptr, tooShort.Data(), 1, 1), SUCCESS);
  EXPECT_EQ(T_PutBitmapRowCompressed(&b, nullptr, odd.Data(), 2, 1), SUCCESS);
  EXPECT_EQ(T_PutBitmapRowCompressed(&b, nullptr, empty.Data(), 3, 1), SUCCESS);
  const std::vector<uint16_t> want[4] = {{4, 16}, {4, 2, 14}, {0, 3, 0, 3, 14}, {20}};
  for (uint32_t row = 0; row < 4; ++row) {
    Record back(30);
    EXPECT_EQ(T_GetBitmapRowCompressed(&b, nullptr, back.Data(), row, 1), SUCCESS);
    EXPECT_EQ(back.Words(), want[row]) << row;
  }
}

TEST(Compressed, NoiseGoesBackToPlainStorage) {
  Bitmap b(256, 40, 1);
  ASSERT_EQ(T_AllocateBitmap(&b, 512), SUCCESS);
  std::vector<uint16_t> noise(2 + 256, 1);
  noise[0] = 256;
  noise[1] = 0;
  for (uint32_t row = 0; row < 40; ++row)
    ASSERT_EQ(T_PutBitmapRowCompressed(&b, nullptr, noise.data(), row, 1), SUCCESS);
  EXPECT_EQ(b.Reported(), 1u);
  EXPECT_EQ(V(b.Size), 40u * 32);
  for (uint32_t row = 0; row < 40; ++row) EXPECT_EQ(Row(b, row), std::vector<uint8_t>(32, 0x55));
  // Rows put as bits stay compressed: Size tells that they save nothing.
  Bitmap c(256, 4, 1);
  ASSERT_EQ(T_AllocateBitmap(&c, 512), SUCCESS);
  const std::vector<uint8_t> line(32, 0x55);
  for (uint32_t row = 0; row < 4; ++row) T_PutBitmapRow(&c, line.data(), row, 32);
  EXPECT_EQ(c.Reported(), 512u);
  EXPECT_EQ(V(c.Size), 4u * 256 * 2);
}

TEST(Compressed, HeapsGrowAndTrim) {
  Bitmap b(500, 60, 1);
  EXPECT_EQ(T_GrowBitmapHeap(&b, 100), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_TrimBitmapHeap(nullptr), ERR_INVALID_PARAMETER);
  ASSERT_EQ(T_AllocateBitmap(&b, 512), SUCCESS);
  tarn::ledger::StartRecording();
  ASSERT_EQ(T_GrowBitmapHeap(&b, 100000), SUCCESS);
  EXPECT_GE(tarn::ledger::Now().heapBytes, 100000u);
  for (uint32_t seed = 0; seed < 5; ++seed) Fill(b, seed);  // rewriting leaves holes
  const uint64_t size = b.Size;
  ASSERT_EQ(T_TrimBitmapHeap(&b), SUCCESS);
  EXPECT_EQ(V(b.Size), size);
  EXPECT_LE(tarn::ledger::Now().heapBytes, size + 64);
  EXPECT_EQ(T_TrimBitmapHeap(&b), SUCCESS) << "nothing left to trim";
  EXPECT_EQ(T_GrowBitmapHeap(&b, 1), SUCCESS) << "less than a word";
  EXPECT_EQ(T_GrowBitmapHeap(&b, uint64_t{2} * UINT32_MAX), 0) << "with what there is more than a heap takes";
  tarn::ledger::StopRecording();
  EXPECT_EQ(FirstDifference(b, 4, 60), -1);
  b.StructSize = 1;
  EXPECT_EQ(T_TrimBitmapHeap(&b), ERR_BAD_STRUCT_SIZE);
  b.StructSize = 212;
  EXPECT_EQ(T_GrowBitmapHeap(&b, ~uint64_t{0}), 0);
  EXPECT_EQ(FirstDifference(b, 4, 60), -1);
}

TEST(Compressed, RefusesOtherDepths) {
  Bitmap b(40, 3, 8);
  ASSERT_EQ(T_AllocateBitmap(&b, 1), SUCCESS);
  Record r(100);
  EXPECT_EQ(T_GetBitmapRowCompressed(&b, nullptr, r.Data(), 0, 1), ERR_BAD_BITS_PER_PIXEL);
  EXPECT_EQ(T_PutBitmapRowCompressed(&b, nullptr, r.Data(), 0, 1), ERR_BAD_BITS_PER_PIXEL);
  EXPECT_EQ(T_GetBitmapRowCompressed(nullptr, nullptr, r.Data(), 0, 1), ERR_INVALID_PARAMETER);
  b.StructSize = 7;
  EXPECT_EQ(T_GetBitmapRowCompressed(&b, nullptr, r.Data(), 0, 1), ERR_BAD_STRUCT_SIZE);
  b.StructSize = 212;
}

TEST(Compressed, ArgumentsAreTested) {
  Bitmap b(40, 3, 1);
  Record r{40};
  EXPECT_EQ(T_TrimBitmapHeap(&b), ERR_INVALID_PARAMETER) << "without storage";
  ASSERT_EQ(T_AllocateBitmap(&b, 1), SUCCESS);
  EXPECT_EQ(T_GrowBitmapHeap(&b, 1), ERR_INVALID_PARAMETER) << "not compressed";
  EXPECT_EQ(T_TrimBitmapHeap(&b), ERR_INVALID_PARAMETER);
  const struct {
    BitmapHandle* bitmap;
    void* record;
    uint32_t row, column;
  } wrong[] = {{nullptr, r.Data(), 0, 0}, {&b, nullptr, 0, 0}, {&b, r.Data(), 3, 0}, {&b, r.Data(), 0, 40}};
  for (const auto& w : wrong) {
    EXPECT_EQ(T_GetBitmapRowColCompressed(w.bitmap, nullptr, w.record, w.row, w.column, 1), ERR_INVALID_PARAMETER);
    EXPECT_EQ(T_PutBitmapRowColCompressed(w.bitmap, nullptr, w.record, w.row, w.column, 1), ERR_INVALID_PARAMETER);
    if (w.bitmap && w.record) continue;
    EXPECT_EQ(T_GetBitmapRowCompressed(w.bitmap, nullptr, w.record, 0, 1), ERR_INVALID_PARAMETER);
    EXPECT_EQ(T_PutBitmapRowCompressed(w.bitmap, nullptr, w.record, 0, 1), ERR_INVALID_PARAMETER);
  }
  b.Width = 65;  // more than a row holds
  EXPECT_EQ(T_PutBitmapRowCompressed(&b, nullptr, r.Data(), 0, 1), ERR_INVALID_PARAMETER);
  Bitmap narrow(40, 3, 1), empty(40, 3, 1);
  narrow.BytesPerLine = 4;
  empty.Width = 0;
  EXPECT_EQ(T_AllocateBitmap(&narrow, 512), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_AllocateBitmap(&empty, 512), ERR_INVALID_PARAMETER);
}

// What a record claims is not what its rows hold.
TEST(Compressed, RowsThatAreNotThere) {
  Bitmap b(40, 60, 1);
  ASSERT_EQ(T_AllocateBitmap(&b, 512), SUCCESS);
  Record whole{0, 40}, part{2, 3, 3}, got(100);
  ASSERT_EQ(T_PutBitmapRowCompressed(&b, nullptr, whole.Data(), 5, 1), SUCCESS);
  BitmapHandle taller = b;
  taller.Height = 80;
  EXPECT_EQ(T_PutBitmapRowColCompressed(&taller, nullptr, part.Data(), 70, 0, 8), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_PutBitmapRowCompressed(&taller, nullptr, whole.Data(), 70, 1), ERR_INVALID_PARAMETER);
  EXPECT_EQ(T_GetBitmapRowCompressed(&taller, nullptr, got.Data(), 70, 1), SUCCESS);
  EXPECT_EQ(got.Words(), (std::vector<uint16_t>{40}));
  BitmapHandle wider = b;
  wider.Width = 128;
  wider.BytesPerLine = 16;
  EXPECT_EQ(T_PutBitmapRowColCompressed(&wider, nullptr, part.Data(), 5, 50, 8), ERR_INVALID_PARAMETER);
  for (const uint32_t column : {56u, 100u}) {  // in the padding, behind the row
    uint8_t bytes[2] = {0xFF, 0xFF};
    EXPECT_EQ(T_PutBitmapRowCol(&wider, bytes, 5, column, 1), 1);
    EXPECT_EQ(T_GetBitmapRowCol(&wider, bytes, 5, column, 1), 1);
  }
  BitmapHandle none = b;
  uint8_t data[256] = {};
  none.Data = data;  // nothing that the library made
  EXPECT_EQ(T_PutBitmapRowColCompressed(&none, nullptr, part.Data(), 1, 0, 8), ERR_NO_MEMORY);
  EXPECT_EQ(T_PutBitmapRowCompressed(&none, nullptr, whole.Data(), 1, 1), ERR_NO_MEMORY);
  EXPECT_EQ(T_GetBitmapRowCompressed(&none, nullptr, got.Data(), 1, 1), ERR_NO_MEMORY);
  EXPECT_EQ(T_GetBitmapRowColCompressed(&none, nullptr, got.Data(), 1, 0, 9), 9);
  EXPECT_EQ(got.Words(), (std::vector<uint16_t>{9}));
  EXPECT_EQ(T_ChangeBitmapHeight(&none, 61), ERR_NO_MEMORY);
  EXPECT_EQ(T_GrowBitmapHeap(&none, 10), 0);
  EXPECT_EQ(T_TrimBitmapHeap(&none), 0);
  for (uint32_t row = 0; row < 60; ++row) {
    ASSERT_EQ(T_GetBitmapRowCompressed(&b, nullptr, got.Data(), row, 1), SUCCESS);
    EXPECT_EQ(got.Words(), row == 5 ? (std::vector<uint16_t>{0, 40}) : (std::vector<uint16_t>{40})) << row;
  }
}

// Rows that are rewritten leave holes in a heap. One that must not grow is packed, and one that cannot be stays.
TEST(Compressed, RowsAreKeptWhenHeapsCannotGrow) {
  using tarn::fault::Point;
  tarn::engine::Random random(tarn::engine::RunSeed());
  Bitmap b(900, 8, 1);
  ASSERT_EQ(T_AllocateBitmap(&b, 512), SUCCESS);
  std::vector<std::vector<uint8_t>> rows(8, std::vector<uint8_t>(b.BytesPerLine));
  int refused = 0, packed = 0;
  for (int step = 0; step < 3000; ++step) {
    const auto row = static_cast<uint32_t>(random.Below(8));
    std::vector<uint8_t> line(b.BytesPerLine);
    for (uint64_t runs = random.Below(112); runs-- > 0;) line[runs] = random.Byte();
    const auto calls = static_cast<uint64_t>(random.Below(3));  // the first calls that are refused
    tarn::fault::Arm({.first = 1, .last = calls, .points = Mask(Point::kMemory)});
    const int64_t put = T_PutBitmapRow(&b, line.data(), row, line.size());
    const uint64_t answered = tarn::fault::Answered();
    tarn::fault::Disarm();
    if (put > 0) {
      rows[row] = line;
      packed += answered != 0;
    } else {
      ASSERT_EQ(put, ERR_NO_MEMORY);
      ++refused;
    }
    if (step % 8) continue;
    for (uint32_t i = 0; i < 8; ++i) ASSERT_EQ(Row(b, i), rows[i]) << "step " << step;
  }
  EXPECT_GT(refused, 0);
  EXPECT_GT(packed, 0);
}
