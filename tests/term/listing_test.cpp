#include <gtest/gtest.h>

#include <string>
#include <utility>
#include <vector>

#include "term/column_listing.h"
#include "term/line_listing.h"
#include "term/listing_text.h"
#include "tests/support/captured_output.h"
#include "tests/support/fed_input.h"
#include "tests/support/process.h"
#include "tests/term/listing_fixture.h"

namespace treescope {
namespace {

using test::add;
using test::shown;
using test_support::CapturedOutput;

/// gain (subscribed, "3"), sub/ with x (no value), one without a name.
ListingNode sampleTree() {
  ListingNode root;
  add(root, "gain", "3", 8, 3);
  add(add(root, "sub", {}, 0, 4), "x");
  add(root, std::nullopt, "a\nb");
  return root;
}

auto with(bool (*listing)(ScreenPrinter&, const ListingNode&, bool, bool),
          const ListingNode& node) {
  return [listing, &node](ScreenPrinter& printer) { return listing(printer, node, true, false); };
}

const std::string bold = "\033[1m\033[32m\033[1G";
const std::string boldEnd = "\033[22m\033[39m";
const std::string blue = "\033[34m\033[1G";
const std::string blueEnd = "\033[39m";
const std::string plain = "\033[39m\033[1G";

TEST(ListingText, ReplacesMissingNamesAndValues) {
  EXPECT_EQ(nameText(std::nullopt), "notfound");
  EXPECT_EQ(nameText(""), "");
  EXPECT_EQ(valueText(std::nullopt), "[nodata]");
  EXPECT_EQ(valueText("x\ny"), "[x y]");
  EXPECT_EQ(valueText("\n\n"), "[  ]");
  EXPECT_EQ(valueText(std::string("a\0b", 3)), "[a]");
  EXPECT_EQ(blanks(-1) + blanks(0) + blanks(3), "   ");
}

TEST(ColumnLayout, FitsAsManyColumnsAsTheDefinitionSays) {
  for (std::size_t length = 0; length <= 40; ++length) {
    const std::vector<std::string> names = {std::string(length, 'n'), ""};
    for (int terminal = 0; terminal <= 500; ++terminal) {
      const ScreenPrinter printer(0, false, {.columns = [terminal] { return terminal; }});
      const std::size_t width = length + 2;
      std::size_t columns = 1;
      for (std::size_t n = 2; n * width <= static_cast<std::size_t>(terminal); ++n) {
        columns = n;
      }
      ASSERT_EQ(columnLayout(printer, names), (ColumnLayout{width, columns})) << terminal;
    }
  }
}

TEST(ColumnLayout, CountsTheSlashOfANode) {
  ListingNode root;
  EXPECT_EQ(nodeColumnWidth(root), 2U);
  add(root, "abc");
  EXPECT_EQ(nodeColumnWidth(root), 5U);
  add(root, "xyz").addChild();
  EXPECT_EQ(nodeColumnWidth(root), 6U);
  add(root, std::nullopt);
  EXPECT_EQ(nodeColumnWidth(root), 10U);
}

TEST(PrintColumns, PlacesNamesSideBySide) {
  const auto list = [](ScreenPrinter& printer) {
    return printColumns(printer, {"a", "bb", "ccc"}, true, false);
  };
  EXPECT_EQ(shown(80, false, list), plain + "a    \033[39m\033[6Gbb   \033[39m\033[11Gccc  \n");
  EXPECT_EQ(shown(10, false, list), plain + "a    \033[39m\033[6Gbb   \n" + plain + "ccc  \n");
  EXPECT_EQ(shown(3, false, list), plain + "a    \n" + plain + "bb   \n" + plain + "ccc  \n");
  EXPECT_EQ(shown(80, true, list), "a    \n\nbb   \n\nccc  \n\n");
}

TEST(PrintNodeColumns, StylesEntriesByTheirMarks) {
  const ListingNode root = sampleTree();
  EXPECT_EQ(shown(20, false, with(printNodeColumns, root)),
            bold + "gain      " + boldEnd + "\033[34m\033[11Gsub/      " + blueEnd + "\n" + plain +
                "notfound  \n");
  EXPECT_EQ(shown(20, true, with(printNodeColumns, root)),
            "gain      \n" + boldEnd + "sub/      \n" + blueEnd + "notfound  \n");
  EXPECT_EQ(shown(80, false, with(printNodeColumns, ListingNode())), "");
}

TEST(PrintLongList, ShowsValuesOfTheFirstLevel) {
  const ListingNode root = sampleTree();
  EXPECT_EQ(shown(80, false, with(printLongList, root)), bold + "gain      [3]\n" + boldEnd + blue +
                                                             "sub/      \n" + blueEnd + plain +
                                                             "notfound  [a b]\n");
  EXPECT_EQ(shown(80, true, with(printLongList, root)),
            "gain      [3]\n" + boldEnd + "sub/      \n" + blueEnd + "notfound  [a b]\n");
}

TEST(PrintLongList, ShowsAPartItself) {
  ListingNode part;
  EXPECT_EQ(shown(80, true, with(printLongList, part)), "notfound    [nodata]\n");
  part.name = "gain";
  part.value = "3";
  part.subscribedMark = 8;
  part.kindMark = 3;
  EXPECT_EQ(shown(80, false, with(printLongList, part)), bold + "gain    [3]\n" + boldEnd);
}

TEST(PrintTree, DrawsBranches) {
  const ListingNode root = sampleTree();
  EXPECT_EQ(shown(80, false, with(printLongTree, root)),
            bold + "+-- gain      [3]\n" + boldEnd + blue + "+-- sub/\n" + blueEnd + plain +
                "    +-- x  [nodata]\n" + plain + "+-- notfound  [a b]\n");
  EXPECT_EQ(shown(80, true, with(printTreeList, root)),
            "+-- gain\n" + boldEnd + "+-- sub/\n" + blueEnd + "    +-- x  \n+-- notfound\n");
  EXPECT_EQ(shown(80, false, with(printTreeList, ListingNode())), "");
  EXPECT_EQ(shown(80, true,
                  [&](ScreenPrinter& printer) {
                    return printTreeLevel(printer, 1, root.children[0], true, false) &&
                           printTreeLevel(printer, 2, root.children[1], true, false);
                  }),
            "    +-- gain/\n" + boldEnd + "        +-- sub/\n" + blueEnd +
                "            +-- x  [nodata]\n");
}

TEST(Listings, EndIfTheUserQuits) {
  const ListingNode root = sampleTree();
  for (auto* listing : {printNodeColumns, printLongList, printTreeList, printLongTree}) {
    for (int rows = 3; rows <= 4; ++rows) {
      test_support::FedInput input;
      input.feed("q");
      CapturedOutput output;
      ScreenPrinter printer(0, false, {.columns = [] { return 0; }, .rows = [=] { return rows; }});
      EXPECT_FALSE(listing(printer, root, true, true));
      const std::string text = output.take();
      EXPECT_NE(text.find("gain"), std::string::npos);
      EXPECT_EQ(text.find("notfound"), std::string::npos);
      EXPECT_TRUE(text.ends_with("\033[2K"));
    }
  }
}

TEST(Listings, PrintAHundredThousandEntries) {
  ListingNode root;
  for (int entry = 0; entry < 100'000; ++entry) {
    add(root, "e" + std::to_string(entry), "v");
  }
  std::string expected;
  for (int entry = 0; entry < 100'000; ++entry) {
    const std::string name = "e" + std::to_string(entry);
    expected += name + std::string(8 - name.size(), ' ') + "[v]\n";
  }
  EXPECT_TRUE(shown(80, true, with(printLongList, root)) == expected);
}

TEST(Listings, DrawATreeOfFiveThousandLevels) {
  ListingNode root;
  ListingNode* deepest = &root;
  for (int level = 0; level < 5'000; ++level) {
    deepest = &add(*deepest, "n");
  }
  std::string expected;
  for (std::size_t level = 0; level < 5'000; ++level) {
    expected += std::string(4 * level, ' ') + (level < 4'999 ? "+-- n/\n" : "+-- n  \n");
  }
  EXPECT_TRUE(shown(80, true, with(printTreeList, root)) == expected);
}

TEST(ListingNode, IsSmall) {
  EXPECT_LE(sizeof(ListingNode), 112U);
}

TEST(ListingNode, ReleasesWideAndDeepTreesAndKeepsItsOwnTexts) {
  // Deeper than recursion could go on one stack, also with the larger frames of a
  // sanitized build, which takes several times as long.
  constexpr int levels = test_support::sanitized ? 50'000 : 200'000;
  ListingNode root;
  root.name = "root";
  root.value = "/";
  ListingNode* level = &root;
  for (int depth = 0; depth < levels; ++depth) {
    add(*level, "before").addChild();
    add(*level, "next");
    add(*level, "after").addChild().addChild();
    level = &level->children[1];
  }
  ListingNode moved = std::move(root);
  freeTree(moved);
  EXPECT_FALSE(moved.hasChildren());
  EXPECT_EQ(moved.name, "root");
  EXPECT_EQ(moved.value, "/");
}

TEST(ListingNode, CanBeMovedIntoItsParent) {
  ListingNode root = sampleTree();
  root = std::move(root.children[1]);
  EXPECT_EQ(root.name, "sub");
  ASSERT_EQ(root.children.size(), 1U);
  EXPECT_EQ(root.children[0].name, "x");
}

}  // namespace
}  // namespace treescope
