#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "tools/options.h"

namespace treectl {

/// What the commands and options are: the one list from which parsing and help are made.

/// A set of commands, a bit for each.
using CommandSet = unsigned;

constexpr CommandSet setOf(Command command) {
  return 1U << static_cast<unsigned>(command);
}

struct CommandRow {
  Command command;
  std::string_view name;
  std::string_view operands;  ///< for the usage line
  std::string_view summary;
  std::size_t minOperands;
  std::size_t maxOperands;
};

/// No limit of the number of operands.
inline constexpr std::size_t anyNumber = static_cast<std::size_t>(-1);

struct OptionRow {
  std::string_view name;  ///< with "--"
  char letter;            ///< of the short form; 0 if there is none
  CommandSet commands;
  std::string_view argument;  ///< what follows, for the help; empty if nothing does
  std::string_view summary;
  /// Stores the option. An error is what was expected, as in "expected seconds".
  std::optional<std::string> (*apply)(Options& options, std::string_view argument);
};

/// The tables, in the order of the help.
struct Commands {
  const CommandRow* first;
  std::size_t count;
  [[nodiscard]] const CommandRow* begin() const { return first; }
  [[nodiscard]] const CommandRow* end() const { return first + count; }
};
struct OptionRows {
  const OptionRow* first;
  std::size_t count;
  [[nodiscard]] const OptionRow* begin() const { return first; }
  [[nodiscard]] const OptionRow* end() const { return first + count; }
};

[[nodiscard]] Commands commandTable();
[[nodiscard]] OptionRows optionTable();
[[nodiscard]] const CommandRow& rowOf(Command command);

}  // namespace treectl
