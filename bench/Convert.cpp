// Conversion of pixels, picture by picture from memory and a line again and again in the cache.

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cstring>
#include <memory>

#include "Bench.h"
#include "Peers.h"

namespace bench {
namespace {

constexpr int32_t kSide = 4096;

struct Pair {
  const char* key;
  const char* job;
  Format from, to;
  double most;    // x mc; 0: no target
  double fewest;  // Gpixel/s of a line in the cache
  bool inPlace = false;
  double fewestFromMemory = 0;  // Gpixel/s
};

constexpr Pair kPairs[] = {
    {"24-gray8", "24 -> 8 gray", kBgr24, kGray8, 1.2, 9},
    {"32-gray8", "32 -> 8 gray", kBgr32, kGray8, 1.2, 9},
    {"24-swap", "24 BGR -> RGB", kBgr24, kRgb24, 0.95, 15, true},
    {"32-swap", "32 BGR -> RGB", kBgr32, kRgb32, 0.95, 15, true},
    {"48-swap", "48 BGR -> RGB", kBgr48, kRgb48, 0.95, 15, true},
    {"64-swap", "64 BGR -> RGB", kBgr64, kRgb64, 0.95, 15, true},
    {"24-32", "24 -> 32", kBgr24, kBgr32, 1.15, 15},
    {"32-24", "32 -> 24", kBgr32, kBgr24, 1.15, 15},
    {"gray8-24", "8 gray -> 24", kGray8, kBgr24, 1.2, 20},
    {"palette8-24", "8 palette -> 24", kPalette8, kBgr24, 1.8, 2},
    {"palette8-32", "8 palette -> 32", kPalette8, kBgr32, 1.8, 2},
    {"1-gray8", "1 -> 8 gray", kBits1, kGray8, 1.6, 3},
    {"1-24", "1 -> 24", kBits1, kBgr24, 1.8, 3},
    {"1-32", "1 -> 32", kBits1, kBgr32, 1.8, 3},
    {"24-16", "24 -> 16 (5-5-5)", kBgr24, kBgr16, 1.3, 4},
    {"32-16", "32 -> 16 (5-5-5)", kBgr32, kBgr16, 1.3, 4},
    {"16-24", "16 (5-5-5) -> 24", kBgr16, kBgr24, 1.3, 4},
    {"16-32", "16 (5-5-5) -> 32", kBgr16, kBgr32, 1.3, 4},
    {"24-48", "24 -> 48", kBgr24, kBgr48, 1.3, 3},
    {"48-24", "48 -> 24", kBgr48, kBgr24, 1.3, 3},
    {"gray8-gray16", "8 -> 16 gray", kGray8, kGray16, 1.2, 20},
    {"gray16-gray8", "16 -> 8 gray", kGray16, kGray8, 0.8, 20},
    {"24-palette8", "24 -> 8 palette, nearest", kBgr24, kPalette8, 0, 0, false, 0.7},
};

/// A picture and where its lines go. A line is copied to the place of its result and converted there: the room that a
/// wider source takes belongs to the next result, which is not there yet.
class Ours {
 public:
  Ours(const Pixels& source, Format format, const Palette& palette)
      : source_(source), format_(format), palette_(palette) {
    targetBytes_ = Pixels(format, source.width, 1).rowBytes;
    target_.resize(uint64_t{targetBytes_} * static_cast<uint32_t>(source.height) + source.rowBytes);
  }
  void Refilled() {
    uint8_t* to = target_.data();
    for (int32_t row = 0; row < source_.height; ++row, to += targetBytes_) {
      std::memcpy(to, source_.Row(row), source_.rowBytes);
      Line(to);
    }
  }
  /// Every row where it lies in a picture whose rows have room for both formats. What is in them by now is converted.
  void InPlace() {
    const uint32_t rowBytes = std::max(source_.rowBytes, targetBytes_);
    if (rows_.empty()) {
      rows_.resize(uint64_t{rowBytes} * static_cast<uint32_t>(source_.height));
      for (int32_t row = 0; row < source_.height; ++row)
        std::memcpy(rows_.data() + uint64_t{rowBytes} * static_cast<uint32_t>(row), source_.Row(row), source_.rowBytes);
    }
    for (uint64_t at = 0; at < rows_.size(); at += rowBytes) Line(rows_.data() + at);
  }
  /// What is in the line by now is converted: only where its value does not matter to the time.
  void Again() { Line(target_.data()); }
  [[nodiscard]] Pixels Result() const {
    Pixels result(format_, source_.width, source_.height);
    result.palette = palette_;
    std::memcpy(result.bytes.data(), target_.data(), result.bytes.size());
    return result;
  }

 private:
  void Line(uint8_t* line) {
    Require(T_ConvertBuffer(line, source_.width, source_.format.bits, format_.bits, source_.format.order, format_.order,
                            source_.Entries(), palette_.empty() ? nullptr : palette_.data()) == SUCCESS,
            "T_ConvertBuffer");
  }
  Pixels source_;
  Format format_;
  Palette palette_;
  uint32_t targetBytes_;
  std::vector<uint8_t> target_;
  std::vector<uint8_t> rows_;
};

Pixels FirstRow(const Pixels& picture) {
  Pixels row(picture.format, picture.width, 1);
  row.palette = picture.palette;
  std::memcpy(row.bytes.data(), picture.bytes.data(), row.bytes.size());
  return row;
}

/// Ends the program when a peer does something else than the job. Weights of gray, rounding and 15 bits are allowed.
void Check(const PeerJob& job, const Pixels& expected, const std::string& what) {
  constexpr double kNear = 4;  // levels
  if (!job.pass || !job.result) return;
  job.pass();
  const double difference = MeanDifference(job.result(), expected);
  Require(difference < kNear, (what + ", mean difference " + std::to_string(difference)).c_str());
}

Group PairGroup(const Pair& pair, const std::string& directory) {
  std::string origin;
  const Pixels mosaic = Mosaic(directory, kSide, kSide, &origin);
  const Palette palette = pair.to == kPalette8 ? PickedColours(mosaic, 256) : Palette{};
  const Pixels source = Converted(mosaic, pair.from, pair.from == kPalette8 ? PickedColours(mosaic, 256) : Palette{});
  Group group{std::string("convert-") + pair.key,
              "Conversion, 4096 x 4096 pixels: " + origin,
              {"ms", "x mc", "Gpixel/s", "a line in the cache, Gpixel/s"},
              {},
              {}};
  const size_t yardstick = AddMemcpy(group);
  const double read = static_cast<double>(source.rowBytes) * kSide;
  const double written = static_cast<double>(Pixels(pair.to, kSide, 1).rowBytes) * kSide;
  const double pixels = source.Count() / 1e9;
  const Pixels row = FirstRow(source);
  const auto add = [&](const std::string& who, const std::function<void()>& whole, const std::function<void()>& line,
                       bool ours) {
    const size_t at = group.Add("picture", whole);
    const auto target = [&](Target wanted, double bound) { return ours && bound > 0 ? wanted : Target{}; };
    Line made{pair.job,
              who,
              {Scaled(at, 1e3),
               TimesMemcpy(at, yardstick, read, written, target(AtMost(pair.most), pair.most)),
               Rate(at, pixels, target(AtLeast(pair.fewestFromMemory), pair.fewestFromMemory)),
               {}}};
    if (line)
      made.figures[3] = Rate(group.Add("line", line), row.Count() / 1e9, target(AtLeast(pair.fewest), pair.fewest));
    group.lines.push_back(std::move(made));
  };

  const auto whole = std::make_shared<Ours>(source, pair.to, palette);
  const auto line = std::make_shared<Ours>(row, pair.to, palette);
  whole->Refilled();
  const Pixels expected = whole->Result();
  if (pair.to == kPalette8) {  // its time depends on the colours
    add(
        "T_ConvertBuffer, lines refilled", [=] { whole->Refilled(); }, [=] { line->Refilled(); }, true);
  } else {
    // The rows of a picture have no room for wider pixels: there the copy is part of the job.
    const bool wider = written > read;
    const std::function<void()> refilled = [=] { whole->Refilled(); };
    const std::function<void()> again = [=] { line->Again(); };
    if (wider) add("T_ConvertBuffer, lines refilled; one in place", refilled, again, true);
    if (!wider)
      add(
          "T_ConvertBuffer in place", [=] { whole->InPlace(); }, again, true);
    if (!wider && !pair.inPlace) add("T_ConvertBuffer, lines refilled", refilled, nullptr, false);
  }
  for (const auto& peer : Peers()) {
    const PeerJob job = peer->Convert(source, pair.to, palette);
    const std::string who = peer->Name() + " " + job.call;
    Check(job, expected, who);
    if (pair.inPlace) {
      const PeerJob inPlace = peer->ConvertInPlace(source, pair.to);
      if (inPlace.pass)
        add(peer->Name() + " " + inPlace.call, inPlace.pass, peer->ConvertInPlace(row, pair.to).pass, false);
    }
    if (job.pass) add(who, job.pass, peer->Convert(row, pair.to, palette).pass, false);
  }
  return group;
}

}  // namespace

std::vector<GroupMaker> ConvertGroups(const std::string& directory) {
  std::vector<GroupMaker> makers;
  for (const Pair& pair : kPairs)
    makers.push_back({std::string("convert-") + pair.key, [&pair, directory] { return PairGroup(pair, directory); }});
  return makers;
}

}  // namespace bench
