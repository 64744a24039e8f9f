#pragma once

#include <utility>

namespace ModelSrv::internal {

/// Something with room in it that several share, for the length of one use. A second
/// borrower, in a dispatch inside a dispatch, gets a fresh one.
template <typename T>
class Borrowed {
 public:
  /// `home` outlives this.
  explicit Borrowed(T& home) : home_(home), used_(std::exchange(home, T{})) {}
  ~Borrowed() { home_ = std::move(used_); }
  Borrowed(const Borrowed&) = delete;
  Borrowed& operator=(const Borrowed&) = delete;

  T& operator*() { return used_; }
  T* operator->() { return &used_; }

 private:
  T& home_;
  T used_;
};

}  // namespace ModelSrv::internal
