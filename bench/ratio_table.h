#pragma once

#include <cstdio>
#include <exception>
#include <functional>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/served_tree.h"

/// Runs the registered benchmarks interleaved and prints what they cost beside
/// each other.
namespace bench {

/// Two benchmarks by their names: what a thing costs at the least, and what it
/// costs here, which ought to be at most `target` times as much.
struct Comparison {
  std::string bare;
  std::string ours;
  double target;
};

/// Registers a benchmark of that name, whose iterations are calls of `round`; it is
/// skipped where one gives false.
void registerRounds(const std::string& name, const std::function<bool()>& round);

/// Prints a row for each benchmark of `comparisons`: median, 10th and 90th
/// percentile of its repetitions in microseconds, and behind ours the ratio of
/// the medians and its target. What several are compared with in a row stands there
/// once. Returns an exit status: 0 where all ran, whatever
/// the ratios. With the argument "--no-titles" the row of titles is left out.
int runAndCompare(int argc, char** argv, const std::vector<Comparison>& comparisons);

/// The `main` of a benchmark of two processes: runs it with both on one processor and
/// with a processor each. `Placement` is made from a name and the processor of the
/// other process, registers its benchmarks and gives its `comparisons()`.
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
