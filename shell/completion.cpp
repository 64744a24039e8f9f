#include "shell/completion.h"

#include <algorithm>
#include <utility>

#include "shell/scope_base.h"
#include "term/column_listing.h"
#include "term/line_buffer.h"

namespace treescope {

const std::array<int, 14> completedCommands = {
    commandCode("cat "),  commandCode("cd "),
    commandCode("du "),   commandCode("eu "),
    commandCode("exit "), commandCode("from "),
    commandCode("get "),  commandCode("help "),
    commandCode("ls "),   commandCode("set "),
    commandCode("str "),  commandCode("to "),
    commandCode("quit "), noCommand,
};

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

bool ScopeBase::completeCommandWord(const int* codes, const char* head) {
  const std::string_view typed = head == nullptr ? "" : head;
  std::vector<std::string> candidates = commandCandidates(codes, typed);
  if (std::find(candidates.begin(), candidates.end(), typed) != candidates.end()) {
    return true;
  }
  presentLineCandidates(std::move(candidates));
  return false;
}

void ScopeBase::presentCandidates(std::vector<std::string> candidates) {
  if (candidates.size() > 1) {
    presentSeveral(candidates);
    return;
  }
  showPrompt();
  if (!candidates.empty()) {
    std::string& only = candidates.front();
    if (only == "..") {
      only += '/';
    }
    lineEditor_.replaceLastWord(only);
  }
}

void ScopeBase::presentLineCandidates(std::vector<std::string> candidates) {
  if (candidates.size() > 1) {
    presentSeveral(candidates);
    return;
  }
  if (!candidates.empty()) {
    lineEditor_.setLine(std::move(candidates.front()));
  }
  showPrompt();
}

void ScopeBase::presentSeveral(const std::vector<std::string>& candidates) {
  printColumns(printer_, candidates, true, false);
  showPrompt();
  lineEditor_.replaceLastWord(commonPrefix(candidates));
}

}  // namespace treescope
