#pragma once

#include "evtsrv/event_port_manager.h"

namespace modelsrvd {

/// The server's signal handlers, installed for the lifetime of the object; at most
/// one object per process at a time. SIGINT and SIGTERM request the end, SIGHUP
/// requests a reload, SIGIO reports changes of watched files, SIGPIPE and SIGXFSZ are ignored.
/// Each request wakes `manager`, which is not owned and outlives the object. After destruction the
/// signals are ignored.
class Signals {
 public:
  explicit Signals(EvtSrv::EventPortManager& manager);
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// Whether all handlers could be installed.
  [[nodiscard]] bool installed() const { return installed_; }

  /// Whether SIGINT or SIGTERM was received.
  [[nodiscard]] bool stopRequested() const;

  /// Whether SIGHUP was received since the last call.
  [[nodiscard]] bool takeReloadRequest();

  /// Whether SIGIO was received since the last call.
  [[nodiscard]] bool takeFileChange();

 private:
  bool installed_ = false;
};

}  // namespace modelsrvd
