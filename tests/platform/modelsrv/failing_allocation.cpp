#include "tests/platform/modelsrv/failing_allocation.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <new>
#include <utility>

namespace modelsrv_tests {

int& allocationsLeft() {
  thread_local int ofThread = allAllocations;
  return ofThread;
}

bool runWithFailure(int failing, const std::function<void()>& operation) {
  allocationsLeft() = failing;
  operation();
  return std::exchange(allocationsLeft(), allAllocations) < 0;
}

void forEachAllocation(const std::function<bool(int failing)>& attempt) {
  int failing = 0;
  while (attempt(failing) && !testing::Test::HasFailure()) {
    ++failing;
  }
  EXPECT_GT(failing, 0) << "nothing was allocated";
}

}  // namespace modelsrv_tests

void* operator new(std::size_t size) {
  int& left = modelsrv_tests::allocationsLeft();
  const bool isFailing = left == 0;
  if (left >= 0) {
    --left;
  }
  if (void* const memory = isFailing ? nullptr : std::malloc(size > 0 ? size : 1)) {
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
