#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string_view>

/// The bytes of one run of a fuzz target, taken front to back.
class FuzzInput {
 public:
  FuzzInput(const std::uint8_t* data, std::size_t size) : bytes_(data, size) {}

  /// The next byte, 0 at the end.
  std::uint8_t byte() { return bytes_.empty() ? std::uint8_t{0} : take(1)[0]; }

  std::span<const std::uint8_t> take(std::size_t count) {
    const auto result = bytes_.first(std::min(count, bytes_.size()));
    bytes_ = bytes_.subspan(result.size());
    return result;
  }

  std::span<const std::uint8_t> rest() { return take(bytes_.size()); }

  std::string_view restText() {
    const auto bytes = rest();
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
  }

 private:
  std::span<const std::uint8_t> bytes_;
};

/// Ends the run with a finding where what must hold does not.
inline void require(bool holds) {
  if (!holds) {
    std::abort();
  }
}
