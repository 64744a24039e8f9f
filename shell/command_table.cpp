#include "shell/command_table.h"

#include <algorithm>
#include <array>
#include <utility>

#include "shell/results.h"
#include "shell/scope_base.h"
#include "shell/words.h"

namespace treescope {

ParsedCommand::ParsedCommand(const char* command) : text(command) {
  splitWords(command, args);
  if (!args.empty()) {
    hasWord = true;
    word = std::move(args.front());
    args.erase(args.begin());
  }
}

namespace {

// Adapters from a row's handler to an operation of the shell, by the arguments that
// the operation takes.

template <int (ScopeBase::*operation)()>
int withoutArguments(ScopeBase& shell, ParsedCommand& /*command*/) {
  return (shell.*operation)();
}

template <int (ScopeBase::*operation)(const char*)>
int withArgument(ScopeBase& shell, ParsedCommand& command) {
  return (shell.*operation)(command.nextArgument());
}

template <int (ScopeBase::*operation)(const char*)>
int withRequiredArgument(ScopeBase& shell, ParsedCommand& command) {
  const char* argument = command.nextArgument();
  return argument == nullptr ? result::optionError : (shell.*operation)(argument);
}

template <int (ScopeBase::*operation)(unsigned, const char*)>
int withOptions(ScopeBase& shell, ParsedCommand& command) {
  return (shell.*operation)(command.options, command.nextArgument());
}

/// The first of the two arguments is required.
template <int (ScopeBase::*operation)(const char*, const char*)>
int withTwoArguments(ScopeBase& shell, ParsedCommand& command) {
  const char* first = command.nextArgument();
  const char* second = command.nextArgument();
  return first == nullptr ? result::optionError : (shell.*operation)(first, second);
}

int exitShell(ScopeBase& shell, ParsedCommand& /*command*/) {
  shell.doExit();
  shell.setRunning(0);
  return result::exit;
}

int setValue(ScopeBase& shell, ParsedCommand& command) {
  const char* value = command.nextArgument();
  const char* path = command.nextArgument();
  return value == nullptr ? result::optionError : shell.doSet(command.options, value, path);
}

int setPorts(ScopeBase& shell, ParsedCommand& command) {
  const char* first = command.nextArgument();
  const char* second = command.nextArgument();
  const char* third = command.nextArgument();
  if (third == nullptr) {
    return result::optionError;
  }
  shell.setPorts(first, second, third);
  return result::nothing;
}

int complete(ScopeBase& shell, ParsedCommand& command) {
  if (command.args.empty()) {
    return shell.doTab(nullptr, nullptr);
  }
  std::string head = command.args.front();
  const char* lastWord = command.args.size() > 1 ? command.args.back().c_str() : nullptr;
  if (lastWord != nullptr || std::string_view(command.text).ends_with(' ')) {
    head += ' ';
  }
  return shell.doTab(head.c_str(), lastWord);
}

int listHistory(ScopeBase& shell, ParsedCommand& command) {
  return shell.printHistory((command.options & optionMore) != 0);
}

int runOther(ScopeBase& shell, ParsedCommand& command) {
  const char* first = command.nextArgument();
  const char* second = command.nextArgument();
  return first == nullptr ? result::optionError
                          : shell.doOther(command.word.c_str(), first, second);
}

constexpr unsigned noOptions = 0;
constexpr unsigned allOptions = optionRecursive | optionMore | optionLong | optionCount;

using enum ArgumentCheck;
using enum TabOffer;

constexpr auto rows = std::to_array<CommandRow>({
    {"exit", 0, noOptions, noWords, exitShell, byName},
    {"tab", 2, noOptions, none, complete, never},
    {"pwd", 0, noOptions, noWords, withoutArguments<&ScopeBase::printCurrentPath>, never},
    {"ls", 1, allOptions, limits, withOptions<&ScopeBase::doLs>, byName},
    {"cd", 1, noOptions, limits, withArgument<&ScopeBase::doCd>, byName},
    {"set", 2, optionLong | optionCount, limits, setValue, byName},
    {"setport", 3, noOptions, limits, setPorts, never},
    {"str", 2, noOptions, none, withTwoArguments<&ScopeBase::doStr>, byName},
    {"get", 1, noOptions, limits, withArgument<&ScopeBase::doGet>, byName},
    {"eu", 1, optionRecursive | optionMore | optionLong, limits, withOptions<&ScopeBase::doEu>,
     byName},
    {"du", 1, optionRecursive, limits, withArgument<&ScopeBase::doDu>, byName},
    {"from", 2, noOptions, limits, withTwoArguments<&ScopeBase::doFrom>, byName},
    {"to", 2, noOptions, limits, withTwoArguments<&ScopeBase::doTo>, byName},
    {"cat", 1, optionLong, limits, withOptions<&ScopeBase::doCat>, byName},
    {"con", 2, noOptions, limits, withTwoArguments<&ScopeBase::doCon>, never},
    {"dis", 2, noOptions, limits, withTwoArguments<&ScopeBase::doDis>, never},
    {"load", 1, noOptions, limits, withArgument<&ScopeBase::doLoad>, never},
    {"save", 1, noOptions, limits, withArgument<&ScopeBase::doSave>, never},
    {"rn", 2, noOptions, limits, withTwoArguments<&ScopeBase::doRn>, never},
    {"rm", 1, noOptions, limits, withArgument<&ScopeBase::doRm>, never},
    {"mkdir", 1, noOptions, limits, withArgument<&ScopeBase::doMkdir>, never},
    {"cmdfrom", 1, noOptions, limits, withRequiredArgument<&ScopeBase::runFileOfCommand>, never},
    {"convert", 2, noOptions, limits, withTwoArguments<&ScopeBase::doConvert>, never},
    {"quit", 0, noOptions, noWords, exitShell, last},
    {"q", 0, noOptions, noWords, exitShell, never},
    {"end", 0, noOptions, noWords, withoutArguments<&ScopeBase::doEnd>, never},
    {"terminate", 0, noOptions, noWords, withoutArguments<&ScopeBase::doTerminate>, never},
    {"bt", 0, allOptions, limits, withOptions<&ScopeBase::doBt>, never},
    {"history", 1, noOptions, limitsSilently, listHistory, never},
    {"help", 0, noOptions, noWordsSilently, withoutArguments<&ScopeBase::doHelp>, byName},
    {"", 2, noOptions, none, runOther, never},
});

constexpr int codeOfNone = static_cast<int>(rows.size());

constexpr bool isOffered(const CommandRow& row) {
  return row.tab != never;
}

constexpr auto offeredCodes = [] {
  std::array<int, std::ranges::count_if(rows, isOffered) + 1> codes{};
  auto end = codes.begin();
  for (int code = 0; code < codeOfNone; ++code) {
    if (isOffered(rows[static_cast<std::size_t>(code)])) {
      *end++ = code;
    }
  }
  const auto key = [](int code) {
    const CommandRow& row = rows[static_cast<std::size_t>(code)];
    return std::pair(row.tab, std::string_view(row.name));
  };
  std::ranges::sort(codes.begin(), end, {}, key);
  *end = codeOfNone;
  return codes;
}();

}  // namespace

constinit const std::span<const CommandRow> commandTable = rows;
constinit const int noCommand = codeOfNone;
constinit const int* const completedCommands = offeredCodes.data();

int commandCode(const char* text) {
  const std::string_view expected = text;
  if (!expected.ends_with(' ')) {
    return noCommand;
  }
  const auto row =
      std::ranges::find(rows, expected.substr(0, expected.size() - 1), &CommandRow::name);
  return static_cast<int>(row - rows.begin());
}

int checkArguments(std::vector<std::string>& args, unsigned& options, unsigned maxArgs,
                   unsigned optionMask) {
  options = 0;
  std::erase_if(args, [&options](const std::string& word) {
    if (!word.starts_with('-')) {
      return false;
    }
    for (const char letter : word) {
      options |= optionBit(letter);
    }
    return true;
  });
  const bool accepted = args.size() <= maxArgs && (options & ~optionMask) == 0;
  return accepted ? result::success : result::optionError;
}

std::vector<std::string> commandCandidates(const int* codes, std::string_view head) {
  std::vector<std::string> candidates;
  for (const int* code = codes; *code != noCommand; ++code) {
    std::string candidate = commandTable[static_cast<std::size_t>(*code)].name;
    candidate += ' ';
    if (candidate.starts_with(head)) {
      candidates.push_back(std::move(candidate));
    }
  }
  return candidates;
}

}  // namespace treescope
