#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/source/updates.h"
#include "modelsrv/value_parts.h"
#include "tests/platform/modelsrv/proxy_part.h"
#include "tests/support/port_name.h"

/// A server and clients of it in one process, each with a manager of its own and
/// real pipes between them.
namespace modelsrv_tests {

using Chain = std::vector<ModelSrv::ModelPartId>;
constexpr ModelSrv::ModelPartIndex all = ModelSrv::ModelPartIndex_All;

/// Pumps a manager on a thread of its own while it lives.
class Pump {
 public:
  explicit Pump(EvtSrv::EventPortManager& manager)
      : manager_(manager), thread_([this] {
          while (running_.load()) {
            static_cast<void>(manager_.receiveEvent(-1));
          }
        }) {}
  ~Pump() {
    running_ = false;
    manager_.wake();
    thread_.join();
  }
  Pump(const Pump&) = delete;
  Pump& operator=(const Pump&) = delete;

 private:
  EvtSrv::EventPortManager& manager_;
  std::atomic<bool> running_{true};
  std::thread thread_;
};

/// Publishes /drive/{speed,label,gains,serial,offset,secret,}.
class Server {
 public:
  explicit Server(const std::string& name) {
    for (ModelSrv::ModelPart* part : std::initializer_list<ModelSrv::ModelPart*>{
             &speed, &label, &gains, &serial, &offset, &secret, &unnamed}) {
      EXPECT_EQ(drive.add(part), ModelSrv::ModelRes_Success);
    }
    EXPECT_EQ(root.add(&drive), ModelSrv::ModelRes_Success);
    secret.setSubscribable(false);
    EXPECT_EQ(root.startAsServer(name), ModelSrv::ModelRes_Success);
    pump.emplace(manager);
  }

  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, true};
  ModelSrv::ModelRoot root{&manager};
  ModelSrv::ModelNode drive{1, "drive"};
  ModelSrv::ValuePart<std::int32_t> speed{1, "speed", 42};
  ModelSrv::ValuePart<std::string> label{2, "label", "two words"};
  ModelSrv::ArrayPart<double> gains{3, "gains", {1.5, 0.25}, {"p", "i"}};
  ModelSrv::ValuePart<std::string> serial{5, "serial", "A-17", ModelSrv::ModelPartStatus_ReadOnly};
  ModelSrv::ValuePart<float> offset{6, "offset", 0, ModelSrv::ModelPartStatus_Protected};
  ModelSrv::ValuePart<bool> secret{7, "secret"};
  ModelSrv::ValuePart<std::uint16_t> unnamed{12, "", 7};
  /// Nothing: the server hangs.
  std::optional<Pump> pump;
};

inline const Chain speedChain{1, 1};
inline const Chain labelChain{1, 2};
inline const Chain gainsChain{1, 3};
inline const Chain secretChain{1, 7};

/// A client's root that keeps the events that reach it.
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

class Client {
 public:
  Client() { EXPECT_EQ(root.add(&part), ModelSrv::ModelRes_Success); }

  ModelSrv::ModelRes connect(const std::string& name) {
    return root.startAsClient(name, ModelSrv::ModelRoot::CachePeriod_Stop, EvtSrv::ConBehave_Void);
  }

  ModelSrv::ModelRes load(const Chain& chain, const std::string& text, bool flag = false,
                          ModelSrv::ModelPartIndex index = all) {
    std::istringstream stream(text);
    return part.at(chain).load(stream, flag, index);
  }

  ModelSrv::ModelRes save(const Chain& chain, std::string& text,
                          ModelSrv::ModelPartIndex index = all) {
    std::ostringstream stream;
    const ModelSrv::ModelRes result = part.at(chain).save(stream, index);
    text = stream.str();
    return result;
  }

  /// The value's text, "?" where it cannot be had.
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

  /// Dispatches events until `done`; false where they end before.
  bool pumpUntil(const std::function<bool()>& done) {
    constexpr int timeout = 20000;
    while (!done()) {
      if (manager.receiveEvent(timeout) != EvtSrv::EvtRes_Success) {
        return false;
      }
    }
    return true;
  }

  /// Takes every event that the server has written up to now.
  void pumpAll() {
    while (manager.receiveEvent(0) == EvtSrv::EvtRes_Success) {
    }
  }

  EvtSrv::EventPortManager manager{EvtSrv::ConBehave_Default, true};
  ClientRoot root{&manager};
  ProxyPart part{root};
};

}  // namespace modelsrv_tests
