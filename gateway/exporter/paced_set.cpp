#include "gateway/exporter/paced_set.h"

namespace modelgate {

void PacedSet::mark(std::size_t number) {
  Thing& thing = things_[number];
  if (!thing.isMarked) {
    thing.isMarked = true;
    due_.emplace(thing.next, number);
  }
}

void PacedSet::markAll() {
  due_.clear();
  for (std::size_t number = 0; number < things_.size(); ++number) {
    things_[number] = {Clock::time_point::min(), true};
    due_.emplace_hint(due_.end(), Clock::time_point::min(), number);
  }
}

std::optional<PacedSet::Clock::time_point> PacedSet::deadline() const {
  return due_.empty() ? std::nullopt : std::optional(due_.begin()->first);
}

std::optional<std::size_t> PacedSet::take(Clock::time_point now) {
  if (due_.empty() || due_.begin()->first > now) {
    return std::nullopt;
  }
  const std::size_t number = due_.begin()->second;
  due_.erase(due_.begin());
  things_[number] = {now + period_, false};
  return number;
}

}  // namespace modelgate
