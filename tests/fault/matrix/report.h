#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "tests/fault/matrix/injection.h"
#include "tests/fault/matrix/run.h"

/// What the runs have shown, as text.
namespace fault_matrix {

/// `known`: failed, as a limit that is documented says.
enum class State : unsigned char { notRun, passed, notReached, known, failed };

struct Case {
  const Scenario* scenario = nullptr;
  Fault fault;
};

struct Result {
  State state = State::notRun;
  double seconds = 0;
  std::string text = {};  ///< of a run that failed
};

/// As in "shell -c/openat/ENOENT/3"; `--only` takes it.
std::string nameOf(const Case& run);

/// The matrix: a row a call, a column an error, in each cell the runs and, after a "/",
/// those that failed. Columns that do not fit on a line come in further tables.
std::string matrix(const std::vector<Case>& cases, const std::vector<Result>& results);

/// Whether the documents say that `failure` follows from the fault.
bool isKnownLimit(const Fault& fault, std::string_view failure);

/// The failed runs, those with the same text together.
std::string failures(const std::vector<Case>& cases, const std::vector<Result>& results);

/// The runs that took longest.
std::string slowest(const std::vector<Case>& cases, const std::vector<Result>& results);

}  // namespace fault_matrix
