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

/// O_NONBLOCK: opening a pipe must not wait for its writer.
int openToRead(const std::string& path) {
  return uninterrupted(
      [&] { return ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY); });
}

std::string describeErrno(int code) {
  return std::strerror(code);
}

Error errorAt(const std::string& path, const std::string& what) {
  return {oneLine(path) + ": " + what};
}

Error tooLong(const std::string& path, std::size_t maxBytes) {
  return errorAt(path, "longer than " + std::to_string(maxBytes) + " bytes");
}

/// What is read at once, in bytes.
constexpr std::size_t pieceSize = std::size_t{64} * 1024;

/// Appends to `text` until the end of the file or until it is longer than
/// `maxBytes`. Returns 0 or the errno.
int readAll(int descriptor, std::size_t maxBytes, std::string& text) {
  std::array<char, 65536> buffer{};
  while (text.size() <= maxBytes) {
    const ssize_t count =
        uninterrupted([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
    if (count <= 0) {
      return count == 0 ? 0 : errno;
    }
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
  return 0;
}

}  // namespace

FileReader::FileReader(std::string path, std::size_t maxBytes)
    : path_(std::move(path)), maxBytes_(maxBytes), buffer_(pieceSize), file_(openToRead(path_)) {
  if (file_.get() < 0) {
    error_ = errorAt(path_, describeErrno(errno));
  } else {
    checkFile();
  }
}

void FileReader::checkFile() {
  struct stat status {};
  if (::fstat(file_.get(), &status) != 0) {
    error_ = errorAt(path_, describeErrno(errno));
  } else if (!S_ISREG(status.st_mode)) {
    error_ = errorAt(path_, "not a regular file");
  } else if (status.st_size > static_cast<off_t>(maxBytes_)) {
    error_ = tooLong(path_, maxBytes_);
  }
}

std::string_view FileReader::next() {
  if (error_) {
    return {};
  }
  const ssize_t count =
      uninterrupted([&] { return ::read(file_.get(), buffer_.data(), buffer_.size()); });
  if (count < 0) {
    error_ = errorAt(path_, describeErrno(errno));
    return {};
  }
  bytesRead_ += static_cast<std::size_t>(count);
  // The file may have grown since it was opened.
  if (bytesRead_ > maxBytes_) {
    error_ = tooLong(path_, maxBytes_);
    return {};
  }
  return {buffer_.data(), static_cast<std::size_t>(count)};
}

void FileReader::seek(std::uint64_t offset) {
  bytesRead_ = static_cast<std::size_t>(offset);
  if (!error_ && ::lseek(file_.get(), static_cast<off_t>(offset), SEEK_SET) < 0) {
    error_ = errorAt(path_, describeErrno(errno));
  }
}

Result<gid_t> findGroup(const std::string& nameOrNumber) {
  std::vector<char> buffer(4096);
  struct group entry {};
  struct group* found = nullptr;
  int code = 0;
  while ((code = ::getgrnam_r(nameOrNumber.c_str(), &entry, buffer.data(), buffer.size(),
                              &found)) == ERANGE &&
         buffer.size() < std::size_t{16} * 1024 * 1024) {
    buffer.resize(buffer.size() * 4);
  }
  if (found != nullptr) {
    return found->gr_gid;
  }
  gid_t number = 0;
  const char* const end = nameOrNumber.data() + nameOrNumber.size();
  const auto [stop, parsed] = std::from_chars(nameOrNumber.data(), end, number);
  // The largest number stands for "no group" (chown(2)).
  if (parsed == std::errc{} && stop == end && number != std::numeric_limits<gid_t>::max()) {
    return number;
  }
  std::string text = "--group: unknown group \"" + oneLine(nameOrNumber);
  text += code == 0 || code == ENOENT ? "\"" : "\" (" + describeErrno(code) + ")";
  return Error{std::move(text)};
}

bool isMemberOf(gid_t group) {
  const int count = ::getgroups(0, nullptr);
  if (group == ::getegid() || count <= 0) {
    return group == ::getegid();
  }
  std::vector<gid_t> groups(static_cast<std::size_t>(count));
  return ::getgroups(count, groups.data()) == count &&
         std::find(groups.begin(), groups.end(), group) != groups.end();
}

std::optional<Error> fillStandardStreams() {
  for (int descriptor = STDIN_FILENO; descriptor <= STDERR_FILENO; ++descriptor) {
    // open(2) uses the lowest free descriptor number.
    if (::fcntl(descriptor, F_GETFD) < 0 && ::open("/dev/null", O_RDWR) < 0) {
      return errorAt("/dev/null", describeErrno(errno));
    }
  }
  return std::nullopt;
}

std::optional<Error> writeOutput(std::string_view text) {
  while (!text.empty()) {
    const ssize_t count =
        uninterrupted([&] { return ::write(STDOUT_FILENO, text.data(), text.size()); });
    if (count < 0) {
      return errorAt("standard output", describeErrno(errno));
    }
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return std::nullopt;
}

std::optional<std::string> HostFiles::read(const std::string& path) const {
  constexpr std::size_t maxBytes = std::size_t{1024} * 1024;
  const OpenFile file(openToRead(top_ + path));
  std::string text;
  if (file.get() < 0 || readAll(file.get(), maxBytes, text) != 0) {
    return std::nullopt;
  }
  return text;
}

std::vector<std::string> HostFiles::list(const std::string& directory) const {
  std::vector<std::string> names;
  const std::string path = top_ + directory;
  DIR* opened = ::opendir(path.c_str());
  while (opened == nullptr && errno == EINTR) {
    opened = ::opendir(path.c_str());
  }
  const std::unique_ptr<DIR, int (*)(DIR*)> stream(opened, ::closedir);
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

std::optional<DiskSpace> HostFiles::diskSpace(const std::string& mountPoint) const {
  struct statvfs status {};
  const std::string path = top_ + mountPoint;
  if (uninterrupted([&] { return ::statvfs(path.c_str(), &status); }) != 0) {
    return std::nullopt;
  }
  return DiskSpace{std::uint64_t{status.f_blocks} * status.f_frsize,
                   std::uint64_t{status.f_bavail} * status.f_frsize};
}

}  // namespace modelsrvd
