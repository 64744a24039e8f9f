#include <algorithm>
#include <cstring>
#include <utility>

#include "shell/command_table.h"
#include "shell/scope_base.h"
#include "term/column_listing.h"
#include "term/line_buffer.h"

namespace treescope {

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
  for (std::string& candidate : candidates) {
    // A line ends at a zero byte, and so does what can be inserted into it.
    candidate.resize(std::strlen(candidate.c_str()));
  }
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
