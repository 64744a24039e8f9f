#pragma once

#include <atomic>
#include <cstdint>
#include <thread>

#include "kstd/export.h"
#include "kstd/thread_annotations.h"

/// 1 if `KThreadMutex::assertHeld` checks: in debug and in sanitizer builds, unless
/// the includer defined it.
#ifndef KRV_CHECKS_LOCKS
#if !defined(NDEBUG) || defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
#define KRV_CHECKS_LOCKS 1
#elif defined(__has_feature)
#define KRV_CHECKS_LOCKS (__has_feature(address_sanitizer) || __has_feature(thread_sanitizer))
#else
#define KRV_CHECKS_LOCKS 0
#endif
#endif

namespace KSTD {

/// A recursive mutex: the thread that holds it may lock it again.
///
/// It meets the standard's *Lockable* requirements, so `std::lock_guard` and
/// `std::unique_lock` work on it. Each `lock` (or successful `try_lock`) must be
/// matched by one `unlock` of the same thread. Thread-safe; neither copied nor
/// moved.
///
/// The mutex is fair: threads get it in the order in which they called `lock`. So a
/// thread that holds it nearly all the time, such as one that dispatches many events,
/// does not starve the others; they wait for one hold of each thread before them.
class KRV_EXPORT KRV_CAPABILITY("mutex") KThreadMutex {
 public:
  KThreadMutex();
  ~KThreadMutex();
  KThreadMutex(const KThreadMutex&) = delete;
  KThreadMutex& operator=(const KThreadMutex&) = delete;

  /// Waits until the calling thread holds the mutex.
  void lock() KRV_ACQUIRE();

  /// Locks the mutex if that requires no waiting; returns whether it did.
  [[nodiscard]] bool try_lock() KRV_TRY_ACQUIRE(true);

  /// Undoes one `lock` of the calling thread, which must hold the mutex.
  void unlock() KRV_RELEASE();

  /// Lets the threads that wait for the mutex have it first, and locks it again. No
  /// effect if none waits, or if the calling thread has locked the mutex more than once:
  /// its caller may rely on it. The calling thread must hold the mutex.
  void yield();

  /// Prints a message to standard error and aborts if the calling thread does not
  /// hold the mutex. Costs nothing and checks nothing if `KRV_CHECKS_LOCKS` is 0.
  [[gnu::always_inline]] inline void assertHeld() const KRV_ASSERT_CAPABILITY(this) {
#if KRV_CHECKS_LOCKS
    abortUnlessHeld();
#endif
  }

 private:
  void abortUnlessHeld() const;

  // A ticket lock. A thread that locks takes the next ticket and waits until it is
  // served; the mutex is free when the next ticket is the served one. Both wrap around.
  std::atomic<std::uint32_t> nextTicket_{0};
  std::atomic<std::uint32_t> servedTicket_{0};
  /// The thread that holds the mutex. Only that thread can find its own id here.
  std::atomic<std::thread::id> holder_;

  // For the holder.

  /// How many calls of `unlock` the holder still has to make.
  unsigned depth_ = 0;
};

/// Holds a `KThreadMutex` for the lifetime of the object, like `std::lock_guard`, and
/// is also known to the thread-safety analysis.
class KRV_SCOPED_CAPABILITY KThreadMutexLock {
 public:
  /// `mutex` outlives this.
  explicit KThreadMutexLock(KThreadMutex& mutex) KRV_ACQUIRE(mutex) : mutex_(mutex) {
    mutex_.lock();
  }
  ~KThreadMutexLock() KRV_RELEASE() { mutex_.unlock(); }
  KThreadMutexLock(const KThreadMutexLock&) = delete;
  KThreadMutexLock& operator=(const KThreadMutexLock&) = delete;

 private:
  KThreadMutex& mutex_;
};

}  // namespace KSTD
