#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cstddef>
#include <fstream>
#include <sstream>

#include "tests/attack/attack_test.h"
#include "tests/fault/raw_pipe.h"

// Somebody removes or replaces the mailbox of a live server, or keeps a new one from its name.

namespace attack {
namespace {

using fault::Client;
using fault::eventually;
using fault::Peer;
using fault::RawPipe;
using ModelSrv::ModelRes_NameInUse;
using ModelSrv::ModelRes_NotConnected;
using ModelSrv::ModelRes_NotPermitted;
using ModelSrv::ModelRes_Success;

/// The addresses of the abstract namespace that contain `text`.
std::vector<std::string> claimedAddresses(const std::string& text) {
  std::vector<std::string> result;
  std::ifstream sockets("/proc/net/unix");
  for (std::string line; std::getline(sockets, line);) {
    const std::size_t at = line.rfind('@');
    if (at != std::string::npos && line.find(text, at) != std::string::npos) {
      result.push_back(line.substr(at + 1));
    }
  }
  return result;
}

/// Takes an address, as any user may; listens there if `listens`. Makes system calls only.
int takeAddress(const std::string& name, bool listens) {
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::copy(name.begin(), name.end(), address.sun_path + 1);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  const bool bound = ::bind(socket, reinterpret_cast<const sockaddr*>(&address), size) == 0;
  return bound && (!listens || ::listen(socket, 1) == 0) ? 0 : 1;
}

class AttackMailboxName : public AttackTest {
 protected:
  void serve(Peer& server, const Identity& identity, const std::string& group = {}) {
    start(server, identity);
    ASSERT_EQ(server.execute("serve " + port + " " + group), success());
  }

  bool exists() const { return ::access(mailbox.c_str(), F_OK) == 0; }

  static ino_t fileOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? status.st_ino : 0;
  }
};

TEST_F(AttackMailboxName, MailboxThatIsRemovedIsMadeAgain) {
  Peer server;
  serve(server, owner, std::to_string(sharedGroup));
  Client before;
  ASSERT_EQ(before.connect(port).result, ModelRes_Success);
  for (int round = 0; round < 3; ++round) {
    ASSERT_EQ(::unlink(mailbox.c_str()), 0);
    ASSERT_TRUE(eventually([&] { return modeOf(mailbox) == 0620; }));
  }
  Peer after;
  start(after, member);
  EXPECT_EQ(after.execute("connect " + port), success());
  EXPECT_EQ(before.store(before.counter, "4").result, ModelRes_Success);
  EXPECT_EQ(after.execute("get"), success() + " 4");
  server.quit();
  EXPECT_FALSE(exists());
}

TEST_F(AttackMailboxName, MailboxThatIsMovedAwayIsMadeAgain) {
  Peer server;
  serve(server, owner);
  ASSERT_EQ(::rename(mailbox.c_str(), "/tmp/elsewhere"), 0);
  ASSERT_TRUE(eventually([&] { return modeOf(mailbox) == 0600; }));
  Client client;
  EXPECT_EQ(client.connect(port).result, ModelRes_Success);
}

TEST_F(AttackMailboxName, MailboxIsMadeAgainWhenWhatAnotherUserHasPlantedThereIsGone) {
  Peer server;
  serve(server, owner);
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  server.suspend();
  ASSERT_EQ(::unlink(mailbox.c_str()), 0);
  plant(mailbox, stranger, 0666);
  const RawPipe reader = RawPipe::open(mailbox, O_RDWR);
  server.resume();
  EXPECT_EQ(client.store(client.counter, "3").result, ModelRes_Success);
  Peer user;
  start(user, owner);
  EXPECT_EQ(user.execute("connect " + port), number(ModelRes_NotPermitted));
  EXPECT_EQ(reader.pendingBytes(), 0U);
  ASSERT_EQ(::unlink(mailbox.c_str()), 0);
  ASSERT_TRUE(eventually([&] { return modeOf(mailbox) == 0600; }));
  EXPECT_EQ(user.execute("connect " + port), success());
  EXPECT_EQ(user.execute("get"), success() + " 3");
}

TEST_F(AttackMailboxName, SecondServerIsRefusedWhileTheMailboxOfALiveOneIsAway) {
  Peer first;
  serve(first, owner);
  first.suspend();
  ASSERT_EQ(::unlink(mailbox.c_str()), 0);
  Peer second;
  start(second, owner);
  EXPECT_EQ(second.execute("serve " + port), number(ModelRes_NameInUse));
  EXPECT_FALSE(exists());
  first.resume();
  EXPECT_TRUE(eventually([&] { return exists(); }));
  first.kill();
  EXPECT_EQ(second.execute("serve " + port), success());
}

TEST_F(AttackMailboxName, ServerWhoseNameIsServedByAnotherEndsItsSessions) {
  // The other server has a network namespace of its own, so the two do not see their claims.
  Peer first;
  serve(first, owner);
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  // Now both are in the client's cache.
  ASSERT_EQ(client.get(client.text).result, ModelRes_Success);
  ASSERT_EQ(client.get(client.counter).text, "0");
  first.suspend();
  ASSERT_EQ(::unlink(mailbox.c_str()), 0);
  Peer second;
  ASSERT_EQ(second.execute("isolate"), "ok");
  serve(second, owner);
  ASSERT_EQ(second.execute("set 2"), success());
  first.resume();
  EXPECT_TRUE(eventually([&] { return fault::privatePipeCount(first.pid()) == 0; }));
  EXPECT_EQ(client.get(client.counter).text, "2");
  // The first one has the name again when the second one ends.
  second.quit();
  EXPECT_TRUE(eventually([&] { return exists(); }));
  EXPECT_EQ(client.get(client.counter).text, "0");
}

TEST_F(AttackMailboxName, MemberThatLocksALeftoverMailboxKeepsNoServerFromStarting) {
  Peer dead;
  serve(dead, owner, std::to_string(sharedGroup));
  int descriptor = -1;
  const Intruder intruder(
      member,
      [&] {
        descriptor = ::open(mailbox.c_str(), O_WRONLY | O_NONBLOCK | O_CLOEXEC);
        return descriptor >= 0 ? 0 : 1;
      },
      // Returns when the server has been killed.
      [&] { ::flock(descriptor, LOCK_EX); });
  ASSERT_EQ(intruder.result(), 0);
  dead.kill();
  ASSERT_TRUE(eventually([&] { return !RawPipe::open(mailbox, O_RDWR).lock(); }));
  Peer server;
  serve(server, owner, std::to_string(sharedGroup));
  Peer client;
  start(client, otherMember);
  EXPECT_EQ(client.execute("connect " + port), success());
}

TEST_F(AttackMailboxName, MemberCannotTakeTheLockOfALiveServer) {
  Peer server;
  serve(server, owner, std::to_string(sharedGroup));
  EXPECT_EQ(doAs(member,
                 [&] {
                   const RawPipe pipe = RawPipe::open(mailbox, O_WRONLY);
                   return pipe.isOpen() && !pipe.lock() ? 0 : 1;
                 }),
            0);
}

TEST_F(AttackMailboxName, LeftoverMailboxThatOthersHaveOpenIsReplaced) {
  Peer dead;
  serve(dead, owner);
  // As an earlier server of a group may have left it.
  ASSERT_EQ(::chmod(mailbox.c_str(), 0666), 0);
  const Intruder spy(stranger, [&] {
    return ::open(mailbox.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC) >= 0 ? 0 : 1;
  });
  ASSERT_EQ(spy.result(), 0);
  dead.kill();
  const ino_t old = fileOf(mailbox);
  Peer server;
  serve(server, owner);
  EXPECT_NE(fileOf(mailbox), old);
}

TEST_F(AttackMailboxName, AddressThatAnotherUserHasTakenKeepsNoServerFromStarting) {
  for (const bool listens : {false, true}) {
    std::string address;
    {
      Peer server;
      serve(server, owner);
      const auto claimed = claimedAddresses(port);
      ASSERT_EQ(claimed.size(), 1U);
      address = claimed.front();
    }
    const Intruder squatter(stranger, [&] { return takeAddress(address, listens); });
    ASSERT_EQ(squatter.result(), 0);
    Peer server;
    serve(server, owner);
    Peer second;
    start(second, owner);
    EXPECT_EQ(second.execute("serve " + port), number(ModelRes_NameInUse));
    Client client;
    EXPECT_EQ(client.connect(port).result, ModelRes_Success);
  }
}

}  // namespace
}  // namespace attack
