#include "gateway/exporter/local_server.h"

#include <mutex>
#include <utility>

namespace modelgate {

using ModelSrv::ModelPartIndex;
using ModelSrv::ModelRes;

unsigned LocalServer::Root::receiveModelEvent(const char* sender, unsigned type,
                                              EvtSrv::MemoryHolder* data,
                                              EvtSrv::MemoryHolder* reply) {
  if (type == EvtTyp_Model_Lost) {
    handlers_.lost();
  } else if (type == EvtTyp_Model_Restored) {
    handlers_.restored();
  }
  return receiveMain(sender, type, data, reply);
}

ModelSrv::ModelPartId LocalServer::Target::getId() {
  const ModelSrv::ModelPartId id = rest_.back();
  rest_ = rest_.first(rest_.size() - 1);
  return id;
}

ModelSrv::ModelPart* LocalServer::Target::getParentNode() {
  return rest_.empty() ? static_cast<ModelSrv::ModelPart*>(&root_) : this;
}

LocalServer::LocalServer(Handlers handlers) : root_(&manager_, std::move(handlers)) {}

ModelSrv::ModelPart* LocalServer::at(const Chain& chain) {
  if (chain.empty()) {
    return &root_;
  }
  target_.set(chain);
  return &target_;
}

ModelRes LocalServer::connect(const std::string& port) {
  return root_.startAsClient(port, ModelSrv::ModelRoot::CachePeriod_Stop,
                             EvtSrv::ConBehave_Default);
}

void LocalServer::disconnect() {
  static_cast<void>(watch_.stop());
  root_.stop(true);
}

ModelRes LocalServer::read(const Chain& chain, ModelPartIndex index, std::string& text) {
  const std::lock_guard lock(manager_.clientMutex);
  stream_.clear();
  stream_.str({});
  const ModelRes result = at(chain)->save(stream_, index);
  if (result == ModelSrv::ModelRes_Success) {
    if (stream_.fail()) {
      return ModelSrv::ModelRes_SystemError;
    }
    text = stream_.view();
  }
  return result;
}

ModelRes LocalServer::store(const Chain& chain, std::string_view text, bool isLoader,
                            ModelPartIndex index, std::string& reason) {
  const std::lock_guard lock(manager_.clientMutex);
  return at(chain)->store(text, isLoader, index, reason);
}

ModelRes LocalServer::describe(const Chain& chain, ModelSrv::PartDescription& description) {
  const std::lock_guard lock(manager_.clientMutex);
  return at(chain)->describe(description);
}

ModelRes LocalServer::readChildIds(const Chain& chain, Chain& ids) {
  const std::lock_guard lock(manager_.clientMutex);
  return root_.getChildIdsFromServer(at(chain), ids);
}

ModelRes LocalServer::readChildNames(const Chain& chain, std::vector<std::string>& names) {
  const std::lock_guard lock(manager_.clientMutex);
  return root_.getChildNamesFromServer(at(chain), names);
}

ModelRes LocalServer::readTree(const ModelSrv::TreeVisitor& visit, ModelSrv::TreeReading& reading) {
  return root_.readTree(&root_, visit, reading);
}

ModelRes LocalServer::watch(std::uint32_t period, ModelSrv::Watch::Callback callback) {
  ModelSrv::WatchOptions options;
  options.subtree = true;
  options.period = period;
  return watch_.start(root_, {}, options, std::move(callback));
}

ModelRes LocalServer::fetch(const ModelSrv::WatchEvent& event, std::string& text) {
  return watch_.fetch(event, text);
}

bool LocalServer::dispatch(int milliseconds) {
  return manager_.receiveEvent(milliseconds) == EvtSrv::EvtRes_Success;
}

}  // namespace modelgate
