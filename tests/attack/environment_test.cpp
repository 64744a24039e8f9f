#include <sys/mount.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <deque>

#include "tests/attack/attack_test.h"
#include "tests/support/process.h"

// Processes in a restricted environment: they serve without what is optional, or say what is
// wrong.

namespace attack {
namespace {

using fault::Client;
using fault::eventually;
using fault::Peer;
using ModelSrv::ModelRes_NoSpace;
using ModelSrv::ModelRes_NotConnected;
using ModelSrv::ModelRes_NotWritable;
using ModelSrv::ModelRes_Success;
using test_support::ExitStatus;
using test_support::run;

class AttackEnvironment : public AttackTest {
 protected:
  /// Expects that `server` serves `client`.
  void expectServed(Peer& server, Peer& client) {
    ASSERT_EQ(server.execute("serve " + port), success());
    ASSERT_EQ(client.execute("connect " + port), success());
    EXPECT_EQ(client.execute("store 4"), success());
    EXPECT_EQ(client.execute("get"), success() + " 4");
    EXPECT_EQ(server.execute("set 5"), success());
    EXPECT_EQ(client.execute("get"), success() + " 5");
    // A thread that writes may block the signal meanwhile.
    for (const Peer* peer : {&server, &client}) {
      EXPECT_TRUE(eventually([&] { return fault::sigpipeState(peer->pid()).empty(); }));
    }
  }

  /// Expects that `server` replies to many clients whose requests it finds at once.
  void expectManyServed(Peer& server) {
    ASSERT_EQ(server.execute("serve " + port), success());
    std::deque<Peer> clients(12);
    for (Peer& client : clients) {
      ASSERT_EQ(client.execute("connect " + port), success());
    }
    for (const std::string value : {"1", "2", "3"}) {
      // They have cached the former one.
      ASSERT_EQ(server.execute("set " + value), success());
      server.suspend();
      for (Peer& client : clients) {
        client.send("get");
      }
      server.resume();
      for (Peer& client : clients) {
        EXPECT_EQ(client.result(), success() + " " + value);
      }
    }
  }

  /// Makes /tmp read-only, or writable again, also while pipes in it are open.
  static void setReadOnly(bool readOnly) {
    const unsigned long flag = readOnly ? MS_RDONLY : 0;
    ASSERT_EQ(::mount(nullptr, "/tmp", nullptr, MS_REMOUNT | MS_BIND | flag, nullptr), 0)
        << std::strerror(errno);
  }

  /// Expects that modelsrvd cannot serve, and prints only `reason`.
  void expectServerFails(const std::string& reason) const {
    const auto ended =
        run({test_support::modelsrvdProgram(), "--name", port, "--synthetic", "1x1"});
    EXPECT_EQ(ended.status, (ExitStatus{1, 0}));
    EXPECT_EQ(ended.output, "");
    EXPECT_EQ(ended.errors, "modelsrvd: --name: " + port + ": " + reason + "\n");
  }
};

TEST_F(AttackEnvironment, ProcessesThatMayMakeNoFilesServeAndConnect) {
  Peer server;
  Peer client;
  ASSERT_EQ(server.execute("filesize 0"), "ok");
  ASSERT_EQ(client.execute("filesize 0"), "ok");
  expectServed(server, client);
}

TEST_F(AttackEnvironment, ServerSaysThatTmpIsReadOnly) {
  setReadOnly(true);
  expectServerFails("/tmp is not writable");
}

TEST_F(AttackEnvironment, ServerSaysThatTmpIsFull) {
  mountTmp("nr_inodes=1");
  expectServerFails("/tmp is full");
}

TEST_F(AttackEnvironment, ServerThatMayNotWriteToTmpSaysSo) {
  ASSERT_EQ(::chmod("/tmp", 0755), 0);
  Peer server;
  start(server, stranger);
  EXPECT_EQ(server.execute("serve " + port), number(ModelRes_NotWritable));
  EXPECT_STREQ(ModelSrv::describe(ModelRes_NotWritable), "/tmp is not writable");
}

TEST_F(AttackEnvironment, ClientIsToldThatTmpIsReadOnlyAndThoseConnectedGoOn) {
  Peer server;
  ASSERT_EQ(server.execute("serve " + port), success());
  Peer before;
  ASSERT_EQ(before.execute("connect " + port), success());
  setReadOnly(true);
  Peer client;
  EXPECT_EQ(client.execute("connect " + port), number(ModelRes_NotWritable));
  EXPECT_EQ(before.execute("store 4"), success());
  setReadOnly(false);
  EXPECT_EQ(client.execute("connect " + port), success());
}

TEST_F(AttackEnvironment, ClientIsToldThatTmpIsFullAndConnectsWhenThereIsSpace) {
  mountTmp("nr_inodes=2");
  Peer server;
  ASSERT_EQ(server.execute("serve " + port), success());
  Peer client;
  EXPECT_EQ(client.execute("connect " + port), number(ModelRes_NoSpace));
  ASSERT_EQ(::mount(nullptr, "/tmp", nullptr, MS_REMOUNT, "nr_inodes=5"), 0);
  EXPECT_EQ(client.execute("connect " + port), success());
  EXPECT_EQ(client.execute("get"), success() + " 0");
}

TEST_F(AttackEnvironment, ServersOfOneNameServeSideBySideIfEachHasATmpOfItsOwn) {
  Peer outside;
  ASSERT_EQ(outside.execute("serve " + port), success());
  Peer inside;
  ASSERT_EQ(inside.execute("privatetmp"), "ok");
  ASSERT_EQ(inside.execute("serve " + port), success());
  EXPECT_EQ(inside.execute("set 7"), success());
  // It serves itself: no other process sees its /tmp.
  EXPECT_EQ(inside.execute("connect " + port), success());
  EXPECT_EQ(inside.execute("get"), success() + " 7");
  Peer client;
  ASSERT_EQ(client.execute("connect " + port), success());
  EXPECT_EQ(client.execute("get"), success() + " 0");
  inside.quit();
  EXPECT_EQ(client.execute("store 1"), success());
  EXPECT_EQ(modeOf(mailbox), 0600U);
}

TEST_F(AttackEnvironment, RepliesToManyClientsNeedNoQueueOfWrites) {
  for (const char* const refused : {"io_setup", "io_submit"}) {
    Peer server;
    ASSERT_EQ(server.execute("refuse " + std::to_string(EPERM) + " " + refused), "ok");
    expectManyServed(server);
  }
  Peer server;
  expectManyServed(server);
}

/// System calls that a filter rejects, and the error that they then have.
struct Refused {
  const char* name;
  std::string calls;
  int error;
};

/// How the test list shows a row.
void PrintTo(const Refused& row, std::ostream* out) {
  *out << row.name;
}

class AttackRefusedCalls : public AttackEnvironment, public testing::WithParamInterface<Refused> {
 protected:
  static void refuse(Peer& peer) {
    ASSERT_EQ(peer.execute("refuse " + std::to_string(GetParam().error) + " " + GetParam().calls),
              "ok");
  }
};

TEST_P(AttackRefusedCalls, AreNotNeededToServe) {
  Peer server;
  refuse(server);
  Peer client;
  expectServed(server, client);
}

TEST_P(AttackRefusedCalls, DoNotHideTheDeathOfAServer) {
  Peer server;
  refuse(server);
  ASSERT_EQ(server.execute("serve " + port), success());
  // It is not pumped: it can only learn of the death by a request.
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  for (int i = 0; i < 3; ++i) {
    ASSERT_EQ(client.get(client.counter).text, "0");
  }
  server.kill();
  EXPECT_EQ(client.get(client.counter).result, ModelRes_NotConnected);
}

TEST_P(AttackRefusedCalls, AreNotNeededToConnectAndToConnectAgain) {
  Peer server;
  Peer client;
  refuse(client);
  expectServed(server, client);
  server.kill();
  Peer next;
  ASSERT_EQ(next.execute("serve " + port), success());
  EXPECT_EQ(client.execute("get"), success() + " 0");
}

std::vector<Refused> refusedCalls() {
  const std::string inotify = "inotify_init1 inotify_add_watch";
  const std::string sockets = "socket bind connect";
  const std::string robust = "set_robust_list get_robust_list";
  return {
      {"Memory", "memfd_create", EPERM},
      {"MemoryUnknown", "memfd_create", ENOSYS},
      {"WriteWithFlags", "pwritev2", EPERM},
      {"WriteWithFlagsUnknown", "pwritev2", ENOSYS},
      {"Watches", inotify, EPERM},
      {"WatchesUnknown", inotify, ENOSYS},
      {"WatchedFiles", "inotify_add_watch", EPERM},
      {"Sockets", sockets, EPERM},
      {"SocketsUnknown", sockets, ENOSYS},
      {"Addresses", "bind", EPERM},
      {"Limits", "prlimit64", EPERM},
      {"LimitsUnknown", "prlimit64", ENOSYS},
      {"RobustMutexes", "set_robust_list", EPERM},
      {"RobustMutexesUnknown", robust, ENOSYS},
      {"AllOfThem", "memfd_create pwritev2 prlimit64 " + inotify + " " + sockets + " " + robust,
       EPERM},
  };
}

INSTANTIATE_TEST_SUITE_P(Filters, AttackRefusedCalls, testing::ValuesIn(refusedCalls()),
                         [](const auto& row) { return std::string(row.param.name); });

}  // namespace
}  // namespace attack
