#pragma once

#include <string>

/// Runs the registered benchmarks interleaved and prints what they cost beside
/// each other.
namespace bench {

/// Prints a table of median, 10th and 90th percentile of the repetitions of
/// benchmarks `bare` and `ours`, and the ratio of their medians beside
/// `target`. Returns an exit status: 0 where both ran, whatever the ratio.
int runAndCompare(int argc, char** argv, const std::string& bare, const std::string& ours,
                  double target);

}  // namespace bench
