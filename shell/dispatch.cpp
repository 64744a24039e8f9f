#include <array>
#include <exception>
#include <new>
#include <string>
#include <string_view>
#include <vector>

#include "shell/command_table.h"
#include "shell/results.h"
#include "shell/scope_base.h"
#include "shell/system_command.h"
#include "shell/words.h"

namespace treescope {

namespace {

/// One command on its way to its handler.
class Request {
 public:
  explicit Request(const char* command) : text(command) {
    splitWords(command, args);
    if (!args.empty()) {
      empty = false;
      word = args.front();
      args.erase(args.begin());
    }
  }

  /// The next argument word; null when none is left. Valid as long as this.
  const char* pop() { return next_ < args.size() ? args[next_++].c_str() : nullptr; }

  /// As it came in, untrimmed.
  const char* const text;
  /// Whether there is not even a command word; that one may be empty itself.
  bool empty = true;
  std::string word;
  std::vector<std::string> args;
  unsigned options = 0;

 private:
  std::size_t next_ = 0;
};

enum class Check {
  table,          ///< options and number of words against the command table
  tableSilently,  ///< the same, without a message
  none,           ///< every word is an argument
  noWords,        ///< any word is one too many
  noWordsSilently,
};

struct Action {
  Check check;
  int (*run)(ScopeBase& shell, Request& request);
};

template <int (ScopeBase::*handler)()>
int alone(ScopeBase& shell, Request& /*request*/) {
  return (shell.*handler)();
}

template <int (ScopeBase::*handler)(const char*)>
int withWord(ScopeBase& shell, Request& request) {
  return (shell.*handler)(request.pop());
}

template <int (ScopeBase::*handler)(const char*)>
int withRequiredWord(ScopeBase& shell, Request& request) {
  const char* word = request.pop();
  return word == nullptr ? result::optionError : (shell.*handler)(word);
}

template <int (ScopeBase::*handler)(unsigned, const char*)>
int withOptions(ScopeBase& shell, Request& request) {
  return (shell.*handler)(request.options, request.pop());
}

template <int (ScopeBase::*handler)(const char*, const char*)>
int withTwoWords(ScopeBase& shell, Request& request) {
  const char* first = request.pop();
  const char* second = request.pop();
  return first == nullptr ? result::optionError : (shell.*handler)(first, second);
}

int exitShell(ScopeBase& shell, Request& /*request*/) {
  shell.doExit();
  shell.setRunning(0);
  return result::exit;
}

int setValue(ScopeBase& shell, Request& request) {
  const char* value = request.pop();
  const char* path = request.pop();
  return value == nullptr ? result::optionError : shell.doSet(request.options, value, path);
}

int setPorts(ScopeBase& shell, Request& request) {
  const char* first = request.pop();
  const char* second = request.pop();
  const char* third = request.pop();
  if (third == nullptr) {
    return result::optionError;
  }
  shell.setPorts(first, second, third);
  return result::nothing;
}

int complete(ScopeBase& shell, Request& request) {
  if (request.args.empty()) {
    return shell.doTab(nullptr, nullptr);
  }
  std::string head = request.args.front();
  const char* lastWord = request.args.size() > 1 ? request.args.back().c_str() : nullptr;
  if (lastWord != nullptr || std::string_view(request.text).ends_with(' ')) {
    head += ' ';
  }
  return shell.doTab(head.c_str(), lastWord);
}

int history(ScopeBase& shell, Request& request) {
  return shell.printHistory((request.options & optionMore) != 0);
}

// Indexed by the command's code.
constexpr std::array<Action, commandRows - 1> actions = {{
    {Check::noWords, exitShell},
    {Check::none, complete},
    {Check::noWords, alone<&ScopeBase::printCurrentPath>},
    {Check::table, withOptions<&ScopeBase::doLs>},
    {Check::table, withWord<&ScopeBase::doCd>},
    {Check::table, setValue},
    {Check::table, setPorts},
    {Check::none, withTwoWords<&ScopeBase::doStr>},
    {Check::table, withWord<&ScopeBase::doGet>},
    {Check::table, withOptions<&ScopeBase::doEu>},
    {Check::table, withWord<&ScopeBase::doDu>},
    {Check::table, withTwoWords<&ScopeBase::doFrom>},
    {Check::table, withTwoWords<&ScopeBase::doTo>},
    {Check::table, withOptions<&ScopeBase::doCat>},
    {Check::table, withTwoWords<&ScopeBase::doCon>},
    {Check::table, withTwoWords<&ScopeBase::doDis>},
    {Check::table, withWord<&ScopeBase::doLoad>},
    {Check::table, withWord<&ScopeBase::doSave>},
    {Check::table, withTwoWords<&ScopeBase::doRn>},
    {Check::table, withWord<&ScopeBase::doRm>},
    {Check::table, withWord<&ScopeBase::doMkdir>},
    {Check::table, withRequiredWord<&ScopeBase::runCommandFile>},
    {Check::table, withTwoWords<&ScopeBase::doConvert>},
    {Check::noWords, exitShell},
    {Check::noWords, exitShell},
    {Check::noWords, alone<&ScopeBase::doEnd>},
    {Check::noWords, alone<&ScopeBase::doTerminate>},
    {Check::table, withOptions<&ScopeBase::doBt>},
    {Check::tableSilently, history},
    {Check::noWordsSilently, alone<&ScopeBase::doHelp>},
}};

/// What stops a command before its handler: the result, and whether its message
/// is printed; that need not be the result's own.
struct Refusal {
  int code;
  bool printed;
};

constexpr Refusal accepted{result::success, false};

Refusal check(Check rule, const CommandRow& row, Request& request) {
  switch (rule) {
    case Check::table:
    case Check::tableSilently:
      return {checkArguments(request.args, request.options, row.maxArgs, row.optionMask),
              rule == Check::table};
    case Check::noWords:
    case Check::noWordsSilently:
      return request.args.empty() ? accepted : Refusal{result::nothing, rule == Check::noWords};
    case Check::none:
      break;
  }
  return accepted;
}

int runKnown(ScopeBase& shell, Request& request, std::size_t code) {
  const Refusal refusal = check(actions[code].check, commandTable[code], request);
  if (refusal.code != result::success) {
    shell.printResult(refusal.printed ? result::optionError : result::nothing);
    return refusal.code;
  }
  const int outcome = actions[code].run(shell, request);
  shell.printResult(outcome);
  return outcome;
}

int runUnknown(ScopeBase& shell, Request& request) {
  if (request.text[0] == '$') {
    // The interpreter has spoken for itself.
    runSystemCommand(request.text + 1);
    return result::nothing;
  }
  const char* first = request.pop();
  const char* second = request.pop();
  const int outcome =
      first == nullptr ? result::optionError : shell.doOther(request.word.c_str(), first, second);
  shell.printResult(outcome);
  return outcome;
}

int run(ScopeBase& shell, const char* command) {
  Request request(command);
  if (request.empty) {
    return result::nothing;
  }
  const auto code = static_cast<std::size_t>(commandCode((request.word + ' ').c_str()));
  return code < actions.size() ? runKnown(shell, request, code) : runUnknown(shell, request);
}

}  // namespace

int ScopeBase::dispatch(const char* command) {
  int failure = result::unknownError;
  try {
    return run(*this, command);
  } catch (const std::bad_alloc&) {
    failure = result::outOfMemory;
  } catch (const std::exception&) {
    failure = result::unknownError;
  }
  printResult(failure);
  return failure;
}

}  // namespace treescope
