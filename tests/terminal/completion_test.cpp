#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <set>

#include "tests/support/port_name.h"
#include "tests/terminal/terminal_test.h"

// What Tab inserts into the line, and what it lists above it.

namespace terminal_test {
namespace {

using keys::tab;

using Completion = TerminalTest;

TEST_F(Completion, ListsTheCommandsOnAnEmptyLine) {
  start();
  ASSERT_TRUE(type(tab));
  EXPECT_TRUE(
      showsScreen("[ /]$\n"
                  "cat    cd     du     eu     exit   from   get    help   ls     set    str\n"
                  "to     quit\n"
                  "[ /]$\n"));
  EXPECT_TRUE(showsLine("[ /]$ |"));
}

TEST_F(Completion, CompletesACommand) {
  start();
  ASSERT_TRUE(type("l" + tab));
  EXPECT_TRUE(
      showsScreen("[ /]$ l\n"
                  "[ /]$ ls\n"));
  EXPECT_TRUE(showsLine("[ /]$ ls |"));
}

TEST_F(Completion, ListsTheCommandsWithThePrefixAndKeepsTheLine) {
  start();
  ASSERT_TRUE(type("c" + tab));
  EXPECT_TRUE(
      showsScreen("[ /]$ c\n"
                  "cat   cd\n"
                  "[ /]$ c\n"));
  EXPECT_TRUE(showsLine("[ /]$ c|"));
}

TEST_F(Completion, OffersOnlyTheCommandsOfItsList) {
  start();
  for (const char* const word : {"pw", "setp", "hist", "ta", "zz"}) {
    const std::string line = std::string("[ /]$ ") + word + "|";
    ASSERT_TRUE(type(word));
    ASSERT_TRUE(showsLine(line));
    const int row = screen().cursor().row;
    ASSERT_TRUE(type(tab));
    ASSERT_TRUE(shell().waitFor(
        [row](const Screen& screen) { return screen.cursor().row == row + 1; }, "the next row"));
    EXPECT_TRUE(showsLine(line)) << "the same line, one row lower";
    ASSERT_TRUE(type(keys::ctrl('W') + keys::returnKey));
    ASSERT_TRUE(shell().waitFor(
        [row](const Screen& screen) { return screen.cursor().row == row + 2; }, "an empty row"));
  }
}

TEST_F(Completion, IgnoresLeadingSpacesAndKeepsThemInTheLine) {
  start();
  ASSERT_TRUE(type("   c" + tab));
  EXPECT_TRUE(
      showsScreen("[ /]$    c\n"
                  "cat   cd\n"
                  "[ /]$    c\n"));
  EXPECT_TRUE(showsLine("[ /]$    c|"));
}

TEST_F(Completion, ListsTheCommandsForALineOfSpaces) {
  start();
  ASSERT_TRUE(type("  " + tab));
  EXPECT_TRUE(showsText("to     quit"));
  EXPECT_TRUE(showsLine("[ /]$   |"));
}

TEST_F(Completion, MovesTheCursorAfterTheInsertedText) {
  start();
  ASSERT_TRUE(type("hel" + keys::home + tab));
  EXPECT_TRUE(showsLine("[ /]$ help |"));
}

TEST_F(Completion, RunsTheCommandAfterASemicolon) {
  start();
  ASSERT_TRUE(type("ls; q" + tab));
  expectCleanEnd();
}

TEST_F(Completion, IsNotAddedToTheHistory) {
  start();
  ASSERT_TRUE(type("l" + tab));
  ASSERT_TRUE(showsLine("[ /]$ ls |"));
  ASSERT_TRUE(type(keys::ctrl('W') + keys::up + "#"));
  EXPECT_TRUE(showsLine("[ /]$ #|"));
}

/// Files with a common prefix in the directory that is searched for servers.
class ServerNames : public TerminalTest {
 protected:
  static std::string prefix() { return "Model_" + test_support::portNameMark(); }

  void createFile(const std::string& name) {
    std::ofstream(path(name)).put('\n');
    files_.insert(name);
  }

  static std::string path(const std::string& name) { return "/tmp/" + name; }

  void TearDown() override {
    TerminalTest::TearDown();
    for (const std::string& name : files_) {
      EXPECT_EQ(::unlink(path(name).c_str()), 0) << name;
    }
  }

 private:
  std::set<std::string> files_;
};

TEST_F(ServerNames, AreCompleted) {
  createFile(prefix() + "pump.fifo");
  start();
  ASSERT_TRUE(type("cd " + prefix() + tab));
  EXPECT_TRUE(showsLine("[ /]$ cd " + prefix() + "pump|"));
}

TEST_F(ServerNames, AreCompletedToTheirCommonPrefixAndListed) {
  createFile(prefix() + "alpha.fifo");
  createFile(prefix() + "alpine.fifo");
  start();
  ASSERT_TRUE(type("cd " + prefix() + tab));
  EXPECT_TRUE(showsLine("[ /]$ cd " + prefix() + "alp|"));
  EXPECT_TRUE(showsText(prefix() + "alpha"));
  EXPECT_TRUE(showsText(prefix() + "alpine"));
}

TEST_F(ServerNames, AreOfferedOncePerFile) {
  createFile(prefix() + "a.fifo");
  createFile(prefix() + "a.efifo");
  start();
  ASSERT_TRUE(type("cd " + prefix() + tab));
  EXPECT_TRUE(showsLine("[ /]$ cd " + prefix() + "a|"));
  EXPECT_TRUE(showsText(prefix() + "a  " + prefix() + "a"));
}

TEST_F(ServerNames, AreAllOfferedAfterASlash) {
  createFile(prefix() + "pump.fifo");
  createFile("modelsrv" + test_support::portNameMark() + ".fifo");
  start({.rows = 300, .columns = 200});
  ASSERT_TRUE(type("cd /" + tab));
  EXPECT_TRUE(showsText(prefix() + "pump"));
  EXPECT_TRUE(showsText("modelsrv" + test_support::portNameMark()));
}

TEST_F(ServerNames, DoNotIncludeFilesWithoutExtensionOrDirectories) {
  createFile(prefix() + "file");
  const std::string directory = path(prefix() + "directory.fifo");
  ASSERT_EQ(::mkdir(directory.c_str(), 0700), 0);
  createFile(prefix() + "server.fifo");
  start();
  ASSERT_TRUE(type("cd " + prefix() + tab));
  EXPECT_TRUE(showsLine("[ /]$ cd " + prefix() + "server|"));
  EXPECT_EQ(::rmdir(directory.c_str()), 0);
}

TEST_F(ServerNames, AreListedIfTheyHaveTheRightForm) {
  const std::string mark = test_support::portNameMark();
  createFile("Model_" + mark + ".fifo");
  createFile(mark + ".Model.fifo");
  createFile("modelsrv" + mark + ".fifo");
  start({.rows = 300, .columns = 200});
  ASSERT_TRUE(run("ls"));
  EXPECT_TRUE(showsText("Model_" + mark));
  EXPECT_TRUE(showsText(mark + ".Model"));
  EXPECT_FALSE(screen().find("modelsrv" + mark).has_value());
}

TEST_F(ServerNames, LeaveOutFilesWhoseNamesNoPortCanHave) {
  createFile(prefix() + "\x1B[2Jmoved.fifo");
  createFile(prefix() + ";q.fifo");
  createFile(prefix() + "pump.fifo");
  start({.rows = 300, .columns = 200});
  ASSERT_TRUE(run("ls"));
  EXPECT_TRUE(showsText(prefix() + "pump"));
  EXPECT_FALSE(screen().find("moved").has_value());
  EXPECT_FALSE(screen().find(prefix() + ";q").has_value());
  ASSERT_TRUE(type("cd " + prefix() + tab));
  EXPECT_TRUE(showsLine("[ /]$ cd " + prefix() + "pump|"));
}

/// At the root of a server's tree.
class TreeNames : public TerminalTest {
 protected:
  void startConnected() {
    start();
    connect(server_.name());
    prompt_ = "[ " + server_.name() + "]$ ";
  }

  ModelServer server_ = ModelServer::ofTree(driveTree);
  std::string prompt_;
};

TEST_F(TreeNames, AreCompletedWithASlashIfTheyHaveChildren) {
  startConnected();
  ASSERT_TRUE(type("cd dr" + tab));
  EXPECT_TRUE(showsLine(prompt_ + "cd drive/|"));
  ASSERT_TRUE(type("mo" + tab + "cur" + tab));
  EXPECT_TRUE(showsLine(prompt_ + "cd drive/motor/current|"));
}

TEST_F(TreeNames, AreCompletedInAPathFromTheRoot) {
  startConnected();
  ASSERT_TRUE(type("get /drive/la" + tab));
  EXPECT_TRUE(showsLine(prompt_ + "get /drive/label|"));
}

TEST_F(TreeNames, AreListedAndCompletedToTheirCommonPrefix) {
  startConnected();
  ASSERT_TRUE(type("get /drive/s" + tab));
  ASSERT_TRUE(showsLine(prompt_ + "get /drive/speed|"));
  EXPECT_TRUE(showsScreen("[ /]$ cd " + server_.name() + "\n" +  //
                          prompt_ + "get /drive/s\n" +           //
                          "speed       speedlimit\n" +           //
                          prompt_ + "get /drive/speed\n"));
}

TEST_F(TreeNames, AreAllOfferedForAnEmptyWord) {
  startConnected();
  ASSERT_TRUE(type("ls " + tab));
  EXPECT_TRUE(showsText("drive/  empty"));
  EXPECT_TRUE(showsLine(prompt_ + "ls |"));
  ASSERT_TRUE(type("drive/" + tab));
  EXPECT_TRUE(showsText("speed       speedlimit  gains       label       motor/      noname-12"));
}

TEST_F(TreeNames, ContainTheIdOfAnUnnamedChild) {
  startConnected();
  ASSERT_TRUE(type("get drive/non" + tab));
  EXPECT_TRUE(showsLine(prompt_ + "get drive/noname-12|"));
}

TEST_F(TreeNames, CompleteTheParentWithASlash) {
  startConnected();
  ASSERT_TRUE(type("cd .." + tab));
  EXPECT_TRUE(showsLine(prompt_ + "cd ../|"));
}

TEST_F(TreeNames, StartAtTheRootForATilde) {
  startConnected();
  ASSERT_TRUE(run("cd drive"));
  ASSERT_TRUE(type("ls ~e" + tab + "#"));
  EXPECT_TRUE(showsLine("[ drive]$ ls empty#|"))
      << "the last word is replaced, including its tilde";
}

TEST_F(TreeNames, KeepTheLineIfNoNameMatches) {
  startConnected();
  ASSERT_TRUE(type("get drive/zz" + tab + "#"));
  EXPECT_TRUE(showsLine(prompt_ + "get drive/zz#|"));
  ASSERT_TRUE(type(keys::ctrl('W') + "get nowhere/x" + tab + "#"));
  EXPECT_TRUE(showsLine(prompt_ + "get nowhere/x#|"));
}

TEST_F(TreeNames, KeepTheLineEditableIfTheServerHangs) {
  startConnected();
  server_.hang();
  ASSERT_TRUE(type("get dr" + tab));
  ASSERT_TRUE(showsLine(prompt_ + "get dr|"));
  ASSERT_TRUE(shell().waitFor([](const Screen& screen) { return screen.cursor().row == 2; },
                              "the prompt, one row lower"));
  ASSERT_TRUE(type(keys::backspace + "#"));
  EXPECT_TRUE(showsLine(prompt_ + "get d#|"));
  server_.resume();
}

}  // namespace
}  // namespace terminal_test
