// Copies of bitmaps and rectangles beside plain memory.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "Bitmaps.h"

namespace bench {
namespace {

constexpr int32_t kWidth = 4096;
constexpr int32_t kHeight = static_cast<int32_t>(kPictureBytes / 3 / kWidth);
constexpr int32_t kPageWidth = 4960;
constexpr int32_t kPageHeight = 7016;
constexpr int32_t kColumn = 13;

void Fill(Bitmap& bitmap) {
  uint32_t state = 1;
  std::vector<uint8_t> line(bitmap.RowBytes());
  for (uint32_t row = 0; row < bitmap.Rows(); ++row) {
    for (uint8_t& byte : line) byte = static_cast<uint8_t>((state = state * 1664525u + 1013904223u) >> 24);
    T_PutBitmapRow(&bitmap, line.data(), row, line.size());
  }
}

/// Memory that was not there before: what any copy to new storage pays.
void CopyToFreshMemory(const Bitmap& source, uint64_t bytes) {
  void* const block = std::malloc(bytes);
  Require(block != nullptr, "malloc");
  std::memcpy(block, source.Data(), bytes);
  benchmark::DoNotOptimize(block);
  benchmark::ClobberMemory();
  std::free(block);
}

void Copy(Bitmap& source) {
  BitmapHandle made{};
  Require(T_CopyBitmap(&made, &source, sizeof made) == SUCCESS, "T_CopyBitmap");
  T_FreeBitmap(&made);
}

void CopyPage(Bitmap& source, int32_t column) {
  BitmapHandle made{};
  Require(T_CopyBitmapRect(&made, &source, sizeof made, column, 0, kPageWidth - column, kPageHeight) == SUCCESS,
          "T_CopyBitmapRect");
  T_FreeBitmap(&made);
}

}  // namespace

Group CopyGroup() {
  Group group{"copy", "Copies into new storage, freed again", {"ms", "x mc", "x malloc"}, {}, {}};
  const size_t yardstick = AddMemcpy(group);
  const auto picture = std::make_shared<Bitmap>(kWidth, kHeight, 24, TYPE_NOTILED);
  const auto page = std::make_shared<Bitmap>(kPageWidth, kPageHeight, 1, TYPE_NOTILED);
  Fill(*picture);
  Fill(*page);
  const size_t fresh = group.Add("malloc, memcpy", [picture] { CopyToFreshMemory(*picture, kPictureBytes); });
  const size_t whole = group.Add("whole", [picture] { Copy(*picture); });
  const size_t even = group.Add("page", [page] { CopyPage(*page, 0); });
  const size_t odd = group.Add("page at 13", [page] { CopyPage(*page, kColumn); });
  const auto add = [&](const char* job, const char* who, size_t at, double bytes, Figure beside, Target target) {
    group.lines.push_back({job, who, {Scaled(at, 1e3), TimesMemcpy(at, yardstick, bytes, bytes, target), beside}});
  };
  const auto all = static_cast<double>(kPictureBytes);
  const auto small = static_cast<double>(page->RowBytes()) * page->Rows();
  add("48 MB, 24 bits", "malloc, memcpy, free", fresh, all, Ratio(fresh, fresh), {});
  add("48 MB, 24 bits", "T_CopyBitmap", whole, all, Ratio(whole, fresh), AtMost(1.6));
  add("4960 x 7016, 1 bit", "T_CopyBitmapRect, all", even, small, {}, {});
  add("4960 x 7016, 1 bit", "T_CopyBitmapRect, column 13", odd, small, {}, AtMost(2.0));
  return group;
}

}  // namespace bench
