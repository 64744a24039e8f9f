#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "tests/support/keys.h"
#include "tests/support/model_server.h"
#include "tests/support/terminal_session.h"

namespace terminal_test {

using test_support::Colour;
using test_support::Look;
using test_support::ModelServer;
using test_support::sameMode;
using test_support::Screen;
using test_support::TerminalOptions;
using test_support::TerminalSession;
namespace keys = test_support::keys;

/// The description of a tree for completion: /drive with a part of each kind, among them
/// "speed" and "speedlimit", and /empty, a node without children.
extern const std::string driveTree;

/// A test of `treescope` on a terminal: what a user types, and what the screen then
/// shows. At the end of the test a shell that still runs is left with `exit`; every
/// shell must end with status 0 and restore the terminal's mode.
class TerminalTest : public testing::Test {
 protected:
  /// Starts the shell with `arguments`, and waits for its prompt.
  void start(const TerminalOptions& options = {}, const std::vector<std::string>& arguments = {});

  /// Connects to `server`; then the prompt shows its name, and the cursor is after the
  /// prompt.
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

  /// Clears the shell's line and ends the shell with `exit`.
  void leave();

  /// Waits for the end of the shell, and checks its status and the terminal's mode.
  void expectCleanEnd();

  void TearDown() override;

 private:
  std::unique_ptr<TerminalSession> shell_;
  termios modeBefore_{};
};

}  // namespace terminal_test
