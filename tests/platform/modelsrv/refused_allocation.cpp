#include "tests/platform/modelsrv/refused_allocation.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <utility>

namespace modelsrv_tests {

int& allocationsLeft() {
  thread_local int ofThread = allAllocations;
  return ofThread;
}

bool runWithRefusal(int refused, const std::function<void()>& operation) {
  allocationsLeft() = refused;
  operation();
  return std::exchange(allocationsLeft(), allAllocations) < 0;
}

void forEachAllocation(const std::function<bool(int refused)>& attempt) {
  int refused = 0;
  while (attempt(refused) && !testing::Test::HasFailure()) {
    ++refused;
  }
  EXPECT_GT(refused, 0) << "nothing was allocated";
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
