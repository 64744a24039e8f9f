#pragma once

#include <atomic>
#include <mutex>
#include <thread>

#include "kstd/export.h"

namespace KSTD {

/// A mutex that the thread which holds it may take again.
///
/// It meets the standard's *Lockable* requirements, so `std::lock_guard` and
/// `std::unique_lock` work on it. Every `lock` (or successful `try_lock`) wants
/// one `unlock` by the same thread. Thread-safe; neither copied nor moved.
///
/// A thread that waits gets it before one that has given it back locks it again:
/// who holds it nearly always, such as a pump with much to dispatch, keeps nobody
/// out.
class KRV_EXPORT KThreadMutex {
 public:
  KThreadMutex();
  ~KThreadMutex();
  KThreadMutex(const KThreadMutex&) = delete;
  KThreadMutex& operator=(const KThreadMutex&) = delete;

  /// Waits until the mutex belongs to the calling thread.
  void lock();

  /// Takes the mutex if that needs no waiting; tells whether it did.
  [[nodiscard]] bool try_lock();

  /// Gives back what one `lock` took.
  void unlock();

 private:
  /// Takes the mutex behind those that wait for it already.
  void await();

  /// How many threads wait; while one does, nobody may pass it.
  std::atomic<unsigned> waiting_{0};
  /// Of the thread that waits next.
  std::mutex turn_;
  std::mutex mutex_;
  /// The thread that has `mutex_`; only that thread finds itself here.
  std::atomic<std::thread::id> holder_;
  /// How many `unlock` it owes. Guarded by `mutex_`.
  unsigned depth_ = 0;
};

}  // namespace KSTD
