#include "kstd/thread_mutex.h"

#include <cstdio>
#include <cstdlib>

namespace KSTD {

KThreadMutex::KThreadMutex() = default;

KThreadMutex::~KThreadMutex() = default;

void KThreadMutex::lock() KRV_NO_THREAD_SAFETY_ANALYSIS {
  const std::thread::id self = std::this_thread::get_id();
  if (holder_.load(std::memory_order_relaxed) != self) {
    const std::uint32_t ticket = nextTicket_.fetch_add(1, std::memory_order_relaxed);
    std::uint32_t served = servedTicket_.load(std::memory_order_acquire);
    while (served != ticket) {
      servedTicket_.wait(served, std::memory_order_acquire);
      served = servedTicket_.load(std::memory_order_acquire);
    }
    holder_.store(self, std::memory_order_relaxed);
  }
  ++depth_;
}

bool KThreadMutex::try_lock() KRV_NO_THREAD_SAFETY_ANALYSIS {
  const std::thread::id self = std::this_thread::get_id();
  if (holder_.load(std::memory_order_relaxed) != self) {
    std::uint32_t served = servedTicket_.load(std::memory_order_acquire);
    if (!nextTicket_.compare_exchange_strong(served, served + 1, std::memory_order_relaxed)) {
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
    // Sequentially consistent: a thread that begins to wait meanwhile either sees the new
    // ticket or is seen by the notification.
    servedTicket_.fetch_add(1);
    // All of them: only the next one leaves its wait, and it may be any.
    servedTicket_.notify_all();
  }
}

void KThreadMutex::yield() KRV_NO_THREAD_SAFETY_ANALYSIS {
  assertHeld();
  const std::uint32_t mine = servedTicket_.load(std::memory_order_relaxed);
  if (depth_ == 1 && nextTicket_.load(std::memory_order_relaxed) != mine + 1) {
    unlock();
    lock();
  }
}

void KThreadMutex::abortUnlessHeld() const {
  if (holder_.load(std::memory_order_relaxed) != std::this_thread::get_id()) {
    std::fputs("KThreadMutex::assertHeld: the calling thread does not hold the mutex\n", stderr);
    std::abort();
  }
}

}  // namespace KSTD
