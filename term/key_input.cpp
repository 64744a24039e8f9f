#include "term/key_input.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cstdint>

#include "term/standard_output.h"

namespace treescope {

namespace {

constexpr int noDescriptor = -1;

// An event descriptor rather than a flag: a request that arrives between the check and
// the wait ends the wait.
std::atomic<int> requestDescriptor{noDescriptor};
static_assert(std::atomic<int>::is_always_lock_free, "signal handlers read it");

bool takeRequest(int descriptor) {
  std::uint64_t requests = 0;
  return read(descriptor, &requests, sizeof requests) == sizeof requests;
}

struct Ready {
  bool key = false;
  bool request = false;
};

Ready waitForInput(int requests) {
  std::array<pollfd, 2> descriptors{{{STDIN_FILENO, POLLIN, 0}, {requests, POLLIN, 0}}};
  if (poll(descriptors.data(), descriptors.size(), -1) == -1) {
    // If poll(2) is out of memory, read(2) waits instead.
    return {.key = errno != EINTR, .request = false};
  }
  return {.key = descriptors[0].revents != 0, .request = descriptors[1].revents != 0};
}

}  // namespace

int readKeyByte(const std::function<void()>& repaint) {
  for (;;) {
    flushOutput();
    const int requests = requestDescriptor;
    const Ready ready = waitForInput(requests);
    if (ready.request && takeRequest(requests) && repaint) {
      repaint();
      continue;
    }
    if (!ready.key) {
      continue;
    }
    unsigned char byte = 0;
    const ssize_t count = read(STDIN_FILENO, &byte, 1);
    if (count == 1) {
      return byte;
    }
    if (count == 0 || (errno != EINTR && errno != EAGAIN)) {
      return endOfKeys;
    }
  }
}

bool keyWaiting() {
  pollfd input{STDIN_FILENO, POLLIN, 0};
  return poll(&input, 1, 0) == 1 && (input.revents & POLLIN) != 0;
}

void requestRepaint() noexcept {
  const int savedErrno = errno;
  const int descriptor = requestDescriptor;
  constexpr std::uint64_t one = 1;
  if (descriptor != noDescriptor && write(descriptor, &one, sizeof one) == -1) {
    // The counter is full: a repaint is pending already.
    errno = savedErrno;
  }
}

RepaintRequests::RepaintRequests() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  requestDescriptor = descriptor_;
}

RepaintRequests::~RepaintRequests() {
  requestDescriptor = noDescriptor;
  if (descriptor_ != noDescriptor) {
    close(descriptor_);
  }
}

}  // namespace treescope
