#include "gateway/exporter/presence.h"

#include <algorithm>

namespace modelgate {

void Presence::takenOver(Clock::time_point now) {
  if (role_ != Role::working) {
    return;
  }
  // Two that take over from each other do so less and less often.
  const bool isRepeated = takenOverAt_ && now - *takenOverAt_ < 2 * longestPause;
  pause_ = isRepeated ? std::min<Clock::duration>(2 * pause_, longestPause) : firstPause;
  takenOverAt_ = now;
  role_ = Role::waiting;
  next_ = now + pause_;
  conflictUntil_.reset();
}

void Presence::subscribed(Clock::time_point now) {
  if (role_ == Role::looking) {
    next_ = now + lookTime;
  }
}

void Presence::disconnected() {
  if (role_ == Role::passive || role_ == Role::looking) {
    role_ = Role::looking;
    next_.reset();
  }
}

void Presence::seen(const std::optional<DeviceState>& state, Clock::time_point now) {
  if (role_ != Role::looking && role_ != Role::passive) {
    return;
  }
  if (!state || !state->online) {
    work();
  } else if (state->epoch != epoch_ && role_ == Role::looking) {
    role_ = Role::passive;
    next_ = now;
  }
}

void Presence::noted(std::uint64_t epoch, Clock::time_point now) {
  if (role_ == Role::working && epoch != epoch_) {
    conflictUntil_ = now + noteTime;
  }
}

std::optional<Presence::Clock::time_point> Presence::deadline() const {
  return role_ == Role::working ? conflictUntil_ : next_;
}

bool Presence::tick(Clock::time_point now) {
  if (conflictUntil_ && *conflictUntil_ <= now) {
    conflictUntil_.reset();
  }
  if (!next_ || *next_ > now) {
    return false;
  }
  switch (role_) {
    case Role::working:
      return false;
    case Role::waiting:
      role_ = Role::looking;
      next_.reset();
      return false;
    case Role::looking:
      work();
      return false;
    case Role::passive:
      next_ = now + notePeriod;
      return true;
  }
  return false;
}

void Presence::work() {
  role_ = Role::working;
  next_.reset();
}

}  // namespace modelgate
