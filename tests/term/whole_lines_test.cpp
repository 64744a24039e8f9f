#include <gtest/gtest.h>

#include <atomic>
#include <map>
#include <sstream>
#include <string>
#include <thread>

#include "term/column_listing.h"
#include "term/line_listing.h"
#include "term/screen_printer.h"
#include "tests/support/captured_output.h"

// Lines of two threads that print at the same time are not divided.

namespace treescope {
namespace {

using test_support::CapturedOutput;

/// Runs both at the same time, `times` times each, and counts the different lines that
/// were printed.
template <typename First, typename Second>
std::map<std::string, int> linesOfBoth(int times, First first, Second second) {
  CapturedOutput output;
  std::atomic<int> ready{0};
  const auto repeat = [&](auto& print) {
    ++ready;
    while (ready < 2) {
    }
    for (int time = 0; time < times; ++time) {
      print();
    }
  };
  std::thread other([&] { repeat(second); });
  repeat(first);
  other.join();
  std::map<std::string, int> counts;
  std::istringstream text(output.take());
  for (std::string line; std::getline(text, line);) {
    ++counts[line];
  }
  return counts;
}

constexpr int times = 3000;

TEST(WholeLines, AreWrittenByPrintLineOnTwoThreads) {
  ScreenPrinter printer(0, false);
  const auto counts = linesOfBoth(
      times, [&] { printer.printLine({.text = "from the key-reader thread"}, false); },
      [&] { printer.printLine({.text = "an update of the main thread"}, false); });
  EXPECT_EQ(counts,
            (std::map<std::string, int>{{"\033[39m\033[1Gfrom the key-reader thread", times},
                                        {"\033[39m\033[1Gan update of the main thread", times}}));
}

TEST(WholeLines, AreRowsOfColumnsNextToTreeLines) {
  ScreenPrinter printer(0, false, {.columns = [] { return 15; }, .rows = [] { return 24; }});
  const std::vector<std::string> names = {"a", "bb", "ccc", "d"};
  ListingNode tree;
  tree.addChild().name = "part";
  tree.children[0].value = "42";
  const auto counts = linesOfBoth(
      times, [&] { printColumns(printer, names, true, false); },
      [&] { printLongTree(printer, tree, false, false); });
  EXPECT_EQ(counts, (std::map<std::string, int>{
                        {"\033[39m\033[1Ga    \033[39m\033[6Gbb   \033[39m\033[11Gccc  ", times},
                        {"\033[39m\033[1Gd    ", times},
                        {"\033[39m\033[1G+-- part  [42]", times}}));
}

TEST(WholeLines, AreMessagesInBatchModeToo) {
  ScreenPrinter printer(0, true);
  const auto counts = linesOfBoth(
      times, [&] { printer.printStyled({.text = "ERROR: NotFound"}); },
      [&] { printer.printLine({.text = "/drive/speed"}, false); });
  EXPECT_EQ(counts,
            (std::map<std::string, int>{{"ERROR: NotFound", times}, {"/drive/speed", times}}));
}

}  // namespace
}  // namespace treescope
