// Super-compressed storage: rows put and got anywhere against a plain bitmap, what it takes, what happens when its
// codec is missing, damaged or refuses.

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "Common/Internal/Ledger.h"
#include "Common/Internal/Storage.h"
#include "Platform/Fault.h"
#include "Platform/Platform.h"
#include "engine/Random.h"
#include "engine/Scene.h"
#include "tarn/tarn.h"

namespace tarn {
namespace {

using engine::Bytes;
using engine::Random;
namespace fs = std::filesystem;

constexpr int32_t kBits[] = {1, 8, 24};

/// A super-compressed bitmap beside a plain copy of its rows.
class Super {
 public:
  Super(int32_t width, int32_t height, int32_t bits) {
    EXPECT_EQ(T_InitBitmap(&record, sizeof record, width, height, bits), SUCCESS);
    EXPECT_EQ(T_AllocateBitmap(&record, TYPE_SUPERCOMPRESSED), SUCCESS);
    rowBytes = record.BytesPerLine;
    plain.resize(size_t{rowBytes} * static_cast<uint32_t>(height));
  }
  ~Super() { T_FreeBitmap(&record); }
  Super(const Super&) = delete;
  Super& operator=(const Super&) = delete;

  int32_t Height() const { return record.Height; }
  void Put(uint32_t row, const Bytes& bytes) {
    ASSERT_EQ(T_PutBitmapRow(&record, bytes.data(), row, bytes.size()), static_cast<int64_t>(bytes.size()));
    std::memcpy(&plain[size_t{row} * rowBytes], bytes.data(), bytes.size());
  }
  void ExpectRows(uint32_t row, size_t bytes) {
    Bytes got(bytes);
    ASSERT_EQ(T_GetBitmapRow(&record, got.data(), row, bytes), static_cast<int64_t>(bytes)) << "row " << row;
    ASSERT_EQ(std::memcmp(got.data(), &plain[size_t{row} * rowBytes], bytes), 0) << "row " << row;
  }
  void ExpectAll() {
    for (int32_t row = 0; row < Height() && !testing::Test::HasFatalFailure(); ++row)
      ExpectRows(static_cast<uint32_t>(row), rowBytes);
  }
  /// Rows that compress to about a third.
  Bytes Smooth(uint32_t row, Random& random) const {
    Bytes line(rowBytes);
    for (uint32_t i = 0; i < rowBytes; ++i)
      line[i] = record.BitsPerPixel == 1 ? static_cast<uint8_t>(random.OneIn(20) ? random.Byte() : 0)
                                         : static_cast<uint8_t>(i / 3 + row + random.Below(3));
    return line;
  }
  void Fill(Random& random) {
    for (int32_t row = 0; row < Height(); ++row)
      Put(static_cast<uint32_t>(row), Smooth(static_cast<uint32_t>(row), random));
  }

  BitmapHandle record{};
  uint32_t rowBytes = 0;
  Bytes plain;
};

class SuperStore : public testing::Test {
 protected:
  void SetUp() override { SetStripRows(0); }
  engine::Scene scene_;
};

TEST_F(SuperStore, RowsAnywhereAreThoseOfAPlainBitmap) {
  for (const int32_t bits : kBits) {
    for (const uint32_t stripRows : {1u, 5u, 0u}) {
      SetStripRows(stripRows);
      Random random(engine::Mix(engine::RunSeed(), static_cast<uint64_t>(bits) + stripRows));
      SCOPED_TRACE(std::to_string(bits) + " bits, strips of " + std::to_string(stripRows) + ", " + engine::SeedText());
      Super super(217, 90, bits);
      for (int step = 0; step < 500; ++step) {
        const auto row = static_cast<uint32_t>(random.Below(static_cast<uint64_t>(super.Height())));
        const size_t inside = super.plain.size() - size_t{row} * super.rowBytes;
        const size_t bytes =
            1 + random.Below(std::min<size_t>(inside, size_t{super.rowBytes} * (1 + random.Below(20))));
        switch (random.Below(8)) {
          case 0:
          case 1:
            super.Put(row, super.Smooth(row, random));
            break;
          case 2: {
            Bytes noise(bytes);
            for (uint8_t& byte : noise) byte = random.OneIn(3) ? random.Byte() : uint8_t{0};
            super.Put(row, noise);
            break;
          }
          case 3:
            super.Put(row, Bytes(bytes));  // zeros
            break;
          case 4:
            if (!random.OneIn(4)) break;
            ASSERT_EQ(T_CompactBitmap(&super.record), SUCCESS);
            break;
          case 5:
            if (random.OneIn(8)) {
              const int32_t height = random.Between(60, 120);
              ASSERT_EQ(T_ChangeBitmapHeight(&super.record, height), SUCCESS);
              super.plain.resize(size_t{super.rowBytes} * static_cast<uint32_t>(height));
            }
            break;
          default:
            super.ExpectRows(row, bytes);
        }
        if (HasFatalFailure()) return;
      }
      super.ExpectAll();
    }
  }
}

// Strips of few rows, of one, and more strips than a cache may have places.
TEST_F(SuperStore, RowsOfEveryLength) {
  const uint64_t before = T_SetSuperCompressedCache(uint64_t{1} << 40);
  const struct {
    int32_t width, height;
    uint32_t stripRows;
  } shapes[] = {{7000, 20, 0}, {70000, 12, 0}, {400000, 3, 0}, {40, 700, 1}};
  for (const auto& shape : shapes) {
    SCOPED_TRACE(shape.width);
    SetStripRows(shape.stripRows);
    Random random(3);
    Super super(shape.width, shape.height, 24);
    super.Fill(random);
    super.ExpectAll();
    ASSERT_EQ(T_ChangeBitmapHeight(&super.record, shape.height - 2), SUCCESS);
    super.ExpectRows(static_cast<uint32_t>(shape.height - 3), super.rowBytes);
  }
  T_SetSuperCompressedCache(0);
  EXPECT_EQ(T_SetSuperCompressedCache(before), before) << "0 is what there was";
}

// Size follows what is held; blank rows take nothing.
TEST_F(SuperStore, SizeIsWhatThePixelsTake) {
  Super super(1000, 1000, 24);
  ASSERT_EQ(T_CompactBitmap(&super.record), SUCCESS);
  EXPECT_EQ(super.record.Size, 0u);
  Random random(2);
  super.Fill(random);
  ASSERT_EQ(T_CompactBitmap(&super.record), SUCCESS);
  EXPECT_GT(super.record.Size, super.plain.size() / 10);
  EXPECT_LT(super.record.Size, super.plain.size() / 2);
  EXPECT_LE(ledger::Now().heapBytes, super.record.Size + super.record.Size / 8 + 65536) << "nothing is kept expanded";
  super.ExpectAll();
  T_FreeBitmap(&super.record);
  EXPECT_EQ(super.record.Size, super.plain.size());
  EXPECT_EQ(T_AllocateBitmap(&super.record, TYPE_SUPERCOMPRESSED), SUCCESS);
}

TEST_F(SuperStore, APictureTenTimesTheCacheTakesConstantMemory) {
  constexpr uint64_t kCache = uint64_t{384} << 10;
  const uint64_t before = T_SetSuperCompressedCache(kCache);
  EXPECT_EQ(T_SetSuperCompressedCache(0), kCache);
  EXPECT_EQ(T_SetSuperCompressedCache(kCache), before);
  {
    Super super(1024, 1300, 24);  // 4 MB
    Random random(engine::RunSeed());
    super.Fill(random);
    // Beside the compressed strips: the cache, the codec's work, one result of it.
    constexpr uint64_t kBound = kCache + (uint64_t{1400} << 10);
    const auto most = [&] { return ledger::Now().heapBytes; };
    uint64_t peak = 0;
    for (int step = 0; step < 1500; ++step) {
      const auto row = static_cast<uint32_t>(random.Below(1300));
      if (random.OneIn(3)) {
        super.Put(row, super.Smooth(row, random));
      } else {
        super.ExpectRows(row, super.rowBytes);
      }
      if (HasFatalFailure()) return;
      peak = std::max(peak, most());
      ASSERT_LE(most(), super.record.Size + kBound) << "step " << step;
    }
    EXPECT_LT(ledger::Now().peakHeapBytes, super.plain.size());
    super.ExpectAll();
  }
  T_SetSuperCompressedCache(0);
}

// A put of many strips that fails on its way has put nothing.
TEST_F(SuperStore, PutsOfManyRowsAreWholeOrNothing) {
  SetStripRows(4);
  Super super(300, 40, 8);
  Random random(9);
  super.Fill(random);
  Bytes noise(size_t{super.rowBytes} * 21 + 17);
  for (uint8_t& byte : noise) byte = random.Byte();
  for (uint64_t first = 1;; ++first) {
    fault::Arm({.first = first, .points = fault::kMemoryPoints});
    const int64_t put = T_PutBitmapRow(&super.record, noise.data(), 6, noise.size());
    const uint64_t answered = fault::Answered();
    fault::Disarm();
    if (put == static_cast<int64_t>(noise.size())) {
      std::memcpy(&super.plain[size_t{6} * super.rowBytes], noise.data(), noise.size());
      super.ExpectAll();
      if (answered == 0) break;
      continue;
    }
    ASSERT_EQ(put, ERR_NO_MEMORY);
    super.ExpectAll();
    ASSERT_FALSE(HasFatalFailure()) << "call " << first;
  }
}

TEST_F(SuperStore, DamagedStripsAreAStatus) {
  SetStripRows(8);
  Super super(200, 64, 24);
  Random random(4);
  super.Fill(random);
  ASSERT_EQ(T_CompactBitmap(&super.record), SUCCESS);
  struct Strip {
    uint8_t* data;
    uint64_t bytes;
  };
  Strip strip;
  std::memcpy(&strip, super.record.Data + 2 * sizeof strip, sizeof strip);  // the third
  ASSERT_GT(strip.bytes, 100u);
  strip.data[strip.bytes / 2] ^= 0x10;
  Bytes line(super.rowBytes);
  EXPECT_EQ(T_GetBitmapRow(&super.record, line.data(), 20, line.size()), ERR_UNSUPPORTED_FORMAT);
  EXPECT_EQ(T_PutBitmapRow(&super.record, line.data(), 20, line.size()), ERR_UNSUPPORTED_FORMAT);
  super.ExpectRows(3, super.rowBytes);
  super.ExpectRows(30, super.rowBytes);
  // Rows that are all put anew need nothing of what was there.
  for (uint32_t row = 16; row < 24; ++row)
    std::memcpy(&super.plain[size_t{row} * super.rowBytes], line.data(), line.size());
  EXPECT_EQ(T_PutBitmapRow(&super.record, &super.plain[size_t{16} * super.rowBytes], 16, size_t{8} * super.rowBytes),
            static_cast<int64_t>(size_t{8} * super.rowBytes));
  super.ExpectAll();
}

TEST_F(SuperStore, ThreadsWorkOnTheirOwnBitmapsAndReadOneTogether) {
  SetStripRows(3);
  Super shared(150, 60, 24);
  Random random(1);
  shared.Fill(random);
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (uint64_t number = 0; number < 4; ++number) {
    threads.emplace_back([&, number] {
      Random own(number + 50);
      Super super(120, 50, kBits[number % 3]);
      super.Fill(own);
      Bytes line(shared.rowBytes);
      // A record of its own: reading keeps the figure of what is held in it.
      BitmapHandle record = shared.record;
      for (int step = 0; step < 200; ++step) {
        const auto row = static_cast<uint32_t>(own.Below(50));
        super.Put(row, super.Smooth(row, own));
        super.ExpectRows(static_cast<uint32_t>(own.Below(50)), super.rowBytes);
        const auto at = static_cast<uint32_t>(own.Below(60));
        if (T_GetBitmapRow(&record, line.data(), at, line.size()) != static_cast<int64_t>(line.size()) ||
            std::memcmp(line.data(), &shared.plain[size_t{at} * line.size()], line.size()) != 0)
          ++wrong;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  EXPECT_EQ(wrong, 0);
}

// ---- The library that it needs -------------------------------------------------------------------------------------

/// The shared library in a directory of its own, with what is put beside it as its codec.
class Alone {
 public:
  explicit Alone(const engine::Scene& scene) : folder_(fs::path(scene.Directory().Name()) / "alone") {
    fs::create_directories(folder_);
    const fs::path library = TARN_LIBRARY_PATH;
    library_ = folder_ / library.filename();
    fs::copy_file(library, library_);
  }
  ~Alone() {
    Close();
    std::error_code error;
    fs::remove_all(folder_, error);
  }
  Alone(const Alone&) = delete;
  Alone& operator=(const Alone&) = delete;

  fs::path CodecPath() const { return folder_ / fs::path(TARN_CODEC_PATH).filename(); }
  void Open() {
    Close();
    module_ = platform::ModuleOpen(library_.wstring().c_str());
    ASSERT_NE(module_, nullptr);
  }
  void Close() {
    platform::ModuleClose(module_);
    module_ = nullptr;
  }
  template <class Function>
  Function Entry(Function, const char* name) {
    return reinterpret_cast<Function>(platform::ModuleSymbol(module_, name));
  }
  /// What asking for super-compressed storage gives, for a new bitmap and for one with pixels.
  void Expect(int32_t status) {
    const auto allocate = Entry(T_AllocateBitmap, "T_AllocateBitmap");
    const auto change = Entry(T_ChangeBitmapCompression, "T_ChangeBitmapCompression");
    const auto put = Entry(T_PutBitmapRow, "T_PutBitmapRow");
    const auto get = Entry(T_GetBitmapRow, "T_GetBitmapRow");
    const auto release = Entry(T_FreeBitmap, "T_FreeBitmap");
    for (const uint32_t type : {1024u, 1025u}) {
      BitmapHandle made{};
      T_InitBitmap(&made, sizeof made, 40, 30, 24);
      EXPECT_EQ(allocate(&made, type), status);
      EXPECT_EQ((made.Flags & T_FLAG_ALLOCATED) != 0, status == SUCCESS);
      release(&made);
    }
    BitmapHandle kept{};
    T_InitBitmap(&kept, sizeof kept, 40, 30, 24);
    ASSERT_EQ(allocate(&kept, TYPE_CONV), SUCCESS);
    Bytes line(120, 0x3C);
    ASSERT_EQ(put(&kept, line.data(), 7, line.size()), 120);
    const BitmapHandle before = kept;
    EXPECT_EQ(change(&kept, TYPE_SUPERCOMPRESSED), status);
    if (status != SUCCESS) {
      BitmapHandle now = kept;
      now.CachedRow = before.CachedRow;
      now.CachedRowOffset = before.CachedRowOffset;
      EXPECT_EQ(std::memcmp(&now, &before, sizeof now), 0);
    }
    Bytes got(120);
    EXPECT_EQ(get(&kept, got.data(), 7, got.size()), 120);
    EXPECT_EQ(got, line);
    release(&kept);
  }

 private:
  fs::path folder_;
  fs::path library_;
  void* module_ = nullptr;
};

TEST_F(SuperStore, CodecIsLookedForBesideTheLibraryOnly) {
  // One in the current directory is nobody's.
  const fs::path here = fs::current_path();
  const fs::path elsewhere = fs::path(scene_.Directory().Name()) / "elsewhere";
  fs::create_directories(elsewhere);
  fs::copy_file(TARN_CODEC_PATH, elsewhere / fs::path(TARN_CODEC_PATH).filename());
  fs::current_path(elsewhere);
  {
    Alone alone(scene_);
    alone.Open();
    alone.Expect(ERR_LIBRARY_NOT_LOADED);
    // It is looked for again each time.
    fs::copy_file(TARN_CODEC_PATH, alone.CodecPath());
    alone.Expect(SUCCESS);
    alone.Open();  // unloads the codec with it
    alone.Expect(SUCCESS);
  }
  fs::current_path(here);
  fs::remove_all(elsewhere);
}

TEST_F(SuperStore, DamagedCodecsAreNotLoaded) {
  Alone alone(scene_);
  alone.Open();
  std::ofstream(alone.CodecPath(), std::ios::binary) << "no library at all";
  alone.Expect(ERR_LIBRARY_NOT_LOADED);
  std::ifstream whole(TARN_CODEC_PATH, std::ios::binary);
  std::vector<char> start(5000);
  whole.read(start.data(), static_cast<std::streamsize>(start.size()));
  std::ofstream(alone.CodecPath(), std::ios::binary).write(start.data(), static_cast<std::streamsize>(start.size()));
  alone.Expect(ERR_LIBRARY_NOT_LOADED);
  fs::remove(alone.CodecPath());
  fs::copy_file(TARN_LIBRARY_PATH, alone.CodecPath());  // without the two names
  alone.Expect(ERR_LIBRARY_NOT_LOADED);
}

// One that does not know this release's record is not used; one that fails later gives its status, and nothing is lost.
TEST_F(SuperStore, CodecsThatAnswerWrongly) {
  Alone alone(scene_);
  fs::copy_file(TARN_WRONG_CODEC_PATH, alone.CodecPath());
  void* const codec = platform::ModuleOpen(alone.CodecPath().wstring().c_str());
  ASSERT_NE(codec, nullptr);
  const auto lieAbout = reinterpret_cast<void (*)(const int64_t*)>(platform::ModuleSymbol(codec, "LieAbout"));
  ASSERT_NE(lieAbout, nullptr);
  enum { kAskSave, kSave, kAskLoad, kLoad, kDataBytes, kWorkBytes, kCount };
  const auto lie = [&](int about, int64_t answer) {
    int64_t answers[kCount + 1] = {0, 0, 0, 0, 1 << 20, 8};
    answers[about] = answer;
    lieAbout(answers);
  };
  for (const auto& [about, answer] : {std::pair{kAskSave, -5}, {kDataBytes, 0}, {kWorkBytes, 0}, {kAskLoad, -5}}) {
    alone.Open();
    lie(about, answer);
    alone.Expect(ERR_LIBRARY_NOT_LOADED);
  }
  lie(kCount, 0);
  alone.Expect(SUCCESS);

  const auto compact = alone.Entry(T_CompactBitmap, "T_CompactBitmap");
  const auto get = alone.Entry(T_GetBitmapRow, "T_GetBitmapRow");
  BitmapHandle record{};
  T_InitBitmap(&record, sizeof record, 40, 30, 24);
  ASSERT_EQ(alone.Entry(T_AllocateBitmap, "T_AllocateBitmap")(&record, TYPE_SUPERCOMPRESSED), SUCCESS);
  Bytes line(120, 0x3C), got(120);
  ASSERT_EQ(alone.Entry(T_PutBitmapRow, "T_PutBitmapRow")(&record, line.data(), 7, 120), 120);
  constexpr int64_t kNothing = 1000;
  for (const auto& [about, answer, status] :
       {std::tuple{kAskSave, int64_t{-5}, -5}, {kSave, int64_t{-7}, -7}, {kSave, kNothing, int32_t{ERR_NO_MEMORY}}}) {
    lie(about, answer);
    EXPECT_EQ(compact(&record), status);
    EXPECT_EQ(get(&record, got.data(), 7, 120), 120);
    EXPECT_EQ(got, line);
  }
  lie(kCount, 0);
  EXPECT_EQ(compact(&record), SUCCESS);
  EXPECT_EQ(record.Size, 40u * 30 * 3);
  for (const auto& [about, answer, status] : {std::tuple{kAskLoad, int64_t{-5}, -5},
                                              {kLoad, int64_t{-7}, -7},
                                              {kLoad, int64_t{17}, int32_t{ERR_UNSUPPORTED_FORMAT}}}) {
    lie(about, answer);
    EXPECT_EQ(get(&record, got.data(), 7, 120), status);
  }
  lie(kCount, 0);
  EXPECT_EQ(get(&record, got.data(), 7, 120), 120);
  EXPECT_EQ(got, line);
  alone.Entry(T_FreeBitmap, "T_FreeBitmap")(&record);
  alone.Close();
  platform::ModuleClose(codec);
}

}  // namespace
}  // namespace tarn
