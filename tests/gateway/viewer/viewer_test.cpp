#include "gateway/viewer/viewer.h"

#include <gmock/gmock.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <future>
#include <memory>
#include <mutex>
#include <thread>
#include <type_traits>

#include "tests/gateway/link/broker.h"
#include "tests/gateway/viewer/fake_device.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/tree_client.h"

// A viewer, a real broker, and a device that is made by hand. They share a loop on a thread of its
// own, since clients wait for replies.

namespace {

using gateway_test::FakeDevice;
using modelgate::Reply;
using modelgate::Request;
using modelgate::Verb;
using test_support::TreeClient;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;

class ViewerTest : public testing::Test {
 protected:
  ViewerTest() {
    device->begin();
    startViewer();
    EXPECT_TRUE(gateway_test::runUntil(loop, [this] { return ready_ == 1; }));
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
    modelgate::ViewerOptions options;
    std::string error;
    options.link.broker = *modelgate::parseBroker(broker.url(), error);
    options.fleet = "fleet";
    options.user = "operator";
    options.ready = [this] { ++ready_; };
    options.log = [this](std::string_view line, bool) {
      const std::lock_guard lock(mutex_);
      log_.emplace_back(line);
    };
    viewer = std::make_unique<modelgate::Viewer>(loop, std::move(options));
    viewer->start();
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
  bool isOnline() {
    return test_support::eventually([this] { return isServed(port()) && !isServed(offline()); });
  }
  bool isOffline() {
    return test_support::eventually([this] { return !isServed(port()) && isServed(offline()); });
  }
  [[nodiscard]] std::string offline() const { return port("~offline"); }
  std::string stateOf(const std::string& server) {
    TreeClient client(server);
    return client.get("/_link/state");
  }
  std::size_t count(Verb verb) {
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
  gateway_test::Broker broker;
  modelgate::EventLoop loop;
  std::unique_ptr<FakeDevice> device = std::make_unique<FakeDevice>(loop, broker.url(), name);
  std::unique_ptr<modelgate::Viewer> viewer;

 private:
  std::atomic<int> ready_{0};
  std::mutex mutex_;
  std::vector<std::string> log_;
  std::thread thread_;
};

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

TEST_F(ViewerTest, StoresNothingWithoutABroker) {
  TreeClient client(port());
  ASSERT_EQ(client.get("/speed"), "42");
  broker.kill();
  EXPECT_TRUE(
      test_support::eventually([&] { return client.get("/_link/state") == "unreachable"; }));
  EXPECT_EQ(client.store("/speed", "7"), ModelSrv::ModelRes_Unreachable);
  EXPECT_EQ(client.get("/speed"), "42") << "the last value";
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
    device->state.heartbeat = 200;
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

TEST_F(ViewerTest, TakesNoShapeThatTheStateDoesNotList) {
  run([this] {
    device->publish(device->topics.shape("plant", 0), "garbage", 1, true);
    device->publish(device->topics.shape("plant", 7), std::string(200'000, 'x'), 1, true);
    device->publish(device->topics.shape("other", 0), "garbage", 1, true);
  });
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
  TreeClient client(port());
  EXPECT_THAT(client.names(""), ElementsAre("_link"));
  EXPECT_THAT(log(), Contains(HasSubstr("wrong shape")));
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
  EXPECT_EQ(client.get("/lines"), "a\nb\nc");
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

}  // namespace
