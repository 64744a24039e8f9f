#pragma once

#include <memory>

#include "evtsrv/event_port_manager.h"

namespace EvtSrv::internal {
class RequestHold;
}  // namespace EvtSrv::internal

namespace ModelSrv {

namespace internal {
class SessionHooks;
}  // namespace internal

/// Holds back the requests of one client from its arrival (`ServerOptions::arrived`), such as until
/// the program has made the tree that they are about. The client is connected; what it requests
/// waits, and the other clients are served. A client of this library gives a request 2 s: when they
/// are over the request fails with `ModelRes_Timeout`, and the client sends nothing more before it
/// has seen the late reply. So release within this time, with whatever tree there is.
///
/// A hold has no further effect when it is released, when the client has gone, and when the service
/// ends or begins to stop.
///
/// Threads: any, one at a time for one object. The manager of the root must outlive it.
class KRV_EXPORT SessionHold {
 public:
  /// No hold.
  SessionHold() noexcept;
  /// Releases.
  ~SessionHold();
  /// The object that is moved from holds nothing then.
  SessionHold(SessionHold&& other) noexcept;
  SessionHold& operator=(SessionHold&& other) noexcept;

  /// Whether the client is connected and its requests wait because of this object.
  [[nodiscard]] bool isInEffect() const;

  /// Lets the client's requests be served, by the next dispatches. Does nothing if they are not
  /// held back.
  void release();

 private:
  friend class internal::SessionHooks;
  SessionHold(EvtSrv::EventPortManager& manager,
              std::shared_ptr<EvtSrv::internal::RequestHold> hold) noexcept;

  EvtSrv::EventPortManager* manager_ = nullptr;
  std::shared_ptr<EvtSrv::internal::RequestHold> hold_;
};

}  // namespace ModelSrv
