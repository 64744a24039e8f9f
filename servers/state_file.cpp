#include "servers/state_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "servers/open_file.h"

namespace modelsrvd {

namespace {

Error errorOf(const std::string& path, const std::string& what) {
  return {oneLine(path) + ": " + what};
}

Error systemError(const std::string& path) {
  return errorOf(path, std::strerror(errno));
}

/// Sets `text` to the rest of the file. False, with `errno`, if it cannot be read.
bool readRest(int descriptor, std::string& text) {
  std::array<char, 65536> buffer{};
  for (;;) {
    const ssize_t count =
        uninterrupted([&] { return ::read(descriptor, buffer.data(), buffer.size()); });
    if (count <= 0) {
      return count == 0;
    }
    text.append(buffer.data(), static_cast<std::size_t>(count));
  }
}

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t count =
        uninterrupted([&] { return ::write(descriptor, text.data(), text.size()); });
    if (count < 0) {
      return false;
    }
    text.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

}  // namespace

Result<std::optional<std::string>> StateFile::read() const {
  // O_NONBLOCK: opening a pipe must not wait for its writer.
  const OpenFile file(uninterrupted([&] {
    return ::open(path_.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  }));
  if (file.get() < 0 && errno == ENOENT) {
    return std::nullopt;
  }
  if (file.get() < 0 && errno == ELOOP) {
    return errorOf(path_, "expected a regular file, got a symbolic link");
  }
  struct stat status {};
  if (file.get() < 0 || ::fstat(file.get(), &status) != 0) {
    return systemError(path_);
  }
  if (!S_ISREG(status.st_mode)) {
    return errorOf(path_, std::string("expected a regular file, got ") +
                              (S_ISDIR(status.st_mode)    ? "a directory"
                               : S_ISFIFO(status.st_mode) ? "a named pipe"
                                                          : "a device"));
  }
  if (status.st_uid != ::geteuid()) {
    return errorOf(path_, "belongs to another user");
  }
  std::string text;
  if (!readRest(file.get(), text)) {
    return systemError(path_);
  }
  return std::optional(std::move(text));
}

std::optional<Error> StateFile::setAside() {
  isDamaged_ = std::rename(path_.c_str(), damagedPath().c_str()) != 0 && errno != ENOENT;
  return isDamaged_ ? std::optional(systemError(damagedPath())) : std::nullopt;
}

std::optional<Error> StateFile::write(std::string_view text) {
  if (isDamaged_) {
    if (auto error = setAside()) {
      return error;
    }
  }
  auto error = writeNew(text);
  if (!error && std::rename(newPath().c_str(), path_.c_str()) != 0) {
    error = systemError(path_);
  }
  if (error) {
    // A full disk needs the space.
    static_cast<void>(::unlink(newPath().c_str()));
    return error;
  }
  return syncDirectory();
}

std::optional<Error> StateFile::writeNew(std::string_view text) const {
  // One that a killed server has left.
  if (::unlink(newPath().c_str()) != 0 && errno != ENOENT) {
    return systemError(newPath());
  }
  const OpenFile file(uninterrupted([&] {
    return ::open(newPath().c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
  }));
  // The umask may have taken from the mode.
  if (file.get() < 0 || uninterrupted([&] { return ::fchmod(file.get(), 0600); }) != 0 ||
      !writeAll(file.get(), text) || uninterrupted([&] { return ::fsync(file.get()); }) != 0) {
    return systemError(newPath());
  }
  return std::nullopt;
}

std::optional<Error> StateFile::syncDirectory() const {
  const std::size_t slash = path_.rfind('/');
  const std::string directory = slash == std::string::npos ? "." : path_.substr(0, slash + 1);
  const OpenFile opened(
      uninterrupted([&] { return ::open(directory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
  // Some file systems cannot do that.
  if (opened.get() < 0 ||
      (uninterrupted([&] { return ::fsync(opened.get()); }) != 0 && errno != EINVAL)) {
    return systemError(directory);
  }
  return std::nullopt;
}

}  // namespace modelsrvd
