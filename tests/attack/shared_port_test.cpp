#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>

#include <algorithm>

#include "tests/attack/attack_test.h"
#include "tests/fault/raw_pipe.h"

// A port that its server shares with a group: what the members can do to each other, to the
// server and to users outside the group.

namespace attack {
namespace {

using fault::Peer;
using fault::RawPipe;
using ModelSrv::ModelRes_NotPermitted;

constexpr std::array<const char*, 3> suffixes{".req", ".rep", ".evt"};

class AttackSharedPort : public AttackTest {
 protected:
  void serve(const Identity& identity) {
    start(server_, identity);
    ASSERT_EQ(server_.execute("serve " + port + " " + std::to_string(sharedGroup)), success());
  }

  /// errno of an open of `path` by `identity`; 0 if it succeeds.
  static int openAs(const Identity& identity, const std::string& path, int flags) {
    return doAs(identity, [&] {
      return ::open(path.c_str(), flags | O_NONBLOCK | O_CLOEXEC) >= 0 ? 0 : errno;
    });
  }

  /// The state of the private pipes of a client of `identity` during its handshake.
  std::vector<struct stat> privatePipesOf(const Identity& identity) {
    server_.suspend();
    Peer client;
    start(client, identity);
    client.send("connect " + port);
    std::vector<struct stat> pipes;
    for (const std::string& path : fault::awaitPrivatePipes(client.pid())) {
      EXPECT_EQ(::lstat(path.c_str(), &pipes.emplace_back()), 0);
    }
    server_.resume();
    EXPECT_EQ(client.result(), success());
    EXPECT_EQ(client.execute("get"), success() + " 0");
    EXPECT_EQ(pipes.size(), 3U);
    return pipes;
  }

  Peer server_;
};

TEST_F(AttackSharedPort, MemberCannotReadTheHellosOfOthers) {
  serve(owner);
  EXPECT_EQ(modeOf(mailbox), 0620U);
  EXPECT_EQ(openAs(member, mailbox, O_RDONLY), EACCES);
  EXPECT_EQ(openAs(member, mailbox, O_RDWR), EACCES);
  EXPECT_EQ(openAs(member, mailbox, O_WRONLY), 0);
  EXPECT_EQ(openAs(stranger, mailbox, O_WRONLY), EACCES);
}

TEST_F(AttackSharedPort, PrivatePipesForRootsServerAreTheUsersOwn) {
  serve(root);
  for (const struct stat& pipe : privatePipesOf(member)) {
    EXPECT_EQ(pipe.st_mode & 07777U, 0600U);
    EXPECT_EQ(pipe.st_uid, member.user);
  }
}

TEST_F(AttackSharedPort, PrivatePipesForAUsersServerAreOpenToTheGroup) {
  serve(owner);
  for (const struct stat& pipe : privatePipesOf(member)) {
    EXPECT_EQ(pipe.st_mode & 07777U, 0660U);
    EXPECT_EQ(pipe.st_gid, sharedGroup);
  }
}

TEST_F(AttackSharedPort, PrivatePipesOfRootAreOpenToTheServersUserOnly) {
  serve(owner);
  for (const struct stat& pipe : privatePipesOf(root)) {
    EXPECT_EQ(pipe.st_mode & 07777U, 0600U);
    EXPECT_EQ(pipe.st_uid, owner.user);
  }
}

TEST_F(AttackSharedPort, PrivatePipesAreNotOpenToThePrimaryGroup) {
  // The server shares its port with the primary group of its user.
  start(server_, neighbour);
  ASSERT_EQ(server_.execute("serve " + port + " " + std::to_string(commonGroup)), success());
  for (const struct stat& pipe : privatePipesOf(neighbour)) {
    EXPECT_EQ(pipe.st_mode & 07777U, 0600U);
  }
}

TEST_F(AttackSharedPort, MemberByItsPrimaryGroupReachesRootsServer) {
  serve(root);
  Peer client;
  start(client, {member.user, sharedGroup});
  EXPECT_EQ(client.execute("connect " + port), success());
}

TEST_F(AttackSharedPort, HelloThatAMemberRepeatsReachesNoSession) {
  serve(root);
  fault::RawClient victim;
  ASSERT_TRUE(victim.sendHello(mailbox));
  // The session is open, and its pipes still have names.
  ASSERT_TRUE(fault::eventually([&] { return victim.replies.pendingBytes() > 0; }));
  EXPECT_EQ(doAs(member,
                 [&] {
                   const auto hello = fault::wire::hello(victim.token);
                   return RawPipe::open(mailbox, O_WRONLY).write(hello) ? 0 : 1;
                 }),
            0);
  // The server has handled that hello when it has handled a later one.
  Peer client;
  start(client, member);
  EXPECT_EQ(client.execute("connect " + port), success());
  EXPECT_EQ(fault::privatePipeCount(server_.pid()), 6U);
  EXPECT_TRUE(victim.awaitWelcome());
  EXPECT_EQ(victim.replies.pendingBytes(), 0U);
}

/// A member names the private pipes of somebody else in a hello of its own.
class AttackBorrowedPipes : public AttackSharedPort {
 protected:
  void expectNotOpened(const Identity& victim) {
    const std::string token = fault::wire::newToken();
    const auto pathOf = [&](const char* suffix) {
      return fault::wire::privatePipePath(token, suffix);
    };
    for (const char* const suffix : suffixes) {
      plant(pathOf(suffix), victim, 0600);
    }
    // Not for writing: so the end of a writer is seen.
    const RawPipe replies = RawPipe::open(pathOf(".rep"), O_RDONLY);
    ASSERT_TRUE(replies.lock()) << "swept";
    ASSERT_EQ(doAs(member,
                   [&] {
                     return RawPipe::open(mailbox, O_WRONLY).write(fault::wire::hello(token)) ? 0
                                                                                              : 1;
                   }),
              0);
    // The server has handled that hello when it has handled a later one.
    Peer client;
    start(client, member);
    EXPECT_EQ(client.execute("connect " + port), success());
    pollfd pipe{replies.descriptor(), POLLIN, 0};
    EXPECT_EQ(::poll(&pipe, 1, 0), 0) << pipe.revents;
    EXPECT_EQ(fault::privatePipeCount(server_.pid()), 3U);
  }
};

TEST_F(AttackBorrowedPipes, OfAStrangerAreNotOpenedByRootsServer) {
  serve(root);
  expectNotOpened(stranger);
}

TEST_F(AttackBorrowedPipes, OfAMembersOtherConnectionAreNotOpenedByRootsServer) {
  serve(root);
  expectNotOpened({otherMember.user, otherMember.user, {sharedGroup}});
}

TEST_F(AttackBorrowedPipes, OfAStrangerAreNotOpenedByAUsersServer) {
  serve(owner);
  expectNotOpened(stranger);
}

}  // namespace
}  // namespace attack
