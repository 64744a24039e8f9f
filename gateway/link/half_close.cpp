#include "gateway/link/half_close.h"

#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <utility>

namespace modelgate {

HalfClose::HalfClose(EventLoop& loop, int descriptor, std::function<void()> done)
    : loop_(loop), descriptor_(descriptor), done_(std::move(done)) {
  // If the peer has gone, the first read says so.
  static_cast<void>(::shutdown(descriptor_, SHUT_WR));
  loop_.watch(descriptor_, POLLIN, [this] { read(); });
}

HalfClose::~HalfClose() {
  loop_.unwatch(descriptor_);
  ::close(descriptor_);
}

void HalfClose::read() {
  std::array<char, 4096> bytes{};
  const ssize_t length = ::read(descriptor_, bytes.data(), bytes.size());
  if (length == 0 || (length < 0 && errno != EAGAIN && errno != EINTR)) {
    loop_.unwatch(descriptor_);
    const std::function<void()> done = std::move(done_);
    done();
  }
}

}  // namespace modelgate
