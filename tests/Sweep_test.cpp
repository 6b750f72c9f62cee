// Every allocation and every file call of every operation, refused in turn and judged. A sample runs always; the whole,
// which takes minutes, when disabled cases are asked for. It comes in slices so that several processes share it.

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "engine/Judge.h"

namespace tarn {
namespace {

using engine::Case;
using engine::Kind;
using engine::Operation;
using engine::Shape;
using engine::Span;
using engine::SweepFigures;
using engine::Trial;
using fault::Answer;

/// Sizes of the pictures: rows of few bytes, and rows and tiles enough for every loop to turn.
constexpr Shape kSizes[] = {{19, 11, 0}, {131, 26, 0}};

constexpr Trial kRefusedOnce = {Answer::kRefuse, fault::kAllPoints, Span::kOnce};
constexpr Trial kRefusedTwice = {Answer::kRefuse, fault::kAllPoints, Span::kTwice};
constexpr Trial kRefusedForEver = {Answer::kRefuse, fault::kAllPoints, Span::kForEver};

constexpr uint32_t kTransfers = fault::Mask(fault::Point::kRead) | fault::Mask(fault::Point::kWrite);
constexpr Trial kFileAnswers[] = {
    {Answer::kRefuse, fault::kFilePoints, Span::kOnce},
    {Answer::kRefuse, fault::kFilePoints, Span::kForEver},
    {Answer::kDiskFull, fault::kFilePoints, Span::kOnce},
    {Answer::kDiskFull, fault::kFilePoints, Span::kForEver},
    {Answer::kShort, kTransfers, Span::kOnce},
    {Answer::kShort, kTransfers, Span::kForEver},
    {Answer::kZero, kTransfers, Span::kOnce},
    {Answer::kZero, kTransfers, Span::kForEver},
    {Answer::kWrongPosition, fault::Mask(fault::Point::kSeek), Span::kOnce},
    {Answer::kWrongPosition, fault::Mask(fault::Point::kSeek), Span::kForEver},
    {Answer::kInterrupt, fault::kFilePoints, Span::kOnce},
    {Answer::kInterrupt, fault::kFilePoints, Span::kForEver},
};

#if defined(_WIN32)
constexpr uint64_t kShare = 10;  // files and views take long there, and most of the code is the same
#else
constexpr uint64_t kShare = 1;
#endif

class Sweep : public testing::Test {
 protected:
  ~Sweep() override {
    std::printf("%llu cases, %llu faults\n", static_cast<unsigned long long>(figures_.cases),
                static_cast<unsigned long long>(figures_.faults));
  }
  void Run(const Case& test, const Trial& trial) {
    engine::Reference reference;
    std::string wrong = MakeReference(scene_, test, reference);
    if (!wrong.empty()) wrong = Text(test) + ": " + wrong;
    if (wrong.empty()) wrong = SweepCase(scene_, test, reference, trial, figures_);
    EXPECT_EQ(wrong, "") << engine::SeedText();
  }
  uint64_t SeedOf(const Case& test) const {
    return engine::Mix(engine::RunSeed(),
                       static_cast<uint64_t>(test.shape.bits) * 100 + static_cast<uint64_t>(test.kind));
  }
  /// Every row of the table, storage kind, depth and size.
  template <class Visit>
  void ForEachCase(Visit visit) {
    for (const Operation& operation : engine::Operations()) {
      for (int kind = 0; kind < engine::kKinds; ++kind) {
        for (const int32_t bits : engine::kDepths) {
          for (Shape shape : kSizes) {
            shape.bits = bits;
            Case test{operation, static_cast<Kind>(kind), shape, 0};
            test.seed = SeedOf(test);
            if (operation.Suits(test.kind, shape)) visit(test);
          }
        }
      }
    }
  }
  /// One depth for each row and storage kind: another for every row, so that all depths occur.
  template <class Visit>
  void ForEachSample(Visit visit, uint64_t share = kShare) {
    std::map<std::pair<const Operation*, Kind>, std::vector<Case>> choices;
    std::vector<std::pair<const Operation*, Kind>> order;
    ForEachCase([&](const Case& test) {
      const auto key = std::make_pair(&test.operation, test.kind);
      if (choices[key].empty()) order.push_back(key);
      choices[key].push_back(test);
    });
    uint64_t number = engine::RunSeed();
    for (const auto& key : order) {
      if (++number % share == 0) visit(choices[key][number * 7 % choices[key].size()]);
    }
  }

  engine::Scene scene_;
  SweepFigures figures_;
};

// ---- Which lines were refused --------------------------------------------------------------------------------------

using Line = std::pair<std::string, uint32_t>;

std::string Narrow(const wchar_t* text) {
  std::string narrow;
  for (; *text; ++text) narrow += static_cast<char>(*text);
  return narrow;
}

/// Lines of the core's sources that hand their place to a gate: those that pass TARN_HERE on, but for the ledger, and
/// those that name it for an allocation further down in the function.
std::set<Line> GatedLines() {
  constexpr const char* kAllocations[] = {"T_LocalAlloc",    "T_LocalRealloc",    "T_GlobalAlloc",  "T_GlobalRealloc",
                                          "T_OsAllocHandle", "T_OsReallocHandle", "SectionCreate(", "SectionOnFile(",
                                          "BlockCreate(",    "FileTemporary(",    "FileOpen(",      "FileReserve("};
  // Only tables of deep gray take memory; these have other pixels.
  constexpr const char* kAskNever[] = {"lines_.Open(source_, {32, T_ORDER_BGR, nullptr}",
                                       "toColors_.Open(line, colors"};
  const auto isOf = [](const std::string& text, const auto& parts) {
    return std::any_of(std::begin(parts), std::end(parts),
                       [&](const char* part) { return text.find(part) != std::string::npos; });
  };
  std::set<Line> lines;
  const std::filesystem::path root = TARN_SOURCE_DIR;
  std::error_code error;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root / "Common", error)) {
    const std::string name = entry.path().filename().string();
    // System objects are Windows' own; a thread's settings and its colours are made before a fault can be.
    if (entry.path().extension() != ".cpp" || name.rfind("Win", 0) == 0 || name == "Settings.cpp" ||
        name == "NearestCache.cpp")
      continue;
    const std::string file = entry.path().lexically_relative(root).generic_string();
    std::ifstream source(entry.path());
    std::string text;
    uint32_t named = 0;  // line of the function's `here`
    for (uint32_t number = 1; std::getline(source, text); ++number) {
      if (text == "}") named = 0;
      if (named && isOf(text, kAllocations)) lines.insert({file, named});
      if (text.find("TARN_HERE") == std::string::npos || isOf(text, kAskNever)) continue;
      if (text.find("ere here = TARN_HERE") != std::string::npos)
        named = number;
      else if (text.find("ledger::") == std::string::npos)
        lines.insert({file, number});
    }
  }
  return lines;
}

/// Refusals of each line of the core that asked a gate or could have.
std::map<Line, uint64_t> RefusalsOfLines() {
  std::vector<fault::Site> sites(fault::Sites(nullptr, 0));
  sites.resize(std::min<size_t>(fault::Sites(sites.data(), static_cast<uint32_t>(sites.size())), sites.size()));
  std::map<Line, uint64_t> refusals;
  for (const fault::Site& site : sites) {
    const std::string file = Narrow(site.here.file);
    const size_t core = file.find("Common/");  // a compiler cache may have made the path another one
    if (core != std::string::npos) refusals[{file.substr(core), site.here.line}] += site.refused;
  }
  const std::set<Line> gated = GatedLines();
  if (gated.empty()) std::printf("The sources are not here: only lines that ran are known.\n");
  for (const Line& line : gated) refusals.insert({line, 0});
  return refusals;
}

// ---- The cases -----------------------------------------------------------------------------------------------------

TEST_F(Sweep, SampleOfRefusedCalls) {
  fault::ClearSites();
  ForEachSample([&](const Case& test) { Run(test, kRefusedOnce); });
  size_t refused = 0;
  std::string never;
  const std::map<Line, uint64_t> lines = RefusalsOfLines();
  for (const auto& [line, count] : lines) {
    refused += count > 0;
    if (!count) never += line.first + ":" + std::to_string(line.second) + " ";
  }
  std::printf("%zu lines of the core refused, %zu known\n", refused, lines.size());
  // A sample leaves some that only a second fault or another depth reaches.
  if (kShare == 1) {
    EXPECT_GE(refused * 10, lines.size() * 8) << never;
  }
}

TEST_F(Sweep, SampleOfCallsRefusedFromOneOn) {
  ForEachSample([&](const Case& test) { Run(test, kRefusedForEver); }, 3 * kShare);
}

TEST_F(Sweep, SampleOfFileAnswers) {
  size_t number = 0;
  ForEachSample([&](const Case& test) { Run(test, kFileAnswers[number++ % std::size(kFileAnswers)]); });
}

// ---- The whole -----------------------------------------------------------------------------------------------------

constexpr int kSlices = 32;

/// Rows of the table on kinds of storage, each in one slice, with every depth, size and schedule.
class WholeSweep : public Sweep, public testing::WithParamInterface<int> {
 protected:
  bool Mine(const Case& test) const {
    const auto row = static_cast<int>(&test.operation - engine::Operations().data());
    return (row * engine::kKinds + static_cast<int>(test.kind)) % kSlices == GetParam();
  }

  /// Whether a schedule is of no use for a case: none of its calls asks, or a case with the same row, storage and calls
  /// went by the same schedule. Only that each single call is refused is asked of all depths and sizes.
  bool IsKnown(const Case& test, const engine::Reference& reference, const Trial& trial) {
    const std::vector<uint16_t> trace = reference.Trace(trial.points);
    if (trace.empty()) return true;
    if (engine::EveryFault()) return false;
    if (trial.answer == Answer::kRefuse && trial.points == fault::kAllPoints && trial.span == Span::kOnce) return false;
    return !known_.emplace(test.operation.name, test.kind, trial.answer, trial.points, trial.span, trace).second;
  }

  void RunAll(const Case& test) {
    engine::Reference reference;
    std::string wrong = MakeReference(scene_, test, reference);
    EXPECT_EQ(wrong, "") << Text(test) << ", " << engine::SeedText();
    if (!wrong.empty()) return;
    const auto run = [&](const Trial& trial) {
      if (IsKnown(test, reference, trial)) return;
      wrong = SweepCase(scene_, test, reference, trial, figures_);
      EXPECT_EQ(wrong, "") << engine::SeedText();
    };
    for (const Trial& trial : {kRefusedOnce, kRefusedTwice, kRefusedForEver}) run(trial);
    for (const Trial& trial : kFileAnswers) run(trial);
  }

 private:
  std::set<std::tuple<std::string, Kind, Answer, uint32_t, Span, std::vector<uint16_t>>> known_;
};

// Prints how far it is, and for the sum of all slices what each line of the core was refused.
TEST_P(WholeSweep, DISABLED_SweepOfEveryCall) {
  fault::ClearSites();
  size_t all = 0;
  ForEachCase([&](const Case& test) { all += Mine(test); });
  const auto started = std::chrono::steady_clock::now();
  auto told = started;
  size_t done = 0;
  ForEachCase([&](const Case& test) {
    if (!Mine(test)) return;
    RunAll(test);
    ++done;
    const auto now = std::chrono::steady_clock::now();
    if (now - told < std::chrono::seconds(15) && done != all) return;
    told = now;
    std::printf("slice %d of %d: %zu of %zu cases, %llu faults, %lld s, at %s\n", GetParam() + 1, kSlices, done, all,
                static_cast<unsigned long long>(figures_.faults),
                static_cast<long long>(std::chrono::duration_cast<std::chrono::seconds>(now - started).count()),
                Text(test).c_str());
    std::fflush(stdout);
  });
  for (const auto& [line, count] : RefusalsOfLines())
    std::printf("refused %s:%u %llu\n", line.first.c_str(), line.second, static_cast<unsigned long long>(count));
}

INSTANTIATE_TEST_SUITE_P(All, WholeSweep, testing::Range(0, kSlices));

}  // namespace
}  // namespace tarn
