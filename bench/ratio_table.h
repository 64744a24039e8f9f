#pragma once

#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/child_process.h"

/// Runs the registered benchmarks interleaved and prints their times and ratios.
namespace bench {

/// The value below which the fraction `part` of `values` lies; `values` must not be empty.
[[nodiscard]] double quantile(std::vector<double> values, double part);

/// The names of two benchmarks: the baseline, and the one of this system, whose median should
/// be at most `target` times that of the baseline.
struct Comparison {
  std::string baseline;
  std::string ours;
  double target;
};

/// Registers a benchmark whose iterations are calls of `round`. It ends with an error when a
/// call returns false.
void registerRounds(const std::string& name, const std::function<bool()>& round);

/// Runs the benchmarks and prints a row for each: the median, the 10th and the 90th percentile
/// of its repetitions in microseconds; in the rows of `ours`, also the ratio of the medians
/// and its target. A baseline that consecutive comparisons share is printed once. Returns an
/// exit status: 0 if all benchmarks ran, whatever the ratios. The argument "--no-titles"
/// suppresses the title row.
int runAndCompare(int argc, char** argv, const std::vector<Comparison>& comparisons);

/// The `main` of a benchmark of two processes: runs it with both on one processor, then with a
/// processor each. A `Placement` is constructed from a description and the processor of the
/// other process; it registers its benchmarks and returns its `comparisons()`.
template <typename Placement>
int runInBothPlacements(int argc, char** argv) {
  try {
    Placement together("one processor", 0);
    Placement apart("a processor each", 1);
    if (!pinTo(0)) {
      throw std::runtime_error("cannot bind to a processor");
    }
    std::vector<Comparison> all = together.comparisons();
    const std::vector<Comparison> others = apart.comparisons();
    all.insert(all.end(), others.begin(), others.end());
    return runAndCompare(argc, argv, all);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "%s: %s\n", argv[0], error.what());
    return 1;
  }
}

}  // namespace bench
