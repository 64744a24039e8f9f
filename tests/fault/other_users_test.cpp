#include <sys/stat.h>

#include <algorithm>

#include "tests/fault/fault_test.h"

// Which users may connect. The processes of several users can only be started by root.

namespace fault {
namespace {

using ModelSrv::ModelRes_NotPermitted;
using ModelSrv::ModelRes_Success;

// Ids without accounts.
constexpr const char* owner = "become 54321 54321 54400";
constexpr const char* otherUser = "become 54322 54322";
constexpr const char* member = "become 54323 54323 54400";
constexpr const char* primaryMember = "become 54324 54400";
constexpr const char* sharedGroup = " 54400";

class OtherUsers : public FaultTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "only root can start processes of other users";
    }
  }

  /// Expects that a process with `identity` can connect and make requests.
  void expectAccess(const char* identity) {
    Peer client;
    ASSERT_EQ(client.execute(identity), "ok");
    EXPECT_EQ(client.execute("connect " + port), success());
    EXPECT_EQ(client.execute("store 4"), success());
    EXPECT_EQ(client.execute("get"), success() + " 4");
    EXPECT_TRUE(namedPrivatePipes(client.pid()).empty());
  }

  void expectNoAccess(const char* identity) {
    Peer client;
    ASSERT_EQ(client.execute(identity), "ok");
    EXPECT_EQ(client.execute("connect " + port), number(ModelRes_NotPermitted));
    EXPECT_EQ(privatePipeCount(client.pid()), 0U);
  }

  void serve(const std::string& group = {}) {
    ASSERT_EQ(server_.execute(owner), "ok");
    ASSERT_EQ(server_.execute("serve " + port + group), success());
  }

  Peer server_;
};

TEST_F(OtherUsers, SameUserMayConnect) {
  serve();
  expectAccess(owner);
}

TEST_F(OtherUsers, AnotherUserMayNotConnect) {
  serve();
  expectNoAccess(otherUser);
}

TEST_F(OtherUsers, MemberOfTheServersGroupsMayNotConnectIfThePortIsNotShared) {
  serve();
  expectNoAccess(member);
}

TEST_F(OtherUsers, MemberOfTheGroupMayConnect) {
  serve(sharedGroup);
  expectAccess(member);
}

TEST_F(OtherUsers, MemberByItsPrimaryGroupMayNotConnect) {
  serve(sharedGroup);
  expectNoAccess(primaryMember);
}

TEST_F(OtherUsers, NonMemberMayNotConnectToASharedPort) {
  serve(sharedGroup);
  expectNoAccess(otherUser);
}

TEST_F(OtherUsers, RootConnectsToAnotherUsersServer) {
  serve();
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_EQ(client.store(client.counter, "3").result, ModelRes_Success);
  EXPECT_EQ(client.get(client.counter).text, "3");
}

TEST_F(OtherUsers, RootConnectsToAnotherUsersSharedPort) {
  serve(sharedGroup);
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_EQ(client.get(client.counter).text, "0");
}

TEST_F(OtherUsers, RootGivesItsPrivatePipesToTheMailboxsOwner) {
  serve();
  server_.suspend();
  Peer client;
  client.send("connect " + port);
  const auto given = [&] {
    const auto paths = namedPrivatePipes(client.pid());
    return paths.size() == 3 &&
           std::all_of(paths.begin(), paths.end(), [](const std::string& path) {
             struct stat status {};
             return ::lstat(path.c_str(), &status) == 0 && status.st_uid == 54321;
           });
  };
  EXPECT_TRUE(eventually(given));
  server_.resume();
  EXPECT_EQ(client.result(), success());
}

TEST_F(OtherUsers, AnotherUserMayNotConnectToRootsServer) {
  ASSERT_EQ(server_.execute("serve " + port), success());
  expectNoAccess(otherUser);
}

TEST_F(OtherUsers, MemberMayConnectToRootsServer) {
  ASSERT_EQ(server_.execute("serve " + port + sharedGroup), success());
  expectAccess(member);
}

TEST_F(OtherUsers, GroupThatTheServerIsNotAMemberOfIsRejectedAndLeavesNoMailbox) {
  ASSERT_EQ(server_.execute(otherUser), "ok");
  EXPECT_EQ(server_.execute("serve " + port + sharedGroup), number(ModelRes_NotPermitted));
  EXPECT_NE(::access(mailbox.c_str(), F_OK), 0);
}

TEST_F(OtherUsers, AnotherUserCannotTakeTheNameOfALiveOrADeadServer) {
  serve();
  Peer other;
  ASSERT_EQ(other.execute(otherUser), "ok");
  EXPECT_EQ(other.execute("serve " + port), number(ModelRes_NotPermitted));
  server_.kill();
  EXPECT_EQ(other.execute("serve " + port), number(ModelRes_NotPermitted));
}

}  // namespace
}  // namespace fault
