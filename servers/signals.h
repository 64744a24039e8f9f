#pragma once

#include "evtsrv/event_port_manager.h"

namespace modelsrvd {

/// The signals of the server while an object of this class lives, one at a time
/// in a process: SIGINT and SIGTERM ask for the end, SIGHUP for another look at
/// the file, SIGPIPE is ignored. Each wakes `manager`, which outlives the object
/// and is not owned. Afterwards the signals have no effect.
class Signals {
 public:
  explicit Signals(EvtSrv::EventPortManager& manager);
  ~Signals();
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// Whether the system let the handlers be set.
  [[nodiscard]] bool set() const { return set_; }

  /// Whether the end was asked for.
  [[nodiscard]] bool ended() const;

  /// Whether another look was asked for since the last call.
  [[nodiscard]] bool takeReload();

 private:
  bool set_ = false;
};

}  // namespace modelsrvd
