#include "shell/words.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace treescope {
namespace {

using Words = std::vector<std::string>;

Words wordsOf(const std::string& command) {
  Words words;
  splitWords(command.c_str(), words);
  return words;
}

Words piecesOf(const char* text) {
  Words pieces;
  splitAtSeparator(text, pieces, ';');
  return pieces;
}

struct SplitCase {
  const char* text;
  Words expected;
};

TEST(SplitWords, SeparatesAtSpacesOutsideQuotes) {
  const std::vector<SplitCase> cases = {
      {"", {}},
      {"   ", {}},
      {"  ls   /a  ", {"ls", "/a"}},
      {"str \"\" /a", {"str", "", "/a"}},
      {"str \"a b\" /x", {"str", "a b", "/x"}},
      {"str \"a b /x", {"str", "\"a", "b", "/x"}},
      {"\"ab\"cd", {"ab", "cd"}},
      {"\"ab\" ", {"ab"}},
      {"\"  ", {"\""}},
      {"\" \"", {" "}},
      {"a\"b c\"", {"a\"b", "c\""}},
      {"\"abc", {"\"abc"}},
      {"\"a\"\"b\"\"", {"a", "b", "\""}},
      {"a\tb \t", {"a\tb", "\t"}},
      {"\xff\x01 \x7f", {"\xff\x01", "\x7f"}},
  };
  for (const SplitCase& split : cases) {
    EXPECT_EQ(wordsOf(split.text), split.expected) << split.text;
  }
}

TEST(SplitWords, AcceptsLinesOfAnyLength) {
  std::string line;
  for (int word = 0; word < 100'000; ++word) {
    line += "\"w\" ";
  }
  EXPECT_EQ(wordsOf(line).size(), 100'000U);
}

TEST(SplitAtSeparator, OmitsEmptyPiecesExceptTheLast) {
  const std::vector<SplitCase> cases = {
      {"", {""}},
      {";", {""}},
      {"a", {"a"}},
      {"a;", {"a", ""}},
      {"a;;b", {"a", "b"}},
      {";;a", {"a"}},
      {"\"x;y\"", {"\"x", "y\""}},
      {" ; ", {" ", " "}},
  };
  for (const SplitCase& split : cases) {
    EXPECT_EQ(piecesOf(split.text), split.expected) << split.text;
  }
}

TEST(SplitAtSeparator, AcceptsAnyNumberOfPieces) {
  EXPECT_EQ(piecesOf(std::string(1'000'000, ';').c_str()), Words{""});
}

TEST(Trim, RemovesSpacesOnly) {
  std::string text = "  \t a \t  ";
  trimLeft(text);
  EXPECT_EQ(text, "\t a \t  ");
  trimRight(text);
  EXPECT_EQ(text, "\t a \t");
  for (std::string spaces : {"", "   "}) {
    std::string right = spaces;
    trimLeft(spaces);
    trimRight(right);
    EXPECT_EQ(spaces, "");
    EXPECT_EQ(right, "");
  }
}

}  // namespace
}  // namespace treescope
