#pragma once

#include <cstddef>

namespace treescope {

/// How much memory a command may still use for what a server sends. A tree can be without end,
/// so that something else than its size must end a listing of it.
///
/// A plain value for one thread. The sizes are estimates.
class MemoryBudget {
 public:
  /// The whole budget: half of the machine's memory or, if that is less, of the limit on the
  /// process's memory at the first use (`ulimit -m`); at most 1 GiB.
  MemoryBudget() : left_(whole()) {}

  /// Takes `bytes` from the budget. Returns false, now and for good, if less is left.
  [[nodiscard]] bool take(std::size_t bytes) {
    exhausted_ = exhausted_ || bytes > left_;
    left_ -= exhausted_ ? 0 : bytes;
    return !exhausted_;
  }

  /// Puts back what was taken.
  void putBack(std::size_t bytes) { left_ += bytes; }

  [[nodiscard]] std::size_t left() const { return left_; }
  [[nodiscard]] bool exhausted() const { return exhausted_; }

 private:
  static std::size_t whole();

  std::size_t left_;
  bool exhausted_ = false;
};

}  // namespace treescope
