#include "tests/platform/evtsrv/evtsrv_fixture.h"

namespace EvtSrv::internal {
namespace {

/// A client that is connected to a server with a pump.
class Dispatch : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(server.start(name), EvtRes_Success);
    server.pump();
    ASSERT_EQ(client.connect(name), EvtRes_Success);
    ASSERT_EQ(client.core.receive(-1), EvtRes_Success);
    client.events.clear();
  }
  void post(std::string bytes) { server.post(2, std::move(bytes)); }

  std::string name = uniquePort();
  EchoServer server;
  EchoClient client;
};

/// Receives on `core` until `done`, and then wakes the next thread that receives.
std::thread receiver(ManagerCore& core, const std::atomic<bool>& done) {
  return std::thread([&core, &done] {
    while (!done) {
      static_cast<void>(core.receive(-1));
    }
    core.wake();
  });
}

TEST_F(Dispatch, ByTwoThreadsLosesNoEventAndKeepsTheOrder) {
  constexpr int count = 300;
  std::atomic<bool> done{false};
  client.onEvent = [&] {
    if (client.events.size() == count) {
      done = true;
      client.core.wake();
    }
  };
  std::atomic<bool> serverDone{false};
  std::thread serving = receiver(server.core, serverDone);
  std::thread one = receiver(client.core, done);
  std::thread other = receiver(client.core, done);
  for (int i = 0; i < count; ++i) {
    post(std::to_string(i));
    EXPECT_EQ(client.request(), EvtRes_Success);
  }
  one.join();
  other.join();
  serverDone = true;
  server.core.wake();
  server.stopPumping();
  server.core.wake();
  serving.join();
  ASSERT_EQ(client.events.size(), static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    EXPECT_EQ(client.events[static_cast<std::size_t>(i)].second, std::to_string(i));
  }
  EXPECT_EQ(server.port.handled, count);
}

TEST_F(Dispatch, ByTheHolderOfTheMutexGetsItsEventsWhileAnotherThreadWaits) {
  std::atomic<bool> done{false};
  std::thread waiting = receiver(client.core, done);
  for (int i = 0; i < 50; ++i) {
    const std::lock_guard lock(client.mutex);
    client.events.clear();
    ASSERT_EQ(client.connect(name), EvtRes_Success);
    EXPECT_EQ(client.core.receive(-1), EvtRes_Success);
    ASSERT_EQ(client.events.size(), 1U);
    EXPECT_EQ(client.events[0].first, 1) << "the started event";
  }
  done = true;
  client.core.wake();
  waiting.join();
  EXPECT_EQ(client.request(), EvtRes_Success);
}

TEST_F(Dispatch, InsideAHandlerLeavesLaterEventsOfTheSameConnectionPending) {
  std::vector<EvtRes> nested;
  int waits = 0;
  client.onEvent = [&] {
    if (nested.empty()) {
      post("second");
      const int before = client.system.waits;
      nested.push_back(client.core.receive(20));
      waits = client.system.waits - before;
      EXPECT_EQ(client.events.size(), 1U);
    }
  };
  post("first");
  ASSERT_EQ(client.core.receive(-1), EvtRes_Success);
  EXPECT_EQ(nested, std::vector<EvtRes>{EvtRes_Timeout});
  EXPECT_LE(waits, 4) << "events that cannot be delivered yet do not make the wait return";
  EXPECT_EQ(client.core.receive(-1), EvtRes_Success);
  const std::vector<std::pair<std::uint16_t, std::string>> expected{{2, "first"}, {2, "second"}};
  EXPECT_EQ(client.events, expected);
}

TEST_F(Dispatch, InsideAHandlerServesOtherConnectionsOfTheManager) {
  class Sink : public EventSink {
   public:
    void eventReceived(std::uint16_t type, std::span<const std::uint8_t>, ByteOrder) override {
      lastType = type;
    }
    int lastType = 0;
  };
  Sink sink;
  auto other = std::make_unique<PortClient>(client.core, sink);
  client.onEvent = [&] {
    ASSERT_EQ(other->connect(name), EvtRes_Success);
    EXPECT_EQ(client.core.receive(-1), EvtRes_Success);
  };
  post("first");
  ASSERT_EQ(client.core.receive(-1), EvtRes_Success);
  EXPECT_EQ(sink.lastType, 1);
  const std::lock_guard lock(client.mutex);
  other.reset();
}

TEST_F(Dispatch, SurvivesAHandlerThatDestroysItsConnection) {
  client.onEvent = [&] { client.destroy(); };
  post("last");
  EXPECT_EQ(client.core.receive(-1), EvtRes_Success);
  EXPECT_EQ(client.core.receive(0), EvtRes_Timeout);
  EXPECT_EQ(client.events.size(), 1U);
}

TEST_F(Dispatch, WithoutInputReturnsAfterItsTimeAndMakesNoOtherSystemCall) {
  ASSERT_EQ(client.request(), EvtRes_Success);
  server.stopPumping();
  server.serveAll();
  for (EvtSrv::internal::ManagerCore* core : {&client.core, &server.core}) {
    TestSystem& system = core == &client.core ? client.system : server.system;
    const int waits = system.waits;
    const int calls = system.calls;
    const std::int64_t before = system.nowMs();
    EXPECT_EQ(core->receive(30), EvtRes_Timeout);
    EXPECT_GE(system.nowMs() - before, 29);
    EXPECT_LE(system.waits - waits, 3);
    EXPECT_EQ(system.calls, calls);
  }
}

}  // namespace
}  // namespace EvtSrv::internal
