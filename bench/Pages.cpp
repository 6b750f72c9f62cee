// One-bit pages: compressed and expanded, through buffers and through compressed storage, beside libtiff.

#include <cstdio>
#include <cstring>
#include <memory>

#include "Bitmaps.h"
#include "PageImage.h"
#include "TiffPeer.h"

namespace bench {
namespace {

constexpr uint32_t kWidth600 = 4960;
constexpr uint32_t kHeight600 = 7016;

PageImage MakePage(const std::string& name, const std::string& directory) {
  if (name == "noise") return DrawNoise(kWidth600, kHeight600);
  const uint32_t dotsPerInch = name == "text-300" ? 300 : 600;
  const uint32_t width = kWidth600 * dotsPerInch / 600;
  const uint32_t height = kHeight600 * dotsPerInch / 600;
  PageImage page = ReadPbm(directory + "/" + name + ".pbm");
  if (page.width == width && page.height == height) return page;
  std::printf("no page %s in %s: a drawn one is used\n", name.c_str(), directory.c_str());
  return DrawText(width, height, dotsPerInch);
}

/// A page in the forms that the jobs move it between.
struct PageJob {
  explicit PageJob(PageImage image)
      : page(std::move(image)),
        expanded(page.bits.size()),
        bitmap(static_cast<int32_t>(page.width), static_cast<int32_t>(page.height), 1, TYPE_COMPRESSED) {
    records.resize(page.height * (4 + 2 * (uint64_t{page.width} + 1)));
    Compress();
    for (const uint8_t* record = records.data(); rowsCounted < page.height; ++rowsCounted) {
      uint32_t words = 0;
      std::memcpy(&words, record, sizeof words);
      runs += words;
      record += 4 + 2 * uint64_t{words};
      recordBytes = static_cast<uint64_t>(record - records.data());
    }
    records.resize(recordBytes);
    Expand();
    Require(expanded == page.bits, "the page that T_CompressRows took");
    Put();
    std::fill(expanded.begin(), expanded.end(), uint8_t{0xFF});
    Get();
    Require(expanded == page.bits, "the page that compressed rows took");
  }

  void Compress() {
    Require(T_CompressRows(records.data(), page.bits.data(), page.width, page.height) == SUCCESS, "T_CompressRows");
  }
  void Expand() {
    Require(T_ExpandRows(records.data(), expanded.data(), page.width, page.height) == SUCCESS, "T_ExpandRows");
  }
  void Put() {
    const uint8_t* row = page.bits.data();
    for (uint32_t i = 0; i < page.height; ++i, row += page.stride)
      Require(T_PutBitmapRow(&bitmap, row, i, page.stride) == page.stride, "T_PutBitmapRow");
  }
  void Get() {
    uint8_t* row = expanded.data();
    for (uint32_t i = 0; i < page.height; ++i, row += page.stride)
      Require(T_GetBitmapRow(&bitmap, row, i, page.stride) == page.stride, "T_GetBitmapRow");
  }

  PageImage page;
  std::vector<uint8_t> expanded;
  Bitmap bitmap;
  std::vector<uint8_t> records;
  uint64_t recordBytes = 0;
  uint64_t runs = 0;
  uint32_t rowsCounted = 0;
};

}  // namespace

Group PageGroup(const std::string& name, const std::string& directory) {
  const auto job = std::make_shared<PageJob>(MakePage(name, directory));
  const PageImage& page = job->page;
  char size[96];
  std::snprintf(size, sizeof size, "%u x %u pixels, %.2f million runs", page.width, page.height,
                static_cast<double>(job->runs) / 1e6);
  Group group{"page-" + name, "One-bit page " + name + ", " + size, {"ms", "Gpixel/s", "ns a run", "x mc"}, {}, {}};
  const size_t yardstick = AddMemcpy(group);
  const auto packed = static_cast<double>(page.bits.size());
  const auto words = 2 * static_cast<double>(job->runs);
  const double pixels = page.Pixels() / 1e9;
  const double eachRun = 1e9 / static_cast<double>(job->runs);

  Target fast, closeWhenCompressing, closeWhenExpanding;
  if (name == "text-600") {
    fast = AtLeast(8);
    closeWhenCompressing = AtMost(8.5);
    closeWhenExpanding = AtMost(8);
  } else if (name == "text-300") {
    fast = AtLeast(4);
  }
  const auto addLine = [&](const char* what, const char* who, size_t at, double read, double written, bool ours) {
    const Target close = what[0] == 'c' ? closeWhenCompressing : closeWhenExpanding;
    group.lines.push_back({what,
                           who,
                           {Scaled(at, 1e3), Rate(at, pixels, ours ? fast : Target{}), Scaled(at, eachRun),
                            TimesMemcpy(at, yardstick, read, written, ours ? close : Target{})}});
  };
  const auto records = static_cast<double>(job->recordBytes);
  addLine("compress", "T_CompressRows", group.Add("compress", [job] { job->Compress(); }), packed, records, true);
  addLine("compress", "T_PutBitmapRow, compressed", group.Add("put", [job] { job->Put(); }), packed, words, true);
  addLine("expand", "T_ExpandRows", group.Add("expand", [job] { job->Expand(); }), records, packed, true);
  addLine("expand", "T_GetBitmapRow, compressed", group.Add("get", [job] { job->Get(); }), words, packed, true);
  for (const TiffScheme scheme : {TiffScheme::kPackBits, TiffScheme::kGroup4}) {
    const char* const who = scheme == TiffScheme::kPackBits ? "libtiff PackBits" : "libtiff G4";
    const auto tiff = std::make_shared<TiffPeer>(page, scheme);
    const auto bytes = static_cast<double>(tiff->PackedBytes());
    const auto file = static_cast<double>(tiff->FileBytes());
    addLine("compress", who, group.Add("tiff in", [tiff] { tiff->Compress(); }), bytes, file, false);
    addLine("expand", who, group.Add("tiff out", [tiff] { tiff->Expand(); }), file, bytes, false);
  }
  return group;
}

}  // namespace bench
