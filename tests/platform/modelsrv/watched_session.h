#pragma once

#include <cstdint>
#include <memory>
#include <vector>

#include "modelsrv/source/tree_session.h"
#include "tests/platform/modelsrv/fake_connection.h"

namespace modelsrv_tests {

/// A session whose events the test takes.
class WatchedSession {
 public:
  explicit WatchedSession(const std::shared_ptr<ModelSrv::internal::SessionShare>& share)
      : session_(share, connection) {}

  ModelSrv::ModelRes handle(std::uint16_t operation, const std::vector<std::uint8_t>& request,
                            EvtSrv::internal::ByteOrder order = EvtSrv::internal::nativeOrder) {
    reply.clear();
    EvtSrv::internal::PayloadReader reader(request, order);
    return static_cast<ModelSrv::ModelRes>(session_.handle(operation, reader, reply));
  }

  ModelSrv::ModelRes watch(ModelSrv::internal::WatchNumber number,
                           const std::vector<ModelSrv::ModelPartId>& chain, unsigned flags = 0,
                           std::uint32_t period = 0) {
    ModelSrv::internal::Request request{ModelSrv::internal::Operation::watch, chain};
    request.number = number;
    request.watchFlags = static_cast<std::uint8_t>(flags);
    request.period = period;
    return handle(12, payloadOf(request));
  }

  /// Takes one event; false if none is pending.
  bool take(bool inDispatch = true) {
    payload.clear();
    session_.beginEvents(inDispatch);
    return session_.takeEvent(type, payload);
  }
  [[nodiscard]] bool isPaused() const { return session_.eventsPaused(); }

  modelsrv_tests::FakeConnection connection;
  std::vector<std::uint8_t> reply;
  std::uint16_t type = 0;
  std::vector<std::uint8_t> payload;

 private:
  ModelSrv::internal::TreeSession session_;
};

}  // namespace modelsrv_tests
