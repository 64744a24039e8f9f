#include "commands/value_text.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

struct LineCase {
  std::vector<std::string> names;
  std::string index;
  std::string value;
  std::string line;
};

TEST(ValueLine, AlignsTheValueToFourColumns) {
  const LineCase cases[] = {
      {{}, "", "7", "/   [7]"},
      {{"a"}, "", "7", "/a  [7]"},
      {{"ab"}, "", "7", "/ab [7]"},
      {{"abc"}, "", "7", "/abc    [7]"},
      {{"abcd"}, "", "7", "/abcd   [7]"},
      {{"abcdefg"}, "", "7", "/abcdefg    [7]"},
      {{"abcdefgh"}, "", "7", "/abcdefgh   [7]"},
      {{"drive", "speed"}, "", "42", "/drive/speed    [42]"},
  };
  for (const LineCase& test : cases) {
    EXPECT_EQ(valueLine(test.names, test.index, test.value), test.line);
  }
}

TEST(ValueLine, AppendsTheIndexToTheLastName) {
  EXPECT_EQ(valueLine({"a", "b", "c"}, "2", "x"), "/a/b/c[2]   [x]");
  EXPECT_EQ(valueLine({"p"}, "no number", ""), "/p[no number]   []");
  EXPECT_EQ(valueLine({}, "2", "x"), "/   [x]");
}

TEST(ValueLine, IsOneLine) {
  EXPECT_EQ(valueLine({"a\nb"}, "", "1\n2\n"), "/a b    [1 2 ]");
  EXPECT_EQ(valueLine({"a"}, "\n", ""), "/a[ ]   []");
}

TEST(ValueLine, EndsTheValueAtAZeroByte) {
  EXPECT_EQ(valueLine({"a"}, "", std::string("x\0y", 3)), "/a  [x]");
  EXPECT_EQ(valueLine({"a"}, "", std::string("\0", 1)), "/a  []");
}

TEST(ValueLine, KeepsOtherBytes) {
  EXPECT_EQ(valueLine({"\xff\x1b"}, "", "\r\t"), "/\xff\x1b [\r\t]");
}

TEST(SavedCommand, QuotesValuesThatHoldASpaceOrAreEmpty) {
  struct Case {
    std::string value;
    std::string command;
  };
  const Case cases[] = {
      {"42", "set 42 "},
      {"", "str \"\" "},
      {" ", "str \" \" "},
      {"two words", "str \"two words\" "},
      {" x", "str \" x\" "},
      {"x ", "str \"x \" "},
      {"-5", "set -5 "},
      {"a\tb", "str \"a b\" "},
      {"a\nb", "str \"a b\" "},
      {"a\n b", "str \"a  b\" "},
      {"a\"b", "set a\"b "},
      {"say \"hi\"", "str \"say \"hi\"\" "},
      {"a;b", "str \"a b\" "},
      {";", "str \" \" "},
      {"\xff\x1b[m", "str \"\xff [m\" "},
      {"a\x7f\x80\xc3\xbc", "str \"a \x80\xc3\xbc\" "},
      {std::string("a\0b", 3), "str \"a b\" "},
  };
  for (const Case& test : cases) {
    std::string line = "before ";
    appendSavedCommand(line, test.value);
    EXPECT_EQ(line, "before " + test.command);
  }
}

std::string savedElementPath(const std::vector<std::string>& names, std::uint16_t element) {
  std::string line;
  appendSavedElementPath(line, names, element);
  return line;
}

TEST(SavedElementPath, AppendsTheIndexToTheLastName) {
  EXPECT_EQ(savedElementPath({"drive", "gains"}, 0), "/drive/gains[0]");
  EXPECT_EQ(savedElementPath({"drive"}, 65533), "/drive[65533]");
  EXPECT_EQ(savedElementPath({}, 3), "");
}

TEST(SavedPath, WritesASpaceForWhatEndsACommand) {
  std::string line = ";";
  appendSavedPath(line, {"a;b", "c\n$d\x7f"});
  EXPECT_EQ(line, ";/a b/c $d ");
  EXPECT_EQ(savedElementPath({"a;b"}, 1), "/a b[1]");
}

}  // namespace
}  // namespace treescope
