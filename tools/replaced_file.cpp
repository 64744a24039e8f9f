#include "tools/replaced_file.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>

#include "tools/output.h"

namespace treectl {

namespace {

constexpr mode_t permissions = 0777;

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

/// What a file is synchronized with: the disk, if it is on one.
int synchronize(int descriptor) {
  // A pipe cannot be.
  return ::fsync(descriptor) != 0 && errno != EINVAL && errno != EROFS ? errno : 0;
}

int writeAndClose(int descriptor, const std::string& text) {
  int error = writeAll(descriptor, text);
  if (error == 0) {
    error = synchronize(descriptor);
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

UnnamedFile::UnnamedFile(const std::string& path) : target_(targetOf(path)), mode_(newFileMode()) {
  struct stat status {};
  if (::stat(target_.c_str(), &status) == 0) {
    if (!S_ISREG(status.st_mode)) {
      return;
    }
    mode_ = status.st_mode & permissions;
  }
  // Its name is given to it by way of /proc.
  if (path != "-" && ::access("/proc/self/fd", X_OK) == 0) {
    const std::size_t slash = target_.rfind('/');
    const std::string directory = slash == std::string::npos ? "." : target_.substr(0, slash + 1);
    constexpr mode_t ownerOnly = 0600;
    descriptor_ = ::open(directory.c_str(), O_TMPFILE | O_WRONLY | O_CLOEXEC, ownerOnly);
  }
}

UnnamedFile::~UnnamedFile() {
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
}

void UnnamedFile::write(std::string_view bytes) {
  if (error_ == 0) {
    error_ = writeAll(descriptor_, bytes);
  }
}

void UnnamedFile::clear() {
  if (error_ == 0 && (::ftruncate(descriptor_, 0) != 0 || ::lseek(descriptor_, 0, SEEK_SET) != 0)) {
    error_ = errno;
  }
}

int UnnamedFile::commit() {
  if (error_ == 0 && ::fchmod(descriptor_, mode_) != 0) {
    error_ = errno;
  }
  if (error_ == 0) {
    error_ = synchronize(descriptor_);
  }
  if (error_ != 0) {
    return error_;
  }
  // Only rename(2) replaces a file, and that needs a name.
  const DelayedSignals delayed;
  const std::string own = "/proc/self/fd/" + std::to_string(descriptor_);
  std::string name;
  unsigned number = 0;
  do {
    name = target_ + '.' + std::to_string(::getpid()) + '.' + std::to_string(number++);
    error_ =
        ::linkat(AT_FDCWD, own.c_str(), AT_FDCWD, name.c_str(), AT_SYMLINK_FOLLOW) != 0 ? errno : 0;
  } while (error_ == EEXIST);
  if (error_ == 0 && ::rename(name.c_str(), target_.c_str()) != 0) {
    error_ = errno;
    ::unlink(name.c_str());
  }
  return error_;
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
