#include <gtest/gtest.h>

#include <regex>

#include "tests/terminal/terminal_test.h"

// Typing, completing and listing while updates flood the screen.

namespace terminal_test {
namespace {

/// Whether each line that shows a path or a value is complete: nothing else is printed
/// between its start and its end.
testing::AssertionResult linesAreComplete(const std::string& bytes) {
  static const std::regex line("(/group_00[0-3]/item_000[0-7]|item_000[0-7]  \\[[0-9]+\\])");
  const std::string begin = "\033[1G";
  std::size_t lines = 0;
  for (std::size_t at = bytes.find(begin); at != std::string::npos; at = bytes.find(begin, at)) {
    at += begin.size();
    if (bytes[at] != '/' && bytes[at] != 'i') {
      continue;  // A row of columns.
    }
    const std::string text = bytes.substr(at, bytes.find("\r\n", at) - at);
    ++lines;
    if (!std::regex_match(text, line)) {
      return testing::AssertionFailure() << "divided: " << testing::PrintToString(text);
    }
  }
  return lines > 0 ? testing::AssertionSuccess() : testing::AssertionFailure() << "no lines";
}

class Flood : public TerminalTest {
 protected:
  ModelServer server_{{"--synthetic", "4x8", "--churn", "2000"}};
};

TEST_F(Flood, DividesNoLineAndLosesNoKey) {
  start();
  connect(server_.name());
  ASSERT_TRUE(enter("eu -r"));
  const std::size_t mark = shell().mark();
  ASSERT_TRUE(shell().writes("\033[1G/group_", mark)) << "an update";
  const int rounds = 20;
  int lines = 1;
  std::string history = "0 cd " + server_.name() + "\n1 eu -r\n";
  for (int round = 0; round < rounds; ++round) {
    const std::string ports = "setport a b " + std::to_string(round);
    const std::size_t begin = shell().mark();
    // Completed to "group_00", edited and accepted.
    ASSERT_TRUE(type("ls -l gro" + keys::tab));
    ASSERT_TRUE(type("12" + keys::backspace));
    ASSERT_TRUE(type(keys::returnKey));
    ASSERT_TRUE(enter(ports));
    ASSERT_TRUE(enter("!-1"));
    ASSERT_TRUE(shell().writes("item_0007  [", begin)) << "the listing";
    for (const std::string& line : {std::string("ls -l group_001"), ports, ports}) {
      history += std::to_string(++lines) + ' ' + line + '\n';
    }
  }
  ASSERT_TRUE(enter("du"));
  ASSERT_TRUE(type("done"));
  ASSERT_TRUE(showsLine("[ " + server_.name() + "]$ done|"));
  EXPECT_TRUE(linesAreComplete(shell().bytesSince(mark)));
  EXPECT_EQ(shell().bytesSince(mark).find("ERROR"), std::string::npos);
  shell().resize(100, 80);
  const std::size_t listing = shell().mark();
  ASSERT_TRUE(type(keys::ctrl('W') + "history" + keys::returnKey));
  // Ctrl-W shows an empty prompt too, so the output of the command is awaited first.
  ASSERT_TRUE(shell().writes(std::to_string(++lines) + " du", listing));
  ASSERT_TRUE(showsLine("[ " + server_.name() + "]$ |"));
  EXPECT_NE(screen().text().find(history), std::string::npos) << screen().text();
}

TEST_F(Flood, EndsDuringUpdates) {
  start();
  connect(server_.name());
  ASSERT_TRUE(enter("eu -r"));
  ASSERT_TRUE(shell().writes("\033[1G/group_", 0));
  leave();
}

}  // namespace
}  // namespace terminal_test
