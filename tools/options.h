#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

namespace treectl {

/// The command line. Parsing makes no system calls.

enum class Command {
  servers,
  list,
  get,
  set,
  describe,
  watch,
  wait,
  dump,
  restore,
  diff,
  record,
  replay,
  help,
};

enum class Color { automatic, always, never };

struct Options {
  Command command = Command::help;
  /// What is neither an option nor the command. For `set` every word from the first address on.
  std::vector<std::string> operands;

  // Of every command.
  bool json = false;
  bool quiet = false;
  bool help = false;
  bool version = false;
  Color color = Color::automatic;
  std::string server;             ///< of `--server`; empty if not given
  std::optional<double> timeout;  ///< in seconds, not negative

  // Of some commands.
  std::vector<std::string> waitFor;  ///< servers
  bool recursive = false;
  bool longForm = false;
  bool raw = false;
  bool stop = false;
  bool passProtected = false;
  bool array = false;
  bool fromInput = false;  ///< `--stdin`
  bool dryRun = false;
  bool time = false;
  bool changes = false;
  bool csv = false;
  bool live = false;
  bool plot = false;
  bool failOnLoss = false;
  bool fast = false;
  std::optional<unsigned long> count;
  std::optional<double> duration;  ///< `--for`, in seconds
  std::optional<double> every;     ///< in seconds
  std::optional<double> speed;
  std::string file;  ///< `-o`; empty if not given
};

/// Parses the words after the program's name. An error is a line for the user. After `--help` and
/// `--version` nothing else is checked.
[[nodiscard]] std::variant<Options, std::string> parseOptions(
    const std::vector<std::string_view>& words);

/// The command of that name.
[[nodiscard]] std::optional<Command> findCommand(std::string_view name);

/// The output of `--help`, and of `help COMMAND`: whole lines.
[[nodiscard]] std::string usageText();
[[nodiscard]] std::string usageText(Command command);

}  // namespace treectl
