#include <sys/stat.h>

#include <algorithm>

#include "tests/fault/fault_test.h"

// Who gets in, tried by processes of several users: as root alone.

namespace fault {
namespace {

using ModelSrv::ModelRes_NotPermitted;
using ModelSrv::ModelRes_Success;

// Numbers without accounts.
constexpr const char* owner = "become 54321 54321 54400";
constexpr const char* stranger = "become 54322 54322";
constexpr const char* member = "become 54323 54323 54400";
constexpr const char* primaryMember = "become 54324 54400";
constexpr const char* sharedGroup = " 54400";

class OtherUsersTest : public FaultTest {
 protected:
  void SetUp() override {
    if (::geteuid() != 0) {
      GTEST_SKIP() << "only root can start processes of other users";
    }
  }

  /// What `identity` is told when it connects, and whether it then can ask.
  void expectLetIn(const char* identity) {
    Peer client;
    ASSERT_EQ(client.ask(identity), "ok");
    EXPECT_EQ(client.ask("connect " + port), success());
    EXPECT_EQ(client.ask("store 4"), success());
    EXPECT_EQ(client.ask("get"), success() + " 4");
    EXPECT_TRUE(namedPrivatePipes(client.pid()).empty());
  }

  void expectKeptOut(const char* identity) {
    Peer client;
    ASSERT_EQ(client.ask(identity), "ok");
    EXPECT_EQ(client.ask("connect " + port), number(ModelRes_NotPermitted));
    EXPECT_EQ(privatePipeCount(client.pid()), 0U);
  }

  void serve(const std::string& group = {}) {
    ASSERT_EQ(server_.ask(owner), "ok");
    ASSERT_EQ(server_.ask("serve " + port + group), success());
  }

  Peer server_;
};

TEST_F(OtherUsersTest, SameUserIsLetIn) {
  serve();
  expectLetIn(owner);
}

TEST_F(OtherUsersTest, AnotherUserIsKeptOut) {
  serve();
  expectKeptOut(stranger);
}

TEST_F(OtherUsersTest, MemberOfTheServersGroupsIsKeptOutWhereNoGroupWasNamed) {
  serve();
  expectKeptOut(member);
}

TEST_F(OtherUsersTest, MemberOfTheGroupIsLetIn) {
  serve(sharedGroup);
  expectLetIn(member);
}

TEST_F(OtherUsersTest, MemberByItsPrimaryGroupIsLetIn) {
  serve(sharedGroup);
  expectLetIn(primaryMember);
}

TEST_F(OtherUsersTest, NonMemberIsKeptOutOfAGroupsPort) {
  serve(sharedGroup);
  expectKeptOut(stranger);
}

TEST_F(OtherUsersTest, RootConnectsToAnotherUsersServer) {
  serve();
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_EQ(client.store(client.counter, "3").result, ModelRes_Success);
  EXPECT_EQ(client.get(client.counter).text, "3");
}

TEST_F(OtherUsersTest, RootConnectsToAnotherUsersServerThatAGroupShares) {
  serve(sharedGroup);
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_EQ(client.get(client.counter).text, "0");
}

TEST_F(OtherUsersTest, RootGivesItsPrivatePipesToTheMailboxsOwner) {
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
  EXPECT_EQ(client.answer(), success());
}

TEST_F(OtherUsersTest, AnotherUserIsKeptOutOfRootsServer) {
  ASSERT_EQ(server_.ask("serve " + port), success());
  expectKeptOut(stranger);
}

TEST_F(OtherUsersTest, MemberIsLetIntoRootsServer) {
  ASSERT_EQ(server_.ask("serve " + port + sharedGroup), success());
  expectLetIn(member);
}

TEST_F(OtherUsersTest, GroupThatTheServerIsNoMemberOfIsRefusedAndLeavesNothing) {
  ASSERT_EQ(server_.ask(stranger), "ok");
  EXPECT_EQ(server_.ask("serve " + port + sharedGroup), number(ModelRes_NotPermitted));
  EXPECT_NE(::access(mailbox.c_str(), F_OK), 0);
}

TEST_F(OtherUsersTest, AnotherUserCannotTakeALiveServersNameNorADeadOnes) {
  serve();
  Peer thief;
  ASSERT_EQ(thief.ask(stranger), "ok");
  EXPECT_EQ(thief.ask("serve " + port), number(ModelRes_NotPermitted));
  server_.kill();
  EXPECT_EQ(thief.ask("serve " + port), number(ModelRes_NotPermitted));
}

}  // namespace
}  // namespace fault
