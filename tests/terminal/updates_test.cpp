#include <gtest/gtest.h>

#include <atomic>
#include <string>
#include <thread>

#include "tests/support/process.h"
#include "tests/terminal/terminal_test.h"

// What the screen shows when a watched part changes while the user types.

namespace terminal_test {
namespace {

/// A shell whose current node is "drive" and that watches its parts "speed" and "gains".
class Updates : public TerminalTest {
 protected:
  void startWatching() {
    start();
    ASSERT_TRUE(run("cd " + server_.name()));
    ASSERT_TRUE(run("cd drive"));
    ASSERT_TRUE(run("eu speed"));
    ASSERT_TRUE(run("eu gains"));
    ASSERT_TRUE(showsLine("[ drive]$ |"));
  }

  /// Changes a value from another session.
  void setElsewhere(const std::string& value, const std::string& path) {
    const auto result = test_support::run({test_support::treescopeProgram(), "-c",
                                           "cd " + server_.name() + ";set " + value + " " + path});
    EXPECT_EQ(result.status, (test_support::ExitStatus{0, 0}));
  }

  ModelServer server_ = ModelServer::ofTree(driveTree);
};

TEST_F(Updates, AreShownByThePathOfTheirPart) {
  startWatching();
  setElsewhere("43", "/drive/speed");
  EXPECT_TRUE(showsScreen("[ /]$ cd " + server_.name() + "\n" +  //
                          "[ " + server_.name() + "]$ cd drive\n" +
                          "[ drive]$ eu speed\n"
                          "[ drive]$ eu gains\n"
                          "/drive/speed\n"));
}

TEST_F(Updates, AreShownWithTheValuesOfAllElements) {
  startWatching();
  setElsewhere("2.5", "/drive/gains[1]");
  ASSERT_TRUE(showsText("+-- [1](i)  [2.5]"));
  EXPECT_TRUE(showsText("+-- [0](p)  [1.5]"));
  EXPECT_EQ(screen().row(4), "/drive/gains");
}

TEST_F(Updates, KeepTheLineWhichTheNextKeyDrawsAgain) {
  startWatching();
  ASSERT_TRUE(type("pw"));
  ASSERT_TRUE(showsLine("[ drive]$ pw|"));
  setElsewhere("2.5", "/drive/gains[1]");
  ASSERT_TRUE(showsText("+-- [1](i)  [2.5]"));
  EXPECT_TRUE(showsLine("|")) << "the update has overwritten the line; the cursor is below it";
  ASSERT_TRUE(type("d"));
  EXPECT_TRUE(showsLine("          pwd|")) << "the line is in its own columns";
  ASSERT_TRUE(type(keys::home));
  EXPECT_TRUE(showsLine("[ drive]$ |pwd")) << "this key draws the prompt too";
  ASSERT_TRUE(type(keys::returnKey));
  EXPECT_TRUE(showsText("/" + server_.name() + "/drive"));
}

TEST_F(Updates, AreNotShownForPartsThatAreNotWatched) {
  startWatching();
  setElsewhere("91", "/drive/speedlimit");
  setElsewhere("2.5", "/drive/gains[1]");
  ASSERT_TRUE(showsText("[2.5]"));
  EXPECT_FALSE(screen().find("speedlimit").has_value());
}

TEST_F(Updates, EndWithTheirSubscription) {
  startWatching();
  ASSERT_TRUE(run("du gains"));
  setElsewhere("2.5", "/drive/gains[1]");
  setElsewhere("43", "/drive/speed");
  ASSERT_TRUE(showsText("/drive/speed"));
  EXPECT_FALSE(screen().find("[2.5]").has_value());
}

TEST_F(Updates, ComeFromARestartedServerWithoutAKey) {
  startWatching();
  server_.kill();
  server_.restart();
  // Changes come before and after the shell has subscribed again.
  std::atomic<bool> isShown{false};
  std::thread changes([&] {
    for (int value = 100; !isShown.load(); ++value) {
      setElsewhere(std::to_string(value), "/drive/speed");
    }
  });
  const auto shown = showsText("/drive/speed");
  isShown = true;
  changes.join();
  EXPECT_TRUE(shown);
  ASSERT_TRUE(run("get speed"));
}

}  // namespace
}  // namespace terminal_test
