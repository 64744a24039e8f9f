#pragma once

#include "evtsrv/memory_holder.h"
#include "evtsrv/result.h"
#include "kstd/export.h"

namespace EvtSrv {

class EventPortManager;

/// A receiver of events.
///
/// A port belongs to one manager, which must outlive it. The manager calls `receive`
/// from the thread that is inside `receiveEvent`, with the client mutex held. From there
/// a port may make requests, stop or connect again.
class KRV_EXPORT EventPort {
 public:
  /// `manager` is not owned.
  explicit EventPort(EventPortManager* manager);
  virtual ~EventPort();
  EventPort(const EventPort&) = delete;
  EventPort& operator=(const EventPort&) = delete;

  /// Receives one event. `sender` is the name of the port that sent it, `type` an event
  /// type of that port's protocol, `data` its payload. `reply` is for protocols whose
  /// events have replies, and is empty otherwise. No pointer is null, and none is valid
  /// after the call. The base implementation calls `receiveModelEvent` and returns its
  /// result.
  virtual unsigned receive(const char* sender, unsigned type, MemoryHolder* data,
                           MemoryHolder* reply);

  /// Handles an event of the port's protocol; the parameters are those of `receive`.
  /// Returns `EvtRes_Success` if the event was handled. The base implementation ignores
  /// it and returns `EvtRes_Success`.
  virtual unsigned receiveModelEvent(const char* sender, unsigned type, MemoryHolder* data,
                                     MemoryHolder* reply);

  /// The manager that was passed to the constructor.
  [[nodiscard]] EventPortManager* manager() const { return manager_; }

 private:
  EventPortManager* manager_;
};

}  // namespace EvtSrv
