#include "commands/values_file.h"

#include <fcntl.h>
#include <pthread.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>
#include <utility>

#include "term/standard_output.h"

namespace treescope {

namespace {

constexpr std::size_t flushSize = 32768;
constexpr mode_t fileMode = 0666;  // before the umask

/// Blocks SIGPIPE for the thread and discards one that was raised meanwhile.
class PipeSignalGuard {
 public:
  PipeSignalGuard() {
    sigemptyset(&pipeSignal_);
    sigaddset(&pipeSignal_, SIGPIPE);
    sigset_t pending;
    wasPending_ = sigpending(&pending) == 0 && sigismember(&pending, SIGPIPE) == 1;
    blocked_ = pthread_sigmask(SIG_BLOCK, &pipeSignal_, &before_) == 0;
  }
  ~PipeSignalGuard() {
    if (!blocked_) {
      return;
    }
    if (!wasPending_) {
      const timespec immediately{};
      static_cast<void>(sigtimedwait(&pipeSignal_, nullptr, &immediately));
    }
    static_cast<void>(pthread_sigmask(SIG_SETMASK, &before_, nullptr));
  }
  PipeSignalGuard(const PipeSignalGuard&) = delete;
  PipeSignalGuard& operator=(const PipeSignalGuard&) = delete;

 private:
  sigset_t pipeSignal_;
  sigset_t before_;
  bool wasPending_;
  bool blocked_;
};

// A named pipe blocks in open(2) unless it is opened as non-blocking; writes are to block.
bool makeBlocking(int descriptor) {
  const int flags = fcntl(descriptor, F_GETFL);
  return flags != -1 && fcntl(descriptor, F_SETFL, flags & ~O_NONBLOCK) == 0;
}

}  // namespace

ValuesFile::ValuesFile(const char* fileName) {
  do {
    descriptor_ =
        open(fileName, O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOCTTY | O_NONBLOCK, fileMode);
  } while (descriptor_ == -1 && errno == EINTR);
  if (opened() && !makeBlocking(descriptor_)) {
    close(std::exchange(descriptor_, -1));
  }
}

ValuesFile::~ValuesFile() {
  if (opened()) {
    flush();
    close(descriptor_);
  }
}

void ValuesFile::write(const std::string& text) {
  pending_ += text;
  if (pending_.size() >= flushSize) {
    flush();
  }
}

void ValuesFile::flush() {
  if (!failed_) {
    const PipeSignalGuard guard;
    failed_ = writeAll(descriptor_, pending_.data(), pending_.size()) != pending_.size();
  }
  pending_.clear();
}

}  // namespace treescope
