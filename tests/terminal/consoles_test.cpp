#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <map>
#include <regex>
#include <set>
#include <sstream>

#include "tests/support/port_name.h"
#include "tests/support/process.h"
#include "tests/support/scratch_directory.h"
#include "tests/terminal/terminal_test.h"

// The shell on consoles that are no xterm: what terminfo says of the sequences that it writes,
// and what is left of its output on a terminal without them. doc/consoles.md has the table.

namespace terminal_test {
namespace {

/// A group of sequences, and how terminfo shows that a terminal knows it.
struct Control {
  const char* name;        ///< the column of the table
  const char* sequences;   ///< after the escape byte, as a regular expression
  const char* capability;  ///< of infocmp(1), as a regular expression
};

const std::array<Control, 6> controls{{
    {"cursor to a column", "\\[\\d+G", "\thpa=\\\\E\\[%i%p1%dG,"},
    {"erase to the end", "\\[0K", "\tel=\\\\E\\[K"},
    // Terminfo has no name for it; a terminal that reads 1 as "to the start" reads 2, too.
    {"erase the line", "\\[2K", "\tel1=\\\\E\\[1K"},
    {"reverse, blinking, bold, underlined", "\\[[1457]m", "\trev=\\\\E\\[7m"},
    {"end of each of them", "\\[2[2457]m", "\trmul=\\\\E\\[24m"},
    {"colours", "\\[3[0-79]m", "\tsetaf=\\\\E\\[3"},
}};

const std::array<const char*, 7> terminals{"xterm", "tmux",  "screen", "linux",
                                           "vt220", "vt100", "dumb"};

/// Which of `controls` the terminal knows.
std::vector<bool> knownControls(const std::string& terminal) {
  const auto described = test_support::run({"infocmp", "-1", terminal});
  EXPECT_EQ(described.status, test_support::ExitStatus()) << described.errors;
  std::vector<bool> known;
  for (const Control& control : controls) {
    known.push_back(std::regex_search(described.output, std::regex(control.capability)));
  }
  return known;
}

/// `bytes` without the sequences that a terminal does not know and ignores.
std::string withoutUnknown(std::string bytes, const std::vector<bool>& known) {
  for (std::size_t i = 0; i < controls.size(); ++i) {
    if (!known[i]) {
      bytes =
          std::regex_replace(bytes, std::regex(std::string("\033") + controls[i].sequences), "");
    }
  }
  return bytes;
}

class Consoles : public TerminalTest {
 protected:
  /// What the shell writes with TERM=`terminal` for a fixed session that has every sequence.
  std::string sessionOn(const std::string& terminal) {
    TerminalSession shell({"env", "TERM=" + terminal, test_support::treescopeProgram()},
                          {.rows = 6, .columns = 60});
    EXPECT_TRUE(shell.writes("[ /]$ ", 0));
    enterInto(shell, "cd " + server_.name());
    EXPECT_TRUE(shell.type("cd dr" + keys::tab + keys::returnKey));
    EXPECT_TRUE(shell.writes("[ drive]$ ", 0));
    enterInto(shell, "ls");
    enterInto(shell, "get speed");
    EXPECT_TRUE(shell.type(keys::up + keys::home + keys::end + keys::backspace));
    EXPECT_TRUE(shell.type(keys::ctrl('A') + keys::ctrl('K')));
    const std::size_t mark = shell.mark();
    EXPECT_TRUE(shell.type("ls -lm" + keys::returnKey));
    EXPECT_TRUE(shell.writes("More", mark));
    EXPECT_TRUE(shell.type("q"));
    EXPECT_TRUE(shell.writes("]$ ", mark + 10));
    EXPECT_TRUE(shell.type("exit" + keys::returnKey));
    EXPECT_EQ(shell.waitForExit(), test_support::ExitStatus());
    return shell.bytesSince(0);
  }

  static void enterInto(TerminalSession& shell, const std::string& line) {
    const std::size_t mark = shell.mark();
    EXPECT_TRUE(shell.type(line + keys::returnKey));
    EXPECT_TRUE(shell.waitFor(
        [&](const Screen&) {
          const std::string bytes = shell.bytesSince(mark);
          const std::size_t end = bytes.find('\n');
          return end != std::string::npos && bytes.find("]$ ", end) != std::string::npos;
        },
        "a prompt after the line  " + line));
  }

  ModelServer server_ = ModelServer::ofTree(driveTree);
};

TEST_F(Consoles, GetTheSameBytesWhateverTermSays) {
  const std::string expected = sessionOn("xterm");
  for (const std::string terminal : {"vt100", "dumb", "no-such-terminal", ""}) {
    EXPECT_EQ(sessionOn(terminal), expected) << terminal;
  }
}

TEST_F(Consoles, GetOnlySequencesOfTheTable) {
  const std::string bytes = sessionOn("xterm");
  EXPECT_EQ(withoutUnknown(bytes, std::vector<bool>(controls.size())).find('\033'),
            std::string::npos);
  for (const Control& control : controls) {
    EXPECT_TRUE(std::regex_search(bytes, std::regex(std::string("\033") + control.sequences)))
        << control.name;
  }
}

TEST_F(Consoles, KnowWhatTheTableOfTheDocumentSays) {
  std::ifstream file(test_support::sourceDirectory() + std::string("/doc/consoles.md"));
  std::map<std::string, std::string> rows;
  for (std::string line; std::getline(file, line);) {
    std::smatch match;
    if (std::regex_match(line, match, std::regex("\\| `(\\w+)` \\|(.*)\\|"))) {
      rows[match[1]] = match[2];
    }
  }
  for (const char* const terminal : terminals) {
    std::string row;
    for (const bool known : knownControls(terminal)) {
      row += row.empty() ? "" : "|";
      row += known ? " yes " : " no ";
    }
    EXPECT_EQ(rows[terminal].substr(0, row.size()), row) << terminal;
  }
}

TEST_F(Consoles, ShowTheValuesWithoutTheSequencesThatTheyDoNotKnow) {
  const std::string bytes = sessionOn("xterm");
  for (const char* const terminal : terminals) {
    Screen screen(60, 60);
    screen.write(withoutUnknown(bytes, knownControls(terminal)));
    EXPECT_EQ(screen.rowsWith("/drive/speed    [42]"), 1) << terminal << "\n" << screen.picture();
    EXPECT_GE(screen.rowsWith("[ drive]$ "), 3) << terminal << "\n" << screen.picture();
  }
}

TEST_F(Consoles, WithoutASizeListOneNameAtATimeUntilTheyGetOne) {
  start({.rows = 0, .columns = 0});
  ASSERT_TRUE(run("cd " + server_.name()));
  std::size_t mark = shell().mark();
  ASSERT_TRUE(enter("ls -lm"));
  ASSERT_TRUE(shell().writes("More", mark));
  ASSERT_TRUE(type("q"));
  ASSERT_TRUE(run("$stty rows 24 cols 80"));
  mark = shell().mark();
  ASSERT_TRUE(run("ls -lm"));
  EXPECT_EQ(shell().bytesSince(mark).find("More"), std::string::npos);
  EXPECT_NE(shell().bytesSince(mark).find("empty "), std::string::npos)
      << testing::PrintToString(shell().bytesSince(mark));
}

TEST_F(Consoles, TakeAndShowNamesOfAnyEncoding) {
  const std::string utf8 =
      "gr\xC3\xB6\xC3\x9F"
      "e";
  const std::string latin1 = test_support::uniquePortName() +
                             "gr\xF6\xDF"
                             "e";
  const std::string tree =
      R"({"children": [{"name": ")" + utf8 + R"(", "type": "text", "value": ""}]})";
  test_support::ScratchDirectory directory;
  test_support::Process server({test_support::modelsrvdProgram(), "--tree",
                                directory.write("tree.json", tree), "--name", latin1});
  ASSERT_EQ(server.readLine(), "ready " + latin1);
  start({.rows = 60, .columns = 120});
  // A terminal in Latin-1 sends and shows single bytes.
  ASSERT_TRUE(run("cd " + latin1));
  const std::size_t mark = shell().mark();
  ASSERT_TRUE(run("ls"));
  EXPECT_NE(shell().bytesSince(mark).find(utf8), std::string::npos);
  ASSERT_TRUE(run("str \"\xFC\" gr" + keys::tab));
  ASSERT_TRUE(run("get " + utf8));
  EXPECT_NE(shell().bytesSince(mark).find("/" + utf8 + "    [\xFC]"), std::string::npos)
      << testing::PrintToString(shell().bytesSince(mark));
}

}  // namespace
}  // namespace terminal_test
