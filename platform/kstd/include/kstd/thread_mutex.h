#pragma once

#include <mutex>

#include "kstd/export.h"

namespace KSTD {

/// A mutex that the thread which holds it may take again.
///
/// It meets the standard's *Lockable* requirements, so `std::lock_guard` and
/// `std::unique_lock` work on it. Every `lock` (or successful `try_lock`) wants
/// one `unlock` by the same thread. Thread-safe; neither copied nor moved.
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
  std::recursive_mutex mutex_;
};

}  // namespace KSTD
