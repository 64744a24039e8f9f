#include <gmock/gmock.h>

#include "tests/gateway/viewer/viewer_fixture.h"

// Servers that want the same port: "b" of the device "h.a" and "a.b" of "h".

namespace {

using gateway_test::FleetOfViewer;
using test_support::eventually;
using test_support::TreeClient;

class PortClash : public FleetOfViewer {
 protected:
  /// Publishes the state of the device "h.a". It is "conflict", to be known by.
  void publishFirst(bool isOnline) {
    run([&] {
      modelgate::DeviceState state;
      state.online = isOnline;
      state.conflict = true;
      state.epoch = 5;
      state.servers["b"].up = true;
      device->publish(firstTopic(), modelgate::encodeState(state), 1, true);
    });
  }
  void removeFirst() {
    run([&] { device->publish(firstTopic(), {}, 1, true); });
  }
  /// Publishes that of "h".
  void publishSecond() {
    run([&] {
      device->state.servers["a.b"].up = true;
      device->publishState();
    });
  }
  [[nodiscard]] std::string firstTopic() const {
    return modelgate::Topics("fleet", name + ".a").state();
  }
  [[nodiscard]] std::string clashing() const { return "Model_" + name + ".a.b"; }
  bool isOf(const std::string& state) {
    return eventually([&] { return isServed(clashing()) && stateOf(clashing()) == state; });
  }
  bool fleetHas(const std::string& path, const std::string& value) {
    return eventually([&] { return TreeClient("Model_fleet").get("/" + name + path) == value; });
  }
  [[nodiscard]] std::string taken(const std::string& server, const std::string& by) const {
    return server + ", without a port: " + clashing() + " is server " + by;
  }
};

TEST_F(PortClash, FirstKeepsIt) {
  publishFirst(true);
  ASSERT_TRUE(isOf("conflict"));
  publishSecond();
  const std::string reason = taken("up", "\"b\" of " + name + ".a");
  EXPECT_TRUE(fleetHas("/servers/a.b", reason));
  EXPECT_EQ(TreeClient("Model_fleet").get("/" + name + ".a/servers/b"), "up");
  EXPECT_THAT(log(), testing::Contains("no port for server \"a.b\" of " + name + ": " + clashing() +
                                       " is server \"b\" of " + name + ".a"));
  // Also while it is lost: its clients would store in the other one.
  publishFirst(false);
  ASSERT_TRUE(eventually([&] { return accepts(clashing() + "~offline"); }));
  EXPECT_FALSE(isServed(clashing()));
  EXPECT_TRUE(fleetHas("/servers/a.b", reason));
  publishFirst(true);
  EXPECT_TRUE(isOf("conflict"));
}

TEST_F(PortClash, NextAfterRemoval) {
  publishFirst(true);
  ASSERT_TRUE(isOf("conflict"));
  publishSecond();
  ASSERT_TRUE(fleetHas("/servers/a.b", taken("up", "\"b\" of " + name + ".a")));
  removeFirst();
  EXPECT_TRUE(isOf("online"));
  EXPECT_FALSE(isServed(clashing() + "~offline"));
  EXPECT_TRUE(fleetHas("/servers/a.b", "up"));
  publishFirst(true);
  EXPECT_TRUE(fleetHas(".a/servers/b", taken("up", "\"a.b\" of " + name)));
  EXPECT_EQ(stateOf(clashing()), "online");
}

class PortClashWithoutRetention : public PortClash {
 protected:
  PortClashWithoutRetention() { times.nameRetention = std::chrono::milliseconds(0); }
};

TEST_F(PortClashWithoutRetention, NextAfterLoss) {
  run([this] {
    viewer.reset();
    startViewer();
  });
  publishFirst(true);
  ASSERT_TRUE(isOf("conflict"));
  publishSecond();
  ASSERT_TRUE(fleetHas("/servers/a.b", taken("up", "\"b\" of " + name + ".a")));
  publishFirst(false);
  EXPECT_TRUE(isOf("online"));
  EXPECT_FALSE(isServed(clashing() + "~offline"));
}

TEST_F(FleetOfViewer, OfflineNameClash) {
  run([this] {
    device->state.servers["plant~offline"].up = true;
    device->publishState();
  });
  EXPECT_TRUE(eventually([&] {
    return TreeClient("Model_fleet").get("/" + name + "/servers/plant~offline") ==
           "up, without a port: " + offline() + " is server \"plant\" of " + name;
  }));
  run([this] {
    device->state.servers["plant"].up = false;
    device->publishState();
  });
  EXPECT_TRUE(isOffline());
  EXPECT_EQ(stateOf(offline()), "offline") << "it is that of \"plant\"";
}

}  // namespace
