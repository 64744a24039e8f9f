#include <utility>

#include "commands/target_address.h"
#include "commands/tree_scope.h"
#include "commands/value_text.h"
#include "shell/results.h"

namespace treescope {

int TreeScope::doGet(const char* path) {
  if (!connected()) {
    return result::nothing;
  }
  Target target = addressTarget(*this, expandPath(path));
  if (target.error != TargetError::none) {
    return result::nothing;
  }
  std::string value;
  readValue(target.chain.ids, ElementIndexText{target.indexText}, value, true);
  const std::string line = valueLine(std::move(target.chain.names), target.indexText, value);
  printer_.printLineReset({0, 0, line.c_str()}, true, false);
  return result::success;
}

}  // namespace treescope
