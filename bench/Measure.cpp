#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>

#include "Bench.h"

namespace bench {
namespace {

constexpr double kShortestRun = 0.008;  // seconds; the processor clock is read in steps of microseconds

/// Takes the processor time of the one run that it is told of.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }
  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      Require(!run.error_occurred && run.iterations > 0, run.benchmark_name().c_str());
      seconds = run.cpu_accumulated_time / static_cast<double>(run.iterations);
    }
  }
  double seconds = 0;
};

double RunOnce(const std::string& name, Collector& collector) {
  collector.seconds = 0;
  Require(benchmark::RunSpecifiedBenchmarks(&collector, "^" + name + "/") == 1, name.c_str());
  return collector.seconds;
}

std::string NameOf(size_t index) { return "case" + std::to_string(index); }

void Register(const Group& group, size_t index, int64_t iterations) {
  const std::function<void()>& pass = group.cases[index].pass;
  benchmark::RegisterBenchmark(NameOf(index).c_str(), [&pass](benchmark::State& state) {
    for (auto _ : state) pass();
  })->Iterations(iterations);
}

double Quantile(const std::vector<double>& sorted, double part) {
  const double at = part * static_cast<double>(sorted.size() - 1);
  const auto below = static_cast<size_t>(at);
  const size_t above = std::min(below + 1, sorted.size() - 1);
  return std::lerp(sorted[below], sorted[above], at - static_cast<double>(below));
}

Value Evaluate(const Figure& figure, const std::vector<Round>& rounds) {
  if (!figure.value) return {};
  std::vector<double> values;
  for (const Round& round : rounds) values.push_back(figure.value(round));
  std::sort(values.begin(), values.end());
  return {Quantile(values, 0.5), Quantile(values, 0.25), Quantile(values, 0.75)};
}

}  // namespace

void Require(bool done, const char* what) {
  if (done) return;
  std::fprintf(stderr, "tarn_bench: failed: %s\n", what);
  std::exit(1);
}

MeasuredGroup Measure(const Group& group, int rounds) {
  Collector collector;
  const size_t count = group.cases.size();
  benchmark::ClearRegisteredBenchmarks();
  std::vector<int64_t> iterations(count, 1);
  for (size_t i = 0; i < count; ++i) {  // one run warms up, the next tells how many passes make a run
    Register(group, i, 1);
    RunOnce(NameOf(i), collector);
    const double seconds = std::max(RunOnce(NameOf(i), collector), 1e-7);
    iterations[i] = static_cast<int64_t>(std::ceil(kShortestRun / seconds));
  }
  benchmark::ClearRegisteredBenchmarks();
  for (size_t i = 0; i < count; ++i) Register(group, i, iterations[i]);

  std::vector<Round> taken(static_cast<size_t>(std::min(rounds, group.mostRounds)), Round(count));
  std::vector<size_t> order(count);
  std::iota(order.begin(), order.end(), size_t{0});
  std::mt19937 random(20);  // the same orders in every run of the program
  for (Round& round : taken) {
    std::shuffle(order.begin(), order.end(), random);
    for (const size_t i : order) round[i] = RunOnce(NameOf(i), collector);
  }
  benchmark::ClearRegisteredBenchmarks();

  MeasuredGroup measured{group.key, group.title, group.columns, {}};
  for (const Line& line : group.lines) {
    MeasuredLine done{line.job, line.who, line.figures, {}};
    for (const Figure& figure : line.figures) done.values.push_back(Evaluate(figure, taken));
    measured.lines.push_back(std::move(done));
  }
  return measured;
}

// ---- Yardstick and figures -----------------------------------------------------------------------------------------

size_t AddMemcpy(Group& group) {
  struct Pair {
    std::unique_ptr<uint8_t[]> source{new uint8_t[kPictureBytes]};
    std::unique_ptr<uint8_t[]> target{new uint8_t[kPictureBytes]};
  };
  const auto pair = std::make_shared<Pair>();
  std::memset(pair->source.get(), 0x5A, kPictureBytes);
  std::memset(pair->target.get(), 0, kPictureBytes);
  return group.Add("memcpy 48 MB", [pair] {
    std::memcpy(pair->target.get(), pair->source.get(), kPictureBytes);
    benchmark::ClobberMemory();
  });
}

Figure TimesMemcpy(size_t job, size_t yardstick, double read, double written, Target target) {
  const double share = (read + written) / 2 / static_cast<double>(kPictureBytes);
  return {[=](const Round& round) { return round[job] / (round[yardstick] * share); }, target};
}

Figure Ratio(size_t job, size_t other, Target target) {
  return {[=](const Round& round) { return round[job] / round[other]; }, target};
}

Figure Scaled(size_t job, double scale, Target target) {
  return {[=](const Round& round) { return round[job] * scale; }, target};
}

Figure Rate(size_t job, double amount, Target target) {
  return {[=](const Round& round) { return amount / round[job]; }, target};
}

Figure Difference(size_t job, size_t other, double scale, Target target) {
  return {[=](const Round& round) { return (round[job] - round[other]) * scale; }, target};
}

}  // namespace bench
