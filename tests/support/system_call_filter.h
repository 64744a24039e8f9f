#pragma once

#include <linux/filter.h>

#include <cstdint>
#include <vector>

namespace test_support {

/// System calls that the kernel does not make, but that return at once (seccomp(2)).
class SystemCallFilter {
 public:
  SystemCallFilter();

  /// The call with this number (`SYS_...`) has that error, or with 0 returns 0.
  void fail(std::uint32_t call, std::uint32_t error);
  /// The same if its argument at `position`, from 0, is `value`.
  void failIfEqual(std::uint32_t call, unsigned position, std::uint32_t value, std::uint32_t error);
  /// The same if its argument at `position` has one of `bits`.
  void failIfSet(std::uint32_t call, unsigned position, std::uint32_t bits, std::uint32_t error);

  /// Puts the filter into force for the calling thread, and for the threads and processes that
  /// it starts later. It cannot be undone. False, with `errno`, on an error.
  [[nodiscard]] bool install();

 private:
  void add(std::uint32_t call, unsigned position, std::uint16_t comparison, std::uint32_t value,
           std::uint32_t error);

  std::vector<sock_filter> program_;
};

}  // namespace test_support
