// Fewer colours: line by line, by whole bitmaps, and what goes into making palettes.

#include <benchmark/benchmark.h>

#include <cstring>
#include <memory>

#include "Bitmaps.h"
#include "Peers.h"

namespace bench {
namespace {

constexpr int32_t kSide = 4096;
constexpr int kRounds = 7;
constexpr int32_t kBlurred = 8;  // pixels a side: what dithering is meant to keep

enum class Colours { kBlackWhite, kFixed16, kWeb216, kOwn256 };

struct Job {
  const char* key;
  const char* job;
  Colours colours;
  int32_t method;
  double line;  // Mpixel/s at least
  double whole;
};

constexpr Job kJobs[] = {
    {"fs-1", "Floyd-Steinberg, gray -> 1", Colours::kBlackWhite, DITHER_FLOYD_STEINBERG, 200, 400},
    {"fs-16", "Floyd-Steinberg, 24 -> 16 fixed", Colours::kFixed16, DITHER_FLOYD_STEINBERG, 150, 270},
    {"fs-web", "Floyd-Steinberg, 24 -> 216 web", Colours::kWeb216, DITHER_FLOYD_STEINBERG, 150, 270},
    {"fs-256", "Floyd-Steinberg, 24 -> own 256", Colours::kOwn256, DITHER_FLOYD_STEINBERG, 80, 300},
    {"stucki-web", "Stucki, 24 -> 216 web", Colours::kWeb216, DITHER_STUCKI, 90, 162},
    {"stevenson-web", "Stevenson-Arce, 24 -> 216 web", Colours::kWeb216, DITHER_STEVENSON_ARCE, 90, 162},
    {"ordered-1", "ordered, gray -> 1", Colours::kBlackWhite, DITHER_ORDERED, 1500, 1500},
    {"ordered-web", "ordered, 24 -> 216 web", Colours::kWeb216, DITHER_ORDERED, 800, 800},
    {"ordered-256", "ordered, 24 -> own 256", Colours::kOwn256, DITHER_ORDERED, 500, 500},
    {"none-256", "none, 24 -> own 256", Colours::kOwn256, DITHER_NONE, 700, 700},
};

struct Picture {
  explicit Picture(Pixels its) : pixels(std::move(its)), bitmap(kSide, kSide, pixels.format.bits, TYPE_NOTILED) {
    if (pixels.format == kGray8) Require(T_CreateBitmapGrayPalette(&bitmap) == SUCCESS, "T_CreateBitmapGrayPalette");
    for (int32_t row = 0; row < kSide; ++row)
      Require(T_PutBitmapRow(&bitmap, pixels.Row(row), static_cast<uint32_t>(row), pixels.rowBytes) == pixels.rowBytes,
              "T_PutBitmapRow");
  }
  Pixels pixels;
  Bitmap bitmap;
};

/// The library's own palette of so many colours for a picture.
Palette Optimized(Picture& picture, uint32_t count) {
  T_BitmapList* list = nullptr;
  Require(T_CreateBitmapList(&list) == SUCCESS, "T_CreateBitmapList");
  Require(T_InsertBitmapListItem(list, 0, &picture.bitmap) == SUCCESS, "T_InsertBitmapListItem");
  Palette palette(count);
  uint32_t* table = nullptr;
  uint32_t optimized = 0;
  Require(T_CreateBitmapListOptPal(list, palette.data(), &count, &table, &optimized) == SUCCESS,
          "T_CreateBitmapListOptPal");
  T_FreeUserMatchTable(table);
  BitmapHandle taken{};
  Require(T_RemoveBitmapListItem(list, 0, &taken) == SUCCESS, "T_RemoveBitmapListItem");
  T_DestroyBitmapList(list);
  palette.resize(count);
  return palette;
}

/// One way to the target's bits and colours.
struct Target {
  Target(Colours colours, Picture& picture) {
    switch (colours) {
      case Colours::kBlackWhite:
      case Colours::kFixed16:
        bits = colours == Colours::kFixed16 ? 4 : 1;
        flags = T_RES_FIXED;
        palette.resize(size_t{1} << bits);
        Require(T_GetFixedPalette(palette.data(), static_cast<uint32_t>(bits)) == SUCCESS, "T_GetFixedPalette");
        break;
      case Colours::kWeb216:
        flags = T_RES_WEB;
        palette.assign(T_IntGetNetscapePalette(), T_IntGetNetscapePalette() + 216);
        break;
      case Colours::kOwn256:
        flags = T_RES_PALETTE;
        palette = Optimized(picture, 256);
        break;
    }
  }
  int32_t bits = 8;
  uint32_t flags = 0;
  Palette palette;
};

/// A reduction of a picture, by lines into plain memory or into a new bitmap.
class Ours {
 public:
  Ours(std::shared_ptr<Picture> picture, const Target& target, int32_t method)
      : picture_(std::move(picture)),
        target_(target),
        method_(method),
        result_({target.bits, T_ORDER_BGR}, kSide, kSide) {
    result_.palette = target.palette;
    result_.palette.resize(size_t{1} << target.bits);
    const Pixels& pixels = picture_->pixels;
    Require(T_InitBitmap(&lines_, sizeof lines_, kSide, kSide, pixels.format.bits) == SUCCESS, "T_InitBitmap");
    lines_.Palette = (&picture_->bitmap)->Palette;
    lines_.DitheringMethod = method;
  }
  void Lines() {
    const auto count = static_cast<uint32_t>(target_.palette.size());
    Require(T_StartDitheringExt(&lines_, target_.palette.data(), count, static_cast<uint32_t>(target_.bits), nullptr) ==
                SUCCESS,
            "T_StartDitheringExt");
    for (int32_t row = 0; row < kSide; ++row)
      Require(T_DitherLine(&lines_, picture_->pixels.Row(row), result_.Row(row)) == SUCCESS, "T_DitherLine");
    T_StopDithering(&lines_);
  }
  void Whole() { Resolve(false); }
  /// Of the whole bitmap.
  Pixels Result() {
    Resolve(true);
    return result_;
  }
  [[nodiscard]] Pixels LinesResult() const { return result_; }

 private:
  void Resolve(bool keep) {
    BitmapHandle made{};
    Require(T_ColorResBitmap(&picture_->bitmap, &made, sizeof made, target_.bits, target_.flags | T_RES_DITHER(method_),
                             target_.palette.data(), nullptr, static_cast<uint32_t>(target_.palette.size()), nullptr,
                             nullptr) == SUCCESS,
            "T_ColorResBitmap");
    for (int32_t row = 0; keep && row < kSide; ++row)
      T_GetBitmapRow(&made, result_.Row(row), static_cast<uint32_t>(row), result_.rowBytes);
    T_FreeBitmap(&made);
  }
  std::shared_ptr<Picture> picture_;
  Target target_;
  int32_t method_;
  Pixels result_;
  BitmapHandle lines_{};
};

Figure Constant(double value) {
  return {[value](const Round&) { return value; }, {}};
}

Group ReduceGroup(const Job& job, const std::string& directory) {
  std::string origin;
  Pixels mosaic = Mosaic(directory, kSide, kSide, &origin);
  const bool gray = job.colours == Colours::kBlackWhite;
  const auto picture = std::make_shared<Picture>(gray ? Converted(mosaic, kGray8) : std::move(mosaic));
  Group group{std::string("reduce-") + job.key,
              "Fewer colours, 4096 x 4096 pixels, at most 7 rounds: " + origin,
              {"ms", "Mpixel/s", "PSNR, dB", "of means of 8 x 8, dB"},
              {},
              {}};
  group.mostRounds = kRounds;
  const Pixels& source = picture->pixels;
  const auto add = [&](const std::string& who, const std::function<void()>& pass, const Pixels& result, double fewest) {
    const size_t at = group.Add("reduce", pass);
    group.lines.push_back(
        {job.job,
         who,
         {Scaled(at, 1e3), Rate(at, source.Count() / 1e6, fewest > 0 ? AtLeast(fewest) : bench::Target{}),
          Constant(PeakSignalToNoise(source, result, 1)), Constant(PeakSignalToNoise(source, result, kBlurred))}});
  };
  const Target target(job.colours, *picture);
  const auto ours = std::make_shared<Ours>(picture, target, job.method);
  const Pixels whole = ours->Result();
  ours->Lines();
  Require(ours->LinesResult().bytes == whole.bytes, "lines and whole bitmaps give the same pixels");
  add(
      "T_DitherLine", [=] { ours->Lines(); }, whole, job.line);
  add(
      "T_ColorResBitmap", [=] { ours->Whole(); }, whole, job.whole);
  if (job.method != DITHER_NONE && job.method != DITHER_FLOYD_STEINBERG && job.method != DITHER_ORDERED) return group;
  using Way = Reduction::Way;
  const Way way = job.method == DITHER_NONE      ? Way::kNearest
                  : job.method == DITHER_ORDERED ? Way::kOrdered
                                                 : Way::kFloydSteinberg;
  for (const auto& peer : Peers()) {
    for (const PeerJob& their : peer->Reduce(source, {way, target.palette})) {
      their.pass();
      add(peer->Name() + " " + their.call, their.pass, their.result(), 0);
    }
  }
  return group;
}

/// Palettes from pictures, and what is needed for them.
Group PaletteGroup(const std::string& directory) {
  std::string origin;
  const auto picture = std::make_shared<Picture>(Mosaic(directory, kSide, kSide, &origin));
  const Pixels& source = picture->pixels;
  Group group{"reduce-palette",
              "Colours of 4096 x 4096 pixels, at most 7 rounds: " + origin,
              {"ms", "Mpixel/s", "PSNR, dB"},
              {},
              {}};
  group.mostRounds = kRounds;
  const auto add = [&](const char* job, const std::string& who, const std::function<void()>& pass, double most,
                       Figure rate, Figure quality) {
    const size_t at = group.Add("colours", pass);
    if (!rate.value) rate = Rate(at, source.Count() / 1e6);
    group.lines.push_back({job, who, {Scaled(at, 1e3, most > 0 ? AtMost(most) : bench::Target{}), rate, quality}});
  };
  add("256 colours chosen", "T_CreateBitmapListOptPal", [=] { Optimized(*picture, 256); }, 35, {}, {});

  const auto resolve = [picture](Pixels* result) {
    BitmapHandle made{};
    Require(T_ColorResBitmap(&picture->bitmap, &made, sizeof made, 8, T_RES_OPTIMIZED, nullptr, nullptr, 256, nullptr,
                             nullptr) == SUCCESS,
            "T_ColorResBitmap");
    if (result) {
      *result = Pixels(kPalette8, kSide, kSide);
      result->palette.assign(made.Palette, made.Palette + 256);
      for (int32_t row = 0; row < kSide; ++row)
        T_GetBitmapRow(&made, result->Row(row), static_cast<uint32_t>(row), result->rowBytes);
    }
    T_FreeBitmap(&made);
  };
  Pixels mapped;
  resolve(&mapped);
  const char* const both = "256 colours chosen and mapped";
  add(
      both, "T_ColorResBitmap", [=] { resolve(nullptr); }, 60, {}, Constant(PeakSignalToNoise(source, mapped, 1)));
  const auto peers = Peers();
  for (const auto& peer : peers) {
    for (const PeerJob& their : peer->Reduce(source, {Reduction::Way::kChosen, {}})) {
      their.pass();
      const double quality = PeakSignalToNoise(source, their.result(), 1);
      add(both, peer->Name() + " " + their.call, their.pass, 0, {}, Constant(quality));
    }
  }
  const auto count = [picture] {
    uint32_t colours = 0;
    Require(T_GetBitmapColorCountExt(&picture->bitmap, &colours, nullptr) == SUCCESS && colours > 1,
            "T_GetBitmapColorCountExt");
  };
  const char* const distinct = "distinct colours";
  add(distinct, "T_GetBitmapColorCountExt", count, 30, {}, {});
  for (const auto& peer : peers) {
    const PeerJob counting = peer->CountColours(source);
    if (counting.pass) add(distinct, peer->Name() + " " + counting.call, counting.pass, 0, {}, {});
  }
  const Palette palette = Optimized(*picture, 256);
  const auto table = [palette] {
    uint32_t* const made = T_CreateUserMatchTable(palette.data(), static_cast<uint32_t>(palette.size()));
    Require(made != nullptr, "T_CreateUserMatchTable");
    T_FreeUserMatchTable(made);
  };
  const size_t at = group.Add("table", table);
  group.lines.push_back(
      {"match table, 32768 keys, 256 entries", "T_CreateUserMatchTable", {Scaled(at, 1e3, AtMost(2)), {}, {}}});
  return group;
}

}  // namespace

std::vector<GroupMaker> ReduceGroups(const std::string& directory) {
  std::vector<GroupMaker> makers;
  for (const Job& job : kJobs)
    makers.push_back({std::string("reduce-") + job.key, [&job, directory] { return ReduceGroup(job, directory); }});
  makers.push_back({"reduce-palette", [directory] { return PaletteGroup(directory); }});
  return makers;
}

}  // namespace bench
