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
  /// `behaviour` is a set of `ConBehave` bits. With `reconnect`, a client's request on
  /// a lost connection first tries to connect to a new server of the same name; without
  /// it, a lost connection stays lost until the client is started again. If the process
  /// is out of descriptors, the manager is unusable: every operation on its ports returns
  /// `EvtRes_NoDescriptors`.
  EventPortManager(unsigned behaviour, bool reconnect);
  ~EventPortManager();
  EventPortManager(const EventPortManager&) = delete;
  EventPortManager& operator=(const EventPortManager&) = delete;

  /// Waits at most `milliseconds` (0: does not wait; below 0: no limit) for input and
  /// dispatches it. Returns `EvtRes_Success` if something was dispatched, `EvtRes_Timeout`
  /// after the time or after `wake`, or the error that makes the manager unusable. Holds
  /// `clientMutex` while it dispatches, and does not lock it while it waits.
  EvtRes receiveEvent(int milliseconds);

  /// Waits at most `milliseconds` (below 0: no limit) until every graceful shutdown of
  /// the manager's ports is complete, and dispatches meanwhile. Returns `EvtRes_Success`,
  /// immediately if none is in progress, or `EvtRes_Timeout` if one is still in progress.
  /// A graceful shutdown is complete when every client has taken its pending output.
  EvtRes finishActiveTerm(int milliseconds);

  /// Makes one call of `receiveEvent`, the present or the next one, return without
  /// waiting any longer. Async-signal-safe.
  void wake() noexcept;

  /// Whether a request on a lost connection tries to connect again.
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
