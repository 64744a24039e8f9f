#include "bindings/c/source/client.h"

#include <sstream>

#include "bindings/c/source/call.h"
#include "bindings/c/source/number_text.h"

namespace treescope_c {

using KSTD::KThreadMutexLock;
using ModelSrv::ModelRes;

namespace {

/// How often a list of children is requested until ids and names are of the same moment.
constexpr int listAttempts = 16;

}  // namespace

unsigned Client::Root::receiveModelEvent(const char* sender, unsigned type,
                                         EvtSrv::MemoryHolder* data, EvtSrv::MemoryHolder* reply) {
  if (type == EvtTyp_Model_Lost) {
    client_.report(TREESCOPE_LOST);
  } else if (type == EvtTyp_Model_Restored) {
    client_.report(TREESCOPE_RESTORED);
  }
  return receiveMain(sender, type, data, reply);
}

ModelSrv::ModelPartId Client::Proxy::getId() {
  if (chain.empty()) {
    return 0;
  }
  const ModelSrv::ModelPartId id = chain.back();
  chain.pop_back();
  return id;
}

ModelSrv::ModelPart* Client::Proxy::getParentNode() {
  return chain.empty() ? static_cast<ModelPart*>(&root_) : this;
}

ModelRes Client::connect(const std::string& name) {
  const ModelRes result = root_.add(&proxy_);
  return result == ModelSrv::ModelRes_Success
             ? root_.startAsClient(name, ModelSrv::ModelRoot::CachePeriod_Stop,
                                   EvtSrv::ConBehave_Default)
             : result;
}

void Client::close() {
  {
    const KThreadMutexLock lock(loop.manager.clientMutex);
    closed_ = true;
    for (const HandleTable::Handle watch : std::exchange(watches_, {})) {
      HandleTable::instance().remove(watch);
    }
    root_.stop(true);
  }
  loop.close();
}

ModelRes Client::startWatch(const Path& path, const ModelSrv::WatchOptions& options,
                            ModelSrv::Watch::Callback callback, ModelSrv::Watch& watch,
                            HandleTable::Handle handle) {
  return about(path, [&](ModelSrv::ModelPart& /*part*/, const IdChain& chain) {
    // First: without memory for it no watch must be active that the program does not know.
    watches_.insert(handle);
    const ModelRes result = watch.start(root_, chain, options, std::move(callback));
    if (result != ModelSrv::ModelRes_Success) {
      watches_.erase(handle);
    }
    return result;
  });
}

void Client::removeWatch(HandleTable::Handle handle) {
  const KThreadMutexLock lock(loop.manager.clientMutex);
  watches_.erase(handle);
}

void Client::setEventHandler(EventHandler handler, void* context) {
  const KThreadMutexLock lock(loop.manager.clientMutex);
  handler_ = handler;
  context_ = context;
}

void Client::report(treescope_event event) {
  if (handler_ != nullptr && !closed_) {
    const CallbackScope scope(loop);
    handler_(context_, event);
  }
}

ModelSrv::ModelPart& Client::at(const IdChain& chain) {
  if (chain.empty()) {
    return root_;
  }
  proxy_.chain = chain;
  return proxy_;
}

ModelRes Client::children(const IdChain& chain, IdChain& ids, std::vector<std::string>& names) {
  IdChain before;
  for (int attempt = 0; attempt < listAttempts; ++attempt) {
    ModelRes result = root_.getChildIdsFromServer(&at(chain), before);
    if (result == ModelSrv::ModelRes_Success) {
      result = root_.getChildNamesFromServer(&at(chain), names);
    }
    if (result == ModelSrv::ModelRes_Success) {
      result = root_.getChildIdsFromServer(&at(chain), ids);
    }
    if (result != ModelSrv::ModelRes_Success || (ids == before && ids.size() == names.size())) {
      return result;
    }
  }
  return ModelSrv::ModelRes_Protocol;
}

ModelRes Client::findChild(const IdChain& chain, std::string_view name, ModelSrv::ModelPartId& id) {
  IdChain ids;
  std::vector<std::string> names;
  const ModelRes result = children(chain, ids, names);
  if (result != ModelSrv::ModelRes_Success) {
    return result;
  }
  for (std::size_t i = 0; i < names.size(); ++i) {
    if (names[i] == name) {
      id = ids[i];
      return ModelSrv::ModelRes_Success;
    }
  }
  return ModelSrv::ModelRes_NoSuchPart;
}

ModelRes Client::resolve(const Path& path, IdChain& chain) {
  if (path.steps.size() > ModelSrv::ModelDepth_Max) {
    return ModelSrv::ModelRes_NoSuchPart;
  }
  const KThreadMutexLock lock(loop.manager.clientMutex);
  IdChain resolved;
  resolved.reserve(path.steps.size());
  for (const Path::Step& step : path.steps) {
    ModelSrv::ModelPartId id = step.id.value_or(0);
    const ModelRes result =
        step.id ? ModelSrv::ModelRes_Success : findChild(resolved, step.name, id);
    if (result != ModelSrv::ModelRes_Success) {
      return result;
    }
    resolved.push_back(id);
  }
  chain = std::move(resolved);
  return ModelSrv::ModelRes_Success;
}

template <typename Request>
ModelRes Client::about(const Path& path, Request request) {
  const KThreadMutexLock lock(loop.manager.clientMutex);
  if (closed_) {
    return closedResult;
  }
  IdChain chain;
  const ModelRes result = resolve(path, chain);
  return result == ModelSrv::ModelRes_Success ? request(at(chain), chain) : result;
}

ModelRes Client::read(const Path& path, std::string& text) {
  return about(path, [&](ModelSrv::ModelPart& part, const IdChain& /*chain*/) {
    std::ostringstream stream;
    const ModelRes result = part.save(stream, path.index);
    if (result == ModelSrv::ModelRes_Success) {
      text = std::move(stream).str();
    }
    return result == ModelSrv::ModelRes_DoNothing ? ModelSrv::ModelRes_NoValue : result;
  });
}

ModelRes Client::store(const Path& path, std::string_view text, bool flag, std::string& reason) {
  return about(path, [&](ModelSrv::ModelPart& part, const IdChain& chain) {
    ModelRes result = ModelSrv::ModelRes_Success;
    std::string counted;
    if (hasCountedForm(text)) {
      ModelSrv::PartDescription description;
      result = part.describe(description);
      if (path.index != ModelSrv::ModelPartIndex_All || description.elements < 2) {
        counted = countedForm(text);
      }
    }
    if (result == ModelSrv::ModelRes_Success) {
      result = at(chain).store(counted.empty() ? text : counted, flag, path.index, reason);
    }
    // A server in C++ whose store check has nothing to do does not apply the store.
    return result == ModelSrv::ModelRes_DoNothing ? ModelSrv::ModelRes_Vetoed : result;
  });
}

ModelRes Client::list(const Path& path, IdChain& ids, std::vector<std::string>& names) {
  return about(path, [&](ModelSrv::ModelPart& /*part*/, const IdChain& chain) {
    return children(chain, ids, names);
  });
}

ModelRes Client::describe(const Path& path, ModelSrv::PartDescription& description) {
  return about(path, [&](ModelSrv::ModelPart& part, const IdChain& /*chain*/) {
    return part.describe(description);
  });
}

ModelRes Client::readTree(const Path& path, const ModelSrv::TreeVisitor& visit,
                          ModelSrv::TreeReading& reading) {
  // Other threads and the visitor use `proxy_` meanwhile.
  Proxy top(root_);
  const ModelRes result = about(path, [&](ModelSrv::ModelPart& /*part*/, const IdChain& chain) {
    top.chain = chain;
    return ModelSrv::ModelRes_Success;
  });
  if (result != ModelSrv::ModelRes_Success) {
    return result;
  }
  return top.chain.empty() ? root_.readTree(&root_, visit, reading)
                           : root_.readTree(&top, visit, reading);
}

}  // namespace treescope_c
