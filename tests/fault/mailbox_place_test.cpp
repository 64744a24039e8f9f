#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>

#include "tests/fault/fault_test.h"
#include "tests/fault/raw_pipe.h"

// The mailbox's place is taken by something that is none.

namespace fault {
namespace {

using ModelSrv::ModelRes_NotPermitted;
using ModelSrv::ModelRes_Success;

class MailboxPlaceTest : public FaultTest {
 protected:
  void expectRefusedByServer() {
    EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
    ModelSrv::ModelRoot root(&manager);
    EXPECT_EQ(root.startAsServer(port), ModelRes_NotPermitted);
  }

  void expectRefusedByClient() {
    Client client;
    const Answer answer = client.connect(port);
    EXPECT_EQ(answer.result, ModelRes_NotPermitted);
    EXPECT_LT(answer.elapsed, atOnce);
  }
};

TEST_F(MailboxPlaceTest, SymbolicLinkToAPipeIsRefusedAndItsTargetIsNotWrittenTo) {
  const std::string target = pathOf(port + "_target");
  ASSERT_EQ(::mkfifo(target.c_str(), 0600), 0);
  ASSERT_EQ(::symlink(target.c_str(), mailbox.c_str()), 0);
  const RawPipe reader = RawPipe::open(target, O_RDWR);
  expectRefusedByServer();
  expectRefusedByClient();
  EXPECT_EQ(reader.pendingBytes(), 0U);
  EXPECT_TRUE(reader.lock()) << "the server has locked it";
  struct stat status {};
  EXPECT_EQ(::lstat(mailbox.c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  ::unlink(target.c_str());
}

TEST_F(MailboxPlaceTest, SymbolicLinkToALiveServersMailboxIsRefused) {
  const std::string other = port + "_other";
  Peer server;
  ASSERT_EQ(server.ask("serve " + other), success());
  ASSERT_EQ(::symlink(pathOf(other).c_str(), mailbox.c_str()), 0);
  expectRefusedByServer();
  expectRefusedByClient();
}

TEST_F(MailboxPlaceTest, DanglingSymbolicLinkIsRefusedAndItsTargetIsNotMade) {
  const std::string target = pathOf(port + "_target");
  ASSERT_EQ(::symlink(target.c_str(), mailbox.c_str()), 0);
  expectRefusedByServer();
  expectRefusedByClient();
  EXPECT_NE(::access(target.c_str(), F_OK), 0);
}

TEST_F(MailboxPlaceTest, RegularFileIsRefusedAndNotWrittenTo) {
  std::ofstream(mailbox) << "untouched";
  ASSERT_EQ(::chmod(mailbox.c_str(), 0644), 0);
  expectRefusedByServer();
  expectRefusedByClient();
  std::string text;
  std::getline(std::ifstream(mailbox), text);
  EXPECT_EQ(text, "untouched");
  struct stat status {};
  EXPECT_EQ(::stat(mailbox.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(MailboxPlaceTest, DirectoryIsRefused) {
  ASSERT_EQ(::mkdir(mailbox.c_str(), 0700), 0);
  expectRefusedByServer();
  expectRefusedByClient();
  EXPECT_EQ(::rmdir(mailbox.c_str()), 0) << "something was made in it";
}

TEST_F(MailboxPlaceTest, PipeOfAnotherUserIsRefusedAndNotWrittenTo) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can make a pipe for another user";
  }
  ASSERT_EQ(::mkfifo(mailbox.c_str(), 0600), 0);
  ASSERT_EQ(::chown(mailbox.c_str(), 54322, 54322), 0);
  ASSERT_EQ(::chmod(mailbox.c_str(), 0666), 0);
  const RawPipe reader = RawPipe::open(mailbox, O_RDWR);
  Peer peer;
  ASSERT_EQ(peer.ask("become 54321 54321"), "ok");
  EXPECT_EQ(peer.ask("serve " + port), number(ModelRes_NotPermitted));
  EXPECT_EQ(peer.ask("connect " + port), number(ModelRes_NotPermitted));
  EXPECT_EQ(reader.pendingBytes(), 0U);
  struct stat status {};
  EXPECT_EQ(::stat(mailbox.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0666U);
}

TEST_F(MailboxPlaceTest, PipeOfAnotherUserIsRefusedEvenWithAGroupThatIsOurs) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can make a pipe for another user";
  }
  // Open to everybody, so that it is not the group that shares it.
  ASSERT_EQ(::mkfifo(mailbox.c_str(), 0600), 0);
  ASSERT_EQ(::chown(mailbox.c_str(), 54322, 54400), 0);
  ASSERT_EQ(::chmod(mailbox.c_str(), 0666), 0);
  const RawPipe reader = RawPipe::open(mailbox, O_RDWR);
  Peer peer;
  ASSERT_EQ(peer.ask("become 54321 54321 54400"), "ok");
  EXPECT_EQ(peer.ask("connect " + port), number(ModelRes_NotPermitted));
  EXPECT_EQ(reader.pendingBytes(), 0U);
}

TEST_F(MailboxPlaceTest, ServerWhoseMailboxWasRemovedLeavesItsSuccessorsAlone) {
  Peer first;
  ASSERT_EQ(first.ask("serve " + port), success());
  ASSERT_EQ(::unlink(mailbox.c_str()), 0);
  Peer second;
  ASSERT_EQ(second.ask("serve " + port), success());
  ASSERT_EQ(second.ask("set 2"), success());
  first.quit();
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_EQ(client.get(client.counter).text, "2");
}

}  // namespace
}  // namespace fault
