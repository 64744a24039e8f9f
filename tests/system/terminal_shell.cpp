#include "tests/system/terminal_shell.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include "tests/support/process.h"

namespace {

using test_support::ExitStatus;
using test_support::Screen;

const std::string prompt = "]$ ";

}  // namespace

TerminalShell::TerminalShell(std::string server, Size size)
    : server_(std::move(server)),
      session_({test_support::treescopeProgram()},
               {.rows = size.rows, .columns = size.columns, .passesBytes = true}) {
  readThrough(prompt);
  run("cd " + server_);
}

TerminalShell::~TerminalShell() {
  type("q\n");
  EXPECT_EQ(session_.waitForExit(), ExitStatus()) << session_.describe();
}

std::string TerminalShell::readUntil(const std::function<std::optional<std::size_t>()>& find,
                                     const std::string& what) {
  std::optional<std::size_t> length;
  EXPECT_TRUE(session_.waitFor(
      [&](const Screen&) {
        length = find();
        return length.has_value();
      },
      what));
  return session_.read(length.value_or(session_.unread().size()));
}

std::string TerminalShell::readThrough(const std::string& text) {
  const auto find = [&]() -> std::optional<std::size_t> {
    const std::size_t at = session_.unread().find(text);
    return at == std::string_view::npos ? std::nullopt : std::optional(at + text.size());
  };
  return readUntil(find, "the bytes  " + testing::PrintToString(text));
}

std::optional<TerminalShell::Report> TerminalShell::findReport() const {
  const std::string_view output = session_.unread();
  const std::string start = "\033[39m\033[1G/";
  for (std::size_t at = output.find(start); at != std::string_view::npos;
       at = output.find(start, at + 1)) {
    const std::string_view path = output.substr(at + start.size());
    if (path.starts_with('\n') || path.starts_with(server_)) {
      const std::size_t end = output.find(prompt, at + start.size());
      return end == std::string_view::npos ? std::nullopt
                                           : std::optional(Report{at, end + prompt.size()});
    }
  }
  return std::nullopt;
}

void TerminalShell::enter(const std::string& line) {
  type(line + '\n');
  // The line editor prints no line feed but the one for Return.
  readThrough("\n");
}

std::string TerminalShell::run(const std::string& line) {
  enter(line);
  // The output of "pwd" is known, and differs from everything that the line editor
  // prints.
  type("pwd\n");
  std::size_t report = std::string::npos;
  const auto find = [&]() -> std::optional<std::size_t> {
    const auto found = findReport();
    report = found ? found->begin : std::string::npos;
    return found ? std::optional(found->end) : std::nullopt;
  };
  const std::string before = readUntil(find, "the current directory").substr(0, report);
  return before.substr(0, before.rfind('\n', before.rfind(prompt)) + 1);
}

void TerminalShell::stop() {
  session_.signal(SIGSTOP);
  const auto status = session_.nextStatus();
  ASSERT_TRUE(status) << session_.describe();
  EXPECT_TRUE(WIFSTOPPED(*status)) << *status;
}

std::string batchOutput(const std::string& server, const std::string& commands) {
  const test_support::Finished result =
      test_support::run({test_support::treescopeProgram(), "-c", "cd " + server + ';' + commands});
  EXPECT_EQ(result.status, ExitStatus());
  EXPECT_EQ(result.errors, "");
  return result.output;
}

std::string plainLines(const std::vector<std::string>& lines) {
  std::string bytes;
  for (const std::string& line : lines) {
    bytes += plainLine(line);
  }
  return bytes;
}

std::string plainLine(std::string_view text) {
  return "\033[39m\033[1G" + std::string(text) + '\n';
}

bool endsWithJust(std::string_view bytes, std::string_view lines) {
  return bytes.ends_with(lines) &&
         bytes.substr(0, bytes.size() - lines.size()).find('\n') == std::string_view::npos;
}
