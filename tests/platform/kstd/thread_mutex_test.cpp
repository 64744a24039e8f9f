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

/// Whether the thread sleeps, for whatever it waits.
bool sleeps(pid_t thread) {
  std::ifstream in("/proc/self/task/" + std::to_string(thread) + "/stat");
  std::string text;
  std::getline(in, text);
  return text.find(") S ") != std::string::npos;
}

TEST(KThreadMutex, IsGivenToOneThatWaitsBeforeItIsTakenAgain) {
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
    while (waiter == 0 || !sleeps(waiter)) {
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

}  // namespace
}  // namespace KSTD
