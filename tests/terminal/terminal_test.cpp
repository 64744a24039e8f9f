#include "tests/terminal/terminal_test.h"

#include "tests/support/process.h"

namespace terminal_test {

const std::string driveTree = R"({"name": "Model_drive", "children": [
  {"id": 1, "name": "drive", "children": [
    {"id": 1, "name": "speed", "type": "int32", "value": 42},
    {"id": 2, "name": "speedlimit", "type": "int32", "value": 90},
    {"id": 3, "name": "gains", "type": "double",
     "elements": [{"name": "p", "value": 1.5}, {"name": "i", "value": 0.25}]},
    {"id": 4, "name": "label", "type": "text", "value": "two words"},
    {"id": 5, "name": "motor", "children": [
      {"id": 1, "name": "current", "type": "float", "value": 0}]},
    {"id": 12, "name": "", "type": "uint16", "value": 7}]},
  {"id": 2, "name": "empty", "children": []}]})";

void TerminalTest::start(const TerminalOptions& options,
                         const std::vector<std::string>& arguments) {
  std::vector<std::string> command{test_support::treescopeProgram()};
  command.insert(command.end(), arguments.begin(), arguments.end());
  // Every pseudoterminal starts in the same mode.
  modeBefore_ = TerminalSession({"true"}).mode();
  shell_ = std::make_unique<TerminalSession>(command, options);
  ASSERT_TRUE(shell_->writes("[ /]$ ", 0));
}

testing::AssertionResult TerminalTest::run(const std::string& line) {
  const std::size_t mark = shell_->mark();
  if (auto typed = enter(line); !typed) {
    return typed;
  }
  return shell_->waitFor(
      [&](const Screen&) {
        const std::string bytes = shell_->bytesSince(mark);
        return bytes.find("]$ ", bytes.find('\n')) != std::string::npos;
      },
      "a prompt after the line  " + line);
}

void TerminalTest::connect(const std::string& server) {
  ASSERT_TRUE(run("cd " + server));
  ASSERT_TRUE(showsLine("[ " + server + "]$ |"));
}

void TerminalTest::leave() {
  EXPECT_TRUE(type(keys::ctrl('A') + keys::ctrl('K')));
  EXPECT_TRUE(enter("exit"));
  expectCleanEnd();
}

void TerminalTest::expectCleanEnd() {
  const auto status = shell_->waitForExit();
  ASSERT_TRUE(status.has_value()) << "the shell does not end\n" << shell_->describe();
  EXPECT_EQ(*status, (test_support::ExitStatus{0, 0})) << shell_->describe();
  EXPECT_TRUE(sameMode(shell_->mode(), modeBefore_)) << "the terminal is left in another mode";
  shell_.reset();
}

void TerminalTest::TearDown() {
  if (shell_ != nullptr) {
    leave();
  }
}

}  // namespace terminal_test
