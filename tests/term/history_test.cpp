#include "term/history.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <stdexcept>

namespace treescope {

void PrintTo(const Expansion& expansion, std::ostream* out) {
  *out << "stored '" << expansion.stored << "', run '" << expansion.run << "'";
}

namespace {

using Lines = std::vector<std::string>;

struct HistoryCase {
  Lines history;
  std::string line;
  std::string stored;
  std::string run;
};

void expectCases(const std::vector<HistoryCase>& cases) {
  for (const HistoryCase& each : cases) {
    EXPECT_EQ(expandHistory(each.line, each.history), (Expansion{each.stored, each.run}))
        << "line '" << each.line << "' after " << testing::PrintToString(each.history);
  }
}

TEST(ExpandHistory, LeavesALineWithoutReferencesAsItIs) {
  expectCases({
      {{}, "ls", "ls", "ls"},
      {{"ls"}, "pwd", "pwd", "pwd"},
      {{"ls"}, "   ", "   ", "   "},
      {{"ls"}, "echo a!b $c", "echo a!b $c", "echo a!b $c"},
      {{"ls"}, "get a!", "get a!", "get a!"},
      {{"ls"}, "$! ls", "$! ls", "$! ls"},
      {{"ls"}, " !!", " !!", " !!"},
      {{"ls"}, " !0", " !0", " !0"},
  });
}

TEST(ExpandHistory, ReplacesEachLastWordReferenceByTheLastWordOfTheNewestLine) {
  expectCases({
      {{"ls", "cd a"}, "get !$", "get a", "get a"},
      {{"cd a"}, "get !$/!$", "get a/a", "get a/a"},
      {{"cd a"}, "x!$y", "xay", "xay"},
      {{"cd a"}, "!x !$", "x !$", "!x !$"},
      {{"ls x", "cd"}, "get !$", "get cd", "get cd"},
      {{"get a \t"}, "x !$", "x a", "x a"},
      {{"get\ta\vb\fc\rd\ne"}, "x !$", "x e", "x e"},
      {{"str \"a b\" \"c d\""}, "x !$", "x d\"", "x d\""},
      {{"get caf\xc3\xa9\xff"}, "x !$", "x caf\xc3\xa9\xff", "x caf\xc3\xa9\xff"},
  });
}

TEST(ExpandHistory, ReplacesALastWordReferenceByNothingIfTheNewestLineHasNoWords) {
  expectCases({
      {{"cd a", ""}, "get !$", "get ", "get "},
      {{" \t "}, "x!$y", "xy", "xy"},
      {{""}, "x!!$$y", "xy", "xy"},
  });
}

TEST(ExpandHistory, ReplacesAReferenceThatResultsFromAReplacement) {
  expectCases({
      {{"$x"}, "a!!$", "a$xx", "a$xx"},
      {{"x!"}, "a!$$", "axx!", "axx!"},
      {{"$!"}, "a!!$$", "a$$!!", "a$$!!"},
      {{"!"}, "a!$$$$", "a!", "a!"},
      {{"$"}, "a!!!$", "a$", "a$"},
      {{"$$!"}, "a!!!$", "a$$$$$$$$!!!", "a$$$$$$$$!!!"},
  });
}

TEST(ExpandHistory, LeavesALineAsTypedIfReplacingWouldNeverEnd) {
  expectCases({
      {{"x !$"}, "get !$", "get !$", "get !$"},
      {{"a!$b"}, "get !$ !$", "get !$ !$", "get !$ !$"},
      {{"$$!!"}, "get !!$$", "get !!$$", "get !!$$"},
      {{"!$ x"}, "get !$", "get x", "get x"},
  });
}

TEST(ExpandHistory, LeavesALineAsTypedIfItWouldInsertTooMuch) {
  const std::string quarter(maxInsertedBytes / 4, 'x');
  std::string many = "y";
  for (int count = 0; count < 100'000; ++count) {
    many += "!$";
  }
  // Each "!" doubles what is inserted.
  const std::string doubling = 'y' + std::string(60, '!') + '$';
  expectCases({
      {{quarter},
       "y!$!$!$!$",
       'y' + quarter + quarter + quarter + quarter,
       'y' + quarter + quarter + quarter + quarter},
      {{quarter}, "y!$!$!$!$!$", "y!$!$!$!$!$", "y!$!$!$!$!$"},
      {{std::string(1 << 20, 'x')}, many, many, many},
      {{"$$!"}, doubling, doubling, doubling},
  });
}

TEST(ExpandHistory, ReplacesManyReferencesInALongLine) {
  std::string many = "y";
  std::string expected = "y";
  for (int count = 0; count < 500'000; ++count) {
    many += "!$";
    expected += "ab";
  }
  expectCases({{{"get ab"}, many, expected, expected}});
}

TEST(ExpandHistory, FindsTheLastWordOfAMegabyteOfReferences) {
  std::string previous;
  while (previous.size() < (1 << 20)) {
    previous += "!$ ";
  }
  expectCases({
      {{previous}, "get !$!$", "get !$!$", "get !$!$"},
      {{previous + "end"}, "get !$", "get end", "get end"},
  });
}

TEST(ExpandHistory, StoresAnEmptyLineForALoneExclamationMarkAndRunsIt) {
  expectCases({
      {{}, "!", "", "!"},
      {{"ls"}, "!", "", "!"},
  });
}

TEST(ExpandHistory, ResolvesTwoExclamationMarksToTheNewestLine) {
  expectCases({
      {{"ls x y"}, "!!", "ls x y", "ls x y"},
      {{"pwd", "ls"}, "!!", "ls", "ls"},
      {{"pwd", ""}, "!!", "", ""},
      {{"pwd"}, "!!x", "!x", "!!x"},
      {{"pwd"}, "!! ", "! ", "!! "},
      {{"pwd"}, "!!$", "!$", "!!$"},
      {{"pwd"}, "!!!", "!!", "!!!"},
  });
}

TEST(ExpandHistory, CountsBackFromTheNewestLine) {
  const Lines three = {"one", "two", "three"};
  expectCases({
      {three, "!-1", "three", "three"},
      {three, "!-2", "two", "two"},
      {three, "!-3", "one", "one"},
      {three, "!-2nd x", "two", "two"},
      {three, "!-0002", "two", "two"},
      {three, "!-", "-", "!-"},
      {three, "!-x", "-x", "!-x"},
      {three, "!--1", "--1", "!--1"},
      {three, "!- 1", "- 1", "!- 1"},
      {three, "!-+1", "-+1", "!-+1"},
      {{}, "!-", "-", "!-"},
  });
}

TEST(ExpandHistory, ThrowsIfNoLineIsThatFarBack) {
  const std::vector<std::pair<Lines, std::string>> cases = {
      {{"one"}, "!-0"},
      {{"one"}, "!-2"},
      {{"one"}, "!-2 trailing"},
      {{"one"}, "!-9223372036854775807"},
      {{"one"}, "!-9223372036854775808"},
      {{"one"}, "!-18446744073709551615"},
      {{"one"}, "!-99999999999999999999"},
      {{}, "!-0"},
      {{}, "!-1"},
  };
  for (const auto& [history, line] : cases) {
    try {
      const Expansion expansion = expandHistory(line, history);
      ADD_FAILURE() << line << " returned " << testing::PrintToString(expansion);
    } catch (const std::out_of_range& error) {
      EXPECT_STREQ(error.what(), "vector::_M_range_check") << line;
    }
  }
}

TEST(ExpandHistory, CountsFromTheOldestLine) {
  const Lines three = {"one", "two", "three"};
  expectCases({
      {three, "!0", "one", "one"},
      {three, "!2", "three", "three"},
      {three, "!1x y", "two", "two"},
      {three, "!01", "two", "two"},
      {three, "!3", "3", "!3"},
      {three, "!9223372036854775808", "9223372036854775808", "!9223372036854775808"},
      {three, "!99999999999999999999", "99999999999999999999", "!99999999999999999999"},
      {{"ls", "pwd"}, "!5", "5", "!5"},
      {{"ls", "5 is a word"}, "!5", "5", "!5"},
      {{}, "!0", "0", "!0"},
  });
}

TEST(ExpandHistory, FindsTheNewestLineThatBeginsWithTheText) {
  const Lines lines = {"ls x", "ls y", "pwd", " ls z", ""};
  expectCases({
      {lines, "!l", "ls y", "ls y"},
      {lines, "!ls x", "ls x", "ls x"},
      {lines, "!pwd", "pwd", "pwd"},
      {lines, "! ls", " ls z", " ls z"},
      {lines, "!pwd ", "pwd ", "!pwd "},
      {lines, "!zz", "zz", "!zz"},
      {lines, "!s", "s", "!s"},
      {lines, "!L", "L", "!L"},
      {lines, "!$", "$", "!$"},
      {{"$ls"}, "!$", "$ls", "$ls"},
      {{"get caf\xc3\xa9"}, "!get caf\xc3", "get caf\xc3\xa9", "get caf\xc3\xa9"},
      {{}, "!l", "l", "!l"},
  });
}

TEST(ExpandHistory, LeavesTheLineUnchangedIfThereIsNoHistory) {
  expectCases({
      {{}, "!!", "!", "!!"},
      {{}, "get !$", "get !$", "get !$"},
      {{}, "!$", "$", "!$"},
  });
}

}  // namespace
}  // namespace treescope
