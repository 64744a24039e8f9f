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

/// Keeps the time of each repetition, in microseconds.
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

  /// The times of `name` in ascending order.
  std::vector<double> sorted(const std::string& name) {
    std::vector<double> times = times_[name];
    std::sort(times.begin(), times.end());
    return times;
  }

 private:
  std::map<std::string, std::vector<double>> times_;
};

double quantile(const std::vector<double>& sorted, double part) {
  return sorted[static_cast<std::size_t>(
      std::lround(part * static_cast<double>(sorted.size() - 1)))];
}

void printRow(const std::string& name, const std::vector<double>& times) {
  std::printf("%-42s %10.2f %10.2f %10.2f %8zu", name.c_str(), quantile(times, 0.5),
              quantile(times, 0.1), quantile(times, 0.9), times.size());
}

/// Takes "--no-titles" out of `arguments`; tells whether it was there.
bool takeNoTitles(std::vector<char*>& arguments) {
  return std::erase_if(arguments, [](const char* argument) {
           return std::string_view(argument) == "--no-titles";
         }) != 0;
}

}  // namespace

void registerRounds(const std::string& name, const std::function<bool()>& round) {
  benchmark::RegisterBenchmark(name.c_str(),
                               [round](benchmark::State& state) {
                                 for (auto _ : state) {
                                   if (!round()) {
                                     state.SkipWithError("no answer");
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
  const bool titles = !takeNoTitles(arguments);
  // Interleaved, so that what else the machine does meets all alike.
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
    const std::vector<double> bare = collector.sorted(comparison.bare);
    const std::vector<double> ours = collector.sorted(comparison.ours);
    if (bare.empty() || ours.empty()) {
      std::fprintf(stderr, "%s: nothing measured\n", comparison.ours.c_str());
      return 1;
    }
    if (std::exchange(lastBaseline, comparison.bare) != comparison.bare) {
      printRow(comparison.bare, bare);
      std::printf("\n");
    }
    printRow(comparison.ours, ours);
    std::printf(" %7.2f %7.2f\n", quantile(ours, 0.5) / quantile(bare, 0.5), comparison.target);
  }
  return 0;
}

}  // namespace bench
