#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"
#include "tests/terminal/terminal_test.h"

// Names and values that would act on the terminal, or end the command in which they stand.

namespace terminal_test {
namespace {

using keys::tab;

// In JSON: the name "n<ESC>[31m<CSI><DEL>gr<u umlaut>n", whose <CSI> is U+009B.
const std::string hostileTree = R"({"name": "Model_hostile", "children": [
  {"id": 1, "name": "n\u001b[31m\u009b\u007fgr\u00fcn", "children": [
    {"id": 1, "name": "p\u0007q", "type": "text", "value": "a\u001b]0;t\u0007b\tc\u0085\u00fc"},
    {"id": 2, "name": "t\u001bx", "type": "text",
     "elements": [{"name": "e\u001b1", "value": "x\u009b"}]}]},
  {"id": 2, "name": "plain", "type": "int32", "value": 1},
  {"id": 3, "name": "semi;$touch x", "type": "int32", "value": 1},
  {"id": 4, "name": "semi;other", "type": "int32", "value": 1}]})";
const std::string shownName = "n?[31m??gr\xC3\xBCn";

class HostileText : public TerminalTest {
 protected:
  /// Runs `line` and returns the bytes from its end to the next prompt.
  std::string outputOf(const std::string& line) {
    const std::size_t mark = shell().mark();
    EXPECT_TRUE(run(line));
    const std::string bytes = shell().bytesSince(mark);
    const std::size_t begin = bytes.find("\r\n");
    return begin == std::string::npos ? bytes : bytes.substr(begin + 2);
  }

  void expectOutput(const std::string& line, const std::string& part) {
    const std::string output = outputOf(line);
    EXPECT_NE(output.find(part), std::string::npos)
        << line << ": " << testing::PrintToString(output);
    EXPECT_EQ(output.find_first_of("\x07\x7f"), std::string::npos) << line;
    EXPECT_EQ(output.find("\xC2\x9B"), std::string::npos) << line;
    EXPECT_EQ(output.find("\033[31m"), std::string::npos) << line;
  }

  test_support::ScratchDirectory directory_;
  ModelServer server_ = ModelServer::ofTree(hostileTree);
};

TEST_F(HostileText, IsShownByEveryCommandWithoutItsControls) {
  start({.rows = 60, .columns = 200});
  connect(server_.name());
  // Two spaces after the longest name, as it is shown.
  expectOutput("ls", "\033[1G" + shownName + "/");
  expectOutput("ls -l", shownName + "/");
  expectOutput("ls -lr", "    +-- p?q          [a?]0;t?b\tc?\xC3\xBC]\r\n");
  expectOutput("ls -lr", "    +-- t?x[0](e?1)  [x?]\r\n");
  expectOutput("to " + directory_.file("saved"),
               " make command [a?]0;t?b\tc?\xC3\xBC] -> [str \"a");
  expectOutput("cd noname-1", "[ " + shownName + "]$ ");
  expectOutput("pwd", "/" + server_.name() + "/" + shownName + "\r\n");
  expectOutput("eu -r", "[ " + shownName + "]$ ");
  expectOutput("eu -l", "/" + shownName + "/p?q\r\n");
  expectOutput("cd noname-1", "[ p?q]$ ");
  // The value begins at a multiple of four columns of the path as it is shown.
  const std::string path = "/" + shownName + "/p?q";
  expectOutput("get", path + std::string(4 - path.size() % 4, ' ') + "[a?]0;t?b\tc?\xC3\xBC]\r\n");
}

TEST_F(HostileText, IsShownByUpdatesWithoutItsControls) {
  start({.rows = 60, .columns = 200});
  connect(server_.name());
  ASSERT_TRUE(run("cd noname-1"));
  ASSERT_TRUE(run("eu -r"));
  const std::size_t mark = shell().mark();
  const auto stored =
      test_support::run({test_support::treescopeProgram(), "-c",
                         "cd " + server_.name() + ";cd noname-1/noname-2;set y [0]"});
  ASSERT_EQ(stored.status, test_support::ExitStatus());
  EXPECT_TRUE(shell().writes("/" + shownName + "/t?x\r\n", mark));
  EXPECT_TRUE(shell().writes("+-- [0](e?1)  [y]\r\n", mark));
}

TEST_F(HostileText, PlacesTheLineAfterThePromptAsShown) {
  start({.rows = 60, .columns = 200});
  connect(server_.name());
  ASSERT_TRUE(run("cd noname-1"));
  const std::size_t mark = shell().mark();
  ASSERT_TRUE(type("x"));
  const std::size_t column = std::string(" ]$ ").size() + shownName.size() + 2;
  EXPECT_TRUE(shell().writes("\033[" + std::to_string(column) + "Gx", mark));
}

TEST_F(HostileText, IsUnchangedInAPipe) {
  const auto listing = test_support::run(
      {test_support::treescopeProgram(), "-c", "cd " + server_.name() + ";ls -lr"});
  EXPECT_NE(listing.output.find("n\033[31m\xC2\x9B\x7Fgr\xC3\xBCn/"), std::string::npos);
  EXPECT_NE(listing.output.find("[a\033]0;t\x07"
                                "b\tc\xC2\x85\xC3\xBC]"),
            std::string::npos);
}

TEST_F(HostileText, IsInsertedByTabUpToWhatEndsACommand) {
  start({.rows = 60, .columns = 200});
  connect(server_.name());
  ASSERT_TRUE(type("get n" + tab));
  EXPECT_TRUE(showsLine("[ " + server_.name() + "]$ get n|"));
  ASSERT_TRUE(type(keys::ctrl('W') + "get s" + tab));
  // The list shows the whole names.
  EXPECT_TRUE(showsText("semi;$touch x  semi;other"));
  EXPECT_TRUE(showsLine("[ " + server_.name() + "]$ get semi|"));
  ASSERT_TRUE(type(";$" + keys::ctrl('W')));
}

TEST_F(HostileText, OfAPortIsListedWithoutItsControls) {
  const std::string name = test_support::uniquePortName() + "\x9B[31mx\xC2\x85";
  ASSERT_EQ(mkfifo(test_support::mailboxPath(name).c_str(), 0600), 0);
  start({.rows = 60, .columns = 200});
  std::string listing = outputOf("ls");
  while (listing.find("More") != std::string::npos && shell().bytesSince(0).ends_with("More")) {
    ASSERT_TRUE(type(" "));
  }
  EXPECT_EQ(unlink(test_support::mailboxPath(name).c_str()), 0);
  EXPECT_EQ(listing.find('\x9B'), std::string::npos);
  EXPECT_NE(listing.find("?[31mx?"), std::string::npos) << testing::PrintToString(listing);
}

TEST_F(HostileText, OfAPortRunsNothingByTabAndReturn) {
  const std::string begin = test_support::uniquePortName();
  const std::string mailbox =
      test_support::mailboxPath(begin + ";$echo ran-$((40+2));" + begin + "\033[7G");
  ASSERT_EQ(mkfifo(mailbox.c_str(), 0600), 0);
  start({.rows = 60, .columns = 200});
  ASSERT_TRUE(type("cd " + begin + tab));
  static_cast<void>(outputOf(""));
  EXPECT_EQ(unlink(mailbox.c_str()), 0);
  EXPECT_EQ(shell().bytesSince(0).find("ran-42"), std::string::npos);
  EXPECT_EQ(shell().bytesSince(0).find("$echo"), std::string::npos);
}

TEST_F(HostileText, OfAPartRunsNothingByTabAndReturn) {
  start({.rows = 60, .columns = 200});
  connect(server_.name());
  ASSERT_TRUE(type("get semi" + tab + tab));
  static_cast<void>(outputOf(""));
  EXPECT_NE(::access("x", F_OK), 0);
}

TEST_F(HostileText, ThatIsSavedRunsNothing) {
  const std::string ran = directory_.file("ran");
  const std::string command = "$touch " + ran;
  const auto server = ModelServer::ofTree(
      R"({"name": "Model_saved", "children": [{"name": "n;)" + command +
      R"(", "children": [{"name": "a", "type": "text", "value": "ok;)" + command +
      R"("}]}, {"name": "b", "type": "text", "value": "x\n)" + command + R"(\ncmdfrom )" + ran +
      R"("}, {"name": "c", "type": "text", "elements": [{"name": ";)" + command +
      R"(", "value": "\r\n)" + command + R"(\r\n"}]}]})");
  const std::string saved = directory_.file("saved");
  const auto runCommands = [&](const std::string& commands) {
    return test_support::run(
        {test_support::treescopeProgram(), "-c", "cd " + server.name() + ";" + commands});
  };
  static_cast<void>(runCommands("to " + saved));
  EXPECT_NE(directory_.read("saved").find("touch"), std::string::npos);
  static_cast<void>(runCommands("from " + saved));
  static_cast<void>(runCommands("cmdfrom " + saved));
  EXPECT_NE(::access(ran.c_str(), F_OK), 0);
}

}  // namespace
}  // namespace terminal_test
