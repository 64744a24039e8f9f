#include <fcntl.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <chrono>
#include <cstddef>
#include <ctime>
#include <fstream>
#include <sstream>

#include "tests/attack/attack_test.h"
#include "tests/fault/raw_pipe.h"
#include "tests/support/process.h"

// Somebody removes or replaces the mailbox of a live server, or keeps a new one from its name.

namespace attack {
namespace {

using fault::Client;
using fault::eventually;
using fault::Peer;
using fault::RawPipe;
using ModelSrv::ModelRes_NameInUse;
using ModelSrv::ModelRes_NoDescriptors;
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

/// Calls bind(2) or connect(2) with an abstract address.
template <typename Call>
bool withAddress(Call call, int socket, const std::string& name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::copy(name.begin(), name.end(), address.sun_path + 1);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  return call(socket, reinterpret_cast<const sockaddr*>(&address), size) == 0;
}

/// Takes an address, as any user may; listens there if `listens`. Makes system calls only.
int takeAddress(const std::string& name, bool listens) {
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  return withAddress(::bind, socket, name) && (!listens || ::listen(socket, 1) == 0) ? 0 : 1;
}

/// Connects to an address without waiting, and closes the connection.
bool connectTo(const std::string& name) {
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0);
  const bool connected = withAddress(::connect, socket, name);
  ::close(socket);
  return connected;
}

class AttackMailboxName : public AttackTest {
 protected:
  void serve(Peer& server, const Identity& identity, const std::string& group = {}) {
    start(server, identity);
    ASSERT_EQ(server.execute("serve " + port + " " + group), success());
  }

  /// Whether the client is connected in time: the mailbox is there, and a server reads it.
  bool connects(Client& client) const {
    return eventually([&] { return client.connect(port).result == ModelRes_Success; });
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
  Client client;
  EXPECT_TRUE(connects(client));
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
  EXPECT_TRUE(eventually([&] { return user.execute("connect " + port) == success(); }));
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
  EXPECT_TRUE(eventually([&] { return client.get(client.counter).text == "0"; }));
}

TEST_F(AttackMailboxName, ServerTakesItsNameBackFromOneThatWasKilled) {
  Peer first;
  serve(first, owner);
  first.suspend();
  ASSERT_EQ(::unlink(mailbox.c_str()), 0);
  Peer second;
  ASSERT_EQ(second.execute("isolate"), "ok");
  serve(second, owner);
  first.resume();
  Client client;
  ASSERT_TRUE(connects(client));
  // It leaves its mailbox: nothing is removed.
  second.kill();
  Client next;
  EXPECT_TRUE(connects(next));
}

TEST_F(AttackMailboxName, MailboxIsMadeAgainAtTheLimitOfDescriptors) {
  if (test_support::checksVirtualCalls) {
    GTEST_SKIP() << "the sanitizer itself needs descriptors";
  }
  Peer server;
  serve(server, owner);
  ASSERT_EQ(server.execute("spare 0"), "ok");
  ASSERT_EQ(::unlink(mailbox.c_str()), 0);
  // The server reads hellos again, and has the descriptor for refusals back.
  Client client;
  EXPECT_TRUE(eventually([&] { return client.connect(port).result == ModelRes_NoDescriptors; }));
}

TEST_F(AttackMailboxName, MailboxThatCannotBeMadeAgainCostsNoProcessorTime) {
  mountTmp("mode=1777,nr_inodes=8");
  Peer server;
  serve(server, owner);
  server.suspend();
  ASSERT_EQ(::unlink(mailbox.c_str()), 0);
  int files = 0;
  while (::mkfifo(("/tmp/filler" + std::to_string(files)).c_str(), 0600) == 0) {
    ++files;
  }
  ASSERT_GT(files, 0);
  server.resume();
  clockid_t clock{};
  ASSERT_EQ(::clock_getcpuclockid(server.pid(), &clock), 0);
  const auto used = [&] {
    timespec time{};
    ::clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) / 1e9;
  };
  const double before = used();
  // Nothing is to happen in this time.
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(1500);
  ASSERT_TRUE(eventually([&] { return std::chrono::steady_clock::now() >= end; }));
  EXPECT_LT(used() - before, 0.03);
  ASSERT_EQ(::unlink("/tmp/filler0"), 0);
  EXPECT_TRUE(eventually([&] { return modeOf(mailbox) == 0600; }));
}

TEST_F(AttackMailboxName, ConnectionsToTheClaimKeepNoServerFromSeeingIt) {
  Peer first;
  serve(first, owner);
  const auto claimed = claimedAddresses(port);
  ASSERT_EQ(claimed.size(), 1U);
  // More than any queue holds (net.core.somaxconn).
  constexpr int attempts = 20'000;
  ASSERT_EQ(doAs(stranger,
                 [&] {
                   for (int i = 0; i < attempts; ++i) {
                     connectTo(claimed.front());
                   }
                   return 0;
                 }),
            0);
  EXPECT_TRUE(eventually([&] { return connectTo(claimed.front()); }));
  first.suspend();
  ASSERT_EQ(::unlink(mailbox.c_str()), 0);
  Peer second;
  start(second, owner);
  EXPECT_EQ(second.execute("serve " + port), number(ModelRes_NameInUse));
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
