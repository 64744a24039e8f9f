#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/terminal/keys.h"
#include "tests/terminal/terminal_session.h"

namespace terminal_test {

/// A test in which a person sits before `treescope`: what they type, and what
/// they then see. A shell that still runs at the end of the test is left with
/// `exit`; every one must end with status 0 and leave the terminal as it found it.
class ShellTerminal : public testing::Test {
 protected:
  /// Starts the shell with `arguments`, and waits for its prompt.
  void start(const TerminalOptions& options = {}, const std::vector<std::string>& arguments = {});

  /// Connects to `server`; then the prompt names it, and the cursor stands behind
  /// the prompt.
  void connect(const std::string& server);

  /// Types a line and Return.
  testing::AssertionResult enter(const std::string& line) { return type(line + keys::returnKey); }

  /// The same, and waits for the next prompt.
  testing::AssertionResult run(const std::string& line);

  testing::AssertionResult type(const std::string& keys) { return shell_->type(keys); }
  testing::AssertionResult showsLine(const std::string& line) { return shell_->showsLine(line); }
  testing::AssertionResult showsScreen(const std::string& text) {
    return shell_->showsScreen(text);
  }
  testing::AssertionResult showsText(const std::string& text) { return shell_->showsText(text); }

  [[nodiscard]] TerminalSession& shell() { return *shell_; }
  [[nodiscard]] const Screen& screen() { return shell_->screen(); }

  /// Ends the shell with `exit`, whatever is in its line.
  void leave();

  /// Waits for the end of the shell, which must be as every end is.
  void expectCleanEnd();

  void TearDown() override;

 private:
  std::unique_ptr<TerminalSession> shell_;
  termios modeBefore_{};
};

}  // namespace terminal_test
