#include "servers/service_notifier.h"

#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include <cerrno>
#include <cstddef>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace modelsrvd {

namespace {

Error notifyError(const std::string& socket, const std::string& what) {
  return {"NOTIFY_SOCKET " + oneLine(socket) + ": " + what};
}

}  // namespace

ServiceNotifier::ServiceNotifier() {
  const char* const socket = std::getenv("NOTIFY_SOCKET");
  socket_ = socket != nullptr ? socket : "";
}

std::optional<Error> ServiceNotifier::ready() const {
  return send("READY=1");
}

std::optional<Error> ServiceNotifier::reloading() const {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const long long microseconds = static_cast<long long>(now.tv_sec) * 1000000 + now.tv_nsec / 1000;
  return send("RELOADING=1\nMONOTONIC_USEC=" + std::to_string(microseconds));
}

std::optional<Error> ServiceNotifier::stopping() const {
  return send("STOPPING=1");
}

std::optional<Error> ServiceNotifier::send(const std::string& state) const {
  if (socket_.empty()) {
    return std::nullopt;
  }
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if ((socket_[0] != '/' && socket_[0] != '@') || socket_.size() >= sizeof address.sun_path) {
    return notifyError(socket_, "expected a path or an abstract name");
  }
  std::memcpy(address.sun_path, socket_.data(), socket_.size());
  if (socket_[0] == '@') {
    address.sun_path[0] = '\0';
  }
  const int descriptor = ::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (descriptor < 0) {
    return notifyError(socket_, std::strerror(errno));
  }
  const timeval limit{1, 0};
  ::setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
  ssize_t sent = 0;
  do {
    sent = ::sendto(descriptor, state.data(), state.size(), MSG_NOSIGNAL,
                    reinterpret_cast<const sockaddr*>(&address), length);
  } while (sent < 0 && errno == EINTR);
  const int code = sent < 0 ? errno : 0;
  ::close(descriptor);
  return code == 0 ? std::nullopt : std::optional(notifyError(socket_, std::strerror(code)));
}

}  // namespace modelsrvd
