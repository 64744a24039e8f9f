#pragma once

#include <cstdint>

#include "kstd/thread_mutex.h"

namespace treescope {

/// Holds the client mutex for a series of requests, some milliseconds at a time.
///
/// While updates flood the shell, a command that takes the mutex for each of its requests
/// waits for an update each time, and an update may take milliseconds to display. So a
/// command that makes many requests, one after another, makes them in a series, each
/// with `lock` false. For one thread.
class KRV_SCOPED_CAPABILITY RequestSeries {
 public:
  /// Writes what has been printed on a terminal, and locks `mutex`, which outlives this.
  /// With `lock` false the caller holds it, and it stays locked.
  RequestSeries(KSTD::KThreadMutex& mutex, bool lock) KRV_ACQUIRE(mutex);
  ~RequestSeries() KRV_RELEASE();
  RequestSeries(const RequestSeries&) = delete;
  RequestSeries& operator=(const RequestSeries&) = delete;

  /// Called before each request. When the mutex has been held for some milliseconds, the
  /// threads that wait for it have it first; the tree may change then.
  void next() {
    if (locked_ != nullptr && now() >= end_) {
      pause();
    }
  }

 private:
  [[nodiscard]] static std::int64_t now();
  void pause();

  KSTD::KThreadMutex* const locked_;  ///< null if the caller holds the mutex
  std::int64_t end_ = 0;              ///< of the hold, in nanoseconds
};

}  // namespace treescope
