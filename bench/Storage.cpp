// Making, writing and freeing bitmaps beside plain memory.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>

#include "Bitmaps.h"

namespace bench {
namespace {

constexpr int32_t kWidth = 4096;
constexpr int32_t kHeight = static_cast<int32_t>(kPictureBytes / 3 / kWidth);
constexpr int kSmallOnes = 256;  // a pass

void PlainMemory() {
  void* const block = std::malloc(kPictureBytes);
  Require(block != nullptr, "malloc");
  std::memset(block, 0x5A, kPictureBytes);
  benchmark::DoNotOptimize(block);
  benchmark::ClobberMemory();
  std::free(block);
}

void WriteWhole() {
  Bitmap bitmap(kWidth, kHeight, 24, TYPE_NOTILED);
  std::memset(bitmap.Data(), 0x5A, kPictureBytes);
  benchmark::ClobberMemory();
}

void WriteRows(const std::vector<uint8_t>& line) {
  Bitmap bitmap(kWidth, kHeight, 24, TYPE_NOTILED);
  for (uint32_t row = 0; row < bitmap.Rows(); ++row) T_PutBitmapRow(&bitmap, line.data(), row, line.size());
  benchmark::ClobberMemory();
}

template <int32_t kBits>
void Small() {
  for (int i = 0; i < kSmallOnes; ++i) {
    Bitmap bitmap(64, 64, kBits, TYPE_CONV);
    benchmark::DoNotOptimize(bitmap.Data());
  }
}

void SmallMemory() {
  for (int i = 0; i < kSmallOnes; ++i) {
    void* block = std::calloc(64, 64);
    benchmark::DoNotOptimize(block);
    std::free(block);
  }
}

}  // namespace

Group StorageGroup() {
  Group group{"storage", "Storage made, written and freed", {"us", "x malloc"}, {}, {}};
  const size_t plain = group.Add("malloc", PlainMemory);
  const size_t whole = group.Add("bitmap", WriteWhole);
  const std::vector<uint8_t> line(kWidth * 3, 0x5A);
  const size_t rows = group.Add("bitmap by rows", [line] { WriteRows(line); });
  const size_t none = group.Add("small memory", SmallMemory);
  const size_t small1 = group.Add("64 x 64 x 1", Small<1>);
  const size_t small8 = group.Add("64 x 64 x 8", Small<8>);
  const size_t small24 = group.Add("64 x 64 x 24", Small<24>);
  constexpr double kMicro = 1e6;
  constexpr double kEach = kMicro / kSmallOnes;
  group.lines = {
      {"48 MB, written once", "malloc, memset, free", {Scaled(plain, kMicro), {}}},
      {"48 MB, written once", "bitmap, memset of Data", {Scaled(whole, kMicro), Ratio(whole, plain, AtMost(0.9))}},
      {"48 MB, written once", "bitmap, T_PutBitmapRow", {Scaled(rows, kMicro), Ratio(rows, plain)}},
      {"4 KB, zero", "calloc, free", {Scaled(none, kEach), {}}},
      {"64 x 64, 1 bit", "bitmap", {Scaled(small1, kEach, AtMost(2)), {}}},
      {"64 x 64, 8 bits", "bitmap", {Scaled(small8, kEach, AtMost(2)), {}}},
      {"64 x 64, 24 bits", "bitmap", {Scaled(small24, kEach, AtMost(2)), {}}},
  };
  return group;
}

}  // namespace bench
