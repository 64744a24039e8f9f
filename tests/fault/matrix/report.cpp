#include "tests/fault/matrix/report.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <iomanip>
#include <map>
#include <numeric>
#include <set>
#include <sstream>
#include <utility>

#include "tests/fault/matrix/system_calls.h"

namespace fault_matrix {

namespace {

constexpr std::size_t columnsOfTable = 12;
constexpr int nameWidth = 18;
constexpr int cellWidth = 11;

struct Cell {
  int runs = 0;
  int failed = 0;
};

using Cells = std::map<std::pair<std::string, std::string>, Cell>;

std::string textOf(const Cell& cell) {
  return std::to_string(cell.runs) + (cell.failed > 0 ? "/" + std::to_string(cell.failed) : "");
}

void printTable(std::ostream& out, const Cells& cells, const std::set<std::string>& calls,
                const std::vector<std::string>& columns) {
  out << std::left << std::setw(nameWidth) << "";
  for (const std::string& column : columns) {
    out << std::right << std::setw(cellWidth) << column;
  }
  out << '\n';
  for (const std::string& call : calls) {
    std::ostringstream row;
    bool any = false;
    for (const std::string& column : columns) {
      const auto found = cells.find({call, column});
      any = any || found != cells.end();
      row << std::setw(cellWidth) << (found != cells.end() ? textOf(found->second) : "");
    }
    if (any) {
      out << std::left << std::setw(nameWidth) << call << row.str() << '\n';
    }
  }
}

}  // namespace

std::string nameOf(const Case& run) {
  return std::string(run.scenario->name) + "/" + callName(run.fault.call) + "/" +
         errorName(run.fault.error) + "/" + std::to_string(run.fault.occurrence);
}

bool isKnownLimit(const Fault& fault, std::string_view failure) {
  struct Limit {
    const char* call;
    const char* failure;
  };
  // Each is described in SECURITY.md, section "When system calls fail".
  static constexpr std::array<Limit, 3> limits{{
      // A mailbox that cannot be checked or removed stays.
      {"newfstatat", "left in /tmp: Model_m.fifo"},
      {"unlink", "left in /tmp: Model_m.fifo"},
      // So does one that another server seems to have locked.
      {"flock", "left in /tmp: Model_m.fifo"},
  }};
  const std::string call = callName(fault.call);
  return std::any_of(limits.begin(), limits.end(), [&](const Limit& limit) {
    return call == limit.call && failure.starts_with(limit.failure);
  });
}

std::string matrix(const std::vector<Case>& cases, const std::vector<Result>& results) {
  Cells cells;
  std::set<std::string> calls;
  std::map<std::string, int> errors;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    const State state = results[i].state;
    if (state == State::notRun || state == State::notReached) {
      continue;
    }
    const std::string call = callName(cases[i].fault.call);
    const std::string error = errorName(cases[i].fault.error);
    Cell& cell = cells[{call, error}];
    ++cell.runs;
    cell.failed += state == State::failed ? 1 : 0;
    calls.insert(call);
    ++errors[error];
  }
  std::vector<std::string> columns;
  for (const auto& [error, runs] : errors) {
    columns.push_back(error);
  }
  std::stable_sort(columns.begin(), columns.end(),
                   [&](const auto& one, const auto& other) { return errors[one] > errors[other]; });
  std::ostringstream out;
  for (std::size_t begin = 0; begin < columns.size(); begin += columnsOfTable) {
    const std::size_t end = std::min(begin + columnsOfTable, columns.size());
    printTable(out, cells, calls,
               {columns.begin() + static_cast<std::ptrdiff_t>(begin),
                columns.begin() + static_cast<std::ptrdiff_t>(end)});
    out << '\n';
  }
  return out.str();
}

std::string failures(const std::vector<Case>& cases, const std::vector<Result>& results) {
  std::map<std::string, std::vector<std::string>> byText;
  for (std::size_t i = 0; i < cases.size(); ++i) {
    if (results[i].state == State::failed) {
      byText[results[i].text].push_back(nameOf(cases[i]));
    }
  }
  std::ostringstream out;
  for (const auto& [text, names] : byText) {
    out << text << '\n';
    for (const std::string& name : names) {
      out << "    " << name << '\n';
    }
  }
  return out.str();
}

std::string slowest(const std::vector<Case>& cases, const std::vector<Result>& results) {
  constexpr std::size_t shownRuns = 5;
  std::vector<std::size_t> order(cases.size());
  std::iota(order.begin(), order.end(), 0U);
  const std::size_t count = std::min(shownRuns, order.size());
  std::partial_sort(order.begin(), order.begin() + static_cast<std::ptrdiff_t>(count), order.end(),
                    [&](std::size_t one, std::size_t other) {
                      return results[one].seconds > results[other].seconds;
                    });
  std::ostringstream out;
  out << std::fixed << std::setprecision(2) << "slowest:";
  for (std::size_t i = 0; i < count; ++i) {
    out << (i == 0 ? " " : ", ") << nameOf(cases[order[i]]) << ' ' << results[order[i]].seconds
        << " s";
  }
  out << '\n';
  return out.str();
}

}  // namespace fault_matrix
