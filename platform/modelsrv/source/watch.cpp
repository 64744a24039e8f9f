#include "modelsrv/watch.h"

#include <utility>

#include "modelsrv/source/client_side.h"
#include "modelsrv/source/client_watches.h"
#include "modelsrv/source/id_chain.h"
#include "modelsrv/source/out_of_memory.h"
#include "modelsrv/source/part_access.h"

namespace ModelSrv {

using ClientLock = KSTD::KThreadMutexLock;
using internal::ClientWatch;

Watch::Watch() = default;

Watch::~Watch() {
  static_cast<void>(stop());
}

Watch::Watch(Watch&& other) noexcept = default;

Watch& Watch::operator=(Watch&& other) noexcept {
  if (this != &other) {
    static_cast<void>(stop());
    watch_ = std::move(other.watch_);
  }
  return *this;
}

ModelRes Watch::start(ModelRoot& root, std::span<const ModelPartId> chain,
                      const WatchOptions& options, Callback callback) {
  static_cast<void>(stop());
  const bool isElement = options.index != ModelPartIndex_All;
  if (!callback || (options.subtree && isElement) || chain.size() > ModelDepth_Max) {
    return ModelRes_BadArgument;
  }
  const ClientLock lock(root.manager()->clientMutex);
  internal::ClientSide* const client = internal::PartAccess::client(root);
  if (client == nullptr) {
    return ModelRes_NotConnected;
  }
  return internal::withMemoryResult([&] {
    auto watch = std::make_shared<ClientWatch>(*root.manager(),
                                               std::vector<ModelPartId>(chain.begin(), chain.end()),
                                               options, std::move(callback));
    const ModelRes result = client->startWatch(watch);
    if (result == ModelRes_Success) {
      watch_ = std::move(watch);
    }
    return result;
  });
}

ModelRes Watch::start(ModelPart& part, const WatchOptions& options, Callback callback) {
  static_cast<void>(stop());
  ModelRoot* const root = part.findRoot();
  if (root == nullptr) {
    return ModelRes_NoSuchPart;
  }
  const ClientLock lock(root->manager()->clientMutex);
  return internal::withMemoryResult([&] {
    const internal::ResolvedChain resolved(part);
    if (resolved.root() == nullptr) {
      return resolved.result();
    }
    return start(*resolved.root(), resolved.chain(), options, std::move(callback));
  });
}

ModelRes Watch::stop() {
  // The callback may be running, and may own what it was made of.
  const std::shared_ptr<ClientWatch> watch = std::exchange(watch_, nullptr);
  if (watch == nullptr) {
    return ModelRes_NotSubscribed;
  }
  const ClientLock lock(watch->manager.clientMutex);
  if (watch->client == nullptr) {
    return ModelRes_NotSubscribed;
  }
  return internal::withMemoryResult([&] { return watch->client->stopWatch(*watch); });
}

bool Watch::isActive() const {
  if (watch_ == nullptr) {
    return false;
  }
  const ClientLock lock(watch_->manager.clientMutex);
  return watch_->client != nullptr;
}

ModelRes Watch::fetch(const WatchEvent& event, std::string& text) {
  // The callback that requests this may end the watch.
  const std::shared_ptr<ClientWatch> watch = watch_;
  if (watch == nullptr) {
    return ModelRes_NotSubscribed;
  }
  const ClientLock lock(watch->manager.clientMutex);
  if (watch->client == nullptr) {
    return ModelRes_NotSubscribed;
  }
  return internal::withMemoryResult(
      [&] { return watch->client->save(event.chain, text, event.index); });
}

}  // namespace ModelSrv
