#include <chrono>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/baseline_pipes.h"
#include "bench/programs.h"
#include "bench/ratio_table.h"

// The time of commands on whole trees: whole runs of the shell with its output in a file, in
// multiples of a baseline round trip over named pipes; and the number of parts for each exchange
// with the server. Then the same while values change. Everything runs on one processor.

namespace {

using bench::quantile;
using Clock = std::chrono::steady_clock;

constexpr std::size_t parts = 10'000;

/// A command line, run with one server, and its measurements.
struct Row {
  std::string title;
  const bench::ServerProgram& server;
  std::string commands;
  std::size_t lines;  ///< minimum that it writes: one for each part
  unsigned runs;      ///< remaining
  std::vector<double> milliseconds = {};
  std::vector<double> exchanges = {};

  void run() {
    --runs;
    const std::size_t before = server.writes();
    const bench::Run run = bench::runShell("cd " + server.name() + ';' + commands, lines);
    milliseconds.push_back(run.seconds * 1e3);
    // The server makes one write call for each exchange, or more if the reply is split.
    exchanges.push_back(static_cast<double>(server.writes() - before));
  }
};

/// The time of one baseline round trip in microseconds.
double measure(const bench::BaselinePipes& pipes) {
  constexpr int trips = 2000;
  const auto begin = Clock::now();
  for (int i = 0; i < trips; ++i) {
    if (!pipes.roundTrip()) {
      throw std::runtime_error("the baseline round trip failed");
    }
  }
  return std::chrono::duration<double, std::micro>(Clock::now() - begin).count() / trips;
}

/// Runs the rows interleaved, so that other load on the machine affects all equally. Returns the
/// times of the baseline round trip.
std::vector<double> runAll(std::vector<Row>& rows, const bench::BaselinePipes& pipes) {
  std::vector<double> baseline;
  for (bool ran = true; ran;) {
    ran = false;
    for (Row& row : rows) {
      if (row.runs > 0) {
        baseline.push_back(measure(pipes));
        row.run();
        ran = true;
      }
    }
  }
  return baseline;
}

void printTitles() {
  std::printf("\n%-34s %8s %8s %8s %4s %7s %6s %7s %6s %7s %6s\n", "milliseconds", "median", "p10",
              "p90", "runs", "trips", "target", "p/exch", "target", "times", "target");
}

/// `quiet` is the median of the first row. A row with a `target` is compared with it: its median
/// should be at most `target` times as large.
void print(const Row& row, double baselineUs, double quiet, double target) {
  constexpr double tripsTarget = 2'500;
  constexpr double partsTarget = 50;
  const double median = quantile(row.milliseconds, 0.5);
  std::printf("%-34s %8.1f %8.1f %8.1f %4zu", row.title.c_str(), median,
              quantile(row.milliseconds, 0.1), quantile(row.milliseconds, 0.9),
              row.milliseconds.size());
  const double each = static_cast<double>(row.lines) / quantile(row.exchanges, 0.5);
  if (target == 0) {
    std::printf(" %7.0f %6.0f %7.0f %6.0f\n", median * 1e3 / baselineUs, tripsTarget, each,
                partsTarget);
  } else {
    std::printf(" %7.0f %6s %7.0f %6s %7.2f %6.1f\n", median * 1e3 / baselineUs, "", each, "",
                median / quiet, target);
  }
}

}  // namespace

int main() {
  try {
    const bench::ServerProgram quiet({"--synthetic", "1x10000"}, 0);
    const bench::ServerProgram large({"--synthetic", "10x10000"}, 0);
    const bench::ServerProgram changing({"--synthetic", "1x10000", "--churn", "1000"}, 0);
    const bench::BaselinePipes pipes(0);
    if (!bench::pinTo(0)) {
      throw std::runtime_error("cannot bind to a processor");
    }
    std::vector<Row> rows{
        {"ls -lr of 10,000 parts", quiet, "ls -lr", parts, 25},
        {"to of 10,000 parts", quiet, "to /dev/null", parts, 25},
        {"ls -lr of 100,000 parts", large, "ls -lr", 10 * parts, 7},
        {"ls -lr, 1,000 changes a second", changing, "ls -lr", parts, 25},
    };
    const std::vector<double> baseline = runAll(rows, pipes);
    const double baselineUs = quantile(baseline, 0.5);
    const double first = quantile(rows[0].milliseconds, 0.5);
    printTitles();
    print(rows[0], baselineUs, first, 0);
    print(rows[1], baselineUs, first, 0);
    print(rows[2], baselineUs, first, 11);
    print(rows[3], baselineUs, first, 2);
    std::printf("a baseline round trip: %.2f us (%.2f to %.2f)\n", baselineUs,
                quantile(baseline, 0.1), quantile(baseline, 0.9));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "whole_tree_bench: %s\n", error.what());
    return 1;
  }
}
