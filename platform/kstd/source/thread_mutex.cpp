#include "kstd/thread_mutex.h"

#include <cstdio>
#include <cstdlib>

namespace KSTD {

KThreadMutex::KThreadMutex() = default;

KThreadMutex::~KThreadMutex() = default;

void KThreadMutex::lock() KRV_NO_THREAD_SAFETY_ANALYSIS {
  const std::thread::id self = std::this_thread::get_id();
  if (holder_.load(std::memory_order_relaxed) != self) {
    if (waiting_.load() != 0 || !mutex_.try_lock()) {
      lockInTurn();
    }
    holder_.store(self, std::memory_order_relaxed);
  }
  ++depth_;
}

void KThreadMutex::lockInTurn() {
  ++waiting_;
  {
    // The holder of mutex_ never waits for turn_, so the wait for it ends.
    const std::lock_guard turn(turn_);
    mutex_.lock();
  }
  --waiting_;
}

bool KThreadMutex::try_lock() KRV_NO_THREAD_SAFETY_ANALYSIS {
  const std::thread::id self = std::this_thread::get_id();
  if (holder_.load(std::memory_order_relaxed) != self) {
    if (!mutex_.try_lock()) {
      return false;
    }
    holder_.store(self, std::memory_order_relaxed);
  }
  ++depth_;
  return true;
}

void KThreadMutex::unlock() KRV_NO_THREAD_SAFETY_ANALYSIS {
  if (--depth_ == 0) {
    holder_.store({}, std::memory_order_relaxed);
    mutex_.unlock();
  }
}

void KThreadMutex::abortUnlessHeld() const {
  if (holder_.load(std::memory_order_relaxed) != std::this_thread::get_id()) {
    std::fputs("KThreadMutex::assertHeld: the calling thread does not hold the mutex\n", stderr);
    std::abort();
  }
}

}  // namespace KSTD
