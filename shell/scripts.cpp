#include "shell/command_file.h"
#include "shell/results.h"
#include "shell/scope_base.h"
#include "shell/words.h"

namespace treescope {

namespace {

// Far from the limit of the stack.
constexpr int maxCommandFileDepth = 64;

/// Raises a depth by one while it lives.
class DepthGuard {
 public:
  explicit DepthGuard(int& depth) : depth_(depth) { ++depth_; }
  ~DepthGuard() { --depth_; }
  DepthGuard(const DepthGuard&) = delete;
  DepthGuard& operator=(const DepthGuard&) = delete;

 private:
  int& depth_;
};

// A closing quote is kept: existing command files rely on it.
void removeOpeningQuote(std::string& text) {
  trimLeft(text);
  if (!text.starts_with('"')) {
    return;
  }
  text.erase(0, text.rfind('"', 1) == 0 ? 1 : std::string::npos);
}

std::vector<std::string> commandsOf(const std::string& text) {
  std::vector<std::string> commands;
  std::size_t begin = text.find_first_not_of(' ');
  while (begin != std::string::npos) {
    const std::size_t end = text.find(';', begin);
    commands.push_back(text.substr(begin, end - begin));
    begin = end == std::string::npos ? end : text.find_first_not_of(' ', end + 1);
  }
  return commands;
}

}  // namespace

int ScopeBase::runLine(const char* line) {
  std::vector<std::string> pieces;
  splitAtSeparator(line, pieces, ';');
  for (const std::string& piece : pieces) {
    const int code = dispatch(piece.c_str());
    if (code != result::success && code != result::nothing) {
      return code;
    }
  }
  return result::success;
}

int ScopeBase::runCommandString(const char* text, int unquote) {
  std::string line = text;
  if (unquote != 0) {
    removeOpeningQuote(line);
  }
  trimRight(line);
  int code = result::nothing;
  for (const std::string& command : commandsOf(line)) {
    code = runLine(command.c_str());
    if (code != result::success) {
      break;
    }
  }
  return code;
}

int ScopeBase::runCommandFile(const char* fileName) {
  if (commandFileDepth_ == maxCommandFileDepth) {
    return result::unknownError;
  }
  const DepthGuard guard(commandFileDepth_);
  CommandFile file(fileName);
  if (!file.opened()) {
    return result::openFileError;
  }
  int code = result::nothing;
  while (!file.ended()) {
    code = runCommandString(file.nextLine().c_str(), 1);
    if (code != result::success) {
      break;
    }
  }
  return code;
}

}  // namespace treescope
