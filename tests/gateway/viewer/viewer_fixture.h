#pragma once

#include <gmock/gmock.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>
#include <utility>
#include <vector>

#include "gateway/viewer/viewer.h"
#include "tests/gateway/link/broker.h"
#include "tests/gateway/own_tmp.h"
#include "tests/gateway/viewer/fake_device.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/tree_client.h"

namespace gateway_test {

/// A viewer, a real broker, and a device that is made by hand. They share a loop on a thread of its
/// own, since clients wait for replies.
class ViewerTest : protected OwnTmp, public testing::Test {
 protected:
  explicit ViewerTest(const Broker::Options& options = {}) : broker(options) {
    device->begin();
    startViewer();
    EXPECT_TRUE(runUntil(loop, [this] { return ready_ == 1; }));
    thread_ = std::thread([this] { loop.run(); });
  }
  ~ViewerTest() override {
    run([this] {
      viewer.reset();
      device.reset();
    });
    loop.stop();
    thread_.join();
  }

  void startViewer() {
    viewer = std::make_unique<modelgate::Viewer>(loop, options("fleet"));
    viewer->start();
  }
  modelgate::ViewerOptions options(const std::string& fleet) {
    modelgate::ViewerOptions options;
    std::string error;
    options.link.broker = *modelgate::parseBroker(broker.url(), error);
    options.fleet = fleet;
    options.user = "operator";
    options.times = times;
    options.maxMirrors = maxMirrors;
    options.ready = [this] { ++ready_; };
    options.log = [this](std::string_view line, bool) {
      const std::lock_guard lock(mutex_);
      log_.emplace_back(line);
    };
    return options;
  }

  /// Calls `function` on the loop's thread, and waits for its end.
  template <typename Function>
  std::invoke_result_t<Function> run(Function function) {
    std::packaged_task<std::invoke_result_t<Function>()> task(std::move(function));
    auto result = task.get_future();
    loop.post([&task] { task(); });
    return result.get();
  }
  template <typename Condition>
  bool becomes(Condition condition) {
    return test_support::eventually([&] { return run([&] { return condition(); }); });
  }
  [[nodiscard]] std::string port(const std::string& suffix = "") const {
    return "Model_" + name + ".plant" + suffix;
  }
  [[nodiscard]] static bool isServed(const std::string& name) {
    return std::filesystem::exists("/tmp/" + name + ".fifo");
  }
  /// A mailbox is there just before its server listens.
  [[nodiscard]] static bool accepts(const std::string& name) {
    return isServed(name) &&
           test_support::TreeClient(name).connected() == ModelSrv::ModelRes_Success;
  }
  bool isOnline() {
    return test_support::eventually([this] { return accepts(port()) && !isServed(offline()); });
  }
  bool isOffline() {
    return test_support::eventually([this] { return !isServed(port()) && accepts(offline()); });
  }
  [[nodiscard]] std::string offline() const { return port("~offline"); }
  std::string stateOf(const std::string& server) {
    test_support::TreeClient client(server);
    return client.get("/_link/state");
  }
  std::size_t count(modelgate::Verb verb) {
    return run([&] {
      const auto is = [&](const auto& each) { return each.first == verb; };
      return static_cast<std::size_t>(
          std::count_if(device->requests.begin(), device->requests.end(), is));
    });
  }
  std::vector<std::string> log() {
    const std::lock_guard lock(mutex_);
    return log_;
  }

  const std::string name = test_support::uniquePortName().substr(6);
  modelgate::ViewerTimes times;
  std::size_t maxMirrors = 100;
  Broker broker;
  modelgate::EventLoop loop;
  std::unique_ptr<FakeDevice> device = std::make_unique<FakeDevice>(loop, broker.url(), name);
  std::unique_ptr<modelgate::Viewer> viewer;

 private:
  std::atomic<int> ready_{0};
  std::mutex mutex_;
  std::vector<std::string> log_;
  std::thread thread_;
};

/// `Model_fleet` is one name for all viewers of a machine.
class FleetOfViewer : public ViewerTest {
 protected:
  void SetUp() override {
    if (!isOwn) {
      GTEST_SKIP()
          << "only root has mounts of its own: the viewer of another test may have the name";
    }
  }
};

}  // namespace gateway_test
