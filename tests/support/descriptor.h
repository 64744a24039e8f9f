#pragma once

#include <unistd.h>

#include <utility>

namespace test_support {

/// Owns a file descriptor, or none, which is -1.
class Descriptor {
 public:
  explicit Descriptor(int descriptor = -1) : descriptor_(descriptor) {}
  ~Descriptor() { close(); }
  Descriptor(Descriptor&& other) noexcept : descriptor_(std::exchange(other.descriptor_, -1)) {}
  Descriptor& operator=(Descriptor&& other) noexcept {
    std::swap(descriptor_, other.descriptor_);
    return *this;
  }

  [[nodiscard]] int get() const { return descriptor_; }
  [[nodiscard]] bool isOpen() const { return descriptor_ >= 0; }

  void close() {
    if (isOpen()) {
      ::close(std::exchange(descriptor_, -1));
    }
  }

 private:
  int descriptor_;
};

}  // namespace test_support
