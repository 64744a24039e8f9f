#pragma once

#include <cstddef>

namespace test_support {

/// What one thread has allocated in a program that this is linked into; what it
/// frees of another's is taken off its own.
struct Allocations {
  std::size_t count = 0;
  std::ptrdiff_t cachedBytes = 0;
  /// The largest `cachedBytes` so far; whoever measures sets it back first.
  std::ptrdiff_t mostBytes = 0;
};

/// Of the calling thread.
Allocations& allocated();

}  // namespace test_support
