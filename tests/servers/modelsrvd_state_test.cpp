#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>

#include <chrono>
#include <cstddef>
#include <filesystem>
#include <optional>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <variant>
#include <vector>

#include "servers/state_text.h"
#include "tests/support/model_server.h"
#include "tests/support/scratch_directory.h"
#include "tests/support/tree_client.h"

namespace modelsrvd {
namespace {

using ModelSrv::ModelRes_Success;
using test_support::ExitStatus;
using test_support::Finished;
using test_support::ModelServer;
using test_support::TreeClient;

/// A server's files: its tree and its state.
class State : public testing::Test {
 protected:
  [[nodiscard]] std::string writeTree(const std::string& children) const {
    return directory_.write("tree.json", R"({"children": [)" + children + "]}");
  }
  static std::string intPart(const std::string& name, int value, const std::string& more = "") {
    return R"({"name": ")" + name + R"(", "type": "int32", "value": )" + std::to_string(value) +
           more + "}";
  }
  [[nodiscard]] std::vector<std::string> options() const {
    return {"--tree", directory_.file("tree.json"), "--state", state_};
  }
  [[nodiscard]] bool fileHas(const std::string& text) const {
    return std::filesystem::exists(state_) &&
           directory_.read("state.json").find(text) != std::string::npos;
  }
  /// The value of the first part in the state file; nothing if there is no file.
  [[nodiscard]] std::optional<int> writtenValue() const {
    if (!std::filesystem::exists(state_)) {
      return std::nullopt;
    }
    const auto parsed = parseState(directory_.read("state.json"));
    const auto* parts = std::get_if<std::vector<StoredPart>>(&parsed);
    if (parts == nullptr || parts->empty()) {
      ADD_FAILURE() << "not whole: " << directory_.read("state.json");
      return std::nullopt;
    }
    return std::stoi(parts->front().elements.front().text);
  }

  test_support::ScratchDirectory directory_;
  std::string state_ = directory_.file("state.json");
};

TEST_F(State, OutlivesARestart) {
  static_cast<void>(writeTree(intPart("speed", 42)));
  {
    ModelServer server(options());
    TreeClient client(server.name());
    EXPECT_EQ(client.get("/speed"), "42");
    ASSERT_EQ(client.store("/speed", "7"), ModelRes_Success);
    ASSERT_TRUE(server.stops(SIGTERM)) << server.process().errors();
  }
  const std::string first = directory_.read("state.json");
  ModelServer server(options());
  TreeClient client(server.name());
  EXPECT_EQ(client.get("/speed"), "7");
  ASSERT_TRUE(server.stops(SIGINT)) << server.process().errors();
  EXPECT_EQ(directory_.read("state.json"), first);
}

TEST_F(State, IsThatOfSettingsAndOfASyntheticTreeToo) {
  for (const auto& [options, path] :
       {std::pair{std::vector<std::string>{"--period", "60000"}, "/settings/label"},
        std::pair{std::vector<std::string>{"--synthetic", "2x2"}, "/group_001/item_0000"}}) {
    std::vector<std::string> all = options;
    all.insert(all.end(), {"--state", state_});
    {
      ModelServer server(all);
      TreeClient client(server.name());
      ASSERT_EQ(client.store(path, "17"), ModelRes_Success);
      ASSERT_TRUE(server.stops(SIGTERM)) << server.process().errors();
    }
    ModelServer server(all);
    TreeClient client(server.name());
    EXPECT_EQ(client.get(path), "17");
    std::filesystem::remove(state_);
  }
}

TEST_F(State, IsWrittenSoonAfterAStore) {
  static_cast<void>(writeTree(intPart("speed", 42)));
  ModelServer server(options());
  TreeClient client(server.name());
  for (int value = 1; value <= 3; ++value) {
    ASSERT_EQ(client.store("/speed", std::to_string(value)), ModelRes_Success);
    EXPECT_TRUE(test_support::eventually([&] { return writtenValue() == value; })) << value;
  }
}

TEST_F(State, IsWholeAndNeverGoesBackIfTheServerIsKilled) {
  // A large value, so that a write takes time.
  constexpr std::size_t size = std::size_t{2} * 1024 * 1024;
  static_cast<void>(writeTree(R"({"name": "text", "type": "text", "value": ""})"));
  std::mt19937 random(std::random_device{}());
  char last = 'a';  // what the file has at least; there is none yet
  for (int round = 0; round < 12; ++round) {
    ModelServer server(options());
    TreeClient client(server.name());
    const std::string restored = client.get("/text");
    if (restored.empty()) {
      ASSERT_EQ(last, 'a');
    } else {
      ASSERT_GE(restored[0], last);
      last = restored[0];
      ASSERT_EQ(restored, std::string(size, last));
    }
    std::thread killer;
    const auto killAtRandom = [&] {
      killer = std::thread([&, delay = std::chrono::milliseconds(random() % 30)] {
        // It does not end by itself.
        EXPECT_FALSE(server.process().waitForExit(delay));
        server.process().signal(SIGKILL);
      });
    };
    if (round % 2 == 0) {
      killAtRandom();
    }
    ++last;
    const auto result = client.store("/text", std::string(size, last));
    if (round % 2 == 0) {
      --last;
    } else {
      ASSERT_EQ(result, ModelRes_Success);
      ASSERT_TRUE(test_support::eventually([&] { return fileHas(std::string(size, last)); }));
      killAtRandom();
      static_cast<void>(client.store("/text", std::string(size, static_cast<char>(last + 1))));
    }
    killer.join();
    ASSERT_EQ(server.process().waitForExit(), (ExitStatus{0, SIGKILL}));
  }
}

TEST_F(State, StaysInAReloadWithoutAnUpdate) {
  static_cast<void>(writeTree(intPart("speed", 42) + "," + intPart("limit", 5)));
  ModelServer server(options(), true);
  TreeClient client(server.name());
  ASSERT_EQ(client.store("/speed", "7"), ModelRes_Success);
  ASSERT_EQ(client.subscribe("/speed"), ModelRes_Success);
  static_cast<void>(
      writeTree(intPart("new", 1) + "," + intPart("speed", 43) + "," + intPart("limit", 6)));
  server.process().signal(SIGHUP);
  ASSERT_TRUE(client.pumpUntil([&] { return client.get("/new") == "1"; }));
  EXPECT_EQ(client.get("/limit"), "6") << "no client has stored that";
  EXPECT_EQ(client.get("/speed"), "7");
  EXPECT_EQ(client.updates(), 0U);
}

TEST_F(State, FollowsAPartThatAReloadReplaces) {
  static_cast<void>(writeTree(intPart("speed", 42)));
  ModelServer server(options(), true);
  TreeClient client(server.name());
  ASSERT_EQ(client.store("/speed", "7"), ModelRes_Success);
  static_cast<void>(
      writeTree(intPart("speed", 42, R"(, "access": "protected")") + "," + intPart("new", 1)));
  server.process().signal(SIGHUP);
  ASSERT_TRUE(client.pumpUntil([&] { return client.get("/new") == "1"; }));
  EXPECT_EQ(client.get("/speed"), "7");
  static_cast<void>(writeTree(intPart("speed", 42, R"(, "minimum": 10, "access": "protected")")));
  server.process().signal(SIGHUP);
  EXPECT_EQ(server.process().readLine(),
            "modelsrvd: " + state_ + ": /speed: speed 7 is not at least 10");
  EXPECT_TRUE(client.pumpUntil([&] { return client.get("/speed") == "42"; }));
  server.process().signal(SIGTERM);
  ASSERT_EQ(server.process().waitForExit(), ExitStatus{});
  EXPECT_EQ(directory_.read("state.json"), std::string(stateBegin) + std::string(stateEnd));
}

TEST_F(State, IsOfNoPartWhoseValueIsInAFile) {
  const std::string value = directory_.write("value", "5\n");
  static_cast<void>(writeTree(intPart("speed", 42) +
                              R"(, {"name": "fed", "type": "int32", "file": ")" + value + "\"}"));
  ModelServer server(options());
  TreeClient client(server.name());
  ASSERT_EQ(client.store("/fed", "6"), ModelRes_Success);
  EXPECT_EQ(directory_.read("value"), "6\n");
  ASSERT_TRUE(server.stops(SIGTERM)) << server.process().errors();
  EXPECT_FALSE(std::filesystem::exists(state_));
}

TEST_F(State, ThatIsLargerThanTheLimitOfFilesEndsNoServer) {
  static_cast<void>(writeTree(intPart("speed", 42)));
  ModelServer server(options(), true);
  TreeClient client(server.name());
  rlimit limit{};
  ASSERT_EQ(::prlimit(server.process().pid(), RLIMIT_FSIZE, nullptr, &limit), 0);
  const rlimit lower{16, limit.rlim_max};
  ASSERT_EQ(::prlimit(server.process().pid(), RLIMIT_FSIZE, &lower, nullptr), 0);
  ASSERT_EQ(client.store("/speed", "7"), ModelRes_Success);
  EXPECT_EQ(server.process().readLine(),
            "modelsrvd: stored values are not saved: " + state_ + ".new: File too large");
  ASSERT_EQ(::prlimit(server.process().pid(), RLIMIT_FSIZE, &limit, nullptr), 0);
  ASSERT_EQ(client.store("/speed", "8"), ModelRes_Success);
  EXPECT_TRUE(test_support::eventually([&] { return writtenValue() == 8; }));
}

TEST_F(State, IsNeverWrittenIfNoClientStores) {
  static_cast<void>(writeTree(intPart("speed", 42)));
  ModelServer server(options());
  TreeClient client(server.name());
  EXPECT_EQ(client.get("/speed"), "42");
  ASSERT_TRUE(server.stops(SIGTERM)) << server.process().errors();
  EXPECT_FALSE(std::filesystem::exists(state_));
}

TEST_F(State, ThatIsDamagedDoesNotPreventTheStart) {
  static_cast<void>(writeTree(intPart("speed", 42)));
  static_cast<void>(directory_.write("state.json", "damaged"));
  ModelServer server(options());
  TreeClient client(server.name());
  EXPECT_EQ(client.get("/speed"), "42");
  server.process().signal(SIGTERM);
  EXPECT_EQ(server.process().waitForExit(), ExitStatus{});
  EXPECT_EQ(server.process().errors(), "modelsrvd: " + state_ + ": damaged, renamed to " + state_ +
                                           ".damaged: no JSON at byte 1\n");
}

TEST_F(State, IsRefusedAtTheStartIfItIsADirectory) {
  static_cast<void>(writeTree(intPart("speed", 42)));
  const Finished finished =
      test_support::runModelsrvd({"--tree", directory_.file("tree.json"), "--name", "Model_state",
                                  "--state", directory_.path()});
  EXPECT_EQ(finished.status, (ExitStatus{2, 0}));
  EXPECT_EQ(finished.errors, "modelsrvd: --state: " + directory_.path() +
                                 ": expected a regular file, got a directory\n");
}

}  // namespace
}  // namespace modelsrvd
