#include "tools/display/trace.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace treectl {

namespace {

constexpr double none = std::numeric_limits<double>::quiet_NaN();

}  // namespace

void Trace::add(std::int64_t time, double value) {
  if (!std::isfinite(value)) {
    addGap(time);
    return;
  }
  // Far from where the difference of two values overflows.
  constexpr double most = 1e300;
  value = std::clamp(value, -most, most);
  Bin& bin = binAt(time);
  bin.least = std::isnan(bin.least) ? value : std::min(bin.least, value);
  bin.greatest = std::isnan(bin.greatest) ? value : std::max(bin.greatest, value);
  bin.last = value;
}

void Trace::addGap(std::int64_t time) {
  binAt(time).last = none;
}

Trace::Bin& Trace::binAt(std::int64_t time) {
  const std::int64_t begin = time - time % binLength;
  if (bins_.empty() || bins_.back().time < begin) {
    bins_.push_back({begin, none, none, none});
  }
  while (bins_.size() > 1 && bins_[1].time <= bins_.back().time - window - binLength) {
    bins_.pop_front();
  }
  return bins_.back();
}

}  // namespace treectl
