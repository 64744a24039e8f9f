#include <algorithm>
#include <cmath>
#include <cstdio>
#include <exception>
#include <list>
#include <stdexcept>
#include <string>
#include <vector>

#include "bench/programs.h"

// What the shell takes to list large trees, and trees of which it has subscribed
// every part: whole runs, whose time and memory for a part must not grow with the
// number of parts. What the same run takes beside a tree of one part is taken off:
// its start, and the code that it brings into memory. Everything runs on one
// processor: what it takes to wake another one differs with how long it slept.

namespace {

/// A command beside a tree, and what its runs took.
struct Row {
  std::string commands;
  std::size_t parts = 0;
  std::size_t lines = 0;  ///< that it writes at the least
  unsigned runs = 0;      ///< still to come
  std::vector<double> milliseconds = {};
  std::vector<double> processorMs = {};
  std::vector<double> peakBytes = {};
};

double quantile(std::vector<double> values, double part) {
  std::sort(values.begin(), values.end());
  return values[static_cast<std::size_t>(
      std::lround(part * static_cast<double>(values.size() - 1)))];
}

/// What each part adds to `least`, the same command beside a tree of one part.
double perPart(const Row& row, const Row& least, std::vector<double> Row::*values) {
  return (quantile(row.*values, 0.5) - quantile(least.*values, 0.5)) /
         static_cast<double>(row.parts - least.parts);
}

/// A served tree and the rows beside it, in the same order for each tree.
struct Tree {
  bench::ServerProgram server;
  std::vector<Row> rows;

  Tree(const std::string& shape, std::size_t parts, unsigned runs)
      : server({"--synthetic", shape}, 0),
        rows{{"", parts, 0, runs}, {"ls -lr", parts, parts, runs}} {
    // Enough to see a step that grows with the square.
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

/// `least` and `smaller`: the rows of the same command beside a tree of one part
/// and beside the next smaller one.
void printCosts(const Row& row, const Row& least, const Row& smaller) {
  constexpr double growthTarget = 1.5;
  constexpr double bytesTarget = 400;
  // On a busy machine short runs are disturbed less than long ones: the time of
  // the processor says more about growth than the clock.
  for (const auto values : {&Row::milliseconds, &Row::processorMs}) {
    const double milliseconds = perPart(row, least, values);
    std::printf(" %8.2f", milliseconds * 1e3);
    if (&smaller != &least) {
      std::printf(" %6.2f", milliseconds / perPart(smaller, least, values));
    } else {
      std::printf(" %6s", "");
    }
  }
  std::printf(" %6.2f %6.0f", growthTarget, perPart(row, least, &Row::peakBytes));
  // Subscriptions are kept beside what is listed.
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
    // Interleaved, so that what else the machine does meets all alike.
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
