#pragma once

#include <cstddef>
#include <deque>
#include <functional>
#include <utility>

#include "gateway/link/event_loop.h"
#include "modelsrv/model_root.h"

namespace modelgate {

/// The local clients of a mirror. Their requests are held back until the values are there, for a
/// second at most.
///
/// Threads: that of the loop, which dispatches the servers, too.
class MirrorClients {
 public:
  /// `loop` outlives the object. `isComplete` says whether the values are there. `arrived` is
  /// called by the loop, soon after each client has connected; it calls `release` when there is
  /// nothing to wait for. `gone` is called when the last client has gone.
  MirrorClients(EventLoop& loop, std::function<bool()> isComplete, std::function<void()> arrived,
                std::function<void()> gone)
      : loop_(loop),
        isComplete_(std::move(isComplete)),
        arrived_(std::move(arrived)),
        gone_(std::move(gone)) {}
  MirrorClients(const MirrorClients&) = delete;
  MirrorClients& operator=(const MirrorClients&) = delete;

  /// Adds the hooks for a server that begins, in place of the one before it, which has ended. The
  /// server ends before this object.
  void addHooks(ModelSrv::ServerOptions& options);
  /// The server has ended, and its clients with it.
  void reset() {
    release();
    count_ = 0;
  }
  /// Lets all requests be served.
  void release();
  /// Whether there is a client.
  [[nodiscard]] bool any() const { return count_ > 0; }

 private:
  struct Held {
    EventLoop::Clock::time_point until;
    ModelSrv::SessionHold hold;
  };

  void arrive(ModelSrv::SessionHold hold);
  void releaseLater();

  EventLoop& loop_;
  const std::function<bool()> isComplete_;
  const std::function<void()> arrived_;
  const std::function<void()> gone_;
  std::size_t count_ = 0;
  std::deque<Held> held_;
  EventLoop::Timer arrivalTimer_;
  EventLoop::Timer releaseTimer_;
};

}  // namespace modelgate
