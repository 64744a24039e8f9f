#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/terminal/keys.h"
#include "tests/terminal/terminal_session.h"

namespace terminal_test {

/// A test that uses `treescope` as a user does: it types, and checks what the screen then
/// shows. A shell that is still running at the end of the test is ended with `exit`. Every
/// shell must end with status 0 and restore the terminal's mode.
class ShellTerminal : public testing::Test {
 protected:
  /// Starts the shell with `arguments`, and waits for its prompt.
  void start(const TerminalOptions& options = {}, const std::vector<std::string>& arguments = {});

  /// Connects to `server`, and waits for the prompt that contains its name.
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

  /// Ends the shell with `exit`, whatever its line contains.
  void leave();

  /// Waits for the end of the shell and checks its status and the terminal's mode.
  void expectCleanEnd();

  void TearDown() override;

 private:
  std::unique_ptr<TerminalSession> shell_;
  termios modeBefore_{};
};

}  // namespace terminal_test
