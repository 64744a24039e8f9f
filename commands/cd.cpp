#include <utility>

#include "model/tree_scope.h"
#include "shell/results.h"

namespace treescope {

int TreeScope::doCd(const char* path) {
  if (!connected()) {
    return connectServer(expandPath(path));
  }
  if (path == nullptr) {
    return disconnectServer();
  }
  NamedChain place;
  if (resolveChain(expandPath(path), place)) {
    changeLocation(std::move(place));
  }
  return result::success;
}

}  // namespace treescope
