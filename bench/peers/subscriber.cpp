#include "bench/peers/subscriber.h"

#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>

namespace bench::peers {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds timeout{20};
constexpr std::chrono::milliseconds quietTime{20};

}  // namespace

Subscriber::Subscriber(const Body& body) {
  void* const page =
      ::mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page == MAP_FAILED) {
    throw std::runtime_error("mmap");
  }
  count_ = new (page) Count(0);
  const Pipe started;
  child_ = std::make_unique<Child>([&] {
    try {
      body(*count_, [&started] {
        if (::write(started.writing, "r", 1) != 1) {
          throw std::runtime_error("write");
        }
      });
    } catch (const std::exception& error) {
      // The exception must not leave this process's only function.
      std::fprintf(stderr, "subscriber: %s\n", error.what());
    }
  });
  ::close(started.writing);
  char ready = '\0';
  const ssize_t count = ::read(started.reading, &ready, 1);
  ::close(started.reading);
  if (count != 1) {
    throw std::runtime_error("a subscriber did not start");
  }
}

Subscriber::~Subscriber() {
  child_.reset();
  ::munmap(count_, sizeof(Count));
}

void Subscriber::await(unsigned long count) const {
  const Clock::time_point begin = Clock::now();
  while (count_->load() < count) {
    if (Clock::now() - begin > timeout) {
      throw std::runtime_error("updates are missing");
    }
    ::poll(nullptr, 0, 1);
  }
}

Clock::time_point Subscriber::awaitQuiet() const {
  const Clock::time_point begin = Clock::now();
  Clock::time_point last = begin;
  unsigned long seen = count_->load();
  while (Clock::now() - last < quietTime) {
    if (Clock::now() - begin > timeout) {
      throw std::runtime_error("updates do not end");
    }
    ::poll(nullptr, 0, 1);
    const unsigned long now = count_->load();
    if (now != seen) {
      seen = now;
      last = Clock::now();
    }
  }
  return last;
}

}  // namespace bench::peers
