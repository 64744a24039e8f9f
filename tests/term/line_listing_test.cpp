#include "term/line_listing.h"

#include <gtest/gtest.h>

#include <array>
#include <string>
#include <utility>
#include <vector>

#include "term/column_listing.h"
#include "tests/term/listing_fixture.h"

// Every layout, byte for byte, on terminals and in batch mode.

namespace treescope {
namespace {

using test::add;
using test::shown;

constexpr std::array terminalWidths{0, 1, 12, 80, 500};

/// One printed line: the text, and the sequences around it.
struct Line {
  std::string text;
  std::string on = "\033[39m";
  std::string off = {};
};

const std::string blueOn = "\033[34m";
const std::string greenOn = "\033[32m";
const std::string boldOn = "\033[1m\033[39m";
const std::string boldGreenOn = "\033[1m\033[32m";
const std::string colourOff = "\033[39m";
const std::string boldOff = "\033[22m";
const std::string boldGreenOff = "\033[22m\033[39m";

std::string onTerminal(const std::vector<Line>& lines) {
  std::string bytes;
  for (const Line& line : lines) {
    bytes += line.on + "\033[1G" + line.text + '\n' + line.off;
  }
  return bytes;
}

std::string inBatch(const std::vector<Line>& lines) {
  std::string bytes;
  for (const Line& line : lines) {
    bytes += line.text + '\n' + line.off;
  }
  return bytes;
}

/// Expects the same lines at every width of the terminal.
template <typename Listing>
void expectLines(const std::vector<Line>& lines, Listing listing) {
  for (const int columns : terminalWidths) {
    EXPECT_EQ(shown(columns, false, listing), onTerminal(lines)) << columns;
    EXPECT_EQ(shown(columns, true, listing), inBatch(lines)) << columns;
  }
}

/// Names and values that are present, missing, empty and of several lines; every mark; a
/// node without a name, and a node in a node.
ListingNode oddTree() {
  ListingNode root;
  add(root, "gain", "3", 8, 3);
  add(root, std::nullopt);
  add(root, "two\nlines", "a\n\nb\n");
  add(root, "", "", 8);
  ListingNode& sub = add(root, "sub", "/", 0, 4);
  add(sub, "x", std::nullopt, 0, 3);
  add(sub, std::nullopt, "\n");
  add(add(sub, "deep", {}, 0, 4), "y", "1");
  add(add(root, std::nullopt), std::nullopt);
  return root;
}

TEST(PrintLongList, DrawsTheseBytesAtEveryWidthAndInBatchMode) {
  const ListingNode root = oddTree();
  expectLines({{"gain       [3]", boldGreenOn, boldGreenOff},
               {"notfound   [nodata]"},
               {"two\nlines  [a  b ]"},
               {"           []", boldOn, boldOff},
               {"sub/       ", blueOn, colourOff},
               {"notfound/  "}},
              [&](ScreenPrinter& printer) { return printLongList(printer, root, true, false); });
}

TEST(PrintLongList, DrawsAPartAtEveryWidthAndInBatchMode) {
  ListingNode part;
  const auto list = [&](ScreenPrinter& printer) {
    return printLongList(printer, part, true, false);
  };
  expectLines({{"notfound    [nodata]"}}, list);
  part.name = "a\nb";
  part.value = "c\nd";
  part.kindMark = 3;
  expectLines({{"a\nb    [c d]", greenOn, colourOff}}, list);
  part.name = "";
  part.value = "";
  part.subscribedMark = 8;
  expectLines({{"    []", boldGreenOn, boldGreenOff}}, list);
}

TEST(PrintTreeList, DrawsTheseBytesAtEveryWidthAndInBatchMode) {
  const ListingNode root = oddTree();
  expectLines({{"+-- gain", boldGreenOn, boldGreenOff},
               {"+-- notfound"},
               {"+-- two\nlines"},
               {"+-- ", boldOn, boldOff},
               {"+-- sub/", blueOn, colourOff},
               {"    +-- x         ", greenOn, colourOff},
               {"    +-- notfound  "},
               {"    +-- deep/", blueOn, colourOff},
               {"        +-- y  "},
               {"+-- notfound/"},
               {"    +-- notfound  "}},
              [&](ScreenPrinter& printer) { return printTreeList(printer, root, true, false); });
}

TEST(PrintLongTree, DrawsTheseBytesAtEveryWidthAndInBatchMode) {
  const ListingNode root = oddTree();
  expectLines({{"+-- gain       [3]", boldGreenOn, boldGreenOff},
               {"+-- notfound   [nodata]"},
               {"+-- two\nlines  [a  b ]"},
               {"+--            []", boldOn, boldOff},
               {"+-- sub/", blueOn, colourOff},
               {"    +-- x         [nodata]", greenOn, colourOff},
               {"    +-- notfound  [ ]"},
               {"    +-- deep/", blueOn, colourOff},
               {"        +-- y  [1]"},
               {"+-- notfound/"},
               {"    +-- notfound  [nodata]"}},
              [&](ScreenPrinter& printer) { return printLongTree(printer, root, true, false); });
}

TEST(PrintLongTree, DrawsAPartNextToANode) {
  ListingNode root;
  add(root, "gain", "3");
  add(add(root, "sub"), "x");
  expectLines({{"+-- gain  [3]"}, {"+-- sub/"}, {"    +-- x  [nodata]"}},
              [&](ScreenPrinter& printer) { return printLongTree(printer, root, true, false); });
}

TEST(PrintTreeLevel, DrawsTheseBytesAtEveryWidthAndInBatchMode) {
  const ListingNode root = oddTree();
  const ListingNode& sub = root.children[4];
  const auto level = [&](std::size_t depth, bool withValues) {
    return [&sub, depth, withValues](ScreenPrinter& printer) {
      return printTreeLevel(printer, depth, sub, withValues, false);
    };
  };
  expectLines({{"+-- sub/", blueOn, colourOff},
               {"    +-- x         ", greenOn, colourOff},
               {"    +-- notfound  "},
               {"    +-- deep/", blueOn, colourOff},
               {"        +-- y  "}},
              level(0, false));
  expectLines({{"        +-- sub/", blueOn, colourOff},
               {"            +-- x         [nodata]", greenOn, colourOff},
               {"            +-- notfound  [ ]"},
               {"            +-- deep/", blueOn, colourOff},
               {"                +-- y  [1]"}},
              level(2, true));
  // An entry without children is drawn as its own line only.
  expectLines({{"    +-- gain/", boldGreenOn, boldGreenOff}}, [&](ScreenPrinter& printer) {
    return printTreeLevel(printer, 1, root.children[0], true, false);
  });
}

TEST(PrintTree, PrintsNothingForANodeWithoutChildren) {
  ListingNode part;
  part.name = "part";
  part.value = "1";
  for (auto* listing : {printTreeList, printLongTree, printNodeColumns}) {
    expectLines({}, [&](ScreenPrinter& printer) { return listing(printer, part, true, false); });
  }
}

TEST(PrintNodeColumns, DrawsTheseBytesAtEveryWidthAndInBatchMode) {
  const ListingNode root = oddTree();
  const auto list = [&](ScreenPrinter& printer) {
    return printNodeColumns(printer, root, true, false);
  };
  const std::vector<Line> items{{"gain       ", boldGreenOn, boldGreenOff},
                                {"notfound   "},
                                {"two\nlines  "},
                                {"           ", boldOn, boldOff},
                                {"sub/       ", blueOn, colourOff},
                                {"notfound/  "}};
  const auto inRowsOf = [&](std::size_t columns) {
    std::string bytes;
    for (std::size_t at = 0; at < items.size(); ++at) {
      const Line& item = items[at];
      bytes += item.on + "\033[" + std::to_string(1 + at % columns * 11) + 'G' + item.text +
               item.off + ((at + 1) % columns == 0 ? "\n" : "");
    }
    return bytes + (items.size() % columns == 0 ? "" : "\n");
  };
  struct Case {
    int terminal;
    std::size_t columns;
  };
  for (const Case& test :
       {Case{0, 1}, Case{1, 1}, Case{21, 1}, Case{22, 2}, Case{32, 2}, Case{33, 3}, Case{44, 4},
        Case{65, 5}, Case{66, 6}, Case{76, 6}, Case{80, 7}, Case{500, 45}}) {
    EXPECT_EQ(shown(test.terminal, false, list), inRowsOf(test.columns)) << test.terminal;
    EXPECT_EQ(shown(test.terminal, true, list), inBatch(items)) << test.terminal;
  }
}

TEST(PrintColumns, DrawsTheseBytesAtEveryWidthAndInBatchMode) {
  const auto list = [](ScreenPrinter& printer) {
    return printColumns(printer, {"a", "", "b\nc", "ddd"}, true, false);
  };
  const std::string a = "\033[39m\033[1Ga    ";
  const std::string batch = "a    \n\n     \n\nb\nc  \n\nddd  \n\n";
  struct Case {
    int terminal;
    std::string bytes;
  };
  const std::string rowOfOne = a +
                               "\n\033[39m\033[1G     \n\033[39m\033[1Gb\nc  \n"
                               "\033[39m\033[1Gddd  \n";
  const std::string rowOfFour =
      a + "\033[39m\033[6G     \033[39m\033[11Gb\nc  \033[39m\033[16Gddd  \n";
  for (const Case& test :
       {Case{0, rowOfOne}, Case{1, rowOfOne}, Case{9, rowOfOne},
        Case{10, a + "\033[39m\033[6G     \n\033[39m\033[1Gb\nc  \033[39m\033[6Gddd  \n"},
        Case{15, a + "\033[39m\033[6G     \033[39m\033[11Gb\nc  \n\033[39m\033[1Gddd  \n"},
        Case{20, rowOfFour}, Case{80, rowOfFour}, Case{500, rowOfFour}}) {
    EXPECT_EQ(shown(test.terminal, false, list), test.bytes) << test.terminal;
    EXPECT_EQ(shown(test.terminal, true, list), batch) << test.terminal;
  }
  for (const int terminal : terminalWidths) {
    const auto nothing = [](ScreenPrinter& printer) {
      return printColumns(printer, {}, true, false);
    };
    EXPECT_EQ(shown(terminal, false, nothing), "");
    EXPECT_EQ(shown(terminal, true, nothing), "");
  }
}

}  // namespace
}  // namespace treescope
