#include "servers/change_pacer.h"

#include <algorithm>

namespace modelsrvd {

std::uint64_t ChangePacer::total(Clock::time_point now) const {
  using std::chrono::microseconds;
  const auto passed = std::chrono::duration_cast<microseconds>(now - start_).count();
  // At a million changes per second the product overflows after half a year;
  // `take` moves the start every hour.
  return static_cast<std::uint64_t>(std::max<microseconds::rep>(passed, 0)) * rate_ / 1000000;
}

std::uint32_t ChangePacer::take(Clock::time_point now) {
  using std::chrono::hours;
  const std::uint64_t target = total(now);
  if (target <= made_) {
    return 0;
  }
  const std::uint64_t limit = std::max<std::uint64_t>(
      1, std::uint64_t{rate_} * static_cast<std::uint64_t>(maxBacklog.count()) / 1000);
  const auto count = static_cast<std::uint32_t>(std::min(target - made_, limit));
  made_ = target;
  if (now - start_ >= hours(1)) {
    // An hour contains a whole number of changes, so the rate stays exact.
    start_ += hours(1);
    made_ -= std::uint64_t{rate_} * 3600;
  }
  return count;
}

std::chrono::milliseconds ChangePacer::wait(Clock::time_point now) const {
  using std::chrono::microseconds;
  using std::chrono::milliseconds;
  if (total(now) > made_) {
    return milliseconds(0);
  }
  // The microsecond after the start at which the next change is to be made.
  const std::uint64_t next = ((made_ + 1) * 1000000 + rate_ - 1) / rate_;
  const auto left = start_ + microseconds(next) - now;
  return std::max(std::chrono::ceil<milliseconds>(left), milliseconds(1));
}

}  // namespace modelsrvd
