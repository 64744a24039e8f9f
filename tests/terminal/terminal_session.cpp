#include "tests/terminal/terminal_session.h"

#include <fcntl.h>
#include <poll.h>
#include <spawn.h>
#include <sys/ioctl.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <system_error>

#include "tests/support/pseudo_terminal.h"

namespace terminal_test {
namespace {

[[noreturn]] void fail(const char* what, int error) {
  throw std::system_error(error, std::generic_category(), what);
}

void check(int error, const char* what) {
  if (error != 0) {
    fail(what, error);
  }
}

/// `bytes` as in a C string literal.
std::string literal(std::string_view bytes) {
  constexpr std::string_view digits = "0123456789abcdef";
  std::string text;
  for (const char letter : bytes) {
    const auto byte = static_cast<unsigned char>(letter);
    if (byte == 27) {
      text += "\\e";
    } else if (byte < 32 || byte > 126) {
      text += {'\\', 'x', digits[byte >> 4], digits[byte & 15]};
    } else {
      text += letter;
    }
  }
  return text;
}

}  // namespace

TerminalSession::TerminalSession(const std::vector<std::string>& command,
                                 const TerminalOptions& options)
    : screen_(options.rows, options.columns) {
  try {
    open(options);
    spawn(command, options);
  } catch (...) {
    hangUp();
    throw;
  }
}

TerminalSession::~TerminalSession() {
  hangUp();
  if (!reap()) {
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
  }
  test_support::closeOnce(pidDescriptor_);
}

void TerminalSession::open(const TerminalOptions& options) {
  // The device stays open so that the mode can be read after the program has ended.
  const test_support::PseudoTerminal terminal =
      test_support::openPseudoTerminal(options.rows, options.columns);
  master_ = terminal.master;
  slave_ = terminal.device;
  device_ = terminal.name;
}

void TerminalSession::spawn(const std::vector<std::string>& command,
                            const TerminalOptions& options) {
  posix_spawn_file_actions_t files;
  check(::posix_spawn_file_actions_init(&files), "file actions");
  posix_spawnattr_t attributes;
  check(::posix_spawnattr_init(&attributes), "spawn attributes");
  // The first terminal that the leader of a new session opens controls it.
  check(::posix_spawn_file_actions_addopen(&files, 0, device_.c_str(), O_RDWR, 0), "addopen");
  check(::posix_spawn_file_actions_adddup2(&files, 0, 1), "adddup2");
  check(::posix_spawn_file_actions_adddup2(&files, 0, 2), "adddup2");
  if (!options.directory.empty()) {
    check(::posix_spawn_file_actions_addchdir_np(&files, options.directory.c_str()), "addchdir");
  }
  sigset_t set;
  sigemptyset(&set);
  check(::posix_spawnattr_setsigmask(&attributes, &set), "setsigmask");
  sigfillset(&set);
  check(::posix_spawnattr_setsigdefault(&attributes, &set), "setsigdefault");
  check(::posix_spawnattr_setflags(
            &attributes, POSIX_SPAWN_SETSID | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF),
        "setflags");
  std::vector<std::string> words = command;
  std::vector<char*> arguments;
  for (std::string& word : words) {
    arguments.push_back(word.data());
  }
  arguments.push_back(nullptr);
  const int error =
      ::posix_spawnp(&pid_, words.at(0).c_str(), &files, &attributes, arguments.data(), environ);
  ::posix_spawn_file_actions_destroy(&files);
  ::posix_spawnattr_destroy(&attributes);
  check(error, words[0].c_str());
  pidDescriptor_ = static_cast<int>(::syscall(SYS_pidfd_open, pid_, 0));
  if (pidDescriptor_ < 0) {
    const int reason = errno;
    ::kill(pid_, SIGKILL);
    ::waitpid(pid_, nullptr, 0);
    fail("pidfd_open", reason);
  }
}

void TerminalSession::accept(std::string_view bytes) {
  count_ += bytes.size();
  if (watched_) {
    bytes_ += bytes;
    screen_.write(bytes);
  }
}

bool TerminalSession::take() {
  std::array<char, 65536> buffer{};
  const ssize_t count = ::read(master_, buffer.data(), buffer.size());
  if (count <= 0) {
    return false;
  }
  accept({buffer.data(), static_cast<std::size_t>(count)});
  return true;
}

// The last output of the program may not have arrived yet. A byte that is written after it
// arrives after it.
void TerminalSession::takeRest() {
  if (master_ < 0 || ::write(slave_, "", 1) != 1) {
    return;
  }
  const auto deadline = Clock::now() + timeout;
  for (std::string rest; rest.empty() || rest.back() != '\0';) {
    pollfd waited{master_, POLLIN, 0};
    std::array<char, 65536> buffer{};
    if (::poll(&waited, 1, test_support::millisecondsUntil(deadline)) <= 0) {
      return;
    }
    const ssize_t count = ::read(master_, buffer.data(), buffer.size());
    if (count > 0) {
      rest.assign(buffer.data(), static_cast<std::size_t>(count));
      accept(std::string_view(rest).substr(0, rest.size() - (rest.back() == '\0' ? 1 : 0)));
    }
  }
}

bool TerminalSession::pump(Clock::time_point deadline, bool untilWritable) {
  const auto events = static_cast<short>(POLLIN | (untilWritable ? POLLOUT : 0));
  std::array<pollfd, 2> waited{pollfd{master_, events, 0}, pollfd{pidDescriptor_, POLLIN, 0}};
  const int ready = ::poll(waited.data(), waited.size(), test_support::millisecondsUntil(deadline));
  if (ready < 0 && errno != EINTR) {
    fail("poll", errno);
  }
  if (ready == 0) {
    return false;
  }
  take();
  return true;
}

bool TerminalSession::reap() {
  int status = 0;
  if (!status_ && ::waitpid(pid_, &status, WNOHANG) == pid_) {
    takeRest();
    using test_support::ExitStatus;
    status_ =
        WIFSIGNALED(status) ? ExitStatus{0, WTERMSIG(status)} : ExitStatus{WEXITSTATUS(status), 0};
  }
  return status_.has_value();
}

testing::AssertionResult TerminalSession::type(std::string_view keys) {
  auto deadline = Clock::now() + timeout;
  while (!keys.empty()) {
    const ssize_t count = ::write(master_, keys.data(), keys.size());
    if (count > 0) {
      keys.remove_prefix(static_cast<std::size_t>(count));
      deadline = Clock::now() + timeout;
    } else if (count < 0 && errno != EAGAIN && errno != EINTR) {
      return testing::AssertionFailure()
             << "the terminal accepts no keys: " << std::strerror(errno);
    } else if (reap() || !pump(deadline, true)) {
      return testing::AssertionFailure() << keys.size() << " keys were not read\n" << describe();
    }
  }
  return testing::AssertionSuccess();
}

testing::AssertionResult TerminalSession::waitFor(
    const std::function<bool(const Screen&)>& expected, const std::string& what) {
  const auto deadline = Clock::now() + timeout;
  while (!expected(screen_)) {
    const bool ended = reap();
    if (expected(screen_)) {
      break;
    }
    if (ended || !pump(deadline, false)) {
      return testing::AssertionFailure() << "expected: " << what << '\n' << describe();
    }
  }
  return testing::AssertionSuccess();
}

testing::AssertionResult TerminalSession::showsLine(const std::string& line) {
  return waitFor([&line](const Screen& screen) { return screen.cursorLine() == line; },
                 "the cursor in the line  " + line);
}

testing::AssertionResult TerminalSession::showsScreen(const std::string& text) {
  return waitFor([&text](const Screen& screen) { return screen.text() == text; },
                 "the screen\n" + text);
}

testing::AssertionResult TerminalSession::showsText(const std::string& text) {
  return waitFor([&text](const Screen& screen) { return screen.find(text).has_value(); },
                 "the text  " + text);
}

testing::AssertionResult TerminalSession::writes(const std::string& text, std::size_t mark) {
  return waitFor([&](const Screen&) { return bytes_.find(text, mark) != std::string::npos; },
                 "the bytes  " + literal(text));
}

void TerminalSession::resize(int rows, int columns) {
  screen_.resize(rows, columns);
  winsize size{};
  size.ws_row = static_cast<unsigned short>(rows);
  size.ws_col = static_cast<unsigned short>(columns);
  if (::ioctl(master_, TIOCSWINSZ, &size) != 0) {
    fail("TIOCSWINSZ", errno);
  }
}

void TerminalSession::hangUp() {
  test_support::closeOnce(master_);
  test_support::closeOnce(slave_);
}

std::optional<test_support::ExitStatus> TerminalSession::waitForExit() {
  const auto deadline = Clock::now() + timeout;
  while (!reap()) {
    if (!pump(deadline, false)) {
      return std::nullopt;
    }
  }
  return status_;
}

termios TerminalSession::mode() const {
  termios mode{};
  if (::tcgetattr(slave_, &mode) != 0) {
    fail("tcgetattr", errno);
  }
  return mode;
}

void TerminalSession::signal(int number) {
  // The pid of a process that has been waited for may have been reused.
  if (!status_ && ::kill(pid_, number) != 0) {
    fail("kill", errno);
  }
}

std::string TerminalSession::describe() const {
  constexpr std::size_t shown = 400;
  std::string text = screen_.picture() + "last bytes: " +
                     literal(bytes_.substr(bytes_.size() - std::min(shown, bytes_.size()))) + '\n';
  if (!status_) {
    return text + "the program is running\n";
  }
  return text +
         (status_->signal != 0 ? "ended by signal " + std::to_string(status_->signal)
                               : "ended with status " + std::to_string(status_->code)) +
         '\n';
}

bool sameMode(const termios& one, const termios& other) {
  return one.c_iflag == other.c_iflag && one.c_oflag == other.c_oflag &&
         one.c_cflag == other.c_cflag && one.c_lflag == other.c_lflag &&
         std::memcmp(one.c_cc, other.c_cc, sizeof one.c_cc) == 0;
}

}  // namespace terminal_test
