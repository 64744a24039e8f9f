#include "tools/watch_pacer.h"

#include <limits>

namespace treectl {

bool WatchPacer::admit(const Change& change, Clock::time_point now) {
  Slot& slot = slots_[change.address];
  if (slot.waiting) {
    const std::uint32_t before = slot.waiting->changes;
    constexpr std::uint32_t most = std::numeric_limits<std::uint32_t>::max();
    slot.waiting = change;
    slot.waiting->changes = before > most - change.changes ? most : before + change.changes;
    return false;
  }
  if (now < slot.next) {
    slot.waiting = change;
    waiting_.emplace(slot.next, &slot);
    return false;
  }
  slot.next = now + interval_;
  return true;
}

std::vector<Change> WatchPacer::takeDue(Clock::time_point now) {
  std::vector<Change> due;
  while (!waiting_.empty() && waiting_.top().first <= now) {
    Slot& slot = *waiting_.top().second;
    waiting_.pop();
    due.push_back(std::move(*slot.waiting));
    slot.waiting.reset();
    slot.next = now + interval_;
  }
  return due;
}

std::vector<Change> WatchPacer::takeAll() {
  std::vector<Change> all;
  for (; !waiting_.empty(); waiting_.pop()) {
    all.push_back(std::move(*waiting_.top().second->waiting));
    waiting_.top().second->waiting.reset();
  }
  return all;
}

std::optional<WatchPacer::Clock::time_point> WatchPacer::deadline() const {
  return waiting_.empty() ? std::nullopt : std::optional(waiting_.top().first);
}

}  // namespace treectl
