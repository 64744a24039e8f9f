#include "tools/options.h"

#include <algorithm>
#include <utility>

#include "tools/address.h"
#include "tools/option_table.h"

namespace treectl {

namespace {

using Problem = std::optional<std::string>;

std::string inQuotes(std::string_view word) {
  return '"' + printable(word) + '"';
}

/// Reads the words one by one.
class Parser {
 public:
  explicit Parser(const std::vector<std::string_view>& words) : words_(words) {}

  std::variant<Options, std::string> run() {
    while (next_ < words_.size()) {
      if (auto problem = readWord(words_[next_++])) {
        return std::move(*problem);
      }
      if (options_.help || options_.version) {
        return std::move(options_);
      }
    }
    if (auto problem = check()) {
      return std::move(*problem);
    }
    return std::move(options_);
  }

 private:
  Problem readWord(std::string_view word) {
    // Before a value, `--` ends the options of `wait`, too.
    const bool isEnd = word == "--" && next_ < words_.size();
    if (onlyOperands_ || word == "-" || !word.starts_with('-') || (isValueOfWait() && !isEnd)) {
      return readOperand(word);
    }
    if (word == "--") {
      onlyOperands_ = true;
      return std::nullopt;
    }
    return word.starts_with("--") ? readLongOption(word) : readLetters(word);
  }

  /// The third operand of `wait` is a value, such as -7.
  [[nodiscard]] bool isValueOfWait() const {
    return command_ == Command::wait && options_.operands.size() == 2 &&
           options_.operands[1] != "changed";
  }

  Problem readOperand(std::string_view word) {
    if (!command_) {
      command_ = findCommand(word);
      if (!command_) {
        return inQuotes(word) + ": unknown command; see treectl --help";
      }
      options_.command = *command_;
      return checkEarlyOptions();
    }
    // After the first address of `set` there are values only, except `--stdin` in the place of
    // the one value.
    if (command_ == Command::set && !onlyOperands_) {
      onlyOperands_ = true;
      if (next_ + 1 == words_.size() && words_[next_] == "--stdin" && !options_.array) {
        ++next_;
        options_.fromInput = true;
      }
    }
    options_.operands.emplace_back(word);
    return std::nullopt;
  }

  /// Options may stand before the command.
  Problem checkEarlyOptions() {
    for (const OptionRow* row : early_) {
      if (auto problem = checkCommand(*row)) {
        return problem;
      }
    }
    return std::nullopt;
  }

  [[nodiscard]] Problem checkCommand(const OptionRow& row) const {
    if ((row.commands & setOf(*command_)) != 0) {
      return std::nullopt;
    }
    return std::string(row.name) + ": not an option of " + std::string(rowOf(*command_).name);
  }

  Problem readLongOption(std::string_view word) {
    const std::size_t equals = word.find('=');
    for (const OptionRow& row : optionTable()) {
      if (row.name == word.substr(0, equals)) {
        return equals == std::string_view::npos ? readOption(row, std::nullopt)
                                                : readOption(row, word.substr(equals + 1));
      }
    }
    return inQuotes(word) + ": unknown option; see treectl --help";
  }

  /// Letters in one word; an argument is the rest of the word or the next one.
  Problem readLetters(std::string_view word) {
    for (std::size_t at = 1; at < word.size(); ++at) {
      const OptionRow* const row = findLetter(word[at]);
      if (row == nullptr) {
        return inQuotes(word) + ": unknown option; see treectl --help";
      }
      if (!row->argument.empty()) {
        return at + 1 < word.size() ? readOption(*row, word.substr(at + 1))
                                    : readOption(*row, std::nullopt);
      }
      if (auto problem = readOption(*row, std::nullopt)) {
        return problem;
      }
    }
    return std::nullopt;
  }

  [[nodiscard]] const OptionRow* findLetter(char letter) const {
    for (const OptionRow& row : optionTable()) {
      if (row.letter == letter) {
        return &row;
      }
    }
    return nullptr;
  }

  Problem readOption(const OptionRow& row, std::optional<std::string_view> argument) {
    if (!command_) {
      early_.push_back(&row);
    } else if (auto problem = checkCommand(row)) {
      return problem;
    }
    const std::string name(row.name);
    if (row.argument.empty()) {
      return argument ? name + ": takes no argument" : row.apply(options_, {});
    }
    if (!argument && next_ == words_.size()) {
      return name + ": missing argument";
    }
    const std::string_view text = argument ? *argument : words_[next_++];
    const auto problem = row.apply(options_, text);
    return problem ? Problem(name + ": " + *problem + ", got " + inQuotes(text)) : std::nullopt;
  }

  /// What can be said only of all words together.
  [[nodiscard]] Problem check() const {
    if (!command_) {
      return "missing command; see treectl --help";
    }
    const CommandRow& row = rowOf(*command_);
    const std::size_t count = options_.operands.size();
    if (count < row.minOperands) {
      return "missing argument; usage: treectl " + std::string(row.name) + ' ' +
             std::string(row.operands);
    }
    if (count > row.maxOperands) {
      return inQuotes(options_.operands[row.maxOperands]) + ": unexpected argument";
    }
    if (options_.raw && (options_.json || count > 1)) {
      return options_.json ? "--raw: not together with --json" : "--raw: expected one address";
    }
    if (*command_ == Command::record && options_.file.empty()) {
      return "record: missing -o FILE";
    }
    if (options_.csv && options_.json) {
      return "--csv: not together with --json";
    }
    if (options_.live || options_.plot) {
      return checkLive();
    }
    return *command_ == Command::set ? checkSet(count) : std::nullopt;
  }

  /// A picture has no lines.
  [[nodiscard]] Problem checkLive() const {
    const std::string name = options_.live ? "--live" : "--plot";
    const struct {
      bool isGiven;
      const char* name;
    } others[] = {{options_.live && options_.plot, "--plot"},
                  {options_.csv, "--csv"},
                  {options_.json, "--json"},
                  {options_.time, "--time"},
                  {options_.changes, "--changes"}};
    for (const auto& other : others) {
      if (other.isGiven) {
        return name + ": not together with " + other.name;
      }
    }
    return std::nullopt;
  }

  [[nodiscard]] Problem checkSet(std::size_t count) const {
    const std::string& last = options_.operands.back();
    if (options_.array && options_.fromInput) {
      return "--stdin: not together with --array";
    }
    if (options_.fromInput && count != 1) {
      return "--stdin: expected one address and no value";
    }
    if (options_.array && count < 2) {
      return inQuotes(last) + ": missing values";
    }
    if (!options_.array && !options_.fromInput && count % 2 != 0) {
      return inQuotes(last) + ": missing value";
    }
    return std::nullopt;
  }

  const std::vector<std::string_view>& words_;
  std::size_t next_ = 0;
  Options options_;
  std::optional<Command> command_;
  std::vector<const OptionRow*> early_;  ///< those before the command
  bool onlyOperands_ = false;
};

void appendOptions(std::string& text, CommandSet commands, CommandSet without) {
  constexpr std::size_t column = 26;
  for (const OptionRow& row : optionTable()) {
    if ((row.commands & commands) == 0 || (row.commands & without) != 0) {
      continue;
    }
    std::string line = "  ";
    if (row.letter != 0) {
      line += '-';
      line += row.letter;
      line += ", ";
    }
    line += row.name;
    if (!row.argument.empty()) {
      line += ' ';
      line += row.argument;
    }
    line.resize(std::max(line.size() + 1, column), ' ');
    text += line;
    text += row.summary;
    text += '\n';
  }
}

/// What no option but those of every command belongs to.
constexpr CommandSet everyCommandMark = 1U << 31U;

}  // namespace

std::variant<Options, std::string> parseOptions(const std::vector<std::string_view>& words) {
  return Parser(words).run();
}

std::optional<Command> findCommand(std::string_view name) {
  for (const CommandRow& row : commandTable()) {
    if (row.name == name) {
      return row.command;
    }
  }
  return std::nullopt;
}

std::string usageText() {
  constexpr std::size_t column = 12;
  std::string text =
      "usage: treectl [OPTION]... COMMAND [ARGUMENT]...\n"
      "Reads, stores and watches the values of the model servers on this machine.\n"
      "An address is /SERVER/NAME/NAME[ELEMENT]; * and ? match within a name, ** any depth.\n"
      "\nCommands (treectl help COMMAND says more):\n";
  for (const CommandRow& row : commandTable()) {
    std::string line = "  " + std::string(row.name);
    line.resize(column, ' ');
    text += line + std::string(row.summary) + '\n';
  }
  text += "\nOptions of every command:\n";
  appendOptions(text, everyCommandMark, 0);
  return text;
}

std::string usageText(Command command) {
  const CommandRow& row = rowOf(command);
  std::string text = "usage: treectl " + std::string(row.name) + " [OPTION]...";
  if (!row.operands.empty()) {
    text += ' ' + std::string(row.operands);
  }
  text += "\nThe command " + std::string(row.name) + ": " + std::string(row.summary) + ".\n";
  text += "\nOptions:\n";
  appendOptions(text, setOf(command), everyCommandMark);
  appendOptions(text, everyCommandMark, 0);
  return text;
}

}  // namespace treectl
