#include <cstdio>
#include <exception>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/programs.h"
#include "bench/ratio_table.h"

// The time and memory of the shell for listing large trees, and trees whose parts it has all
// subscribed to. The cost of a part must not grow with the number of parts. The cost of the same
// run with a tree of one part (start, code pages) is subtracted. Everything runs on one
// processor, because the time to wake up another one depends on how long it was idle.

namespace {

using bench::quantile;

/// A command line, run with one tree, and its measurements.
struct Row {
  std::string commands;
  std::size_t parts = 0;
  std::size_t lines = 0;  ///< minimum that it writes
  unsigned runs = 0;      ///< remaining
  std::vector<double> milliseconds = {};
  std::vector<double> processorMs = {};
  std::vector<double> peakBytes = {};
};

/// What each further part adds to `start`, the same command with a tree of one part.
double perPart(const Row& row, const Row& start, std::vector<double> Row::*values) {
  return (quantile(row.*values, 0.5) - quantile(start.*values, 0.5)) /
         static_cast<double>(row.parts - start.parts);
}

/// A served tree and its rows, in the same order for each tree.
struct Tree {
  bench::ServerProgram server;
  std::vector<Row> rows;

  Tree(const std::string& shape, std::size_t parts, unsigned runs)
      : server({"--synthetic", shape}, 0),
        rows{{"", parts, 0, runs}, {"ls -lr", parts, parts, runs}} {
    // Large enough to detect quadratic growth.
    if (parts <= 10'000) {
      rows.push_back({"eu -r;ls -lr", parts, parts, runs});
      rows.push_back({"eu -r;eu -l", parts, parts, runs});
      rows.push_back({"eu -r;du", parts, 0, runs});
    }
  }

  bool runEach() {
    bool ran = false;
    for (Row& row : rows) {
      if (row.runs == 0) {
        continue;
      }
      --row.runs;
      ran = true;
      const bench::Run run = bench::runShell("cd " + server.name() + ';' + row.commands, row.lines);
      row.milliseconds.push_back(run.seconds * 1e3);
      row.processorMs.push_back(run.processorSeconds * 1e3);
      row.peakBytes.push_back(run.peakBytes);
    }
    return ran;
  }
};

void printTitles() {
  std::printf("\n%-30s %8s %8s %8s %4s %8s %6s %8s %6s %6s %6s %6s\n", "milliseconds", "median",
              "p10", "p90", "runs", "us/part", "growth", "cpu/part", "growth", "target", "B/part",
              "target");
}

void printTimes(const Row& row) {
  const std::string name = "cd;" + row.commands;
  std::printf("%-23s %6zu %8.1f %8.1f %8.1f %4zu", name.c_str(), row.parts,
              quantile(row.milliseconds, 0.5), quantile(row.milliseconds, 0.1),
              quantile(row.milliseconds, 0.9), row.milliseconds.size());
}

/// `start` and `smaller`: the rows of the same command with a tree of one part and with the next
/// smaller tree.
void printCosts(const Row& row, const Row& start, const Row& smaller) {
  constexpr double growthTarget = 1.5;
  constexpr double bytesTarget = 400;
  // On a busy machine long runs are disturbed more than short ones, so the processor time shows
  // the growth better than the elapsed time.
  for (const auto values : {&Row::milliseconds, &Row::processorMs}) {
    const double milliseconds = perPart(row, start, values);
    std::printf(" %8.2f", milliseconds * 1e3);
    if (&smaller != &start) {
      std::printf(" %6.2f", milliseconds / perPart(smaller, start, values));
    } else {
      std::printf(" %6s", "");
    }
  }
  std::printf(" %6.2f %6.0f", growthTarget, perPart(row, start, &Row::peakBytes));
  // The target excludes the memory of subscriptions.
  if (row.commands == "ls -lr") {
    std::printf(" %6.0f", bytesTarget);
  }
}

void print(const std::vector<const Row*>& rows) {
  for (std::size_t i = 0; i < rows.size(); ++i) {
    printTimes(*rows[i]);
    if (i > 0 && !rows[i]->commands.empty()) {
      printCosts(*rows[i], *rows[0], *rows[i - 1]);
    }
    std::printf("\n");
  }
}

}  // namespace

int main() {
  try {
    if (!bench::pinTo(0)) {
      throw std::runtime_error("cannot bind to a processor");
    }
    std::list<Tree> trees;
    trees.emplace_back("1x1", 1, 40);
    trees.emplace_back("1x1000", 1'000, 40);
    trees.emplace_back("1x10000", 10'000, 15);
    trees.emplace_back("10x10000", 100'000, 5);
    // Interleaved, so that other load on the machine affects all rows equally.
    for (bool ran = true; ran;) {
      ran = false;
      for (Tree& tree : trees) {
        ran = tree.runEach() || ran;
      }
    }
    printTitles();
    for (std::size_t kind = 0; kind < trees.front().rows.size(); ++kind) {
      std::vector<const Row*> rows;
      for (const Tree& tree : trees) {
        if (kind < tree.rows.size()) {
          rows.push_back(&tree.rows[kind]);
        }
      }
      print(rows);
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "listing_bench: %s\n", error.what());
    return 1;
  }
}
