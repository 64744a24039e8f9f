#include <cstdlib>
#include <exception>
#include <new>
#include <string>
#include <utility>

#include "shell/command_table.h"
#include "shell/results.h"
#include "shell/scope_base.h"
#include "term/standard_output.h"
#include "term/terminal_mode.h"

namespace treescope {

namespace {

/// `result::success` when `row` accepts the arguments of `command`, whose options
/// are then removed from them.
int checkAgainst(const CommandRow& row, ParsedCommand& command) {
  switch (row.check) {
    case ArgumentCheck::limits:
    case ArgumentCheck::limitsSilently:
      return checkArguments(command.args, command.options, row.maxArgs, row.optionMask);
    case ArgumentCheck::noWords:
    case ArgumentCheck::noWordsSilently:
      return command.args.empty() ? result::success : result::nothing;
    case ArgumentCheck::none:
      break;
  }
  return result::success;
}

bool isSilent(ArgumentCheck check) {
  return check == ArgumentCheck::limitsSilently || check == ArgumentCheck::noWordsSilently;
}

const CommandRow& rowOf(const std::string& word) {
  const int code = commandCode((word + ' ').c_str());
  return code == noCommand ? commandTable.back() : commandTable[static_cast<std::size_t>(code)];
}

int runCommand(ScopeBase& shell, const char* text) {
  if (*text == '$') {
    static_cast<void>(ScopeBase::runSystemCommand(text + 1));
    return result::nothing;
  }
  ParsedCommand command(text);
  if (!command.hasWord) {
    return result::nothing;
  }
  const CommandRow& row = rowOf(command.word);
  const int checked = checkAgainst(row, command);
  if (checked != result::success) {
    // The message is the same for both kinds of check, whatever their codes.
    shell.printResult(isSilent(row.check) ? result::nothing : result::optionError);
    return checked;
  }
  const int code = row.handler(shell, command);
  shell.printResult(code);
  return code;
}

/// Replaces a pointer while it exists.
class RestoredPointer {
 public:
  RestoredPointer(CommandFileRun*& pointer, CommandFileRun* value)
      : pointer_(pointer), saved_(std::exchange(pointer, value)) {}
  ~RestoredPointer() { pointer_ = saved_; }
  RestoredPointer(const RestoredPointer&) = delete;
  RestoredPointer& operator=(const RestoredPointer&) = delete;

 private:
  CommandFileRun*& pointer_;
  CommandFileRun* const saved_;
};

/// `runCommand`; an error that stopped the command is its result.
int runOrReport(ScopeBase& shell, const char* text) {
  int error = result::unknownError;
  try {
    return runCommand(shell, text);
  } catch (const std::bad_alloc&) {
    error = result::outOfMemory;
  } catch (const std::exception&) {
    error = result::unknownError;
  }
  shell.printResult(error);
  return error;
}

}  // namespace

int ScopeBase::dispatch(const char* command) {
  return dispatchFrom(nullptr, command);
}

int ScopeBase::dispatchFrom(CommandFileRun* run, const char* command) {
  const RestoredPointer outer(fileRun_, run);
  const int code = runOrReport(*this, command);
  flushToTerminal();
  return code;
}

int ScopeBase::runSystemCommand(const char* command) {
  flushOutput();
  const OriginalMode original;
  return std::system(command);
}

}  // namespace treescope
