#include "bench/ratio_table.h"

#include <benchmark/benchmark.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <map>
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
  std::printf("%-28s %10.2f %10.2f %10.2f %8zu\n", name.c_str(), quantile(times, 0.5),
              quantile(times, 0.1), quantile(times, 0.9), times.size());
}

}  // namespace

int runAndCompare(int argc, char** argv, const std::string& bare, const std::string& ours,
                  double target) {
  // Interleaved, so that what else the machine does meets both alike.
  std::vector<char*> arguments(argv, argv + argc);
  std::string interleave = "--benchmark_enable_random_interleaving=true";
  arguments.push_back(interleave.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
  if (benchmark::ReportUnrecognizedArguments(count, arguments.data())) {
    return 2;
  }
  Collector collector;
  benchmark::RunSpecifiedBenchmarks(&collector);
  const std::vector<double> bareTimes = collector.sorted(bare);
  const std::vector<double> ourTimes = collector.sorted(ours);
  if (bareTimes.empty() || ourTimes.empty()) {
    std::fprintf(stderr, "%s: nothing measured\n", argv[0]);
    return 1;
  }
  std::printf("%-28s %10s %10s %10s %8s\n", "microseconds", "median", "p10", "p90", "samples");
  printRow(bare, bareTimes);
  printRow(ours, ourTimes);
  std::printf("%-28s %10.2f   (target: at most %.1f)\n\n", "ratio of medians",
              quantile(ourTimes, 0.5) / quantile(bareTimes, 0.5), target);
  return 0;
}

}  // namespace bench
