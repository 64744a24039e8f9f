#pragma once

#include <pthread.h>

#include "kstd/export.h"

namespace UtilSrv {

/// A thread that is started by the constructor and joined by the destructor.
///
/// The object is used by the thread that made it only. Neither copied nor moved.
class KRV_EXPORT Thread {
 public:
  /// The function that the thread runs; it returns the thread's exit code.
  using Entry = int (*)(void* argument);

  /// Starts a thread that runs `entry(argument)`. `name` may be null; only its first 15
  /// bytes are used (pthread_setname_np(3)). If the system cannot make a thread,
  /// `started` returns false and `entry` never runs.
  Thread(Entry entry, void* argument, const char* name);

  /// Waits for the thread to end.
  ~Thread();

  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  /// Whether the thread was made.
  [[nodiscard]] bool started() const;

  /// Ends the calling thread, which a `Thread` must have started, with exit code `code`.
  /// The objects on its stack are destroyed.
  [[noreturn]] static void exit(int code);

 private:
  static void* run(void* self);

  Entry entry_;
  void* argument_;
  pthread_t handle_{};
  bool started_ = false;
};

}  // namespace UtilSrv
