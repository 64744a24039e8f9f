#pragma once

#include <utility>

namespace ModelSrv::internal {

/// Something with room in it that several share, for the length of one use. A second
/// borrower, in a dispatch inside a dispatch, gets a fresh one.
template <typename T>
class ObjectLease {
 public:
  /// `slot` outlives this.
  explicit ObjectLease(T& slot) : slot_(slot), used_(std::exchange(slot, T{})) {}
  ~ObjectLease() { slot_ = std::move(used_); }
  ObjectLease(const ObjectLease&) = delete;
  ObjectLease& operator=(const ObjectLease&) = delete;

  T& operator*() { return used_; }
  T* operator->() { return &used_; }

 private:
  T& slot_;
  T used_;
};

}  // namespace ModelSrv::internal
