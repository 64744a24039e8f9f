#include "model/model_client.h"

#include <algorithm>
#include <ctime>
#include <utility>

#include "evtsrv/event_port_manager.h"
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

DerivedModelRoot::~DerivedModelRoot() = default;

unsigned DerivedModelRoot::receiveModelEvent(const char* /*sender*/, unsigned /*type*/,
                                             EvtSrv::MemoryHolder* /*data*/,
                                             EvtSrv::MemoryHolder* /*reply*/) {
  return EvtSrv::EvtRes_Success;
}

ModelClient::ModelClient(EvtSrv::EventPortManager* manager)
    : DerivedModelRoot(manager), clientMutex_(manager->clientMutex) {}

ModelClient::~ModelClient() = default;

bool ModelClient::openServer(const std::string& name) {
  const KSTD::KThreadMutexLock held(clientMutex_);
  if (startAsClient(name, CachePeriod_Stop, EvtSrv::ConBehave_Void) != ModelSrv::ModelRes_Success) {
    return false;
  }
  auto part = std::make_unique<DerivedModelPart>(this, name);
  if (add(part.get()) != ModelSrv::ModelRes_Success) {
    return false;
  }
  currentPart_ = std::move(part);
  return true;
}

void ModelClient::closeServer() {
  const KSTD::KThreadMutexLock held(clientMutex_);
  if (!mayRequest()) {
    // Else the server would have the time of another request for the subscriptions that are left.
    stop(true);
  }
  currentPart_.reset();
}

std::int64_t ModelClient::nowMs() {
  timespec time{};
  static_cast<void>(clock_gettime(CLOCK_MONOTONIC_COARSE, &time));
  constexpr std::int64_t perSecond = 1000;
  constexpr std::int64_t nanoseconds = 1'000'000;
  return time.tv_sec * perSecond + time.tv_nsec / nanoseconds;
}

bool ModelClient::mayRequest() const {
  if (const std::int64_t end = leaveEnd_; end != 0) {
    const bool displaysUpdate = requestsEnd_ != 0;
    return connected() && !displaysUpdate && nowMs() < end;
  }
  return connected() && (requestsEnd_ == 0 || nowMs() < requestsEnd_);
}

ModelSrv::ModelPart* ModelClient::target(const IdChain& chain) {
  currentPart_->setTarget(chain);
  return currentPart_.get();
}

ModelSrv::ModelPart* ModelClient::childrenTarget(const IdChain& chain) {
  if (chain.empty()) {
    return this;
  }
  return target(chain);
}

bool ModelClient::fetchChildIds(const IdChain& chain, std::vector<std::uint16_t>& ids, bool lock) {
  const RequestLock held(clientMutex_, lock);
  return mayRequest() &&
         getChildIdsFromServer(childrenTarget(chain), ids) == ModelSrv::ModelRes_Success;
}

bool ModelClient::fetchChildNames(const IdChain& chain, std::vector<std::string>& names,
                                  bool lock) {
  const RequestLock held(clientMutex_, lock);
  return mayRequest() &&
         getChildNamesFromServer(childrenTarget(chain), names) == ModelSrv::ModelRes_Success;
}

bool ModelClient::fetchChildren(const IdChain& chain, ChildList& children, bool lock) {
  // Without `lock` the caller may be the event thread; the cache is the command thread's.
  ChildListCache* const cache = lock ? childListCache_ : nullptr;
  if (cache != nullptr) {
    if (const ChildList* cached = cache->find(chain)) {
      children = *cached;
      return true;
    }
  }
  const RequestLock held(clientMutex_, lock);
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

bool ModelClient::hasChildren(const IdChain& chain, bool lock) {
  std::vector<std::uint16_t> ids;
  return fetchChildIds(chain, ids, lock) && !ids.empty();
}

bool ModelClient::resolveChain(const std::string& text, NamedChain& reached) {
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

bool ModelClient::nameChain(const IdChain& chain, std::vector<std::string>& names, bool lock) {
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

std::vector<std::string> ModelClient::namePathOf(const IdChain& chain, bool lock) {
  std::vector<std::string> names;
  static_cast<void>(nameChain(chain, names, lock));
  return names;
}

std::vector<std::string> ModelClient::cachedNamePathOf(const IdChain& chain) {
  clientMutex_.assertHeld();
  if (const std::vector<std::string>* cached = currentPart_->cachedNames(chain)) {
    return *cached;
  }
  std::vector<std::string> names;
  if (nameChain(chain, names, false)) {
    currentPart_->cacheNames(chain, names);
  }
  return names;
}

std::uint16_t ModelClient::elementSum(const IdChain& chain, bool lock) {
  const RequestLock held(clientMutex_, lock);
  unsigned short sum = 0;
  if (!mayRequest() || getElementSumFromServer(target(chain), sum) != ModelSrv::ModelRes_Success) {
    return 0;
  }
  return sum;
}

int ModelClient::fetchElementNames(const IdChain& chain, std::vector<std::string>& names,
                                   bool lock) {
  const RequestLock held(clientMutex_, lock);
  std::vector<std::string> fetched;
  if (!mayRequest() ||
      getElementNamesFromServer(target(chain), fetched) != ModelSrv::ModelRes_Success) {
    return result::connectError;
  }
  if (fetched.empty()) {
    return result::nothing;
  }
  names = std::move(fetched);
  return result::success;
}

int ModelClient::findElementIndex(const IdChain& chain, const std::string& name,
                                  std::uint16_t& index, bool lock) {
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

void ModelClient::readText(const IdChain& chain, std::string& text, std::uint16_t index,
                           bool lock) {
  const RequestLock held(clientMutex_, lock);
  // Constructing a stream takes longer than reading a value.
  valueStream_.clear();
  valueStream_.str({});
  if (!mayRequest() || target(chain)->save(valueStream_, index) != ModelSrv::ModelRes_Success ||
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

void ModelClient::readValueText(const IdChain& chain, std::string& text, bool lock) {
  readText(chain, text, ModelSrv::ModelPartIndex_All, lock);
}

void ModelClient::readElementText(const IdChain& chain, std::string& text, std::uint16_t index,
                                  bool lock) {
  readText(chain, text, index, lock);
}

void ModelClient::readValue(const IdChain& chain, const ElementIndexText& element,
                            std::string& text, bool lock) {
  if (!element.text.empty() && elementSum(chain, lock) != 0) {
    readElementText(chain, text, elementIndex(element), lock);
  } else {
    readValueText(chain, text, lock);
  }
}

void ModelClient::loadText(const IdChain& chain, const std::string& text, bool flag,
                           std::uint16_t index) {
  const KSTD::KThreadMutexLock held(clientMutex_);
  if (!connected()) {
    return;
  }
  std::istringstream stream(text);
  // The commands show the result of the store by reading the value back.
  static_cast<void>(target(chain)->load(stream, flag, index));
}

int ModelClient::writeValue(const IdChain& chain, const ElementName& element,
                            const std::string& text, bool flag) {
  std::uint16_t index = ModelSrv::ModelPartIndex_All;
  if (elementSum(chain, true) != 0 && !element.text.empty() &&
      findElementIndex(chain, element.text, index, true) != result::success) {
    return result::nothing;
  }
  loadText(chain, text, flag, index);
  return result::success;
}

int ModelClient::writeValue(const IdChain& chain, const ElementIndexText& element,
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

int ModelClient::subscribePath(const IdChain& chain) {
  const KSTD::KThreadMutexLock held(clientMutex_);
  if (connected() && !currentPart_->hasSpaceFor(chain)) {
    return result::outOfMemory;
  }
  if (!connected() ||
      target(chain)->subscribeToServer(this, 0, nullptr, ModelSrv::ModelPartIndex_All) !=
          ModelSrv::ModelRes_Success) {
    return result::unknownError;
  }
  currentPart_->addSubscription(chain);
  return result::success;
}

bool ModelClient::unsubscribePath(const IdChain& chain) {
  const KSTD::KThreadMutexLock held(clientMutex_);
  if (!mayRequest() || target(chain)->unsubscribeToServer(this) != ModelSrv::ModelRes_Success) {
    return false;
  }
  currentPart_->removeSubscription(chain);
  return true;
}

}  // namespace treescope
