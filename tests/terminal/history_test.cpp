#include <gtest/gtest.h>

#include <ostream>

#include "tests/terminal/terminal_test.h"

// Recalling earlier lines.

namespace terminal_test {
namespace {

using keys::down;
using keys::up;

class History : public TerminalTest {
 protected:
  /// Starts a shell in which `lines` have been typed, on a clear screen.
  void startWith(const std::vector<std::string>& lines) {
    start();
    for (const std::string& line : lines) {
      ASSERT_TRUE(run(line));
    }
    ASSERT_TRUE(showsLine("[ /]$ |"));
  }

  /// The output of `line`: what is shown between the line and the next prompt.
  std::string outputOf(const std::string& line) {
    const std::size_t mark = shell().mark();
    EXPECT_TRUE(run(line));
    const std::string bytes = shell().bytesSince(mark);
    const std::size_t begin = bytes.find("\r\n") + 2;
    std::string output;
    bool inSequence = false;
    for (const char byte : bytes.substr(begin, bytes.rfind("\033[0G[") - begin)) {
      if (byte == '\033') {
        inSequence = true;
      } else if (inSequence) {
        inSequence = byte == '[' || (byte >= '0' && byte <= '9');
      } else if (byte != '\r') {
        output += byte;
      }
    }
    return output;
  }
};

TEST_F(History, IsBrowsedBackAndForward) {
  startWith({"pwd", "setport a b c"});
  ASSERT_TRUE(type("dra"));
  ASSERT_TRUE(type(up));
  EXPECT_TRUE(showsLine("[ /]$ setport a b c|"));
  ASSERT_TRUE(type(up));
  EXPECT_TRUE(showsLine("[ /]$ pwd|"));
  ASSERT_TRUE(type(down));
  EXPECT_TRUE(showsLine("[ /]$ setport a b c|"));
  ASSERT_TRUE(type(down));
  EXPECT_TRUE(showsLine("[ /]$ dra|")) << "the line that was being typed is shown again";
  ASSERT_TRUE(type(down + "ft"));
  EXPECT_TRUE(showsLine("[ /]$ draft|")) << "there is nothing newer";
}

TEST_F(History, IsBrowsedWithControlKeysToo) {
  startWith({"pwd", "bt"});
  ASSERT_TRUE(type(keys::ctrl('P') + keys::ctrl('P')));
  EXPECT_TRUE(showsLine("[ /]$ pwd|"));
  ASSERT_TRUE(type(keys::ctrl('N')));
  EXPECT_TRUE(showsLine("[ /]$ bt|"));
}

TEST_F(History, IsBrowsedByTenLinesWithThePageKeys) {
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

TEST_F(History, MovesTheCursorToTheEndIfThereIsNoOlderLine) {
  start();
  ASSERT_TRUE(type("abc" + keys::home + up + "#"));
  EXPECT_TRUE(showsLine("[ /]$ abc#|"));
}

TEST_F(History, KeepsAnEditedLineWhileBrowsing) {
  startWith({"pwd", "bt"});
  ASSERT_TRUE(type(up + "x" + up + down));
  EXPECT_TRUE(showsLine("[ /]$ btx|"));
  ASSERT_TRUE(type(keys::returnKey));
  ASSERT_TRUE(type(up + up + "#"));
  EXPECT_TRUE(showsLine("[ /]$ bt#|")) << "the edited line was added, the older one is unchanged";
}

TEST_F(History, ListsItselfFromZero) {
  start();
  EXPECT_EQ(outputOf("bt"), "");
  EXPECT_EQ(outputOf("pwd"), "/\n");
  EXPECT_EQ(outputOf("history"), "0 bt\n1 pwd\n2 history\n");
}

TEST_F(History, KeepsEachRepetition) {
  startWith({"bt", "bt", "bt"});
  EXPECT_EQ(outputOf("history"), "0 bt\n1 bt\n2 bt\n3 history\n");
}

TEST_F(History, KeepsNoEmptyLine) {
  startWith({"", "bt", ""});
  EXPECT_EQ(outputOf("history"), "0 bt\n1 history\n");
}

TEST_F(History, PrintsALongEntryCompletely) {
  const std::string longLine = "rm " + std::string(200, 'x');
  startWith({longLine});
  EXPECT_EQ(outputOf("history"), "0 " + longLine + "\n1 history\n");
}

struct Reference {
  const char* name;
  std::vector<std::string> before;
  const char* typed;
  /// The line that the history has in addition afterwards.
  const char* stored;
  const char* output;

  friend void PrintTo(const Reference& which, std::ostream* out) { *out << which.typed; }
};

class HistoryReference : public History, public testing::WithParamInterface<Reference> {};

TEST_P(HistoryReference, RunsAndStoresTheReferencedLine) {
  startWith(GetParam().before);
  EXPECT_EQ(outputOf(GetParam().typed), GetParam().output);
  ASSERT_TRUE(type(up));
  EXPECT_TRUE(showsLine("[ /]$ " + std::string(GetParam().stored) + "|"));
}

INSTANTIATE_TEST_SUITE_P(
    All, HistoryReference,
    testing::Values(Reference{"LastWord", {"bt", "setport x y z"}, "rm !$", "rm z", ""},
                    Reference{"LastWordTwice", {"rm z"}, "con !$ !$", "con z z", ""},
                    Reference{"LastLine", {"bt", "pwd"}, "!!", "pwd", "/\n"},
                    Reference{"NewestWithThePrefix", {"pwd", "bt"}, "!p", "pwd", "/\n"},
                    Reference{"First", {"pwd", "bt", "bt"}, "!0", "pwd", "/\n"},
                    Reference{"NewestByCount", {"bt", "bt", "pwd"}, "!-1", "pwd", "/\n"},
                    Reference{"OldestByCount", {"pwd", "bt", "bt"}, "!-3", "pwd", "/\n"},
                    Reference{"NumberTooHigh", {"bt", "bt"}, "!5", "5", "ERROR: OptionError\n"},
                    Reference{"NoneWithThePrefix", {"bt"}, "!zz", "zz", "ERROR: OptionError\n"},
                    Reference{"NoneWithThePrefixBeforeAWord", {"bt"}, "!zz a", "zz a", ""},
                    Reference{"LastLineOfAnEmptyHistory", {}, "!!", "!", "ERROR: OptionError\n"},
                    Reference{"LastWordOfAnEmptyHistory", {}, "rm !$", "rm !$", ""}),
    [](const auto& test) { return test.param.name; });

class HistoryCountOutOfRange : public History, public testing::WithParamInterface<const char*> {};

TEST_P(HistoryCountOutOfRange, IsAnErrorThatStoresAndRunsNothing) {
  startWith({"bt", "pwd"});
  EXPECT_EQ(outputOf(GetParam()), "ERROR: NotFound\n");
  EXPECT_TRUE(showsLine("[ /]$ |"));
  EXPECT_EQ(outputOf("history"), "0 bt\n1 pwd\n2 history\n");
}

INSTANTIATE_TEST_SUITE_P(All, HistoryCountOutOfRange,
                         testing::Values("!-0", "!-3", "!-99999999999999999999"));

TEST_F(History, KeepsAnEmptyEntryForALoneExclamationMark) {
  startWith({"bt"});
  EXPECT_EQ(outputOf("!"), "ERROR: OptionError\n");
  EXPECT_EQ(outputOf("history"), "0 bt\n1 \n2 history\n");
}

}  // namespace
}  // namespace terminal_test
