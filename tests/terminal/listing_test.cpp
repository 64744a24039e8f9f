#include <gtest/gtest.h>

#include "tests/terminal/terminal_test.h"

// How listings look on the screen.

namespace terminal_test {
namespace {

class Listing : public TerminalTest {
 protected:
  /// Starts a shell whose current node is "drive" of a server.
  void startInDrive() {
    start();
    connect(server_.name());
    ASSERT_TRUE(run("cd drive"));
    ASSERT_TRUE(showsLine("[ drive]$ |"));
  }

  ModelServer server_ = ModelServer::ofTree(driveTree);
};

TEST_F(Listing, ShowsNamesInColumns) {
  startInDrive();
  ASSERT_TRUE(run("ls"));
  EXPECT_TRUE(showsText("speed       speedlimit  gains/      label       motor/      noname-12"));
}

TEST_F(Listing, ShowsOneNamePerRowOnATerminalNarrowerThanAColumn) {
  startInDrive();
  shell().resize(24, 13);
  ASSERT_TRUE(run("ls"));
  EXPECT_TRUE(shell().waitFor(
      [](const Screen& screen) {
        return screen.text().find("speed\nspeedlimit\ngains/\nlabel\nmotor/\nnoname-12\n") !=
               std::string::npos;
      },
      "one name per row"));
}

TEST_F(Listing, ShowsValuesInBrackets) {
  startInDrive();
  ASSERT_TRUE(run("ls -l"));
  EXPECT_TRUE(showsText("noname-12   [7]"));
  EXPECT_TRUE(showsText("speed       [42]"));
  EXPECT_TRUE(showsText("label       [two words]"));
}

TEST_F(Listing, DrawsATree) {
  startInDrive();
  ASSERT_TRUE(run("ls -rl /"));
  EXPECT_TRUE(showsText("+-- drive/"));
  EXPECT_TRUE(showsText("    +-- speed        [42]"));
  EXPECT_TRUE(showsText("    +-- motor/"));
  EXPECT_TRUE(showsText("        +-- current  [0]"));
}

TEST_F(Listing, ColoursNodesBlueAndPartsWithElementsGreen) {
  startInDrive();
  ASSERT_TRUE(run("ls -c"));
  ASSERT_TRUE(showsText("noname-12"));
  EXPECT_EQ(screen().lookOf("motor/"), (Look{.colour = Colour::blue}));
  EXPECT_EQ(screen().lookOf("gains/"), (Look{.colour = Colour::green}));
  EXPECT_EQ(screen().lookOf("speedlimit"), Look{});
}

TEST_F(Listing, ColoursNothingWithoutTheOption) {
  startInDrive();
  ASSERT_TRUE(run("ls"));
  ASSERT_TRUE(showsText("noname-12"));
  EXPECT_EQ(screen().lookOf("motor/"), Look{});
  EXPECT_EQ(screen().lookOf("gains/"), Look{});
}

TEST_F(Listing, ShowsSubscribedPartsBold) {
  startInDrive();
  ASSERT_TRUE(run("eu label"));
  ASSERT_TRUE(run("ls -l"));
  ASSERT_TRUE(showsText("noname-12"));
  EXPECT_EQ(screen().lookOf("label       [two words]"), (Look{.bold = true}));
  EXPECT_EQ(screen().lookOf("speed       [42]"), Look{});
  EXPECT_EQ(screen().lookOf("[ drive]$ ls -l"), Look{}) << "the prompt is unchanged";
}

}  // namespace
}  // namespace terminal_test
