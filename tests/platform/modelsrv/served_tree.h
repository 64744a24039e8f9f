#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <functional>
#include <optional>
#include <string>
#include <thread>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "tests/platform/modelsrv/test_client.h"
#include "tests/support/port_name.h"

/// A server in the process of the test, for clients that connect over real pipes.
namespace modelsrv_tests {

/// Pumps a manager on a thread of its own.
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

/// Publishes the node /drive with the parts speed, label, gains, serial, offset, secret and one
/// without a name.
class Server {
 public:
  /// `prepare` changes the tree before it is published.
  explicit Server(const std::string& name, const std::function<void(Server&)>& prepare = {}) {
    for (ModelSrv::ModelPart* part : std::initializer_list<ModelSrv::ModelPart*>{
             &speed, &label, &gains, &serial, &offset, &secret, &unnamed}) {
      EXPECT_EQ(drive.add(part), ModelSrv::ModelRes_Success);
    }
    EXPECT_EQ(root.add(&drive), ModelSrv::ModelRes_Success);
    secret.setSubscribable(false);
    if (prepare) {
      prepare(*this);
    }
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
  /// Reset: the server hangs.
  std::optional<Pump> pump;
};

inline const Chain driveChain{1};
inline const Chain speedChain{1, 1};
inline const Chain labelChain{1, 2};
inline const Chain gainsChain{1, 3};
inline const Chain secretChain{1, 7};

}  // namespace modelsrv_tests
