#include "modelsrv/source/watch_timer.h"

#include <algorithm>
#include <array>
#include <limits>

namespace ModelSrv::internal {

bool WatchTimer::add(Listener& listener) {
  core_.clientMutex().assertHeld();
  listeners_.reserve(listeners_.size() + 1);
  if (!timer_.isOpen() && (timer_.adopt(core_.system(), core_.system().createTimer()) < 0 ||
                           core_.reactor().add(timer_.number(), EPOLLIN, *this, 0, onTimer_) < 0)) {
    close();
    return false;
  }
  listeners_.push_back(&listener);
  return true;
}

void WatchTimer::remove(const Listener& listener) {
  core_.clientMutex().assertHeld();
  std::erase(listeners_, &listener);
  if (listeners_.empty()) {
    close();
  }
}

void WatchTimer::close() {
  onTimer_.end();
  timer_.reset();
  expiresAt_ = 0;
}

void WatchTimer::callAt(std::int64_t timeMs) {
  if (expiresAt_ != 0 && expiresAt_ <= timeMs) {
    return;
  }
  constexpr std::int64_t longest = std::numeric_limits<int>::max();
  const std::int64_t wait = std::clamp<std::int64_t>(timeMs - core_.system().nowMs(), 1, longest);
  if (core_.system().setTimer(timer_.number(), static_cast<int>(wait)) == 0) {
    expiresAt_ = timeMs;
  }
}

bool WatchTimer::ready(unsigned /*role*/, std::uint32_t /*events*/) {
  core_.clientMutex().assertHeld();
  std::array<std::uint8_t, sizeof(std::uint64_t)> expirations{};
  if (core_.system().read(timer_.number(), expirations) <= 0) {
    return false;
  }
  expiresAt_ = 0;
  const std::int64_t now = core_.system().nowMs();
  std::int64_t next = 0;
  for (Listener* const listener : listeners_) {
    const std::int64_t time = listener->timeReached(now);
    if (time != 0 && (next == 0 || time < next)) {
      next = time;
    }
  }
  if (next != 0) {
    callAt(next);
  }
  return false;
}

}  // namespace ModelSrv::internal
