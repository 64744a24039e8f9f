#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "modelsrv/source/tree_session.h"
#include "tests/platform/modelsrv/fake_connection.h"
#include "tests/platform/modelsrv/watch_log.h"

namespace modelsrv_tests {

/// A session whose requests the test makes, and whose events it takes.
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

  ModelSrv::ModelRes unwatch(ModelSrv::internal::WatchNumber number) {
    ModelSrv::internal::Request request{ModelSrv::internal::Operation::unwatch, {}};
    request.number = number;
    return handle(13, payloadOf(request));
  }

  /// Takes one event; false if none is pending.
  bool take(bool inDispatch = true) {
    payload.clear();
    session_.beginEvents(inDispatch);
    return session_.takeEvent(type, payload);
  }
  [[nodiscard]] bool isPaused() const { return session_.eventsPaused(); }

  /// Takes one event, in a dispatch, and appends its lines; false if none is pending.
  bool takeOne(std::vector<std::string>& lines) {
    if (!take()) {
      return false;
    }
    ModelSrv::internal::DecodedWatchEvent decoded;
    const EvtSrv::internal::PayloadReader reader(payload, EvtSrv::internal::nativeOrder);
    EXPECT_TRUE(decodeWatchEvent(type, reader, decoded));
    WatchLog log;
    log.add(decoded.event);
    if (decoded.hasValue) {
      decoded.event.kind = ModelSrv::WatchEvent::Kind::value;
      log.add(decoded.event);
    }
    lines.insert(lines.end(), log.lines.begin(), log.lines.end());
    return true;
  }

  /// Takes all pending events, up to an unreasonable number.
  std::vector<std::string> takeAll() {
    constexpr int most = 100'000;
    std::vector<std::string> lines;
    for (int events = 0; events < most; ++events) {
      if (!takeOne(lines) && !isPaused()) {
        return lines;
      }
    }
    ADD_FAILURE() << "there is no end of the events";
    return lines;
  }

  void beginDrain() { session_.beginDrain(); }

  FakeConnection connection;
  std::vector<std::uint8_t> reply;
  std::uint16_t type = 0;
  std::vector<std::uint8_t> payload;

 private:
  ModelSrv::internal::TreeSession session_;
};

}  // namespace modelsrv_tests
