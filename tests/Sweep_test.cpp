// Every allocation and every file call of every operation, refused in turn and judged. A sample runs always; the whole,
// which takes minutes, when disabled cases are asked for.

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <set>
#include <string>
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
constexpr uint64_t kShare = 5;  // files and views take long there, and most of the code is the same
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
    const std::string wrong = SweepCase(scene_, test, trial, figures_);
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
  void ForEachSample(Visit visit) {
    std::map<std::pair<const Operation*, Kind>, std::vector<Case>> choices;
    std::vector<std::pair<const Operation*, Kind>> order;
    ForEachCase([&](const Case& test) {
      const auto key = std::make_pair(&test.operation, test.kind);
      if (choices[key].empty()) order.push_back(key);
      choices[key].push_back(test);
    });
    uint64_t number = engine::RunSeed();
    for (const auto& key : order) {
      if (++number % kShare == 0) visit(choices[key][number * 7 % choices[key].size()]);
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
  const auto allocates = [&](const std::string& text) {
    return std::any_of(std::begin(kAllocations), std::end(kAllocations),
                       [&](const char* name) { return text.find(name) != std::string::npos; });
  };
  std::set<Line> lines;
  const std::filesystem::path root = TARN_SOURCE_DIR;
  std::error_code error;
  for (const auto& entry : std::filesystem::recursive_directory_iterator(root / "Common", error)) {
    const std::string name = entry.path().filename().string();
    // System objects are Windows' own; a thread's settings are made before a fault can be.
    if (entry.path().extension() != ".cpp" || name.rfind("Win", 0) == 0 || name == "Settings.cpp") continue;
    const std::string file = entry.path().lexically_relative(root).generic_string();
    std::ifstream source(entry.path());
    std::string text;
    uint32_t named = 0;  // line of the function's `here`
    for (uint32_t number = 1; std::getline(source, text); ++number) {
      if (text == "}") named = 0;
      if (named && allocates(text)) lines.insert({file, named});
      if (text.find("TARN_HERE") == std::string::npos) continue;
      if (text.find("ere here = TARN_HERE") != std::string::npos)
        named = number;
      else if (text.find("ledger::") == std::string::npos)
        lines.insert({file, number});
    }
  }
  return lines;
}

/// Prints refused and known lines. Of a whole sweep each line of the core that is known must have been refused; a
/// sample leaves some that only a second fault or another depth reaches.
void ReportSites(bool whole) {
  std::vector<fault::Site> sites(fault::Sites(nullptr, 0));
  sites.resize(std::min<size_t>(fault::Sites(sites.data(), static_cast<uint32_t>(sites.size())), sites.size()));
  std::map<Line, uint64_t> asked;  // refusals of each line that asked a gate
  for (const fault::Site& site : sites) {
    const std::string file = Narrow(site.here.file);
    const size_t core = file.find("Common/");  // a compiler cache may have made the path another one
    if (core != std::string::npos) asked[{file.substr(core), site.here.line}] += site.refused;
  }
  const std::set<Line> gated = GatedLines();
  if (gated.empty()) std::printf("The sources are not here: only lines that ran are known.\n");
  for (const Line& line : gated) asked.insert({line, 0});
  size_t refused = 0;
  std::string never;
  for (const auto& [line, count] : asked) {
    refused += count > 0;
    if (!count) never += line.first + ":" + std::to_string(line.second) + " ";
  }
  std::printf("%zu lines of the core refused, %zu known\n", refused, asked.size());
  if (whole) {
    EXPECT_EQ(never, "") << "lines that were never refused";
  } else if (kShare == 1) {
    EXPECT_GE(refused * 10, asked.size() * 8) << never;
  }
}

// ---- The cases -----------------------------------------------------------------------------------------------------

TEST_F(Sweep, SampleOfRefusedCalls) {
  fault::ClearSites();
  ForEachSample([&](const Case& test) { Run(test, kRefusedOnce); });
  ReportSites(false);
}

TEST_F(Sweep, SampleOfCallsRefusedFromOneOn) {
  ForEachSample([&](const Case& test) { Run(test, kRefusedForEver); });
}

TEST_F(Sweep, SampleOfFileAnswers) {
  size_t number = 0;
  ForEachSample([&](const Case& test) { Run(test, kFileAnswers[number++ % std::size(kFileAnswers)]); });
}

TEST_F(Sweep, DISABLED_SweepOfEveryCall) {
  fault::ClearSites();
  for (const Trial& trial : {kRefusedOnce, kRefusedTwice, kRefusedForEver})
    ForEachCase([&](const Case& test) { Run(test, trial); });
  ReportSites(true);
}

TEST_F(Sweep, DISABLED_SweepOfEveryFileCall) {
  for (const Trial& trial : kFileAnswers) ForEachCase([&](const Case& test) { Run(test, trial); });
}

}  // namespace
}  // namespace tarn
