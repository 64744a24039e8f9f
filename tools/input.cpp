#include "tools/input.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "tools/output.h"
#include "tools/stop_signals.h"

namespace treectl {

namespace {

/// The permissions of a new file, before the umask.
mode_t newFileMode() {
  constexpr mode_t everyone = 0666;
  const mode_t mask = ::umask(0);
  ::umask(mask);
  return everyone & ~mask;
}

/// Keeps signals that end the program until a file has been replaced, or the temporary one removed.
class DelayedSignals {
 public:
  DelayedSignals() {
    sigset_t ending;
    sigemptyset(&ending);
    for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
      sigaddset(&ending, number);
    }
    sigprocmask(SIG_BLOCK, &ending, &before_);
  }
  ~DelayedSignals() { sigprocmask(SIG_SETMASK, &before_, nullptr); }
  DelayedSignals(const DelayedSignals&) = delete;
  DelayedSignals& operator=(const DelayedSignals&) = delete;

 private:
  sigset_t before_{};
};

int writeAndClose(int descriptor, const std::string& text) {
  int error = writeAll(descriptor, text);
  // A pipe cannot be synchronized.
  if (error == 0 && ::fsync(descriptor) != 0 && errno != EINVAL && errno != EROFS) {
    error = errno;
  }
  if (::close(descriptor) != 0 && error == 0) {
    error = errno;
  }
  return error;
}

/// Where a link leads, so that the file there is replaced and not the link.
std::string targetOf(const std::string& path) {
  char* const resolved = ::realpath(path.c_str(), nullptr);
  std::string target = resolved != nullptr ? resolved : path;
  std::free(resolved);
  return target;
}

}  // namespace

int readAll(int descriptor, std::string& text, std::size_t maxBytes) {
  constexpr std::size_t blockSize = std::size_t{64} * 1024;
  while (text.size() <= maxBytes) {
    const std::size_t size = text.size();
    text.resize(size + blockSize);
    const ssize_t count = ::read(descriptor, text.data() + size, blockSize);
    const int error = errno;
    text.resize(size + static_cast<std::size_t>(count > 0 ? count : 0));
    if (count == 0) {
      return 0;
    }
    if (count < 0 && (error != EINTR || StopSignals::received() != 0)) {
      return error;
    }
  }
  return 0;
}

int readInputFile(const std::string& path, std::string& text) {
  constexpr std::size_t maxBytes = std::size_t{1024} * 1024 * 1024;
  if (path == "-") {
    return readAll(STDIN_FILENO, text, maxBytes);
  }
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY);
  if (descriptor < 0) {
    return errno;
  }
  const int error = readAll(descriptor, text, maxBytes);
  ::close(descriptor);
  return error != 0 ? error : text.size() > maxBytes ? EFBIG : 0;
}

int replaceFile(const std::string& path, const std::string& text) {
  if (path == "-") {
    return writeAll(STDOUT_FILENO, text);
  }
  struct stat status {};
  const bool exists = ::stat(path.c_str(), &status) == 0;
  if (exists && !S_ISREG(status.st_mode)) {
    const int descriptor = ::open(path.c_str(), O_WRONLY | O_CLOEXEC | O_NOCTTY);
    return descriptor < 0 ? errno : writeAndClose(descriptor, text);
  }
  const std::string target = targetOf(path);
  const DelayedSignals delayed;
  std::string temporary = target + ".XXXXXX";
  const int descriptor = ::mkostemp(temporary.data(), O_CLOEXEC);
  if (descriptor < 0) {
    return errno;
  }
  constexpr mode_t permissions = 0777;
  int error =
      ::fchmod(descriptor, exists ? status.st_mode & permissions : newFileMode()) != 0 ? errno : 0;
  const int written = writeAndClose(descriptor, text);
  error = written != 0 ? written : error;
  if (error == 0 && ::rename(temporary.c_str(), target.c_str()) != 0) {
    error = errno;
  }
  if (error != 0) {
    ::unlink(temporary.c_str());
  }
  return error;
}

}  // namespace treectl
