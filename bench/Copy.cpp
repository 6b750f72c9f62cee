// Copies of bitmaps and rectangles beside plain memory and beside other libraries.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "Bitmaps.h"
#include "Peers.h"

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

/// From a column on.
Pixels PixelsOf(Bitmap& bitmap, int32_t bits, int32_t column) {
  BitmapHandle part{};
  const int32_t width = (&bitmap)->Width - column;
  const int32_t height = (&bitmap)->Height;
  Require(T_CopyBitmapRect(&part, &bitmap, sizeof part, column, 0, width, height) == SUCCESS, "T_CopyBitmapRect");
  Pixels pixels({bits, T_ORDER_BGR}, width, height);
  for (int32_t row = 0; row < height; ++row)
    Require(T_GetBitmapRow(&part, pixels.Row(row), static_cast<uint32_t>(row), pixels.rowBytes) == pixels.rowBytes,
            "T_GetBitmapRow");
  T_FreeBitmap(&part);
  return pixels;
}

}  // namespace

Group CopyGroup() {
  Group group{
      "copy", "Copies into new storage, freed again, where nothing else is said", {"ms", "x mc", "x malloc"}, {}, {}};
  const size_t yardstick = AddMemcpy(group);
  const auto picture = std::make_shared<Bitmap>(kWidth, kHeight, 24, TYPE_NOTILED);
  const auto page = std::make_shared<Bitmap>(kPageWidth, kPageHeight, 1, TYPE_NOTILED);
  Fill(*picture);
  Fill(*page);
  const auto ready = std::make_shared<Bitmap>(kWidth, kHeight, 24, TYPE_NOTILED);
  const size_t fresh = group.Add("malloc, memcpy", [picture] { CopyToFreshMemory(*picture, kPictureBytes); });
  const size_t whole = group.Add("whole", [picture] { Copy(*picture); });
  const size_t into = group.Add(
      "data", [picture, ready] { Require(T_CopyBitmapData(&*ready, &*picture) == SUCCESS, "T_CopyBitmapData"); });
  const size_t even = group.Add("page", [page] { CopyPage(*page, 0); });
  const size_t odd = group.Add("page at 13", [page] { CopyPage(*page, kColumn); });
  const auto add = [&](const char* job, const std::string& who, size_t at, double bytes, Figure beside, Target target) {
    group.lines.push_back({job, who, {Scaled(at, 1e3), TimesMemcpy(at, yardstick, bytes, bytes, target), beside}});
  };
  const auto all = static_cast<double>(kPictureBytes);
  const auto small = static_cast<double>(page->RowBytes()) * page->Rows();
  const char* const kWhole = "48 MB, 24 bits";
  const char* const kPage = "4960 x 7016, 1 bit";
  const char* const kPart = "4960 x 7016, 1 bit, from column 13";
  const auto peers = [&](const char* job, Bitmap& bitmap, int32_t bits, int32_t column, double bytes) {
    const Pixels source = PixelsOf(bitmap, bits, 0);
    const Pixels expected = PixelsOf(bitmap, bits, column);
    for (const auto& peer : Peers()) {
      for (const PeerJob& copy : peer->Copy(source, column)) {
        copy.pass();
        const std::string who = peer->Name() + " " + copy.call;
        Require(MeanDifference(copy.result(), expected) == 0, who.c_str());
        const size_t at = group.Add("peer", copy.pass);
        add(job, who, at, bytes, bits == 24 ? Ratio(at, fresh) : Figure{}, {});
      }
    }
  };
  add(kWhole, "malloc, memcpy, free", fresh, all, Ratio(fresh, fresh), {});
  add(kWhole, "T_CopyBitmap", whole, all, Ratio(whole, fresh), AtMost(1.6));
  add(kWhole, "T_CopyBitmapData, ready", into, all, Ratio(into, fresh), {});
  peers(kWhole, *picture, 24, 0, all);
  add(kPage, "T_CopyBitmapRect", even, small, {}, {});
  peers(kPage, *page, 1, 0, small);
  add(kPart, "T_CopyBitmapRect", odd, small, {}, AtMost(2.0));
  peers(kPart, *page, 1, kColumn, small);
  return group;
}

}  // namespace bench
