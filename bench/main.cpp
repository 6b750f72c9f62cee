// tarn_bench [--rounds N] [--only KEY] [--pages DIRECTORY] [--output DIRECTORY]: measures the library and prints what
// it finds beside the targets; with an output directory it leaves bench.md and bench.json there.

#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <iterator>
#include <utility>

#include "Bench.h"

namespace {

struct Options {
  int rounds = 15;
  std::string only;  // the beginning of a group's key
  std::string pages = ".";
  std::string output;
};

[[noreturn]] void Usage() {
  std::fprintf(stderr, "usage: tarn_bench [--rounds N] [--only KEY] [--pages DIRECTORY] [--output DIRECTORY]\n");
  std::exit(2);
}

Options Parse(int count, char** arguments) {
  Options options;
  for (int i = 1; i < count; i += 2) {
    if (i + 1 == count) Usage();
    const std::string name = arguments[i];
    const char* const value = arguments[i + 1];
    if (name == "--rounds") {
      options.rounds = std::atoi(value);
      if (options.rounds < 1) Usage();
    } else if (name == "--only") {
      options.only = value;
    } else if (name == "--pages") {
      options.pages = value;
    } else if (name == "--output") {
      options.output = value;
    } else {
      Usage();
    }
  }
  return options;
}

}  // namespace

int main(int count, char** arguments) {
  using namespace bench;
  const Options options = Parse(count, arguments);
  int silent = 1;
  benchmark::Initialize(&silent, arguments);  // our own options are not for it

  std::vector<GroupMaker> makers = {
      {"calls", CallGroup},
      {"rows-3", [] { return RowGroup(3 << 10); }},
      {"rows-12", [] { return RowGroup(12 << 10); }},
      {"rows-48", [] { return RowGroup(48 << 10); }},
      {"storage", StorageGroup},
      {"super", [&] { return SuperGroup(options.pages); }},
      {"copy", CopyGroup},
      {"pixels", PixelGroup},
      {"nearest", NearestGroup},
      {"fill", FillGroup},
      {"combine", CombineGroup},
      {"page-text-600", [&] { return PageGroup("text-600", options.pages); }},
      {"page-text-300", [&] { return PageGroup("text-300", options.pages); }},
      {"page-noise", [&] { return PageGroup("noise", options.pages); }},
  };
  for (GroupMaker& maker : ConvertGroups(options.pages)) makers.push_back(std::move(maker));
  for (GroupMaker& maker : TurnGroups(options.pages)) makers.push_back(std::move(maker));
  for (GroupMaker& maker : ReduceGroups(options.pages)) makers.push_back(std::move(maker));
  for (GroupMaker& maker : ResizeGroups(options.pages)) makers.push_back(std::move(maker));

  const Machine machine = DescribeMachine();
  for (const auto& [name, value] : machine.facts) std::printf("%s: %s\n", name.c_str(), value.c_str());
  std::printf("One thread, processor time, medians of %d interleaved rounds.\n", options.rounds);
  std::vector<MeasuredGroup> groups;
  int missed = 0;
  for (const GroupMaker& maker : makers) {
    if (!maker.key.starts_with(options.only)) continue;
    MeasuredGroup measured = Measure(maker.make(), options.rounds);
    if (!groups.empty() && groups.back().title == measured.title) {
      std::move(measured.lines.begin(), measured.lines.end(), std::back_inserter(groups.back().lines));
      continue;
    }
    if (!groups.empty()) missed += Print(groups.back());
    groups.push_back(std::move(measured));
  }
  if (groups.empty()) Usage();
  missed += Print(groups.back());
  if (!options.output.empty()) {
    WriteMarkdown(options.output + "/bench.md", machine, options.rounds, groups);
    WriteJson(options.output + "/bench.json", machine, options.rounds, groups);
    std::printf("\nTables: %s/bench.md and bench.json\n", options.output.c_str());
  }
  std::printf(missed == 0 ? "\nEvery target is met.\n" : "\n%d targets are missed.\n", missed);
  return 0;
}
