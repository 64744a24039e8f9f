#include <gtest/gtest.h>

#include "tests/terminal/terminal_test.h"

// Keys that arrive faster than they can be handled: typed ahead, and pasted.

namespace terminal_test {
namespace {

/// How often `text` occurs in `bytes`.
std::size_t count(const std::string& bytes, const std::string& text) {
  std::size_t found = 0;
  for (std::size_t at = bytes.find(text); at != std::string::npos; at = bytes.find(text, at + 1)) {
    ++found;
  }
  return found;
}

/// What `pwd` writes at the top of the tree.
const std::string pwdOutput = "\033[1G/\r\n";

using TypingAhead = TerminalTest;

TEST_F(TypingAhead, WaitsForTheRunningCommand) {
  ModelServer server = ModelServer::ofTree(driveTree);
  start();
  connect(server.name());
  server.hang();
  ASSERT_TRUE(enter("get drive/speed"));
  ASSERT_TRUE(type("cd\rpwd\rset"));
  server.resume();
  ASSERT_TRUE(showsLine("[ /]$ set|"));
  EXPECT_TRUE(showsScreen("[ /]$ cd " + server.name() + "\n[ " + server.name() +
                          "]$ get drive/speed\n" + "/drive/speed    [42]\n" + "[ " + server.name() +
                          "]$ cd\n" + "[ /]$ pwd\n" + "/\n" + "[ /]$ set\n"));
}

TEST_F(TypingAhead, GoesToAListingThatHasStopped) {
  ModelServer server({"--synthetic", "1x60"});
  start();
  connect(server.name());
  ASSERT_TRUE(type("ls -lm group_000\r qpwd"));
  EXPECT_TRUE(showsLine("[ " + server.name() + "]$ pwd|"));
}

TEST_F(TypingAhead, RunsEveryLineOfALongPaste) {
  constexpr std::size_t lines = 100 * 1024 / 4;
  std::string paste;
  for (std::size_t i = 0; i < lines; ++i) {
    paste += "pwd\n";
  }
  start();
  const std::size_t mark = shell().mark();
  ASSERT_TRUE(type(paste + "done"));
  ASSERT_TRUE(showsLine("[ /]$ done|"));
  const std::string bytes = shell().bytesSince(mark);
  EXPECT_EQ(count(bytes, pwdOutput), lines);
  EXPECT_EQ(count(bytes, "ERROR"), 0U);
}

TEST_F(TypingAhead, AcceptsALongLineInOnePaste) {
  start({.rows = 24, .columns = 200});
  const std::size_t mark = shell().mark();
  ASSERT_TRUE(type("pwd" + std::string(100 * 1024, ' ') + ";pwd"));
  ASSERT_TRUE(type(keys::returnKey + "done"));
  ASSERT_TRUE(showsLine("[ /]$ done|"));
  EXPECT_EQ(count(shell().bytesSince(mark), pwdOutput), 2U);
  // If the line were drawn at every key, the output would be 5 GB.
  EXPECT_LT(shell().mark() - mark, 100U << 20U);
}

TEST_F(TypingAhead, DrawsAPastedLineWhenThePastePauses) {
  start({.rows = 24, .columns = 200});
  std::string paste(3000, 'x');
  paste += "the end";
  ASSERT_TRUE(type(paste));
  EXPECT_TRUE(shell().waitFor(
      [](const Screen& screen) { return screen.find("xxxthe end").has_value(); }, "the end"));
}

}  // namespace
}  // namespace terminal_test
