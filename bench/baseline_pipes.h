#pragma once

#include <cstddef>
#include <memory>
#include <optional>

#include "bench/child_process.h"

namespace bench {

/// Two processes connected by two named pipes: the minimum cost of a round trip. The messages
/// are as long as a request for an element sum and its reply.
class BaselinePipes {
 public:
  /// The other process is bound to `processor` (see `pinTo`) if one is given. Throws
  /// `std::runtime_error` on an error.
  explicit BaselinePipes(std::optional<unsigned> processor);
  ~BaselinePipes();
  BaselinePipes(const BaselinePipes&) = delete;
  BaselinePipes& operator=(const BaselinePipes&) = delete;

  /// Sends a request and waits for its reply; false on an error.
  [[nodiscard]] bool roundTrip() const;

 private:
  int requests_ = -1;
  int replies_ = -1;
  std::unique_ptr<Child> server_;
};

}  // namespace bench
