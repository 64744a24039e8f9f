#pragma once

#include <pthread.h>

#include "kstd/export.h"

namespace UtilSrv {

/// One thread of execution, started by the constructor and joined by the
/// destructor.
///
/// The object belongs to the thread that made it and must outlive the thread it
/// runs. It is neither copied nor moved.
class KRV_EXPORT Thread {
 public:
  /// What the thread runs; its return value is the thread's exit code.
  using Entry = int (*)(void* argument);

  /// Starts `entry(argument)`. `name` may be null; the system keeps its first 15
  /// bytes (pthread_setname_np(3)). When the system refuses a thread, `started`
  /// is false and `entry` never runs.
  Thread(Entry entry, void* argument, const char* name);

  /// Waits for the thread to end.
  ~Thread();

  Thread(const Thread&) = delete;
  Thread& operator=(const Thread&) = delete;

  /// Whether the system gave a thread.
  [[nodiscard]] bool started() const;

  /// Ends the calling thread, which must be one that a `Thread` started, with
  /// `code`; objects on its stack are destroyed.
  [[noreturn]] static void exit(int code);

 private:
  static void* run(void* self);

  Entry entry_;
  void* argument_;
  pthread_t handle_{};
  bool started_ = false;
};

}  // namespace UtilSrv
