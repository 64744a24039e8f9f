#pragma once

#include <functional>
#include <list>
#include <string>
#include <vector>

/// What was measured, and how it is shown.
namespace bench::peers {

/// A line of the table: the samples of one thing that somebody does.
struct Row {
  std::string who;
  std::string how;
  /// Takes a sample, in the unit of the work; null where there is nothing to measure,
  /// and when all have been taken.
  std::function<double()> measure;
  /// How many samples are taken at the most.
  unsigned runs = 0;
  std::vector<double> samples = {};
  /// Why there is nothing to measure, said below the table.
  std::string note = {};
  /// Whether it was written for this comparison, rather than a tool of the peer's.
  bool written = false;
};

/// Something that each of them does, in its own way.
struct Work {
  std::string key;
  std::string title;
  std::string unit;
  std::list<Row> rows = {};
};

double quantile(const std::vector<double>& samples, double part);
double median(const Row& row);

/// Takes the samples of all rows, one of each in turn and in another order each time,
/// so that what else the machine does meets all alike; no more of a row that has taken
/// `secondsEach` in all.
void measure(Work& work, double secondsEach);

/// What ought to hold.
struct Target {
  std::string text;
  double reached;
  double wanted;
  /// Whether `reached` must be at least, rather than at most, what is wanted.
  bool least = false;

  [[nodiscard]] bool met() const { return least ? reached >= wanted : reached <= wanted; }
};

/// The whole as a page in Markdown: what it was measured on, the table, the notes,
/// the targets.
std::string page(const std::list<Work>& works, const std::vector<Target>& targets,
                 const std::string& explanation);

}  // namespace bench::peers
