// The checks of assertHeld are tested in every build.
#define KRV_CHECKS_LOCKS 1

#include "kstd/thread_mutex.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>

namespace KSTD {
namespace {

bool canBeLockedByAnotherThread(KThreadMutex& mutex) {
  bool locked = false;
  std::thread([&] {
    if (mutex.try_lock()) {
      locked = true;
      mutex.unlock();
    }
  }).join();
  return locked;
}

TEST(KThreadMutex, IsFreeAfterAsManyUnlocksAsLocks) {
  KThreadMutex mutex;
  std::unique_lock first(mutex);
  std::unique_lock second(mutex, std::try_to_lock);
  EXPECT_TRUE(second.owns_lock());
  first.unlock();
  EXPECT_FALSE(canBeLockedByAnotherThread(mutex));
  second.unlock();
  EXPECT_TRUE(canBeLockedByAnotherThread(mutex));
}

TEST(KThreadMutex, ExcludesOtherThreads) {
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

/// Whether the thread is blocked in the kernel.
bool isSleeping(pid_t thread) {
  std::ifstream in("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string text;
  std::getline(in, text);
  return text.find(") S ") != std::string::npos;
}

TEST(KThreadMutex, GoesToAWaitingThreadBeforeItIsLockedAgain) {
  constexpr int rounds = 200;
  KThreadMutex mutex;
  std::atomic<pid_t> waiter{0};
  std::atomic<int> allowed{0};
  int taken = 0;
  std::thread other([&] {
    waiter = gettid();
    for (int round = 1; round <= rounds; ++round) {
      while (allowed < round) {
        std::this_thread::yield();
      }
      const std::lock_guard lock(mutex);
      ++taken;
    }
  });
  mutex.lock();
  for (int round = 1; round <= rounds && !testing::Test::HasFailure(); ++round) {
    allowed = round;
    while (waiter == 0 || !isSleeping(waiter)) {
      std::this_thread::yield();
    }
    mutex.unlock();
    mutex.lock();
    EXPECT_EQ(taken, round);
  }
  allowed = rounds;
  mutex.unlock();
  other.join();
}

TEST(KThreadMutex, AssertHeldPassesForTheHolder) {
  KThreadMutex mutex;
  const KThreadMutexLock lock(mutex);
  mutex.assertHeld();
  {
    const std::lock_guard again(mutex);
    mutex.assertHeld();
  }
  mutex.assertHeld();
}

constexpr const char* notHeld = "the calling thread does not hold the mutex";

TEST(KThreadMutexDeathTest, AssertHeldAbortsIfNoThreadHoldsTheMutex) {
  KThreadMutex mutex;
  EXPECT_DEATH(mutex.assertHeld(), notHeld);
  { const KThreadMutexLock lock(mutex); }
  EXPECT_DEATH(mutex.assertHeld(), notHeld);
}

TEST(KThreadMutexDeathTest, AssertHeldAbortsIfAnotherThreadHoldsTheMutex) {
  KThreadMutex mutex;
  const auto assertWhileAnotherThreadHoldsIt = [&] {
    const std::lock_guard lock(mutex);
    std::thread([&] { mutex.assertHeld(); }).join();
  };
  EXPECT_DEATH(assertWhileAnotherThreadHoldsIt(), notHeld);
}

}  // namespace
}  // namespace KSTD
