// The checks of assertHeld are tested in every build.
#define KRV_CHECKS_LOCKS 1

#include "kstd/thread_mutex.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <deque>
#include <fstream>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

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

/// A thread that locks a mutex once.
class Locker {
 public:
  /// Returns when the thread waits for `mutex`, which the caller holds.
  Locker(KThreadMutex& mutex, std::vector<int>& order, int number)
      : thread_([this, &mutex, &order, number] {
          id_ = gettid();
          const std::lock_guard lock(mutex);
          order.push_back(number);
        }) {
    while (id_ == 0 || !isSleeping(id_)) {
      std::this_thread::yield();
    }
  }
  ~Locker() { thread_.join(); }
  Locker(const Locker&) = delete;
  Locker& operator=(const Locker&) = delete;

 private:
  std::atomic<pid_t> id_{0};
  std::thread thread_;
};

TEST(KThreadMutex, IsLockedInTheOrderOfArrival) {
  constexpr int waiters = 20;
  KThreadMutex mutex;
  std::vector<int> order;
  std::vector<int> expected;
  std::deque<Locker> lockers;
  mutex.lock();
  for (int number = 0; number < waiters; ++number) {
    lockers.emplace_back(mutex, order, number);
    expected.push_back(number);
  }
  mutex.unlock();
  mutex.lock();
  order.push_back(waiters);
  expected.push_back(waiters);
  mutex.unlock();
  lockers.clear();
  EXPECT_EQ(order, expected);
}

TEST(KThreadMutex, YieldsToEveryWaitingThread) {
  KThreadMutex mutex;
  std::vector<int> order;
  mutex.lock();
  mutex.yield();
  const Locker first(mutex, order, 1);
  const Locker second(mutex, order, 2);
  mutex.yield();
  EXPECT_EQ(order, (std::vector{1, 2}));
  EXPECT_FALSE(canBeLockedByAnotherThread(mutex));
  mutex.unlock();
}

TEST(KThreadMutex, DoesNotYieldInANestedHold) {
  KThreadMutex mutex;
  std::vector<int> order;
  const KThreadMutexLock outer(mutex);
  std::optional<Locker> other;
  {
    const std::lock_guard inner(mutex);
    other.emplace(mutex, order, 1);
    mutex.yield();
    EXPECT_TRUE(order.empty());
  }
  mutex.yield();
  EXPECT_EQ(order.size(), 1U);
}

TEST(KThreadMutex, IsNotTriedBeforeAWaitingThread) {
  KThreadMutex mutex;
  for (int round = 0; round < 1000; ++round) {
    const std::unique_lock first(mutex, std::try_to_lock);
    ASSERT_TRUE(first.owns_lock());
    ASSERT_TRUE(std::unique_lock(mutex, std::try_to_lock).owns_lock());
    ASSERT_FALSE(round % 100 == 0 && canBeLockedByAnotherThread(mutex));
  }
  EXPECT_TRUE(canBeLockedByAnotherThread(mutex));
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
