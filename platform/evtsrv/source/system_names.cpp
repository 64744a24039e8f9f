// The calls of PosixSystem that claim addresses and watch files.

#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstring>

#include "evtsrv/source/file_descriptor.h"
#include "evtsrv/source/system.h"
#include "evtsrv/source/value_or_errno.h"

namespace EvtSrv::internal {

namespace {

static_assert(maxAddress < sizeof(sockaddr_un::sun_path));

/// Calls bind(2) or connect(2) with an abstract address: a zero byte and the name.
template <typename Call>
int withAddress(Call call, int socket, std::string_view name) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::size_t size = std::min(name.size(), maxAddress);
  std::copy_n(name.begin(), size, address.sun_path + 1);
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + size);
  return valueOrErrno(call(socket, reinterpret_cast<const sockaddr*>(&address), length));
}

// How long a connection waits for space in the queue of a server that is busy.
constexpr timeval connectTime{1, 0};

int makeSocket(int flags) {
  return valueOrErrno(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | flags, 0));
}

}  // namespace

int PosixSystem::claimAddress(std::string_view name) {
  const int socket = makeSocket(SOCK_NONBLOCK);
  int result = socket < 0 ? socket : withAddress(::bind, socket, name);
  if (result == 0) {
    result = valueOrErrno(::listen(socket, SOMAXCONN));
  }
  if (result < 0 && socket >= 0) {
    close(socket);
  }
  return result < 0 ? result : socket;
}

int PosixSystem::holderOfAddress(std::string_view name, uid_t& user) {
  FileDescriptor socket;
  int result = socket.adopt(*this, makeSocket(0));
  if (result == 0) {
    result = valueOrErrno(
        ::setsockopt(socket.number(), SOL_SOCKET, SO_SNDTIMEO, &connectTime, sizeof connectTime));
  }
  if (result == 0) {
    constexpr int maxAttempts = 100;
    result = -EINTR;
    for (int attempt = 0; result == -EINTR && attempt < maxAttempts; ++attempt) {
      result = withAddress(::connect, socket.number(), name);
    }
  }
  ucred holder{};
  socklen_t size = sizeof holder;
  if (result == 0) {
    result = valueOrErrno(::getsockopt(socket.number(), SOL_SOCKET, SO_PEERCRED, &holder, &size));
  }
  if (result == 0) {
    user = holder.uid;
  }
  return result;
}

int PosixSystem::acceptConnection(int socket) {
  int result = -EINTR;
  while (result == -EINTR || result == -ECONNABORTED) {
    result = valueOrErrno(::accept4(socket, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
  }
  return result;
}

int PosixSystem::createWatch() {
  return valueOrErrno(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK));
}

int PosixSystem::addWatch(int watch, const std::string& path, std::uint32_t events) {
  return valueOrErrno(::inotify_add_watch(watch, path.c_str(), events | IN_DONT_FOLLOW));
}

void PosixSystem::removeWatch(int watch, int number) {
  // It fails only if the file, and the watch with it, is gone.
  static_cast<void>(::inotify_rm_watch(watch, number));
}

std::optional<WatchEvent> takeWatchEvent(std::span<const std::uint8_t>& bytes) {
  inotify_event header{};
  if (bytes.size() < sizeof header) {
    return std::nullopt;
  }
  std::memcpy(&header, bytes.data(), sizeof header);
  const auto rest = bytes.subspan(sizeof header);
  if (header.len > rest.size()) {
    return std::nullopt;
  }
  bytes = rest.subspan(header.len);
  // The name is padded with zero bytes.
  const auto* const name = reinterpret_cast<const char*>(rest.data());
  return WatchEvent{header.mask, header.wd, {name, ::strnlen(name, header.len)}};
}

}  // namespace EvtSrv::internal
