#include <utility>

#include "commands/tree_scope.h"
#include "evtsrv/event_port_manager.h"
#include "shell/results.h"
#include "shell/words.h"

namespace treescope {

int TreeScope::doCd(const char* path) {
  if (!connected()) {
    return connectServer(expandPath(path));
  }
  if (path == nullptr) {
    return disconnectServer();
  }
  NamedChain location;
  if (resolveChain(expandPath(path), location)) {
    changeLocation(std::move(location));
  }
  return result::success;
}

int TreeScope::connectServer(const std::string& name) {
  const KSTD::KThreadMutexLock held(eventPortManager_->clientMutex);
  if (!openServer(name)) {
    return result::connectError;
  }
  step();
  std::vector<std::string> path;
  splitAtSeparator(name.c_str(), path, '/');
  currentPath_ = std::move(path);
  return result::success;
}

int TreeScope::disconnectServer() {
  static_cast<void>(doDu(nullptr));
  const KSTD::KThreadMutexLock held(eventPortManager_->clientMutex);
  closeServer();
  currentPath_.clear();
  return result::success;
}

void TreeScope::changeLocation(NamedChain location) {
  const KSTD::KThreadMutexLock held(eventPortManager_->clientMutex);
  std::vector<std::string> path{currentPart()->serverName()};
  path.insert(path.end(), location.names.begin(), location.names.end());
  currentPart()->setLocation(std::move(location));
  currentPath_ = std::move(path);
}

}  // namespace treescope
