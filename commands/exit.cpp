#include "commands/tree_scope.h"

namespace treescope {

int TreeScope::doExit() {
  if (connected()) {
    endConnection();
  }
  return doDu(nullptr);
}

}  // namespace treescope
