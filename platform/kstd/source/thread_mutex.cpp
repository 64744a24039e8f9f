#include "kstd/thread_mutex.h"

namespace KSTD {

KThreadMutex::KThreadMutex() = default;

KThreadMutex::~KThreadMutex() = default;

void KThreadMutex::lock() {
  const std::thread::id self = std::this_thread::get_id();
  if (holder_.load(std::memory_order_relaxed) != self) {
    if (waiting_.load() != 0 || !mutex_.try_lock()) {
      await();
    }
    holder_.store(self, std::memory_order_relaxed);
  }
  ++depth_;
}

void KThreadMutex::await() {
  ++waiting_;
  {
    // Nobody who holds the mutex comes here, so the turn is never waited for long.
    const std::lock_guard turn(turn_);
    mutex_.lock();
  }
  --waiting_;
}

bool KThreadMutex::try_lock() {
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

void KThreadMutex::unlock() {
  if (--depth_ == 0) {
    holder_.store({}, std::memory_order_relaxed);
    mutex_.unlock();
  }
}

}  // namespace KSTD
