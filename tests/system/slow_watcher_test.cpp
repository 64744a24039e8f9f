#include <gmock/gmock.h>

#include <array>
#include <csignal>
#include <cstdlib>
#include <map>
#include <string>

#include "tests/support/model_server.h"
#include "tests/support/process.h"
#include "tests/support/tree_client.h"
#include "tests/system/sample_client.h"
#include "tests/system/terminal_shell.h"

// A watching shell that is stopped: what it costs its server, and what it shows
// when it goes on.

namespace {

using test_support::ModelServer;
using test_support::procNumber;

/// How much memory a server may take, in KiB, while it changes values that
/// somebody watches who is stopped. A sanitizer's books are part of it.
const long mostGrowth = test_support::sanitized ? 16 * 1024 : 256;

constexpr int partCount = 8;
constexpr ModelSrv::ModelPartId markId = 100;

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

/// Stores one value after the other, each read back, in one part after the other.
class Storer {
 public:
  explicit Storer(const std::string& server) : client_(manager_, server) {}

  void store(int count) {
    for (int done = 0; done < count; ++done) {
      const auto id = static_cast<ModelSrv::ModelPartId>(1 + value_ % partCount);
      const std::string text = std::to_string(++value_);
      ASSERT_TRUE(client_.store(id, text));
      ASSERT_EQ(client_.read(id), text);
    }
  }
  [[nodiscard]] bool mark() { return client_.store(markId, "1"); }
  std::string read(int id) { return client_.read(static_cast<ModelSrv::ModelPartId>(id)); }

 private:
  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, false};
  SampleClient client_;
  int value_ = 0;
};

/// What a shell has printed of updates, taken apart.
struct Shown {
  int updates = 0;
  std::map<std::string, std::string> last;
  /// What is no update; the prompt's rest at the most.
  std::string rest;
};

/// Takes updates of parts with one element each from `bytes`. The end of the
/// prompt, which the shell may have been stopped in, can stand between two lines.
Shown takeApart(const std::string& bytes) {
  Shown shown;
  const std::string path = "\033[39m\033[1G/";
  const std::string value = "\033[39m\033[1G+-- [0]  [";
  std::size_t at = 0;
  for (std::size_t next = bytes.find(path); next != std::string::npos;
       next = bytes.find(path, at)) {
    shown.rest += bytes.substr(at, next - at);
    const std::size_t nameEnd = bytes.find('\n', next);
    const std::string name = bytes.substr(next + path.size(), nameEnd - next - path.size());
    const std::size_t line = bytes.find(value, nameEnd);
    shown.rest += bytes.substr(nameEnd + 1, line - nameEnd - 1);
    const std::size_t begin = line + value.size();
    const std::size_t end = bytes.find("]\n", begin);
    if (line == std::string::npos || end == std::string::npos) {
      break;
    }
    shown.last[name] = bytes.substr(begin, end - begin);
    ++shown.updates;
    at = end + 2;
  }
  shown.rest += bytes.substr(at);
  return shown;
}

TEST(SlowWatcher, SeesTheLastValueOfEveryPartOnceItGoesOn) {
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
  const Shown shown = takeApart(bytes.substr(0, bytes.size() - mark.size()));
  EXPECT_EQ(shown.rest.find('\n'), std::string::npos) << shown.rest;
  std::map<std::string, std::string> held;
  for (int id = 1; id <= partCount; ++id) {
    held[partName(id)] = storer.read(id);
  }
  EXPECT_EQ(shown.last, held);
  EXPECT_GE(shown.updates, partCount);
  // The others were taken together with later ones of the same part.
  EXPECT_LT(shown.updates, stores);
}

/// A tree whose server changes a hundred thousand values a second.
class Churned : public testing::Test {
 protected:
  static constexpr int groups = 10;
  static constexpr int items = 20;

  void SetUp() override {
    ASSERT_EQ(client_.connected(), ModelSrv::ModelRes_Success);
    ASSERT_EQ(client_.subscribe(item), ModelSrv::ModelRes_Success);
  }

  long valueOfOne() { return std::atol(client_.get(item).c_str()); }

  /// Waits until that many values more have been changed.
  bool changes(long count) {
    const long wanted = valueOfOne() + count / (groups * items);
    return client_.pumpUntil([&] { return valueOfOne() >= wanted; });
  }

  const std::string item = "/group_003/item_0007";

  ModelServer server_{
      {"--synthetic", std::to_string(groups) + 'x' + std::to_string(items), "--churn", "100000"}};
  test_support::TreeClient client_{server_.name()};
};

TEST_F(Churned, AStoppedWatcherCostsTheServerLittleAndOthersNothing) {
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
  // Behind what waits for it, the shell is told of every part again and again.
  for (int group = 0; group < groups; ++group) {
    shell.readThrough(plainLine("/group_00" + std::to_string(group) + "/item_0000"));
  }
  EXPECT_TRUE(server_.stops(SIGTERM));
}

}  // namespace
