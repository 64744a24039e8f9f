#pragma once

#include <cstddef>

namespace test_support {

/// The allocations of one thread in a program that this is linked into. Memory of
/// another thread that it frees counts as its own.
struct Allocations {
  std::size_t count = 0;
  std::ptrdiff_t liveBytes = 0;
  /// The largest `liveBytes` so far; a test that measures it resets it first.
  std::ptrdiff_t peakBytes = 0;
};

/// Of the calling thread.
Allocations& allocated();

}  // namespace test_support
