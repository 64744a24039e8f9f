#include <gmock/gmock.h>

#include <chrono>
#include <csignal>

#include "tests/support/model_server.h"
#include "tests/support/process.h"
#include "tests/system/terminal_shell.h"

// What a shell with subscriptions prints and does when its server does not reply.

namespace {

using test_support::ModelServer;

const std::string noConnection = plainLine("ERROR: ConnectError");

class WatchFailure : public testing::Test {
 protected:
  void expectRun(const std::string& line, const std::string& bytes) {
    EXPECT_EQ(shell_.run(line), bytes) << line;
  }

  /// Repeats `line` until it prints `bytes`: replies of a server that hung may be
  /// late.
  bool runsUntil(const std::string& line, const std::string& bytes) {
    const auto deadline = std::chrono::steady_clock::now() + test_support::timeout;
    while (shell_.run(line) != bytes) {
      if (std::chrono::steady_clock::now() > deadline) {
        return false;
      }
    }
    return true;
  }

  /// What is printed through the update of the speed, which another client changes.
  std::string updatesAfter(const std::string& commands) {
    batchOutput(fixture_.name(), commands + ";set " + std::to_string(++speed_) + " /drive/speed");
    return shell_.readThrough(plainLine("/drive/speed"));
  }

  ModelServer fixture_;
  TerminalShell shell_{fixture_.name()};
  int speed_ = 100;
};

TEST_F(WatchFailure, AKilledServerIsAConnectError) {
  expectRun("eu drive/gains", "");
  fixture_.kill();
  expectRun("eu drive/speed", noConnection);
  expectRun("eu -r", noConnection);
  expectRun("eu", noConnection);
  expectRun("cat drive", noConnection);
  expectRun("du", "");
  expectRun("eu -l", "");
  expectRun("cd", "");
  expectRun("eu drive/speed", noConnection);
  expectRun("du", "");
}

TEST_F(WatchFailure, ARestartedServerIsWatchedAsBefore) {
  expectRun("eu drive/gains", "");
  expectRun("eu drive/speed", "");
  fixture_.kill();
  expectRun("eu drive/label", noConnection);
  fixture_.restart();
  // The first request connects to the server and renews the subscriptions.
  expectRun("eu -l", plainLine("/drive/gains") + plainLine("/drive/speed"));
  EXPECT_PRED2(
      endsWithJust, updatesAfter("set 0.5 /drive/gains[1]"),
      plainLines({"/drive/gains", "+-- [0](p)  [1.5]", "+-- [1](i)  [0.5]", "/drive/speed"}));
}

TEST_F(WatchFailure, AServerThatHangsIsAConnectErrorUntilItReplies) {
  expectRun("eu drive/gains", "");
  fixture_.hang();
  expectRun("eu drive/speed", noConnection);
  expectRun("eu -r drive", noConnection);
  fixture_.resume();
  EXPECT_TRUE(runsUntil("eu drive/speed", ""));
  expectRun("eu -l", plainLine("/drive/gains") + plainLine("/drive/speed"));
  EXPECT_PRED2(
      endsWithJust, updatesAfter("set 0.5 /drive/gains[1]"),
      plainLines({"/drive/gains", "+-- [0](p)  [1.5]", "+-- [1](i)  [0.5]", "/drive/speed"}));
}

TEST_F(WatchFailure, AServerThatHangsKeepsDroppedSubscriptionsListed) {
  expectRun("eu drive/gains", "");
  fixture_.hang();
  expectRun("du", "");
  fixture_.resume();
  EXPECT_TRUE(runsUntil("eu drive/speed", ""));
  expectRun("eu -l", plainLine("/drive/gains") + plainLine("/drive/speed"));
  expectRun("du drive/gains", "");
  expectRun("eu -l", plainLine("/drive/speed"));
  EXPECT_PRED2(endsWithJust, updatesAfter("set 0.5 /drive/gains[1]"), plainLine("/drive/speed"));
}

}  // namespace
