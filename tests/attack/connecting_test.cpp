#include <fcntl.h>

#include "tests/attack/attack_test.h"
#include "tests/fault/raw_pipe.h"

// Whose mailboxes a client writes to, and to whom a session may connect again.

namespace attack {
namespace {

using fault::Peer;
using fault::RawPipe;
using ModelSrv::ModelRes_NotPermitted;
using test_support::run;

class AttackConnecting : public AttackTest {
 protected:
  /// Expects that a client of `identity` does not write to the mailbox, which is planted.
  void expectNoHello(const Identity& identity) {
    const RawPipe reader = RawPipe::open(mailbox, O_RDWR);
    Peer client;
    start(client, identity);
    EXPECT_EQ(client.execute("connect " + port), number(ModelRes_NotPermitted));
    EXPECT_EQ(reader.pendingBytes(), 0U);
  }

  test_support::Finished runShell() const {
    return run({test_support::treescopeProgram(), "-c", "cd " + port});
  }
};

TEST_F(AttackConnecting, UserSendsNoHelloToAStrangersMailbox) {
  plant(mailbox, stranger, 0666);
  expectNoHello(owner);
}

TEST_F(AttackConnecting, UserSendsNoHelloToAMailboxOfItsPrimaryGroup) {
  for (const mode_t mode : {0620U, 0660U}) {
    plant(mailbox, neighbour, mode);
    expectNoHello(otherNeighbour);
    ASSERT_EQ(::unlink(mailbox.c_str()), 0);
  }
}

TEST_F(AttackConnecting, UserSendsNoHelloToAMailboxOfItsPrimaryGroupThatIsListedTwice) {
  // As initgroups(3) sets the groups: the primary one is among the supplementary ones.
  plant(mailbox, neighbour, 0620);
  expectNoHello({otherNeighbour.user, commonGroup, {sharedGroup, commonGroup}});
}

TEST_F(AttackConnecting, MemberSendsNoHelloToASharedMailboxThatMembersCanRead) {
  plant(mailbox, {owner.user, sharedGroup}, 0660);
  expectNoHello(member);
}

TEST_F(AttackConnecting, MemberSendsNoHelloToASharedMailboxThatOthersCanWriteTo) {
  plant(mailbox, {owner.user, sharedGroup}, 0622);
  expectNoHello(member);
}

TEST_F(AttackConnecting, RootLearnsWhoseServerItIs) {
  Peer server;
  start(server, owner);
  ASSERT_EQ(server.execute("serve " + port), success());
  Peer client;
  EXPECT_EQ(client.execute("owner"), "none");
  ASSERT_EQ(client.execute("connect " + port), success());
  EXPECT_EQ(client.execute("owner"), std::to_string(owner.user));
}

TEST_F(AttackConnecting, RootsShellSaysWhoseServerItIs) {
  Peer server;
  start(server, owner);
  ASSERT_EQ(server.execute("serve " + port), success());
  const auto shell = runShell();
  EXPECT_EQ(shell.errors, "treescope: " + port + ": the server of user 54321\n");
  EXPECT_EQ(shell.output, "");
}

TEST_F(AttackConnecting, RootsShellSaysNothingOfItsOwnServer) {
  Peer server;
  ASSERT_EQ(server.execute("serve " + port), success());
  EXPECT_EQ(runShell().errors, "");
}

class AttackPinnedSession : public AttackTest {
 protected:
  /// Connects a client of `identity`, then lets `impostor` serve the name instead, and
  /// expects that nothing of the session reaches it.
  void expectLost(const Identity& identity, const Identity& impostor,
                  const std::string& group = {}) {
    Peer server;
    start(server, owner);
    ASSERT_EQ(server.execute("serve " + port + " " + std::to_string(sharedGroup)), success());
    Peer client;
    start(client, identity);
    ASSERT_EQ(client.execute("connect " + port), success());
    ASSERT_EQ(client.execute("subscribe"), success());
    server.kill();
    ASSERT_EQ(::unlink(mailbox.c_str()), 0);

    Peer other;
    start(other, impostor);
    ASSERT_EQ(other.execute("serve " + port + " " + group), success());
    EXPECT_EQ(client.execute("store 9"), number(ModelRes_NotPermitted));
    EXPECT_EQ(client.execute("get"), number(ModelRes_NotPermitted) + " ");
    Peer witness;
    start(witness, impostor);
    ASSERT_EQ(witness.execute("connect " + port), success());
    EXPECT_EQ(witness.execute("get"), success() + " 0");
    EXPECT_EQ(fault::privatePipeCount(other.pid()), 3U) << "more than the witness's";
    // The session goes on when its own server is back.
    other.quit();
    Peer returned;
    start(returned, owner);
    ASSERT_EQ(returned.execute("serve " + port + " " + std::to_string(sharedGroup)), success());
    EXPECT_EQ(client.execute("store 5"), success());
  }
};

TEST_F(AttackPinnedSession, OfRootIsNotContinuedWithTheServerOfAnotherUser) {
  expectLost(root, stranger);
}

TEST_F(AttackPinnedSession, OfAMemberIsNotContinuedWithTheServerOfAnotherMember) {
  expectLost(member, otherMember, std::to_string(sharedGroup));
}

TEST_F(AttackPinnedSession, OfAMemberIsNotContinuedWithItsOwnServer) {
  expectLost(member, member);
}

TEST_F(AttackPinnedSession, OfTheOwnerIsNotContinuedWithAnotherGroup) {
  expectLost(owner, owner);
}

}  // namespace
}  // namespace attack
