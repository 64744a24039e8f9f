#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <exception>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/baseline_pipes.h"
#include "bench/programs.h"

// What commands over whole trees take, counted in the round trips that they would
// need if each part cost one: whole runs of the shell, its output in a file, beside
// bare round trips over named pipes, everything on one processor; and how many
// exchanges with the server are made for the parts. Then the same while the values
// change.

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::size_t parts = 10'000;

double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(
      std::lround(part * static_cast<double>(values.size() - 1)))];
}

/// A command beside a server, and what its runs took.
struct Row {
  std::string title;
  const bench::ServerProgram& server;
  std::string commands;
  std::size_t lines;  ///< that it writes at the least: one a part
  unsigned runs;      ///< still to come
  std::vector<double> milliseconds = {};
  std::vector<double> exchanges = {};

  void run() {
    --runs;
    const std::size_t before = server.writes();
    const bench::Run run = bench::runShell("cd " + server.name() + ';' + commands, lines);
    milliseconds.push_back(run.seconds * 1e3);
    // Of each exchange the server's side is one write; a reply in pieces counts more.
    exchanges.push_back(static_cast<double>(server.writes() - before));
  }
};

/// Microseconds for one round trip.
double measure(const bench::BaselinePipes& pipes) {
  constexpr int trips = 2000;
  const auto begin = Clock::now();
  for (int i = 0; i < trips; ++i) {
    if (!pipes.roundTrip()) {
      throw std::runtime_error("no bare round trip");
    }
  }
  return std::chrono::duration<double, std::micro>(Clock::now() - begin).count() / trips;
}

/// Interleaved, so that what else the machine does meets all alike; the bare round
/// trip's times.
std::vector<double> runAll(std::vector<Row>& rows, const bench::BaselinePipes& pipes) {
  std::vector<double> bare;
  for (bool ran = true; ran;) {
    ran = false;
    for (Row& row : rows) {
      if (row.runs > 0) {
        bare.push_back(measure(pipes));
        row.run();
        ran = true;
      }
    }
  }
  return bare;
}

void printTitles() {
  std::printf("\n%-34s %8s %8s %8s %4s %7s %6s %7s %6s %7s %6s\n", "milliseconds", "median", "p10",
              "p90", "runs", "trips", "target", "p/exch", "target", "times", "target");
}

/// `quiet`: the first row's median; what is no such row is printed beside it, and
/// ought to take at most `target` times as long.
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
    const std::vector<double> bare = runAll(rows, pipes);
    const double baselineUs = quantile(bare, 0.5);
    const double first = quantile(rows[0].milliseconds, 0.5);
    printTitles();
    print(rows[0], baselineUs, first, 0);
    print(rows[1], baselineUs, first, 0);
    print(rows[2], baselineUs, first, 11);
    print(rows[3], baselineUs, first, 2);
    std::printf("a bare round trip: %.2f us (%.2f to %.2f)\n", baselineUs, quantile(bare, 0.1),
                quantile(bare, 0.9));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "whole_tree_bench: %s\n", error.what());
    return 1;
  }
}
