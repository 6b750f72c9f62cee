#pragma once
// A group of jobs is measured in rounds: every round runs all its cases once, in an order of its own, so that what else
// the machine does meanwhile falls on all of them alike. A figure is the median, over the rounds, of a value computed
// within one round: ratios compare times that were taken side by side.

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "tarn/tarn.h"

namespace bench {

/// One way of doing a job, or a yardstick.
struct Case {
  std::string name;
  std::function<void()> pass;  // microseconds to some hundred milliseconds of work
};

/// Seconds of processor time a pass took in one round, by the number that Group::Add gave.
using Round = std::vector<double>;

struct Target {
  enum class Kind { kNone, kAtMost, kAtLeast };
  Kind kind = Kind::kNone;
  double bound = 0;
};
constexpr Target AtMost(double bound) { return {Target::Kind::kAtMost, bound}; }
constexpr Target AtLeast(double bound) { return {Target::Kind::kAtLeast, bound}; }

/// A cell of the table.
struct Figure {
  std::function<double(const Round&)> value;  // none: an empty cell
  Target target;
};

struct Line {
  std::string job;
  std::string who;
  std::vector<Figure> figures;  // one a column
};

struct Group {
  std::string key;  // names it on the command line
  std::string title;
  std::vector<std::string> columns;
  std::vector<Case> cases;
  std::vector<Line> lines;
  int mostRounds = 1000;

  size_t Add(std::string name, std::function<void()> pass) {
    cases.push_back({std::move(name), std::move(pass)});
    return cases.size() - 1;
  }
};

/// The median and the quartiles over the rounds.
struct Value {
  double median = 0;
  double low = 0;
  double high = 0;
};

struct MeasuredLine {
  std::string job;
  std::string who;
  std::vector<Figure> figures;
  std::vector<Value> values;  // of the figures that are there
};

struct MeasuredGroup {
  std::string key;
  std::string title;
  std::vector<std::string> columns;
  std::vector<MeasuredLine> lines;
};

MeasuredGroup Measure(const Group& group, int rounds);

/// A group that is made when its turn comes: its pictures live only while it is measured. Groups of one title that
/// follow each other come out as one table.
struct GroupMaker {
  std::string key;
  std::function<Group()> make;
};

// ---- What is measured ----------------------------------------------------------------------------------------------

/// Rows through every storage, `rowBytes` at a time over 48 MB.
Group RowGroup(uint32_t rowBytes);
/// What a call costs beside the bytes it moves.
Group CallGroup();
/// Copies of bitmaps and rectangles.
Group CopyGroup();
/// Conversion between formats, a group a pair, of the photographs in a directory.
std::vector<GroupMaker> ConvertGroups(const std::string& directory);
/// Dithering and palettes, a group a job.
std::vector<GroupMaker> ReduceGroups(const std::string& directory);
/// Flips, mirrors, turns and slants, a group a job.
std::vector<GroupMaker> TurnGroups(const std::string& directory);
/// Bitmaps and pages in another size, a group a job.
std::vector<GroupMaker> ResizeGroups(const std::string& directory);
/// Making and freeing bitmaps.
Group StorageGroup();
/// Super-compressed photographs and pages.
Group SuperGroup(const std::string& directory);
/// Single pixels in order and anywhere; the nearest entry of a palette; filling.
Group PixelGroup();
Group NearestGroup();
Group FillGroup();
/// Two bitmaps combined.
Group CombineGroup();
/// One-bit pages compressed and expanded; page is "text-600", "text-300" or "noise".
Group PageGroup(const std::string& page, const std::string& pageDirectory);

// ---- Results -------------------------------------------------------------------------------------------------------

struct Machine {
  std::vector<std::pair<std::string, std::string>> facts;  // name, value
};
Machine DescribeMachine();

/// The group's table on standard output, and the number of targets that it missed.
int Print(const MeasuredGroup& group);
void WriteMarkdown(const std::string& path, const Machine& machine, int rounds,
                   const std::vector<MeasuredGroup>& groups);
void WriteJson(const std::string& path, const Machine& machine, int rounds, const std::vector<MeasuredGroup>& groups);

/// Ends the program when a call that is being measured, or its preparation, did not do its work.
void Require(bool done, const char* what);

// ---- Yardstick -----------------------------------------------------------------------------------------------------

constexpr uint64_t kPictureBytes = uint64_t{48} << 20;

/// Adds a memcpy of 48 MB from ordinary memory to ordinary memory, neither in a cache: one mc a byte.
size_t AddMemcpy(Group& group);
/// "x mc": the seconds of case `job` over those of a memcpy that moves (read + written) / 2 bytes at yardstick's rate.
Figure TimesMemcpy(size_t job, size_t yardstick, double read, double written, Target target = {});
Figure Ratio(size_t job, size_t other, Target target = {});
/// Seconds of a case times `scale`.
Figure Scaled(size_t job, double scale, Target target = {});
/// `amount` done in the case's seconds.
Figure Rate(size_t job, double amount, Target target = {});
/// The difference of two cases times `scale`.
Figure Difference(size_t job, size_t other, double scale, Target target = {});

}  // namespace bench
