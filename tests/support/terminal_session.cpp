#include "tests/support/terminal_session.h"

#include <poll.h>
#include <sys/ioctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <system_error>

namespace test_support {
namespace {

/// Bytes as in a C string literal.
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

ExitStatus exitStatus(int status) {
  return WIFSIGNALED(status) ? ExitStatus{0, WTERMSIG(status)} : ExitStatus{WEXITSTATUS(status), 0};
}

std::string describeEnd(const ExitStatus& status) {
  return status.signal != 0 ? "ended by signal " + std::to_string(status.signal)
                            : "ended with status " + std::to_string(status.code);
}

termios modeOf(const PseudoTerminal& terminal) {
  termios mode{};
  if (::tcgetattr(terminal.device.get(), &mode) != 0) {
    throwError("tcgetattr");
  }
  return mode;
}

void setModeOf(const PseudoTerminal& terminal, const termios& mode) {
  if (::tcsetattr(terminal.device.get(), TCSANOW, &mode) != 0) {
    throwError("tcsetattr");
  }
}

PseudoTerminal openTerminal(const TerminalOptions& options) {
  PseudoTerminal terminal = openPseudoTerminal(options.rows, options.columns);
  termios mode = modeOf(terminal);
  // A key that raises a signal must not discard the output that a test waits for.
  mode.c_lflag |= NOFLSH;
  if (options.passesBytes) {
    mode.c_oflag &= ~static_cast<tcflag_t>(OPOST);
    mode.c_lflag &= ~static_cast<tcflag_t>(ECHO | ICANON);
    mode.c_cc[VMIN] = 1;
    mode.c_cc[VTIME] = 0;
  }
  setModeOf(terminal, mode);
  return terminal;
}

}  // namespace

TerminalSession::TerminalSession(const std::vector<std::string>& command,
                                 const TerminalOptions& options)
    : screen_(options.rows, options.columns),
      terminal_(openTerminal(options)),
      job_(terminal_.name, command,
           {options.directory, options.foreground, options.ignoredSignal, options.nonBlocking}) {}

TerminalSession::~TerminalSession() {
  hangUp();
}

termios TerminalSession::mode() const {
  return modeOf(terminal_);
}

void TerminalSession::setMode(const termios& mode) {
  setModeOf(terminal_, mode);
}

void TerminalSession::accept(std::string_view bytes) {
  count_ += bytes.size();
  if (!discards_) {
    bytes_ += bytes;
    screen_.write(bytes);
  }
}

bool TerminalSession::takeOutput() {
  std::array<char, 65536> buffer{};
  const ssize_t count = ::read(terminal_.master.get(), buffer.data(), buffer.size());
  if (count <= 0) {
    return false;
  }
  accept({buffer.data(), static_cast<std::size_t>(count)});
  return true;
}

// The last output of the program may not have arrived when the program has ended; a
// byte that is written after it arrives after it.
void TerminalSession::takeRest() {
  if (!terminal_.master.isOpen() || ::write(terminal_.device.get(), "", 1) != 1) {
    return;
  }
  const auto deadline = Clock::now() + timeout;
  for (std::string rest; rest.empty() || rest.back() != '\0';) {
    pollfd waited{terminal_.master.get(), POLLIN, 0};
    std::array<char, 65536> buffer{};
    if (::poll(&waited, 1, millisecondsUntil(deadline)) <= 0) {
      return;
    }
    const ssize_t count = ::read(terminal_.master.get(), buffer.data(), buffer.size());
    if (count > 0) {
      rest.assign(buffer.data(), static_cast<std::size_t>(count));
      accept(std::string_view(rest).substr(0, rest.size() - (rest.back() == '\0' ? 1 : 0)));
    }
  }
}

void TerminalSession::takeStatuses() {
  while (const auto status = job_.nextStatus()) {
    statuses_.push_back(*status);
    if (hasEnded()) {
      takeRest();
      return;
    }
  }
}

/// Waits until `deadline` for output, a change of the program or, if
/// `untilWritable`, space for keys. False if there was none, or can be none.
bool TerminalSession::pump(Clock::time_point deadline, bool untilWritable) {
  const auto events = static_cast<short>(POLLIN | (untilWritable ? POLLOUT : 0));
  std::array<pollfd, 2> waited{pollfd{terminal_.master.get(), events, 0},
                               pollfd{job_.statusDescriptor(), POLLIN, 0}};
  if (hasEnded()) {
    return false;
  }
  const int ready = ::poll(waited.data(), waited.size(), millisecondsUntil(deadline));
  if (ready < 0 && errno != EINTR) {
    throwError("poll");
  }
  takeOutput();
  takeStatuses();
  return ready != 0;
}

testing::AssertionResult TerminalSession::type(std::string_view keys) {
  auto deadline = Clock::now() + timeout;
  while (!keys.empty()) {
    const ssize_t count = ::write(terminal_.master.get(), keys.data(), keys.size());
    if (count > 0) {
      keys.remove_prefix(static_cast<std::size_t>(count));
      deadline = Clock::now() + timeout;
    } else if (count < 0 && errno != EAGAIN && errno != EINTR) {
      return testing::AssertionFailure() << "cannot type: " << std::strerror(errno);
    } else if (!pump(deadline, true)) {
      return testing::AssertionFailure() << keys.size() << " keys are not read\n" << describe();
    }
  }
  return testing::AssertionSuccess();
}

testing::AssertionResult TerminalSession::waitFor(
    const std::function<bool(const Screen&)>& condition, const std::string& what) {
  const auto deadline = Clock::now() + timeout;
  while (!condition(screen_)) {
    if (!pump(deadline, false)) {
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

testing::AssertionResult TerminalSession::readThrough(const std::string& text) {
  auto result = writes(text, read_);
  if (result) {
    read_ = bytes_.find(text, read_) + text.size();
  }
  return result;
}

std::string_view TerminalSession::unread() const {
  return std::string_view(bytes_).substr(read_);
}

std::string TerminalSession::read(std::size_t length) {
  std::string taken(unread().substr(0, length));
  read_ += taken.size();
  return taken;
}

void TerminalSession::resize(int rows, int columns) {
  screen_.resize(rows, columns);
  winsize size{};
  size.ws_row = static_cast<unsigned short>(rows);
  size.ws_col = static_cast<unsigned short>(columns);
  if (::ioctl(terminal_.master.get(), TIOCSWINSZ, &size) != 0) {
    throwError("TIOCSWINSZ");
  }
}

void TerminalSession::hangUp() {
  terminal_.master.close();
  terminal_.device.close();
}

std::optional<int> TerminalSession::nextStatus() {
  const auto deadline = Clock::now() + timeout;
  while (statuses_.empty()) {
    if (!pump(deadline, false)) {
      return std::nullopt;
    }
  }
  const int status = statuses_.front();
  statuses_.pop_front();
  return status;
}

std::optional<ExitStatus> TerminalSession::waitForExit() {
  const auto deadline = Clock::now() + timeout;
  while (pump(deadline, false)) {
  }
  return hasEnded() ? std::optional(exitStatus(*job_.endStatus())) : std::nullopt;
}

std::string TerminalSession::describe() const {
  constexpr std::size_t shown = 400;
  return screen_.picture() +
         "last bytes: " + literal(bytes_.substr(bytes_.size() - std::min(shown, bytes_.size()))) +
         '\n' +
         (hasEnded() ? describeEnd(exitStatus(*job_.endStatus())) : "the program has not ended") +
         '\n';
}

}  // namespace test_support
