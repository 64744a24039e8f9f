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

/// The traffic of a process's event ports: what waits for bytes and hands them
/// to ports and to their connections.
///
/// Several managers live side by side in one process. A manager outlives the
/// ports that were made on it. Threads: `receiveEvent`, `finishActiveTerm` and
/// `wake` may be called from any thread at any time; whatever a port does towards
/// its peers happens with `clientMutex` held, so that at most one exchange of a
/// manager is under way.
class KRV_EXPORT EventPortManager {
 public:
  /// `behaviour` is a set of `ConBehave` bits. With `reconnect` a client's
  /// request after its server went away tries to connect to a new server of that
  /// name first; without it a lost connection stays lost until it is started
  /// anew. Where the system gives no descriptors, every operation on the
  /// manager's ports gives `EvtRes_NoDescriptors`.
  EventPortManager(unsigned behaviour, bool reconnect);
  ~EventPortManager();
  EventPortManager(const EventPortManager&) = delete;
  EventPortManager& operator=(const EventPortManager&) = delete;

  /// Waits at most `milliseconds` (0: looks once; below 0: no limit) for
  /// something to do, does it with `clientMutex` held, and returns
  /// `EvtRes_Success`; `EvtRes_Timeout` when nothing came in that time or `wake`
  /// was called. The wait itself is made without taking the mutex.
  EvtRes receiveEvent(int milliseconds);

  /// Waits at most `milliseconds` until the terminations that are under way have
  /// ended; returns `EvtRes_Success` at once where there is none, and
  /// `EvtRes_Timeout` where some still runs. A termination is under way from
  /// an unhurried stop until every connection has taken what was pending for it.
  EvtRes finishActiveTerm(int milliseconds);

  /// Makes one `receiveEvent`, under way or the next, return without waiting
  /// further. Async-signal-safe.
  void wake() noexcept;

  /// Whether a lost connection is tried again by the next request.
  [[nodiscard]] bool reconnects() const;

  /// The client mutex: held while events are dispatched and while a request is
  /// made.
  KSTD::KThreadMutex clientMutex;

  /// What the library's own classes use; not for programs.
  [[nodiscard]] internal::ManagerCore& core() { return *core_; }

 private:
  std::unique_ptr<internal::ManagerCore> core_;
};

}  // namespace EvtSrv
