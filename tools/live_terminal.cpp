#include "tools/live_terminal.h"

#include <langinfo.h>
#include <poll.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <cerrno>
#include <clocale>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "tools/stop_signals.h"

namespace treectl {

namespace {

// The other screen, which has no history, and without the cursor.
constexpr std::string_view beginPainting = "\x1B[?1049h\x1B[?25l";
constexpr std::string_view endPainting = "\x1B[?25h\x1B[?1049l";

Size readSize() {
  winsize size{};
  Size result;
  if (::ioctl(STDOUT_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_row > 0 && size.ws_col > 0) {
    result = {size.ws_row, size.ws_col};
  }
  return result;
}

/// Bytes 32 to 126 are the same everywhere; what else a locale can show its encoding says.
bool isUtf8Locale() {
  return ::setlocale(LC_CTYPE, "") != nullptr && std::strcmp(::nl_langinfo(CODESET), "UTF-8") == 0;
}

}  // namespace

std::optional<std::string> LiveTerminal::problem() {
  if (::isatty(STDOUT_FILENO) != 1) {
    return "standard output is not a terminal";
  }
  const char* const type = ::getenv("TERM");
  if (type == nullptr || *type == 0 || std::strcmp(type, "dumb") == 0) {
    return "this terminal cannot move its cursor (TERM is " +
           std::string(type == nullptr || *type == 0 ? "not set" : type) + ")";
  }
  return std::nullopt;
}

LiveTerminal::LiveTerminal(Output& output, bool colored)
    : output_(output),
      style_{isUtf8Locale(), colored},
      size_(readSize()),
      keys_(::isatty(STDIN_FILENO) == 1 ? STDIN_FILENO : -1) {
  termios mode{};
  if (keys_ >= 0 && ::tcgetattr(keys_, &mode) == 0) {
    mode_ = mode;
  }
  begin();
}

LiveTerminal::~LiveTerminal() {
  end();
}

void LiveTerminal::begin() {
  if (mode_) {
    termios mode = *mode_;
    // Keys come at once and are not echoed; those that send signals still do. Ctrl-S stops nothing:
    // the terminal could not be restored.
    mode.c_lflag &= ~static_cast<tcflag_t>(ICANON | ECHO);
    mode.c_iflag &= ~static_cast<tcflag_t>(IXON);
    mode.c_cc[VMIN] = 1;
    mode.c_cc[VTIME] = 0;
    if (::tcsetattr(keys_, TCSANOW, &mode) != 0) {
      // The keys come with the next line then, and there is nothing to restore.
      mode_.reset();
    }
  }
  painter_.forget();
  output_.text() += beginPainting;
  output_.flush();
}

void LiveTerminal::end() {
  // A terminal that takes nothing does not hold up the end.
  constexpr int longest = 500;
  pollfd wait{STDOUT_FILENO, POLLOUT, 0};
  if (::poll(&wait, 1, longest) > 0 && (wait.revents & POLLOUT) != 0) {
    [[maybe_unused]] const ssize_t written =
        ::write(STDOUT_FILENO, endPainting.data(), endPainting.size());
  }
  if (mode_) {
    ::tcsetattr(keys_ >= 0 ? keys_ : STDIN_FILENO, TCSANOW, &*mode_);
  }
}

void LiveTerminal::show(const std::vector<ScreenLine>& lines) {
  painter_.paint(output_.text(), lines, size_);
  output_.flush();
}

void LiveTerminal::resize() {
  size_ = readSize();
  painter_.forget();
}

void LiveTerminal::suspend() {
  end();
  suspendProgram();
  static_cast<void>(StopSignals::takeContinuation());
  resume();
}

void LiveTerminal::resume() {
  size_ = readSize();
  begin();
}

bool LiveTerminal::readKeys() {
  char bytes[64];
  const ssize_t count = ::read(keys_, bytes, sizeof bytes);
  if (count > 0) {
    return std::memchr(bytes, 'q', static_cast<std::size_t>(count)) != nullptr;
  }
  if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
    keys_ = -1;
  }
  return false;
}

}  // namespace treectl
