#pragma once

#include <chrono>
#include <optional>

#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/poll_loop.h"
#include "tests/support/own_mounts.h"

/// A client and a server that comes and goes.
namespace EvtSrv::internal {

/// A client that records its connection's life, and is driven by nothing but its poll
/// descriptor.
class ReturningClient : public EchoClient {
 public:
  using EchoClient::EchoClient;

  void connectionLost() override { ++losses; }
  void connectionMade() override { ++returns; }
  void replyReceived(std::uint16_t replyCode) override { replies.push_back(replyCode); }

  evtsrv_tests::PollLoop loop{core.pollDescriptor(),
                              [this] { static_cast<void>(core.receive(0)); }};
  int losses = 0;
  int returns = 0;
  std::vector<std::uint16_t> replies;
};

class Return : public testing::Test {
 protected:
  /// The client watches /tmp while its server is away: files that others make there wake it.
  static void SetUpTestSuite() {
    static const bool mounted = test_support::haveOwnMounts() && test_support::mountOwnTmp();
    othersDisturb = !mounted;
  }
  static inline bool othersDisturb = false;
  /// Whether so many wake-ups are those of a client that waits; without a /tmp of its own
  /// their number means nothing.
  static bool isFew(int wakeUps) { return wakeUps < 20 || othersDisturb; }

  void SetUp() override {
    startServer();
    ASSERT_EQ(client.connect(name), EvtRes_Success);
  }
  void TearDown() override { ::unlink(mailboxPath(name).c_str()); }

  void startServer() {
    server.emplace();
    ASSERT_EQ(server->start(name), EvtRes_Success);
    server->pump();
  }
  /// As a server that is killed: the mailbox stays, and no process reads it.
  void killServer() {
    server.reset();
    ASSERT_EQ(::mkfifo(mailboxPath(name).c_str(), 0600), 0);
  }
  bool returned(int times) {
    return client.loop.runUntil([&] { return client.returns == times; });
  }

  std::string name = uniquePort();
  std::optional<EchoServer> server;
  ReturningClient client;
};

}  // namespace EvtSrv::internal
