#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "tests/attack/scripted_server.h"
#include "tests/support/keys.h"
#include "tests/support/terminal_session.h"

namespace attack {

/// The built shell on a terminal.
class TypedShell {
 public:
  TypedShell() : TypedShell({test_support::treescopeProgram()}) {}

  /// Started by other words than the program's name.
  explicit TypedShell(const std::vector<std::string>& words) : session_(words) {
    EXPECT_TRUE(session_.readThrough("[ /]$ "));
  }

  void enter(const std::string& line) {
    EXPECT_TRUE(session_.type(line + test_support::keys::returnKey));
  }
  void awaitPrompt(const std::string& server) {
    EXPECT_TRUE(session_.readThrough("[ " + server + "]$ "));
  }
  /// Enters a line, after which the prompt shows this server.
  void run(const std::string& line, const std::string& server) {
    enter(line);
    awaitPrompt(server);
  }
  [[nodiscard]] test_support::TerminalSession& session() { return session_; }

  /// Waits for the end, which restores the terminal's mode, and returns when that was.
  ScriptedServer::Clock::time_point expectEnd(test_support::ExitStatus status) {
    const auto ended = session_.waitForExit();
    const auto end = ScriptedServer::Clock::now();
    EXPECT_EQ(ended, status) << session_.describe();
    EXPECT_TRUE(test_support::sameMode(session_.mode(), original_));
    return end;
  }

 private:
  const termios original_ = test_support::TerminalSession({"true"}).mode();
  test_support::TerminalSession session_;
};

}  // namespace attack
