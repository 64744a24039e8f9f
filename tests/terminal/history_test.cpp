#include <gtest/gtest.h>

#include <ostream>

#include "tests/terminal/shell_terminal.h"

// Lines that come back.

namespace terminal_test {
namespace {

using keys::down;
using keys::up;

class History : public ShellTerminal {
 protected:
  /// Starts a shell in which `lines` have been typed, on a clear screen.
  void startWith(const std::vector<std::string>& lines) {
    start();
    for (const std::string& line : lines) {
      ASSERT_TRUE(run(line));
    }
    ASSERT_TRUE(showsLine("[ /]$ |"));
  }

  /// What `line` shows between itself and the next prompt.
  std::string answerTo(const std::string& line) {
    const std::size_t mark = shell().mark();
    EXPECT_TRUE(run(line));
    const std::string bytes = shell().bytesSince(mark);
    const std::size_t begin = bytes.find("\r\n") + 2;
    std::string answer;
    bool inSequence = false;
    for (const char byte : bytes.substr(begin, bytes.rfind("\033[0G[") - begin)) {
      if (byte == '\033') {
        inSequence = true;
      } else if (inSequence) {
        inSequence = byte == '[' || (byte >= '0' && byte <= '9');
      } else if (byte != '\r') {
        answer += byte;
      }
    }
    return answer;
  }
};

TEST_F(History, WalksBackAndForth) {
  startWith({"pwd", "setport a b c"});
  ASSERT_TRUE(type("dra"));
  ASSERT_TRUE(type(up));
  EXPECT_TRUE(showsLine("[ /]$ setport a b c|"));
  ASSERT_TRUE(type(up));
  EXPECT_TRUE(showsLine("[ /]$ pwd|"));
  ASSERT_TRUE(type(down));
  EXPECT_TRUE(showsLine("[ /]$ setport a b c|"));
  ASSERT_TRUE(type(down));
  EXPECT_TRUE(showsLine("[ /]$ dra|")) << "what was being typed comes back";
  ASSERT_TRUE(type(down + "ft"));
  EXPECT_TRUE(showsLine("[ /]$ draft|")) << "there is nothing newer";
}

TEST_F(History, WalksWithControlKeysToo) {
  startWith({"pwd", "bt"});
  ASSERT_TRUE(type(keys::ctrl('P') + keys::ctrl('P')));
  EXPECT_TRUE(showsLine("[ /]$ pwd|"));
  ASSERT_TRUE(type(keys::ctrl('N')));
  EXPECT_TRUE(showsLine("[ /]$ bt|"));
}

TEST_F(History, WalksTenLinesAPage) {
  std::vector<std::string> lines;
  for (int i = 0; i < 12; ++i) {
    lines.push_back("rm " + std::to_string(i));
  }
  startWith(lines);
  ASSERT_TRUE(type(keys::pageUp));
  EXPECT_TRUE(showsLine("[ /]$ rm 2|"));
  ASSERT_TRUE(type(keys::pageUp));
  EXPECT_TRUE(showsLine("[ /]$ rm 0|"));
  ASSERT_TRUE(type(keys::pageDown));
  EXPECT_TRUE(showsLine("[ /]$ rm 10|"));
  ASSERT_TRUE(type(keys::pageDown));
  EXPECT_TRUE(showsLine("[ /]$ |"));
}

TEST_F(History, PutsTheCursorAtTheEndWhereThereIsNothingOlder) {
  start();
  ASSERT_TRUE(type("abc" + keys::home + up + "#"));
  EXPECT_TRUE(showsLine("[ /]$ abc#|"));
}

TEST_F(History, KeepsChangesOfALineWhileOneWalks) {
  startWith({"pwd", "bt"});
  ASSERT_TRUE(type(up + "x" + up + down));
  EXPECT_TRUE(showsLine("[ /]$ btx|"));
  ASSERT_TRUE(type(keys::returnKey));
  ASSERT_TRUE(type(up + up + "#"));
  EXPECT_TRUE(showsLine("[ /]$ bt#|")) << "the changed line was added, the older one is as it was";
}

TEST_F(History, ListsItselfFromZero) {
  start();
  EXPECT_EQ(answerTo("bt"), "");
  EXPECT_EQ(answerTo("pwd"), "/\n");
  EXPECT_EQ(answerTo("history"), "0 bt\n1 pwd\n2 history\n");
}

TEST_F(History, KeepsEachRepetition) {
  startWith({"bt", "bt", "bt"});
  EXPECT_EQ(answerTo("history"), "0 bt\n1 bt\n2 bt\n3 history\n");
}

TEST_F(History, KeepsNoEmptyLine) {
  startWith({"", "bt", ""});
  EXPECT_EQ(answerTo("history"), "0 bt\n1 history\n");
}

TEST_F(History, PrintsALongEntryWhole) {
  const std::string longLine = "rm " + std::string(200, 'x');
  startWith({longLine});
  EXPECT_EQ(answerTo("history"), "0 " + longLine + "\n1 history\n");
}

struct Reference {
  const char* name;
  std::vector<std::string> before;
  const char* typed;
  /// The history afterwards: the lines before and this one.
  const char* stored;
  const char* answer;

  friend void PrintTo(const Reference& which, std::ostream* out) { *out << which.typed; }
};

class HistoryReference : public History, public testing::WithParamInterface<Reference> {};

TEST_P(HistoryReference, RunsAndStoresTheLineItMeans) {
  startWith(GetParam().before);
  EXPECT_EQ(answerTo(GetParam().typed), GetParam().answer);
  ASSERT_TRUE(type(up));
  EXPECT_TRUE(showsLine("[ /]$ " + std::string(GetParam().stored) + "|"));
}

INSTANTIATE_TEST_SUITE_P(
    All, HistoryReference,
    testing::Values(Reference{"LastWord", {"bt", "setport x y z"}, "rm !$", "rm z", ""},
                    Reference{"LastWordTwice", {"rm z"}, "con !$ !$", "con z z", ""},
                    Reference{"LastLine", {"bt", "pwd"}, "!!", "pwd", "/\n"},
                    Reference{"NewestThatBeginsSo", {"pwd", "bt"}, "!p", "pwd", "/\n"},
                    Reference{"First", {"pwd", "bt", "bt"}, "!0", "pwd", "/\n"},
                    Reference{"NewestByCount", {"bt", "bt", "pwd"}, "!-1", "pwd", "/\n"},
                    Reference{"OldestByCount", {"pwd", "bt", "bt"}, "!-3", "pwd", "/\n"},
                    Reference{"NumberTooHigh", {"bt", "bt"}, "!5", "5", "ERROR: OptionError\n"},
                    Reference{"NothingBeginsSo", {"bt"}, "!zz", "zz", "ERROR: OptionError\n"},
                    Reference{"NothingBeginsSoWithAWordBehindIt", {"bt"}, "!zz a", "zz a", ""},
                    Reference{"LastLineOfNone", {}, "!!", "!", "ERROR: OptionError\n"},
                    Reference{"LastWordOfNone", {}, "rm !$", "rm !$", ""}),
    [](const auto& test) { return test.param.name; });

class HistoryCountOutOfRange : public History, public testing::WithParamInterface<const char*> {};

TEST_P(HistoryCountOutOfRange, IsAnErrorThatStoresAndRunsNothing) {
  startWith({"bt", "pwd"});
  EXPECT_EQ(answerTo(GetParam()), "ERROR: NotFound\n");
  EXPECT_TRUE(showsLine("[ /]$ |"));
  EXPECT_EQ(answerTo("history"), "0 bt\n1 pwd\n2 history\n");
}

INSTANTIATE_TEST_SUITE_P(All, HistoryCountOutOfRange,
                         testing::Values("!-0", "!-3", "!-99999999999999999999"));

TEST_F(History, KeepsAnEmptyEntryForALoneMark) {
  startWith({"bt"});
  EXPECT_EQ(answerTo("!"), "ERROR: OptionError\n");
  EXPECT_EQ(answerTo("history"), "0 bt\n1 \n2 history\n");
}

}  // namespace
}  // namespace terminal_test
