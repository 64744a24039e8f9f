#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>
#include <vector>

/// Shared by the fuzz targets: checking of properties, and reading of an input. Not thread-safe.
namespace fuzz {

/// If `condition` is false, prints `property` to standard error and aborts, so that the fuzzer
/// keeps the input.
inline void require(bool condition, const char* property) {
  if (!condition) {
    std::fprintf(stderr, "violated: %s\n", property);
    std::abort();
  }
}

/// Reads an input from front to back. After its end a number is 0, and bytes are as many as are
/// left.
class Input {
 public:
  Input(const std::uint8_t* data, std::size_t size) : rest_(data, size) {}

  [[nodiscard]] bool isEmpty() const { return rest_.empty(); }

  std::uint8_t u8() {
    const std::span<const std::uint8_t> byte = bytes(1);
    return byte.empty() ? std::uint8_t{0} : byte.front();
  }

  std::span<const std::uint8_t> bytes(std::size_t count) {
    const std::span<const std::uint8_t> taken = rest_.first(std::min(count, rest_.size()));
    rest_ = rest_.subspan(taken.size());
    return taken;
  }

  std::span<const std::uint8_t> rest() { return bytes(rest_.size()); }

  std::string_view restAsText() {
    const std::span<const std::uint8_t> left = rest();
    return {reinterpret_cast<const char*>(left.data()), left.size()};
  }

 private:
  std::span<const std::uint8_t> rest_;
};

/// Splits a stream into pieces of 1 to 48 bytes, as the reads of a pipe might, depending on the
/// seed. Each piece is a copy, so that the sanitizer finds an access to an earlier one.
class Pieces {
 public:
  Pieces(std::span<const std::uint8_t> stream, std::uint8_t seed) : rest_(stream), state_(seed) {}

  [[nodiscard]] bool isEmpty() const { return rest_.empty(); }

  std::vector<std::uint8_t> next() {
    constexpr std::size_t largest = 48;
    const std::size_t count = std::min(1 + random() % largest, rest_.size());
    std::vector<std::uint8_t> piece(rest_.begin(),
                                    rest_.begin() + static_cast<std::ptrdiff_t>(count));
    rest_ = rest_.subspan(count);
    return piece;
  }

  /// A pseudo-random number that depends on the seed and the number of calls.
  std::uint32_t random() {
    state_ = state_ * 1664525U + 1013904223U;
    return state_ >> 16U;
  }

 private:
  std::span<const std::uint8_t> rest_;
  std::uint32_t state_;
};

}  // namespace fuzz
