#include "evtsrv/source/private_pipe.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "evtsrv/source/access.h"
#include "evtsrv/source/mailbox.h"

namespace EvtSrv::internal {

namespace {

constexpr std::string_view prefix = ".krv-";
constexpr std::string_view hexDigits = "0123456789abcdef";
constexpr std::array<std::string_view, 3> endings{".req", ".rep", ".evt"};

std::string digitsOf(const Token& token) {
  std::string digits;
  digits.reserve(2 * token.size());
  for (const std::uint8_t byte : token) {
    digits.push_back(hexDigits[byte >> 4U]);
    digits.push_back(hexDigits[byte & 0xFU]);
  }
  return digits;
}

bool isPrivatePipeName(std::string_view name) {
  const std::size_t digits = 2 * std::tuple_size_v<Token>;
  if (name.substr(0, prefix.size()) != prefix || name.size() < prefix.size() + digits) {
    return false;
  }
  name.remove_prefix(prefix.size());
  return name.substr(0, digits).find_first_not_of(hexDigits) == std::string_view::npos &&
         std::find(endings.begin(), endings.end(), name.substr(digits)) != endings.end();
}

bool mayBeSwept(System& system, const struct stat& file) {
  const uid_t user = system.effectiveUser();
  return S_ISFIFO(file.st_mode) && (user == 0 || file.st_uid == user);
}

bool isOwnPipe(System& system, const struct stat& file) {
  return isPipe(file) && file.st_uid == system.effectiveUser();
}

/// Removes a file of this user that took the name of a private pipe and is none.
void removeOther(System& system, const std::string& path, const struct stat& file) {
  if (file.st_uid == system.effectiveUser()) {
    static_cast<void>(S_ISDIR(file.st_mode) ? system.removeDirectory(path) : system.unlink(path));
  }
}

void sweepOne(System& system, const std::string& path) {
  struct stat file {};
  if (system.lstat(path, file) < 0) {
    return;
  }
  if (!S_ISFIFO(file.st_mode)) {
    removeOther(system, path, file);
    return;
  }
  if (!mayBeSwept(system, file)) {
    return;
  }
  // For reading only: a writing end that is opened and closed would be seen as a hang-up.
  FileDescriptor pipe;
  if (pipe.adopt(system, system.open(path, O_RDONLY | O_NONBLOCK)) < 0 ||
      system.fstat(pipe.number(), file) < 0 || !mayBeSwept(system, file)) {
    return;
  }
  if (system.lock(pipe.number()) == 0) {
    static_cast<void>(system.unlink(path));
  }
}

}  // namespace

std::string privatePipePath(const Token& token, PipePurpose purpose) {
  std::string path(pipeDirectory);
  path.append("/").append(prefix).append(digitsOf(token));
  return path.append(endings[static_cast<std::size_t>(purpose)]);
}

int openForReading(System& system, const std::string& path, FileDescriptor& reader) {
  constexpr int access = O_RDONLY | O_NONBLOCK;
  const int result = reader.adopt(system, system.open(path, access | O_NOATIME));
  // Only the owner may leave the access time as it is.
  return result == -EPERM ? reader.adopt(system, system.open(path, access)) : result;
}

PrivatePipe::PrivatePipe(PrivatePipe&& other) noexcept
    : system_(other.system_),
      path_(std::exchange(other.path_, {})),
      reader_(std::move(other.reader_)) {}

PrivatePipe& PrivatePipe::operator=(PrivatePipe&& other) noexcept {
  if (this != &other) {
    removeName();
    system_ = other.system_;
    path_ = std::exchange(other.path_, {});
    reader_ = std::move(other.reader_);
  }
  return *this;
}

int PrivatePipe::make(System& system, std::string path, const PipeAccess& access) {
  int result = system.makeFifo(path, ownMode);
  if (result < 0) {
    return result;
  }
  system_ = &system;
  path_ = std::move(path);
  result = openAndLock(access);
  if (result == -EACCES) {
    // The umask removed the owner's right to read.
    result = restoreOwnMode();
    result = result < 0 ? result : openAndLock(access);
  }
  return result == -ENOENT || result == -EWOULDBLOCK ? -EEXIST : result;
}

int PrivatePipe::openAndLock(const PipeAccess& access) {
  int result = openForReading(*system_, path_, reader_);
  result = result < 0 ? result : system_->lock(reader_.number());
  struct stat opened {};
  result = result < 0 ? result : system_->fstat(reader_.number(), opened);
  if (result < 0) {
    return result;
  }
  if (opened.st_nlink == 0) {
    return -EEXIST;
  }
  if (!isOwnPipe(*system_, opened)) {
    return -EPERM;
  }
  return setAccess(*system_, reader_.number(), opened, access);
}

int PrivatePipe::restoreOwnMode() {
  FileDescriptor name;
  int result = name.adopt(*system_, system_->open(path_, O_PATH));
  struct stat made {};
  result = result < 0 ? result : system_->fstat(name.number(), made);
  if (result < 0) {
    return result;
  }
  return isOwnPipe(*system_, made) ? system_->setMode(name.number(), ownMode) : -EPERM;
}

int PrivatePipe::openWriter(FileDescriptor& writer) {
  const int result = writer.adopt(*system_, system_->open(path_, O_WRONLY | O_NONBLOCK));
  if (result == -ENOENT) {
    return -EEXIST;
  }
  struct stat ours {};
  struct stat opened {};
  if (result < 0 || system_->fstat(writer.number(), opened) < 0 ||
      system_->fstat(reader_.number(), ours) < 0) {
    return result < 0 ? result : -EIO;
  }
  return isSameFile(ours, opened) ? 0 : -EPERM;
}

void PrivatePipe::removeName() {
  if (!path_.empty()) {
    static_cast<void>(system_->unlink(path_));
    path_.clear();
  }
}

void sweepPrivatePipes(System& system, const Token& own) {
  const std::int64_t end = system.nowMs() + sweepTimeMs;
  const std::string ownStart = std::string(prefix) + digitsOf(own);
  const auto visitPipes = [&](std::int64_t until, const auto& visit) {
    // Others may have left any number of names: the clock is read again after so many.
    constexpr unsigned namesPerClockRead = 256;
    unsigned names = 0;
    bool looked = false;
    // A sweep that fails leaves the rest for a later one.
    static_cast<void>(system.list(pipeDirectory, [&](std::string_view name) {
      looked = isPrivatePipeName(name) && !name.starts_with(ownStart) && visit(name);
      return (!looked && ++names % namesPerClockRead != 0) || system.nowMs() < until;
    }));
  };
  std::uint64_t count = 0;
  visitPipes(end - sweepTimeMs / 2, [&](std::string_view) {
    ++count;
    return false;
  });
  if (count == 0) {
    return;
  }
  // Foreign names that come first would keep every sweep from the others: each begins at another
  // position, which no other user can choose.
  std::uint64_t number = 0;
  std::memcpy(&number, own.data(), sizeof number);
  const std::uint64_t first = number % count;
  std::string path(pipeDirectory);
  path += '/';
  const std::size_t directorySize = path.size();
  const auto sweepFrom = [&](std::uint64_t begin, std::uint64_t last) {
    std::uint64_t index = 0;
    visitPipes(end, [&](std::string_view name) {
      const std::uint64_t position = index++;
      if (position < begin || position >= last) {
        return false;
      }
      path.resize(directorySize);
      path += name;
      sweepOne(system, path);
      return true;
    });
  };
  sweepFrom(first, UINT64_MAX);
  if (first > 0 && system.nowMs() < end) {
    sweepFrom(0, first);
  }
}

}  // namespace EvtSrv::internal
