#include "tests/platform/modelsrv/refused_allocation.h"

#include <cstdlib>
#include <new>

namespace modelsrv_tests {

int& allocationsLeft() {
  thread_local int ofThread = allAllocations;
  return ofThread;
}

}  // namespace modelsrv_tests

void* operator new(std::size_t size) {
  int& left = modelsrv_tests::allocationsLeft();
  const bool isRefused = left == 0;
  if (left >= 0) {
    --left;
  }
  if (void* const memory = isRefused ? nullptr : std::malloc(size > 0 ? size : 1)) {
    return memory;
  }
  throw std::bad_alloc();
}

void operator delete(void* memory) noexcept {
  std::free(memory);
}

void operator delete(void* memory, std::size_t /*size*/) noexcept {
  std::free(memory);
}
