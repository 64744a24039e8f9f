#include <sys/stat.h>

#include <cerrno>
#include <filesystem>
#include <memory>
#include <vector>

#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/platform/evtsrv/raw_client.h"

// A server whose mailbox somebody removes.

namespace EvtSrv::internal {
namespace {

class RemovedMailbox : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(server.start(name), EvtRes_Success);
    server.system.timerSpeed = 20;
  }
  void remove() const { ASSERT_EQ(::unlink(mailboxPath(name).c_str()), 0); }
  /// The code of the welcome of a new client; empty if the server sends none.
  std::optional<std::uint16_t> connect() {
    RawClient raw;
    raw.makePipes();
    raw.writeToMailbox(name, raw.hello());
    const std::int64_t end = server.system.nowMs() + 5000;
    std::optional<std::uint16_t> code;
    while (!code && server.system.nowMs() < end) {
      static_cast<void>(server.core.receive(100));
      code = raw.welcome();
    }
    return code;
  }

  std::string name = uniquePort();
  EchoServer server;
};

TEST_F(RemovedMailbox, IsReadAlsoIfThatFailsAtFirst) {
  for (const int error : {-ENOSPC, -ENOMEM}) {
    remove();
    // The first call ends the registration of the mailbox that was removed.
    server.system.failNext("epollCtl", error, 1, 3);
    server.serveAll();
    EXPECT_TRUE(server.system.hasFailed());
    EXPECT_EQ(connect(), EvtRes_Success);
  }
}

TEST_F(RemovedMailbox, IsWatchedByAFewInstancesHoweverManyPortsAProcessServes) {
  // Those of the last round are available again.
  for (int round = 0; round < 2; ++round) {
    std::vector<std::unique_ptr<EchoServer>> others;
    int created = server.system.watchesCreated;
    ASSERT_EQ(created, 1);
    for (int i = 0; i < 2 * WatchSlot::maxInProcess; ++i) {
      others.push_back(std::make_unique<EchoServer>());
      ASSERT_EQ(others.back()->start(uniquePort()), EvtRes_Success);
      // Some may fail: the processes of a user share a limit.
      created += others.back()->system.watchesCreated;
    }
    EXPECT_EQ(created, WatchSlot::maxInProcess);
    remove();
    server.serveAll();
    EXPECT_EQ(connect(), EvtRes_Success);
  }
}

TEST_F(RemovedMailbox, WhoseNameAnotherServerHasIsNotServed) {
  RawClient before;
  before.makePipes();
  before.openMailbox(name);
  remove();
  before.writeToMailbox(before.hello());
  // Its claim is that of another user.
  EchoServer other;
  other.system.user = 54321;
  other.system.owner = 54321;
  ASSERT_EQ(other.start(name), EvtRes_Success);
  server.serveAll();
  EXPECT_EQ(server.connectionCount(), 0U);
  EXPECT_TRUE(RawClient::readAll(before.reply).empty()) << "the hello is not served";
  other.destroy();
  while (!std::filesystem::exists(mailboxPath(name))) {
    ASSERT_EQ(server.core.receive(1), EvtRes_Timeout);
  }
  EXPECT_EQ(connect(), EvtRes_Success);
  EXPECT_TRUE(RawClient::readAll(before.reply).empty());
}

}  // namespace
}  // namespace EvtSrv::internal
