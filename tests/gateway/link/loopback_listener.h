#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstdint>

#include "tests/support/descriptor.h"
#include "tests/support/process.h"

namespace gateway_test {

/// A TCP socket that listens at a free port of 127.0.0.1, for one client at a time.
class LoopbackListener {
 public:
  LoopbackListener() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    if (::bind(get(), reinterpret_cast<sockaddr*>(&address), size) != 0 ||
        ::listen(get(), 1) != 0 ||
        ::getsockname(get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
      test_support::throwError("bind");
    }
    port_ = ntohs(address.sin_port);
  }

  [[nodiscard]] int get() const { return socket_.get(); }
  [[nodiscard]] std::uint16_t port() const { return port_; }

 private:
  test_support::Descriptor socket_;
  std::uint16_t port_ = 0;
};

}  // namespace gateway_test
