#include "term/standard_output.h"

#include <poll.h>
#include <pthread.h>
#include <stdio_ext.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdio>

#include "kstd/thread_mutex.h"

namespace treescope {

namespace {

bool onTerminal = false;
bool toPipe = false;
bool toFile = false;

// The buffer of standard output, unless that is a terminal.
std::array<char, 65536> buffer;

// For the handler of signals that end the program, which interrupts the one thread that has set
// these: the spans and writes that have begun, whether one of the writes may wait for a pipe, and
// the signal that ends the program after them.
volatile std::sig_atomic_t printing = 0;
volatile std::sig_atomic_t writingToPipe = 0;
volatile std::sig_atomic_t endingSignal = 0;

// Whose turn it is to print. flockfile(3) alone is not fair: a thread that prints one
// update after another would get the stream again and again before a thread that waits.
KSTD::KThreadMutex turn;

bool waitForSpace(int descriptor) {
  pollfd output{descriptor, POLLOUT, 0};
  // An error of the descriptor ends the wait, and the next write reports it.
  return poll(&output, 1, -1) != -1 || errno == EINTR;
}

/// The beginning of `data` that a pipe takes whole or not at all: up to a line feed if
/// there is one.
std::size_t undividedSize(const char* data, std::size_t size) {
  if (size <= PIPE_BUF) {
    return size;
  }
  const std::size_t lineFeed = std::string_view(data, PIPE_BUF).rfind('\n');
  return lineFeed == std::string_view::npos ? PIPE_BUF : lineFeed + 1;
}

/// Blocks all signals in the calling thread.
class AllSignalsBlocked {
 public:
  AllSignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  ~AllSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }
  AllSignalsBlocked(const AllSignalsBlocked&) = delete;
  AllSignalsBlocked& operator=(const AllSignalsBlocked&) = delete;

 private:
  sigset_t before_{};
};

/// Some file systems store a write page by page, and look for a signal that ends the
/// program before each. A file never has them wait long.
std::size_t writeToFile(const char* data, std::size_t size) {
  const AllSignalsBlocked block;
  return writeAll(STDOUT_FILENO, data, size);
}

/// Whether the pipe takes PIPE_BUF bytes now.
bool hasSpace() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return poll(&output, 1, 0) == 1 && output.revents == POLLOUT;
}

/// Writes whole lines, those that a pipe takes now.
void writeAvailable(const char* data, std::size_t size) {
  const std::size_t lineFeed = std::string_view(data, size).rfind('\n');
  const std::size_t wholeLines = lineFeed == std::string_view::npos ? 0 : lineFeed + 1;
  if (toFile) {
    static_cast<void>(writeToFile(data, wholeLines));
    return;
  }
  std::size_t written = 0;
  while (written < wholeLines && hasSpace()) {
    const ssize_t count =
        write(STDOUT_FILENO, data + written, undividedSize(data + written, wholeLines - written));
    if (count < 0 && errno == EINTR) {
      continue;
    }
    if (count <= 0) {
      return;
    }
    written += static_cast<std::size_t>(count);
  }
}

/// Ends the program by `signal`, whose action is the default one again.
void endBySignal(int signal) {
  static_cast<void>(raise(signal));
}

/// Writes what is in the buffer, without waiting for a reader, and ends the program.
void endAfterOutput(int signal) {
  // Another signal must not write it, too.
  printing = printing + 1;
  writingToPipe = toPipe ? 1 : 0;
  writeAvailable(buffer.data(), __fpending(stdout));
  endBySignal(signal);
}

/// The handler of signals that end the program in batch mode. It makes calls only that are
/// safe in a handler.
void handleEndingSignal(int signal) {
  const int savedErrno = errno;
  if (printing == 0) {
    endAfterOutput(signal);
  } else if (writingToPipe != 0 && !hasSpace()) {
    // The reader takes nothing.
    endBySignal(signal);
  }
  endingSignal = signal;
  errno = savedErrno;
}

/// Handles the signals that usually end the program and have the default action. At the second
/// one of a kind it is the default action again.
void handleEndingSignals() {
  for (const int signal : {SIGHUP, SIGINT, SIGTERM}) {
    struct sigaction current {};
    if (sigaction(signal, nullptr, &current) == 0 && (current.sa_flags & SA_SIGINFO) == 0 &&
        current.sa_handler == SIG_DFL) {
      struct sigaction action {};
      action.sa_handler = handleEndingSignal;
      // If the handler returns, the program is in one of the calls above, which try again.
      action.sa_flags = static_cast<int>(SA_RESETHAND | SA_NODEFER);
      sigemptyset(&action.sa_mask);
      static_cast<void>(sigaction(signal, &action, nullptr));
    }
  }
}

/// Lets no signal that is handled end the program meanwhile.
class Printing {
 public:
  Printing() { printing = printing + 1; }
  ~Printing() { printing = printing - 1; }
  Printing(const Printing&) = delete;
  Printing& operator=(const Printing&) = delete;
};

// The type of a stream's write function (fopencookie(3)). A signal that ends the program
// while it writes must not divide a line.
ssize_t writeToOutput(void* /*cookie*/, const char* data, std::size_t size) {
  const Printing span;
  if (toFile) {
    return static_cast<ssize_t>(writeToFile(data, size));
  }
  std::size_t written = 0;
  while (written < size) {
    const std::size_t rest = size - written;
    const std::size_t wanted = toPipe ? undividedSize(data + written, rest) : rest;
    writingToPipe = toPipe ? 1 : 0;
    if (endingSignal != 0 && toPipe) {
      writeAvailable(data + written, rest);
      endBySignal(endingSignal);
    }
    const std::size_t count = writeAll(STDOUT_FILENO, data + written, wanted);
    writingToPipe = 0;
    written += count;
    if (count < wanted) {
      break;
    }
  }
  return static_cast<ssize_t>(written);
}

/// Writes what is in the buffer of standard output if `size` further bytes do not fit, so
/// that no text is divided between two writes. Returns whether they fit then.
bool reserveBuffer(std::size_t size) {
  const std::size_t capacity = __fbufsize(stdout);
  if (onTerminal || capacity == 0 || size <= capacity - __fpending(stdout)) {
    return true;
  }
  static_cast<void>(fflush_unlocked(stdout));
  return size <= capacity;
}

}  // namespace

std::size_t writeAll(int descriptor, const char* data, std::size_t size) {
  std::size_t written = 0;
  while (written < size) {
    const ssize_t count = write(descriptor, data + written, size - written);
    if (count > 0) {
      written += static_cast<std::size_t>(count);
      continue;
    }
    if (count == 0) {
      // A device that takes nothing would be tried forever.
      errno = EIO;
      break;
    }
    if (errno != EINTR && (errno != EAGAIN || !waitForSpace(descriptor))) {
      break;
    }
  }
  return written;
}

void waitForOutput(OutputBuffering buffering) {
  onTerminal = isatty(STDOUT_FILENO) == 1;
  struct stat status {};
  if (!onTerminal && fstat(STDOUT_FILENO, &status) == 0) {
    toPipe = S_ISFIFO(status.st_mode);
    toFile = S_ISREG(status.st_mode);
  }
  std::FILE* const stream = fopencookie(
      nullptr, "w", {.read = nullptr, .write = writeToOutput, .seek = nullptr, .close = nullptr});
  if (stream != nullptr) {
    stdout = stream;
  }
  // On an error the output is the same, in more writes.
  if (buffering == OutputBuffering::lines && onTerminal) {
    static_cast<void>(std::setvbuf(stdout, nullptr, _IOLBF, 0));
  } else {
    static_cast<void>(std::setvbuf(stdout, buffer.data(), _IOFBF, buffer.size()));
  }
  if (stream != nullptr && buffering == OutputBuffering::lines && (toPipe || toFile)) {
    handleEndingSignals();
  }
}

bool outputIsTerminal() {
  return onTerminal;
}

OutputSpan::OutputSpan() KRV_NO_THREAD_SAFETY_ANALYSIS {
  turn.lock();
  flockfile(stdout);
  printing = printing + 1;
}

OutputSpan::~OutputSpan() KRV_NO_THREAD_SAFETY_ANALYSIS {
  printing = printing - 1;
  if (printing == 0 && endingSignal != 0) {
    endAfterOutput(endingSignal);
  }
  funlockfile(stdout);
  turn.unlock();
}

void printText(std::string_view text) {
  const OutputSpan span;
  if (reserveBuffer(text.size())) {
    static_cast<void>(fwrite_unlocked(text.data(), 1, text.size(), stdout));
  } else {
    static_cast<void>(writeToOutput(nullptr, text.data(), text.size()));
  }
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
