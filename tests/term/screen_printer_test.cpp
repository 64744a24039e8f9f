#include "term/screen_printer.h"

#include <gtest/gtest.h>

#include "term/escape_sequences.h"
#include "tests/support/captured_output.h"

namespace treescope {
namespace {

using test_support::CapturedOutput;

TEST(EscapeSequences, SwitchAttributesOnInTheirOrderThenTheColour) {
  EXPECT_EQ(styleOn({20, 0}), "\033[7m\033[5m\033[39m");
  EXPECT_EQ(styleOn({30, 2}), "\033[7m\033[1m\033[5m\033[4m\033[31m");
  EXPECT_EQ(styleOn({0, 1}), "\033[37m");
  EXPECT_EQ(styleOn({0, 3}), "\033[32m");
  EXPECT_EQ(styleOn({0, 4}), "\033[34m");
  EXPECT_EQ(styleOn({0, 7}), "");
  EXPECT_EQ(styleOn({1, 5}), "");
}

TEST(EscapeSequences, SwitchOffAttributesAndTheColourUnlessDefault) {
  EXPECT_EQ(styleOff({20, 0}), "\033[27m\033[25m");
  EXPECT_EQ(styleOff({30, 4}), "\033[27m\033[22m\033[25m\033[24m\033[39m");
  EXPECT_EQ(styleOff({0, 7}), "\033[39m");
  EXPECT_EQ(styleOff({0, 0}), "");
}

TEST(EscapeSequences, MoveTheCursorToAColumn) {
  EXPECT_EQ(cursorToColumn(0), "\033[0G");
  EXPECT_EQ(cursorToColumn(81), "\033[81G");
}

TEST(ScreenPrinter, WritesAStyledLineInteractively) {
  CapturedOutput output;
  ScreenPrinter printer(0, false);
  EXPECT_TRUE(printer.printLine({attributeBold, colourGreen, "gain"}, false));
  EXPECT_EQ(output.take(), "\033[1m\033[32m\033[1Ggain\n\033[22m\033[39m");
}

TEST(ScreenPrinter, EndsAStyledItemWithoutALineFeed) {
  CapturedOutput output;
  ScreenPrinter printer(0, false);
  printer.printStyled({.text = "a"});
  printer.printStyledAt(7, 3, {0, colourBlue, "b"});
  printer.printAt(9, 0, nullptr);
  EXPECT_EQ(output.take(), "\033[39m\033[1Ga\033[34m\033[7Gb\033[39m\033[9G");
}

TEST(ScreenPrinter, WritesOnlyTextsInBatchMode) {
  CapturedOutput output;
  ScreenPrinter printer(0, true);
  printer.setAttributes(30, colourRed);
  printer.printAt(5, 1, "at");
  printer.printAt(5, 1, nullptr);
  printer.printStyled({.text = "styled"});
  EXPECT_TRUE(printer.printLine({.text = "line"}, true));
  EXPECT_TRUE(printer.printLineReset({.text = "\001\xff%s"}, true, true));
  EXPECT_EQ(output.take(), "at\nstyled\nline\n\001\xff%s\n");
}

TEST(ScreenPrinter, SwitchesAttributesOnAndOffInteractively) {
  CapturedOutput output;
  ScreenPrinter printer(0, false);
  printer.setAttributes(0, 7);
  printer.setAttributes(20, 0);
  printer.resetAttributes(20, 0);
  printer.resetAttributes(0, 7);
  EXPECT_EQ(output.take(), "\033[7m\033[5m\033[39m\033[27m\033[25m\033[39m");
}

TEST(ScreenPrinter, ResetsAttributesInBatchModeToo) {
  CapturedOutput output;
  ScreenPrinter printer(0, true);
  printer.resetAttributes(20, 7);
  EXPECT_EQ(output.take(), "\033[27m\033[25m\033[39m");
}

TEST(ScreenPrinter, WritesALongLineCompletely) {
  const std::string text(100'000, 'x');
  CapturedOutput output;
  ScreenPrinter printer(0, true);
  EXPECT_TRUE(printer.printLine({.text = text.c_str()}, false));
  EXPECT_EQ(output.take(), text + '\n');
}

TEST(TerminalSize, IsZeroWithoutATerminal) {
  CapturedOutput output;
  EXPECT_EQ(terminalColumns(), 0);
  EXPECT_EQ(terminalRows(), 0);
}

}  // namespace
}  // namespace treescope
