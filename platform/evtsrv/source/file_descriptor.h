#pragma once

#include <utility>

#include "evtsrv/source/system.h"

namespace EvtSrv::internal {

/// Owns at most one descriptor and closes it on destruction. `system` outlives it.
class FileDescriptor {
 public:
  FileDescriptor() = default;
  FileDescriptor(System& system, int number) : system_(&system), number_(number) {}
  ~FileDescriptor() { reset(); }
  FileDescriptor(FileDescriptor&& other) noexcept
      : system_(other.system_), number_(std::exchange(other.number_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    if (this != &other) {
      reset();
      system_ = other.system_;
      number_ = std::exchange(other.number_, -1);
    }
    return *this;
  }

  /// Takes ownership of the result of a `System` call: a descriptor (returns 0) or a
  /// negative error number (which is returned).
  [[nodiscard]] int adopt(System& system, int numberOrErrno) {
    reset();
    if (numberOrErrno < 0) {
      return numberOrErrno;
    }
    system_ = &system;
    number_ = numberOrErrno;
    return 0;
  }

  void reset() {
    if (number_ >= 0) {
      system_->close(std::exchange(number_, -1));
    }
  }

  /// Negative if it owns none.
  [[nodiscard]] int number() const { return number_; }
  [[nodiscard]] bool isOpen() const { return number_ >= 0; }

 private:
  System* system_ = nullptr;
  int number_ = -1;
};

}  // namespace EvtSrv::internal
