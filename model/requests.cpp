#include <algorithm>
#include <sstream>
#include <utility>

#include "model/tree_scope.h"
#include "shell/results.h"
#include "shell/words.h"

namespace treescope {

namespace {

std::vector<std::string> pathComponents(const std::string& text) {
  std::vector<std::string> components;
  splitAtSeparator(text.c_str(), components, '/');
  std::erase(components, std::string());
  return components;
}

}  // namespace

TreeScope::ClientLock TreeScope::lockClient(bool lock) const {
  ClientLock held(eventPortManager_->clientMutex, std::defer_lock);
  if (lock) {
    held.lock();
  }
  return held;
}

ModelSrv::ModelPart* TreeScope::target(const IdChain& chain) {
  currentPart_->setTarget(chain);
  return currentPart_.get();
}

ModelSrv::ModelPart* TreeScope::childrenTarget(const IdChain& chain) {
  if (chain.empty()) {
    return this;
  }
  return target(chain);
}

bool TreeScope::fetchChildIds(const IdChain& chain, std::vector<std::uint16_t>& ids, bool lock) {
  const ClientLock held = lockClient(lock);
  return connected() &&
         getChildIdsFromServer(childrenTarget(chain), ids) == ModelSrv::ModelRes_Success;
}

bool TreeScope::fetchChildNames(const IdChain& chain, std::vector<std::string>& names, bool lock) {
  const ClientLock held = lockClient(lock);
  return connected() &&
         getChildNamesFromServer(childrenTarget(chain), names) == ModelSrv::ModelRes_Success;
}

bool TreeScope::fetchChildren(const IdChain& chain, ChildList& children, bool lock) {
  // The update display runs on another thread than the command that remembers.
  ChildListCache* const cache = lock ? childListCache_ : nullptr;
  if (cache != nullptr) {
    if (const ChildList* known = cache->find(chain)) {
      children = *known;
      return true;
    }
  }
  const ClientLock held = lockClient(lock);
  std::vector<std::uint16_t> ids;
  std::vector<std::string> names;
  if (!fetchChildIds(chain, ids, false) || !fetchChildNames(chain, names, false)) {
    return false;
  }
  children = ChildList(std::move(ids), std::move(names),
                       cache != nullptr ? ChildSearch::frequent : ChildSearch::rare);
  if (cache != nullptr) {
    cache->store(chain, children);
  }
  return true;
}

bool TreeScope::hasChildren(const IdChain& chain, bool lock) {
  std::vector<std::uint16_t> ids;
  return fetchChildIds(chain, ids, lock) && !ids.empty();
}

bool TreeScope::resolveChain(const std::string& text, NamedChain& reached) {
  reached = {};
  if (!connected()) {
    return false;
  }
  if (!text.starts_with('/')) {
    reached = currentPart_->location();
  }
  for (const std::string& component : pathComponents(text)) {
    if (component == "..") {
      if (reached.ids.empty()) {
        return false;
      }
      reached.removeLast();
      continue;
    }
    ChildList children;
    if (!fetchChildren(reached.ids, children, true)) {
      return false;
    }
    const auto child = children.findComponent(component);
    if (!child) {
      return false;
    }
    const std::string& served = children.servedName(*child);
    reached.append(children.id(*child), served.empty() ? component : served);
  }
  return true;
}

bool TreeScope::nameChain(const IdChain& chain, std::vector<std::string>& names, bool lock) {
  NamedChain reached;
  bool listed = true;
  for (const std::uint16_t id : chain) {
    ChildList children;
    const auto child =
        fetchChildren(reached.ids, children, lock) ? children.findId(id) : std::nullopt;
    listed = listed && child.has_value();
    reached.append(id, childName(child ? children.servedName(*child) : std::string(), id));
  }
  names = std::move(reached.names);
  return listed;
}

std::vector<std::string> TreeScope::namePathOf(const IdChain& chain, bool lock) {
  std::vector<std::string> names;
  static_cast<void>(nameChain(chain, names, lock));
  return names;
}

std::uint16_t TreeScope::elementSum(const IdChain& chain, bool lock) {
  const ClientLock held = lockClient(lock);
  unsigned short sum = 0;
  if (!connected() || getElementSumFromServer(target(chain), sum) != ModelSrv::ModelRes_Success) {
    return 0;
  }
  return sum;
}

int TreeScope::fetchElementNames(const IdChain& chain, std::vector<std::string>& names, bool lock) {
  const ClientLock held = lockClient(lock);
  std::vector<std::string> fetched;
  if (!connected() ||
      getElementNamesFromServer(target(chain), fetched) != ModelSrv::ModelRes_Success) {
    return result::connectError;
  }
  if (fetched.empty()) {
    return result::nothing;
  }
  names = std::move(fetched);
  return result::success;
}

int TreeScope::findElementIndex(const IdChain& chain, const std::string& name, std::uint16_t& index,
                                bool lock) {
  std::vector<std::string> names;
  const int code = fetchElementNames(chain, names, lock);
  if (code != result::success) {
    return code;
  }
  const auto found = std::find(names.begin(), names.end(), name);
  if (found == names.end()) {
    return result::nothing;
  }
  index = static_cast<std::uint16_t>(found - names.begin());
  return result::success;
}

void TreeScope::readText(const IdChain& chain, std::string& text, std::uint16_t index, bool lock) {
  const ClientLock held = lockClient(lock);
  // Making a stream takes longer than reading a value.
  valueStream_.clear();
  valueStream_.str({});
  if (!connected() || target(chain)->save(valueStream_, index) != ModelSrv::ModelRes_Success ||
      valueStream_.fail()) {
    return;
  }
  constexpr std::size_t shortText = 4096;
  if (valueStream_.view().size() <= shortText) {
    text = valueStream_.view();
  } else {
    text = std::move(valueStream_).str();
  }
}

void TreeScope::readValueText(const IdChain& chain, std::string& text, bool lock) {
  readText(chain, text, ModelSrv::ModelPartIndex_All, lock);
}

void TreeScope::readElementText(const IdChain& chain, std::string& text, std::uint16_t index,
                                bool lock) {
  readText(chain, text, index, lock);
}

void TreeScope::readValue(const IdChain& chain, const ElementIndexText& element, std::string& text,
                          bool lock) {
  if (!element.text.empty() && elementSum(chain, lock) != 0) {
    readElementText(chain, text, elementIndex(element), lock);
  } else {
    readValueText(chain, text, lock);
  }
}

void TreeScope::loadText(const IdChain& chain, const std::string& text, bool flag,
                         std::uint16_t index) {
  const ClientLock held = lockClient(true);
  if (!connected()) {
    return;
  }
  std::istringstream stream(text);
  // What became of the store is what the next reading shows.
  static_cast<void>(target(chain)->load(stream, flag, index));
}

int TreeScope::writeValue(const IdChain& chain, const ElementName& element, const std::string& text,
                          bool flag) {
  std::uint16_t index = ModelSrv::ModelPartIndex_All;
  if (elementSum(chain, true) != 0 && !element.text.empty() &&
      findElementIndex(chain, element.text, index, true) != result::success) {
    return result::nothing;
  }
  loadText(chain, text, flag, index);
  return result::success;
}

int TreeScope::writeValue(const IdChain& chain, const ElementIndexText& element,
                          const std::string& text, bool flag) {
  std::uint16_t index = ModelSrv::ModelPartIndex_All;
  if (elementSum(chain, true) != 0) {
    if (element.text.empty()) {
      return result::notFound;
    }
    index = elementIndex(element);
  }
  loadText(chain, text, flag, index);
  return result::success;
}

int TreeScope::subscribePath(const IdChain& chain) {
  const ClientLock held = lockClient(true);
  if (!connected() ||
      target(chain)->subscribeToServer(this, 0, nullptr, ModelSrv::ModelPartIndex_All) !=
          ModelSrv::ModelRes_Success) {
    return result::unknownError;
  }
  currentPart_->addSubscription(chain);
  return result::success;
}

bool TreeScope::unsubscribePath(const IdChain& chain) {
  const ClientLock held = lockClient(true);
  if (!connected() || target(chain)->unsubscribeToServer(this) != ModelSrv::ModelRes_Success) {
    return false;
  }
  currentPart_->removeSubscription(chain);
  return true;
}

}  // namespace treescope
