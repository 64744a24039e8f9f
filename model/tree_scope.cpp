#include "model/tree_scope.h"

#include <utility>

#include "shell/results.h"
#include "shell/words.h"

namespace treescope {

TreeScope::TreeScope(EvtSrv::EventPortManager* manager, int mode)
    : ScopeBase(manager, mode), DerivedModelRoot(manager) {}

TreeScope::~TreeScope() {
  freeTree(listingTree_);
  if (connected()) {
    static_cast<void>(disconnectServer());
  }
}

int TreeScope::connectServer(const std::string& name) {
  const ClientLock held = lockClient(true);
  if (startAsClient(name, CachePeriod_Stop, EvtSrv::ConBehave_Void) != ModelSrv::ModelRes_Success) {
    return result::connectError;
  }
  auto part = std::make_unique<DerivedModelPart>(this, name);
  if (add(part.get()) != ModelSrv::ModelRes_Success) {
    return result::connectError;
  }
  currentPart_ = std::move(part);
  step();
  std::vector<std::string> location;
  splitAtSeparator(name.c_str(), location, '/');
  currentPath_ = std::move(location);
  return result::success;
}

int TreeScope::disconnectServer() {
  static_cast<void>(doDu(nullptr));
  const ClientLock held = lockClient(true);
  currentPart_.reset();
  currentPath_.clear();
  return result::success;
}

void TreeScope::changeLocation(NamedChain location) {
  const ClientLock held = lockClient(true);
  std::vector<std::string> path{currentPart_->serverName()};
  path.insert(path.end(), location.names.begin(), location.names.end());
  currentPart_->setLocation(std::move(location));
  currentPath_ = std::move(path);
}

void TreeScope::clearListing() {
  freeTree(listingTree_);
  listingTree_ = {};
}

std::string TreeScope::expandPath(const char* path) const {
  std::string text = path == nullptr ? "" : path;
  if (connected() && text.starts_with('~')) {
    text[0] = '/';
  }
  return text;
}

}  // namespace treescope
