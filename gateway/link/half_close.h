#pragma once

#include <functional>

#include "gateway/link/event_loop.h"

namespace modelgate {

/// The orderly end of a stream socket: it is shut down for writing and read to its end. If it were
/// closed with unread input, the system would reset the connection, and the peer might not get what
/// was written last. For the loop's thread.
class HalfClose {
 public:
  /// Takes `descriptor`, which does not block, and calls `done` in the loop when the peer has
  /// closed, too. `done` may destroy the object.
  HalfClose(EventLoop& loop, int descriptor, std::function<void()> done);
  /// Closes the descriptor.
  ~HalfClose();
  HalfClose(const HalfClose&) = delete;
  HalfClose& operator=(const HalfClose&) = delete;

 private:
  void read();

  EventLoop& loop_;
  int descriptor_;
  std::function<void()> done_;
};

}  // namespace modelgate
