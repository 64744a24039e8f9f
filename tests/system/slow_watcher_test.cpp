#include <gmock/gmock.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <map>
#include <string>

#include "tests/support/model_server.h"
#include "tests/support/process.h"
#include "tests/support/tree_client.h"
#include "tests/system/terminal_shell.h"

// A shell with subscriptions is stopped: what it costs its server, and what it prints
// when it continues.

namespace {

using test_support::ModelServer;
using test_support::procNumber;

/// How much memory in KiB a server may allocate while it changes values that a stopped
/// client has subscribed to. A sanitizer adds its own.
const long mostGrowth = test_support::sanitized ? 16 * 1024 : 256;

constexpr int partCount = 8;

std::string partName(int id) {
  return "part_" + std::to_string(id);
}

std::string treeOfParts() {
  std::string tree = R"({"name": "Model_parts", "children": [)";
  for (int id = 1; id <= partCount; ++id) {
    tree += R"({"id": )" + std::to_string(id) + R"(, "name": ")" + partName(id) +
            R"(", "type": "int32", "elements": [{"value": 0}]}, )";
  }
  return tree + R"({"id": 100, "name": "mark", "type": "int32", "value": 0}]})";
}

/// Stores increasing values in the parts in turn, and reads each back.
class Storer {
 public:
  explicit Storer(const std::string& server) : client_(server) {}

  void store(int count) {
    for (int done = 0; done < count; ++done) {
      const int id = 1 + value_ % partCount;
      const std::string text = std::to_string(++value_);
      ASSERT_EQ(client_.store(pathOf(id), text), ModelSrv::ModelRes_Success);
      ASSERT_EQ(read(id), text);
    }
  }
  [[nodiscard]] bool mark() { return client_.store("/mark", "1") == ModelSrv::ModelRes_Success; }
  std::string read(int id) { return client_.get(pathOf(id)); }

 private:
  static std::string pathOf(int id) { return '/' + partName(id); }

  test_support::TreeClient client_;
  int value_ = 0;
};

/// The updates that a shell has printed.
struct PrintedUpdates {
  int count = 0;
  /// The last value of each part.
  std::map<std::string, std::string> last;
  /// The bytes that are not part of an update: at most the end of the prompt.
  std::string rest;
};

/// Parses updates of parts with one element each. The end of the prompt may be between
/// two lines, since the shell may have been stopped while it printed the prompt.
PrintedUpdates parseUpdates(const std::string& bytes) {
  PrintedUpdates printed;
  const std::string path = "\033[39m\033[1G/";
  const std::string value = "\033[39m\033[1G+-- [0]  [";
  std::size_t at = 0;
  for (std::size_t next = bytes.find(path); next != std::string::npos;
       next = bytes.find(path, at)) {
    printed.rest += bytes.substr(at, next - at);
    const std::size_t nameEnd = bytes.find('\n', next);
    const std::string name = bytes.substr(next + path.size(), nameEnd - next - path.size());
    const std::size_t line = bytes.find(value, nameEnd);
    printed.rest += bytes.substr(nameEnd + 1, line - nameEnd - 1);
    const std::size_t begin = line + value.size();
    const std::size_t end = bytes.find("]\n", begin);
    if (line == std::string::npos || end == std::string::npos) {
      break;
    }
    printed.last[name] = bytes.substr(begin, end - begin);
    ++printed.count;
    at = end + 2;
  }
  printed.rest += bytes.substr(at);
  return printed;
}

TEST(SlowWatcher, PrintsTheLastValueOfEveryPartWhenItContinues) {
  const int stores = test_support::sanitized ? 8000 : 40000;
  auto fixture = ModelServer::ofTree(treeOfParts());
  TerminalShell shell(fixture.name());
  ASSERT_EQ(shell.run("eu -r /"), "");
  shell.stop();
  Storer storer(fixture.name());
  ASSERT_NO_FATAL_FAILURE(storer.store(stores / 2));
  const long before = procNumber(fixture.process().pid(), "smaps_rollup", "Private_Dirty:");
  ASSERT_NO_FATAL_FAILURE(storer.store(stores));
  const long grown = procNumber(fixture.process().pid(), "smaps_rollup", "Private_Dirty:") - before;
  EXPECT_LT(grown, mostGrowth) << "KiB";
  EXPECT_EQ(batchOutput(fixture.name(), "get part_1"), "/part_1 [" + storer.read(1) + "]\n");

  ASSERT_TRUE(storer.mark());
  shell.resume();
  const std::string mark = plainLine("/mark");
  const std::string bytes = shell.readThrough(mark);
  const PrintedUpdates printed = parseUpdates(bytes.substr(0, bytes.size() - mark.size()));
  EXPECT_EQ(printed.rest.find('\n'), std::string::npos) << printed.rest;
  std::map<std::string, std::string> stored;
  for (int id = 1; id <= partCount; ++id) {
    stored[partName(id)] = storer.read(id);
  }
  EXPECT_EQ(printed.last, stored);
  EXPECT_GE(printed.count, partCount);
  // Older updates of a part are replaced by later ones.
  EXPECT_LT(printed.count, stores);
}

/// A server that changes a hundred thousand values a second.
class ChangingServer : public testing::Test {
 protected:
  static constexpr int groups = 10;
  static constexpr int items = 20;

  void SetUp() override {
    ASSERT_EQ(client_.connected(), ModelSrv::ModelRes_Success);
    ASSERT_EQ(client_.subscribe(item), ModelSrv::ModelRes_Success);
  }

  long valueOfOne() { return std::atol(client_.get(item).c_str()); }

  /// Waits for that many changes.
  bool changes(long count) {
    const long target = valueOfOne() + count / (groups * items);
    return client_.pumpUntil([&] { return valueOfOne() >= target; });
  }

  const std::string item = "/group_003/item_0007";

  ModelServer server_{
      {"--synthetic", std::to_string(groups) + 'x' + std::to_string(items), "--churn", "100000"}};
  test_support::TreeClient client_{server_.name()};
};

TEST_F(ChangingServer, SpendsLittleMemoryOnAStoppedClientAndServesOthers) {
  const int count = test_support::sanitized ? 20000 : 100000;
  TerminalShell shell(server_.name());
  ASSERT_EQ(shell.run("cd /group_009"), "");
  shell.run("eu -r /");
  shell.stop();
  const int pid = server_.process().pid();
  ASSERT_TRUE(changes(count));
  const long before = procNumber(pid, "smaps_rollup", "Private_Dirty:");
  ASSERT_TRUE(changes(count));
  const std::string seen = batchOutput(server_.name(), "get " + item);
  EXPECT_THAT(seen, testing::MatchesRegex(item + " +\\[[0-9]+\\]\n"));
  ASSERT_TRUE(changes(count));
  EXPECT_LT(procNumber(pid, "smaps_rollup", "Private_Dirty:") - before, mostGrowth) << "KiB";

  shell.resume();
  // After the pending updates, the shell keeps receiving updates of every part.
  for (int group = 0; group < groups; ++group) {
    shell.readThrough(plainLine("/group_00" + std::to_string(group) + "/item_0000"));
  }
  EXPECT_TRUE(server_.stops(SIGTERM));
}

}  // namespace
