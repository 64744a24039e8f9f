#include "evtsrv/source/handshake.h"

#include <gmock/gmock.h>
#include <sys/file.h>

#include <utility>

#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/raw_client.h"

namespace EvtSrv::internal {
namespace {

class HandshakeWith : public testing::Test {
 protected:
  std::string name = uniquePort();
  EchoServer server;
  EchoClient client;
};

TEST_F(HandshakeWith, ALiveServerLeavesNoNames) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.pump();
  Handshake handshake(client.system);
  ASSERT_EQ(handshake.begin(name), EvtRes_Success);
  Deadline deadline(client.system, replyTimeoutMs);
  ASSERT_EQ(handshake.await(deadline), EvtRes_Success);
  const ConnectionPipes pipes = handshake.takePipes();
  for (const FileDescriptor* end : {&pipes.request, &pipes.reply, &pipes.event}) {
    struct stat status {};
    ASSERT_EQ(::fstat(end->number(), &status), 0);
    EXPECT_EQ(status.st_nlink, 0U);
    EXPECT_EQ(status.st_mode & 07777U, 0600U);
    EXPECT_NE(::fcntl(end->number(), F_GETFD) & FD_CLOEXEC, 0);
  }
}

/// Counts the calls for files.
class CountingSystem : public PosixSystem {
 public:
  int calls = 0;

  int makeFifo(const std::string& path, mode_t mode) override {
    ++calls;
    return PosixSystem::makeFifo(path, mode);
  }
  int fstat(int descriptor, struct stat& out) override {
    ++calls;
    return PosixSystem::fstat(descriptor, out);
  }
  int setMode(int descriptor, mode_t mode) override {
    ++calls;
    return PosixSystem::setMode(descriptor, mode);
  }

 protected:
  int openOnce(const char* path, int flags) override {
    ++calls;
    return PosixSystem::openOnce(path, flags);
  }
  int lockOnce(int descriptor) override {
    ++calls;
    return PosixSystem::lockOnce(descriptor);
  }
};

TEST_F(HandshakeWith, APrivatePipeIsMadeInFourCalls) {
  CountingSystem counting;
  int made = -EEXIST;
  while (made == -EEXIST) {
    Token token{};
    ASSERT_EQ(counting.random(token), 0);
    PrivatePipe pipe;
    counting.calls = 0;
    made = pipe.make(counting, privatePipePath(token, PipePurpose::reply), {});
  }
  ASSERT_EQ(made, 0);
  EXPECT_EQ(counting.calls, 4);
}

TEST_F(HandshakeWith, ManyClientsAtTheSameTimeSucceeds) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.pump();
  std::vector<std::thread> threads;
  std::atomic<int> connected{0};
  constexpr int clients = 4;
  constexpr int rounds = 10;
  for (int i = 0; i < clients; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < rounds; ++round) {
        EchoClient one;
        if (one.connect(name) == EvtRes_Success && one.request() == EvtRes_Success) {
          ++connected;
        }
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(connected, clients * rounds);
}

/// Fills the mailbox with hellos whose pipes do not exist.
void fillMailbox(const std::string& port) {
  FileDescriptor mailbox;
  ASSERT_EQ(
      mailbox.adopt(posixSystem(), posixSystem().open(mailboxPath(port), O_WRONLY | O_NONBLOCK)),
      0);
  Hello hello;
  ssize_t written = 0;
  while (written >= 0) {
    ASSERT_EQ(posixSystem().random(hello.token), 0);
    written = posixSystem().write(mailbox.number(), encodeHello(hello));
  }
  ASSERT_EQ(written, -EAGAIN);
}

TEST_F(HandshakeWith, AFullMailboxContinuesWhenItIsWritable) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  fillMailbox(name);
  client.system.freezeTime();
  client.system.whileWaiting = [&] { server.serveAll(); };
  EXPECT_EQ(client.connect(name), EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Success);
}

TEST_F(HandshakeWith, AMailboxThatIsMadeAgainTriesAgain) {
  ASSERT_EQ(::mkfifo(mailboxPath(name).c_str(), 0600), 0);
  const int former = ::open(mailboxPath(name).c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(former, 0);
  client.system.freezeTime();
  bool madeAgain = false;
  client.system.whileWaiting = [&] {
    if (!std::exchange(madeAgain, true)) {
      // The hello in the former mailbox is never read.
      EXPECT_EQ(::unlink(mailboxPath(name).c_str()), 0);
      EXPECT_EQ(server.start(name), EvtRes_Success);
      ::close(former);
    }
    server.serveAll();
  };
  EXPECT_EQ(client.connect(name), EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Success);
}

TEST_F(HandshakeWith, AFullMailboxTimesOutAndMayContinueLater) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  fillMailbox(name);
  client.system.freezeTime();
  const std::int64_t before = client.system.nowMs();
  EXPECT_EQ(client.connect(name), EvtRes_Timeout);
  EXPECT_GE(client.system.nowMs() - before, replyTimeoutMs);
  bool renewed = false;
  EXPECT_EQ(client.resume(renewed), EvtRes_Stalled);
  server.serveAll();
  EXPECT_EQ(client.resume(renewed), EvtRes_Stalled) << "the hello is sent now";
  server.serveAll();
  EXPECT_EQ(client.resume(renewed), EvtRes_Success);
  EXPECT_TRUE(renewed);
  EXPECT_EQ(server.connectionCount(), 1U);
}

TEST_F(HandshakeWith, AServerThatRefusesTheClientFails) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.port.refusesClients = true;
  server.pump();
  EXPECT_EQ(client.connect(name), EvtRes_Refused);
  EXPECT_FALSE(client.isOpen());
}

TEST_F(HandshakeWith, AServerOutOfDescriptorsFailsImmediately) {
  for (int skip = 0; skip < 3; ++skip) {
    EchoServer full;
    EchoClient late;
    const std::string port = uniquePort();
    ASSERT_EQ(full.start(port), EvtRes_Success);
    full.system.failNext("open", -EMFILE, skip);
    late.system.freezeTime();
    late.system.whileWaiting = [&] { full.serveAll(); };
    EXPECT_EQ(late.connect(port), EvtRes_NoDescriptors) << skip;
    EXPECT_TRUE(full.system.hasFailed());
    EXPECT_EQ(full.connectionCount(), 0U);
    EXPECT_EQ(late.connect(port), EvtRes_Success) << "the reserve descriptor is open again";
  }
}

struct FailedCall {
  const char* call;
  int error;
};

void PrintTo(const FailedCall& failure, std::ostream* out) {
  *out << failure.call << " returns " << failure.error;
}

class FailingCall : public testing::TestWithParam<FailedCall> {};

/// Connects, makes a request and receives an event. Repeats that with the first such call
/// failing, then the second and so on, until there is no such call any more.
template <typename Choose>
void runWithErrors(const FailedCall& failure, Choose systemOf) {
  const std::size_t before = openDescriptors();
  bool failed = true;
  for (int skip = 0; failed; ++skip) {
    ASSERT_LT(skip, 500);
    const std::string name = uniquePort();
    {
      EchoServer server;
      EchoClient client;
      ASSERT_EQ(server.start(name), EvtRes_Success);
      client.system.freezeTime();
      client.system.whileWaiting = [&] {
        // Twice, because an interrupted wait returns nothing.
        server.serveAll();
        server.serveAll();
      };
      TestSystem& system = systemOf(server, client);
      system.failNext(failure.call, failure.error, skip);
      EvtRes result = client.connect(name);
      if (result == EvtRes_Success) {
        result = client.request();
      }
      static_cast<void>(client.core.receive(0));
      failed = system.hasFailed();
      if (!failed || failure.error == -EINTR) {
        EXPECT_EQ(result, EvtRes_Success) << skip;
      }
      client.destroy();
      server.serveAll();
      for (const std::string& path : client.system.made) {
        EXPECT_FALSE(std::filesystem::exists(path)) << skip;
      }
    }
    // A server that fails to check its mailbox does not remove it.
    ::unlink(mailboxPath(name).c_str());
    ASSERT_EQ(openDescriptors(), before) << skip;
  }
}

TEST_P(FailingCall, OfTheClientReturnsAnErrorAndLeaksNothing) {
  runWithErrors(GetParam(),
                [](EchoServer&, EchoClient& client) -> TestSystem& { return client.system; });
}

TEST_P(FailingCall, OfTheServerIsHandledAndLeaksNothing) {
  runWithErrors(GetParam(),
                [](EchoServer& server, EchoClient&) -> TestSystem& { return server.system; });
}

INSTANTIATE_TEST_SUITE_P(
    Each, FailingCall,
    testing::Values(
        FailedCall{"open", -EMFILE}, FailedCall{"open", -EACCES}, FailedCall{"open", -EINTR},
        FailedCall{"read", -EIO}, FailedCall{"read", -EINTR}, FailedCall{"write", -EIO},
        FailedCall{"write", -EPIPE}, FailedCall{"write", -EINTR}, FailedCall{"write", -EAGAIN},
        FailedCall{"lock", -EIO}, FailedCall{"lock", -EINTR}, FailedCall{"poll", -ENOMEM},
        FailedCall{"poll", -EINTR}, FailedCall{"epollCtl", -ENOSPC},
        FailedCall{"waitEpoll", -EINTR}, FailedCall{"makeFifo", -ENOSPC},
        FailedCall{"makeFifo", -EEXIST}, FailedCall{"fstat", -EIO}, FailedCall{"lstat", -EIO},
        FailedCall{"list", -EMFILE}, FailedCall{"random", -EIO}),
    [](const auto& parameter) {
      return std::string(parameter.param.call) + "_" + strerrorname_np(-parameter.param.error);
    });

TEST(ServerStart, ReturnsAnErrorIfAnyCallFails) {
  for (const FailedCall& failure :
       {FailedCall{"createEvent", -EMFILE}, FailedCall{"makeFifo", -EACCES},
        FailedCall{"open", -EMFILE}, FailedCall{"fstat", -EIO}, FailedCall{"lock", -EIO},
        FailedCall{"lstat", -EIO}, FailedCall{"epollCtl", -ENOSPC}, FailedCall{"read", -EIO}}) {
    const std::size_t before = openDescriptors();
    bool failed = true;
    for (int skip = 0; failed; ++skip) {
      const std::string name = uniquePort();
      {
        EchoServer server;
        server.system.failNext(failure.call, failure.error, skip);
        const EvtRes started = server.start(name);
        failed = server.system.hasFailed();
        EXPECT_TRUE(failed || started == EvtRes_Success) << failure.call << skip;
        EchoServer second;
        EXPECT_EQ(second.start(name),
                  started == EvtRes_Success ? EvtRes_NameInUse : EvtRes_Success);
      }
      ::unlink(mailboxPath(name).c_str());
    }
    EXPECT_EQ(openDescriptors(), before) << failure.call;
  }
}

TEST(PrivatePipes, KeepTheirAccessTimes) {
  const std::string name = uniquePort();
  EchoServer server;
  ASSERT_EQ(server.start(name), EvtRes_Success);
  RawClient client;
  client.makePipes();
  client.writeToMailbox(name, client.hello());
  server.serveAll();
  client.writeRequest(frame(FrameKind::request, 7, 1, "text"));
  struct stat before {};
  struct stat after {};
  ASSERT_EQ(::fstat(client.request, &before), 0);
  server.serveAll();
  ASSERT_EQ(::fstat(client.request, &after), 0);
  EXPECT_EQ(server.port.handled, 1);
  EXPECT_EQ(after.st_atim.tv_sec, before.st_atim.tv_sec);
  EXPECT_EQ(after.st_atim.tv_nsec, before.st_atim.tv_nsec);
}

TEST(PrivatePipes, OfAnotherUserAreReadWhereOnlyTheOwnerMayKeepTheAccessTime) {
  const std::string name = uniquePort();
  EchoServer server;
  ASSERT_EQ(server.start(name), EvtRes_Success);
  RawClient client;
  client.makePipes();
  // After those of the two pipes that it writes to.
  server.system.failNext("open", -EPERM, 2);
  client.writeToMailbox(name, client.hello());
  server.serveAll();
  EXPECT_TRUE(server.system.hasFailed());
  EXPECT_EQ(client.welcome(), EvtRes_Success);
}

}  // namespace
}  // namespace EvtSrv::internal
