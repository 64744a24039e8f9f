#include "kstd/thread_mutex.h"

#include <gtest/gtest.h>

#include <mutex>
#include <thread>

namespace KSTD {
namespace {

bool freeForOthers(KThreadMutex& mutex) {
  bool taken = false;
  std::thread([&] {
    taken = mutex.try_lock();
    if (taken) {
      mutex.unlock();
    }
  }).join();
  return taken;
}

TEST(KThreadMutex, IsTakenAgainByItsHolderAndGivenBackAsOften) {
  KThreadMutex mutex;
  mutex.lock();
  EXPECT_TRUE(mutex.try_lock());
  mutex.unlock();
  EXPECT_FALSE(freeForOthers(mutex));
  mutex.unlock();
  EXPECT_TRUE(freeForOthers(mutex));
}

TEST(KThreadMutex, KeepsOneThreadOutWhileAnotherWorks) {
  KThreadMutex mutex;
  int count = 0;
  const auto add = [&] {
    for (int i = 0; i < 10000; ++i) {
      const std::lock_guard lock(mutex);
      ++count;
    }
  };
  std::thread other(add);
  add();
  other.join();
  EXPECT_EQ(count, 20000);
}

}  // namespace
}  // namespace KSTD
