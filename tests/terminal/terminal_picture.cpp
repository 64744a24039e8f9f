#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <string>
#include <string_view>

#include "tests/support/terminal_session.h"
#include "tests/terminal/screen_svg.h"

// Runs a command on a terminal and prints what its screen then shows, as SVG:
//
//   terminal_picture COLUMNSxROWS TITLE COMMAND... <STEPS
//
// Each line of standard input is a step: "type KEYS" ("\\r", "\\t", "\\e" and "\\b" are Return,
// Tab, Escape and Backspace), "await TEXT" (in the output since the last keys) or "watch SECONDS"
// (of output). The command is ended when the picture has been printed.

namespace {

using test_support::Screen;
using test_support::TerminalSession;
using Clock = std::chrono::steady_clock;

std::string keysOf(const std::string& text) {
  static constexpr std::array<std::pair<std::string_view, char>, 4> names{
      {{"\\r", '\r'}, {"\\t", '\t'}, {"\\e", '\033'}, {"\\b", '\177'}}};
  std::string keys;
  for (std::size_t at = 0; at < text.size(); ++at) {
    keys += text[at];
    for (const auto& [name, key] : names) {
      if (std::string_view(text).substr(at).starts_with(name)) {
        keys.back() = key;
        at += name.size() - 1;
      }
    }
  }
  return keys;
}

class Session {
 public:
  Session(const std::vector<std::string>& command, int columns, int rows)
      : terminal_(command, {.rows = rows, .columns = columns}) {}

  void step(const std::string& line) {
    const std::size_t space = line.find(' ');
    const std::string verb = line.substr(0, space);
    const std::string text = space == std::string::npos ? "" : line.substr(space + 1);
    if (verb == "type") {
      mark_ = terminal_.mark();
      check(terminal_.type(keysOf(text)));
    } else if (verb == "await") {
      check(terminal_.writes(text, mark_));
    } else if (verb == "watch") {
      const auto until = Clock::now() + std::chrono::seconds(std::stoul(text));
      check(terminal_.waitFor([until](const Screen&) { return Clock::now() >= until; },
                              "output for " + text + " seconds"));
    } else {
      throw std::runtime_error("no such step: " + line);
    }
  }

  [[nodiscard]] const Screen& screen() const { return terminal_.screen(); }

 private:
  static void check(const testing::AssertionResult& result) {
    if (!result) {
      throw std::runtime_error(result.message());
    }
  }

  TerminalSession terminal_;
  std::size_t mark_ = 0;
};

void run(int argc, char** argv) {
  int columns = 0;
  int rows = 0;
  if (argc < 4 || std::sscanf(argv[1], "%dx%d", &columns, &rows) != 2 || columns < 1 || rows < 1) {
    throw std::runtime_error("usage: terminal_picture COLUMNSxROWS TITLE COMMAND...");
  }
  Session session({argv + 3, argv + argc}, columns, rows);
  for (std::string line; std::getline(std::cin, line);) {
    session.step(line);
  }
  std::cout << terminal_test::svgOf(session.screen(), argv[2]) << std::flush;
  if (!std::cout) {
    throw std::runtime_error("cannot write the picture");
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    run(argc, argv);
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "terminal_picture: %s\n", error.what());
    return 1;
  }
}
