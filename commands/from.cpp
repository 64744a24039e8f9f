#include "commands/tree_scope.h"
#include "shell/results.h"

namespace treescope {

int TreeScope::doFrom(const char* file, const char* /*unused*/) {
  if (!connected()) {
    return result::nothing;
  }
  return runFileOfCommand(file == nullptr ? "" : file);
}

}  // namespace treescope
