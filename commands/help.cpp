#include "commands/tree_scope.h"
#include "shell/results.h"

namespace treescope {

int TreeScope::doHelp() {
  static_cast<void>(runSystemCommand("man treescope"));
  return result::success;
}

}  // namespace treescope
