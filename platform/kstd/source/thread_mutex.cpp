#include "kstd/thread_mutex.h"

namespace KSTD {

KThreadMutex::KThreadMutex() = default;

KThreadMutex::~KThreadMutex() = default;

void KThreadMutex::lock() {
  mutex_.lock();
}

bool KThreadMutex::try_lock() {
  return mutex_.try_lock();
}

void KThreadMutex::unlock() {
  mutex_.unlock();
}

}  // namespace KSTD
