#pragma once

#include <cstdint>
#include <vector>

#include "evtsrv/source/manager_core.h"

namespace ModelSrv::internal {

/// The one timer of a server's watches. Guarded by the client mutex.
class WatchTimer final : private EvtSrv::internal::ReadyHandler {
 public:
  class Listener {
   public:
    virtual ~Listener() = default;
    /// Returns when to call it again, or 0 if that is not necessary.
    virtual std::int64_t timeReached(std::int64_t nowMs) = 0;
  };

  /// `core` outlives this.
  explicit WatchTimer(EvtSrv::internal::ManagerCore& core) : core_(core) {}
  ~WatchTimer() override { close(); }

  /// Adds a listener, and opens the timer for the first one; false if there is no descriptor for
  /// it. Throws `std::bad_alloc`.
  [[nodiscard]] bool add(Listener& listener);
  /// Removes it, and closes the timer after the last one.
  void remove(const Listener& listener);

  /// Calls every listener at that time of the monotonic clock, in milliseconds, or before.
  void callAt(std::int64_t timeMs);

 private:
  bool ready(unsigned role, std::uint32_t events) override;
  void close();

  EvtSrv::internal::ManagerCore& core_;
  std::vector<Listener*> listeners_;
  EvtSrv::internal::FileDescriptor timer_;
  EvtSrv::internal::Registration onTimer_;
  std::int64_t expiresAt_ = 0;  ///< 0: the timer does not run
};

}  // namespace ModelSrv::internal
