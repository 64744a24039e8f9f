#include "tools/output.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>

#include "tools/address.h"
#include "tools/stop_signals.h"

namespace treectl {

void prepareStandardStreams() {
  for (const int descriptor : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // open(2) uses the lowest free number. A closed standard output becomes one that cannot be
    // written.
    const int mode = descriptor == STDOUT_FILENO ? O_RDONLY : O_RDWR;
    if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", mode) < 0) {
      return;  // Without /dev/null nothing better can be done.
    }
  }
  // A file that becomes too large is an error, as a full disk is.
  ::signal(SIGXFSZ, SIG_IGN);
  // A parent may have left the signal ignored or blocked.
  ::signal(SIGPIPE, SIG_DFL);
  sigset_t pipe;
  sigemptyset(&pipe);
  sigaddset(&pipe, SIGPIPE);
  sigprocmask(SIG_UNBLOCK, &pipe, nullptr);
}

int writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::write(descriptor, bytes.data(), bytes.size());
    if (count >= 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN) {
      pollfd wait{descriptor, POLLOUT, 0};
      ::poll(&wait, 1, -1);
    } else if (errno != EINTR) {
      return errno;
    }
    // A reader that takes nothing does not keep a program that is to end.
    if (count < 0 && StopSignals::received() != 0) {
      return EINTR;
    }
  }
  return 0;
}

bool Output::flush() {
  if (error_ == 0) {
    error_ = writeAll(STDOUT_FILENO, text_);
  }
  text_.clear();
  return error_ == 0;
}

void Messages::print(std::string_view text) const {
  std::string line = "treectl: ";
  line += text;
  printLine(line);
}

void Messages::printLine(std::string_view text) const {
  if (quiet_) {
    return;
  }
  std::string line = printable(text);
  line += '\n';
  // If standard error cannot be written, there is nowhere to report it.
  static_cast<void>(writeAll(STDERR_FILENO, line));
}

void Messages::print(std::string_view subject, std::string_view reason) const {
  std::string text(subject);
  text += ": ";
  text += reason;
  print(text);
}

std::string errorText(int number) {
  char buffer[128];
  return ::strerror_r(number, buffer, sizeof buffer);
}

}  // namespace treectl
