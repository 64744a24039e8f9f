#include "modelsrv/model_root.h"

#include <utility>

#include "evtsrv/source/manager_core.h"
#include "modelsrv/source/client_side.h"
#include "modelsrv/source/id_chain.h"
#include "modelsrv/source/out_of_memory.h"
#include "modelsrv/source/port_result.h"
#include "modelsrv/source/server_side.h"
#include "modelsrv/source/sleeping_subscriptions.h"
#include "modelsrv/source/tree_reader.h"
#include "modelsrv/source/updates.h"
#include "modelsrv/source/watch_registry.h"

namespace ModelSrv {

using internal::ChainView;
using ClientLock = KSTD::KThreadMutexLock;

ModelRoot::ModelRoot(EvtSrv::EventPortManager* manager)
    : EventPort(manager),
      sleepingSessions_(std::make_shared<internal::SleepingSessions>()),
      watchRegistry_(std::make_shared<internal::WatchRegistry>(
          manager->core(), static_cast<std::uint64_t>(manager->core().system().realTimeNs()))) {
  treeManager_.store(manager, std::memory_order_release);
}

ModelRoot::~ModelRoot() {
  const ClientLock lock(manager()->clientMutex);
  server_.reset();
  if (client_ != nullptr) {
    client_->close();
  }
  releaseChildren();
  client_.reset();
}

ModelRes ModelRoot::startAsClient(const std::string& name, int cachePeriod,
                                  unsigned /*behaviour*/) {
  if (cachePeriod != CachePeriod_Stop) {
    return ModelRes_BadArgument;
  }
  const ClientLock lock(manager()->clientMutex);
  if (server_ != nullptr && !server_->hasStopped()) {
    return ModelRes_Busy;
  }
  server_.reset();
  return internal::withMemoryResult([&] {
    if (client_ == nullptr) {
      client_ = std::make_unique<internal::ClientSide>(*this);
    }
    return client_->connect(name);
  });
}

std::optional<uid_t> ModelRoot::serverOwner() {
  const ClientLock lock(manager()->clientMutex);
  return client_ != nullptr ? client_->serverOwner() : std::nullopt;
}

ModelRes ModelRoot::startAsServer(const std::string& name, const ServerOptions& options) {
  const ClientLock lock(manager()->clientMutex);
  if (client_ != nullptr || (server_ != nullptr && !server_->hasStopped())) {
    return ModelRes_Busy;
  }
  if (options.group == static_cast<gid_t>(-1)) {
    // For chown(2) it means the group that a file has.
    return ModelRes_BadArgument;
  }
  const ModelRes result = internal::withMemoryResult([&] {
    server_ = std::make_unique<internal::ServerSide>(*this);
    return internal::fromPort(server_->start(name, options));
  });
  if (result != ModelRes_Success) {
    server_.reset();
  }
  return result;
}

void ModelRoot::stop(bool atOnce) {
  const ClientLock lock(manager()->clientMutex);
  if (client_ != nullptr) {
    client_->close();
  }
  if (server_ != nullptr && !atOnce) {
    server_->beginStop();
  } else {
    server_.reset();
  }
}

template <typename Send>
ModelRes ModelRoot::request(ModelPart* part, Send send) {
  const ClientLock lock(manager()->clientMutex);
  if (part == nullptr) {
    return ModelRes_BadArgument;
  }
  return internal::withMemoryResult([&] {
    const internal::ResolvedChain resolved(*part);
    if (resolved.root() != this) {
      return ModelRes_BadArgument;
    }
    return client_ != nullptr ? send(resolved.chain()) : ModelRes_NotConnected;
  });
}

ModelRes ModelRoot::getChildIdsFromServer(ModelPart* part, std::vector<unsigned short>& ids) {
  return request(part, [&](ChainView chain) { return client_->childIds(chain, ids); });
}

ModelRes ModelRoot::getChildNamesFromServer(ModelPart* part, std::vector<std::string>& names) {
  return request(part, [&](ChainView chain) { return client_->childNames(chain, names); });
}

ModelRes ModelRoot::getElementSumFromServer(ModelPart* part, unsigned short& sum) {
  return request(part, [&](ChainView chain) { return client_->elementSum(chain, sum); });
}

ModelRes ModelRoot::getElementNamesFromServer(ModelPart* part, std::vector<std::string>& names) {
  return request(part, [&](ChainView chain) { return client_->elementNames(chain, names); });
}

ModelRes ModelRoot::getTextFromServer(ModelPart* part, ModelPartIndex index, std::string& text) {
  return request(part, [&](ChainView chain) { return client_->save(chain, text, index); });
}

ModelRes ModelRoot::readTree(ModelPart* part, const TreeVisitor& visit, TreeReading& reading) {
  reading = {};
  if (!visit) {
    return ModelRes_BadArgument;
  }
  std::vector<ModelPartId> chain;
  const ModelRes result = request(part, [&chain](ChainView resolved) {
    chain.assign(resolved.begin(), resolved.end());
    return ModelRes_Success;
  });
  if (result != ModelRes_Success) {
    return result;
  }
  // Not of one exchange: the visitor runs without the client mutex.
  return internal::TreeReader(*this, std::move(chain), visit).read(reading);
}

ModelRes ModelRoot::readTree(ModelPart* part, const TreeVisitor& visit) {
  TreeReading reading;
  return readTree(part, visit, reading);
}

unsigned ModelRoot::receiveMain(const char* /*sender*/, unsigned type, EvtSrv::MemoryHolder* data,
                                EvtSrv::MemoryHolder* /*reply*/) {
  if (type != EvtTyp_Model_Update) {
    return EvtSrv::EvtRes_Success;
  }
  internal::Update update;
  if (data == nullptr || !internal::readUpdate(*data, update)) {
    return EvtSrv::EvtRes_Protocol;
  }
  const ClientLock lock(manager()->clientMutex);
  if (client_ != nullptr) {
    client_->dispatch(update);
  }
  return EvtSrv::EvtRes_Success;
}

EvtSrv::EvtRes ModelRoot::finishActiveTerm(int milliseconds) {
  {
    const ClientLock lock(manager()->clientMutex);
    if (server_ == nullptr || !server_->isStopping()) {
      return EvtSrv::EvtRes_Success;
    }
  }
  return manager()->finishActiveTerm(milliseconds);
}

unsigned ModelRoot::receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                                      EvtSrv::MemoryHolder* reply) {
  return receiveMain(sender, type, data, reply);
}

}  // namespace ModelSrv
