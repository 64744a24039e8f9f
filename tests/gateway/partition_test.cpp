// A device, a broker and an operator's machine with networks of their own, and cables that are
// pulled out. No connection is reset then: each end finds out by itself.

#include <gmock/gmock.h>

#include <chrono>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "tests/gateway/link/broker.h"
#include "tests/gateway/network_namespace.h"
#include "tests/gateway/own_tmp.h"
#include "tests/support/model_server.h"
#include "tests/support/process.h"
#include "tests/support/tree_client.h"

namespace {

using gateway_test::Broker;
using gateway_test::NetworkNamespace;
using test_support::eventually;
using test_support::Process;
using test_support::TreeClient;
using testing::ElementsAre;
using Clock = std::chrono::steady_clock;
using Words = std::vector<std::string>;

/// Both ends are equal again by then, as doc/fleet.md states for the default times; those of these
/// tests are shorter.
constexpr std::chrono::seconds healingTime{30};

const std::string speedPath = "/drive/speed";

std::string builtProgram(const std::string& name) {
  return test_support::buildDirectory() + "/bin/" + name;
}

class Partition : protected gateway_test::OwnTmp, public testing::Test {
 protected:
  void SetUp() override {
    if (const std::string obstacle = NetworkNamespace::obstacle(); !obstacle.empty()) {
      GTEST_SKIP() << obstacle;
    }
    sites_.emplace();
    sites_->hub.connect(sites_->device, "device", 1);
    sites_->hub.connect(sites_->operators, "operators", 2);
    sites_->hub.inside([this] {
      broker_.emplace(Broker::Options{.whole = [](int port) {
        return "listener " + std::to_string(port) +
               " 0.0.0.0\nallow_anonymous true\npersistence false\nset_tcp_nodelay true\n";
      }});
      // What the device replies, also to those who have given up.
      replies_.emplace(Words{"mosquitto_sub", "-h", "127.0.0.1", "-p",
                             std::to_string(broker_->port()), "-t", "ts/1/cut/press/rsp/#"});
    });
    values_.emplace(Words{builtProgram("treectl"), "watch", "/" + server.name() + speedPath});
    ASSERT_EQ(nextValue(), "42");
  }

  /// Starts both ends, the device with this heartbeat in milliseconds, and a client of the mirror.
  void start(int heartbeat) {
    exporter = sites_->device.inside([&] {
      return startEnd({"export", "--device", "press", "--server", server.name(), "--allow-set", "/",
                       "--heartbeat", std::to_string(heartbeat), "--broker", url(1)});
    });
    viewer = sites_->operators.inside([&] { return startEnd({"view", "--broker", url(2)}); });
    ASSERT_TRUE(eventually([this] { return accepts(mirror()); }));
    client = std::make_unique<TreeClient>(mirror());
    ASSERT_EQ(client->get(speedPath), "42");
    // The clock that stores are measured by is known then.
    ASSERT_EQ(client->store("/drive/label", "connected"), ModelSrv::ModelRes_Success);
  }

  void cutDevice() { sites_->hub.cut("device"); }
  void mendDevice() { mend("device"); }
  void cutOperators() { sites_->hub.cut("operators"); }
  void mendOperators() { mend("operators"); }

  [[nodiscard]] std::string mirror(const std::string& suffix = {}) const {
    return "Model_press." + server.name().substr(6) + suffix;
  }
  [[nodiscard]] std::string offline() const { return mirror("~offline"); }
  static bool accepts(const std::string& port) {
    return TreeClient(port).connected() == ModelSrv::ModelRes_Success;
  }
  static std::string read(const std::string& port, const std::string& path) {
    return TreeClient(port).get(path);
  }
  [[nodiscard]] bool shows(const std::string& value) const {
    return eventually([&] { return read(mirror(), speedPath) == value; });
  }
  [[nodiscard]] bool isLost() const {
    return eventually([this] { return !accepts(mirror()) && accepts(offline()); });
  }
  /// That the device has got a store, too late, and that it has said so.
  bool refusesLateStore() { return replies_->waitForOutput("the request came too late"); }
  [[nodiscard]] static bool saysLost(Process& end) {
    return end.waitForOutput("no connection to the broker");
  }

  /// Stores at the device.
  void change(const std::string& value) {
    ASSERT_EQ(TreeClient(server.name()).store(speedPath, value), ModelSrv::ModelRes_Success);
  }
  /// The next value that the part at the device has had; nothing if there is none soon.
  std::string nextValue() {
    const std::string line = values_->readLine().value_or("");
    return line.substr(line.find('\t') + 1);
  }
  /// After the network has healed: a store at each end, and that these and `between` are all that
  /// the part has had since the start, each once.
  void expectHealed(const Words& between) {
    EXPECT_LT(Clock::now() - mended_, healingTime);
    TreeClient again(mirror());
    EXPECT_EQ(again.store(speedPath, "70"), ModelSrv::ModelRes_Success);
    EXPECT_EQ(read(server.name(), speedPath), "70");
    change("80");
    EXPECT_TRUE(shows("80"));
    Words seen;
    do {
      seen.push_back(nextValue());
    } while (seen.back() != "80" && seen.back() != "");
    Words expected = between;
    expected.insert(expected.end(), {"70", "80"});
    EXPECT_EQ(seen, expected);
  }

  const test_support::ModelServer server;
  std::unique_ptr<Process> exporter;
  std::unique_ptr<Process> viewer;
  std::unique_ptr<TreeClient> client;

 private:
  struct Sites {
    NetworkNamespace hub;
    NetworkNamespace device;
    NetworkNamespace operators;
  };

  [[nodiscard]] std::string url(int cable) const {
    return "mqtt://10.0." + std::to_string(cable) + ".1:" + std::to_string(broker_->port());
  }
  static std::unique_ptr<Process> startEnd(Words arguments) {
    arguments.insert(arguments.begin(), builtProgram("modelgate"));
    arguments.insert(arguments.end(), {"--fleet", "cut", "--keep-alive", "5"});
    auto process =
        std::make_unique<Process>(arguments, test_support::ProcessOptions{.mergeErrors = true});
    EXPECT_TRUE(process->waitForLine("ready")) << process->output();
    return process;
  }
  void mend(const std::string& cable) {
    mended_ = Clock::now();
    sites_->hub.mend(cable);
  }

  std::optional<Sites> sites_;
  std::optional<Broker> broker_;
  std::optional<Process> replies_;
  std::optional<Process> values_;
  Clock::time_point mended_;
};

TEST_F(Partition, OfADeviceIsDecidedByTheHeartbeat) {
  start(1000);
  cutDevice();
  EXPECT_EQ(client->store(speedPath, "1"), ModelSrv::ModelRes_OutcomeUnknown);
  change("50");
  ASSERT_TRUE(isLost());
  // The broker says nothing of the device yet.
  EXPECT_EQ(read(offline(), "/_link/state"), "silent");
  {
    TreeClient lost(offline());
    EXPECT_EQ(lost.get(speedPath), "42");
    EXPECT_EQ(lost.store(speedPath, "2"), ModelSrv::ModelRes_ReadOnly);
  }
  EXPECT_NE(client->store(speedPath, "3"), ModelSrv::ModelRes_Success);
  ASSERT_TRUE(saysLost(*exporter)) << exporter->output();
  ASSERT_TRUE(eventually([this] { return read(offline(), "/_link/state") == "offline"; }))
      << "the will";
  mendDevice();
  ASSERT_TRUE(shows("50")) << exporter->output();
  EXPECT_FALSE(accepts(offline()));
  expectHealed({"50"});
}

TEST_F(Partition, OfADeviceThatIsShortCarriesOutNoStoreLate) {
  start(10'000);
  cutDevice();
  EXPECT_EQ(client->store(speedPath, "1"), ModelSrv::ModelRes_OutcomeUnknown);
  change("50");
  mendDevice();
  // The broker had sent it, and the network delivers it now.
  EXPECT_TRUE(refusesLateStore());
  ASSERT_TRUE(shows("50"));
  expectHealed({"50"});
}

TEST_F(Partition, OfAViewerThatIsShortCarriesOutNoStoreLate) {
  start(10'000);
  cutOperators();
  EXPECT_EQ(client->store(speedPath, "1"), ModelSrv::ModelRes_OutcomeUnknown);
  change("50");
  mendOperators();
  // It is new to the broker, which does not know how long it took.
  EXPECT_TRUE(refusesLateStore());
  ASSERT_TRUE(shows("50"));
  expectHealed({"50"});
}

TEST_F(Partition, OfAViewerMakesEachDeviceUnreachable) {
  start(10'000);
  cutOperators();
  change("50");
  ASSERT_TRUE(saysLost(*viewer)) << viewer->output();
  EXPECT_EQ(client->get("/_link/state"), "unreachable");
  EXPECT_EQ(client->get(speedPath), "42");
  const auto begin = Clock::now();
  EXPECT_EQ(client->store(speedPath, "1"), ModelSrv::ModelRes_Unreachable);
  EXPECT_LT(Clock::now() - begin, std::chrono::seconds(1)) << "nothing is waited for";
  mendOperators();
  ASSERT_TRUE(shows("50")) << viewer->output();
  EXPECT_EQ(client->get("/_link/state"), "online");
  expectHealed({"50"});
}

TEST_F(Partition, OfAViewerEndsAlsoForDevicesThatWereTakenForLost) {
  start(1000);
  cutOperators();
  change("50");
  ASSERT_TRUE(isLost());
  EXPECT_EQ(read(offline(), speedPath), "42");
  ASSERT_TRUE(saysLost(*viewer)) << viewer->output();
  mendOperators();
  ASSERT_TRUE(shows("50")) << viewer->output();
  expectHealed({"50"});
}

}  // namespace
