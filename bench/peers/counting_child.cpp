#include "bench/peers/counting_child.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <exception>
#include <new>
#include <stdexcept>

namespace bench::peers {

namespace {

using Clock = std::chrono::steady_clock;

double secondsSince(Clock::time_point begin) {
  return std::chrono::duration<double>(Clock::now() - begin).count();
}

}  // namespace

CountingChild::CountingChild(
    const std::function<void(Count& count, const std::function<void()>& ready)>& body) {
  void* const page =
      ::mmap(nullptr, sizeof(Count), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  std::array<int, 2> ends{};
  if (page == MAP_FAILED || ::pipe2(ends.data(), O_CLOEXEC) != 0) {
    throw std::runtime_error("no shared page or pipe");
  }
  count_ = new (page) Count(0);
  child_ = std::make_unique<Child>([&] {
    try {
      body(*count_, [&ends] {
        if (::write(ends[1], "r", 1) != 1) {
          throw std::runtime_error("nobody waits for the subscriber");
        }
      });
    } catch (const std::exception& error) {
      // Nothing of the parent's may be taken down by this process.
      std::fprintf(stderr, "a subscriber: %s\n", error.what());
    }
  });
  ::close(ends[1]);
  char ready = '\0';
  const ssize_t taken = ::read(ends[0], &ready, 1);
  ::close(ends[0]);
  if (taken != 1) {
    throw std::runtime_error("a subscriber did not start");
  }
}

CountingChild::~CountingChild() {
  child_.reset();
  ::munmap(count_, sizeof(Count));
}

void CountingChild::await(unsigned long count) const {
  const Clock::time_point begin = Clock::now();
  while (count_->load() < count) {
    if (secondsSince(begin) > 20) {
      throw std::runtime_error("updates are missing");
    }
    ::poll(nullptr, 0, 1);
  }
}

Clock::time_point CountingChild::awaitQuiet() const {
  const Clock::time_point begin = Clock::now();
  Clock::time_point last = begin;
  unsigned long seen = count_->load();
  while (secondsSince(last) < 0.02) {
    if (secondsSince(begin) > 20) {
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

double arrivalRate(const CountingChild& subscriber, unsigned long number,
                   const std::function<void()>& send) {
  const unsigned long before = subscriber.count();
  const Clock::time_point begin = Clock::now();
  send();
  subscriber.await(before + number);
  return static_cast<double>(number) / secondsSince(begin) / 1e3;
}

double repetitionRate(unsigned long number, const std::function<void(unsigned long)>& step) {
  const Clock::time_point begin = Clock::now();
  for (unsigned long i = 0; i < number; ++i) {
    step(i);
  }
  return static_cast<double>(number) / secondsSince(begin) / 1e3;
}

}  // namespace bench::peers
