#include "servers/files.h"

#include <dirent.h>
#include <fcntl.h>
#include <grp.h>
#include <sys/stat.h>
#include <sys/statvfs.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <limits>
#include <memory>

namespace modelsrvd {

namespace {

/// Owns a descriptor.
class Opened {
 public:
  Opened(const std::string& path, int flags) : descriptor_(::open(path.c_str(), flags)) {}
  ~Opened() {
    if (descriptor_ >= 0) {
      ::close(descriptor_);
    }
  }
  Opened(const Opened&) = delete;
  Opened& operator=(const Opened&) = delete;
  [[nodiscard]] int get() const { return descriptor_; }

 private:
  int descriptor_;
};

std::string reason(int fault) {
  return std::strerror(fault);
}

Error about(const std::string& path, const std::string& what) {
  return {oneLine(path) + ": " + what};
}

Error tooLong(const std::string& path, std::size_t most) {
  return about(path, "longer than " + std::to_string(most) + " bytes");
}

/// Appends to `text` until the end of the file or until it is longer than `most`;
/// gives 0 or the fault.
int readAll(int descriptor, std::size_t most, std::string& text) {
  std::array<char, 65536> buffer{};
  while (text.size() <= most) {
    const ssize_t count = ::read(descriptor, buffer.data(), buffer.size());
    if (count == 0) {
      return 0;
    }
    if (count > 0) {
      text.append(buffer.data(), static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

// Not to wait for the writer of a pipe before it is known to be one.
FileReader::FileReader(std::string path, std::size_t most)
    : path_(std::move(path)),
      most_(most),
      descriptor_(::open(path_.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY)) {
  if (descriptor_ < 0) {
    error_ = about(path_, reason(errno));
  } else if (isReadable()) {
    constexpr std::size_t pieceSize = std::size_t{64} * 1024;
    buffer_.resize(pieceSize);
  }
}

FileReader::~FileReader() {
  if (descriptor_ >= 0) {
    ::close(descriptor_);
  }
}

bool FileReader::isReadable() {
  struct stat status {};
  if (::fstat(descriptor_, &status) != 0) {
    error_ = about(path_, reason(errno));
  } else if (!S_ISREG(status.st_mode)) {
    error_ = about(path_, "not a regular file");
  } else if (status.st_size > static_cast<off_t>(most_)) {
    error_ = tooLong(path_, most_);
  }
  return !error_;
}

std::string_view FileReader::next() {
  if (error_) {
    return {};
  }
  ssize_t count = 0;
  do {
    count = ::read(descriptor_, buffer_.data(), buffer_.size());
  } while (count < 0 && errno == EINTR);
  if (count < 0) {
    error_ = about(path_, reason(errno));
    return {};
  }
  passed_ += static_cast<std::size_t>(count);
  // It may have grown since it was opened.
  if (passed_ > most_) {
    error_ = tooLong(path_, most_);
    return {};
  }
  return {buffer_.data(), static_cast<std::size_t>(count)};
}

Result<gid_t> findGroup(const std::string& nameOrNumber) {
  std::vector<char> buffer(4096);
  struct group entry {};
  struct group* found = nullptr;
  int fault = 0;
  while ((fault = ::getgrnam_r(nameOrNumber.c_str(), &entry, buffer.data(), buffer.size(),
                               &found)) == ERANGE &&
         buffer.size() < std::size_t{16} * 1024 * 1024) {
    buffer.resize(buffer.size() * 4);
  }
  if (found != nullptr) {
    return found->gr_gid;
  }
  gid_t number = 0;
  const char* const end = nameOrNumber.data() + nameOrNumber.size();
  const auto [stop, notNumber] = std::from_chars(nameOrNumber.data(), end, number);
  // The largest number means no group (chown(2)).
  if (notNumber == std::errc{} && stop == end && number != std::numeric_limits<gid_t>::max()) {
    return number;
  }
  std::string text = "--group: there is no group \"" + oneLine(nameOrNumber);
  text += fault == 0 || fault == ENOENT ? "\"" : "\" (" + reason(fault) + ")";
  return Error{std::move(text)};
}

bool fillStandardStreams() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    // The lowest free number is given (open(2)).
    if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", O_RDWR) != descriptor) {
      return false;
    }
  }
  return true;
}

std::optional<Error> writeOutput(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count = ::write(STDOUT_FILENO, text.data(), text.size());
    if (count >= 0) {
      text.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno != EINTR) {
      return about("standard output", reason(errno));
    }
  }
  return std::nullopt;
}

std::optional<std::string> HostFiles::read(const std::string& path) const {
  constexpr std::size_t most = std::size_t{1024} * 1024;
  const Opened file(top_ + path, O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  std::string text;
  if (file.get() < 0 || readAll(file.get(), most, text) != 0) {
    return std::nullopt;
  }
  return text;
}

std::vector<std::string> HostFiles::list(const std::string& directory) const {
  std::vector<std::string> names;
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(::opendir((top_ + directory).c_str()),
                                                   ::closedir);
  if (!stream) {
    return names;
  }
  while (const dirent* entry = ::readdir(stream.get())) {
    if (entry->d_name[0] != '.') {
      names.emplace_back(entry->d_name);
    }
  }
  std::sort(names.begin(), names.end());
  return names;
}

std::optional<DiskRoom> HostFiles::room(const std::string& mountPoint) const {
  struct statvfs status {};
  if (::statvfs((top_ + mountPoint).c_str(), &status) != 0) {
    return std::nullopt;
  }
  return DiskRoom{std::uint64_t{status.f_blocks} * status.f_frsize,
                  std::uint64_t{status.f_bavail} * status.f_frsize};
}

}  // namespace modelsrvd
