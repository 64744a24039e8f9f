#include <gmock/gmock.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <set>

#include "tests/support/leak_check.h"
#include "tests/support/model_server.h"
#include "tests/support/process.h"
#include "tests/support/tree_client.h"

// What concurrent clients and idle clients cost a server.

namespace {

using Clock = std::chrono::steady_clock;
using test_support::ExitStatus;
using test_support::ModelServer;
using test_support::Process;
using test_support::procNumber;
using test_support::TreeClient;

constexpr int clientCount = 64;
constexpr int storesEach = 1000;

std::string treeOfNumbers() {
  std::string tree = R"({"name": "Model_numbers", "children": [)";
  for (int id = 1; id <= clientCount; ++id) {
    tree += R"({"id": )" + std::to_string(id) + R"(, "name": "own_)" + std::to_string(id) +
            R"(", "type": "int32", "value": 0}, )";
  }
  return tree + R"({"id": 1000, "name": "common", "type": "int32", "value": 1}]})";
}

std::set<std::string> privatePipes() {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator("/tmp")) {
    const std::string name = entry.path().filename().string();
    if (name.rfind(".krv-", 0) == 0) {
      names.insert(name);
    }
  }
  return names;
}

/// Connects, reads and disconnects until `condition` holds, at most for `timeout`.
/// Meanwhile the server notices the clients that have disconnected.
template <typename Condition>
bool visitUntil(const std::string& server, Condition condition) {
  const auto deadline = Clock::now() + test_support::timeout;
  while (!condition()) {
    if (Clock::now() > deadline) {
      return false;
    }
    TreeClient visitor(server);
    EXPECT_TRUE(visitor.has("/common"));
  }
  return true;
}

TEST(ConcurrentClients, LoseNoStoreAndLeaveNothingBehind) {
  auto fixture = ModelServer::ofTree(treeOfNumbers());
  const int server = fixture.process().pid();
  const auto descriptorsBefore = test_support::openDescriptorsOf(server).size();
  const auto pipesBefore = privatePipes();
  const long memoryBefore = procNumber(server, "smaps_rollup", "Private_Dirty:");

  std::vector<std::unique_ptr<Process>> clients;
  clients.reserve(clientCount);
  for (int id = 1; id <= clientCount; ++id) {
    clients.push_back(std::make_unique<Process>(std::vector<std::string>{
        test_support::buildDirectory() + "/tests/store_client", fixture.name(),
        "/own_" + std::to_string(id), "/common", std::to_string(storesEach)}));
  }
  for (const auto& client : clients) {
    EXPECT_EQ(client->finish(std::chrono::seconds(100)), (ExitStatus{0, 0}));
    EXPECT_EQ(client->output(), "done\n") << client->errors();
  }

  {
    TreeClient reader(fixture.name());
    for (int id = 1; id <= clientCount; ++id) {
      EXPECT_EQ(reader.get("/own_" + std::to_string(id)), std::to_string(storesEach)) << id;
    }
  }
  EXPECT_TRUE(visitUntil(
      fixture.name(),
      [&] { return test_support::openDescriptorsOf(server).size() <= descriptorsBefore; }))
      << test_support::openDescriptorsOf(server).size() << " descriptors, before "
      << descriptorsBefore;
  EXPECT_TRUE(visitUntil(fixture.name(), [&] {
    const auto pipes = privatePipes();
    return std::includes(pipesBefore.begin(), pipesBefore.end(), pipes.begin(), pipes.end());
  }));
  if (!test_support::sanitized) {
    EXPECT_LT(procNumber(server, "smaps_rollup", "Private_Dirty:") - memoryBefore, 1024);
  }
}

TEST(IdleClient, WakesNeitherSide) {
  ModelServer fixture;
  const int server = fixture.process().pid();
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  const TreeClient client(manager, fixture.name());
  ASSERT_EQ(client.connected(), ModelSrv::ModelRes_Success);
  // The event that reports the new connection.
  EXPECT_EQ(manager.receiveEvent(2000), EvtSrv::EvtRes_Success);

  const long switchesBefore = procNumber(server, "status", "voluntary_ctxt_switches:");
  EXPECT_EQ(manager.receiveEvent(1500), EvtSrv::EvtRes_Timeout);
  EXPECT_LE(procNumber(server, "status", "voluntary_ctxt_switches:") - switchesBefore, 1);
}

TEST(IdleClient, CostsTheServerLittleMemory) {
  constexpr int idleCount = 200;
  ModelServer fixture;
  const int server = fixture.process().pid();
  EvtSrv::EventPortManager manager(EvtSrv::ConBehave_Default, false);
  const TreeClient first(manager, fixture.name());
  const long before = procNumber(server, "smaps_rollup", "Private_Dirty:");
  std::vector<std::unique_ptr<TreeClient>> clients;
  clients.reserve(idleCount);
  for (int count = 0; count < idleCount; ++count) {
    clients.push_back(std::make_unique<TreeClient>(manager, fixture.name()));
    ASSERT_EQ(clients.back()->connected(), ModelSrv::ModelRes_Success);
  }
  const long grown = procNumber(server, "smaps_rollup", "Private_Dirty:") - before;
  if (!test_support::sanitized) {
    EXPECT_LT(grown, 8 * idleCount) << "KiB for " << idleCount << " connections";
  }
}

}  // namespace
