#include "bench/ratio_table.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
#include <string_view>
#include <utility>
#include <vector>

namespace bench {
namespace {

/// Stores the time of each repetition in microseconds.
class Collector : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context&) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.run_type == Run::RT_Iteration && !run.error_occurred) {
        const double perSecond = benchmark::GetTimeUnitMultiplier(run.time_unit);
        times_[run.run_name.function_name].push_back(run.GetAdjustedRealTime() / perSecond * 1e6);
      } else if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
      }
    }
  }

  const std::vector<double>& times(const std::string& name) { return times_[name]; }

 private:
  std::map<std::string, std::vector<double>> times_;
};

void printRow(const std::string& name, const std::vector<double>& times) {
  std::printf("%-42s %10.2f %10.2f %10.2f %8zu", name.c_str(), quantile(times, 0.5),
              quantile(times, 0.1), quantile(times, 0.9), times.size());
}

/// Removes "--no-titles" from `arguments`; true if it was there.
bool removeNoTitles(std::vector<char*>& arguments) {
  return std::erase_if(arguments, [](const char* argument) {
           return std::string_view(argument) == "--no-titles";
         }) != 0;
}

}  // namespace

double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(
      std::lround(part * static_cast<double>(values.size() - 1)))];
}

void registerRounds(const std::string& name, const std::function<bool()>& round) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [round](benchmark::State& state) {
                                 for (auto _ : state) {
                                   if (!round()) {
                                     state.SkipWithError("no reply");
                                     break;
                                   }
                                 }
                               })
      ->Repetitions(60)
      ->MinTime(0.03)
      ->UseRealTime();
}

int runAndCompare(int argc, char** argv, const std::vector<Comparison>& comparisons) {
  std::vector<char*> arguments(argv, argv + argc);
  const bool titles = !removeNoTitles(arguments);
  // Interleaved, so that other load on the machine affects all rows equally.
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  arguments.push_back(interleave.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
    return 2;
  }
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  if (titles) {
    std::printf("%-42s %10s %10s %10s %8s %7s %7s\n", "microseconds", "median", "p10", "p90",
                "samples", "ratio", "target");
  }
  std::string lastBaseline;
  for (const Comparison& comparison : comparisons) {
    const std::vector<double>& baseline = collector.times(comparison.baseline);
    const std::vector<double>& ours = collector.times(comparison.ours);
    if (baseline.empty() || ours.empty()) {
      std::fprintf(stderr, "%s: no measurements\n", comparison.ours.c_str());
      return 1;
    }
    if (std::exchange(lastBaseline, comparison.baseline) != comparison.baseline) {
      printRow(comparison.baseline, baseline);
      std::printf("\n");
    }
    printRow(comparison.ours, ours);
    std::printf(" %7.2f %7.2f\n", quantile(ours, 0.5) / quantile(baseline, 0.5), comparison.target);
  }
  return 0;
}

}  // namespace bench
