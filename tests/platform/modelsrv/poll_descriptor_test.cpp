#include <gtest/gtest.h>
#include <sys/resource.h>

#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/platform/evtsrv/poll_loop.h"
#include "tests/platform/modelsrv/served_tree.h"

// Servers and clients whose programs have nothing but poll(2) and the manager's poll
// descriptor. How a client's connection returns is in connection_life_test.cpp.

namespace {

using namespace ModelSrv;
using namespace modelsrv_tests;
using namespace std::chrono_literals;
using evtsrv_tests::PollLoop;

PollLoop loopOf(EvtSrv::EventPortManager& manager) {
  return {manager.pollDescriptor(), [&manager] { static_cast<void>(manager.receiveEvent(0)); }};
}

/// Pumps a manager on a thread of its own, with poll(2) alone.
class PollPump {
 public:
  explicit PollPump(EvtSrv::EventPortManager& manager)
      : manager_(manager), thread_([this] {
          PollLoop loop = loopOf(manager_);
          while (!stopped_.load()) {
            loop.runUntil([&] { return stopped_.load(); });
          }
        }) {}
  ~PollPump() {
    stopped_ = true;
    manager_.wake();
    thread_.join();
  }
  PollPump(const PollPump&) = delete;
  PollPump& operator=(const PollPump&) = delete;

 private:
  EvtSrv::EventPortManager& manager_;
  std::atomic<bool> stopped_{false};
  std::thread thread_;
};

class PollDescriptor : public testing::Test {
 protected:
  static constexpr unsigned short elements = 20000;

  /// A server with a large array and without a thread, and a client that is connected to it.
  void SetUp() override {
    ASSERT_EQ(server_.root.add(&large_), ModelRes_Success);
    server_.pump.reset();
    const PollPump pump(server_.manager);
    ASSERT_EQ(client_.connect(name_), ModelRes_Success);
    ASSERT_EQ(client_.subscribe({9}), ModelRes_Success);
    clientLoop_.runUntilQuiet();
    client_.root.updates.clear();
  }
  void changeAllElements() {
    for (unsigned short i = 0; i < elements; ++i) {
      ASSERT_EQ(large_.setValue(i, 1), ModelRes_Success);
    }
  }

  std::string name_ = test_support::uniquePortName();
  ArrayPart<std::int32_t> large_{9, "large", std::vector<std::int32_t>(elements)};
  Server server_{name_};
  Client client_;
  PollLoop serverLoop_ = loopOf(server_.manager);
  PollLoop clientLoop_ = loopOf(client_.manager);
};

TEST_F(PollDescriptor, IsConstantAndQuietWhileNothingHappens) {
  EXPECT_GE(server_.manager.pollDescriptor(), 0);
  EXPECT_EQ(server_.manager.pollDescriptor(), server_.manager.pollDescriptor());
  EXPECT_EQ(serverLoop_.runFor(100ms), 0);
  EXPECT_EQ(clientLoop_.runFor(100ms), 0);
}

TEST_F(PollDescriptor, AnnouncesClientsAndTheirRequests) {
  const PollPump pump(server_.manager);
  Client other;
  ASSERT_EQ(other.connect(name_), ModelRes_Success);
  EXPECT_EQ(other.load(speedChain, "7"), ModelRes_Success);
  EXPECT_EQ(other.text(speedChain), "7");
}

TEST_F(PollDescriptor, AnnouncesAWakeOnce) {
  // What the connection has left to do.
  serverLoop_.runUntilQuiet();
  server_.manager.wake();
  EXPECT_TRUE(serverLoop_.isReadable());
  EXPECT_EQ(serverLoop_.runUntilQuiet(), 1);
}

TEST_F(PollDescriptor, AnnouncesUpdates) {
  ASSERT_EQ(large_.setValue(3, 5), ModelRes_Success);
  ASSERT_TRUE(clientLoop_.runUntil([&] { return !client_.root.updates.empty(); }));
  EXPECT_EQ(client_.root.updates.front().second, 3);
  EXPECT_EQ(clientLoop_.runFor(50ms), 0);
}

TEST_F(PollDescriptor, IsQuietWhileOutputIsPendingAtAStoppedClient) {
  ASSERT_NO_FATAL_FAILURE(changeAllElements());
  serverLoop_.runUntilQuiet();
  EXPECT_EQ(serverLoop_.runFor(100ms), 0);
  const PollPump pump(server_.manager);
  ASSERT_TRUE(clientLoop_.runUntil([&] { return client_.root.updates.size() >= elements; }))
      << "the client takes what is pending, and that is announced";
  EXPECT_EQ(client_.root.updates.size(), elements);
}

TEST_F(PollDescriptor, AnnouncesWhatAGracefulShutdownNeeds) {
  ASSERT_NO_FATAL_FAILURE(changeAllElements());
  server_.root.stop(false);
  serverLoop_.runUntilQuiet();
  EXPECT_EQ(serverLoop_.runFor(100ms), 0);
  EXPECT_EQ(server_.manager.finishActiveTerm(0), EvtSrv::EvtRes_Timeout);
  const PollPump pump(server_.manager);
  ASSERT_TRUE(clientLoop_.runUntil(
      [&] { return client_.root.types.back() == ModelRoot::EvtTyp_Model_Stopped; }));
  EXPECT_EQ(client_.root.updates.size(), elements);
  EXPECT_EQ(server_.manager.finishActiveTerm(20000), EvtSrv::EvtRes_Success);
}

TEST_F(PollDescriptor, AnnouncesTheEndOfAClient) {
  client_.root.stop(true);
  EXPECT_TRUE(serverLoop_.isReadable());
  EXPECT_LE(serverLoop_.runUntilQuiet(), 3);
}

TEST_F(PollDescriptor, IsQuietAfterAStructureChange) {
  ASSERT_EQ(large_.setValue(3, 5), ModelRes_Success);
  ASSERT_EQ(server_.root.remove(&large_), ModelRes_Success);
  serverLoop_.runUntilQuiet();
  EXPECT_EQ(serverLoop_.runFor(100ms), 0);
  clientLoop_.runUntilQuiet();
  EXPECT_EQ(clientLoop_.runFor(100ms), 0);
  ASSERT_EQ(server_.root.add(&large_), ModelRes_Success);
  const PollPump pump(server_.manager);
  EXPECT_EQ(client_.text({9}, 3), "5");
}

TEST_F(PollDescriptor, IsNegativeIfTheManagerIsUnusable) {
  rlimit before{};
  ASSERT_EQ(::getrlimit(RLIMIT_NOFILE, &before), 0);
  const rlimit none{0, before.rlim_max};
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &none), 0);
  const EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
  ASSERT_EQ(::setrlimit(RLIMIT_NOFILE, &before), 0);
  EXPECT_LT(manager.pollDescriptor(), 0);
}

}  // namespace
