#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The commands of the shell. A row of the table is all that the shell knows of a
/// command: its name, its arguments and options, its handler, and whether Tab
/// offers it. Constant data and pure functions; any thread may use them.

namespace treescope {

class ScopeBase;

/// The bit of an option letter: 1, 2, 4 and 8 for "r", "m", "l" and "c", 0 for any
/// other character.
[[nodiscard]] constexpr unsigned optionBit(char letter) {
  const std::size_t position = std::string_view("rmlc").find(letter);
  return position == std::string_view::npos ? 0U : 1U << position;
}

inline constexpr unsigned optionRecursive = optionBit('r');
inline constexpr unsigned optionMore = optionBit('m');
inline constexpr unsigned optionLong = optionBit('l');
inline constexpr unsigned optionCount = optionBit('c');

/// A command that is being run: its words, and after the check of its arguments
/// the bits of its options.
class ParsedCommand {
 public:
  /// Splits `command` (zero-terminated, not null) into words. The object refers to
  /// the text, which must outlive it.
  explicit ParsedCommand(const char* command);

  /// The next argument; null when none is left. Valid as long as this object and
  /// its `args`.
  [[nodiscard]] const char* nextArgument() {
    return next_ < args.size() ? args[next_++].c_str() : nullptr;
  }

  /// The text as it was passed in, with its spaces.
  const char* const text;
  /// False when the text has no word at all. A quoted command word may be empty.
  bool hasWord = false;
  std::string word;
  /// The words after the command word.
  std::vector<std::string> args;
  unsigned options = 0;

 private:
  std::size_t next_ = 0;
};

/// What is checked before a handler is called.
enum class ArgumentCheck {
  none,             ///< every word is an argument
  limits,           ///< options and number of arguments, as the row allows
  limitsSilently,   ///< the same; an error is not printed
  noWords,          ///< there must be no word, not even an option
  noWordsSilently,  ///< the same; an error is not printed
};

/// Whether Tab offers the name of a command.
enum class TabOffer {
  never,
  byName,  ///< in alphabetical order
  last,    ///< after those in alphabetical order
};

struct CommandRow {
  const char* name;
  /// The largest number of arguments, options not counted.
  unsigned maxArgs;
  /// The options that the command accepts.
  unsigned optionMask;
  ArgumentCheck check;
  /// Runs the command, whose arguments have been checked; returns a code of
  /// shell/results.h.
  int (*handler)(ScopeBase& shell, ParsedCommand& command);
  TabOffer tab;
};

/// A row's index is its command's code. The last row, which has no name, is for
/// every word that is not the name of a command.
extern const std::span<const CommandRow> commandTable;

/// The code that `commandCode` returns for a text that matches no row.
extern const int noCommand;

/// The code of the row whose name followed by one space equals `text`
/// (zero-terminated, not null); the last row's for a single space; else
/// `noCommand`.
[[nodiscard]] int commandCode(const char* text);

/// Removes every word that begins with "-" from `args` and collects the bits of its
/// letters in `options`; letters without a bit are ignored. Returns
/// `result::optionError` when more than `maxArgs` words are left or `options` has a
/// bit outside `optionMask`, else `result::success`.
[[nodiscard]] int checkArguments(std::vector<std::string>& args, unsigned& options,
                                 unsigned maxArgs, unsigned optionMask);

/// The codes of the commands that Tab offers, in the order in which they are
/// listed; ends with `noCommand`.
extern const int* const completedCommands;

/// The names of the commands of `codes` (ends with `noCommand`) that, with one space
/// appended, begin with `head`. Each candidate includes the space.
[[nodiscard]] std::vector<std::string> commandCandidates(const int* codes, std::string_view head);

}  // namespace treescope
