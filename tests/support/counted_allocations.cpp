#include "tests/support/counted_allocations.h"

#include <malloc.h>

#include <algorithm>
#include <cstdlib>
#include <new>

namespace test_support {

Allocations& allocated() {
  thread_local Allocations ofThread;
  return ofThread;
}

}  // namespace test_support

// Every allocation of this program is counted.
void* operator new(std::size_t size, const std::nothrow_t& /*none*/) noexcept {
  void* const memory = std::malloc(size > 0 ? size : 1);
  if (memory != nullptr) {
    auto& allocated = test_support::allocated();
    ++allocated.count;
    allocated.liveBytes += static_cast<std::ptrdiff_t>(::malloc_usable_size(memory));
    allocated.peakBytes = std::max(allocated.peakBytes, allocated.liveBytes);
  }
  return memory;
}

void* operator new(std::size_t size) {
  if (void* memory = ::operator new(size, std::nothrow)) {
    return memory;
  }
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  test_support::allocated().liveBytes -= static_cast<std::ptrdiff_t>(::malloc_usable_size(memory));
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  ::operator delete(memory);
}
