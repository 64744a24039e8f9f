#include <fcntl.h>
#include <sys/stat.h>

#include "tests/attack/attack_test.h"
#include "tests/fault/raw_pipe.h"

// Another user has made the mailbox, or a link to it.

namespace attack {
namespace {

using fault::Client;
using fault::Peer;
using fault::RawPipe;
using ModelSrv::ModelRes_NotPermitted;
using ModelSrv::ModelRes_Success;

class AttackForeignMailbox : public AttackTest {
 protected:
  /// Expects that no server of `identity` serves the mailbox that a stranger has planted.
  void expectNotServed(const Identity& identity) {
    plant(mailbox, stranger, 0666);
    Peer server;
    start(server, identity);
    EXPECT_EQ(server.execute("serve " + port), number(ModelRes_NotPermitted));
    EXPECT_EQ(modeOf(mailbox), 0666U) << "the server has changed it";
  }
};

TEST_F(AttackForeignMailbox, IsNotServedByRoot) {
  expectNotServed(root);
}

TEST_F(AttackForeignMailbox, IsNotServedByAnotherUser) {
  expectNotServed(owner);
}

TEST_F(AttackForeignMailbox, OfRootIsNotServedByAUser) {
  plant(mailbox, root, 0666);
  Peer server;
  start(server, owner);
  EXPECT_EQ(server.execute("serve " + port), number(ModelRes_NotPermitted));
}

TEST_F(AttackForeignMailbox, OfAMemberIsNotServedByAServerOfTheGroup) {
  plant(mailbox, {member.user, sharedGroup}, 0660);
  Peer server;
  start(server, owner);
  EXPECT_EQ(server.execute("serve " + port + " " + std::to_string(sharedGroup)),
            number(ModelRes_NotPermitted));
}

TEST_F(AttackForeignMailbox, WithASecondLinkIsNotServed) {
  plant(mailbox, owner, 0600);
  ASSERT_EQ(::link(mailbox.c_str(), "/tmp/second"), 0);
  Peer server;
  start(server, owner);
  EXPECT_EQ(server.execute("serve " + port), number(ModelRes_NotPermitted));
}

TEST_F(AttackForeignMailbox, WithASecondLinkGetsNoHello) {
  plant(mailbox, root, 0600);
  ASSERT_EQ(::link(mailbox.c_str(), "/tmp/second"), 0);
  const RawPipe reader = RawPipe::open(mailbox, O_RDWR);
  Client client;
  EXPECT_EQ(client.connect(port).result, ModelRes_NotPermitted);
  EXPECT_EQ(reader.pendingBytes(), 0U);
}

}  // namespace
}  // namespace attack
