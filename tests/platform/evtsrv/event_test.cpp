#include <unistd.h>

#include <atomic>
#include <climits>
#include <fstream>
#include <functional>
#include <optional>
#include <stdexcept>
#include <thread>

#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/raw_client.h"

namespace EvtSrv::internal {
namespace {

constexpr std::uint16_t stoppedEvent = 3;

int reactorDescriptor(EchoServer& server) {
  const KSTD::KThreadMutexLock lock(server.core.clientMutex());
  return server.core.reactor().descriptor();
}

class Events : public testing::Test {
 protected:
  void connect() {
    ASSERT_EQ(server.start(name), EvtRes_Success);
    client.system.freezeTime();
    client.system.whileWaiting = [&] { server.serveAll(); };
    ASSERT_EQ(client.connect(name), EvtRes_Success);
    ASSERT_EQ(client.core.receive(0), EvtRes_Success);
    client.events.clear();
  }
  void post(std::string bytes) { server.post(2, std::move(bytes)); }
  void receiveAll() {
    while (client.core.receive(0) == EvtRes_Success) {
      server.serveAll();
    }
  }

  std::string name = uniquePort();
  EchoServer server;
  EchoClient client;
};

TEST_F(Events, AreSentImmediatelyAndInOrder) {
  connect();
  post("one");
  post("two");
  EXPECT_EQ(client.core.receive(0), EvtRes_Success);
  const std::vector<std::pair<std::uint16_t, std::string>> expected{{2, "one"}, {2, "two"}};
  EXPECT_EQ(client.events, expected);
}

TEST_F(Events, StayInTheSessionWhileThePipeIsFull) {
  connect();
  const std::string bytes(1000, 'e');
  constexpr std::size_t count = 1000;
  for (std::size_t i = 0; i < count; ++i) {
    post(std::to_string(i) + bytes);
  }
  EXPECT_LT(server.port.eventsTaken, 100);
  const int before = server.port.eventsTaken;
  post("last");
  EXPECT_EQ(server.port.eventsTaken, before) << "no event is taken while the pipe is full";
  EXPECT_EQ(client.request(), EvtRes_Success) << "replies have a pipe of their own";
  receiveAll();
  ASSERT_EQ(client.events.size(), count + 1);
  EXPECT_EQ(client.events[count - 1].second, std::to_string(count - 1) + bytes);
  EXPECT_EQ(client.events[count].second, "last");
}

TEST_F(Events, MayBeLargerThanThePipe) {
  connect();
  const std::string large(300000, 'L');
  post(large);
  post("next");
  receiveAll();
  ASSERT_EQ(client.events.size(), 2U);
  EXPECT_TRUE(client.events[0].second == large);
  EXPECT_EQ(client.events[1].second, "next");
}

TEST_F(Events, PostedDuringARequestFollowItsReply) {
  connect();
  server.port.onRequest = [&] { post("update"); };
  EXPECT_EQ(client.request(), EvtRes_Success);
  EXPECT_EQ(client.core.receive(0), EvtRes_Success);
  ASSERT_EQ(client.events.size(), 1U);
  EXPECT_EQ(client.events[0].second, "update");
}

TEST_F(Events, StopWhenTheHandlerClosesTheConnection) {
  connect();
  post("one");
  post("two");
  client.onEvent = [&] { client.close(); };
  EXPECT_EQ(client.core.receive(0), EvtRes_Success);
  EXPECT_EQ(client.events.size(), 1U);
}

/// Runs `action` with the client mutex of `core` on another thread; begins when that
/// thread waits for the mutex, which the caller holds.
class WaitingThread {
 public:
  WaitingThread(ManagerCore& core, std::function<void()> action)
      : thread_([this, &core, action = std::move(action)] {
          id_ = gettid();
          const KSTD::KThreadMutexLock lock(core.clientMutex());
          action();
        }) {
    while (id_ == 0 || !sleeps()) {
      std::this_thread::yield();
    }
  }
  ~WaitingThread() { thread_.join(); }
  WaitingThread(const WaitingThread&) = delete;
  WaitingThread& operator=(const WaitingThread&) = delete;

 private:
  [[nodiscard]] bool sleeps() const {
    std::ifstream in("/proc/self/task/" + std::to_string(id_) + "/stat");
    std::string text;
    std::getline(in, text);
    return text.find(") S ") != std::string::npos;
  }

  std::atomic<pid_t> id_{0};
  std::thread thread_;
};

class EventsBesideAThread : public Events {
 protected:
  /// Dispatches two events. During the first one a thread begins to wait for the client mutex,
  /// with which it runs `action`.
  void dispatchTwoBeside(const std::function<void()>& action) {
    connect();
    post("one");
    post("two");
    std::optional<WaitingThread> waiting;
    client.onEvent = [&] {
      if (!waiting) {
        waiting.emplace(client.core, action);
      }
    };
    EXPECT_EQ(client.core.receive(0), EvtRes_Success);
    waiting.reset();
    client.onEvent = nullptr;
  }
};

TEST_F(EventsBesideAThread, LetItHaveTheMutexBetweenThem) {
  std::vector<std::size_t> handled;
  dispatchTwoBeside([&] { handled.push_back(client.events.size()); });
  EXPECT_EQ(client.events.size(), 2U);
  EXPECT_EQ(handled, std::vector<std::size_t>{1});
}

TEST_F(EventsBesideAThread, StopWhenItClosesTheConnectionBetweenThem) {
  dispatchTwoBeside([&] { client.close(); });
  EXPECT_EQ(client.events.size(), 1U);
}

TEST_F(EventsBesideAThread, AreAllReceivedIfItDispatchesBetweenThem) {
  dispatchTwoBeside([&] {
    post("three");
    static_cast<void>(client.core.receive(0));
  });
  receiveAll();
  EXPECT_EQ(client.events.size(), 3U);
}

TEST_F(Events, ForADisconnectedClientEndItsConnection) {
  connect();
  client.destroy();
  post("unread");
  server.serveAll();
  EXPECT_EQ(server.connectionCount(), 0U);
}

TEST_F(Events, PendingAtAGracefulShutdownAreDeliveredBeforeTheStoppedEvent) {
  connect();
  const std::string bytes(1000, 'e');
  for (int i = 0; i < 200; ++i) {
    post(bytes);
  }
  server.beginStop();
  EXPECT_TRUE(server.stopping());
  EXPECT_FALSE(std::filesystem::exists(mailboxPath(name)));
  EXPECT_EQ(server.core.finishTerminations(0), EvtRes_Timeout);
  receiveAll();
  ASSERT_EQ(client.events.size(), 201U);
  EXPECT_EQ(client.events.back().first, stoppedEvent);
  EXPECT_EQ(server.core.finishTerminations(-1), EvtRes_Success);
  EXPECT_FALSE(server.stopping());
  EXPECT_FALSE(client.isOpen());
}

TEST_F(Events, PendingAtAGracefulShutdownLeaveAWakeToTheNextReceive) {
  connect();
  const std::string bytes(1000, 'e');
  for (int i = 0; i < 200; ++i) {
    post(bytes);
  }
  server.beginStop();
  server.core.wake();
  EXPECT_EQ(server.core.finishTerminations(0), EvtRes_Timeout);
  pollfd woken{reactorDescriptor(server), POLLIN, 0};
  ASSERT_EQ(::poll(&woken, 1, 0), 1);
  EXPECT_EQ(server.core.receive(-1), EvtRes_Timeout);
  EXPECT_EQ(::poll(&woken, 1, 0), 0);
}

TEST_F(Events, OfARequestThatStopsTheServerComeBeforeTheStoppedEvent) {
  connect();
  server.port.onRequest = [this] {
    server.beginStop();
    server.post(7, "changed by the request");
  };
  EXPECT_EQ(client.request(), EvtRes_Success);
  receiveAll();
  ASSERT_EQ(client.events.size(), 2U);
  EXPECT_EQ(client.events.front().first, 7);
  EXPECT_EQ(client.events.back().first, stoppedEvent);
  EXPECT_EQ(server.core.finishTerminations(-1), EvtRes_Success);
}

TEST_F(Events, OfARequestThatStopsTheServerAndDispatchesComeBeforeTheStoppedEvent) {
  connect();
  const std::string bytes(1000, 'e');
  for (int i = 0; i < 100; ++i) {
    post(bytes);
  }
  server.port.onRequest = [this] {
    server.beginStop();
    // Everything pending is sent while the request is still being handled.
    do {
      server.serveAll();
    } while (client.core.receive(0) == EvtRes_Success);
    server.post(7, "changed by the request");
  };
  EXPECT_EQ(client.request(), EvtRes_Success);
  receiveAll();
  ASSERT_EQ(client.events.size(), 102U);
  EXPECT_EQ(client.events[100].first, 7);
  EXPECT_EQ(client.events[101].first, stoppedEvent);
}

TEST_F(Events, EndWithTheConnectionIfTheRequestThatStopsTheServerThrows) {
  connect();
  server.port.onRequest = [this] {
    server.beginStop();
    throw std::runtime_error("from the program");
  };
  bool thrown = false;
  client.system.whileWaiting = [&] {
    try {
      server.serveAll();
    } catch (const std::runtime_error&) {
      thrown = true;
    }
  };
  EXPECT_EQ(client.request(), EvtRes_Closed);
  EXPECT_TRUE(thrown);
  EXPECT_FALSE(server.stopping());
  EXPECT_EQ(server.port.sessions, 0);
}

TEST_F(Events, OfAnExceptionOfTheProgramEndTheConnectionWithThatError) {
  connect();
  post("one");
  post("two");
  client.onEvent = [] { throw std::runtime_error("from the program"); };
  EXPECT_THROW(static_cast<void>(client.core.receive(0)), std::runtime_error);
  EXPECT_EQ(client.events.size(), 1U);
  client.onEvent = nullptr;
  EXPECT_FALSE(client.isOpen());
  EXPECT_EQ(client.request(), EvtRes_SystemError);
  server.serveAll();
  bool renewed = false;
  EXPECT_EQ(client.resume(renewed), EvtRes_Success);
  EXPECT_TRUE(renewed);
  client.events.clear();
  post("three");
  receiveAll();
  ASSERT_FALSE(client.events.empty());
  EXPECT_EQ(client.events.back().second, "three");
}

TEST_F(Events, AreWrittenInAtMostSixteenChunksATurn) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  RawClient raw;
  raw.makePipes();
  ASSERT_GT(::fcntl(raw.event, F_SETPIPE_SZ, 1 << 20), 1 << 19) << "has space for all";
  raw.writeToMailbox(name, raw.hello());
  server.serveAll();
  // Events that come inside a request are sent together.
  server.port.onRequest = [this] {
    for (int i = 0; i < 20; ++i) {
      post(std::string(PIPE_BUF - FrameHeader::size, 'e'));
    }
  };
  raw.writeRequest(frame(FrameKind::request, 5, 1, ""));
  EXPECT_EQ(server.core.receive(0), EvtRes_Success);
  EXPECT_EQ(server.port.eventsTaken, 16);
  server.serveAll();
  EXPECT_EQ(server.port.eventsTaken, 20);
}

TEST_F(Events, PostedAfterTheStoppedEventAreNotSent) {
  connect();
  bool stopped = false;
  client.system.whileWaiting = [&] {
    server.serveAll();
    if (server.port.handled == 1 && !std::exchange(stopped, true)) {
      // The pending reply keeps the connection open.
      server.beginStop();
      post("too late");
    }
  };
  std::string large(300'000, 'L');
  EXPECT_EQ(client.request(large), EvtRes_Success);
  EXPECT_TRUE(stopped);
  receiveAll();
  ASSERT_EQ(client.events.size(), 1U);
  EXPECT_EQ(client.events.back().first, stoppedEvent);
  EXPECT_EQ(server.core.finishTerminations(-1), EvtRes_Success);
}

TEST_F(Events, NotPendingLetAGracefulShutdownEndImmediately) {
  connect();
  server.beginStop();
  EXPECT_FALSE(server.stopping());
  EXPECT_EQ(server.core.finishTerminations(-1), EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Closed);
}

}  // namespace
}  // namespace EvtSrv::internal
