#include "term/standard_output.h"

#include <poll.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>

#include "kstd/thread_mutex.h"

namespace treescope {

namespace {

bool onTerminal = false;

// Whose turn it is to print. flockfile(3) alone is not fair: a thread that prints one
// update after another would get the stream again and again before a thread that waits.
KSTD::KThreadMutex turn;

bool waitForSpace(int descriptor) {
  pollfd output{descriptor, POLLOUT, 0};
  // An error of the descriptor ends the wait, and the next write reports it.
  return poll(&output, 1, -1) != -1 || errno == EINTR;
}

// The type of a stream's write function (fopencookie(3)).
ssize_t writeToOutput(void* /*cookie*/, const char* data, std::size_t size) {
  return static_cast<ssize_t>(writeAll(STDOUT_FILENO, data, size));
}

}  // namespace

std::size_t writeAll(int descriptor, const char* data, std::size_t size) {
  std::size_t written = 0;
  while (written < size) {
    const ssize_t count = write(descriptor, data + written, size - written);
    if (count >= 0) {
      written += static_cast<std::size_t>(count);
      continue;
    }
    if (errno != EINTR && (errno != EAGAIN || !waitForSpace(descriptor))) {
      break;
    }
  }
  return written;
}

void waitForOutput(OutputBuffering buffering) {
  static std::array<char, 65536> buffer;
  onTerminal = isatty(STDOUT_FILENO) == 1;
  std::FILE* const stream = fopencookie(
      nullptr, "w", {.read = nullptr, .write = writeToOutput, .seek = nullptr, .close = nullptr});
  if (stream != nullptr) {
    stdout = stream;
  }
  // On an error the output is the same, in more writes.
  if (buffering == OutputBuffering::full) {
    static_cast<void>(std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size()));
  } else if (onTerminal) {
    static_cast<void>(std::setvbuf(stdout, nullptr, _IOLBF, 0));
  }
}

bool outputIsTerminal() {
  return onTerminal;
}

OutputSpan::OutputSpan() KRV_NO_THREAD_SAFETY_ANALYSIS {
  turn.lock();
  flockfile(stdout);
}

OutputSpan::~OutputSpan() KRV_NO_THREAD_SAFETY_ANALYSIS {
  funlockfile(stdout);
  turn.unlock();
}

void printText(std::string_view text) {
  const OutputSpan span;
  static_cast<void>(fwrite_unlocked(text.data(), 1, text.size(), stdout));
}

void flushOutput() {
  const OutputSpan span;
  static_cast<void>(fflush_unlocked(stdout));
}

void flushToTerminal() {
  if (onTerminal) {
    flushOutput();
  }
}

}  // namespace treescope
