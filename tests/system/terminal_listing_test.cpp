#include <gmock/gmock.h>

#include <string>
#include <vector>

#include "tests/support/model_server.h"
#include "tests/system/terminal_shell.h"

// Listings of a served tree, byte for byte as the terminal receives them.

namespace {

using test_support::ModelServer;

constexpr const char* boxTree = R"({"name": "Model_box", "children": [
  {"id": 1, "name": "box", "children": [
    {"id": 1, "name": "v", "type": "int32", "value": 1},
    {"id": 2, "name": "g", "type": "double",
     "elements": [{"name": "p", "value": 1.5}, {"name": "i", "value": 0.25}]},
    {"id": 3, "name": "n", "children": [{"id": 1, "name": "w", "type": "text", "value": "a b"}]},
    {"id": 4, "name": "", "type": "uint16", "value": 7}]}]})";

const std::string off = "\033[39m";

/// `text` after the sequences for its marks, in `column` of the screen.
std::string item(const std::string& text, const std::string& on, const std::string& after,
                 int column) {
  return on + "\033[" + std::to_string(column) + 'G' + text + after;
}
std::string plainItem(const std::string& text, int column) {
  return item(text, off, "", column);
}
std::string line(const std::string& text, const std::string& on, const std::string& after) {
  return item(text + '\n', on, after, 1);
}
std::string boldLine(const std::string& text) {
  return line(text, "\033[1m\033[39m", "\033[22m");
}
std::string greenLine(const std::string& text) {
  return line(text, "\033[32m", off);
}
std::string blueLine(const std::string& text) {
  return line(text, "\033[34m", off);
}

struct ListingCase {
  std::string command;
  std::string bytes;
};

void expectAll(TerminalShell& shell, const std::vector<ListingCase>& cases) {
  for (const ListingCase& test : cases) {
    EXPECT_EQ(shell.run(test.command), test.bytes) << test.command;
  }
}

TEST(TerminalListing, HasFourLayouts) {
  auto fixture = ModelServer::ofTree(boxTree);
  TerminalShell shell(fixture.name());
  const std::string columns = plainItem("v         ", 1) + plainItem("g/        ", 11) +
                              plainItem("n/        ", 21) + plainItem("noname-4  ", 31) + '\n';
  const std::string longList =
      plainLines({"v         [1]", "g/        ", "n/        ", "noname-4  [7]"});
  const std::string tree =
      plainLines({"+-- v", "+-- g[0](p)", "+-- g[1](i)", "+-- n/", "    +-- w  ", "+-- noname-4"});
  const std::string longTree =
      plainLines({"+-- v         [1]", "+-- g[0](p)   [1.5]", "+-- g[1](i)   [0.25]", "+-- n/",
                  "    +-- w  [a b]", "+-- noname-4  [7]"});
  expectAll(shell, {{"ls box", columns},
                    {"ls -m box", columns},
                    {"ls -l box", longList},
                    {"ls -lm box", longList},
                    {"ls -r box", tree},
                    {"ls -rm box", tree},
                    {"ls -lr box", longTree},
                    {"ls -rlm box", longTree}});
}

TEST(TerminalListing, ShowsMarksInColours) {
  auto fixture = ModelServer::ofTree(boxTree);
  TerminalShell shell(fixture.name());
  ASSERT_EQ(shell.run("cd box"), "");
  ASSERT_EQ(shell.run("eu v"), "");
  ASSERT_EQ(shell.run("eu g"), "");
  const std::string boldOn = "\033[1m\033[39m";
  const std::string boldGreenOn = "\033[1m\033[32m";
  const std::string boldOff = "\033[22m";
  const std::string boldGreenOff = boldOff + off;
  expectAll(
      shell,
      {{"ls", item("v         ", boldOn, boldOff, 1) + item("g/        ", boldOn, boldOff, 11) +
                  plainItem("n/        ", 21) + plainItem("noname-4  ", 31) + '\n'},
       {"ls -c", item("v         ", boldOn, boldOff, 1) +
                     item("g/        ", boldGreenOn, boldGreenOff, 11) +
                     item("n/        ", "\033[34m", off, 21) + plainItem("noname-4  ", 31) + '\n'},
       {"ls -lc", boldLine("v         [1]") + line("g/        ", boldGreenOn, boldGreenOff) +
                      blueLine("n/        ") + plainLine("noname-4  [7]")},
       {"ls -rc", boldLine("+-- v") + greenLine("+-- g[0](p)") + greenLine("+-- g[1](i)") +
                      blueLine("+-- n/") + plainLine("    +-- w  ") + plainLine("+-- noname-4")},
       {"ls -lrc", boldLine("+-- v         [1]") + greenLine("+-- g[0](p)   [1.5]") +
                       greenLine("+-- g[1](i)   [0.25]") + blueLine("+-- n/") +
                       plainLine("    +-- w  [a b]") + plainLine("+-- noname-4  [7]")}});
}

TEST(TerminalListing, FitsItsColumnsToTheTerminal) {
  struct Width {
    int columns;
    std::string bytes;
  };
  const std::string v = plainItem("v         ", 1);
  const std::string oneEach = v + '\n' + plainItem("g/        ", 1) + '\n' +
                              plainItem("n/        ", 1) + '\n' + plainItem("noname-4  ", 1) + '\n';
  const Width widths[] = {
      {0, oneEach},
      {1, oneEach},
      {19, oneEach},
      {20, v + plainItem("g/        ", 11) + '\n' + plainItem("n/        ", 1) +
               plainItem("noname-4  ", 11) + '\n'},
      {500, v + plainItem("g/        ", 11) + plainItem("n/        ", 21) +
                plainItem("noname-4  ", 31) + '\n'},
  };
  auto fixture = ModelServer::ofTree(boxTree);
  for (const Width& width : widths) {
    TerminalShell shell(fixture.name(), {width.columns, 24});
    EXPECT_EQ(shell.run("ls box"), width.bytes) << width.columns;
  }
}

std::string numbered(int number) {
  return (number < 10 ? "item_0" : "item_") + std::to_string(number);
}

std::string lines(int first, int count) {
  std::string bytes;
  for (int number = first; number < first + count; ++number) {
    bytes += plainLine(numbered(number) + "  [" + std::to_string(number) + ']');
  }
  return bytes;
}

TEST(TerminalListing, StopsAtEachPageUntilAKeyComes) {
  std::string tree = R"({"name": "Model_long", "children": [)";
  for (int number = 0; number < 70; ++number) {
    tree += (number == 0 ? "" : ", ") + std::string(R"({"name": ")") + numbered(number) +
            R"(", "type": "int32", "value": )" + std::to_string(number) + '}';
  }
  auto fixture = ModelServer::ofTree(tree + "]}");
  TerminalShell shell(fixture.name());
  const std::string more = "\033[7m\033[5m\033[39mMore\033[27m\033[25m";
  const std::string erase = "\033[2K";
  shell.enter("ls -lm");
  EXPECT_EQ(shell.readThrough(more), lines(0, 22) + more);
  shell.type(" ");
  EXPECT_EQ(shell.readThrough(more), erase + lines(22, 22) + more);
  shell.type("\n");
  EXPECT_EQ(shell.readThrough(more), erase + lines(44, 1) + more);
  shell.type("\n");
  EXPECT_EQ(shell.readThrough(more), erase + lines(45, 1) + more);
  shell.type("q");
  EXPECT_EQ(shell.readThrough(erase), erase);
  // Only the prompt follows, and the shell still runs.
  EXPECT_EQ(shell.run("get item_69"), plainLine("/item_69    [69]"));
  EXPECT_EQ(shell.run("ls -l"), lines(0, 70));
}

}  // namespace
