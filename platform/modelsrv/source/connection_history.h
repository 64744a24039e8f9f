#pragma once

#include <cstddef>

namespace ModelSrv::internal {

/// The losses and returns of a client's connection that its program has not been notified of.
/// They alternate, beginning with a loss: a connection that is lost before it was restored is
/// no second loss.
class ConnectionHistory {
 public:
  enum class Change { lost, restored };

  /// Adds a change, unless the latest one is of the same kind.
  void add(Change change) {
    if (change != latest_) {
      latest_ = change;
      ++pending_;
    }
  }

  [[nodiscard]] bool isLost() const { return latest_ == Change::lost; }
  [[nodiscard]] bool hasPending() const { return pending_ > 0; }

  /// Removes and returns the oldest change. There is one.
  Change take() {
    const bool isLatestKind = pending_ % 2 == 1;
    --pending_;
    return isLost() == isLatestKind ? Change::lost : Change::restored;
  }

 private:
  Change latest_ = Change::restored;
  std::size_t pending_ = 0;
};

}  // namespace ModelSrv::internal
