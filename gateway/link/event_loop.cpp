#include "gateway/link/event_loop.h"

#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdint>
#include <map>
#include <mutex>
#include <system_error>
#include <utility>
#include <vector>

namespace modelgate {

namespace {

using Clock = EventLoop::Clock;

[[noreturn]] void throwErrno(const char* call) {
  throw std::system_error(errno, std::generic_category(), call);
}

/// How long epoll_wait may wait for `deadline`, rounded up, so that a timer is never early.
int waitUntil(Clock::time_point deadline) {
  if (deadline == Clock::time_point::max()) {
    return -1;
  }
  const auto left = deadline - Clock::now();
  if (left <= Clock::duration::zero()) {
    return 0;
  }
  const auto milliseconds = std::chrono::ceil<std::chrono::milliseconds>(left).count();
  return static_cast<int>(std::min<decltype(milliseconds)>(milliseconds, INT_MAX));
}

}  // namespace

using TimerQueue = std::multimap<Clock::time_point, std::shared_ptr<EventLoop::Timer::Entry>>;

struct EventLoop::Timer::Entry {
  TimerQueue* queue = nullptr;  ///< null once it has fired or was cancelled
  TimerQueue::iterator position;
  Handler handler;
};

struct EventLoop::State {
  struct Watched {
    std::uint32_t generation = 0;
    std::shared_ptr<Handler> handler;
  };

  int epoll = -1;
  int wakeUp = -1;
  std::map<int, Watched> watched;
  std::uint32_t generation = 0;
  TimerQueue timers;
  std::atomic<bool> stopped{false};
  std::mutex mutex;
  std::vector<Handler> posted;  ///< protected by `mutex`

  State() {
    epoll = ::epoll_create1(EPOLL_CLOEXEC);
    if (epoll < 0) {
      throwErrno("epoll_create1");
    }
    wakeUp = ::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    epoll_event event{};
    event.events = EPOLLIN;
    event.data.u64 = static_cast<std::uint32_t>(wakeUp);
    if (wakeUp < 0 || ::epoll_ctl(epoll, EPOLL_CTL_ADD, wakeUp, &event) != 0) {
      const int error = errno;
      close();
      throw std::system_error(error, std::generic_category(), "eventfd");
    }
  }

  ~State() {
    for (auto& [when, entry] : timers) {
      entry->queue = nullptr;
    }
    close();
  }

  State(const State&) = delete;
  State& operator=(const State&) = delete;

  void close() const {
    ::close(epoll);
    if (wakeUp >= 0) {
      ::close(wakeUp);
    }
  }

  void wake() const {
    const std::uint64_t one = 1;
    // It fails only if the counter is full, and then the loop wakes up anyway.
    const ssize_t written = ::write(wakeUp, &one, sizeof one);
    static_cast<void>(written);
  }

  void runPosted() {
    std::uint64_t count = 0;
    // It fails only if another wake-up has been read since.
    const ssize_t taken = ::read(wakeUp, &count, sizeof count);
    static_cast<void>(taken);
    std::vector<Handler> handlers;
    {
      const std::lock_guard lock(mutex);
      handlers.swap(posted);
    }
    for (const Handler& handler : handlers) {
      handler();
    }
  }

  void runWatched(std::uint64_t tag) {
    const auto found = watched.find(static_cast<int>(tag & UINT32_MAX));
    // A handler before it may have removed this one, or replaced it for a new descriptor.
    if (found == watched.end() || found->second.generation != tag >> 32) {
      return;
    }
    const std::shared_ptr<Handler> handler = found->second.handler;
    (*handler)();
  }

  void runTimers() {
    const Clock::time_point now = Clock::now();
    // A handler that begins a timer which is already due must not keep out the descriptors.
    std::size_t limit = timers.size();
    while (limit-- > 0 && !timers.empty() && timers.begin()->first <= now) {
      const std::shared_ptr<Timer::Entry> entry = timers.begin()->second;
      timers.erase(timers.begin());
      entry->queue = nullptr;
      // The handler may destroy the timer, and with it the entry's handler.
      const Handler handler = std::move(entry->handler);
      handler();
    }
  }

  void step(Clock::time_point deadline) {
    if (!timers.empty()) {
      deadline = std::min(deadline, timers.begin()->first);
    }
    std::array<epoll_event, 64> events{};
    const int count = ::epoll_wait(epoll, events.data(), static_cast<int>(events.size()),
                                   stopped ? 0 : waitUntil(deadline));
    if (count < 0 && errno != EINTR) {
      throwErrno("epoll_wait");
    }
    // Input comes before timers: whether a peer was silent is judged after what it has sent.
    for (int index = 0; index < count; ++index) {
      const std::uint64_t tag = events[static_cast<std::size_t>(index)].data.u64;
      if (tag == static_cast<std::uint32_t>(wakeUp)) {
        runPosted();
      } else {
        runWatched(tag);
      }
    }
    runTimers();
  }
};

EventLoop::EventLoop() : state_(std::make_unique<State>()) {}
EventLoop::~EventLoop() = default;

void EventLoop::watch(int descriptor, short events, Handler handler) {
  const auto found = state_->watched.find(descriptor);
  const bool known = found != state_->watched.end();
  // No descriptor has generation 0, which is that of the eventfd.
  const std::uint32_t generation =
      known ? found->second.generation : std::max<std::uint32_t>(++state_->generation, 1);
  epoll_event event{};
  // The bits of epoll are those of poll.
  event.events = static_cast<std::uint16_t>(events);
  event.data.u64 = std::uint64_t{generation} << 32 |
                   static_cast<std::uint64_t>(static_cast<unsigned>(descriptor));
  if (::epoll_ctl(state_->epoll, known ? EPOLL_CTL_MOD : EPOLL_CTL_ADD, descriptor, &event) != 0) {
    throwErrno("epoll_ctl");
  }
  state_->watched[descriptor] = {generation, std::make_shared<Handler>(std::move(handler))};
}

void EventLoop::unwatch(int descriptor) {
  if (state_->watched.erase(descriptor) != 0) {
    // It fails if the descriptor was closed, which has removed it.
    static_cast<void>(::epoll_ctl(state_->epoll, EPOLL_CTL_DEL, descriptor, nullptr));
  }
}

EventLoop::Timer::Timer() noexcept = default;
EventLoop::Timer::Timer(std::shared_ptr<Entry> entry) noexcept : entry_(std::move(entry)) {}
EventLoop::Timer::Timer(Timer&&) noexcept = default;

EventLoop::Timer& EventLoop::Timer::operator=(Timer&& other) noexcept {
  // The timer that this one was ends with `former`.
  const Timer former(std::exchange(entry_, std::move(other.entry_)));
  return *this;
}

EventLoop::Timer::~Timer() {
  if (entry_ && entry_->queue != nullptr) {
    entry_->queue->erase(entry_->position);
  }
}

EventLoop::Timer EventLoop::at(Clock::time_point when, Handler handler) {
  auto entry = std::make_shared<Timer::Entry>();
  entry->handler = std::move(handler);
  entry->position = state_->timers.emplace(when, entry);
  entry->queue = &state_->timers;
  return Timer(std::move(entry));
}

EventLoop::Timer EventLoop::after(Clock::duration delay, Handler handler) {
  return at(Clock::now() + delay, std::move(handler));
}

void EventLoop::post(Handler handler) {
  bool first = false;
  {
    const std::lock_guard lock(state_->mutex);
    first = state_->posted.empty();
    state_->posted.push_back(std::move(handler));
  }
  if (first) {
    state_->wake();
  }
}

void EventLoop::run() {
  while (!state_->stopped.exchange(false)) {
    state_->step(Clock::time_point::max());
  }
}

void EventLoop::runOnce(Clock::time_point deadline) {
  state_->step(deadline);
}

void EventLoop::stop() {
  state_->stopped = true;
  state_->wake();
}

}  // namespace modelgate
