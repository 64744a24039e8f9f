#pragma once

#include <memory>

#include "evtsrv/result.h"
#include "kstd/export.h"
#include "kstd/thread_mutex.h"

namespace EvtSrv {

/// Behaviour bits of a manager and of a connection.
enum ConBehave : unsigned {
  ConBehave_Void = 0,
  /// Connections reach servers on this device only. The pipes of this library
  /// never leave the device; the bit matters to builds of the same interface
  /// that also reach over a network.
  ConBehave_DisableOverNetwork = 1,
  ConBehave_Default = ConBehave_DisableOverNetwork,
};

namespace internal {
class ManagerCore;
}

/// The event loop of a set of event ports: it waits for their connections and
/// dispatches what arrives.
///
/// A process may have several managers. A manager outlives its ports. Threads:
/// `receiveEvent`, `finishActiveTerm` and `wake` may be called from any thread at any
/// time. All communication of a port happens with `clientMutex` held, so at most one
/// exchange of a manager is in progress.
class KRV_EXPORT EventPortManager {
 public:
  /// `behaviour` is a set of `ConBehave` bits. With `reconnect`, a client's lost
  /// connection is made again to a new server of the same name: by `receiveEvent`, which
  /// notices the server's return without polling, or by the next request, whichever is
  /// first. A server that fails soon is tried again after 0.1 s, later after up to 5 s.
  /// Without `reconnect`, a lost connection stays lost until the client is started again. If the
  /// process is out of descriptors, the manager is unusable: every operation on its ports returns
  /// `EvtRes_NoDescriptors`.
  EventPortManager(unsigned behaviour, bool reconnect);
  ~EventPortManager();
  EventPortManager(const EventPortManager&) = delete;
  EventPortManager& operator=(const EventPortManager&) = delete;

  /// Waits at most `milliseconds` (0: does not wait; below 0: no limit) for input and
  /// dispatches it: a bounded amount, the rest at the next call. Nothing but the program's
  /// own callbacks blocks it. Returns `EvtRes_Success` if something was dispatched,
  /// `EvtRes_Timeout` after the time or after `wake`, or the error that makes the manager unusable.
  /// Holds `clientMutex` while it dispatches, and does not lock it while it waits.
  EvtRes receiveEvent(int milliseconds);

  /// A descriptor that is readable (`POLLIN`, `EPOLLIN`) whenever `receiveEvent(0)` has
  /// something to do, for a program with an event loop of its own: input, output that a
  /// peer now takes, a `wake`, and the timers and watches of this library. It stays
  /// readable until that is done, so it suits level-triggered loops; an edge-triggered one
  /// repeats `receiveEvent(0)` until it returns `EvtRes_Timeout` and the descriptor is not
  /// readable. It is the manager's, constant, and not to be read, changed or closed.
  /// Negative if the manager is unusable. Any thread.
  [[nodiscard]] int pollDescriptor() const;

  /// Waits at most `milliseconds` (below 0: no limit) until every graceful shutdown of
  /// the manager's ports is complete, and dispatches meanwhile. Returns `EvtRes_Success`,
  /// immediately if none is in progress, or `EvtRes_Timeout` if one is still in progress.
  /// A graceful shutdown is complete when every client has taken its pending output.
  EvtRes finishActiveTerm(int milliseconds);

  /// Makes one call of `receiveEvent`, the present or the next one, return without
  /// waiting any longer. Async-signal-safe.
  void wake() noexcept;

  /// Whether lost connections are made again.
  [[nodiscard]] bool reconnects() const;

  /// The client mutex: held while events are dispatched and while a request is made.
  /// Recursive, so an event handler may make requests.
  KSTD::KThreadMutex clientMutex;

  /// For the classes of this library only.
  [[nodiscard]] internal::ManagerCore& core() { return *core_; }

 private:
  std::unique_ptr<internal::ManagerCore> core_;
};

}  // namespace EvtSrv
