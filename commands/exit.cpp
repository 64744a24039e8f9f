#include "commands/tree_scope.h"

namespace treescope {

int TreeScope::doExit() {
  return doDu(nullptr);
}

}  // namespace treescope
