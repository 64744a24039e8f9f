#include "gateway/viewer/idle_trees.h"

#include <utility>
#include <vector>

namespace modelgate {

void IdleTrees::add(std::optional<Entry>& entry, std::size_t bytes, std::optional<Time> due,
                    std::function<void()> giveBack) {
  const std::uint64_t number = ++last_;
  trees_.emplace(number, Tree{bytes, due, std::move(giveBack)});
  bytes_ += bytes;
  entry.emplace(*this, number);
}

void IdleTrees::remove(std::uint64_t number) {
  if (const auto at = trees_.find(number); at != trees_.end()) {
    bytes_ -= at->second.bytes;
    trees_.erase(at);
  }
}

void IdleTrees::resize(std::uint64_t number, std::size_t bytes) {
  if (const auto at = trees_.find(number); at != trees_.end()) {
    bytes_ = bytes_ - at->second.bytes + bytes;
    at->second.bytes = bytes;
  }
}

bool IdleTrees::trim(Time now) {
  std::vector<std::function<void()>> given;
  for (auto at = trees_.begin(); at != trees_.end();) {
    const bool isDue = at->second.due && *at->second.due <= now;
    if (!isDue && !areTooLarge()) {
      ++at;
      continue;
    }
    bytes_ -= at->second.bytes;
    given.push_back(std::move(at->second.giveBack));
    at = trees_.erase(at);
  }
  for (const auto& giveBack : given) {
    giveBack();
  }
  return !given.empty();
}

}  // namespace modelgate
