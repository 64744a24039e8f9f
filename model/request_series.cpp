#include "model/request_series.h"

#include <ctime>

#include "term/standard_output.h"

namespace treescope {

namespace {

constexpr std::int64_t holdNanoseconds = 5'000'000;
constexpr std::int64_t nanosecondsPerSecond = 1'000'000'000;

}  // namespace

RequestSeries::RequestSeries(KSTD::KThreadMutex& mutex, bool lock) KRV_NO_THREAD_SAFETY_ANALYSIS
    : locked_(lock ? &mutex : nullptr) {
  if (lock) {
    flushToTerminal();
    mutex.lock();
    end_ = now() + holdNanoseconds;
  } else {
    mutex.assertHeld();
  }
}

RequestSeries::~RequestSeries() KRV_NO_THREAD_SAFETY_ANALYSIS {
  if (locked_ != nullptr) {
    locked_->unlock();
  }
}

// The coarse clock, as exact as the scheduler's ticks, takes a few nanoseconds: a request
// that is served from the cache takes not many more.
std::int64_t RequestSeries::now() {
  timespec time{};
  static_cast<void>(clock_gettime(CLOCK_MONOTONIC_COARSE, &time));
  return time.tv_sec * nanosecondsPerSecond + time.tv_nsec;
}

void RequestSeries::pause() KRV_NO_THREAD_SAFETY_ANALYSIS {
  // The mutex is fair, so this waits for the threads that wait for it.
  locked_->unlock();
  locked_->lock();
  end_ = now() + holdNanoseconds;
}

}  // namespace treescope
