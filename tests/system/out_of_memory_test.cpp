#include <gtest/gtest.h>

#include <cstddef>
#include <cstdint>
#include <exception>
#include <new>

#include "kstd/thread_mutex.h"

// A program that links the libraries uses the "operator new" of the first of them. So
// the copy of the C++ library that throws is not the one that catches.

namespace {

/// Allocates more than any machine has.
bool failsToAllocate() {
  const volatile std::size_t tooMuch = SIZE_MAX / 4;
  try {
    ::operator delete(::operator new(tooMuch));
    return false;
  } catch (const std::bad_alloc&) {
    return true;
  }
}

TEST(OutOfMemory, LeavesNoExceptionUncaughtInAProgramThatLinksTheLibraries) {
  KSTD::KThreadMutex ofTheLibrary;
  ofTheLibrary.lock();
  ofTheLibrary.unlock();
  for (int i = 0; i < 3; ++i) {
    EXPECT_TRUE(failsToAllocate());
    EXPECT_EQ(std::uncaught_exceptions(), 0);
  }
}

}  // namespace
