#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "shell/command_table.h"
#include "shell/results.h"
#include "shell/scope_base.h"
#include "tests/support/captured_output.h"
#include "tests/support/editor_echo.h"
#include "tests/support/fed_input.h"
#include "tests/support/listed_candidates.h"

namespace treescope {
namespace {

using test_support::CapturedOutput;
using test_support::EditorEcho;
using test_support::FedInput;
using test_support::listedCandidates;
using testing::ElementsAre;

using Words = std::vector<std::string>;

const EditorEcho drawn{" /"};

/// The bytes that redraw `line` with the cursor at its end.
std::string redrawn(const std::string& line) {
  return drawn.redrawn(line, line.size());
}

const Words everyCommand = {"cat ",  "cd ", "du ",  "eu ",  "exit ", "from ", "get ",
                            "help ", "ls ", "set ", "str ", "to ",   "quit "};

TEST(CommandCandidates, AreTheOfferedCommandsThatBeginWithTheHead) {
  struct Case {
    std::string head;
    Words candidates;
  };
  const std::vector<Case> cases = {
      {"", everyCommand},
      {"l", {"ls "}},
      {"ls", {"ls "}},
      {"ls ", {"ls "}},
      {"ls  ", {}},
      {"c", {"cat ", "cd "}},
      {"e", {"eu ", "exit "}},
      {"s", {"set ", "str "}},
      {"q", {"quit "}},
      {"exi", {"exit "}},
      {"t", {"to "}},
      {"tab", {}},
      {"p", {}},
      {"setp", {}},
      {"hi", {}},
      {"L", {}},
      {" ", {}},
      {"\xff", {}},
  };
  for (const Case& each : cases) {
    EXPECT_EQ(commandCandidates(completedCommands, each.head), each.candidates)
        << "head '" << each.head << "'";
  }
}

TEST(CommandCandidates, FollowTheOrderOfTheCodes) {
  const int codes[] = {commandCode("ls "), commandCode("history "), commandCode("cat "), noCommand};
  EXPECT_EQ(commandCandidates(codes, ""), (Words{"ls ", "history ", "cat "}));
  EXPECT_TRUE(commandCandidates(&codes[3], "").empty());
}

/// Completes every word to `words` and records the requests.
class CompletingShell : public ScopeBase {
 public:
  explicit CompletingShell(int batch = 0) : ScopeBase(nullptr, batch) {}

  int doTab(const char* head, const char* word) override {
    const auto quoted = [](const char* text) {
      return text == nullptr ? std::string("null") : '\'' + std::string(text) + '\'';
    };
    requests.push_back(quoted(head) + ' ' + quoted(word));
    if (word != nullptr || completeCommandWord(completedCommands, head)) {
      presentCandidates(words);
    }
    return result::success;
  }
  int doExit() override {
    requests.emplace_back("exit");
    return result::success;
  }

  LineEditor& editor() { return lineEditor_; }

  Words words;
  Words requests;
};

class Completion : public testing::Test {
 protected:
  /// What is printed when Tab is pressed after `line` was typed.
  std::string tabAfter(const std::string& line) {
    CapturedOutput typing;
    shell_.editor().setLine(line);
    shell_.editor().moveCursor(2);
    static_cast<void>(typing.take());
    return tab();
  }

  std::string tab() {
    CapturedOutput output;
    shell_.editor().handleKey('\t');
    return output.take();
  }

  const std::string& line() { return shell_.editor().line(); }

  void expectCursorAtEnd() { EXPECT_EQ(shell_.editor().cursor(), line().size()); }

  FedInput input_;
  CapturedOutput start_;
  CompletingShell shell_;
  const std::string startBytes_ = start_.take();
};

TEST_F(Completion, OfAnEmptyLineListsEveryCommand) {
  EXPECT_EQ(startBytes_, drawn.prompt());
  EXPECT_EQ(tab(), "\n" + listedCandidates(everyCommand) + drawn.prompt());
  EXPECT_EQ(line(), "");
  EXPECT_THAT(shell_.requests, ElementsAre("null null"));
}

TEST_F(Completion, OfALineOfSpacesListsEveryCommandAndKeepsTheSpaces) {
  EXPECT_EQ(tabAfter("  "),
            "\n" + listedCandidates(everyCommand) + drawn.prompt("  ") + redrawn("  "));
  EXPECT_EQ(line(), "  ");
  EXPECT_THAT(shell_.requests, ElementsAre("null null"));
}

TEST_F(Completion, OfACommandWordReplacesTheWholeLineWithASingleCandidate) {
  EXPECT_EQ(tabAfter("l"), "\n" + drawn.prompt("ls "));
  EXPECT_EQ(line(), "ls ");
  expectCursorAtEnd();
  EXPECT_EQ(tabAfter("   ls"), "\n" + drawn.prompt("ls "));
  EXPECT_EQ(line(), "ls ");
  EXPECT_THAT(shell_.requests, ElementsAre("'l' null", "'ls' null"));
}

TEST_F(Completion, OfACommandWordListsSeveralAndKeepsALineWithoutSpaceAndSlash) {
  EXPECT_EQ(tabAfter("c"), "\n" + listedCandidates({"cat ", "cd "}) + drawn.prompt("c"));
  EXPECT_EQ(line(), "c");
  EXPECT_EQ(tab(), "\n" + listedCandidates({"cat ", "cd "}) + drawn.prompt("c"));
}

TEST_F(Completion, OfACommandWordAfterSpacesInsertsTheCommonBeginning) {
  EXPECT_EQ(tabAfter("  c"),
            "\n" + listedCandidates({"cat ", "cd "}) + drawn.prompt("  c") + redrawn("  c"));
  EXPECT_EQ(line(), "  c");
}

TEST_F(Completion, CutsACandidateAtAZeroByte) {
  shell_.words = {std::string("ab\0cd/", 6)};
  EXPECT_EQ(tabAfter("get a"), "\n" + drawn.prompt("get a") + redrawn("get ab"));
  EXPECT_EQ(line(), "get ab");
  shell_.words = {std::string("ab\0cd", 5), std::string("ab\0ce", 5)};
  EXPECT_EQ(tabAfter("get a"),
            "\n" + listedCandidates({"ab", "ab"}) + drawn.prompt("get a") + redrawn("get ab"));
  EXPECT_EQ(line(), "get ab");
}

TEST_F(Completion, OfAnUnknownCommandWordPrintsThePromptAgain) {
  EXPECT_EQ(tabAfter("pwd"), "\n" + drawn.prompt("pwd"));
  EXPECT_EQ(line(), "pwd");
}

TEST_F(Completion, OfACompleteCommandWordCompletesTheNextWord) {
  shell_.words = {"only"};
  EXPECT_EQ(tabAfter("ls "), "\n" + drawn.prompt("ls ") + redrawn("ls only"));
  EXPECT_EQ(line(), "ls only");
  expectCursorAtEnd();
  EXPECT_THAT(shell_.requests, ElementsAre("'ls ' null"));
}

TEST_F(Completion, OfAWordWithoutCandidatesPrintsThePromptAgain) {
  EXPECT_EQ(tabAfter("get /x/a"), "\n" + drawn.prompt("get /x/a"));
  EXPECT_EQ(line(), "get /x/a");
  EXPECT_THAT(shell_.requests, ElementsAre("'get ' '/x/a'"));
}

TEST_F(Completion, OfAWordInsertsASingleCandidate) {
  shell_.words = {"abc"};
  EXPECT_EQ(tabAfter("get /x/a"), "\n" + drawn.prompt("get /x/a") + redrawn("get /x/abc"));
  EXPECT_EQ(line(), "get /x/abc");
  expectCursorAtEnd();
}

TEST_F(Completion, OfAWordListsSeveralAndInsertsTheirCommonBeginning) {
  shell_.words = {"alpha", "alpine"};
  EXPECT_EQ(tabAfter("get /x/a"), "\n" + listedCandidates(shell_.words) + drawn.prompt("get /x/a") +
                                      redrawn("get /x/alp"));
  EXPECT_EQ(line(), "get /x/alp");
  expectCursorAtEnd();
}

TEST_F(Completion, OfAWordRemovesWhatIsNotCommonToSeveral) {
  shell_.words = {"alpha", "beta"};
  tabAfter("get /x/a");
  EXPECT_EQ(line(), "get /x/");
}

TEST_F(Completion, OfAWordReplacesOnlyItsLastComponent) {
  shell_.words = {"name/"};
  tabAfter("cd a/b/na");
  EXPECT_EQ(line(), "cd a/b/name/");
  tabAfter("set 5 na");
  EXPECT_EQ(line(), "set 5 name/");
  tabAfter("   get na");
  EXPECT_EQ(line(), "   get name/");
}

TEST_F(Completion, OfAWordAppendsASlashToTheParent) {
  shell_.words = {".."};
  EXPECT_EQ(tabAfter("cd .."), "\n" + drawn.prompt("cd ..") + redrawn("cd ../"));
  EXPECT_EQ(line(), "cd ../");
  shell_.words = {"..", "..a"};
  tabAfter("cd .");
  EXPECT_EQ(line(), "cd ..");
}

TEST_F(Completion, OfALineAppendsNoSlashToTheParent) {
  CapturedOutput output;
  shell_.presentLineCandidates({".."});
  EXPECT_EQ(output.take(), drawn.prompt(".."));
  EXPECT_EQ(line(), "..");
}

TEST_F(Completion, OfALineWithoutCandidatesPrintsThePromptAgain) {
  CapturedOutput output;
  shell_.presentLineCandidates({});
  EXPECT_EQ(output.take(), drawn.prompt());
}

TEST_F(Completion, OfALineWithASeparatorRunsTheCommandsAfterIt) {
  EXPECT_EQ(tabAfter("ls; q"), "\n" + drawn.prompt("ls "));
  EXPECT_THAT(shell_.requests, ElementsAre("'ls' null", "exit"));
  EXPECT_EQ(shell_.isRunning(), 0);
}

TEST_F(Completion, StoresNothingInTheHistory) {
  tabAfter("ls ");
  tabAfter("!!");
  EXPECT_TRUE(shell_.editor().history().empty());
  EXPECT_THAT(shell_.requests, ElementsAre("'ls ' null", "'!!' null"));
}

TEST_F(Completion, SplitsTheLineIntoWordsLikeACommand) {
  tabAfter("get /a ");
  tabAfter("str \"two words\" /b c");
  tabAfter("get \"a b");
  EXPECT_THAT(shell_.requests, ElementsAre("'get ' '/a'", "'str ' 'c'", "'get ' 'b'"));
}

TEST(CompletionInBatchMode, ListsSeveralAndPrintsNothingForOne) {
  CompletingShell shell(1);
  shell.words = {"one"};
  CapturedOutput output;
  EXPECT_EQ(shell.dispatch("tab c"), result::success);
  EXPECT_EQ(shell.dispatch("tab l"), result::success);
  EXPECT_EQ(shell.dispatch("tab get o"), result::success);
  EXPECT_EQ(output.take(), "cat   \n\ncd    \n\n");
}

TEST_F(Completion, AcceptsCandidatesOfAnyBytes) {
  shell_.words = {"\xff\x1b[1m", "\xff\xc3"};
  tabAfter("get \xff");
  EXPECT_EQ(line(), "get \xff");
  shell_.words = {std::string(100'000, 'x')};
  tabAfter("get x");
  EXPECT_EQ(line(), "get " + shell_.words.front());
  shell_.words.assign(65'534, "name");
  tabAfter("get n");
  EXPECT_EQ(line(), "get name");
}

}  // namespace
}  // namespace treescope
