#include "evtsrv/source/mailbox.h"

#include <fcntl.h>
#include <grp.h>
#include <sys/file.h>

#include <fstream>

#include "evtsrv/source/access.h"
#include "tests/platform/evtsrv/evtsrv_fixture.h"
#include "tests/support/process.h"

namespace EvtSrv::internal {
namespace {

namespace fs = std::filesystem;

class MailboxOf : public testing::Test {
 protected:
  ~MailboxOf() override {
    std::error_code ignored;
    fs::remove_all(path, ignored);
  }
  mode_t modeOf() const {
    struct stat status {};
    EXPECT_EQ(::lstat(path.c_str(), &status), 0);
    return status.st_mode & 07777;
  }
  void makeDeadMailbox(mode_t mode) const {
    ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
    ASSERT_EQ(::chmod(path.c_str(), mode), 0);
  }

  std::string name = uniquePort();
  std::string path = mailboxPath(name);
  EchoServer server;
  EchoClient client;
};

TEST_F(MailboxOf, ALiveServerIsNotTakenOver) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  EchoServer second;
  EXPECT_EQ(second.start(name), EvtRes_NameInUse);
  EXPECT_TRUE(fs::exists(path));
  server.pump();
  EXPECT_EQ(client.connect(name), EvtRes_Success);
}

TEST_F(MailboxOf, ADeadServerIsTakenOverAndItsModeIsSet) {
  makeDeadMailbox(0666);
  ASSERT_EQ(server.start(name), EvtRes_Success);
  EXPECT_EQ(modeOf(), 0600U);
  server.pump();
  EXPECT_EQ(client.connect(name), EvtRes_Success);
}

TEST_F(MailboxOf, AKilledServerIsTakenOver) {
  const pid_t child = forkChild();
  if (child == 0) {
    EchoServer dying;
    const EvtRes started = dying.start(name);
    ::raise(SIGKILL);
    ::_exit(static_cast<int>(started));
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  ASSERT_TRUE(WIFSIGNALED(status));
  EXPECT_TRUE(fs::exists(path));
  EXPECT_EQ(client.connect(name), EvtRes_NoServer);
  EXPECT_EQ(server.start(name), EvtRes_Success);
}

TEST_F(MailboxOf, AServerThatStopsIsRemoved) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.destroy();
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(MailboxOf, AServerHasItsModeWhateverTheUmask) {
  for (const mode_t mask : {mode_t{0}, mode_t{022}, mode_t{0777}}) {
    const mode_t before = ::umask(mask);
    const EvtRes started = server.start(name);
    ::umask(before);
    EXPECT_EQ(started, EvtRes_Success);
    EXPECT_EQ(modeOf(), 0600U);
    server.recreate();
  }
}

TEST_F(MailboxOf, AServerIsUsableWhateverTheUmaskOfTheClient) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.pump();
  const mode_t before = ::umask(0777);
  const EvtRes connected = client.connect(name);
  ::umask(before);
  EXPECT_EQ(connected, EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Success);
}

TEST_F(MailboxOf, ASharedPortIsOpenToTheGroup) {
  const gid_t group = ::getegid();
  ASSERT_EQ(server.start(name, group), EvtRes_Success);
  EXPECT_EQ(modeOf(), 0620U);
  server.pump();
  EXPECT_EQ(client.connect(name), EvtRes_Success);
}

TEST_F(MailboxOf, ASharedPortHasItsGroupBeforeAClientCanFindAReader) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can give a file to any group";
  }
  constexpr gid_t group = 54400;
  class RecordingSystem : public PosixSystem {
   public:
    std::vector<gid_t> groups;

   protected:
    int openOnce(const char* path, int flags) override {
      struct stat file {};
      if ((flags & O_PATH) == 0 && ::lstat(path, &file) == 0) {
        groups.push_back(file.st_gid);
      }
      return PosixSystem::openOnce(path, flags);
    }
  };
  // Also one that a dead server without a group has left.
  for (const bool left : {false, true}) {
    if (left) {
      makeDeadMailbox(0600);
    }
    RecordingSystem recording;
    Mailbox mailbox;
    ASSERT_EQ(mailbox.open(recording, name, group), EvtRes_Success);
    EXPECT_EQ(modeOf(), 0620U);
    ASSERT_FALSE(recording.groups.empty());
    EXPECT_EQ(recording.groups.back(), group);
  }
}

TEST_F(MailboxOf, ALackOfDescriptorsIsNotTakenForALiveServer) {
  makeDeadMailbox(0620);
  const int holder = ::open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
  ASSERT_EQ(::flock(holder, LOCK_EX | LOCK_NB), 0);
  TestSystem system;
  const auto openMailbox = [&] {
    Mailbox mailbox;
    return mailbox.open(system, name, std::nullopt);
  };
  EXPECT_EQ(openMailbox(), EvtRes_NameInUse);
  // The third one looks for a reader.
  system.failNext("open", -EMFILE, 2);
  EXPECT_EQ(openMailbox(), EvtRes_NoDescriptors);
  system.failNext("open", -ENOENT, 2);
  EXPECT_EQ(openMailbox(), EvtRes_NameInUse);
  ::close(holder);
}

TEST_F(MailboxOf, AMissingDirectoryIsNotTakenForAMissingServer) {
  server.system.failNext("makeFifo", -ENOENT);
  EXPECT_EQ(server.start(name), EvtRes_NotWritable);
  ASSERT_EQ(server.start(name), EvtRes_Success);
  client.system.failNext("makeFifo", -ENOENT);
  EXPECT_EQ(client.connect(name), EvtRes_NotWritable);
}

TEST_F(MailboxOf, AServerIsFoundAlsoIfTheRequestPipeIsRemoved) {
  ASSERT_EQ(server.start(name), EvtRes_Success);
  server.pump();
  // After the mailbox and the three reading ends.
  client.system.failNext("open", -ENOENT, 4);
  EXPECT_EQ(client.connect(name), EvtRes_Success);
  EXPECT_TRUE(client.system.hasFailed());
}

TEST_F(MailboxOf, ANameThatIsNotAPipeIsRejectedAndNotWrittenTo) {
  const std::string target = path + ".target";
  const std::vector<std::function<void()>> makers{
      [&] { std::ofstream(path) << "keep"; },
      [&] { fs::create_directory(path); },
      [&] {
        std::ofstream(target) << "keep";
        fs::create_symlink(target, path);
      },
  };
  for (std::size_t i = 0; i < makers.size(); ++i) {
    makers[i]();
    EXPECT_EQ(server.start(name), EvtRes_NotPermitted) << i;
    EXPECT_EQ(client.connect(name), EvtRes_NotPermitted) << i;
    if (!fs::is_directory(path)) {
      std::string text;
      std::ifstream(path) >> text;
      EXPECT_EQ(text, "keep");
    }
    fs::remove_all(path);
  }
  fs::remove(target);
}

TEST_F(MailboxOf, NoServerFailsImmediately) {
  client.system.freezeTime();
  EXPECT_EQ(client.connect(name), EvtRes_NoServer);
  makeDeadMailbox(0600);
  EXPECT_EQ(client.connect(name), EvtRes_NoServer);
}

TEST(PortName, IsOneToTwoHundredBytesWithoutSeparatorsAndControlBytes) {
  for (int byte = 0; byte < 256; ++byte) {
    const char character = static_cast<char>(byte);
    const bool control = byte < 0x20 || byte == 0x7F;
    const bool allowed = !control && character != '/' && character != ';';
    EXPECT_EQ(internal::isPortName(std::string("a") + character + "b"), allowed) << byte;
    EXPECT_EQ(internal::isPortName({&character, 1}), allowed && character != '.') << byte;
  }
  EXPECT_FALSE(internal::isPortName(""));
  EXPECT_TRUE(internal::isPortName(std::string(200, 'n')));
  EXPECT_FALSE(internal::isPortName(std::string(201, 'n')));
}

TEST_F(MailboxOf, AnInvalidNameIsRejectedOnBothSides) {
  using namespace std::string_literals;
  for (const std::string& bad :
       {""s, "."s, ".hidden"s, "a/b"s, "/"s, "../x"s, std::string(201, 'n'), "a\0b"s, "a;b"s,
        "a\x1B[2J"s, "a\nb"s, "a\x7F"s}) {
    EXPECT_EQ(server.start(bad), EvtRes_BadName) << bad;
    EXPECT_EQ(client.connect(bad), EvtRes_BadName) << bad;
  }
  const std::string longest = name + std::string(200 - name.size(), 'n');
  EXPECT_EQ(server.start(longest), EvtRes_Success);
}

TEST_F(MailboxOf, AnotherUserIsRejectedAndNotWrittenTo) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can act as two users";
  }
  makeDeadMailbox(0666);
  constexpr uid_t owner = 12345;
  constexpr uid_t other = 54321;
  ASSERT_EQ(::chown(path.c_str(), owner, owner), 0);
  const int reader = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);
  ASSERT_GE(reader, 0);
  const pid_t child = forkChild();
  if (child == 0) {
    if (::setgid(other) != 0 || ::setgroups(0, nullptr) != 0 || ::setuid(other) != 0) {
      ::_exit(99);
    }
    EchoServer served;
    EchoClient childClient;
    const bool rejected = served.start(name) == EvtRes_NotPermitted &&
                          childClient.connect(name) == EvtRes_NotPermitted;
    ::_exit(rejected ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  char byte = 0;
  EXPECT_LE(::read(reader, &byte, 1), 0);
  ::close(reader);
}

TEST_F(MailboxOf, ASharedPortServesAnotherUserOfTheGroupOnly) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can act as two users";
  }
  constexpr gid_t group = 23456;
  ASSERT_EQ(server.start(name, group), EvtRes_Success);
  server.pump();
  for (const bool member : {true, false}) {
    const pid_t child = forkChild();
    if (child == 0) {
      const gid_t groups = group;
      if (::setgid(34567) != 0 || ::setgroups(member ? 1 : 0, &groups) != 0 ||
          ::setuid(34567) != 0) {
        ::_exit(99);
      }
      EchoClient childClient;
      const EvtRes connected = childClient.connect(name);
      const bool isExpected =
          member ? connected == EvtRes_Success && childClient.request() == EvtRes_Success
                 : connected == EvtRes_NotPermitted;
      ::_exit(isExpected ? 0 : static_cast<int>(10 + connected));
    }
    int status = 0;
    ASSERT_EQ(::waitpid(child, &status, 0), child);
    EXPECT_EQ(WEXITSTATUS(status), 0) << (member ? "member" : "not a member");
  }
}

TEST_F(MailboxOf, AUserServesClientsOfRoot) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can act as two users";
  }
  int ready[2];
  ASSERT_EQ(::pipe2(ready, O_CLOEXEC), 0);
  const pid_t child = forkChild();
  if (child == 0) {
    if (::setgid(34567) != 0 || ::setuid(34567) != 0) {
      ::_exit(99);
    }
    EchoServer served;
    const char started = served.start(name) == EvtRes_Success ? 'y' : 'n';
    if (::write(ready[1], &started, 1) != 1) {
      ::_exit(98);
    }
    while (served.port.handled == 0 &&
           served.core.receive(test_support::timeoutMilliseconds) == EvtRes_Success) {
    }
    ::_exit(served.port.handled == 1 ? 0 : 1);
  }
  char started = 0;
  ASSERT_EQ(::read(ready[0], &started, 1), 1);
  ASSERT_EQ(started, 'y');
  EXPECT_EQ(client.connect(name), EvtRes_Success);
  EXPECT_EQ(client.request(), EvtRes_Success);
  int status = 0;
  ASSERT_EQ(::waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  ::close(ready[0]);
  ::close(ready[1]);
}

}  // namespace
}  // namespace EvtSrv::internal
