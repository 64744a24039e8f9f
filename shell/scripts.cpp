#include "shell/command_file_run.h"
#include "shell/results.h"
#include "shell/scope_base.h"
#include "shell/words.h"

namespace treescope {

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
  int code = result::nothing;
  for (const std::string& command : scriptCommands(text, unquote != 0)) {
    code = runLine(command.c_str());
    if (code != result::success) {
      break;
    }
  }
  return code;
}

int ScopeBase::runCommandFile(const char* fileName) {
  CommandFileRun files(*this);
  const int code = files.add(fileName);
  return code == result::success ? files.run() : code;
}

int ScopeBase::runFileOfCommand(const char* fileName) {
  return fileRun_ == nullptr ? runCommandFile(fileName) : fileRun_->add(fileName);
}

}  // namespace treescope
