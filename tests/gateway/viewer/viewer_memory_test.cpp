#include <gtest/gtest.h>
#include <unistd.h>

#include "tests/gateway/viewer/viewer_fixture.h"

// What a viewer keeps of mirrors that have no client.

namespace {

using gateway_test::FakeDevice;
using gateway_test::ViewerTest;
using modelgate::Verb;
using test_support::eventually;
using test_support::TreeClient;

class IdleMirror : public ViewerTest {
 protected:
  /// A viewer that gives trees back at once.
  IdleMirror() {
    times.treeRetention = std::chrono::milliseconds(0);
    run([this] {
      viewer.reset();
      startViewer();
    });
    EXPECT_TRUE(eventually([this] { return accepts(port()); }));
  }
  /// Waits until the viewer has looked twice for what it can give back: it refreshes the age then.
  static bool reviewed(TreeClient& client) {
    EXPECT_EQ(client.subscribe("/_link/age"), ModelSrv::ModelRes_Success);
    return client.waitForUpdate() && client.waitForUpdate() && client.waitForUpdate();
  }
  bool reads(const std::string& port, const std::string& value) {
    return eventually([&] { return TreeClient(port).get("/speed") == value; });
  }
};

TEST_F(IdleMirror, GivesItsTreeBackAndKeepsTheShape) {
  ASSERT_TRUE(reads(port(), "42"));
  // Without the page at the broker only the viewer has the shape.
  run([this] { device->publish(device->topics.shape("plant", 0), {}, 1, true); });
  const std::size_t before = count(Verb::sync);
  EXPECT_TRUE(eventually([&] {
    EXPECT_EQ(TreeClient(port()).get("/speed"), "42");
    return count(Verb::sync) > before;
  })) << "a new tree needs the values";
  TreeClient client(port());
  EXPECT_EQ(client.names(""), (std::vector<std::string>{"speed", "label", "_link"}));
}

TEST_F(IdleMirror, KeepsItsTreeWhileItHasAClient) {
  TreeClient client(port());
  ASSERT_EQ(client.get("/speed"), "42");
  const std::size_t before = count(Verb::sync);
  ASSERT_TRUE(reviewed(client));
  EXPECT_EQ(count(Verb::sync), before);
  run([this] { device->change({{0, "43"}}); });
  EXPECT_TRUE(eventually([&] { return client.get("/speed") == "43"; }));
}

TEST_F(IdleMirror, KeepsTheLastValuesOfALostDevice) {
  run([this] {
    device->state.servers["other"].up = true;
    device->publishState();
  });
  {
    TreeClient client(port());
    ASSERT_EQ(client.get("/speed"), "42");
    run([this] {
      device->state.online = false;
      device->publishState();
    });
    ASSERT_TRUE(isOffline());
  }
  TreeClient other("Model_" + name + ".other~offline");
  ASSERT_TRUE(reviewed(other));
  EXPECT_EQ(TreeClient(offline()).get("/speed"), "42");
}

TEST_F(ViewerTest, KeepsNothingOfTheServersThatItDoesNotShow) {
  maxMirrors = 1;
  run([this] {
    viewer.reset();
    startViewer();
  });
  ASSERT_TRUE(isOnline());
  modelgate::DeviceState many = device->state;
  many.servers.clear();
  for (int i = 0; i < 256; ++i) {
    many.servers[std::to_string(i) + std::string(100, 's')].up = true;
  }
  const std::string payload = modelgate::encodeState(many);
  const long before = test_support::procNumber(::getpid(), "status", "VmRSS:");
  for (int i = 0; i < 300; ++i) {
    const std::string other = name + '-' + std::to_string(i);
    run([&] { device->publish(modelgate::Topics("fleet", other).state(), payload, 1, true); });
    ASSERT_TRUE(becomes([this] { return device->client.link.hasCapacity(); }));
  }
  run([this] {
    device->state.conflict = true;
    device->publishState();
  });
  EXPECT_TRUE(eventually([this] { return stateOf(port()) == "conflict"; }));
  if (!test_support::sanitized) {
    EXPECT_LT(test_support::procNumber(::getpid(), "status", "VmRSS:") - before, 12 * 1024);
  }
}

/// A broker that queues less for a client than the pages of a large shape.
class SmallQueueViewer : public ViewerTest {
 protected:
  SmallQueueViewer()
      : ViewerTest({.general = "max_queued_bytes 2500000\nmax_queued_messages 100000\n"}) {}
};

TEST_F(SmallQueueViewer, FetchesAShapeThatIsLarger) {
  run([this] {
    device->shape = {FakeDevice::part(1, 1, "last", "text"),
                     FakeDevice::part(1, 2, "large", "node")};
    device->values = {"x", "-"};
    for (ModelSrv::ModelPartId id = 1; id <= 90; ++id) {
      const std::string title = std::to_string(id) + std::string(60'000, 'n');
      device->shape.push_back(FakeDevice::part(2, id, title, "text"));
      device->values.emplace_back("y");
    }
    device->publishShape();
    device->publishState();
  });
  ASSERT_TRUE(becomes([this] { return device->client.link.hasCapacity(); }));
  TreeClient client(port());
  EXPECT_TRUE(eventually([&] { return client.get("/last") == "x"; }));
}

}  // namespace
