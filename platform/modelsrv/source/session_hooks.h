#pragma once

#include <cstddef>
#include <functional>
#include <memory>

#include "evtsrv/source/deferred_work.h"
#include "evtsrv/source/server_session.h"
#include "modelsrv/model_root.h"

namespace ModelSrv::internal {

/// Counts the clients of a service, and calls the program's hooks when they come and go. Guarded by
/// the client mutex.
///
/// Made with `std::make_shared`. The sessions keep it alive, which may outlive the service.
class SessionHooks final : public std::enable_shared_from_this<SessionHooks>,
                           private EvtSrv::internal::DeferredWork {
 public:
  explicit SessionHooks(EvtSrv::EventPortManager& manager) : manager_(manager) {}

  void set(const ServerOptions& options);
  /// No hook is called any more.
  void close();

  /// In a dispatch: a client has come.
  void sessionOpened(EvtSrv::internal::ServerConnection& connection);
  /// It has gone. The hook is called by the next dispatch, since this may be the end of a call of
  /// the program.
  void sessionEnded();

 private:
  bool runDeferred() override;

  EvtSrv::EventPortManager& manager_;
  std::function<void(SessionHold hold)> arrived_;
  std::function<void(std::size_t clients)> left_;
  std::size_t clients_ = 0;
  bool isOpen_ = true;
};

}  // namespace ModelSrv::internal
