#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <memory>
#include <vector>

#include "tests/fault/fault_test.h"
#include "tests/fault/raw_pipe.h"

namespace fault {
namespace {

using ModelSrv::ModelRes_Success;

class PrivatePipes : public FaultTest {
 protected:
  void SetUp() override { ASSERT_EQ(server_.execute("serve " + port), success()); }

  /// Stops the server, starts the handshake of `client` and returns the paths of the pipes
  /// that it has made.
  std::vector<std::string> startHandshake(Peer& client) {
    server_.suspend();
    client.send("connect " + port);
    auto paths = awaitPrivatePipes(client.pid());
    EXPECT_EQ(paths.size(), 3U);
    return paths;
  }

  /// Whether clients that connect sweep all of these files. One may not have the time.
  bool areSwept(const std::vector<std::string>& paths) {
    return eventually([&] {
      Client client;
      EXPECT_EQ(client.connect(port).result, ModelRes_Success);
      return std::none_of(paths.begin(), paths.end(), exists);
    });
  }

  static bool exists(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0;
  }

  Peer server_;
};

TEST_F(PrivatePipes, NamesAreRemovedAfterTheHandshakeAndThePipesWork) {
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  EXPECT_EQ(privatePipeCount(::getpid()), 3U);
  EXPECT_EQ(privatePipeCount(server_.pid()), 3U);
  EXPECT_TRUE(namedPrivatePipes(::getpid()).empty());
  EXPECT_TRUE(namedPrivatePipes(server_.pid()).empty());
  EXPECT_EQ(client.get(client.counter).text, "0");
}

TEST_F(PrivatePipes, NamesAreNotThoseOfServersAndAreUnique) {
  Peer first;
  const auto paths = startHandshake(first);
  Peer second;
  second.send("connect " + port);
  const auto otherPaths = awaitPrivatePipes(second.pid());
  ASSERT_EQ(otherPaths.size(), 3U);
  for (const std::string& path : paths) {
    EXPECT_TRUE(path.starts_with("/tmp/.krv-")) << path;
    EXPECT_FALSE(path.ends_with(".fifo")) << path;
    EXPECT_EQ(path.size(), std::string("/tmp/.krv-.req").size() + 32) << path;
    const std::string token = path.substr(0, path.size() - 4);
    for (const std::string& other : otherPaths) {
      EXPECT_FALSE(other.starts_with(token)) << other;
    }
  }
  server_.resume();
  EXPECT_EQ(first.result(), success());
  EXPECT_EQ(second.result(), success());
}

TEST_F(PrivatePipes, PipesOfAClientKilledDuringItsHandshakeAreRemovedByTheNextHandshake) {
  std::vector<std::string> leftovers;
  {
    Peer client;
    leftovers = startHandshake(client);
    client.kill();
  }
  ASSERT_EQ(leftovers.size(), 3U);
  server_.resume();
  EXPECT_TRUE(areSwept(leftovers));
}

TEST_F(PrivatePipes, PipesOfALiveClientAreNotRemoved) {
  Peer waiting;
  const auto pipes = startHandshake(waiting);
  const std::string other = port + "_other";
  Peer otherServer;
  ASSERT_EQ(otherServer.execute("serve " + other), success());
  for (int i = 0; i < 20; ++i) {
    Client client;
    ASSERT_EQ(client.connect(other).result, ModelRes_Success);
  }
  for (const std::string& path : pipes) {
    EXPECT_TRUE(exists(path)) << path;
  }
  server_.resume();
  EXPECT_EQ(waiting.result(), success());
  EXPECT_EQ(waiting.execute("get"), success() + " 0");
}

TEST_F(PrivatePipes, ManyClientsCanConnectAtTheSameTime) {
  std::vector<std::unique_ptr<Peer>> clients;
  for (int i = 0; i < 8; ++i) {
    clients.push_back(std::make_unique<Peer>());
  }
  for (int round = 0; round < 20; ++round) {
    for (const auto& client : clients) {
      client->send("connect " + port);
    }
    for (const auto& client : clients) {
      EXPECT_EQ(client->result(), success());
    }
  }
  for (const auto& client : clients) {
    EXPECT_EQ(client->execute("get"), success() + " 0");
    EXPECT_EQ(privatePipeCount(client->pid()), 3U);
  }
}

TEST_F(PrivatePipes, SweepRemovesNothingWithOtherNames) {
  const std::string foreign = wire::privatePipePath(wire::newToken(), ".rep.fifo");
  const std::string shortName = "/tmp/.krv-" + port + ".evt";
  ASSERT_EQ(::mkfifo(foreign.c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo(shortName.c_str(), 0600), 0);
  Client client;
  ASSERT_EQ(client.connect(port).result, ModelRes_Success);
  for (const std::string& path : {foreign, shortName}) {
    EXPECT_TRUE(exists(path)) << path;
    ::unlink(path.c_str());
  }
}

TEST_F(PrivatePipes, SweepRemovesWhatIsNoPipeIfItBelongsToThisUser) {
  const std::string token = wire::newToken();
  const std::string file = wire::privatePipePath(token, ".req");
  const std::string link = wire::privatePipePath(token, ".rep");
  const std::string directory = wire::privatePipePath(token, ".evt");
  const RawPipe regular(::open(file.c_str(), O_CREAT | O_EXCL | O_WRONLY | O_CLOEXEC, 0600));
  ASSERT_TRUE(regular.isOpen());
  ASSERT_EQ(::symlink("/nowhere", link.c_str()), 0);
  ASSERT_EQ(::mkdir(directory.c_str(), 0700), 0);
  EXPECT_TRUE(areSwept({file, link, directory}));
}

TEST_F(PrivatePipes, SweepKeepsWhatBelongsToAnotherUser) {
  if (::geteuid() != 0) {
    GTEST_SKIP() << "only root can make files of other users";
  }
  constexpr uid_t foreigner = 54322;
  const std::string link = wire::privatePipePath(wire::newToken(), ".rep");
  ASSERT_EQ(::symlink("/nowhere", link.c_str()), 0);
  const bool given = ::lchown(link.c_str(), foreigner, foreigner) == 0;
  const std::string own = wire::privatePipePath(wire::newToken(), ".rep");
  ASSERT_EQ(::symlink("/nowhere", own.c_str()), 0);
  EXPECT_TRUE(areSwept({own}));
  EXPECT_EQ(given, exists(link));
  ::unlink(link.c_str());
}

TEST_F(PrivatePipes, EveryDescriptorIsClosedOnExec) {
  Peer both;
  ASSERT_EQ(both.execute("serve " + port + "_both"), success());
  ASSERT_EQ(both.execute("connect " + port + "_both"), success());
  EXPECT_EQ(privatePipeCount(both.pid()), 3U);
  EXPECT_GE(descriptorCount(both.pid()), 6U + 3U + 2U);
  const auto lines = both.run("readlink /proc/self/fd/*; readlink /proc/$$/fd/*");
  EXPECT_EQ(lines.back().substr(0, 5), "ended");
  for (const std::string& line : lines) {
    EXPECT_EQ(line.find(".fifo"), std::string::npos) << line;
    EXPECT_EQ(line.find(".krv-"), std::string::npos) << line;
    EXPECT_EQ(line.find("anon_inode"), std::string::npos) << line;
    EXPECT_EQ(line.find("socket:"), std::string::npos) << line;
  }
  EXPECT_GE(lines.size(), 3U) << "the command has listed no descriptor";
  EXPECT_EQ(both.execute("get"), success() + " 0");
}

}  // namespace
}  // namespace fault
