// Bitmaps in another size: into a bitmap that is ready, and in place, where the result takes new storage.

#include <cstring>
#include <memory>

#include "Bitmaps.h"
#include "PageImage.h"
#include "Peers.h"

namespace bench {
namespace {

using Way = Scaling::Way;

constexpr int32_t kSide = 4096;
constexpr int32_t kHalf = kSide / 2;
constexpr int32_t kSmaller = kSide * 37 / 100;
constexpr int32_t kPageWidth = 4960;
constexpr int32_t kPageHeight = 7016;
constexpr double kFresh = 1.6;

struct Job {
  const char* key;
  const char* job;
  Format format;
  Way way;
  int32_t from;  // a side; pages have their own size
  int32_t to;    // a side, or hundredths of a page's; below 0: one of so many parts of a page
  double most;   // x mc; 0: no target
};

constexpr Job kJobs[] = {
    {"nearest-2x-8", "nearest 2 x, 8 bits", kGray8, Way::kNearest, kHalf, kSide, 1.5},
    {"nearest-2x-24", "nearest 2 x, 24 bits", kBgr24, Way::kNearest, kHalf, kSide, 1.5},
    {"nearest-2x-32", "nearest 2 x, 32 bits", kBgr32, Way::kNearest, kHalf, kSide, 1.5},
    {"nearest-2x-1", "nearest 2 x, 1 bit", kBits1, Way::kNearest, 0, 200, 2},
    {"nearest-037-8", "nearest 0.37 x, 8 bits", kGray8, Way::kNearest, kSide, kSmaller, 1.5},
    {"nearest-037-24", "nearest 0.37 x, 24 bits", kBgr24, Way::kNearest, kSide, kSmaller, 2},
    {"nearest-037-32", "nearest 0.37 x, 32 bits", kBgr32, Way::kNearest, kSide, kSmaller, 2},
    {"nearest-037-1", "nearest 0.37 x, 1 bit", kBits1, Way::kNearest, 0, 37, 5},
    {"box-037-8", "box 0.37 x, 8 bits", kGray8, Way::kBox, kSide, kSmaller, 2.5},
    {"box-037-24", "box 0.37 x, 24 bits", kBgr24, Way::kBox, kSide, kSmaller, 2.5},
    {"box-037-16", "box 0.37 x, 16-bit gray", kGray16, Way::kBox, kSide, kSmaller, 1.5},
    {"box-2-8", "box 1/2, 8 bits", kGray8, Way::kBox, kSide, kSide / 2, 1.0},
    {"box-2-24", "box 1/2, 24 bits", kBgr24, Way::kBox, kSide, kSide / 2, 0},
    {"box-8-8", "box 1/8, 8 bits", kGray8, Way::kBox, kSide, kSide / 8, 1.0},
    {"box-8-24", "box 1/8, 24 bits", kBgr24, Way::kBox, kSide, kSide / 8, 0},
    {"linear-2x-8", "linear 2 x, 8 bits", kGray8, Way::kLinear, kHalf, kSide, 1.5},
    {"linear-2x-24", "linear 2 x, 24 bits", kBgr24, Way::kLinear, kHalf, kSide, 3.0},
    {"linear-17x-8", "linear 1.7 x, 8 bits", kGray8, Way::kLinear, kHalf, kHalf * 17 / 10, 0},
    {"spline-2x-8", "spline 2 x, 8 bits", kGray8, Way::kCubic, kHalf, kSide, 8},
    {"spline-2x-24", "spline 2 x, 24 bits", kBgr24, Way::kCubic, kHalf, kSide, 8},
    {"ink-2", "ink count 1/2, page", kBits1, Way::kInk, 0, -2, 2.5},
    {"ink-3", "ink count 1/3, page", kBits1, Way::kInk, 0, -3, 5},
    {"ink-4", "ink count 1/4, page", kBits1, Way::kInk, 0, -4, 2.5},
};

int32_t Extent(int32_t extent, int32_t to) { return to < 0 ? extent / -to : extent * to / 100; }

Pixels Page(const std::string& directory) {
  PageImage page = ReadPbm(directory + "/text-600.pbm");
  if (page.width != kPageWidth || page.height != kPageHeight) page = DrawText(kPageWidth, kPageHeight, 600);
  Pixels pixels(kBits1, kPageWidth, kPageHeight);
  pixels.palette = {{255, 255, 255, 0}, {0, 0, 0, 0}};
  std::memcpy(pixels.bytes.data(), page.bits.data(), pixels.bytes.size());
  return pixels;
}

uint32_t FlagsOf(Way way) {
  if (way == Way::kNearest) return RESIZE_NEAREST;
  if (way == Way::kInk) return RESIZE_INK_COUNT;
  return way == Way::kCubic ? RESIZE_SMOOTH : RESIZE_AREA;
}

void Furnish(BitmapHandle& bitmap, const Pixels& pixels) {
  if (pixels.format.bits > 8) bitmap.Order = pixels.format.order;
  if (pixels.format == kGray8) Require(T_CreateBitmapGrayPalette(&bitmap) == SUCCESS, "T_CreateBitmapGrayPalette");
  if (pixels.format != kBits1) return;
  const T_LogicalPalette palette = T_CreatePalette(pixels.palette.data(), 2);
  Require(T_SetBitmapPalette(&bitmap, palette) == SUCCESS, "T_SetBitmapPalette");
  T_DeletePalette(palette);
}

/// A bitmap of pixels that stay where they are.
BitmapHandle Borrowed(Pixels& pixels) {
  BitmapHandle bitmap{};
  Require(T_InitBitmap(&bitmap, sizeof bitmap, pixels.width, pixels.height, pixels.format.bits) == SUCCESS,
          "T_InitBitmap");
  Require(T_AllocateBitmap(&bitmap, TYPE_USER) == SUCCESS, "T_AllocateBitmap");
  Require(T_SetBitmapDataPointer(&bitmap, pixels.bytes.data(), pixels.bytes.size()) == SUCCESS,
          "T_SetBitmapDataPointer");
  Furnish(bitmap, pixels);
  return bitmap;
}

/// A picture in the caller's memory, so that only the result takes storage, and a bitmap for the result.
class Ours {
 public:
  Ours(const Pixels& source, const Scaling& scaling)
      : source_(source),
        scaling_(scaling),
        picture_(Borrowed(source_)),
        ready_(scaling.width, scaling.height, source.format.bits, TYPE_NOTILED) {
    Furnish(*&ready_, source);
  }
  ~Ours() { T_FreeBitmap(&picture_); }
  Ours(const Ours&) = delete;
  Ours& operator=(const Ours&) = delete;

  void Ready() { Require(T_ResizeBitmap(&picture_, &ready_, FlagsOf(scaling_.way)) == SUCCESS, "T_ResizeBitmap"); }
  void InPlace() {
    BitmapHandle bitmap = Borrowed(source_);
    Require(T_SizeBitmap(&bitmap, scaling_.width, scaling_.height, FlagsOf(scaling_.way)) == SUCCESS, "T_SizeBitmap");
    T_FreeBitmap(&bitmap);
  }
  Pixels Result() {
    Pixels pixels(source_.format, scaling_.width, scaling_.height);
    pixels.palette = source_.palette;
    for (int32_t row = 0; row < pixels.height; ++row)
      Require(T_GetBitmapRow(&ready_, pixels.Row(row), static_cast<uint32_t>(row), pixels.rowBytes) == pixels.rowBytes,
              "T_GetBitmapRow");
    return pixels;
  }

 private:
  Pixels source_;
  Scaling scaling_;
  BitmapHandle picture_;
  Bitmap ready_;
};

/// Ends the program when a peer does something else than the job. Other rounding, and a picture that lies some part of
/// a pixel elsewhere, are allowed.
void Check(const PeerJob& job, const Pixels& expected, const std::string& who) {
  constexpr double kNear = 12;  // levels
  if (!job.result) return;
  job.pass();
  const Pixels result = job.result();
  const double difference = MeanDifference(result, expected);
  Require(difference < kNear, (who + ", mean difference " + std::to_string(difference)).c_str());
}

Group JobGroup(const Job& job, const std::string& directory) {
  const bool page = job.format == kBits1;
  std::string origin;
  const Pixels source = page                   ? Page(directory)
                        : job.format == kBgr24 ? Mosaic(directory, job.from, job.from, &origin)
                                               : Converted(Mosaic(directory, job.from, job.from, &origin), job.format);
  const Scaling scaling = {job.way, page ? Extent(kPageWidth, job.to) : job.to,
                           page ? Extent(kPageHeight, job.to) : job.to};
  Group group{std::string("resize-") + job.key,
              page ? "Resizing a page of 4960 x 7016 pixels" : "Resizing pictures of 2048 or 4096 pixels a side",
              {"ms", "x mc", "in place : ready"},
              {},
              {}};
  const size_t yardstick = AddMemcpy(group);
  const double read = static_cast<double>(source.bytes.size());
  const double written = static_cast<double>(Pixels(job.format, scaling.width, scaling.height).bytes.size());
  const auto ours = std::make_shared<Ours>(source, scaling);
  ours->Ready();
  const Pixels expected = ours->Result();
  const size_t ready = group.Add("ready", [=] { ours->Ready(); });
  const size_t inPlace = group.Add("in place", [=] { ours->InPlace(); });
  const auto times = [&](size_t at, Target target) { return TimesMemcpy(at, yardstick, read, written, target); };
  const Target most = job.most > 0 ? AtMost(job.most) : Target{};
  group.lines.push_back({job.job, "T_ResizeBitmap, ready", {Scaled(ready, 1e3), times(ready, most), {}}});
  group.lines.push_back({job.job,
                         "T_SizeBitmap, in place",
                         {Scaled(inPlace, 1e3), times(inPlace, {}), Ratio(inPlace, ready, AtMost(kFresh))}});
  for (const auto& peer : Peers()) {
    for (const PeerJob& resize : peer->Resize(source, scaling)) {
      const std::string who = peer->Name() + " " + resize.call;
      Check(resize, expected, who);
      const size_t at = group.Add("peer", resize.pass);
      group.lines.push_back({job.job, who, {Scaled(at, 1e3), times(at, {}), {}}});
    }
  }
  return group;
}

}  // namespace

std::vector<GroupMaker> ResizeGroups(const std::string& directory) {
  std::vector<GroupMaker> makers;
  for (const bool page : {false, true}) {
    for (const Job& job : kJobs) {
      if ((job.format == kBits1) == page)
        makers.push_back({std::string("resize-") + job.key, [&job, directory] { return JobGroup(job, directory); }});
    }
  }
  return makers;
}

}  // namespace bench
