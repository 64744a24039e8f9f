#include "bench/baseline_pipes.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <stdexcept>
#include <string>

namespace bench {

namespace {

constexpr std::size_t requestSize = 20;
constexpr std::size_t replySize = 18;

/// Waits for a message and reads it; false at the end of input or on an error.
bool receive(int descriptor, std::size_t size) {
  std::array<char, 64> buffer{};
  pollfd waited{descriptor, POLLIN, 0};
  return ::poll(&waited, 1, -1) == 1 &&
         ::read(descriptor, buffer.data(), size) == static_cast<ssize_t>(size);
}

bool send(int descriptor, std::size_t size) {
  const std::array<char, 64> buffer{};
  return ::write(descriptor, buffer.data(), size) == static_cast<ssize_t>(size);
}

/// A named pipe, open for reading and writing, so that opening it does not wait for the other
/// process.
int openPipe(const char* purpose) {
  const std::string path = "/tmp/treescope-bench-" + std::to_string(::getpid()) + purpose;
  const bool made = ::mkfifo(path.c_str(), 0600) == 0;
  const int descriptor = made ? ::open(path.c_str(), O_RDWR | O_CLOEXEC) : -1;
  if (made) {
    ::unlink(path.c_str());
  }
  if (descriptor < 0) {
    throw std::runtime_error("cannot create a named pipe " + path);
  }
  return descriptor;
}

}  // namespace

BaselinePipes::BaselinePipes(std::optional<unsigned> processor)
    : requests_(openPipe("-requests")), replies_(openPipe("-replies")) {
  server_ = std::make_unique<Child>([this, processor] {
    const bool placed = !processor.has_value() || pinTo(*processor);
    while (placed && receive(requests_, requestSize) && send(replies_, replySize)) {
    }
  });
}

BaselinePipes::~BaselinePipes() {
  ::close(requests_);
  ::close(replies_);
}

bool BaselinePipes::roundTrip() const {
  return send(requests_, requestSize) && receive(replies_, replySize);
}

}  // namespace bench
