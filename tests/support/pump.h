#pragma once

#include <atomic>
#include <thread>

#include "evtsrv/event_port_manager.h"

namespace test_support {

/// Dispatches the events of a manager on a thread of its own, from construction until
/// destruction.
class Pump {
 public:
  /// The manager must outlive this object.
  explicit Pump(EvtSrv::EventPortManager& manager)
      : manager_(manager), thread_([this] { run(); }) {}
  ~Pump() {
    ending_ = true;
    manager_.wake();
    thread_.join();
  }
  Pump(const Pump&) = delete;
  Pump& operator=(const Pump&) = delete;

 private:
  void run() {
    while (!ending_) {
      // Whatever the result is, only the flag ends the loop.
      static_cast<void>(manager_.receiveEvent(-1));
    }
  }

  EvtSrv::EventPortManager& manager_;
  std::atomic<bool> ending_{false};
  std::thread thread_;
};

}  // namespace test_support
