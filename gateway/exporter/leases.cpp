#include "gateway/exporter/leases.h"

#include <algorithm>

namespace modelgate {

bool Leases::renew(const std::string& holder, std::vector<ModelSrv::ModelPartId> chain,
                   Clock::time_point now) {
  const Key key(holder, std::move(chain));
  const auto found = leases_.find(key);
  if (found == leases_.end() && leases_.size() >= maxLeases) {
    return false;
  }
  leases_[key] = now + duration;
  return true;
}

bool Leases::expire(Clock::time_point now) {
  return std::erase_if(leases_, [now](const auto& lease) { return lease.second <= now; }) > 0;
}

std::optional<Leases::Clock::time_point> Leases::deadline() const {
  const auto first = std::min_element(
      leases_.begin(), leases_.end(),
      [](const auto& one, const auto& other) { return one.second < other.second; });
  return first == leases_.end() ? std::nullopt : std::optional(first->second);
}

std::vector<PositionRange> Leases::ranges(const TreeIndex& index) const {
  std::vector<PositionRange> all;
  for (const auto& [key, end] : leases_) {
    const std::optional<Position> top = index.find(key.second);
    if (top) {
      all.emplace_back(*top == rootPosition ? 0 : *top, index.end(*top));
    }
  }
  std::sort(all.begin(), all.end());
  std::vector<PositionRange> merged;
  for (const PositionRange& range : all) {
    if (range.first == range.second) {
      continue;
    }
    if (!merged.empty() && range.first <= merged.back().second) {
      merged.back().second = std::max(merged.back().second, range.second);
    } else {
      merged.push_back(range);
    }
  }
  return merged;
}

}  // namespace modelgate
