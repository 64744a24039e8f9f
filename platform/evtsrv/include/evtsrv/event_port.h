#pragma once

#include "evtsrv/memory_holder.h"
#include "evtsrv/result.h"
#include "kstd/export.h"

namespace EvtSrv {

class EventPortManager;

/// Where events arrive.
///
/// A port belongs to one manager, which must outlive it. The manager calls
/// `receive` from the thread that is inside `receiveEvent`, with the client mutex
/// held; a port may make requests, stop or connect again from there.
class KRV_EXPORT EventPort {
 public:
  /// `manager` is not owned.
  explicit EventPort(EventPortManager* manager);
  virtual ~EventPort();
  EventPort(const EventPort&) = delete;
  EventPort& operator=(const EventPort&) = delete;

  /// Takes one event: `sender` is the name of the port it came from, `type` one
  /// of the event types of the protocol spoken there, `data` its bytes. `reply`
  /// is for protocols whose events are answered, and empty otherwise. Neither
  /// pointer is null or outlives the call. The base hands everything to
  /// `receiveModelEvent`.
  virtual unsigned receive(const char* sender, unsigned type, MemoryHolder* data,
                           MemoryHolder* reply);

  /// What the owner of the port makes of an event; the base ignores it. Returns
  /// `EvtRes_Success` when the event has been dealt with.
  virtual unsigned receiveModelEvent(const char* sender, unsigned type, MemoryHolder* data,
                                     MemoryHolder* reply);

  /// The manager given at construction.
  [[nodiscard]] EventPortManager* manager() const { return manager_; }

 private:
  EventPortManager* manager_;
};

}  // namespace EvtSrv
