#pragma once

#include <unistd.h>

#include <cerrno>

namespace modelsrvd {

/// The result of `call`, a system call that is repeated while a signal interrupts it.
template <typename Call>
auto uninterrupted(Call call) {
  auto result = call();
  while (result == -1 && errno == EINTR) {
    result = call();
  }
  return result;
}

/// An open file, or none if the descriptor is -1. Its destructor closes it.
class OpenFile {
 public:
  explicit OpenFile(int descriptor) : descriptor_(descriptor) {}
  ~OpenFile() {
    if (descriptor_ >= 0) {
      ::close(descriptor_);
    }
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  [[nodiscard]] int get() const { return descriptor_; }

 private:
  int descriptor_;
};

}  // namespace modelsrvd
