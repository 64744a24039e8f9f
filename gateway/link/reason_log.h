#pragma once

#include <cstddef>
#include <functional>
#include <set>
#include <string>
#include <string_view>

namespace modelgate {

/// Why there is no connection: each reason is news once until there is one, however often that is
/// tried. For one thread.
class ReasonLog {
 public:
  /// Whether `reason` has not been there since the last connection. Of very many reasons the later
  /// ones are no news.
  [[nodiscard]] bool isNew(std::string_view reason) {
    constexpr std::size_t maxReasons = 16;
    return reasons_.size() < maxReasons && reasons_.emplace(reason).second;
  }
  /// There is a connection.
  void connected() { reasons_.clear(); }

 private:
  std::set<std::string, std::less<>> reasons_;
};

}  // namespace modelgate
