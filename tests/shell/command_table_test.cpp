#include "shell/command_table.h"

#include <gtest/gtest.h>

#include <string_view>

#include "shell/results.h"

namespace treescope {
namespace {

using Words = std::vector<std::string>;

TEST(CommandTable, HasItsRowsInOrder) {
  const std::vector<CommandRow> expected = {
      {"exit", 0, 0},  {"tab", 2, 0},       {"pwd", 0, 0},     {"ls", 1, 15},     {"cd", 1, 0},
      {"set", 2, 12},  {"setport", 3, 0},   {"str", 2, 0},     {"get", 1, 0},     {"eu", 1, 7},
      {"du", 1, 1},    {"from", 2, 0},      {"to", 2, 0},      {"cat", 1, 4},     {"con", 2, 0},
      {"dis", 2, 0},   {"load", 1, 0},      {"save", 1, 0},    {"rn", 2, 0},      {"rm", 1, 0},
      {"mkdir", 1, 0}, {"cmdfrom", 1, 0},   {"convert", 2, 0}, {"quit", 0, 0},    {"q", 0, 0},
      {"end", 0, 0},   {"terminate", 0, 0}, {"bt", 0, 15},     {"history", 1, 0}, {"help", 0, 0},
      {"", 2, 0}};
  ASSERT_EQ(expected.size(), commandTable.size());
  for (std::size_t code = 0; code < expected.size(); ++code) {
    const CommandRow& row = commandTable[code];
    EXPECT_STREQ(row.name, expected[code].name);
    EXPECT_EQ(row.maxArgs, expected[code].maxArgs) << row.name;
    EXPECT_EQ(row.optionMask, expected[code].optionMask) << row.name;
    EXPECT_EQ(commandCode((std::string(row.name) + " ").c_str()), static_cast<int>(code));
  }
}

TEST(CommandCode, WantsTheNameAndOneBlank) {
  for (const char* text : {"ls", "", "ls  ", " ls ", "LS ", "l ", "  ", "nothing "}) {
    EXPECT_EQ(commandCode(text), noCommand) << text;
  }
  EXPECT_EQ(commandCode("ls "), 3);
  EXPECT_EQ(commandCode(" "), 30);
}

TEST(CheckArguments, TakesOptionWordsOutWhereverTheyStand) {
  Words args = {"-r", "a", "-", "-lmx", "b", "", "-c"};
  unsigned options = 99;
  EXPECT_EQ(checkArguments(args, options, 3, 15), result::success);
  EXPECT_EQ(args, (Words{"a", "b", ""}));
  EXPECT_EQ(options, 15U);
}

TEST(CheckArguments, RefusesWordsBeyondTheLimit) {
  Words args = {"a", "b"};
  unsigned options = 99;
  EXPECT_EQ(checkArguments(args, options, 1, 15), result::optionError);
  EXPECT_EQ(options, 0U);
}

TEST(CheckArguments, RefusesBitsOutsideTheMaskOnly) {
  for (const auto& [word, code] : std::vector<std::pair<std::string, int>>{
           {"-r", result::optionError}, {"-l", 1}, {"-xyz", 1}, {"-lc", result::optionError}}) {
    Words args = {word};
    unsigned options = 0;
    EXPECT_EQ(checkArguments(args, options, 0, optionLong), code) << word;
  }
}

TEST(ResultMessage, HasItsTexts) {
  for (const int code : {1, 3, 11}) {
    EXPECT_EQ(resultMessage(code), nullptr) << code;
  }
  for (const auto& [code, text] :
       std::vector<std::pair<int, const char*>>{{2, "ERROR: UnknownError"},
                                                {4, "ERROR: NotFound"},
                                                {5, "ERROR: OptionError"},
                                                {6, "ERROR: OpenFileError"},
                                                {7, "ERROR: ConnectError"},
                                                {8, "ERROR: OutOfMemory"},
                                                {9, "ERROR: FileExists"},
                                                {10, "ERROR: Bad Argument"},
                                                {0, "ERROR: unknownError"},
                                                {12, "ERROR: unknownError"},
                                                {-1, "ERROR: unknownError"}}) {
    EXPECT_STREQ(resultMessage(code), text) << code;
  }
}

}  // namespace
}  // namespace treescope
