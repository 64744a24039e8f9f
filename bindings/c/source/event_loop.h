#pragma once

#include <atomic>

#include "evtsrv/event_port_manager.h"
#include "kstd/thread_mutex.h"
#include "treescope.h"

namespace treescope_c {

/// The event loop of a client or a server, which any thread may dispatch and any may close.
class EventLoop {
 public:
  explicit EventLoop(bool reconnect) : manager(EvtSrv::ConBehave_Default, reconnect) {}

  /// As `EventPortManager::receiveEvent`. TREESCOPE_BUSY in a callback of this loop,
  /// TREESCOPE_CLOSED once it has been closed, also if it is while this waits.
  treescope_result dispatch(int milliseconds);

  /// Makes every call of `dispatch` return, now and later.
  void close();

  [[nodiscard]] bool isClosed() const { return closed_; }

  /// Whether the calling thread is in a callback of this loop.
  [[nodiscard]] bool isInCallback() const;

  EvtSrv::EventPortManager manager;

 private:
  std::atomic<bool> closed_{false};
};

/// Marks that the calling thread is in a callback of `loop`, for the lifetime of the object.
class CallbackScope {
 public:
  /// `given`: what the callback may use for that time only.
  explicit CallbackScope(const EventLoop& loop, const void* given = nullptr);
  ~CallbackScope();

  /// Whether `given`, which is not null, is of a callback that the calling thread is in.
  [[nodiscard]] static bool isGiven(const void* given);

  CallbackScope(const CallbackScope&) = delete;
  CallbackScope& operator=(const CallbackScope&) = delete;

 private:
  friend class EventLoop;

  const EventLoop& loop_;
  const void* const given_;
  const CallbackScope* const outer_;
};

}  // namespace treescope_c
