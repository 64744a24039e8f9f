#include "commands/tree_scope.h"

namespace treescope {

int TreeScope::doExit() {
  const Leaving leaving(*this);
  return doDu(nullptr);
}

}  // namespace treescope
