#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "modelsrv/source/tree_session.h"
#include "tests/platform/modelsrv/fake_connection.h"
#include "tests/platform/modelsrv/served_tree.h"
#include "tests/platform/modelsrv/watch_log.h"

namespace modelsrv_tests {

/// The session of one client in a server that dispatches nothing: the test makes the requests and
/// takes the events.
class WatchSession : public testing::Test {
 protected:
  using Operation = ModelSrv::internal::Operation;
  static constexpr std::uint8_t subtree = ModelSrv::internal::watchSubtree;
  static constexpr std::uint8_t mayBeAbsent = ModelSrv::internal::watchMayBeAbsent;

  WatchSession() { openSession(); }

  void openSession() {
    session_.reset();
    session_ = std::make_unique<ModelSrv::internal::TreeSession>(
        std::make_shared<ModelSrv::internal::SessionShare>(server_.root), connection_);
  }

  ModelSrv::ModelRes handle(const ModelSrv::internal::Request& request) {
    const std::vector<std::uint8_t> payload = payloadOf(request);
    EvtSrv::internal::PayloadReader reader(payload, EvtSrv::internal::nativeOrder);
    std::vector<std::uint8_t> reply;
    return static_cast<ModelSrv::ModelRes>(
        session_->handle(static_cast<std::uint16_t>(request.operation), reader, reply));
  }

  ModelSrv::ModelRes watch(std::uint32_t number, const Chain& chain, std::uint8_t flags = 0,
                           std::uint32_t period = 0) {
    ModelSrv::internal::Request request{Operation::watch, chain};
    request.number = number;
    request.watchFlags = flags;
    request.period = period;
    return handle(request);
  }

  ModelSrv::ModelRes unwatch(std::uint32_t number) {
    ModelSrv::internal::Request request{Operation::unwatch, {}};
    request.number = number;
    return handle(request);
  }

  /// Takes the next event, in a dispatch; false if none is pending.
  bool takeOne(std::vector<std::string>& lines) {
    session_->beginEvents(true);
    std::uint16_t type = 0;
    std::vector<std::uint8_t> payload;
    if (!session_->takeEvent(type, payload)) {
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
  std::vector<std::string> take() {
    constexpr int most = 100'000;
    std::vector<std::string> lines;
    for (int events = 0; events < most; ++events) {
      if (!takeOne(lines) && !session_->eventsPaused()) {
        return lines;
      }
    }
    ADD_FAILURE() << "there is no end of the events";
    return lines;
  }

  Server server_{test_support::uniquePortName()};
  std::unique_lock<KSTD::KThreadMutex> lock_{server_.manager.clientMutex};
  FakeConnection connection_;
  std::unique_ptr<ModelSrv::internal::TreeSession> session_;
};

}  // namespace modelsrv_tests
