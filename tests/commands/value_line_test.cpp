#include "commands/value_line.h"

#include <gmock/gmock.h>

namespace treescope {
namespace {

struct Case {
  std::vector<std::string> names;
  std::string index;
  std::string value;
  std::string line;
};

TEST(ValueLine, PutsTheValueAtTheNextMultipleOfFourColumns) {
  const Case cases[] = {
      {{}, "", "7", "/   [7]"},
      {{"a"}, "", "7", "/a  [7]"},
      {{"ab"}, "", "7", "/ab [7]"},
      {{"abc"}, "", "7", "/abc    [7]"},
      {{"abcd"}, "", "7", "/abcd   [7]"},
      {{"abcdefg"}, "", "7", "/abcdefg    [7]"},
      {{"abcdefgh"}, "", "7", "/abcdefgh   [7]"},
      {{"drive", "speed"}, "", "42", "/drive/speed    [42]"},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(valueLine(test.names, test.index, test.value), test.line);
  }
}

TEST(ValueLine, PutsTheIndexAsWrittenBehindTheLastName) {
  EXPECT_EQ(valueLine({"a", "b", "c"}, "2", "x"), "/a/b/c[2]   [x]");
  EXPECT_EQ(valueLine({"p"}, "no number", ""), "/p[no number]   []");
  EXPECT_EQ(valueLine({}, "2", "x"), "/   [x]");
}

TEST(ValueLine, IsOneLine) {
  EXPECT_EQ(valueLine({"a\nb"}, "", "1\n2\n"), "/a b    [1 2 ]");
  EXPECT_EQ(valueLine({"a"}, "\n", ""), "/a[ ]   []");
}

TEST(ValueLine, LeavesOtherBytesAlone) {
  EXPECT_EQ(valueLine({"\xff\x1b"}, "", "\r\t"), "/\xff\x1b [\r\t]");
}

}  // namespace
}  // namespace treescope
