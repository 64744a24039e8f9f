#include <algorithm>
#include <cstring>
#include <utility>

#include "shell/command_table.h"
#include "shell/scope_base.h"
#include "term/column_listing.h"
#include "term/line_buffer.h"
#include "term/shown_text.h"

namespace treescope {

namespace {

/// Cuts a name before what would end the command, or act on the terminal, in the line.
void cutToInsertable(std::string& name) {
  const auto acts = [](char c) { return c == ';' || c == '\t' || c == '\n'; };
  name.erase(findControl(name));
  name.erase(std::find_if(name.begin(), name.end(), acts), name.end());
}

}  // namespace

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
    presentSeveral(std::move(candidates));
    return;
  }
  showPrompt();
  if (!candidates.empty()) {
    std::string& only = candidates.front();
    cutToInsertable(only);
    if (only == "..") {
      only += '/';
    }
    lineEditor_.replaceLastWord(only);
  }
}

void ScopeBase::presentLineCandidates(std::vector<std::string> candidates) {
  if (candidates.size() > 1) {
    presentSeveral(std::move(candidates));
    return;
  }
  if (!candidates.empty()) {
    lineEditor_.setLine(std::move(candidates.front()));
  }
  showPrompt();
}

void ScopeBase::presentSeveral(std::vector<std::string> candidates) {
  printColumns(printer_, candidates, true, false);
  showPrompt();
  std::for_each(candidates.begin(), candidates.end(), cutToInsertable);
  lineEditor_.replaceLastWord(commonPrefix(candidates));
}

}  // namespace treescope
