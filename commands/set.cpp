#include <string>

#include "commands/target_address.h"
#include "commands/tree_scope.h"
#include "shell/command_table.h"
#include "shell/options.h"
#include "shell/results.h"

namespace treescope {

int TreeScope::doSet(unsigned options, const char* value, const char* path) {
  if (!connected()) {
    return result::nothing;
  }
  const bool loaderFlag = forceLoadFlag.load() || (options & optionLong) != 0;
  const std::string expanded = expandPath(path);
  const Target target = addressTarget(*this, expanded);
  if (target.error != TargetError::none) {
    return result::nothing;
  }
  const int code = writeValue(target.chain.ids, ElementIndexText{target.indexText},
                              value == nullptr ? "" : value, loaderFlag);
  if (code != result::success) {
    return code;
  }
  // Inside a part the element is shown by its index, which `get` resolves from the
  // current directory.
  const bool byElement = target.parentIsPart && !target.indexText.empty();
  const std::string shownPath = byElement ? '[' + target.indexText + ']' : expanded;
  return doGet(shownPath.c_str());
}

int TreeScope::doStr(const char* text, const char* path) {
  const std::string content = text == nullptr ? "" : text;
  const std::string counted = std::to_string(content.size()) + '\n' + content;
  return doSet(0, counted.c_str(), path);
}

}  // namespace treescope
