#include "evtsrv/source/private_pipe.h"

#include <fcntl.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <string_view>
#include <utility>
#include <vector>

#include "evtsrv/source/access.h"
#include "evtsrv/source/port_name.h"

namespace EvtSrv::internal {

namespace {

constexpr std::string_view prefix = ".krv-";
constexpr std::string_view hexDigits = "0123456789abcdef";
constexpr std::array<std::string_view, 3> endings{".req", ".rep", ".evt"};

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

void sweepOne(System& system, const std::string& path) {
  struct stat file {};
  if (system.linkStatus(path, file) < 0 || !mayBeSwept(system, file)) {
    return;
  }
  // For reading only: a writing end that comes and goes would look like a hang-up.
  FileDescriptor pipe;
  if (pipe.adopt(system, system.open(path, O_RDONLY | O_NONBLOCK)) < 0 ||
      system.status(pipe.number(), file) < 0 || !mayBeSwept(system, file)) {
    return;
  }
  if (system.lock(pipe.number()) == 0) {
    static_cast<void>(system.remove(path));
  }
}

}  // namespace

std::string privatePipePath(const Token& token, PipePurpose purpose) {
  std::string path(pipeDirectory);
  path.append("/").append(prefix);
  for (const std::uint8_t byte : token) {
    path.push_back(hexDigits[byte >> 4U]);
    path.push_back(hexDigits[byte & 0xFU]);
  }
  return path.append(endings[static_cast<std::size_t>(purpose)]);
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
  FileDescriptor name;
  result = name.adopt(system, system.open(path_, O_PATH));
  if (result < 0) {
    return result == -ENOENT ? -EEXIST : result;
  }
  struct stat made {};
  result = system.status(name.number(), made);
  if (result < 0) {
    return result;
  }
  if (!S_ISFIFO(made.st_mode) || made.st_uid != system.effectiveUser()) {
    return -EPERM;
  }
  result = setAccess(system, name.number(), made, access.owner, access.group,
                     access.group ? sharedMode : ownMode);
  return result < 0 ? result : openAndLock(made);
}

int PrivatePipe::openAndLock(const struct stat& made) {
  int result = reader_.adopt(*system_, system_->open(path_, O_RDONLY | O_NONBLOCK));
  if (result < 0) {
    return result == -ENOENT ? -EEXIST : result;
  }
  result = system_->lock(reader_.number());
  if (result < 0) {
    return result == -EWOULDBLOCK ? -EEXIST : result;
  }
  struct stat opened {};
  result = system_->status(reader_.number(), opened);
  if (result < 0) {
    return result;
  }
  if (!isSameFile(made, opened)) {
    return -EPERM;
  }
  return opened.st_nlink > 0 ? 0 : -EEXIST;
}

int PrivatePipe::openWriter(FileDescriptor& writer) {
  const int result = writer.adopt(*system_, system_->open(path_, O_WRONLY | O_NONBLOCK));
  struct stat ours {};
  struct stat opened {};
  if (result < 0 || system_->status(writer.number(), opened) < 0 ||
      system_->status(reader_.number(), ours) < 0) {
    return result < 0 ? result : -EIO;
  }
  return isSameFile(ours, opened) ? 0 : -EPERM;
}

void PrivatePipe::removeName() {
  if (!path_.empty()) {
    static_cast<void>(system_->remove(path_));
    path_.clear();
  }
}

void sweepPrivatePipes(System& system) {
  std::vector<std::string> names;
  if (system.list(pipeDirectory, prefix, names) < 0) {
    return;
  }
  for (const std::string& name : names) {
    if (isPrivatePipeName(name)) {
      sweepOne(system, std::string(pipeDirectory) + "/" + name);
    }
  }
}

}  // namespace EvtSrv::internal
