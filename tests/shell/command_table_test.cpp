#include "shell/command_table.h"

#include <gtest/gtest.h>

#include <set>

#include "shell/results.h"

namespace treescope {
namespace {

using Words = std::vector<std::string>;

constexpr unsigned allOptions = optionRecursive | optionMore | optionLong | optionCount;

TEST(CommandTable, HasUniqueNamesAndALastRowWithoutOne) {
  std::set<std::string> names;
  for (const CommandRow& row : commandTable) {
    EXPECT_TRUE(names.insert(row.name).second) << row.name;
    EXPECT_NE(row.handler, nullptr) << row.name;
  }
  EXPECT_STREQ(commandTable.back().name, "");
}

TEST(CommandTable, AcceptsOnlyOptionsThatHaveALetter) {
  for (const CommandRow& row : commandTable) {
    EXPECT_EQ(row.optionMask & ~allOptions, 0U) << row.name;
  }
}

TEST(OptionBit, BelongsToFourLetters) {
  EXPECT_EQ(optionBit('r'), 1U);
  EXPECT_EQ(optionBit('m'), 2U);
  EXPECT_EQ(optionBit('l'), 4U);
  EXPECT_EQ(optionBit('c'), 8U);
  for (const char letter : {'a', 'R', '-', '\0', '\xff'}) {
    EXPECT_EQ(optionBit(letter), 0U) << static_cast<int>(letter);
  }
}

TEST(CommandCode, IsTheIndexOfTheRowWithThatName) {
  for (std::size_t index = 0; index < commandTable.size(); ++index) {
    const std::string text = std::string(commandTable[index].name) + ' ';
    EXPECT_EQ(commandCode(text.c_str()), static_cast<int>(index)) << text;
  }
  EXPECT_EQ(commandCode("exit "), 0);
  EXPECT_EQ(commandCode("ls "), 3);
  EXPECT_EQ(commandCode(" "), static_cast<int>(commandTable.size()) - 1);
  EXPECT_EQ(noCommand, static_cast<int>(commandTable.size()));
}

TEST(CommandCode, RequiresTheNameAndOneSpace) {
  for (const char* text : {"ls", "", "ls  ", " ls ", "LS ", "l ", "  ", "nothing "}) {
    EXPECT_EQ(commandCode(text), noCommand) << text;
  }
}

TEST(CheckArguments, RemovesOptionWordsAtAnyPosition) {
  Words args = {"-r", "a", "-", "-lmx", "b", "", "-c"};
  unsigned options = 99;
  EXPECT_EQ(checkArguments(args, options, 3, allOptions), result::success);
  EXPECT_EQ(args, (Words{"a", "b", ""}));
  EXPECT_EQ(options, 15U);
}

TEST(CheckArguments, RejectsWordsBeyondTheLimit) {
  Words args = {"a", "b"};
  unsigned options = 99;
  EXPECT_EQ(checkArguments(args, options, 1, allOptions), result::optionError);
  EXPECT_EQ(options, 0U);
}

TEST(CheckArguments, RejectsOnlyBitsOutsideTheMask) {
  for (const auto& [word, code] : std::vector<std::pair<std::string, int>>{
           {"-r", result::optionError}, {"-l", 1}, {"-xyz", 1}, {"-lc", result::optionError}}) {
    Words args = {word};
    unsigned options = 0;
    EXPECT_EQ(checkArguments(args, options, 0, optionLong), code) << word;
  }
}

TEST(ResultMessage, IsFixedForEachCode) {
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
