#include <sys/stat.h>

#include "tests/fault/fault_test.h"

namespace fault {
namespace {

constexpr mode_t permissionBits = 07777;
const std::vector<std::string> umasks{"0", "022", "0777"};

struct stat statusOf(const std::string& path) {
  struct stat status {};
  EXPECT_EQ(::lstat(path.c_str(), &status), 0) << path;
  EXPECT_TRUE(S_ISFIFO(status.st_mode)) << path;
  return status;
}

class PipeModes : public FaultTest, public testing::WithParamInterface<std::string> {
 protected:
  /// Sets the peer's umask to the one of this test. If the peer runs as root it becomes
  /// another user, for whom modes make a difference.
  void prepare(Peer& peer) {
    if (::geteuid() == 0) {
      ASSERT_EQ(peer.execute("become 54321 54321 54400"), "ok");
    }
    ASSERT_EQ(peer.execute("umask " + GetParam()), "ok");
  }

  static gid_t sharedGroup() { return ::geteuid() == 0 ? 54400 : ::getegid(); }

  /// Checks the private pipes of a client during its handshake, while the server is
  /// stopped.
  void expectPrivatePipes(mode_t mode, std::optional<gid_t> group) {
    server_.suspend();
    Peer client;
    prepare(client);
    client.send("connect " + port);
    const auto paths = awaitPrivatePipes(client.pid());
    ASSERT_EQ(paths.size(), 3U);
    for (const std::string& path : paths) {
      const struct stat status = statusOf(path);
      EXPECT_EQ(status.st_mode & permissionBits, mode) << path;
      if (group) {
        EXPECT_EQ(status.st_gid, *group) << path;
      }
    }
    server_.resume();
    EXPECT_EQ(client.result(), success());
    EXPECT_EQ(client.execute("get"), success() + " 0");
  }

  Peer server_;
};

TEST_P(PipeModes, MailboxAndPrivatePipesAreOpenToTheirUserOnly) {
  prepare(server_);
  ASSERT_EQ(server_.execute("serve " + port), success());
  EXPECT_EQ(statusOf(mailbox).st_mode & permissionBits, 0600U);
  expectPrivatePipes(0600, std::nullopt);
}

TEST_P(PipeModes, MailboxOfASharedPortIsOpenToTheGroupAndPrivatePipesOfItsUserAreNot) {
  prepare(server_);
  ASSERT_EQ(server_.execute("serve " + port + " " + std::to_string(sharedGroup())), success());
  EXPECT_EQ(statusOf(mailbox).st_mode & permissionBits, 0620U);
  EXPECT_EQ(statusOf(mailbox).st_gid, sharedGroup());
  expectPrivatePipes(0600, std::nullopt);
}

TEST_P(PipeModes, ModeOfAMailboxThatIsTakenOverIsSet) {
  ASSERT_EQ(::mkfifo(mailbox.c_str(), 0600), 0);
  ASSERT_EQ(::chmod(mailbox.c_str(), 0666), 0);
  if (::geteuid() == 0) {
    ASSERT_EQ(::chown(mailbox.c_str(), 54321, 54321), 0);
  }
  prepare(server_);
  ASSERT_EQ(server_.execute("serve " + port), success());
  EXPECT_EQ(statusOf(mailbox).st_mode & permissionBits, 0600U);
}

INSTANTIATE_TEST_SUITE_P(Umask, PipeModes, testing::ValuesIn(umasks),
                         [](const auto& row) { return "Is" + row.param; });

}  // namespace
}  // namespace fault
