#include <gmock/gmock.h>

#include "tests/gateway/viewer/viewer_fixture.h"

// Devices and brokers that end, and messages that are wrong or of another version.

namespace {

using gateway_test::ViewerTest;
using test_support::TreeClient;
using testing::ElementsAre;
using testing::HasSubstr;

TEST_F(ViewerTest, IgnoresWhatIsNoBatchOfThisRunAndShape) {
  TreeClient client(port());
  ASSERT_EQ(client.get("/speed"), "42");
  run([this] {
    for (const auto change : {0, 1}) {
      modelgate::Batch batch = device->emptyBatch();
      batch.values.push_back({0, ModelSrv::ModelPartIndex_All, {ModelSrv::ModelRes_Success, "1"}});
      batch.sequence += 5;
      (change == 0 ? batch.epoch : batch.shape) += 1;
      device->publish(device->topics.updates("plant"), modelgate::encodeBatch(batch), 0, false);
    }
    device->publish(device->topics.updates("plant"), "garbage", 0, false);
    device->change({{1, "after"}});
  });
  EXPECT_TRUE(test_support::eventually([&] { return client.get("/label") == "after"; }));
  EXPECT_EQ(client.get("/speed"), "42");
}

TEST_F(ViewerTest, StoresNothingWithoutABroker) {
  TreeClient client(port());
  ASSERT_EQ(client.get("/speed"), "42");
  broker.kill();
  EXPECT_TRUE(
      test_support::eventually([&] { return client.get("/_link/state") == "unreachable"; }));
  EXPECT_EQ(client.store("/speed", "7"), ModelSrv::ModelRes_Unreachable);
  EXPECT_EQ(client.get("/speed"), "42") << "the last value";
}

TEST_F(ViewerTest, SaysEachReasonForNoConnectionOnce) {
  broker.kill();
  std::size_t attempts = 0;
  std::size_t lines = 0;
  std::unique_ptr<modelgate::Viewer> other;
  run([&] {
    modelgate::ViewerOptions otherOptions = options("other");
    otherOptions.log = [&](std::string_view line, bool detail) {
      if (line.starts_with("no connection to the broker: ")) {
        ++attempts;
        lines += detail ? 0 : 1;
      }
    };
    other = std::make_unique<modelgate::Viewer>(loop, std::move(otherOptions));
    other->start();
  });
  EXPECT_TRUE(becomes([&] { return attempts >= 3; }));
  EXPECT_EQ(run([&] { return lines; }), 1U);
  run([&] { other.reset(); });
}

TEST_F(ViewerTest, MakesNoMoreMirrorsThanItMay) {
  maxMirrors = 2;
  run([this] {
    for (const char* const server : {"one", "two", "three"}) {
      device->state.servers[server].up = true;
    }
    device->publishState();
    viewer.reset();
    startViewer();
  });
  // "one" and "plant" are the first ones.
  EXPECT_TRUE(test_support::eventually(
      [this] { return isServed("Model_" + name + ".one") && isServed(port()); }));
  EXPECT_TRUE(test_support::eventually([this] {
    const auto lines = log();
    return std::count(lines.begin(), lines.end(),
                      "there are too many servers: only the first 2 are shown") == 1;
  }));
  EXPECT_FALSE(isServed("Model_" + name + ".three"));
  EXPECT_FALSE(isServed("Model_" + name + ".two"));
}

TEST_F(ViewerTest, ServesTheLastValuesOfALostDeviceReadOnly) {
  {
    TreeClient client(port());
    ASSERT_EQ(client.get("/speed"), "42");
  }
  run([this] {
    device->state.online = false;
    device->publishState();
  });
  ASSERT_TRUE(isOffline());
  TreeClient client(offline());
  EXPECT_EQ(client.get("/speed"), "42");
  EXPECT_EQ(client.get("/_link/state"), "offline");
  EXPECT_EQ(client.store("/speed", "7"), ModelSrv::ModelRes_ReadOnly);
  run([this] {
    device->values = {"1", "2"};
    device->state.online = true;
    device->state.epoch = 78;
    device->sequence = 1;
    device->publishState();
  });
  ASSERT_TRUE(isOnline());
  TreeClient again(port());
  EXPECT_EQ(again.get("/speed"), "1");
  EXPECT_EQ(again.store("/speed", "7"), ModelSrv::ModelRes_Success);
}

TEST_F(ViewerTest, SeesADeviceThatIsKilled) {
  ASSERT_TRUE(isServed(port()));
  run([this] { device->client.link.backOff(std::chrono::seconds(60)); });
  EXPECT_TRUE(isOffline());
}

TEST_F(ViewerTest, SeesAWatchedDeviceThatIsSilent) {
  run([this] {
    device->state.heartbeat = 2'000;
    device->publishState();
  });
  {
    TreeClient client(port());
    ASSERT_EQ(client.get("/speed"), "42");
    run([this] { device->isMute = true; });
    EXPECT_TRUE(isOffline());
  }
  EXPECT_EQ(stateOf(offline()), "silent");
  run([this] {
    device->isMute = false;
    device->publishState();
  });
  EXPECT_TRUE(isOnline());
}

TEST_F(ViewerTest, AsksASilentDeviceAgainAfterAsLongAsItWasMissed) {
  run([this] {
    device->state.heartbeat = 100;
    device->publishState();
  });
  {
    TreeClient client(port());
    ASSERT_EQ(client.get("/speed"), "42");
    run([this] { device->isMute = true; });
    ASSERT_TRUE(isOffline());
  }
  const auto begin = std::chrono::steady_clock::now();
  // The first one waits 2 s for its reply.
  ASSERT_TRUE(test_support::eventually([&] { return count(modelgate::Verb::get) >= 2; }));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(20));
  run([this] { device->isMute = false; });
  EXPECT_TRUE(isOnline());
}

TEST_F(ViewerTest, SurvivesABrokerThatRestartsEmpty) {
  TreeClient client(port());
  ASSERT_EQ(client.get("/speed"), "42");
  const int connections = run([this] { return device->client.connections; });
  broker.restart();
  ASSERT_TRUE(becomes([&] { return device->client.connections > connections; }));
  run([this] {
    static_cast<void>(device->client.link.subscribe(device->topics.requests(), 1));
    device->values[0] = "43";
    ++device->sequence;
    device->publishShape();
    --device->state.servers["plant"].shape;
    device->publishState();
  });
  EXPECT_TRUE(test_support::eventually([&] { return client.get("/speed") == "43"; }));
  EXPECT_TRUE(isServed(port()));
  EXPECT_FALSE(isServed(offline()));
}

TEST_F(ViewerTest, TakesNoShapeThatTheStateDoesNotList) {
  run([this] {
    device->publish(device->topics.shape("plant", 0), "garbage", 1, true);
    device->publish(device->topics.shape("plant", 7), std::string(200'000, 'x'), 1, true);
    device->publish(device->topics.shape("other", 0), "garbage", 1, true);
  });
  ASSERT_TRUE(becomes([this] { return device->client.link.hasCapacity(); }));
  {
    TreeClient client(port());
    EXPECT_THAT(client.names(""), ElementsAre("_link")) << "after a second";
  }
  run([this] {
    device->publishShape();
    device->publishState();
  });
  EXPECT_TRUE(test_support::eventually([this] {
    TreeClient client(port());
    return client.get("/speed") == "42";
  }));
}

TEST_F(ViewerTest, SaysThatAShapeIsWrong) {
  run([this] {
    const std::string page = "\x01";
    device->publish(device->topics.shape("plant", 0), page, 1, true);
    device->state.servers["plant"].pages = {modelgate::pageHash(page)};
    device->publishState();
  });
  const TreeClient client(port());
  EXPECT_TRUE(test_support::eventually([this] {
    const auto lines = log();
    return std::any_of(lines.begin(), lines.end(), [](const std::string& line) {
      return line.find("wrong shape") != std::string::npos;
    });
  }));
}

TEST_F(ViewerTest, IgnoresGarbageInStates) {
  run([this] {
    for (const std::string& payload :
         {std::string("garbage"), std::string("{}"), std::string("{\"online\": 7}"),
          std::string(5'000, '['), std::string("\0\xFF", 2)}) {
      device->publish(device->topics.state(), payload, 1, false);
      device->publish("ts/1/fleet/a$b/state", payload, 1, true);
      device->publish("ts/2/fleet/" + name + "/state", payload, 1, true);
    }
    device->publishState();
  });
  TreeClient client(port());
  EXPECT_EQ(client.get("/speed"), "42");
}

TEST_F(ViewerTest, IgnoresWhatALaterVersionAdds) {
  run([this] {
    const std::string state = modelgate::encodeState(device->state);
    device->publish(device->topics.state(), R"({"later":{"x":[1,null]},)" + state.substr(1), 1,
                    true);
  });
  TreeClient client(port());
  ASSERT_EQ(client.get("/speed"), "42");
  run([this] {
    modelgate::Batch batch = device->emptyBatch();
    batch.sequence = ++device->sequence;
    batch.values.push_back({0, ModelSrv::ModelPartIndex_All, {ModelSrv::ModelRes_Success, "43"}});
    std::string payload = modelgate::encodeBatch(batch);
    ASSERT_EQ(payload.front(), '\xa7');
    payload.front() = '\xa8';
    device->publish(device->topics.updates("plant"), payload + "\x61z\x82\x01\xf6", 0, false);
  });
  EXPECT_TRUE(test_support::eventually([&] { return client.get("/speed") == "43"; }));
  EXPECT_EQ(client.get("/_link/gaps"), "0");
}

TEST_F(ViewerTest, ShowsAConflict) {
  run([this] {
    device->state.conflict = true;
    device->publishState();
  });
  EXPECT_TRUE(test_support::eventually([this] { return stateOf(port()) == "conflict"; }));
}

TEST_F(ViewerTest, ServesAServerThatHasEndedAsOffline) {
  {
    TreeClient client(port());
    ASSERT_EQ(client.get("/speed"), "42");
  }
  run([this] {
    device->state.servers["plant"].up = false;
    device->publishState();
  });
  ASSERT_TRUE(isOffline());
  {
    TreeClient client(offline());
    EXPECT_EQ(client.get("/speed"), "42");
    EXPECT_EQ(client.get("/_link/state"), "offline");
  }
  run([this] {
    device->state.servers["plant"].up = true;
    device->publishState();
  });
  EXPECT_TRUE(isOnline());
}

TEST_F(ViewerTest, ReadsWhatTheBrokerHasKeptOfADeviceThatIsGone) {
  run([this] {
    modelgate::ValuePage page;
    page.epoch = 77;
    page.shape = 1;
    page.sequence = 1;
    page.values.push_back({0, ModelSrv::ModelPartIndex_All, {ModelSrv::ModelRes_Success, "40"}});
    device->publish(device->topics.values("plant", 0), modelgate::encodeValuePage(page), 1, true);
    device->state.online = false;
    device->publishState();
  });
  ASSERT_TRUE(isOffline());
  TreeClient client(offline());
  EXPECT_EQ(client.get("/speed"), "40");
  EXPECT_THAT(client.get("/label"), HasSubstr("<"));
}

}  // namespace
