#include <gtest/gtest.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <chrono>
#include <deque>
#include <string>
#include <string_view>
#include <thread>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/model_node.h"
#include "modelsrv/model_root.h"
#include "modelsrv/value_parts.h"
#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/pseudo_terminal.h"
#include "tests/support/terminal_job.h"

// Commands that a user types while updates flood the terminal.

namespace {

using Clock = std::chrono::steady_clock;

/// Serves /flood, an array that changes 10,000 times a second, and /tree, a node of 300
/// parts.
class FloodingServer {
 public:
  explicit FloodingServer(const std::string& name) {
    for (int id = 0; id < 300; ++id) {
      auto& part = parts_.emplace_back(static_cast<ModelSrv::ModelPartId>(id),
                                       "part_" + std::to_string(id), id);
      EXPECT_EQ(tree_.add(&part), ModelSrv::ModelRes_Success);
    }
    EXPECT_EQ(root_.add(&flood_), ModelSrv::ModelRes_Success);
    EXPECT_EQ(root_.add(&tree_), ModelSrv::ModelRes_Success);
    EXPECT_EQ(root_.startAsServer(name), ModelSrv::ModelRes_Success);
    thread_ = std::thread([this] { serve(); });
  }
  ~FloodingServer() {
    ended_ = true;
    thread_.join();
    root_.stop(false);
  }
  FloodingServer(const FloodingServer&) = delete;
  FloodingServer& operator=(const FloodingServer&) = delete;

 private:
  void serve() {
    const auto start = Clock::now();
    constexpr std::chrono::microseconds period{100};
    std::int32_t changes = 0;
    while (!ended_) {
      static_cast<void>(manager_.receiveEvent(1));
      for (const auto due = (Clock::now() - start) / period; changes < due; ++changes) {
        static_cast<void>(flood_.setValue(static_cast<std::uint16_t>(changes % elements), changes));
      }
    }
  }

  static constexpr int elements = 100;

  EvtSrv::EventPortManager manager_{EvtSrv::ConBehave_Default, true};
  ModelSrv::ModelRoot root_{&manager_};
  ModelSrv::ArrayPart<std::int32_t> flood_{1, "flood", std::vector<std::int32_t>(elements)};
  ModelSrv::ModelNode tree_{2, "tree"};
  std::deque<ModelSrv::ValuePart<std::int32_t>> parts_;
  std::atomic<bool> ended_{false};
  std::thread thread_;
};

/// The shell on a terminal that is read as fast as it can be written.
class FastTerminal {
 public:
  void type(std::string_view keys) {
    ASSERT_EQ(write(terminal_.master.get(), keys.data(), keys.size()),
              static_cast<ssize_t>(keys.size()));
  }

  /// Reads through the next `text`. Returns what was before it.
  std::string readThrough(std::string_view text) {
    const auto deadline = Clock::now() + test_support::timeout;
    std::size_t searched = 0;
    for (;;) {
      const std::size_t at = output_.find(text, searched);
      if (at != std::string::npos) {
        std::string before = output_.substr(0, at);
        output_.erase(0, at + text.size());
        return before;
      }
      searched = output_.size() - std::min(output_.size(), text.size());
      pollfd input{terminal_.master.get(), POLLIN, 0};
      if (poll(&input, 1, test_support::millisecondsUntil(deadline)) <= 0) {
        ADD_FAILURE() << "expected " << testing::PrintToString(text);
        return {};
      }
      std::array<char, 65536> bytes{};
      const ssize_t count = read(terminal_.master.get(), bytes.data(), bytes.size());
      output_.append(bytes.data(), count > 0 ? static_cast<std::size_t>(count) : 0);
    }
  }

 private:
  test_support::PseudoTerminal terminal_ = test_support::openPseudoTerminal(24, 80);
  test_support::TerminalJob shell_{terminal_.name, {test_support::treescopeProgram()}, {}};
  std::string output_;
};

constexpr std::string_view floodUpdate = "\033[1G/flood";

std::size_t updatesIn(std::string_view bytes) {
  std::size_t count = 0;
  for (std::size_t at = bytes.find(floodUpdate); at != std::string_view::npos;
       at = bytes.find(floodUpdate, at + 1)) {
    ++count;
  }
  return count;
}

/// A command line, and what its output begins with.
struct Typed {
  std::string line;
  std::string output;
};

// A command takes the client mutex for each of a few requests or, as a listing, for
// milliseconds, and prints a few times; each time it may wait for one update, and no
// longer. Some more updates are on their way in the terminal. The time would depend on
// the load of the machine.
constexpr std::size_t mostUpdates = 60;

TEST(FloodedShell, LetsFewUpdatesPassBeforeATypedCommand) {
  const std::string name = test_support::uniquePortName();
  FloodingServer server(name);
  FastTerminal shell;
  shell.readThrough("]$ ");
  shell.type("cd " + name + '\r');
  shell.readThrough(name + "]$ ");
  shell.type("eu flood\r");
  shell.readThrough(floodUpdate);
  const Typed commands[] = {
      {"ls -lr tree", "+-- part_0 "},
      {"get /tree/part_7", "/tree/part_7    [7]"},
      {"get tree/part_29\t", "part_290"},
      {"pwd", "\033[1G/" + name},
  };
  for (int round = 0; round < 5 && !testing::Test::HasFailure(); ++round) {
    for (const Typed& command : commands) {
      const std::string keys = command.line.substr(0, command.line.find('\t'));
      shell.type(keys);
      EXPECT_LE(updatesIn(shell.readThrough(keys)), mostUpdates) << command.line;
      shell.type(keys == command.line ? "\r" : "\t");
      EXPECT_LE(updatesIn(shell.readThrough(command.output)), mostUpdates) << command.line;
      // Ctrl-W clears what Tab leaves.
      shell.type("\027");
      shell.readThrough("]$ ");
    }
  }
}

}  // namespace
