// Super-compressed storage: what photographs and a page take, how fast their rows come back and go in.

#include <memory>
#include <random>

#include "Bitmaps.h"
#include "PageImage.h"
#include "Pictures.h"

namespace bench {
namespace {

constexpr int32_t kLargeSide = 4096;
constexpr size_t kRandomRows = 48;  // a pass

/// A bitmap and the rows that it holds.
struct Held {
  Held(int32_t width, int32_t height, int32_t bits, std::vector<uint8_t> itsRows)
      : bitmap(width, height, bits, TYPE_SUPERCOMPRESSED), rows(std::move(itsRows)), line(bitmap.RowBytes()) {
    Put();
    taken = static_cast<double>((&bitmap)->Size) / static_cast<double>(rows.size());
    for (uint32_t row = 0; row < bitmap.Rows(); ++row) {
      Get(row);
      Require(std::equal(line.begin(), line.end(), rows.begin() + static_cast<ptrdiff_t>(row * line.size())),
              "super-compressed rows");
    }
  }
  void Put() {
    for (uint32_t row = 0; row < bitmap.Rows(); ++row) {
      Require(T_PutBitmapRow(&bitmap, &rows[row * line.size()], row, line.size()) == static_cast<int64_t>(line.size()),
              "T_PutBitmapRow");
    }
    Require(T_CompactBitmap(&bitmap) == SUCCESS, "T_CompactBitmap");
  }
  void Get(uint32_t row) {
    Require(T_GetBitmapRow(&bitmap, line.data(), row, line.size()) == static_cast<int64_t>(line.size()),
            "T_GetBitmapRow");
  }
  void GetAll() {
    for (uint32_t row = 0; row < bitmap.Rows(); ++row) Get(row);
  }

  Bitmap bitmap;
  std::vector<uint8_t> rows;
  std::vector<uint8_t> line;
  double taken = 0;  // of the plain size
};

using HeldOnes = std::vector<std::shared_ptr<Held>>;

Figure Percent(double part, Target target = {}) {
  return {[part](const Round&) { return 100 * part; }, target};
}

/// A line of pictures that are walked one after the other.
void AddLine(Group& group, const std::string& job, const HeldOnes& ones, double mostPercent, double leastRate) {
  double bytes = 0;
  double taken = 0;
  for (const auto& one : ones) {
    bytes += static_cast<double>(one->rows.size());
    taken += one->taken / static_cast<double>(ones.size());
  }
  const size_t get = group.Add(job + ", get", [ones] {
    for (const auto& one : ones) one->GetAll();
  });
  const size_t put = group.Add(job + ", put", [ones] {
    for (const auto& one : ones) one->Put();
  });
  constexpr double kMega = 1e6;
  group.lines.push_back({job,
                         "T_GetBitmapRow, T_PutBitmapRow",
                         {Percent(taken, AtMost(mostPercent)),
                          Rate(get, bytes / kMega, AtLeast(leastRate)),
                          Rate(put, bytes / kMega),
                          {}}});
}

PageImage Page(const std::string& directory) {
  PageImage page = ReadPbm(directory + "/text-300.pbm");
  return page.width ? page : DrawText(2480, 3508, 300);
}

}  // namespace

Group SuperGroup(const std::string& directory) {
  std::string names;
  HeldOnes photographs;
  HeldOnes grays;
  for (const Pixels& photograph : Photographs(directory, &names)) {
    photographs.push_back(std::make_shared<Held>(photograph.width, photograph.height, 24, photograph.bytes));
    Pixels gray = Converted(photograph, kGray8);
    grays.push_back(std::make_shared<Held>(gray.width, gray.height, 8, std::move(gray.bytes)));
  }
  Group group{
      "super", "Super-compressed storage", {"% of plain", "get, MB/s", "put, MB/s", "a row anywhere, ms"}, {}, {}};
  constexpr double kAnySize = 100;
  AddLine(group, names + ", 24 bits", photographs, 52, 300);
  AddLine(group, "the same, 8 bits gray", grays, kAnySize, 300);
  PageImage page = Page(directory);
  AddLine(group, "page of 300 dpi, 1 bit",
          {std::make_shared<Held>(static_cast<int32_t>(page.width), static_cast<int32_t>(page.height), 1, page.bits)},
          12, 300);

  const Pixels mosaic = Mosaic(directory, kLargeSide, kLargeSide);
  const auto large = std::make_shared<Held>(kLargeSide, kLargeSide, 24, mosaic.bytes);
  std::vector<uint32_t> order(kRandomRows);
  std::mt19937 random(4);
  for (uint32_t& row : order) row = static_cast<uint32_t>(random() % kLargeSide);
  AddLine(group, "4096 x 4096, 24 bits", {large}, kAnySize, 300);
  const size_t anywhere = group.Add("rows anywhere", [large, order] {
    for (const uint32_t row : order) large->Get(row);
  });
  constexpr double kMilli = 1e3;
  group.lines.back().figures.back() = Scaled(anywhere, kMilli / kRandomRows, AtMost(0.7));
  return group;
}

}  // namespace bench
