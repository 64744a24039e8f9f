#include <fcntl.h>
#include <sys/stat.h>

#include <fstream>

#include "tests/fault/fault_test.h"
#include "tests/fault/raw_pipe.h"

// The path of the mailbox leads to something else.

namespace fault {
namespace {

using ModelSrv::ModelRes_NotPermitted;
using ModelSrv::ModelRes_Success;

class MailboxPaths : public FaultTest {
 protected:
  void expectRejectedByServer() {
    EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, true);
    ModelSrv::ModelRoot root(&manager);
    EXPECT_EQ(root.startAsServer(port), ModelRes_NotPermitted);
  }

  void expectRejectedByClient() {
    Client client;
    const Reply reply = client.connect(port);
    EXPECT_EQ(reply.result, ModelRes_NotPermitted);
    EXPECT_LT(reply.elapsed, immediateLimit);
  }
};

TEST_F(MailboxPaths, SymbolicLinkToAPipeIsRejectedAndItsTargetIsNotWrittenTo) {
  const std::string target = pathOf(port + "_target");
  ASSERT_EQ(::mkfifo(target.c_str(), 0600), 0);
  ASSERT_EQ(::symlink(target.c_str(), mailbox.c_str()), 0);
  const RawPipe reader = RawPipe::open(target, O_RDWR);
  expectRejectedByServer();
  expectRejectedByClient();
  EXPECT_EQ(reader.pendingBytes(), 0U);
  EXPECT_TRUE(reader.lock()) << "the server has locked it";
  struct stat status {};
  EXPECT_EQ(::lstat(mailbox.c_str(), &status), 0);
  EXPECT_TRUE(S_ISLNK(status.st_mode));
  ::unlink(target.c_str());
}

TEST_F(MailboxPaths, SymbolicLinkToALiveServersMailboxIsRejected) {
  const std::string other = port + "_other";
  Peer server;
  ASSERT_EQ(server.execute("serve " + other), success());
  ASSERT_EQ(::symlink(pathOf(other).c_str(), mailbox.c_str()), 0);
  expectRejectedByServer();
  expectRejectedByClient();
}

TEST_F(MailboxPaths, DanglingSymbolicLinkIsRejectedAndItsTargetIsNotMade) {
  const std::string target = pathOf(port + "_target");
  ASSERT_EQ(::symlink(target.c_str(), mailbox.c_str()), 0);
  expectRejectedByServer();
  expectRejectedByClient();
  EXPECT_NE(::access(target.c_str(), F_OK), 0);
}

TEST_F(MailboxPaths, RegularFileIsRejectedAndNotWrittenTo) {
  std::ofstream(mailbox) << "untouched";
  ASSERT_EQ(::chmod(mailbox.c_str(), 0644), 0);
  expectRejectedByServer();
  expectRejectedByClient();
  std::string text;
  std::getline(std::ifstream(mailbox), text);
  EXPECT_EQ(text, "untouched");
  struct stat status {};
  EXPECT_EQ(::stat(mailbox.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0644U);
}

TEST_F(MailboxPaths, DirectoryIsRejected) {
  ASSERT_EQ(::mkdir(mailbox.c_str(), 0700), 0);
  expectRejectedByServer();
  expectRejectedByClient();
  EXPECT_EQ(::rmdir(mailbox.c_str()), 0) << "something was made in it";
}

TEST_F(MailboxPaths, PipeOfAnotherUserIsRejectedAndNotWrittenTo) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can make a pipe for another user";
  }
  ASSERT_EQ(::mkfifo(mailbox.c_str(), 0600), 0);
  ASSERT_EQ(::chown(mailbox.c_str(), 54322, 54322), 0);
  ASSERT_EQ(::chmod(mailbox.c_str(), 0666), 0);
  const RawPipe reader = RawPipe::open(mailbox, O_RDWR);
  Peer peer;
  ASSERT_EQ(peer.execute("become 54321 54321"), "ok");
  EXPECT_EQ(peer.execute("serve " + port), number(ModelRes_NotPermitted));
  EXPECT_EQ(peer.execute("connect " + port), number(ModelRes_NotPermitted));
  EXPECT_EQ(reader.pendingBytes(), 0U);
  struct stat status {};
  EXPECT_EQ(::stat(mailbox.c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777U, 0666U);
}

TEST_F(MailboxPaths, PipeOfAnotherUserIsRejectedEvenIfItHasAGroupOfThisProcess) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can make a pipe for another user";
  }
  // Open to all users, so that it is not shared with the group alone.
  ASSERT_EQ(::mkfifo(mailbox.c_str(), 0600), 0);
  ASSERT_EQ(::chown(mailbox.c_str(), 54322, 54400), 0);
  ASSERT_EQ(::chmod(mailbox.c_str(), 0666), 0);
  const RawPipe reader = RawPipe::open(mailbox, O_RDWR);
  Peer peer;
  ASSERT_EQ(peer.execute("become 54321 54321 54400"), "ok");
  EXPECT_EQ(peer.execute("connect " + port), number(ModelRes_NotPermitted));
  EXPECT_EQ(reader.pendingBytes(), 0U);
}

}  // namespace
}  // namespace fault
