#pragma once

#include <memory>
#include <string_view>

#include "evtsrv/event_port_manager.h"
#include "modelsrv/result.h"

namespace EvtSrv::internal {
class DeferredReply;
}  // namespace EvtSrv::internal

namespace ModelSrv {

class ModelRoot;

/// A client's store that gets its reply later, such as when a device far away has carried it out.
/// `ModelRoot::deferStore` makes one. Its client waits, and is served nothing else meanwhile; the
/// other clients are served. A client of this library waits 2 s, and takes no reply after that.
///
/// Threads: any, one at a time for one object. The manager of the root must outlive it.
class KRV_EXPORT DeferredStore {
 public:
  /// No store.
  DeferredStore() noexcept;
  /// A store without a reply gets `ModelRes_OutcomeUnknown`.
  ~DeferredStore();
  /// The object that is moved from has no store then.
  DeferredStore(DeferredStore&& other) noexcept;
  DeferredStore& operator=(DeferredStore&& other) noexcept;

  /// Whether the client waits: it has no reply yet, and its connection has not ended.
  [[nodiscard]] bool isAwaited() const;

  /// Replies with `result` and, if it is no success, with a line of UTF-8 that says why, of which
  /// the client gets at most `ModelReason_Max` bytes. A result of the connection becomes
  /// `ModelRes_Unreachable`, except `ModelRes_OutcomeUnknown`. Stores nothing: the program sets
  /// the value of the part before it replies with success. Does nothing if no client waits, and
  /// ends the connection if there is no memory for the reply.
  void complete(ModelRes result, std::string_view reason = {});

 private:
  friend class ModelRoot;
  DeferredStore(EvtSrv::EventPortManager& manager,
                std::shared_ptr<EvtSrv::internal::DeferredReply> reply) noexcept;

  EvtSrv::EventPortManager* manager_ = nullptr;
  std::shared_ptr<EvtSrv::internal::DeferredReply> reply_;
};

}  // namespace ModelSrv
