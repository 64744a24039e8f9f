#include "bench/peers/unix_stream.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

namespace bench::peers {

namespace {

/// -1 where there is nobody.
int connectTo(const std::string& path) {
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  if (path.size() >= sizeof address.sun_path) {
    throw std::runtime_error("too long a name for a socket: " + path);
  }
  path.copy(address.sun_path, path.size());
  const int socket = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  if (socket >= 0 &&
      ::connect(socket, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0) {
    return socket;
  }
  if (socket >= 0) {
    ::close(socket);
  }
  return -1;
}

}  // namespace

bool UnixStream::canConnect(const std::string& path) {
  const int socket = connectTo(path);
  if (socket >= 0) {
    ::close(socket);
  }
  return socket >= 0;
}

UnixStream::UnixStream(const std::string& path) : socket_(connectTo(path)), buffer_(65536, '\0') {
  if (socket_ < 0) {
    throw std::runtime_error("nobody serves " + path);
  }
}

UnixStream::~UnixStream() {
  ::close(socket_);
}

void UnixStream::send(std::string_view bytes) const {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) {
      throw std::runtime_error("a server has closed the connection");
    }
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
}

std::string_view UnixStream::receive() {
  const ssize_t count = ::recv(socket_, buffer_.data(), buffer_.size(), 0);
  if (count <= 0) {
    throw std::runtime_error("a server has closed the connection");
  }
  return {buffer_.data(), static_cast<std::size_t>(count)};
}

void UnixStream::skip(std::size_t count) {
  while (count > 0) {
    const ssize_t taken = ::recv(socket_, buffer_.data(), std::min(count, buffer_.size()), 0);
    if (taken <= 0) {
      throw std::runtime_error("a server has closed the connection");
    }
    count -= static_cast<std::size_t>(taken);
  }
}

}  // namespace bench::peers
