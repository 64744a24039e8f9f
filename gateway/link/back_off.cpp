#include "gateway/link/back_off.h"

#include <algorithm>

namespace modelgate {

BackOff::milliseconds BackOff::lost(Clock::time_point now) {
  // Only a connection that has lasted shows that the trouble is over.
  if (connected_ != Clock::time_point() && now - connected_ >= longest) {
    next_ = first;
  }
  connected_ = {};
  const milliseconds most = next_;
  next_ = std::min(next_ * 2, longest);
  std::uniform_int_distribution<milliseconds::rep> random(most.count() / 2, most.count());
  return std::max(first, milliseconds(random(random_)));
}

}  // namespace modelgate
