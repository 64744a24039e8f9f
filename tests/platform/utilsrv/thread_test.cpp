#include "utilsrv/thread.h"

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <memory>
#include <string>

namespace UtilSrv {
namespace {

TEST(Thread, RunsItsEntryWithTheArgumentAndIsJoined) {
  int value = 0;
  {
    Thread thread(
        [](void* argument) {
          *static_cast<int*>(argument) = 7;
          return 0;
        },
        &value, nullptr);
    EXPECT_TRUE(thread.started());
  }
  EXPECT_EQ(value, 7);
}

TEST(Thread, ExitDestroysTheObjectsOnTheStack) {
  struct CountOnDestruction {
    std::atomic<int>& count;
    ~CountOnDestruction() { ++count; }
  };
  std::atomic<int> count{0};
  {
    Thread thread(
        [](void* argument) -> int {
          const CountOnDestruction counter{*static_cast<std::atomic<int>*>(argument)};
          Thread::exit(3);
        },
        &count, "ends");
  }
  EXPECT_EQ(count, 1);
}

TEST(Thread, AcceptsANameOfAnyLength) {
  Thread thread([](void*) { return 0; }, nullptr, std::string(100, 'n').c_str());
  EXPECT_TRUE(thread.started());
}

}  // namespace
}  // namespace UtilSrv
