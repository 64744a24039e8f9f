#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <sstream>
#include <string>

#include "term/key_input.h"
#include "term/screen_printer.h"
#include "tests/support/captured_output.h"
#include "tests/support/fed_input.h"

namespace treescope {
namespace {

using test_support::CapturedOutput;
using test_support::FedInput;

const std::string more = "\033[7m\033[5m\033[39mMore\033[27m\033[25m\033[2K";

/// What is shown of `count` lines on a terminal of `rows` rows with these keys: the number
/// of lines before each stop, 'M' for each stop, and '.' if the listing ended early.
std::string paged(int rows, int count, const std::string& keys, bool paging = true) {
  FedInput input;
  input.feed(keys);
  input.end();
  CapturedOutput output;
  ScreenPrinter printer(0, false, {.rows = [rows] { return rows; }});
  bool continues = true;
  for (int line = 0; line < count && continues; ++line) {
    continues = printer.printLine({.text = "l"}, paging);
  }
  const std::string text = output.take();
  const std::string lineText = "\033[39m\033[1Gl\n";
  std::ostringstream shown;
  int lines = 0;
  for (std::size_t at = 0; at < text.size();) {
    if (text.compare(at, more.size(), more) == 0) {
      shown << lines << 'M';
      lines = 0;
      at += more.size();
    } else {
      EXPECT_EQ(text.substr(at, lineText.size()), lineText);
      ++lines;
      at += lineText.size();
    }
  }
  shown << lines << (continues ? "" : ".");
  return shown.str();
}

TEST(Pager, StopsTwoLinesBeforeAFullScreenAndEndsAtQ) {
  EXPECT_EQ(paged(24, 50, " q"), "22M22M0.");
  EXPECT_EQ(paged(24, 22, ""), "22");
}

TEST(Pager, ShowsOneLineAtReturn) {
  EXPECT_EQ(paged(24, 50, "\n\nxq"), "22M1M1M22M0.");
}

TEST(Pager, EndsTheListingAtTheEndOfInput) {
  EXPECT_EQ(paged(5, 50, "z"), "3M3M0.");
}

TEST(Pager, StopsAtEveryLineOfATerminalWithoutHeight) {
  for (const int rows : {0, 1, 2}) {
    EXPECT_EQ(paged(rows, 5, " \nxq"), "0M1M1M1M0.") << rows;
  }
}

TEST(Pager, StopsTwoLinesBeforeAFullScreenAtAllHeights) {
  for (int rows = 3; rows <= 500; ++rows) {
    std::ostringstream expected;
    expected << rows - 2 << 'M' << rows - 2 << "M0.";
    EXPECT_EQ(paged(rows, 2 * rows, " q"), expected.str());
  }
}

TEST(Pager, NeverStopsWithoutPagingAndCountsOneScreen) {
  EXPECT_EQ(paged(24, 60, "", false), "60");
  ScreenPrinter printer(0, false, {.rows = [] { return 24; }});
  for (int line = 0; line < 60; ++line) {
    EXPECT_TRUE(printer.countLine(false));
  }
  EXPECT_EQ(printer.linesShown(), 23);
  EXPECT_EQ(printer.pageLines(), 0);
}

TEST(Pager, ReadsTheHeightForEachLine) {
  FedInput input;
  input.feed(" q");
  CapturedOutput output;
  int rows = 6;
  ScreenPrinter printer(0, false, {.rows = [&rows] { return rows; }});
  for (int line = 0; line < 4; ++line) {
    EXPECT_TRUE(printer.countLine(true));
  }
  rows = 10;
  for (int line = 0; line < 4; ++line) {
    EXPECT_TRUE(printer.countLine(true));
  }
  EXPECT_TRUE(printer.countLine(true));
  rows = 4;
  EXPECT_TRUE(printer.countLine(true));
  EXPECT_FALSE(printer.countLine(true));
  EXPECT_EQ(output.take(), more + more);
}

TEST(Pager, ShowsMoreAgainIfARepaintIsRequested) {
  FedInput input;
  const RepaintRequests requests;
  CapturedOutput output;
  ScreenPrinter printer(0, false, {.rows = [] { return 2; }});
  requestRepaint();
  input.feed("q");
  EXPECT_FALSE(printer.countLine(true));
  const std::string shown = more.substr(0, more.size() - 4);
  EXPECT_EQ(output.take(), shown + "\033[1G" + more);
}

TEST(Pager, ReadsOneByteOfTheInput) {
  FedInput input;
  input.feed("qrest");
  CapturedOutput output;
  ScreenPrinter printer(0, false, {.rows = [] { return 2; }});
  EXPECT_FALSE(printer.countLine(true));
  std::array<char, 8> rest{};
  EXPECT_EQ(read(STDIN_FILENO, rest.data(), rest.size()), 4);
  EXPECT_STREQ(rest.data(), "rest");
}

TEST(Pager, CountsNothingAndDoesNotStopInBatchMode) {
  CapturedOutput output;
  ScreenPrinter printer(0, true, {.columns = [] { return 80; }, .rows = [] { return 1; }});
  EXPECT_TRUE(printer.countLine(true));
  EXPECT_EQ(printer.linesShown(), 0);
  EXPECT_EQ(printer.screenColumns(), 0);
  EXPECT_EQ(output.take(), "");
}

}  // namespace
}  // namespace treescope
