#include "gateway/viewer/device_presence.h"

#include <algorithm>

namespace modelgate {

void DevicePresence::stated(const Statement& statement, Time now) {
  const bool isNews = !statement.retained || statement.epoch != statement_.epoch ||
                      statement.monotonic != statement_.monotonic;
  statement_ = statement;
  isConfirmed_ = true;
  if (!statement.retained && statement.online) {
    lastHeard_ = now;
  } else if (!statement.retained) {
    // Perhaps its will, which the broker has sent.
    lastHeard_ = lastHeard_.value_or(now);
  } else if (statement.age) {
    const Time said = now - *statement.age;
    lastHeard_ = std::max(lastHeard_.value_or(said), said);
  }
  if (!statement.online) {
    state_ = State::offline;
  } else if (state_ != State::silent || isNews) {
    state_ = State::online;
    // It has a whole period to be heard, since the broker may have kept this for long.
    watchBegan_ = std::max(watchBegan_, now);
  }
}

void DevicePresence::cleared() {
  statement_ = {};
  if (state_ != State::unknown) {
    state_ = State::offline;
  }
}

void DevicePresence::heard(Time now) {
  lastHeard_ = now;
  isConfirmed_ = true;
  if (state_ == State::silent) {
    state_ = State::online;
  }
}

void DevicePresence::connected(Time now) {
  isConnected_ = true;
  isConfirmed_ = false;
  connectionChanged_ = now;
}

void DevicePresence::disconnected(Time now) {
  if (isConnected_) {
    isConnected_ = false;
    connectionChanged_ = now;
  }
}

void DevicePresence::watch(bool watched, Time now) {
  if (watched && !isWatched_) {
    watchBegan_ = now;
  }
  isWatched_ = watched;
}

DevicePresence::Clock::duration DevicePresence::limit() const {
  using std::chrono::milliseconds;
  const auto heartbeat =
      std::clamp<milliseconds>(statement_.heartbeat, milliseconds(20), std::chrono::hours(1));
  return heartbeat * 5 / 2;
}

std::optional<DevicePresence::Time> DevicePresence::deadline() const {
  if (state_ != State::online) {
    return std::nullopt;
  }
  if (!isConnected_ || !isConfirmed_) {
    return connectionChanged_ + limit();
  }
  if (!isWatched_) {
    return std::nullopt;
  }
  return std::max({lastHeard_.value_or(Time()), watchBegan_, connectionChanged_}) + limit();
}

void DevicePresence::advance(Time now) {
  if (const auto due = deadline(); due && now >= *due) {
    state_ = State::silent;
  }
}

}  // namespace modelgate
