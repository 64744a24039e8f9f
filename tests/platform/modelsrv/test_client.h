#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/updates.h"
#include "tests/support/process.h"
#include "tests/support/proxy_part.h"

namespace modelsrv_tests {

using test_support::ProxyPart;
using Chain = std::vector<ModelSrv::ModelPartId>;
constexpr ModelSrv::ModelPartIndex all = ModelSrv::ModelPartIndex_All;

/// A client's root that records the events that it receives.
class ClientRoot : public ModelSrv::ModelRoot {
 public:
  using ModelRoot::ModelRoot;

  unsigned receiveModelEvent(const char* sender, unsigned type, EvtSrv::MemoryHolder* data,
                             EvtSrv::MemoryHolder* reply) override {
    senders.emplace_back(sender);
    types.push_back(type);
    ModelSrv::internal::Update update;
    if (type == EvtTyp_Model_Update && ModelSrv::internal::readUpdate(*data, update)) {
      updates.emplace_back(update.chain, update.index);
    }
    if (onEvent) {
      onEvent();
    }
    return ModelRoot::receiveModelEvent(sender, type, data, reply);
  }

  std::vector<std::string> senders;
  std::vector<unsigned> types;
  std::vector<std::pair<Chain, ModelSrv::ModelPartIndex>> updates;
  std::function<void()> onEvent;
};

/// A client with a manager of its own. It names parts by their id chains; an empty chain is the
/// root.
class Client {
 public:
  Client() { EXPECT_EQ(root.add(&part), ModelSrv::ModelRes_Success); }

  ModelSrv::ModelRes connect(const std::string& name) {
    return root.startAsClient(name, ModelSrv::ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Void);
  }

  ModelSrv::ModelRes childIds(const Chain& chain, std::vector<unsigned short>& ids) {
    return root.getChildIdsFromServer(&at(chain), ids);
  }

  ModelSrv::ModelRes childNames(const Chain& chain, std::vector<std::string>& names) {
    return root.getChildNamesFromServer(&at(chain), names);
  }

  ModelSrv::ModelRes elementSum(const Chain& chain, unsigned short& sum) {
    return root.getElementSumFromServer(&at(chain), sum);
  }

  ModelSrv::ModelRes elementNames(const Chain& chain, std::vector<std::string>& names) {
    return root.getElementNamesFromServer(&at(chain), names);
  }

  ModelSrv::ModelRes load(const Chain& chain, const std::string& text, bool flag = false,
                          ModelSrv::ModelPartIndex index = all) {
    std::istringstream stream(text);
    return at(chain).load(stream, flag, index);
  }

  ModelSrv::ModelRes save(const Chain& chain, std::string& text,
                          ModelSrv::ModelPartIndex index = all) {
    std::ostringstream stream;
    const ModelSrv::ModelRes result = at(chain).save(stream, index);
    text = stream.str();
    return result;
  }

  /// The value's text, or "?" if the request fails.
  std::string text(const Chain& chain, ModelSrv::ModelPartIndex index = all) {
    std::string value;
    return save(chain, value, index) == ModelSrv::ModelRes_Success ? value : "?";
  }

  ModelSrv::ModelRes subscribe(const Chain& chain, ModelSrv::ModelPartIndex index = all,
                               void* context = nullptr) {
    return part.at(chain).subscribeToServer(&root, 0, context, index);
  }

  ModelSrv::ModelRes unsubscribe(const Chain& chain) {
    return part.at(chain).unsubscribeToServer(&root);
  }

  /// Dispatches events until `done()` is true; false if no event arrives in time.
  bool pumpUntil(const std::function<bool()>& done) {
    while (!done()) {
      if (manager.receiveEvent(test_support::timeoutMilliseconds) != EvtSrv::EvtRes_Success) {
        return false;
      }
    }
    return true;
  }

  /// Dispatches every event that the server has written so far.
  void pumpAll() {
    while (manager.receiveEvent(0) == EvtSrv::EvtRes_Success) {
    }
  }

  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, true};
  ClientRoot root{&manager};
  ProxyPart part{root};

 private:
  ModelSrv::ModelPart& at(const Chain& chain) {
    return chain.empty() ? static_cast<ModelSrv::ModelPart&>(root) : part.at(chain);
  }
};

}  // namespace modelsrv_tests
