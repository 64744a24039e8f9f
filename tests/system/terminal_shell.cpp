#include "tests/system/terminal_shell.h"

#include <gtest/gtest.h>
#include <poll.h>
#include <spawn.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <system_error>

#include "tests/support/process.h"
#include "tests/support/programs.h"
#include "tests/support/pseudo_terminal.h"

namespace {

int wanted(int result, const char* what) {
  if (result < 0) {
    throw std::system_error(errno, std::generic_category(), what);
  }
  return result;
}

void wantedOk(int error, const char* what) {
  if (error != 0) {
    throw std::system_error(error, std::generic_category(), what);
  }
}

/// A terminal that passes on what it is given, byte by byte.
void makePlain(int terminal) {
  termios mode{};
  wanted(::tcgetattr(terminal, &mode), "tcgetattr");
  mode.c_oflag &= ~static_cast<tcflag_t>(OPOST);
  mode.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON);
  mode.c_cc[VMIN] = 1;
  mode.c_cc[VTIME] = 0;
  wanted(::tcsetattr(terminal, TCSANOW, &mode), "tcsetattr");
}

pid_t spawnOn(int terminal, const std::string& program) {
  posix_spawn_file_actions_t files;
  wantedOk(::posix_spawn_file_actions_init(&files), "file actions");
  int error = 0;
  for (const int standard : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    error = error != 0 ? error : ::posix_spawn_file_actions_adddup2(&files, terminal, standard);
  }
  std::string word = program;
  const std::array<char*, 2> words{word.data(), nullptr};
  pid_t pid = -1;
  if (error == 0) {
    error = ::posix_spawn(&pid, program.c_str(), &files, nullptr, words.data(), environ);
  }
  ::posix_spawn_file_actions_destroy(&files);
  wantedOk(error, program.c_str());
  return pid;
}

}  // namespace

TerminalShell::TerminalShell(std::string server, Size size) : server_(std::move(server)) {
  start(size);
  readThrough("]$ ");
  run("cd " + server_);
}

void TerminalShell::start(Size size) {
  test_support::PseudoTerminal terminal = test_support::openPseudoTerminal(size.rows, size.columns);
  terminal_ = terminal.master;
  makePlain(terminal.device);
  pid_ = spawnOn(terminal.device, test_support::treescopeProgram());
  test_support::closeOnce(terminal.device);
}

TerminalShell::~TerminalShell() {
  type("q\n");
  const auto deadline = Clock::now() + test_support::timeout;
  // The terminal hangs up when its last user has gone.
  while (receive(deadline)) {
  }
  int status = 0;
  if (Clock::now() > deadline) {
    ADD_FAILURE() << "the shell does not end: " << testing::PrintToString(output_);
    ::kill(pid_, SIGKILL);
  }
  ::waitpid(pid_, &status, 0);
  EXPECT_EQ(status, 0);
  ::close(terminal_);
}

void TerminalShell::type(std::string_view bytes) {
  EXPECT_EQ(::write(terminal_, bytes.data(), bytes.size()), static_cast<ssize_t>(bytes.size()));
}

bool TerminalShell::receive(Clock::time_point deadline) {
  const int left = test_support::millisecondsUntil(deadline);
  pollfd waited{terminal_, POLLIN, 0};
  std::array<char, 4096> bytes{};
  const int ready = left > 0 ? ::poll(&waited, 1, left) : 0;
  if (ready <= 0) {
    return ready < 0 && errno == EINTR;
  }
  const ssize_t count = ::read(terminal_, bytes.data(), bytes.size());
  if (count > 0) {
    output_.append(bytes.data(), static_cast<std::size_t>(count));
  }
  return count > 0 || (count < 0 && errno == EINTR);
}

std::string TerminalShell::readUntil(const std::function<std::optional<std::size_t>()>& found) {
  const auto deadline = Clock::now() + test_support::timeout;
  for (;;) {
    if (const auto length = found()) {
      std::string taken = output_.substr(0, *length);
      output_.erase(0, *length);
      return taken;
    }
    if (!receive(deadline)) {
      ADD_FAILURE() << "this is all that came: " << testing::PrintToString(output_);
      return std::exchange(output_, {});
    }
  }
}

std::string TerminalShell::readThrough(const std::string& text) {
  return readUntil([&]() -> std::optional<std::size_t> {
    const std::size_t at = output_.find(text);
    return at == std::string::npos ? std::nullopt : std::optional(at + text.size());
  });
}

std::optional<TerminalShell::Report> TerminalShell::findReport() const {
  const std::string start = "\033[39m\033[1G/";
  for (std::size_t at = output_.find(start); at != std::string::npos;
       at = output_.find(start, at + 1)) {
    const std::size_t place = at + start.size();
    if (output_.compare(place, 1, "\n") == 0 ||
        output_.compare(place, server_.size(), server_) == 0) {
      const std::size_t prompt = output_.find("]$ ", place);
      return prompt == std::string::npos ? std::nullopt : std::optional(Report{at, prompt + 3});
    }
  }
  return std::nullopt;
}

void TerminalShell::enter(const std::string& line) {
  type(line + '\n');
  // The keys leave no line feed but the last one's.
  readThrough("\n");
}

std::string TerminalShell::run(const std::string& line) {
  enter(line);
  // What is printed for "pwd" is known, and looks like nothing that is typed.
  type("pwd\n");
  std::size_t report = std::string::npos;
  const std::string bytes = readUntil([&]() -> std::optional<std::size_t> {
    const auto found = findReport();
    report = found ? found->begin : std::string::npos;
    return found ? std::optional(found->end) : std::nullopt;
  });
  const std::string before = bytes.substr(0, report);
  return before.substr(0, before.rfind('\n', before.rfind("]$ ")) + 1);
}

void TerminalShell::stop() {
  int status = 0;
  EXPECT_EQ(::kill(pid_, SIGSTOP), 0);
  EXPECT_EQ(::waitpid(pid_, &status, WUNTRACED), pid_);
  EXPECT_TRUE(WIFSTOPPED(status));
}

void TerminalShell::resume() {
  EXPECT_EQ(::kill(pid_, SIGCONT), 0);
}

std::string batchOutput(const std::string& server, const std::string& commands) {
  const test_support::Finished result =
      test_support::run({test_support::treescopeProgram(), "-c", "cd " + server + ';' + commands});
  EXPECT_EQ(result.status, test_support::ExitStatus());
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
