// Pictures turned: upside down, mirrored, by half and quarter turns and by any angle, and slanted.

#include <benchmark/benchmark.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#include "Bitmaps.h"
#include "PageImage.h"
#include "Peers.h"

namespace bench {
namespace {

using Way = TurnTask::Way;

constexpr int32_t kSide = 4096;
constexpr int32_t kPageWidth = 4960;
constexpr int32_t kPageHeight = 7016;
constexpr int32_t kAngle = 1730;      // hundredths of a degree
constexpr int32_t kShearAngle = 200;  // the same
constexpr double kMostOfReady = 1.6;

struct Job {
  const char* key;
  const char* name;
  Way way;
  Format format;
  double most;  // x mc, in place or to memory that is there; 0: no target
};

constexpr Job kJobs[] = {
    {"flip-8", "upside down, 8", Way::kFlip, kGray8, 0.45},
    {"flip-24", "upside down, 24", Way::kFlip, kBgr24, 0.45},
    {"flip-32", "upside down, 32", Way::kFlip, kBgr32, 0.45},
    {"flip-1", "upside down, 1", Way::kFlip, kBits1, 0.45},
    {"mirror-8", "mirrored, 8", Way::kMirror, kGray8, 0.8},
    {"mirror-24", "mirrored, 24", Way::kMirror, kBgr24, 0.8},
    {"mirror-32", "mirrored, 32", Way::kMirror, kBgr32, 0.8},
    {"mirror-1", "mirrored, 1", Way::kMirror, kBits1, 0.8},
    {"half-8", "half turn, 8", Way::kHalf, kGray8, 1.1},
    {"half-24", "half turn, 24", Way::kHalf, kBgr24, 1.1},
    {"half-32", "half turn, 32", Way::kHalf, kBgr32, 1.1},
    {"half-1", "half turn, 1", Way::kHalf, kBits1, 1.1},
    {"quarter-8", "quarter turn, 8", Way::kQuarter, kGray8, 2.0},
    {"quarter-24", "quarter turn, 24", Way::kQuarter, kBgr24, 2.7},
    {"quarter-32", "quarter turn, 32", Way::kQuarter, kBgr32, 2.2},
    {"quarter-48", "quarter turn, 48", Way::kQuarter, kBgr48, 0},
    {"quarter-64", "quarter turn, 64", Way::kQuarter, kBgr64, 0},
    {"quarter-1", "quarter turn, 1", Way::kQuarter, kBits1, 12},
    {"nearest-8", "17.3 degrees, nearest, 8", Way::kNearest, kGray8, 5.5},
    {"nearest-24", "17.3 degrees, nearest, 24", Way::kNearest, kBgr24, 3.4},
    {"nearest-32", "17.3 degrees, nearest, 32", Way::kNearest, kBgr32, 0},
    {"nearest-1", "17.3 degrees, nearest, 1", Way::kNearest, kBits1, 0},
    {"correct-8", "17.3 degrees, corrected, 8", Way::kCorrected, kGray8, 0},
    {"correct-24", "17.3 degrees, corrected, 24", Way::kCorrected, kBgr24, 0},
    {"bilinear-8", "17.3 degrees, bilinear, 8", Way::kBilinear, kGray8, 12},
    {"bilinear-24", "17.3 degrees, bilinear, 24", Way::kBilinear, kBgr24, 7},
    {"bilinear-48", "17.3 degrees, bilinear, 48", Way::kBilinear, kBgr48, 0},
    {"shear-1", "slanted by 2 degrees, 1", Way::kShear, kBits1, 3.5},
};

constexpr bool InPlace(Way way) { return way == Way::kFlip || way == Way::kMirror || way == Way::kHalf; }

int32_t Turn(BitmapHandle& bitmap, Way way) {
  switch (way) {
    case Way::kFlip:
      return T_FlipBitmap(&bitmap);
    case Way::kMirror:
      return T_ReverseBitmap(&bitmap);
    case Way::kHalf:
      return T_RotateBitmap(&bitmap, 18000, 0, 0);
    case Way::kQuarter:
      return T_RotateBitmap(&bitmap, 9000, ROTATE_RESIZE, 0);
    case Way::kNearest:
      return T_RotateBitmap(&bitmap, kAngle, ROTATE_RESIZE, 0);
    case Way::kCorrected:
      return T_RotateBitmap(&bitmap, kAngle, ROTATE_RESIZE | ROTATE_CORRECT, 0);
    case Way::kBilinear:
      return T_RotateBitmap(&bitmap, kAngle, ROTATE_RESIZE | ROTATE_BILINEAR, 0);
    default:
      return T_ShearBitmap(&bitmap, kShearAngle, 1, 0);
  }
}

/// A bitmap whose pixels are the caller's: what replaces them leaves them there for the next pass.
class Lent {
 public:
  explicit Lent(Pixels& pixels) {
    Require(T_InitBitmap(&record_, sizeof record_, pixels.width, pixels.height, pixels.format.bits) == SUCCESS,
            "T_InitBitmap");
    Require(T_AllocateBitmap(&record_, TYPE_USER) == SUCCESS, "T_AllocateBitmap");
    record_.Order = pixels.format.order;
    record_.ViewPerspective = 1;
    record_.Data = pixels.bytes.data();
  }
  ~Lent() { T_FreeBitmap(&record_); }
  Lent(const Lent&) = delete;
  Lent& operator=(const Lent&) = delete;
  BitmapHandle& Record() { return record_; }

 private:
  BitmapHandle record_{};
};

Pixels PixelsOf(BitmapHandle& bitmap, Format format) {
  Pixels pixels(format, bitmap.Width, bitmap.Height);
  for (int32_t row = 0; row < pixels.height; ++row)
    Require(T_GetBitmapRow(&bitmap, pixels.Row(row), static_cast<uint32_t>(row), pixels.rowBytes) == pixels.rowBytes,
            "T_GetBitmapRow");
  return pixels;
}

void Run(Pixels& pixels, Way way) {
  Lent lent(pixels);
  Require(Turn(lent.Record(), way) == SUCCESS, "a turn");
}

Pixels Turned(Pixels& pixels, Way way) {
  Lent lent(pixels);
  Require(Turn(lent.Record(), way) == SUCCESS, "a turn");
  return PixelsOf(lent.Record(), pixels.format);
}

/// Memory of a result: made, touched once a page, freed.
void TouchNew(const Pixels& like) {
  constexpr uint64_t kPage = 4096;
  BitmapHandle made{};
  Require(T_InitBitmap(&made, sizeof made, like.width, like.height, like.format.bits) == SUCCESS, "T_InitBitmap");
  Require(T_AllocateBitmap(&made, TYPE_NOTILED) == SUCCESS, "T_AllocateBitmap");
  const uint64_t bytes = uint64_t{made.BytesPerLine} * static_cast<uint32_t>(made.Height);
  for (uint64_t at = 0; at < bytes; at += kPage) made.Data[at] = 1;
  benchmark::ClobberMemory();
  T_FreeBitmap(&made);
}

Pixels Page() {
  const PageImage page = DrawText(kPageWidth, kPageHeight, 600);
  Pixels pixels(kBits1, kPageWidth, kPageHeight);
  for (int32_t row = 0; row < kPageHeight; ++row)
    std::memcpy(pixels.Row(row), page.bits.data() + static_cast<uint64_t>(row) * page.stride,
                std::min<uint64_t>(page.stride, pixels.rowBytes));
  return pixels;
}

/// Ends the program when a peer does something else: pixels that only move must be the same, sampled ones near.
void Check(const PeerJob& peer, const Pixels& expected, Way way, const std::string& what) {
  constexpr double kNear = 8;  // levels; the centres of some lie half a pixel beside ours
  if (!peer.result) return;
  peer.pass();
  const Pixels result = peer.result();
  const bool moved = InPlace(way) || way == Way::kQuarter;
  if (!moved && (result.width != expected.width || result.height != expected.height)) return;
  const double difference = MeanDifference(result, expected);
  Require(difference <= (moved ? 0 : kNear), (what + ", mean difference " + std::to_string(difference)).c_str());
}

Group TurnGroup(const Job& job, const std::string& directory) {
  const bool page = job.format == kBits1;
  std::string origin = "a page";
  const auto own =
      std::make_shared<Pixels>(page ? Page() : Converted(Mosaic(directory, kSide, kSide, &origin), job.format));
  const Pixels before = *own;
  Group group{std::string("turn-") + job.key,
              "Turns, 4096 x 4096 pixels, pages of 4960 x 7016",
              {"ms", "Mpixel/s", "x mc", "memory ready, x mc", "new memory / ready"},
              {},
              {}};
  const size_t yardstick = AddMemcpy(group);

  const auto expected = std::make_shared<Pixels>(Turned(*own, job.way));
  const double read = static_cast<double>(before.bytes.size());
  const double written = static_cast<double>(expected->bytes.size());
  const double pixels = expected->Count() / 1e6;
  const Target most = job.most > 0 ? AtMost(job.most) : Target{};
  const auto add = [&](const std::string& who, size_t at, Target target) -> Line& {
    group.lines.push_back(
        {job.name,
         who,
         {Scaled(at, 1e3), Rate(at, pixels), TimesMemcpy(at, yardstick, read, written, target), {}, {}}});
    return group.lines.back();
  };
  const size_t at = group.Add("ours", [=, &job] { Run(*own, job.way); });
  if (InPlace(job.way)) {
    add("in place", at, most);
  } else {
    const size_t memory = group.Add("memory", [=] { TouchNew(*expected); });
    Line& line = add("new bitmap", at, {});
    const double share = (read + written) / 2 / static_cast<double>(kPictureBytes);
    line.figures[3] = {[=](const Round& round) { return (round[at] - round[memory]) / (round[yardstick] * share); },
                       most};
    line.figures[4] = {[=](const Round& round) { return round[at] / (round[at] - round[memory]); },
                       AtMost(kMostOfReady)};
  }
  if (job.way == Way::kQuarter) {
    const auto ready = std::make_shared<Pixels>(*expected);
    add("T_RotateBuffer90, memory ready",
        group.Add("buffer",
                  [=] {
                    const Pixels& from = *own;
                    Require(T_RotateBuffer90(ready->bytes.data(), ready->rowBytes, from.bytes.data(), from.rowBytes,
                                             from.width, from.height, from.format.bits, 1) == SUCCESS,
                            "T_RotateBuffer90");
                  }),
        most);
  }
  const TurnTask task{job.way, (job.way == Way::kShear ? kShearAngle : kAngle) / 100.0, expected->width,
                      expected->height};
  for (const auto& peer : Peers()) {
    for (const PeerJob& way : peer->Turn(before, task)) {
      const std::string who = peer->Name() + " " + way.call;
      Check(way, *expected, job.way, who);
      add(who, group.Add("peer", way.pass), {});
    }
  }
  return group;
}

}  // namespace

std::vector<GroupMaker> TurnGroups(const std::string& directory) {
  std::vector<GroupMaker> makers;
  for (const Job& job : kJobs)
    makers.push_back({std::string("turn-") + job.key, [&job, directory] { return TurnGroup(job, directory); }});
  return makers;
}

}  // namespace bench
