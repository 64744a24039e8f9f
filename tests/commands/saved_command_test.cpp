#include "commands/saved_command.h"

#include <gtest/gtest.h>

namespace treescope {
namespace {

TEST(SavedCommand, QuotesWhatHoldsABlankOrIsEmpty) {
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
      {"a\tb", "set a\tb "},
      {"a\nb", "set a\nb "},
      {"a\n b", "str \"a\n b\" "},
      {"a\"b", "set a\"b "},
      {"say \"hi\"", "str \"say \"hi\"\" "},
      {"a;b", "set a;b "},
      {"\xff\x1b[m", "set \xff\x1b[m "},
      {std::string("a\0b", 3), std::string("set a\0b ", 8)},
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

TEST(SavedElementPath, PutsTheIndexBehindTheLastName) {
  EXPECT_EQ(savedElementPath({"drive", "gains"}, 0), "/drive/gains[0]");
  EXPECT_EQ(savedElementPath({"drive"}, 65533), "/drive[65533]");
  EXPECT_EQ(savedElementPath({}, 3), "");
}

}  // namespace
}  // namespace treescope
