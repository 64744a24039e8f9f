#include <gmock/gmock.h>

#include "tests/gateway/viewer/viewer_fixture.h"

// What a viewer shows of a device that is there.

namespace {

using gateway_test::FakeDevice;
using gateway_test::FleetOfViewer;
using gateway_test::ViewerTest;
using modelgate::Reply;
using modelgate::Request;
using modelgate::Verb;
using test_support::TreeClient;
using testing::ElementsAre;

TEST_F(ViewerTest, ServesAMirrorThatFetchesItsTreeForTheFirstClient) {
  ASSERT_TRUE(isServed(port()));
  EXPECT_EQ(count(Verb::watch), 0U);
  EXPECT_EQ(count(Verb::sync), 0U);
  TreeClient client(port());
  EXPECT_EQ(client.get("/speed"), "42");
  EXPECT_EQ(client.get("/label"), "hello");
  EXPECT_THAT(client.names(""), ElementsAre("speed", "label", "_link"));
  EXPECT_EQ(client.get("/_link/state"), "online");
  EXPECT_EQ(client.get("/_link/gaps"), "0");
  EXPECT_EQ(count(Verb::watch), 1U);
  EXPECT_EQ(count(Verb::sync), 1U);
}

TEST_F(ViewerTest, NotifiesOfChanges) {
  TreeClient client(port());
  ASSERT_EQ(client.subscribe("/speed"), ModelSrv::ModelRes_Success);
  run([this] { device->change({{0, "43"}}); });
  EXPECT_TRUE(client.waitForUpdate());
  EXPECT_EQ(client.get("/speed"), "43");
  run([this] { device->change({{0, "44"}}); });
  EXPECT_TRUE(client.pumpUntil([&] { return client.get("/speed") == "44"; }));
}

TEST_F(ViewerTest, SyncsAfterAGap) {
  TreeClient client(port());
  ASSERT_EQ(client.get("/speed"), "42");
  run([this] {
    device->change({{1, "lost"}}, true);
    device->change({{0, "43"}});
  });
  EXPECT_TRUE(test_support::eventually([&] { return client.get("/label") == "lost"; }));
  EXPECT_EQ(client.get("/speed"), "43");
  EXPECT_EQ(client.get("/_link/gaps"), "1");
  EXPECT_EQ(count(Verb::sync), 2U);
  const auto since = run([this] { return device->requests.back().second.since; });
  EXPECT_EQ(since, 1U);
}

TEST_F(ViewerTest, StoresAtTheDeviceBeforeTheClientGetsItsReply) {
  TreeClient client(port());
  EXPECT_EQ(client.store("/speed", "7"), ModelSrv::ModelRes_Success);
  EXPECT_EQ(client.get("/speed"), "7");
  const Request request = run([this] { return device->requests.back().second; });
  EXPECT_EQ(request.value, "7");
  EXPECT_EQ(request.epoch, 77U);
  ASSERT_TRUE(request.until);
  EXPECT_LE(*request.until, FakeDevice::monotonic() + 1'500);
  EXPECT_GT(*request.until, FakeDevice::monotonic());
}

TEST_F(ViewerTest, GivesTheResultReasonAndValueOfTheDevice) {
  run([this] {
    device->onStore = [](const Request&) {
      Reply reply;
      reply.result = ModelSrv::ModelRes_Vetoed;
      reply.reason = "not while it runs";
      reply.value = "41";
      return reply;
    };
  });
  TreeClient client(port());
  EXPECT_EQ(client.store("/speed", "7"), ModelSrv::ModelRes_Vetoed);
  EXPECT_EQ(client.get("/speed"), "41") << "the value after the store";
}

TEST_F(ViewerTest, DoesNotKnowTheOutcomeWithoutAReply) {
  TreeClient client(port());
  ASSERT_EQ(client.get("/speed"), "42");
  run([this] { device->isMute = true; });
  EXPECT_EQ(client.store("/speed", "7"), ModelSrv::ModelRes_OutcomeUnknown);
  EXPECT_EQ(client.get("/speed"), "42");
}

TEST_F(ViewerTest, FollowsAChangeOfTheShape) {
  TreeClient client(port());
  ASSERT_EQ(client.get("/speed"), "42");
  ASSERT_EQ(client.subscribe("/speed"), ModelSrv::ModelRes_Success);
  run([this] {
    device->shape.push_back(FakeDevice::part(1, 65'533, "more", "text"));
    device->values.emplace_back("new");
    device->publishShape();
    device->publishState();
  });
  EXPECT_TRUE(test_support::eventually([&] { return client.get("/more") == "new"; }));
  EXPECT_THAT(client.names(""), ElementsAre("speed", "label", "more", "_link"));
  EXPECT_THAT(client.ids(""), ElementsAre(1, 2, 65'533, 65'532));
  run([this] { device->change({{0, "43"}}); });
  EXPECT_TRUE(client.waitForUpdate());
}

/// A viewer that has values of a device, for which the lease goes on, but no client.
class ViewerWithoutClients : public ViewerTest {
 protected:
  ViewerWithoutClients() {
    TreeClient client(port());
    EXPECT_EQ(client.get("/speed"), "42");
  }

  /// Publishes the state, and waits until the viewer has it.
  bool takesState() {
    run([this] {
      device->state.servers["later"].up = true;
      device->publishState();
    });
    return test_support::eventually([this] { return accepts("Model_" + name + ".later"); });
  }
};

TEST_F(ViewerWithoutClients, FetchesTheShapeOfMeanwhileBeforeItServesTheNext) {
  run([this] {
    device->shape.push_back(FakeDevice::part(1, 3, "more", "text"));
    device->values = {"43", "hello", "new"};
    ++device->sequence;
    device->publishShape();
  });
  ASSERT_TRUE(takesState());
  TreeClient client(port());
  EXPECT_EQ(client.get("/speed"), "43");
  EXPECT_EQ(client.get("/more"), "new");
}

TEST_F(ViewerWithoutClients, FetchesTheValuesOfALaterRunBeforeItServesTheNext) {
  run([this] {
    device->state.epoch = 78;
    device->values[0] = "43";
  });
  ASSERT_TRUE(takesState());
  TreeClient client(port());
  EXPECT_EQ(client.get("/speed"), "43");
}

TEST_F(ViewerTest, RequestsTheElementsOfATextThatCannotBeDivided) {
  run([this] {
    modelgate::ShapePart array = FakeDevice::part(1, 3, "lines", "text");
    array.elements = 2;
    device->shape.push_back(array);
    device->values.emplace_back("a\nb\nc");
    device->elements = {"a\nb", "c"};
    device->publishShape();
    device->publishState();
  });
  TreeClient client(port());
  EXPECT_TRUE(test_support::eventually([&] { return client.get("/lines") == "a\nb\nc"; }));
  EXPECT_TRUE(test_support::eventually([this] { return count(Verb::get) == 2; }));
  EXPECT_EQ(client.get("/lines"), "a\nb\nc");
}

TEST_F(ViewerTest, LeavesNoPortsAtTheEnd) {
  std::promise<void> done;
  run([&] { viewer->finish([&] { done.set_value(); }); });
  ASSERT_EQ(done.get_future().wait_for(test_support::timeout), std::future_status::ready);
  EXPECT_FALSE(isServed(port()));
}

TEST_F(ViewerTest, DoesNotWaitForAClientAtTheEnd) {
  TreeClient client(port());
  ASSERT_EQ(client.get("/speed"), "42");
  std::promise<void> done;
  run([&] { viewer->finish([&] { done.set_value(); }); });
  EXPECT_EQ(done.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
}

TEST_F(ViewerTest, EndsALeaseWithItsClients) {
  {
    TreeClient client(port());
    ASSERT_EQ(client.get("/speed"), "42");
  }
  // Later clients of the same lease need nothing more.
  TreeClient client(port());
  EXPECT_EQ(client.get("/speed"), "42");
  EXPECT_EQ(count(Verb::sync), 1U);
}

TEST_F(FleetOfViewer, ListsTheDevicesWithTheirStatesAndServers) {
  TreeClient client("Model_fleet");
  EXPECT_THAT(client.names(""), ElementsAre(name));
  EXPECT_EQ(client.get("/" + name + "/state"), "online");
  EXPECT_THAT(client.names("/" + name + "/servers"), ElementsAre("plant"));
  EXPECT_EQ(client.get("/" + name + "/servers/plant"), "up");
  ASSERT_EQ(client.subscribe("/" + name + "/state"), ModelSrv::ModelRes_Success);
  run([this] {
    device->state.online = false;
    device->publishState();
  });
  EXPECT_TRUE(client.waitForUpdate());
  EXPECT_EQ(client.get("/" + name + "/state"), "offline");
  EXPECT_EQ(client.get("/" + name + "/servers/plant"), "down");
}

TEST_F(FleetOfViewer, HasTheDevicesThatBeginLater) {
  TreeClient client("Model_fleet");
  run([this] {
    modelgate::DeviceState state;
    state.online = true;
    state.epoch = 5;
    device->publish(modelgate::Topics("fleet", "later").state(), modelgate::encodeState(state), 1,
                    true);
  });
  EXPECT_TRUE(test_support::eventually([&] { return client.get("/later/state") == "online"; }));
  EXPECT_THAT(client.names("/later"), ElementsAre("state", "age", "servers"));
}

TEST_F(FleetOfViewer, ListsDevicesAndServersInOrder) {
  TreeClient client("Model_fleet");
  run([this] {
    for (const char* const each : {"zeta", "alpha", "_link", "fleet", "..", "0"}) {
      modelgate::DeviceState state;
      state.online = true;
      device->publish(modelgate::Topics("fleet", each).state(), modelgate::encodeState(state), 1,
                      true);
    }
    for (const char* const each : {"with blanks", "a", "zz"}) {
      device->state.servers[each].up = true;
      device->publishState();
    }
  });
  EXPECT_TRUE(test_support::eventually([&] {
    return client.names("") ==
           std::vector<std::string>{"..", "0", "_link", "alpha", "fleet", name, "zeta"};
  })) << testing::PrintToString(client.names(""));
  EXPECT_TRUE(test_support::eventually([&] {
    return client.names("/" + name + "/servers") ==
           std::vector<std::string>{"a", "plant", "with blanks", "zz"};
  }));
  EXPECT_EQ(TreeClient("Model_" + name + ".with blanks").get("/_link/state"), "online");
}

TEST_F(FleetOfViewer, HasTheAgeOfAStateThatTheBrokerKept) {
  run([this] {
    modelgate::DeviceState state;
    state.online = true;
    modelgate::Publication publication;
    publication.retain = true;
    publication.qos = 1;
    publication.topic = modelgate::Topics("fleet", "expires").state();
    publication.payload = modelgate::encodeState(state);
    // As half an hour after it was published.
    publication.expiry = std::chrono::minutes(30);
    EXPECT_TRUE(device->client.link.publish(publication));
    state.time =
        std::chrono::duration_cast<std::chrono::milliseconds>(
            (std::chrono::system_clock::now() - std::chrono::minutes(10)).time_since_epoch())
            .count();
    device->publish(modelgate::Topics("fleet", "stated").state(), modelgate::encodeState(state), 1,
                    true);
    viewer.reset();
  });
  ASSERT_TRUE(becomes([this] { return device->client.link.hasCapacity(); }));
  run([this] { startViewer(); });
  const auto minutes = [](const std::string& each) {
    return std::strtoll(TreeClient("Model_fleet").get("/" + each + "/age").c_str(), nullptr, 10) /
           60'000;
  };
  EXPECT_TRUE(test_support::eventually([&] { return minutes("expires") == 30; }));
  EXPECT_TRUE(test_support::eventually([&] { return minutes("stated") == 10; }));
}

TEST_F(FleetOfViewer, IsThatOfTheNextViewerWhenTheFirstHasEnded) {
  std::unique_ptr<modelgate::Viewer> second;
  run([&] {
    modelgate::DeviceState state;
    state.online = true;
    device->publish(modelgate::Topics("other", "x").state(), modelgate::encodeState(state), 1,
                    true);
    second = std::make_unique<modelgate::Viewer>(loop, options("other"));
    second->start();
  });
  EXPECT_TRUE(test_support::eventually([&] {
    const auto lines = log();
    return std::count(lines.begin(), lines.end(),
                      "another viewer of this machine has Model_fleet: the devices of fleet other "
                      "are listed there when that one has ended") == 1;
  }));
  EXPECT_THAT(TreeClient("Model_fleet").names(""), ElementsAre(name));
  run([this] { viewer.reset(); });
  EXPECT_TRUE(test_support::eventually([&] {
    const std::vector<std::string> names = TreeClient("Model_fleet").names("");
    return names == std::vector<std::string>{"x"};
  }));
  run([&] { second.reset(); });
}

TEST_F(FleetOfViewer, SaysThatAnotherViewerHasTheMirrors) {
  std::unique_ptr<modelgate::Viewer> second;
  run([&] {
    for (int i = 0; i < 30; ++i) {
      device->state.servers["s" + std::to_string(i)].up = true;
    }
    device->publishState();
  });
  ASSERT_TRUE(test_support::eventually([&] { return isServed("Model_" + name + ".s9"); }));
  run([&] {
    second = std::make_unique<modelgate::Viewer>(loop, options("fleet"));
    second->start();
  });
  const std::string plant =
      "no port for server \"plant\" of " + name + ": another program of this machine has " + port();
  EXPECT_TRUE(
      test_support::eventually([&] { return testing::Value(log(), testing::Contains(plant)); }));
  run([this] { viewer.reset(); });
  EXPECT_TRUE(test_support::eventually([this] { return accepts(port()); }));
  EXPECT_TRUE(test_support::eventually(
      [&] { return TreeClient("Model_fleet").get("/" + name + "/servers/plant") == "up"; }));
  run([&] { second.reset(); });
}

}  // namespace
