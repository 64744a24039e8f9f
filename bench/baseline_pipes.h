#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "bench/served_tree.h"

namespace bench {

/// Two processes and two named pipes between them: the least that a round trip can
/// cost. The bytes are as many as those of a request for an element sum and of its
/// reply.
class BaselinePipes {
 public:
  /// The other process is bound to `processor` (see `pinTo`), where one is given.
  /// Throws `std::runtime_error` where there can be none.
  explicit BaselinePipes(std::optional<unsigned> processor);
  ~BaselinePipes();
  BaselinePipes(const BaselinePipes&) = delete;
  BaselinePipes& operator=(const BaselinePipes&) = delete;

  /// Sends a request and waits for its reply; false on a fault.
  [[nodiscard]] bool roundTrip() const;

 private:
  int requests_ = -1;
  int replies_ = -1;
  std::unique_ptr<Child> server_;
};

}  // namespace bench
